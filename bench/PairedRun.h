// Times a subject and a baseline that do the same work, both in every
// iteration and in alternating order, so that a change in the machine's speed
// hits both alike. Reports the subject's time per iteration as the
// benchmark's (manual) time, and as counters the medians "us" and "base_us"
// and their "ratio".
#ifndef VANTREL_BENCH_PAIRED_RUN_H_
#define VANTREL_BENCH_PAIRED_RUN_H_

#include <benchmark/benchmark.h>

#include <functional>

namespace Vantrel {
namespace Bench {

// Each function returns false on failure, which ends the benchmark with an
// error. `after_each` runs untimed after every call of either.
void RunPaired(benchmark::State& state, const std::function<bool()>& subject,
               const std::function<bool()>& baseline, const std::function<void()>& after_each);

}  // namespace Bench
}  // namespace Vantrel

#endif  // VANTREL_BENCH_PAIRED_RUN_H_

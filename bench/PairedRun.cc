#include "PairedRun.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace Vantrel {
namespace Bench {
namespace {

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Seconds that `work` took; negative when it failed.
double Timed(const std::function<bool()>& work) {
  auto start = std::chrono::steady_clock::now();
  bool ok = work();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return ok ? seconds : -1;
}

}  // namespace

void RunPaired(benchmark::State& state, const std::function<bool()>& subject,
               const std::function<bool()>& baseline, const std::function<void()>& after_each) {
  std::vector<double> subject_times, baseline_times;
  bool subject_first = true;
  for (auto _ : state) {
    double subject_seconds = 0, baseline_seconds = 0;
    for (int turn = 0; turn < 2; ++turn) {
      bool subject_turn = (turn == 0) == subject_first;
      double& seconds = subject_turn ? subject_seconds : baseline_seconds;
      seconds = Timed(subject_turn ? subject : baseline);
      if (after_each) after_each();
      if (seconds < 0) {
        state.SkipWithError(subject_turn ? "the subject failed" : "the baseline failed");
        return;
      }
    }
    subject_first = !subject_first;
    subject_times.push_back(subject_seconds);
    baseline_times.push_back(baseline_seconds);
    state.SetIterationTime(subject_seconds);
  }
  const double subject_median = Median(subject_times);
  const double baseline_median = Median(baseline_times);
  state.counters["us"] = subject_median * 1e6;
  state.counters["base_us"] = baseline_median * 1e6;
  state.counters["ratio"] = baseline_median > 0 ? subject_median / baseline_median : 0;
}

}  // namespace Bench
}  // namespace Vantrel

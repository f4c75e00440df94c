// Counts the heap allocations that the calling thread makes while a counter
// is alive. malloc and its kin are wrapped in the benchmark program itself,
// so what libcurl, PCRE2 and OpenSSL allocate counts along with the library's
// own; other threads (the emulator's) are not counted.
#ifndef VANTREL_BENCH_ALLOCATION_COUNTER_H_
#define VANTREL_BENCH_ALLOCATION_COUNTER_H_

#include <cstddef>

namespace Vantrel {
namespace Bench {

class AllocationCounter {
 public:
  AllocationCounter();
  ~AllocationCounter();

  AllocationCounter(const AllocationCounter&) = delete;
  AllocationCounter& operator=(const AllocationCounter&) = delete;

  // Calls to malloc, calloc and realloc since the counter began.
  size_t allocations() const;
  // How far the thread's live heap rose above where it stood at the start.
  size_t peak_bytes() const;
};

}  // namespace Bench
}  // namespace Vantrel

#endif  // VANTREL_BENCH_ALLOCATION_COUNTER_H_

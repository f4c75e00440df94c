// Counts the calls of the global operator new made on this thread while a
// counter is alive; the replacement operators live in AllocationCounter.cc.
#ifndef VANTREL_TESTS_ENGINE_ALLOCATION_COUNTER_H_
#define VANTREL_TESTS_ENGINE_ALLOCATION_COUNTER_H_

namespace Vantrel {
namespace Auth {
namespace testing {

class AllocationCounter {
 public:
  AllocationCounter();
  ~AllocationCounter();
  AllocationCounter(const AllocationCounter&) = delete;
  AllocationCounter& operator=(const AllocationCounter&) = delete;

  int Count() const;
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_TESTS_ENGINE_ALLOCATION_COUNTER_H_

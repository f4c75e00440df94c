#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool counting = false;
thread_local int allocations = 0;

}  // namespace

namespace {

void* CountedAllocation(std::size_t size) {
  if (counting) ++allocations;
  void* memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

// The array forms are replaced too: a sanitizer runtime brings its own, which
// would not forward to the single-object form.
void* operator new(std::size_t size) { return CountedAllocation(size); }
void* operator new[](std::size_t size) { return CountedAllocation(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace Vantrel {
namespace Auth {
namespace testing {

AllocationCounter::AllocationCounter() {
  allocations = 0;
  counting = true;
}

AllocationCounter::~AllocationCounter() { counting = false; }

int AllocationCounter::Count() const { return allocations; }

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

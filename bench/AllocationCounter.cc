#include "AllocationCounter.h"

#include <malloc.h>

#include <cstdint>

// glibc's own entry points, which the wrappers below hand every call to.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);
}

namespace {

// Plain thread-local integers: reading them allocates nothing, so the
// wrappers may touch them from the first malloc of a thread on.
thread_local bool counting = false;
thread_local size_t allocation_count = 0;
thread_local std::int64_t live_bytes = 0;
thread_local std::int64_t peak_live_bytes = 0;

void NoteAllocated(void* pointer) {
  if (!counting || pointer == nullptr) return;
  ++allocation_count;
  live_bytes += static_cast<std::int64_t>(malloc_usable_size(pointer));
  if (live_bytes > peak_live_bytes) peak_live_bytes = live_bytes;
}

void NoteReleased(void* pointer) {
  if (counting && pointer != nullptr) {
    live_bytes -= static_cast<std::int64_t>(malloc_usable_size(pointer));
  }
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
  void* pointer = __libc_malloc(size);
  NoteAllocated(pointer);
  return pointer;
}

void* calloc(size_t count, size_t size) {
  void* pointer = __libc_calloc(count, size);
  NoteAllocated(pointer);
  return pointer;
}

void* realloc(void* pointer, size_t size) {
  NoteReleased(pointer);
  void* moved = __libc_realloc(pointer, size);
  NoteAllocated(moved);
  return moved;
}

void free(void* pointer) {
  NoteReleased(pointer);
  __libc_free(pointer);
}

}  // extern "C"

namespace Vantrel {
namespace Bench {

AllocationCounter::AllocationCounter() {
  allocation_count = 0;
  live_bytes = 0;
  peak_live_bytes = 0;
  counting = true;
}

AllocationCounter::~AllocationCounter() { counting = false; }

size_t AllocationCounter::allocations() const { return allocation_count; }

size_t AllocationCounter::peak_bytes() const { return static_cast<size_t>(peak_live_bytes); }

}  // namespace Bench
}  // namespace Vantrel

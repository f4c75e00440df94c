#include "allocation/AllocationHooks.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Vantrel::Auth::testing {
namespace {

// In front of every block of plain new: its size, and whether it was counted.
struct alignas(std::max_align_t) BlockHeader {
  size_t size;
  bool counted;
};

// Plain values only: operator new runs before a thread's dynamic
// thread_locals exist.
thread_local long countdown = 0;
thread_local bool fired = false;
thread_local bool counting = false;
thread_local bool recording = false;

std::atomic<long> live_counted{0};

// Freed bytes of the recording thread, each block followed by a NUL (no
// secret holds one). Grown with realloc: new would come back here.
char* graveyard = nullptr;
size_t graveyard_used = 0;
size_t graveyard_capacity = 0;

void Bury(const void* data, size_t size) {
  size_t needed = graveyard_used + size + 1;
  if (needed > graveyard_capacity) {
    size_t capacity = graveyard_capacity == 0 ? (1 << 20) : graveyard_capacity;
    while (capacity < needed) capacity *= 2;
    void* grown = std::realloc(graveyard, capacity);
    if (grown == nullptr) std::abort();
    graveyard = static_cast<char*>(grown);
    graveyard_capacity = capacity;
  }
  std::memcpy(graveyard + graveyard_used, data, size);
  graveyard_used += size;
  graveyard[graveyard_used++] = '\0';
}

void* Allocate(size_t size, bool nothrow) {
  if (countdown > 0 && --countdown == 0) {
    fired = true;
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  void* raw = std::malloc(sizeof(BlockHeader) + size);
  if (raw == nullptr) {
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  BlockHeader* header = static_cast<BlockHeader*>(raw);
  // A block holds nothing from its last owner: what a search finds in it at
  // its end, its own owner put there.
  std::memset(header + 1, 0xA5, size);
  header->size = size;
  header->counted = counting;
  if (counting) live_counted.fetch_add(1, std::memory_order_relaxed);
  return header + 1;
}

void Release(void* block) {
  if (block == nullptr) return;
  BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
  if (recording) Bury(block, header->size);
  if (header->counted) live_counted.fetch_sub(1, std::memory_order_relaxed);
  std::free(header);
}

void* AllocateAligned(size_t size, std::align_val_t alignment, bool nothrow) {
  size_t align = static_cast<size_t>(alignment);
  void* block = std::aligned_alloc(align, (size + align - 1) / align * align);
  if (block == nullptr && !nothrow) throw std::bad_alloc();
  return block;
}

}  // namespace

void AllocationHooks::ArmCountdown(long n) {
  countdown = n;
  fired = false;
}

bool AllocationHooks::DisarmCountdown() {
  countdown = 0;
  return fired;
}

void AllocationHooks::Count(bool on) { counting = on; }

long AllocationHooks::LiveCounted() { return live_counted.load(); }

void AllocationHooks::Record(bool on) { recording = on; }

std::vector<std::string> AllocationHooks::TakeSecretsFound(const std::vector<std::string>& secrets) {
  bool was_recording = recording;
  recording = false;
  std::vector<std::string> found;
  for (const std::string& secret : secrets) {
    if (secret.size() >= 4 && graveyard_used > 0 &&
        memmem(graveyard, graveyard_used, secret.data(), secret.size()) != nullptr) {
      found.push_back(secret);
    }
  }
  graveyard_used = 0;
  recording = was_recording;
  return found;
}

}  // namespace Vantrel::Auth::testing

using Vantrel::Auth::testing::Allocate;
using Vantrel::Auth::testing::AllocateAligned;
using Vantrel::Auth::testing::Release;

void* operator new(size_t size) { return Allocate(size, false); }
void* operator new[](size_t size) { return Allocate(size, false); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, size_t) noexcept { Release(block); }
void operator delete[](void* block, size_t) noexcept { Release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { Release(block); }

void* operator new(size_t size, std::align_val_t align) { return AllocateAligned(size, align, false); }
void* operator new[](size_t size, std::align_val_t align) { return AllocateAligned(size, align, false); }
void* operator new(size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
  return AllocateAligned(size, align, true);
}
void* operator new[](size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
  return AllocateAligned(size, align, true);
}
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { std::free(block); }

// This program's own global operator new and delete. What they do beyond
// malloc and free is switched on per thread, so the emulator's threads are
// never touched:
//   - a countdown that makes the n-th allocation throw std::bad_alloc;
//   - a count of the blocks allocated while counting that are still alive,
//     wherever they are freed;
//   - a copy of every block freed while recording, to be searched for the
//     secrets that it must not hold.
// Blocks of over-aligned new are passed straight to the C library.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Vantrel::Auth::testing {

class AllocationHooks {
 public:
  // The `n`-th allocation of this thread from now on throws; 0 switches the
  // countdown off. Returns whether an armed countdown reached zero.
  static void ArmCountdown(long n);
  static bool DisarmCountdown();

  // Blocks allocated on this thread while counting, and not freed since.
  static void Count(bool on);
  static long LiveCounted();

  // Keeps the bytes of every block this thread frees while recording.
  static void Record(bool on);
  // Those of `secrets` (each at least four bytes) that some recorded block
  // held, each once; forgets what was recorded.
  static std::vector<std::string> TakeSecretsFound(const std::vector<std::string>& secrets);
};

}  // namespace Vantrel::Auth::testing

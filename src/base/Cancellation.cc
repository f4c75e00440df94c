#include "base/Cancellation.h"

#include <algorithm>
#include <thread>

namespace Vantrel {
namespace Auth {

bool Cancellation::SleepFor(std::chrono::milliseconds duration) const {
  // Polled rather than signalled: Raise must stay safe in a signal handler,
  // where no condition variable may be touched.
  auto deadline = std::chrono::steady_clock::now() + duration;
  while (!IsRaised()) {
    auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    std::this_thread::sleep_for(
        std::min<std::chrono::steady_clock::duration>(kWatchInterval, deadline - now));
  }
  return true;
}

}  // namespace Auth
}  // namespace Vantrel

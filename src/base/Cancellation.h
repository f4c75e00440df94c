// Cancellation: the flag AuthEngine::Cancel raises and an attempt watches.
//
// Raise may come from any thread, from inside the library's callbacks, and
// from a signal handler: it is one lock-free store. The attempt reads the
// flag between steps, inside libcurl's progress callback, and while it waits
// on its own (a poll interval, a browser redirect), at least every 100 ms.
#ifndef VANTREL_AUTH_BASE_CANCELLATION_H_
#define VANTREL_AUTH_BASE_CANCELLATION_H_

#include <atomic>
#include <chrono>

namespace Vantrel {
namespace Auth {

class Cancellation {
 public:
  Cancellation() : raised_(false) {}
  Cancellation(const Cancellation&) = delete;
  Cancellation& operator=(const Cancellation&) = delete;

  void Raise() { raised_.store(true, std::memory_order_relaxed); }
  // At the start of each attempt: a Cancel meant for the last one is spent.
  void Clear() { raised_.store(false, std::memory_order_relaxed); }
  bool IsRaised() const { return raised_.load(std::memory_order_relaxed); }

  // Sleeps for `duration` unless raised first; true if it was raised.
  bool SleepFor(std::chrono::milliseconds duration) const;

  // The granularity of SleepFor and of every other wait that watches the flag.
  static constexpr std::chrono::milliseconds kWatchInterval{100};

 private:
  std::atomic<bool> raised_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_BASE_CANCELLATION_H_

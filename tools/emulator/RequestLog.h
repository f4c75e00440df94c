// RequestLog: the requests an emulator received, in arrival order.
//
// A request is logged before its response is written, so once a client has
// its answer the request is already here: tests read the log right after the
// transfer returns, without waiting.
#ifndef VANTREL_EMULATOR_REQUEST_LOG_H_
#define VANTREL_EMULATOR_REQUEST_LOG_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "emulator/Request.h"

namespace Vantrel {
namespace Emulation {

class RequestLog {
 public:
  void Add(const Request& request);
  std::vector<Request> Snapshot() const;
  std::size_t Size() const;
  void Clear();

  // Blocks until at least `count` requests are logged; false on time-out.
  bool WaitFor(std::size_t count, std::chrono::milliseconds timeout) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable grown_;
  std::vector<Request> requests_;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_REQUEST_LOG_H_

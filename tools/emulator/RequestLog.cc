#include "emulator/RequestLog.h"

namespace Vantrel {
namespace Emulation {

void RequestLog::Add(const Request& request) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
  }
  grown_.notify_all();
}

std::vector<Request> RequestLog::Snapshot() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

std::size_t RequestLog::Size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_.size();
}

void RequestLog::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  requests_.clear();
}

bool RequestLog::WaitFor(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return grown_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

}  // namespace Emulation
}  // namespace Vantrel

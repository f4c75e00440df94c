// Collects the library's log lines for a test through the plain function
// pointer the logger takes; restores the global configuration on scope exit.
#ifndef VANTREL_TESTS_NETWORK_LOG_CAPTURE_H_
#define VANTREL_TESTS_NETWORK_LOG_CAPTURE_H_

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "AuthEngineConfig.h"

namespace Vantrel {
namespace Auth {
namespace testing {

class LogCapture {
 public:
  LogCapture() {
    AuthEngineConfig::SetLoggerCallback(&Collect);
    AuthEngineConfig::SetLogLevel(kLogLevelDebug);
    Clear();
  }
  ~LogCapture() {
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
    AuthEngineConfig::SetLoggerCallback(nullptr);
    AuthEngineConfig::SetTempLogDir(nullptr);
    AuthEngineConfig::SetProxy(nullptr);
    Clear();
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  static std::vector<std::string> Lines() {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  static void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
  }
  static bool Has(const std::string& line) {
    std::vector<std::string> lines = Lines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }

 private:
  static void Collect(VantrelAuthLogLevel, const char* message) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(message);
  }
  static inline std::mutex mutex_;
  static inline std::vector<std::string> lines_;
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_TESTS_NETWORK_LOG_CAPTURE_H_

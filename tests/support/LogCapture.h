// Collects the library's log lines during a test, through the plain function
// pointer the logger takes. On scope exit it puts the global configuration
// back as a fresh process has it: no logging, no proxy, no log directory.
#ifndef VANTREL_TESTS_SUPPORT_LOG_CAPTURE_H_
#define VANTREL_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "AuthEngineConfig.h"

namespace Vantrel {
namespace Auth {
namespace testing {

class ScopedLogCapture {
 public:
  explicit ScopedLogCapture(VantrelAuthLogLevel level = kLogLevelDebug) {
    AuthEngineConfig::SetLoggerCallback(&Collect);
    AuthEngineConfig::SetLogLevel(level);
    Clear();
  }
  ~ScopedLogCapture() {
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
    AuthEngineConfig::SetLoggerCallback(nullptr);
    AuthEngineConfig::SetTempLogDir(nullptr);
    AuthEngineConfig::SetProxy(nullptr);
    Clear();
  }
  ScopedLogCapture(const ScopedLogCapture&) = delete;
  ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

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
  // Position of the first line equal to `line`, or -1.
  static long IndexOf(const std::string& line) {
    std::vector<std::string> lines = Lines();
    auto found = std::find(lines.begin(), lines.end(), line);
    return found == lines.end() ? -1 : static_cast<long>(found - lines.begin());
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

#endif  // VANTREL_TESTS_SUPPORT_LOG_CAPTURE_H_

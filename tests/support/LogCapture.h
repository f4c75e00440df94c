// Collects log lines; on scope exit restores the global configuration of a
// fresh process: no logging, no proxy, no log directory.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "VantrelAuthEngine64/AuthEngineConfig.h"

namespace Vantrel::Auth::testing {

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

  static std::vector<std::string> Lines() {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  static void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
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

}  // namespace Vantrel::Auth::testing

// Records what the logger hands to the host's callback, with each message's
// level, and leaves the logger silent again when it goes out of scope.
#ifndef VANTREL_TESTS_ENGINE_LOG_RECORDER_H_
#define VANTREL_TESTS_ENGINE_LOG_RECORDER_H_

#include <string>
#include <utility>
#include <vector>

#include "AuthEngineConfig.h"
#include "Logger.h"

namespace Vantrel {
namespace Auth {
namespace testing {

class LogRecorder {
 public:
  // Installs the callback, then the level, without logging either change.
  explicit LogRecorder(VantrelAuthLogLevel level = kLogLevelDebug) {
    Logger::GetInstance()->SetLogLevel(kLogLevelOff);
    Logger::GetInstance()->SetCallback(&Record);
    Logger::GetInstance()->SetLogLevel(level);
    Entries().clear();
  }
  ~LogRecorder() {
    Logger::GetInstance()->SetLogLevel(kLogLevelOff);
    Logger::GetInstance()->SetCallback(nullptr);
    Entries().clear();
  }
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  static std::vector<std::pair<VantrelAuthLogLevel, std::string>>& Entries() {
    static std::vector<std::pair<VantrelAuthLogLevel, std::string>> entries;
    return entries;
  }
  static std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const auto& entry : Entries()) texts.push_back(entry.second);
    return texts;
  }
  static void Record(VantrelAuthLogLevel level, const char* message) {
    Entries().emplace_back(level, message);
  }
};

}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_TESTS_ENGINE_LOG_RECORDER_H_

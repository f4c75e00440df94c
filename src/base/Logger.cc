#include "base/Logger.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

namespace Vantrel {
namespace Auth {
namespace {

// True if `format` holds nothing but "%s" placeholders, at most five, and
// "%%". Only then is the buffer's size an upper bound and every conversion
// backed by an argument.
bool KeepsPlaceholderRule(const char* format) {
  int placeholders = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    if (*p != 's' || ++placeholders > 5) return false;
  }
  return true;
}

}  // namespace

Logger* Logger::instance_ = nullptr;

Logger::Logger() : log_level_(kLogLevelOff), callback_(nullptr) {}

Logger::~Logger() {}

Logger* Logger::GetInstance() {
  // Two threads may log first at once; exactly one logger must come of it.
  // The flag is constant-initialised, so no guard stands in front of it.
  static std::once_flag created;
  std::call_once(created, [] { instance_ = new Logger(); });
  return instance_;
}

void Logger::SetLogLevel(VantrelAuthLogLevel level) { log_level_ = level; }

VantrelAuthLogLevel Logger::GetLogLevel() const { return log_level_; }

void Logger::SetCallback(VantrelAuthLogCallback callback) { callback_ = callback; }

bool Logger::Passes(VantrelAuthLogLevel level) const {
  return callback_ != nullptr && log_level_ != kLogLevelOff &&
         static_cast<int32_t>(level) <= static_cast<int32_t>(log_level_);
}

bool Logger::IsEnabled(VantrelAuthLogLevel level) { return GetInstance()->Passes(level); }

void Logger::Log(VantrelAuthLogLevel level, const char* text) {
  Logger* logger = GetInstance();
  // A host's callback may print the text as it comes; null is never handed on.
  if (text != nullptr && logger->Passes(level)) logger->callback_(level, text);
}

void Logger::LogFormat(VantrelAuthLogLevel level, const char* format, const char* a1,
                       const char* a2, const char* a3, const char* a4, const char* a5) {
  Logger* logger = GetInstance();
  if (!logger->Passes(level) || format == nullptr || format[0] == '\0') return;

  std::unique_ptr<const char*[]> args(new const char*[5]{a1, a2, a3, a4, a5});
  // Each placeholder's own two characters are counted too: an upper bound.
  size_t size = std::strlen(format) + 1;
  for (int i = 0; i < 5; ++i) {
    if (args[i] == nullptr) args[i] = "";
    size += std::strlen(args[i]);
  }
  std::unique_ptr<char[]> buffer(new char[size]);
  if (KeepsPlaceholderRule(format)) {
    std::snprintf(buffer.get(), size, format, args[0], args[1], args[2], args[3], args[4]);
  } else {
    // A format that breaks the rule is a fault of ours; it goes out as it
    // stands, visible in the log, rather than read arguments never passed.
    std::memcpy(buffer.get(), format, std::strlen(format) + 1);
  }

  logger = GetInstance();
  if (logger->Passes(level)) logger->callback_(level, buffer.get());
  // Declared after the array, the buffer is released first.
}

}  // namespace Auth
}  // namespace Vantrel

#include "Logger.h"

#include <cstdio>
#include <cstring>

namespace Vantrel {
namespace Auth {

// Created without a guard: the host makes its first configuration call on one
// thread before others enter the library, and exactly one logger must exist.
Logger* Logger::instance_ = nullptr;

Logger::Logger() : log_level_(kLogLevelOff), callback_(nullptr) {}

Logger::~Logger() {}

Logger* Logger::GetInstance() {
  if (instance_ == nullptr) instance_ = new Logger();
  return instance_;
}

void Logger::SetLogLevel(VantrelAuthLogLevel level) { log_level_ = level; }

VantrelAuthLogLevel Logger::GetLogLevel() const { return log_level_; }

void Logger::SetCallback(VantrelAuthLogCallback callback) { callback_ = callback; }

bool Logger::Passes(VantrelAuthLogLevel level) const {
  return callback_ != nullptr && log_level_ != kLogLevelOff &&
         static_cast<int32_t>(level) <= static_cast<int32_t>(log_level_);
}

void Logger::Log(VantrelAuthLogLevel level, const char* text) {
  Logger* logger = GetInstance();
  if (logger->Passes(level)) logger->callback_(level, text);
}

void Logger::LogFormat(VantrelAuthLogLevel level, const char* format, const char* a1,
                       const char* a2, const char* a3, const char* a4, const char* a5) {
  Logger* logger = GetInstance();
  if (!logger->Passes(level) || format == nullptr || format[0] == '\0') return;

  const char** args = new const char*[5]{a1, a2, a3, a4, a5};
  // Each placeholder's own two characters are counted too, so this is an
  // upper bound as long as the format holds only "%s", at most five.
  size_t size = std::strlen(format) + 1;
  for (int i = 0; i < 5; ++i) {
    if (args[i] == nullptr) args[i] = "";
    size += std::strlen(args[i]);
  }
  char* buffer = new char[size];
  std::snprintf(buffer, size, format, args[0], args[1], args[2], args[3], args[4]);

  logger = GetInstance();
  if (logger->Passes(level)) logger->callback_(level, buffer);
  delete[] buffer;
  delete[] args;
}

}  // namespace Auth
}  // namespace Vantrel

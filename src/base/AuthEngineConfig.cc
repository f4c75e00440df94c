#include "VantrelAuthEngine64/AuthEngineConfig.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <string>

#include "base/Logger.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// libcurl refuses a time-out whose milliseconds don't fit an int and would
// then keep its own default; capped here, the host's bound still holds.
const long kLongestTimeout = INT_MAX / 1000;

// Atomic although hosts set them between attempts: the transport reads them
// at every request, and a host changing one while another engine is signing
// in gets the old or the new value, never a torn one.
// None by default: unless the host asks for a bound, each request runs under
// libcurl's own defaults, as it always has.
std::atomic<long> connect_timeout{0};
std::atomic<long> request_timeout{0};

// 0 is "none"; below 0 is taken as 0, since no bound can be shorter than none.
long Bound(long seconds) { return seconds > 0 ? std::min(seconds, kLongestTimeout) : 0; }

void LogSetter(const char* format, long seconds) {
  std::string text = std::to_string(seconds);
  Logger::LogFormat(kLogLevelInfo, format, text.c_str(), nullptr, nullptr, nullptr, nullptr);
}

}  // namespace

char* AuthEngineConfig::proxy_ = nullptr;
char* AuthEngineConfig::temp_log_dir_ = nullptr;
const size_t AuthEngineConfig::kBufferSize;
const int AuthEngineConfig::kMaxRedirect;

void AuthEngineConfig::SetProxy(const char* proxy) {
  Logger::LogFormat(kLogLevelInfo, "AuthEngineConfig::SetProxy(%s)", proxy, nullptr, nullptr,
                    nullptr, nullptr);
  // An empty proxy clears it, unlike an empty log directory: libcurl would
  // take "" as a proxy of its own. StrAssign reads `proxy` before releasing the
  // old copy, so a host may pass back what GetProxy gave it.
  if (proxy != nullptr && proxy[0] != '\0') {
    StrAssign(&proxy_, proxy);
  } else {
    StrFree(&proxy_);
  }
}

const char* AuthEngineConfig::GetProxy() { return proxy_; }

void AuthEngineConfig::SetLogLevel(VantrelAuthLogLevel level) {
  OwnedString text(IntToText(level));
  Logger::LogFormat(kLogLevelInfo, "AuthEngineConfig::SetLogLevel(%s)", text.get(), nullptr,
                    nullptr, nullptr, nullptr);
  Logger::GetInstance()->SetLogLevel(level);
}

VantrelAuthLogLevel AuthEngineConfig::GetLogLevel() {
  return Logger::GetInstance()->GetLogLevel();
}

void AuthEngineConfig::SetLoggerCallback(void (*callback)(VantrelAuthLogLevel, const char*)) {
  Logger::Log(kLogLevelInfo, "AuthEngineConfig::SetLoggerCallback(...)");
  Logger::GetInstance()->SetCallback(callback);
}

void AuthEngineConfig::SetTempLogDir(const char* dir) {
  Logger::LogFormat(kLogLevelInfo, "AuthEngineConfig::SetTempLogDir dir: %s", dir, nullptr,
                    nullptr, nullptr, nullptr);
  StrAssign(&temp_log_dir_, dir);
}

const char* AuthEngineConfig::GetTempLogDir() { return temp_log_dir_; }

void AuthEngineConfig::SetConnectTimeout(long seconds) {
  LogSetter("AuthEngineConfig::SetConnectTimeout(%s)", seconds);
  connect_timeout = Bound(seconds);
}

long AuthEngineConfig::GetConnectTimeout() { return connect_timeout; }

void AuthEngineConfig::SetRequestTimeout(long seconds) {
  LogSetter("AuthEngineConfig::SetRequestTimeout(%s)", seconds);
  request_timeout = Bound(seconds);
}

long AuthEngineConfig::GetRequestTimeout() { return request_timeout; }

size_t AuthEngineConfig::GetDefaultBufferSize() { return kBufferSize; }

int AuthEngineConfig::GetMaxRedirect() { return kMaxRedirect; }

}  // namespace Auth
}  // namespace Vantrel

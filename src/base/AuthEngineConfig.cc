#include "VantrelAuthEngine64/AuthEngineConfig.h"

#include "base/Logger.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

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

size_t AuthEngineConfig::GetDefaultBufferSize() { return kBufferSize; }

int AuthEngineConfig::GetMaxRedirect() { return kMaxRedirect; }

}  // namespace Auth
}  // namespace Vantrel

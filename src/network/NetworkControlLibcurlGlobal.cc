// The static half of NetworkControlLibcurl: libcurl's global set-up, called by
// AuthEngine::GlobalInit and GlobalCleanup. The transport itself is in
// NetworkControlLibcurl.cc.
#include "network/NetworkControlLibcurl.h"

#include "base/Logger.h"
#include "network/VantrelCurlGlobal.h"

namespace Vantrel {
namespace Auth {

AuthResult NetworkControlLibcurl::Init() {
  Logger::Log(kLogLevelDebug, "NetworkControlLibcurl::Init() called");
  VantrelCurlGlobal global;
  return global.Init() == CURLE_OK ? kAuthResultOk : kAuthResultInitError;
}

AuthResult NetworkControlLibcurl::Cleanup() {
  Logger::Log(kLogLevelDebug, "NetworkControlLibcurl::Cleanup() called");
  VantrelCurlGlobal global;
  global.Cleanup();
  return kAuthResultOk;
}

}  // namespace Auth
}  // namespace Vantrel

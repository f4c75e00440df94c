// AuthEngineConfig: process-wide settings. Static operations only.
//
// Change these only while no sign-in is running on any thread. Pointers
// returned by the getters die with the next call of the matching setter.
#ifndef VANTREL_AUTH_AUTH_ENGINE_CONFIG_H_
#define VANTREL_AUTH_AUTH_ENGINE_CONFIG_H_

#include <cstddef>

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/AuthTypes.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT AuthEngineConfig {
 public:
  // Proxy for every request, in libcurl's proxy syntax ("http://host:port").
  // Null or "" clears it. Read afresh at each sign-in attempt.
  static void SetProxy(const char* proxy);
  static const char* GetProxy();

  // Log level of the library's logger; the line announcing the change is
  // logged under the old level.
  static void SetLogLevel(VantrelAuthLogLevel level);
  static VantrelAuthLogLevel GetLogLevel();

  // The host's log function; null ends logging. Install it before the level.
  static void SetLoggerCallback(void (*callback)(VantrelAuthLogLevel, const char*));

  // Directory for the one temporary file of libcurl's verbose text (used at
  // kLogLevelDebug). Read once, when an AuthEngine is constructed. Null clears
  // it; "" is stored and means none.
  static void SetTempLogDir(const char* dir);
  static const char* GetTempLogDir();

  // Time-outs of every request, in seconds, read afresh at each request. The
  // connect time-out bounds the connection phase (name lookup, TCP, proxy
  // CONNECT, TLS handshake); the request time-out bounds a whole request,
  // connection phase included. Both default to 0, none of the library's own:
  // libcurl's defaults hold (300 s to connect, no bound on a request), so a
  // host that must not hang sets both. Below 0 counts as 0, above 2147483 s
  // (some 24 days) as that. A request that runs out fails with
  // kAuthResultSendFailed and a detail naming the time-out and its length.
  static void SetConnectTimeout(long seconds);
  static long GetConnectTimeout();
  static void SetRequestTimeout(long seconds);
  static long GetRequestTimeout();

  // Capacity of every detail text, terminator included: 256.
  static size_t GetDefaultBufferSize();
  // Bound on the requests of one realm discovery: 10.
  static int GetMaxRedirect();

 private:
  AuthEngineConfig() = delete;

  static char* proxy_;
  static char* temp_log_dir_;
  static const size_t kBufferSize = 256;
  static const int kMaxRedirect = 10;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTH_ENGINE_CONFIG_H_

// VantrelCurlGlobal: a stateless cover over libcurl's two global calls.
//
// Internal. Objects are made on the stack for one call. Tests may divert the
// two calls through SetHooksForTesting to count them or to make Init fail.
#ifndef VANTREL_AUTH_NETWORK_VANTREL_CURL_GLOBAL_H_
#define VANTREL_AUTH_NETWORK_VANTREL_CURL_GLOBAL_H_

#include <curl/curl.h>

namespace Vantrel {
namespace Auth {

class VantrelCurlGlobal {
 public:
  typedef CURLcode (*InitFunction)(long flags);
  typedef void (*CleanupFunction)();

  virtual ~VantrelCurlGlobal() {}

  // curl_global_init(CURL_GLOBAL_ALL).
  virtual CURLcode Init();
  // curl_global_cleanup().
  virtual void Cleanup();

  // Null restores libcurl's own functions.
  static void SetHooksForTesting(InitFunction init, CleanupFunction cleanup);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_VANTREL_CURL_GLOBAL_H_

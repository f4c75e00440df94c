// Realm discovery by redirects, shared by Office365 and SharePointOffice365.
// Internal.
#ifndef VANTREL_AUTH_AUTHENTICATORS_REALM_DISCOVERY_H_
#define VANTREL_AUTH_AUTHENTICATORS_REALM_DISCOVERY_H_

#include <functional>

namespace Vantrel {
namespace Auth {

class INetworkControl;
class NetworkConfig;
class NetworkResult;

// Requests `realm_url` anonymously and follows the redirects by hand, at most
// AuthEngineConfig::GetMaxRedirect() requests, until a Location carries a
// wreply value. *result (null or owned) ends as that value, or a copy of
// `realm_url`; it is replaced only at the end, so after an exception it holds
// what it held before. `configure` copies the authenticator's options into the request
// (its ConfigureCommonProperties). `class_name` heads the two log lines. A
// null config, result or transport makes no request.
void DiscoverRealm(const char* class_name, const char* realm_url, char** result,
                   NetworkConfig* config, NetworkResult* network_result, INetworkControl* control,
                   const std::function<void(const char*)>& configure);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_REALM_DISCOVERY_H_

#include "authenticators/RealmDiscovery.h"

#include <utility>

#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AdfsUtil.h"
#include "base/Logger.h"
#include "base/StringUtil.h"
#include "text/RegexUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const char* const kLocationHeader = "Location";
const char* const kFormsAuthHeader = "X-Forms_Based_Auth_Required";

// The realm is the wreply value of a Location, which sites send encoded twice;
// a value encoded once survives the second pass. Null when there is none.
OwnedString WreplyOf(const char* location) {
  OwnedString decoded = UrlDecode(UrlDecode(OwnedCopy(location)));
  OwnedString capture(RegexFirstCapture(decoded.get(), AdfsUtil::regex_str_wreply_));
  if (capture && capture[0] == '\0') capture.reset();
  return capture;
}

}  // namespace

void DiscoverRealm(const char* class_name, const char* realm_url, char** result,
                   NetworkConfig* config, NetworkResult* network_result, INetworkControl* control,
                   const std::function<void(const char*)>& configure) {
  Logger::LogFormat(kLogLevelInfo,
                    "%s::FindRealmToUse - Check if there is any redirect from realm URL: %s",
                    class_name, realm_url, nullptr, nullptr, nullptr);
  // Built in a holder and stored in *result last, when nothing can throw any
  // more: a caller never owns a string that it hasn't been handed.
  OwnedString realm = OwnedCopy(realm_url);

  // Office365::Authenticate reaches us before its attempt frame has looked at
  // the transport; without one, the frame behind us reports the missing parts.
  OwnedString current = OwnedCopy(realm_url);
  bool usable = config != nullptr && network_result != nullptr && control != nullptr;
  int count = 0;
  bool found = false;
  while (usable && current && count < AuthEngineConfig::GetMaxRedirect() && !found) {
    config->Reset();
    configure(current.get());
    config->SetUrl(current.get());
    // Probes ask for SSL 3 whatever the host chose for its own requests.
    config->SetSslVersion(kSslVersionSsl3);
    network_result->Reset();
    // Advice only: a failed probe simply brings no redirect headers.
    control->Exec(config, network_result);

    const char* location = network_result->GetHeader(kLocationHeader);
    const char* forms = network_result->GetHeader(kFormsAuthHeader);
    if (location != nullptr) {
      OwnedString wreply = WreplyOf(location);
      if (wreply) {
        realm = std::move(wreply);
        found = true;
      }
    }
    if (!found) {
      // The raw header value, not the decoded copy, and not resolved against
      // `current`: a relative hop is requested as it stands.
      current = OwnedCopy(forms != nullptr ? forms : location);
    }
    ++count;
  }

  Logger::LogFormat(kLogLevelInfo, "%s::FindRealmToUse - Result realm URL: %s", class_name,
                    realm.get(), nullptr, nullptr, nullptr);
  StrFree(result);
  *result = realm.release();
}

}  // namespace Auth
}  // namespace Vantrel

#include "VantrelAuthEngine64/Office365.h"

#include <utility>

#include "authenticators/AdfsUtil.h"
#include "authenticators/Office365Endpoints.h"
#include "authenticators/RealmDiscovery.h"
#include "base/Cancellation.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {

const char* const Office365::default_service_endpoint_ = "extSTS.srf";

Office365::Office365(INetworkControl* network_control)
    : AdfsImpl(network_control), server_(nullptr) {
  Logger::Log(kLogLevelInfo, "Office365::Office365(...)");
  SetServiceEndpoint(default_service_endpoint_);
  server_ = StrDup(kDefaultOffice365Server);
}

Office365::~Office365() {
  Logger::Log(kLogLevelInfo, "Office365::~Office365()");
  StrFree(&server_);
}

AuthResult Office365::SetServer(const char* server) {
  Logger::LogFormat(kLogLevelInfo, "Office365::SetServer - server: %s", server, nullptr, nullptr,
                    nullptr, nullptr);
  StrAssign(&server_, server);
  return kAuthResultOk;
}

AuthResult Office365::GetServer(char* buffer, size_t* size) const {
  CopyOut(buffer, size, server_);
  return kAuthResultOk;
}

AuthResult Office365::Authenticate(const char* realm, ICredential* credential) {
  Logger::LogFormat(kLogLevelInfo, "Office365::Authenticate - Realm: %s, Credential avail: %s",
                    realm, YesNo(credential != nullptr), nullptr, nullptr, nullptr);
  // The attempt starts with the realm probes: a Cancel from before is spent
  // now, one during them ends the token request before it is sent.
  if (Cancellation* cancellation = GetCancellation()) cancellation->Clear();

  OwnedString sanitized = SanitizeUrl(OwnedCopy(realm));
  Logger::LogFormat(kLogLevelDebug, "Office365::Authenticate - Sanitized realm URL: %s",
                    sanitized.get(), nullptr, nullptr, nullptr, nullptr);

  // FindRealmToUse stores its answer only once nothing more can throw, so the
  // raw pointer is taken into a holder before anything else happens.
  char* discovered = nullptr;
  FindRealmToUse(sanitized.get(), &discovered);
  OwnedString found(discovered);
  sanitized.reset();
  // A realm taken from a redirect's wreply may carry a page or query too.
  found = SanitizeUrl(std::move(found));

  if (!found || found[0] == '\0') {
    if (ErrorDetail* detail = GetErrorDetail()) detail->Set("Realm is not valid.");
    return kAuthResultInvalidInput;
  }

  AuthResult result = AuthenticateHelper(server_, found.get(), credential);
  if (result != kAuthResultOk) return result;

  // The helper accepts any RSTR; only one with a binary token can be carried
  // on to SharePoint Online. Sites converted from BPOS answer without one.
  OwnedSecret token(AdfsUtil::ExtractBinarySecurityToken(GetRstr()));
  if (token && token[0] != '\0') return kAuthResultOk;

  if (ErrorDetail* detail = GetErrorDetail()) {
    detail->Set(
        "RSTR is found but no binary security token, meaning it is a BPOS converted Office365 "
        "site, and not supported.");
  }
  return kAuthResultBposNotSupported;
}

// The token is not kept on its own: it is taken out of the RSTR at each read,
// so it can never disagree with what GetRstr hands out.
void Office365::GetBinarySecurityToken(char* buffer, size_t* size) const {
  OwnedSecret token(AdfsUtil::ExtractBinarySecurityToken(GetRstr()));
  CopyOut(buffer, size, token.get());
}

size_t Office365::getBinarySecurityTokenSize() const {
  size_t size = 0;
  GetBinarySecurityToken(nullptr, &size);
  return size;
}

void Office365::FindRealmToUse(const char* realm_url, char** result) {
  DiscoverRealm("Office365", realm_url, result, GetNetworkConfig(), GetNetworkResult(),
                GetNetworkControl(), [this](const char* url) { ConfigureCommonProperties(url); });
}

}  // namespace Auth
}  // namespace Vantrel

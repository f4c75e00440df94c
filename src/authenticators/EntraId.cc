// Placeholder until the flows land: every sign-in reports an internal error.
#include "VantrelAuthEngine64/EntraId.h"

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

class EntraIdState {};

EntraId::EntraId(INetworkControl* network_control)
    : AuthBase(network_control), state_(new EntraIdState()) {}

EntraId::~EntraId() { delete state_; }

AuthResult EntraId::SetAuthority(const char*) { return kAuthResultOk; }
AuthResult EntraId::GetAuthority(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::SetTenant(const char*) { return kAuthResultOk; }
AuthResult EntraId::GetTenant(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::SetClientId(const char*) { return kAuthResultOk; }
AuthResult EntraId::GetClientId(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::SetScope(const char*) { return kAuthResultOk; }
AuthResult EntraId::GetScope(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::SetAssertionAlgorithm(EntraAssertionAlgorithm) { return kAuthResultOk; }
EntraAssertionAlgorithm EntraId::GetAssertionAlgorithm() const { return kEntraAssertionPs256; }
AuthResult EntraId::SetTokenCacheFile(const char*) { return kAuthResultOk; }
AuthResult EntraId::GetTokenCacheFile(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::EnableSiteCheck(bool) { return kAuthResultOk; }
bool EntraId::IsSiteCheckEnabled() const { return true; }
AuthResult EntraId::SetBrowserTimeout(long) { return kAuthResultOk; }
long EntraId::GetBrowserTimeout() const { return 300; }

AuthResult EntraId::AuthenticateWithCertificate(const char*, const char*, const char*,
                                                const char*) {
  return kAuthResultInternalError;
}
AuthResult EntraId::AuthenticateWithCertificateData(const char*, const char*, size_t, const char*,
                                                    size_t, const char*) {
  return kAuthResultInternalError;
}
AuthResult EntraId::AuthenticateWithClientSecret(const char*, const char*) {
  return kAuthResultInternalError;
}
AuthResult EntraId::AuthenticateWithDeviceCode(const char*, EntraDeviceCodeCallback, void*) {
  return kAuthResultInternalError;
}
AuthResult EntraId::AuthenticateWithBrowser(const char*, const char*, EntraBrowserCallback, void*) {
  return kAuthResultInternalError;
}
AuthResult EntraId::AuthenticateByUser(const char*, const char*, const char*) {
  return kAuthResultInternalError;
}
AuthResult EntraId::AuthenticateSilent(const char*, const char*) { return kAuthResultInternalError; }

AuthResult EntraId::GetAccessToken(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::GetAuthorizationHeader(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
time_t EntraId::GetExpiresOn() const { return 0; }
AuthResult EntraId::GetTenantId(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}
AuthResult EntraId::GetAccountName(char* buffer, size_t* size) const {
  CopyOut(buffer, size, nullptr);
  return kAuthResultOk;
}

}  // namespace Auth
}  // namespace Vantrel

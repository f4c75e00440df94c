// SharePointOffice365: exchanges an Office 365 binary security token at a
// SharePoint Online site for the FedAuth and rtFa cookies, and tells by an
// e-mail address where a user signs in.
#ifndef VANTREL_AUTH_SHARE_POINT_OFFICE365_H_
#define VANTREL_AUTH_SHARE_POINT_OFFICE365_H_

#include <cstdint>
#include <string>

#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/Cookie.h"

namespace Vantrel {
namespace Auth {

class ICredential;

enum SharePointOffice365AuthNamespace : int32_t {
  kAuthNamespaceUnknown = 0,    // no target; auth_url is not written
  kAuthNamespaceFederated = 1,  // auth_url is the base URL of the tenant's ADFS server
  kAuthNamespaceManaged = 2,    // auth_url is the Office 365 sign-in service
};

class VANTREL_AUTH_EXPORT SharePointOffice365 : public AuthBase {
 public:
  // The default SSL version of this class is kSslVersionSsl3.
  explicit SharePointOffice365(INetworkControl* network_control);
  ~SharePointOffice365() override;

  // Signs in to `site` with a credential made by
  // CredentialFactory::CreateCredentialFromRstr from Office365::GetRstr (a
  // binary token credential; anything else is refused). Borrowed for the call.
  AuthResult Authenticate(const char* site, const ICredential* credential);

  // The cookies of the last attempt, or null. Owned by this object and reset
  // by the next attempt. A missing rtFa is no failure.
  const Cookie* GetFedAuthCookie() const;
  const Cookie* GetRtfaCookie() const;

  // Asks the Office 365 sign-in service about `email`. On kAuthResultOk
  // `auth_type` says managed, federated or unknown, and `auth_url` (not
  // written for unknown) where the user signs in. Give both defined values
  // first: they are written only where the answer says so.
  virtual AuthResult GetAuthTarget(std::string email, SharePointOffice365AuthNamespace& auth_type,
                                   std::string& auth_url);

 private:
  void FindRealmToUse(const char* realm_url, char** result);
  char* StripAdfsLsEndpoint(char* url);

  static const char* const default_service_endpoint_;

  Cookie fed_auth_cookie_;
  Cookie rtfa_cookie_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_SHARE_POINT_OFFICE365_H_

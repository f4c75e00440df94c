// SharePointFba: forms-based sign-in to a SharePoint site.
//
// One SOAP Login call to "<site>/_vti_bin/authentication.asmx"; the site's
// FedAuth cookie is the result.
#ifndef VANTREL_AUTH_SHARE_POINT_FBA_H_
#define VANTREL_AUTH_SHARE_POINT_FBA_H_

#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/Cookie.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT SharePointFba : public AuthBase {
 public:
  explicit SharePointFba(INetworkControl* network_control);
  ~SharePointFba() override;

  // Signs `user` in to `site` (http or https; query, fragment and a final
  // .aspx page are cut). The strings are only read during the call. Returns
  // kAuthResultOk with the cookie held, or a failure with a detail text.
  AuthResult Authenticate(const char* site, const char* user, const char* password);

  // The FedAuth cookie of the last successful attempt, or null. Owned by this
  // object and reset by the next attempt: keep it with Cookie::Copy.
  const Cookie* GetFedAuthCookie() const;

 private:
  static const char* const default_service_endpoint_;

  Cookie fed_auth_cookie_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_SHARE_POINT_FBA_H_

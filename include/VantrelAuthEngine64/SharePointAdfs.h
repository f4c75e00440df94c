// SharePointAdfs: hands an RSTR to a SharePoint site's trust endpoint
// ("<site>/_trust") as a WS-Federation sign-in form; the FedAuth cookie is the
// result.
#ifndef VANTREL_AUTH_SHARE_POINT_ADFS_H_
#define VANTREL_AUTH_SHARE_POINT_ADFS_H_

#include <cstddef>

#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/Cookie.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT SharePointAdfs : public AuthBase {
 public:
  explicit SharePointAdfs(INetworkControl* network_control);
  ~SharePointAdfs() override;

  // Posts `rstr` (from Adfs::GetRstr, whole) to `site`. Returns kAuthResultOk
  // with the cookie held, or a failure with a detail text.
  AuthResult AuthenticateByRstr(const char* site, const char* rstr);

  // Path relative to the site from which the wctx field is built; default
  // "_layouts/Authenticate.aspx?Source=%2F". Null clears it.
  AuthResult SetWctx(const char* wctx);
  AuthResult GetWctx(char* buffer, size_t* size) const;

  // The FedAuth cookie of the last successful attempt, or null. Owned by this
  // object and reset by the next attempt.
  const Cookie* GetFedAuthCookie() const;

 private:
  const char* GetWctx() const;

  static const char* const default_service_endpoint_;
  static const char* const default_wctx_;

  char* wctx_;
  Cookie fed_auth_cookie_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_SHARE_POINT_ADFS_H_

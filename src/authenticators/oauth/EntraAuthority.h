// EntraAuthority: where a site's users and applications sign in, and the
// endpoint URLs there.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_ENTRA_AUTHORITY_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_ENTRA_AUTHORITY_H_

#include <string>
#include <string_view>

namespace Vantrel {
namespace Auth {

class EntraAuthority {
 public:
  // By the site's host: *.sharepoint.us -> "https://login.microsoftonline.us",
  // *.sharepoint.cn -> "https://login.partner.microsoftonline.cn", else
  // "https://login.microsoftonline.com". The host is read as HostOf reads it,
  // so a port, any case or a whole site URL do no harm.
  static std::string ForSiteHost(std::string_view site_host);

  // The host of a URL ("https://user@Host:443/x" -> "host"), in lower case,
  // without user, port or path; the scheme may be missing. "" when there is
  // none, or when it holds a character no host name or [IPv6] address has.
  static std::string HostOf(std::string_view url);
  // "https://HOST" of a site URL; "" when there is no host.
  static std::string OriginOf(std::string_view url);

  // "{authority}/{tenant}/oauth2/v2.0/{endpoint}", a final "/" of the
  // authority dropped. `endpoint` is "token", "devicecode" or "authorize".
  static std::string EndpointUrl(std::string_view authority, std::string_view tenant,
                                 std::string_view endpoint);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_ENTRA_AUTHORITY_H_

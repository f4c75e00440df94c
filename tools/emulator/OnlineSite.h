// OnlineSite: a SharePoint Online site, as far as a client that signs in with
// an Office 365 binary token sees it.
//
//   GET <any path>, without a FedAuth cookie this site issued
//       The anonymous visitor's redirect chain: the first hop answers every
//       path that no other hop names, the others answer their own path. The
//       standard chain (StandardChain) is three hops: a 403 whose
//       X-Forms_Based_Auth_Required points at a login page; that page's 302,
//       whose X-Forms_Based_Auth_Required (to the site's sign-in page) stands
//       beside a Location to a page without a realm; and the sign-in page's
//       302 to the sign-in service with the realm, encoded twice, as wreply.
//   GET <any path>, with a valid FedAuth cookie
//       200 with a small page naming the user.
//   POST <...>/_vti_bin/SiteData.asmx
//       GetSiteAndWeb: wants SOAPAction
//       "http://schemas.microsoft.com/sharepoint/soap/GetSiteAndWeb" (quotes
//       included) and a text/xml body with strUrl, else a SOAP fault (500).
//       Answers strSite and strWeb (options, or strUrl itself).
//   POST <...>/_forms/default.aspx?wa=wsignin1.0
//       The body must be, byte for byte, a token value that the sign-in
//       service issued for this site's realm; then 302 to the site with the
//       FedAuth and (unless turned off) rtFa cookies. Otherwise 403.
//
// The site registers its realm with the sign-in service's state, so that the
// service issues tokens for it (or, for a site converted from BPOS, not).
#ifndef VANTREL_EMULATOR_ONLINE_SITE_H_
#define VANTREL_EMULATOR_ONLINE_SITE_H_

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "emulator/Office365Service.h"
#include "emulator/Emulator.h"

namespace Vantrel {
namespace Emulation {

// One anonymous answer of the redirect chain. Empty header values are left out.
struct ProbeHop {
  std::string path;  // the request path it answers; ignored for the first hop
  int status = 302;
  std::string location;
  std::string forms_auth;  // X-Forms_Based_Auth_Required
};

struct OnlineSiteOptions {
  std::string host = "contoso.sharepoint.com";
  // The realm the sign-in page's redirect names in wreply; "" means
  // "https://" + host.
  std::string realm;
  // GetSiteAndWeb's answers; "" echoes strUrl (strWeb: echoes strSite).
  std::string str_site;
  std::string str_web;
  // The anonymous chain; empty means StandardChain(host, realm).
  std::vector<ProbeHop> chain;
  // Registered with the sign-in service as converted from BPOS.
  bool bpos_converted = false;
  bool send_rtfa = true;
};

// The three hops described above.
std::vector<ProbeHop> StandardChain(const std::string& host, const std::string& realm);

// The Location value of a sign-in service redirect that names `realm`,
// encoded twice, as wreply, with more parameters behind it.
std::string WreplyLocation(const std::string& realm);

// The sessions the site has handed out. Thread-safe.
class OnlineSiteState {
 public:
  std::string Issue(const std::string& user);
  // The user of a FedAuth value this site issued, or "".
  std::string UserOf(const std::string& fed_auth) const;
  std::vector<std::string> IssuedCookies() const;  // oldest first

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, std::string>> sessions_;  // value, user
};

// Registers the site's routes for options.host and its realm with `service`,
// whose tokens it accepts.
std::shared_ptr<OnlineSiteState> InstallOnlineSite(
    Emulator* emulator, const OnlineSiteOptions& options,
    const std::shared_ptr<Office365ServiceState>& service);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ONLINE_SITE_H_

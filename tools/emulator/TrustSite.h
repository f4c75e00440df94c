// TrustSite: a SharePoint site whose users sign in through an ADFS server
// (AdfsServer), as far as a client that hands it a token sees it.
//
//   POST <site>/_trust
//       A WS-Federation sign-in form (application/x-www-form-urlencoded).
//       Wants wa=wsignin1.0; wctx percent-encoded as one text (no "/", ":",
//       "?" or "=" left bare) that decodes to an absolute URL below the site
//       as the client addressed it; and wresult holding an RSTR whose
//       assertion the trusted server issued, for this site's realm. Then 302
//       to the decoded wctx with a fresh FedAuth cookie (path=/, HttpOnly,
//       secure over TLS). A form that breaks these rules gets 400 naming the
//       rule; an RSTR the site doesn't accept gets 200, a sign-in error page
//       and no cookie.
//   GET <site>/_api/web
//       200 with a small JSON description of the web when the request carries
//       a FedAuth cookie that this site issued; 401 otherwise.
#ifndef VANTREL_EMULATOR_TRUST_SITE_H_
#define VANTREL_EMULATOR_TRUST_SITE_H_

#include <memory>
#include <string>

#include "emulator/AdfsServer.h"
#include "emulator/EndpointSupport.h"
#include "emulator/Emulator.h"

namespace Vantrel {
namespace Emulation {

struct TrustSiteOptions {
  // Path of the site, without a trailing slash; "" puts it at the root.
  std::string site_path = "/sites/adfs";
  // Host the routes answer for; "" for any.
  std::string host;
  // The realm this site is known by at the ADFS server; an assertion for
  // another audience is refused. "" accepts any.
  std::string realm = "urn:sharepoint:contoso";
  // The server whose assertions the site trusts. Required.
  std::shared_ptr<AdfsServerState> adfs;
};

// What the site has handed out and refused. Thread-safe.
class TrustSiteState : public IssuedSessions {
 public:
  int RejectedTokens() const { return Rejected(); }
};

std::shared_ptr<TrustSiteState> InstallTrustSite(Emulator* emulator,
                                                 const TrustSiteOptions& options);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_TRUST_SITE_H_

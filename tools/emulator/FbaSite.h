// FbaSite: a SharePoint site that signs users in with forms-based
// authentication, as far as a client of its authentication web service sees.
//
//   POST <site>/_vti_bin/authentication.asmx
//       Wants SOAPAction "http://schemas.microsoft.com/sharepoint/soap/Login"
//       (quotes included) and a text/xml body; otherwise a SOAP fault (500)
//       or 415. A known account with its password gets 200, a LoginResult
//       with ErrorCode NoError and a fresh FedAuth cookie (path=/, HttpOnly,
//       Secure when the request came over TLS). Anything else gets 200 with
//       ErrorCode PasswordNotMatch and no cookie, as the real service does.
//   GET <site>/_api/web
//       200 with a small JSON description of the web when the request carries
//       a FedAuth cookie that this site issued; 401 otherwise.
//
// User and password are read from the body as sent, with no XML unescaping,
// because that is how the client fills them in.
#ifndef VANTREL_EMULATOR_FBA_SITE_H_
#define VANTREL_EMULATOR_FBA_SITE_H_

#include <map>
#include <memory>
#include <string>

#include "emulator/EndpointSupport.h"
#include "emulator/Emulator.h"

namespace Vantrel {
namespace Emulation {

struct FbaSiteOptions {
  // Path of the site, without a trailing slash; "" puts it at the root.
  std::string site_path = "/sites/fba";
  // Host the routes answer for; "" for any, which suits loopback URLs.
  std::string host;
  // User name to password. Names compare case-insensitively, as the
  // membership providers behind such sites do; passwords exactly.
  std::map<std::string, std::string> accounts = {{"alice", "Wonderland-42"}};
};

// The sessions the site has handed out, shared by its handlers. Thread-safe.
class FbaSiteState : public IssuedSessions {
 public:
  int RejectedLogins() const { return Rejected(); }
};

// Registers the site's routes on `emulator` and returns the shared state the
// handlers keep; the routes stay until the emulator goes away.
std::shared_ptr<FbaSiteState> InstallFbaSite(Emulator* emulator, const FbaSiteOptions& options);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_FBA_SITE_H_

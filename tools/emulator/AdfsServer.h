// AdfsServer: an ADFS 2.0 server's WS-Trust endpoint for user names and
// passwords, as far as a client that asks it for a SAML token sees it.
//
//   POST <path>/adfs/services/trust/2005/usernamemixed
//       Wants a SOAP 1.2 envelope ("application/soap+xml" content type) whose
//       a:Action is the WS-Trust February 2005 Issue action and whose a:To is
//       the URL the request was posted to, exactly (scheme, host and port as
//       the client addressed them, target as sent). The o:Security header
//       must hold either an o:UsernameToken with the PasswordText of a known
//       account, or a SAML assertion this server issued. The realm in
//       wsp:AppliesTo must be one the options list (any, when they list none).
//       Then 200 with an RSTR in a SOAP 1.2 envelope; the RSTR spans several
//       lines but its SAML 1.1 assertion stands on one, as real servers send
//       it. A bad password, an unknown user or assertion: SOAP fault, 500.
//       Any other defect of the request: SOAP fault (sender), 500; a wrong
//       content type: 415.
//
// Values are read from the envelope as sent, without XML unescaping, because
// that is how the client fills them in.
//
// The assertion (prefix "saml", one line):
//   <saml:Assertion MajorVersion="1" MinorVersion="1" AssertionID="_<hex>"
//    Issuer="<issuer>" IssueInstant="..." xmlns:saml="urn:oasis:names:tc:SAML:1.0:assertion">
//   with an AudienceRestrictionCondition naming the realm, the user as
//   NameIdentifier and as the value of a "UPN" attribute.
#ifndef VANTREL_EMULATOR_ADFS_SERVER_H_
#define VANTREL_EMULATOR_ADFS_SERVER_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "emulator/Emulator.h"

namespace Vantrel {
namespace Emulation {

struct AdfsServerOptions {
  // Path in front of "/adfs/...", without a trailing slash; "" for the root.
  std::string path;
  // Host the route answers for; "" for any, which suits loopback URLs.
  std::string host;
  // The Issuer attribute of every assertion.
  std::string issuer = "http://adfs.contoso.test/adfs/services/trust";
  // User name to password. Names compare case-insensitively, passwords exactly.
  std::map<std::string, std::string> accounts = {{"alice@contoso.test", "Looking-Glass-7"}};
  // Realms (relying parties) the server issues tokens for; empty means any.
  std::vector<std::string> realms;
};

// What the server has issued, shared with the sites that trust it. Thread-safe.
class AdfsServerState {
 public:
  struct Assertion {
    std::string id;     // AssertionID
    std::string user;   // as the account is registered
    std::string realm;  // the audience
    std::string text;   // the whole assertion element
  };

  Assertion Issue(const std::string& issuer, const std::string& user, const std::string& realm);
  // The assertion with that AssertionID, if this server issued it.
  bool Find(const std::string& id, Assertion* assertion) const;

  std::vector<Assertion> Issued() const;  // oldest first
  int RefusedRequests() const;
  void NoteRefused();

 private:
  mutable std::mutex mutex_;
  std::vector<Assertion> issued_;
  int refused_ = 0;
};

// Registers the endpoint on `emulator` and returns the shared state its
// handler keeps; the route stays until the emulator goes away.
std::shared_ptr<AdfsServerState> InstallAdfsServer(Emulator* emulator,
                                                   const AdfsServerOptions& options);

// The URL the client addressed, as a token request's a:To must state it:
// the absolute target of a proxied request, else scheme, Host header and
// target. Shared with the sites, which build wctx from the same parts.
std::string AddressedUrl(const Request& request);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ADFS_SERVER_H_

// Office365Service: the Office 365 sign-in service, as far as a client that
// asks where a user signs in and fetches tokens for SharePoint Online sees it.
//
//   GET /GetUserRealm.srf?handler=1&login=<address>
//       200 with a one-line JSON object. "NameSpaceType" is the account's
//       namespace_type ("Unknown" for an address nobody registered; no field
//       at all when namespace_type is empty) and "AuthURL" its auth_url, when
//       there is one. The address is read form-decoded.
//   POST /extSTS.srf
//       A WS-Trust RST in a SOAP 1.2 envelope. a:To must be the URL the
//       request was posted to, exactly; the realm in wsp:AppliesTo one that a
//       site registered (AddRealm); the o:Security header must hold either the
//       user name and password of a managed account, or an assertion from a
//       trusted issuer (options.trusted_issuers) naming a federated account.
//       Then 200 with an RSTR whose BinarySecurityToken holds
//       "t=<token>&amp;p=" (the entity stays, as in the real answers), or, for
//       a realm registered as converted from BPOS, an RSTR holding a SAML
//       assertion and no binary token. Anything else gets a SOAP fault with
//       status 500.
#ifndef VANTREL_EMULATOR_OFFICE365_SERVICE_H_
#define VANTREL_EMULATOR_OFFICE365_SERVICE_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "emulator/Emulator.h"

namespace Vantrel {
namespace Emulation {

struct Office365Account {
  // What GetUserRealm answers: "Managed", "Federated", "Unknown" or any other
  // text; "" leaves the field out.
  std::string namespace_type = "Managed";
  // The federation server's sign-in page, for a federated account; "" leaves
  // the field out.
  std::string auth_url;
  // The password that extSTS accepts for a managed account.
  std::string password;
};

struct Office365ServiceOptions {
  std::string host = "login.microsoftonline.com";
  // Keyed by sign-in address; compared case-insensitively.
  std::map<std::string, Office365Account> accounts = {
      {"adele@contoso.com", {"Managed", "", "Spring-2024"}},
  };
  // Issuer names whose assertions extSTS accepts for federated accounts.
  std::vector<std::string> trusted_issuers;
};

// What the service has issued, shared with the sites that accept its tokens.
// Thread-safe.
class Office365ServiceState {
 public:
  struct Token {
    std::string value;  // "t=...&amp;p=", exactly as it stands in the RSTR
    std::string user;
    std::string realm;
  };

  // Realms that tokens are issued for; `bpos` makes the RSTR carry no token.
  void AddRealm(const std::string& realm, bool bpos);
  bool KnowsRealm(const std::string& realm, bool* bpos) const;

  Token Issue(const std::string& user, const std::string& realm);
  // The token whose RSTR text is `value`, if the service issued one.
  bool Find(const std::string& value, Token* token) const;

  std::vector<Token> IssuedTokens() const;  // oldest first
  int RefusedRequests() const;
  void NoteRefused();

 private:
  mutable std::mutex mutex_;
  std::map<std::string, bool> realms_;
  std::vector<Token> tokens_;
  int refused_ = 0;
};

// Registers the service's routes on `emulator` for options.host.
std::shared_ptr<Office365ServiceState> InstallOffice365Service(
    Emulator* emulator, const Office365ServiceOptions& options);

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_OFFICE365_SERVICE_H_

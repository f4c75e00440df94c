// CredentialFactory: the only maker of credentials.
//
// The caller owns every credential returned and deletes it through
// ICredential* once the authenticator it was passed to has returned.
#ifndef VANTREL_AUTH_CREDENTIAL_FACTORY_H_
#define VANTREL_AUTH_CREDENTIAL_FACTORY_H_

#include <string>

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/ICredential.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT CredentialFactory {
 public:
  // A user name and clear-text password, used as given (empty is allowed).
  static ICredential* CreateBasicUsernameCredential(std::string username, std::string password);

  // A credential from the text of an RSTR (Adfs::GetRstr, Office365::GetRstr):
  // a SAML assertion on one line if there is one, else a binary security token
  // whose value begins with "t=". Null when the text holds neither.
  static ICredential* CreateCredentialFromRstr(std::string rstr);

 private:
  CredentialFactory() {}
  virtual ~CredentialFactory() {}

  static const char* const regex_str_saml_assertion_;
  static const char* const regex_str_saml_binarysecuritytoken_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIAL_FACTORY_H_

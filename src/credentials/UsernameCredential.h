// UsernameCredential: a user name and a clear-text password.
#ifndef VANTREL_AUTH_CREDENTIALS_USERNAME_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_USERNAME_CREDENTIAL_H_

#include <string>
#include <string_view>

#include "VantrelAuthEngine64/ICredential.h"
#include "base/SecretString.h"
#include "credentials/ISamlCredential.h"
#include "credentials/ISoapCredential.h"

namespace Vantrel {
namespace Auth {

// ICredential is a virtual base (chosen over three separate ICredential
// sub-objects so that the conversion to ICredential* is well-formed and
// deletion through it needs no cast tricks).
class UsernameCredential : public virtual ICredential, public ISoapCredential, public ISamlCredential {
 public:
  UsernameCredential(std::string_view username, std::string_view password);
  ~UsernameCredential() override;

  // <username>..</username> and <password>..</password>, one line each.
  SecretString GetSoapCredential() const override;
  // Four lines of an o:UsernameToken, each ending in a line feed.
  SecretString GetSamlCredential() const override;

 private:
  std::string username_;
  SecretString password_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_USERNAME_CREDENTIAL_H_

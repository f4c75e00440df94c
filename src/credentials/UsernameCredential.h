// UsernameCredential: a user name and a clear-text password.
#ifndef VANTREL_AUTH_CREDENTIALS_USERNAME_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_USERNAME_CREDENTIAL_H_

#include <string>

#include "VantrelAuthEngine64/ICredential.h"
#include "credentials/ISamlCredential.h"
#include "credentials/ISoapCredential.h"

namespace Vantrel {
namespace Auth {

// ICredential is a virtual base (chosen over three separate ICredential
// sub-objects so that the conversion to ICredential* is well-formed and
// deletion through it needs no cast tricks).
class UsernameCredential : public virtual ICredential, public ISoapCredential, public ISamlCredential {
 public:
  UsernameCredential(std::string username, std::string password);
  ~UsernameCredential() override;

  // <username>..</username> and <password>..</password>, one line each.
  std::string GetSoapCredential() const override;
  // Four lines of an o:UsernameToken, each ending in a line feed.
  std::string GetSamlCredential() const override;

 private:
  std::string username_;
  std::string password_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_USERNAME_CREDENTIAL_H_

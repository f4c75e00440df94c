// SamlAssertionCredential: a SAML assertion element from an RSTR, start and end tag included.
#ifndef VANTREL_AUTH_CREDENTIALS_SAML_ASSERTION_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_SAML_ASSERTION_CREDENTIAL_H_

#include <string>

#include "VantrelAuthEngine64/ICredential.h"
#include "credentials/ISamlCredential.h"

namespace Vantrel {
namespace Auth {

// Virtual ICredential base: see UsernameCredential.
class SamlAssertionCredential : public virtual ICredential, public ISamlCredential {
 public:
  explicit SamlAssertionCredential(std::string assertion);
  ~SamlAssertionCredential() override;

  std::string GetSamlCredential() const override;

 private:
  std::string assertion_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_SAML_ASSERTION_CREDENTIAL_H_

// SamlAssertionCredential: a SAML assertion element from an RSTR, start and end tag included.
#ifndef VANTREL_AUTH_CREDENTIALS_SAML_ASSERTION_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_SAML_ASSERTION_CREDENTIAL_H_

#include <string_view>

#include "VantrelAuthEngine64/ICredential.h"
#include "base/SecretString.h"
#include "credentials/ISamlCredential.h"

namespace Vantrel {
namespace Auth {

// Virtual ICredential base: see UsernameCredential.
class SamlAssertionCredential : public virtual ICredential, public ISamlCredential {
 public:
  explicit SamlAssertionCredential(std::string_view assertion);
  ~SamlAssertionCredential() override;

  SecretString GetSamlCredential() const override;

 private:
  // Whoever holds it signs in as its subject.
  SecretString assertion_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_SAML_ASSERTION_CREDENTIAL_H_

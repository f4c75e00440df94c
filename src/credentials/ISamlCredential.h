// ISamlCredential: a credential that renders as the content of a WS-Security
// header; the interface through which a token request asks for it.
#ifndef VANTREL_AUTH_CREDENTIALS_ISAML_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_ISAML_CREDENTIAL_H_

#include "VantrelAuthEngine64/ICredential.h"
#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

// Virtual base: see ISoapCredential. The text carries a password or a token,
// so it comes in memory that is wiped when it goes.
class ISamlCredential : public virtual ICredential {
 public:
  ~ISamlCredential() override {}
  virtual SecretString GetSamlCredential() const = 0;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_ISAML_CREDENTIAL_H_

// ISamlCredential: a credential that renders as the content of a WS-Security
// header; the interface through which a token request asks for it.
#ifndef VANTREL_AUTH_CREDENTIALS_ISAML_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_ISAML_CREDENTIAL_H_

#include <string>

#include "VantrelAuthEngine64/ICredential.h"

namespace Vantrel {
namespace Auth {

// Virtual base: see ISoapCredential.
class ISamlCredential : public virtual ICredential {
 public:
  ~ISamlCredential() override {}
  virtual std::string GetSamlCredential() const = 0;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_ISAML_CREDENTIAL_H_

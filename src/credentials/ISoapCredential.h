// ISoapCredential: a credential that renders as <username>/<password> lines.
#ifndef VANTREL_AUTH_CREDENTIALS_ISOAP_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_ISOAP_CREDENTIAL_H_

#include "VantrelAuthEngine64/ICredential.h"
#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

// ICredential is a virtual base throughout the tree so that a credential holds one
// ICredential sub-object and converts to it without ambiguity.
class ISoapCredential : public virtual ICredential {
 public:
  ~ISoapCredential() override {}
  virtual SecretString GetSoapCredential() const = 0;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_ISOAP_CREDENTIAL_H_

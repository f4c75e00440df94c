// ICredential: the root of every credential.
//
// Hosts get credentials from CredentialFactory, pass them to authenticators
// (which only borrow them for one call) and delete them through this type.
#ifndef VANTREL_AUTH_ICREDENTIAL_H_
#define VANTREL_AUTH_ICREDENTIAL_H_

#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT ICredential {
 public:
  virtual ~ICredential();

  ICredential(const ICredential&) {}
  ICredential& operator=(const ICredential&) { return *this; }

 protected:
  ICredential() {}
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_ICREDENTIAL_H_

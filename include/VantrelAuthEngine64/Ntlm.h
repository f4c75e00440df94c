// Ntlm: the place of NTLM sign-in in the interface. It carries the options of
// AuthBase; its sign-in performs no exchange.
#ifndef VANTREL_AUTH_NTLM_H_
#define VANTREL_AUTH_NTLM_H_

#include "VantrelAuthEngine64/AuthBase.h"
#include "VantrelAuthEngine64/AuthExport.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT Ntlm : public AuthBase {
 public:
  explicit Ntlm(INetworkControl* network_control);
  ~Ntlm() override;

  // Returns kAuthResultOk at once; reads none of its arguments (null is
  // fine), sends nothing and leaves *out and the detail text alone.
  AuthResult Authenticate(const char* first, const char* second, const char* third, char** out);
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NTLM_H_

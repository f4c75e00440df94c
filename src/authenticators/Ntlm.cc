#include "VantrelAuthEngine64/Ntlm.h"

namespace Vantrel {
namespace Auth {

Ntlm::Ntlm(INetworkControl* network_control) : AuthBase(network_control) {}

Ntlm::~Ntlm() {}

// Holds the place of an NTLM sign-in in the interface and performs no exchange.
// It must not disturb the detail text of an earlier attempt, nor write *out,
// which a caller may have left uninitialised.
AuthResult Ntlm::Authenticate(const char*, const char*, const char*, char**) {
  return kAuthResultOk;
}

}  // namespace Auth
}  // namespace Vantrel

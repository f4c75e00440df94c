// INetworkControl: the one road from an authenticator to the network.
//
// A host may implement it to put its own transport behind the authenticators
// it constructs itself.
#ifndef VANTREL_AUTH_INETWORK_CONTROL_H_
#define VANTREL_AUTH_INETWORK_CONTROL_H_

#include "VantrelAuthEngine64/AuthExport.h"
#include "VantrelAuthEngine64/AuthTypes.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"

namespace Vantrel {
namespace Auth {

class VANTREL_AUTH_EXPORT INetworkControl {
 public:
  virtual ~INetworkControl() {}

  // Carries out exactly one HTTP exchange described by `config` (read, not
  // changed) and fills `result`, which it resets first. Follows no redirect,
  // keeps no cookie across requests, judges no status. Returns kAuthResultOk,
  // kAuthResultInternalError or kAuthResultSendFailed.
  virtual AuthResult Exec(NetworkConfig* config, NetworkResult* result) = 0;
  // Percent-encodes `text` for a form field; the result goes back through
  // FreeEscaped. Null when the transport can't.
  virtual char* Escape(const char* text) = 0;
  virtual void FreeEscaped(char* text) = 0;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_INETWORK_CONTROL_H_

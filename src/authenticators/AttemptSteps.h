// AttemptSteps: the steps that every sign-in attempt takes in the same way.
// Internal. Each authenticator calls them from its own operation, in its own
// order, so that a sign-in still reads from top to bottom in its source file.
#ifndef VANTREL_AUTH_AUTHENTICATORS_ATTEMPT_STEPS_H_
#define VANTREL_AUTH_AUTHENTICATORS_ATTEMPT_STEPS_H_

#include <memory>

#include "VantrelAuthEngine64/AuthTypes.h"
#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

class Cancellation;
class Cookie;
struct CookieNode;
class ErrorDetail;
class INetworkControl;
class NetworkConfig;
class NetworkResult;

// "Y" for a text that is there and not empty, else "N": how an entry line
// tells of a password or token without showing it.
const char* AvailFlag(const char* text);

// Starts an attempt. With any object missing it is false, and the detail (if
// there is one) says "Null pointer(s) detected."; otherwise the request, the
// result and the detail are reset and it is true. The caller clears its own
// outputs right after. A Cancel that came before this attempt is spent here.
bool BeginAttempt(NetworkConfig* config, NetworkResult* result, ErrorDetail* detail,
                  INetworkControl* transport, Cancellation* cancellation);

// Ends an attempt that succeeded: the request and the response are reset, as
// the request may hold a password in clear and the response a token, which
// the authenticator has copied to its own results by now. kAuthResultOk.
// A failed attempt keeps both, for the host to look at.
AuthResult FinishAttempt(NetworkConfig* config, NetworkResult* result);

// The end of a sign-in to a SharePoint site: the FedAuth cookie, as copied to
// `fed_auth` from the response, is the proof. Without one the attempt failed
// (kAuthResultAuthFailed, "FedAuth cookie not found."); with one, even an
// empty one, it ends as FinishAttempt ends it.
AuthResult FinishWithFedAuth(const Cookie& fed_auth, NetworkConfig* config, NetworkResult* result,
                             ErrorDetail* detail);

// The one exchange of an attempt. A failed transfer leaves the transport's
// text in the detail, and its result is handed back unchanged.
AuthResult SendRequest(INetworkControl* transport, NetworkConfig* config, NetworkResult* result,
                       ErrorDetail* detail);

// No status at all, or one from 400 to 599, is kAuthResultHttpError with the
// code in the detail. Any other code, a redirect too, goes on to the
// inspection of the response: kAuthResultOk.
AuthResult CheckResponseCode(const NetworkResult* result, ErrorDetail* detail);

// Copies the first cookie in list order whose name is exactly `name`. The
// list is newest first, so that is the one libcurl listed last. False, with
// `target` untouched, when there is none.
bool CopyFirstCookie(const CookieNode* list, const char* name, Cookie* target);

// Copies the last cookie in list order whose name is exactly `name`: the one
// that arrived first when a name repeats. False, with `target` untouched,
// when there is none.
bool CopyLastCookie(const CookieNode* list, const char* name, Cookie* target);

// A copy of the response body in memory that is wiped when it goes: the
// body may be an RSTR or a token answer.
SecretString ResponseBody(const NetworkResult* result);

// Gives a text of INetworkControl::Escape back to the transport that made it,
// wiped first: an escaped RSTR still carries its token.
struct EscapedTextDeleter {
  INetworkControl* transport;
  void operator()(char* text) const;
};
using EscapedText = std::unique_ptr<char, EscapedTextDeleter>;

// `text` form-encoded by `transport`; empty for null, or when the transport
// could not.
EscapedText EscapeText(INetworkControl* transport, const char* text);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_ATTEMPT_STEPS_H_

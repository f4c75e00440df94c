// What the debug dumps hide. A request or response is logged at debug level
// in full, and the OAuth exchanges carry their secrets in places the XML
// password mask never looks: form fields, the Authorization header, the
// token endpoint's JSON answer. These give the logged copy with those values
// replaced by "*"; what goes on the wire is never touched. Internal.
#ifndef VANTREL_AUTH_NETWORK_SECRET_MASK_H_
#define VANTREL_AUTH_NETWORK_SECRET_MASK_H_

#include <string>
#include <string_view>

namespace Vantrel {
namespace Auth {

// Masks, in place, the value of every form field named password,
// client_secret, client_assertion, code, code_verifier, refresh_token or
// device_code with one "*" (an empty value stays empty). Names compare
// exactly, so "client_assertion_type" and "grant_type" stay readable.
// Returns `text`; null passes through.
char* MaskFormSecrets(char* text);

// The value under which a header may be logged: for Authorization and
// Proxy-Authorization (any case) the scheme and "*" ("Bearer *", "Bearer"
// alone when it has no credentials), for any other header `value` itself.
std::string LoggableHeaderValue(const char* name, const char* value);

// True for a line of libcurl's verbose text that is an Authorization or
// Proxy-Authorization header ("> " in front of it is allowed); the caller
// then logs `MaskedHeaderLine` instead, and nothing of the line's rest.
bool IsCredentialHeaderLine(std::string_view line);
std::string MaskedHeaderLine(std::string_view line);

// A copy of a JSON text with the string values of access_token,
// refresh_token, id_token and device_code replaced by "*". Works on the
// raw text, so a truncated or broken answer is masked as far as it goes.
std::string MaskJsonSecrets(std::string_view text);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_NETWORK_SECRET_MASK_H_

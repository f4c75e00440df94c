// Random texts from OpenSSL's CSPRNG: assertion ids, PKCE verifiers, states.
// Each returns false (and leaves `text` empty) when the generator fails.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_RANDOM_TEXT_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_RANDOM_TEXT_H_

#include <cstddef>
#include <string>

namespace Vantrel {
namespace Auth {

// A version 4 GUID, lower case, "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx".
bool RandomGuid(std::string* text);

// `length` characters of the unreserved set of RFC 3986 ("A-Z a-z 0-9 - . _ ~"),
// each equally likely.
bool RandomUnreserved(size_t length, std::string* text);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_RANDOM_TEXT_H_

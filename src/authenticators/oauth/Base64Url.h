// Base64url without padding (RFC 4648 section 5), as JSON Web Tokens and
// PKCE use it. Built on OpenSSL's base64 coder.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_BASE64_URL_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_BASE64_URL_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace Vantrel {
namespace Auth {

std::string Base64UrlEncode(const void* data, size_t size);
inline std::string Base64UrlEncode(std::string_view text) {
  return Base64UrlEncode(text.data(), text.size());
}

// False for a text that is not base64url (padding is tolerated).
bool Base64UrlDecode(std::string_view text, std::string* bytes);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_BASE64_URL_H_

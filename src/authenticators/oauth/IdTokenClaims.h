// IdTokenClaims: the few claims of an ID token the library reads. The token
// came straight from the token endpoint over TLS, so its signature is not
// checked; it is only read.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_ID_TOKEN_CLAIMS_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_ID_TOKEN_CLAIMS_H_

#include <string>
#include <string_view>

namespace Vantrel {
namespace Auth {

class IdTokenClaims {
 public:
  // Reads the payload (second part) of a compact JWT. False when it is not
  // three base64url parts with a JSON object in the middle. Never throws.
  static bool Read(std::string_view id_token, IdTokenClaims* claims);

  std::string preferred_username;  // the account's name
  std::string tenant_id;           // "tid"
  std::string object_id;           // "oid"
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_ID_TOKEN_CLAIMS_H_

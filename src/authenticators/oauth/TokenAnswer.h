// TokenAnswer: what the token endpoint answered, read from its JSON body.
//
// A success holds `access_token`; an error holds `error`. The body is JSON
// from a server the library doesn't control: Parse accepts any bytes,
// never throws, and ignores members of the wrong type.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_TOKEN_ANSWER_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_TOKEN_ANSWER_H_

#include <string>
#include <string_view>
#include <vector>

#include "VantrelAuthEngine64/AuthTypes.h"
#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

class TokenAnswer {
 public:
  // False when `body` is not a JSON object. `expires_in` may come as a number
  // or as a decimal string, and is read up to 10^9 s so that adding it to a
  // time_t can't overflow; error_codes as numbers. The secrets' copies in the
  // parsed JSON are wiped.
  static bool Parse(std::string_view body, TokenAnswer* answer);

  bool IsError() const { return !error.empty(); }

  // The result and detail text for an error answer, branching on `error` and
  // `error_codes` alone, never on the description:
  //   kAuthResultInteractionRequired for interaction_required, MFA (50076,
  //   50079), missing consent (65001), conditional access (53003) and a
  //   refresh token that is expired or revoked (700082, 50173, 70043);
  //   kAuthResultAuthFailed for every other error.
  // The detail names the first AADSTS code and the first line of the
  // description ("AADSTS50126: Error validating credentials due to invalid
  // username or password."), or the error alone when there is no description.
  // The detail is not cut here; ErrorDetail cuts what doesn't fit.
  // An answer without an error is kAuthResultOk when it holds an access token
  // and kAuthResultAuthFailed otherwise.
  AuthResult Classify(std::string* detail) const;

  // Success.
  std::string token_type;
  SecretString access_token;
  SecretString refresh_token;
  SecretString id_token;
  std::string scope;
  long long expires_in = 0;  // seconds; 0 when missing or unreadable
  // Error.
  std::string error;
  std::string error_description;  // whole, as sent
  std::vector<long long> error_codes;
  std::string correlation_id;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_TOKEN_ANSWER_H_

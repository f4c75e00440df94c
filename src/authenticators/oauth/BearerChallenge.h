// BearerChallenge: the Bearer challenge of a WWW-Authenticate header value,
// read by the rules of RFC 7235 (several challenges in one value,
// parameters as token or quoted string, quoted values holding commas and
// escaped quotes). SharePoint Online names its tenant in `realm`.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_BEARER_CHALLENGE_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_BEARER_CHALLENGE_H_

#include <map>
#include <string>
#include <string_view>

namespace Vantrel {
namespace Auth {

class BearerChallenge {
 public:
  // Finds the first challenge whose scheme is "Bearer" (any case) in `value`
  // and reads its parameters. False, with `challenge` emptied, when there is
  // none or the value breaks the grammar before the Bearer challenge ends.
  // Never reads outside `value`, whatever it holds.
  static bool Parse(std::string_view value, BearerChallenge* challenge);

  // A parameter's value, unquoted and unescaped; "" when absent. Names
  // compare without regard to case.
  std::string Get(std::string_view name) const;
  bool Has(std::string_view name) const;

  void Clear() { parameters_.clear(); }

 private:
  std::map<std::string, std::string> parameters_;  // names in lower case
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_BEARER_CHALLENGE_H_

#include "VantrelAuthEngine64/CredentialFactory.h"

#include <memory>
#include <utility>

#include "credentials/BinaryTokenCredential.h"
#include "credentials/SamlAssertionCredential.h"
#include "credentials/UsernameCredential.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {

// The assertion must carry a prefix and stand on one line ("." stops at a line
// end); the lazy parts end it at its own end tag.
const char* const CredentialFactory::regex_str_saml_assertion_ =
    "(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)";
// Greedy: the capture runs to the last such end tag in the text.
const char* const CredentialFactory::regex_str_saml_binarysecuritytoken_ =
    "(<[^<]*BinarySecurityToken[^>]*>t=[^]+</[^<]*BinarySecurityToken[^>]*>)";

ICredential* CredentialFactory::CreateBasicUsernameCredential(std::string username,
                                                              std::string password) {
  return new UsernameCredential(std::move(username), std::move(password));
}

// An RSTR of a federated sign-in can hold both an assertion and a token; the
// assertion is what the next token service wants, so it wins.
ICredential* CredentialFactory::CreateCredentialFromRstr(std::string rstr) {
  // Held so that a failed allocation further on leaks none of them.
  std::unique_ptr<ICredential> result;
  std::unique_ptr<char[]> token(
      RegexFirstCapture(rstr.c_str(), regex_str_saml_binarysecuritytoken_));
  if (token) result.reset(new BinaryTokenCredential(token.get()));
  std::unique_ptr<char[]> assertion(RegexFirstCapture(rstr.c_str(), regex_str_saml_assertion_));
  if (assertion) result.reset(new SamlAssertionCredential(assertion.get()));
  return result.release();
}

}  // namespace Auth
}  // namespace Vantrel

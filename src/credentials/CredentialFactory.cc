#include "VantrelAuthEngine64/CredentialFactory.h"

#include <memory>

#include "base/SecretString.h"
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

// The arguments are this library's own copies: the secrets in them are
// wiped before they go, on every way out.
ICredential* CredentialFactory::CreateBasicUsernameCredential(std::string username,
                                                              std::string password) {
  ScopedWipe wipe(&password);
  return new UsernameCredential(username, password);
}

// An RSTR of a federated sign-in can hold both an assertion and a token; the
// assertion is what the next token service wants, so it wins.
ICredential* CredentialFactory::CreateCredentialFromRstr(std::string rstr) {
  ScopedWipe wipe(&rstr);
  // Held so that a failed allocation further on leaks none of them.
  std::unique_ptr<ICredential> result;
  OwnedSecret token(RegexFirstCapture(rstr.c_str(), regex_str_saml_binarysecuritytoken_));
  if (token) result.reset(new BinaryTokenCredential(token.get()));
  OwnedSecret assertion(RegexFirstCapture(rstr.c_str(), regex_str_saml_assertion_));
  if (assertion) result.reset(new SamlAssertionCredential(assertion.get()));
  return result.release();
}

}  // namespace Auth
}  // namespace Vantrel

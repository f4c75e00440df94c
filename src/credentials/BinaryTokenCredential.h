// BinaryTokenCredential: a BinarySecurityToken element from an RSTR, start and end tag included.
#ifndef VANTREL_AUTH_CREDENTIALS_BINARY_TOKEN_CREDENTIAL_H_
#define VANTREL_AUTH_CREDENTIALS_BINARY_TOKEN_CREDENTIAL_H_

#include <string_view>

#include "VantrelAuthEngine64/ICredential.h"
#include "base/SecretString.h"
#include "credentials/ISamlCredential.h"

namespace Vantrel {
namespace Auth {

// Virtual ICredential base: see UsernameCredential.
class BinaryTokenCredential : public virtual ICredential, public ISamlCredential {
 public:
  explicit BinaryTokenCredential(std::string_view token);
  ~BinaryTokenCredential() override;

  SecretString GetSamlCredential() const override;

  // The token value posted to SharePoint Online: the element's inner text,
  // beginning with "t="; "" if there is none.
  SecretString GetTokenValue() const;

  // The element whose inner text, from "t=" on, is the token value. The token
  // exchange searches an RSTR with the same pattern.
  static constexpr const char* token_pattern_ =
      "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>";

 private:
  SecretString token_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_CREDENTIALS_BINARY_TOKEN_CREDENTIAL_H_

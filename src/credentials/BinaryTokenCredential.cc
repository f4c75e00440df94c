#include "credentials/BinaryTokenCredential.h"

#include "base/SecretString.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {

BinaryTokenCredential::BinaryTokenCredential(std::string_view token) : token_(token) {}

BinaryTokenCredential::~BinaryTokenCredential() {}

// Pasted into the request as it stands; no line feed follows it.
SecretString BinaryTokenCredential::GetSamlCredential() const { return token_; }

SecretString BinaryTokenCredential::GetTokenValue() const {
  OwnedSecret value(RegexFirstCapture(token_.c_str(), token_pattern_));
  if (!value) return SecretString();
  return SecretString(value.get());
}

}  // namespace Auth
}  // namespace Vantrel

#include "credentials/BinaryTokenCredential.h"

#include <utility>

#include "base/StringUtil.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {

BinaryTokenCredential::BinaryTokenCredential(std::string token) : token_(std::move(token)) {}

BinaryTokenCredential::~BinaryTokenCredential() {}

// Pasted into the request as it stands; no line feed follows it.
std::string BinaryTokenCredential::GetSamlCredential() const { return token_; }

std::string BinaryTokenCredential::GetTokenValue() const {
  char* value = RegexFirstCapture(token_.c_str(), token_pattern_);
  if (value == nullptr) return std::string();
  std::string result(value);
  StrFree(&value);
  return result;
}

}  // namespace Auth
}  // namespace Vantrel

#include "credentials/SamlAssertionCredential.h"

namespace Vantrel {
namespace Auth {

SamlAssertionCredential::SamlAssertionCredential(std::string_view assertion)
    : assertion_(assertion) {}

SamlAssertionCredential::~SamlAssertionCredential() {}

// Pasted into the request as it stands; no line feed follows it.
SecretString SamlAssertionCredential::GetSamlCredential() const { return assertion_; }

}  // namespace Auth
}  // namespace Vantrel

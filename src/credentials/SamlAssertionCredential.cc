#include "credentials/SamlAssertionCredential.h"

#include <utility>

namespace Vantrel {
namespace Auth {

SamlAssertionCredential::SamlAssertionCredential(std::string assertion)
    : assertion_(std::move(assertion)) {}

SamlAssertionCredential::~SamlAssertionCredential() {}

// Pasted into the request as it stands; no line feed follows it.
std::string SamlAssertionCredential::GetSamlCredential() const { return assertion_; }

}  // namespace Auth
}  // namespace Vantrel

// Credentials made from whatever text an RSTR turned out to hold.
#include <cstdint>
#include <string>

#include "CredentialFactory.h"
#include "ISamlCredential.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string rstr(reinterpret_cast<const char*>(data), size);
  ICredential* credential = CredentialFactory::CreateCredentialFromRstr(rstr);
  if (const ISamlCredential* saml = dynamic_cast<const ISamlCredential*>(credential)) {
    saml->GetSamlCredential();
  }
  delete credential;
  return 0;
}

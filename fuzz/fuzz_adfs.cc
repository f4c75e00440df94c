#include <cstdint>
#include <string>

#include "Adfs.h"
#include "CredentialFactory.h"
#include "FuzzNetwork.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string server = input.Piece();
  FuzzNetwork network(&input);
  Adfs adfs(&network);
  adfs.AuthenticateByUser(server.c_str(), "urn:sharepoint:portal", "user", "secret");
  char buffer[64];
  size_t length = sizeof(buffer);
  adfs.GetRstr(buffer, &length);
  ICredential* credential = CredentialFactory::CreateBasicUsernameCredential("user", "secret");
  adfs.Authenticate(server.c_str(), "urn:sharepoint:portal", credential);
  delete credential;
  return 0;
}

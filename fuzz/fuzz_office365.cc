#include <cstdint>
#include <string>
#include <vector>

#include "CredentialFactory.h"
#include "FuzzNetwork.h"
#include "Office365.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string realm = input.Piece();
  FuzzNetwork network(&input);
  Office365 office(&network);
  ICredential* credential = CredentialFactory::CreateBasicUsernameCredential("a@b.c", "pw");
  office.Authenticate(realm.c_str(), credential);
  delete credential;
  std::vector<char> token(office.getBinarySecurityTokenSize() + 1);
  size_t length = token.size();
  office.GetBinarySecurityToken(token.data(), &length);
  return 0;
}

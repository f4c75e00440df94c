#include <cstdint>
#include <string>

#include "FuzzNetwork.h"
#include "SharePointFba.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string site = input.Piece();
  FuzzNetwork network(&input);
  SharePointFba fba(&network);
  for (int attempt = 0; attempt < 2 && !input.empty(); ++attempt) {
    fba.Authenticate(site.c_str(), "user", "p<&>ss");
    fba.GetFedAuthCookie();
  }
  return 0;
}

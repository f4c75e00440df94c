#include <cstdint>
#include <string>

#include "FuzzNetwork.h"
#include "SharePointAdfs.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string site = input.Piece();
  std::string rstr = input.Piece();
  FuzzNetwork network(&input);
  SharePointAdfs trust(&network);
  trust.AuthenticateByRstr(site.c_str(), rstr.c_str());
  trust.GetFedAuthCookie();
  return 0;
}

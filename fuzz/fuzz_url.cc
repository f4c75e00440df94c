// The URL helpers: SanitizeUrl, the percent codec, EscapeSpaces and JoinUrl.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzInput.h"
#include "StringUtil.h"
#include "UrlUtil.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::string first = input.Piece();
  std::string second = input.Rest();

  char* url = SanitizeUrl(StrDup(first.c_str()));
  StrFree(&url);

  char* encoded = UrlEncode(StrDup(first.c_str()));
  char* decoded = UrlDecode(StrDup(encoded));
  // The codec must round-trip whatever precedes the first NUL byte.
  if (std::strcmp(decoded, first.c_str()) != 0) std::abort();
  StrFree(&encoded);
  StrFree(&decoded);
  char* twice = UrlDecode(UrlDecode(StrDup(second.c_str())));
  StrFree(&twice);

  char* spaced = StrDup(first.c_str());
  spaced = EscapeSpaces(spaced);
  StrFree(&spaced);

  char* joined = nullptr;
  JoinUrl(&joined, first.c_str(), second.c_str());
  JoinUrl(&joined, joined == nullptr ? nullptr : second.c_str(), nullptr);
  StrFree(&joined);
  return 0;
}

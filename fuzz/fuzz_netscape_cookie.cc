// Cookie lines as libcurl's cookie engine gives them out. A line without a
// line end that has at least six tabs always parses into a named cookie.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Cookie.h"
#include "NetscapeCookie.h"

using namespace Vantrel::Auth;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string line(reinterpret_cast<const char*>(data), size);
  Cookie cookie;
  ParseNetscapeCookie(&cookie, line.c_str());
  const char* text = line.c_str();
  size_t tabs = 0;
  for (const char* p = text; *p != '\0'; ++p) tabs += *p == '\t';
  bool parses = tabs >= 6 && std::strpbrk(text, "\r\n") == nullptr;
  if (parses != (cookie.GetName() != nullptr)) std::abort();
  Cookie copy;
  Cookie::Copy(&copy, &cookie);
  return 0;
}

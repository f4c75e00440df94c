// What fuzz_signin can't reach, or not with a check of the outcome; the first byte picks:
//   0  password masking: never grows the text, and hides what the two searches defining
//      it find (asked only of short texts: they backtrack without bound on some)
//   1  a cookie line: one without a line end and with six tabs or more parses
//   2  a raw header line as libcurl hands it over: any bytes, no terminator
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "VantrelAuthEngine.h"
#include "base/StringUtil.h"
#include "network/HeaderLine.h"
#include "network/NetscapeCookie.h"
#include "text/RegexUtil.h"

using namespace Vantrel::Auth;

namespace {

// The two searches that define password masking.
const char* const kBefore = "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$";
const char* const kAfter = "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$";
const size_t kCompareBelow = 4096;

std::string Capture(const char* text, const char* pattern) {
  char* capture = RegexFirstCapture(text, pattern);
  std::string result = capture != nullptr ? capture : "<null>";
  StrFree(&capture);
  return result;
}

void Mask(const std::string& data) {
  const char* text = data.c_str();
  const size_t length = std::strlen(text);
  char* copy = new char[length + 1];  // exactly as long, so that a write past the end shows
  std::memcpy(copy, text, length + 1);
  MaskPassword(copy);
  if (std::strlen(copy) > length) std::abort();
  if (length < kCompareBelow) {
    std::string prefix = Capture(text, kBefore), suffix = Capture(text, kAfter), masked = text;
    if ((prefix == "<null>") != (suffix == "<null>")) std::abort();
    if (prefix != "<null>" && prefix.size() + suffix.size() + 1 <= length) masked = prefix + "*" + suffix;
    if (masked != copy) std::abort();
  }
  delete[] copy;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0: Mask(text); break;
    case 1: {
      Cookie cookie, copy;
      ParseNetscapeCookie(&cookie, text.c_str());
      const char* line = text.c_str();
      const bool parses = std::count(line, line + std::strlen(line), '\t') >= 6 && !std::strpbrk(line, "\r\n");
      if (parses != (cookie.GetName() != nullptr)) std::abort();
      Cookie::Copy(&copy, &cookie);
      break;
    }
    default: {
      NetworkResult result;
      ParseHeaderLine(text.data(), text.size(), &result);
      for (HeaderNode* node = result.GetHeaders(); node != nullptr; node = node->next) {
        if (node->header->name != nullptr) result.GetHeader(node->header->name);
      }
      ParseHeaderLine(text.data(), text.size(), nullptr);
    }
  }
  return 0;
}

// Password masking: never grows the text, never touches bytes past its end,
// and hides exactly the element that the two searches defining it would find.
// The searches backtrack without bound on some texts, so they are asked only
// about short ones.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "NetworkConfig.h"
#include "RegexUtil.h"
#include "StringUtil.h"

using namespace Vantrel::Auth;

namespace {

const size_t kCompareBelow = 4096;

std::string MaskedBySearches(const char* text) {
  std::string masked = text;
  char* prefix = RegexFirstCapture(
      text, "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$");
  char* suffix = RegexFirstCapture(
      text, "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$");
  if ((prefix == nullptr) != (suffix == nullptr)) std::abort();
  if (prefix != nullptr && std::strlen(prefix) + std::strlen(suffix) + 1 <= masked.size()) {
    masked = std::string(prefix) + "*" + suffix;
  }
  StrFree(&prefix);
  StrFree(&suffix);
  return masked;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  size_t length = std::strlen(text.c_str());
  char* copy = new char[length + 1];
  std::memcpy(copy, text.c_str(), length + 1);
  MaskPassword(copy);
  if (std::strlen(copy) > length) std::abort();
  if (length < kCompareBelow && MaskedBySearches(text.c_str()) != copy) std::abort();
  delete[] copy;
  return 0;
}

#include "authenticators/oauth/Base64Url.h"

#include <openssl/evp.h>

#include <algorithm>

namespace Vantrel {
namespace Auth {
namespace {

// OpenSSL's coder counts in int; texts go through it in pieces of this many
// bytes (a multiple of 3) and characters (the same number of 4-groups).
constexpr size_t kBytesPerPiece = 3 * 4096;
constexpr size_t kCharsPerPiece = 4 * 4096;

bool IsUrlAlphabet(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

// How many '=' end `text`; the rest must be the url alphabet alone, and
// padding, when there is some, must complete the last group of four.
bool CountPadding(std::string_view text, size_t* padding) {
  size_t end = text.size();
  while (end > 0 && text[end - 1] == '=' && text.size() - end < 2) --end;
  *padding = text.size() - end;
  if (*padding > 0 && text.size() % 4 != 0) return false;
  if (end % 4 == 1) return false;  // one character carries only six bits of a byte
  return std::all_of(text.begin(), text.begin() + end, IsUrlAlphabet);
}

}  // namespace

std::string Base64UrlEncode(const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::string text;
  text.reserve((size + 2) / 3 * 4);
  unsigned char piece[kCharsPerPiece + 1];  // EVP_EncodeBlock adds a NUL
  for (size_t done = 0; done < size; done += kBytesPerPiece) {
    const size_t count = std::min(kBytesPerPiece, size - done);
    const int written = EVP_EncodeBlock(piece, bytes + done, static_cast<int>(count));
    text.append(reinterpret_cast<const char*>(piece), static_cast<size_t>(written));
  }
  while (!text.empty() && text.back() == '=') text.pop_back();
  for (char& c : text) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
  return text;
}

bool Base64UrlDecode(std::string_view text, std::string* bytes) {
  bytes->clear();
  size_t padding = 0;
  if (!CountPadding(text, &padding)) return false;
  std::string standard(text.substr(0, text.size() - padding));
  for (char& c : standard) {
    if (c == '-') c = '+';
    if (c == '_') c = '/';
  }
  const size_t missing = (4 - standard.size() % 4) % 4;
  standard.append(missing, '=');

  bytes->reserve(standard.size() / 4 * 3);
  unsigned char piece[kBytesPerPiece];
  for (size_t done = 0; done < standard.size(); done += kCharsPerPiece) {
    const size_t count = std::min(kCharsPerPiece, standard.size() - done);
    const unsigned char* chars = reinterpret_cast<const unsigned char*>(standard.data() + done);
    const int written = EVP_DecodeBlock(piece, chars, static_cast<int>(count));
    if (written < 0) {
      bytes->clear();
      return false;
    }
    bytes->append(reinterpret_cast<const char*>(piece), static_cast<size_t>(written));
  }
  // EVP_DecodeBlock counts the zero bytes that stand for the padding too.
  bytes->resize(bytes->size() - missing);
  return true;
}

}  // namespace Auth
}  // namespace Vantrel

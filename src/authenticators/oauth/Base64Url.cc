// Temporary stand-in until the OAuth text helpers land; drop this file then.
#include "authenticators/oauth/Base64Url.h"

#include <openssl/evp.h>

#include <climits>

namespace Vantrel {
namespace Auth {

std::string Base64UrlEncode(const void* data, size_t size) {
  if (size == 0 || size > INT_MAX / 2) return std::string();
  std::string text(4 * ((size + 2) / 3) + 1, '\0');
  int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                               static_cast<const unsigned char*>(data), static_cast<int>(size));
  text.resize(length < 0 ? 0 : static_cast<size_t>(length));
  while (!text.empty() && text.back() == '=') text.pop_back();
  for (char& c : text) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
  return text;
}

bool Base64UrlDecode(std::string_view text, std::string* bytes) {
  bytes->clear();
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1 || text.size() > INT_MAX / 2) return false;
  std::string standard(text);
  for (char& c : standard) {
    bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (c == '-')
      c = '+';
    else if (c == '_')
      c = '/';
    else if (!plain)
      return false;
  }
  size_t padding = (4 - standard.size() % 4) % 4;
  standard.append(padding, '=');
  if (standard.empty()) return true;
  bytes->resize(standard.size() / 4 * 3);
  int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&(*bytes)[0]),
                               reinterpret_cast<const unsigned char*>(standard.data()),
                               static_cast<int>(standard.size()));
  if (length < 0) {
    bytes->clear();
    return false;
  }
  bytes->resize(static_cast<size_t>(length) - padding);
  return true;
}

}  // namespace Auth
}  // namespace Vantrel

// Temporary stand-in until the OAuth text helpers land; drop this file then.
#include "authenticators/oauth/RandomText.h"

#include <openssl/rand.h>

#include <cstdio>

namespace Vantrel {
namespace Auth {

bool RandomGuid(std::string* text) {
  text->clear();
  unsigned char b[16];
  if (RAND_bytes(b, sizeof b) != 1) return false;
  b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
  char out[37];
  std::snprintf(out, sizeof out,
                "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
  text->assign(out);
  return true;
}

bool RandomUnreserved(size_t length, std::string* text) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr unsigned kCount = sizeof kAlphabet - 1;
  text->clear();
  while (text->size() < length) {
    unsigned char byte;
    if (RAND_bytes(&byte, 1) != 1) {
      text->clear();
      return false;
    }
    // Bytes past the last whole multiple of the alphabet would favour its start.
    if (byte < 256 / kCount * kCount) text->push_back(kAlphabet[byte % kCount]);
  }
  return true;
}

}  // namespace Auth
}  // namespace Vantrel

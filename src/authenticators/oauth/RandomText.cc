#include "authenticators/oauth/RandomText.h"

#include <openssl/rand.h>

#include <algorithm>

#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {
namespace {

const char kHexDigits[] = "0123456789abcdef";
const char kUnreserved[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
constexpr unsigned kUnreservedCount = sizeof(kUnreserved) - 1;  // 66
// The largest multiple of 66 a byte reaches: bytes from here up would favour
// the first characters of the set, so they are drawn again.
constexpr unsigned kAcceptBelow = 256 / kUnreservedCount * kUnreservedCount;  // 198
constexpr size_t kBatch = 64;

}  // namespace

bool RandomGuid(std::string* text) {
  text->clear();
  unsigned char bytes[16];
  if (RAND_bytes(bytes, sizeof(bytes)) != 1) return false;
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // version 4
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);  // RFC 4122 variant
  for (size_t i = 0; i < sizeof(bytes); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text->push_back('-');
    text->push_back(kHexDigits[bytes[i] >> 4]);
    text->push_back(kHexDigits[bytes[i] & 0x0f]);
  }
  return true;
}

// The result becomes a PKCE verifier or a state: secret until used, so the
// random bytes behind it are wiped as well.
bool RandomUnreserved(size_t length, std::string* text) {
  WipeString(text);
  text->reserve(length);
  unsigned char batch[kBatch];
  bool ok = true;
  while (ok && text->size() < length) {
    // About one byte in four is drawn again; ask for a little more than is left.
    const size_t wanted = std::min(kBatch, (length - text->size()) * 4 / 3 + 1);
    ok = RAND_bytes(batch, static_cast<int>(wanted)) == 1;
    for (size_t i = 0; ok && i < wanted && text->size() < length; ++i) {
      if (batch[i] < kAcceptBelow) text->push_back(kUnreserved[batch[i] % kUnreservedCount]);
    }
  }
  WipeMemory(batch, sizeof(batch));
  if (!ok) WipeString(text);
  return ok;
}

}  // namespace Auth
}  // namespace Vantrel

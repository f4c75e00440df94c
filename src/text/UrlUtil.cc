#include "text/UrlUtil.h"

#include <cstring>
#include <memory>

#include "base/StringUtil.h"
#include "text/RegexUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const unsigned char kNotHex = 0xFF;

struct CodecTables {
  unsigned char hex_value[256];
  unsigned char unreserved[256];
};

constexpr CodecTables MakeCodecTables() {
  CodecTables tables{};
  for (int i = 0; i < 256; ++i) {
    tables.hex_value[i] = kNotHex;
    tables.unreserved[i] = 0;
  }
  for (int c = '0'; c <= '9'; ++c) {
    tables.hex_value[c] = static_cast<unsigned char>(c - '0');
    tables.unreserved[c] = 1;
  }
  for (int c = 'A'; c <= 'Z'; ++c) tables.unreserved[c] = 1;
  for (int c = 'a'; c <= 'z'; ++c) tables.unreserved[c] = 1;
  for (int c = 'A'; c <= 'F'; ++c) tables.hex_value[c] = static_cast<unsigned char>(c - 'A' + 10);
  for (int c = 'a'; c <= 'f'; ++c) tables.hex_value[c] = static_cast<unsigned char>(c - 'a' + 10);
  return tables;
}

// Only letters and digits pass unencoded. "-", ".", "_" and "~" are encoded as
// well: still a valid encoding of the same value, and one rule with no exceptions.
constexpr CodecTables kCodec = MakeCodecTables();
const char kHexDigits[] = "0123456789ABCDEF";

// Order matters: a page is recognised only once query and fragment are gone.
const char* const kSanitizePatterns[] = {
    "\\?(.*)$",
    "#(.*)$",
    "/[^/]*\\.aspx$",
};

// Decodes `length` bytes of `text` into `out`, which has room for as many;
// returns the number of bytes written.
size_t DecodeInto(const char* text, size_t length, char* out) {
  char* next = out;
  size_t i = 0;
  while (i + 2 < length) {
    unsigned char high = kCodec.hex_value[static_cast<unsigned char>(text[i + 1])];
    unsigned char low = kCodec.hex_value[static_cast<unsigned char>(text[i + 2])];
    if (text[i] == '%' && high != kNotHex && low != kNotHex) {
      *next++ = static_cast<char>(high * 16 + low);
      i += 3;
    } else {
      *next++ = text[i++];
    }
  }
  // One or two bytes are left at most; they can hold no whole sequence.
  while (i < length) *next++ = text[i++];
  return static_cast<size_t>(next - out);
}

}  // namespace

void JoinUrl(char** out, const char* base, const char* path) {
  // The old value is released only after the new one is built, so that a
  // caller may join onto the string it holds in *out.
  std::unique_ptr<char[]> old(*out);
  *out = nullptr;
  if (base == nullptr || base[0] == '\0') return;
  if (path == nullptr || path[0] == '\0') {
    *out = StrDup(base);
    return;
  }
  size_t base_length = std::strlen(base);
  size_t path_length = std::strlen(path);
  char* joined = new char[base_length + 1 + path_length + 1];
  std::memcpy(joined, base, base_length);
  joined[base_length] = '/';
  std::memcpy(joined + base_length + 1, path, path_length + 1);
  *out = joined;
}

char* EscapeSpaces(char* text) {
  if (text == nullptr) return nullptr;
  size_t blanks = 0;
  size_t length = 0;
  for (; text[length] != '\0'; ++length) {
    if (text[length] == ' ') ++blanks;
  }
  if (blanks == 0) return text;
  std::unique_ptr<char[]> old(text);
  char* escaped = new char[length + 2 * blanks + 1];
  char* to = escaped;
  for (const char* from = text; *from != '\0'; ++from) {
    if (*from == ' ') {
      *to++ = '%';
      *to++ = '2';
      *to++ = '0';
    } else {
      *to++ = *from;
    }
  }
  *to = '\0';
  return escaped;
}

OwnedString JoinUrl(const char* base, const char* path) {
  char* joined = nullptr;
  JoinUrl(&joined, base, path);
  return OwnedString(joined);
}

// Each function on char* takes its argument into a holder of its own before
// anything can throw, so releasing it here first loses nothing.
OwnedString EscapeSpaces(OwnedString text) { return OwnedString(EscapeSpaces(text.release())); }

OwnedString UrlEncode(OwnedString text) { return OwnedString(UrlEncode(text.release())); }

OwnedString UrlDecode(OwnedString text) { return OwnedString(UrlDecode(text.release())); }

OwnedString SanitizeUrl(OwnedString url) { return OwnedString(SanitizeUrl(url.release())); }

std::string PercentEncode(const std::string& text) {
  std::string out;
  out.reserve(text.size() * 3);
  for (char c : text) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (kCodec.unreserved[byte] != 0) {
      out += c;
    } else {
      out += '%';
      out += kHexDigits[byte >> 4];
      out += kHexDigits[byte & 0x0F];
    }
  }
  return out;
}

std::string PercentDecode(const std::string& text) {
  std::string out(text.size(), '\0');
  out.resize(DecodeInto(text.data(), text.size(), &out[0]));
  return out;
}

char* UrlEncode(char* text) {
  if (text == nullptr) return nullptr;
  std::unique_ptr<char[]> owned(text);
  return StrDup(PercentEncode(text).c_str());
}

char* UrlDecode(char* text) {
  if (text == nullptr) return nullptr;
  std::unique_ptr<char[]> owned(text);
  // Decoded straight into the new string, which is never longer than the
  // text. Read as a C string it ends at the first NUL, so "%00" cuts it there.
  size_t length = std::strlen(text);
  char* decoded = new char[length + 1];
  decoded[DecodeInto(text, length, decoded)] = '\0';
  return decoded;
}

char* SanitizeUrl(char* url) {
  if (url == nullptr || url[0] == '\0') return url;
  std::unique_ptr<char[]> owned(url);
  std::string cut = url;
  for (const char* pattern : kSanitizePatterns) cut = RegexRemoveAll(cut, pattern);
  return StrDup(cut.c_str());
}

}  // namespace Auth
}  // namespace Vantrel

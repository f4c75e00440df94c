#include "network/SecretMask.h"

#include <cstring>

#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const char* const kFormSecrets[] = {"password",      "client_secret", "client_assertion", "code",
                                    "code_verifier", "refresh_token", "device_code"};
const char* const kJsonSecrets[] = {"access_token", "refresh_token", "id_token", "device_code"};
const char* const kCredentialHeaders[] = {"authorization", "proxy-authorization"};

bool IsFormSecret(std::string_view name) {
  for (const char* secret : kFormSecrets) {
    if (name == secret) return true;
  }
  return false;
}

bool IsCredentialHeader(std::string_view name) {
  for (const char* header : kCredentialHeaders) {
    if (EqualsIgnoringCase(name, header)) return true;
  }
  return false;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// "Bearer abc" -> "Bearer *"; "Bearer" -> "Bearer"; "" -> "".
std::string MaskCredentials(std::string_view value) {
  value = Trim(value);
  size_t blank = 0;
  while (blank < value.size() && !IsBlank(value[blank])) ++blank;
  std::string masked(value.substr(0, blank));
  if (!Trim(value.substr(blank)).empty()) masked += " *";
  return masked;
}

// "> Authorization: x" -> "Authorization: x": the prefix of a sent header in
// libcurl's verbose text.
std::string_view WithoutVerbosePrefix(std::string_view line) {
  if (line.size() >= 2 && line[0] == '>' && line[1] == ' ') line.remove_prefix(2);
  return line;
}

// The length of the JSON member name `name` plus its quotes, its colon and
// the opening quote of its string value, when `text` at `at` (a quote)
// starts one; else 0.
size_t SecretMemberHead(std::string_view text, size_t at) {
  for (const char* name : kJsonSecrets) {
    size_t length = std::strlen(name);
    if (text.compare(at + 1, length, name) != 0) continue;
    size_t i = at + 1 + length;
    if (i >= text.size() || text[i] != '"') continue;
    ++i;
    while (i < text.size() && IsBlank(text[i])) ++i;
    if (i >= text.size() || text[i] != ':') continue;
    ++i;
    while (i < text.size() && IsBlank(text[i])) ++i;
    if (i >= text.size() || text[i] != '"') continue;
    return i + 1 - at;
  }
  return 0;
}

}  // namespace

char* MaskFormSecrets(char* text) {
  if (text == nullptr) return text;
  // Written over itself: a masked value is never longer than the original.
  char* out = text;
  const char* in = text;
  while (*in != '\0') {
    const char* field_end = std::strchr(in, '&');
    if (field_end == nullptr) field_end = in + std::strlen(in);
    const char* equals = static_cast<const char*>(std::memchr(in, '=', field_end - in));
    bool hide = equals != nullptr && equals + 1 < field_end &&
                IsFormSecret(std::string_view(in, equals - in));
    const char* keep_end = hide ? equals + 1 : field_end;
    size_t kept = static_cast<size_t>(keep_end - in);
    std::memmove(out, in, kept);
    out += kept;
    if (hide) *out++ = '*';
    in = field_end;
    if (*in == '&') *out++ = *in++;
  }
  *out = '\0';
  return text;
}

std::string LoggableHeaderValue(const char* name, const char* value) {
  if (value == nullptr) return std::string();
  if (name == nullptr || !IsCredentialHeader(name)) return value;
  return MaskCredentials(value);
}

bool IsCredentialHeaderLine(std::string_view line) {
  line = WithoutVerbosePrefix(line);
  size_t colon = line.find(':');
  return colon != std::string_view::npos && IsCredentialHeader(line.substr(0, colon));
}

std::string MaskedHeaderLine(std::string_view line) {
  std::string_view header = WithoutVerbosePrefix(line);
  size_t colon = header.find(':');
  if (colon == std::string_view::npos) return std::string(line);
  size_t head = line.size() - header.size() + colon + 1;
  std::string masked(line.substr(0, head));
  std::string value = MaskCredentials(header.substr(colon + 1));
  if (!value.empty()) masked += " " + value;
  return masked;
}

std::string MaskJsonSecrets(std::string_view text) {
  std::string masked;
  masked.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    size_t head = text[i] == '"' ? SecretMemberHead(text, i) : 0;
    if (head == 0) {
      masked += text[i++];
      continue;
    }
    masked.append(text.substr(i, head));
    // Skips the string value, escapes included; an unterminated one runs to
    // the end and is hidden all the same.
    i += head;
    while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2 : 1;
    masked += '*';
    if (i < text.size()) masked += text[i++];
  }
  return masked;
}

}  // namespace Auth
}  // namespace Vantrel

// The challenge parser on any header value, and on the input quoted as the
// realm of a Bearer challenge behind another challenge: there it must come
// back unchanged, unless it holds a control character no quoted string may.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "authenticators/oauth/BearerChallenge.h"

using namespace Vantrel::Auth;

namespace {

const char* const kNames[] = {"realm", "client_id", "trusted_issuers", "authorization_uri", "error",
                              "claims"};

void Check(bool condition) {
  if (!condition) std::abort();
}

bool ContainsBearer(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  return lower.find("bearer") != std::string::npos;
}

void ParseAny(std::string_view text) {
  BearerChallenge challenge;
  const bool found = BearerChallenge::Parse(text, &challenge);
  if (found) Check(ContainsBearer(text));
  for (const char* name : kNames) {
    const std::string value = challenge.Get(name);
    Check(found || (!challenge.Has(name) && value.empty()));
    Check(value.size() <= text.size());
  }
}

void ParseQuoted(std::string_view text) {
  std::string value = "Basic realm=\"a,b\", Bearer realm=\"";
  bool clean = true;
  for (char c : text) {
    const unsigned char u = static_cast<unsigned char>(c);
    if ((u < 0x20 && u != '\t') || u == 0x7f) clean = false;
    if (c == '"' || c == '\\') value.push_back('\\');
    value.push_back(c);
  }
  value += "\", error=invalid_token, Negotiate";
  BearerChallenge challenge;
  Check(BearerChallenge::Parse(value, &challenge) == clean);
  if (clean) Check(challenge.Get("Realm") == text && challenge.Get("error") == "invalid_token");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ParseAny(text);
  ParseQuoted(text);
  return 0;
}

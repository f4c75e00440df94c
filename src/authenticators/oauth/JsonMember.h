// Reading the JSON answers of servers the library doesn't control: a body
// that is not an object is refused as a whole, a member of the wrong type
// reads as missing, and nothing here throws.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_JSON_MEMBER_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_JSON_MEMBER_H_

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

// The longest span of seconds read: now plus this still fits any time_t, so
// callers may add it without a check of their own.
constexpr long long kMaxJsonSeconds = 1000000000;  // about 31 years

// nlohmann's destructor of an array or object that holds anything first
// reserves a vector for the children; a failed allocation there, inside a
// destructor, ends the process instead of reaching the host. Emptied leaves
// first, a value goes without allocating. Below kDisposedDepth levels the
// destructor is left to do it (a hostile text must not cost the stack).
constexpr int kDisposedDepth = 64;

template <typename Json>
void DisposeJson(Json* value, int depth = 0) noexcept {
  if (!value->is_structured() || depth >= kDisposedDepth) return;
  for (Json& child : *value) DisposeJson(&child, depth + 1);
  value->clear();
}

// Disposes of a JSON value when the scope ends, by return or exception.
template <typename Json>
class JsonDisposal {
 public:
  explicit JsonDisposal(Json* value) : value_(value) {}
  ~JsonDisposal() { DisposeJson(value_); }
  JsonDisposal(const JsonDisposal&) = delete;
  JsonDisposal& operator=(const JsonDisposal&) = delete;

 private:
  Json* value_;
};

// False unless `text` is a JSON object.
bool ParseJsonObject(std::string_view text, nlohmann::json* object);

// False, `value` untouched, when the member is missing or not a string.
bool ReadJsonString(const nlohmann::json& object, const char* name, std::string* value);

// The same into a secret, wiping the parsed copy of the text, which would
// otherwise go back to the heap as it is.
bool TakeJsonSecret(nlohmann::json* object, const char* name, SecretString* value);

// Whole seconds, from 0 to kMaxJsonSeconds, as a number (a fraction is cut)
// or a string of decimal digits. False, `seconds` untouched, for anything else.
bool ReadJsonSeconds(const nlohmann::json& object, const char* name, long long* seconds);

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_JSON_MEMBER_H_

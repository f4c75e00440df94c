#include "authenticators/oauth/IdTokenClaims.h"

#include <nlohmann/json.hpp>

#include "authenticators/oauth/Base64Url.h"
#include "authenticators/oauth/JsonMember.h"

namespace Vantrel {
namespace Auth {
namespace {

// The three dot-separated parts of a compact JWS; false for any other count.
bool SplitParts(std::string_view token, std::string_view parts[3]) {
  size_t start = 0;
  for (int i = 0; i < 3; ++i) {
    const size_t dot = token.find('.', start);
    const bool last = i == 2;
    if (last != (dot == std::string_view::npos)) return false;
    const size_t end = last ? token.size() : dot;
    parts[i] = token.substr(start, end - start);
    start = end + 1;
  }
  return true;
}

}  // namespace

bool IdTokenClaims::Read(std::string_view id_token, IdTokenClaims* claims) {
  *claims = IdTokenClaims();
  std::string_view parts[3];
  std::string header, payload, signature;
  if (!SplitParts(id_token, parts) || parts[0].empty() || parts[1].empty() ||
      !Base64UrlDecode(parts[0], &header) || !Base64UrlDecode(parts[1], &payload) ||
      !Base64UrlDecode(parts[2], &signature)) {
    return false;
  }
  nlohmann::json object;
  JsonDisposal<nlohmann::json> dispose(&object);
  if (!ParseJsonObject(payload, &object)) return false;
  ReadJsonString(object, "preferred_username", &claims->preferred_username);
  ReadJsonString(object, "tid", &claims->tenant_id);
  ReadJsonString(object, "oid", &claims->object_id);
  return true;
}

}  // namespace Auth
}  // namespace Vantrel

#include "authenticators/oauth/TokenAnswer.h"

#include <algorithm>
#include <climits>
#include <iterator>

#include "authenticators/oauth/JsonMember.h"

namespace Vantrel {
namespace Auth {
namespace {

const char kInteractionRequired[] = "interaction_required";
const char kCodePrefix[] = "AADSTS";
const char kNoTokenText[] =
    "The token endpoint answered with neither an access token nor an error.";

// Codes that only the user can clear: a second factor to give (50076) or to
// register (50079), consent to grant (65001), a conditional access policy to
// satisfy (53003), and a refresh token that expired or was revoked (700082,
// 50173, 70043) and is replaced by signing in again.
const long long kInteractionCodes[] = {50076, 50079, 65001, 53003, 700082, 50173, 70043};

bool NeedsInteraction(const std::string& error, const std::vector<long long>& codes) {
  if (error == kInteractionRequired) return true;
  return std::any_of(codes.begin(), codes.end(), [](long long code) {
    return std::find(std::begin(kInteractionCodes), std::end(kInteractionCodes), code) !=
           std::end(kInteractionCodes);
  });
}

std::string FirstLine(const std::string& text) {
  return text.substr(0, text.find_first_of("\r\n"));
}

// "AADSTS50126" begins "AADSTS50126: ..." but not "AADSTS501261: ...".
bool StartsWithCode(const std::string& line, const std::string& code) {
  if (line.compare(0, code.size(), code) != 0) return false;
  return line.size() == code.size() || line[code.size()] < '0' || line[code.size()] > '9';
}

void ReadErrorCodes(const nlohmann::json& object, std::vector<long long>* codes) {
  auto found = object.find("error_codes");
  if (found == object.end() || !found->is_array()) return;
  for (const nlohmann::json& code : *found) {
    if (code.is_number_unsigned()) {
      const auto value = code.get<nlohmann::json::number_unsigned_t>();
      if (value <= static_cast<unsigned long long>(LLONG_MAX)) {
        codes->push_back(static_cast<long long>(value));
      }
    } else if (code.is_number_integer()) {
      codes->push_back(code.get<nlohmann::json::number_integer_t>());
    }
  }
}

}  // namespace

bool TokenAnswer::Parse(std::string_view body, TokenAnswer* answer) {
  *answer = TokenAnswer();
  nlohmann::json object;
  JsonDisposal<nlohmann::json> dispose(&object);
  if (!ParseJsonObject(body, &object)) return false;
  TakeJsonSecret(&object, "access_token", &answer->access_token);
  TakeJsonSecret(&object, "refresh_token", &answer->refresh_token);
  TakeJsonSecret(&object, "id_token", &answer->id_token);
  ReadJsonString(object, "token_type", &answer->token_type);
  ReadJsonString(object, "scope", &answer->scope);
  ReadJsonSeconds(object, "expires_in", &answer->expires_in);
  ReadJsonString(object, "error", &answer->error);
  ReadJsonString(object, "error_description", &answer->error_description);
  ReadErrorCodes(object, &answer->error_codes);
  ReadJsonString(object, "correlation_id", &answer->correlation_id);
  return true;
}

AuthResult TokenAnswer::Classify(std::string* detail) const {
  detail->clear();
  if (!IsError()) {
    if (!access_token.empty()) return kAuthResultOk;
    *detail = kNoTokenText;
    return kAuthResultAuthFailed;
  }
  const std::string line = FirstLine(error_description);
  if (line.empty()) {
    *detail = error;
  } else if (error_codes.empty()) {
    *detail = line;
  } else {
    const std::string code = kCodePrefix + std::to_string(error_codes.front());
    *detail = StartsWithCode(line, code) ? line : code + ": " + line;
  }
  return NeedsInteraction(error, error_codes) ? kAuthResultInteractionRequired
                                              : kAuthResultAuthFailed;
}

}  // namespace Auth
}  // namespace Vantrel

#include "authenticators/oauth/DeviceCodeAnswer.h"

#include "authenticators/oauth/JsonMember.h"

namespace Vantrel {
namespace Auth {

bool DeviceCodeAnswer::Parse(std::string_view body, DeviceCodeAnswer* answer) {
  *answer = DeviceCodeAnswer();
  nlohmann::json object;
  JsonDisposal<nlohmann::json> dispose(&object);
  if (!ParseJsonObject(body, &object)) return false;
  TakeJsonSecret(&object, "device_code", &answer->device_code);
  ReadJsonString(object, "user_code", &answer->user_code);
  ReadJsonString(object, "verification_uri", &answer->verification_uri);
  ReadJsonString(object, "message", &answer->message);
  long long seconds = 0;
  if (ReadJsonSeconds(object, "expires_in", &seconds) && seconds > 0) answer->expires_in = seconds;
  // An interval of 0 would poll without a pause.
  if (ReadJsonSeconds(object, "interval", &seconds) && seconds > 0) answer->interval = seconds;
  if (!answer->device_code.empty() && !answer->user_code.empty()) return true;
  *answer = DeviceCodeAnswer();
  return false;
}

}  // namespace Auth
}  // namespace Vantrel

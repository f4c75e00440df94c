// The readers of Entra ID's JSON answers, each handed every input: the token
// answer and its classification, the device-code answer, and ID tokens (the
// input as a token, and the input as the JSON payload of a well-formed one).
// Besides surviving any bytes, each outcome is checked against its contract.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "VantrelAuthEngine.h"
#include "authenticators/oauth/Base64Url.h"
#include "authenticators/oauth/DeviceCodeAnswer.h"
#include "authenticators/oauth/IdTokenClaims.h"
#include "authenticators/oauth/JsonMember.h"
#include "authenticators/oauth/TokenAnswer.h"

using namespace Vantrel::Auth;

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

void ReadTokenAnswer(std::string_view text) {
  TokenAnswer answer;
  const bool parsed = TokenAnswer::Parse(text, &answer);
  Check(answer.expires_in >= 0 && answer.expires_in <= kMaxJsonSeconds);
  std::string detail;
  const AuthResult result = answer.Classify(&detail);
  if (!parsed) Check(result == kAuthResultAuthFailed && !answer.IsError());
  if (answer.IsError()) {
    Check(result == kAuthResultAuthFailed || result == kAuthResultInteractionRequired);
    Check(!detail.empty());
  } else {
    Check(result == (answer.access_token.empty() ? kAuthResultAuthFailed : kAuthResultOk));
  }
}

void ReadDeviceCodeAnswer(std::string_view text) {
  DeviceCodeAnswer answer;
  const bool parsed = DeviceCodeAnswer::Parse(text, &answer);
  Check(parsed == (!answer.device_code.empty() && !answer.user_code.empty()));
  Check(answer.interval >= 1 && answer.interval <= kMaxJsonSeconds);
  Check(answer.expires_in >= 1 && answer.expires_in <= kMaxJsonSeconds);
}

void ReadIdToken(std::string_view text) {
  IdTokenClaims claims;
  if (IdTokenClaims::Read(text, &claims)) Check(std::count(text.begin(), text.end(), '.') == 2);
  // The payload part decodes back to the input whatever it holds.
  const std::string payload = Base64UrlEncode(text);
  std::string decoded;
  Check(Base64UrlDecode(payload, &decoded) && decoded == text);
  IdTokenClaims::Read("eyJhbGciOiJub25lIn0." + payload + ".", &claims);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ReadTokenAnswer(text);
  ReadDeviceCodeAnswer(text);
  ReadIdToken(text);
  return 0;
}

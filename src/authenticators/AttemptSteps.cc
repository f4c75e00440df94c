#include "authenticators/AttemptSteps.h"

#include <cstring>
#include <string>

#include "VantrelAuthEngine64/Cookie.h"
#include "VantrelAuthEngine64/CookieNode.h"
#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "base/Cancellation.h"
#include "base/ErrorDetail.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// "fedauth" or "FedAuthX" is some other cookie.
bool IsNamed(const CookieNode* node, const char* name) {
  const Cookie* cookie = node->cookie;
  return cookie != nullptr && cookie->GetName() != nullptr &&
         std::strcmp(cookie->GetName(), name) == 0;
}

}  // namespace

const char* AvailFlag(const char* text) { return YesNo(text != nullptr && text[0] != '\0'); }

bool BeginAttempt(NetworkConfig* config, NetworkResult* result, ErrorDetail* detail,
                  INetworkControl* transport, Cancellation* cancellation) {
  if (detail == nullptr) return false;
  if (config == nullptr || result == nullptr || transport == nullptr) {
    detail->Set("Null pointer(s) detected.");
    return false;
  }
  config->Reset();
  result->Reset();
  detail->Clear();
  if (cancellation != nullptr) cancellation->Clear();
  return true;
}

AuthResult FinishAttempt(NetworkConfig* config, NetworkResult* result) {
  config->Reset();
  result->Reset();
  return kAuthResultOk;
}

AuthResult FinishWithFedAuth(const Cookie& fed_auth, NetworkConfig* config, NetworkResult* result,
                             ErrorDetail* detail) {
  if (fed_auth.GetValue() == nullptr) {
    detail->Set("FedAuth cookie not found.");
    return kAuthResultAuthFailed;
  }
  return FinishAttempt(config, result);
}

AuthResult SendRequest(INetworkControl* transport, NetworkConfig* config, NetworkResult* result,
                       ErrorDetail* detail) {
  AuthResult sent = transport->Exec(config, result);
  if (sent != kAuthResultOk) detail->Set(result->GetErrorMsg());
  return sent;
}

AuthResult CheckResponseCode(const NetworkResult* result, ErrorDetail* detail) {
  int code = result->GetResponseCode();
  if (code == 0) {
    detail->Set("Unexpected HTTP response code.  Response code: ", code);
    return kAuthResultHttpError;
  }
  if (code >= 400 && code <= 599) {
    detail->Set("HTTP error reported.  Response code: ", code);
    return kAuthResultHttpError;
  }
  return kAuthResultOk;
}

bool CopyFirstCookie(const CookieNode* list, const char* name, Cookie* target) {
  for (const CookieNode* node = list; node != nullptr; node = node->next) {
    if (IsNamed(node, name)) {
      Cookie::Copy(target, node->cookie);
      return true;
    }
  }
  return false;
}

bool CopyLastCookie(const CookieNode* list, const char* name, Cookie* target) {
  const Cookie* last = nullptr;
  for (const CookieNode* node = list; node != nullptr; node = node->next) {
    if (IsNamed(node, name)) last = node->cookie;
  }
  if (last == nullptr) return false;
  Cookie::Copy(target, last);
  return true;
}

SecretString ResponseBody(const NetworkResult* result) {
  std::string copy = result->GetBody();
  ScopedWipe wipe(&copy);
  return SecretString(copy);
}

void EscapedTextDeleter::operator()(char* text) const {
  if (text == nullptr) return;
  WipeMemory(text, std::strlen(text));
  transport->FreeEscaped(text);
}

EscapedText EscapeText(INetworkControl* transport, const char* text) {
  if (text == nullptr) return EscapedText(nullptr, EscapedTextDeleter{transport});
  return EscapedText(transport->Escape(text), EscapedTextDeleter{transport});
}

}  // namespace Auth
}  // namespace Vantrel

// The process-wide half of AuthEngine: global set-up and the result texts.
// The object half (transport and authenticators) lives in AuthEngine.cc.
#include "VantrelAuthEngine64/AuthEngine.h"

#include "base/Logger.h"
#include "base/StringUtil.h"
#include "network/NetworkControlLibcurl.h"

namespace Vantrel {
namespace Auth {
namespace {

const char* const kResultTexts[] = {
    "OK",
    "Internal error",
    "Initialisation error",
    "Invalid input",
    "Invalid option",
    "Failed to send request",
    "HTTP error",
    "Authentication failed",
    "BPOS converted SharePoint Online site.  Not supported.",
    "Interaction required",
    "Cancelled",
    "Timed out",
};
const int kResultCount = sizeof(kResultTexts) / sizeof(kResultTexts[0]);
static_assert(kResultCount == kAuthResultTimedOut + 1, "one text for every AuthResult");

}  // namespace

bool AuthEngine::is_init_ = false;
// Empty until the first GlobalInit, and never emptied again.
const char* AuthEngine::result_strs_[kAuthResultTimedOut + 1] = {};

AuthResult AuthEngine::GlobalInit() {
  Logger::Log(kLogLevelInfo, "AuthEngine::GlobalInit()");
  if (is_init_) return kAuthResultOk;
  // Filled before libcurl is asked, so that a failure's own text is there.
  for (int i = 0; i < kResultCount; ++i) result_strs_[i] = kResultTexts[i];
  AuthResult result = NetworkControlLibcurl::Init();
  if (result == kAuthResultOk) is_init_ = true;
  return result;
}

void AuthEngine::GlobalCleanup() {
  Logger::Log(kLogLevelInfo, "AuthEngine::GlobalCleanup()");
  if (!is_init_) return;
  NetworkControlLibcurl::Cleanup();
  is_init_ = false;
}

void AuthEngine::GetResultStr(AuthResult result, char* buffer, size_t* size) const {
  // A value outside the table reads like an entry not yet filled.
  const char* text = result >= 0 && result < kResultCount ? result_strs_[result] : nullptr;
  CopyOut(buffer, size, text);
}

}  // namespace Auth
}  // namespace Vantrel

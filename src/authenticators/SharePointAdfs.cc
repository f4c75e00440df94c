#include "VantrelAuthEngine64/SharePointAdfs.h"

#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AdfsUtil.h"
#include "authenticators/AttemptSteps.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// What the transport says when it has no libcurl handle; Escape can only fail
// for that reason, so the host gets the same words as from a failed request.
const char* const kNullHandleText =
    "Null handle encountered.  This might be caused by network initialization not called prior to "
    "use.";

}  // namespace

const char* const SharePointAdfs::default_service_endpoint_ = "_trust";
const char* const SharePointAdfs::default_wctx_ = "_layouts/Authenticate.aspx?Source=%2F";

SharePointAdfs::SharePointAdfs(INetworkControl* network_control)
    : AuthBase(network_control), wctx_(nullptr) {
  Logger::Log(kLogLevelInfo, "SharePointAdfs::SharePointAdfs(...)");
  SetServiceEndpoint(default_service_endpoint_);
  wctx_ = StrDup(default_wctx_);
}

SharePointAdfs::~SharePointAdfs() {
  Logger::Log(kLogLevelInfo, "SharePointAdfs::~SharePointAdfs()");
  StrFree(&wctx_);
}

AuthResult SharePointAdfs::SetWctx(const char* wctx) {
  Logger::LogFormat(kLogLevelInfo, "SharePointAdfs::SetWctx - wctx: %s", wctx, nullptr, nullptr,
                    nullptr, nullptr);
  StrAssign(&wctx_, wctx);
  return kAuthResultOk;
}

AuthResult SharePointAdfs::GetWctx(char* buffer, size_t* size) const {
  CopyOut(buffer, size, wctx_);
  return kAuthResultOk;
}

const char* SharePointAdfs::GetWctx() const { return wctx_; }

const Cookie* SharePointAdfs::GetFedAuthCookie() const {
  return fed_auth_cookie_.GetValue() != nullptr ? &fed_auth_cookie_ : nullptr;
}

AuthResult SharePointAdfs::AuthenticateByRstr(const char* site, const char* rstr) {
  Logger::LogFormat(kLogLevelInfo, "SharePointAdfs::AuthenticateByRstr - Site: %s, RSTR avail: %s",
                    site, AvailFlag(rstr), nullptr, nullptr, nullptr);
  Logger::Log(kLogLevelDebug,
              "SharePointAdfs::AuthenticateByRstr - Validating inputs and prepping... ");

  NetworkConfig* config = GetNetworkConfig();
  NetworkResult* result = GetNetworkResult();
  ErrorDetail* detail = GetErrorDetail();
  INetworkControl* network = GetNetworkControl();
  if (!BeginAttempt(config, result, detail, network, GetCancellation())) return kAuthResultInternalError;
  fed_auth_cookie_.Reset();

  if (IsEmpty(site) || IsEmpty(rstr) || !IsSupportedProtocols(site)) return kAuthResultInvalidInput;

  // The site may be given as a page with a query; the trust endpoint and the
  // return address both hang off the site itself.
  OwnedString sanitized_site = SanitizeUrl(OwnedCopy(site));
  Logger::LogFormat(kLogLevelDebug, "SharePointAdfs::AuthenticateByRstr - Sanitized URL: %s",
                    sanitized_site.get(), nullptr, nullptr, nullptr, nullptr);

  // The RSTR goes whole, line ends included, as one form field.
  EscapedText escaped_rstr = EscapeText(network, rstr);
  if (!escaped_rstr) {
    detail->Set(kNullHandleText);
    return kAuthResultInternalError;
  }

  Logger::Log(kLogLevelDebug, "SharePointAdfs::AuthenticateByRstr - Authenticating ...");
  ConfigureCommonProperties(sanitized_site.get());

  config->SetUrl(JoinUrl(sanitized_site.get(), GetServiceEndpoint()).get());
  config->ClearHeaders();
  config->AddHeader("Content-Type", "application/x-www-form-urlencoded");

  // wctx is an absolute URL escaped as one text, so the "%2F" of the default
  // path reaches the site as "%252F" and comes back to it decoded once.
  OwnedString wctx_url = JoinUrl(sanitized_site.get(), GetWctx());
  EscapedText escaped_wctx = EscapeText(network, wctx_url.get());
  if (!escaped_wctx) {
    detail->Set(kNullHandleText);
    return kAuthResultInternalError;
  }
  // The form carries the RSTR, and with it the token.
  OwnedSecret form(AdfsUtil::BuildSigninForm(escaped_wctx.get(), escaped_rstr.get()));
  config->SetPostData(form.get());

  AuthResult sent = SendRequest(network, config, result, detail);
  if (sent != kAuthResultOk) return sent;

  Logger::Log(kLogLevelDebug, "SharePointAdfs::AuthenticateByRstr - Processing result ...");
  // No redirect is followed: a 302 that sets the cookie is the usual success.
  AuthResult judged = CheckResponseCode(result, detail);
  if (judged != kAuthResultOk) return judged;

  CopyFirstCookie(result->GetCookies(), "FedAuth", &fed_auth_cookie_);
  return FinishWithFedAuth(fed_auth_cookie_, config, result, detail);
}

}  // namespace Auth
}  // namespace Vantrel

#include "VantrelAuthEngine64/SharePointFba.h"

#include <cstdio>
#include <cstring>

#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AttemptSteps.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

// The Login call of the SharePoint authentication web service. User and
// password go in byte for byte, never XML-escaped: a host whose values need
// escaping does it before handing them in, and nothing is escaped twice.
const char kLoginBody[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">\n"
    "   <soap:Body>\n"
    "       <Login xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">\n"
    "       <username>%s</username>\n"
    "       <password>%s</password>\n"
    "       </Login>\n"
    "   </soap:Body>\n"
    "</soap:Envelope>";

// The buffer is sized from this, so it must stay the template's exact length.
constexpr size_t kLoginBodyLength = 403;
static_assert(sizeof(kLoginBody) - 1 == kLoginBodyLength, "Login template changed length");

const char kSoapAction[] = "\"http://schemas.microsoft.com/sharepoint/soap/Login\"";
const char kContentType[] = "text/xml; charset=utf-8";
const char kFedAuthName[] = "FedAuth";

}  // namespace

const char* const SharePointFba::default_service_endpoint_ = "_vti_bin/authentication.asmx";

SharePointFba::SharePointFba(INetworkControl* network_control)
    : AuthBase(network_control), fed_auth_cookie_() {
  Logger::Log(kLogLevelInfo, "SharePointFba::SharePointFba(...)");
  fed_auth_cookie_.Reset();
  SetServiceEndpoint(default_service_endpoint_);
}

SharePointFba::~SharePointFba() { Logger::Log(kLogLevelInfo, "SharePointFba::~SharePointFba()"); }

AuthResult SharePointFba::Authenticate(const char* site, const char* user, const char* password) {
  Logger::LogFormat(kLogLevelInfo, "SharePointFba::Authenticate - Site: %s, User: %s, Pwd avail: %s",
                    site, user, AvailFlag(password), nullptr, nullptr);

  NetworkConfig* config = GetNetworkConfig();
  NetworkResult* result = GetNetworkResult();
  ErrorDetail* detail = GetErrorDetail();
  INetworkControl* transport = GetNetworkControl();
  if (!BeginAttempt(config, result, detail, transport, GetCancellation())) return kAuthResultInternalError;
  fed_auth_cookie_.Reset();

  Logger::Log(kLogLevelDebug, "SharePointFba::Authenticate - Validating inputs... ");
  // An empty user or password is a legitimate (if doomed) attempt; only a
  // missing one is refused. The site gets the stricter tests below.
  if (user == nullptr || password == nullptr) {
    detail->Set("At least one of the required input string is null.");
    return kAuthResultInvalidInput;
  }
  if (IsEmpty(site)) return kAuthResultInvalidInput;
  if (!IsSupportedProtocols(site)) return kAuthResultInvalidInput;

  OwnedString site_url = SanitizeUrl(OwnedCopy(site));
  Logger::LogFormat(kLogLevelDebug, "SharePointFba::Authenticate - Sanitized URL: %s",
                    site_url.get(), nullptr, nullptr, nullptr, nullptr);

  // Zeroed, so that the wiping deleter finds a terminator even before the
  // body is written.
  size_t body_size = kLoginBodyLength + std::strlen(user) + std::strlen(password) + 1;
  OwnedSecret body(new char[body_size]());
  std::snprintf(body.get(), body_size, kLoginBody, user, password);

  Logger::Log(kLogLevelDebug, "SharePointFba::Authenticate - Authenticating ... ");
  ConfigureCommonProperties(site_url.get());
  config->SetUrl(JoinUrl(site_url.get(), GetServiceEndpoint()).get());

  config->ClearHeaders();
  config->AddHeader("SOAPAction", kSoapAction);
  config->AddHeader("Content-Type", kContentType);
  config->SetPostData(body.get());

  AuthResult sent = SendRequest(transport, config, result, detail);
  if (sent != kAuthResultOk) return sent;

  Logger::Log(kLogLevelDebug, "SharePointFba::Authenticate - Processing result ... ");
  AuthResult judged = CheckResponseCode(result, detail);
  if (judged != kAuthResultOk) return judged;
  // A refused password still comes back with a success code; the body is not
  // worth reading, because only the cookie tells the two apart reliably.

  // Of two FedAuth cookies the one libcurl listed last wins.
  CopyFirstCookie(result->GetCookies(), kFedAuthName, &fed_auth_cookie_);
  return FinishWithFedAuth(fed_auth_cookie_, config, result, detail);
}

const Cookie* SharePointFba::GetFedAuthCookie() const {
  return fed_auth_cookie_.GetValue() != nullptr ? &fed_auth_cookie_ : nullptr;
}

}  // namespace Auth
}  // namespace Vantrel

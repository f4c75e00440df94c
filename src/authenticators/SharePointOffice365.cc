#include "VantrelAuthEngine64/SharePointOffice365.h"

#include <cstring>
#include <string>
#include <utility>

#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AttemptSteps.h"
#include "authenticators/Office365Endpoints.h"
#include "authenticators/RealmDiscovery.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/StringUtil.h"
#include "credentials/BinaryTokenCredential.h"
#include "text/RegexUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

const char* const kSiteDataService = "_vti_bin/SiteData.asmx";
const char* const kGetSiteAndWebAction =
    "\"http://schemas.microsoft.com/sharepoint/soap/GetSiteAndWeb\"";

// Byte for byte what SiteData expects; the uneven indent of strUrl is part of
// it. One placeholder: the realm URL, unescaped.
const char* const kGetSiteAndWebEnvelope =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">\n"
    "   <soap:Body>\n"
    "       <GetSiteAndWeb xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">\n"
    "       <strUrl>%s</strUrl>\n"
    "       </GetSiteAndWeb>\n"
    "   </soap:Body>\n"
    "</soap:Envelope>";

const char* const regex_str_namespace_type_ = "\"NameSpaceType\":\\s*\"(.+?)\"";
const char* const regex_str_auth_url_ = "\"AuthURL\":\\s*\"(.+?)\"";

std::string FormatEnvelope(const char* url) {
  const char* placeholder = std::strstr(kGetSiteAndWebEnvelope, "%s");
  size_t head = static_cast<size_t>(placeholder - kGetSiteAndWebEnvelope);
  std::string body(kGetSiteAndWebEnvelope, head);
  body += url != nullptr ? url : "";
  body += placeholder + 2;
  return body;
}

}  // namespace

const char* const SharePointOffice365::default_service_endpoint_ =
    "_forms/default.aspx?wa=wsignin1.0";

SharePointOffice365::SharePointOffice365(INetworkControl* network_control)
    : AuthBase(network_control) {
  Logger::Log(kLogLevelInfo, "SharePointOffice365::SharePointOffice365(...)");
  SetServiceEndpoint(default_service_endpoint_);
  SetSslVersion(kSslVersionSsl3);
}

SharePointOffice365::~SharePointOffice365() {
  Logger::Log(kLogLevelInfo, "SharePointOffice365::~SharePointOffice365()");
}

const Cookie* SharePointOffice365::GetFedAuthCookie() const {
  return fed_auth_cookie_.GetValue() != nullptr ? &fed_auth_cookie_ : nullptr;
}

const Cookie* SharePointOffice365::GetRtfaCookie() const {
  return rtfa_cookie_.GetValue() != nullptr ? &rtfa_cookie_ : nullptr;
}

AuthResult SharePointOffice365::Authenticate(const char* site, const ICredential* credential) {
  Logger::LogFormat(kLogLevelInfo,
                    "SharePointOffice365::AuthenticateByBinarySecurityToken - Site: %s, Credential "
                    "avail: %s",
                    site, YesNo(credential != nullptr), nullptr, nullptr, nullptr);
  Logger::Log(kLogLevelDebug,
              "SharePointOffice365::AuthenticateByBinarySecurityToken - Validating inputs... ");

  NetworkConfig* config = GetNetworkConfig();
  NetworkResult* result = GetNetworkResult();
  ErrorDetail* detail = GetErrorDetail();
  INetworkControl* control = GetNetworkControl();
  if (!BeginAttempt(config, result, detail, control, GetCancellation())) return kAuthResultInternalError;
  fed_auth_cookie_.Reset();
  rtfa_cookie_.Reset();

  if (IsEmpty(site)) return kAuthResultInvalidInput;
  if (!IsSupportedProtocols(site)) return kAuthResultInvalidInput;

  // FindRealmToUse stores its answer only once nothing more can throw, so the
  // raw pointer is taken into a holder before anything else happens.
  char* discovered = nullptr;
  FindRealmToUse(site, &discovered);
  OwnedString url = SanitizeUrl(OwnedString(discovered));
  Logger::LogFormat(kLogLevelDebug,
                    "SharePointOffice365::AuthenticateByBinarySecurityToken - Sanitized URL: %s",
                    url.get(), nullptr, nullptr, nullptr, nullptr);

  // GetSiteAndWeb names the site collection that signs in, which may lie
  // above the realm. Its answer is advice: without one the realm is used.
  Logger::Log(kLogLevelDebug,
              "SharePointOffice365::AuthenticateByBinarySecurityToken - Calling GetSiteAndWeb to "
              "get URL for authentication .... ");
  ConfigureCommonProperties(url.get());
  config->SetUrl(JoinUrl(url.get(), kSiteDataService).get());
  config->ClearHeaders();
  config->AddHeader("SOAPAction", kGetSiteAndWebAction);
  config->AddHeader("Content-Type", "text/xml; charset=utf-8");
  config->SetPostData(FormatEnvelope(url.get()).c_str());
  control->Exec(config, result);

  std::string body = result->GetBody();
  OwnedString str_site = EscapeSpaces(OwnedString(ExtractXmlElement(body.c_str(), "strSite", false)));
  OwnedString str_web = EscapeSpaces(OwnedString(ExtractXmlElement(body.c_str(), "strWeb", false)));
  Logger::LogFormat(kLogLevelDebug,
                    "SharePointOffice365::AuthenticateByBinarySecurityToken - GetSiteAndWeb "
                    "result: site: %s, web: %s",
                    str_site.get(), str_web.get(), nullptr, nullptr, nullptr);

  Logger::Log(kLogLevelDebug,
              "SharePointOffice365::AuthenticateByBinarySecurityToken - Authenticating .... ");
  const char* base = (str_site && str_site[0] != '\0') ? str_site.get() : url.get();
  OwnedString auth_url = JoinUrl(base, GetServiceEndpoint());
  ConfigureCommonProperties(auth_url.get());
  Logger::LogFormat(kLogLevelDebug,
                    "SharePointOffice365::AuthenticateByBinarySecurityToken - URL for auth: %s",
                    auth_url.get(), nullptr, nullptr, nullptr, nullptr);
  config->SetUrl(auth_url.get());
  config->ClearHeaders();
  config->AddHeader("Content-Type", "application/x-www-form-urlencoded");

  // Checked only now, after the advisory exchanges, so that a wrong credential
  // costs the same requests as a right one.
  const BinaryTokenCredential* token = dynamic_cast<const BinaryTokenCredential*>(credential);
  if (token == nullptr) {
    detail->Set(
        "Invalid credential supplied to SharePointOffice365::Authenticate.  Only "
        "BinaryTokenCredential is supported.");
    return kAuthResultInternalError;
  }
  // The sign-in page takes the token value ("t=...") as the whole body, not
  // as a form field: nothing is encoded.
  config->SetPostData(token->GetTokenValue().c_str());

  AuthResult sent = SendRequest(control, config, result, detail);
  if (sent != kAuthResultOk) return sent;

  Logger::Log(kLogLevelDebug,
              "SharePointOffice365::AuthenticateByBinarySecurityToken - Processing authentication "
              "result .... ");
  AuthResult judged = CheckResponseCode(result, detail);
  if (judged != kAuthResultOk) return judged;

  // Unlike the other sign-ins this one keeps the last match in list order,
  // which is the cookie that arrived first when a name repeats.
  CopyLastCookie(result->GetCookies(), "FedAuth", &fed_auth_cookie_);
  CopyLastCookie(result->GetCookies(), "rtFa", &rtfa_cookie_);
  return FinishWithFedAuth(fed_auth_cookie_, config, result, detail);
}

AuthResult SharePointOffice365::GetAuthTarget(std::string email,
                                              SharePointOffice365AuthNamespace& auth_type,
                                              std::string& auth_url) {
  NetworkConfig* config = GetNetworkConfig();
  NetworkResult* result = GetNetworkResult();
  ErrorDetail* detail = GetErrorDetail();
  INetworkControl* control = GetNetworkControl();
  Logger::Log(kLogLevelDebug, "SharePointOffice365::GetAuthTarget - Validating Inputs .... ");
  if (!BeginAttempt(config, result, detail, control, GetCancellation())) return kAuthResultInternalError;

  if (email.empty()) return kAuthResultInvalidInput;

  Logger::Log(kLogLevelDebug, "SharePointOffice365::GetAuthTarget - Encoding Email Address .... ");
  OwnedString encoded = UrlEncode(OwnedCopy(email.c_str()));
  std::string url = kGetUserRealmUrl;
  url += encoded ? encoded.get() : "";

  Logger::Log(kLogLevelDebug, "SharePointOffice365::GetAuthTarget - Preparing Request .... ");
  ConfigureCommonProperties(url.c_str());
  config->SetUrl(url.c_str());
  config->ClearHeaders();

  Logger::Log(kLogLevelDebug, "SharePointOffice365::GetAuthTarget - Performing Request .... ");
  // A failed or refused request leaves a body without the field, which is
  // reported below like any answer that names no namespace; a cancelled one
  // ends the attempt as such.
  if (control->Exec(config, result) == kAuthResultCancelled) {
    auth_type = kAuthNamespaceUnknown;
    detail->Set(result->GetErrorMsg());
    return kAuthResultCancelled;
  }
  std::string body = result->GetBody();

  Logger::Log(kLogLevelDebug,
              "SharePointOffice365::GetAuthTarget - Extracting Auth Namespace Type .... ");
  OwnedString name(RegexFirstCapture(body.c_str(), regex_str_namespace_type_));
  if (!name) {
    Logger::Log(kLogLevelDebug,
                "SharePointOffice365::GetAuthTarget - No Auth Namespace was found .... ");
    auth_type = kAuthNamespaceUnknown;
    detail->Set("Could not find Office 365 Auth Namespace Type");
    return kAuthResultInternalError;
  }
  Logger::LogFormat(kLogLevelDebug, "SharePointOffice365::GetAuthTarget - Found Namespace %s", name.get(),
                    nullptr, nullptr, nullptr, nullptr);

  // The value is compared exactly: the service writes these three words so,
  // and anything else is not a namespace this library knows how to follow.
  if (std::strcmp(name.get(), "Unknown") == 0) {
    auth_type = kAuthNamespaceUnknown;
  } else if (std::strcmp(name.get(), "Managed") == 0) {
    auth_type = kAuthNamespaceManaged;
    auth_url = kDefaultOffice365Server;
  } else if (std::strcmp(name.get(), "Federated") == 0) {
    auth_type = kAuthNamespaceFederated;
    OwnedString found(RegexFirstCapture(body.c_str(), regex_str_auth_url_));
    if (!found) {
      // Worded like the missing-namespace case: in both the service's answer
      // lacks the field the host needs to go on.
      Logger::Log(kLogLevelDebug,
                  "SharePointOffice365::GetAuthTarget - No Auth URL was found .... ");
      detail->Set("Could not find Office 365 Auth URL for a Federated namespace");
      return kAuthResultInternalError;
    }
    // What Adfs needs is the server's base URL; it adds its own endpoint.
    // StripAdfsLsEndpoint takes over what it is given, also when it throws.
    OwnedString target(StripAdfsLsEndpoint(SanitizeUrl(std::move(found)).release()));
    auth_url = target ? target.get() : "";
  } else {
    detail->Set("Unsupported Office 365 Auth Namespace Type", name.get());
    return kAuthResultInternalError;
  }

  Logger::LogFormat(kLogLevelDebug,
                    "SharePointOffice365::GetAuthTarget - Returning Successfully with auth_url: "
                    "%s, auth_type",
                    auth_url.c_str(), nullptr, nullptr, nullptr, nullptr);
  return kAuthResultOk;
}

void SharePointOffice365::FindRealmToUse(const char* realm_url, char** result) {
  DiscoverRealm("SharePointOffice365", realm_url, result, GetNetworkConfig(), GetNetworkResult(),
                GetNetworkControl(), [this](const char* url) { ConfigureCommonProperties(url); });
}

char* SharePointOffice365::StripAdfsLsEndpoint(char* url) {
  OwnedString held(url);
  OwnedString capture(RegexFirstCapture(url, "(.*?)/adfs/ls"));
  return capture ? capture.release() : held.release();
}

}  // namespace Auth
}  // namespace Vantrel

#include "VantrelAuthEngine64/AdfsImpl.h"

#include "VantrelAuthEngine64/ICredential.h"
#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AdfsUtil.h"
#include "authenticators/AttemptSteps.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "credentials/ISamlCredential.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
const char* const AdfsImpl::default_service_endpoint_user_ =
    "adfs/services/trust/2005/usernamemixed";

AdfsImpl::AdfsImpl(INetworkControl* network_control) : AuthBase(network_control), rstr_(nullptr) {
  SetServiceEndpoint(default_service_endpoint_user_);
}

AdfsImpl::~AdfsImpl() { WipeAndFree(&rstr_); }

void AdfsImpl::GetRstr(char* buffer, size_t* size) const { CopyOut(buffer, size, rstr_); }

const char* AdfsImpl::GetRstr() const { return rstr_; }

AuthResult AdfsImpl::AuthenticateHelper(const char* server_url, const char* realm,
                                        const ICredential* credential) {
  Logger::Log(kLogLevelDebug, "AdfsImpl::AuthenticateHelper - validating inputs .... ");

  NetworkConfig* config = GetNetworkConfig();
  NetworkResult* result = GetNetworkResult();
  ErrorDetail* detail = GetErrorDetail();
  INetworkControl* network = GetNetworkControl();
  // No cancellation here: the public operation that called this spent an
  // earlier Cancel itself, and Office 365's realm probes, which come first,
  // belong to the same attempt. A Cancel during them must still count here.
  if (!BeginAttempt(config, result, detail, network, nullptr)) return kAuthResultInternalError;
  // The RSTR holds the token it was asked for.
  WipeAndFree(&rstr_);

  // Null before empty, URL before realm: a host sees the first thing it got
  // wrong in the order it passed them.
  if (server_url == nullptr || realm == nullptr || credential == nullptr) {
    detail->Set("At least one of the required input string is null.");
    return kAuthResultInvalidInput;
  }
  if (server_url[0] == '\0') {
    detail->Set("URL for the ADFS 2.0 server provided is an empty string.");
    return kAuthResultInvalidInput;
  }
  if (realm[0] == '\0') {
    detail->Set("The home realm (URI) provided is an empty string.");
    return kAuthResultInvalidInput;
  }
  if (!IsSupportedProtocols(server_url)) return kAuthResultInvalidInput;

  Logger::Log(kLogLevelDebug, "AdfsImpl::AuthenticateHelper - Authenticating .... ");
  ConfigureCommonProperties(server_url);

  // The server URL is taken as given, a final slash included: it is also the
  // a:To of the envelope, which the server compares with where it was posted.
  OwnedString request_url = JoinUrl(server_url, GetServiceEndpoint());
  config->SetUrl(request_url.get());
  // No SOAPAction: with SOAP 1.2 the action travels in a:Action.
  config->ClearHeaders();
  config->AddHeader("Content-Type", "application/soap+xml; charset=utf-8");

  // ISamlCredential, not ISoapCredential: what goes into o:Security is the
  // WS-Security text. The detail's wording is the one hosts already match on.
  const ISamlCredential* saml = dynamic_cast<const ISamlCredential*>(credential);
  if (saml == nullptr) {
    detail->Set(
        "Invalid credential supplied to AuthenticateHelper.  Only SoapCredential is supported.");
    return kAuthResultInternalError;
  }

  // The envelope carries the password or the token of the credential.
  OwnedSecret envelope(AdfsUtil::BuildRstEnvelope(request_url.get(), realm, saml));
  config->SetPostData(envelope.get());

  AuthResult sent = SendRequest(network, config, result, detail);
  if (sent != kAuthResultOk) return sent;

  Logger::Log(kLogLevelDebug, "AdfsImpl::AuthenticateHelper - Process authentication result .... ");
  // A refused request's body (a SOAP fault) isn't read: the code says enough.
  AuthResult judged = CheckResponseCode(result, detail);
  if (judged != kAuthResultOk) return judged;

  SecretString body = ResponseBody(result);
  if (body.empty()) {
    detail->Set("No RSTR token found.  HTTP response is empty.");
    return kAuthResultAuthFailed;
  }
  rstr_ = AdfsUtil::ExtractRstr(body.c_str());
  if (rstr_ == nullptr || rstr_[0] == '\0') {
    WipeAndFree(&rstr_);
    detail->Set("No RSTR token found in HTTP response.");
    return kAuthResultAuthFailed;
  }

  return FinishAttempt(config, result);
}

}  // namespace Auth
}  // namespace Vantrel

#include "emulator/Office365Service.h"

#include <atomic>
#include <cstdio>
#include <ctime>
#include <utility>

#include "emulator/AdfsServer.h"
#include "emulator/EndpointSupport.h"

namespace Vantrel {
namespace Emulation {
namespace {

std::string IsoTime(std::time_t when) {
  char text[32];
  std::tm parts{};
  gmtime_r(&when, &parts);
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

Response Fault(int status, const std::string& code, const std::string& reason) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><S:Envelope "
      "xmlns:S=\"http://www.w3.org/2003/05/soap-envelope\" "
      "xmlns:wst=\"http://schemas.xmlsoap.org/ws/2005/02/trust\"><S:Body><S:Fault><S:Code>"
      "<S:Value>S:Sender</S:Value><S:Subcode><S:Value>" +
      code + "</S:Value></S:Subcode></S:Code><S:Reason><S:Text xml:lang=\"en-US\">" + reason +
      "</S:Text></S:Reason></S:Fault></S:Body></S:Envelope>";
  return Response::Text(status, std::move(body), "application/soap+xml; charset=utf-8");
}

std::string Rstr(const std::string& realm, const std::string& token_element) {
  std::time_t now = std::time(nullptr);
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><S:Envelope "
         "xmlns:S=\"http://www.w3.org/2003/05/soap-envelope\" "
         "xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
         "oasis-200401-wss-wssecurity-secext-1.0.xsd\" "
         "xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/"
         "oasis-200401-wss-wssecurity-utility-1.0.xsd\" "
         "xmlns:wsa=\"http://www.w3.org/2005/08/addressing\" "
         "xmlns:wst=\"http://schemas.xmlsoap.org/ws/2005/02/trust\"><S:Header>"
         "<wsa:Action S:mustUnderstand=\"1\" wsu:Id=\"Action\">"
         "http://schemas.xmlsoap.org/ws/2005/02/trust/RSTR/Issue</wsa:Action>"
         "<wsa:To S:mustUnderstand=\"1\">http://www.w3.org/2005/08/addressing/anonymous</wsa:To>"
         "</S:Header><S:Body>"
         "<wst:RequestSecurityTokenResponse xmlns:S=\"http://www.w3.org/2003/05/soap-envelope\" "
         "xmlns:wst=\"http://schemas.xmlsoap.org/ws/2005/02/trust\" "
         "xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
         "oasis-200401-wss-wssecurity-secext-1.0.xsd\" "
         "xmlns:wsp=\"http://schemas.xmlsoap.org/ws/2004/09/policy\">"
         "<wst:TokenType>urn:passport:compact</wst:TokenType>"
         "<wsp:AppliesTo xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">"
         "<wsa:EndpointReference><wsa:Address>" +
         realm +
         "</wsa:Address></wsa:EndpointReference></wsp:AppliesTo>"
         "<wst:Lifetime><wsu:Created>" +
         IsoTime(now) + "</wsu:Created><wsu:Expires>" + IsoTime(now + 8 * 3600) +
         "</wsu:Expires></wst:Lifetime><wst:RequestedSecurityToken>" + token_element +
         "</wst:RequestedSecurityToken></wst:RequestSecurityTokenResponse></S:Body></S:Envelope>";
}

// What a site converted from BPOS gets instead of a binary token: a SAML
// assertion, on one line as the service writes it.
std::string BposAssertion(const std::string& user, const std::string& realm) {
  return "<saml:Assertion MajorVersion=\"1\" MinorVersion=\"1\" AssertionID=\"_bpos-" + user +
         "\" Issuer=\"urn:federation:MicrosoftOnline\" IssueInstant=\"" +
         IsoTime(std::time(nullptr)) +
         "\" xmlns:saml=\"urn:oasis:names:tc:SAML:1.0:assertion\"><saml:Conditions>"
         "<saml:AudienceRestrictionCondition><saml:Audience>" +
         realm +
         "</saml:Audience></saml:AudienceRestrictionCondition></saml:Conditions>"
         "<saml:AttributeStatement><saml:Subject><saml:NameIdentifier>" +
         user + "</saml:NameIdentifier></saml:Subject></saml:AttributeStatement></saml:Assertion>";
}

const Office365Account* FindAccount(const Office365ServiceOptions& options,
                                    const std::string& login) {
  for (const auto& entry : options.accounts) {
    if (EqualsIgnoreCase(entry.first, login)) return &entry.second;
  }
  return nullptr;
}

std::string JsonEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

Response UserRealm(const Office365ServiceOptions& options, const Request& request) {
  std::string login = request.QueryParam("login").value_or("");
  const Office365Account* account = FindAccount(options, login);
  std::string type = account != nullptr ? account->namespace_type : "Unknown";
  std::string domain =
      login.substr(login.find('@') == std::string::npos ? login.size() : login.find('@') + 1);
  std::string body = "{\"State\":" + std::string(type == "Federated" ? "3" : "4") +
                     ",\"UserState\":" + (type == "Federated" ? "2" : "1") + ",\"Login\":\"" +
                     JsonEscape(login) + "\"";
  if (!type.empty()) body += ",\"NameSpaceType\":\"" + JsonEscape(type) + "\"";
  body += ",\"DomainName\":\"" + JsonEscape(domain) + "\"";
  if (account != nullptr && !account->auth_url.empty()) {
    body += ",\"FederationGlobalVersion\":-1,\"AuthURL\":\"" + JsonEscape(account->auth_url) + "\"";
  }
  body += ",\"FederationBrandName\":\"" + JsonEscape(domain) +
          "\",\"CloudInstanceName\":\"microsoftonline.com\"}";
  return Response::Text(200, std::move(body), "application/json; charset=utf-8");
}

// The federated account an assertion speaks for, or "" when it names none or
// comes from an issuer the service doesn't trust.
std::string FederatedUser(const Office365ServiceOptions& options, const std::string& assertion) {
  std::string issuer = Capture(assertion, "\\bIssuer=\"([^\"]*)\"");
  if (issuer.empty()) issuer = Capture(assertion, "<[^<>]*:Issuer[^<>]*>([^<]*)<");
  bool trusted = false;
  for (const std::string& name : options.trusted_issuers) trusted = trusted || name == issuer;
  if (!trusted) return "";
  for (const auto& entry : options.accounts) {
    if (entry.second.namespace_type != "Federated") continue;
    std::string needle = ">" + Lower(entry.first) + "<";
    if (Lower(assertion).find(needle) != std::string::npos) return entry.first;
  }
  return "";
}

Response TokenService(const Office365ServiceOptions& options,
                      const std::shared_ptr<Office365ServiceState>& state, const Request& request) {
  const std::string& body = request.body;
  std::string to = Capture(body, "<[^<>]*:To(?:\\s[^<>]*)?>([^<]*)</");
  if (to != AddressedUrl(request)) {
    state->NoteRefused();
    return Fault(
        500, "wsa:DestinationUnreachable",
        "The message addressed to '" + to + "' arrived at '" + AddressedUrl(request) + "'.");
  }
  std::string realm =
      Capture(body, "<[^<>]*AppliesTo[^<>]*>[\\s\\S]*?<[^<>]*Address[^<>]*>([^<]*)</");
  bool bpos = false;
  if (realm.empty() || !state->KnowsRealm(realm, &bpos)) {
    state->NoteRefused();
    return Fault(500, "wst:InvalidRequest", "Invalid STS request: unknown realm '" + realm + "'.");
  }

  std::string user;
  std::string username = Capture(body, "<[^<>]*:Username(?:\\s[^<>]*)?>([^<]*)</");
  if (!username.empty()) {
    std::string password =
        Capture(body, "<[^<>]*:Password(?:\\s[^<>]*)?>([\\s\\S]*?)</[^<>]*:Password>");
    const Office365Account* account = FindAccount(options, username);
    if (account != nullptr && account->namespace_type == "Managed" &&
        account->password == password) {
      user = username;
    }
  } else {
    std::string assertion =
        Capture(body, "(<[A-Za-z0-9]+:Assertion[\\s>][\\s\\S]*?</[A-Za-z0-9]+:Assertion>)");
    if (!assertion.empty()) user = FederatedUser(options, assertion);
  }
  if (user.empty()) {
    state->NoteRefused();
    return Fault(500, "wst:FailedAuthentication", "Authentication Failure");
  }

  std::string token_element;
  if (bpos) {
    token_element = BposAssertion(user, realm);
  } else {
    Office365ServiceState::Token token = state->Issue(user, realm);
    token_element =
        "<wsse:BinarySecurityToken Id=\"Compact0\">" + token.value + "</wsse:BinarySecurityToken>";
  }
  return Response::Text(200, Rstr(realm, token_element), "application/soap+xml; charset=utf-8");
}

}  // namespace

void Office365ServiceState::AddRealm(const std::string& realm, bool bpos) {
  std::lock_guard<std::mutex> lock(mutex_);
  realms_[realm] = bpos;
}

bool Office365ServiceState::KnowsRealm(const std::string& realm, bool* bpos) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = realms_.find(realm);
  if (found == realms_.end()) return false;
  *bpos = found->second;
  return true;
}

Office365ServiceState::Token Office365ServiceState::Issue(const std::string& user,
                                                          const std::string& realm) {
  static std::atomic<unsigned> serial{0};
  char stamp[64];
  std::snprintf(stamp, sizeof stamp, "%08lx%04x", static_cast<unsigned long>(std::time(nullptr)),
                serial.fetch_add(1) & 0xffffu);
  // Base64-like characters with a few of the bytes that the client must pass
  // on untouched: the "&amp;p=" tail and a "+" and "/" inside.
  Token token{"t=EwBg" + std::string(stamp) + "+Aa/" + std::to_string(user.size()) + "Zz&amp;p=",
              user, realm};
  std::lock_guard<std::mutex> lock(mutex_);
  tokens_.push_back(token);
  return token;
}

bool Office365ServiceState::Find(const std::string& value, Token* token) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const Token& issued : tokens_) {
    if (issued.value == value) {
      *token = issued;
      return true;
    }
  }
  return false;
}

std::vector<Office365ServiceState::Token> Office365ServiceState::IssuedTokens() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tokens_;
}

int Office365ServiceState::RefusedRequests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return refused_;
}

void Office365ServiceState::NoteRefused() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++refused_;
}

std::shared_ptr<Office365ServiceState> InstallOffice365Service(
    Emulator* emulator, const Office365ServiceOptions& options) {
  auto state = std::make_shared<Office365ServiceState>();
  emulator->Route("GET", options.host, "/GetUserRealm.srf",
                  [options](const Request& request) { return UserRealm(options, request); });
  emulator->Route("POST", options.host, "/extSTS.srf", [options, state](const Request& request) {
    return TokenService(options, state, request);
  });
  return state;
}

}  // namespace Emulation
}  // namespace Vantrel

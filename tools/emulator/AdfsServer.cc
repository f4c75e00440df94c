#include "emulator/AdfsServer.h"

#include <algorithm>
#include <ctime>
#include <string_view>
#include <utility>

#include "emulator/EndpointSupport.h"

namespace Vantrel {
namespace Emulation {
namespace {

const char kEndpoint[] = "/adfs/services/trust/2005/usernamemixed";
const char kSoap12[] = "http://www.w3.org/2003/05/soap-envelope";
const char kAddressing[] = "http://www.w3.org/2005/08/addressing";
const char kUtility[] =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd";
const char kTrust[] = "http://schemas.xmlsoap.org/ws/2005/02/trust";
const char kIssueAction[] = "http://schemas.xmlsoap.org/ws/2005/02/trust/RST/Issue";
const char kIssueReplyAction[] = "http://schemas.xmlsoap.org/ws/2005/02/trust/RSTR/Issue";
const char kIssueRequest[] = "http://schemas.xmlsoap.org/ws/2005/02/trust/Issue";
const char kPasswordText[] =
    "http://docs.oasis-open.org/wss/2004/01/"
    "oasis-200401-wss-username-token-profile-1.0#PasswordText";

// One element found by its local name, whatever its prefix. A scan rather
// than a regular expression: tokens make bodies long, and the values must
// come out byte for byte as the client put them in.
struct Element {
  std::string attributes;  // the start tag's text behind the name
  std::string inner;       // up to the first matching end tag
};

bool FindElement(std::string_view text, std::string_view local_name, Element* element) {
  size_t at = 0;
  while ((at = text.find('<', at)) != std::string_view::npos) {
    size_t name_start = at + 1;
    size_t name_end = text.find_first_of(" \t\r\n/>", name_start);
    if (name_end == std::string_view::npos) return false;
    std::string_view qname = text.substr(name_start, name_end - name_start);
    size_t colon = qname.find(':');
    std::string_view local = colon == std::string_view::npos ? qname : qname.substr(colon + 1);
    if (local == local_name && !qname.empty() && qname[0] != '/') {
      size_t tag_end = text.find('>', name_end);
      if (tag_end == std::string_view::npos) return false;
      std::string end_tag = "</" + std::string(qname) + ">";
      size_t close = text.find(end_tag, tag_end + 1);
      if (close == std::string_view::npos) return false;
      element->attributes = std::string(text.substr(name_end, tag_end - name_end));
      element->inner = std::string(text.substr(tag_end + 1, close - tag_end - 1));
      return true;
    }
    at = name_start;
  }
  return false;
}

bool ElementText(std::string_view text, std::string_view local_name, std::string* inner) {
  Element element;
  if (!FindElement(text, local_name, &element)) return false;
  *inner = std::move(element.inner);
  return true;
}

// Value of attribute `name` in a start tag's attribute text, double quotes only.
bool AttributeValue(const std::string& attributes, const std::string& name, std::string* value) {
  std::string key = " " + name + "=\"";
  size_t at = attributes.find(key);
  if (at == std::string::npos) return false;
  size_t start = at + key.size();
  size_t end = attributes.find('"', start);
  if (end == std::string::npos) return false;
  *value = attributes.substr(start, end - start);
  return true;
}

std::string IsoTime(std::time_t when) {
  std::tm parts{};
  gmtime_r(&when, &parts);
  char text[32];
  std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S.000Z", &parts);
  return text;
}

Response Fault(const char* code, const char* subcode, const std::string& reason) {
  std::string body = std::string("<s:Envelope xmlns:s=\"") + kSoap12 + "\" xmlns:a=\"" +
                     kAddressing + "\"><s:Header><a:Action s:mustUnderstand=\"1\">" + kAddressing +
                     "/soap/fault</a:Action></s:Header><s:Body><s:Fault><s:Code><s:Value>" + code +
                     "</s:Value><s:Subcode><s:Value xmlns:a=\"" + kTrust + "\">a:" + subcode +
                     "</s:Value></s:Subcode></s:Code><s:Reason><s:Text xml:lang=\"en-US\">" +
                     reason + "</s:Text></s:Reason></s:Fault></s:Body></s:Envelope>";
  return Response::Text(500, std::move(body), "application/soap+xml; charset=utf-8");
}

Response BadRequest(const std::string& reason) {
  return Fault("s:Sender", "InvalidRequest", reason);
}

Response FailedAuthentication(AdfsServerState* state) {
  state->NoteRefused();
  return Fault("s:Sender", "FailedAuthentication",
               "The security token could not be authenticated or authorized.");
}

// The RSTR in a one-line SOAP envelope head and tail, with line ends between
// its own children, so that a client has to take it across lines while the
// assertion itself stays on one.
std::string RstrEnvelope(const AdfsServerState::Assertion& assertion, std::time_t now) {
  std::string body = std::string("<s:Envelope xmlns:s=\"") + kSoap12 + "\" xmlns:a=\"" +
                     kAddressing + "\" xmlns:u=\"" + kUtility +
                     "\"><s:Header><a:Action s:mustUnderstand=\"1\">" + kIssueReplyAction +
                     "</a:Action></s:Header><s:Body>\n";
  body += std::string("<t:RequestSecurityTokenResponse xmlns:t=\"") + kTrust + "\">\n";
  body += "<t:Lifetime><wsu:Created xmlns:wsu=\"" + std::string(kUtility) + "\">" + IsoTime(now) +
          "</wsu:Created><wsu:Expires xmlns:wsu=\"" + kUtility + "\">" + IsoTime(now + 3600) +
          "</wsu:Expires></t:Lifetime>\n";
  body +=
      "<wsp:AppliesTo xmlns:wsp=\"http://schemas.xmlsoap.org/ws/2004/09/policy\">"
      "<a:EndpointReference><a:Address>" +
      assertion.realm + "</a:Address></a:EndpointReference></wsp:AppliesTo>\n";
  body += "<t:RequestedSecurityToken>" + assertion.text + "</t:RequestedSecurityToken>\n";
  body += "<t:TokenType>urn:oasis:names:tc:SAML:1.0:assertion</t:TokenType>\n";
  body += std::string("<t:RequestType>") + kIssueRequest + "</t:RequestType>\n";
  body += "<t:KeyType>http://schemas.xmlsoap.org/ws/2005/05/identity/NoProofKey</t:KeyType>\n";
  body += "</t:RequestSecurityTokenResponse>\n</s:Body></s:Envelope>";
  return body;
}

// The user this request proves to be, or "" after counting a refusal.
std::string Authenticate(const AdfsServerOptions& options, AdfsServerState* state,
                         const std::string& security) {
  Element token;
  if (FindElement(security, "UsernameToken", &token)) {
    std::string user;
    Element password;
    if (!ElementText(token.inner, "Username", &user) ||
        !FindElement(token.inner, "Password", &password)) {
      return "";
    }
    std::string type;
    if (AttributeValue(password.attributes, "Type", &type) && type != kPasswordText) return "";
    const std::string* name = MatchAccount(options.accounts, user, password.inner);
    return name != nullptr ? *name : "";
  }
  Element assertion;
  std::string id;
  AdfsServerState::Assertion issued;
  if (FindElement(security, "Assertion", &assertion) &&
      AttributeValue(assertion.attributes, "AssertionID", &id) && state->Find(id, &issued)) {
    return issued.user;
  }
  return "";
}

Response Issue(const AdfsServerOptions& options, AdfsServerState* state, const Request& request) {
  std::optional<std::string> type = request.Header("Content-Type");
  if (!type || Lower(*type).rfind("application/soap+xml", 0) != 0) {
    return Response::Text(415, "The token service wants a SOAP 1.2 (application/soap+xml) body.\n");
  }
  const std::string& body = request.body;
  std::string header, value;
  if (!ElementText(body, "Header", &header)) return BadRequest("The envelope has no header.");
  if (!ElementText(header, "Action", &value) || value != kIssueAction) {
    return BadRequest("The action '" + value + "' is not supported.");
  }
  std::string addressed = AddressedUrl(request);
  if (!ElementText(header, "To", &value) || value != addressed) {
    return BadRequest("The message addressed to '" + value + "' arrived at '" + addressed + "'.");
  }
  std::string security;
  if (!ElementText(header, "Security", &security)) return BadRequest("No security header.");

  std::string request_type, applies_to, realm;
  if (!ElementText(body, "RequestType", &request_type) || request_type != kIssueRequest) {
    return BadRequest("Only Issue requests are served.");
  }
  if (!ElementText(body, "AppliesTo", &applies_to) || !ElementText(applies_to, "Address", &realm) ||
      realm.empty()) {
    return BadRequest("No relying party named in AppliesTo.");
  }
  if (!options.realms.empty() &&
      std::find(options.realms.begin(), options.realms.end(), realm) == options.realms.end()) {
    return BadRequest("No relying party trust is configured for '" + realm + "'.");
  }

  std::string user = Authenticate(options, state, security);
  if (user.empty()) return FailedAuthentication(state);

  AdfsServerState::Assertion assertion = state->Issue(options.issuer, user, realm);
  return Response::Text(200, RstrEnvelope(assertion, std::time(nullptr)),
                        "application/soap+xml; charset=utf-8");
}

}  // namespace

std::string AddressedUrl(const Request& request) {
  if (request.target.rfind("http://", 0) == 0 || request.target.rfind("https://", 0) == 0) {
    return request.target;
  }
  return std::string(request.tls ? "https://" : "http://") + request.Header("Host").value_or("") +
         request.target;
}

AdfsServerState::Assertion AdfsServerState::Issue(const std::string& issuer,
                                                  const std::string& user,
                                                  const std::string& realm) {
  std::time_t now = std::time(nullptr);
  Assertion assertion;
  assertion.id = "_" + RandomHex(2);
  assertion.user = user;
  assertion.realm = realm;
  std::string subject =
      "<saml:Subject><saml:NameIdentifier "
      "Format=\"urn:oasis:names:tc:SAML:1.1:nameid-format:unspecified\">" +
      user +
      "</saml:NameIdentifier><saml:SubjectConfirmation><saml:ConfirmationMethod>"
      "urn:oasis:names:tc:SAML:1.0:cm:bearer</saml:ConfirmationMethod></saml:SubjectConfirmation>"
      "</saml:Subject>";
  assertion.text =
      "<saml:Assertion MajorVersion=\"1\" MinorVersion=\"1\" AssertionID=\"" + assertion.id +
      "\" Issuer=\"" + issuer + "\" IssueInstant=\"" + IsoTime(now) +
      "\" xmlns:saml=\"urn:oasis:names:tc:SAML:1.0:assertion\"><saml:Conditions NotBefore=\"" +
      IsoTime(now) + "\" NotOnOrAfter=\"" + IsoTime(now + 3600) +
      "\"><saml:AudienceRestrictionCondition><saml:Audience>" + realm +
      "</saml:Audience></saml:AudienceRestrictionCondition></saml:Conditions>"
      "<saml:AttributeStatement>" +
      subject +
      "<saml:Attribute AttributeName=\"UPN\" "
      "AttributeNamespace=\"http://schemas.xmlsoap.org/claims\">"
      "<saml:AttributeValue>" +
      user +
      "</saml:AttributeValue></saml:Attribute></saml:AttributeStatement>"
      "<saml:AuthenticationStatement "
      "AuthenticationMethod=\"urn:oasis:names:tc:SAML:1.0:am:password\" "
      "AuthenticationInstant=\"" +
      IsoTime(now) + "\">" + subject +
      "</saml:AuthenticationStatement>"
      "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"><ds:SignatureValue>" +
      RandomHex(4) + "</ds:SignatureValue></ds:Signature></saml:Assertion>";
  std::lock_guard<std::mutex> lock(mutex_);
  issued_.push_back(assertion);
  return assertion;
}

bool AdfsServerState::Find(const std::string& id, Assertion* assertion) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const Assertion& issued : issued_) {
    if (issued.id == id) {
      *assertion = issued;
      return true;
    }
  }
  return false;
}

std::vector<AdfsServerState::Assertion> AdfsServerState::Issued() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return issued_;
}

int AdfsServerState::RefusedRequests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return refused_;
}

void AdfsServerState::NoteRefused() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++refused_;
}

std::shared_ptr<AdfsServerState> InstallAdfsServer(Emulator* emulator,
                                                   const AdfsServerOptions& options) {
  auto state = std::make_shared<AdfsServerState>();
  emulator->Route(
      "POST", options.host, options.path + kEndpoint,
      [options, state](const Request& request) { return Issue(options, state.get(), request); });
  return state;
}

}  // namespace Emulation
}  // namespace Vantrel

#include "emulator/EntraServiceHandlers.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <chrono>
#include <ctime>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "emulator/EndpointSupport.h"
#include "emulator/EntraServiceBooks.h"

namespace Vantrel {
namespace Emulation {
namespace {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

constexpr char kJwtBearer[] = "urn:ietf:params:oauth:client-assertion-type:jwt-bearer";
constexpr char kDeviceCodeGrant[] = "urn:ietf:params:oauth:grant-type:device_code";
// SharePoint Online's application id, named where the service names the
// resource a user signs in to.
constexpr char kSharePointAppId[] = "00000003-0000-0ff1-ce00-000000000000";
// How far a client's clock may be ahead, and how long an assertion may live.
constexpr long long kClockSkew = 300;
constexpr long long kAssertionLifetime = 600;
constexpr auto kCodeLifetime = std::chrono::minutes(10);
// A client that waits exactly the interval between polls must not be told to
// slow down because its timer fired a little early or the request was quick.
constexpr auto kPollTolerance = std::chrono::milliseconds(200);
constexpr long kSlowDownStep = 5;
// The letters of user codes: none that read like another.
constexpr char kUserCodeLetters[] = "BCDFGHJKLMNPQRSTVWXZ23456789";
constexpr size_t kUserCodeLength = 9;

EntraError Refuse(std::string error, long code, std::string description) {
  EntraError refusal;
  refusal.status = error == "invalid_client" ? 401 : 400;
  refusal.error = std::move(error);
  refusal.code = code;
  refusal.description = std::move(description);
  return refusal;
}

std::string Timestamp(std::time_t when) {
  char text[32];
  std::tm parts{};
  gmtime_r(&when, &parts);
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%SZ", &parts);
  return text;
}

std::string Dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Sha256(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("EVP_Digest failed");
  }
  return std::string(reinterpret_cast<const char*>(digest), length);
}

// The texts of one refusal: the description names the AADSTS code and
// carries the trace and correlation ids and the time, as the real service
// writes it; clients show its first line.
struct ErrorReport {
  std::string trace_id;
  std::string correlation_id;
  std::string timestamp;
  std::string description;
};

// A client may name the correlation id (client-request-id); it comes back.
std::string CorrelationId(const Request& request) {
  std::string wanted = request.Header("client-request-id").value_or("");
  bool plain = !wanted.empty() && wanted.size() <= 64;
  for (char c : wanted) {
    plain = plain && (c == '-' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                      (c >= 'A' && c <= 'Z'));
  }
  return plain ? wanted : RandomGuid();
}

ErrorReport Report(const Request& request, const EntraError& error) {
  ErrorReport report{RandomGuid(), CorrelationId(request), Timestamp(std::time(nullptr)), ""};
  if (error.code != 0) report.description = "AADSTS" + std::to_string(error.code) + ": ";
  report.description += error.description + "\r\nTrace ID: " + report.trace_id +
                        "\r\nCorrelation ID: " + report.correlation_id +
                        "\r\nTimestamp: " + report.timestamp;
  return report;
}

Response JsonAnswer(int status, const Json& body) {
  Response response = Response::Text(status, Dump(body), "application/json; charset=utf-8");
  response.AddHeader("Cache-Control", "no-store, no-cache");
  response.AddHeader("Pragma", "no-cache");
  return response;
}

std::string Field(const std::map<std::string, std::string>& form, const char* name) {
  auto found = form.find(name);
  return found != form.end() ? found->second : "";
}

// The fields of a form-encoded body. Any other body has none, so that the
// first field a request needs is reported missing, as the real service does.
std::optional<EntraError> ReadForm(const Request& request,
                                   std::map<std::string, std::string>* form) {
  std::string type = Lower(request.Header("Content-Type").value_or(""));
  if (type.compare(0, 33, "application/x-www-form-urlencoded") != 0) return std::nullopt;
  std::string_view rest = request.body;
  while (!rest.empty()) {
    size_t amp = rest.find('&');
    std::string_view pair = rest.substr(0, amp);
    rest = amp == std::string_view::npos ? std::string_view() : rest.substr(amp + 1);
    if (pair.empty()) continue;
    size_t equals = pair.find('=');
    std::string name = PercentDecode(pair.substr(0, equals), true);
    std::string value =
        equals == std::string_view::npos ? "" : PercentDecode(pair.substr(equals + 1), true);
    if (!form->emplace(name, std::move(value)).second) {
      return Refuse("invalid_request", 9002313,
                    "Invalid request. Request is malformed or invalid. The parameter '" + name +
                        "' appears more than once.");
    }
  }
  return std::nullopt;
}

EntraError MissingField(const std::string& name) {
  return Refuse("invalid_request", 900144,
                "The request body must contain the following parameter: '" + name + "'.");
}

std::optional<EntraError> Missing(const std::map<std::string, std::string>& form,
                                  std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (Field(form, name).empty()) return MissingField(name);
  }
  return std::nullopt;
}

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(' ', start);
    if (end == std::string::npos) end = text.size();
    if (end > start) words.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

// A scope is "https://HOST/.default" for app-only tokens; user flows add
// any of offline_access, openid, profile and email, and may name other
// permissions of the one resource.
std::optional<EntraError> ParseScope(const std::string& text, bool app_only,
                                     EntraServiceHandlers::Scope* scope) {
  *scope = EntraServiceHandlers::Scope();
  const EntraError app_only_scope =
      Refuse("invalid_scope", 1002012,
             "The provided value for scope " + text +
                 " is not valid. Client credential flows must have a scope value with /.default "
                 "suffixed to the resource identifier (application ID URI).");
  std::vector<std::string> words = Words(text);
  for (const std::string& word : words) {
    if (word == "offline_access" || word == "openid" || word == "profile" || word == "email") {
      if (app_only) return app_only_scope;
      scope->offline = scope->offline || word == "offline_access";
      scope->openid = scope->openid || word == "openid";
      continue;
    }
    size_t slash = word.compare(0, 8, "https://") == 0 ? word.find('/', 8) : std::string::npos;
    std::string host = slash == std::string::npos ? "" : Lower(word.substr(8, slash - 8));
    // The host goes into headers of the site's answers: nothing but a host name.
    if (host.empty() || slash + 1 == word.size() ||
        host.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-:") != std::string::npos) {
      return Refuse("invalid_scope", 70011,
                    "The provided value for the input parameter 'scope' is not valid. The scope " +
                        word + " is not valid.");
    }
    if (!scope->resource_host.empty() && scope->resource_host != host) {
      return Refuse("invalid_scope", 28000,
                    "Provided value for the input parameter scope is not valid because it "
                    "contains more than one resource. Scope " +
                        text + " is not valid.");
    }
    if (app_only && word.compare(slash, std::string::npos, "/.default") != 0) return app_only_scope;
    scope->resource_host = host;
  }
  if (scope->resource_host.empty()) {
    if (app_only) return app_only_scope;
    return Refuse("invalid_scope", 70011,
                  "The provided value for the input parameter 'scope' is not valid. The scope " +
                      text + " names no resource.");
  }
  for (const std::string& word : words) scope->text += (scope->text.empty() ? "" : " ") + word;
  return std::nullopt;
}

const EntraApplication* FindApplication(const EntraServiceOptions& options,
                                        const std::string& client_id) {
  for (const EntraApplication& application : options.applications) {
    if (EqualsIgnoreCase(application.client_id, client_id)) return &application;
  }
  return nullptr;
}

const EntraAccount* FindAccount(const EntraServiceOptions& options, const std::string& name) {
  for (const EntraAccount& account : options.accounts) {
    if (EqualsIgnoreCase(account.name, name)) return &account;
  }
  return nullptr;
}

bool IsDigits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Scheme, host and path of a redirect URI, compared as Entra ID compares
// them: the port of a loopback host doesn't count (a desktop app listens on
// whatever port is free), and neither does a lone "/" as the path.
std::string RedirectKey(const std::string& uri) {
  size_t scheme_end = uri.find("://");
  if (scheme_end == std::string::npos) return uri;
  size_t host_start = scheme_end + 3;
  size_t path_start = uri.find_first_of("/?#", host_start);
  std::string authority = uri.substr(
      host_start, path_start == std::string::npos ? std::string::npos : path_start - host_start);
  std::string rest = path_start == std::string::npos ? "" : uri.substr(path_start);
  if (rest == "/") rest.clear();
  size_t bracket = authority.rfind(']');
  size_t colon = authority.rfind(':');
  bool has_port = colon != std::string::npos && (bracket == std::string::npos || colon > bracket) &&
                  IsDigits(std::string_view(authority).substr(colon + 1));
  std::string host = Lower(has_port ? authority.substr(0, colon) : authority);
  bool loopback = host == "localhost" || host == "127.0.0.1" || host == "[::1]";
  return Lower(uri.substr(0, scheme_end)) + "://" + (loopback ? host : Lower(authority)) + rest;
}

bool IsRegistered(const EntraApplication& application, const std::string& redirect_uri) {
  for (const std::string& registered : application.redirect_uris) {
    if (RedirectKey(registered) == RedirectKey(redirect_uri)) return true;
  }
  return false;
}

// 43 to 128 unreserved characters (RFC 7636).
bool IsWellFormedVerifier(const std::string& verifier) {
  if (verifier.size() < 43 || verifier.size() > 128) return false;
  for (char c : verifier) {
    bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                      c == '-' || c == '.' || c == '_' || c == '~';
    if (!unreserved) return false;
  }
  return true;
}

std::string NewUserCode() {
  unsigned char bytes[kUserCodeLength];
  if (RAND_bytes(bytes, sizeof bytes) != 1) throw std::runtime_error("RAND_bytes failed");
  std::string code;
  for (unsigned char byte : bytes) code += kUserCodeLetters[byte % (sizeof kUserCodeLetters - 1)];
  return code;
}

// Opaque to clients, but shaped and sized like the real thing, so that a
// client with a short buffer or a narrow idea of the alphabet fails here.
std::string NewAccessToken() {
  return Base64UrlEncode("{\"typ\":\"JWT\",\"alg\":\"RS256\"}") + "." + RandomBase64Url(900) + "." +
         RandomBase64Url(256);
}

// An id token as the client reads it: claims in a JWT whose signature it
// never checks.
std::string IdToken(const EntraServiceOptions& options, const std::string& client_id,
                    const std::string& account) {
  long long now = static_cast<long long>(std::time(nullptr));
  std::string oid = GuidOf(Sha256(Lower(account)));
  Json header = {{"typ", "JWT"}, {"alg", "RS256"}, {"kid", "vantrel-emulator"}};
  Json claims;
  claims["aud"] = client_id;
  claims["iss"] = "https://" + options.authority_host + "/" + options.tenant_id + "/v2.0";
  claims["iat"] = now;
  claims["nbf"] = now;
  claims["exp"] = now + 3600;
  claims["name"] = account.substr(0, account.find('@'));
  claims["oid"] = oid;
  claims["preferred_username"] = account;
  claims["sub"] = Base64UrlEncode(Sha256(client_id + oid));
  claims["tid"] = options.tenant_id;
  claims["ver"] = "2.0";
  return Base64UrlEncode(Dump(header)) + "." + Base64UrlEncode(Dump(claims)) + "." +
         RandomBase64Url(256);
}

bool ReadNumber(const nlohmann::json& claims, const char* name, long long* value) {
  auto found = claims.find(name);
  if (found == claims.end() || !found->is_number()) return false;
  // Beyond the year 30000 nothing is a time, and the conversion would overflow.
  double number = found->get<double>();
  if (!(number > -1e12 && number < 1e12)) return false;
  *value = static_cast<long long>(number);
  return true;
}

std::string ReadText(const nlohmann::json& object, const char* name) {
  auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::string HtmlEscape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Before the redirect URI is known to be the application's, a refusal goes
// to the user on the service's own page, never to that URI.
Response ErrorPage(const Request& request, const EntraError& error) {
  return Response::Text(400,
                        "<!DOCTYPE html><html><head><title>Sign in to your account</title></head>"
                        "<body><h1>Sign in</h1><p>Sorry, but we're having trouble signing you "
                        "in.</p><pre>" +
                            HtmlEscape(Report(request, error).description) +
                            "</pre></body></html>\n",
                        "text/html; charset=utf-8");
}

Response RedirectWith(const std::string& uri,
                      const std::vector<std::pair<std::string, std::string>>& parameters) {
  std::string location = uri;
  char separator = uri.find('?') == std::string::npos ? '?' : '&';
  for (const auto& parameter : parameters) {
    if (parameter.second.empty()) continue;
    location += separator + parameter.first + "=" + PercentEncode(parameter.second);
    separator = '&';
  }
  return Response::Redirect(302, location);
}

}  // namespace

EntraServiceHandlers::EntraServiceHandlers(std::shared_ptr<EntraServiceState> state)
    : state_(std::move(state)) {}

EntraServiceState::Books& EntraServiceHandlers::books() const { return *state_->books_; }

Response EntraServiceHandlers::Answer(const Request& request) {
  const std::string& path = request.path;
  if (path.size() > 11 && EqualsIgnoreCase(std::string_view(path).substr(0, 11), "/_emulator/")) {
    return Control(request);
  }
  // "/{tenant}/oauth2/v2.0/{endpoint}"
  size_t slash = path.find('/', 1);
  if (slash != std::string::npos && slash > 1) {
    std::string tenant = path.substr(1, slash - 1);
    std::string_view endpoint = std::string_view(path).substr(slash);
    if (EqualsIgnoreCase(endpoint, "/oauth2/v2.0/token")) return Token(tenant, request);
    if (EqualsIgnoreCase(endpoint, "/oauth2/v2.0/devicecode")) return DeviceCode(tenant, request);
    if (EqualsIgnoreCase(endpoint, "/oauth2/v2.0/authorize")) return Authorize(tenant, request);
  }
  return Response::Text(404, "emulator: Entra ID has no endpoint at " + path + "\n");
}

// --- token endpoint ---------------------------------------------------------

Response EntraServiceHandlers::Token(const std::string& tenant, const Request& request) {
  {
    std::lock_guard<std::mutex> lock(mutex());
    ++books().token_requests;
    if (!books().failures.empty()) {
      EntraError scripted = std::move(books().failures.front());
      books().failures.pop_front();
      return ErrorAnswer(request, scripted);
    }
  }
  Grant grant;
  std::optional<EntraError> refusal = ReadTokenRequest(tenant, request, &grant);
  return refusal ? ErrorAnswer(request, *refusal) : Issue(grant);
}

std::optional<EntraError> EntraServiceHandlers::ReadTokenRequest(const std::string& tenant,
                                                                 const Request& request,
                                                                 Grant* grant) {
  if (request.method != "POST") {
    return Refuse(
        "invalid_request", 900561,
        "The endpoint only accepts POST requests. Received a " + request.method + " request.");
  }
  Form form;
  if (auto refusal = ReadForm(request, &form)) return refusal;
  if (auto refusal = Missing(form, {"grant_type"})) return refusal;
  const std::string grant_type = Field(form, "grant_type");
  if (grant_type != "client_credentials" && grant_type != "password" &&
      grant_type != "authorization_code" && grant_type != "refresh_token" &&
      grant_type != kDeviceCodeGrant) {
    return Refuse("unsupported_grant_type", 70003,
                  "The app requested an unsupported grant type '" + grant_type + "'.");
  }
  if (auto refusal = CheckTenant(tenant, grant_type)) return refusal;
  if (auto refusal = Missing(form, {"client_id"})) return refusal;
  const EntraApplication* application = FindApplication(options(), Field(form, "client_id"));
  if (application == nullptr) return UnknownApplication(Field(form, "client_id"));
  if (auto refusal =
          AuthenticateClient(*application, form, tenant, grant_type, &grant->from_secret)) {
    return refusal;
  }
  grant->client_id = application->client_id;
  if (grant_type == "client_credentials") {
    grant->app_only = true;
    if (auto refusal = Missing(form, {"scope"})) return refusal;
    return ParseScope(Field(form, "scope"), true, &grant->scope);
  }
  if (grant_type == "password") return Password(form, grant);
  if (grant_type == "authorization_code") return RedeemCode(form, grant);
  if (grant_type == "refresh_token") return Refresh(form, grant);
  return PollDeviceCode(form, grant);
}

std::optional<EntraError> EntraServiceHandlers::CheckTenant(const std::string& tenant,
                                                            const std::string& grant_type) const {
  bool own = EqualsIgnoreCase(tenant, options().tenant_id);
  for (const std::string& domain : options().tenant_domains) {
    own = own || EqualsIgnoreCase(tenant, domain);
  }
  bool common = EqualsIgnoreCase(tenant, "common");
  if (!own && !common && !EqualsIgnoreCase(tenant, "organizations")) {
    return Refuse("invalid_request", 90002,
                  "Tenant '" + tenant +
                      "' not found. Check to make sure you have the correct tenant ID and are "
                      "signing into the correct cloud. Check with your subscription "
                      "administrator, this may happen if there are no active subscriptions for "
                      "the tenant.");
  }
  // An application is registered in one tenant: it must say which.
  if (!own && grant_type == "client_credentials") {
    return Refuse("invalid_request", 9001023,
                  "The grant type is not supported over the /common, /consumers or "
                  "/organizations endpoints. Please use the tenant-specific endpoint.");
  }
  if (common && grant_type == "password") {
    return Refuse("invalid_request", 9001023,
                  "The grant type is not supported over the /common or /consumers endpoints. "
                  "Please use the /organizations or tenant-specific endpoint.");
  }
  return std::nullopt;
}

std::optional<EntraError> EntraServiceHandlers::AuthenticateClient(
    const EntraApplication& application, const Form& form, const std::string& tenant,
    const std::string& grant_type, bool* from_secret) {
  *from_secret = false;
  bool assertion = form.count("client_assertion") != 0;
  bool secret = form.count("client_secret") != 0;
  if (assertion && secret) {
    return Refuse("invalid_request", 9002313,
                  "Invalid request. Request is malformed or invalid. Only one of "
                  "'client_assertion' and 'client_secret' may be sent.");
  }
  if (assertion) {
    if (auto refusal = Missing(form, {"client_assertion_type"})) return refusal;
    if (Field(form, "client_assertion_type") != kJwtBearer) {
      return Refuse("invalid_client", 70002,
                    "Error validating credentials. The client_assertion_type '" +
                        Field(form, "client_assertion_type") + "' is not supported.");
    }
    // The token endpoint's URL exactly as the client had to address it.
    std::string audience =
        "https://" + options().authority_host + "/" + tenant + "/oauth2/v2.0/token";
    return CheckAssertion(application, Field(form, "client_assertion"), audience);
  }
  if (secret) {
    if (application.secret.empty() || Field(form, "client_secret") != application.secret) {
      return Refuse("invalid_client", 7000215,
                    "Invalid client secret provided. Ensure the secret being sent in the request "
                    "is the client secret value, not the client secret ID, for a secret added to "
                    "app '" +
                        application.client_id + "'.");
    }
    *from_secret = true;
    return std::nullopt;
  }
  if (grant_type == "client_credentials") {
    return Refuse("invalid_client", 7000216,
                  "'client_assertion', 'client_secret' or 'request' is required for the "
                  "'client_credentials' grant type.");
  }
  if (!application.public_client) {
    return Refuse("invalid_client", 7000218,
                  "The request body must contain the following parameter: 'client_assertion' or "
                  "'client_secret'.");
  }
  return std::nullopt;
}

std::optional<EntraError> EntraServiceHandlers::CheckAssertion(const EntraApplication& application,
                                                               const std::string& assertion,
                                                               const std::string& audience) {
  const auto malformed = [](const std::string& why) {
    return Refuse("invalid_client", 50027, "JWT token is invalid or malformed. " + why);
  };
  size_t first = assertion.find('.');
  size_t second = first == std::string::npos ? first : assertion.find('.', first + 1);
  if (second == std::string::npos || assertion.find('.', second + 1) != std::string::npos) {
    return malformed("The client assertion is not three parts.");
  }
  std::string header_text;
  std::string claims_text;
  std::string signature;
  std::string_view text = assertion;
  if (!Base64UrlDecode(text.substr(0, first), &header_text) ||
      !Base64UrlDecode(text.substr(first + 1, second - first - 1), &claims_text) ||
      !Base64UrlDecode(text.substr(second + 1), &signature) || signature.empty()) {
    return malformed("A part of the client assertion is not base64url without padding.");
  }
  nlohmann::json header = nlohmann::json::parse(header_text, nullptr, false);
  nlohmann::json claims = nlohmann::json::parse(claims_text, nullptr, false);
  if (header.is_discarded() || !header.is_object() || claims.is_discarded() ||
      !claims.is_object()) {
    return malformed("A part of the client assertion is not a JSON object.");
  }

  // The key: the registered certificate, named by the thumbprint that goes
  // with the algorithm.
  const std::string algorithm = ReadText(header, "alg");
  const std::string thumbprint = ReadText(header, algorithm == "PS256" ? "x5t#S256" : "x5t");
  std::shared_ptr<const EntraCertificate> certificate;
  {
    std::lock_guard<std::mutex> lock(mutex());
    auto found = books().certificates.find(application.client_id);
    if (found != books().certificates.end()) certificate = found->second;
  }
  bool known = certificate != nullptr &&
               ((algorithm == "PS256" && thumbprint == certificate->ThumbprintSha256()) ||
                (algorithm == "RS256" && thumbprint == certificate->ThumbprintSha1()));
  if (!known) {
    return Refuse("invalid_client", 700027,
                  "The certificate with identifier used to sign the client assertion is not "
                  "registered on application. [Reason - The key was not found., Thumbprint of key "
                  "used by client: '" +
                      thumbprint + "', algorithm: '" + algorithm +
                      "', Please visit the Azure Portal, Graph Explorer or directly use MS Graph "
                      "to see configured keys for app Id '" +
                      application.client_id + "'.]");
  }
  if (!certificate->Verifies(algorithm, text.substr(0, second), signature)) {
    return Refuse("invalid_client", 700027,
                  "Client assertion contains an invalid signature. [Reason - The provided "
                  "signature value did not match the expected signature value., Thumbprint of "
                  "key used by client: '" +
                      thumbprint + "']");
  }

  const std::string claimed_audience = ReadText(claims, "aud");
  if (claimed_audience != audience) {
    return Refuse("invalid_client", 50012,
                  "Client assertion audience claim does not match Realm issuer. Audience: '" +
                      claimed_audience + "', expected: '" + audience + "'.");
  }
  const std::string issuer = ReadText(claims, "iss");
  if (issuer != ReadText(claims, "sub")) {
    return Refuse("invalid_client", 50048,
                  "Subject mismatches Issuer claim in the client assertion. Subject: '" +
                      ReadText(claims, "sub") + "', issuer: '" + issuer + "'.");
  }
  if (issuer != application.client_id) {
    return Refuse("invalid_client", 700021,
                  "Client assertion application identifier doesn't match 'client_id' parameter.");
  }

  long long now = static_cast<long long>(std::time(nullptr));
  long long expires = 0;
  long long not_before = now;
  if (!ReadNumber(claims, "exp", &expires)) return malformed("The client assertion has no exp.");
  ReadNumber(claims, "nbf", &not_before);
  if (not_before > now + kClockSkew || expires <= now ||
      expires - not_before > kAssertionLifetime + kClockSkew) {
    return Refuse("invalid_client", 700024,
                  "Client assertion is not within its valid time range. Current time: " +
                      Timestamp(now) + ", assertion valid from " + Timestamp(not_before) +
                      ", expiry time of assertion " + Timestamp(expires) +
                      ". Review the documentation at "
                      "https://docs.microsoft.com/azure/active-directory/develop/"
                      "active-directory-certificate-credentials .");
  }

  const std::string id = ReadText(claims, "jti");
  if (id.empty()) return malformed("The client assertion has no jti.");
  std::lock_guard<std::mutex> lock(mutex());
  if (!books().assertion_ids.insert(id).second) {
    return Refuse("invalid_client", 50013,
                  "Assertion is invalid: the client assertion with jti '" + id +
                      "' has been presented before.");
  }
  return std::nullopt;
}

std::optional<EntraError> EntraServiceHandlers::Password(const Form& form, Grant* grant) const {
  if (auto refusal = Missing(form, {"scope", "username", "password"})) return refusal;
  if (auto refusal = ParseScope(Field(form, "scope"), false, &grant->scope)) return refusal;
  const EntraAccount* account = FindAccount(options(), Field(form, "username"));
  if (account == nullptr) {
    return Refuse("invalid_grant", 50034,
                  "The user account {EmailHidden} does not exist in the " + DirectoryName() +
                      " directory. To sign into this application, the account must be added to "
                      "the directory.");
  }
  if (account->password != Field(form, "password")) {
    return Refuse("invalid_grant", 50126,
                  "Error validating credentials due to invalid username or password.");
  }
  if (account->mfa) {
    return Refuse("invalid_grant", 50076,
                  std::string("Due to a configuration change made by your administrator, or "
                              "because you moved to a new location, you must use multi-factor "
                              "authentication to access '") +
                      kSharePointAppId + "'.");
  }
  grant->account = account->name;
  return std::nullopt;
}

std::optional<EntraError> EntraServiceHandlers::RedeemCode(const Form& form, Grant* grant) {
  if (auto refusal = Missing(form, {"code", "redirect_uri"})) return refusal;
  std::lock_guard<std::mutex> lock(mutex());
  auto found = books().codes.find(Field(form, "code"));
  if (found == books().codes.end() || found->second.client_id != grant->client_id) {
    return Refuse("invalid_grant", 70000, "Provided grant is invalid or malformed.");
  }
  EntraServiceState::Books::AuthorizationCode& code = found->second;
  if (code.used) {
    return Refuse("invalid_grant", 54005,
                  "OAuth2 Authorization code was already redeemed, please retry with a new valid "
                  "code or use an existing refresh token.");
  }
  // Spent by any attempt, so that nobody can try verifiers against it.
  code.used = true;
  if (Clock::now() >= code.expires) {
    return Refuse("invalid_grant", 70008,
                  "The provided authorization code or refresh token has expired due to "
                  "inactivity. Send a new interactive authorization request for this user and "
                  "resource.");
  }
  if (Field(form, "redirect_uri") != code.redirect_uri) {
    return Refuse("invalid_grant", 50011,
                  "The redirect URI '" + Field(form, "redirect_uri") +
                      "' specified in the request does not match the redirect URI '" +
                      code.redirect_uri + "' of the authorization request.");
  }
  const std::string verifier = Field(form, "code_verifier");
  if (!IsWellFormedVerifier(verifier) || Base64UrlEncode(Sha256(verifier)) != code.challenge) {
    return Refuse("invalid_grant", 501481,
                  "The Code_Verifier does not match the code_challenge supplied in the "
                  "authorization request.");
  }
  grant->account = code.account;
  std::string scope = Field(form, "scope").empty() ? code.scope : Field(form, "scope");
  return ParseScope(scope, false, &grant->scope);
}

std::optional<EntraError> EntraServiceHandlers::Refresh(const Form& form, Grant* grant) {
  if (auto refusal = Missing(form, {"refresh_token"})) return refusal;
  std::lock_guard<std::mutex> lock(mutex());
  auto found = books().refresh_tokens.find(Field(form, "refresh_token"));
  if (found == books().refresh_tokens.end()) {
    return Refuse("invalid_grant", 9002313, "Invalid request. Request is malformed or invalid.");
  }
  const EntraServiceState::Books::RefreshGrant& refresh = found->second;
  if (refresh.client_id != grant->client_id) {
    return Refuse("invalid_grant", 70000,
                  "Provided grant is invalid or malformed. The refresh token was issued to "
                  "another application.");
  }
  if (refresh.revoked) {
    return Refuse("invalid_grant", 70043,
                  "The refresh token has expired or is invalid due to sign-in frequency checks "
                  "by conditional access.");
  }
  grant->account = refresh.account;
  std::string scope = Field(form, "scope").empty() ? refresh.scope : Field(form, "scope");
  auto refusal = ParseScope(scope, false, &grant->scope);
  // A refresh always brings the next refresh token.
  grant->scope.offline = true;
  return refusal;
}

std::optional<EntraError> EntraServiceHandlers::PollDeviceCode(const Form& form, Grant* grant) {
  using Books = EntraServiceState::Books;
  if (auto refusal = Missing(form, {"device_code"})) return refusal;
  std::lock_guard<std::mutex> lock(mutex());
  auto found = books().device_codes.find(Field(form, "device_code"));
  if (found == books().device_codes.end() || found->second.client_id != grant->client_id) {
    return Refuse("bad_verification_code", 70018, "Invalid verification code entered.");
  }
  Books::DeviceAuthorization& waiting = found->second;
  Clock::time_point now = Clock::now();
  if (waiting.status == Books::DeviceStatus::kRedeemed) {
    return Refuse("invalid_grant", 54005,
                  "OAuth2 Authorization code was already redeemed, please retry with a new valid "
                  "code or use an existing refresh token.");
  }
  if (now >= waiting.expires) return Refuse("expired_token", 70019, "Verification code expired.");
  bool too_soon = waiting.polled &&
                  now - waiting.last_poll < std::chrono::seconds(waiting.interval) - kPollTolerance;
  waiting.polled = true;
  waiting.last_poll = now;
  if (too_soon) {
    waiting.interval += kSlowDownStep;
    return Refuse("slow_down", 70016,
                  "OAuth 2.0 device flow error. Authorization is pending. Poll less often: every " +
                      std::to_string(waiting.interval) + " seconds.");
  }
  switch (waiting.status) {
    case Books::DeviceStatus::kPending:
      return Refuse("authorization_pending", 70016,
                    "OAuth 2.0 device flow error. Authorization is pending. Continue polling.");
    case Books::DeviceStatus::kDeclined:
      return Refuse("authorization_declined", 70000,
                    "The user declined to authorize the application.");
    default:
      break;
  }
  waiting.status = Books::DeviceStatus::kRedeemed;
  grant->account = waiting.account;
  return ParseScope(waiting.scope, false, &grant->scope);
}

Response EntraServiceHandlers::Issue(const Grant& grant) {
  const std::string access_token = NewAccessToken();
  const bool refresh = !grant.app_only && grant.scope.offline;
  const std::string refresh_token = refresh ? "1.AXkA" + RandomBase64Url(540) : "";
  long lifetime = 0;
  {
    std::lock_guard<std::mutex> lock(mutex());
    lifetime = books().access_token_lifetime;
    EntraServiceState::AccessToken record;
    record.audience_host = grant.scope.resource_host;
    record.client_id = grant.client_id;
    record.account = grant.account;
    record.app_only = grant.app_only;
    record.from_secret = grant.app_only && grant.from_secret;
    record.expires_on = static_cast<long long>(std::time(nullptr)) + lifetime;
    books().access_tokens[access_token] = record;
    books().access_token_order.push_back(access_token);
    if (refresh) {
      books().refresh_tokens[refresh_token] = {grant.client_id, grant.account, grant.scope.text,
                                               false};
    }
  }
  Json answer;
  answer["token_type"] = "Bearer";
  if (!grant.app_only) answer["scope"] = grant.scope.text;
  answer["expires_in"] = lifetime;
  answer["ext_expires_in"] = lifetime;
  answer["access_token"] = access_token;
  if (refresh) answer["refresh_token"] = refresh_token;
  if (!grant.app_only && grant.scope.openid) {
    answer["id_token"] = IdToken(options(), grant.client_id, grant.account);
  }
  return JsonAnswer(200, answer);
}

Response EntraServiceHandlers::ErrorAnswer(const Request& request, const EntraError& error) const {
  ErrorReport report = Report(request, error);
  Json body;
  body["error"] = error.error;
  body["error_description"] = report.description;
  body["error_codes"] = Json::array();
  if (error.code != 0) body["error_codes"].push_back(error.code);
  body["timestamp"] = report.timestamp;
  body["trace_id"] = report.trace_id;
  body["correlation_id"] = report.correlation_id;
  if (error.code != 0) {
    body["error_uri"] =
        "https://" + options().authority_host + "/error?code=" + std::to_string(error.code);
  }
  Response response = JsonAnswer(error.status, body);
  response.AddHeader("x-ms-request-id", report.trace_id);
  return response;
}

EntraError EntraServiceHandlers::UnknownApplication(const std::string& client_id) const {
  return Refuse("unauthorized_client", 700016,
                "Application with identifier '" + client_id + "' was not found in the directory '" +
                    DirectoryName() +
                    "'. This can happen if the application has not been installed by the "
                    "administrator of the tenant or consented to by any user in the tenant. You "
                    "may have sent your authentication request to the wrong tenant.");
}

std::string EntraServiceHandlers::DirectoryName() const {
  return options().tenant_domains.empty() ? options().tenant_id : options().tenant_domains.front();
}

// --- device code ------------------------------------------------------------

Response EntraServiceHandlers::DeviceCode(const std::string& tenant, const Request& request) {
  std::string answer;
  std::optional<EntraError> refusal = StartDeviceCode(tenant, request, &answer);
  if (refusal) return ErrorAnswer(request, *refusal);
  Response response = Response::Text(200, std::move(answer), "application/json; charset=utf-8");
  response.AddHeader("Cache-Control", "no-store, no-cache");
  return response;
}

std::optional<EntraError> EntraServiceHandlers::StartDeviceCode(const std::string& tenant,
                                                                const Request& request,
                                                                std::string* answer) {
  if (request.method != "POST") {
    return Refuse(
        "invalid_request", 900561,
        "The endpoint only accepts POST requests. Received a " + request.method + " request.");
  }
  Form form;
  if (auto refusal = ReadForm(request, &form)) return refusal;
  if (auto refusal = CheckTenant(tenant, kDeviceCodeGrant)) return refusal;
  if (auto refusal = Missing(form, {"client_id"})) return refusal;
  const EntraApplication* application = FindApplication(options(), Field(form, "client_id"));
  if (application == nullptr) return UnknownApplication(Field(form, "client_id"));
  if (auto refusal = Missing(form, {"scope"})) return refusal;
  Scope scope;
  if (auto refusal = ParseScope(Field(form, "scope"), false, &scope)) return refusal;

  EntraServiceState::Books::DeviceAuthorization waiting;
  waiting.user_code = NewUserCode();
  waiting.client_id = application->client_id;
  waiting.scope = scope.text;
  waiting.expires = Clock::now() + std::chrono::seconds(options().device_code_lifetime);
  waiting.interval = options().device_code_interval;
  const std::string device_code = "DAQABIQEAAAD" + RandomBase64Url(180);
  const std::string verification_uri =
      EqualsIgnoreCase(options().authority_host, "login.microsoftonline.us")
          ? "https://microsoft.com/deviceloginus"
          : "https://microsoft.com/devicelogin";
  Json body;
  body["user_code"] = waiting.user_code;
  body["device_code"] = device_code;
  body["verification_uri"] = verification_uri;
  body["expires_in"] = options().device_code_lifetime;
  body["interval"] = options().device_code_interval;
  body["message"] = "To sign in, use a web browser to open the page " + verification_uri +
                    " and enter the code " + waiting.user_code + " to authenticate.";
  *answer = Dump(body);
  std::lock_guard<std::mutex> lock(mutex());
  books().device_codes[device_code] = std::move(waiting);
  books().device_code_order.push_back(device_code);
  return std::nullopt;
}

// --- authorize --------------------------------------------------------------

Response EntraServiceHandlers::Authorize(const std::string& tenant, const Request& request) {
  if (auto refusal = CheckTenant(tenant, "authorization_code")) {
    return ErrorPage(request, *refusal);
  }
  const std::string client_id = request.QueryParam("client_id").value_or("");
  if (client_id.empty()) return ErrorPage(request, MissingField("client_id"));
  const EntraApplication* application = FindApplication(options(), client_id);
  if (application == nullptr) return ErrorPage(request, UnknownApplication(client_id));
  const std::string redirect_uri = request.QueryParam("redirect_uri").value_or("");
  if (redirect_uri.empty()) return ErrorPage(request, MissingField("redirect_uri"));
  if (!IsRegistered(*application, redirect_uri)) {
    return ErrorPage(
        request,
        Refuse("invalid_request", 50011,
               "The redirect URI '" + redirect_uri +
                   "' specified in the request does not match the redirect URIs configured for "
                   "the application '" +
                   application->client_id +
                   "'. Make sure the redirect URI sent in the request matches one added to your "
                   "application in the Azure portal. Navigate to "
                   "https://aka.ms/redirectUriMismatchError to learn more about how to fix this."));
  }
  const std::string state = request.QueryParam("state").value_or("");
  std::string code;
  if (auto refusal = IssueCode(request, *application, redirect_uri, &code)) {
    return RedirectWith(redirect_uri, {{"error", refusal->error},
                                       {"error_description", Report(request, *refusal).description},
                                       {"state", state}});
  }
  return RedirectWith(redirect_uri,
                      {{"code", code}, {"state", state}, {"session_state", RandomGuid()}});
}

std::optional<EntraError> EntraServiceHandlers::IssueCode(const Request& request,
                                                          const EntraApplication& application,
                                                          const std::string& redirect_uri,
                                                          std::string* code) {
  const auto param = [&request](const char* name) { return request.QueryParam(name).value_or(""); };
  if (param("response_type").empty()) return MissingField("response_type");
  if (param("response_type") != "code") {
    return Refuse(
        "unsupported_response_type", 700054,
        "response_type '" + param("response_type") + "' is not enabled for the application.");
  }
  if (param("scope").empty()) return MissingField("scope");
  Scope scope;
  if (auto refusal = ParseScope(param("scope"), false, &scope)) return refusal;
  const std::string challenge = param("code_challenge");
  if (challenge.empty() || param("code_challenge_method") != "S256") {
    return Refuse("invalid_request", 9002325,
                  "Proof Key for Code Exchange is required for this application: send a "
                  "code_challenge with code_challenge_method S256.");
  }
  std::string digest;
  if (challenge.size() != 43 || !Base64UrlDecode(challenge, &digest)) {
    return Refuse("invalid_request", 501491, "Invalid size of Code_Challenge parameter.");
  }
  // The account that signs in at once: the one login_hint names, if it
  // names one, else the first.
  const EntraAccount* account = FindAccount(options(), param("login_hint"));
  if (account == nullptr && !options().accounts.empty()) account = &options().accounts.front();
  if (account == nullptr) {
    return Refuse("access_denied", 50034,
                  "The user account does not exist in the " + DirectoryName() + " directory.");
  }
  EntraServiceState::Books::AuthorizationCode issued;
  issued.client_id = application.client_id;
  issued.redirect_uri = redirect_uri;
  issued.challenge = challenge;
  issued.scope = scope.text;
  issued.account = account->name;
  issued.expires = Clock::now() + kCodeLifetime;
  *code = "1.AXkA" + RandomBase64Url(420);
  std::lock_guard<std::mutex> lock(mutex());
  books().codes[*code] = std::move(issued);
  return std::nullopt;
}

// --- the user's side, for tests and scripts --------------------------------

Response EntraServiceHandlers::Control(const Request& request) {
  if (request.method == "GET" && EqualsIgnoreCase(request.path, "/_emulator/devicecode/pending")) {
    std::string lines;
    for (const std::string& user_code : state_->PendingUserCodes()) lines += user_code + "\n";
    return Response::Text(200, std::move(lines));
  }
  bool approve = EqualsIgnoreCase(request.path, "/_emulator/devicecode/approve");
  bool decline = EqualsIgnoreCase(request.path, "/_emulator/devicecode/decline");
  if (!approve && !decline)
    return Response::Text(404, "emulator: no control call " + request.path + "\n");
  if (request.method != "POST") return Response::Text(405, "emulator: POST a form here\n");
  Form form;
  if (ReadForm(request, &form)) return Response::Text(400, "emulator: a field appears twice\n");
  const std::string user_code = Field(form, "user_code");
  if (decline) {
    return state_->DeclineDeviceCode(user_code)
               ? Response::Text(200, "declined " + user_code + "\n")
               : Response::Text(404, "emulator: nobody waits on user code " + user_code + "\n");
  }
  std::string account = Field(form, "account");
  if (account.empty() && !options().accounts.empty()) account = options().accounts.front().name;
  if (FindAccount(options(), account) == nullptr) {
    return Response::Text(400, "emulator: no account " + account + "\n");
  }
  return state_->ApproveDeviceCode(user_code, account)
             ? Response::Text(200, "approved " + user_code + " for " + account + "\n")
             : Response::Text(404, "emulator: nobody waits on user code " + user_code + "\n");
}

}  // namespace Emulation
}  // namespace Vantrel

#include "VantrelAuthEngine64/EntraId.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "VantrelAuthEngine64/INetworkControl.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/NetworkResult.h"
#include "authenticators/AttemptSteps.h"
#include "authenticators/oauth/Base64Url.h"
#include "authenticators/oauth/BearerChallenge.h"
#include "authenticators/oauth/ClientAssertion.h"
#include "authenticators/oauth/DeviceCodeAnswer.h"
#include "authenticators/oauth/EntraAuthority.h"
#include "authenticators/oauth/FormBody.h"
#include "authenticators/oauth/IdTokenClaims.h"
#include "authenticators/oauth/JsonMember.h"
#include "authenticators/oauth/LoopbackReceiver.h"
#include "authenticators/oauth/RandomText.h"
#include "authenticators/oauth/TokenAnswer.h"
#include "authenticators/oauth/TokenCache.h"
#include "base/Cancellation.h"
#include "base/ErrorDetail.h"
#include "base/Logger.h"
#include "base/SecretString.h"
#include "base/StringUtil.h"
#include "text/UrlUtil.h"

namespace Vantrel {
namespace Auth {
namespace {

using Clock = std::chrono::steady_clock;

const long kDefaultBrowserTimeout = 300;  // seconds
// slow_down asks for this much more between polls, for good.
const long long kSlowDownStep = 5;
// A device code's life and poll interval come from the service; a hostile
// or broken one must not make the wait overflow or outlast a day.
const long long kLongestDeviceCodeLife = 24 * 3600;
// Likewise an access token's lifetime, before it is added to the clock.
const long long kLongestTokenLife = 366LL * 24 * 3600;
// A site's reason longer than this is not a short message but a page.
const size_t kLongestPlainReason = 200;
// PKCE: 43 to 128 characters; state: enough to be unguessable.
const size_t kVerifierLength = 64;
const size_t kStateLength = 32;

const char kFormType[] = "application/x-www-form-urlencoded";
const char kJsonType[] = "application/json";
const char kVerboseJsonType[] = "application/json;odata=verbose";
const char kAssertionType[] = "urn:ietf:params:oauth:client-assertion-type:jwt-bearer";
const char kDeviceCodeGrant[] = "urn:ietf:params:oauth:grant-type:device_code";
const char kUserScopeTail[] = " offline_access openid profile";
const char kBearerPrefix[] = "Bearer ";

const char kCancelledText[] = "The sign-in was cancelled.";
const char kNoTokenText[] = "The token endpoint answered without an access token.";
const char kDeviceCodeExpiredText[] = "The device code expired before the sign-in was approved.";
const char kNothingCachedText[] =
    "No cached token for this site and application; sign in interactively first.";
const char kSeveralAccountsText[] =
    "The token cache holds several accounts for this site and application; name the account.";
const char kNoTenantText[] =
    "The site did not name its tenant in a Bearer challenge; set the tenant (its GUID or "
    "domain) with SetTenant.";

// Which flows may use a tenant, and which default scope they ask for.
enum class Audience { kAppOnly, kUser };

bool IsMissing(const char* text) { return text == nullptr || text[0] == '\0'; }

bool IsHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c". A discovered realm goes into the
// token URL's path: anything else a site names is not taken.
bool IsGuid(std::string_view text) {
  if (text.size() != 36) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !IsHex(text[i])) return false;
  }
  return true;
}

// A GUID or a domain: the only characters a tenant in a URL path needs.
bool IsTenantName(std::string_view text) {
  if (text.empty()) return false;
  for (char c : text) {
    bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (!letter && c != '-' && c != '.' && c != '_') return false;
  }
  return true;
}

// The tenants that stand for many: the user flows may use them, client
// credentials never.
bool IsMultiTenant(std::string_view tenant) {
  return EqualsIgnoringCase(tenant, "organizations") || EqualsIgnoringCase(tenant, "common") ||
         EqualsIgnoringCase(tenant, "consumers");
}

const std::string& FirstNonEmpty(const std::string& a, const std::string& b) {
  return a.empty() ? b : a;
}

std::string FirstLine(const std::string& text) {
  return text.substr(0, text.find_first_of("\r\n"));
}

// The response body in wiped memory: it may be a token answer.
SecretString BodyOf(const NetworkResult* result) { return ResponseBody(result); }

// The value of the first header of that name, compared without regard to
// case; null when there is none.
const char* HeaderValue(const NetworkResult* result, const char* name) {
  for (const HeaderNode* node = result->GetHeaders(); node != nullptr; node = node->next) {
    const Header* header = node->header;
    if (header != nullptr && header->name != nullptr && header->value != nullptr &&
        EqualsIgnoringCase(header->name, name)) {
      return header->value;
    }
  }
  return nullptr;
}

// The message of a JSON error body, in the shapes SharePoint and Entra ID
// send; "" for anything else.
std::string JsonReason(std::string_view body) {
  nlohmann::json json = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
  JsonDisposal<nlohmann::json> dispose(&json);
  if (json.is_discarded() || !json.is_object()) return "";
  auto description = json.find("error_description");
  if (description != json.end() && description->is_string()) return description->get<std::string>();
  for (const char* name : {"error", "odata.error"}) {
    auto error = json.find(name);
    if (error == json.end() || !error->is_object()) continue;
    auto message = error->find("message");
    if (message == error->end()) continue;
    if (message->is_string()) return message->get<std::string>();
    if (!message->is_object()) continue;
    auto value = message->find("value");
    if (value != message->end() && value->is_string()) return value->get<std::string>();
  }
  return "";
}

bool IsPlainText(std::string_view text) {
  if (text.empty() || text.size() > kLongestPlainReason || text[0] == '<') return false;
  for (char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\t') return false;
  }
  return true;
}

// Why a site refused a token, in its own words: a short plain-text body as
// it stands, the message of a JSON error body, else its x-ms-diagnostics
// header. "" when it gave none.
std::string SiteReason(const NetworkResult* result) {
  std::string body = result->GetBody();
  std::string_view text = body;
  size_t start = text.find_first_not_of(" \t\r\n");
  text = start == std::string_view::npos ? std::string_view() : text.substr(start);
  text = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
  std::string reason;
  if (!text.empty() && text[0] == '{') {
    reason = JsonReason(text);
  } else if (IsPlainText(text)) {
    reason = text;
  }
  if (reason.empty()) {
    const char* diagnostics = HeaderValue(result, "x-ms-diagnostics");
    if (diagnostics != nullptr) reason = diagnostics;
  }
  return FirstLine(reason);
}

// A query value as the authorize URL carries it.
std::string QueryValue(const std::string& value) {
  OwnedString encoded = UrlEncode(OwnedCopy(value.c_str()));
  std::string text = encoded ? encoded.get() : "";
  return text;
}

// The PKCE pair and the state of one browser sign-in.
struct BrowserSecrets {
  ~BrowserSecrets() { WipeString(&verifier); }
  std::string verifier;
  std::string challenge;  // base64url(SHA-256(verifier))
  std::string state;
};

bool MakeBrowserSecrets(BrowserSecrets* secrets) {
  if (!RandomUnreserved(kVerifierLength, &secrets->verifier)) return false;
  if (!RandomUnreserved(kStateLength, &secrets->state)) return false;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(secrets->verifier.data(), secrets->verifier.size(), digest, &size, EVP_sha256(),
                 nullptr) != 1) {
    return false;
  }
  secrets->challenge = Base64UrlEncode(digest, size);
  return true;
}

// The redirect's parameters hold the authorization code.
void WipeParameters(std::map<std::string, std::string>* parameters) {
  for (auto& parameter : *parameters) WipeString(&parameter.second);
  parameters->clear();
}

// Waits `duration`, in the steps in which a cancel is watched; true when the
// wait was cancelled. Without a flag (an authenticator the host made itself)
// nothing can cancel it.
bool Pause(const Cancellation* cancellation, Clock::duration duration) {
  // Rounded up: a wait that ends a hair early would poll before the interval.
  auto wait = std::chrono::ceil<std::chrono::milliseconds>(duration);
  if (cancellation != nullptr) return cancellation->SleepFor(wait);
  auto deadline = Clock::now() + wait;
  for (auto now = Clock::now(); now < deadline; now = Clock::now()) {
    std::this_thread::sleep_for(
        std::min<Clock::duration>(Cancellation::kWatchInterval, deadline - now));
  }
  return false;
}

// Account names compare without regard to case, as the cache's keys do.
bool NamesSeveralAccounts(const TokenCache::Found& usable, const TokenCache::Found& refreshable) {
  std::set<std::string> accounts;
  for (const auto* entries : {&usable, &refreshable}) {
    for (const TokenCacheEntry* entry : *entries) {
      std::string account = entry->key.account;
      for (char& c : account) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      accounts.insert(account);
    }
  }
  return accounts.size() > 1;
}

}  // namespace

class EntraIdState {
 public:
  // One attempt's working set.
  struct Attempt {
    Attempt(const char* operation, Audience wanted) : where(operation), audience(wanted) {}
    const char* where;  // "EntraId::AuthenticateByUser", for the log lines
    Audience audience;
    NetworkConfig* config = nullptr;
    NetworkResult* result = nullptr;
    ErrorDetail* detail = nullptr;
    INetworkControl* transport = nullptr;
    Cancellation* cancellation = nullptr;
    std::string site;         // as the host gave it
    std::string host;         // the site's host: the resource the token is for
    std::string authority;    // "https://login.microsoftonline.com"
    std::string authority_host;  // "login.microsoftonline.com"
    std::string tenant;       // as it goes into the endpoint URLs
    std::string tenant_guid;  // found from the site, now or at an earlier attempt
    std::string scope;
    std::string token_url;
  };

  // What an earlier token left that a new answer may lack: a refresh answers
  // without an id token, and not always with a new refresh token.
  struct Earlier {
    std::string account;
    std::string tenant_id;
    SecretString refresh_token;
  };

  explicit EntraIdState(EntraId* owner) : owner_(owner) {}

  // --- the frame ---------------------------------------------------------------

  // Null objects end the attempt; otherwise request, response, detail and
  // results are cleared.
  bool Begin(Attempt* attempt) {
    attempt->config = owner_->GetNetworkConfig();
    attempt->result = owner_->GetNetworkResult();
    attempt->detail = owner_->GetErrorDetail();
    attempt->transport = owner_->GetNetworkControl();
    attempt->cancellation = owner_->GetCancellation();
    if (!BeginAttempt(attempt->config, attempt->result, attempt->detail, attempt->transport,
                      attempt->cancellation)) {
      return false;
    }
    ClearResults();
    return true;
  }

  static AuthResult Fail(Attempt* attempt, AuthResult result, const std::string& detail) {
    attempt->detail->Set(detail.c_str());
    return result;
  }

  // The site, the client id, the authority and a tenant the flow can use.
  AuthResult CheckCommonInputs(Attempt* attempt, const char* site) {
    Logger::LogFormat(kLogLevelDebug, "%s - Validating inputs... ", attempt->where, nullptr,
                      nullptr, nullptr, nullptr);
    if (owner_->IsEmpty(site) || !owner_->IsSupportedProtocols(site)) {
      return kAuthResultInvalidInput;
    }
    attempt->site = site;
    attempt->host = EntraAuthority::HostOf(site);
    if (attempt->host.empty()) {
      return Fail(attempt, kAuthResultInvalidInput,
                  "The site's address names no host: " + attempt->site);
    }
    if (client_id.empty()) return Fail(attempt, kAuthResultInvalidInput, "No client id set.");
    if (!authority.empty() && !owner_->IsSupportedProtocols(authority.c_str())) {
      return kAuthResultInvalidInput;
    }
    if (!tenant.empty() && !IsTenantName(tenant)) {
      return Fail(attempt, kAuthResultInvalidInput,
                  "The tenant is neither a GUID nor a domain: " + tenant);
    }
    if (attempt->audience == Audience::kAppOnly && IsMultiTenant(tenant)) {
      return Fail(attempt, kAuthResultInvalidInput,
                  "An app-only sign-in needs the tenant's GUID or domain, not \"" + tenant + "\".");
    }
    return kAuthResultOk;
  }

  // Authority, tenant (found from the site unless set or known) and scope.
  AuthResult Locate(Attempt* attempt) {
    LocateKnown(attempt);
    if (attempt->tenant.empty()) {
      AuthResult found = DiscoverTenant(attempt);
      if (found != kAuthResultOk) return found;
      attempt->tenant = attempt->tenant_guid;
    }
    attempt->token_url = EntraAuthority::EndpointUrl(attempt->authority, attempt->tenant, "token");
    Logger::LogFormat(kLogLevelDebug, "%s - Authority: %s, Tenant: %s, Scope: %s", attempt->where,
                      attempt->authority.c_str(), attempt->tenant.c_str(), attempt->scope.c_str(),
                      nullptr);
    return kAuthResultOk;
  }

  // What Locate finds without a request: the tenant stays "" when it was
  // neither set nor found before.
  void LocateKnown(Attempt* attempt) {
    if (!authority.empty()) {
      attempt->authority = authority;
    } else {
      // Worked out once per site host: a silent sign-in comes through here
      // every time.
      if (derived_for_host != attempt->host) {
        derived_authority = EntraAuthority::ForSiteHost(attempt->host);
        derived_for_host = attempt->host;
      }
      attempt->authority = derived_authority;
    }
    if (authority_host_of != attempt->authority) {
      authority_host = EntraAuthority::HostOf(attempt->authority);
      authority_host_of = attempt->authority;
    }
    attempt->authority_host = authority_host;
    if (tenant.empty()) {
      auto known = tenants_by_host.find(attempt->host);
      if (known != tenants_by_host.end()) attempt->tenant_guid = known->second;
    }
    attempt->tenant = FirstNonEmpty(tenant, attempt->tenant_guid);
    if (!scope.empty()) {
      attempt->scope = scope;
    } else {
      attempt->scope = "https://" + attempt->host + "/.default";
      if (attempt->audience == Audience::kUser) attempt->scope += kUserScopeTail;
    }
  }

  // --- requests ----------------------------------------------------------------

  // A fresh request description for `url`: options, no headers, no body.
  void Describe(Attempt* attempt, const std::string& url) {
    attempt->config->Reset();
    owner_->ConfigureCommonProperties(url.c_str());
    attempt->config->SetUrl(url.c_str());
    attempt->config->ClearHeaders();
  }

  // POSTs a form to an endpoint of the authority. Only the exchange is
  // judged here; the answer is the caller's to read.
  AuthResult PostForm(Attempt* attempt, const std::string& url, const FormBody& form) {
    if (!form.ok()) {
      return Fail(attempt, kAuthResultInternalError, "A form field could not be encoded.");
    }
    Describe(attempt, url);
    // Headers go out in the reverse of this order.
    attempt->config->AddHeader("Accept", kJsonType);
    attempt->config->AddHeader("Content-Type", kFormType);
    attempt->config->SetPostData(form.text().c_str());
    return SendRequest(attempt->transport, attempt->config, attempt->result, attempt->detail);
  }

  static void ReadTokenAnswer(const Attempt* attempt, TokenAnswer* answer) {
    SecretString body = BodyOf(attempt->result);
    *answer = TokenAnswer();
    if (!TokenAnswer::Parse(body.view(), answer)) *answer = TokenAnswer();
  }

  // An error answer by its error and codes, a failed status by its code, a
  // success without a token as a failure.
  static AuthResult JudgeTokenAnswer(Attempt* attempt, const TokenAnswer& answer) {
    if (answer.IsError()) {
      std::string detail;
      AuthResult result = answer.Classify(&detail);
      return Fail(attempt, result, detail);
    }
    AuthResult judged = CheckResponseCode(attempt->result, attempt->detail);
    if (judged != kAuthResultOk) return judged;
    int code = attempt->result->GetResponseCode();
    if (code < 200 || code > 299 || answer.access_token.empty()) {
      return Fail(attempt, kAuthResultAuthFailed, kNoTokenText);
    }
    return kAuthResultOk;
  }

  // The token request: the form to the token endpoint, the answer judged.
  AuthResult RequestToken(Attempt* attempt, const FormBody& form, TokenAnswer* answer) {
    Logger::LogFormat(kLogLevelDebug, "%s - Requesting a token from %s", attempt->where,
                      attempt->token_url.c_str(), nullptr, nullptr, nullptr);
    AuthResult sent = PostForm(attempt, attempt->token_url, form);
    if (sent != kAuthResultOk) return sent;
    ReadTokenAnswer(attempt, answer);
    return JudgeTokenAnswer(attempt, *answer);
  }

  // The tenant from the site's Bearer challenge, kept for the site's host.
  AuthResult DiscoverTenant(Attempt* attempt) {
    std::string url = EntraAuthority::OriginOf(attempt->site) + "/_vti_bin/client.svc";
    Logger::LogFormat(kLogLevelDebug, "%s - Asking %s for the tenant", attempt->where, url.c_str(),
                      nullptr, nullptr, nullptr);
    Describe(attempt, url);
    attempt->config->AddHeader("Authorization", "Bearer");
    AuthResult sent =
        SendRequest(attempt->transport, attempt->config, attempt->result, attempt->detail);
    if (sent != kAuthResultOk) return sent;
    // A site may send several challenges, in one header or in several.
    for (const HeaderNode* node = attempt->result->GetHeaders(); node != nullptr;
         node = node->next) {
      const Header* line = node->header;
      if (line == nullptr || line->name == nullptr || line->value == nullptr ||
          !EqualsIgnoringCase(line->name, "www-authenticate")) {
        continue;
      }
      BearerChallenge challenge;
      if (!BearerChallenge::Parse(line->value, &challenge)) continue;
      std::string realm = challenge.Get("realm");
      if (!IsGuid(realm)) continue;
      Logger::LogFormat(kLogLevelDebug, "%s - Tenant: %s", attempt->where, realm.c_str(), nullptr,
                        nullptr, nullptr);
      tenants_by_host[attempt->host] = realm;
      attempt->tenant_guid = realm;
      return kAuthResultOk;
    }
    return Fail(attempt, kAuthResultAuthFailed, kNoTenantText);
  }

  // --- the end of every new token ---------------------------------------------

  // Results, the site check, the cache; on success request and response are
  // cleared.
  AuthResult Conclude(Attempt* attempt, const TokenAnswer& answer, const Earlier& earlier) {
    time_t now = std::time(nullptr);
    IdTokenClaims claims;
    if (!answer.id_token.empty() && !IdTokenClaims::Read(answer.id_token.view(), &claims)) {
      claims = IdTokenClaims();
    }
    long long lifetime = std::min(std::max(answer.expires_in, 0LL), kLongestTokenLife);
    SetResults(answer.access_token, now + static_cast<time_t>(lifetime),
               FirstNonEmpty(attempt->tenant_guid,
                             FirstNonEmpty(claims.tenant_id,
                                           FirstNonEmpty(earlier.tenant_id, attempt->tenant))),
               FirstNonEmpty(claims.preferred_username, earlier.account));

    AuthResult checked = CheckSite(attempt);
    if (checked != kAuthResultOk) {
      ClearResults();
      return checked;
    }
    Store(attempt, answer.refresh_token.empty() ? earlier.refresh_token : answer.refresh_token,
          now);
    return FinishAttempt(attempt->config, attempt->result);
  }

  // GET {site}/_api/web with the new token: the site's own verdict on it.
  AuthResult CheckSite(Attempt* attempt) {
    if (!site_check) return kAuthResultOk;
    OwnedString sanitized = SanitizeUrl(OwnedCopy(attempt->site.c_str()));
    std::string url = sanitized ? sanitized.get() : "";
    while (!url.empty() && url.back() == '/') url.pop_back();
    url += "/_api/web";
    Logger::LogFormat(kLogLevelDebug, "%s - Checking the token at %s", attempt->where, url.c_str(),
                      nullptr, nullptr, nullptr);
    Describe(attempt, url);
    attempt->config->AddHeader("Accept", kVerboseJsonType);
    attempt->config->AddHeader("Authorization", header.c_str());
    AuthResult sent =
        SendRequest(attempt->transport, attempt->config, attempt->result, attempt->detail);
    if (sent != kAuthResultOk) return sent;
    int code = attempt->result->GetResponseCode();
    if (code >= 200 && code <= 299) return kAuthResultOk;
    if (code == 401 || code == 403) {
      std::string reason = SiteReason(attempt->result);
      if (reason.empty()) {
        attempt->detail->Set("The site refused the token.  Response code: ", code);
        return kAuthResultAuthFailed;
      }
      return Fail(attempt, kAuthResultAuthFailed, "The site refused the token: " + reason);
    }
    AuthResult judged = CheckResponseCode(attempt->result, attempt->detail);
    if (judged != kAuthResultOk) return judged;
    attempt->detail->Set("The site did not accept the token.  Response code: ", code);
    return kAuthResultAuthFailed;
  }

  void Store(Attempt* attempt, const SecretString& refresh_token, time_t now) {
    TokenCacheEntry entry;
    entry.key = CacheKey(*attempt, account);
    entry.access_token.Assign(AccessToken());
    entry.refresh_token = refresh_token;
    entry.expires_on = expires_on;
    entry.cached_at = now;
    entry.tenant_id = tenant_id;
    std::string warning;
    if (!cache.Store(entry, &warning)) {
      Logger::LogFormat(kLogLevelInfo, "%s - The token cache file was not written: %s",
                        attempt->where, warning.c_str(), nullptr, nullptr, nullptr);
    }
  }

  TokenCacheKey CacheKey(const Attempt& attempt, const std::string& for_account) const {
    TokenCacheKey key;
    key.authority_host = attempt.authority_host;
    key.tenant = attempt.tenant;
    key.client_id = client_id;
    key.account = for_account;
    key.scope = attempt.scope;
    return key;
  }

  // --- results -------------------------------------------------------------------

  void SetResults(const SecretString& token, time_t expiry, const std::string& tenant_guid,
                  const std::string& account_name) {
    header.Assign(kBearerPrefix);
    header.Append(token.view());
    expires_on = expiry;
    tenant_id = tenant_guid;
    account = account_name;
  }

  void TakeCached(const TokenCacheEntry& entry) {
    SetResults(entry.access_token, entry.expires_on,
               FirstNonEmpty(entry.tenant_id, entry.key.tenant), entry.key.account);
  }

  // The token is the header's tail: one copy to keep, and one to wipe.
  const char* AccessToken() const {
    return header.empty() ? "" : header.c_str() + sizeof(kBearerPrefix) - 1;
  }

  void ClearResults() {
    header.Clear();
    expires_on = 0;
    tenant_id.clear();
    account.clear();
  }

  // --- flows that share more than the frame ------------------------------------

  // Client credentials with an assertion signed by the loaded certificate.
  AuthResult SignInWithAssertion(Attempt* attempt, const ClientAssertion& signer) {
    AuthResult located = Locate(attempt);
    if (located != kAuthResultOk) return located;
    // Never reused: each request gets its own jti and times.
    SecretString jwt;
    std::string why;
    if (!signer.Sign(algorithm, client_id, attempt->token_url, std::time(nullptr), &jwt, &why)) {
      return Fail(attempt, kAuthResultInternalError, why);
    }
    FormBody form(attempt->transport);
    form.Add("grant_type", "client_credentials");
    form.Add("client_id", client_id);
    form.Add("scope", attempt->scope);
    form.Add("client_assertion_type", kAssertionType);
    form.Add("client_assertion", jwt.view());
    TokenAnswer answer;
    AuthResult got = RequestToken(attempt, form, &answer);
    if (got != kAuthResultOk) return got;
    return Conclude(attempt, answer, Earlier());
  }

  // The devicecode endpoint's answer: the codes, or why there are none.
  AuthResult RequestDeviceCode(Attempt* attempt, DeviceCodeAnswer* code) {
    std::string url =
        EntraAuthority::EndpointUrl(attempt->authority, attempt->tenant, "devicecode");
    Logger::LogFormat(kLogLevelDebug, "%s - Asking for a device code at %s", attempt->where,
                      url.c_str(), nullptr, nullptr, nullptr);
    FormBody form(attempt->transport);
    form.Add("client_id", client_id);
    form.Add("scope", attempt->scope);
    AuthResult sent = PostForm(attempt, url, form);
    if (sent != kAuthResultOk) return sent;
    SecretString body = BodyOf(attempt->result);
    TokenAnswer error;
    if (TokenAnswer::Parse(body.view(), &error) && error.IsError()) {
      return JudgeTokenAnswer(attempt, error);
    }
    AuthResult judged = CheckResponseCode(attempt->result, attempt->detail);
    if (judged != kAuthResultOk) return judged;
    int status = attempt->result->GetResponseCode();
    if (status < 200 || status > 299 || !DeviceCodeAnswer::Parse(body.view(), code)) {
      return Fail(attempt, kAuthResultAuthFailed,
                  "The device code endpoint's answer could not be read.");
    }
    return kAuthResultOk;
  }

  // Polls the token endpoint, never faster than the service allows, until
  // the user approves or declines, the code expires, or a cancel comes.
  AuthResult PollForApproval(Attempt* attempt, const DeviceCodeAnswer& code, TokenAnswer* answer) {
    const long long life = std::min(std::max(code.expires_in, 1LL), kLongestDeviceCodeLife);
    long long interval = std::min(std::max(code.interval, 1LL), life);
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(life);
    FormBody form(attempt->transport);
    form.Add("grant_type", kDeviceCodeGrant);
    form.Add("client_id", client_id);
    form.Add("device_code", code.device_code.view());
    for (;;) {
      Clock::duration wait = std::min<Clock::duration>(
          std::chrono::seconds(interval), std::max<Clock::duration>(deadline - Clock::now(), {}));
      if (Pause(attempt->cancellation, wait)) {
        return Fail(attempt, kAuthResultCancelled, kCancelledText);
      }
      if (Clock::now() >= deadline) {
        return Fail(attempt, kAuthResultTimedOut, kDeviceCodeExpiredText);
      }
      Logger::LogFormat(kLogLevelDebug, "%s - Polling %s", attempt->where,
                        attempt->token_url.c_str(), nullptr, nullptr, nullptr);
      AuthResult sent = PostForm(attempt, attempt->token_url, form);
      if (sent != kAuthResultOk) return sent;
      ReadTokenAnswer(attempt, answer);
      if (answer->error == "authorization_pending") continue;
      if (answer->error == "slow_down") {
        interval += kSlowDownStep;
        continue;
      }
      if (answer->error == "expired_token") {
        return Fail(attempt, kAuthResultTimedOut, kDeviceCodeExpiredText);
      }
      return JudgeTokenAnswer(attempt, *answer);
    }
  }

  // The sign-in page's URL with the PKCE challenge and the state.
  std::string AuthorizeUrl(const Attempt& attempt, const std::string& redirect_uri,
                           const BrowserSecrets& secrets, const char* login_hint) const {
    std::string url = EntraAuthority::EndpointUrl(attempt.authority, attempt.tenant, "authorize");
    url += "?client_id=" + QueryValue(client_id);
    url += "&response_type=code";
    url += "&redirect_uri=" + QueryValue(redirect_uri);
    url += "&response_mode=query";
    url += "&scope=" + QueryValue(attempt.scope);
    url += "&state=" + QueryValue(secrets.state);
    url += "&code_challenge=" + QueryValue(secrets.challenge);
    url += "&code_challenge_method=S256";
    if (!IsMissing(login_hint)) url += "&login_hint=" + QueryValue(login_hint);
    return url;
  }

  // The browser's redirect: an error, a forged or stale one, or a code.
  static AuthResult JudgeRedirect(Attempt* attempt,
                                  const std::map<std::string, std::string>& redirect,
                                  const std::string& state) {
    auto value = [&redirect](const char* name) {
      auto found = redirect.find(name);
      return found == redirect.end() ? std::string() : found->second;
    };
    std::string error = value("error");
    if (!error.empty()) {
      std::string description = FirstLine(value("error_description"));
      bool interaction = error == "interaction_required" || error == "consent_required" ||
                         error == "login_required";
      return Fail(attempt, interaction ? kAuthResultInteractionRequired : kAuthResultAuthFailed,
                  description.empty() ? error : error + ": " + description);
    }
    // Another state is someone else's redirect (or a stale one): its code is
    // never redeemed.
    if (value("state") != state) {
      return Fail(attempt, kAuthResultAuthFailed,
                  "The browser's redirect carried the wrong state; no token was requested.");
    }
    if (value("code").empty()) {
      return Fail(attempt, kAuthResultAuthFailed, "The browser's redirect carried no code.");
    }
    return kAuthResultOk;
  }

  // --- options -------------------------------------------------------------------
  std::string authority;
  std::string tenant;
  std::string client_id;
  std::string scope;
  EntraAssertionAlgorithm algorithm = kEntraAssertionPs256;
  bool site_check = true;
  long browser_timeout = kDefaultBrowserTimeout;
  TokenCache cache;
  // The last certificate and key, parsed: given again, they are not parsed again.
  ClientAssertion assertion;
  // The authority chosen by the last site host, and the host of the last
  // authority: kept so that a lookup needn't take URLs apart again.
  std::string derived_for_host;
  std::string derived_authority;
  std::string authority_host_of;
  std::string authority_host;
  // Tenants found from sites, by the site's host: asked once per host.
  std::map<std::string, std::string> tenants_by_host;

  // --- results of the last attempt -----------------------------------------------
  SecretString header;  // "Bearer TOKEN"; the access token is its tail
  time_t expires_on = 0;
  std::string tenant_id;
  std::string account;

 private:
  EntraId* owner_;
};

EntraId::EntraId(INetworkControl* network_control) : AuthBase(network_control), state_(nullptr) {
  Logger::Log(kLogLevelInfo, "EntraId::EntraId(...)");
  state_ = new EntraIdState(this);
}

EntraId::~EntraId() {
  Logger::Log(kLogLevelInfo, "EntraId::~EntraId()");
  delete state_;
}

// --- options ---------------------------------------------------------------------

AuthResult EntraId::SetAuthority(const char* authority) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::SetAuthority - authority: %s", authority, nullptr,
                    nullptr, nullptr, nullptr);
  state_->authority = authority != nullptr ? authority : "";
  return kAuthResultOk;
}

AuthResult EntraId::GetAuthority(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->authority.c_str());
  return kAuthResultOk;
}

AuthResult EntraId::SetTenant(const char* tenant) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::SetTenant - tenant: %s", tenant, nullptr, nullptr,
                    nullptr, nullptr);
  state_->tenant = tenant != nullptr ? tenant : "";
  return kAuthResultOk;
}

AuthResult EntraId::GetTenant(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->tenant.c_str());
  return kAuthResultOk;
}

AuthResult EntraId::SetClientId(const char* client_id) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::SetClientId - client id: %s", client_id, nullptr,
                    nullptr, nullptr, nullptr);
  state_->client_id = client_id != nullptr ? client_id : "";
  return kAuthResultOk;
}

AuthResult EntraId::GetClientId(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->client_id.c_str());
  return kAuthResultOk;
}

AuthResult EntraId::SetScope(const char* scope) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::SetScope - scope: %s", scope, nullptr, nullptr,
                    nullptr, nullptr);
  state_->scope = scope != nullptr ? scope : "";
  return kAuthResultOk;
}

AuthResult EntraId::GetScope(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->scope.c_str());
  return kAuthResultOk;
}

AuthResult EntraId::SetAssertionAlgorithm(EntraAssertionAlgorithm algorithm) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::SetAssertionAlgorithm - RS256: %s",
                    YesNo(algorithm == kEntraAssertionRs256), nullptr, nullptr, nullptr, nullptr);
  state_->algorithm =
      algorithm == kEntraAssertionRs256 ? kEntraAssertionRs256 : kEntraAssertionPs256;
  return kAuthResultOk;
}

EntraAssertionAlgorithm EntraId::GetAssertionAlgorithm() const { return state_->algorithm; }

AuthResult EntraId::SetTokenCacheFile(const char* path) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::SetTokenCacheFile - path: %s", path, nullptr, nullptr,
                    nullptr, nullptr);
  state_->cache.SetFile(path != nullptr ? path : "");
  return kAuthResultOk;
}

AuthResult EntraId::GetTokenCacheFile(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->cache.file().c_str());
  return kAuthResultOk;
}

AuthResult EntraId::EnableSiteCheck(bool enable) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::EnableSiteCheck - enable: %s", YesNo(enable), nullptr,
                    nullptr, nullptr, nullptr);
  state_->site_check = enable;
  return kAuthResultOk;
}

bool EntraId::IsSiteCheckEnabled() const { return state_->site_check; }

AuthResult EntraId::SetBrowserTimeout(long seconds) {
  state_->browser_timeout = seconds > 0 ? seconds : kDefaultBrowserTimeout;
  return kAuthResultOk;
}

long EntraId::GetBrowserTimeout() const { return state_->browser_timeout; }

// --- sign-in -----------------------------------------------------------------------

AuthResult EntraId::AuthenticateWithCertificate(const char* site, const char* certificate_file,
                                                const char* key_file, const char* key_password) {
  Logger::LogFormat(
      kLogLevelInfo,
      "EntraId::AuthenticateWithCertificate - Site: %s, Certificate: %s, Key: %s, Key "
      "pwd avail: %s",
      site, certificate_file, key_file, AvailFlag(key_password), nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateWithCertificate", Audience::kAppOnly);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  if (IsMissing(certificate_file)) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No certificate file given.");
  }
  // The key and its certificate are checked before anything is sent.
  std::string why;
  AuthResult loaded = state_->assertion.LoadFiles(
      certificate_file, IsMissing(key_file) ? nullptr : key_file, key_password, &why);
  if (loaded != kAuthResultOk) return EntraIdState::Fail(&attempt, loaded, why);
  return state_->SignInWithAssertion(&attempt, state_->assertion);
}

AuthResult EntraId::AuthenticateWithCertificateData(const char* site, const char* certificate,
                                                    size_t certificate_size, const char* key,
                                                    size_t key_size, const char* key_password) {
  Logger::LogFormat(
      kLogLevelInfo,
      "EntraId::AuthenticateWithCertificateData - Site: %s, Certificate avail: %s, Key "
      "avail: %s, Key pwd avail: %s",
      site, YesNo(certificate != nullptr && certificate_size > 0),
      YesNo(key != nullptr && key_size > 0), AvailFlag(key_password), nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateWithCertificateData", Audience::kAppOnly);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  if (certificate == nullptr || certificate_size == 0) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No certificate given.");
  }
  std::string why;
  AuthResult loaded = state_->assertion.LoadData(
      certificate, certificate_size, key_size > 0 ? key : nullptr, key_size, key_password, &why);
  if (loaded != kAuthResultOk) return EntraIdState::Fail(&attempt, loaded, why);
  return state_->SignInWithAssertion(&attempt, state_->assertion);
}

AuthResult EntraId::AuthenticateWithClientSecret(const char* site, const char* client_secret) {
  Logger::LogFormat(kLogLevelInfo,
                    "EntraId::AuthenticateWithClientSecret - Site: %s, Secret avail: %s", site,
                    AvailFlag(client_secret), nullptr, nullptr, nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateWithClientSecret", Audience::kAppOnly);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  if (IsMissing(client_secret)) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No client secret given.");
  }
  AuthResult located = state_->Locate(&attempt);
  if (located != kAuthResultOk) return located;

  FormBody form(attempt.transport);
  form.Add("grant_type", "client_credentials");
  form.Add("client_id", state_->client_id);
  form.Add("scope", attempt.scope);
  form.Add("client_secret", client_secret);
  TokenAnswer answer;
  AuthResult got = state_->RequestToken(&attempt, form, &answer);
  if (got != kAuthResultOk) return got;
  return state_->Conclude(&attempt, answer, EntraIdState::Earlier());
}

AuthResult EntraId::AuthenticateWithDeviceCode(const char* site, EntraDeviceCodeCallback prompt,
                                               void* context) {
  Logger::LogFormat(kLogLevelInfo,
                    "EntraId::AuthenticateWithDeviceCode - Site: %s, Callback avail: %s", site,
                    YesNo(prompt != nullptr), nullptr, nullptr, nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateWithDeviceCode", Audience::kUser);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  if (prompt == nullptr) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No device-code callback given.");
  }
  AuthResult located = state_->Locate(&attempt);
  if (located != kAuthResultOk) return located;

  DeviceCodeAnswer code;
  AuthResult asked = state_->RequestDeviceCode(&attempt, &code);
  if (asked != kAuthResultOk) return asked;
  Logger::LogFormat(kLogLevelDebug, "%s - Showing the user code %s for %s", attempt.where,
                    code.user_code.c_str(), code.verification_uri.c_str(), nullptr, nullptr);
  if (!prompt(code.message.c_str(), code.user_code.c_str(), code.verification_uri.c_str(),
              context)) {
    return EntraIdState::Fail(&attempt, kAuthResultCancelled,
                              "The device-code callback ended the sign-in.");
  }
  TokenAnswer answer;
  AuthResult approved = state_->PollForApproval(&attempt, code, &answer);
  if (approved != kAuthResultOk) return approved;
  return state_->Conclude(&attempt, answer, EntraIdState::Earlier());
}

AuthResult EntraId::AuthenticateWithBrowser(const char* site, const char* login_hint,
                                            EntraBrowserCallback open_browser, void* context) {
  Logger::LogFormat(
      kLogLevelInfo,
      "EntraId::AuthenticateWithBrowser - Site: %s, Login hint: %s, Callback avail: %s", site,
      login_hint, YesNo(open_browser != nullptr), nullptr, nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateWithBrowser", Audience::kUser);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  if (open_browser == nullptr) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No browser callback given.");
  }
  AuthResult located = state_->Locate(&attempt);
  if (located != kAuthResultOk) return located;

  LoopbackReceiver receiver;
  std::string why;
  if (!receiver.Listen(&why)) {
    return EntraIdState::Fail(&attempt, kAuthResultSendFailed,
                              "No port for the browser's redirect: " + why);
  }
  BrowserSecrets secrets;
  if (!MakeBrowserSecrets(&secrets)) {
    return EntraIdState::Fail(&attempt, kAuthResultInternalError, "The random generator failed.");
  }
  const std::string redirect_uri = receiver.RedirectUri();
  std::string url = state_->AuthorizeUrl(attempt, redirect_uri, secrets, login_hint);
  Logger::LogFormat(kLogLevelDebug, "%s - Opening the browser at %s", attempt.where, url.c_str(),
                    nullptr, nullptr, nullptr);
  if (!open_browser(url.c_str(), context)) {
    return EntraIdState::Fail(&attempt, kAuthResultCancelled, "No browser could be opened.");
  }

  std::map<std::string, std::string> redirect;
  auto deadline = Clock::now() + std::chrono::seconds(state_->browser_timeout);
  switch (receiver.Wait(deadline, attempt.cancellation, &redirect, &why)) {
    case LoopbackReceiver::Outcome::kRedirect:
      break;
    case LoopbackReceiver::Outcome::kTimedOut:
      return EntraIdState::Fail(&attempt, kAuthResultTimedOut,
                                "The browser's redirect did not come within " +
                                    std::to_string(state_->browser_timeout) + " s.");
    case LoopbackReceiver::Outcome::kCancelled:
      return EntraIdState::Fail(&attempt, kAuthResultCancelled, kCancelledText);
    case LoopbackReceiver::Outcome::kFailed:
      return EntraIdState::Fail(&attempt, kAuthResultSendFailed,
                                "The browser's redirect could not be taken: " + why);
  }
  AuthResult judged = EntraIdState::JudgeRedirect(&attempt, redirect, secrets.state);
  if (judged != kAuthResultOk) {
    WipeParameters(&redirect);
    return judged;
  }

  FormBody form(attempt.transport);
  form.Add("grant_type", "authorization_code");
  form.Add("client_id", state_->client_id);
  form.Add("code", redirect["code"]);
  form.Add("redirect_uri", redirect_uri);
  form.Add("code_verifier", secrets.verifier);
  form.Add("scope", attempt.scope);
  WipeParameters(&redirect);
  TokenAnswer answer;
  AuthResult got = state_->RequestToken(&attempt, form, &answer);
  if (got != kAuthResultOk) return got;
  return state_->Conclude(&attempt, answer, EntraIdState::Earlier());
}

AuthResult EntraId::AuthenticateByUser(const char* site, const char* user, const char* password) {
  Logger::LogFormat(kLogLevelInfo,
                    "EntraId::AuthenticateByUser - Site: %s, User: %s, Pwd avail: %s", site, user,
                    AvailFlag(password), nullptr, nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateByUser", Audience::kUser);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  if (IsMissing(user)) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No user name given.");
  }
  if (IsMissing(password)) {
    return EntraIdState::Fail(&attempt, kAuthResultInvalidInput, "No password given.");
  }
  AuthResult located = state_->Locate(&attempt);
  if (located != kAuthResultOk) return located;

  FormBody form(attempt.transport);
  form.Add("grant_type", "password");
  form.Add("client_id", state_->client_id);
  form.Add("scope", attempt.scope);
  form.Add("username", user);
  form.Add("password", password);
  TokenAnswer answer;
  AuthResult got = state_->RequestToken(&attempt, form, &answer);
  if (got != kAuthResultOk) return got;
  // Without an id token (no openid in the scope) the name signed in with
  // names the account.
  EntraIdState::Earlier earlier;
  earlier.account = user;
  return state_->Conclude(&attempt, answer, earlier);
}

AuthResult EntraId::AuthenticateSilent(const char* site, const char* account) {
  Logger::LogFormat(kLogLevelInfo, "EntraId::AuthenticateSilent - Site: %s, Account: %s", site,
                    account, nullptr, nullptr, nullptr);
  EntraIdState::Attempt attempt("EntraId::AuthenticateSilent", Audience::kUser);
  if (!state_->Begin(&attempt)) return kAuthResultInternalError;
  AuthResult valid = state_->CheckCommonInputs(&attempt, site);
  if (valid != kAuthResultOk) return valid;
  // No discovery: an unknown tenant matches every cached one.
  state_->LocateKnown(&attempt);
  TokenCacheKey key = state_->CacheKey(attempt, account != nullptr ? account : "");

  // A token that still serves answers at once: no request, no site check.
  const time_t now = std::time(nullptr);
  state_->cache.Reload();
  TokenCache::Found usable = state_->cache.FindUsable(key, now);
  if (usable.empty() && key.account.empty() && state_->scope.empty()) {
    // A service that signed in with its certificate or secret finds its
    // app-only token under the app-only scope; it has no refresh token.
    key.scope = "https://" + attempt.host + "/.default";
    usable = state_->cache.FindUsable(key, now);
    key.scope = attempt.scope;
  }
  if (!usable.empty() && !key.account.empty()) {
    state_->TakeCached(*usable.front());
    return kAuthResultOk;
  }
  TokenCache::Found refreshable = state_->cache.FindRefreshable(key);
  if (key.account.empty() && NamesSeveralAccounts(usable, refreshable)) {
    return EntraIdState::Fail(&attempt, kAuthResultInteractionRequired, kSeveralAccountsText);
  }
  if (!usable.empty()) {
    state_->TakeCached(*usable.front());
    return kAuthResultOk;
  }
  if (refreshable.empty()) {
    return EntraIdState::Fail(&attempt, kAuthResultInteractionRequired, kNothingCachedText);
  }

  // The newest refresh token, at the tenant it was issued for.
  // A copy: the request below stores into the cache, which moves its entries.
  const TokenCacheEntry entry = *refreshable.front();
  attempt.tenant = entry.key.tenant;
  attempt.token_url = EntraAuthority::EndpointUrl(attempt.authority, attempt.tenant, "token");
  FormBody form(attempt.transport);
  form.Add("grant_type", "refresh_token");
  form.Add("client_id", state_->client_id);
  form.Add("refresh_token", entry.refresh_token.view());
  form.Add("scope", attempt.scope);
  TokenAnswer answer;
  AuthResult got = state_->RequestToken(&attempt, form, &answer);
  if (got != kAuthResultOk) return got;
  EntraIdState::Earlier earlier;
  earlier.account = entry.key.account;
  earlier.tenant_id = entry.tenant_id;
  earlier.refresh_token = entry.refresh_token;
  return state_->Conclude(&attempt, answer, earlier);
}

// --- results -----------------------------------------------------------------------

AuthResult EntraId::GetAccessToken(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->AccessToken());
  return kAuthResultOk;
}

AuthResult EntraId::GetAuthorizationHeader(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->header.c_str());
  return kAuthResultOk;
}

time_t EntraId::GetExpiresOn() const { return state_->expires_on; }

AuthResult EntraId::GetTenantId(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->tenant_id.c_str());
  return kAuthResultOk;
}

AuthResult EntraId::GetAccountName(char* buffer, size_t* size) const {
  CopyOut(buffer, size, state_->account.c_str());
  return kAuthResultOk;
}

}  // namespace Auth
}  // namespace Vantrel

// EntraId against the emulator's Entra ID service and SharePoint Online site:
// the requests of each flow, every scripted failure, hostile tenant
// challenges, the waits of the device-code and browser flows, the token cache,
// what an attempt leaves behind, and a log without secrets.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <ctime>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "VantrelAuthEngine.h"
#include "authenticators/oauth/Base64Url.h"
#include "emulator/EntraService.h"
#include "support/Authenticators.h"
#include "support/LogCapture.h"
#include "support/OnlineTest.h"
#include "support/TestCertificates.h"
#include "text/UrlUtil.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Request;
using Emulation::Response;

constexpr char kClientId[] = "3f6b9c2e-8d41-4a7e-b0c5-1e2d3f4a5b6c";
constexpr char kConfidentialId[] = "9a8b7c6d-0000-4e8a-9b2c-5d7e8f9a0b1c";  // no public client flows
constexpr char kTenant[] = "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c";       // the emulator's
// Secrets start with letters and digits: so they show, encoded or not, in a log.
constexpr char kSecret[] = "S3cr3tCl~ient.Value+/=";
constexpr char kUserPassword[] = "Pa55w0rdEntra&=%";
constexpr char kMfaUser[] = "megan@contoso.com";
const std::string kLogin = "login.microsoftonline.com";
const std::string kTokenPath = std::string("/") + kTenant + "/oauth2/v2.0/token";
const std::string kAppScope = "https://contoso.sharepoint.com/.default";
const std::string kUserScope = kAppScope + " offline_access openid profile";
const std::string kNothingCached = "No cached token for this site and application; sign in interactively first.";
const std::string kNone = "||||0";  // Results() of an object without a token

// A form body with every value decoded, or one field's value.
std::string Decoded(const std::string& body, const std::string& only = "") {
  std::string out;
  std::istringstream fields(body);
  for (std::string field; std::getline(fields, field, '&');) {
    size_t value = field.find('=') + 1;
    if (only.empty()) out += (out.empty() ? "" : "&") + field.substr(0, value) + PercentDecode(field.substr(value));
    if (field.substr(0, value) == only + "=") return PercentDecode(field.substr(value));
  }
  return out;
}
nlohmann::json JwtPart(const std::string& jwt, int part) {  // 0: header, 1: claims
  size_t start = part == 0 ? 0 : jwt.find('.') + 1;
  std::string bytes;
  Base64UrlDecode(jwt.substr(start, jwt.find('.', start) - start), &bytes);
  return nlohmann::json::parse(bytes, nullptr, false);
}

// One GET with libcurl, through the emulator's proxy when `proxy` is set; the
// redirect's target, not followed.
std::string Get(const std::string& url, const std::string& proxy, const std::string& ca) {
  CURL* curl = curl_easy_init();
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROXY, proxy.c_str());
  curl_easy_setopt(curl, CURLOPT_NOPROXY, proxy.empty() ? "*" : "");
  curl_easy_setopt(curl, CURLOPT_CAINFO, ca.c_str());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 10L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, +[](char*, size_t size, size_t count, void*) { return size * count; });
  curl_easy_perform(curl);
  char* location = nullptr;
  curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &location);
  std::string target = location != nullptr ? location : "";
  curl_easy_cleanup(curl);
  return target;
}

// The user behind a callback, acting on a thread of their own with what the
// callback got: the sign-in page's URL, or the device's user code.
struct User {
  std::function<void(const std::string&)> act = [](const std::string&) {};
  bool answer = true;
  std::thread thread;
  ~User() { if (thread.joinable()) thread.join(); }
  static bool Called(const char* text, void* context) {
    User* user = static_cast<User*>(context);
    user->thread = std::thread(user->act, std::string(text));
    return user->answer;
  }
  static bool Browser(const char* url, void* context) { return Called(url, context); }
  static bool Device(const char*, const char* code, const char*, void* context) { return Called(code, context); }
};

class EntraIdTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    Emulation::EntraServiceOptions options;
    options.applications = {{kClientId, TestCertificates::ReadFile(keys_.cert_pem), kSecret},
                            {kConfidentialId, "", kSecret, false}};
    options.accounts = {{kManagedUser, kUserPassword}, {kMfaUser, kUserPassword, true}};
    options.device_code_interval = 1;
    entra_ = Emulation::InstallEntraService(&emulator_, options);
    Emulation::InstallEntraSite(&emulator_, {}, entra_);
    Configure(entra());
  }
  EntraId* entra() { return engine_->EntraId(); }
  void Configure(EntraId* entra) const {
    entra->SetClientId(kClientId);
    Trust(entra);
  }
  std::vector<Request> TokenRequests() const {
    std::vector<Request> found = emulator_.Requests();
    auto other = [](const Request& r) { return r.path.find("/v2.0/token") == std::string::npos; };
    found.erase(std::remove_if(found.begin(), found.end(), other), found.end());
    return found;
  }
  // Token, header, tenant, account, whether there is an expiry.
  static std::string Results(const EntraId& e) {
    auto get = [&](AuthResult (EntraId::*getter)(char*, size_t*) const) {
      return Fetch([&](char* b, size_t* s) { (e.*getter)(b, s); });
    };
    return get(&EntraId::GetAccessToken) + "|" + get(&EntraId::GetAuthorizationHeader) + "|" + get(&EntraId::GetTenantId) + "|" +
           get(&EntraId::GetAccountName) + "|" + std::to_string(e.GetExpiresOn() != 0);
  }
  static std::string Who(const EntraId& e) { std::string r = Results(e); return r.substr(r.find('|', r.find('|') + 1) + 1); }
  AuthResult SignInAsUser(EntraId* e = nullptr) {
    return (e ? e : entra())->AuthenticateByUser(kSite, kManagedUser, kUserPassword);
  }

  const TestCertificates& keys_ = TestCertificates::Shared();
  std::shared_ptr<Emulation::EntraServiceState> entra_;
};

// Each flow: discovery, the token request, the site check with the new token;
// the tenant is asked once per object and host.
TEST_F(EntraIdTest, RequestsOfEachFlow) {
  const std::string discovery = "GET contoso.sharepoint.com /_vti_bin/client.svc", token = "POST " + kLogin + " " + kTokenPath,
                    site = "GET contoso.sharepoint.com /sites/team/_api/web";
  // A form given up to "client_assertion=" goes on with the assertion alone.
  const struct { std::function<AuthResult(EntraId*)> run; std::vector<std::string> lines; std::string form; } rows[] = {
      {[&](EntraId* e) { return e->AuthenticateWithCertificate(kSite, keys_.cert_pem.c_str(), keys_.key_pem.c_str(), nullptr); },
       {discovery, token, site}, "grant_type=client_credentials&client_id=" + std::string(kClientId) + "&scope=" + kAppScope +
       "&client_assertion_type=urn:ietf:params:oauth:client-assertion-type:jwt-bearer&client_assertion="},
      {[](EntraId* e) { e->EnableSiteCheck(false); return e->AuthenticateWithClientSecret(kSite, kSecret); }, {discovery, token},
       "grant_type=client_credentials&client_id=" + std::string(kClientId) + "&scope=" + kAppScope + "&client_secret=" + kSecret},
      {[](EntraId* e) { return e->AuthenticateByUser(kSite, kManagedUser, kUserPassword); }, {discovery, token, site},
       "grant_type=password&client_id=" + std::string(kClientId) + "&scope=" + kUserScope + "&username=" + kManagedUser +
           "&password=" + kUserPassword},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    EntraId fresh(entra()->GetNetworkControl());
    Configure(&fresh);
    ASSERT_EQ(row.run(&fresh), kAuthResultOk) << row.form << ": " << Detail(fresh);
    EXPECT_EQ(RequestLines(), row.lines) << row.form;
    std::vector<Request> sent = emulator_.Requests();
    EXPECT_EQ(sent[0].Header("Authorization").value_or(""), "Bearer");
    EXPECT_EQ(sent[1].Header("Content-Type").value_or("") + "|" + sent[1].Header("Accept").value_or(""),
              "application/x-www-form-urlencoded|application/json");
    std::string form = Decoded(sent[1].body);
    if (row.form.rfind("client_assertion=") == row.form.size() - 17) form.resize(std::min(form.size(), row.form.size()));
    EXPECT_EQ(form, row.form);
    if (sent.size() == 3) {
      EXPECT_EQ(sent[2].Header("Authorization").value_or("") + "|" + sent[2].Header("Accept").value_or(""),
                Fetch([&](char* b, size_t* s) { fresh.GetAuthorizationHeader(b, s); }) + "|application/json;odata=verbose");
    }
    emulator_.ClearRequests();
    ASSERT_EQ(row.run(&fresh), kAuthResultOk);
    EXPECT_EQ(RequestLines(), std::vector<std::string>(row.lines.begin() + 1, row.lines.end()));
  }
}

// The token endpoint's failures by error and AADSTS code, and answers that
// are no token; a tenant set as a domain goes straight into the URL.
TEST_F(EntraIdTest, TokenEndpointFailures) {
  entra()->SetTenant("contoso.onmicrosoft.com");
  const AuthResult kAsk = kAuthResultInteractionRequired, kNo = kAuthResultAuthFailed;
  const struct { int status; const char* error; long code; AuthResult result; } scripted[] = {
      {400, "invalid_grant", 50126, kNo},   {400, "invalid_grant", 50076, kAsk},  {400, "invalid_grant", 50079, kAsk},
      {400, "invalid_grant", 65001, kAsk},  {400, "invalid_grant", 53003, kAsk},  {400, "invalid_grant", 700082, kAsk},
      {400, "invalid_grant", 50173, kAsk},  {400, "invalid_grant", 70043, kAsk},  {400, "interaction_required", 50158, kAsk},
      {400, "invalid_request", 90002, kNo}, {400, "unauthorized_client", 700016, kNo}, {401, "invalid_client", 7000215, kNo},
  };
  for (const auto& row : scripted) {
    entra_->FailNextToken({row.status, row.error, row.code, "The scripted reason."});
    EXPECT_EQ(SignInAsUser(), row.result) << row.code;
    EXPECT_EQ(Detail(*entra()), "AADSTS" + std::to_string(row.code) + ": The scripted reason.");
    EXPECT_EQ(Results(*entra()), kNone);
  }
  const std::string kNoToken = "The token endpoint answered without an access token.";
  const struct { Response answer; AuthResult result; std::string detail; } broken[] = {
      {Response::Text(503, "busy"), kAuthResultHttpError, "HTTP error reported.  Response code: 503"},
      {Response::Text(200, "{}", "application/json"), kNo, kNoToken},
      {Response::Text(200, "<html>sign in</html>", "text/html"), kNo, kNoToken},
      {Response::Text(200, R"({"access_token":)", "application/json"), kNo, kNoToken},
      {Response::Redirect(302, "https://elsewhere/"), kNo, kNoToken},
  };
  for (const auto& row : broken) {
    emulator_.ClearRequests();
    emulator_.Enqueue(row.answer);
    EXPECT_EQ(SignInAsUser(), row.result) << row.detail;
    EXPECT_EQ(Detail(*entra()), row.detail);
    EXPECT_EQ(RequestLines(), std::vector<std::string>{"POST " + kLogin + " /contoso.onmicrosoft.com/oauth2/v2.0/token"});
  }
}

// The challenge is read as one; only a GUID realm is taken, else the detail
// says to set the tenant.
TEST_F(EntraIdTest, TenantFromHostileChallenges) {
  const std::string guid = "0f1e2d3c-4b5a-4968-8776-a5b4c3d2e1f0";
  const struct { std::vector<std::string> challenges; std::string tenant; } rows[] = {
      {{}, ""},
      {{"Bearer client_id=\"00000003\",trusted_issuers=\"a@*\""}, ""},
      {{"Bearer realm=\"../../common/oauth2\""}, ""},
      {{"Bearer realm=\"" + guid.substr(1)}, ""},
      {{"\x01\xff Bearer", "Bearer realm"}, ""},
      {{"Bearer client_id=\"a,realm=11111111-2222-4333-8444-555555555555\",realm=\"" + guid + "\",trusted_issuers=\"x,y\""}, guid},
      {{"NTLM", "Negotiate, bearer REALM=" + guid}, guid},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    Response challenge = Response::Text(401, "");
    for (const std::string& value : row.challenges) challenge.AddHeader("www-authenticate", value);
    emulator_.Enqueue(challenge);
    EntraId fresh(entra()->GetNetworkControl());
    Configure(&fresh);
    fresh.EnableSiteCheck(false);
    AuthResult result = fresh.AuthenticateWithClientSecret(kSite, kSecret);
    std::vector<std::string> lines = {"GET contoso.sharepoint.com /_vti_bin/client.svc"};
    if (row.tenant.empty()) {
      EXPECT_EQ(result, kAuthResultAuthFailed);
      EXPECT_EQ(Detail(fresh),
                "The site did not name its tenant in a Bearer challenge; set the tenant (its GUID or domain) with SetTenant.");
    } else {  // the emulator knows no such tenant: where the request went is the point
      lines.push_back("POST " + kLogin + " /" + row.tenant + "/oauth2/v2.0/token");
    }
    EXPECT_EQ(RequestLines(), lines);
  }
}

// Invalid input ends the attempt before any request, and the last results go.
TEST_F(EntraIdTest, InputIsCheckedBeforeAnyRequest) {
  EntraId* e = entra();
  auto certificate = [&](const std::string& cert, const std::string& key) {
    return [=] { return e->AuthenticateWithCertificate(kSite, cert.c_str(), key.c_str(), nullptr); };
  };
  const struct { std::function<AuthResult()> call; std::function<void()> setup; } rows[] = {
      {[&] { return e->AuthenticateByUser(nullptr, kManagedUser, kUserPassword); }, nullptr},
      {[&] { return e->AuthenticateByUser("ftp://contoso.sharepoint.com/", kManagedUser, kUserPassword); }, nullptr},
      {[&] { return e->AuthenticateByUser(kSite, nullptr, kUserPassword); }, nullptr},
      {[&] { return e->AuthenticateByUser(kSite, kManagedUser, ""); }, nullptr},
      {[&] { return SignInAsUser(); }, [&] { e->SetClientId(nullptr); }},
      {[&] { return SignInAsUser(); }, [&] { e->SetTenant("contoso.com/x?"); }},
      {[&] { return e->AuthenticateWithClientSecret(kSite, nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithClientSecret(kSite, kSecret); }, [&] { e->SetTenant("organizations"); }},
      {certificate(keys_.cert_pem, keys_.key_pem), [&] { e->SetTenant("Common"); }},
      {certificate(keys_.weak_cert_pem, keys_.weak_key_pem), nullptr},
      {certificate(keys_.ec_cert_pem, keys_.ec_key_pem), nullptr},
      {certificate(keys_.cert_pem, keys_.other_key_pem), nullptr},
      {[&] { return e->AuthenticateWithDeviceCode(kSite, nullptr, nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithBrowser(kSite, nullptr, nullptr, nullptr); }, nullptr},
  };
  for (const auto& row : rows) {
    Configure(e);
    e->SetTenant(nullptr);
    ASSERT_EQ(SignInAsUser(), kAuthResultOk);
    emulator_.ClearRequests();
    if (row.setup) row.setup();
    EXPECT_EQ(row.call(), kAuthResultInvalidInput) << &row - rows;
    EXPECT_NE(Detail(*e), "") << &row - rows;
    EXPECT_EQ(Results(*e), kNone) << &row - rows;
    EXPECT_TRUE(emulator_.Requests().empty()) << &row - rows;
  }
  EXPECT_EQ(EntraId(nullptr).AuthenticateSilent(kSite, nullptr), kAuthResultInternalError);
}

// PEM files (plain and encrypted key), PKCS#12 with and without a password,
// the same from memory, PS256 and RS256, each twice: a fresh assertion each time.
TEST_F(EntraIdTest, CertificateSignIns) {
  const std::string cert = TestCertificates::ReadFile(keys_.cert_pem), key = TestCertificates::ReadFile(keys_.key_pem),
                    p12 = TestCertificates::ReadFile(keys_.bundle_p12);
  EntraId* e = entra();
  const TestCertificates& k = keys_;
  auto files = [&](const std::string& cert, const char* key, const char* password) {
    return [=] { return e->AuthenticateWithCertificate(kSite, cert.c_str(), key, password); };
  };
  const struct { EntraAssertionAlgorithm algorithm; std::function<AuthResult()> run; } rows[] = {
      {kEntraAssertionPs256, files(k.cert_pem, k.key_pem.c_str(), nullptr)},
      {kEntraAssertionRs256, files(k.cert_pem, k.key_encrypted_pem.c_str(), k.key_password.c_str())},
      {kEntraAssertionPs256, files(k.bundle_p12, nullptr, k.bundle_password.c_str())},
      {kEntraAssertionRs256, files(k.bundle_nopass_p12, "", nullptr)},
      {kEntraAssertionPs256, [&] { return e->AuthenticateWithCertificateData(kSite, cert.data(), cert.size(), key.data(), key.size(), nullptr); }},
      {kEntraAssertionRs256,
       [&] { return e->AuthenticateWithCertificateData(kSite, p12.data(), p12.size(), nullptr, 0, k.bundle_password.c_str()); }},
  };
  std::vector<std::string> jtis;
  for (const auto& row : rows) {
    e->SetAssertionAlgorithm(row.algorithm);
    for (int twice = 0; twice < 2; ++twice) {  // a repeated jti would be refused
      ASSERT_EQ(row.run(), kAuthResultOk) << &row - rows << ": " << Detail(*e);
      const std::string jwt = Decoded(TokenRequests().back().body, "client_assertion");
      const nlohmann::json header = JwtPart(jwt, 0), claims = JwtPart(jwt, 1);
      const bool pss = row.algorithm == kEntraAssertionPs256;
      EXPECT_EQ(header.value("alg", "") + " " + std::to_string(header.contains(pss ? "x5t#S256" : "x5t")),
                pss ? "PS256 1" : "RS256 1");
      EXPECT_EQ(claims.value("aud", ""), "https://" + kLogin + kTokenPath);
      jtis.push_back(claims.value("jti", ""));
    }
    EXPECT_EQ(Who(*e), std::string(kTenant) + "||1");
  }
  std::sort(jtis.begin(), jtis.end());
  EXPECT_EQ(std::unique(jtis.begin(), jtis.end()), jtis.end());
}

// Password sign-in by account and application; the secret's app-only token is
// refused by the site in its own words unless the check is off, and a refused
// token is not cached.
TEST_F(EntraIdTest, PasswordAndSecretOutcomes) {
  const struct {
    const char *client, *user, *password;
    bool check;
    AuthResult result;
    std::string detail;
  } rows[] = {
      {kClientId, kManagedUser, kUserPassword, true, kAuthResultOk, ""},
      {kClientId, kManagedUser, "wrong", true, kAuthResultAuthFailed, "AADSTS50126"},
      {kClientId, kMfaUser, kUserPassword, true, kAuthResultInteractionRequired, "AADSTS50076"},
      {kConfidentialId, kManagedUser, kUserPassword, true, kAuthResultAuthFailed, "AADSTS7000218"},
      {kClientId, nullptr, kSecret, true, kAuthResultAuthFailed, "The site refused the token: Unsupported app only token."},
      {kClientId, nullptr, kSecret, false, kAuthResultOk, ""},
  };
  for (const auto& row : rows) {
    entra()->SetClientId(row.client);
    entra()->EnableSiteCheck(row.check);
    AuthResult result = row.user != nullptr ? entra()->AuthenticateByUser(kSite, row.user, row.password)
                                            : entra()->AuthenticateWithClientSecret(kSite, row.password);
    EXPECT_EQ(result, row.result) << row.detail;
    EXPECT_EQ(Detail(*entra()).substr(0, row.detail.size()), row.detail);
    EXPECT_EQ(result == kAuthResultOk ? Who(*entra()) : Results(*entra()),
              result == kAuthResultOk ? std::string(kTenant) + "|" + (row.user ? row.user : "") + "|1" : kNone);
  }
  EntraId fresh(entra()->GetNetworkControl());
  Configure(&fresh);
  fresh.SetScope(kAppScope.c_str());
  EXPECT_EQ(fresh.AuthenticateWithClientSecret(kSite, kSecret), kAuthResultAuthFailed);
  EXPECT_EQ(fresh.AuthenticateSilent(kSite, nullptr), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(fresh), kNothingCached);
}

// Device code: pending until approved, slow_down for good, declined, expired
// (by the service or the local deadline), the prompt saying no, Cancel.
TEST_F(EntraIdTest, DeviceCodeWaits) {
  entra()->SetTenant(kTenant);
  const std::string kExpired = "The device code expired before the sign-in was approved.";
  auto after = [](int ms, std::function<void(const std::string&)> then) {
    return [=](const std::string& code) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); then(code); };
  };
  auto approve = [&](const std::string& code) { entra_->ApproveDeviceCode(code, kManagedUser); };
  auto slow_down = [&] { entra_->FailNextToken({400, "slow_down", 0, ""}); };
  const struct { std::function<void()> before; std::function<void(const std::string&)> act; bool answer; AuthResult result;
                 std::string detail; double at_least, at_most; } rows[] = {
      {nullptr, after(1500, approve), true, kAuthResultOk, "", 2, 4},
      {slow_down, approve, true, kAuthResultOk, "", 7, 9},  // 1 s, then 1 + 5 s
      {nullptr, [&](const std::string& code) { entra_->DeclineDeviceCode(code); }, true, kAuthResultAuthFailed, "AADSTS", 1, 3},
      {[&] { entra_->FailNextToken({400, "expired_token", 70020, "Expired."}); }, nullptr, true, kAuthResultTimedOut, kExpired, 1, 3},
      {[&] { emulator_.Enqueue(Response::Text(200, R"({"device_code":"d","user_code":"U","expires_in":1,"interval":1})")); }, nullptr,
       true, kAuthResultTimedOut, kExpired, 1, 2},
      {nullptr, nullptr, false, kAuthResultCancelled, "The device-code callback ended the sign-in.", 0, 1},
      {slow_down, after(1500, [&](const std::string&) { engine_->Cancel(); }), true, kAuthResultCancelled,
       "The sign-in was cancelled.", 1.5, 2.5},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    if (row.before) row.before();
    User user;
    if (row.act) user.act = row.act;
    user.answer = row.answer;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(entra()->AuthenticateWithDeviceCode(kSite, &User::Device, &user), row.result) << &row - rows;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_TRUE(seconds >= row.at_least && seconds <= row.at_most) << &row - rows << ": " << seconds;
    EXPECT_EQ(Detail(*entra()).substr(0, row.detail.size()), row.detail);
    EXPECT_EQ(Who(*entra()), row.result == kAuthResultOk ? std::string(kTenant) + "|" + kManagedUser + "|1" : "||0");
    const Request asked = emulator_.Requests().at(0);
    EXPECT_EQ(asked.path + "?" + Decoded(asked.body),
              "/" + std::string(kTenant) + "/oauth2/v2.0/devicecode?client_id=" + kClientId + "&scope=" + kUserScope);
    const std::string poll_form =
        "grant_type=urn:ietf:params:oauth:grant-type:device_code&client_id=" + std::string(kClientId) + "&device_code=";
    for (const Request& poll : TokenRequests()) EXPECT_EQ(Decoded(poll.body).substr(0, poll_form.size()), poll_form);
    EXPECT_LE(static_cast<double>(TokenRequests().size()), seconds);  // each poll after a wait of the interval at least
  }
}

// The browser flow: the authorize URL, the code redeemed with the same redirect
// URI and the verifier of the challenge; a redirect not ours, an error, none in
// time, Cancel while waiting, no browser.
TEST_F(EntraIdTest, BrowserSignIns) {
  entra()->SetTenant(kTenant);
  const std::string proxy = emulator_.ProxyUrl(), ca = emulator_.CaFile();
  auto deliver = [&](std::function<std::string(std::string)> edit) {
    return [=](const std::string& url) { std::string to = Get(url, proxy, ca); if (!to.empty()) Get(edit(to), "", ""); };
  };
  auto query = [](const std::string& with) { return [=](std::string to) { return to.insert(to.find('?') + 1, with); }; };
  const struct { std::function<void(const std::string&)> act; bool answer; AuthResult result; std::string detail; } rows[] = {
      {deliver([](std::string to) { return to; }), true, kAuthResultOk, ""},
      {deliver([](std::string to) { return to.replace(to.find("state="), 6, "state=x"); }), true, kAuthResultAuthFailed,
       "The browser's redirect carried the wrong state; no token was requested."},
      {deliver(query("error=interaction_required&error_description=AADSTS50076%3A%20MFA.%0D%0ATrace%20ID%3A%201&")), true,
       kAuthResultInteractionRequired, "interaction_required: AADSTS50076: MFA."},
      {deliver(query("error=access_denied&")), true, kAuthResultAuthFailed, "access_denied"},
      {nullptr, false, kAuthResultCancelled, "No browser could be opened."},
      {nullptr, true, kAuthResultTimedOut, "The browser's redirect did not come within 1 s."},
      {[&](const std::string&) { std::this_thread::sleep_for(std::chrono::milliseconds(300)); engine_->Cancel(); }, true,
       kAuthResultCancelled, "The sign-in was cancelled."},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    entra()->SetBrowserTimeout(row.result == kAuthResultTimedOut ? 1 : 20);
    User browser;
    if (row.act) browser.act = row.act;
    browser.answer = row.answer;
    EXPECT_EQ(entra()->AuthenticateWithBrowser(kSite, kManagedUser, &User::Browser, &browser), row.result) << row.detail;
    EXPECT_EQ(Detail(*entra()), row.detail);
    EXPECT_EQ(TokenRequests().size(), row.result == kAuthResultOk ? 1u : 0u) << row.detail;
    if (row.result != kAuthResultOk) continue;
    const Request authorize = emulator_.Requests().at(0);
    EXPECT_EQ(authorize.path, "/" + std::string(kTenant) + "/oauth2/v2.0/authorize");
    std::string parameters;
    for (const char* name : {"client_id", "response_type", "response_mode", "scope", "code_challenge_method", "login_hint"}) {
      parameters += authorize.QueryParam(name).value_or("<none>") + "|";
    }
    EXPECT_EQ(parameters, std::string(kClientId) + "|code|query|" + kUserScope + "|S256|" + kManagedUser + "|");
    EXPECT_EQ(authorize.QueryParam("state").value_or("").size(), 32u);
    const std::string body = TokenRequests()[0].body, verifier = Decoded(body, "code_verifier");
    const std::string redeem = "grant_type=authorization_code&client_id=" + std::string(kClientId) + "&code=";
    EXPECT_EQ(Decoded(body).substr(0, redeem.size()), redeem);
    EXPECT_EQ(Decoded(body).substr(Decoded(body).find("&redirect_uri=")), "&redirect_uri=" +
              authorize.QueryParam("redirect_uri").value_or("") + "&code_verifier=" + verifier + "&scope=" + kUserScope);
    EXPECT_EQ(Decoded(body, "redirect_uri").rfind("http://localhost:", 0), 0u);
    unsigned char digest[32];
    EVP_Digest(verifier.data(), verifier.size(), digest, nullptr, EVP_sha256(), nullptr);
    EXPECT_EQ(authorize.QueryParam("code_challenge").value_or("") + " " + std::to_string(verifier.size()),
              Base64UrlEncode(digest, 32) + " 64");
    EXPECT_EQ(Who(*entra()), std::string(kTenant) + "|" + kManagedUser + "|1");
  }
}

// Silent: nothing cached, no request; a hit costs no request, also from the
// file in another object; tokens within the margin are refreshed with the
// newest refresh token; a revoked one needs the user; two accounts need a name.
TEST_F(EntraIdTest, SilentSignIns) {
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, nullptr), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(*entra()), kNothingCached);
  EXPECT_TRUE(emulator_.Requests().empty());  // not even for the tenant

  char dir[] = "/tmp/vantrel-entra-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string file = std::string(dir) + "/tokens.json";
  entra()->SetTokenCacheFile(file.c_str());
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  const std::string signed_in = Results(*entra());
  emulator_.ClearRequests();
  EntraId other(entra()->GetNetworkControl());
  Configure(&other);
  other.SetTokenCacheFile(file.c_str());
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, kManagedUser), kAuthResultOk);
  EXPECT_EQ(other.AuthenticateSilent(kSite, nullptr), kAuthResultOk) << Detail(other);
  EXPECT_EQ(Results(*entra()) + Results(other), signed_in + signed_in);
  EXPECT_TRUE(emulator_.Requests().empty());

  entra_->SetAccessTokenLifetime(60);
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  std::vector<std::string> refresh_tokens;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(entra()->AuthenticateSilent(kSite, kManagedUser), kAuthResultOk) << Detail(*entra());
    const std::string form = Decoded(TokenRequests().back().body);
    refresh_tokens.push_back(Decoded(TokenRequests().back().body, "refresh_token"));
    EXPECT_EQ(form, "grant_type=refresh_token&client_id=" + std::string(kClientId) + "&refresh_token=" + refresh_tokens.back() +
                        "&scope=" + kUserScope);
    EXPECT_EQ(Who(*entra()), std::string(kTenant) + "|" + kManagedUser + "|1");
  }
  EXPECT_NE(refresh_tokens[0], refresh_tokens[1]);
  entra_->RevokeRefreshTokens();
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, kManagedUser), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(*entra()).substr(0, 12), "AADSTS70043:");
  EXPECT_EQ(Results(*entra()), kNone);

  entra_->SetAccessTokenLifetime(3600);
  User approver;
  approver.act = [&](const std::string& code) { entra_->ApproveDeviceCode(code, kMfaUser); };
  ASSERT_EQ(entra()->AuthenticateWithDeviceCode(kSite, &User::Device, &approver), kAuthResultOk);
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, nullptr), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(*entra()), "The token cache holds several accounts for this site and application; name the account.");
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, kMfaUser), kAuthResultOk);
  EXPECT_EQ(Who(*entra()), std::string(kTenant) + "|" + kMfaUser + "|1");
  for (const std::string& path : {file, file + ".lock"}) unlink(path.c_str());
  EXPECT_EQ(rmdir(dir), 0);
}

// Results leave by the buffer protocol and go with a failed attempt; options stay.
TEST_F(EntraIdTest, ResultsAndOptionsAcrossAttempts) {
  EntraId* e = entra();
  e->SetBrowserTimeout(-5);
  EXPECT_EQ(std::make_tuple(e->GetBrowserTimeout(), e->IsSiteCheckEnabled(), e->GetAssertionAlgorithm()),
            std::make_tuple(300L, true, kEntraAssertionPs256));
  e->SetAuthority("https://login.microsoftonline.com/");
  e->SetScope(kUserScope.c_str());
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  const std::string token = entra_->IssuedAccessTokens().back();
  EXPECT_EQ(Results(*e), token + "|Bearer " + token + "|" + kTenant + "|" + kManagedUser + "|1");
  EXPECT_NEAR(static_cast<double>(e->GetExpiresOn()), static_cast<double>(std::time(nullptr) + 3600), 5);
  size_t size = token.size();
  char small[4096] = "x";
  e->GetAccessToken(small, &size);
  EXPECT_EQ(std::string(small) + std::to_string(size), std::to_string(token.size() + 1));

  EXPECT_EQ(e->AuthenticateByUser(kSite, kManagedUser, "wrong"), kAuthResultAuthFailed);
  EXPECT_EQ(Results(*e), kNone);
  auto text = [&](AuthResult (EntraId::*getter)(char*, size_t*) const) {
    return Fetch([&](char* b, size_t* s) { (e->*getter)(b, s); }) + "|";
  };
  EXPECT_EQ(text(&EntraId::GetClientId) + text(&EntraId::GetAuthority) + text(&EntraId::GetScope) + text(&EntraId::GetTenant),
            std::string(kClientId) + "|https://login.microsoftonline.com/|" + kUserScope + "||");
}

// At debug level with libcurl's verbose text, no flow logs a password, secret,
// key password, assertion, refresh token or access token.
TEST_F(EntraIdTest, NoSecretInTheLog) {
  ScopedLogCapture log(kLogLevelDebug);
  char dir[] = "/tmp/vantrel-verbose-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  AuthEngineConfig::SetTempLogDir(dir);
  {
    AuthEngine engine;
    EntraId* e = engine.EntraId();
    Configure(e);
    const TestCertificates& k = keys_;
    ASSERT_EQ(e->AuthenticateWithCertificate(kSite, k.cert_pem.c_str(), k.key_encrypted_pem.c_str(), k.key_password.c_str()),
              kAuthResultOk);
    e->EnableSiteCheck(false);
    ASSERT_EQ(e->AuthenticateWithClientSecret(kSite, kSecret), kAuthResultOk);
    e->EnableSiteCheck(true);
    entra_->SetAccessTokenLifetime(60);
    ASSERT_EQ(SignInAsUser(e), kAuthResultOk);
    ASSERT_EQ(e->AuthenticateSilent(kSite, kManagedUser), kAuthResultOk);
    EXPECT_EQ(e->AuthenticateByUser(kSite, kManagedUser, "wr0ngPa55"), kAuthResultAuthFailed);
  }
  EXPECT_EQ(rmdir(dir), 0);
  std::vector<std::string> secrets = {kUserPassword, "wr0ngPa55", kSecret, keys_.key_password};
  for (const std::string& token : entra_->IssuedAccessTokens()) secrets.push_back(token);
  for (const Request& request : TokenRequests()) {
    for (const char* name : {"client_assertion", "refresh_token"}) secrets.push_back(Decoded(request.body, name));
  }
  std::string all;
  for (const std::string& line : ScopedLogCapture::Lines()) all += line + "\n";
  EXPECT_NE(all.find("libcurl verbose output BEGIN"), std::string::npos);
  const std::string entry = "EntraId::AuthenticateByUser - Site: " + std::string(kSite) + ", User: " + kManagedUser;
  EXPECT_NE(all.find(entry + ", Pwd avail: Y"), std::string::npos);
  for (const std::string& secret : secrets) {
    if (secret == "<none>" || secret.empty()) continue;
    // Its leading run of characters a form leaves unencoded, or all of it when that run is short.
    size_t plain = 0;
    auto unencoded = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || std::strchr("-._~", c) != nullptr; };
    while (plain < std::min<size_t>(secret.size(), 40) && unencoded(secret[plain])) ++plain;
    EXPECT_EQ(all.find(plain >= 6 ? secret.substr(0, plain) : secret), std::string::npos) << secret.substr(0, 40);
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing

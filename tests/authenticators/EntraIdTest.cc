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
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "VantrelAuthEngine.h"
#include "authenticators/oauth/Base64Url.h"
#include "emulator/EntraService.h"
#include "support/Authenticators.h"
#include "support/LogCapture.h"
#include "support/OnlineTest.h"
#include "support/TestCertificates.h"

namespace Vantrel::Auth::testing {
namespace {

using Clock = std::chrono::steady_clock;
using Emulation::EntraError;
using Emulation::Request;
using Emulation::Response;

constexpr char kClientId[] = "3f6b9c2e-8d41-4a7e-b0c5-1e2d3f4a5b6c";
constexpr char kConfidentialId[] = "9a8b7c6d-0000-4e8a-9b2c-5d7e8f9a0b1c";  // no public client flows
constexpr char kTenant[] = "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c";       // the emulator's tenant
// Secrets start with letters and digits: so spelt, encoded or not, in a log.
constexpr char kSecret[] = "S3cr3tCl~ient.Value+/=";
constexpr char kUserPassword[] = "Pa55w0rdEntra&=%";
constexpr char kMfaUser[] = "megan@contoso.com";
const std::string kLogin = "login.microsoftonline.com";
const std::string kTokenPath = std::string("/") + kTenant + "/oauth2/v2.0/token";
const std::string kAppScope = "https://contoso.sharepoint.com/.default";
const std::string kUserScope = kAppScope + " offline_access openid profile";
const std::string kNothingCached = "No cached token for this site and application; sign in interactively first.";

// A form body's fields, decoded, in the order sent.
using Form = std::vector<std::pair<std::string, std::string>>;
std::string Decode(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    bool escape = text[i] == '%' && i + 2 < text.size() && std::isxdigit(text[i + 1]) && std::isxdigit(text[i + 2]);
    out += escape ? static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)) : text[i];
    if (escape) i += 2;
  }
  return out;
}
Form FormOf(const std::string& body) {
  Form form;
  std::istringstream fields(body);
  for (std::string field; std::getline(fields, field, '&');) {
    size_t equals = std::min(field.find('='), field.size());
    form.emplace_back(Decode(field.substr(0, equals)), Decode(field.substr(std::min(equals + 1, field.size()))));
  }
  return form;
}
std::string Field(const Form& form, const std::string& name) {
  for (const auto& field : form) if (field.first == name) return field.second;
  return "<none>";
}
std::string Names(const Form& form) {
  std::string names;
  for (const auto& field : form) names += (names.empty() ? "" : ",") + field.first;
  return names;
}
// The header lines the library chose: Authorization, Content-Type, Accept.
std::vector<std::string> Ours(const Request& request) {
  std::vector<std::string> lines;
  for (const std::string& line : request.header_lines) {
    for (const char* name : {"Authorization:", "Content-Type:", "Accept:"}) {
      if (line.rfind(name, 0) == 0) lines.push_back(line);
    }
  }
  return lines;
}
// A JWT's header (part 0) or claims (part 1).
nlohmann::json JwtPart(const std::string& jwt, int part) {
  size_t start = part == 0 ? 0 : jwt.find('.') + 1;
  std::string bytes;
  Base64UrlDecode(jwt.substr(start, jwt.find('.', start) - start), &bytes);
  return nlohmann::json::parse(bytes, nullptr, false);
}

// One GET with libcurl, through the emulator's proxy when `proxy` is set;
// the redirect's target, not followed.
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

// The user on the other side of a callback, on a thread of their own: a
// browser that loads the sign-in page and hands the (edited) redirect to the
// loopback port, or a device-code user who approves or declines.
struct User {
  std::function<void(const std::string&)> act = [](const std::string&) {};
  bool answer = true;
  std::string seen;  // the URL or the user code the callback got
  std::thread thread;
  ~User() { if (thread.joinable()) thread.join(); }
  static bool Called(const char* text, void* context) {
    User* user = static_cast<User*>(context);
    user->seen = text;
    user->thread = std::thread(user->act, user->seen);
    return user->answer;
  }
  static bool Browser(const char* url, void* context) { return Called(url, context); }
  static bool Device(const char*, const char* user_code, const char*, void* context) { return Called(user_code, context); }
};

class EntraIdTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    const TestCertificates& keys = TestCertificates::Shared();
    Emulation::EntraServiceOptions options;
    options.applications = {{kClientId, TestCertificates::ReadFile(keys.cert_pem), kSecret},
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
    std::vector<Request> found;
    for (const Request& request : emulator_.Requests()) if (request.path.find("/oauth2/v2.0/token") != std::string::npos) found.push_back(request);
    return found;
  }
  std::string Results(const EntraId& e) const {
    auto get = [&](AuthResult (EntraId::*getter)(char*, size_t*) const) {
      return Fetch([&](char* buffer, size_t* size) { (e.*getter)(buffer, size); });
    };
    return get(&EntraId::GetAccessToken) + "|" + get(&EntraId::GetAuthorizationHeader) + "|" +
           get(&EntraId::GetTenantId) + "|" + get(&EntraId::GetAccountName) + "|" + std::to_string(e.GetExpiresOn() != 0);
  }
  AuthResult SignInAsUser(EntraId* e = nullptr) { return (e ? e : entra())->AuthenticateByUser(kSite, kManagedUser, kUserPassword); }

  std::shared_ptr<Emulation::EntraServiceState> entra_;
};

// Each flow: discovery, the token request (headers, fields in order), the site
// check with the new token; a fresh object discovers the tenant again.
TEST_F(EntraIdTest, RequestsOfEachFlow) {
  const TestCertificates& keys = TestCertificates::Shared();
  const std::string discovery = "GET contoso.sharepoint.com /_vti_bin/client.svc", token = "POST " + kLogin + " " + kTokenPath,
                    site = "GET contoso.sharepoint.com /sites/team/_api/web";
  const struct { const char* name; std::function<AuthResult(EntraId*)> run; std::vector<std::string> lines; Form fixed; } rows[] = {
      {"certificate", [&](EntraId* e) { return e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.key_pem.c_str(), nullptr); },
       {discovery, token, site},
       {{"grant_type", "client_credentials"}, {"client_id", kClientId}, {"scope", kAppScope},
        {"client_assertion_type", "urn:ietf:params:oauth:client-assertion-type:jwt-bearer"}, {"client_assertion", "*"}}},
      {"secret", [](EntraId* e) { e->EnableSiteCheck(false); return e->AuthenticateWithClientSecret(kSite, kSecret); },
       {discovery, token}, {{"grant_type", "client_credentials"}, {"client_id", kClientId}, {"scope", kAppScope}, {"client_secret", kSecret}}},
      {"password", [](EntraId* e) { return e->AuthenticateByUser(kSite, kManagedUser, kUserPassword); },
       {discovery, token, site},
       {{"grant_type", "password"}, {"client_id", kClientId}, {"scope", kUserScope}, {"username", kManagedUser}, {"password", kUserPassword}}},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    EntraId fresh(entra()->GetNetworkControl());
    Configure(&fresh);
    ASSERT_EQ(row.run(&fresh), kAuthResultOk) << row.name << ": " << Detail(fresh);
    EXPECT_EQ(RequestLines(), row.lines) << row.name;
    std::vector<Request> sent = emulator_.Requests();
    EXPECT_EQ(sent[0].Header("Authorization").value_or("<none>"), "Bearer");
    EXPECT_EQ(Ours(sent[1]), (std::vector<std::string>{"Content-Type: application/x-www-form-urlencoded", "Accept: application/json"}));
    Form form = FormOf(sent[1].body);
    ASSERT_EQ(Names(form), Names(row.fixed)) << row.name;
    for (size_t i = 0; i < form.size(); ++i) {
      EXPECT_TRUE(row.fixed[i].second == "*" || form[i].second == row.fixed[i].second) << form[i].first;  // "*": fresh each time
    }
    if (row.lines.size() == 3) {
      const std::string header = Fetch([&](char* b, size_t* s) { fresh.GetAuthorizationHeader(b, s); });
      EXPECT_EQ(Ours(sent[2]), (std::vector<std::string>{"Authorization: " + header, "Accept: application/json;odata=verbose"}));
    }
    emulator_.ClearRequests();  // the tenant is kept: no second discovery
    ASSERT_EQ(row.run(&fresh), kAuthResultOk) << row.name;
    EXPECT_EQ(RequestLines(), std::vector<std::string>(row.lines.begin() + 1, row.lines.end())) << row.name;
  }
}

// The token endpoint's failures, by error and AADSTS code; a site that is
// not a token endpoint; an options-given tenant goes straight into the URL.
TEST_F(EntraIdTest, TokenEndpointFailures) {
  entra()->SetTenant("contoso.onmicrosoft.com");
  const struct { int status; const char* error; long code; AuthResult result; } scripted[] = {
      {400, "invalid_grant", 50126, kAuthResultAuthFailed},        {400, "invalid_grant", 50076, kAuthResultInteractionRequired},
      {400, "invalid_grant", 50079, kAuthResultInteractionRequired}, {400, "invalid_grant", 65001, kAuthResultInteractionRequired},
      {400, "invalid_grant", 53003, kAuthResultInteractionRequired}, {400, "invalid_grant", 700082, kAuthResultInteractionRequired},
      {400, "invalid_grant", 50173, kAuthResultInteractionRequired}, {400, "invalid_grant", 70043, kAuthResultInteractionRequired},
      {400, "interaction_required", 50158, kAuthResultInteractionRequired}, {400, "invalid_request", 90002, kAuthResultAuthFailed},
      {400, "unauthorized_client", 700016, kAuthResultAuthFailed}, {401, "invalid_client", 7000215, kAuthResultAuthFailed},
  };
  for (const auto& row : scripted) {
    entra_->FailNextToken({row.status, row.error, row.code, "The scripted reason."});
    EXPECT_EQ(SignInAsUser(), row.result) << row.code;
    EXPECT_EQ(Detail(*entra()), "AADSTS" + std::to_string(row.code) + ": The scripted reason.");
    EXPECT_EQ(Results(*entra()), "||||0");
  }
  const struct { Response answer; AuthResult result; const char* detail; } broken[] = {
      {Response::Text(503, "busy"), kAuthResultHttpError, "HTTP error reported.  Response code: 503"},
      {Response::Text(200, "{}", "application/json"), kAuthResultAuthFailed, "The token endpoint answered without an access token."},
      {Response::Text(200, "<html>sign in</html>", "text/html"), kAuthResultAuthFailed, "The token endpoint answered without an access token."},
      {Response::Text(200, R"({"access_token":)", "application/json"), kAuthResultAuthFailed, "The token endpoint answered without an access token."},
      {Response::Redirect(302, "https://elsewhere/"), kAuthResultAuthFailed, "The token endpoint answered without an access token."},
  };
  for (const auto& row : broken) {
    emulator_.ClearRequests();
    emulator_.Enqueue(row.answer);
    EXPECT_EQ(SignInAsUser(), row.result) << row.detail;
    EXPECT_EQ(Detail(*entra()), row.detail);
    EXPECT_EQ(RequestLines(), std::vector<std::string>{"POST " + kLogin + " /contoso.onmicrosoft.com/oauth2/v2.0/token"});
  }
}

// The challenge is read as a challenge, whatever the site sends; only a GUID
// realm is taken. Without one the detail says to set the tenant.
TEST_F(EntraIdTest, TenantFromHostileChallenges) {
  const std::string guid = "0f1e2d3c-4b5a-4968-8776-a5b4c3d2e1f0";
  const std::string kSetTheTenant = "The site did not name its tenant in a Bearer challenge; set the tenant (its GUID or domain) with SetTenant.";
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
    std::vector<std::string> lines = RequestLines();
    if (row.tenant.empty()) {
      EXPECT_EQ(result, kAuthResultAuthFailed) << row.challenges.size();
      EXPECT_EQ(Detail(fresh), kSetTheTenant);
      EXPECT_EQ(lines.size(), 1u);
    } else {
      ASSERT_EQ(lines.size(), 2u);  // the emulator's tenant is another: the point is where the request went
      EXPECT_EQ(lines[1], "POST " + kLogin + " /" + row.tenant + "/oauth2/v2.0/token");
    }
  }
}

// Invalid input ends the attempt before any request, with the last results gone.
TEST_F(EntraIdTest, InputIsCheckedBeforeAnyRequest) {
  const TestCertificates& keys = TestCertificates::Shared();
  EntraId* e = entra();
  const std::string weak = TestCertificates::ReadFile(keys.weak_cert_pem);
  const struct { std::function<AuthResult()> call; std::function<void()> setup; } rows[] = {
      {[&] { return e->AuthenticateByUser(nullptr, kManagedUser, kUserPassword); }, nullptr},
      {[&] { return e->AuthenticateByUser("ftp://contoso.sharepoint.com/", kManagedUser, kUserPassword); }, nullptr},
      {[&] { return e->AuthenticateByUser(kSite, nullptr, kUserPassword); }, nullptr},
      {[&] { return e->AuthenticateByUser(kSite, kManagedUser, ""); }, nullptr},
      {[&] { return e->AuthenticateByUser(kSite, kManagedUser, kUserPassword); }, [&] { e->SetClientId(nullptr); }},
      {[&] { return e->AuthenticateByUser(kSite, kManagedUser, kUserPassword); }, [&] { e->SetTenant("contoso.com/x?"); }},
      {[&] { return e->AuthenticateWithClientSecret(kSite, nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithClientSecret(kSite, kSecret); }, [&] { e->SetTenant("organizations"); }},
      {[&] { return e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.key_pem.c_str(), nullptr); }, [&] { e->SetTenant("Common"); }},
      {[&] { return e->AuthenticateWithCertificate(kSite, keys.weak_cert_pem.c_str(), keys.weak_key_pem.c_str(), nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithCertificate(kSite, keys.ec_cert_pem.c_str(), keys.ec_key_pem.c_str(), nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.other_key_pem.c_str(), nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.key_encrypted_pem.c_str(), "wrong"); }, nullptr},
      {[&] { return e->AuthenticateWithCertificateData(kSite, weak.data(), weak.size(), nullptr, 0, nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithDeviceCode(kSite, nullptr, nullptr); }, nullptr},
      {[&] { return e->AuthenticateWithBrowser(kSite, nullptr, nullptr, nullptr); }, nullptr},
      {[&] { return e->AuthenticateSilent("", nullptr); }, nullptr},
  };
  for (const auto& row : rows) {
    Configure(e);
    e->SetTenant(nullptr);
    ASSERT_EQ(SignInAsUser(), kAuthResultOk);
    emulator_.ClearRequests();
    if (row.setup) row.setup();
    EXPECT_EQ(row.call(), kAuthResultInvalidInput) << &row - rows;
    EXPECT_NE(Detail(*e), "") << &row - rows;
    EXPECT_EQ(Results(*e), "||||0") << &row - rows;
    EXPECT_TRUE(emulator_.Requests().empty()) << &row - rows;
  }
  EXPECT_EQ(EntraId(nullptr).AuthenticateSilent(kSite, nullptr), kAuthResultInternalError);
}

// PEM files (plain and encrypted key), PKCS#12 with and without a password,
// the same from memory, PS256 and RS256: each a fresh assertion.
TEST_F(EntraIdTest, CertificateSignIns) {
  const TestCertificates& keys = TestCertificates::Shared();
  const std::string cert = TestCertificates::ReadFile(keys.cert_pem), key = TestCertificates::ReadFile(keys.key_pem),
                    p12 = TestCertificates::ReadFile(keys.bundle_p12);
  EntraId* e = entra();
  const struct { EntraAssertionAlgorithm algorithm; std::function<AuthResult()> run; const char* thumbprint; } rows[] = {
      {kEntraAssertionPs256, [&] { return e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.key_pem.c_str(), nullptr); }, "x5t#S256"},
      {kEntraAssertionRs256, [&] { return e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.key_encrypted_pem.c_str(), keys.key_password.c_str()); }, "x5t"},
      {kEntraAssertionPs256, [&] { return e->AuthenticateWithCertificate(kSite, keys.bundle_p12.c_str(), nullptr, keys.bundle_password.c_str()); }, "x5t#S256"},
      {kEntraAssertionRs256, [&] { return e->AuthenticateWithCertificate(kSite, keys.bundle_nopass_p12.c_str(), "", nullptr); }, "x5t"},
      {kEntraAssertionPs256, [&] { return e->AuthenticateWithCertificateData(kSite, cert.data(), cert.size(), key.data(), key.size(), nullptr); }, "x5t#S256"},
      {kEntraAssertionRs256, [&] { return e->AuthenticateWithCertificateData(kSite, p12.data(), p12.size(), nullptr, 0, keys.bundle_password.c_str()); }, "x5t"},
  };
  std::vector<std::string> jtis;
  for (const auto& row : rows) {
    e->SetAssertionAlgorithm(row.algorithm);
    for (int twice = 0; twice < 2; ++twice) {  // a repeated jti would be refused
      ASSERT_EQ(row.run(), kAuthResultOk) << &row - rows << ": " << Detail(*e);
      const std::string jwt = Field(FormOf(TokenRequests().back().body), "client_assertion");
      const nlohmann::json header = JwtPart(jwt, 0), claims = JwtPart(jwt, 1);
      EXPECT_EQ(header.value("alg", ""), row.algorithm == kEntraAssertionPs256 ? "PS256" : "RS256");
      EXPECT_TRUE(header.contains(row.thumbprint) && header.size() == 3u) << header.dump();
      EXPECT_EQ(claims.value("aud", ""), "https://" + kLogin + kTokenPath);
      jtis.push_back(claims.value("jti", ""));
    }
    EXPECT_EQ(Results(*e).substr(Results(*e).find("|" + std::string(kTenant))), std::string("|") + kTenant + "||1");
  }
  std::sort(jtis.begin(), jtis.end());
  EXPECT_EQ(std::unique(jtis.begin(), jtis.end()), jtis.end());
}

// Password sign-in by account and application; the secret's app-only token
// is refused by the site in its own words unless the check is off.
TEST_F(EntraIdTest, PasswordAndSecretOutcomes) {
  const struct { const char* client; const char* user; const char* password; bool check; AuthResult result; std::string detail; } rows[] = {
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
    std::string expected = result != kAuthResultOk ? "||||0" : std::string(kTenant) + "|" + (row.user ? row.user : "") + "|1";
    EXPECT_EQ(Results(*entra()).substr(result != kAuthResultOk ? 0 : Results(*entra()).find(kTenant)), expected) << row.detail;
  }
  // A refused token is not cached: the app-only scope finds nothing.
  EntraId fresh(entra()->GetNetworkControl());
  Configure(&fresh);
  fresh.SetScope(kAppScope.c_str());
  EXPECT_EQ(fresh.AuthenticateWithClientSecret(kSite, kSecret), kAuthResultAuthFailed);
  EXPECT_EQ(fresh.AuthenticateSilent(kSite, nullptr), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(fresh), kNothingCached);
}

// Device code: pending until approved, slow_down for good, declined, expired
// (by the service or by the local deadline), the prompt saying no, Cancel.
TEST_F(EntraIdTest, DeviceCodeWaits) {
  entra()->SetTenant(kTenant);
  const std::string kExpired = "The device code expired before the sign-in was approved.";
  const struct { const char* name; std::function<void()> before; std::function<void(const std::string&)> act; bool answer;
                 AuthResult result; std::string detail; double at_least, at_most; } rows[] = {
      {"pending, approved", nullptr, [&](const std::string& c) { std::this_thread::sleep_for(std::chrono::milliseconds(1500)); entra_->ApproveDeviceCode(c, kManagedUser); },
       true, kAuthResultOk, "", 2, 4},
      {"slow_down", [&] { entra_->FailNextToken({400, "slow_down", 0, ""}); }, [&](const std::string& c) { entra_->ApproveDeviceCode(c, kManagedUser); },
       true, kAuthResultOk, "", 7, 9},
      {"declined", nullptr, [&](const std::string& c) { entra_->DeclineDeviceCode(c); }, true, kAuthResultAuthFailed, "", 1, 3},
      {"expired", [&] { entra_->FailNextToken({400, "expired_token", 70020, "Expired."}); }, nullptr, true, kAuthResultTimedOut, kExpired, 1, 3},
      {"deadline", [&] { emulator_.Enqueue(Response::Text(200, R"({"device_code":"d","user_code":"U1","verification_uri":"v","expires_in":1,"interval":1,"message":"m"})", "application/json")); },
       nullptr, true, kAuthResultTimedOut, kExpired, 1, 2},
      {"prompt says no", nullptr, nullptr, false, kAuthResultCancelled, "The device-code callback ended the sign-in.", 0, 1},
      // Cancelled in the 6 s wait that slow_down asked for.
      {"cancel", [&] { entra_->FailNextToken({400, "slow_down", 0, ""}); },
       [&](const std::string&) { std::this_thread::sleep_for(std::chrono::milliseconds(1500)); engine_->Cancel(); },
       true, kAuthResultCancelled, "The sign-in was cancelled.", 1.5, 2.5},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    if (row.before) row.before();
    User user;
    if (row.act) user.act = row.act;
    user.answer = row.answer;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(entra()->AuthenticateWithDeviceCode(kSite, &User::Device, &user), row.result) << row.name << ": " << Detail(*entra());
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_TRUE(seconds >= row.at_least && seconds <= row.at_most) << row.name << ": " << seconds;
    if (!row.detail.empty()) {
      EXPECT_EQ(Detail(*entra()), row.detail) << row.name;
    }
    if (row.result == kAuthResultOk) {
      EXPECT_NE(Results(*entra()).find(std::string("|") + kManagedUser + "|1"), std::string::npos);
    }
    const Request asked = emulator_.Requests().at(0);
    EXPECT_EQ(asked.path + " " + Names(FormOf(asked.body)), std::string("/") + kTenant + "/oauth2/v2.0/devicecode client_id,scope");
    for (const Request& poll : TokenRequests()) {
      EXPECT_EQ(Names(FormOf(poll.body)), "grant_type,client_id,device_code") << row.name;
      EXPECT_EQ(Field(FormOf(poll.body), "grant_type"), "urn:ietf:params:oauth:grant-type:device_code");
    }
    // Never faster than the interval: each poll follows a wait of a second at least.
    EXPECT_LE(static_cast<double>(TokenRequests().size()), seconds) << row.name;
  }
}

// The browser flow: the authorize URL, the redeemed code with the same
// redirect URI and the verifier of the challenge; a redirect that is not ours
// or an error; no redirect in time; Cancel while waiting.
TEST_F(EntraIdTest, BrowserSignIns) {
  entra()->SetTenant(kTenant);
  const std::string proxy = emulator_.ProxyUrl(), ca = emulator_.CaFile();
  auto deliver = [&](std::function<std::string(const std::string&)> edit) {
    return [=](const std::string& url) { std::string to = Get(url, proxy, ca); if (!to.empty()) Get(edit(to), "", ""); };
  };
  auto same = [](const std::string& to) { return to; };
  auto replace = [](const std::string& from, const std::string& with) {
    return [=](const std::string& to) {  // `with` in place of the query's start up to `from`
      size_t query = to.find('?');
      return to.substr(0, query) + with + to.substr(to.find(from, query) + from.size());
    };
  };
  const struct { const char* name; std::function<void(const std::string&)> act; bool answer; AuthResult result; std::string detail; } rows[] = {
      {"ok", deliver(same), true, kAuthResultOk, ""},
      {"wrong state", deliver([](std::string to) { return to.replace(to.find("state="), 6, "state=x"); }), true, kAuthResultAuthFailed,
       "The browser's redirect carried the wrong state; no token was requested."},
      {"error", deliver(replace("?", "?error=interaction_required&error_description=AADSTS50076%3A%20MFA.%0D%0ATrace%20ID%3A%201&")), true,
       kAuthResultInteractionRequired, "interaction_required: AADSTS50076: MFA."},
      {"refused", deliver(replace("?", "?error=access_denied&")), true, kAuthResultAuthFailed, "access_denied"},
      {"no browser", nullptr, false, kAuthResultCancelled, "No browser could be opened."},
      {"nothing comes", [](const std::string&) {}, true, kAuthResultTimedOut, "The browser's redirect did not come within 1 s."},
      {"cancel", [&](const std::string&) { std::this_thread::sleep_for(std::chrono::milliseconds(300)); engine_->Cancel(); }, true,
       kAuthResultCancelled, "The sign-in was cancelled."},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    entra()->SetBrowserTimeout(row.result == kAuthResultTimedOut ? 1 : 20);
    User browser;
    if (row.act) browser.act = row.act;
    browser.answer = row.answer;
    EXPECT_EQ(entra()->AuthenticateWithBrowser(kSite, kManagedUser, &User::Browser, &browser), row.result) << row.name;
    EXPECT_EQ(Detail(*entra()), row.detail) << row.name;
    EXPECT_EQ(TokenRequests().size(), row.result == kAuthResultOk ? 1u : 0u) << row.name;
    if (row.result != kAuthResultOk) continue;
    Request authorize = emulator_.Requests().at(0);
    for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
             {"client_id", kClientId}, {"response_type", "code"}, {"response_mode", "query"}, {"scope", kUserScope},
             {"code_challenge_method", "S256"}, {"login_hint", kManagedUser}}) {
      EXPECT_EQ(authorize.QueryParam(name).value_or("<none>"), value) << name;
    }
    EXPECT_EQ(authorize.QueryParam("state").value_or("").size(), 32u);
    const Form redeemed = FormOf(TokenRequests()[0].body);
    EXPECT_EQ(Names(redeemed), "grant_type,client_id,code,redirect_uri,code_verifier,scope");
    EXPECT_EQ(Field(redeemed, "redirect_uri"), authorize.QueryParam("redirect_uri").value_or(""));
    EXPECT_EQ(Field(redeemed, "redirect_uri").rfind("http://localhost:", 0), 0u);
    const std::string verifier = Field(redeemed, "code_verifier");
    unsigned char digest[32];
    EVP_Digest(verifier.data(), verifier.size(), digest, nullptr, EVP_sha256(), nullptr);
    EXPECT_EQ(authorize.QueryParam("code_challenge").value_or(""), Base64UrlEncode(digest, sizeof digest));
    EXPECT_EQ(verifier.size(), 64u);
    EXPECT_NE(Results(*entra()).find(std::string("|") + kManagedUser + "|1"), std::string::npos);
  }
}

// Silent: a hit costs no request; an expired token is refreshed with the newest
// refresh token; a revoked one needs the user; several accounts need a name;
// a cache file serves another object.
TEST_F(EntraIdTest, SilentSignIns) {
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, nullptr), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(*entra()), kNothingCached);
  EXPECT_TRUE(emulator_.Requests().empty());  // not even a discovery

  char dir[] = "/tmp/vantrel-entra-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string file = std::string(dir) + "/tokens.json";
  entra()->SetTokenCacheFile(file.c_str());
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  const std::string signed_in = Results(*entra());
  emulator_.ClearRequests();
  ASSERT_EQ(entra()->AuthenticateSilent(kSite, kManagedUser), kAuthResultOk);
  EXPECT_EQ(Results(*entra()), signed_in);
  EXPECT_TRUE(emulator_.Requests().empty());

  EntraId other(entra()->GetNetworkControl());  // another object, even another process
  Configure(&other);
  other.SetTokenCacheFile(file.c_str());
  ASSERT_EQ(other.AuthenticateSilent(kSite, nullptr), kAuthResultOk) << Detail(other);
  EXPECT_EQ(Results(other), signed_in);
  EXPECT_TRUE(emulator_.Requests().empty());

  // Tokens within the expiry margin: each silent sign-in refreshes, with the refresh token the last one brought.
  entra_->SetAccessTokenLifetime(60);
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  std::vector<std::string> sent_refresh_tokens;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(entra()->AuthenticateSilent(kSite, kManagedUser), kAuthResultOk) << Detail(*entra());
    const Form refresh = FormOf(TokenRequests().back().body);
    EXPECT_EQ(Names(refresh), "grant_type,client_id,refresh_token,scope");
    EXPECT_EQ(Field(refresh, "scope"), kUserScope);
    sent_refresh_tokens.push_back(Field(refresh, "refresh_token"));
    EXPECT_EQ(Results(*entra()).substr(Results(*entra()).find(kTenant)), std::string(kTenant) + "|" + kManagedUser + "|1");
  }
  EXPECT_NE(sent_refresh_tokens[0], sent_refresh_tokens[1]);
  entra_->RevokeRefreshTokens();
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, kManagedUser), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(*entra()).substr(0, 12), "AADSTS70043:");
  EXPECT_EQ(Results(*entra()), "||||0");

  entra_->SetAccessTokenLifetime(3600);
  User approver;
  approver.act = [&](const std::string& code) { entra_->ApproveDeviceCode(code, kMfaUser); };
  ASSERT_EQ(entra()->AuthenticateWithDeviceCode(kSite, &User::Device, &approver), kAuthResultOk);
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, nullptr), kAuthResultInteractionRequired);
  EXPECT_EQ(Detail(*entra()), "The token cache holds several accounts for this site and application; name the account.");
  EXPECT_EQ(entra()->AuthenticateSilent(kSite, kMfaUser), kAuthResultOk);
  EXPECT_NE(Results(*entra()).find(kMfaUser), std::string::npos);
  unlink(file.c_str());
  unlink((file + ".lock").c_str());
  EXPECT_EQ(rmdir(dir), 0);
}

// Results leave by the buffer protocol and go with a failed attempt; options stay.
TEST_F(EntraIdTest, ResultsAndOptionsAcrossAttempts) {
  EntraId* e = entra();
  EXPECT_EQ(std::make_tuple(e->GetBrowserTimeout(), e->IsSiteCheckEnabled(), e->GetAssertionAlgorithm()),
            std::make_tuple(300L, true, kEntraAssertionPs256));
  e->SetBrowserTimeout(-5);
  EXPECT_EQ(e->GetBrowserTimeout(), 300L);
  e->SetAuthority("https://login.microsoftonline.com/");
  e->SetScope(kUserScope.c_str());
  ASSERT_EQ(SignInAsUser(), kAuthResultOk);
  const std::string token = entra_->IssuedAccessTokens().back();
  size_t size = token.size();
  char small[4096] = "x";
  e->GetAccessToken(small, &size);
  EXPECT_EQ(std::make_pair(std::string(small), size), std::make_pair(std::string(), token.size() + 1));
  EXPECT_EQ(Results(*e), token + "|Bearer " + token + "|" + kTenant + "|" + kManagedUser + "|1");
  EXPECT_NEAR(static_cast<double>(e->GetExpiresOn()), static_cast<double>(std::time(nullptr) + 3600), 5);

  EXPECT_EQ(e->AuthenticateByUser(kSite, kManagedUser, "wrong"), kAuthResultAuthFailed);
  EXPECT_EQ(Results(*e), "||||0");
  auto text = [&](AuthResult (EntraId::*getter)(char*, size_t*) const) { return Fetch([&](char* b, size_t* s) { (e->*getter)(b, s); }); };
  EXPECT_EQ(text(&EntraId::GetClientId) + "|" + text(&EntraId::GetAuthority) + "|" + text(&EntraId::GetScope) + "|" + text(&EntraId::GetTenant),
            std::string(kClientId) + "|https://login.microsoftonline.com/|" + kUserScope + "|");
}

// At debug level with libcurl's verbose text, no flow logs a password, secret,
// key password, assertion, code or token; entry lines show only Y or N.
TEST_F(EntraIdTest, NoSecretInTheLog) {
  ScopedLogCapture log(kLogLevelDebug);
  const TestCertificates& keys = TestCertificates::Shared();
  char dir[] = "/tmp/vantrel-verbose-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  AuthEngineConfig::SetTempLogDir(dir);
  {
    AuthEngine engine;
    EntraId* e = engine.EntraId();
    Configure(e);
    ASSERT_EQ(e->AuthenticateWithCertificate(kSite, keys.cert_pem.c_str(), keys.key_encrypted_pem.c_str(), keys.key_password.c_str()), kAuthResultOk);
    e->EnableSiteCheck(false);
    ASSERT_EQ(e->AuthenticateWithClientSecret(kSite, kSecret), kAuthResultOk);
    e->EnableSiteCheck(true);
    entra_->SetAccessTokenLifetime(60);
    ASSERT_EQ(SignInAsUser(e), kAuthResultOk);
    ASSERT_EQ(e->AuthenticateSilent(kSite, kManagedUser), kAuthResultOk);
    EXPECT_EQ(e->AuthenticateByUser(kSite, kManagedUser, "wr0ngPa55"), kAuthResultAuthFailed);
  }
  EXPECT_EQ(rmdir(dir), 0);
  std::vector<std::string> secrets = {kUserPassword, "wr0ngPa55", kSecret, keys.key_password};
  for (const std::string& token : entra_->IssuedAccessTokens()) secrets.push_back(token);
  for (const Request& request : TokenRequests()) {
    for (const auto& [name, value] : FormOf(request.body)) {
      if (name != "grant_type" && name != "client_id" && name != "scope" && name != "username" && name != "client_assertion_type") secrets.push_back(value);
    }
  }
  std::string all;
  for (const std::string& line : ScopedLogCapture::Lines()) all += line + "\n";
  EXPECT_NE(all.find("libcurl verbose output BEGIN"), std::string::npos);
  EXPECT_NE(all.find("EntraId::AuthenticateByUser - Site: " + std::string(kSite) + ", User: " + kManagedUser + ", Pwd avail: Y"), std::string::npos);
  for (const std::string& secret : secrets) {
    // Its leading run of characters a form leaves unencoded, or the whole when that is short.
    size_t plain = 0;
    while (plain < std::min<size_t>(secret.size(), 40) && (std::isalnum(secret[plain]) || std::strchr("-._~", secret[plain]))) ++plain;
    const std::string probe = plain >= 6 ? secret.substr(0, plain) : secret;
    EXPECT_EQ(all.find(probe), std::string::npos) << probe;
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing

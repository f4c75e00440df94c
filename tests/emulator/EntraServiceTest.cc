// The emulated Entra ID and its site through plain libcurl. The sign-in tests
// drive every flow the library uses; here are the refusals no library request
// reaches, so the emulator takes nothing the real service turns down, and the
// program's --entra-* flags.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <initializer_list>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "emulator/EndpointSupport.h"
#include "emulator/EntraCertificate.h"
#include "emulator/EntraService.h"
#include "support/TestCertificates.h"

namespace Vantrel::Emulation {
namespace {

using nlohmann::json;
using Vantrel::Auth::testing::TestCertificates;

constexpr char kApp[] = "0b2c8f6e-1d4a-4c3b-9e5f-7a6b5c4d3e2f";      // certificate, secret
constexpr char kDesktop[] = "5d1e6f7a-8b9c-4d0e-a1f2-b3c4d5e6f708";  // public, no credential
constexpr char kSecret[] = "Xy8~Q_secret.value";
constexpr char kTenantId[] = "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c";
constexpr char kAuthority[] = "https://login.microsoftonline.com/";
constexpr char kToken[] = "https://login.microsoftonline.com/contoso.onmicrosoft.com/oauth2/v2.0/token";
constexpr char kDefault[] = "https://contoso.sharepoint.com/.default";
constexpr char kUserScope[] = "https://contoso.sharepoint.com/.default offline_access openid profile";
constexpr char kVerifier[] = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
constexpr char kChallenge[] = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";  // RFC 7636's example

struct Reply {
  long status = 0;
  std::string head;
  std::string body;
  json Json() const { return json::parse(body, nullptr, false); }
  std::string Header(const std::string& name) const {
    std::smatch match;
    std::regex line("(?:^|\n)" + name + ": ([^\r\n]*)", std::regex::icase);
    return std::regex_search(head, match, line) ? match[1].str() : "";
  }
};

size_t Append(char* data, size_t size, size_t count, void* out) {
  static_cast<std::string*>(out)->append(data, size * count);
  return size * count;
}

std::string Form(std::initializer_list<std::pair<const char*, std::string>> fields) {
  std::string body;
  for (const auto& field : fields) {
    body += (body.empty() ? "" : "&") + std::string(field.first) + "=" + PercentEncode(field.second);
  }
  return body;
}

std::string PasswordForm(const std::string& scope, const std::string& password = "Spring-2024") {
  return Form({{"grant_type", "password"}, {"client_id", kDesktop}, {"scope", scope},
               {"username", "adele@contoso.com"}, {"password", password}});
}

const TestCertificates& Keys() { return TestCertificates::Shared(); }

// The certificate kApp registers, as the service holds it.
const EntraCertificate& Registered() {
  static const auto certificate =
      EntraCertificate::FromPem(TestCertificates::ReadFile(Keys().cert_pem));
  return *certificate;
}

// A PS256 signature of `input` by the key in the PEM file `key_file`, with
// the given PSS salt length.
std::string Sign(const std::string& key_file, int salt, const std::string& input) {
  const std::string pem = TestCertificates::ReadFile(key_file);
  BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
  BIO_free(bio);
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* key_context = nullptr;
  EVP_DigestSignInit(context, &key_context, EVP_sha256(), nullptr, key);
  EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING);
  EVP_PKEY_CTX_set_rsa_pss_saltlen(key_context, salt);
  std::string signature(static_cast<size_t>(EVP_PKEY_get_size(key)), '\0');
  size_t size = signature.size();
  EVP_DigestSign(context, reinterpret_cast<unsigned char*>(&signature[0]), &size,
                 reinterpret_cast<const unsigned char*>(input.data()), input.size());
  EVP_MD_CTX_free(context);
  EVP_PKEY_free(key);
  signature.resize(size);
  return signature;
}

// A refusal with its status, error and code, and its description in the
// real service's shape.
void ExpectRefusal(const Reply& reply, long status, const std::string& error, long code) {
  json body = reply.Json();
  EXPECT_EQ(reply.status, status);
  EXPECT_EQ(body.value("error", ""), error);
  EXPECT_EQ(body.value("error_codes", json::array()), json::array({code}));
  const std::string guid = "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}";
  const std::string line = "AADSTS" + std::to_string(code) + ": [^\r\n]+\r\nTrace ID: " + guid + "\r\nCorrelation ID: " +
                           guid + "\r\nTimestamp: \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\dZ";
  EXPECT_TRUE(std::regex_match(body.value("error_description", ""), std::regex(line))) << body.value("error_description", "");
}

class EntraServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(emulator_.Start());
    proxy_ = emulator_.ProxyUrl();
    ca_file_ = emulator_.CaFile();
    EntraServiceOptions options;
    const std::string certificate = TestCertificates::ReadFile(Keys().cert_pem);
    options.applications = {{kApp, certificate, kSecret}, {kDesktop, "", ""}};
    options.accounts = {{"adele@contoso.com", "Spring-2024"}};
    options.device_code_interval = 1;
    service_ = InstallEntraService(&emulator_, options);
    InstallEntraSite(&emulator_, {}, service_);
    InstallEntraSite(&emulator_, {"fabrikam.sharepoint.com", "Sales"}, service_);
  }

  Reply Fetch(const std::string& url, const std::string& form = "", const std::string& authorization = "") const {
    Reply reply;
    CURL* curl = curl_easy_init();
    curl_slist* headers =
        authorization.empty() ? nullptr : curl_slist_append(nullptr, ("Authorization: " + authorization).c_str());
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROXY, proxy_.c_str());
    curl_easy_setopt(curl, CURLOPT_CAINFO, ca_file_.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    if (!form.empty()) curl_easy_setopt(curl, CURLOPT_POSTFIELDS, form.c_str());
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, Append);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply.head);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    EXPECT_EQ(curl_easy_perform(curl), CURLE_OK) << url;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return reply;
  }
  std::string AccessToken(const std::string& form) const { return Fetch(kToken, form).Json().value("access_token", ""); }

  // A PS256 client assertion for kApp; `edit` changes the header or claims
  // before signing.
  std::string Assertion(void (*edit)(json* header, json* claims), const std::string& key_file, int salt) const {
    long long now = time(nullptr);
    json header = {{"alg", "PS256"}, {"typ", "JWT"}, {"x5t#S256", Registered().ThumbprintSha256()}};
    json claims = {{"aud", kToken}, {"iss", kApp},  {"sub", kApp},       {"jti", RandomGuid()},
                   {"nbf", now},    {"iat", now},   {"exp", now + 600}};
    if (edit != nullptr) edit(&header, &claims);
    std::string input = Base64UrlEncode(header.dump()) + "." + Base64UrlEncode(claims.dump());
    return input + "." + Base64UrlEncode(Sign(key_file, salt, input));
  }
  Reply PresentAssertion(const std::string& assertion) const {
    return Fetch(kToken, Form({{"grant_type", "client_credentials"}, {"client_id", kApp}, {"scope", kDefault},
                               {"client_assertion_type", "urn:ietf:params:oauth:client-assertion-type:jwt-bearer"},
                               {"client_assertion", assertion}}));
  }

  Emulator emulator_;
  std::string proxy_;
  std::string ca_file_;
  std::shared_ptr<EntraServiceState> service_;
};

TEST_F(EntraServiceTest, ClientAssertionChecks) {
  const struct {
    const char* name;
    void (*edit)(json* header, json* claims);
    long code;  // 0: a token
    std::string key_file = Keys().key_pem;
    int salt = RSA_PSS_SALTLEN_DIGEST;
  } rows[] = {
      {"as the library makes it", nullptr, 0},
      {"signed with another key", nullptr, 700027, Keys().other_key_pem},
      {"PSS salt longer than the digest", nullptr, 700027, Keys().key_pem, RSA_PSS_SALTLEN_MAX},
      {"PS256 naming the SHA-1 thumbprint",
       [](json* h, json*) { *h = {{"alg", "PS256"}, {"x5t", Registered().ThumbprintSha1()}}; }, 700027},
      {"aud names the tenant GUID, the URL its domain",
       [](json*, json* c) { (*c)["aud"] = std::string(kAuthority) + kTenantId + "/oauth2/v2.0/token"; }, 50012},
      {"iss differs from sub", [](json*, json* c) { (*c)["sub"] = "someone-else"; }, 50048},
      {"expired", [](json*, json* c) { (*c)["exp"] = (*c)["nbf"] = (*c)["nbf"].get<long long>() - 900; }, 700024},
      {"lives an hour", [](json*, json* c) { (*c)["exp"] = (*c)["nbf"].get<long long>() + 3600; }, 700024},
      {"not valid before tomorrow", [](json*, json* c) { (*c)["nbf"] = (*c)["nbf"].get<long long>() + 86400; }, 700024},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string assertion = Assertion(row.edit, row.key_file, row.salt);
    if (row.code != 0) {
      ExpectRefusal(PresentAssertion(assertion), 401, "invalid_client", row.code);
      continue;
    }
    EXPECT_EQ(PresentAssertion(assertion).status, 200);
    ExpectRefusal(PresentAssertion(assertion), 401, "invalid_client", 50013);  // its jti again
  }
}

// A code is bound to its verifier and redirect URI and is taken once; an
// unregistered redirect URI gets the service's own page, never a redirect.
TEST_F(EntraServiceTest, AuthorizationCodeChecks) {
  const auto authorize = [](const std::string& redirect_uri) {
    return std::string(kAuthority) + "organizations/oauth2/v2.0/authorize?client_id=" + kDesktop +
           "&response_type=code&response_mode=query&scope=" + PercentEncode(kUserScope) + "&state=s&redirect_uri=" +
           PercentEncode(redirect_uri) + "&code_challenge=" + kChallenge + "&code_challenge_method=S256";
  };
  const auto new_code = [&] {
    std::smatch match;
    const std::string location = Fetch(authorize("http://localhost:4000")).Header("Location");
    EXPECT_TRUE(std::regex_search(location, match, std::regex("^http://localhost:4000\\?code=([^&]+)&"))) << location;
    return match.size() > 1 ? match[1].str() : "";
  };
  const auto redeem = [&](const std::string& code, const std::string& redirect_uri, const std::string& verifier) {
    return Fetch(kToken, Form({{"grant_type", "authorization_code"}, {"client_id", kDesktop}, {"code", code},
                               {"redirect_uri", redirect_uri}, {"code_verifier", verifier}, {"scope", kUserScope}}));
  };
  const std::string used = new_code();
  EXPECT_EQ(redeem(used, "http://localhost:4000", kVerifier).status, 200);
  const struct { const char* name; std::string code, redirect_uri, verifier; long error_code; } rows[] = {
      {"taken before", used, "http://localhost:4000", kVerifier, 54005},
      {"another verifier", new_code(), "http://localhost:4000", std::string(kVerifier, 42) + "Y", 501481},
      {"another redirect URI", new_code(), "http://localhost:4001", kVerifier, 50011},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ExpectRefusal(redeem(row.code, row.redirect_uri, row.verifier), 400, "invalid_grant", row.error_code);
  }
  Reply page = Fetch(authorize("https://evil.example/"));
  EXPECT_EQ(page.status, 400);
  EXPECT_NE(page.body.find("AADSTS50011: "), std::string::npos) << page.body;
}

// A poll sooner than the interval is told to slow down, and from then on this
// device code must wait five seconds longer.
TEST_F(EntraServiceTest, DeviceCodePolledTooSoonSlowsDown) {
  const std::string base = std::string(kAuthority) + "organizations/oauth2/v2.0/";
  const std::string device_code =
      Fetch(base + "devicecode", Form({{"client_id", kDesktop}, {"scope", kUserScope}})).Json().value("device_code", "");
  const auto poll = [&] {
    return Fetch(base + "token", Form({{"grant_type", "urn:ietf:params:oauth:grant-type:device_code"},
                                       {"client_id", kDesktop}, {"device_code", device_code}}));
  };
  // A second's interval, with some slack for a timer that fires early.
  ExpectRefusal(poll(), 400, "authorization_pending", 70016);
  std::this_thread::sleep_for(std::chrono::milliseconds(850));
  ExpectRefusal(poll(), 400, "authorization_pending", 70016);
  ExpectRefusal(poll(), 400, "slow_down", 70016);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  ExpectRefusal(poll(), 400, "slow_down", 70016);
}

TEST_F(EntraServiceTest, SiteRefusesTokensForOtherHostsExpiredOrFromASecret) {
  const std::string challenge =
      "Bearer realm=\"" + std::string(kTenantId) + "\",client_id=\"00000003-0000-0ff1-ce00-000000000000\","
      "trusted_issuers=\"00000001-0000-0000-c000-000000000000@*,D3776938-3DBA-481F-A652-4BEDFCAB7CD8@*,"
      "https://sts.windows.net/*/,https://login.microsoftonline.com/*/v2.0,"
      "00000003-0000-0ff1-ce00-000000000000@90140122-8516-11e1-8eff-49304924019b\","
      "authorization_uri=\"https://login.windows.net/common/oauth2/authorize\"";
  const std::string fabrikam = AccessToken(PasswordForm("https://fabrikam.sharepoint.com/.default"));
  const std::string secret = AccessToken(
      Form({{"grant_type", "client_credentials"}, {"client_id", kApp}, {"scope", kDefault}, {"client_secret", kSecret}}));
  service_->SetAccessTokenLifetime(0);
  const std::string expired = AccessToken(PasswordForm(kUserScope));
  const struct { const char* authorization; std::string token, reason; } rows[] = {
      {"Bearer", "", ""},  // the tenant challenge
      {"Bearer ", fabrikam, "Invalid audience Uri 'https://fabrikam.sharepoint.com'."},
      {"Bearer ", expired, "Invalid JWT token. The token is expired."},
      {"Bearer ", secret, "Unsupported app only token."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reason);
    Reply reply = Fetch("https://contoso.sharepoint.com/_api/web", "", row.authorization + row.token);
    EXPECT_EQ(reply.status, 401);
    EXPECT_EQ(reply.Header("WWW-Authenticate"), challenge);
    const std::string described = row.reason.empty() ? "Invalid JWT token. No token provided." : row.reason;
    EXPECT_EQ(reply.body, row.token == secret ? described : R"({"error_description":")" + described + "\"}");
    EXPECT_EQ(reply.Header("x-ms-diagnostics"),
              row.reason.empty() ? "" : "3000003;reason=\"" + row.reason + "\";category=\"invalid_client\"");
  }
}

// The program as scripts start it, its flags shaping the service.
TEST_F(EntraServiceTest, ProgramTakesTheEntraFlags) {
  char folder[] = "/tmp/vantrel-entra.XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string dir = folder;
  std::vector<std::string> flags = {VANTREL_EMULATOR_PROGRAM, "--entra-site", "contoso.sharepoint.com", "--entra-app",
                                    kDesktop, "--entra-account", "adele@contoso.com:Spring:2024",
                                    "--entra-token-lifetime", "120", "--ca-out", dir + "/ca.pem", "--ready-file",
                                    dir + "/ready"};
  pid_t pid = fork();
  if (pid == 0) {
    std::vector<char*> argv;
    for (std::string& flag : flags) argv.push_back(&flag[0]);
    argv.push_back(nullptr);
    if (freopen("/dev/null", "w", stdout) == nullptr || freopen("/dev/null", "w", stderr) == nullptr) _exit(126);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int http_port = 0;
  for (int i = 0; i < 200 && http_port == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::ifstream(dir + "/ready") >> http_port;
  }
  // From here on the test talks to the program.
  proxy_ = "http://127.0.0.1:" + std::to_string(http_port);
  ca_file_ = dir + "/ca.pem";
  json answer = http_port == 0 ? json() : Fetch(kToken, PasswordForm(kUserScope, "Spring:2024")).Json();
  EXPECT_EQ(answer.value("expires_in", 0), 120);
  EXPECT_EQ(Fetch("https://contoso.sharepoint.com/_api/web", "", "Bearer " + answer.value("access_token", "")).status,
            200);
  kill(pid, SIGTERM);
  int status = -1;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  for (const char* name : {"/ca.pem", "/ready"}) unlink((dir + name).c_str());
  EXPECT_EQ(rmdir(folder), 0);
}

}  // namespace
}  // namespace Vantrel::Emulation

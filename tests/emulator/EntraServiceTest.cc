// The emulated Entra ID and its SharePoint Online site, driven with plain
// libcurl through the emulator's proxy: what each endpoint answers, every
// check the real service makes, and the program's --entra-* flags.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
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
#include "emulator/EntraService.h"
#include "emulator/Office365Service.h"

namespace Vantrel::Emulation {
namespace {

using nlohmann::json;

constexpr char kApp[] = "0b2c8f6e-1d4a-4c3b-9e5f-7a6b5c4d3e2f";      // certificate, secret
constexpr char kDesktop[] = "5d1e6f7a-8b9c-4d0e-a1f2-b3c4d5e6f708";  // public, no credential
constexpr char kConfidential[] = "9f8e7d6c-5b4a-4392-8170-6f5e4d3c2b1a";
constexpr char kSecret[] = "Xy8~Q_secret.value";
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

// The claims of the id token in a token answer.
json IdClaims(const json& answer) {
  std::string token = answer.value("id_token", "");
  size_t first = token.find('.');
  size_t last = token.rfind('.');
  std::string claims;
  if (first == std::string::npos || last <= first ||
      !Base64UrlDecode(token.substr(first + 1, last - first - 1), &claims)) {
    return json();
  }
  return json::parse(claims, nullptr, false);
}

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

// An RSA key and a self-signed certificate for it, as an application registers one.
struct Credential {
  EVP_PKEY* key = EVP_RSA_gen(2048);
  X509* certificate = X509_new();
  Credential() {
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
    X509_set_pubkey(certificate, key);
    X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
    X509_sign(certificate, key, EVP_sha256());
  }
  ~Credential() {
    X509_free(certificate);
    EVP_PKEY_free(key);
  }
  std::string Pem() const {
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, certificate);
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(size));
    BIO_free(bio);
    return pem;
  }
  std::string Thumbprint(const EVP_MD* digest) const {
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    X509_digest(certificate, digest, value, &size);
    return Base64UrlEncode(std::string(reinterpret_cast<char*>(value), size));
  }
};

std::string Sign(EVP_PKEY* key, const std::string& algorithm, int salt, const std::string& input) {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* key_context = nullptr;
  EVP_DigestSignInit(context, &key_context, EVP_sha256(), nullptr, key);
  if (algorithm == "PS256") {
    EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING);
    EVP_PKEY_CTX_set_rsa_pss_saltlen(key_context, salt);
  }
  size_t size = 0;
  EVP_DigestSign(context, nullptr, &size, reinterpret_cast<const unsigned char*>(input.data()), input.size());
  std::string signature(size, '\0');
  EVP_DigestSign(context, reinterpret_cast<unsigned char*>(&signature[0]), &size,
                 reinterpret_cast<const unsigned char*>(input.data()), input.size());
  EVP_MD_CTX_free(context);
  signature.resize(size);
  return signature;
}

class EntraServiceTest : public ::testing::Test {
 public:
  // Made once: RSA keys take a while.
  static Credential* registered_;
  static Credential* stranger_;

 protected:
  static void SetUpTestSuite() {
    registered_ = new Credential;
    stranger_ = new Credential;
  }
  static void TearDownTestSuite() {
    delete registered_;
    delete stranger_;
  }

  void SetUp() override {
    ASSERT_TRUE(emulator_.Start());
    proxy_ = emulator_.ProxyUrl();
    ca_file_ = emulator_.CaFile();
    EntraServiceOptions options;
    options.applications = {{kApp, registered_->Pem(), kSecret, true, {"http://localhost"}},
                            {kDesktop, "", "", true, {"http://localhost"}},
                            {kConfidential, "", "Conf-Secret", false, {}}};
    options.accounts = {{"adele@contoso.com", "Spring-2024", false}, {"megan@contoso.com", "Autumn-77", true}};
    options.device_code_interval = 1;
    service_ = InstallEntraService(&emulator_, options);
    InstallEntraSite(&emulator_, {}, service_);
    InstallEntraSite(&emulator_, {"fabrikam.sharepoint.com", "Sales"}, service_);
    // The retired sign-in's service shares the host name.
    InstallOffice365Service(&emulator_, {});
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

  Reply Password(const std::string& user, const std::string& password, const std::string& scope = kUserScope) const {
    return Fetch(kToken, Form({{"grant_type", "password"},
                               {"client_id", kDesktop},
                               {"scope", scope},
                               {"username", user},
                               {"password", password}}));
  }
  std::string AccessToken(const Reply& reply) const { return reply.Json().value("access_token", ""); }

  // A client assertion for kApp; `edit` changes the header or claims before signing.
  std::string Assertion(void (*edit)(json* header, json* claims) = nullptr, const Credential* signer = registered_,
                        int salt = RSA_PSS_SALTLEN_DIGEST) const {
    long long now = time(nullptr);
    json header = {{"alg", "PS256"}, {"typ", "JWT"}, {"x5t#S256", registered_->Thumbprint(EVP_sha256())}};
    json claims = {{"aud", token_url_}, {"iss", kApp}, {"sub", kApp},     {"jti", RandomGuid()},
                   {"nbf", now},    {"iat", now},  {"exp", now + 600}};
    if (edit != nullptr) edit(&header, &claims);
    std::string input = Base64UrlEncode(header.dump()) + "." + Base64UrlEncode(claims.dump());
    return input + "." + Base64UrlEncode(Sign(signer->key, header.value("alg", ""), salt, input));
  }
  Reply PresentAssertion(const std::string& assertion) const {
    return Fetch(token_url_, Form({{"grant_type", "client_credentials"},
                                   {"client_id", kApp},
                                   {"scope", kDefault},
                                   {"client_assertion_type", "urn:ietf:params:oauth:client-assertion-type:jwt-bearer"},
                                   {"client_assertion", assertion}}));
  }
  Reply StartDeviceCode(const std::string& authority = kAuthority) const {
    return Fetch(authority + "organizations/oauth2/v2.0/devicecode",
                 Form({{"client_id", kDesktop}, {"scope", kUserScope}}));
  }
  Reply PollDeviceCode(const Reply& started, const std::string& authority = kAuthority) const {
    return Fetch(authority + "organizations/oauth2/v2.0/token",
                 Form({{"grant_type", "urn:ietf:params:oauth:grant-type:device_code"},
                       {"client_id", kDesktop},
                       {"device_code", started.Json().value("device_code", "")}}));
  }

  Emulator emulator_;
  std::string proxy_;
  std::string ca_file_;
  std::string token_url_ = kToken;
  std::shared_ptr<EntraServiceState> service_;
};

Credential* EntraServiceTest::registered_ = nullptr;
Credential* EntraServiceTest::stranger_ = nullptr;

void UseRs256(json* header, json*) {
  *header = {{"alg", "RS256"}, {"typ", "JWT"}, {"x5t", EntraServiceTest::registered_->Thumbprint(EVP_sha1())}};
}

// A refusal with its status, error and code, and its description in the
// real service's shape.
void ExpectRefusal(const Reply& reply, long status, const std::string& error, long code) {
  json body = reply.Json();
  EXPECT_EQ(reply.status, status);
  EXPECT_EQ(body.value("error", ""), error);
  EXPECT_EQ(body.value("error_codes", json::array()), json::array({code}));
  const std::string guid = "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}";
  EXPECT_TRUE(std::regex_match(
      body.value("error_description", ""),
      std::regex("AADSTS" + std::to_string(code) + ": [^\r\n]+\r\nTrace ID: " + guid + "\r\nCorrelation ID: " + guid +
                 "\r\nTimestamp: \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\dZ")))
      << body.value("error_description", "");
}

TEST_F(EntraServiceTest, TokenEndpointGrantsAndRefusals) {
  const std::string secret_app = Form({{"grant_type", "client_credentials"}, {"client_id", kApp}, {"scope", kDefault}});
  const std::string desktop = Form({{"client_id", kDesktop}, {"scope", kUserScope}});
  const std::string adele =
      Form({{"grant_type", "password"}, {"username", "Adele@Contoso.com"}, {"password", "Spring-2024"}});
  struct Row {
    const char* name;
    std::string tenant;
    std::string form;
    long status;  // 200: a token; refresh and id token only for user scopes
    const char* error;
    long code;
  } rows[] = {
      {"secret app-only", "contoso.com", secret_app + "&client_secret=" + kSecret, 200, "", 0},
      {"password, name in any case", "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c", desktop + "&" + adele, 200, "", 0},
      {"password over organizations", "organizations", desktop + "&" + adele, 200, "", 0},
      {"bad password", "contoso.com", desktop + "&grant_type=password&username=adele@contoso.com&password=x", 400,
       "invalid_grant", 50126},
      {"unknown user", "contoso.com", desktop + "&grant_type=password&username=eve@contoso.com&password=x", 400,
       "invalid_grant", 50034},
      {"MFA account", "contoso.com", desktop + "&grant_type=password&username=megan@contoso.com&password=Autumn-77",
       400, "invalid_grant", 50076},
      {"password over common", "common", desktop + "&" + adele, 400, "invalid_request", 9001023},
      {"unknown tenant", "fabrikam.com", desktop + "&" + adele, 400, "invalid_request", 90002},
      {"unknown application", "contoso.com", "client_id=00000000-0000-0000-0000-000000000001&scope=x&" + adele, 400,
       "unauthorized_client", 700016},
      {"public client flows off", "contoso.com", adele + "&scope=" + kDefault + "&client_id=" + kConfidential, 401,
       "invalid_client", 7000218},
      {"wrong secret", "contoso.com", secret_app + "&client_secret=Conf-Secret", 401, "invalid_client", 7000215},
      {"app-only without credential", "contoso.com", secret_app, 401, "invalid_client", 7000216},
      {"app-only over organizations", "organizations", secret_app + "&client_secret=" + kSecret, 400, "invalid_request",
       9001023},
      {"app-only asks for a refresh token", "contoso.com",
       "grant_type=client_credentials&client_secret=" + std::string(kSecret) + "&client_id=" + kApp +
           "&scope=" + PercentEncode(kUserScope),
       400, "invalid_scope", 1002012},
      {"two resources", "contoso.com",
       adele + "&client_id=" + kDesktop +
           "&scope=" + PercentEncode(std::string(kDefault) + " https://fabrikam.sharepoint.com/.default"),
       400, "invalid_scope", 28000},
      {"no grant type", "contoso.com", desktop, 400, "invalid_request", 900144},
      {"unknown grant type", "contoso.com", desktop + "&grant_type=implicit", 400, "unsupported_grant_type", 70003},
      {"a field twice", "contoso.com", desktop + "&" + adele + "&password=Spring-2024", 400, "invalid_request",
       9002313},
      {"unknown refresh token", "contoso.com", desktop + "&grant_type=refresh_token&refresh_token=1.AXkAforged", 400,
       "invalid_grant", 9002313},
      {"unknown device code", "contoso.com",
       desktop + "&grant_type=urn:ietf:params:oauth:grant-type:device_code&device_code=DAQ", 400,
       "bad_verification_code", 70018},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Reply reply = Fetch(kAuthority + row.tenant + "/oauth2/v2.0/token", row.form);
    if (row.status != 200) {
      ExpectRefusal(reply, row.status, row.error, row.code);
      continue;
    }
    json body = reply.Json();
    ASSERT_EQ(reply.status, 200) << reply.body;
    EXPECT_EQ(body.value("token_type", ""), "Bearer");
    EXPECT_EQ(body.value("expires_in", 0), 3600);
    EXPECT_EQ(service_->IssuedAccessTokens().back(), AccessToken(reply));
    const bool user = body.contains("scope");
    EXPECT_EQ(body.contains("refresh_token"), user);
    if (!user) continue;
    EXPECT_EQ(IdClaims(body).value("preferred_username", ""), "adele@contoso.com");
    EXPECT_EQ(IdClaims(body).value("tid", ""), service_->options().tenant_id);
  }
  // Without offline_access and openid, the access token alone.
  json lean = Password("adele@contoso.com", "Spring-2024", kDefault).Json();
  EXPECT_TRUE(lean.contains("access_token"));
  EXPECT_FALSE(lean.contains("refresh_token") || lean.contains("id_token"));
  EXPECT_EQ(service_->TokenRequests(), static_cast<int>(std::size(rows)) + 1);
  EXPECT_EQ(Fetch(std::string(kAuthority) + "GetUserRealm.srf?login=adele@contoso.com").status, 200);
}

TEST_F(EntraServiceTest, ClientAssertionChecks) {
  struct Row {
    const char* name;
    void (*edit)(json* header, json* claims);
    const Credential* signer;
    int salt;
    long code;  // 0: a token
  } rows[] = {
      {"PS256 with x5t#S256", nullptr, registered_, RSA_PSS_SALTLEN_DIGEST, 0},
      {"RS256 with x5t", UseRs256, registered_, 0, 0},
      {"signed with another key", nullptr, stranger_, RSA_PSS_SALTLEN_DIGEST, 700027},
      {"PSS salt longer than the digest", nullptr, registered_, RSA_PSS_SALTLEN_MAX, 700027},
      {"PS256 naming the SHA-1 thumbprint",
       [](json* h, json*) {
         h->erase("x5t#S256");
         (*h)["x5t"] = registered_->Thumbprint(EVP_sha1());
       },
       registered_, RSA_PSS_SALTLEN_DIGEST, 700027},
      {"aud names the tenant GUID, the URL its domain",
       [](json*, json* c) {
         (*c)["aud"] = std::string(kAuthority) + "6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c/oauth2/v2.0/token";
       },
       registered_, RSA_PSS_SALTLEN_DIGEST, 50012},
      {"iss differs from sub", [](json*, json* c) { (*c)["sub"] = "someone-else"; }, registered_,
       RSA_PSS_SALTLEN_DIGEST, 50048},
      {"expired",
       [](json*, json* c) {
         (*c)["nbf"] = (*c)["nbf"].get<long long>() - 900;
         (*c)["exp"] = (*c)["exp"].get<long long>() - 900;
       },
       registered_, RSA_PSS_SALTLEN_DIGEST, 700024},
      {"lives an hour", [](json*, json* c) { (*c)["exp"] = (*c)["nbf"].get<long long>() + 3600; }, registered_,
       RSA_PSS_SALTLEN_DIGEST, 700024},
      {"not valid before tomorrow", [](json*, json* c) { (*c)["nbf"] = (*c)["nbf"].get<long long>() + 86400; },
       registered_, RSA_PSS_SALTLEN_DIGEST, 700024},
      {"no jti", [](json*, json* c) { c->erase("jti"); }, registered_, RSA_PSS_SALTLEN_DIGEST, 50027},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Reply reply = PresentAssertion(Assertion(row.edit, row.signer, row.salt));
    if (row.code == 0) {
      EXPECT_EQ(reply.status, 200) << reply.body;
      EXPECT_FALSE(reply.Json().contains("refresh_token"));
    } else {
      ExpectRefusal(reply, 401, "invalid_client", row.code);
    }
  }
  // An assertion is taken once.
  const std::string once = Assertion();
  EXPECT_EQ(PresentAssertion(once).status, 200);
  ExpectRefusal(PresentAssertion(once), 401, "invalid_client", 50013);
}

TEST_F(EntraServiceTest, RefreshRotatesUntilRevokedAndScriptedFailuresComeOnce) {
  const std::string first = Password("adele@contoso.com", "Spring-2024").Json().value("refresh_token", "");
  auto refresh = [this](const std::string& token, const char* client) {
    return Fetch(kToken, Form({{"grant_type", "refresh_token"},
                               {"client_id", client},
                               {"refresh_token", token},
                               {"scope", "https://fabrikam.sharepoint.com/.default openid"}}));
  };
  json renewed = refresh(first, kDesktop).Json();
  ASSERT_TRUE(renewed.contains("access_token"));
  EXPECT_NE(renewed.value("refresh_token", first), first);
  EXPECT_EQ(Fetch("https://fabrikam.sharepoint.com/_api/web", "", "Bearer " + renewed.value("access_token", "")).status,
            200);
  EXPECT_EQ(refresh(first, kDesktop).status, 200);  // the old one stays good
  ExpectRefusal(refresh(first, kApp), 400, "invalid_grant", 70000);

  service_->RevokeRefreshTokens();
  ExpectRefusal(refresh(renewed.value("refresh_token", ""), kDesktop), 400, "invalid_grant", 70043);

  service_->FailNextToken(
      {400, "interaction_required", 53003, "Access has been blocked by Conditional Access policies."});
  ExpectRefusal(Password("adele@contoso.com", "Spring-2024"), 400, "interaction_required", 53003);
  EXPECT_EQ(Password("adele@contoso.com", "Spring-2024").status, 200);
}

TEST_F(EntraServiceTest, DeviceCodeWaitsForTheUserAndKeepsThePace) {
  Reply pending = StartDeviceCode();
  json started = pending.Json();
  const std::string user_code = started.value("user_code", "");
  EXPECT_TRUE(std::regex_match(user_code, std::regex("[B-DF-HJ-NP-TV-XZ2-9]{9}"))) << user_code;
  EXPECT_EQ(started.value("verification_uri", ""), "https://microsoft.com/devicelogin");
  EXPECT_EQ(started.value("message", ""),
            "To sign in, use a web browser to open the page "
            "https://microsoft.com/devicelogin and enter the code " +
                user_code + " to authenticate.");
  EXPECT_EQ(started.value("interval", 0), 1);
  EXPECT_EQ(started.value("expires_in", 0), 900);
  EXPECT_EQ(service_->PendingUserCodes(), std::vector<std::string>{user_code});

  // A second's interval, with some slack for a timer that fires early; a
  // poll too soon adds five seconds for this device code from then on.
  ExpectRefusal(PollDeviceCode(pending), 400, "authorization_pending", 70016);
  std::this_thread::sleep_for(std::chrono::milliseconds(850));
  ExpectRefusal(PollDeviceCode(pending), 400, "authorization_pending", 70016);
  ExpectRefusal(PollDeviceCode(pending), 400, "slow_down", 70016);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  ExpectRefusal(PollDeviceCode(pending), 400, "slow_down", 70016);

  // Approved through the control call, as a script does it.
  Reply approved = StartDeviceCode();
  const std::string control = std::string(kAuthority) + "_emulator/devicecode/";
  EXPECT_EQ(Fetch(control + "approve", Form({{"user_code", "nobody"}})).status, 404);
  EXPECT_EQ(Fetch(control + "approve",
                  Form({{"user_code", approved.Json().value("user_code", "")}, {"account", "megan@contoso.com"}}))
                .status,
            200);
  json tokens = PollDeviceCode(approved).Json();
  EXPECT_TRUE(tokens.contains("refresh_token"));
  EXPECT_EQ(IdClaims(tokens).value("preferred_username", ""), "megan@contoso.com");
  ExpectRefusal(PollDeviceCode(approved), 400, "invalid_grant", 54005);

  Reply declined = StartDeviceCode();
  EXPECT_TRUE(service_->DeclineDeviceCode(declined.Json().value("user_code", "")));
  ExpectRefusal(PollDeviceCode(declined), 400, "authorization_declined", 70000);

  // A code that lives no time at all, from a service in another cloud.
  EntraServiceOptions us;
  us.authority_host = "login.microsoftonline.us";
  us.applications = {{kDesktop, "", "", true, {}}};
  us.device_code_lifetime = 0;
  InstallEntraService(&emulator_, us);
  Reply expired = StartDeviceCode("https://login.microsoftonline.us/");
  EXPECT_EQ(expired.Json().value("verification_uri", ""), "https://microsoft.com/deviceloginus");
  ExpectRefusal(PollDeviceCode(expired, "https://login.microsoftonline.us/"), 400, "expired_token", 70019);
}

TEST_F(EntraServiceTest, AuthorizeRedirectsWithACodeBoundToItsVerifier) {
  const auto authorize = [](const std::string& redirect_uri, const std::string& extra,
                            const std::string& pkce =
                                std::string("&code_challenge=") + kChallenge + "&code_challenge_method=S256") {
    return std::string(kAuthority) + "organizations/oauth2/v2.0/authorize?client_id=" + kDesktop +
           "&response_mode=query&scope=" + PercentEncode(kUserScope) +
           "&state=st%2Fate&redirect_uri=" + PercentEncode(redirect_uri) + pkce + extra;
  };
  auto code_of = [&](const std::string& redirect_uri, const std::string& extra) {
    Reply reply = Fetch(authorize(redirect_uri, "&response_type=code" + extra));
    std::smatch match;
    std::string location = reply.Header("Location");
    EXPECT_TRUE(std::regex_search(location, match, std::regex("^" + redirect_uri + "\\?code=([^&]+)&state=st%2Fate&")))
        << reply.status << " " << location;
    return match.size() > 1 ? match[1].str() : "";
  };
  auto redeem = [&](const std::string& code, const std::string& redirect_uri, const std::string& verifier) {
    return Fetch(kToken, Form({{"grant_type", "authorization_code"},
                               {"client_id", kDesktop},
                               {"code", code},
                               {"redirect_uri", redirect_uri},
                               {"code_verifier", verifier},
                               {"scope", kUserScope}}));
  };
  // The port of a loopback redirect doesn't count; login_hint picks the account.
  const std::string code = code_of("http://localhost:53123", "&login_hint=megan%40contoso.com");
  json tokens = redeem(code, "http://localhost:53123", kVerifier).Json();
  EXPECT_EQ(IdClaims(tokens).value("preferred_username", ""), "megan@contoso.com");
  ExpectRefusal(redeem(code, "http://localhost:53123", kVerifier), 400, "invalid_grant", 54005);
  ExpectRefusal(redeem(code_of("http://localhost:4000", ""), "http://localhost:4000", std::string(kVerifier, 42) + "Y"),
                400, "invalid_grant", 501481);
  ExpectRefusal(redeem(code_of("http://localhost:4000", ""), "http://localhost:4001", kVerifier), 400, "invalid_grant",
                50011);

  // Refusals: on the service's page while the redirect URI is not known
  // good, else back to it with the state.
  struct Row {
    const char* name;
    std::string url;
    long status;
    std::string expected;  // in the page or the Location
  } rows[] = {
      {"unregistered redirect URI", authorize("https://evil.example/", "&response_type=code"), 400, "AADSTS50011: "},
      {"unknown application",
       std::string(kAuthority) + "contoso.com/oauth2/v2.0/authorize?client_id=x&redirect_uri=http://localhost", 400,
       "AADSTS700016: "},
      {"no code challenge", authorize("http://localhost", "&response_type=code", ""), 302,
       "http://localhost?error=invalid_request&error_description=AADSTS9002325%3A%20"},
      {"plain challenge",
       authorize("http://localhost", "&response_type=code",
                 std::string("&code_challenge_method=plain&code_challenge=") + kVerifier),
       302, "?error=invalid_request&"},
      {"implicit grant", authorize("http://localhost", "&response_type=token"), 302,
       "?error=unsupported_response_type&"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Reply reply = Fetch(row.url);
    EXPECT_EQ(reply.status, row.status);
    EXPECT_NE((reply.body + reply.Header("Location")).find(row.expected), std::string::npos)
        << reply.body << reply.head;
    if (row.status == 302) {
      EXPECT_NE(reply.Header("Location").find("&state=st%2Fate"), std::string::npos);
    }
  }
  EXPECT_EQ(service_->IssuedAccessTokens().size(), 1u);
}

TEST_F(EntraServiceTest, SiteTakesOnlyLiveTokensForItsOwnHost) {
  const std::string challenge =
      "Bearer realm=\"6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c\",client_id=\"00000003-0000-0ff1-ce00-000000000000\","
      "trusted_issuers=\"00000001-0000-0000-c000-000000000000@*,D3776938-3DBA-481F-A652-4BEDFCAB7CD8@*,"
      "https://sts.windows.net/*/,https://login.microsoftonline.com/*/v2.0,"
      "00000003-0000-0ff1-ce00-000000000000@90140122-8516-11e1-8eff-49304924019b\","
      "authorization_uri=\"https://login.windows.net/common/oauth2/authorize\"";
  const std::string certificate = AccessToken(PresentAssertion(Assertion()));
  const std::string user = AccessToken(Password("adele@contoso.com", "Spring-2024"));
  const std::string fabrikam =
      AccessToken(Password("adele@contoso.com", "Spring-2024", "https://fabrikam.sharepoint.com/.default"));
  const std::string secret = AccessToken(Fetch(kToken, Form({{"grant_type", "client_credentials"},
                                                             {"client_id", kApp},
                                                             {"scope", kDefault},
                                                             {"client_secret", kSecret}})));
  service_->SetAccessTokenLifetime(0);
  const std::string expired = AccessToken(Password("adele@contoso.com", "Spring-2024"));
  const auto diagnostics = [](const std::string& reason) {
    return "3000003;reason=\"" + reason + "\";category=\"invalid_client\"";
  };
  struct Row {
    const char* name;
    std::string path;
    std::string authorization;
    long status;
    std::string body;         // 200: the web's URL in it; 401: all of it
    std::string diagnostics;  // x-ms-diagnostics
  } rows[] = {
      {"tenant challenge", "/_vti_bin/client.svc", "Bearer", 401,
       R"({"error_description":"Invalid JWT token. No token provided."})", ""},
      {"certificate app-only", "/sites/team/_api/web", "Bearer " + certificate, 200,
       "\"Url\":\"https://contoso.sharepoint.com/sites/team\"", ""},
      {"user token, scheme in lower case", "/_api/web", "bearer " + user, 200, "\"ServerRelativeUrl\":\"/\"", ""},
      {"token for another site", "/_api/web", "Bearer " + fabrikam, 401,
       R"({"error_description":"Invalid audience Uri 'https://fabrikam.sharepoint.com'."})",
       diagnostics("Invalid audience Uri 'https://fabrikam.sharepoint.com'.")},
      {"expired token", "/_api/web", "Bearer " + expired, 401,
       R"({"error_description":"Invalid JWT token. The token is expired."})",
       diagnostics("Invalid JWT token. The token is expired.")},
      {"token nobody issued", "/_api/web", "Bearer " + user + "x", 401, R"({"error_description":"Invalid signature."})",
       diagnostics("Invalid signature.")},
      {"secret app-only token", "/_api/web", "Bearer " + secret, 401, "Unsupported app only token.",
       diagnostics("Unsupported app only token.")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Reply reply = Fetch("https://contoso.sharepoint.com" + row.path, "", row.authorization);
    EXPECT_EQ(reply.status, row.status);
    if (row.status == 200) {
      EXPECT_NE(reply.body.find(row.body), std::string::npos) << reply.body;
      EXPECT_EQ(reply.Json()["d"].value("Title", ""), "Team Site");
      continue;
    }
    EXPECT_EQ(reply.body, row.body);
    EXPECT_EQ(reply.Header("WWW-Authenticate"), challenge);
    EXPECT_EQ(reply.Header("x-ms-diagnostics"), row.diagnostics);
  }
}

// The program with every --entra-* flag, as scripts start it.
TEST_F(EntraServiceTest, ProgramTakesTheEntraFlags) {
  char folder[] = "/tmp/vantrel-entra.XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string dir = folder;
  std::ofstream(dir + "/app.pem") << registered_->Pem();
  auto start = [&](std::vector<std::string> flags) {
    flags.insert(flags.begin(), VANTREL_EMULATOR_PROGRAM);
    pid_t pid = fork();
    if (pid == 0) {
      std::vector<char*> argv;
      for (std::string& flag : flags) argv.push_back(&flag[0]);
      argv.push_back(nullptr);
      if (freopen("/dev/null", "w", stdout) == nullptr || freopen("/dev/null", "w", stderr) == nullptr) _exit(126);
      execv(argv[0], argv.data());
      _exit(127);
    }
    return pid;
  };
  auto exit_status = [](pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  EXPECT_EQ(exit_status(start({"--entra-app-certificate", std::string(kApp) + ":" + dir + "/none.pem"})), 1);
  EXPECT_EQ(exit_status(start({"--entra-token-lifetime", "soon"})), 2);

  pid_t pid = start({"--entra-site", "contoso.sharepoint.com", "--entra-tenant", "11111111-2222-4333-8444-555555555555",
                     "--entra-app", kDesktop, "--entra-app-certificate", std::string(kApp) + ":" + dir + "/app.pem",
                     "--entra-app-secret", std::string(kConfidential) + ":Conf-Secret",
                     "--entra-app-confidential", kConfidential, "--entra-account", "adele@contoso.com:Spring:2024",
                     "--entra-mfa-account", "megan@contoso.com:Spring:2024", "--entra-token-lifetime", "120",
                     "--entra-device-interval", "7", "--ca-out", dir + "/ca.pem", "--ready-file", dir + "/ready"});
  int http_port = 0;
  for (int i = 0; i < 200 && http_port == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::ifstream(dir + "/ready") >> http_port;
  }
  ASSERT_NE(http_port, 0);
  // From here on the test talks to the program.
  proxy_ = "http://127.0.0.1:" + std::to_string(http_port);
  ca_file_ = dir + "/ca.pem";
  const std::string tenant = std::string(kAuthority) + "11111111-2222-4333-8444-555555555555/oauth2/v2.0/";
  token_url_ = tenant + "token";
  const std::string user = Form({{"grant_type", "password"}, {"scope", kUserScope}, {"password", "Spring:2024"}});
  const std::string adele = user + "&username=adele@contoso.com&client_id=";
  EXPECT_EQ(Fetch(token_url_, adele + kDesktop).Json().value("expires_in", 0), 120);
  ExpectRefusal(Fetch(token_url_, user + "&username=megan@contoso.com&client_id=" + kDesktop), 400, "invalid_grant", 50076);
  ExpectRefusal(Fetch(token_url_, adele + kConfidential), 401, "invalid_client", 7000218);
  EXPECT_EQ(Fetch(token_url_, adele + kConfidential + "&client_secret=Conf-Secret").status, 200);
  EXPECT_EQ(Fetch(tenant + "devicecode", Form({{"client_id", kDesktop}, {"scope", kUserScope}})).Json().value("interval", 0), 7);
  const std::string token = AccessToken(PresentAssertion(Assertion(UseRs256)));
  EXPECT_EQ(Fetch("https://contoso.sharepoint.com/_api/web", "", "Bearer " + token).status, 200);
  kill(pid, SIGTERM);
  EXPECT_EQ(exit_status(pid), 0);
  for (const char* name : {"/app.pem", "/ca.pem", "/ready"}) unlink((dir + name).c_str());
  EXPECT_EQ(rmdir(folder), 0);
}

}  // namespace
}  // namespace Vantrel::Emulation

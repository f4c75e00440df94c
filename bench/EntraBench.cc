// Entra ID sign-ins against the in-process emulator.
//
// Entra/Silent/memory and Entra/Silent/file: AuthenticateSilent answered from
// the token cache, in this object's memory or from the cache file (read at
// every lookup, as another process may have written it); "requests" counts
// the requests one call made, which must be 0.
//
// SignIn/EntraCertificate/https: an app-only sign-in with a certificate (the
// tenant named, the site check off: one token request), beside bare libcurl
// sending the same request on one reused easy handle with a client assertion
// it signs itself with one bare OpenSSL signature. Both load nothing per
// call that the other doesn't need: the library reads the certificate and key
// from memory (AuthenticateWithCertificateData), as a host that keeps them
// would; the baseline holds its key parsed.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "PairedRun.h"
#include "VantrelAuthEngine64/AuthEngine.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "VantrelAuthEngine64/EntraId.h"
#include "emulator/Emulator.h"
#include "emulator/EntraService.h"
#include "support/TestCertificates.h"

namespace Vantrel {
namespace Bench {
namespace {

using Auth::AuthEngine;
using Auth::EntraId;
using Auth::kAuthResultOk;
using Auth::testing::TestCertificates;

const char kClientId[] = "7f3c1d2e-0a4b-4c5d-8e6f-1a2b3c4d5e6f";
const char kSite[] = "https://contoso.sharepoint.com/sites/team";

// One emulator playing Entra ID and the site, and the application's
// certificate registered with it.
class EntraWorld {
 public:
  static EntraWorld& Shared() {
    static EntraWorld world;
    return world;
  }

  EntraWorld() : certificates_(TestCertificates::Shared()) {
    std::string error;
    if (AuthEngine::GlobalInit() != kAuthResultOk || !emulator_.Start(&error)) {
      std::fprintf(stderr, "bench: no emulator: %s\n", error.c_str());
      std::exit(1);
    }
    Emulation::EntraServiceOptions options;
    Emulation::EntraApplication application;
    application.client_id = kClientId;
    application.certificate_pem = TestCertificates::ReadFile(certificates_.cert_pem);
    options.applications.push_back(application);
    service_ = Emulation::InstallEntraService(&emulator_, options);
    Emulation::InstallEntraSite(&emulator_, {}, service_);
    certificate_ = TestCertificates::ReadFile(certificates_.cert_pem);
    key_ = TestCertificates::ReadFile(certificates_.key_pem);
  }

  // An EntraId of `engine` pointed at the emulator: the tenant named, so that
  // no discovery request is made.
  EntraId* Prepare(AuthEngine* engine, bool site_check) {
    Auth::AuthEngineConfig::SetProxy(emulator_.ProxyUrl().c_str());
    EntraId* entra = engine->EntraId();
    entra->SetCaFile(emulator_.CaFile().c_str());
    entra->SetClientId(kClientId);
    entra->SetTenant(service_->options().tenant_id.c_str());
    entra->EnableSiteCheck(site_check);
    return entra;
  }

  bool CertificateSignIn(EntraId* entra) const {
    return entra->AuthenticateWithCertificateData(kSite, certificate_.data(), certificate_.size(),
                                                  key_.data(), key_.size(),
                                                  nullptr) == kAuthResultOk;
  }

  Emulation::Emulator& emulator() { return emulator_; }
  const TestCertificates& certificates() const { return certificates_; }

 private:
  const TestCertificates& certificates_;
  Emulation::Emulator emulator_;
  std::shared_ptr<Emulation::EntraServiceState> service_;
  std::string certificate_;
  std::string key_;
};

void SkipAll(benchmark::State& state, const char* why) {
  state.SkipWithError(why);
  for (auto _ : state) {
  }
}

void SilentSignIn(benchmark::State& state, bool from_file) {
  EntraWorld& world = EntraWorld::Shared();
  AuthEngine engine;
  EntraId* entra = world.Prepare(&engine, false);
  char cache[] = "/tmp/vantrel-bench-cache.XXXXXX";
  int fd = mkstemp(cache);
  if (fd >= 0) close(fd);
  if (from_file) entra->SetTokenCacheFile(cache);
  if (!world.CertificateSignIn(entra)) return SkipAll(state, "the first sign-in failed");
  world.emulator().ClearRequests();

  size_t calls = 0;
  for (auto _ : state) {
    if (entra->AuthenticateSilent(kSite, nullptr) != kAuthResultOk) {
      state.SkipWithError("the silent sign-in failed");
      break;
    }
    ++calls;
  }
  state.counters["requests"] =
      calls > 0 ? static_cast<double>(world.emulator().Requests().size()) / calls : 0;
  unlink(cache);
  std::string lock = std::string(cache) + ".lock";
  unlink(lock.c_str());
  Auth::AuthEngineConfig::SetProxy(nullptr);
}

// The certificate sign-in's one request, made with libcurl and OpenSSL alone:
// the body the library sent, with a client assertion of its own in it.
class BareCertificateSignIn {
 public:
  BareCertificateSignIn(const Emulation::Request& recorded, const std::string& url,
                        const std::string& proxy, const std::string& ca_file,
                        const std::string& certificate_file, const std::string& key_file)
      : handle_(curl_easy_init()), url_(url) {
    for (const std::string& line : recorded.header_lines) {
      if (line.rfind("Host:", 0) == 0 || line.rfind("Content-Length:", 0) == 0) continue;
      headers_ = curl_slist_append(headers_, line.c_str());
    }
    SplitAroundAssertion(recorded.body);
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &Collect);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &received_);
    curl_easy_setopt(handle_, CURLOPT_PROXY, proxy.c_str());
    curl_easy_setopt(handle_, CURLOPT_CAINFO, ca_file.c_str());
    LoadKey(certificate_file, key_file);
    audience_ = url;
  }

  ~BareCertificateSignIn() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(handle_);
    EVP_PKEY_free(key_);
  }

  bool ready() const { return key_ != nullptr && !before_.empty(); }

  bool Run() {
    std::string assertion = Assertion();
    if (assertion.empty()) return false;
    std::string body = before_ + assertion + after_;
    received_.clear();
    curl_easy_setopt(handle_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body.c_str());
    long status = 0;
    if (curl_easy_perform(handle_) != CURLE_OK) return false;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
    return status == 200;
  }

 private:
  static size_t Collect(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
  }

  static std::string Base64Url(const unsigned char* data, size_t size) {
    std::string text(4 * ((size + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]), data, static_cast<int>(size));
    text.resize(length);
    for (char& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
    while (!text.empty() && text.back() == '=') text.pop_back();
    return text;
  }
  static std::string Base64Url(const std::string& text) {
    return Base64Url(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  }

  void SplitAroundAssertion(const std::string& body) {
    const std::string field = "client_assertion=";
    size_t start = body.find("&" + field);
    if (start == std::string::npos) return;
    start += 1 + field.size();
    size_t end = body.find('&', start);
    before_ = body.substr(0, start);
    after_ = end == std::string::npos ? "" : body.substr(end);
  }

  void LoadKey(const std::string& certificate_file, const std::string& key_file) {
    FILE* file = std::fopen(key_file.c_str(), "r");
    if (file != nullptr) {
      key_ = PEM_read_PrivateKey(file, nullptr, nullptr, nullptr);
      std::fclose(file);
    }
    file = std::fopen(certificate_file.c_str(), "r");
    if (file == nullptr) return;
    X509* certificate = PEM_read_X509(file, nullptr, nullptr, nullptr);
    std::fclose(file);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (certificate != nullptr && X509_digest(certificate, EVP_sha256(), digest, &length) == 1) {
      header_ = Base64Url("{\"alg\":\"PS256\",\"typ\":\"JWT\",\"x5t#S256\":\"" +
                          Base64Url(digest, length) + "\"}");
    }
    X509_free(certificate);
  }

  // The one signature: RSASSA-PSS over SHA-256 of header and claims.
  std::string Assertion() const {
    unsigned char id[16];
    if (RAND_bytes(id, sizeof(id)) != 1) return "";
    char jti[40];
    std::snprintf(jti, sizeof(jti), "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  id[0], id[1], id[2], id[3], id[4], id[5], id[6], id[7], id[8], id[9], id[10], id[11],
                  id[12], id[13], id[14], id[15]);
    long long now = static_cast<long long>(std::time(nullptr));
    std::string claims = "{\"aud\":\"" + audience_ + "\",\"iss\":\"" + kClientId + "\",\"sub\":\"" +
                         kClientId + "\",\"jti\":\"" + jti + "\",\"nbf\":" + std::to_string(now) +
                         ",\"iat\":" + std::to_string(now) + ",\"exp\":" + std::to_string(now + 600) + "}";
    std::string input = header_ + "." + Base64Url(claims);
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_PKEY_CTX* key_context = nullptr;
    std::string signature(512, '\0');
    size_t size = signature.size();
    bool ok = EVP_DigestSignInit(context, &key_context, EVP_sha256(), nullptr, key_) == 1 &&
              EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) == 1 &&
              EVP_PKEY_CTX_set_rsa_pss_saltlen(key_context, RSA_PSS_SALTLEN_DIGEST) == 1 &&
              EVP_DigestSign(context, reinterpret_cast<unsigned char*>(&signature[0]), &size,
                             reinterpret_cast<const unsigned char*>(input.data()), input.size()) == 1;
    EVP_MD_CTX_free(context);
    if (!ok) return "";
    return input + "." + Base64Url(reinterpret_cast<const unsigned char*>(signature.data()), size);
  }

  CURL* handle_;
  curl_slist* headers_ = nullptr;
  std::string url_;
  std::string audience_;
  std::string before_;
  std::string after_;
  std::string header_;
  std::string received_;
  EVP_PKEY* key_ = nullptr;
};

std::string UrlOf(const Emulation::Request& request) {
  std::string port = request.proxied_port == 443 ? "" : ":" + std::to_string(request.proxied_port);
  return "https://" + request.proxied_host + port + request.path;
}

void CertificateBesideBareCurl(benchmark::State& state) {
  EntraWorld& world = EntraWorld::Shared();
  Emulation::Emulator& emulator = world.emulator();
  AuthEngine engine;
  EntraId* entra = world.Prepare(&engine, false);
  // The first sign-in opens the connection; the second is the steady state.
  emulator.ClearRequests();
  bool ready = world.CertificateSignIn(entra);
  emulator.ClearRequests();
  ready = ready && world.CertificateSignIn(entra);
  const std::vector<Emulation::Request> recorded = emulator.Requests();
  if (!ready || recorded.size() != 1) return SkipAll(state, "the certificate sign-in failed");
  BareCertificateSignIn bare(recorded[0], UrlOf(recorded[0]), emulator.ProxyUrl(), emulator.CaFile(),
                             world.certificates().cert_pem, world.certificates().key_pem);
  if (!bare.ready() || !bare.Run()) return SkipAll(state, "the bare sign-in failed");
  emulator.ClearRequests();

  RunPaired(
      state, [&] { return world.CertificateSignIn(entra); }, [&] { return bare.Run(); },
      [&] { emulator.ClearRequests(); });
  state.counters["requests"] = static_cast<double>(recorded.size());
  Auth::AuthEngineConfig::SetProxy(nullptr);
}

const bool kRegistered = [] {
  benchmark::RegisterBenchmark("Entra/Silent/memory", SilentSignIn, false)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("Entra/Silent/file", SilentSignIn, true)
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("SignIn/EntraCertificate/https", CertificateBesideBareCurl)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
  return true;
}();

}  // namespace
}  // namespace Bench
}  // namespace Vantrel

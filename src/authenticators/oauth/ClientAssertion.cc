#include "authenticators/oauth/ClientAssertion.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "authenticators/oauth/Base64Url.h"
#include "authenticators/oauth/JsonMember.h"
#include "authenticators/oauth/RandomText.h"
#include "base/Logger.h"
#include "base/StringUtil.h"

namespace Vantrel {
namespace Auth {

struct ClientAssertion::Keys {
  Keys() : key(nullptr), certificate(nullptr) {}
  ~Keys() {
    EVP_PKEY_free(key);
    X509_free(certificate);
  }
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;

  EVP_PKEY* key;
  X509* certificate;
};

namespace {

// Entra ID refuses assertions valid for more than ten minutes.
constexpr int64_t kLifetimeSeconds = 600;
constexpr int kMinimumRsaBits = 2048;
// Certificates, keys and bundles are a few kilobytes; anything far larger is
// some other file, and reading it whole would only waste memory.
constexpr size_t kMaxInputSize = 1024 * 1024;

// Input bytes and the name a detail text calls them by: the file's path, or
// what the caller handed over in memory.
struct Source {
  std::string_view bytes;
  std::string name;
};

AuthResult Refuse(std::string* detail, const std::string& text) {
  // Failed parses leave entries in OpenSSL's per-thread error queue, where
  // libcurl's TLS code would later find and misreport them.
  ERR_clear_error();
  if (detail != nullptr) *detail = text;
  Logger::LogFormat(kLogLevelDebug, "ClientAssertion - refused: %s", text.c_str(), nullptr, nullptr,
                    nullptr, nullptr);
  return kAuthResultInvalidInput;
}

// The whole file into `bytes`, which wipes what it held when released: a key
// file's text is as secret as the key.
AuthResult ReadWholeFile(const char* path, const char* what, SecretString* bytes,
                         std::string* detail) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return Refuse(detail, std::string("The ") + what + " file could not be opened: " + path + " (" +
                              std::strerror(errno) + ")");
  }
  char buffer[4096];
  bool failed = false;
  while (bytes->size() <= kMaxInputSize) {
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      failed = got < 0;
      break;
    }
    bytes->Append(std::string_view(buffer, static_cast<size_t>(got)));
  }
  WipeMemory(buffer, sizeof buffer);
  close(fd);
  if (failed) {
    return Refuse(detail, std::string("The ") + what + " file could not be read: " + path);
  }
  if (bytes->size() > kMaxInputSize) {
    return Refuse(detail, std::string("The ") + what + " file is too large: " + path);
  }
  return kAuthResultOk;
}

// PEM asks for the password through a callback; this one answers with the
// caller's password and never falls back to a prompt on the terminal.
int PasswordCallback(char* buffer, int size, int /*writing*/, void* context) {
  const char* password = static_cast<const char*>(context);
  if (password == nullptr) return -1;
  size_t length = std::strlen(password);
  if (size < 0 || length > static_cast<size_t>(size)) return -1;
  std::memcpy(buffer, password, length);
  return static_cast<int>(length);
}

BIO* ReadOnlyBio(std::string_view bytes) {
  return BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size()));
}

bool LooksEncrypted(std::string_view pem) {
  return pem.find("ENCRYPTED") != std::string_view::npos;
}

AuthResult ReadPemPair(const Source& certificate, const Source& key, const char* password,
                       EVP_PKEY** private_key, X509** x509, std::string* detail) {
  BIO* bio = ReadOnlyBio(certificate.bytes);
  // A certificate is never encrypted: no password, and no prompt either.
  *x509 = bio != nullptr ? PEM_read_bio_X509(bio, nullptr, PasswordCallback, nullptr) : nullptr;
  BIO_free(bio);
  if (*x509 == nullptr) {
    return Refuse(detail, "The certificate could not be read: " + certificate.name);
  }
  bio = ReadOnlyBio(key.bytes);
  *private_key = bio != nullptr ? PEM_read_bio_PrivateKey(bio, nullptr, PasswordCallback,
                                                          const_cast<char*>(password))
                                : nullptr;
  BIO_free(bio);
  if (*private_key != nullptr) return kAuthResultOk;
  if (password == nullptr && LooksEncrypted(key.bytes)) {
    return Refuse(detail, "The private key is encrypted and no password was given: " + key.name);
  }
  return Refuse(detail,
                "The private key could not be read: wrong password or not a PEM key: " + key.name);
}

AuthResult ReadPkcs12(const Source& bundle, const char* password, EVP_PKEY** private_key,
                      X509** x509, std::string* detail) {
  const unsigned char* cursor = reinterpret_cast<const unsigned char*>(bundle.bytes.data());
  PKCS12* p12 = d2i_PKCS12(nullptr, &cursor, static_cast<long>(bundle.bytes.size()));
  if (p12 == nullptr) return Refuse(detail, "The PKCS#12 bundle could not be read: " + bundle.name);

  // The MAC is checked first so that a wrong password gets a detail of its
  // own; without a password, both the absent and the empty one are tried,
  // as exporters disagree about which "no password" means.
  bool no_password = password == nullptr || password[0] == '\0';
  const char* mac_problem = nullptr;
  if (PKCS12_mac_present(p12) == 1) {
    if (no_password && PKCS12_verify_mac(p12, nullptr, 0) != 1 &&
        PKCS12_verify_mac(p12, "", 0) != 1) {
      mac_problem = "a password is needed: ";
    } else if (!no_password && PKCS12_verify_mac(p12, password, -1) != 1) {
      mac_problem = "wrong password: ";
    }
  }
  STACK_OF(X509)* chain = nullptr;
  bool parsed =
      mac_problem == nullptr && PKCS12_parse(p12, password, private_key, x509, &chain) == 1;
  sk_X509_pop_free(chain, X509_free);
  PKCS12_free(p12);
  if (mac_problem != nullptr) {
    return Refuse(detail, "The PKCS#12 bundle could not be opened: " + std::string(mac_problem) +
                              bundle.name);
  }
  if (!parsed) {
    // The password was right, so it is the encryption: OpenSSL 3 no longer
    // offers RC2, which old exports used.
    return Refuse(detail,
                  "The PKCS#12 bundle could not be decrypted (export it again with AES "
                  "encryption): " +
                      bundle.name);
  }
  if (*private_key == nullptr) {
    return Refuse(detail, "The PKCS#12 bundle holds no private key: " + bundle.name);
  }
  if (*x509 == nullptr) {
    return Refuse(detail, "The PKCS#12 bundle holds no certificate: " + bundle.name);
  }
  return kAuthResultOk;
}

AuthResult CheckSize(size_t size, const char* what, std::string* detail) {
  if (size == 0) return Refuse(detail, std::string("No ") + what + " was given.");
  if (size > kMaxInputSize) return Refuse(detail, std::string("The ") + what + " is too large.");
  return kAuthResultOk;
}

std::string Thumbprint(const X509* certificate, const EVP_MD* digest) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (X509_digest(certificate, digest, md, &length) != 1) return std::string();
  return Base64UrlEncode(md, length);
}

// Invalid UTF-8 in a client id or URL becomes U+FFFD instead of an exception;
// Entra ID then names the value it does not know.
std::string CompactJson(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// RSASSA-PSS (salt as long as the digest, as JWS demands) or PKCS#1 v1.5,
// both with SHA-256.
bool SignSha256(EVP_PKEY* key, bool pss, std::string_view input, std::string* signature) {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* key_context = nullptr;  // owned by `context`
  size_t length = 0;
  const unsigned char* data = reinterpret_cast<const unsigned char*>(input.data());
  bool ok = context != nullptr &&
            EVP_DigestSignInit(context, &key_context, EVP_sha256(), nullptr, key) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(key_context,
                                         pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING) > 0 &&
            (!pss || (EVP_PKEY_CTX_set_rsa_pss_saltlen(key_context, RSA_PSS_SALTLEN_DIGEST) > 0 &&
                      EVP_PKEY_CTX_set_rsa_mgf1_md(key_context, EVP_sha256()) > 0)) &&
            EVP_DigestSign(context, nullptr, &length, data, input.size()) == 1;
  if (ok) {
    signature->assign(length, '\0');
    ok = EVP_DigestSign(context, reinterpret_cast<unsigned char*>(&(*signature)[0]), &length, data,
                        input.size()) == 1;
    signature->resize(ok ? length : 0);
  }
  EVP_MD_CTX_free(context);
  if (!ok) ERR_clear_error();
  return ok;
}

// SHA-256 over every input, each preceded by its length, so that no two
// different inputs run together into the same bytes. "" when hashing fails.
std::string InputDigest(std::string_view certificate, bool has_key, std::string_view key,
                        const char* password) {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  bool ok = context != nullptr && EVP_DigestInit_ex(context, EVP_sha256(), nullptr) == 1;
  auto add = [&](std::string_view part) {
    uint64_t size = part.size();
    ok = ok && EVP_DigestUpdate(context, &size, sizeof(size)) == 1 &&
         EVP_DigestUpdate(context, part.data(), part.size()) == 1;
  };
  add(certificate);
  add(has_key ? std::string_view("key") : std::string_view("bundle"));
  add(key);
  add(password != nullptr ? std::string_view("password") : std::string_view("none"));
  add(password != nullptr ? std::string_view(password) : std::string_view());
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  ok = ok && EVP_DigestFinal_ex(context, digest, &length) == 1;
  EVP_MD_CTX_free(context);
  return ok ? std::string(reinterpret_cast<char*>(digest), length) : std::string();
}

}  // namespace

ClientAssertion::ClientAssertion() : keys_(nullptr) {}

ClientAssertion::~ClientAssertion() { delete keys_; }

bool ClientAssertion::IsLoaded() const { return keys_ != nullptr; }

AuthResult ClientAssertion::LoadFiles(const char* certificate_file, const char* key_file,
                                      const char* password, std::string* detail) {
  Logger::LogFormat(kLogLevelDebug,
                    "ClientAssertion::LoadFiles - certificate file %s, key file %s, password %s",
                    certificate_file, key_file, YesNo(password != nullptr), nullptr, nullptr);
  SecretString certificate_bytes;
  SecretString key_bytes;
  AuthResult result = kAuthResultOk;
  if (certificate_file == nullptr || certificate_file[0] == '\0') {
    result = Refuse(detail, "No certificate file was given.");
  } else if (key_file != nullptr && key_file[0] == '\0') {
    result = Refuse(detail, "No key file was given.");
  } else {
    const char* what = key_file == nullptr ? "PKCS#12" : "certificate";
    result = ReadWholeFile(certificate_file, what, &certificate_bytes, detail);
    if (result == kAuthResultOk && key_file != nullptr) {
      result = ReadWholeFile(key_file, "key", &key_bytes, detail);
    }
  }
  if (result != kAuthResultOk) {
    Unload();
    return result;
  }
  std::string digest = InputDigest(certificate_bytes.view(), key_file != nullptr,
                                   key_bytes.view(), password);
  if (IsLoadedFrom(digest)) return kAuthResultOk;
  Unload();

  std::unique_ptr<Keys> keys(new Keys());
  if (key_file == nullptr) {
    result = ReadPkcs12({certificate_bytes.view(), certificate_file}, password, &keys->key,
                        &keys->certificate, detail);
  } else {
    result = ReadPemPair({certificate_bytes.view(), certificate_file}, {key_bytes.view(), key_file},
                         password, &keys->key, &keys->certificate, detail);
  }
  if (result != kAuthResultOk) return result;
  return Adopt(std::move(keys), digest, detail);
}

AuthResult ClientAssertion::LoadData(const char* certificate, size_t certificate_size,
                                     const char* key, size_t key_size, const char* password,
                                     std::string* detail) {
  Logger::LogFormat(kLogLevelDebug,
                    "ClientAssertion::LoadData - certificate %s, key %s, password %s",
                    YesNo(certificate != nullptr), YesNo(key != nullptr),
                    YesNo(password != nullptr), nullptr, nullptr);
  const char* what = key == nullptr ? "PKCS#12 bundle" : "certificate";
  AuthResult result = CheckSize(certificate == nullptr ? 0 : certificate_size, what, detail);
  if (result == kAuthResultOk && key != nullptr) {
    result = CheckSize(key_size, "private key", detail);
  }
  if (result != kAuthResultOk) {
    Unload();
    return result;
  }
  std::string_view certificate_bytes(certificate, certificate_size);
  std::string_view key_bytes = key != nullptr ? std::string_view(key, key_size) : std::string_view();
  std::string digest = InputDigest(certificate_bytes, key != nullptr, key_bytes, password);
  if (IsLoadedFrom(digest)) return kAuthResultOk;
  Unload();

  std::unique_ptr<Keys> keys(new Keys());
  Source certificate_source{certificate_bytes, std::string("(the ") + what + " given in memory)"};
  if (key == nullptr) {
    result = ReadPkcs12(certificate_source, password, &keys->key, &keys->certificate, detail);
  } else {
    result = ReadPemPair(certificate_source, {key_bytes, "(the key given in memory)"}, password,
                         &keys->key, &keys->certificate, detail);
  }
  if (result != kAuthResultOk) return result;
  return Adopt(std::move(keys), digest, detail);
}

// A failed load leaves nothing loaded: signing on with an older key would
// hide the failure.
void ClientAssertion::Unload() {
  delete keys_;
  keys_ = nullptr;
  x5t_s256_.clear();
  x5t_.clear();
  loaded_digest_.clear();
}

// Parsing a key, and OpenSSL's first signature with it (its blinding and
// Montgomery set-up), cost far more than a signature: the same bytes and
// password given again reuse what is loaded.
bool ClientAssertion::IsLoadedFrom(const std::string& digest) const {
  return keys_ != nullptr && !digest.empty() && digest == loaded_digest_;
}

// Takes `keys` over; keeps them only if Entra ID could accept them.
AuthResult ClientAssertion::Adopt(std::unique_ptr<Keys> keys, const std::string& digest,
                                  std::string* detail) {
  AuthResult result = kAuthResultOk;
  int bits = EVP_PKEY_get_bits(keys->key);
  if (X509_check_private_key(keys->certificate, keys->key) != 1) {
    result = Refuse(detail, "The key does not belong to the certificate.");
  } else if (!EVP_PKEY_is_a(keys->key, "RSA")) {
    const char* type = EVP_PKEY_get0_type_name(keys->key);
    result = Refuse(detail, std::string("The key is of type ") + (type != nullptr ? type : "?") +
                                "; Entra ID accepts RSA keys only.");
  } else if (bits < kMinimumRsaBits) {
    result = Refuse(detail, "The RSA key has " + std::to_string(bits) +
                                " bits; Entra ID requires at least 2048.");
  } else {
    x5t_s256_ = Thumbprint(keys->certificate, EVP_sha256());
    x5t_ = Thumbprint(keys->certificate, EVP_sha1());
    if (x5t_s256_.empty() || x5t_.empty()) {
      result = Refuse(detail, "The certificate's thumbprint could not be computed.");
    }
  }
  if (result != kAuthResultOk) {
    x5t_s256_.clear();
    x5t_.clear();
    return result;
  }
  keys_ = keys.release();
  loaded_digest_ = digest;
  std::string bit_text = std::to_string(bits);
  Logger::LogFormat(
      kLogLevelDebug,
      "ClientAssertion::Adopt - RSA key of %s bits, certificate thumbprint %s (SHA-1)",
      bit_text.c_str(), x5t_.c_str(), nullptr, nullptr, nullptr);
  return kAuthResultOk;
}

bool ClientAssertion::Sign(EntraAssertionAlgorithm algorithm, const std::string& client_id,
                           const std::string& audience, time_t now, SecretString* jwt,
                           std::string* detail) const {
  if (jwt != nullptr) jwt->Clear();
  std::string problem;
  std::string jti;
  bool pss = algorithm == kEntraAssertionPs256;
  if (jwt == nullptr || keys_ == nullptr) {
    problem = "No certificate and key are loaded.";
  } else if (!pss && algorithm != kEntraAssertionRs256) {
    problem = "Unknown assertion algorithm.";
  } else if (!RandomGuid(&jti)) {
    problem = "The random number generator failed.";
  }
  if (!problem.empty()) {
    if (detail != nullptr) *detail = problem;
    return false;
  }

  // Member by member: an initializer list makes a two-element array of each
  // pair, and destroys it again, allocating (see DisposeJson).
  nlohmann::json header = nlohmann::json::object();
  JsonDisposal<nlohmann::json> dispose_header(&header);
  header["alg"] = pss ? "PS256" : "RS256";
  header["typ"] = "JWT";
  header[pss ? "x5t#S256" : "x5t"] = pss ? x5t_s256_ : x5t_;
  int64_t issued = static_cast<int64_t>(now);
  nlohmann::json claims = nlohmann::json::object();
  JsonDisposal<nlohmann::json> dispose_claims(&claims);
  claims["aud"] = audience;
  claims["iss"] = client_id;
  claims["sub"] = client_id;
  claims["jti"] = jti;
  claims["nbf"] = issued;
  claims["iat"] = issued;
  claims["exp"] = issued + kLifetimeSeconds;
  // Signature and signed text together are the credential; only `jwt`, which
  // wipes itself, keeps them.
  std::string signing_input =
      Base64UrlEncode(CompactJson(header)) + "." + Base64UrlEncode(CompactJson(claims));
  ScopedWipe wipe_input(&signing_input);
  std::string signature;
  ScopedWipe wipe_signature(&signature);
  if (!SignSha256(keys_->key, pss, signing_input, &signature)) {
    if (detail != nullptr) *detail = "The client assertion could not be signed.";
    return false;
  }
  std::string encoded_signature = Base64UrlEncode(signature);
  ScopedWipe wipe_encoded(&encoded_signature);
  jwt->Assign(signing_input);
  jwt->Append('.');
  jwt->Append(encoded_signature);
  return true;
}

}  // namespace Auth
}  // namespace Vantrel

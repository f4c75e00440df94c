#include "support/TestCertificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace Vantrel::Auth::testing {
namespace {

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(PKCS12* bundle) const { PKCS12_free(bundle); }
  void operator()(FILE* file) const { std::fclose(file); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Free>;
using CertificatePtr = std::unique_ptr<X509, Free>;

void Check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("TestCertificates: " + what + " failed");
}

KeyPtr RsaKey(unsigned bits) {
  KeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(bits)));
  Check(key != nullptr, "RSA key generation");
  return key;
}

KeyPtr EcKey() {
  KeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  Check(key != nullptr, "EC key generation");
  return key;
}

CertificatePtr SelfSigned(EVP_PKEY* key, const char* common_name) {
  CertificatePtr certificate(X509_new());
  X509_NAME* name = X509_NAME_new();
  bool ok = certificate != nullptr && name != nullptr &&
            X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
            ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600) != nullptr &&
            X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600L * 24 * 365) != nullptr &&
            X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char*>(common_name), -1, -1,
                                       0) == 1 &&
            X509_set_subject_name(certificate.get(), name) == 1 &&
            X509_set_issuer_name(certificate.get(), name) == 1 &&
            X509_set_pubkey(certificate.get(), key) == 1 &&
            X509_sign(certificate.get(), key, EVP_sha256()) > 0;
  X509_NAME_free(name);
  Check(ok, "certificate creation");
  return certificate;
}

// `write` puts the object into the open file.
template <typename Writer>
std::string WriteFile(const std::string& directory, const char* name, Writer write) {
  std::string path = directory + "/" + name;
  std::unique_ptr<FILE, Free> file(std::fopen(path.c_str(), "wb"));
  Check(file != nullptr && write(file.get()), std::string("writing ") + name);
  return path;
}

}  // namespace

TestCertificates::TestCertificates() {
  const char* temp = getenv("TMPDIR");
  std::string pattern = std::string(temp != nullptr && temp[0] != '\0' ? temp : "/tmp") +
                        "/vantrel-certificates-XXXXXX";
  Check(mkdtemp(&pattern[0]) != nullptr, "mkdtemp");
  directory_ = pattern;
  try {
    KeyPtr key = RsaKey(2048);
    CertificatePtr certificate = SelfSigned(key.get(), "vantrel-test");
    auto write_certificate = [](X509* c) {
      return [c](FILE* f) { return PEM_write_X509(f, c) == 1; };
    };
    auto write_key = [](EVP_PKEY* k) {
      return [k](FILE* f) {
        return PEM_write_PrivateKey(f, k, nullptr, nullptr, 0, nullptr, nullptr) == 1;
      };
    };
    auto write_bundle = [&](const char* password) {
      return [&, password](FILE* f) {
        std::unique_ptr<PKCS12, Free> bundle(PKCS12_create(
            password, "vantrel-test", key.get(), certificate.get(), nullptr, 0, 0, 0, 0, 0));
        return bundle != nullptr && i2d_PKCS12_fp(f, bundle.get()) == 1;
      };
    };
    key_password = "k3y pässword";
    bundle_password = "bundle-Passw0rd";
    cert_pem = WriteFile(directory_, "cert.pem", write_certificate(certificate.get()));
    key_pem = WriteFile(directory_, "key.pem", write_key(key.get()));
    key_encrypted_pem = WriteFile(directory_, "key-encrypted.pem", [&](FILE* f) {
      return PEM_write_PKCS8PrivateKey(f, key.get(), EVP_aes_256_cbc(), key_password.data(),
                                       static_cast<int>(key_password.size()), nullptr,
                                       nullptr) == 1;
    });
    bundle_p12 = WriteFile(directory_, "bundle.p12", write_bundle(bundle_password.c_str()));
    bundle_nopass_p12 = WriteFile(directory_, "bundle-nopass.p12", write_bundle(nullptr));

    KeyPtr weak = RsaKey(1024);
    CertificatePtr weak_certificate = SelfSigned(weak.get(), "vantrel-weak");
    weak_cert_pem =
        WriteFile(directory_, "weak-cert.pem", write_certificate(weak_certificate.get()));
    weak_key_pem = WriteFile(directory_, "weak-key.pem", write_key(weak.get()));
    KeyPtr ec = EcKey();
    CertificatePtr ec_certificate = SelfSigned(ec.get(), "vantrel-ec");
    ec_cert_pem = WriteFile(directory_, "ec-cert.pem", write_certificate(ec_certificate.get()));
    ec_key_pem = WriteFile(directory_, "ec-key.pem", write_key(ec.get()));
    KeyPtr other = RsaKey(2048);
    other_key_pem = WriteFile(directory_, "other-key.pem", write_key(other.get()));
  } catch (...) {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
    throw;
  }
}

TestCertificates::~TestCertificates() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

const TestCertificates& TestCertificates::Shared() {
  static const TestCertificates certificates;
  return certificates;
}

std::string TestCertificates::ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace Vantrel::Auth::testing

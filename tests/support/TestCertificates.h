// Certificates and keys made with OpenSSL at test time, in a temporary folder
// that goes away with the object: a good RSA 2048 pair (plain, encrypted, and
// as PKCS#12 with and without a password), and the ones Entra ID refuses.
#pragma once

#include <string>

namespace Vantrel::Auth::testing {

class TestCertificates {
 public:
  // Throws std::runtime_error when OpenSSL or the file system fails.
  TestCertificates();
  ~TestCertificates();
  TestCertificates(const TestCertificates&) = delete;
  TestCertificates& operator=(const TestCertificates&) = delete;

  // One set per test program, made on first use: key generation is slow.
  static const TestCertificates& Shared();
  // The file's bytes; "" when it cannot be read.
  static std::string ReadFile(const std::string& path);

  const std::string& directory() const { return directory_; }

  // RSA 2048, self-signed, CN=vantrel-test.
  std::string cert_pem;
  std::string key_pem;
  std::string key_encrypted_pem;  // PKCS#8, AES-256, opened by key_password
  std::string key_password;
  std::string bundle_p12;  // the same pair, opened by bundle_password
  std::string bundle_password;
  std::string bundle_nopass_p12;  // the same pair, no password
  // Refused: RSA 1024, an EC P-256 pair, and an RSA 2048 key of no certificate.
  std::string weak_cert_pem;
  std::string weak_key_pem;
  std::string ec_cert_pem;
  std::string ec_key_pem;
  std::string other_key_pem;

 private:
  std::string directory_;
};

}  // namespace Vantrel::Auth::testing

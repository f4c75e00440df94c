// TlsIdentity: a certificate and its private key, as a TLS server presents them.
//
// Generated in memory at run time; no key is ever read from or written to disk.
#ifndef VANTREL_EMULATOR_TLS_IDENTITY_H_
#define VANTREL_EMULATOR_TLS_IDENTITY_H_

#include <memory>
#include <string>
#include <vector>

typedef struct x509_st X509;
typedef struct evp_pkey_st EVP_PKEY;

namespace Vantrel {
namespace Emulation {

class TlsIdentity {
 public:
  // Takes ownership of both.
  TlsIdentity(X509* certificate, EVP_PKEY* key);
  ~TlsIdentity();

  TlsIdentity(const TlsIdentity&) = delete;
  TlsIdentity& operator=(const TlsIdentity&) = delete;

  // A fresh EC P-256 key.
  static EVP_PKEY* GenerateKey();

  // A certificate for `names` (DNS names or IP literals, the first also its
  // common name) signed by `issuer`; a self-signed one when `issuer` is null.
  // A CA certificate may sign certificates; a leaf serves TLS.
  static std::shared_ptr<const TlsIdentity> Issue(const std::vector<std::string>& names,
                                                  bool is_ca, const TlsIdentity* issuer);

  X509* certificate() const { return certificate_; }
  EVP_PKEY* key() const { return key_; }

  // The certificate in PEM form.
  std::string CertificatePem() const;

 private:
  X509* certificate_;
  EVP_PKEY* key_;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_TLS_IDENTITY_H_

// EntraCertificate: an application's registered certificate, as the token
// service holds it to check client assertions: the public key and the two
// thumbprints an assertion's header may name it by.
#ifndef VANTREL_EMULATOR_ENTRA_CERTIFICATE_H_
#define VANTREL_EMULATOR_ENTRA_CERTIFICATE_H_

#include <memory>
#include <string>
#include <string_view>

typedef struct evp_pkey_st EVP_PKEY;

namespace Vantrel {
namespace Emulation {

class EntraCertificate {
 public:
  // Null when `pem` holds no certificate.
  static std::shared_ptr<const EntraCertificate> FromPem(const std::string& pem);
  ~EntraCertificate();

  EntraCertificate(const EntraCertificate&) = delete;
  EntraCertificate& operator=(const EntraCertificate&) = delete;

  // base64url of the DER under SHA-256 (x5t#S256) and SHA-1 (x5t).
  const std::string& ThumbprintSha256() const { return x5t_s256_; }
  const std::string& ThumbprintSha1() const { return x5t_; }

  // Whether `signature` signs `input` with this certificate's RSA key under
  // `algorithm`: "PS256" (RSASSA-PSS, SHA-256, MGF1 with SHA-256, salt as
  // long as the digest) or "RS256" (RSASSA-PKCS1-v1_5, SHA-256). Thread-safe.
  bool Verifies(std::string_view algorithm, std::string_view input,
                std::string_view signature) const;

 private:
  EntraCertificate(EVP_PKEY* key, std::string x5t_s256, std::string x5t);

  EVP_PKEY* key_;
  std::string x5t_s256_;
  std::string x5t_;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_ENTRA_CERTIFICATE_H_

#include "emulator/EntraCertificate.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <utility>

#include "emulator/EndpointSupport.h"

namespace Vantrel {
namespace Emulation {
namespace {

std::string Thumbprint(const unsigned char* der, int size, const EVP_MD* digest) {
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(der, static_cast<size_t>(size), value, &length, digest, nullptr) != 1) return "";
  return Base64UrlEncode(std::string_view(reinterpret_cast<const char*>(value), length));
}

}  // namespace

std::shared_ptr<const EntraCertificate> EntraCertificate::FromPem(const std::string& pem) {
  BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  X509* certificate = bio != nullptr ? PEM_read_bio_X509(bio, nullptr, nullptr, nullptr) : nullptr;
  BIO_free(bio);
  ERR_clear_error();
  if (certificate == nullptr) return nullptr;
  unsigned char* der = nullptr;
  int der_size = i2d_X509(certificate, &der);
  EVP_PKEY* key = X509_get_pubkey(certificate);
  X509_free(certificate);
  std::shared_ptr<const EntraCertificate> result;
  if (der_size > 0 && key != nullptr) {
    result.reset(new EntraCertificate(key, Thumbprint(der, der_size, EVP_sha256()),
                                      Thumbprint(der, der_size, EVP_sha1())));
  } else {
    EVP_PKEY_free(key);
  }
  OPENSSL_free(der);
  return result;
}

EntraCertificate::EntraCertificate(EVP_PKEY* key, std::string x5t_s256, std::string x5t)
    : key_(key), x5t_s256_(std::move(x5t_s256)), x5t_(std::move(x5t)) {}

EntraCertificate::~EntraCertificate() { EVP_PKEY_free(key_); }

bool EntraCertificate::Verifies(std::string_view algorithm, std::string_view input,
                                std::string_view signature) const {
  bool pss = algorithm == "PS256";
  if ((!pss && algorithm != "RS256") || EVP_PKEY_get_base_id(key_) != EVP_PKEY_RSA) return false;
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* key_context = nullptr;
  bool ok = context != nullptr &&
            EVP_DigestVerifyInit(context, &key_context, EVP_sha256(), nullptr, key_) == 1;
  if (ok && pss) {
    ok = EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PSS_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(key_context, RSA_PSS_SALTLEN_DIGEST) == 1;
  } else if (ok) {
    ok = EVP_PKEY_CTX_set_rsa_padding(key_context, RSA_PKCS1_PADDING) == 1;
  }
  ok =
      ok && EVP_DigestVerify(context, reinterpret_cast<const unsigned char*>(signature.data()),
                             signature.size(), reinterpret_cast<const unsigned char*>(input.data()),
                             input.size()) == 1;
  EVP_MD_CTX_free(context);
  ERR_clear_error();
  return ok;
}

}  // namespace Emulation
}  // namespace Vantrel

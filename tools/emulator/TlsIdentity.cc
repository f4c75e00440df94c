#include "emulator/TlsIdentity.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace Vantrel {
namespace Emulation {

namespace {

constexpr long kValiditySeconds = 30L * 24 * 60 * 60;
// Clocks of client and emulator agree here, but a certificate made this very
// second must not look "not yet valid" to a check that rounds differently.
constexpr long kBackdateSeconds = 24L * 60 * 60;
// Upper bound of X.520 commonName; longer names are carried by the SAN alone.
constexpr size_t kMaxCommonName = 64;

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("emulator TLS: ") + what + " failed");
}

void AddExtension(X509* cert, X509V3_CTX* ctx, int nid, const char* value) {
  X509_EXTENSION* ext = X509V3_EXT_nconf_nid(nullptr, ctx, nid, value);
  Check(ext != nullptr, "X509V3_EXT_nconf_nid");
  int added = X509_add_ext(cert, ext, -1);
  X509_EXTENSION_free(ext);
  Check(added == 1, "X509_add_ext");
}

// Built as GENERAL_NAMEs rather than through the config syntax, so that a
// host name with unusual characters cannot be misread as several entries.
void AddSubjectAltNames(X509* cert, const std::vector<std::string>& names) {
  GENERAL_NAMES* sans = sk_GENERAL_NAME_new_null();
  Check(sans != nullptr, "sk_GENERAL_NAME_new_null");
  for (const std::string& name : names) {
    GENERAL_NAME* entry = GENERAL_NAME_new();
    unsigned char address[16];
    std::string bare = name.size() > 2 && name.front() == '[' && name.back() == ']'
                           ? name.substr(1, name.size() - 2) : name;
    if (inet_pton(AF_INET, bare.c_str(), address) == 1 ||
        inet_pton(AF_INET6, bare.c_str(), address) == 1) {
      int length = bare.find(':') == std::string::npos ? 4 : 16;
      ASN1_OCTET_STRING* ip = ASN1_OCTET_STRING_new();
      ASN1_OCTET_STRING_set(ip, address, length);
      GENERAL_NAME_set0_value(entry, GEN_IPADD, ip);
    } else {
      ASN1_IA5STRING* dns = ASN1_IA5STRING_new();
      ASN1_STRING_set(dns, name.data(), static_cast<int>(name.size()));
      GENERAL_NAME_set0_value(entry, GEN_DNS, dns);
    }
    sk_GENERAL_NAME_push(sans, entry);
  }
  int added = X509_add1_ext_i2d(cert, NID_subject_alt_name, sans, 0, X509V3_ADD_DEFAULT);
  GENERAL_NAMES_free(sans);
  Check(added == 1, "X509_add1_ext_i2d");
}

void SetRandomSerial(X509* cert) {
  unsigned char bytes[16];
  Check(RAND_bytes(bytes, sizeof bytes) == 1, "RAND_bytes");
  bytes[0] &= 0x7f;  // serial numbers are positive
  BIGNUM* number = BN_bin2bn(bytes, sizeof bytes, nullptr);
  Check(number != nullptr, "BN_bin2bn");
  ASN1_INTEGER* serial = BN_to_ASN1_INTEGER(number, X509_get_serialNumber(cert));
  BN_free(number);
  Check(serial != nullptr, "BN_to_ASN1_INTEGER");
}

}  // namespace

TlsIdentity::TlsIdentity(X509* certificate, EVP_PKEY* key) : certificate_(certificate), key_(key) {}

TlsIdentity::~TlsIdentity() {
  X509_free(certificate_);
  EVP_PKEY_free(key_);
}

EVP_PKEY* TlsIdentity::GenerateKey() {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  Check(key != nullptr, "EVP_EC_gen");
  return key;
}

std::shared_ptr<const TlsIdentity> TlsIdentity::Issue(const std::vector<std::string>& names,
                                                      bool is_ca, const TlsIdentity* issuer) {
  Check(!names.empty(), "certificate without a name:");
  EVP_PKEY* key = GenerateKey();
  X509* cert = X509_new();
  if (cert == nullptr) EVP_PKEY_free(key);
  Check(cert != nullptr, "X509_new");
  // Owned from here on, so that a throw below frees both.
  auto identity = std::make_shared<const TlsIdentity>(cert, key);

  Check(X509_set_version(cert, 2) == 1, "X509_set_version");
  SetRandomSerial(cert);
  X509_gmtime_adj(X509_getm_notBefore(cert), -kBackdateSeconds);
  X509_gmtime_adj(X509_getm_notAfter(cert), kValiditySeconds);
  Check(X509_set_pubkey(cert, key) == 1, "X509_set_pubkey");

  X509_NAME* subject = X509_get_subject_name(cert);
  X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("Vantrel Emulator"), -1, -1, 0);
  if (names.front().size() <= kMaxCommonName) {
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(names.front().c_str()), -1, -1, 0);
  }
  X509* issuer_cert = issuer != nullptr ? issuer->certificate() : cert;
  EVP_PKEY* signing_key = issuer != nullptr ? issuer->key() : key;
  Check(X509_set_issuer_name(cert, X509_get_subject_name(issuer_cert)) == 1, "X509_set_issuer_name");

  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, issuer_cert, cert, nullptr, nullptr, 0);
  if (is_ca) {
    AddExtension(cert, &ctx, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(cert, &ctx, NID_key_usage, "critical,keyCertSign,cRLSign");
  } else {
    AddExtension(cert, &ctx, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(cert, &ctx, NID_key_usage, "critical,digitalSignature,keyEncipherment");
    AddExtension(cert, &ctx, NID_ext_key_usage, "serverAuth");
    AddSubjectAltNames(cert, names);
  }
  AddExtension(cert, &ctx, NID_subject_key_identifier, "hash");
  if (issuer != nullptr) AddExtension(cert, &ctx, NID_authority_key_identifier, "keyid:always");

  Check(X509_sign(cert, signing_key, EVP_sha256()) > 0, "X509_sign");
  return identity;
}

std::string TlsIdentity::CertificatePem() const {
  BIO* bio = BIO_new(BIO_s_mem());
  Check(bio != nullptr && PEM_write_bio_X509(bio, certificate_) == 1, "PEM_write_bio_X509");
  char* data = nullptr;
  long length = BIO_get_mem_data(bio, &data);
  std::string pem(data, static_cast<size_t>(length));
  BIO_free(bio);
  return pem;
}

}  // namespace Emulation
}  // namespace Vantrel

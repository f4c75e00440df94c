// The certificate assertion: which certificates and keys are refused and why,
// and assertions that pass the checks Entra ID makes (signature under the
// certificate's key, header, claims).
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "authenticators/oauth/Base64Url.h"
#include "authenticators/oauth/ClientAssertion.h"
#include "support/TestCertificates.h"

namespace Vantrel::Auth {
namespace {

using testing::TestCertificates;

const char kClientId[] = "5b0c3f52-8e1a-4d7e-9a6b-2f4c1d0e9a87";
const char kAudience[] =
    "https://login.microsoftonline.com/72f988bf-86f1-41af-91ab-2d7cd011db47/oauth2/v2.0/token";
const time_t kNow = 1700000000;

X509* ReadCertificate(const std::string& file) {
  std::string pem = TestCertificates::ReadFile(file);
  BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  X509* certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
  BIO_free(bio);
  return certificate;
}

// The digest of the certificate's DER encoding, by another road than the
// library's X509_digest.
std::string DerDigest(const std::string& certificate_file, const EVP_MD* md) {
  X509* certificate = ReadCertificate(certificate_file);
  unsigned char* der = nullptr;
  int size = i2d_X509(certificate, &der);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(der, static_cast<size_t>(size), digest, &length, md, nullptr);
  OPENSSL_free(der);
  X509_free(certificate);
  return std::string(reinterpret_cast<char*>(digest), length);
}

std::string Unbase64(const std::string& text) {
  std::string bytes;
  EXPECT_TRUE(Base64UrlDecode(text, &bytes)) << text;
  return bytes;
}

// Verifies with padding and salt length fixed, so a signature made with some
// other salt length fails.
bool Verifies(const std::string& certificate_file, bool pss, const std::string& signed_text,
              const std::string& signature) {
  X509* certificate = ReadCertificate(certificate_file);
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_PKEY_CTX* key_context = nullptr;
  bool ok = EVP_DigestVerifyInit(context, &key_context, EVP_sha256(), nullptr,
                                 X509_get0_pubkey(certificate)) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(key_context,
                                         pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING) > 0 &&
            (!pss || EVP_PKEY_CTX_set_rsa_pss_saltlen(key_context, RSA_PSS_SALTLEN_DIGEST) > 0) &&
            EVP_DigestVerify(context, reinterpret_cast<const unsigned char*>(signature.data()),
                             signature.size(),
                             reinterpret_cast<const unsigned char*>(signed_text.data()),
                             signed_text.size()) == 1;
  EVP_MD_CTX_free(context);
  X509_free(certificate);
  return ok;
}

struct Input {
  std::string certificate, key;  // files; key "" for a PKCS#12 bundle
  const char* password;
};

AuthResult Load(ClientAssertion* assertion, const Input& in, bool from_memory,
                std::string* detail) {
  const char* key_file = in.key.empty() ? nullptr : in.key.c_str();
  if (!from_memory) {
    return assertion->LoadFiles(in.certificate.c_str(), key_file, in.password, detail);
  }
  std::string certificate = TestCertificates::ReadFile(in.certificate);
  std::string key = key_file != nullptr ? TestCertificates::ReadFile(in.key) : std::string();
  return assertion->LoadData(certificate.data(), certificate.size(),
                             key_file != nullptr ? key.data() : nullptr, key.size(), in.password,
                             detail);
}

TEST(ClientAssertionTest, SignsAssertionsEntraIdAcceptsFromEveryForm) {
  const TestCertificates& c = TestCertificates::Shared();
  const std::vector<Input> inputs = {
      {c.cert_pem, c.key_pem, nullptr},
      {c.cert_pem, c.key_pem, "ignored: the key is plain"},
      {c.cert_pem, c.key_encrypted_pem, c.key_password.c_str()},
      {c.bundle_p12, "", c.bundle_password.c_str()},
      {c.bundle_nopass_p12, "", nullptr},
      {c.bundle_nopass_p12, "", ""},
  };
  const std::string sha256 = DerDigest(c.cert_pem, EVP_sha256());
  const std::string sha1 = DerDigest(c.cert_pem, EVP_sha1());
  const std::regex guid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::set<std::string> ids;
  size_t signed_count = 0;
  for (const Input& in : inputs) {
    for (bool from_memory : {false, true}) {
      SCOPED_TRACE(in.certificate + " " + in.key + (from_memory ? " (memory)" : " (files)"));
      ClientAssertion assertion;
      std::string detail;
      ASSERT_EQ(kAuthResultOk, Load(&assertion, in, from_memory, &detail)) << detail;
      EXPECT_EQ(sha256, Unbase64(assertion.ThumbprintSha256()));
      EXPECT_EQ(sha1, Unbase64(assertion.ThumbprintSha1()));

      for (bool pss : {true, false}) {
        SecretString jwt;
        ASSERT_TRUE(assertion.Sign(pss ? kEntraAssertionPs256 : kEntraAssertionRs256, kClientId,
                                   kAudience, kNow, &jwt, &detail))
            << detail;
        ++signed_count;
        const std::string text(jwt.view());
        ASSERT_TRUE(std::regex_match(text, std::regex("[A-Za-z0-9_-]+\\.[A-Za-z0-9_-]+\\."
                                                      "[A-Za-z0-9_-]+")))
            << text;
        size_t first = text.find('.');
        size_t second = text.find('.', first + 1);
        EXPECT_TRUE(Verifies(c.cert_pem, pss, text.substr(0, second),
                             Unbase64(text.substr(second + 1))));

        nlohmann::json header = nlohmann::json::parse(Unbase64(text.substr(0, first)));
        nlohmann::json expected_header = {{"alg", pss ? "PS256" : "RS256"}, {"typ", "JWT"}};
        expected_header[pss ? "x5t#S256" : "x5t"] =
            pss ? assertion.ThumbprintSha256() : assertion.ThumbprintSha1();
        EXPECT_EQ(expected_header, header);

        nlohmann::json claims =
            nlohmann::json::parse(Unbase64(text.substr(first + 1, second - first - 1)));
        std::string jti = claims.value("jti", "");
        EXPECT_TRUE(std::regex_match(jti, guid)) << jti;
        ids.insert(jti);
        nlohmann::json expected_claims = {{"aud", kAudience}, {"iss", kClientId},
                                          {"sub", kClientId}, {"jti", jti},
                                          {"nbf", kNow},      {"iat", kNow},
                                          {"exp", kNow + 600}};
        EXPECT_EQ(expected_claims, claims);
        for (const char* time : {"nbf", "iat", "exp"}) {
          EXPECT_TRUE(claims[time].is_number_integer()) << time;
        }
      }
    }
  }
  EXPECT_EQ(signed_count, ids.size()) << "a jti came twice";
}

TEST(ClientAssertionTest, RefusesWithDetailNamingTheProblem) {
  const TestCertificates& c = TestCertificates::Shared();
  const std::string missing = c.directory() + "/missing.pem";
  // `named` is the file the detail ends with; with input from memory the
  // detail ends with what was given in memory instead.
  const struct {
    Input in;
    std::string detail;
    const std::string* named;
  } rows[] = {
      {{c.weak_cert_pem, c.weak_key_pem, nullptr},
       "The RSA key has 1024 bits; Entra ID requires at least 2048.", nullptr},
      {{c.cert_pem, c.other_key_pem, nullptr}, "The key does not belong to the certificate.",
       nullptr},
      {{c.weak_cert_pem, c.key_pem, nullptr}, "The key does not belong to the certificate.",
       nullptr},
      {{c.ec_cert_pem, c.ec_key_pem, nullptr},
       "The key is of type EC; Entra ID accepts RSA keys only.", nullptr},
      {{c.cert_pem, c.key_encrypted_pem, "wrong-password"},
       "The private key could not be read: wrong password or not a PEM key: ",
       &c.key_encrypted_pem},
      {{c.cert_pem, c.key_encrypted_pem, nullptr},
       "The private key is encrypted and no password was given: ", &c.key_encrypted_pem},
      {{c.cert_pem, c.cert_pem, nullptr},
       "The private key could not be read: wrong password or not a PEM key: ", &c.cert_pem},
      {{c.key_pem, c.key_pem, nullptr}, "The certificate could not be read: ", &c.key_pem},
      {{c.bundle_p12, "", "wrong-password"},
       "The PKCS#12 bundle could not be opened: wrong password: ", &c.bundle_p12},
      {{c.bundle_p12, "", nullptr},
       "The PKCS#12 bundle could not be opened: a password is needed: ", &c.bundle_p12},
      {{c.cert_pem, "", nullptr}, "The PKCS#12 bundle could not be read: ", &c.cert_pem},
      {{missing, c.key_pem, nullptr}, "The certificate file could not be opened: ", &missing},
  };
  for (const auto& row : rows) {
    for (bool from_memory : {false, true}) {
      if (from_memory && row.named == &missing) continue;
      SCOPED_TRACE(row.detail + (from_memory ? " (memory)" : " (files)"));
      ClientAssertion assertion;
      std::string detail;
      // A refusal must also drop what an earlier load held.
      ASSERT_EQ(kAuthResultOk, assertion.LoadFiles(c.cert_pem.c_str(), c.key_pem.c_str(),
                                                   nullptr, &detail));
      EXPECT_EQ(kAuthResultInvalidInput, Load(&assertion, row.in, from_memory, &detail));
      EXPECT_EQ(0u, detail.rfind(row.detail, 0)) << detail;
      if (row.named != nullptr && !from_memory) {
        EXPECT_EQ(detail.substr(row.detail.size()).rfind(*row.named, 0), 0u) << detail;
      } else if (row.named != nullptr) {
        EXPECT_NE(std::string::npos, detail.find("given in memory)")) << detail;
      }
      for (const std::string& secret : {std::string("wrong-password"), c.key_password,
                                        c.bundle_password}) {
        EXPECT_EQ(std::string::npos, detail.find(secret)) << detail;
      }
      EXPECT_FALSE(assertion.IsLoaded());
      EXPECT_EQ("", assertion.ThumbprintSha256());
      SecretString jwt;
      EXPECT_FALSE(assertion.Sign(kEntraAssertionPs256, kClientId, kAudience, kNow, &jwt, &detail));
      EXPECT_TRUE(jwt.empty());
    }
  }

  ClientAssertion assertion;
  std::string pem = TestCertificates::ReadFile(c.cert_pem);
  EXPECT_EQ(kAuthResultInvalidInput, assertion.LoadFiles(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(kAuthResultInvalidInput, assertion.LoadData(nullptr, 5, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(kAuthResultInvalidInput,
            assertion.LoadData(pem.data(), pem.size(), pem.data(), 0, nullptr, nullptr));
}

}  // namespace
}  // namespace Vantrel::Auth

// ClientAssertion: the application's certificate and private key, and the
// signed JSON Web Token (RFC 7523) that proves them to Entra ID.
//
// OpenSSL holds the key; nothing of it reaches a header. The key's memory
// is OpenSSL's, released (and cleansed by OpenSSL) with the object.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_CLIENT_ASSERTION_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_CLIENT_ASSERTION_H_

#include <cstddef>
#include <ctime>
#include <memory>
#include <string>

#include "VantrelAuthEngine64/AuthTypes.h"
#include "VantrelAuthEngine64/EntraId.h"
#include "base/SecretString.h"

namespace Vantrel {
namespace Auth {

class ClientAssertion {
 public:
  ClientAssertion();
  ~ClientAssertion();
  ClientAssertion(const ClientAssertion&) = delete;
  ClientAssertion& operator=(const ClientAssertion&) = delete;

  // PEM certificate file and PEM key file (the key possibly encrypted, then
  // `password` opens it); or, with `key_file` null, a PKCS#12 file opened with
  // `password` (null for none). kAuthResultInvalidInput with a detail naming
  // the file and what is wrong: unreadable, not a certificate or key, wrong
  // password, key and certificate that don't belong together, not an RSA
  // key, an RSA key under 2048 bits. Loading the very bytes and password
  // that are loaded already keeps them as they are, parsed.
  AuthResult LoadFiles(const char* certificate_file, const char* key_file, const char* password,
                       std::string* detail);
  // The same from memory: PEM texts, or with `key` null PKCS#12 bytes in
  // `certificate`.
  AuthResult LoadData(const char* certificate, size_t certificate_size, const char* key,
                      size_t key_size, const char* password, std::string* detail);

  // A fresh assertion: header {"alg","typ":"JWT","x5t#S256" (PS256) or "x5t"
  // (RS256)}, claims aud = `audience` (the token endpoint URL exactly),
  // iss = sub = `client_id`, jti = a new random GUID, nbf = iat = `now`,
  // exp = `now` + 600. False, with a detail, when signing fails.
  bool Sign(EntraAssertionAlgorithm algorithm, const std::string& client_id,
            const std::string& audience, time_t now, SecretString* jwt, std::string* detail) const;

  bool IsLoaded() const;
  // base64url of the certificate's DER under SHA-256 and SHA-1.
  const std::string& ThumbprintSha256() const { return x5t_s256_; }
  const std::string& ThumbprintSha1() const { return x5t_; }

 private:
  struct Keys;
  // Takes the keys over, also when it refuses them or throws.
  AuthResult Adopt(std::unique_ptr<Keys> keys, const std::string& digest, std::string* detail);
  void Unload();
  bool IsLoadedFrom(const std::string& digest) const;

  Keys* keys_;
  std::string x5t_s256_;
  std::string x5t_;
  // SHA-256 of the bytes and password the keys were loaded from.
  std::string loaded_digest_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_CLIENT_ASSERTION_H_

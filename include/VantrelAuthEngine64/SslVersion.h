// The SSL/TLS version a request asks for.
#ifndef VANTREL_AUTH_SSL_VERSION_H_
#define VANTREL_AUTH_SSL_VERSION_H_

#include <cstdint>

namespace Vantrel {
namespace Auth {

enum SslVersion : int32_t {
  kSslVersionTls1 = 0,     // require TLS 1
  kSslVersionSsl3 = 1,     // require SSL 3 (refused by current libcurl builds, which then use their default)
  kSslVersionDefault = 2,  // leave the choice to libcurl
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_SSL_VERSION_H_

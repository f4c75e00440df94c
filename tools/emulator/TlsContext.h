// TlsContext: the emulator's TLS server configuration and certificate choice.
//
// A connection to the HTTPS listener gets the listener's own certificate
// (localhost and 127.0.0.1 by default). A CONNECT tunnel gets a leaf for the
// host the client names in SNI, or for the CONNECT host when there is no SNI
// (an IP address), issued on the fly by the authority; the HTTPS listener does
// the same for SNI names outside its own when asked to, which lets a client
// that pins a name to 127.0.0.1 verify it too.
#ifndef VANTREL_EMULATOR_TLS_CONTEXT_H_
#define VANTREL_EMULATOR_TLS_CONTEXT_H_

#include <memory>
#include <string>
#include <vector>

#include "emulator/CertificateAuthority.h"
#include "emulator/TlsIdentity.h"

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace Vantrel {
namespace Emulation {

class TlsContext {
 public:
  // `listener_identity` serves `listener_names`; the authority issues all
  // other leaves. Throws std::runtime_error when OpenSSL fails.
  TlsContext(std::shared_ptr<CertificateAuthority> authority,
             std::shared_ptr<const TlsIdentity> listener_identity,
             std::vector<std::string> listener_names, bool leaves_for_any_name);
  ~TlsContext();

  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  // A server session bound to `fd`. `tunnel_host` is the CONNECT host, empty
  // for the HTTPS listener; it must outlive the handshake. Null on failure.
  SSL* NewSession(int fd, const std::string* tunnel_host) const;

 private:
  static int SelectCertificate(SSL* ssl, void* self);

  std::shared_ptr<CertificateAuthority> authority_;
  std::shared_ptr<const TlsIdentity> listener_identity_;
  std::vector<std::string> listener_names_;
  bool leaves_for_any_name_;
  SSL_CTX* ctx_;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_TLS_CONTEXT_H_

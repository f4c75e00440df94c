#include "emulator/TlsContext.h"

#include <openssl/ssl.h>

#include <cctype>
#include <exception>
#include <stdexcept>
#include <utility>

#include "emulator/Request.h"

namespace Vantrel {
namespace Emulation {

TlsContext::TlsContext(std::shared_ptr<CertificateAuthority> authority,
                       std::shared_ptr<const TlsIdentity> listener_identity,
                       std::vector<std::string> listener_names, bool leaves_for_any_name)
    : authority_(std::move(authority)),
      listener_identity_(std::move(listener_identity)),
      listener_names_(std::move(listener_names)),
      leaves_for_any_name_(leaves_for_any_name),
      ctx_(SSL_CTX_new(TLS_server_method())) {
  if (ctx_ == nullptr) throw std::runtime_error("emulator TLS: SSL_CTX_new failed");
  SSL_CTX_set_cert_cb(ctx_, &TlsContext::SelectCertificate, this);
}

TlsContext::~TlsContext() { SSL_CTX_free(ctx_); }

SSL* TlsContext::NewSession(int fd, const std::string* tunnel_host) const {
  SSL* ssl = SSL_new(ctx_);
  if (ssl == nullptr) return nullptr;
  if (SSL_set_fd(ssl, fd) != 1) {
    SSL_free(ssl);
    return nullptr;
  }
  SSL_set_app_data(ssl, const_cast<std::string*>(tunnel_host));
  return ssl;
}

// Runs inside the handshake, after the ClientHello (and so SNI) is known.
int TlsContext::SelectCertificate(SSL* ssl, void* self) {
  const TlsContext* context = static_cast<const TlsContext*>(self);
  const auto* tunnel_host = static_cast<const std::string*>(SSL_get_app_data(ssl));
  const char* sni = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
  std::string name = sni != nullptr ? sni : tunnel_host != nullptr ? *tunnel_host : "";
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));

  bool own_name = name.empty();
  for (const std::string& listener_name : context->listener_names_) {
    own_name = own_name || EqualsIgnoreCase(name, listener_name);
  }
  std::shared_ptr<const TlsIdentity> identity = context->listener_identity_;
  if (tunnel_host != nullptr || (!own_name && context->leaves_for_any_name_)) {
    try {
      identity = context->authority_->Leaf({name});
    } catch (const std::exception&) {
      return 0;
    }
  }
  return SSL_use_certificate(ssl, identity->certificate()) == 1 &&
                 SSL_use_PrivateKey(ssl, identity->key()) == 1
             ? 1 : 0;
}

}  // namespace Emulation
}  // namespace Vantrel

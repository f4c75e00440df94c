// Connection: the HTTP conversation on one accepted socket.
//
// Serves requests until either side closes: keep-alive and pipelining as the
// client asks, absolute-form proxy requests, and CONNECT tunnels, inside which
// it terminates TLS itself (or speaks plain HTTP if the client doesn't start a
// handshake). Nothing is ever forwarded: every request, proxied or not, is
// answered through the Exchange.
#ifndef VANTREL_EMULATOR_CONNECTION_H_
#define VANTREL_EMULATOR_CONNECTION_H_

#include <cstdint>
#include <string>

#include "emulator/Request.h"
#include "emulator/Response.h"
#include "emulator/Stream.h"
#include "emulator/TlsContext.h"

namespace Vantrel {
namespace Emulation {

// What a connection needs from the emulator: the answer to each request. Both
// calls record the request before returning, and run on connection threads.
class Exchange {
 public:
  virtual ~Exchange() = default;
  virtual Response Answer(const Request& request) = 0;
  // A 2xx answer opens the tunnel; any other is sent and the connection closed.
  virtual Response AnswerConnect(const Request& request) = 0;
  // Whether TLS handshakes stop after the client's hello (see Emulator).
  virtual bool StallsTlsHandshakes() const { return false; }
};

class Connection {
 public:
  // `tls` serves the handshakes: at once when `tls_listener`, else in tunnels.
  Connection(int fd, int local_port, bool tls_listener, std::uint64_t id, const TlsContext* tls,
             Exchange* exchange);

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Returns when the conversation is over; the caller closes the socket.
  void Serve();

 private:
  bool StartTls(const std::string* tunnel_host);
  // Answers a CONNECT; true when the tunnel is open.
  bool OpenTunnel(Request* connect);
  void Close(bool abrupt);
  // Reads and drops what the client sends until it closes or the server
  // stops: a server that has gone quiet.
  void HoldUntilClientLeaves();
  // Takes the client's hello, answers with the head of a record that never
  // comes whole, and goes quiet.
  void StallTlsHandshake();

  int fd_;
  int local_port_;
  bool tls_listener_;
  std::uint64_t id_;
  const TlsContext* tls_;
  Exchange* exchange_;
  Stream stream_;
  bool in_tunnel_ = false;
  std::string tunnel_host_;
  int tunnel_port_ = 0;
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_CONNECTION_H_

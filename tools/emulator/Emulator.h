// Emulator: a scriptable HTTP, HTTPS and proxy server on loopback, standing in
// for the sites and sign-in services that the library talks to.
//
//   Vantrel::Emulation::Emulator server;
//   server.Start();
//   server.Route("POST", "", "/_vti_bin/authentication.asmx", [](const Request& r) {
//     return Response::Text(200, "<LoginResult/>", "text/xml").SetCookie("FedAuth=x; path=/");
//   });
//   ... curl with CURLOPT_PROXY = server.ProxyUrl(), CURLOPT_CAINFO = server.CaFile() ...
//   EXPECT_EQ(server.Requests().at(0).Host(), "contoso.sharepoint.com");
//
// Listeners:
//   - HTTP on HttpPort(): origin-form requests to the emulator itself, and the
//     proxy: absolute-form requests ("GET http://host/x") and CONNECT tunnels.
//     Inside a tunnel the emulator terminates TLS with a leaf for the requested
//     name signed by its CA, so a client verifying against CaFile() succeeds
//     for any host name. Nothing leaves the machine.
//   - HTTPS on HttpsPort(), certificate for localhost and 127.0.0.1.
// Both listen on 127.0.0.1 by default; the ports are ephemeral unless set.
//
// Responses come from the queue, then routes, then a 404; see router.h for the
// precedence. Endpoint families (a site, a token service) live in their own
// source files as functions that register their routes on an Emulator, e.g.
// `void InstallSomething(Emulator* emulator, const SomethingOptions& options);`
// so a test or the standalone program picks the families it needs.
//
// All members are thread-safe. Handlers run on connection threads.
#ifndef VANTREL_EMULATOR_EMULATOR_H_
#define VANTREL_EMULATOR_EMULATOR_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/CertificateAuthority.h"
#include "emulator/Connection.h"
#include "emulator/Request.h"
#include "emulator/RequestLog.h"
#include "emulator/Response.h"
#include "emulator/Router.h"
#include "emulator/Server.h"
#include "emulator/TlsContext.h"

namespace Vantrel {
namespace Emulation {

class Emulator : private Exchange {
 public:
  struct Options {
    std::string address = "127.0.0.1";
    int http_port = 0;
    int https_port = 0;
    // The CA that signs every leaf; null makes a fresh one for this emulator.
    // Sharing one between emulators lets one CA file vouch for all of them.
    std::shared_ptr<CertificateAuthority> authority;
    // Names on the HTTPS listener's certificate.
    std::vector<std::string> https_names = {"localhost", "127.0.0.1"};
    // Answer other SNI names on the HTTPS listener with a leaf for that name.
    bool https_leaf_for_any_name = true;
    // Make the HTTPS listener present a self-signed certificate, which no CA
    // file vouches for. Tunnels still use leaves of the authority.
    bool https_self_signed = false;
  };

  // Called once per answered request or CONNECT, on the connection thread.
  using Observer = std::function<void(const Request& request, const Response& response)>;

  Emulator();
  explicit Emulator(Options options);
  ~Emulator() override;

  Emulator(const Emulator&) = delete;
  Emulator& operator=(const Emulator&) = delete;

  // Binds and starts serving. False, with the reason in `error`, when a port
  // can't be bound. Certificates are made in the constructor, which throws
  // std::runtime_error if OpenSSL fails.
  bool Start(std::string* error = nullptr);

  // Closes the listeners and every connection, idle or not, and joins all
  // server threads. Idempotent; the destructor calls it.
  void Stop();

  int HttpPort() const { return server_.http_port(); }
  int HttpsPort() const { return server_.https_port(); }

  // "http://127.0.0.1:<port>" + path; `path` should start with "/".
  std::string HttpUrl(std::string_view path = "/") const;
  std::string HttpsUrl(std::string_view path = "/") const;
  // The proxy address for CURLOPT_PROXY: the HTTP listener.
  std::string ProxyUrl() const;

  // PEM file of the CA certificate, for CURLOPT_CAINFO.
  const std::string& CaFile() const { return authority_->CaFile(); }
  CertificateAuthority& Authority() { return *authority_; }

  // Answers the next request not yet answered, before any route.
  void Enqueue(Response response);
  std::size_t QueuedCount() const { return router_.QueuedCount(); }

  // Registers a handler; see router.h for matching. Method, host and prefix
  // may each be empty to match anything.
  RouteId Route(std::string method, std::string host, std::string path_prefix, Handler handler);
  void Unroute(RouteId id);

  // Requests received so far, oldest first, CONNECTs excepted.
  std::vector<Request> Requests() const { return requests_.Snapshot(); }
  // CONNECT requests received so far, oldest first.
  std::vector<Request> Tunnels() const { return tunnels_.Snapshot(); }
  void ClearRequests();
  // Waits until Requests() holds at least `count` entries; false on time-out.
  bool WaitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
    return requests_.WaitFor(count, timeout);
  }

  void SetObserver(Observer observer);

  // While set, every TLS handshake, on the HTTPS listener or in a tunnel,
  // stops after the client's hello: the server sends the head of its answer
  // and nothing more, and holds the connection until the client leaves.
  void StallTlsHandshakes(bool stall) { stall_tls_ = stall; }

 private:
  Response Answer(const Request& request) override;
  Response AnswerConnect(const Request& request) override;
  bool StallsTlsHandshakes() const override { return stall_tls_; }
  void Notify(const Request& request, const Response& response);

  Options options_;
  std::shared_ptr<CertificateAuthority> authority_;
  TlsContext tls_;
  Router router_;
  RequestLog requests_;
  RequestLog tunnels_;
  std::mutex observer_mutex_;
  Observer observer_;
  std::atomic<bool> stall_tls_{false};
  Server server_;  // last: its threads use all of the above
};

}  // namespace Emulation
}  // namespace Vantrel

#endif  // VANTREL_EMULATOR_EMULATOR_H_

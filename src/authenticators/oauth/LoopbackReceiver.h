// LoopbackReceiver: the one redirect of a browser sign-in, taken on
// 127.0.0.1 (never any other address) at a port the system picks.
//
// It answers every request it reads: the redirect ("GET /?code=..&state=.."
// or "GET /?error=..&error_description=..") with a short HTML page that
// tells the user to go back to the application, anything else (a favicon,
// a stray probe) with 404, and goes on waiting after those. After the
// redirect it stops listening, so a second request finds nobody.
#ifndef VANTREL_AUTH_AUTHENTICATORS_OAUTH_LOOPBACK_RECEIVER_H_
#define VANTREL_AUTH_AUTHENTICATORS_OAUTH_LOOPBACK_RECEIVER_H_

#include <chrono>
#include <map>
#include <string>

namespace Vantrel {
namespace Auth {

class Cancellation;

class LoopbackReceiver {
 public:
  enum class Outcome { kRedirect, kTimedOut, kCancelled, kFailed };

  LoopbackReceiver();
  ~LoopbackReceiver();
  LoopbackReceiver(const LoopbackReceiver&) = delete;
  LoopbackReceiver& operator=(const LoopbackReceiver&) = delete;

  // Binds 127.0.0.1 on a free port and listens. False, with the reason in
  // `detail`, when the system refuses.
  bool Listen(std::string* detail);
  int port() const { return port_; }
  // "http://localhost:PORT", the redirect URI to register and send.
  std::string RedirectUri() const;

  // Waits for the redirect until `deadline`, watching `cancellation` (may be
  // null) at least every 100 ms. kRedirect fills `parameters` with the
  // decoded query of the redirect (it holds "code" or "error"). A client
  // that connects and sends nothing, or sends slowly, cannot hold the wait
  // past the deadline.
  Outcome Wait(std::chrono::steady_clock::time_point deadline, const Cancellation* cancellation,
               std::map<std::string, std::string>* parameters, std::string* detail);

 private:
  int listener_;
  int port_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_AUTHENTICATORS_OAUTH_LOOPBACK_RECEIVER_H_

// The browser redirect on loopback, with real sockets: what counts as the
// redirect and how it is decoded, what is turned away, and that no client
// and no missing one holds the wait past its deadline or a cancel.
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "authenticators/oauth/LoopbackReceiver.h"
#include "base/Cancellation.h"

namespace Vantrel::Auth {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Outcome = LoopbackReceiver::Outcome;
using Parameters = std::map<std::string, std::string>;

// A connected socket to `address` (IPv4 or IPv6 text), or -1 with errno set.
int Connect(const char* address, int port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address, std::to_string(port).c_str(), &hints, &found) != 0) return -1;
  int fd = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  timeval five_seconds{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &five_seconds, sizeof five_seconds);
  const int result = connect(fd, found->ai_addr, found->ai_addrlen);
  const int error = errno;
  freeaddrinfo(found);
  if (result == 0) return fd;
  close(fd);
  errno = error;
  return -1;
}

// Sends `request`, then reads the answer until the server closes.
std::string Exchange(int port, const std::string& request, bool half_close = false) {
  int fd = Connect("127.0.0.1", port);
  if (fd < 0) return "connect failed";
  send(fd, request.data(), request.size(), MSG_NOSIGNAL);
  if (half_close) shutdown(fd, SHUT_WR);
  std::string answer;
  char buffer[4096];
  ssize_t got;
  while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) answer.append(buffer, got);
  close(fd);
  return answer;
}

std::string Get(const std::string& target) { return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n"; }

struct Waited {
  Outcome outcome;
  Parameters parameters;
  std::string detail;
  Clock::time_point ended;
};

// Listens on `receiver` and waits on another thread until `timeout` from now.
std::future<Waited> StartWait(LoopbackReceiver* receiver, Clock::duration timeout,
                              const Cancellation* cancellation = nullptr) {
  std::string detail;
  EXPECT_TRUE(receiver->Listen(&detail)) << detail;
  Clock::time_point deadline = Clock::now() + timeout;
  return std::async(std::launch::async, [=] {
    Waited waited;
    waited.outcome = receiver->Wait(deadline, cancellation, &waited.parameters, &waited.detail);
    waited.ended = Clock::now();
    return waited;
  });
}

// Whatever comes before the redirect is turned away and the wait goes on, and
// clients that send nothing hold nothing up; the redirect is decoded, answered,
// and ends the listening.
TEST(LoopbackReceiverTest, StrayRequestsAreTurnedAwayThenTheRedirectIsDecoded) {
  // The start of each answer; "" for a connection closed unanswered.
  const struct { std::string request, answer; bool half_close; } strays[] = {
      {Get("/favicon.ico"), "HTTP/1.1 404 Not Found\r\n", false},
      {"POST /?code=posted HTTP/1.1\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 404", false},
      {Get("/?state=only"), "HTTP/1.1 404", false},
      {Get("/callback?code=pathed"), "HTTP/1.1 404", false},
      {std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15), "HTTP/1.1 404", false},
      {"GET /?code=huge" + std::string(9000, 'a'), "HTTP/1.1 431", false},
      {"GET /?code=cut", "", true},
  };
  const struct { std::string query; Parameters parameters; std::string page; } redirects[] = {
      // The first of two codes wins; a broken escape stays as it is.
      {"code=0.AXo-abc_DEF%2F%2B%3D&state=s1+x%20y&code=second&x=%zz%4&flag&",
       {{"code", "0.AXo-abc_DEF/+="}, {"state", "s1 x y"}, {"x", "%zz%4"}, {"flag", ""}},
       "Signed in. You can close this window and return to the application."},
      {"error=%3Cscript%3E%26%22x%27&error_description=AADSTS65004%3A+User+declined.",
       {{"error", "<script>&\"x'"}, {"error_description", "AADSTS65004: User declined."}},
       "Sign-in failed: &lt;script&gt;&amp;&quot;x&#39;. You can close this window."},
  };
  for (const auto& redirect : redirects) {
    SCOPED_TRACE(redirect.query);
    LoopbackReceiver receiver;
    std::future<Waited> wait = StartWait(&receiver, std::chrono::seconds(20));
    // More silent clients than are read side by side: the oldest must make room.
    std::vector<int> silent;
    for (int i = 0; i < 20; ++i) silent.push_back(Connect("127.0.0.1", receiver.port()));
    for (const auto& stray : strays) {
      std::string answer = Exchange(receiver.port(), stray.request, stray.half_close);
      EXPECT_EQ(stray.answer, answer.substr(0, stray.answer.empty() ? answer.npos : stray.answer.size()))
          << stray.request.substr(0, 40);
    }
    Clock::time_point sent = Clock::now();
    std::string answer = Exchange(receiver.port(), Get("/?" + redirect.query));
    Waited waited = wait.get();
    for (int fd : silent) close(fd);
    EXPECT_LT(waited.ended - sent, milliseconds(1000));
    EXPECT_EQ(Outcome::kRedirect, waited.outcome) << waited.detail;
    EXPECT_EQ(redirect.parameters, waited.parameters);
    EXPECT_EQ(0u, answer.rfind("HTTP/1.1 200 OK\r\n", 0)) << answer;
    EXPECT_NE(std::string::npos, answer.find("<p>" + redirect.page)) << answer;
    // A second request finds nobody listening.
    EXPECT_EQ(-1, Connect("127.0.0.1", receiver.port()));
    EXPECT_EQ(ECONNREFUSED, errno);
  }
}

TEST(LoopbackReceiverTest, WithoutRedirectTheWaitEndsAtTheDeadlineOrOnCancel) {
  // raise_after_ms: -1 never, 0 before the wait starts.
  const struct { const char* name; milliseconds timeout; int raise_after_ms; Outcome outcome; } rows[] = {
      {"nothing arrives", milliseconds(300), -1, Outcome::kTimedOut},
      {"cancelled while waiting", milliseconds(10000), 200, Outcome::kCancelled},
      {"cancelled before", milliseconds(10000), 0, Outcome::kCancelled},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    LoopbackReceiver receiver;
    Cancellation cancellation;
    Clock::time_point start = Clock::now();
    if (row.raise_after_ms == 0) cancellation.Raise();
    std::future<Waited> wait = StartWait(&receiver, row.timeout, &cancellation);
    Clock::time_point end_expected = start + (row.raise_after_ms < 0 ? row.timeout : milliseconds(row.raise_after_ms));
    if (row.raise_after_ms > 0) {
      std::this_thread::sleep_until(end_expected);
      cancellation.Raise();
    }
    Waited waited = wait.get();
    EXPECT_EQ(row.outcome, waited.outcome) << waited.detail;
    EXPECT_TRUE(waited.parameters.empty());
    EXPECT_FALSE(waited.detail.empty());
    EXPECT_GE(waited.ended + milliseconds(5), end_expected);
    EXPECT_LT(waited.ended - end_expected, milliseconds(200));
  }
}

// Neither the rest of 127/8 nor IPv6 loopback reaches it, so no wildcard
// address is bound either.
TEST(LoopbackReceiverTest, ListensOnLoopbackAddressOneOnly) {
  LoopbackReceiver receiver;
  std::string detail;
  ASSERT_TRUE(receiver.Listen(&detail)) << detail;
  for (const char* address : {"127.0.0.1", "127.0.0.2", "::1"}) {
    int fd = Connect(address, receiver.port());
    EXPECT_EQ(fd >= 0, address == std::string("127.0.0.1")) << address;
    if (fd >= 0) close(fd);
  }
}

}  // namespace
}  // namespace Vantrel::Auth

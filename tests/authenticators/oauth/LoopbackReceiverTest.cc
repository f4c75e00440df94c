// The browser redirect on loopback, with real sockets: what counts as the
// redirect and how it is decoded, what is turned away, and that no client
// and no missing one holds the wait past its deadline or a cancel.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
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
  sockaddr_storage storage{};
  auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
  socklen_t length = sizeof(sockaddr_in);
  if (inet_pton(AF_INET, address, &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(static_cast<uint16_t>(port));
  } else if (inet_pton(AF_INET6, address, &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(static_cast<uint16_t>(port));
    length = sizeof(sockaddr_in6);
  }
  int fd = socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  timeval five_seconds{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &five_seconds, sizeof five_seconds);
  if (connect(fd, reinterpret_cast<sockaddr*>(&storage), length) == 0) return fd;
  int error = errno;
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

std::string Get(const std::string& target) {
  return "GET " + target + " HTTP/1.1\r\nHost: localhost\r\nUser-Agent: test\r\n\r\n";
}

struct Waited {
  Outcome outcome;
  Parameters parameters;
  std::string detail;
  Clock::time_point ended;
};

std::future<Waited> StartWait(LoopbackReceiver* receiver, Clock::duration timeout,
                              const Cancellation* cancellation = nullptr) {
  Clock::time_point deadline = Clock::now() + timeout;
  return std::async(std::launch::async, [=] {
    Waited waited;
    waited.outcome = receiver->Wait(deadline, cancellation, &waited.parameters, &waited.detail);
    waited.ended = Clock::now();
    return waited;
  });
}

TEST(LoopbackReceiverTest, RedirectIsDecodedAnsweredAndEndsTheListening) {
  const struct {
    std::string query;
    Parameters parameters;
    std::string page;
  } rows[] = {
      {"code=0.AXo-abc_DEF%2F%2B%3D&state=s1+x%20y&session_state=9",
       {{"code", "0.AXo-abc_DEF/+="}, {"state", "s1 x y"}, {"session_state", "9"}},
       "Signed in. You can close this window and return to the application."},
      {"error=access_denied&error_description=AADSTS65004%3A+User+declined.&state=s",
       {{"error", "access_denied"}, {"error_description", "AADSTS65004: User declined."},
        {"state", "s"}},
       "Sign-in failed: access_denied. You can close this window."},
      {"error=%3Cscript%3E%26%22x%27", {{"error", "<script>&\"x'"}},
       "Sign-in failed: &lt;script&gt;&amp;&quot;x&#39;. You can close this window."},
      // The first of two codes wins; a broken escape stays as it is.
      {"state=a&code=c&code=second&x=%zz%4&flag&", {{"state", "a"}, {"code", "c"}, {"x", "%zz%4"},
                                                    {"flag", ""}},
       "Signed in."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.query);
    LoopbackReceiver receiver;
    std::string detail;
    ASSERT_TRUE(receiver.Listen(&detail)) << detail;
    std::future<Waited> wait = StartWait(&receiver, std::chrono::seconds(10));
    std::string answer = Exchange(receiver.port(), Get("/?" + row.query));
    Waited waited = wait.get();
    EXPECT_EQ(Outcome::kRedirect, waited.outcome) << waited.detail;
    EXPECT_EQ(row.parameters, waited.parameters);
    EXPECT_EQ(0u, answer.rfind("HTTP/1.1 200 OK\r\n", 0)) << answer;
    EXPECT_NE(std::string::npos, answer.find("Content-Type: text/html")) << answer;
    EXPECT_NE(std::string::npos, answer.find("<p>" + row.page)) << answer;
    // A second request finds nobody listening.
    EXPECT_EQ(-1, Connect("127.0.0.1", receiver.port()));
    EXPECT_EQ(ECONNREFUSED, errno);
  }
}

TEST(LoopbackReceiverTest, OtherRequestsAreTurnedAwayAndTheWaitGoesOn) {
  const struct {
    std::string request;
    std::string answer;  // its start; "" for a connection closed unanswered
    bool half_close;
  } rows[] = {
      {Get("/favicon.ico"), "HTTP/1.1 404 Not Found\r\n", false},
      {"POST /?code=posted HTTP/1.1\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 404", false},
      {Get("/?state=only"), "HTTP/1.1 404", false},
      {Get("/callback?code=pathed"), "HTTP/1.1 404", false},
      {"GET /?code=versionless\r\n\r\n", "HTTP/1.1 404", false},
      {"GET /favicon.ico HTTP/1.1\n\n", "HTTP/1.1 404", false},
      {std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15), "HTTP/1.1 404",
       false},
      {"GET /?code=huge" + std::string(9000, 'a'), "HTTP/1.1 431", false},
      {"GET /?code=cut", "", true},
  };
  LoopbackReceiver receiver;
  std::string detail;
  ASSERT_TRUE(receiver.Listen(&detail)) << detail;
  std::future<Waited> wait = StartWait(&receiver, std::chrono::seconds(20));
  for (const auto& row : rows) {
    std::string answer = Exchange(receiver.port(), row.request, row.half_close);
    EXPECT_EQ(row.answer, row.answer.empty() ? answer : answer.substr(0, row.answer.size()))
        << row.request.substr(0, 40);
  }
  EXPECT_EQ(0u, Exchange(receiver.port(), Get("/?code=right")).rfind("HTTP/1.1 200", 0));
  Waited waited = wait.get();
  EXPECT_EQ(Outcome::kRedirect, waited.outcome) << waited.detail;
  EXPECT_EQ(Parameters({{"code", "right"}}), waited.parameters);
}

TEST(LoopbackReceiverTest, SilentConnectionsDoNotHoldUpTheRedirect) {
  LoopbackReceiver receiver;
  std::string detail;
  ASSERT_TRUE(receiver.Listen(&detail)) << detail;
  std::future<Waited> wait = StartWait(&receiver, std::chrono::seconds(20));
  // More than are read side by side: the oldest must make room.
  std::vector<int> silent;
  for (int i = 0; i < 20; ++i) silent.push_back(Connect("127.0.0.1", receiver.port()));
  Clock::time_point sent = Clock::now();
  std::string answer = Exchange(receiver.port(), Get("/?code=late"));
  Waited waited = wait.get();
  EXPECT_EQ(Outcome::kRedirect, waited.outcome) << waited.detail;
  EXPECT_EQ(0u, answer.rfind("HTTP/1.1 200", 0)) << answer;
  EXPECT_LT(waited.ended - sent, milliseconds(1000));
  for (int fd : silent) close(fd);
}

TEST(LoopbackReceiverTest, WithoutRedirectTheWaitEndsAtTheDeadlineOrOnCancel) {
  const struct {
    const char* name;
    milliseconds timeout;
    int raise_after_ms;  // -1 never, 0 before the wait starts
    bool trickle;        // a client sends a byte every 50 ms meanwhile
    Outcome outcome;
  } rows[] = {
      {"nothing arrives", milliseconds(300), -1, false, Outcome::kTimedOut},
      {"a client trickles", milliseconds(600), -1, true, Outcome::kTimedOut},
      {"cancelled while waiting", milliseconds(10000), 200, false, Outcome::kCancelled},
      {"cancelled while a client trickles", milliseconds(10000), 300, true, Outcome::kCancelled},
      {"cancelled before", milliseconds(10000), 0, false, Outcome::kCancelled},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    LoopbackReceiver receiver;
    std::string detail;
    ASSERT_TRUE(receiver.Listen(&detail)) << detail;
    Cancellation cancellation;
    Clock::time_point start = Clock::now();
    if (row.raise_after_ms == 0) cancellation.Raise();
    std::future<Waited> wait = StartWait(&receiver, row.timeout, &cancellation);
    int client = row.trickle ? Connect("127.0.0.1", receiver.port()) : -1;
    Clock::time_point end_expected = row.raise_after_ms == 0 ? start : start + row.timeout;
    while (wait.wait_for(milliseconds(50)) != std::future_status::ready) {
      if (client >= 0) send(client, "G", 1, MSG_NOSIGNAL);
      if (row.raise_after_ms > 0 && !cancellation.IsRaised() &&
          Clock::now() - start >= milliseconds(row.raise_after_ms)) {
        cancellation.Raise();
        end_expected = Clock::now();
      }
    }
    Waited waited = wait.get();
    if (client >= 0) close(client);
    EXPECT_EQ(row.outcome, waited.outcome) << waited.detail;
    EXPECT_TRUE(waited.parameters.empty());
    EXPECT_FALSE(waited.detail.empty());
    EXPECT_GE(waited.ended + milliseconds(5), end_expected);
    EXPECT_LT(waited.ended - end_expected, milliseconds(200));
  }
}

TEST(LoopbackReceiverTest, ListensOnLoopbackAddressOneOnly) {
  LoopbackReceiver receiver;
  std::string detail;
  EXPECT_EQ(Outcome::kFailed, receiver.Wait(Clock::now() + milliseconds(100), nullptr, nullptr,
                                            &detail));
  ASSERT_TRUE(receiver.Listen(&detail)) << detail;
  ASSERT_GT(receiver.port(), 0);
  EXPECT_EQ("http://localhost:" + std::to_string(receiver.port()), receiver.RedirectUri());
  int fd = Connect("127.0.0.1", receiver.port());
  EXPECT_GE(fd, 0);
  if (fd >= 0) close(fd);

  // Every other address of this machine: the rest of 127/8, IPv6 loopback,
  // and whatever the interfaces carry.
  std::vector<std::string> others = {"127.0.0.2", "::1"};
  ifaddrs* interfaces = nullptr;
  if (getifaddrs(&interfaces) == 0) {
    for (ifaddrs* i = interfaces; i != nullptr; i = i->ifa_next) {
      if (i->ifa_addr == nullptr || i->ifa_addr->sa_family != AF_INET) continue;
      char text[INET_ADDRSTRLEN];
      inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, text, sizeof text);
      if (std::string(text) != "127.0.0.1") others.push_back(text);
    }
    freeifaddrs(interfaces);
  }
  for (const std::string& address : others) {
    fd = Connect(address.c_str(), receiver.port());
    EXPECT_EQ(-1, fd) << address;
    if (fd >= 0) close(fd);
  }
}

}  // namespace
}  // namespace Vantrel::Auth

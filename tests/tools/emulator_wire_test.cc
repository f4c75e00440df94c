// Response framing byte for byte, with a bare socket as the client: what
// libcurl would paper over (exact head, when the connection closes) shows here.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "emulator/emulator.h"

namespace Vantrel {
namespace Emulation {
namespace {

class EmulatorWireTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(emulator_.Start()); }

  // Sends `bytes` on a fresh connection and returns all that comes back until
  // the emulator closes it (or 5 s pass, which fails the comparison).
  std::string Exchange(const std::string& bytes) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(emulator_.HttpPort()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    std::string received;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size())) {
      char buffer[4096];
      ssize_t got;
      while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) received.append(buffer, got);
    }
    close(fd);
    return received;
  }

  Emulator emulator_;
};

TEST_F(EmulatorWireTest, PipelinedRequestsGetVerbatimHeadsInOrder) {
  Response moved = Response::Redirect(302, "/next");
  moved.reason = "Moved Along";
  moved.AddHeaderLine("location: /second").AddHeaderLine("X-Empty:");
  emulator_.Enqueue(moved);
  emulator_.Enqueue(Response::Text(204, "ignored"));

  std::string reply = Exchange("GET /a HTTP/1.1\nHost: h\n\nGET /b HTTP/1.1\r\nConnection: close\r\n\r\n");

  EXPECT_EQ(reply,
            "HTTP/1.1 302 Moved Along\r\nLocation: /next\r\nlocation: /second\r\nX-Empty:\r\n"
            "Content-Length: 0\r\n\r\n"
            "HTTP/1.1 204 No Content\r\nContent-Type: text/plain; charset=utf-8\r\n"
            "Connection: close\r\n\r\n");
  ASSERT_EQ(emulator_.Requests().size(), 2u);
  EXPECT_EQ(emulator_.Requests()[0].Raw(), "GET /a HTTP/1.1\nHost: h\n\n");
  EXPECT_EQ(emulator_.Requests()[0].header_lines, std::vector<std::string>{"Host: h"});
}

TEST_F(EmulatorWireTest, UndelimitedBodiesEndTheConnection) {
  Response unmeasured = Response::Text(200, "to the end");
  unmeasured.content_length = false;
  emulator_.Enqueue(unmeasured);
  EXPECT_EQ(Exchange("GET / HTTP/1.1\r\n\r\n"),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nConnection: close\r\n\r\n"
            "to the end");

  Response lying;
  lying.body = "abc";
  lying.AddHeader("Content-Length", "10");
  emulator_.Enqueue(lying);
  EXPECT_EQ(Exchange("GET / HTTP/1.1\r\n\r\n"),
            "HTTP/1.1 200 OK\r\nContent-Length: 10\r\nConnection: close\r\n\r\nabc");
}

TEST_F(EmulatorWireTest, HeadAndHttp10FollowTheirOwnRules) {
  emulator_.Enqueue(Response::Text(200, "12345"));
  emulator_.Enqueue(Response::Text(200, "old"));

  std::string reply = Exchange("HEAD / HTTP/1.1\r\n\r\nGET / HTTP/1.0\r\n\r\n");

  EXPECT_EQ(reply,
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 5\r\n\r\n"
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 3\r\n"
            "Connection: close\r\n\r\nold");
}

TEST_F(EmulatorWireTest, MalformedRequestsGetBadRequestAndAreNotLogged) {
  for (const char* bad : {"NONSENSE\r\n\r\n", "GET / HTTP/1.1\r\nContent-Length: -4\r\n\r\n"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(Exchange(bad).compare(0, 25, "HTTP/1.1 400 Bad Request\r"), 0);
  }
  EXPECT_TRUE(emulator_.Requests().empty());
}

}  // namespace
}  // namespace Emulation
}  // namespace Vantrel

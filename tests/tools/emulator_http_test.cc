// The emulator's plain-HTTP behaviour as libcurl sees it: what is recorded,
// how responses are framed, and that nothing makes a client wait on a timer.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "emulator/emulator.h"
#include "tools/curl_client.h"

namespace Vantrel {
namespace Emulation {
namespace {

class EmulatorHttpTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(emulator_.Start()); }

  Emulator emulator_;
  CurlClient client_;
};

TEST_F(EmulatorHttpTest, RecordsPostExactlyAsSent) {
  emulator_.Enqueue(Response::Text(200, "ok"));
  const std::string body("user=a%20b&pw=\0\r\n\xff", 19);
  client_.SetHeaders({"SOAPAction: \"urn:Login\"", "x-odd-CASE:  spaced ", "X-Twice: 1", "X-Twice: 2"});

  CurlReply reply = client_.Perform(emulator_.HttpUrl("/a%20dir/page.aspx?login=j%40x.com&handler=1"), &body);

  ASSERT_EQ(reply.code, CURLE_OK);
  ASSERT_EQ(emulator_.Requests().size(), 1u);
  Request request = emulator_.Requests()[0];
  std::string host = "127.0.0.1:" + std::to_string(emulator_.HttpPort());
  EXPECT_EQ(request.Raw(),
            "POST /a%20dir/page.aspx?login=j%40x.com&handler=1 HTTP/1.1\r\n"
            "Host: " + host + "\r\n"
            "Accept: */*\r\n"
            "SOAPAction: \"urn:Login\"\r\n"
            "x-odd-CASE:  spaced \r\n"
            "X-Twice: 1\r\n"
            "X-Twice: 2\r\n"
            "Content-Length: 19\r\n"
            "Content-Type: application/x-www-form-urlencoded\r\n"
            "\r\n" + body);
  EXPECT_EQ(request.body, body);
  EXPECT_EQ(request.path, "/a dir/page.aspx");
  EXPECT_EQ(request.QueryParam("login"), "j@x.com");
  EXPECT_EQ(request.Header("X-ODD-case"), "spaced");
  EXPECT_EQ(request.Headers("x-twice"), (std::vector<std::string>{"1", "2"}));
  EXPECT_EQ(request.Host(), "127.0.0.1");
  EXPECT_FALSE(request.tls);
  EXPECT_TRUE(request.proxied_host.empty());
  EXPECT_EQ(request.local_port, emulator_.HttpPort());
}

// libcurl asks for "100 Continue" by itself above 1 MiB, and whenever the
// caller adds the header; either way it must not sit out its expect timer,
// stretched here so that a missing answer can't hide in a loaded machine.
TEST_F(EmulatorHttpTest, AnswersExpectContinueBeforeTheBody) {
  curl_easy_setopt(client_.handle(), CURLOPT_EXPECT_100_TIMEOUT_MS, 5000L);
  for (size_t size : {size_t{64 * 1024}, size_t{1024 * 1024 + 1}}) {
    SCOPED_TRACE(size);
    emulator_.ClearRequests();
    emulator_.Enqueue(Response::Text(200, "ok"));
    client_.SetHeaders(size < 1024 * 1024 ? std::vector<std::string>{"Expect: 100-continue"}
                                          : std::vector<std::string>{});
    const std::string body(size, 'b');

    CurlReply reply = client_.Perform(emulator_.HttpUrl("/upload"), &body);

    ASSERT_EQ(reply.code, CURLE_OK);
    EXPECT_LT(reply.seconds, 2.0);
    ASSERT_EQ(emulator_.Requests().size(), 1u);
    EXPECT_EQ(emulator_.Requests()[0].Header("Expect"), "100-continue");
    EXPECT_EQ(emulator_.Requests()[0].body, body);
  }
}

TEST_F(EmulatorHttpTest, ChunkedInBothDirections) {
  Response chunked = Response::Text(200, "0123456789abcdefghij");
  chunked.chunked = true;
  chunked.chunk_size = 7;
  emulator_.Enqueue(chunked);
  client_.SetHeaders({"Transfer-Encoding: chunked"});
  const std::string upload = "chunked upload";

  CurlReply reply = client_.Perform(emulator_.HttpUrl("/c"), &upload);

  ASSERT_EQ(reply.code, CURLE_OK);
  EXPECT_EQ(reply.body, "0123456789abcdefghij");
  EXPECT_NE(reply.headers.find("Transfer-Encoding: chunked\r\n"), std::string::npos);
  EXPECT_EQ(reply.headers.find("Content-Length"), std::string::npos);
  Request request = emulator_.Requests().at(0);
  EXPECT_EQ(request.body, upload);
  EXPECT_EQ(request.framed_body, "e\r\nchunked upload\r\n0\r\n\r\n");
}

TEST_F(EmulatorHttpTest, DropMidBodyLeavesTheClientWithThePrefix) {
  const std::string body(100 * 1024, 'x');
  for (bool chunked : {false, true}) {
    SCOPED_TRACE(chunked);
    Response response = Response::Text(200, body);
    response.chunked = chunked;
    response.close_after_body_bytes = 1000;
    emulator_.Enqueue(response);

    CurlReply reply = client_.Perform(emulator_.HttpUrl("/drop"));

    EXPECT_EQ(reply.code, CURLE_PARTIAL_FILE);
    EXPECT_EQ(reply.body, body.substr(0, 1000));
  }
  emulator_.Enqueue(Response::Text(200, "fine"));
  EXPECT_EQ(client_.Perform(emulator_.HttpUrl("/after")).body, "fine");
}

TEST_F(EmulatorHttpTest, LargeBinaryBodyArrivesIntact) {
  std::string body(64 * 1024 * 1024, '\0');
  for (size_t i = 0; i < body.size(); i += 4099) body[i] = static_cast<char>(i / 4099);
  emulator_.Enqueue(Response::Text(200, body, "application/octet-stream"));

  CurlReply reply = client_.Perform(emulator_.HttpUrl("/big"));

  ASSERT_EQ(reply.code, CURLE_OK);
  ASSERT_EQ(reply.body.size(), body.size());
  EXPECT_TRUE(reply.body == body);
}

TEST_F(EmulatorHttpTest, SetCookieLinesReachTheCookieEngine) {
  emulator_.Enqueue(Response::Text(200, "")
                        .SetCookie("FedAuth=77u/PD94bWw=; path=/; HttpOnly")
                        .AddHeaderLine("set-cookie: rtFa=x+y; expires=Wed, 01 Jan 2059 00:00:00 GMT; path=/sites"));

  CurlReply reply = client_.Perform(emulator_.HttpUrl("/login"));

  ASSERT_EQ(reply.code, CURLE_OK);
  std::vector<std::string> cookies = client_.Cookies();
  ASSERT_EQ(cookies.size(), 2u);
  EXPECT_EQ(cookies[0], "#HttpOnly_127.0.0.1\tFALSE\t/\tFALSE\t0\tFedAuth\t77u/PD94bWw=");
  EXPECT_EQ(cookies[1], "127.0.0.1\tFALSE\t/sites\tFALSE\t2808604800\trtFa\tx+y");
}

TEST_F(EmulatorHttpTest, KeepsConnectionsAliveUnlessTold) {
  Response closing = Response::Text(200, "2");
  closing.close_connection = true;
  emulator_.Enqueue(Response::Text(200, "1"));
  emulator_.Enqueue(closing);
  emulator_.Enqueue(Response::Text(200, "3"));

  EXPECT_EQ(client_.Perform(emulator_.HttpUrl("/1")).new_connections, 1);
  CurlReply second = client_.Perform(emulator_.HttpUrl("/2"));
  CurlReply third = client_.Perform(emulator_.HttpUrl("/3"));

  EXPECT_EQ(second.new_connections, 0);
  EXPECT_NE(second.headers.find("Connection: close\r\n"), std::string::npos);
  EXPECT_EQ(third.code, CURLE_OK);
  EXPECT_EQ(third.new_connections, 1);
  std::vector<Request> requests = emulator_.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].connection_id, requests[1].connection_id);
  EXPECT_NE(requests[1].connection_id, requests[2].connection_id);
}

TEST_F(EmulatorHttpTest, StopReturnsPromptlyWithClientsConnected) {
  emulator_.Enqueue(Response::Text(200, "idle after this"));
  ASSERT_EQ(client_.Perform(emulator_.HttpUrl("/")).code, CURLE_OK);  // kept alive by curl
  std::vector<int> sockets;
  for (int port : {emulator_.HttpPort(), emulator_.HttpsPort()}) {  // mid-request, mid-handshake
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    sockets.push_back(fd);
  }
  const std::string partial = "GET / HTTP/1.1\r\nHo";
  ASSERT_EQ(send(sockets[0], partial.data(), partial.size(), 0), static_cast<ssize_t>(partial.size()));

  auto start = std::chrono::steady_clock::now();
  emulator_.Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  for (int fd : sockets) close(fd);
}

}  // namespace
}  // namespace Emulation
}  // namespace Vantrel

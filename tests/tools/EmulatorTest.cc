// The emulator's own tricky parts as libcurl sees them: byte-exact recording, 100-continue,
// chunked framing and cut bodies, CONNECT tunnels with verifiable leaves, keep-alive and a
// prompt Stop. The library's wire tests exercise the rest.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "emulator/Emulator.h"
#include "tools/CurlClient.h"

namespace Vantrel {
namespace Emulation {
namespace {

class EmulatorTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(emulator_.Start()); }

  Emulator emulator_;
  CurlClient client_;
};

TEST_F(EmulatorTest, RecordsPostExactlyAsSent) {
  emulator_.Enqueue(Response::Text(200, "ok"));
  const std::string body("user=a%20b&pw=\0\r\n\xff", 19);
  client_.SetHeaders({"SOAPAction: \"urn:Login\"", "x-odd-CASE:  spaced ", "X-Twice: 1", "X-Twice: 2"});
  ASSERT_EQ(CURLE_OK, client_.Perform(emulator_.HttpUrl("/a%20dir/p.aspx?login=j%40x.com"), &body).code);
  Request request = emulator_.Requests().at(0);
  EXPECT_EQ("POST /a%20dir/p.aspx?login=j%40x.com HTTP/1.1\r\nHost: 127.0.0.1:" +
                std::to_string(emulator_.HttpPort()) +
                "\r\nAccept: */*\r\nSOAPAction: \"urn:Login\"\r\nx-odd-CASE:  spaced \r\nX-Twice: 1\r\nX-Twice: 2\r\n"
                "Content-Length: 19\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n" + body,
            request.Raw());
  EXPECT_EQ(body, request.body);
  EXPECT_EQ("/a dir/p.aspx", request.path);
  EXPECT_EQ("j@x.com", request.QueryParam("login"));
  EXPECT_EQ("spaced", request.Header("X-ODD-case"));
}

// libcurl asks for "100 Continue" by itself above 1 MiB, and whenever the
// caller adds the header; either way it must not sit out its expect timer,
// stretched here so that a missing answer can't hide in a loaded machine.
TEST_F(EmulatorTest, AnswersExpectContinueBeforeTheBody) {
  curl_easy_setopt(client_.handle(), CURLOPT_EXPECT_100_TIMEOUT_MS, 5000L);
  for (size_t size : {size_t{64 * 1024}, size_t{1024 * 1024 + 1}}) {
    SCOPED_TRACE(size);
    emulator_.ClearRequests();
    emulator_.Enqueue(Response::Text(200, "ok"));
    client_.SetHeaders(size < 1024 * 1024 ? std::vector<std::string>{"Expect: 100-continue"}
                                          : std::vector<std::string>{});
    const std::string body(size, 'b');
    CurlReply reply = client_.Perform(emulator_.HttpUrl("/upload"), &body);
    ASSERT_EQ(CURLE_OK, reply.code);
    EXPECT_LT(reply.seconds, 2.0);
    EXPECT_EQ("100-continue", emulator_.Requests().at(0).Header("Expect"));
    EXPECT_EQ(body, emulator_.Requests().at(0).body);
  }
}

TEST_F(EmulatorTest, ChunkedBothWaysAndBodiesCutShort) {
  Response chunked = Response::Text(200, "0123456789abcdefghij");
  chunked.chunked = true;
  chunked.chunk_size = 7;
  emulator_.Enqueue(chunked);
  client_.SetHeaders({"Transfer-Encoding: chunked"});
  const std::string upload = "chunked upload";
  CurlReply reply = client_.Perform(emulator_.HttpUrl("/c"), &upload);
  ASSERT_EQ(CURLE_OK, reply.code);
  EXPECT_EQ("0123456789abcdefghij", reply.body);
  EXPECT_NE(std::string::npos, reply.headers.find("Transfer-Encoding: chunked\r\n"));
  EXPECT_EQ(upload, emulator_.Requests().at(0).body);
  EXPECT_EQ("e\r\nchunked upload\r\n0\r\n\r\n", emulator_.Requests().at(0).framed_body);

  client_.SetHeaders({});
  const std::string body(100 * 1024, 'x');
  for (bool is_chunked : {false, true}) {
    Response response = Response::Text(200, body);
    response.chunked = is_chunked;
    response.close_after_body_bytes = 1000;
    emulator_.Enqueue(response);
    CurlReply cut = client_.Perform(emulator_.HttpUrl("/drop"));
    EXPECT_EQ(CURLE_PARTIAL_FILE, cut.code) << is_chunked;
    EXPECT_EQ(body.substr(0, 1000), cut.body) << is_chunked;
  }
}

TEST_F(EmulatorTest, ConnectTunnelsServeAnyHostWithAVerifiableLeaf) {
  emulator_.Route("", "", "/", [](const Request& r) { return Response::Text(200, "hello " + r.Host() + r.path); });
  client_.UseProxy(emulator_.ProxyUrl());
  client_.TrustOnly(emulator_.CaFile());
  EXPECT_EQ("hello contoso.sharepoint.com/_trust/", client_.Perform("https://contoso.sharepoint.com/_trust/").body);
  EXPECT_EQ("hello login.example.net/common/", client_.Perform("https://login.example.net/common/").body);
  std::vector<Request> tunnels = emulator_.Tunnels();
  ASSERT_EQ(2u, tunnels.size());
  EXPECT_EQ("login.example.net:443", tunnels[1].target);
  EXPECT_TRUE(emulator_.Requests().at(1).tls);
  EXPECT_EQ("login.example.net", emulator_.Requests().at(1).proxied_host);

  CertificateAuthority foreign;
  client_.TrustOnly(foreign.CaFile());
  EXPECT_EQ(CURLE_PEER_FAILED_VERIFICATION, client_.Perform("https://fabrikam.example/").code);
}

TEST_F(EmulatorTest, KeepsConnectionsAliveUnlessTold) {
  Response closing = Response::Text(200, "2");
  closing.close_connection = true;
  for (const Response& r : {Response::Text(200, "1"), closing, Response::Text(200, "3")}) emulator_.Enqueue(r);
  EXPECT_EQ(1, client_.Perform(emulator_.HttpUrl("/1")).new_connections);
  CurlReply second = client_.Perform(emulator_.HttpUrl("/2"));
  EXPECT_EQ(0, second.new_connections);
  EXPECT_NE(std::string::npos, second.headers.find("Connection: close\r\n"));
  EXPECT_EQ(1, client_.Perform(emulator_.HttpUrl("/3")).new_connections);
}

TEST_F(EmulatorTest, StopReturnsPromptlyWithClientsConnected) {
  emulator_.Enqueue(Response::Text(200, "idle after this"));
  ASSERT_EQ(CURLE_OK, client_.Perform(emulator_.HttpUrl("/")).code);  // kept alive by curl
  std::vector<int> sockets;
  for (int port : {emulator_.HttpPort(), emulator_.HttpsPort()}) {  // mid-request, mid-handshake
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockets.push_back(socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(0, connect(sockets.back(), reinterpret_cast<sockaddr*>(&address), sizeof address));
  }
  const std::string partial = "GET / HTTP/1.1\r\nHo";
  ASSERT_EQ(static_cast<ssize_t>(partial.size()), send(sockets[0], partial.data(), partial.size(), 0));
  auto start = std::chrono::steady_clock::now();
  emulator_.Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  for (int fd : sockets) close(fd);
}

}  // namespace
}  // namespace Emulation
}  // namespace Vantrel

// HTTPS and the proxy: real certificate verification against the emulator's
// CA, for its own listener and for any host name reached through a tunnel.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "emulator/emulator.h"
#include "tools/curl_client.h"

namespace Vantrel {
namespace Emulation {
namespace {

class EmulatorTlsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(emulator_.Start());
    emulator_.Route("", "", "/", [](const Request& request) {
      return Response::Text(200, "hello " + request.Host() + request.path);
    });
  }

  Emulator emulator_;
  CurlClient client_;
};

TEST_F(EmulatorTlsTest, HttpsVerifiesAgainstItsOwnCaOnly) {
  client_.TrustOnly(emulator_.CaFile());
  CurlReply reply = client_.Perform(emulator_.HttpsUrl("/x"));
  ASSERT_EQ(reply.code, CURLE_OK);
  EXPECT_EQ(reply.body, "hello 127.0.0.1/x");
  EXPECT_TRUE(emulator_.Requests().at(0).tls);
  EXPECT_EQ(emulator_.Requests().at(0).local_port, emulator_.HttpsPort());

  CertificateAuthority foreign;
  CurlClient stranger;
  stranger.TrustOnly(foreign.CaFile());
  EXPECT_EQ(stranger.Perform(emulator_.HttpsUrl("/x")).code, CURLE_PEER_FAILED_VERIFICATION);

  Emulator::Options options;
  options.https_self_signed = true;
  Emulator self_signed(options);
  ASSERT_TRUE(self_signed.Start());
  CurlClient trusting;
  trusting.TrustOnly(self_signed.CaFile());
  EXPECT_EQ(trusting.Perform(self_signed.HttpsUrl("/x")).code, CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(EmulatorTlsTest, ProxyAnswersAbsoluteFormRequestsItself) {
  client_.UseProxy(emulator_.ProxyUrl());

  CurlReply reply = client_.Perform("http://Contoso.SharePoint.com:8080/sites/a?x=1");

  ASSERT_EQ(reply.code, CURLE_OK);
  EXPECT_EQ(reply.body, "hello contoso.sharepoint.com/sites/a");
  Request request = emulator_.Requests().at(0);
  EXPECT_EQ(request.target, "http://Contoso.SharePoint.com:8080/sites/a?x=1");
  EXPECT_EQ(request.proxied_host, "contoso.sharepoint.com");
  EXPECT_EQ(request.proxied_port, 8080);
  EXPECT_EQ(request.query, "x=1");
  EXPECT_FALSE(request.tls);
}

TEST_F(EmulatorTlsTest, ConnectTunnelsServeAnyHostWithAVerifiableLeaf) {
  emulator_.Route("GET", "login.example.net", "/", [](const Request&) {
    return Response::Text(200, "sign-in service").SetCookie("FedAuth=t0k; path=/; secure; HttpOnly");
  });
  client_.UseProxy(emulator_.ProxyUrl());
  client_.TrustOnly(emulator_.CaFile());

  CurlReply site = client_.Perform("https://contoso.sharepoint.com/_trust/");
  CurlReply login = client_.Perform("https://login.example.net/common/");

  ASSERT_EQ(site.code, CURLE_OK);
  EXPECT_EQ(site.body, "hello contoso.sharepoint.com/_trust/");
  ASSERT_EQ(login.code, CURLE_OK);
  EXPECT_EQ(login.body, "sign-in service");
  EXPECT_EQ(client_.Cookies(),
            std::vector<std::string>{"#HttpOnly_login.example.net\tFALSE\t/\tTRUE\t0\tFedAuth\tt0k"});
  std::vector<Request> requests = emulator_.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_TRUE(requests[1].tls);
  EXPECT_EQ(requests[1].proxied_host, "login.example.net");
  EXPECT_EQ(requests[1].proxied_port, 443);
  EXPECT_EQ(requests[1].target, "/common/");
  std::vector<Request> tunnels = emulator_.Tunnels();
  ASSERT_EQ(tunnels.size(), 2u);
  EXPECT_EQ(tunnels[0].target, "contoso.sharepoint.com:443");
  EXPECT_EQ(tunnels[1].Header("Host"), "login.example.net:443");

  CertificateAuthority foreign;
  CurlClient stranger;
  stranger.UseProxy(emulator_.ProxyUrl());
  stranger.TrustOnly(foreign.CaFile());
  EXPECT_EQ(stranger.Perform("https://contoso.sharepoint.com/").code, CURLE_PEER_FAILED_VERIFICATION);
}

TEST_F(EmulatorTlsTest, ConnectRouteCanRefuseTheTunnel) {
  emulator_.Route("CONNECT", "blocked.example", "", [](const Request&) {
    return Response::Text(403, "no");
  });
  client_.UseProxy(emulator_.ProxyUrl());
  client_.TrustOnly(emulator_.CaFile());

  EXPECT_NE(client_.Perform("https://blocked.example/").code, CURLE_OK);
  long connect_code = 0;
  curl_easy_getinfo(client_.handle(), CURLINFO_HTTP_CONNECTCODE, &connect_code);
  EXPECT_EQ(connect_code, 403);
  EXPECT_EQ(client_.Perform("https://open.example/").code, CURLE_OK);
}

}  // namespace
}  // namespace Emulation
}  // namespace Vantrel

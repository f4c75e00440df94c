// Realm discovery by redirects, each probe scripted over loopback HTTP.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuthEngineConfig.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "RealmDiscovery.h"
#include "StringUtil.h"
#include "authenticators/OnlineFixture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

using Emulation::Request;
using Emulation::Response;

class RealmDiscoveryTest : public EmulatorTest {
 protected:
  // The configure step asks for TLS 1, as a host's option would, so that each
  // probe shows whether the discovery put SSL 3 over it.
  std::string Discover(const std::string& url) {
    DiscoverRealm("RealmDiscoveryTest", url.c_str(), &result_, &config_, &network_result_, &transport_,
                  [this](const char*) { config_.SetSslVersion(kSslVersionTls1); });
    return result_ != nullptr ? result_ : "<null>";
  }
  void TearDown() override {
    StrFree(&result_);
    EmulatorTest::TearDown();
  }
  void Hop(const std::string& path, const std::string& to) {
    emulator_.Route("GET", "", path, [to](const Request&) { return Response::Redirect(302, to); });
  }
  Response Forms(int status, const std::string& to) {
    Response response = Response::Text(status, "");
    response.AddHeader("X-Forms_Based_Auth_Required", Http(to));
    return response;
  }

  NetworkConfig config_;
  NetworkResult network_result_;
  RecordingTransport transport_;
  char* result_ = nullptr;
};

// The realm is the wreply of a Location, decoded twice and cut at the next
// parameter; the forms header is the next hop, before Location; a
// lower-case "location" is not seen.
TEST_F(RealmDiscoveryTest, ProbesFollowRedirectsUntilAWreply) {
  const std::string site = Http("/sites/team");
  const struct { std::vector<Response> answers; std::string realm; std::vector<std::string> targets; } rows[] = {
      {{Response::Text(200, "home")}, site, {"/sites/team"}},
      {{Response::Redirect(302, "https://login.test/login.srf?wa=wsignin1.0&wreply=https%253A%252F%252Fcontoso."
                                "sharepoint.com%252Fsites%252Fteam&lc=1033")},
       "https://contoso.sharepoint.com/sites/team", {"/sites/team"}},
      {{Response::Redirect(302, "https://l.test/?WREPLY=https://upper.test")}, "https://upper.test", {"/sites/team"}},
      {{Forms(302, "/x").AddHeader("Location", "https://l.test/?a=b&wreply=urn:realm:last")}, "urn:realm:last", {"/sites/team"}},
      {{Forms(302, "/_login").AddHeader("Location", Http("/decoy")), Forms(403, "/_forms"),
        Response::Redirect(302, Http("/_layouts/signin")), Response::Text(200, "sign in")},
       site, {"/sites/team", "/_login", "/_forms", "/_layouts/signin"}},
      {{Response::Text(302, "").AddHeaderLine("location: " + Http("/n?wreply=urn:not:seen"))}, site, {"/sites/team"}},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    for (const Response& answer : row.answers) emulator_.Enqueue(answer);
    EXPECT_EQ(Discover(site), row.realm);
    std::vector<std::string> targets;
    for (const Request& request : emulator_.Requests()) targets.push_back(request.target);
    EXPECT_EQ(targets, row.targets) << row.realm;
  }
  EXPECT_TRUE(emulator_.Requests()[0].body.empty());
}

TEST_F(RealmDiscoveryTest, AtMostTenProbesEachAskingForSsl3) {
  ASSERT_EQ(AuthEngineConfig::GetMaxRedirect(), 10);
  for (int i = 1; i <= 10; ++i) Hop("/hop" + std::to_string(i), Http("/hop" + std::to_string(i + 1)));
  Hop("/hop11", "https://login.test/?wreply=urn:eleventh");
  EXPECT_EQ(Discover(Http("/hop1")), Http("/hop1"));
  EXPECT_EQ(emulator_.Requests().size(), 10u);
  for (const auto& sent : transport_.sent()) EXPECT_EQ(sent.ssl_version, kSslVersionSsl3) << sent.url;

  emulator_.ClearRequests();
  Hop("/hop10", "https://login.test/?wreply=urn:tenth");
  EXPECT_EQ(Discover(Http("/hop1")), "urn:tenth");
  EXPECT_EQ(emulator_.Requests().size(), 10u);
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

// Realm discovery by redirects, each probe scripted over loopback HTTP.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "authenticators/RealmDiscovery.h"
#include "base/StringUtil.h"
#include "network/NetworkControlLibcurl.h"
#include "support/EmulatorTest.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Request;
using Emulation::Response;

class RealmDiscoveryTest : public EmulatorTest {
 protected:
  std::string Discover(const std::string& url) {
    DiscoverRealm("RealmDiscoveryTest", url.c_str(), &result_, &config_, &network_result_, &transport_,
                  [](const char*) {});
    return result_ != nullptr ? result_ : "<null>";
  }
  void TearDown() override {
    StrFree(&result_);
    EmulatorTest::TearDown();
  }
  Response Forms(int status, const std::string& to) {
    return Response::Text(status, "").AddHeader("X-Forms_Based_Auth_Required", Http(to));
  }

  NetworkConfig config_;
  NetworkResult network_result_;
  NetworkControlLibcurl transport_;
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

}  // namespace
}  // namespace Vantrel::Auth::testing

// Realm discovery by redirects, driven directly over loopback HTTP so that
// each probe and each hop can be scripted and seen on the wire.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuthEngineConfig.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "RealmDiscovery.h"
#include "StringUtil.h"
#include "authenticators/OnlineFixture.h"
#include "emulator/response.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

using Emulation::Request;
using Emulation::Response;

constexpr char kEncodedTwice[] =
    "https://login.example.test/login.srf?wa=wsignin1.0&rpsnv=4"
    "&wreply=https%253A%252F%252Fcontoso.sharepoint.com%252Fsites%252Fteam&lc=1033&id=500046";

class RealmDiscoveryTest : public EmulatorTest {
 protected:
  // Runs a discovery of `url` and returns its result ("<null>" for null).
  // The configure step asks for TLS 1, as a host's option would, so that
  // every probe shows whether the discovery put its own version over it.
  std::string Discover(const char* url, INetworkControl* control) {
    DiscoverRealm("RealmDiscoveryTest", url, &result_, &config_, &network_result_, control,
                  [this](const char* configured) {
                    configured_.push_back(configured);
                    config_.SetSslVersion(kSslVersionTls1);
                  });
    return result_ != nullptr ? result_ : "<null>";
  }
  std::string Discover(const std::string& url) { return Discover(url.c_str(), &transport_); }

  void TearDown() override {
    StrFree(&result_);
    EmulatorTest::TearDown();
  }

  std::vector<std::string> Targets() const {
    std::vector<std::string> targets;
    for (const Request& request : emulator_.Requests()) targets.push_back(request.target);
    return targets;
  }

  // Answers `path` with a redirect to `to`.
  void Hop(const std::string& path, const std::string& to) {
    emulator_.Route("GET", "", path, [to](const Request&) { return Response::Redirect(302, to); });
  }

  NetworkConfig config_;
  NetworkResult network_result_;
  RecordingTransport transport_;
  char* result_ = nullptr;
  std::vector<std::string> configured_;
};

TEST_F(RealmDiscoveryTest, ResponseWithoutRedirectLeavesTheRealmAfterOneProbe) {
  emulator_.Route("GET", "", "/", [](const Request&) { return Response::Text(200, "home"); });
  std::string site = Http("/sites/team");

  EXPECT_EQ(Discover(site), site);

  ASSERT_EQ(emulator_.Requests().size(), 1u);
  const Request probe = emulator_.Requests()[0];
  EXPECT_EQ(probe.method, "GET");
  EXPECT_TRUE(probe.body.empty());
  EXPECT_FALSE(probe.Header("Cookie").has_value());
  EXPECT_EQ(configured_, std::vector<std::string>{site});
}

// The realm is the wreply value of a Location, decoded twice and cut at the
// next parameter, whatever else the response says.
TEST_F(RealmDiscoveryTest, WreplyInLocationIsTheRealm) {
  struct Case {
    const char* location;
    const char* realm;
  } cases[] = {
      {kEncodedTwice, "https://contoso.sharepoint.com/sites/team"},
      {"https://login.example.test/?wreply=https%3A%2F%2Fonce.example.test%2Fa&x=1",
       "https://once.example.test/a"},
      {"https://login.example.test/?WREPLY=https://upper.example.test",
       "https://upper.example.test"},
      {"https://login.example.test/?a=b&wreply=urn:realm:last", "urn:realm:last"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.location);
    emulator_.ClearRequests();
    // The forms header would be the next hop, but a realm ends the discovery.
    Response redirect = Response::Redirect(302, c.location);
    redirect.AddHeader("X-Forms_Based_Auth_Required", Http("/elsewhere"));
    emulator_.Enqueue(redirect);

    EXPECT_EQ(Discover(Http("/sites/team")), c.realm);
    EXPECT_EQ(emulator_.Requests().size(), 1u);
  }
}

TEST_F(RealmDiscoveryTest, FormsHeaderIsTheNextHopBeforeLocation) {
  Response both = Response::Redirect(302, Http("/decoy"));
  both.AddHeader("X-Forms_Based_Auth_Required", Http("/_login"));
  emulator_.Enqueue(both);
  Response forms_only;
  forms_only.status = 403;
  forms_only.AddHeader("X-Forms_Based_Auth_Required", Http("/_forms"));
  emulator_.Enqueue(forms_only);
  emulator_.Enqueue(Response::Redirect(302, Http("/_layouts/signin")));
  emulator_.Enqueue(Response::Text(200, "sign in here"));

  std::string site = Http("/sites/team");
  EXPECT_EQ(Discover(site), site);

  EXPECT_EQ(Targets(),
            (std::vector<std::string>{"/sites/team", "/_login", "/_forms", "/_layouts/signin"}));
}

TEST_F(RealmDiscoveryTest, LocationInSmallLettersIsNotARedirect) {
  Response response;
  response.status = 302;
  response.AddHeaderLine("location: " + Http("/next?wreply=urn:not:seen"));
  emulator_.Enqueue(response);

  std::string site = Http("/sites/team");
  EXPECT_EQ(Discover(site), site);
  EXPECT_EQ(emulator_.Requests().size(), 1u);
}

TEST_F(RealmDiscoveryTest, TwoPagesRedirectingToEachOtherCostExactlyTheBound) {
  Hop("/a", Http("/b"));
  Hop("/b", Http("/a"));
  std::string site = Http("/a");

  EXPECT_EQ(Discover(site), site);

  ASSERT_EQ(AuthEngineConfig::GetMaxRedirect(), 10);
  EXPECT_EQ(emulator_.Requests().size(), 10u);
  ASSERT_EQ(transport_.sent().size(), 10u);
  for (const RecordingTransport::Sent& sent : transport_.sent()) {
    EXPECT_EQ(sent.ssl_version, kSslVersionSsl3) << sent.url;
  }
  // What the last probe left stays for the caller to overwrite.
  EXPECT_STREQ(config_.GetUrl(), Http("/b").c_str());
  EXPECT_EQ(config_.GetSslVersion(), kSslVersionSsl3);
}

TEST_F(RealmDiscoveryTest, WreplyInTheTenthResponseCountsAndAnEleventhIsNeverAsked) {
  for (int i = 1; i <= 9; ++i) {
    Hop("/hop" + std::to_string(i), Http("/hop" + std::to_string(i + 1)));
  }
  Hop("/hop10", "https://login.example.test/?wreply=urn:tenth");
  EXPECT_EQ(Discover(Http("/hop1")), "urn:tenth");
  EXPECT_EQ(emulator_.Requests().size(), 10u);

  emulator_.ClearRequests();
  Hop("/hop10", Http("/hop11"));
  Hop("/hop11", "https://login.example.test/?wreply=urn:eleventh");
  std::string site = Http("/hop1");
  EXPECT_EQ(Discover(site), site);
  EXPECT_EQ(emulator_.Requests().size(), 10u);
}

// A relative hop goes to the transport as it stands; it is no URL libcurl can
// reach, so that probe brings nothing and the discovery ends.
TEST_F(RealmDiscoveryTest, RelativeLocationIsNotResolved) {
  Hop("/sites/team", "/_layouts/Authenticate.aspx");
  std::string site = Http("/sites/team");

  EXPECT_EQ(Discover(site), site);

  ASSERT_EQ(transport_.sent().size(), 2u);
  EXPECT_EQ(transport_.sent()[1].url, "/_layouts/Authenticate.aspx");
  EXPECT_EQ(emulator_.Requests().size(), 1u);
}

// Nothing to ask, or no one to ask it of: at most one probe, which fails,
// and the realm comes back as it went in.
TEST_F(RealmDiscoveryTest, DegenerateInputsEndAfterAtMostOneProbe) {
  std::string closed = "http://127.0.0.1:1/sites/team";
  EXPECT_EQ(Discover(closed), closed);
  EXPECT_EQ(Discover(""), "");
  EXPECT_EQ(transport_.sent().size(), 2u);

  std::string site = Http("/sites/team");
  EXPECT_EQ(Discover(site.c_str(), nullptr), site);
  EXPECT_EQ(Discover(nullptr, &transport_), "<null>");  // replaces the earlier result
  EXPECT_EQ(transport_.sent().size(), 2u);
  EXPECT_EQ(configured_.size(), 2u);
  EXPECT_TRUE(emulator_.Requests().empty());
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

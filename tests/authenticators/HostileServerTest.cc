// Servers that answer with what no real one would: huge bodies, endless
// unclosed tags, floods of header and cookie lines, NUL bytes, redirect loops
// and connections that die mid-body. Each case must end, in bounded time and
// memory, with the result the rules give for what actually arrived. The
// figures themselves are measured in bench/HostileServerBench.cc; the bounds
// here are loose on purpose, so that a sanitizer build keeps them too.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Adfs.h"
#include "AuthEngineConfig.h"
#include "CredentialFactory.h"
#include "ICredential.h"
#include "Office365.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"
#include "emulator/Emulator.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"
#include "support/HostileBodies.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

using Emulation::Request;
using Emulation::Response;

// Loose: a plain build needs a few per cent of this for the largest case.
constexpr double kSecondsBound = 60;
constexpr size_t kPeakBound = size_t{3} * 1024 * kMegabyte;
constexpr size_t kHugeBody = 64 * kMegabyte;

constexpr char kRstrOpen[] = "<t:RequestSecurityTokenResponse xmlns:t=\"urn:trust\">";
constexpr char kRstrClose[] = "</t:RequestSecurityTokenResponse>";
constexpr char kTokenValue[] = "t=EwBgAk6hB&amp;p=";

std::string TokenRstr() {
  return std::string(kRstrOpen) + "<wsse:BinarySecurityToken Id=\"Compact0\">" + kTokenValue +
         "</wsse:BinarySecurityToken>" + kRstrClose;
}

struct DeleteCredential {
  void operator()(ICredential* credential) const { delete credential; }
};
using CredentialPtr = std::unique_ptr<ICredential, DeleteCredential>;

class HostileServerTest : public EmulatorTest {
 protected:
  void ExpectBounded(const Cost& cost) {
    EXPECT_LT(cost.seconds, kSecondsBound);
    if (cost.peak_bytes != 0) {
      EXPECT_LT(cost.peak_bytes, kPeakBound);
    }
  }

  // The token service and the realm probe both live on the emulator: the
  // probe gets a plain 200, so the realm stays what the host gave.
  Office365* LocalOffice365() {
    Office365* office365 = engine_->Office365();
    office365->SetServer(emulator_.HttpUrl("").c_str());
    return office365;
  }

  std::vector<Request> Posts() const {
    std::vector<Request> posts;
    for (const Request& request : emulator_.Requests()) {
      if (request.method == "POST") posts.push_back(request);
    }
    return posts;
  }

  CredentialPtr user_{CredentialFactory::CreateBasicUsernameCredential("user", "secret")};
};

// --- one body of 64 MB for each search over a body -----------------------------

TEST_F(HostileServerTest, HugeRstrIsFoundBehindAndAcrossSixtyFourMegabytes) {
  const std::string assertion =
      "<saml:Assertion MajorVersion=\"1\" AssertionID=\"_a\">claims</saml:Assertion>";
  const std::string rstr =
      kRstrOpen + Filler(kHugeBody / 2) + assertion + kRstrClose;
  emulator_.Enqueue(Response::Text(200, Filler(kHugeBody / 2) + rstr, "application/soap+xml"));
  Adfs* adfs = engine_->Adfs();

  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] {
    result = adfs->AuthenticateByUser(Http("/").c_str(), "urn:sharepoint:x", "user", "secret");
  }));
  ASSERT_EQ(result, kAuthResultOk) << Detail(*adfs);
  std::string held = Fetch([&](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); });
  EXPECT_EQ(held.size(), rstr.size());
  EXPECT_TRUE(held == rstr);

  // The host's next step searches the same text again.
  CredentialPtr credential;
  ExpectBounded(Measure([&] { credential.reset(CredentialFactory::CreateCredentialFromRstr(held)); }));
  EXPECT_NE(credential, nullptr);
}

TEST_F(HostileServerTest, BinaryTokenIsFoundBehindSixtyFourMegabytes) {
  emulator_.Enqueue(Response::Text(200, "probe"));
  emulator_.Enqueue(Response::Text(200, Filler(kHugeBody) + TokenRstr(), "application/soap+xml"));
  Office365* office365 = LocalOffice365();

  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] { result = office365->Authenticate(Http("/sites/a").c_str(), user_.get()); }));
  ASSERT_EQ(result, kAuthResultOk) << Detail(*office365);
  EXPECT_EQ(Fetch([&](char* buffer, size_t* size) { office365->GetBinarySecurityToken(buffer, size); }),
            kTokenValue);
}

TEST_F(HostileServerTest, SiteAndWebAreFoundBehindSixtyFourMegabytes) {
  emulator_.Enqueue(Response::Text(200, "probe"));
  emulator_.Enqueue(Response::Text(
      200, Filler(kHugeBody) + "<strSite>" + Http("/sites/top") + "</strSite><strWeb>w</strWeb>",
      "text/xml"));
  emulator_.Enqueue(Response::Redirect(302, "/").SetCookie("FedAuth=f; path=/"));
  CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(TokenRstr()));
  SharePointOffice365* online = engine_->SharePointOffice365();

  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] { result = online->Authenticate(Http("/sites/a").c_str(), token.get()); }));
  ASSERT_EQ(result, kAuthResultOk) << Detail(*online);
  ASSERT_EQ(Posts().size(), 2u);
  EXPECT_EQ(Posts()[1].target, "/sites/top/_forms/default.aspx?wa=wsignin1.0");
}

TEST_F(HostileServerTest, NamespaceIsFoundBehindSixtyFourMegabytes) {
  AuthEngineConfig::SetProxy(emulator_.ProxyUrl().c_str());
  std::string json = "{";
  while (json.size() < kHugeBody) json += "\"Key\": \"value\", \"Other\":\t\"x\",\n";
  json += "\"NameSpaceType\":\"Federated\",\"AuthURL\":\"https://sts.fabrikam.com/adfs/ls/?x=1\"}";
  emulator_.Enqueue(Response::Text(200, json, "application/json"));
  SharePointOffice365* online = engine_->SharePointOffice365();
  online->SetCaFile(emulator_.CaFile().c_str());

  SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
  std::string url;
  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] { result = online->GetAuthTarget("megan@fabrikam.com", kind, url); }));
  AuthEngineConfig::SetProxy(nullptr);
  ASSERT_EQ(result, kAuthResultOk) << Detail(*online);
  EXPECT_EQ(kind, kAuthNamespaceFederated);
  EXPECT_EQ(url, "https://sts.fabrikam.com");
}

// The cookie sign-ins don't read the body; a huge one costs them only memory.
TEST_F(HostileServerTest, CookieSignInsIgnoreSixtyFourMegabyteBodies) {
  emulator_.Enqueue(Response::Text(200, Filler(kHugeBody), "text/xml").SetCookie("FedAuth=a; path=/"));
  emulator_.Enqueue(Response::Text(302, Filler(kHugeBody), "text/html").SetCookie("FedAuth=b; path=/"));
  SharePointFba* fba = engine_->SharePointFba();
  SharePointAdfs* trust = engine_->SharePointAdfs();

  AuthResult forms = kAuthResultInternalError;
  AuthResult by_rstr = kAuthResultInternalError;
  ExpectBounded(Measure([&] { forms = fba->Authenticate(Http("/sites/a").c_str(), "user", "secret"); }));
  ExpectBounded(Measure([&] { by_rstr = trust->AuthenticateByRstr(Http("/sites/a").c_str(), TokenRstr().c_str()); }));
  EXPECT_EQ(forms, kAuthResultOk) << Detail(*fba);
  EXPECT_EQ(by_rstr, kAuthResultOk) << Detail(*trust);
}

// --- elements that open and never close ------------------------------------------

TEST_F(HostileServerTest, HundredThousandUnclosedOpeningsYieldNothing) {
  Adfs* adfs = engine_->Adfs();
  for (const std::string& opening :
       {std::string("<t:RequestSecurityTokenResponse"), std::string(kRstrOpen)}) {
    SCOPED_TRACE(opening);
    emulator_.Enqueue(Response::Text(200, Repeat(opening, 100000) + "</t:Other>", "text/xml"));
    AuthResult result = kAuthResultInternalError;
    ExpectBounded(Measure([&] {
      result = adfs->AuthenticateByUser(Http("/").c_str(), "urn:sharepoint:x", "user", "secret");
    }));
    EXPECT_EQ(result, kAuthResultAuthFailed);
    EXPECT_EQ(Detail(*adfs), "No RSTR token found in HTTP response.");
  }

  // A token response whose binary token never closes is one without a token.
  emulator_.Enqueue(Response::Text(200, "probe"));
  emulator_.Enqueue(Response::Text(
      200,
      kRstrOpen + Repeat("<wsse:BinarySecurityToken>t=", 100000) + kRstrClose,
      "application/soap+xml"));
  Office365* office365 = LocalOffice365();
  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] { result = office365->Authenticate(Http("/sites/a").c_str(), user_.get()); }));
  EXPECT_EQ(result, kAuthResultBposNotSupported);

  // Without a strSite the token goes to the realm itself.
  emulator_.ClearRequests();
  emulator_.Enqueue(Response::Text(200, "probe"));
  emulator_.Enqueue(Response::Text(200, Repeat("<strSite>", 100000), "text/xml"));
  emulator_.Enqueue(Response::Redirect(302, "/").SetCookie("FedAuth=f; path=/"));
  CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(TokenRstr()));
  SharePointOffice365* online = engine_->SharePointOffice365();
  ExpectBounded(Measure([&] { result = online->Authenticate(Http("/sites/a").c_str(), token.get()); }));
  EXPECT_EQ(result, kAuthResultOk) << Detail(*online);
  ASSERT_EQ(Posts().size(), 2u);
  EXPECT_EQ(Posts()[1].target, "/sites/a/_forms/default.aspx?wa=wsignin1.0");
}

// An RSTR made by a server lands in the next request's envelope, and the
// transport masks every request body before it logs it, at any log level.
// Masking used to backtrack over each unclosed tag to the end of the body:
// this one took minutes, and a larger one made the search give up with an
// exception that nothing catches.
TEST_F(HostileServerTest, AssertionFullOfPasswordTagsIsSentWithoutStalling) {
  const std::string assertion =
      "<saml:Assertion AssertionID=\"_a\">" + Repeat("<password>", 100000) + "</saml:Assertion>";
  CredentialPtr credential(
      CredentialFactory::CreateCredentialFromRstr(kRstrOpen + assertion + kRstrClose));
  ASSERT_NE(credential, nullptr);
  emulator_.Enqueue(Response::Text(200, "probe"));
  emulator_.Enqueue(Response::Text(200, TokenRstr(), "application/soap+xml"));
  Office365* office365 = LocalOffice365();

  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] { result = office365->Authenticate(Http("/sites/a").c_str(), credential.get()); }));
  EXPECT_EQ(result, kAuthResultOk) << Detail(*office365);
  ASSERT_EQ(Posts().size(), 1u);
  EXPECT_NE(Posts()[0].body.find(assertion), std::string::npos);
}

// --- floods of lines ---------------------------------------------------------------

TEST_F(HostileServerTest, TenThousandHeaderLinesAndFiveThousandCookies) {
  Response headers = Response::Text(200, "<LoginResult/>", "text/xml");
  for (int i = 0; i < 10000; ++i) headers.AddHeader("X-Filler-" + std::to_string(i), "value");
  headers.SetCookie("FedAuth=h; path=/");
  emulator_.Enqueue(std::move(headers));

  // libcurl keeps only the first cookies of a response; the one that counts
  // comes first, as a site would send it.
  Response cookies = Response::Text(200, "<LoginResult/>", "text/xml");
  cookies.SetCookie("FedAuth=c; path=/");
  for (int i = 0; i < 5000; ++i) cookies.SetCookie("c" + std::to_string(i) + "=v; path=/");
  emulator_.Enqueue(std::move(cookies));

  SharePointFba* fba = engine_->SharePointFba();
  for (const char* expected : {"h", "c"}) {
    SCOPED_TRACE(expected);
    AuthResult result = kAuthResultInternalError;
    ExpectBounded(Measure([&] { result = fba->Authenticate(Http("/sites/a").c_str(), "user", "secret"); }));
    ASSERT_EQ(result, kAuthResultOk) << Detail(*fba);
    EXPECT_STREQ(fba->GetFedAuthCookie()->GetValue(), expected);
  }
}

// --- NUL bytes -----------------------------------------------------------------------

TEST_F(HostileServerTest, NulBytesEndTheTextThatIsSearched) {
  Adfs* adfs = engine_->Adfs();
  const std::string rstr = kRstrOpen + std::string("<a>claims</a>") + kRstrClose;
  const std::string nul(1, '\0');

  // Behind the element the NUL changes nothing; inside it, the element never ends.
  emulator_.Enqueue(Response::Text(200, rstr + nul + "<t:RequestSecurityTokenResponse>x" + kRstrClose));
  EXPECT_EQ(adfs->AuthenticateByUser(Http("/").c_str(), "urn:x", "user", "secret"), kAuthResultOk);
  EXPECT_EQ(Fetch([&](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); }), rstr);

  emulator_.Enqueue(Response::Text(200, kRstrOpen + std::string("<a>cl") + nul + "aims</a>" + kRstrClose));
  EXPECT_EQ(adfs->AuthenticateByUser(Http("/").c_str(), "urn:x", "user", "secret"),
            kAuthResultAuthFailed);
  EXPECT_EQ(Detail(*adfs), "No RSTR token found in HTTP response.");

  emulator_.Enqueue(Response::Text(200, nul + Filler(kMegabyte) + rstr));
  EXPECT_EQ(adfs->AuthenticateByUser(Http("/").c_str(), "urn:x", "user", "secret"),
            kAuthResultAuthFailed);
  EXPECT_EQ(Detail(*adfs), "No RSTR token found in HTTP response.");

  // In header lines. libcurl may refuse such a response outright; either way
  // nothing behind a NUL is taken for a cookie or a redirect.
  SharePointFba* fba = engine_->SharePointFba();
  emulator_.Enqueue(Response::Text(200, "<LoginResult/>")
                        .AddHeaderLine("X-Note: a" + nul + "b")
                        .SetCookie("FedAuth=v" + nul + "w; path=/"));
  AuthResult result = fba->Authenticate(Http("/sites/a").c_str(), "user", "secret");
  if (result == kAuthResultOk) {
    EXPECT_STREQ(fba->GetFedAuthCookie()->GetValue(), "v");
  } else {
    EXPECT_EQ(result, kAuthResultSendFailed) << Detail(*fba);
  }

  emulator_.ClearRequests();
  emulator_.Enqueue(Response::Redirect(302, "/x?wreply=" + nul + "https%3a%2f%2fevil"));
  emulator_.Enqueue(Response::Text(200, TokenRstr(), "application/soap+xml"));
  Office365* office365 = LocalOffice365();
  EXPECT_EQ(office365->Authenticate(Http("/sites/a").c_str(), user_.get()), kAuthResultOk)
      << Detail(*office365);
  ASSERT_EQ(Posts().size(), 1u);
  EXPECT_EQ(Posts()[0].body.find("evil"), std::string::npos);
}

// --- redirects -----------------------------------------------------------------------

TEST_F(HostileServerTest, RedirectLoopAndMegabyteLocationEndTheDiscovery) {
  Office365* office365 = LocalOffice365();
  emulator_.Route("GET", "", "/loop",
                  [loop = Http("/loop")](const Request&) { return Response::Redirect(302, loop); });
  emulator_.Route("POST", "", "/extSTS.srf",
                  [](const Request&) { return Response::Text(200, TokenRstr(), "application/soap+xml"); });

  AuthResult result = kAuthResultInternalError;
  ExpectBounded(Measure([&] { result = office365->Authenticate(Http("/loop").c_str(), user_.get()); }));
  EXPECT_EQ(result, kAuthResultOk) << Detail(*office365);
  EXPECT_EQ(emulator_.Requests().size(), size_t(AuthEngineConfig::GetMaxRedirect()) + 1);

  // A Location far beyond what libcurl takes for one header line: the probe
  // fails, which for a probe only means that there is no redirect.
  emulator_.ClearRequests();
  emulator_.Route("GET", "", "/huge", [](const Request&) {
    return Response::Redirect(302, "/next?wreply=" + Repeat("https%3a%2f%2fx", kMegabyte / 15));
  });
  ExpectBounded(Measure([&] { result = office365->Authenticate(Http("/huge").c_str(), user_.get()); }));
  EXPECT_EQ(result, kAuthResultOk) << Detail(*office365);
  ASSERT_EQ(Posts().size(), 1u);
  EXPECT_NE(Posts()[0].body.find("<a:Address>" + Http("/huge") + "</a:Address>"), std::string::npos);
}

// --- connections that die --------------------------------------------------------------

TEST_F(HostileServerTest, ConnectionClosedMidBodyIsASendFailure) {
  auto truncated = [](Response response) {
    response.close_after_body_bytes = 1000;
    return response;
  };
  SharePointFba* fba = engine_->SharePointFba();
  emulator_.Enqueue(truncated(Response::Text(200, Filler(kMegabyte)).SetCookie("FedAuth=f; path=/")));
  EXPECT_EQ(fba->Authenticate(Http("/sites/a").c_str(), "user", "secret"), kAuthResultSendFailed);
  EXPECT_NE(Detail(*fba), "");
  EXPECT_EQ(fba->GetFedAuthCookie(), nullptr);

  Adfs* adfs = engine_->Adfs();
  emulator_.Enqueue(truncated(Response::Text(200, TokenRstr() + Filler(kMegabyte))));
  EXPECT_EQ(adfs->AuthenticateByUser(Http("/").c_str(), "urn:x", "user", "secret"),
            kAuthResultSendFailed);
  EXPECT_EQ(Fetch([&](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); }), "");

  // GetSiteAndWeb is advice: what didn't arrive can't name another target.
  emulator_.ClearRequests();
  emulator_.Enqueue(Response::Text(200, "probe"));
  emulator_.Enqueue(truncated(Response::Text(
      200, Filler(kMegabyte) + "<strSite>" + Http("/elsewhere") + "</strSite>", "text/xml")));
  emulator_.Enqueue(Response::Redirect(302, "/").SetCookie("FedAuth=f; path=/"));
  CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(TokenRstr()));
  SharePointOffice365* online = engine_->SharePointOffice365();
  EXPECT_EQ(online->Authenticate(Http("/sites/a").c_str(), token.get()), kAuthResultOk)
      << Detail(*online);
  ASSERT_EQ(Posts().size(), 2u);
  EXPECT_EQ(Posts()[1].target, "/sites/a/_forms/default.aspx?wa=wsignin1.0");
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

// Forms-based sign-in, mostly over the wire against the emulator: what the
// request looks like byte for byte, how each kind of response is judged, which
// cookie is taken, and what an attempt leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "AuthEngineConfig.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "SharePointFba.h"
#include "emulator/FbaSite.h"
#include "emulator/emulator.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"
#include "support/FakeNetworkControl.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using Emulation::Request;
using Emulation::Response;
using testing::Detail;
using testing::EmulatorTest;
using testing::FakeNetworkControl;
using testing::Probe;
using testing::ScopedLogCapture;

// Written out independently of the library's template: a change of a single
// byte there must fail here.
std::string LoginBody(const std::string& user, const std::string& password) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
         "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
         "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">\n"
         "   <soap:Body>\n"
         "       <Login xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">\n"
         "       <username>" + user + "</username>\n"
         "       <password>" + password + "</password>\n"
         "       </Login>\n"
         "   </soap:Body>\n"
         "</soap:Envelope>";
}

Response WithCookies(int status, const std::vector<std::string>& cookies) {
  Response response = Response::Text(status, "<LoginResult/>", "text/xml");
  for (const std::string& cookie : cookies) response.SetCookie(cookie);
  return response;
}

class SharePointFbaWireTest : public EmulatorTest {
 protected:
  SharePointFba* fba() { return engine_->SharePointFba(); }
};

TEST_F(SharePointFbaWireTest, PostsTheLoginCallByteForByteWithBothHeadersInOrder) {
  emulator_.Enqueue(WithCookies(200, {"FedAuth=t; path=/"}));
  // Markup characters go out as they are: the template is filled, not escaped.
  const std::string user = "corp\\alice&<bob>";
  const std::string password = "p&ss<w>\"rd'";

  ASSERT_EQ(fba()->Authenticate(Http("/sites/a").c_str(), user.c_str(), password.c_str()),
            kAuthResultOk);

  Request sent = OnlyRequest();
  EXPECT_EQ(sent.method, "POST");
  EXPECT_EQ(sent.target, "/sites/a/_vti_bin/authentication.asmx");
  EXPECT_EQ(sent.body, LoginBody(user, password));
  EXPECT_EQ(sent.body.size(), 399 + user.size() + password.size());

  const std::vector<std::string>& lines = sent.header_lines;
  auto at = [&](const std::string& line) {
    return std::count(lines.begin(), lines.end(), line) == 1
               ? std::find(lines.begin(), lines.end(), line) - lines.begin()
               : -1;
  };
  long content_type = at("Content-Type: text/xml; charset=utf-8");
  long soap_action = at("SOAPAction: \"http://schemas.microsoft.com/sharepoint/soap/Login\"");
  ASSERT_GE(content_type, 0);
  ASSERT_GE(soap_action, 0);
  // Added SOAPAction first; the newest-first list sends Content-Type first.
  EXPECT_LT(content_type, soap_action);
  EXPECT_EQ(sent.Header("Content-Length"), std::to_string(sent.body.size()));
  EXPECT_FALSE(sent.Header("Cookie").has_value());
}

TEST_F(SharePointFbaWireTest, RequestUrlIsTheSanitizedSiteJoinedToTheEndpoint) {
  struct Case {
    const char* site_path;
    bool clear_endpoint;
    const char* expected_target;
  };
  const Case cases[] = {
      {"/sites/a/Pages/Home.aspx?x=1&y=2#top", false, "/sites/a/Pages/_vti_bin/authentication.asmx"},
      {"/sites/a/default.ASPX", false, "/sites/a/_vti_bin/authentication.asmx"},
      {"/sites/a#frag", false, "/sites/a/_vti_bin/authentication.asmx"},
      // JoinUrl adds its own slash and keeps the site's.
      {"/sites/a/", false, "/sites/a//_vti_bin/authentication.asmx"},
      {"/sites/a?q=1", true, "/sites/a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.site_path);
    emulator_.ClearRequests();
    emulator_.Enqueue(WithCookies(200, {"FedAuth=t; path=/"}));
    fba()->SetServiceEndpoint(c.clear_endpoint ? nullptr : "_vti_bin/authentication.asmx");
    EXPECT_EQ(fba()->Authenticate(Http(c.site_path).c_str(), "u", "p"), kAuthResultOk);
    EXPECT_EQ(OnlyRequest().target, c.expected_target);
  }
}

TEST_F(SharePointFbaWireTest, ResponseCodesOutsideFourAndFiveHundredsGoOnToTheCookie) {
  struct Case {
    int status;
    bool cookie;
    AuthResult expected;
    const char* detail;
  };
  const Case cases[] = {
      {200, true, kAuthResultOk, ""},
      // A redirect is not followed: the cookie on it counts.
      {302, true, kAuthResultOk, ""},
      {399, true, kAuthResultOk, ""},
      {600, true, kAuthResultOk, ""},
      {400, true, kAuthResultHttpError, "HTTP error reported.  Response code: 400"},
      {599, true, kAuthResultHttpError, "HTTP error reported.  Response code: 599"},
      // How a refused password looks: success code, no cookie.
      {200, false, kAuthResultAuthFailed, "FedAuth cookie not found."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.status);
    emulator_.ClearRequests();
    Response response = WithCookies(c.status, c.cookie ? std::vector<std::string>{"FedAuth=v"}
                                                       : std::vector<std::string>{});
    if (c.status == 302) response.AddHeader("Location", "/elsewhere");
    emulator_.Enqueue(std::move(response));

    EXPECT_EQ(fba()->Authenticate(Http("/sites/a").c_str(), "u", "p"), c.expected);
    EXPECT_EQ(Detail(*fba()), c.detail);
    EXPECT_EQ(fba()->GetFedAuthCookie() != nullptr, c.expected == kAuthResultOk);
    EXPECT_EQ(emulator_.Requests().size(), 1u);
  }
}

TEST_F(SharePointFbaWireTest, TakesOnlyACookieNamedExactlyFedAuth) {
  emulator_.Enqueue(WithCookies(200, {"fedauth=lower", "FedAuthX=longer", "FEDAUTH=upper"}));
  EXPECT_EQ(fba()->Authenticate(Http("/s").c_str(), "u", "p"), kAuthResultAuthFailed);
  EXPECT_EQ(fba()->GetFedAuthCookie(), nullptr);

  // An empty value is still a cookie that the server set.
  emulator_.Enqueue(WithCookies(200, {"Other=1", "FedAuth=; path=/"}));
  ASSERT_EQ(fba()->Authenticate(Http("/s").c_str(), "u", "p"), kAuthResultOk);
  ASSERT_NE(fba()->GetFedAuthCookie(), nullptr);
  EXPECT_STREQ(fba()->GetFedAuthCookie()->GetValue(), "");
}

TEST_F(SharePointFbaWireTest, OfTwoFedAuthCookiesTakesTheOneLibcurlListsLast) {
  // Two paths, so that libcurl keeps both; it lists them in arrival order.
  emulator_.Enqueue(WithCookies(200, {"FedAuth=first; path=/", "FedAuth=second; path=/s"}));
  ASSERT_EQ(fba()->Authenticate(Http("/s").c_str(), "u", "p"), kAuthResultOk);
  EXPECT_STREQ(fba()->GetFedAuthCookie()->GetValue(), "second");
  EXPECT_STREQ(fba()->GetFedAuthCookie()->GetPath(), "/s");
}

TEST_F(SharePointFbaWireTest, SignsInToAFormsSiteOverHttpsWithItsCa) {
  Emulation::FbaSiteOptions site;
  site.accounts = {{"alice", "Wonderland-42"}};
  auto state = Emulation::InstallFbaSite(&emulator_, site);
  fba()->SetCaFile(emulator_.CaFile().c_str());

  ASSERT_EQ(fba()->Authenticate(Https("/sites/fba").c_str(), "alice", "Wonderland-42"),
            kAuthResultOk)
      << Detail(*fba());
  const Cookie* cookie = fba()->GetFedAuthCookie();
  ASSERT_NE(cookie, nullptr);
  ASSERT_EQ(state->IssuedTokens().size(), 1u);
  EXPECT_EQ(cookie->GetValue(), state->IssuedTokens()[0]);
  EXPECT_STREQ(cookie->GetDomain(), "127.0.0.1");
  EXPECT_STREQ(cookie->GetPath(), "/");
  EXPECT_TRUE(cookie->IsSecureEnabled());
  EXPECT_TRUE(cookie->IsHttpOnlyEnabled());
  EXPECT_TRUE(OnlyRequest().tls);

  // The site answers a wrong password with 200 and no cookie.
  EXPECT_EQ(fba()->Authenticate(Https("/sites/fba").c_str(), "alice", "wrong"),
            kAuthResultAuthFailed);
  EXPECT_EQ(Detail(*fba()), "FedAuth cookie not found.");
  EXPECT_EQ(fba()->GetFedAuthCookie(), nullptr);
  EXPECT_EQ(state->RejectedLogins(), 1);
}

TEST_F(SharePointFbaWireTest, CertificateChecksFollowTheOptions) {
  Emulation::InstallFbaSite(&emulator_, Emulation::FbaSiteOptions());
  const std::string site = Https("/sites/fba");
  Emulation::CertificateAuthority stranger("Some Other CA");

  fba()->SetCaFile(stranger.CaFile().c_str());
  EXPECT_EQ(fba()->Authenticate(site.c_str(), "alice", "Wonderland-42"), kAuthResultSendFailed);
  EXPECT_NE(Detail(*fba()).find("certificate"), std::string::npos) << Detail(*fba());

  fba()->EnableSslVerifyCert(false);
  fba()->EnableSslVerifyHost(false);
  EXPECT_EQ(fba()->Authenticate(site.c_str(), "alice", "Wonderland-42"), kAuthResultOk)
      << Detail(*fba());
}

TEST_F(SharePointFbaWireTest, AFailedTransferReportsLibcurlsText) {
  Emulation::Emulator closed;
  ASSERT_TRUE(closed.Start());
  const std::string site = closed.HttpUrl("/sites/a");
  closed.Stop();

  EXPECT_EQ(fba()->Authenticate(site.c_str(), "u", "p"), kAuthResultSendFailed);
  // libcurl's wording, not ours: only its gist is stable across versions.
  std::string detail = Detail(*fba());
  EXPECT_NE(detail.find("onnect"), std::string::npos) << detail;
  EXPECT_EQ(fba()->GetFedAuthCookie(), nullptr);
}

TEST_F(SharePointFbaWireTest, SuccessKeepsOnlyTheCookieAndFailureKeepsTheEvidence) {
  Probe<SharePointFba> probe(fba()->GetNetworkControl());
  emulator_.Enqueue(WithCookies(200, {"FedAuth=v; path=/"}));
  ASSERT_EQ(probe.Authenticate(Http("/s").c_str(), "u", "secret"), kAuthResultOk);
  ASSERT_NE(probe.GetFedAuthCookie(), nullptr);
  EXPECT_EQ(probe.GetNetworkConfig()->GetUrl(), nullptr);
  EXPECT_EQ(probe.GetNetworkConfig()->GetHeaders(), nullptr);
  EXPECT_EQ(probe.GetNetworkConfig()->GetPostData(), nullptr);
  EXPECT_EQ(probe.GetNetworkResult()->GetResponseCode(), 0);
  EXPECT_EQ(probe.GetNetworkResult()->GetCookies(), nullptr);

  // A later failure wipes the earlier cookie, and leaves the request and the
  // response for a look at what went wrong.
  emulator_.Enqueue(WithCookies(503, {"FedAuth=w"}));
  EXPECT_EQ(probe.Authenticate(Http("/s").c_str(), "u", "secret"), kAuthResultHttpError);
  EXPECT_EQ(probe.GetFedAuthCookie(), nullptr);
  EXPECT_STREQ(probe.GetNetworkConfig()->GetUrl(), Http("/s/_vti_bin/authentication.asmx").c_str());
  EXPECT_EQ(probe.GetNetworkConfig()->GetPostData(), LoginBody("u", "secret"));
  EXPECT_EQ(probe.GetNetworkResult()->GetResponseCode(), 503);
  EXPECT_NE(probe.GetNetworkResult()->GetCookies(), nullptr);

  // Refused input resets both before it refuses.
  EXPECT_EQ(probe.Authenticate("ftp://host/s", "u", "secret"), kAuthResultInvalidInput);
  EXPECT_EQ(probe.GetNetworkConfig()->GetUrl(), nullptr);
  EXPECT_EQ(probe.GetNetworkResult()->GetResponseCode(), 0);
  // The options are not the attempt's to change.
  EXPECT_TRUE(probe.IsSslVerifyCertEnabled());
}

TEST_F(SharePointFbaWireTest, LogsWhetherAPasswordIsThereButNeverThePassword) {
  const std::string site = Http("/sites/a");
  ScopedLogCapture log(kLogLevelDebug);
  // With a log directory libcurl's verbose text comes back through the log
  // too, so that it is searched for the password as well.
  AuthEngineConfig::SetTempLogDir(::testing::TempDir().c_str());
  engine_ = std::make_unique<AuthEngine>();
  emulator_.Enqueue(WithCookies(200, {"FedAuth=v"}));
  ASSERT_EQ(fba()->Authenticate(site.c_str(), "alice", "Pa55-secret"), kAuthResultOk);

  EXPECT_TRUE(ScopedLogCapture::Has("SharePointFba::Authenticate - Site: " + site +
                              ", User: alice, Pwd avail: Y"));
  EXPECT_TRUE(ScopedLogCapture::Has("SharePointFba::Authenticate - Sanitized URL: " + site));
  bool body_logged = false;
  bool verbose_logged = false;
  for (const std::string& line : ScopedLogCapture::Lines()) {
    EXPECT_EQ(line.find("Pa55-secret"), std::string::npos) << line;
    body_logged |= line.find("<password>*</password>") != std::string::npos;
    verbose_logged |= line.rfind("> POST /sites/a/_vti_bin/authentication.asmx", 0) == 0;
  }
  EXPECT_TRUE(body_logged) << "the request dump should show the masked body";
  EXPECT_TRUE(verbose_logged) << "libcurl's verbose text should be searched too";

  // An empty password is still sent; a missing one ends before the network.
  ScopedLogCapture::Clear();
  emulator_.ClearRequests();
  emulator_.Enqueue(WithCookies(200, {"FedAuth=v"}));
  EXPECT_EQ(fba()->Authenticate(site.c_str(), "alice", ""), kAuthResultOk);
  EXPECT_TRUE(ScopedLogCapture::Has("SharePointFba::Authenticate - Site: " + site +
                              ", User: alice, Pwd avail: N"));
  EXPECT_EQ(OnlyRequest().body, LoginBody("alice", ""));

  ScopedLogCapture::Clear();
  emulator_.ClearRequests();
  EXPECT_EQ(fba()->Authenticate(site.c_str(), "alice", nullptr), kAuthResultInvalidInput);
  EXPECT_TRUE(ScopedLogCapture::Has("SharePointFba::Authenticate - Site: " + site +
                              ", User: alice, Pwd avail: N"));
  EXPECT_TRUE(emulator_.Requests().empty());
}

// Conditions that no server produces, and input checks that never reach the
// network, with a scripted transport.
TEST(SharePointFbaTest, RefusesMissingOrUnsupportedInputWithoutSending) {
  struct Case {
    const char* site;
    const char* user;
    const char* password;
    const char* detail;
  };
  const Case cases[] = {
      // The null user is reported even though the site is missing too.
      {nullptr, nullptr, "p", "At least one of the required input string is null."},
      {"http://h/s", "u", nullptr, "At least one of the required input string is null."},
      {nullptr, "u", "p", "Input is an empty or null string."},
      {"", "u", "p", "Input is an empty or null string."},
      {"ftp://h/s", "u", "p", "Only http or https is supported. URL: ftp://h/s"},
      {"HTTPS://h/s", "u", "p", "Only http or https is supported. URL: HTTPS://h/s"},
      {"h/s", "u", "p", "Only http or https is supported. URL: h/s"},
  };
  FakeNetworkControl transport;
  SharePointFba fba(&transport);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.detail);
    EXPECT_EQ(fba.Authenticate(c.site, c.user, c.password), kAuthResultInvalidInput);
    EXPECT_EQ(Detail(fba), c.detail);
  }
  EXPECT_TRUE(transport.sent().empty());
}

TEST(SharePointFbaTest, PassesTransportFailuresOnAndRejectsResponseCodeZero) {
  FakeNetworkControl no_handle([](NetworkResult* result) {
    result->SetErrorMsg(
        "Null handle encountered.  This might be caused by network initialization not called "
        "prior to use.");
    return kAuthResultInternalError;
  });
  SharePointFba first(&no_handle);
  EXPECT_EQ(first.Authenticate("http://h/s", "u", "p"), kAuthResultInternalError);
  EXPECT_EQ(Detail(first),
            "Null handle encountered.  This might be caused by network initialization not "
            "called prior to use.");

  // A cookie alone doesn't save a response that has no status.
  FakeNetworkControl no_status([](NetworkResult* result) {
    Cookie cookie;
    cookie.SetName("FedAuth");
    cookie.SetValue("v");
    result->AddCookie(&cookie);
    return kAuthResultOk;
  });
  SharePointFba second(&no_status);
  EXPECT_EQ(second.Authenticate("http://h/s", "u", "p"), kAuthResultHttpError);
  EXPECT_EQ(Detail(second), "Unexpected HTTP response code.  Response code: 0");
  EXPECT_EQ(second.GetFedAuthCookie(), nullptr);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

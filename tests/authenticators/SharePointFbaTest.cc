// Forms-based sign-in against the emulator: the request byte for byte, how
// each response is judged, which cookie is taken, and what an attempt leaves.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuthEngineConfig.h"
#include "NetworkConfig.h"
#include "NetworkResult.h"
#include "SharePointFba.h"
#include "emulator/FbaSite.h"
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
using testing::ScopedLogCapture;

// Written out independently of the library's template.
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
  if (status == 302) response.AddHeader("Location", "/elsewhere");
  return response;
}

class SharePointFbaTest : public testing::EmulatorTest {
 protected:
  SharePointFba* fba() { return engine_->SharePointFba(); }
};

TEST_F(SharePointFbaTest, PostsTheLoginCallByteForByteWithHeadersInOrder) {
  emulator_.Enqueue(WithCookies(200, {"FedAuth=t"}));
  // Markup goes out as it is: the template is filled, not escaped.
  ASSERT_EQ(fba()->Authenticate(Http("/sites/a").c_str(), "corp\\a&<b>", "p&<w>\"'"), kAuthResultOk);
  Request sent = OnlyRequest();
  EXPECT_EQ(sent.method, "POST");
  EXPECT_EQ(sent.body, LoginBody("corp\\a&<b>", "p&<w>\"'"));
  std::vector<std::string> ours;
  for (const std::string& line : sent.header_lines) {
    if (line.rfind("Content-Type:", 0) == 0 || line.rfind("SOAPAction:", 0) == 0) ours.push_back(line);
  }
  EXPECT_EQ(ours, (std::vector<std::string>{
                      "Content-Type: text/xml; charset=utf-8",
                      "SOAPAction: \"http://schemas.microsoft.com/sharepoint/soap/Login\""}));
}

TEST_F(SharePointFbaTest, RequestUrlIsTheSanitizedSiteJoinedToTheEndpoint) {
  const struct { const char* site; bool endpoint; const char* target; } cases[] = {
      {"/sites/a/Pages/Home.aspx?x=1&y=2#top", true, "/sites/a/Pages/_vti_bin/authentication.asmx"},
      {"/sites/a/default.ASPX", true, "/sites/a/_vti_bin/authentication.asmx"},
      {"/sites/a#frag", true, "/sites/a/_vti_bin/authentication.asmx"},
      {"/sites/a/", true, "/sites/a//_vti_bin/authentication.asmx"},
      {"/sites/a?q=1", false, "/sites/a"},
  };
  for (const auto& c : cases) {
    emulator_.ClearRequests();
    emulator_.Enqueue(WithCookies(200, {"FedAuth=t"}));
    fba()->SetServiceEndpoint(c.endpoint ? "_vti_bin/authentication.asmx" : nullptr);
    EXPECT_EQ(fba()->Authenticate(Http(c.site).c_str(), "u", "p"), kAuthResultOk);
    EXPECT_EQ(OnlyRequest().target, c.target) << c.site;
  }
}

// Cookies are compared by exact name; an empty value counts; of two FedAuth
// cookies the one libcurl lists last (the later) wins.
TEST_F(SharePointFbaTest, ResponseCodesAndCookieChoice) {
  const char kNone[] = "FedAuth cookie not found.";
  const struct { int status; std::vector<std::string> cookies; AuthResult result; const char* detail; const char* value; } rows[] = {
      {302, {"FedAuth=v"}, kAuthResultOk, "", "v"},
      {399, {"FedAuth=v"}, kAuthResultOk, "", "v"},
      {600, {"FedAuth=v"}, kAuthResultOk, "", "v"},
      {400, {"FedAuth=v"}, kAuthResultHttpError, "HTTP error reported.  Response code: 400", nullptr},
      {599, {"FedAuth=v"}, kAuthResultHttpError, "HTTP error reported.  Response code: 599", nullptr},
      {200, {}, kAuthResultAuthFailed, kNone, nullptr},
      {200, {"fedauth=l", "FedAuthX=x", "FEDAUTH=u"}, kAuthResultAuthFailed, kNone, nullptr},
      {200, {"Other=1", "FedAuth=; path=/"}, kAuthResultOk, "", ""},
      {200, {"FedAuth=first; path=/", "FedAuth=second; path=/s"}, kAuthResultOk, "", "second"},
  };
  for (const auto& row : rows) {
    emulator_.Enqueue(WithCookies(row.status, row.cookies));
    EXPECT_EQ(fba()->Authenticate(Http("/s").c_str(), "u", "p"), row.result) << row.status;
    EXPECT_EQ(Detail(*fba()), row.detail) << row.status;
    const Cookie* cookie = fba()->GetFedAuthCookie();
    ASSERT_EQ(cookie != nullptr, row.value != nullptr) << row.status;
    if (cookie != nullptr) { EXPECT_STREQ(cookie->GetValue(), row.value); }
  }
  EXPECT_EQ(emulator_.Requests().size(), 9u);  // a redirect is not followed
}

TEST_F(SharePointFbaTest, CertificateChecksFollowTheOptions) {
  Emulation::InstallFbaSite(&emulator_, Emulation::FbaSiteOptions());
  const std::string url = Https("/sites/fba");
  Emulation::CertificateAuthority stranger("Some Other CA");
  fba()->SetCaFile(stranger.CaFile().c_str());
  EXPECT_EQ(fba()->Authenticate(url.c_str(), "alice", "Wonderland-42"), kAuthResultSendFailed);
  fba()->EnableSslVerifyCert(false);
  fba()->EnableSslVerifyHost(false);
  EXPECT_EQ(fba()->Authenticate(url.c_str(), "alice", "Wonderland-42"), kAuthResultOk) << Detail(*fba());
}

TEST_F(SharePointFbaTest, SuccessClearsTheRequestAndFailureKeepsIt) {
  testing::Probe<SharePointFba> probe(fba()->GetNetworkControl());
  emulator_.Enqueue(WithCookies(200, {"FedAuth=v"}));
  ASSERT_EQ(probe.Authenticate(Http("/s").c_str(), "u", "secret"), kAuthResultOk);
  EXPECT_EQ(probe.GetNetworkConfig()->GetUrl(), nullptr);
  EXPECT_EQ(probe.GetNetworkConfig()->GetPostData(), nullptr);
  EXPECT_EQ(probe.GetNetworkResult()->GetCookies(), nullptr);

  emulator_.Enqueue(WithCookies(503, {"FedAuth=w"}));
  EXPECT_EQ(probe.Authenticate(Http("/s").c_str(), "u", "secret"), kAuthResultHttpError);
  EXPECT_EQ(probe.GetFedAuthCookie(), nullptr);
  EXPECT_EQ(probe.GetNetworkConfig()->GetPostData(), LoginBody("u", "secret"));
  EXPECT_EQ(probe.GetNetworkResult()->GetResponseCode(), 503);

  EXPECT_EQ(probe.Authenticate("ftp://host/s", "u", "secret"), kAuthResultInvalidInput);
  EXPECT_EQ(probe.GetNetworkConfig()->GetUrl(), nullptr);
  EXPECT_EQ(probe.GetNetworkResult()->GetResponseCode(), 0);
}

TEST_F(SharePointFbaTest, LogsWhetherAPasswordIsThere) {
  const std::string site = Http("/sites/a");
  const std::string prefix = "SharePointFba::Authenticate - Site: " + site + ", User: alice, Pwd avail: ";
  ScopedLogCapture log(kLogLevelDebug);
  const struct { const char* password; AuthResult result; char avail; } rows[] = {
      {"secret", kAuthResultOk, 'Y'}, {"", kAuthResultOk, 'N'}, {nullptr, kAuthResultInvalidInput, 'N'}};
  for (const auto& row : rows) {
    ScopedLogCapture::Clear();
    if (row.password != nullptr) emulator_.Enqueue(WithCookies(200, {"FedAuth=v"}));
    EXPECT_EQ(fba()->Authenticate(site.c_str(), "alice", row.password), row.result);
    EXPECT_TRUE(ScopedLogCapture::Has(prefix + row.avail)) << row.avail;
  }
  EXPECT_EQ(emulator_.Requests().back().body, LoginBody("alice", ""));
}

TEST(SharePointFbaInputTest, RefusesInputInOrderWithoutSending) {
  const char kNull[] = "At least one of the required input string is null.";
  const char kEmpty[] = "Input is an empty or null string.";
  const struct { const char* site; const char* user; const char* password; std::string detail; } rows[] = {
      {nullptr, nullptr, "p", kNull},
      {"http://h/s", "u", nullptr, kNull},
      {nullptr, "u", "p", kEmpty},
      {"", "u", "p", kEmpty},
      {"ftp://h/s", "u", "p", "Only http or https is supported. URL: ftp://h/s"},
      {"HTTPS://h/s", "u", "p", "Only http or https is supported. URL: HTTPS://h/s"},
  };
  testing::FakeNetworkControl transport;
  SharePointFba fba(&transport);
  for (const auto& row : rows) {
    EXPECT_EQ(fba.Authenticate(row.site, row.user, row.password), kAuthResultInvalidInput);
    EXPECT_EQ(Detail(fba), row.detail);
  }
  EXPECT_TRUE(transport.sent().empty());
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

// Forms-based sign-in against the emulator: the request byte for byte, how
// each response is judged, which cookie is taken, and what an attempt leaves.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Request;
using Emulation::Response;

// Written out independently of the library's template.
std::string LoginBody(const std::string& user, const std::string& password) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/"
         "envelope/\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:xsd=\"http://www.w3.org/2001/"
         "XMLSchema\">\n   <soap:Body>\n       <Login xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">\n"
         "       <username>" + user + "</username>\n       <password>" + password + "</password>\n"
         "       </Login>\n   </soap:Body>\n</soap:Envelope>";
}

Response WithCookies(int status, const std::vector<std::string>& cookies) {
  Response response = Response::Text(status, "<LoginResult/>", "text/xml");
  for (const std::string& cookie : cookies) response.SetCookie(cookie);
  if (status == 302) response.AddHeader("Location", "/elsewhere");
  return response;
}

class SharePointFbaTest : public EmulatorTest {
 protected:
  SharePointFba* fba() { return engine_->SharePointFba(); }
};

// Markup goes out as it is: the template is filled, not escaped. The site is
// sanitized and joined to the endpoint; without one it is the URL.
TEST_F(SharePointFbaTest, PostsTheLoginCallByteForByteWithHeadersInOrder) {
  emulator_.Enqueue(WithCookies(200, {"FedAuth=t"}));
  ASSERT_EQ(fba()->Authenticate(Http("/sites/a/Pages/Home.aspx?x=1#top").c_str(), "corp\\a&<b>", "p&<w>\"'"),
            kAuthResultOk);
  Request sent = OnlyRequest();
  EXPECT_EQ(sent.method + " " + sent.target, "POST /sites/a/Pages/_vti_bin/authentication.asmx");
  EXPECT_EQ(sent.body, LoginBody("corp\\a&<b>", "p&<w>\"'"));
  std::vector<std::string> ours;
  for (const std::string& line : sent.header_lines) {
    if (line.rfind("Content-Type:", 0) == 0 || line.rfind("SOAPAction:", 0) == 0) ours.push_back(line);
  }
  EXPECT_EQ(ours, (std::vector<std::string>{"Content-Type: text/xml; charset=utf-8",
                                            "SOAPAction: \"http://schemas.microsoft.com/sharepoint/soap/Login\""}));
  emulator_.ClearRequests();
  emulator_.Enqueue(WithCookies(200, {"FedAuth=t"}));
  fba()->SetServiceEndpoint(nullptr);
  EXPECT_EQ(fba()->Authenticate(Http("/sites/a?q=1").c_str(), "u", "p"), kAuthResultOk);
  EXPECT_EQ(OnlyRequest().target, "/sites/a");
}

// Cookies are compared by exact name; an empty value counts; of two FedAuth
// cookies the one libcurl lists last (the later) wins.
TEST_F(SharePointFbaTest, ResponseCodesAndCookieChoice) {
  const char kNone[] = "FedAuth cookie not found.";
  const struct { int status; std::vector<std::string> cookies; AuthResult result; const char* detail; const char* value; } rows[] = {
      {302, {"FedAuth=v"}, kAuthResultOk, "", "v"},
      {400, {"FedAuth=v"}, kAuthResultHttpError, "HTTP error reported.  Response code: 400", nullptr},
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
  EXPECT_EQ(emulator_.Requests().size(), 6u);  // a redirect is not followed
}

TEST_F(SharePointFbaTest, SuccessClearsTheRequestAndFailureKeepsIt) {
  Probe<SharePointFba> probe(fba()->GetNetworkControl());
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

}  // namespace
}  // namespace Vantrel::Auth::testing

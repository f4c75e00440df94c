// The binary token at a SharePoint Online site: probes, GetSiteAndWeb, the
// token post and the cookies, against the emulated site on its real host name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuthEngine.h"
#include "Cookie.h"
#include "CredentialFactory.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"
#include "emulator/response.h"
#include "tools/curl_client.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

using Emulation::Request;
using Emulation::Response;

constexpr char kSoapAction[] = "\"http://schemas.microsoft.com/sharepoint/soap/GetSiteAndWeb\"";

// What GetSiteAndWeb must look like for `url`, byte for byte.
std::string SiteAndWebEnvelope(const std::string& url) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
         "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
         "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">\n"
         "   <soap:Body>\n"
         "       <GetSiteAndWeb xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">\n"
         "       <strUrl>" +
         url +
         "</strUrl>\n"
         "       </GetSiteAndWeb>\n"
         "   </soap:Body>\n"
         "</soap:Envelope>";
}

// Index of the first header line with that name, or the line count.
size_t HeaderIndex(const Request& request, const std::string& name) {
  for (size_t i = 0; i < request.header_lines.size(); ++i) {
    if (request.header_lines[i].compare(0, name.size() + 1, name + ":") == 0) return i;
  }
  return request.header_lines.size();
}

class SharePointOffice365Test : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    InstallService();
  }

  // A token as the service would have issued it for `realm`, wrapped the
  // way the host gets it: from an RSTR through the factory.
  CredentialPtr TokenCredential(const std::string& realm = kRealm) {
    token_ = service_->Issue(kManagedUser, realm).value;
    return CredentialPtr(CredentialFactory::CreateCredentialFromRstr(
        "<wst:RequestSecurityTokenResponse><wsse:BinarySecurityToken Id=\"Compact0\">" + token_ +
        "</wsse:BinarySecurityToken></wst:RequestSecurityTokenResponse>"));
  }

  std::string token_;
};

TEST_F(SharePointOffice365Test, SignsInOverHttpsWithItsDefaultSsl3) {
  InstallSite();
  RecordingTransport transport;
  SharePointOffice365 online(&transport);
  Trust(&online);
  ASSERT_EQ(online.GetSslVersion(), kSslVersionSsl3);
  CredentialPtr credential = TokenCredential();

  ASSERT_EQ(online.Authenticate(kSite, credential.get()), kAuthResultOk) << Detail(online);

  EXPECT_EQ(RequestLines(),
            (std::vector<std::string>{
                "GET contoso.sharepoint.com /sites/team",
                "GET contoso.sharepoint.com "
                "/_login/default.aspx?ReturnUrl=%2f_layouts%2f15%2fError.aspx&Source=%2f",
                "GET contoso.sharepoint.com "
                "/_forms/default.aspx?ReturnUrl=%2f_layouts%2f15%2fError.aspx&Source=%2f",
                "POST contoso.sharepoint.com /_vti_bin/SiteData.asmx",
                "POST contoso.sharepoint.com /_forms/default.aspx?wa=wsignin1.0",
            }));
  for (const RecordingTransport::Sent& sent : transport.sent()) {
    EXPECT_EQ(sent.ssl_version, kSslVersionSsl3) << sent.url;
  }
  std::vector<Request> requests = emulator_.Requests();
  for (const Request& request : requests) EXPECT_TRUE(request.tls) << request.target;

  const Request& soap = requests[3];
  EXPECT_EQ(soap.body, SiteAndWebEnvelope(kRealm));
  EXPECT_EQ(soap.body.size(), 384u - 2u + std::string(kRealm).size());
  EXPECT_EQ(soap.Header("SOAPAction").value_or(""), kSoapAction);
  EXPECT_EQ(soap.Header("Content-Type").value_or(""), "text/xml; charset=utf-8");
  // Headers leave in the reverse of the order in which they were added.
  EXPECT_LT(HeaderIndex(soap, "Content-Type"), HeaderIndex(soap, "SOAPAction"));

  const Request& post = requests[4];
  EXPECT_EQ(post.body, token_);  // raw: no field name, no encoding, "&amp;" kept
  EXPECT_EQ(post.Header("Content-Type").value_or(""), "application/x-www-form-urlencoded");

  ASSERT_NE(online.GetFedAuthCookie(), nullptr);
  ASSERT_NE(online.GetRtfaCookie(), nullptr);
  EXPECT_EQ(std::string(online.GetFedAuthCookie()->GetValue()), site_->IssuedCookies().back());
  EXPECT_NE(std::string(online.GetRtfaCookie()->GetValue()), "");
  EXPECT_EQ(Detail(online), "");

  // The cookie is what the site wants on its protected pages.
  Emulation::CurlClient client;
  client.UseProxy(emulator_.ProxyUrl());
  client.TrustOnly(emulator_.CaFile());
  client.SetHeaders({std::string("Cookie: FedAuth=") + online.GetFedAuthCookie()->GetValue()});
  Emulation::CurlReply page = client.Perform(std::string(kSite) + "/Shared%20Documents");
  EXPECT_EQ(page.status, 200);
  EXPECT_NE(page.body.find("Signed in as adele@contoso.com"), std::string::npos);
}

// strSite decides where the token goes: blanks become %20, strWeb is only
// logged, and without an answer the realm itself is used.
TEST_F(SharePointOffice365Test, TokenGoesToTheSiteCollectionGetSiteAndWebNames) {
  Emulation::OnlineSiteOptions options;
  options.str_site = "https://contoso.sharepoint.com/sites/team space";
  options.str_web = "https://contoso.sharepoint.com/sites/team space/notes";
  InstallSite(options);
  SharePointOffice365* online = engine_->SharePointOffice365();
  Trust(online);
  CredentialPtr credential = TokenCredential();

  ASSERT_EQ(online->Authenticate(kSite, credential.get()), kAuthResultOk) << Detail(*online);
  EXPECT_EQ(RequestLines().back(),
            "POST contoso.sharepoint.com /sites/team%20space/_forms/default.aspx?wa=wsignin1.0");

  // A SiteData service that only answers with an error page.
  emulator_.Route("POST", kSiteHost, "/_vti_bin/SiteData.asmx", [](const Request&) {
    return Response::Text(500, "<html>Server Error</html>", "text/html");
  });
  emulator_.ClearRequests();
  credential = TokenCredential();
  ASSERT_EQ(online->Authenticate(kSite, credential.get()), kAuthResultOk) << Detail(*online);
  EXPECT_EQ(RequestLines().back(),
            "POST contoso.sharepoint.com /_forms/default.aspx?wa=wsignin1.0");
}

TEST_F(SharePointOffice365Test, WrongCredentialIsRefusedOnlyAfterProbesAndGetSiteAndWeb) {
  InstallSite();
  SharePointOffice365* online = engine_->SharePointOffice365();
  Trust(online);
  CredentialPtr password(
      CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kManagedPassword));
  const ICredential* wrong[] = {password.get(), nullptr};

  for (const ICredential* credential : wrong) {
    emulator_.ClearRequests();
    EXPECT_EQ(online->Authenticate(kSite, credential), kAuthResultInternalError);
    EXPECT_EQ(Detail(*online),
              "Invalid credential supplied to SharePointOffice365::Authenticate.  Only "
              "BinaryTokenCredential is supported.");
    std::vector<std::string> lines = RequestLines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines.back(), "POST contoso.sharepoint.com /_vti_bin/SiteData.asmx");
  }
}

TEST_F(SharePointOffice365Test, FedAuthThatArrivedFirstWinsAndRtfaMayBeMissing) {
  InstallSite();
  emulator_.Route("POST", kSiteHost, "/_forms/default.aspx", [](const Request&) {
    Response response = Response::Redirect(302, "/");
    response.SetCookie("FedAuth=first; path=/");
    response.SetCookie("FedAuth=second; path=/sites");
    // libcurl matches cookie names without regard to case, so this one needs
    // a path of its own not to replace the first.
    response.SetCookie("fedauth=lower; path=/other");
    response.SetCookie("FedAuth2=other; path=/");
    return response;
  });
  SharePointOffice365* online = engine_->SharePointOffice365();
  Trust(online);
  CredentialPtr credential = TokenCredential();

  ASSERT_EQ(online->Authenticate(kSite, credential.get()), kAuthResultOk) << Detail(*online);
  ASSERT_NE(online->GetFedAuthCookie(), nullptr);
  EXPECT_STREQ(online->GetFedAuthCookie()->GetValue(), "first");
  EXPECT_EQ(online->GetRtfaCookie(), nullptr);
}

TEST_F(SharePointOffice365Test, FailedAttemptLeavesNoCookies) {
  InstallSite();
  SharePointOffice365* online = engine_->SharePointOffice365();
  Trust(online);
  CredentialPtr credential = TokenCredential();
  ASSERT_EQ(online->Authenticate(kSite, credential.get()), kAuthResultOk) << Detail(*online);

  // A token the service never issued is refused by the site.
  CredentialPtr forged(CredentialFactory::CreateCredentialFromRstr(
      "<BinarySecurityToken>t=forged&amp;p=</BinarySecurityToken>"));
  EXPECT_EQ(online->Authenticate(kSite, forged.get()), kAuthResultHttpError);
  EXPECT_EQ(Detail(*online), "HTTP error reported.  Response code: 403");
  EXPECT_EQ(online->GetFedAuthCookie(), nullptr);
  EXPECT_EQ(online->GetRtfaCookie(), nullptr);

  // Accepted, but without the cookie that proves it.
  emulator_.Route("POST", kSiteHost, "/_forms/default.aspx", [](const Request&) {
    return Response::Text(200, "<html>Welcome</html>", "text/html").SetCookie("rtFa=only; path=/");
  });
  EXPECT_EQ(online->Authenticate(kSite, credential.get()), kAuthResultAuthFailed);
  EXPECT_EQ(Detail(*online), "FedAuth cookie not found.");
  EXPECT_EQ(online->GetFedAuthCookie(), nullptr);
  ASSERT_NE(online->GetRtfaCookie(), nullptr);
  EXPECT_STREQ(online->GetRtfaCookie()->GetValue(), "only");
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

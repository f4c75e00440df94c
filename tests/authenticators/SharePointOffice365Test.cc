// Where a user signs in, at the emulated sign-in service; then the binary token
// at a SharePoint Online site: probes, GetSiteAndWeb, the token post and the
// cookies, against the emulated site.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "authenticators/Office365Endpoints.h"
#include "support/OnlineTest.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Request;
using Emulation::Response;

TEST_F(OnlineTest, GetAuthTargetReadsTheNamespaceAndServer) {
  Emulation::Office365ServiceOptions options;
  options.accounts = {
      {"adele@contoso.com", {"Managed", "", "x"}}, {"lower@contoso.com", {"managed", "", "x"}},
      {"blank@contoso.com", {"", "", ""}}, {"nourl@fabrikam.com", {"Federated", "", ""}},
      {"unknown@contoso.com", {"Unknown", "", ""}}, {"caps@fabrikam.com", {"Federated", "https://sts.fabrikam.com/ADFS/LS/", ""}},
      {"adfs@fabrikam.com", {"Federated", "https://adfs.fabrikam.com/adfs/ls/?username=a&wa=wsignin1.0", ""}},
      {"other@fabrikam.com", {"Federated", "https://sts.fabrikam.com/federation/signin.aspx?x=1#y", ""}},
  };
  InstallService(options);
  SharePointOffice365* online = engine_->SharePointOffice365();
  Trust(online);
  const int kUntouched = -1;
  const struct { const char* email; AuthResult result; int type; const char* url; const char* detail; } rows[] = {
      {"adele@contoso.com", kAuthResultOk, kAuthNamespaceManaged, kDefaultOffice365Server, ""},
      {"adfs@fabrikam.com", kAuthResultOk, kAuthNamespaceFederated, "https://adfs.fabrikam.com", ""},
      {"caps@fabrikam.com", kAuthResultOk, kAuthNamespaceFederated, "https://sts.fabrikam.com", ""},
      {"other@fabrikam.com", kAuthResultOk, kAuthNamespaceFederated, "https://sts.fabrikam.com/federation", ""},
      {"unknown@contoso.com", kAuthResultOk, kAuthNamespaceUnknown, "untouched", ""},
      {"lower@contoso.com", kAuthResultInternalError, kUntouched, "untouched",
       "Unsupported Office 365 Auth Namespace Typemanaged"},
      {"blank@contoso.com", kAuthResultInternalError, kAuthNamespaceUnknown, "untouched",
       "Could not find Office 365 Auth Namespace Type"},
      {"nourl@fabrikam.com", kAuthResultInternalError, kAuthNamespaceFederated, "untouched",
       "Could not find Office 365 Auth URL for a Federated namespace"},
      {"", kAuthResultInvalidInput, kUntouched, "untouched", ""},
  };
  for (const auto& row : rows) {
    auto type = static_cast<SharePointOffice365AuthNamespace>(kUntouched);
    std::string url = "untouched";
    EXPECT_EQ(online->GetAuthTarget(row.email, type, url), row.result) << row.email;
    EXPECT_EQ(static_cast<int>(type), row.type) << row.email;
    EXPECT_EQ(url, row.url) << row.email;
    EXPECT_EQ(Detail(*online), row.detail) << row.email;
  }
  const Emulation::Request first = emulator_.Requests().at(0);
  EXPECT_TRUE(first.tls);
  EXPECT_EQ(first.method + " " + first.Host() + " " + first.target,
            "GET login.microsoftonline.com /GetUserRealm.srf?handler=1&login=adele%40contoso%2Ecom");
  EXPECT_EQ(emulator_.Requests().size(), 8u);  // none for the empty address
}

class SharePointOffice365Test : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    InstallService();
    Trust(&online_);
    token_ = service_->Issue(kManagedUser, kRealm).value;
    credential_.reset(CredentialFactory::CreateCredentialFromRstr(
        "<wsse:BinarySecurityToken Id=\"Compact0\">" + token_ + "</wsse:BinarySecurityToken>"));
  }

  FakeNetworkControl transport_{FakeNetworkControl::kThroughLibcurl};
  SharePointOffice365 online_{&transport_};
  std::string token_;
  CredentialPtr credential_;
};

TEST_F(SharePointOffice365Test, SignsInWithTheExactRequestsOverSsl3) {
  InstallSite();
  ASSERT_EQ(online_.Authenticate(kSite, credential_.get()), kAuthResultOk) << Detail(online_);
  const std::string tail = "/default.aspx?ReturnUrl=%2f_layouts%2f15%2fError.aspx&Source=%2f";
  EXPECT_EQ(RequestLines(), (std::vector<std::string>{
                                "GET contoso.sharepoint.com /sites/team", "GET contoso.sharepoint.com /_login" + tail,
                                "GET contoso.sharepoint.com /_forms" + tail,
                                "POST contoso.sharepoint.com /_vti_bin/SiteData.asmx",
                                "POST contoso.sharepoint.com /_forms/default.aspx?wa=wsignin1.0"}));
  for (const auto& sent : transport_.sent()) EXPECT_EQ(sent.ssl_version, kSslVersionSsl3) << sent.url;
  const Request soap = emulator_.Requests()[3];
  EXPECT_EQ(soap.body,
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/"
            "envelope/\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:xsd=\"http://www.w3.org/2001/"
            "XMLSchema\">\n   <soap:Body>\n       <GetSiteAndWeb xmlns=\"http://schemas.microsoft.com/sharepoint/soap/\">\n"
            "       <strUrl>https://contoso.sharepoint.com</strUrl>\n       </GetSiteAndWeb>\n   </soap:Body>\n"
            "</soap:Envelope>");
  std::vector<std::string> ours;
  for (const std::string& line : soap.header_lines) {
    if (line.rfind("Content-Type:", 0) == 0 || line.rfind("SOAPAction:", 0) == 0) ours.push_back(line);
  }
  EXPECT_EQ(ours, (std::vector<std::string>{"Content-Type: text/xml; charset=utf-8",
                                            "SOAPAction: \"http://schemas.microsoft.com/sharepoint/soap/GetSiteAndWeb\""}));
  EXPECT_EQ(emulator_.Requests()[4].body, token_);  // raw: no field name, no encoding
  EXPECT_EQ(emulator_.Requests()[4].Header("Content-Type").value_or(""), "application/x-www-form-urlencoded");
  EXPECT_EQ(std::string(online_.GetFedAuthCookie()->GetValue()), site_->IssuedCookies().back());
}

// strSite decides where the token goes, blanks as %20. A credential that is no
// binary token is refused only after GetSiteAndWeb.
TEST_F(SharePointOffice365Test, TokenGoesToTheSiteCollectionGetSiteAndWebNames) {
  Emulation::OnlineSiteOptions options;
  options.str_site = "https://contoso.sharepoint.com/sites/team space";
  InstallSite(options);
  ASSERT_EQ(online_.Authenticate(kSite, credential_.get()), kAuthResultOk) << Detail(online_);
  EXPECT_EQ(RequestLines().back(), "POST contoso.sharepoint.com /sites/team%20space/_forms/default.aspx?wa=wsignin1.0");
  emulator_.ClearRequests();
  CredentialPtr password(CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kManagedPassword));
  EXPECT_EQ(online_.Authenticate(kSite, password.get()), kAuthResultInternalError);
  EXPECT_EQ(Detail(online_), "Invalid credential supplied to SharePointOffice365::Authenticate.  Only "
                             "BinaryTokenCredential is supported.");
  EXPECT_EQ(RequestLines().size(), 4u);
}

// Cookies by exact name; of two FedAuth the one that arrived first wins.
TEST_F(SharePointOffice365Test, ResponseCodesAndCookieChoice) {
  InstallSite();
  const struct { int status; std::vector<std::string> cookies; AuthResult result; const char* detail; const char* fed_auth; bool rtfa; } rows[] = {
      {302, {"FedAuth=v", "rtFa=r"}, kAuthResultOk, "", "v", true},
      {400, {"FedAuth=v", "rtFa=r"}, kAuthResultHttpError, "HTTP error reported.  Response code: 400", nullptr, false},
      {200, {"rtFa=only", "fedauth=l; path=/other", "FedAuth2=x"}, kAuthResultAuthFailed, "FedAuth cookie not found.", nullptr, true},
      {200, {"FedAuth=; path=/"}, kAuthResultOk, "", "", false},
      {200, {"FedAuth=first; path=/", "FedAuth=second; path=/sites"}, kAuthResultOk, "", "first", false},
  };
  for (const auto& row : rows) {
    Response response = Response::Text(row.status, "");
    if (row.status == 302) response.AddHeader("Location", "/");
    for (const std::string& cookie : row.cookies) response.SetCookie(cookie);
    emulator_.Route("POST", kSiteHost, "/_forms/default.aspx", [response](const Request&) { return response; });
    EXPECT_EQ(online_.Authenticate(kSite, credential_.get()), row.result) << row.status;
    EXPECT_EQ(Detail(online_), row.detail) << row.status;
    ASSERT_EQ(online_.GetFedAuthCookie() != nullptr, row.fed_auth != nullptr) << row.status;
    if (row.fed_auth != nullptr) { EXPECT_STREQ(online_.GetFedAuthCookie()->GetValue(), row.fed_auth); }
    EXPECT_EQ(online_.GetRtfaCookie() != nullptr, row.rtfa) << row.status;
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing

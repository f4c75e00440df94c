// The ADFS token request (Adfs) and its hand-over to a site's trust endpoint
// (SharePointAdfs), against scripted emulator responses.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "credentials/ISamlCredential.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"

namespace Vantrel::Auth::testing {
namespace {

using Emulation::Request;
using Emulation::Response;

const char kUser[] = "alice@contoso.test";
const char kPassword[] = "Looking-Glass-7";
const char kRealm[] = "urn:sharepoint:contoso";
const char kEndpoint[] = "/adfs/services/trust/2005/usernamemixed";
const char kRstr[] = "<t:RequestSecurityTokenResponse>\n<a/>\n</t:RequestSecurityTokenResponse>";

// Form-field encoding as libcurl does it, written out independently.
std::string Escaped(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    char hex[4];
    std::snprintf(hex, sizeof(hex), "%%%02X", c);
    out += std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' ? std::string(1, c) : hex;
  }
  return out;
}

std::string Envelope(const std::string& to, const std::string& security) {
  const std::string wss = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-";
  const std::string trust = "http://schemas.xmlsoap.org/ws/2005/02/trust";
  return "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:a=\"http://www.w3.org/"
         "2005/08/addressing\" xmlns:u=\"" + wss + "utility-1.0.xsd\">\n   <s:Header>\n"
         "      <a:Action s:mustUnderstand=\"1\">" + trust + "/RST/Issue</a:Action>\n"
         "       <a:ReplyTo><a:Address>http://www.w3.org/2005/08/addressing/anonymous</a:Address></a:ReplyTo>\n"
         "       <a:To s:mustUnderstand=\"1\">" + to + "</a:To>\n"
         "       <o:Security s:mustUnderstand=\"1\" xmlns:o=\"" + wss + "secext-1.0.xsd\">\n"
         "           " + security + "       </o:Security>\n   </s:Header>\n   <s:Body>\n"
         "       <t:RequestSecurityToken xmlns:t=\"" + trust + "\">\n"
         "           <wsp:AppliesTo xmlns:wsp=\"http://schemas.xmlsoap.org/ws/2004/09/policy\">\n"
         "               <a:EndpointReference>\n                   <a:Address>" + kRealm + "</a:Address>\n"
         "               </a:EndpointReference>\n           </wsp:AppliesTo>\n"
         "           <t:KeyType>http://schemas.xmlsoap.org/ws/2005/05/identity/NoProofKey</t:KeyType>\n"
         "           <t:RequestType>" + trust + "/Issue</t:RequestType>\n"
         "           <t:TokenType>urn:oasis:names:tc:SAML:1.0:assertion</t:TokenType>\n"
         "       </t:RequestSecurityToken>\n   </s:Body>\n</s:Envelope>";
}

class AdfsTest : public EmulatorTest {
 protected:
  Adfs* adfs() { return engine_->Adfs(); }
  SharePointAdfs* sp() { return engine_->SharePointAdfs(); }
};

TEST_F(AdfsTest, EachCredentialGoesOutInTheExactEnvelope) {
  std::unique_ptr<ICredential> user(CredentialFactory::CreateBasicUsernameCredential(kUser, kPassword));
  std::unique_ptr<ICredential> token(CredentialFactory::CreateCredentialFromRstr(
      "<wsse:BinarySecurityToken Id=\"C\">t=Ew&amp;p=</wsse:BinarySecurityToken>"));
  for (const ICredential* credential : {user.get(), token.get()}) {
    emulator_.ClearRequests();
    emulator_.Enqueue(Response::Text(200, kRstr));
    ASSERT_EQ(adfs()->Authenticate(Http("").c_str(), kRealm, credential), kAuthResultOk) << Detail(*adfs());
    Request sent = OnlyRequest();
    EXPECT_EQ(sent.target, kEndpoint);
    EXPECT_EQ(sent.body, Envelope(Http(kEndpoint), std::string(dynamic_cast<const ISamlCredential*>(credential)->GetSamlCredential().view())));
    EXPECT_EQ(sent.Headers("Content-Type"), std::vector<std::string>{"application/soap+xml; charset=utf-8"});
    EXPECT_TRUE(sent.Headers("SOAPAction").empty());
  }
}

TEST_F(AdfsTest, ResponseCodesDecideWhetherTheBodyIsSearched) {
  const std::string rstr = kRstr;
  const char kNone[] = "No RSTR token found in HTTP response.";
  const struct { int status; std::string body; AuthResult result; std::string rstr, detail; } rows[] = {
      {302, "<x>" + rstr + "</x>", kAuthResultOk, rstr, ""},
      {302, "moved", kAuthResultAuthFailed, "", kNone},
      {400, rstr, kAuthResultHttpError, "", "HTTP error reported.  Response code: 400"},
      {200, "", kAuthResultAuthFailed, "", "No RSTR token found.  HTTP response is empty."},
      {200, "<t:RequestSecurityTokenResponse>open", kAuthResultAuthFailed, "", kNone},
  };
  const std::string server = Http("/farm/");  // the endpoint is joined behind the slash
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    emulator_.Enqueue(Response::Text(row.status, row.body, "application/soap+xml"));
    EXPECT_EQ(adfs()->AuthenticateByUser(server.c_str(), kRealm, kUser, kPassword), row.result) << row.status;
    EXPECT_EQ(RstrOf(*adfs()), row.rstr) << row.status;
    EXPECT_EQ(Detail(*adfs()), row.detail) << row.status;
  }
  EXPECT_EQ(OnlyRequest().target, std::string("/farm/") + kEndpoint);
}

TEST_F(AdfsTest, SignInFormCarriesWctxAndTheRstr) {
  const std::string site = Http("/sites/adfs");
  const struct { const char* wctx; std::string site; bool endpoint; std::string target, wctx_sent; } rows[] = {
      {"_layouts/Authenticate.aspx?Source=%2F", site + "/default.aspx?q=1#top", true, "/sites/adfs/_trust",
       site + "/_layouts/Authenticate.aspx?Source=%2F"},
      {"Pages/Home.aspx?a=b c", site + "/", true, "/sites/adfs//_trust", site + "//Pages/Home.aspx?a=b c"},
      {nullptr, site, false, "/sites/adfs", site},
  };
  for (const auto& row : rows) {
    emulator_.ClearRequests();
    emulator_.Enqueue(Response::Redirect(302, "/").SetCookie("FedAuth=v"));
    sp()->SetWctx(row.wctx);
    sp()->SetServiceEndpoint(row.endpoint ? "_trust" : nullptr);
    ASSERT_EQ(sp()->AuthenticateByRstr(row.site.c_str(), "<r a=\"1\"/>"), kAuthResultOk) << Detail(*sp());
    Request sent = OnlyRequest();
    EXPECT_EQ(sent.target, row.target);
    EXPECT_EQ(sent.body, "wa=wsignin1.0&wctx=" + Escaped(row.wctx_sent) + "&wresult=" + Escaped("<r a=\"1\"/>"));
    EXPECT_EQ(sent.Headers("Content-Type"), std::vector<std::string>{"application/x-www-form-urlencoded"});
  }
}

TEST_F(AdfsTest, SiteResponseCodesAndCookieChoice) {
  const struct { int status; std::vector<std::string> sets; AuthResult result; const char* value; } rows[] = {
      {302, {"FedAuth=abc; path=/; HttpOnly"}, kAuthResultOk, "abc"},
      {200, {}, kAuthResultAuthFailed, nullptr},
      {200, {"FedAuth=first; path=/", "FedAuth=second; path=/sites"}, kAuthResultOk, "second"},
      {400, {"FedAuth=a"}, kAuthResultHttpError, nullptr},
  };
  for (const auto& row : rows) {
    Response response = Response::Text(row.status, "");
    for (const std::string& cookie : row.sets) response.SetCookie(cookie);
    emulator_.Enqueue(std::move(response));
    EXPECT_EQ(sp()->AuthenticateByRstr(Http("/sites/adfs").c_str(), "r"), row.result) << row.status;
    const Cookie* cookie = sp()->GetFedAuthCookie();
    ASSERT_EQ(cookie != nullptr, row.value != nullptr) << row.status;
    if (cookie != nullptr) { EXPECT_STREQ(cookie->GetValue(), row.value); }
  }
}

}  // namespace
}  // namespace Vantrel::Auth::testing

// The ADFS sign-in: the token request (Adfs) and its hand-over to a site's
// trust endpoint (SharePointAdfs), over the wire against the emulator's ADFS
// server and trust site, with a fake transport only where no server can reach.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Adfs.h"
#include "CredentialFactory.h"
#include "INetworkControl.h"
#include "ISamlCredential.h"
#include "NetworkConfig.h"
#include "SharePointAdfs.h"
#include "emulator/AdfsServer.h"
#include "emulator/TrustSite.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"
#include "support/FakeNetworkControl.h"

namespace Vantrel {
namespace Auth {
namespace {

using Emulation::Request;
using Emulation::Response;

const char kUser[] = "alice@contoso.test";
const char kPassword[] = "Looking-Glass-7";
const char kRealm[] = "urn:sharepoint:contoso";
const char kEndpoint[] = "/adfs/services/trust/2005/usernamemixed";

using testing::Detail;
using testing::Fetch;
using testing::Probe;

std::string Rstr(const AdfsImpl& a) { return Fetch([&](char* b, size_t* n) { a.GetRstr(b, n); }); }
std::string Wctx(const SharePointAdfs& a) {
  return Fetch([&](char* b, size_t* n) { a.GetWctx(b, n); });
}

// Form-field encoding as libcurl does it, written out independently.
std::string Escaped(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    char hex[4];
    std::snprintf(hex, sizeof(hex), "%%%02X", c);
    bool kept = std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~';
    out += kept ? std::string(1, static_cast<char>(c)) : hex;
  }
  return out;
}

// The request the server must receive: 21 lines, the credential's own text
// in the seventh.
std::string Envelope(const std::string& to, const std::string& security, const std::string& realm) {
  const std::string wss = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-";
  const std::string trust = "http://schemas.xmlsoap.org/ws/2005/02/trust";
  const std::string lines[] = {
      "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:a=\"http://www.w3.org/"
      "2005/08/addressing\" xmlns:u=\"" +
          wss + "utility-1.0.xsd\">",
      "   <s:Header>",
      "      <a:Action s:mustUnderstand=\"1\">" + trust + "/RST/Issue</a:Action>",
      "       <a:ReplyTo><a:Address>http://www.w3.org/2005/08/addressing/anonymous</a:Address>"
      "</a:ReplyTo>",
      "       <a:To s:mustUnderstand=\"1\">" + to + "</a:To>",
      "       <o:Security s:mustUnderstand=\"1\" xmlns:o=\"" + wss + "secext-1.0.xsd\">",
      "           " + security + "       </o:Security>",
      "   </s:Header>",
      "   <s:Body>",
      "       <t:RequestSecurityToken xmlns:t=\"" + trust + "\">",
      "           <wsp:AppliesTo xmlns:wsp=\"http://schemas.xmlsoap.org/ws/2004/09/policy\">",
      "               <a:EndpointReference>",
      "                   <a:Address>" + realm + "</a:Address>",
      "               </a:EndpointReference>",
      "           </wsp:AppliesTo>",
      "           <t:KeyType>http://schemas.xmlsoap.org/ws/2005/05/identity/NoProofKey</t:KeyType>",
      "           <t:RequestType>" + trust + "/Issue</t:RequestType>",
      "           <t:TokenType>urn:oasis:names:tc:SAML:1.0:assertion</t:TokenType>",
      "       </t:RequestSecurityToken>",
      "   </s:Body>",
      "</s:Envelope>",
  };
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

class AdfsWireTest : public testing::EmulatorTest {
 protected:
  void SetUp() override {
    EmulatorTest::SetUp();
    adfs_state_ = Emulation::InstallAdfsServer(&emulator_, {});
    Emulation::TrustSiteOptions site;
    site.adfs = adfs_state_;
    site_state_ = Emulation::InstallTrustSite(&emulator_, site);
    INetworkControl* transport = engine_->Adfs()->GetNetworkControl();
    adfs_ = std::make_unique<Probe<Adfs>>(transport);
    sp_ = std::make_unique<Probe<SharePointAdfs>>(transport);
  }

  std::string Server() const { return Http(""); }
  std::string Site() const { return Http("/sites/adfs"); }
  std::string SignInForRstr() {
    EXPECT_EQ(adfs_->AuthenticateByUser(Server().c_str(), kRealm, kUser, kPassword), kAuthResultOk);
    emulator_.ClearRequests();
    return Rstr(*adfs_);
  }

  std::shared_ptr<Emulation::AdfsServerState> adfs_state_;
  std::shared_ptr<Emulation::TrustSiteState> site_state_;
  std::unique_ptr<Probe<Adfs>> adfs_;
  std::unique_ptr<Probe<SharePointAdfs>> sp_;
};

// A username token brings its own line end and so takes five lines; a token
// element ends on the "</o:Security>" line.
TEST_F(AdfsWireTest, EachCredentialGoesOutInTheExactEnvelope) {
  std::unique_ptr<ICredential> user(
      CredentialFactory::CreateBasicUsernameCredential(kUser, kPassword));
  std::unique_ptr<ICredential> assertion(
      CredentialFactory::CreateCredentialFromRstr(SignInForRstr()));
  std::unique_ptr<ICredential> binary(CredentialFactory::CreateCredentialFromRstr(
      "<wsse:BinarySecurityToken Id=\"C\">t=Ew&amp;p=</wsse:BinarySecurityToken>"));
  for (const ICredential* credential : {user.get(), assertion.get(), binary.get()}) {
    emulator_.ClearRequests();
    // The server takes back an assertion it issued; a binary token needs a script.
    if (credential == binary.get()) {
      emulator_.Enqueue(
          Response::Text(200, "<RequestSecurityTokenResponse>x</RequestSecurityTokenResponse>"));
    }
    ASSERT_EQ(adfs_->Authenticate(Server().c_str(), kRealm, credential), kAuthResultOk)
        << Detail(*adfs_);
    Request sent = OnlyRequest();
    std::string text = dynamic_cast<const ISamlCredential*>(credential)->GetSamlCredential();
    EXPECT_EQ(sent.target, kEndpoint);
    EXPECT_EQ(sent.body, Envelope(Server() + kEndpoint, text, kRealm));
    EXPECT_EQ(sent.Headers("Content-Type"),
              std::vector<std::string>{"application/soap+xml; charset=utf-8"});
    EXPECT_TRUE(sent.Headers("SOAPAction").empty());
    EXPECT_EQ(Detail(*adfs_), "");
    EXPECT_EQ(adfs_->GetNetworkConfig()->GetPostData(), nullptr) << "a success keeps the envelope";
  }
}

TEST_F(AdfsWireTest, InputsAreCheckedInOrderBeforeAnyRequest) {
  const std::string url = Server();
  const char kNull[] = "At least one of the required input string is null.";
  std::unique_ptr<ICredential> user(
      CredentialFactory::CreateBasicUsernameCredential(kUser, kPassword));
  struct Row { const char* url; const char* realm; const ICredential* cred; std::string detail; };
  const Row rows[] = {
      {nullptr, kRealm, user.get(), kNull},
      {"", "", nullptr, kNull},  // a null credential before an empty URL
      {"", "", user.get(), "URL for the ADFS 2.0 server provided is an empty string."},
      {url.c_str(), "", user.get(), "The home realm (URI) provided is an empty string."},
      {"HTTPS://sts.test", kRealm, user.get(),
       "Only http or https is supported. URL: HTTPS://sts.test"},
  };
  for (const Row& row : rows) {
    SignInForRstr();
    EXPECT_EQ(adfs_->Authenticate(row.url, row.realm, row.cred), kAuthResultInvalidInput);
    EXPECT_EQ(Detail(*adfs_), row.detail);
    EXPECT_EQ(Rstr(*adfs_), "") << "the RSTR of the success before survived";
  }
  SignInForRstr();
  EXPECT_EQ(adfs_->AuthenticateByUser(url.c_str(), kRealm, nullptr, kPassword),
            kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*adfs_), kNull);
  EXPECT_EQ(Rstr(*adfs_), "");
  EXPECT_EQ(adfs_->AuthenticateByUser(url.c_str(), kRealm, kUser, nullptr),
            kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*adfs_), kNull);
  EXPECT_TRUE(emulator_.Requests().empty());
}

// A host's own credential class that isn't an ISamlCredential.
struct ForeignCredential : ICredential {};

TEST(AdfsFakeTest, ForeignCredentialFailsAfterUrlAndHeaderAreSet) {
  testing::FakeNetworkControl network;
  Probe<Adfs> adfs(&network);
  ForeignCredential foreign;
  EXPECT_EQ(adfs.Authenticate("http://sts.test/", kRealm, &foreign), kAuthResultInternalError);
  EXPECT_EQ(
      Detail(adfs),
      "Invalid credential supplied to AuthenticateHelper.  Only SoapCredential is supported.");
  NetworkConfig* config = adfs.GetNetworkConfig();
  EXPECT_STREQ(config->GetUrl(), "http://sts.test//adfs/services/trust/2005/usernamemixed");
  ASSERT_NE(config->GetHeaders(), nullptr);
  EXPECT_STREQ(config->GetHeaders()->header->name, "Content-Type");
  EXPECT_EQ(config->GetHeaders()->next, nullptr);
  EXPECT_EQ(config->GetPostData(), nullptr);
  EXPECT_TRUE(network.sent().empty());
}

TEST(AdfsFakeTest, NoResponseCodeIsAnHttpError) {
  testing::FakeNetworkControl silent([](NetworkResult*) { return kAuthResultOk; });
  Adfs adfs(&silent);
  EXPECT_EQ(adfs.AuthenticateByUser("http://sts.test", kRealm, kUser, kPassword),
            kAuthResultHttpError);
  EXPECT_EQ(Detail(adfs), "Unexpected HTTP response code.  Response code: 0");
}

TEST_F(AdfsWireTest, ResponseCodesDecideWhetherTheBodyIsSearched) {
  const std::string rstr =
      "<t:RequestSecurityTokenResponse>\n<a/>\n</t:RequestSecurityTokenResponse>";
  const std::string upper = "<T:REQUESTSECURITYTOKENRESPONSE>x</t:requestsecuritytokenresponse>";
  const char kNone[] = "No RSTR token found in HTTP response.";
  struct Row { int status; std::string body; AuthResult result; std::string rstr, detail; };
  const Row rows[] = {
      {302, "<x>" + rstr + "</x>", kAuthResultOk, rstr, ""},
      {302, "moved", kAuthResultAuthFailed, "", kNone},
      {400, rstr, kAuthResultHttpError, "", "HTTP error reported.  Response code: 400"},
      {399, rstr, kAuthResultOk, rstr, ""},
      {599, rstr, kAuthResultHttpError, "", "HTTP error reported.  Response code: 599"},
      {600, rstr, kAuthResultOk, rstr, ""},
      {200, "", kAuthResultAuthFailed, "", "No RSTR token found.  HTTP response is empty."},
      {200, "<t:RequestSecurityTokenResponse>open", kAuthResultAuthFailed, "", kNone},
      // Greedy: two elements and what lies between make one RSTR.
      {200, "a" + rstr + " b " + rstr + "c", kAuthResultOk, rstr + " b " + rstr, ""},
      {200, upper, kAuthResultOk, upper, ""},
  };
  // A final slash stays: the endpoint is joined behind it, in the URL and in a:To.
  const std::string server = Server() + "/farm/";
  for (const Row& row : rows) {
    emulator_.ClearRequests();
    Response response = Response::Text(row.status, row.body, "application/soap+xml");
    emulator_.Enqueue(std::move(response));
    EXPECT_EQ(adfs_->AuthenticateByUser(server.c_str(), kRealm, kUser, kPassword), row.result)
        << row.status;
    EXPECT_EQ(Rstr(*adfs_), row.rstr) << row.status;
    EXPECT_EQ(Detail(*adfs_), row.detail) << row.status;
  }
  Request sent = OnlyRequest();
  EXPECT_EQ(sent.target, "/farm//adfs/services/trust/2005/usernamemixed");
  EXPECT_NE(sent.body.find(">" + Server() + sent.target + "</a:To>"), std::string::npos);
}

TEST_F(AdfsWireTest, RefusedPasswordAndUnreachableServerFail) {
  SignInForRstr();
  EXPECT_EQ(adfs_->AuthenticateByUser(Server().c_str(), kRealm, kUser, "looking-glass-7"),
            kAuthResultHttpError);
  EXPECT_EQ(Detail(*adfs_), "HTTP error reported.  Response code: 500");
  EXPECT_EQ(Rstr(*adfs_), "");
  EXPECT_EQ(adfs_state_->RefusedRequests(), 1);

  const std::string server = Server();
  emulator_.Stop();
  EXPECT_EQ(adfs_->AuthenticateByUser(server.c_str(), kRealm, kUser, kPassword),
            kAuthResultSendFailed);
  EXPECT_NE(Detail(*adfs_), "");
}

TEST_F(AdfsWireTest, RstrBecomesAFedAuthCookieThroughTheExactForm) {
  const std::string rstr = SignInForRstr();
  ASSERT_EQ(sp_->AuthenticateByRstr((Site() + "/default.aspx?q=1#top").c_str(), rstr.c_str()),
            kAuthResultOk)
      << Detail(*sp_);
  Request sent = OnlyRequest();
  EXPECT_EQ(sent.target, "/sites/adfs/_trust");
  EXPECT_EQ(sent.Headers("Content-Type"),
            std::vector<std::string>{"application/x-www-form-urlencoded"});
  std::string wctx = Escaped(Site() + "/_layouts/Authenticate.aspx?Source=%2F");
  EXPECT_EQ(sent.body, "wa=wsignin1.0&wctx=" + wctx + "&wresult=" + Escaped(rstr));
  EXPECT_NE(sent.body.find("%3FSource%3D%252F&wresult="), std::string::npos);
  const Cookie* cookie = sp_->GetFedAuthCookie();
  ASSERT_NE(cookie, nullptr);
  EXPECT_EQ(site_state_->IssuedTokens(), std::vector<std::string>{cookie->GetValue()});
  EXPECT_EQ(Detail(*sp_), "");
  EXPECT_EQ(sp_->GetNetworkConfig()->GetPostData(), nullptr);

  // A token the site never saw issued gets its error page, and no cookie.
  const char forged[] = "<t:RequestSecurityTokenResponse>x</t:RequestSecurityTokenResponse>";
  EXPECT_EQ(sp_->AuthenticateByRstr(Site().c_str(), forged), kAuthResultAuthFailed);
  EXPECT_EQ(Detail(*sp_), "FedAuth cookie not found.");
  EXPECT_EQ(sp_->GetFedAuthCookie(), nullptr);
}

TEST_F(AdfsWireTest, WctxIsTheSiteJoinedWithTheSetting) {
  auto post = [this](const std::string& site) {
    emulator_.ClearRequests();
    Response response = Response::Redirect(302, "/");
    response.SetCookie("FedAuth=v");
    emulator_.Enqueue(std::move(response));
    EXPECT_EQ(sp_->AuthenticateByRstr(site.c_str(), "r"), kAuthResultOk) << Detail(*sp_);
    return OnlyRequest();
  };
  EXPECT_EQ(Wctx(*sp_), "_layouts/Authenticate.aspx?Source=%2F");
  sp_->SetWctx("Pages/Home.aspx?a=b c");
  EXPECT_EQ(Wctx(*sp_), "Pages/Home.aspx?a=b c");
  Request sent = post(Site() + "/");  // a final slash stays, twice
  EXPECT_EQ(sent.target, "/sites/adfs//_trust");
  EXPECT_EQ(sent.body,
            "wa=wsignin1.0&wctx=" + Escaped(Site() + "//Pages/Home.aspx?a=b c") + "&wresult=r");

  sp_->SetWctx(nullptr);
  sp_->SetServiceEndpoint(nullptr);
  EXPECT_EQ(Wctx(*sp_), "");
  sent = post(Site());
  EXPECT_EQ(sent.target, "/sites/adfs");
  EXPECT_EQ(sent.body, "wa=wsignin1.0&wctx=" + Escaped(Site()) + "&wresult=r");
}

TEST_F(AdfsWireTest, OnlyACookieNamedExactlyFedAuthCounts) {
  // A null value: no cookie held.
  struct Row { int status; std::vector<std::string> sets; AuthResult result; const char* value; };
  const Row rows[] = {
      {302, {"FedAuth=abc; path=/; HttpOnly"}, kAuthResultOk, "abc"},
      {200, {}, kAuthResultAuthFailed, nullptr},
      {200, {"fedauth=x", "FEDAUTH=y"}, kAuthResultAuthFailed, nullptr},
      {200, {"rtFa=r", "FedAuth="}, kAuthResultOk, ""},  // an empty value is a cookie
      {399, {"FedAuth=a"}, kAuthResultOk, "a"},
      {400, {"FedAuth=a"}, kAuthResultHttpError, nullptr},
      {599, {"FedAuth=a"}, kAuthResultHttpError, nullptr},
      {600, {"FedAuth=b"}, kAuthResultOk, "b"},
  };
  for (const Row& row : rows) {
    Response response = Response::Text(row.status, "");
    for (const std::string& cookie : row.sets) response.SetCookie(cookie);
    emulator_.Enqueue(std::move(response));
    EXPECT_EQ(sp_->AuthenticateByRstr(Site().c_str(), "r"), row.result) << row.status;
    const Cookie* cookie = sp_->GetFedAuthCookie();
    EXPECT_EQ(cookie != nullptr, row.value != nullptr) << row.status;
    if (cookie != nullptr && row.value != nullptr) {
      EXPECT_STREQ(cookie->GetValue(), row.value);
    }
  }
}

TEST_F(AdfsWireTest, SiteAndRstrAreCheckedBeforeAnyRequest) {
  const std::string site = Site();
  const char kEmpty[] = "Input is an empty or null string.";
  const char* rows[][3] = {
      {nullptr, "r", kEmpty},
      {"", "r", kEmpty},
      {site.c_str(), nullptr, kEmpty},
      {site.c_str(), "", kEmpty},
      {"ftp://h/a.aspx?q", "r", "Only http or https is supported. URL: ftp://h/a.aspx?q"}};
  for (const auto& row : rows) {
    EXPECT_EQ(sp_->AuthenticateByRstr(row[0], row[1]), kAuthResultInvalidInput);
    EXPECT_EQ(Detail(*sp_), row[2]);
  }
  EXPECT_TRUE(emulator_.Requests().empty());
}

// A transport without a libcurl handle can't escape; nothing null may reach
// the form, and what was escaped already must go back.
class NoHandleNetworkControl : public testing::FakeNetworkControl {
 public:
  explicit NoHandleNetworkControl(int failing_call) : failing_call_(failing_call) {}
  char* Escape(const char* text) override {
    return calls_++ == failing_call_ ? nullptr : FakeNetworkControl::Escape(text);
  }

 private:
  int failing_call_;
  int calls_ = 0;
};

TEST(SharePointAdfsFakeTest, NullFromEscapeEndsTheAttempt) {
  for (int failing_call : {0, 1}) {  // the RSTR, then wctx
    NoHandleNetworkControl network(failing_call);
    SharePointAdfs sp(&network);
    EXPECT_EQ(sp.AuthenticateByRstr("http://site.test", "r"), kAuthResultInternalError);
    EXPECT_EQ(Detail(sp),
              "Null handle encountered.  This might be caused by network initialization not called "
              "prior to use.");
    EXPECT_TRUE(network.sent().empty());
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

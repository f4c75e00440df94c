// The Office 365 token service step, against the emulated service and site
// under their real host names.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AuthEngine.h"
#include "CredentialFactory.h"
#include "Office365.h"
#include "authenticators/OnlineFixture.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

using Emulation::Request;

class Office365Test : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    InstallService();
    InstallSite();
    office365_ = engine_->Office365();
    Trust(office365_);
  }

  std::string Token() const {
    return Fetch(
        [this](char* buffer, size_t* size) { office365_->GetBinarySecurityToken(buffer, size); });
  }
  std::string Rstr() const {
    return Fetch([this](char* buffer, size_t* size) { office365_->GetRstr(buffer, size); });
  }
  std::string Server() const {
    return Fetch([this](char* buffer, size_t* size) { office365_->GetServer(buffer, size); });
  }

  std::vector<Request> TokenRequests() const {
    std::vector<Request> posts;
    for (const Request& request : emulator_.Requests()) {
      if (request.method == "POST") posts.push_back(request);
    }
    return posts;
  }

  Office365* office365_ = nullptr;
  CredentialPtr user_{
      CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kManagedPassword)};
};

TEST_F(Office365Test, ManagedUserGetsATokenForTheRealmTheSiteRedirectsTo) {
  ScopedLogCapture log(kLogLevelInfo);

  // The page and the query are cut before the first probe.
  ASSERT_EQ(office365_->Authenticate(
                "https://contoso.sharepoint.com/sites/team/Pages/Home.aspx?x=1", user_.get()),
            kAuthResultOk)
      << Detail(*office365_);

  std::vector<std::string> lines = RequestLines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "GET contoso.sharepoint.com /sites/team/Pages");
  EXPECT_EQ(lines[3], "POST login.microsoftonline.com /extSTS.srf");
  const Request rst = emulator_.Requests()[3];
  EXPECT_TRUE(rst.tls);
  EXPECT_NE(rst.body.find(
                "<a:To s:mustUnderstand=\"1\">https://login.microsoftonline.com/extSTS.srf</a:To>"),
            std::string::npos);
  EXPECT_NE(rst.body.find("<a:Address>https://contoso.sharepoint.com</a:Address>"),
            std::string::npos);

  ASSERT_EQ(service_->IssuedTokens().size(), 1u);
  const std::string issued = service_->IssuedTokens()[0].value;
  EXPECT_EQ(Token(), issued);
  EXPECT_EQ(office365_->getBinarySecurityTokenSize(), issued.size() + 1);
  EXPECT_EQ(Detail(*office365_), "");
  EXPECT_TRUE(ScopedLogCapture::Has(
      "Office365::FindRealmToUse - Result realm URL: https://contoso.sharepoint.com"));

  CredentialPtr next(CredentialFactory::CreateCredentialFromRstr(Rstr()));
  EXPECT_NE(next.get(), nullptr);
}

TEST_F(Office365Test, ServerWithTrailingSlashIsJoinedAsGiven) {
  office365_->SetServer("https://login.microsoftonline.com/");
  EXPECT_EQ(Server(), "https://login.microsoftonline.com/");

  // The service has no page at "//extSTS.srf"; what matters is what was sent.
  EXPECT_EQ(office365_->Authenticate(kSite, user_.get()), kAuthResultHttpError);

  std::vector<Request> posts = TokenRequests();
  ASSERT_EQ(posts.size(), 1u);
  EXPECT_EQ(posts[0].target, "//extSTS.srf");
  EXPECT_NE(posts[0].body.find(">https://login.microsoftonline.com//extSTS.srf</a:To>"),
            std::string::npos);
  EXPECT_EQ(Detail(*office365_), "HTTP error reported.  Response code: 404");
}

TEST_F(Office365Test, SiteConvertedFromBposIsToldApartAndItsRstrStaysReadable) {
  Emulation::OnlineSiteOptions bpos;
  bpos.host = "legacy.sharepoint.com";
  bpos.bpos_converted = true;
  InstallSite(bpos);

  EXPECT_EQ(office365_->Authenticate("https://legacy.sharepoint.com/", user_.get()),
            kAuthResultBposNotSupported);
  EXPECT_EQ(Detail(*office365_),
            "RSTR is found but no binary security token, meaning it is a BPOS converted "
            "Office365 site, and not supported.");
  EXPECT_EQ(Token(), "");
  EXPECT_EQ(office365_->getBinarySecurityTokenSize(), 0u);
  std::string rstr = Rstr();
  EXPECT_NE(rstr.find("RequestSecurityTokenResponse"), std::string::npos);
  CredentialPtr assertion(CredentialFactory::CreateCredentialFromRstr(rstr));
  EXPECT_NE(assertion.get(), nullptr);
}

TEST_F(Office365Test, NullRealmMakesNoRequestAndKeepsTheEarlierToken) {
  ASSERT_EQ(office365_->Authenticate(kSite, user_.get()), kAuthResultOk);
  const std::string earlier = Token();
  emulator_.ClearRequests();

  EXPECT_EQ(office365_->Authenticate(nullptr, user_.get()), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*office365_), "Realm is not valid.");
  EXPECT_TRUE(emulator_.Requests().empty());
  EXPECT_EQ(Token(), earlier);
}

// Failures inside the token request come after the probes, and take the
// earlier token with them.
TEST_F(Office365Test, RequestFailuresAfterTheDiscoveryClearTheToken) {
  ASSERT_EQ(office365_->Authenticate(kSite, user_.get()), kAuthResultOk);

  emulator_.ClearRequests();
  EXPECT_EQ(office365_->Authenticate(kSite, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*office365_), "At least one of the required input string is null.");
  EXPECT_EQ(RequestLines().size(), 3u);  // the probes, and no token request
  EXPECT_EQ(Token(), "");
  EXPECT_EQ(Rstr(), "");

  emulator_.ClearRequests();
  office365_->SetServer(nullptr);
  EXPECT_EQ(Server(), "");
  EXPECT_EQ(office365_->Authenticate(kSite, user_.get()), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(*office365_), "At least one of the required input string is null.");
  EXPECT_EQ(RequestLines().size(), 3u);
}

TEST_F(Office365Test, ProbesAskForSsl3WhileTheTokenRequestKeepsTheHostsVersion) {
  RecordingTransport transport;
  Office365 office365(&transport);
  Trust(&office365);
  office365.SetSslVersion(kSslVersionTls1);

  ASSERT_EQ(office365.Authenticate(kSite, user_.get()), kAuthResultOk);

  ASSERT_EQ(transport.sent().size(), 4u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(transport.sent()[i].ssl_version, kSslVersionSsl3);
  EXPECT_EQ(transport.sent()[3].ssl_version, kSslVersionTls1);
}

TEST_F(Office365Test, WithoutTransportNothingIsCalledThroughNull) {
  Office365 office365(nullptr);
  EXPECT_EQ(office365.Authenticate(kSite, user_.get()), kAuthResultInternalError);
  EXPECT_EQ(Detail(office365), "Null pointer(s) detected.");
  EXPECT_TRUE(emulator_.Requests().empty());
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

// The Office 365 token service step, against the emulated service and site.
#include <gtest/gtest.h>

#include <string>

#include "VantrelAuthEngine.h"
#include "support/OnlineTest.h"

namespace Vantrel::Auth::testing {
namespace {

class Office365Test : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    InstallService();
    InstallSite();
    Trust(&office365_);
  }
  std::string Token() const {
    return Fetch([this](char* b, size_t* n) { office365_.GetBinarySecurityToken(b, n); });
  }

  FakeNetworkControl transport_{FakeNetworkControl::kThroughLibcurl};
  Office365 office365_{&transport_};
  CredentialPtr user_{CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kManagedPassword)};
};

// Probes ask for SSL 3; the token request keeps the host's version.
TEST_F(Office365Test, ManagedUserGetsATokenForTheRealmTheSiteRedirectsTo) {
  office365_.SetSslVersion(kSslVersionTls1);
  ASSERT_EQ(office365_.Authenticate("https://contoso.sharepoint.com/sites/team/Pages/Home.aspx?x=1", user_.get()),
            kAuthResultOk) << Detail(office365_);
  ASSERT_EQ(RequestLines().size(), 4u);
  EXPECT_EQ(RequestLines()[0], "GET contoso.sharepoint.com /sites/team/Pages");
  EXPECT_EQ(RequestLines()[3], "POST login.microsoftonline.com /extSTS.srf");
  EXPECT_NE(emulator_.Requests()[3].body.find("<a:Address>https://contoso.sharepoint.com</a:Address>"),
            std::string::npos);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(transport_.sent()[i].ssl_version, i < 3 ? kSslVersionSsl3 : kSslVersionTls1);
  const std::string issued = service_->IssuedTokens().at(0).value;
  EXPECT_EQ(Token(), issued);
  EXPECT_EQ(office365_.getBinarySecurityTokenSize(), issued.size() + 1);

  // A null realm sends nothing and leaves the token.
  emulator_.ClearRequests();
  EXPECT_EQ(office365_.Authenticate(nullptr, user_.get()), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(office365_), "Realm is not valid.");
  EXPECT_TRUE(emulator_.Requests().empty());
  EXPECT_EQ(Token(), issued);

  // A failure after the probes takes the token with it.
  EXPECT_EQ(office365_.Authenticate(kSite, nullptr), kAuthResultInvalidInput);
  EXPECT_EQ(Detail(office365_), "At least one of the required input string is null.");
  EXPECT_EQ(Token(), "");
}

TEST_F(Office365Test, SiteConvertedFromBposIsRefusedAndItsRstrStaysReadable) {
  Emulation::OnlineSiteOptions bpos;
  bpos.host = "legacy.sharepoint.com";
  bpos.bpos_converted = true;
  InstallSite(bpos);
  EXPECT_EQ(office365_.Authenticate("https://legacy.sharepoint.com/", user_.get()), kAuthResultBposNotSupported);
  EXPECT_EQ(Detail(office365_),
            "RSTR is found but no binary security token, meaning it is a BPOS converted "
            "Office365 site, and not supported.");
  EXPECT_EQ(Token(), "");
  EXPECT_EQ(office365_.getBinarySecurityTokenSize(), 0u);
  EXPECT_NE(RstrOf(office365_).find("RequestSecurityTokenResponse"), std::string::npos);
}

}  // namespace
}  // namespace Vantrel::Auth::testing

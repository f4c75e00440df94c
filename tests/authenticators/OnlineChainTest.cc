// The whole road to SharePoint Online as a host walks it, for a managed and a
// federated tenant, with every request on the wire in its order.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Adfs.h"
#include "AuthEngine.h"
#include "CredentialFactory.h"
#include "Office365.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"
#include "emulator/AdfsServer.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

constexpr char kFederatedUser[] = "megan@fabrikam.com";
constexpr char kFederatedPassword[] = "Autumn-77";
constexpr char kFederatedSite[] = "https://fabrikam.sharepoint.com/sites/sales";
constexpr char kAdfsIssuer[] = "http://adfs.fabrikam.com/adfs/services/trust";
constexpr char kOnlineRealm[] = "urn:federation:MicrosoftOnline";

class OnlineChainTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    Emulation::Office365ServiceOptions service;
    service.accounts = {
        {kManagedUser, {"Managed", "", kManagedPassword}},
        {kFederatedUser,
         {"Federated",
          "https://adfs.fabrikam.com/adfs/ls/?username=megan%40fabrikam.com&wa=wsignin1.0", ""}},
    };
    service.trusted_issuers = {kAdfsIssuer};
    InstallService(service);
    InstallSite();
    Emulation::OnlineSiteOptions fabrikam;
    fabrikam.host = "fabrikam.sharepoint.com";
    InstallSite(fabrikam);

    Emulation::AdfsServerOptions adfs;
    adfs.host = "adfs.fabrikam.com";
    adfs.issuer = kAdfsIssuer;
    adfs.accounts = {{kFederatedUser, kFederatedPassword}};
    adfs.realms = {kOnlineRealm};
    Emulation::InstallAdfsServer(&emulator_, adfs);

    Trust(engine_->Adfs());
    Trust(engine_->Office365());
    Trust(engine_->SharePointOffice365());
  }

  // The common tail of both chains: the token service, then the site.
  // Whether both cookies came back.
  bool FinishAt(const std::string& site, ICredential* credential) {
    Office365* office365 = engine_->Office365();
    EXPECT_EQ(office365->Authenticate(site.c_str(), credential), kAuthResultOk)
        << Detail(*office365);
    CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(
        Fetch([office365](char* buffer, size_t* size) { office365->GetRstr(buffer, size); })));
    EXPECT_NE(token.get(), nullptr);

    SharePointOffice365* online = engine_->SharePointOffice365();
    EXPECT_EQ(online->Authenticate(site.c_str(), token.get()), kAuthResultOk) << Detail(*online);
    return online->GetFedAuthCookie() != nullptr && online->GetRtfaCookie() != nullptr;
  }

  // The requests of FinishAt on the wire: the realm probes of the site, the
  // token service, the probes again, GetSiteAndWeb and the token post.
  static std::vector<std::string> FinishLines(const std::string& host, const std::string& path) {
    const std::string tail = "?ReturnUrl=%2f_layouts%2f15%2fError.aspx&Source=%2f";
    const std::vector<std::string> probes = {"GET " + host + " " + path,
                                             "GET " + host + " /_login/default.aspx" + tail,
                                             "GET " + host + " /_forms/default.aspx" + tail};
    std::vector<std::string> lines = probes;
    lines.push_back("POST login.microsoftonline.com /extSTS.srf");
    lines.insert(lines.end(), probes.begin(), probes.end());
    lines.push_back("POST " + host + " /_vti_bin/SiteData.asmx");
    lines.push_back("POST " + host + " /_forms/default.aspx?wa=wsignin1.0");
    return lines;
  }
};

TEST_F(OnlineChainTest, ManagedTenant) {
  SharePointOffice365AuthNamespace type = kAuthNamespaceUnknown;
  std::string server;
  ASSERT_EQ(engine_->SharePointOffice365()->GetAuthTarget(kManagedUser, type, server),
            kAuthResultOk);
  ASSERT_EQ(type, kAuthNamespaceManaged);
  CredentialPtr user(
      CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kManagedPassword));
  engine_->Office365()->SetServer(server.c_str());

  EXPECT_TRUE(FinishAt(kSite, user.get()));

  std::vector<std::string> expected = {
      "GET login.microsoftonline.com /GetUserRealm.srf?handler=1&login=adele%40contoso%2Ecom"};
  for (const std::string& line : FinishLines(kSiteHost, "/sites/team")) expected.push_back(line);
  EXPECT_EQ(RequestLines(), expected);
}

TEST_F(OnlineChainTest, FederatedTenant) {
  SharePointOffice365AuthNamespace type = kAuthNamespaceUnknown;
  std::string adfs_server;
  ASSERT_EQ(engine_->SharePointOffice365()->GetAuthTarget(kFederatedUser, type, adfs_server),
            kAuthResultOk);
  ASSERT_EQ(type, kAuthNamespaceFederated);
  ASSERT_EQ(adfs_server, "https://adfs.fabrikam.com");

  Adfs* adfs = engine_->Adfs();
  ASSERT_EQ(adfs->AuthenticateByUser(adfs_server.c_str(), kOnlineRealm, kFederatedUser,
                                     kFederatedPassword),
            kAuthResultOk)
      << Detail(*adfs);
  CredentialPtr assertion(CredentialFactory::CreateCredentialFromRstr(
      Fetch([adfs](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); })));
  ASSERT_NE(assertion.get(), nullptr);

  EXPECT_TRUE(FinishAt(kFederatedSite, assertion.get()));

  std::vector<std::string> expected = {
      "GET login.microsoftonline.com /GetUserRealm.srf?handler=1&login=megan%40fabrikam%2Ecom",
      "POST adfs.fabrikam.com /adfs/services/trust/2005/usernamemixed"};
  for (const std::string& line : FinishLines("fabrikam.sharepoint.com", "/sites/sales")) {
    expected.push_back(line);
  }
  EXPECT_EQ(RequestLines(), expected);

  // The token was issued for the federated user, on the strength of the
  // assertion alone.
  ASSERT_EQ(service_->IssuedTokens().size(), 1u);
  EXPECT_EQ(service_->IssuedTokens()[0].user, kFederatedUser);
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

// The whole road to SharePoint Online for a managed and a federated tenant,
// with every request on the wire in its order.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Adfs.h"
#include "CredentialFactory.h"
#include "Office365.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

constexpr char kFederatedUser[] = "megan@fabrikam.com";
constexpr char kFederatedPassword[] = "Autumn-77";
constexpr char kAdfsIssuer[] = "http://adfs.fabrikam.com/adfs/services/trust";
constexpr char kOnlineRealm[] = "urn:federation:MicrosoftOnline";

TEST_F(OnlineTest, ManagedAndFederatedChains) {
  Emulation::Office365ServiceOptions service;
  service.accounts = {{kManagedUser, {"Managed", "", kManagedPassword}},
                      {kFederatedUser, {"Federated", "https://adfs.fabrikam.com/adfs/ls/?wa=wsignin1.0", ""}}};
  service.trusted_issuers = {kAdfsIssuer};
  InstallService(service);
  InstallSite();
  Emulation::OnlineSiteOptions fabrikam;
  fabrikam.host = "fabrikam.sharepoint.com";
  InstallSite(fabrikam);
  Emulation::AdfsServerOptions adfs_options;
  adfs_options.host = "adfs.fabrikam.com";
  adfs_options.issuer = kAdfsIssuer;
  adfs_options.accounts = {{kFederatedUser, kFederatedPassword}};
  adfs_options.realms = {kOnlineRealm};
  Emulation::InstallAdfsServer(&emulator_, adfs_options);
  Adfs* adfs = engine_->Adfs();
  Office365* office365 = engine_->Office365();
  SharePointOffice365* online = engine_->SharePointOffice365();
  for (AuthBase* authenticator : std::initializer_list<AuthBase*>{adfs, office365, online}) Trust(authenticator);

  const struct { const char* user; const char* password; std::string host, path, login; } tenants[] = {
      {kManagedUser, kManagedPassword, kSiteHost, "/sites/team", "adele%40contoso%2Ecom"},
      {kFederatedUser, kFederatedPassword, "fabrikam.sharepoint.com", "/sites/sales", "megan%40fabrikam%2Ecom"},
  };
  for (const auto& tenant : tenants) {
    emulator_.ClearRequests();
    auto type = kAuthNamespaceUnknown;
    std::string server;
    ASSERT_EQ(online->GetAuthTarget(tenant.user, type, server), kAuthResultOk);
    CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(tenant.user, tenant.password));
    std::vector<std::string> expected = {"GET login.microsoftonline.com /GetUserRealm.srf?handler=1&login=" + tenant.login};
    if (type == kAuthNamespaceFederated) {
      ASSERT_EQ(server, "https://adfs.fabrikam.com");
      ASSERT_EQ(adfs->AuthenticateByUser(server.c_str(), kOnlineRealm, tenant.user, tenant.password), kAuthResultOk)
          << Detail(*adfs);
      credential.reset(CredentialFactory::CreateCredentialFromRstr(
          Fetch([adfs](char* b, size_t* n) { adfs->GetRstr(b, n); })));
      expected.push_back("POST adfs.fabrikam.com /adfs/services/trust/2005/usernamemixed");
    } else {
      ASSERT_EQ(type, kAuthNamespaceManaged);
      office365->SetServer(server.c_str());
    }
    const std::string site = "https://" + tenant.host + tenant.path;
    ASSERT_EQ(office365->Authenticate(site.c_str(), credential.get()), kAuthResultOk) << Detail(*office365);
    CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(
        Fetch([office365](char* b, size_t* n) { office365->GetRstr(b, n); })));
    ASSERT_EQ(online->Authenticate(site.c_str(), token.get()), kAuthResultOk) << Detail(*online);
    EXPECT_NE(online->GetFedAuthCookie(), nullptr);
    EXPECT_NE(online->GetRtfaCookie(), nullptr);

    const std::string tail = "/default.aspx?ReturnUrl=%2f_layouts%2f15%2fError.aspx&Source=%2f";
    const std::vector<std::string> probes = {"GET " + tenant.host + " " + tenant.path,
                                             "GET " + tenant.host + " /_login" + tail,
                                             "GET " + tenant.host + " /_forms" + tail};
    expected.insert(expected.end(), probes.begin(), probes.end());
    expected.push_back("POST login.microsoftonline.com /extSTS.srf");
    expected.insert(expected.end(), probes.begin(), probes.end());
    expected.push_back("POST " + tenant.host + " /_vti_bin/SiteData.asmx");
    expected.push_back("POST " + tenant.host + " /_forms/default.aspx?wa=wsignin1.0");
    EXPECT_EQ(RequestLines(), expected) << tenant.user;
  }
  EXPECT_EQ(service_->IssuedTokens().back().user, kFederatedUser);
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

// A password never reaches the log: every sign-in the library has, succeeding
// and failing, at debug level with libcurl's verbose capture on, with a
// password full of markup and per cent signs. Every line the host's callback
// receives is searched for it, for its form-encoded spelling and for its
// first characters. Cookie values, on the other hand, are logged as they are.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Adfs.h"
#include "AuthEngine.h"
#include "AuthEngineConfig.h"
#include "CredentialFactory.h"
#include "Ntlm.h"
#include "Office365.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"
#include "emulator/AdfsServer.h"
#include "emulator/FbaSite.h"
#include "emulator/TrustSite.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

// Markup that ends the element early if anything unescaped it, quotes, a per
// cent sign that reads as an escape and one that doesn't, a blank and a byte
// above 0x7F. "Zq7" marks its start, so that a leak of a part shows too.
constexpr char kPassword[] = "Zq7<&>\"'%41%25 x\xc3\xa9";
constexpr char kHead[] = "Zq7";
// The same password as libcurl's form encoding spells it.
constexpr char kPasswordEscaped[] = "Zq7%3C%26%3E%22%27%2541%2525%20x%C3%A9";

constexpr char kFormsUser[] = "alice";
constexpr char kFormsSite[] = "https://intranet.contoso.test/sites/fba";
constexpr char kTrustSite[] = "https://intranet.contoso.test/sites/adfs";
constexpr char kTrustRealm[] = "urn:sharepoint:contoso";
constexpr char kAdfsServer[] = "https://adfs.fabrikam.com";
constexpr char kAdfsIssuer[] = "http://adfs.fabrikam.com/adfs/services/trust";
constexpr char kOnlineRealm[] = "urn:federation:MicrosoftOnline";
constexpr char kFederatedUser[] = "megan@fabrikam.com";
constexpr char kFederatedSite[] = "https://fabrikam.sharepoint.com/sites/sales";

class PasswordLogTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    Emulation::Office365ServiceOptions service;
    service.accounts = {
        {kManagedUser, {"Managed", "", kPassword}},
        {kFederatedUser, {"Federated", std::string(kAdfsServer) + "/adfs/ls/", ""}},
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
    adfs.accounts = {{kFederatedUser, kPassword}};
    adfs.realms = {kOnlineRealm, kTrustRealm};
    Emulation::TrustSiteOptions trust;
    trust.realm = kTrustRealm;
    trust.adfs = Emulation::InstallAdfsServer(&emulator_, adfs);
    Emulation::InstallTrustSite(&emulator_, trust);
    Emulation::FbaSiteOptions forms;
    forms.accounts = {{kFormsUser, kPassword}};
    Emulation::InstallFbaSite(&emulator_, forms);

    // The transport reads the directory once, when it is made: a new engine
    // after the capture is on.
    char dir[] = "/tmp/vantrel-passwordlog.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    log_ = std::make_unique<ScopedLogCapture>(kLogLevelDebug);
    AuthEngineConfig::SetTempLogDir(dir_.c_str());
    engine_ = std::make_unique<AuthEngine>();
    for (AuthBase* authenticator :
         {static_cast<AuthBase*>(engine_->SharePointFba()), static_cast<AuthBase*>(engine_->Adfs()),
          static_cast<AuthBase*>(engine_->SharePointAdfs()),
          static_cast<AuthBase*>(engine_->Office365()),
          static_cast<AuthBase*>(engine_->SharePointOffice365())}) {
      Trust(authenticator);
    }
  }

  void TearDown() override {
    engine_.reset();  // removes the verbose file
    log_.reset();
    rmdir(dir_.c_str());
    OnlineTest::TearDown();
  }

  // Office 365 from the token service to the cookies, for either kind of credential.
  void OnlineTail(const char* site, ICredential* credential, bool expect_success) {
    Office365* office365 = engine_->Office365();
    AuthResult result = office365->Authenticate(site, credential);
    if (!expect_success) {
      EXPECT_NE(result, kAuthResultOk);
      return;
    }
    ASSERT_EQ(result, kAuthResultOk) << Detail(*office365);
    CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(
        Fetch([office365](char* buffer, size_t* size) { office365->GetRstr(buffer, size); })));
    SharePointOffice365* online = engine_->SharePointOffice365();
    ASSERT_EQ(online->Authenticate(site, token.get()), kAuthResultOk) << Detail(*online);
    cookies_.push_back(online->GetFedAuthCookie()->GetValue());
  }

  std::string dir_;
  std::unique_ptr<ScopedLogCapture> log_;
  std::vector<std::string> cookies_;  // values the sign-ins handed out
};

TEST_F(PasswordLogTest, NoFlowLogsThePassword) {
  // Forms-based: right password, then the same password for an unknown user.
  SharePointFba* fba = engine_->SharePointFba();
  ASSERT_EQ(fba->Authenticate(kFormsSite, kFormsUser, kPassword), kAuthResultOk) << Detail(*fba);
  cookies_.push_back(fba->GetFedAuthCookie()->GetValue());
  EXPECT_EQ(fba->Authenticate(kFormsSite, "mallory", kPassword), kAuthResultAuthFailed);
  // Nothing listens there (the proxy says so, or the connection is refused):
  // the request is still described in the log.
  EXPECT_NE(fba->Authenticate("http://127.0.0.1:1/sites/x", kFormsUser, kPassword), kAuthResultOk);

  // ADFS, both ways in, then the token handed to the site.
  Adfs* adfs = engine_->Adfs();
  ASSERT_EQ(adfs->AuthenticateByUser(kAdfsServer, kTrustRealm, kFederatedUser, kPassword),
            kAuthResultOk)
      << Detail(*adfs);
  std::string rstr = Fetch([adfs](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); });
  SharePointAdfs* trust = engine_->SharePointAdfs();
  ASSERT_EQ(trust->AuthenticateByRstr(kTrustSite, rstr.c_str()), kAuthResultOk) << Detail(*trust);
  cookies_.push_back(trust->GetFedAuthCookie()->GetValue());
  EXPECT_EQ(adfs->AuthenticateByUser(kAdfsServer, kTrustRealm, "nobody@fabrikam.com", kPassword),
            kAuthResultHttpError);

  // Office 365, managed: the password goes to the token service itself.
  SharePointOffice365* online = engine_->SharePointOffice365();
  SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
  std::string server;
  ASSERT_EQ(online->GetAuthTarget(kManagedUser, kind, server), kAuthResultOk) << Detail(*online);
  CredentialPtr managed(CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kPassword));
  OnlineTail(kSite, managed.get(), true);
  CredentialPtr stranger(CredentialFactory::CreateBasicUsernameCredential("eve@contoso.com", kPassword));
  OnlineTail(kSite, stranger.get(), false);

  // Office 365, federated: the password goes to ADFS, its assertion onwards.
  ASSERT_EQ(online->GetAuthTarget(kFederatedUser, kind, server), kAuthResultOk) << Detail(*online);
  ASSERT_EQ(kind, kAuthNamespaceFederated);
  CredentialPtr federated(CredentialFactory::CreateBasicUsernameCredential(kFederatedUser, kPassword));
  ASSERT_EQ(adfs->Authenticate(server.c_str(), kOnlineRealm, federated.get()), kAuthResultOk)
      << Detail(*adfs);
  CredentialPtr assertion(CredentialFactory::CreateCredentialFromRstr(
      Fetch([adfs](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); })));
  ASSERT_NE(assertion, nullptr);
  OnlineTail(kFederatedSite, assertion.get(), true);

  char* untouched = nullptr;
  EXPECT_EQ(engine_->Ntlm()->Authenticate(kFormsSite, kFormsUser, kPassword, &untouched),
            kAuthResultOk);

  const std::vector<std::string> lines = ScopedLogCapture::Lines();
  size_t verbose = 0;
  size_t masked = 0;
  for (const std::string& line : lines) {
    ASSERT_EQ(line.find(kHead), std::string::npos) << line;
    ASSERT_EQ(line.find(kPassword), std::string::npos) << line;
    ASSERT_EQ(line.find(kPasswordEscaped), std::string::npos) << line;
    if (line.find("libcurl verbose output BEGIN") != std::string::npos) ++verbose;
    if (line.find("POST data: ") != std::string::npos && line.find(">*</") != std::string::npos) {
      ++masked;
    }
  }
  // The capture was on and the requests that carried the password were logged.
  EXPECT_GE(verbose, 10u);
  EXPECT_GE(masked, 7u);
  for (const std::string& cookie : cookies_) {
    bool logged = false;
    for (const std::string& line : lines) logged = logged || line.find(cookie) != std::string::npos;
    EXPECT_TRUE(logged) << cookie;
  }
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

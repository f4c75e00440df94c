// The sign-in service and sites under their real host names, behind the
// emulator's proxy; and a world in which every sign-in runs end to end.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "emulator/AdfsServer.h"
#include "emulator/FbaSite.h"
#include "emulator/Office365Service.h"
#include "emulator/OnlineSite.h"
#include "emulator/TrustSite.h"
#include "support/Authenticators.h"
#include "support/EmulatorTest.h"
#include "support/FakeNetworkControl.h"

namespace Vantrel::Auth::testing {

constexpr char kSiteHost[] = "contoso.sharepoint.com";
constexpr char kRealm[] = "https://contoso.sharepoint.com";
constexpr char kSite[] = "https://contoso.sharepoint.com/sites/team";
constexpr char kManagedUser[] = "adele@contoso.com";
constexpr char kManagedPassword[] = "Spring-2024";

// The password of every account below: markup, quotes, per cent signs that do
// and don't read as escapes, a blank, a byte above 0x7F. Every spelling of it
// (form-encoded, escaped, cut short) starts with "Zq7".
constexpr char kPassword[] = "Zq7<&>\"'%41%25 x\xc3\xa9";
constexpr char kFormsSite[] = "https://intranet.contoso.test/sites/fba";
constexpr char kTrustSite[] = "https://intranet.contoso.test/sites/adfs";
constexpr char kTrustRealm[] = "urn:sharepoint:contoso";
constexpr char kAdfsServer[] = "https://adfs.fabrikam.com";
constexpr char kAdfsIssuer[] = "http://adfs.fabrikam.com/adfs/services/trust";
constexpr char kOnlineRealm[] = "urn:federation:MicrosoftOnline";
constexpr char kFederatedUser[] = "megan@fabrikam.com";

class OnlineTest : public EmulatorTest {
 protected:
  void SetUp() override {
    EmulatorTest::SetUp();
    AuthEngineConfig::SetProxy(emulator_.ProxyUrl().c_str());
  }
  void TearDown() override {
    AuthEngineConfig::SetProxy(nullptr);
    EmulatorTest::TearDown();
  }

  void InstallService(Emulation::Office365ServiceOptions options = {}) {
    service_ = Emulation::InstallOffice365Service(&emulator_, options);
  }
  void InstallSite(Emulation::OnlineSiteOptions options = {}) {
    site_ = Emulation::InstallOnlineSite(&emulator_, options, service_);
  }
  void Trust(AuthBase* authenticator) const { authenticator->SetCaFile(emulator_.CaFile().c_str()); }

  std::vector<std::string> RequestLines() const {
    std::vector<std::string> lines;
    for (const Emulation::Request& request : emulator_.Requests()) {
      lines.push_back(request.method + " " + request.Host() + " " + request.target);
    }
    return lines;
  }

  // The sites of the forms, ADFS and Office 365 sign-ins, with every account's
  // password `password`: the Office 365 service with a managed and a federated
  // user, contoso's and fabrikam's online sites, ADFS, the site that trusts it
  // and the forms site.
  struct EveryFlowSites {
    std::shared_ptr<Emulation::OnlineSiteState> fabrikam;
    std::shared_ptr<Emulation::AdfsServerState> adfs;
    std::shared_ptr<Emulation::TrustSiteState> trust;
    std::shared_ptr<Emulation::FbaSiteState> fba;
  };
  EveryFlowSites InstallEveryFlowSites(const char* password) {
    EveryFlowSites sites;
    Emulation::Office365ServiceOptions service;
    service.accounts = {{kManagedUser, {"Managed", "", password}},
                        {kFederatedUser, {"Federated", std::string(kAdfsServer) + "/adfs/ls/?wa=wsignin1.0", ""}}};
    service.trusted_issuers = {kAdfsIssuer};
    InstallService(service);
    InstallSite();
    Emulation::OnlineSiteOptions fabrikam;
    fabrikam.host = "fabrikam.sharepoint.com";
    sites.fabrikam = Emulation::InstallOnlineSite(&emulator_, fabrikam, service_);
    Emulation::AdfsServerOptions adfs;
    adfs.host = "adfs.fabrikam.com";
    adfs.issuer = kAdfsIssuer;
    adfs.accounts = {{kFederatedUser, password}};
    adfs.realms = {kOnlineRealm, kTrustRealm};
    Emulation::TrustSiteOptions trust;
    trust.realm = kTrustRealm;
    sites.adfs = trust.adfs = Emulation::InstallAdfsServer(&emulator_, adfs);
    sites.trust = Emulation::InstallTrustSite(&emulator_, trust);
    sites.fba = Emulation::InstallFbaSite(&emulator_, {"/sites/fba", "", {{"alice", password}}});
    return sites;
  }

  std::shared_ptr<Emulation::Office365ServiceState> service_;
  std::shared_ptr<Emulation::OnlineSiteState> site_;
};

// An engine trusting `ca_file` whose transport keeps libcurl's verbose text in a
// directory of its own (two made in one second in one directory share a file).
struct VerboseEngine {
  explicit VerboseEngine(const std::string& ca_file) {
    char name[] = "/tmp/vantrel-verbose.XXXXXX";
    EXPECT_NE(mkdtemp(name), nullptr);
    dir = name;
    AuthEngineConfig::SetTempLogDir(name);
    engine = std::make_unique<AuthEngine>();
    AuthEngineConfig::SetTempLogDir(nullptr);
    for (AuthBase* authenticator : {static_cast<AuthBase*>(engine->SharePointFba()), static_cast<AuthBase*>(engine->Adfs()),
                                    static_cast<AuthBase*>(engine->SharePointAdfs()),
                                    static_cast<AuthBase*>(engine->Office365()),
                                    static_cast<AuthBase*>(engine->SharePointOffice365())}) {
      authenticator->SetCaFile(ca_file.c_str());
    }
  }
  ~VerboseEngine() {
    engine.reset();
    EXPECT_EQ(rmdir(dir.c_str()), 0);  // nothing left behind
  }
  std::string dir;
  std::unique_ptr<AuthEngine> engine;
};

class EveryFlowTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    InstallEveryFlowSites(kPassword);
  }

  // Forms; ADFS and the site that trusts it; Office 365 for the managed user
  // and, through ADFS, the federated one. "" or the step that failed with its
  // detail; the FedAuth values handed out go to `cookies`.
  static std::string SignInEveryWay(AuthEngine& engine, std::vector<std::string>* cookies) {
    auto failed = [](const char* step, const AuthBase& authenticator) { return step + Detail(authenticator); };
    SharePointFba* fba = engine.SharePointFba();
    if (fba->Authenticate(kFormsSite, "alice", kPassword) != kAuthResultOk) return failed("forms: ", *fba);
    cookies->push_back(fba->GetFedAuthCookie()->GetValue());
    Adfs* adfs = engine.Adfs();
    if (adfs->AuthenticateByUser(kAdfsServer, kTrustRealm, kFederatedUser, kPassword) != kAuthResultOk) {
      return failed("adfs: ", *adfs);
    }
    SharePointAdfs* trust = engine.SharePointAdfs();
    if (trust->AuthenticateByRstr(kTrustSite, RstrOf(*adfs).c_str()) != kAuthResultOk) return failed("trust: ", *trust);
    cookies->push_back(trust->GetFedAuthCookie()->GetValue());
    for (const char* user : {kManagedUser, kFederatedUser}) {
      SharePointOffice365* online = engine.SharePointOffice365();
      Office365* office365 = engine.Office365();
      SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
      std::string server;
      if (online->GetAuthTarget(user, kind, server) != kAuthResultOk) return failed("namespace: ", *online);
      CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(user, kPassword));
      const bool federated = kind == kAuthNamespaceFederated;
      if (federated) {
        if (server != kAdfsServer) return "federated at " + server;
        if (adfs->Authenticate(server.c_str(), kOnlineRealm, credential.get()) != kAuthResultOk) {
          return failed("federated adfs: ", *adfs);
        }
        credential.reset(CredentialFactory::CreateCredentialFromRstr(RstrOf(*adfs)));
      } else {
        office365->SetServer(server.c_str());
      }
      const char* site = federated ? "https://fabrikam.sharepoint.com/sites/sales" : kSite;
      if (office365->Authenticate(site, credential.get()) != kAuthResultOk) return failed("office365: ", *office365);
      CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(RstrOf(*office365)));
      if (online->Authenticate(site, token.get()) != kAuthResultOk) return failed("online: ", *online);
      if (online->GetRtfaCookie() == nullptr) return "online: no rtFa";
      cookies->push_back(online->GetFedAuthCookie()->GetValue());
    }
    return "";
  }
};

}  // namespace Vantrel::Auth::testing

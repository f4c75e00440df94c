#include "SignInWorld.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "VantrelAuthEngine64/Adfs.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "VantrelAuthEngine64/CredentialFactory.h"
#include "VantrelAuthEngine64/Office365.h"
#include "VantrelAuthEngine64/SharePointAdfs.h"
#include "VantrelAuthEngine64/SharePointFba.h"
#include "VantrelAuthEngine64/SharePointOffice365.h"
#include "emulator/AdfsServer.h"
#include "emulator/FbaSite.h"
#include "emulator/Office365Service.h"
#include "emulator/OnlineSite.h"
#include "emulator/TrustSite.h"
#include "support/Authenticators.h"

namespace Vantrel {
namespace Bench {
namespace {

using namespace Vantrel::Auth;

const char kFbaUser[] = "alice";
const char kFbaPassword[] = "Wonderland-42";
const char kAdfsUser[] = "alice@contoso.test";
const char kAdfsPassword[] = "Looking-Glass-7";
const char kTrustRealm[] = "urn:sharepoint:contoso";
const char kOnlineUser[] = "adele@contoso.com";
const char kOnlinePassword[] = "Spring-2024";
const char kOnlineSite[] = "https://contoso.sharepoint.com/sites/team";
const char kFixedSitePath[] = "/sites/fixed";

using testing::CredentialPtr;
using testing::RstrOf;

// The managed tenant's road, as a host walks it: where the user signs in, a
// token from the sign-in service, and the token traded at the site.
bool OnlineChain(AuthEngine* engine) {
  SharePointOffice365* online = engine->SharePointOffice365();
  SharePointOffice365AuthNamespace type = kAuthNamespaceUnknown;
  std::string server;
  if (online->GetAuthTarget(kOnlineUser, type, server) != kAuthResultOk) return false;
  if (type != kAuthNamespaceManaged) return false;
  Office365* office365 = engine->Office365();
  office365->SetServer(server.c_str());
  CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(kOnlineUser, kOnlinePassword));
  if (office365->Authenticate(kOnlineSite, credential.get()) != kAuthResultOk) return false;
  CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(RstrOf(*office365)));
  if (!token || online->Authenticate(kOnlineSite, token.get()) != kAuthResultOk) return false;
  return online->GetFedAuthCookie() != nullptr && online->GetRtfaCookie() != nullptr;
}

}  // namespace

SignInWorld& SignInWorld::Shared() {
  static SignInWorld world;
  return world;
}

SignInWorld::SignInWorld() {
  std::string error;
  if (AuthEngine::GlobalInit() != kAuthResultOk || !emulator_.Start(&error)) {
    std::fprintf(stderr, "bench: no emulator: %s\n", error.c_str());
    std::exit(1);
  }
  Emulation::InstallFbaSite(&emulator_, {});
  std::shared_ptr<Emulation::AdfsServerState> adfs = Emulation::InstallAdfsServer(&emulator_, {});
  Emulation::TrustSiteOptions trust;
  trust.adfs = adfs;
  Emulation::InstallTrustSite(&emulator_, trust);
  std::shared_ptr<Emulation::Office365ServiceState> service =
      Emulation::InstallOffice365Service(&emulator_, {});
  Emulation::InstallOnlineSite(&emulator_, {}, service);
  emulator_.Route("POST", "", std::string(kFixedSitePath) + "/_vti_bin/authentication.asmx",
                  [](const Emulation::Request&) {
                    return Emulation::Response::Text(
                               200, "<soap:Envelope><soap:Body><LoginResponse><LoginResult>"
                                    "<ErrorCode>NoError</ErrorCode></LoginResult></LoginResponse>"
                                    "</soap:Body></soap:Envelope>",
                               "text/xml; charset=utf-8")
                        .SetCookie("FedAuth=77u/PD94bWwgdmVyc2lvbj0iMS4wIj8+; path=/; HttpOnly");
                  });

  AuthEngine engine;
  if (engine.Adfs()->AuthenticateByUser(Url(false, "").c_str(), kTrustRealm, kAdfsUser,
                                        kAdfsPassword) != kAuthResultOk) {
    std::fprintf(stderr, "bench: the emulator's ADFS server refused the token request\n");
    std::exit(1);
  }
  rstr_ = RstrOf(*engine.Adfs());

  for (bool https : {false, true}) AddForms(https);
  for (bool https : {false, true}) AddAdfs(https);
  for (bool https : {false, true}) AddTrust(https);
  AddOnline();
}

const SignInWorld::SignIn& SignInWorld::Find(const std::string& name) const {
  for (const SignIn& sign_in : sign_ins_) {
    if (sign_in.name == name) return sign_in;
  }
  std::fprintf(stderr, "bench: no sign-in named %s\n", name.c_str());
  std::exit(1);
}

void SignInWorld::Prepare(AuthEngine* engine, const SignIn& sign_in) const {
  AuthEngineConfig::SetProxy(sign_in.proxied ? emulator_.ProxyUrl().c_str() : nullptr);
  if (!sign_in.https) return;
  const char* ca_file = emulator_.CaFile().c_str();
  engine->SharePointFba()->SetCaFile(ca_file);
  engine->Adfs()->SetCaFile(ca_file);
  engine->SharePointAdfs()->SetCaFile(ca_file);
  engine->Office365()->SetCaFile(ca_file);
  engine->SharePointOffice365()->SetCaFile(ca_file);
}

bool SignInWorld::FixedFbaSignIn(AuthEngine* engine) const {
  SharePointFba* fba = engine->SharePointFba();
  const std::string site = Url(false, kFixedSitePath);
  return fba->Authenticate(site.c_str(), kFbaUser, kFbaPassword) == kAuthResultOk &&
         fba->GetFedAuthCookie() != nullptr;
}

void SignInWorld::AddForms(bool https) {
  const std::string site = Url(https, "/sites/fba");
  sign_ins_.push_back({std::string("Fba/") + (https ? "https" : "http"), https, false,
                       [site](AuthEngine* engine) {
                         SharePointFba* fba = engine->SharePointFba();
                         return fba->Authenticate(site.c_str(), kFbaUser, kFbaPassword) ==
                                    kAuthResultOk &&
                                fba->GetFedAuthCookie() != nullptr;
                       }});
}

void SignInWorld::AddAdfs(bool https) {
  const std::string server = Url(https, "");
  sign_ins_.push_back({std::string("AdfsByUser/") + (https ? "https" : "http"), https, false,
                       [server](AuthEngine* engine) {
                         return engine->Adfs()->AuthenticateByUser(server.c_str(), kTrustRealm,
                                                                   kAdfsUser, kAdfsPassword) ==
                                kAuthResultOk;
                       }});
}

void SignInWorld::AddTrust(bool https) {
  const std::string site = Url(https, "/sites/adfs");
  const std::string rstr = rstr_;
  sign_ins_.push_back({std::string("SharePointAdfsByRstr/") + (https ? "https" : "http"), https,
                       false, [site, rstr](AuthEngine* engine) {
                         SharePointAdfs* trust = engine->SharePointAdfs();
                         return trust->AuthenticateByRstr(site.c_str(), rstr.c_str()) ==
                                    kAuthResultOk &&
                                trust->GetFedAuthCookie() != nullptr;
                       }});
}

// The sign-in service's addresses are https only, so the chain runs over
// https alone, through the proxy, as a host behind one would.
void SignInWorld::AddOnline() {
  sign_ins_.push_back({"OnlineChain/https", true, true, OnlineChain});
}

std::string SignInWorld::Url(bool https, const std::string& path) const {
  return https ? emulator_.HttpsUrl(path) : emulator_.HttpUrl(path);
}

}  // namespace Bench
}  // namespace Vantrel

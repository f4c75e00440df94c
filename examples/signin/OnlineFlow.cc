// Sign-in to SharePoint Online: ask the Office 365 sign-in service where the
// user signs in, get a token there (for a federated tenant: an ADFS token
// first, exchanged at Office 365), and trade it at the site for FedAuth and
// rtFa.
#include <VantrelAuthEngine.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Flows.h"
#include "HostSupport.h"

using Vantrel::Auth::Adfs;
using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::CredentialFactory;
using Vantrel::Auth::ICredential;
using Vantrel::Auth::Office365;
using Vantrel::Auth::SharePointOffice365;
using Vantrel::Auth::SharePointOffice365AuthNamespace;

namespace {

// Credentials come from the factory and are the host's to delete.
struct DeleteCredential {
  void operator()(ICredential* credential) const { delete credential; }
};
using Credential = std::unique_ptr<ICredential, DeleteCredential>;

// A credential from an RSTR; the text is a bearer token, so it is wiped.
Credential FromRstr(std::string rstr) {
  Credential credential(CredentialFactory::CreateCredentialFromRstr(rstr));
  WipePassword(&rstr);
  return credential;
}

int Refused(const char* what) {
  std::fprintf(stderr, "signin: %s\n", what);
  return ExitStatusFor(Vantrel::Auth::kAuthResultAuthFailed);
}

}  // namespace

int RunOnline(const Options& options) {
  FlowSetup setup(options);
  if (!setup.ok()) return setup.exit_status();
  std::string& password = setup.password();

  // The authenticators, the credentials handed to them and the cookies all
  // belong to (or borrow from) the engine: everything ends inside this scope.
  AuthEngine engine;
  SharePointOffice365* online = engine.SharePointOffice365();
  ApplyTlsOptions(options, online);

  SharePointOffice365AuthNamespace tenant = Vantrel::Auth::kAuthNamespaceUnknown;
  std::string auth_url;
  AuthResult result = online->GetAuthTarget(options.user, tenant, auth_url);
  if (result != Vantrel::Auth::kAuthResultOk) {
    WipePassword(&password);
    return ReportFailure(engine, result, *online, "namespace discovery");
  }

  Credential credential;
  std::string how;
  if (tenant == Vantrel::Auth::kAuthNamespaceManaged) {
    credential.reset(CredentialFactory::CreateBasicUsernameCredential(options.user, password));
    WipePassword(&password);
    how = "managed tenant";
  } else if (tenant == Vantrel::Auth::kAuthNamespaceFederated) {
    // The library holds no realm for the federation server: the tenant's
    // relying party trust there is registered under a name only its owner
    // knows.
    if (options.adfs_realm.empty()) {
      WipePassword(&password);
      std::fprintf(stderr,
                   "signin: %s belongs to a federated tenant that signs in at %s; give the realm "
                   "to ask it for with --adfs-realm URN\nTry 'signin --help'.\n",
                   options.user.c_str(), auth_url.c_str());
      return kExitUsage;
    }
    Adfs* adfs = engine.Adfs();
    ApplyTlsOptions(options, adfs);
    result = adfs->AuthenticateByUser(auth_url.c_str(), options.adfs_realm.c_str(),
                                      options.user.c_str(), password.c_str());
    WipePassword(&password);
    if (result != Vantrel::Auth::kAuthResultOk) {
      return ReportFailure(engine, result, *adfs, "token request to the tenant's ADFS server");
    }
    credential = FromRstr(ReadRstr(*adfs));
    if (!credential) return Refused("the ADFS server's answer holds no token Office 365 takes");
    how = "federated tenant, through " + auth_url;
  } else {
    WipePassword(&password);
    std::fprintf(stderr, "signin: the Office 365 sign-in service knows no tenant for %s\n",
                 options.user.c_str());
    return ExitStatusFor(Vantrel::Auth::kAuthResultAuthFailed);
  }

  Office365* office365 = engine.Office365();
  ApplyTlsOptions(options, office365);
  if (!options.sts.empty()) office365->SetServer(options.sts.c_str());
  result = office365->Authenticate(options.site.c_str(), credential.get());
  credential.reset();
  if (result != Vantrel::Auth::kAuthResultOk) {
    return ReportFailure(engine, result, *office365, "token request to Office 365");
  }

  Credential token = FromRstr(ReadRstr(*office365));
  if (!token) return Refused("the Office 365 answer holds no binary security token");
  result = online->Authenticate(options.site.c_str(), token.get());
  token.reset();
  if (result != Vantrel::Auth::kAuthResultOk) {
    return ReportFailure(engine, result, *online, "token hand-over to the site");
  }

  // rtFa may be missing; a null entry is skipped.
  return FinishSignIn(options, {online->GetFedAuthCookie(), online->GetRtfaCookie()}, "",
                      " (" + how + ")");
}

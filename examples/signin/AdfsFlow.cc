// Sign-in through ADFS: a token from the ADFS server, handed to the site's
// trust endpoint for the FedAuth cookie.
#include <VantrelAuthEngine.h>

#include <cstdio>
#include <string>

#include "Flows.h"
#include "HostSupport.h"

using Vantrel::Auth::Adfs;
using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::SharePointAdfs;

int RunAdfs(const Options& options) {
  if (options.adfs.empty() || options.realm.empty()) {
    std::fprintf(stderr, "signin: adfs needs --adfs URL and --realm URN\nTry 'signin --help'.\n");
    return kExitUsage;
  }
  FlowSetup setup(options);
  if (!setup.ok()) return setup.exit_status();
  std::string& password = setup.password();

  // Both authenticators and the cookie belong to the engine: use them up
  // before it goes out of scope.
  AuthEngine engine;
  Adfs* adfs = engine.Adfs();
  ApplyTlsOptions(options, adfs);
  AuthResult result = adfs->AuthenticateByUser(options.adfs.c_str(), options.realm.c_str(),
                                               options.user.c_str(), password.c_str());
  WipePassword(&password);
  if (result != Vantrel::Auth::kAuthResultOk) {
    return ReportFailure(engine, result, *adfs, "token request to ADFS");
  }

  // The RSTR is a bearer token for the realm: don't leave it lying around.
  std::string rstr = ReadRstr(*adfs);
  SharePointAdfs* site = engine.SharePointAdfs();
  ApplyTlsOptions(options, site);
  result = site->AuthenticateByRstr(options.site.c_str(), rstr.c_str());
  WipePassword(&rstr);
  if (result != Vantrel::Auth::kAuthResultOk) {
    return ReportFailure(engine, result, *site, "token hand-over to the site");
  }
  return FinishSignIn(options, {site->GetFedAuthCookie()}, " through " + options.adfs, "");
}

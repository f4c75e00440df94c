// Forms-based sign-in: one call, one cookie.
#include <VantrelAuthEngine.h>

#include <string>

#include "Flows.h"
#include "HostSupport.h"

using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::SharePointFba;

int RunFba(const Options& options) {
  FlowSetup setup(options);
  if (!setup.ok()) return setup.exit_status();
  std::string& password = setup.password();

  // The engine owns the authenticator and the cookie it returns, so both are
  // used up before the engine goes out of scope.
  AuthEngine engine;
  SharePointFba* fba = engine.SharePointFba();
  ApplyTlsOptions(options, fba);

  AuthResult result =
      fba->Authenticate(options.site.c_str(), options.user.c_str(), password.c_str());
  WipePassword(&password);
  if (result != Vantrel::Auth::kAuthResultOk) {
    return ReportFailure(engine, result, *fba, "forms-based sign-in");
  }
  return FinishSignIn(options, {fba->GetFedAuthCookie()}, "", "");
}

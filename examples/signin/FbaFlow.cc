// Forms-based sign-in: one call, one cookie.
#include <VantrelAuthEngine.h>

#include <cstdio>
#include <string>

#include "Flows.h"
#include "HostSupport.h"

using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::SharePointFba;

int RunFba(const Options& options) {
  std::string password;
  std::string error;
  if (!ReadPassword(options, &password, &error)) {
    std::fprintf(stderr, "signin: %s\n", error.c_str());
    return kExitHostError;
  }

  LibraryScope library(options);
  if (library.init_result() != Vantrel::Auth::kAuthResultOk) {
    WipePassword(&password);
    std::fprintf(stderr, "signin: the library could not be initialised (%d)\n",
                 static_cast<int>(library.init_result()));
    return ExitStatusFor(library.init_result());
  }

  int status = kExitOk;
  {
    // The engine owns the authenticator and the cookie it returns, so both
    // are used up before the engine goes out of scope.
    AuthEngine engine;
    SharePointFba* fba = engine.SharePointFba();
    ApplyTlsOptions(options, fba);

    AuthResult result = fba->Authenticate(options.site.c_str(), options.user.c_str(),
                                          password.c_str());
    WipePassword(&password);
    if (result != Vantrel::Auth::kAuthResultOk) {
      status = ReportFailure(engine, result, *fba, "forms-based sign-in");
    } else if (!WriteCookieJar(options, {fba->GetFedAuthCookie()}, &error)) {
      std::fprintf(stderr, "signin: %s\n", error.c_str());
      status = kExitHostError;
    } else {
      std::fprintf(stderr, "signin: signed in to %s as %s%s%s\n", options.site.c_str(),
                   options.user.c_str(), options.cookie_jar.empty() ? "" : "; cookies in ",
                   options.cookie_jar.c_str());
    }
  }
  return status;
}

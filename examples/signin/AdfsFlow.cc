// Sign-in through ADFS: a token from the ADFS server, handed to the site's
// trust endpoint for the FedAuth cookie.
#include <VantrelAuthEngine.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Flows.h"
#include "HostSupport.h"

using Vantrel::Auth::Adfs;
using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::SharePointAdfs;

namespace {

// The RSTR by the buffer protocol: ask for the size, then fetch.
std::string ReadRstr(const Adfs& adfs) {
  size_t size = 0;
  adfs.GetRstr(nullptr, &size);
  std::string rstr(size, '\0');
  if (size > 0) adfs.GetRstr(&rstr[0], &size);
  rstr.resize(std::strlen(rstr.c_str()));
  return rstr;
}

}  // namespace

int RunAdfs(const Options& options) {
  if (options.adfs.empty() || options.realm.empty()) {
    std::fprintf(stderr, "signin: adfs needs --adfs URL and --realm URN\nTry 'signin --help'.\n");
    return kExitUsage;
  }
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
      status = ReportFailure(engine, result, *site, "token hand-over to the site");
    } else if (!WriteCookieJar(options, {site->GetFedAuthCookie()}, &error)) {
      std::fprintf(stderr, "signin: %s\n", error.c_str());
      status = kExitHostError;
    } else {
      std::fprintf(stderr, "signin: signed in to %s through %s as %s%s%s\n", options.site.c_str(),
                   options.adfs.c_str(), options.user.c_str(),
                   options.cookie_jar.empty() ? "" : "; cookies in ", options.cookie_jar.c_str());
    }
  }
  return status;
}

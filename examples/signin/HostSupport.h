// What every flow of the example host needs around the library: reading the
// password, configuring the library from the command line, reporting a
// failure, and writing the cookies where curl can load them.
#ifndef VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_
#define VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_

#include <VantrelAuthEngine.h>

#include <string>
#include <vector>

#include "Flows.h"

// Exit statuses. A refused sign-in exits with kExitAuthResultBase plus the
// AuthResult value, so a script can tell "wrong password" (17) from "server
// unreachable" (15) without parsing text.
constexpr int kExitOk = 0;
constexpr int kExitHostError = 1;   // password or cookie file unusable
constexpr int kExitUsage = 2;       // bad command line
constexpr int kExitAuthResultBase = 10;

int ExitStatusFor(Vantrel::Auth::AuthResult result);

// The password from --password-file (first line), --password-stdin (first
// line of standard input) or a prompt on the terminal without echo. False,
// with a message in `error`, when none of these yields one.
bool ReadPassword(const Options& options, std::string* password, std::string* error);

// Overwrites the password's bytes before the string lets go of them.
void WipePassword(std::string* password);

// What every flow starts with, and the bracket of the library's global
// state for its life: ReadPassword, then --verbose and --proxy applied and
// GlobalInit; the destructor wipes the password and runs GlobalCleanup. When
// a step fails, the reason is on standard error, ok() is false and
// exit_status() is what the flow returns. Construct it before the AuthEngine
// and let it die after.
class FlowSetup {
 public:
  explicit FlowSetup(const Options& options);
  ~FlowSetup();
  FlowSetup(const FlowSetup&) = delete;
  FlowSetup& operator=(const FlowSetup&) = delete;

  bool ok() const { return exit_status_ == kExitOk; }
  int exit_status() const { return exit_status_; }
  std::string& password() { return password_; }

 private:
  std::string password_;
  bool library_started_ = false;
  int exit_status_ = kExitOk;
};

// --ca-file and --insecure, for any authenticator.
void ApplyTlsOptions(const Options& options, Vantrel::Auth::AuthBase* authenticator);

// Prints "signin: <what> failed: <result text> (<value>)" and the detail text
// to standard error and returns the exit status for `result`.
int ReportFailure(Vantrel::Auth::AuthEngine& engine, Vantrel::Auth::AuthResult result,
                  const Vantrel::Auth::AuthBase& authenticator, const char* what);

// Writes the cookies in the Netscape cookie-file format that curl -b/-c and
// wget --load-cookies read: to options.cookie_jar, or to standard output when
// that is empty. Null entries are skipped. False, with `error`, on I/O failure.
bool WriteCookieJar(const Options& options,
                    const std::vector<const Vantrel::Auth::Cookie*>& cookies, std::string* error);

// The end of a sign-in that worked: WriteCookieJar, then "signin: signed in to
// <site><through> as <user><how>" and where the jar went, on standard error.
// kExitOk, or kExitHostError after reporting a jar that couldn't be written.
int FinishSignIn(const Options& options, const std::vector<const Vantrel::Auth::Cookie*>& cookies,
                 const std::string& through, const std::string& how);

// The RSTR an authenticator holds; a bearer token, so the caller wipes it.
std::string ReadRstr(const Vantrel::Auth::AdfsImpl& authenticator);

#endif  // VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_

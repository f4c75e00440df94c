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

// Brackets the library's global state for the life of a flow: applies
// --verbose and --proxy, then GlobalInit; the destructor runs GlobalCleanup.
// Construct it before the AuthEngine and let it die after.
class LibraryScope {
 public:
  explicit LibraryScope(const Options& options);
  ~LibraryScope();
  LibraryScope(const LibraryScope&) = delete;
  LibraryScope& operator=(const LibraryScope&) = delete;

  Vantrel::Auth::AuthResult init_result() const { return init_result_; }

 private:
  Vantrel::Auth::AuthResult init_result_;
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

#endif  // VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_

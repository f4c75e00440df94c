// What every flow of the example host needs around the library: reading the
// password, configuring the library from the command line, reporting a
// failure, and writing the cookies or the header where curl can load them.
#ifndef VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_
#define VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_

#include <VantrelAuthEngine.h>

#include <cstring>
#include <string>
#include <vector>

#include "Flows.h"

// Exit statuses. A refused sign-in exits with kExitAuthResultBase plus the
// AuthResult value, so a script can tell "wrong password" (17) from "server
// unreachable" (15) without parsing text.
constexpr int kExitOk = 0;
constexpr int kExitHostError = 1;   // password, secret, cookie or header file unusable
constexpr int kExitUsage = 2;       // bad command line
constexpr int kExitAuthResultBase = 10;

int ExitStatusFor(Vantrel::Auth::AuthResult result);

// Prints "signin: <message>" and the pointer to --help to standard error and
// returns kExitUsage.
int UsageError(const std::string& message);

// The first line of `path` (a password, a secret), without its line end.
// False, with "cannot read <what> file <path>: <reason>" in `error`, when the
// file can't be read.
bool ReadSecretFile(const std::string& path, const char* what, std::string* secret,
                    std::string* error);

// The password from --password-file (first line), --password-stdin (first
// line of standard input) or a prompt on the terminal without echo. False,
// with a message in `error`, when none of these yields one.
bool ReadPassword(const Options& options, std::string* password, std::string* error);

// Overwrites the password's bytes before the string lets go of them.
void WipePassword(std::string* password);

// What every flow starts with, and the bracket of the library's global
// state for its life: ReadPassword (unless `read_password` is false), then
// --verbose, --proxy and the time-outs applied and GlobalInit; the destructor wipes the
// password and runs GlobalCleanup. When a step fails, the reason is on
// standard error, ok() is false and exit_status() is what the flow returns.
// Construct it before the AuthEngine and let it die after.
class FlowSetup {
 public:
  explicit FlowSetup(const Options& options, bool read_password = true);
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

// Reads a text of any length through the library's buffer protocol: a buffer
// that is too small comes back empty, with the size needed in `size`. The
// text is read straight into the string returned, so WipePassword on it
// leaves no copy of a token behind.
template <typename Getter>
std::string ReadText(Getter getter) {
  std::string text(256, '\0');
  size_t size = text.size();
  getter(&text[0], &size);
  if (size > text.size()) {
    text.assign(size, '\0');
    getter(&text[0], &size);
  }
  text.resize(std::strlen(text.c_str()));
  return text;
}

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

// Writes `text` to `path` with mode 0600 by way of a temporary file in the
// same folder and a rename, so a reader sees the old file or the whole new
// one, and never a moment in which others may read it. False, with `error`,
// on failure (the temporary file is removed).
bool WritePrivateFile(const std::string& path, const std::string& text, std::string* error);

// The RSTR an authenticator holds; a bearer token, so the caller wipes it.
std::string ReadRstr(const Vantrel::Auth::AdfsImpl& authenticator);

#endif  // VANTREL_EXAMPLES_SIGNIN_HOST_SUPPORT_H_

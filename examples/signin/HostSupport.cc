#include "HostSupport.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

using Vantrel::Auth::AdfsImpl;
using Vantrel::Auth::AuthBase;
using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthEngineConfig;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::Cookie;

namespace {

void StripLineEnd(std::string* line) {
  while (!line->empty() && (line->back() == '\n' || line->back() == '\r')) line->pop_back();
}

// Reads one line from the controlling terminal with echo off, so the password
// neither shows on screen nor lands in a terminal's scrollback.
bool PromptWithoutEcho(const std::string& prompt, std::string* password, std::string* error) {
  int tty = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (tty < 0) {
    *error = "no terminal to ask for the password; use --password-file or --password-stdin";
    return false;
  }
  termios saved{};
  bool restore = tcgetattr(tty, &saved) == 0;
  if (restore) {
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    tcsetattr(tty, TCSAFLUSH, &quiet);
  }
  ssize_t ignored = write(tty, prompt.data(), prompt.size());
  (void)ignored;

  password->clear();
  bool got_line = false;
  char c;
  for (;;) {
    ssize_t n = read(tty, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (c == '\n') {
      got_line = true;
      break;
    }
    password->push_back(c);
  }
  if (restore) tcsetattr(tty, TCSAFLUSH, &saved);
  close(tty);
  StripLineEnd(password);
  if (!got_line && password->empty()) {
    *error = "no password entered";
    return false;
  }
  return true;
}

void LogToStderr(Vantrel::Auth::VantrelAuthLogLevel level, const char* message) {
  std::fprintf(stderr, "[%s] %s\n", level == Vantrel::Auth::kLogLevelDebug ? "debug" : "info",
               message);
}

std::string NetscapeCookieLine(const Cookie& cookie) {
  auto text = [](const char* value) { return std::string(value != nullptr ? value : ""); };
  std::string line;
  // curl marks HttpOnly cookies with this prefix on the domain and honours it
  // when it loads the file again.
  if (cookie.IsHttpOnlyEnabled()) line += "#HttpOnly_";
  line += text(cookie.GetDomain());
  line += cookie.IsTailMatchEnabled() ? "\tTRUE\t" : "\tFALSE\t";
  line += text(cookie.GetPath());
  line += cookie.IsSecureEnabled() ? "\tTRUE\t" : "\tFALSE\t";
  line += std::to_string(cookie.GetExpires());
  line += "\t" + text(cookie.GetName()) + "\t" + text(cookie.GetValue());
  return line;
}

}  // namespace

int ExitStatusFor(AuthResult result) {
  return result == Vantrel::Auth::kAuthResultOk ? kExitOk
                                                : kExitAuthResultBase + static_cast<int>(result);
}

int UsageError(const std::string& message) {
  std::fprintf(stderr, "signin: %s\nTry 'signin --help'.\n", message.c_str());
  return kExitUsage;
}

bool ReadSecretFile(const std::string& path, const char* what, std::string* secret,
                    std::string* error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    *error = std::string("cannot read ") + what + " file " + path + ": " + std::strerror(errno);
    return false;
  }
  // Room up front, so that no growing copy of the secret is freed unwiped.
  secret->reserve(1024);
  std::getline(file, *secret);
  StripLineEnd(secret);
  return true;
}

bool ReadPassword(const Options& options, std::string* password, std::string* error) {
  if (!options.password_file.empty()) {
    return ReadSecretFile(options.password_file, "password", password, error);
  }
  if (options.password_stdin) {
    if (!std::getline(std::cin, *password)) {
      *error = "no password on standard input";
      return false;
    }
    StripLineEnd(password);
    return true;
  }
  return PromptWithoutEcho("Password for " + options.user + ": ", password, error);
}

void WipePassword(std::string* password) {
  // volatile keeps the compiler from dropping stores to memory about to be freed.
  volatile char* bytes = password->empty() ? nullptr : &(*password)[0];
  for (size_t i = 0; i < password->size(); ++i) bytes[i] = '\0';
  password->clear();
}

FlowSetup::FlowSetup(const Options& options, bool read_password) {
  std::string error;
  if (read_password && !ReadPassword(options, &password_, &error)) {
    std::fprintf(stderr, "signin: %s\n", error.c_str());
    exit_status_ = kExitHostError;
    return;
  }
  // Logging first, so that everything after it, GlobalInit included, is seen.
  if (options.verbose) {
    AuthEngineConfig::SetLoggerCallback(LogToStderr);
    AuthEngineConfig::SetLogLevel(Vantrel::Auth::kLogLevelDebug);
  }
  if (!options.proxy.empty()) AuthEngineConfig::SetProxy(options.proxy.c_str());
  AuthEngineConfig::SetConnectTimeout(options.connect_timeout);
  AuthEngineConfig::SetRequestTimeout(options.timeout);
  library_started_ = true;
  AuthResult init = AuthEngine::GlobalInit();
  if (init != Vantrel::Auth::kAuthResultOk) {
    WipePassword(&password_);
    std::fprintf(stderr, "signin: the library could not be initialised (%d)\n",
                 static_cast<int>(init));
    exit_status_ = ExitStatusFor(init);
  }
}

FlowSetup::~FlowSetup() {
  WipePassword(&password_);
  if (library_started_) AuthEngine::GlobalCleanup();
}

void ApplyTlsOptions(const Options& options, AuthBase* authenticator) {
  if (!options.ca_file.empty()) authenticator->SetCaFile(options.ca_file.c_str());
  if (options.insecure) {
    authenticator->EnableSslVerifyCert(false);
    authenticator->EnableSslVerifyHost(false);
  }
}

int ReportFailure(AuthEngine& engine, AuthResult result, const AuthBase& authenticator,
                  const char* what) {
  std::string text = ReadText(
      [&](char* buffer, size_t* size) { engine.GetResultStr(result, buffer, size); });
  std::string detail = ReadText(
      [&](char* buffer, size_t* size) { authenticator.GetLastErrorDetail(buffer, size); });
  std::fprintf(stderr, "signin: %s failed: %s (%d)\n", what, text.c_str(),
               static_cast<int>(result));
  if (!detail.empty()) std::fprintf(stderr, "signin: detail: %s\n", detail.c_str());
  return ExitStatusFor(result);
}

bool WriteCookieJar(const Options& options, const std::vector<const Cookie*>& cookies,
                    std::string* error) {
  std::string text =
      "# Netscape HTTP Cookie File\n"
      "# Written by the signin example host. Load it with: curl -b FILE URL\n\n";
  for (const Cookie* cookie : cookies) {
    if (cookie != nullptr) text += NetscapeCookieLine(*cookie) + "\n";
  }

  if (options.cookie_jar.empty()) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0;
  }
  // The jar holds live session cookies: keep it private to the user from the
  // moment it exists, not after a chmod.
  int fd = open(options.cookie_jar.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) {
    *error = "cannot write cookie jar " + options.cookie_jar + ": " + std::strerror(errno);
    return false;
  }
  size_t written = 0;
  while (written < text.size()) {
    ssize_t n = write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      *error = "cannot write cookie jar " + options.cookie_jar + ": " + std::strerror(errno);
      close(fd);
      return false;
    }
    written += static_cast<size_t>(n);
  }
  if (close(fd) != 0) {
    *error = "cannot write cookie jar " + options.cookie_jar + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

int FinishSignIn(const Options& options, const std::vector<const Cookie*>& cookies,
                 const std::string& through, const std::string& how) {
  std::string error;
  if (!WriteCookieJar(options, cookies, &error)) {
    std::fprintf(stderr, "signin: %s\n", error.c_str());
    return kExitHostError;
  }
  std::fprintf(stderr, "signin: signed in to %s%s as %s%s%s%s\n", options.site.c_str(),
               through.c_str(), options.user.c_str(), how.c_str(),
               options.cookie_jar.empty() ? "" : "; cookies in ", options.cookie_jar.c_str());
  return kExitOk;
}

bool WritePrivateFile(const std::string& path, const std::string& text, std::string* error) {
  // mkstemp creates the file with mode 0600, and the rename keeps that mode.
  std::string temporary = path + ".XXXXXX";
  int fd = mkostemp(&temporary[0], O_CLOEXEC);
  bool ok = fd >= 0;
  for (size_t written = 0; ok && written < text.size();) {
    ssize_t n = write(fd, text.data() + written, text.size() - written);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) written += static_cast<size_t>(n);
  }
  if (fd >= 0 && close(fd) != 0) ok = false;
  if (ok && std::rename(temporary.c_str(), path.c_str()) == 0) return true;
  *error = "cannot write " + path + ": " + std::strerror(errno);
  if (fd >= 0) unlink(temporary.c_str());
  return false;
}

std::string ReadRstr(const AdfsImpl& authenticator) {
  size_t size = 0;
  authenticator.GetRstr(nullptr, &size);
  std::string rstr(size, '\0');
  if (size > 0) authenticator.GetRstr(&rstr[0], &size);
  rstr.resize(std::strlen(rstr.c_str()));
  return rstr;
}

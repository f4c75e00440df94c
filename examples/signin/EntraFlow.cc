// Sign-in to SharePoint Online through Microsoft Entra ID: an access token by
// the flow the command line picks, written as the header line that
// `curl -H @FILE` sends.
#include <VantrelAuthEngine.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include "Flows.h"
#include "HostSupport.h"

using Vantrel::Auth::AuthEngine;
using Vantrel::Auth::AuthEngineConfig;
using Vantrel::Auth::AuthResult;
using Vantrel::Auth::EntraId;

namespace {

enum class Flow { kSilent, kCertificate, kClientSecret, kDeviceCode, kBrowser, kPassword };

const char* FlowName(Flow flow) {
  switch (flow) {
    case Flow::kCertificate:
      return "certificate sign-in";
    case Flow::kClientSecret:
      return "client-secret sign-in";
    case Flow::kDeviceCode:
      return "device-code sign-in";
    case Flow::kBrowser:
      return "browser sign-in";
    case Flow::kPassword:
      return "password sign-in";
    case Flow::kSilent:
      break;
  }
  return "silent sign-in";
}

// What the option parser can't see: one flow at most, and each flow's own
// options only with it. "" when the command line holds together.
std::string ChooseFlow(const Options& options, Flow* flow) {
  if (options.client_id.empty()) return "entra needs --client-id";
  const std::pair<bool, Flow> given[] = {
      {!options.certificate.empty(), Flow::kCertificate},
      {!options.client_secret_file.empty(), Flow::kClientSecret},
      {options.device_code, Flow::kDeviceCode},
      {options.browser, Flow::kBrowser},
      {!options.user.empty(), Flow::kPassword},
  };
  *flow = Flow::kSilent;
  for (const auto& [is_given, choice] : given) {
    if (!is_given) continue;
    if (*flow != Flow::kSilent) {
      return "choose one flow: --certificate, --client-secret-file, --device-code, --browser "
             "or --user";
    }
    *flow = choice;
  }
  if ((!options.key.empty() || !options.key_password_file.empty()) && *flow != Flow::kCertificate) {
    return "--key and --key-password-file go with --certificate";
  }
  if (!options.browser_command.empty() && *flow != Flow::kBrowser) {
    return "--browser-command goes with --browser";
  }
  if ((!options.password_file.empty() || options.password_stdin) && *flow != Flow::kPassword) {
    return "--password-file and --password-stdin go with --user";
  }
  // Without a flow only the cache can answer, and a new process has none in
  // memory: without the file the sign-in could never succeed.
  if (*flow == Flow::kSilent && options.token_cache.empty()) {
    return "entra needs a flow, or --token-cache for a silent sign-in";
  }
  return "";
}

// The secrets the chosen flow reads from files; wiped when the flow is done.
struct FileSecrets {
  std::string key_password;
  std::string client_secret;
  ~FileSecrets() {
    WipePassword(&key_password);
    WipePassword(&client_secret);
  }
};

bool ReadFileSecrets(const Options& options, FileSecrets* secrets) {
  std::string error;
  if (!options.key_password_file.empty() &&
      !ReadSecretFile(options.key_password_file, "key password", &secrets->key_password, &error)) {
    std::fprintf(stderr, "signin: %s\n", error.c_str());
    return false;
  }
  if (!options.client_secret_file.empty() &&
      !ReadSecretFile(options.client_secret_file, "client secret", &secrets->client_secret,
                      &error)) {
    std::fprintf(stderr, "signin: %s\n", error.c_str());
    return false;
  }
  return true;
}

// With --verbose, libcurl writes its own text straight to standard error,
// the token in each Authorization header included. Given a folder for that
// text, the library reads it back into its log with those headers masked; a
// private one, since the file holds the token until the engine removes it.
class VerboseLogFolder {
 public:
  VerboseLogFolder() = default;
  ~VerboseLogFolder() {
    if (path_.empty()) return;
    AuthEngineConfig::SetTempLogDir(nullptr);
    rmdir(path_.c_str());
  }
  VerboseLogFolder(const VerboseLogFolder&) = delete;
  VerboseLogFolder& operator=(const VerboseLogFolder&) = delete;

  bool Create() {
    const char* tmp = std::getenv("TMPDIR");
    std::string path =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/signin.XXXXXX";
    if (mkdtemp(&path[0]) == nullptr) {
      std::fprintf(stderr, "signin: cannot make a folder for the verbose log in %s: %s\n",
                   path.c_str(), std::strerror(errno));
      return false;
    }
    path_ = path;
    AuthEngineConfig::SetTempLogDir(path_.c_str());
    return true;
  }

 private:
  std::string path_;
};

// --- Ctrl-C -------------------------------------------------------------------

std::atomic<AuthEngine*> interrupt_target{nullptr};

void CancelOnInterrupt(int) {
  AuthEngine* engine = interrupt_target.load();
  if (engine != nullptr) engine->Cancel();  // safe in a signal handler
}

// While alive, Ctrl-C ends the sign-in on `engine` as cancelled (exit status
// 20) instead of killing the program in the middle of a wait. The handler is
// one-shot: should the library not come back, a second Ctrl-C still kills.
class CancelOnCtrlC {
 public:
  explicit CancelOnCtrlC(AuthEngine* engine) {
    interrupt_target = engine;
    struct sigaction action {};
    action.sa_handler = CancelOnInterrupt;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &saved_);
  }
  ~CancelOnCtrlC() {
    sigaction(SIGINT, &saved_, nullptr);
    interrupt_target = nullptr;
  }
  CancelOnCtrlC(const CancelOnCtrlC&) = delete;
  CancelOnCtrlC& operator=(const CancelOnCtrlC&) = delete;

 private:
  struct sigaction saved_ {};
};

// --- the callbacks --------------------------------------------------------------

bool ShowDeviceCode(const char* message, const char*, const char*, void*) {
  std::fprintf(stderr, "%s\n", message);
  return true;
}

// Starts the browser command with the URL as its last argument: no shell, so
// the URL's & and ? stay literal. The program is not waited for, since a
// browser may outlive the sign-in: a middle process starts it and exits at
// once, so it is never ours to reap. A close-on-exec pipe carries the errno
// of a failed exec back; its end of file means the exec worked.
bool OpenBrowser(const char* url, void* command) {
  std::istringstream words(*static_cast<const std::string*>(command));
  std::vector<std::string> arguments;
  for (std::string word; words >> word;) arguments.push_back(word);
  arguments.push_back(url);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(&argument[0]);
  argv.push_back(nullptr);

  int exec_status[2];
  if (pipe2(exec_status, O_CLOEXEC) != 0) return false;
  pid_t middle = fork();
  if (middle == 0) {
    pid_t browser = fork();
    if (browser == 0) {
      // Its output must not mix with the header on standard output, and it
      // must not keep the library's sockets open after we are gone.
      dup2(STDERR_FILENO, STDOUT_FILENO);
      close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
      execvp(argv[0], argv.data());
    }
    if (browser > 0) _exit(0);
    int error = errno;  // only a failed fork or exec gets here
    ssize_t ignored = write(exec_status[1], &error, sizeof error);
    (void)ignored;
    _exit(127);
  }
  close(exec_status[1]);
  while (middle > 0 && waitpid(middle, nullptr, 0) < 0 && errno == EINTR) {
  }
  int error = errno;
  ssize_t got;
  do {
    got = read(exec_status[0], &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  close(exec_status[0]);
  if (middle > 0 && got == 0) return true;
  std::fprintf(stderr, "signin: cannot start the browser %s: %s\n", argv[0], std::strerror(error));
  return false;
}

// --- the sign-in ----------------------------------------------------------------

AuthResult SignIn(EntraId* entra, Flow flow, const Options& options, const FileSecrets& secrets,
                  std::string* password) {
  const char* site = options.site.c_str();
  switch (flow) {
    case Flow::kCertificate:
      return entra->AuthenticateWithCertificate(
          site, options.certificate.c_str(), options.key.empty() ? nullptr : options.key.c_str(),
          options.key_password_file.empty() ? nullptr : secrets.key_password.c_str());
    case Flow::kClientSecret:
      return entra->AuthenticateWithClientSecret(site, secrets.client_secret.c_str());
    case Flow::kDeviceCode:
      return entra->AuthenticateWithDeviceCode(site, ShowDeviceCode, nullptr);
    case Flow::kBrowser: {
      std::string command = options.browser_command.empty() ? "xdg-open" : options.browser_command;
      return entra->AuthenticateWithBrowser(site, nullptr, OpenBrowser, &command);
    }
    case Flow::kPassword: {
      AuthResult result = entra->AuthenticateByUser(site, options.user.c_str(), password->c_str());
      WipePassword(password);
      return result;
    }
    case Flow::kSilent:
      break;
  }
  return entra->AuthenticateSilent(site, nullptr);
}

// The header line to standard output or, for curl -H @FILE, into
// --header-out; then who signed in, on standard error.
int FinishEntra(const Options& options, Flow flow, const EntraId& entra) {
  std::string header =
      ReadText([&](char* buffer, size_t* size) { entra.GetAuthorizationHeader(buffer, size); });
  if (header.empty()) {
    std::fprintf(stderr, "signin: the %s succeeded without a token\n", FlowName(flow));
    return ExitStatusFor(Vantrel::Auth::kAuthResultInternalError);
  }
  // Built in one buffer, so that each copy of the token is one we wipe.
  std::string line;
  line.reserve(header.size() + 32);
  line.append("Authorization: ").append(header).append("\n");
  WipePassword(&header);
  std::string error;
  bool written = options.header_out.empty()
                     ? std::fputs(line.c_str(), stdout) >= 0 && std::fflush(stdout) == 0
                     : WritePrivateFile(options.header_out, line, &error);
  WipePassword(&line);
  if (!written) {
    std::fprintf(stderr, "signin: %s\n",
                 error.empty() ? "cannot write to standard output" : error.c_str());
    return kExitHostError;
  }

  std::string account =
      ReadText([&](char* buffer, size_t* size) { entra.GetAccountName(buffer, size); });
  std::string tenant =
      ReadText([&](char* buffer, size_t* size) { entra.GetTenantId(buffer, size); });
  if (account.empty()) account = "application " + options.client_id;
  time_t expires_on = entra.GetExpiresOn();
  char until[32] = "?";
  if (const std::tm* local = std::localtime(&expires_on)) {
    std::strftime(until, sizeof until, "%Y-%m-%d %H:%M:%S", local);
  }
  std::fprintf(stderr, "signin: signed in to %s as %s (%s, tenant %s); token valid until %s%s%s\n",
               options.site.c_str(), account.c_str(), FlowName(flow), tenant.c_str(), until,
               options.header_out.empty() ? "" : "; header in ", options.header_out.c_str());
  return kExitOk;
}

}  // namespace

int RunEntra(const Options& options) {
  Flow flow = Flow::kSilent;
  std::string problem = ChooseFlow(options, &flow);
  if (!problem.empty()) return UsageError(problem);
  FlowSetup setup(options, flow == Flow::kPassword);
  if (!setup.ok()) return setup.exit_status();
  FileSecrets secrets;
  if (!ReadFileSecrets(options, &secrets)) return kExitHostError;
  VerboseLogFolder verbose_log;  // outlives the engine, which empties it
  if (options.verbose && !verbose_log.Create()) return kExitHostError;

  AuthEngine engine;
  EntraId* entra = engine.EntraId();
  ApplyTlsOptions(options, entra);
  entra->SetClientId(options.client_id.c_str());
  entra->SetTenant(options.tenant.c_str());
  entra->SetAuthority(options.authority.c_str());
  entra->SetScope(options.scope.c_str());
  entra->SetTokenCacheFile(options.token_cache.c_str());
  entra->EnableSiteCheck(!options.no_site_check);

  AuthResult result;
  {
    CancelOnCtrlC cancel_on_ctrl_c(&engine);
    result = SignIn(entra, flow, options, secrets, &setup.password());
  }
  if (result != Vantrel::Auth::kAuthResultOk) {
    return ReportFailure(engine, result, *entra, FlowName(flow));
  }
  return FinishEntra(options, flow, *entra);
}

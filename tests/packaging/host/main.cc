// A host program built against the installed library: one include, the public
// interface only. Exits non-zero, naming the check, when anything is off.
#include <VantrelAuthEngine.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace Vantrel::Auth;

namespace {

std::vector<std::string> log_lines;

void OnLog(VantrelAuthLogLevel, const char* message) { log_lines.push_back(message); }

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "host: FAILED %s\n", what);
    ++failures;
  }
}

bool Logged(const std::string& line) {
  for (const std::string& seen : log_lines) {
    if (seen == line) return true;
  }
  return false;
}

// The buffer protocol as a host uses it: ask for the size, then fetch.
std::string ResultText(const AuthEngine& engine, AuthResult result) {
  size_t size = 0;
  engine.GetResultStr(result, nullptr, &size);
  std::vector<char> buffer(size > 0 ? size : 1);
  size = buffer.size();
  engine.GetResultStr(result, buffer.data(), &size);
  return buffer.data();
}

}  // namespace

int main() {
  AuthEngineConfig::SetLoggerCallback(&OnLog);
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetProxy("http://proxy.invalid:3128");
  Check(Logged("AuthEngineConfig::SetProxy(http://proxy.invalid:3128)"), "library's log line");
  Check(std::strcmp(AuthEngineConfig::GetProxy(), "http://proxy.invalid:3128") == 0, "GetProxy");
  AuthEngineConfig::SetProxy(nullptr);
  Check(AuthEngineConfig::GetProxy() == nullptr, "proxy cleared");
  AuthEngineConfig::SetTempLogDir("/tmp");
  Check(std::strcmp(AuthEngineConfig::GetTempLogDir(), "/tmp") == 0, "GetTempLogDir");
  AuthEngineConfig::SetTempLogDir(nullptr);
  Check(AuthEngineConfig::GetDefaultBufferSize() == 256, "GetDefaultBufferSize");
  Check(AuthEngineConfig::GetMaxRedirect() == 10, "GetMaxRedirect");

  Check(AuthEngine::GlobalInit() == kAuthResultOk, "GlobalInit");
  Check(Logged("AuthEngine::GlobalInit()"), "GlobalInit's log line");
  {
    AuthEngine engine;
    Check(ResultText(engine, kAuthResultAuthFailed) == "Authentication failed", "GetResultStr");
    Check(ResultText(engine, kAuthResultBposNotSupported) ==
              "BPOS converted SharePoint Online site.  Not supported.",
          "GetResultStr, longest text");

    SharePointFba* fba = engine.SharePointFba();
    Check(fba != nullptr, "SharePointFba accessor");
    if (fba != nullptr) {
      AuthResult result = fba->Authenticate(nullptr, "user", "password");
      Check(result == kAuthResultInvalidInput, "Authenticate without a site");
      char detail[256];
      size_t size = sizeof(detail);
      fba->GetLastErrorDetail(detail, &size);
      Check(size == sizeof(detail), "GetLastErrorDetail keeps the size");
    }
  }

  Cookie cookie;
  cookie.SetName("FedAuth");
  cookie.SetValue("77u/PD94bWw=");
  cookie.EnableHttpOnly(true);
  Cookie kept;
  Cookie::Copy(&kept, &cookie);
  cookie.Reset();
  Check(kept.GetName() != nullptr && std::strcmp(kept.GetName(), "FedAuth") == 0, "Cookie::Copy");
  Check(kept.IsHttpOnlyEnabled() && cookie.GetName() == nullptr, "Cookie flags and Reset");

  Header header;
  Check(header.name == nullptr && header.value == nullptr, "Header starts empty");

  StrList* list = StrList::Append(nullptr, "first");
  list = StrList::Append(list, "second");
  Check(std::strcmp(list->str, "second") == 0 && std::strcmp(list->next->str, "first") == 0,
        "StrList order");
  StrList::Free(list);

  AuthEngine::GlobalCleanup();
  AuthEngineConfig::SetLoggerCallback(nullptr);
  if (failures == 0) std::printf("host: ok\n");
  return failures == 0 ? 0 : 1;
}

// A host built against the installed library: one include, the public interface
// only. Exits non-zero, naming the check, when anything is off.
#include <VantrelAuthEngine.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Cookie.h"
#include "Header.h"

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
}  // namespace

int main() {
  AuthEngineConfig::SetLoggerCallback(&OnLog);
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  Check(AuthEngine::GlobalInit() == kAuthResultOk, "GlobalInit");
  Check(!log_lines.empty() && log_lines.back() == "AuthEngine::GlobalInit()", "the library's log line");
  {
    AuthEngine engine;
    size_t size = 0;  // the buffer protocol: ask for the size, then fetch
    engine.GetResultStr(kAuthResultAuthFailed, nullptr, &size);
    std::vector<char> text(size + 1);
    engine.GetResultStr(kAuthResultAuthFailed, text.data(), &size);
    Check(std::strcmp(text.data(), "Authentication failed") == 0, "GetResultStr");
    SharePointFba* fba = engine.SharePointFba();
    Check(fba != nullptr && fba->Authenticate(nullptr, "user", "password") == kAuthResultInvalidInput,
          "Authenticate without a site");
  }
  HostCookieJar jar;
  HostHeader header;
  Check(jar.cookies == 0 && std::strcmp(header.name, "X-Host") == 0, "the host's own Cookie.h and Header.h");
  StrList* list = StrList::Append(StrList::Append(nullptr, "first"), "second");
  Check(std::strcmp(list->str, "second") == 0 && std::strcmp(list->next->str, "first") == 0, "StrList order");
  StrList::Free(list);
  AuthEngine::GlobalCleanup();
  AuthEngineConfig::SetLoggerCallback(nullptr);
  if (failures == 0) std::printf("host: ok\n");
  return failures == 0 ? 0 : 1;
}

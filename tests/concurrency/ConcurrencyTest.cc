// Engines on threads of their own signing in over and over, with one log
// callback: each engine's results and log lines are its own, and there is no
// data race (script/tsan runs this under ThreadSanitizer).
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base/Logger.h"
#include "emulator/EntraService.h"
#include "network/NetworkControlLibcurl.h"
#include "support/OnlineTest.h"

namespace Vantrel::Auth::testing {
namespace {

constexpr int kRounds = 50;

// The host's callback, entered from both threads at once.
thread_local size_t lines_logged = 0;
void CountLine(VantrelAuthLogLevel, const char* text) { lines_logged += text != nullptr && text[0] != '\0'; }

TEST_F(EveryFlowTest, TwoEnginesSignInAtOnceThroughEveryFlow) {
  AuthEngineConfig::SetLoggerCallback(&CountLine);
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);
  VerboseEngine first(emulator_.CaFile()), second(emulator_.CaFile());
  AuthEngine* engines[2] = {first.engine.get(), second.engine.get()};
  std::string failures[2];
  std::vector<std::string> cookies[2];
  size_t logged[2] = {};
  std::thread threads[2];
  for (int i = 0; i < 2; ++i) {
    threads[i] = std::thread([&, i] {
      for (int round = 0; round < kRounds && failures[i].empty(); ++round) {
        failures[i] = SignInEveryWay(*engines[i], &cookies[i]);
      }
      logged[i] = lines_logged;
    });
  }
  for (std::thread& thread : threads) thread.join();
  AuthEngineConfig::SetLogLevel(kLogLevelOff);
  AuthEngineConfig::SetLoggerCallback(nullptr);

  std::set<std::string> distinct;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(failures[i], "") << "thread " << i;
    EXPECT_EQ(cookies[i].size(), size_t{4 * kRounds}) << "thread " << i;
    EXPECT_GT(logged[i], 0u) << "thread " << i;
    distinct.insert(cookies[i].begin(), cookies[i].end());
  }
  // Every sign-in got a session of its own: nothing crossed between engines.
  EXPECT_EQ(distinct.size(), size_t{8 * kRounds});
}

// The library's first calls in a fresh process come from several threads at
// once: they all get the one logger (and ThreadSanitizer sees no race).
TEST(LoggerTest, ThreadsThatCallFirstShareOneLogger) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // the child is a new process
  auto first_calls = [] {
    Logger* seen[4] = {};
    std::vector<std::thread> threads;
    for (Logger*& logger : seen) {
      threads.emplace_back([&logger] {
        AuthEngineConfig::GetLogLevel();
        logger = Logger::GetInstance();
      });
    }
    for (std::thread& thread : threads) thread.join();
    std::exit(std::count(std::begin(seen), std::end(seen), seen[0]) == 4 ? 0 : 1);
  };
  EXPECT_EXIT(first_calls(), ::testing::ExitedWithCode(0), "");
}

// One thread's view of the log: each request's URL from the config dump, then
// libcurl's verbose text read back, which must hold exactly that request's own
// request line (tunnels' CONNECT aside) and reach an answer.
struct VerboseTally {
  std::string url, request_line;
  int request_lines = 0, requests = 0, whole = 0, beside = 0;
  bool inside = false, answered = false;
  std::vector<std::string> faults;  // the first few
};
thread_local VerboseTally tally;

void TallyLine(VantrelAuthLogLevel, const char* message) {
  const std::string line = message, send = "NetworkControlLibcurl::SendRequest: ", dump = "NetworkConfig::LogDump - URL: ";
  auto starts = [&](const std::string& prefix) { return line.compare(0, prefix.size(), prefix) == 0; };
  if (starts(dump)) {
    tally.url = line.substr(dump.size());
  } else if (line == send + "Executing request ... ") {
    ++tally.requests;
  } else if (starts(send + "Log file busy")) {
    ++tally.beside;
  } else if (line == send + "libcurl verbose output BEGIN .....") {
    tally.inside = true;
    tally.request_lines = 0;
    tally.answered = false;
  } else if (line == send + "libcurl verbose output END.") {
    tally.inside = false;
    const std::string& url = tally.url;
    const std::string path = url.substr(std::min(url.find('/', url.find("//") + 2), url.size()));
    // Origin-form inside a tunnel, absolute-form to a proxy.
    const bool own = tally.request_line == path + " HTTP/1.1\r" || tally.request_line == url + " HTTP/1.1\r";
    if (tally.request_lines == 1 && own && tally.answered) ++tally.whole;
    else if (tally.faults.size() < 3) tally.faults.push_back(url + ": " + std::to_string(tally.request_lines) + " request lines, " + tally.request_line);
  } else if (tally.inside && starts("> ") && !starts("> CONNECT ")) {
    ++tally.request_lines;
    tally.request_line = line.substr(line.find(' ', 2) + 1);  // after the method
  } else if (tally.inside && starts("< HTTP/") && tally.request_lines > 0) {
    tally.answered = true;
  }
}

constexpr char kEntraClientId[] = "3f6b9c2e-8d41-4a7e-b0c5-1e2d3f4a5b6c";
constexpr char kEntraSecret[] = "S3cr3tCl~ient.Value+/=";

class SharedLogFolderTest : public EveryFlowTest {
 protected:
  void SetUp() override {
    EveryFlowTest::SetUp();
    Emulation::EntraServiceOptions entra;
    entra.applications = {{kEntraClientId, "", kEntraSecret}};
    Emulation::InstallEntraSite(&emulator_, {"northwind.sharepoint.com"}, Emulation::InstallEntraService(&emulator_, entra));
  }
  // Every way of EveryFlowTest, then Entra ID with a client secret; the
  // sessions got (cookies, the token) go to `sessions`.
  static std::string SignInEveryWayAndWithSecret(AuthEngine& engine, std::vector<std::string>* sessions) {
    std::string failed = SignInEveryWay(engine, sessions);
    EntraId* entra = engine.EntraId();
    entra->SetClientId(kEntraClientId);
    entra->EnableSiteCheck(false);  // the site refuses app-only tokens got with a secret
    if (failed.empty() && entra->AuthenticateWithClientSecret("https://northwind.sharepoint.com/sites/ops", kEntraSecret) != kAuthResultOk) {
      failed = "entra: " + Detail(*entra);
    }
    sessions->push_back(Fetch([&](char* buffer, size_t* size) { entra->GetAccessToken(buffer, size); }));
    return failed;
  }
};

// Four engines made in one second with one log folder, so that they share the
// verbose log file's name, signing in on their own threads while the one
// callback tallies the log at debug level. The global settings are set before
// the threads start and left alone until they end: then they are only read.
TEST_F(SharedLogFolderTest, FourEnginesSharingTheLogFileKeepEveryLineOfTheirOwn) {
  constexpr int kEngines = 4, kSharedRounds = 6;
  char dir[] = "/tmp/vantrel-shared-log-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  AuthEngineConfig::SetLoggerCallback(&TallyLine);
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);
  AuthEngineConfig::SetTempLogDir(dir);
  std::vector<std::unique_ptr<AuthEngine>> engines;
  auto log_file = [&](int i) {
    return std::string(static_cast<NetworkControlLibcurl*>(engines[i]->EntraId()->GetNetworkControl())->GetCurlLogFile());
  };
  do {  // again if a second turned while they were made
    engines.clear();
    for (int i = 0; i < kEngines; ++i) {
      engines.push_back(std::make_unique<AuthEngine>());
      for (AuthBase* authenticator : std::initializer_list<AuthBase*>{engines[i]->SharePointFba(), engines[i]->Adfs(),
               engines[i]->SharePointAdfs(), engines[i]->Office365(), engines[i]->SharePointOffice365(), engines[i]->EntraId()}) {
        Trust(authenticator);
      }
    }
  } while (log_file(0) != log_file(kEngines - 1));

  std::string failures[kEngines];
  std::vector<std::string> sessions[kEngines];
  VerboseTally tallies[kEngines];
  std::vector<std::thread> threads;
  for (int i = 0; i < kEngines; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < kSharedRounds && failures[i].empty(); ++round) {
        failures[i] = SignInEveryWayAndWithSecret(*engines[i], &sessions[i]);
      }
      tallies[i] = tally;
    });
  }
  for (std::thread& thread : threads) thread.join();
  engines.clear();
  AuthEngineConfig::SetTempLogDir(nullptr);
  AuthEngineConfig::SetLogLevel(kLogLevelOff);
  AuthEngineConfig::SetLoggerCallback(nullptr);
  EXPECT_EQ(rmdir(dir), 0);  // neither the shared file nor a stand-in is left

  std::set<std::string> distinct;
  int beside = 0;
  for (int i = 0; i < kEngines; ++i) {
    SCOPED_TRACE("engine " + std::to_string(i));
    EXPECT_EQ(failures[i], "");
    EXPECT_EQ(sessions[i].size(), size_t{5 * kSharedRounds});
    distinct.insert(sessions[i].begin(), sessions[i].end());
    EXPECT_GE(tallies[i].requests, 5 * kSharedRounds);
    EXPECT_EQ(tallies[i].whole, tallies[i].requests);  // every request's text came back, whole and its own
    EXPECT_EQ(tallies[i].faults, std::vector<std::string>());
    beside += tallies[i].beside;
  }
  EXPECT_EQ(distinct.size(), size_t{5 * kEngines * kSharedRounds});  // nothing crossed between engines
  EXPECT_GT(beside, 0);  // the name was shared, not merely taken in turns
}

}  // namespace
}  // namespace Vantrel::Auth::testing

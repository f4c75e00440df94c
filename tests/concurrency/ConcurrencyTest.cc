// Two engines on two threads signing in over and over through every flow, with
// one log callback: each engine's results are its own, and there is no data
// race (script/tsan runs this under ThreadSanitizer).
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

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

}  // namespace
}  // namespace Vantrel::Auth::testing

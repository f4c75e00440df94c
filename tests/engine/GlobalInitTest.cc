// GlobalInit and GlobalCleanup through their state table, with libcurl's two
// global calls diverted so that they can be counted and made to fail.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AuthEngine.h"
#include "LogRecorder.h"
#include "VantrelCurlGlobal.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::LogRecorder;

int init_calls = 0;
int cleanup_calls = 0;
long init_flags = -1;
CURLcode init_result = CURLE_OK;

CURLcode CountingInit(long flags) {
  ++init_calls;
  init_flags = flags;
  return init_result;
}

void CountingCleanup() { ++cleanup_calls; }

class GlobalInitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    VantrelCurlGlobal::SetHooksForTesting(&CountingInit, &CountingCleanup);
    AuthEngine::GlobalCleanup();  // start from "not initialised"
    init_calls = 0;
    cleanup_calls = 0;
    init_flags = -1;
    init_result = CURLE_OK;
  }
  void TearDown() override {
    AuthEngine::GlobalCleanup();
    VantrelCurlGlobal::SetHooksForTesting(nullptr, nullptr);
  }
};

TEST_F(GlobalInitTest, InitialisesLibcurlOnceWithEverything) {
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  EXPECT_EQ(init_calls, 1);
  EXPECT_EQ(init_flags, CURL_GLOBAL_ALL);
  EXPECT_EQ(init_flags, 3);
}

TEST_F(GlobalInitTest, OneCleanupEndsItHoweverOftenInitRan) {
  AuthEngine::GlobalInit();
  AuthEngine::GlobalInit();
  AuthEngine::GlobalInit();
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(cleanup_calls, 1);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(cleanup_calls, 1);
}

TEST_F(GlobalInitTest, CleanupWithoutInitOnlyLogs) {
  LogRecorder recorder(kLogLevelDebug);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(init_calls, 0);
  EXPECT_EQ(cleanup_calls, 0);
  EXPECT_EQ(LogRecorder::Texts(), std::vector<std::string>{"AuthEngine::GlobalCleanup()"});
}

TEST_F(GlobalInitTest, CycleInitialisesAgain) {
  for (int cycle = 1; cycle <= 3; ++cycle) {
    EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
    AuthEngine::GlobalCleanup();
    EXPECT_EQ(init_calls, cycle);
    EXPECT_EQ(cleanup_calls, cycle);
  }
}

TEST_F(GlobalInitTest, FailureReportsInitErrorAndIsTriedAgain) {
  init_result = CURLE_FAILED_INIT;
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultInitError);
  // Still not initialised: cleanup has nothing to undo.
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(cleanup_calls, 0);
  init_result = CURLE_OUT_OF_MEMORY;
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultInitError);
  init_result = CURLE_OK;
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  EXPECT_EQ(init_calls, 3);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(cleanup_calls, 1);
}

TEST_F(GlobalInitTest, LogLinesOfEachStep) {
  LogRecorder recorder(kLogLevelDebug);
  AuthEngine::GlobalInit();
  AuthEngine::GlobalInit();
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(LogRecorder::Texts(), (std::vector<std::string>{
                                      "AuthEngine::GlobalInit()",
                                      "NetworkControlLibcurl::Init() called",
                                      "AuthEngine::GlobalInit()",
                                      "AuthEngine::GlobalCleanup()",
                                      "NetworkControlLibcurl::Cleanup() called",
                                  }));
  std::vector<VantrelAuthLogLevel> levels;
  for (const auto& entry : LogRecorder::Entries()) levels.push_back(entry.first);
  EXPECT_EQ(levels, (std::vector<VantrelAuthLogLevel>{kLogLevelInfo, kLogLevelDebug, kLogLevelInfo,
                                                      kLogLevelInfo, kLogLevelDebug}));
}

TEST_F(GlobalInitTest, RealLibcurlInitialisesAndCleansUp) {
  VantrelCurlGlobal::SetHooksForTesting(nullptr, nullptr);
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(init_calls, 0);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

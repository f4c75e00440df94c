#include "AuthEngineConfig.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AuthEngine.h"
#include "LogRecorder.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::LogRecorder;

class AuthEngineConfigTest : public ::testing::Test {
 protected:
  void TearDown() override {
    AuthEngineConfig::SetProxy(nullptr);
    AuthEngineConfig::SetTempLogDir(nullptr);
    Logger::GetInstance()->SetLogLevel(kLogLevelOff);
    Logger::GetInstance()->SetCallback(nullptr);
  }
};

TEST_F(AuthEngineConfigTest, FreshLibraryState) {
  // Another test may already have changed it, so look in a new process.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        bool fresh = AuthEngineConfig::GetLogLevel() == kLogLevelOff &&
                     AuthEngineConfig::GetProxy() == nullptr &&
                     AuthEngineConfig::GetTempLogDir() == nullptr;
        std::exit(fresh ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(AuthEngineConfigTest, EmptyProxyClearsButEmptyDirectoryIsKept) {
  AuthEngineConfig::SetProxy("http://proxy:3128");
  AuthEngineConfig::SetProxy("");
  EXPECT_EQ(AuthEngineConfig::GetProxy(), nullptr);
  AuthEngineConfig::SetTempLogDir("");
  ASSERT_NE(AuthEngineConfig::GetTempLogDir(), nullptr);
  EXPECT_STREQ(AuthEngineConfig::GetTempLogDir(), "");
  AuthEngineConfig::SetTempLogDir(nullptr);
  EXPECT_EQ(AuthEngineConfig::GetTempLogDir(), nullptr);
}

TEST_F(AuthEngineConfigTest, SettersCopyTheirArgument) {
  std::string proxy = "http://proxy:3128";
  std::string dir = "/tmp/logs";
  AuthEngineConfig::SetProxy(proxy.c_str());
  AuthEngineConfig::SetTempLogDir(dir.c_str());
  proxy[0] = 'X';
  dir[0] = 'X';
  EXPECT_STREQ(AuthEngineConfig::GetProxy(), "http://proxy:3128");
  EXPECT_STREQ(AuthEngineConfig::GetTempLogDir(), "/tmp/logs");
  AuthEngineConfig::SetProxy("socks5://other:1080");
  EXPECT_STREQ(AuthEngineConfig::GetProxy(), "socks5://other:1080");
}

TEST_F(AuthEngineConfigTest, GetterPointerMayBeHandedBack) {
  AuthEngineConfig::SetProxy("http://proxy:3128");
  AuthEngineConfig::SetProxy(AuthEngineConfig::GetProxy());
  EXPECT_STREQ(AuthEngineConfig::GetProxy(), "http://proxy:3128");
  AuthEngineConfig::SetTempLogDir("/var/tmp");
  AuthEngineConfig::SetTempLogDir(AuthEngineConfig::GetTempLogDir() + 4);
  EXPECT_STREQ(AuthEngineConfig::GetTempLogDir(), "/tmp");
}

TEST_F(AuthEngineConfigTest, SettersLogTheirLinesAtInfo) {
  LogRecorder recorder(kLogLevelInfo);
  AuthEngineConfig::SetProxy("http://user:pw@proxy:3128");  // logged in full
  AuthEngineConfig::SetProxy(nullptr);
  AuthEngineConfig::SetTempLogDir("/tmp/x");
  AuthEngineConfig::SetTempLogDir(nullptr);
  EXPECT_EQ(LogRecorder::Texts(), (std::vector<std::string>{
                                      "AuthEngineConfig::SetProxy(http://user:pw@proxy:3128)",
                                      "AuthEngineConfig::SetProxy()",
                                      "AuthEngineConfig::SetTempLogDir dir: /tmp/x",
                                      "AuthEngineConfig::SetTempLogDir dir: ",
                                  }));
  for (const auto& entry : LogRecorder::Entries()) EXPECT_EQ(entry.first, kLogLevelInfo);
}

TEST_F(AuthEngineConfigTest, LevelChangeIsLoggedUnderTheOldLevel) {
  LogRecorder recorder(kLogLevelOff);
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);  // from 0: silent
  EXPECT_TRUE(LogRecorder::Entries().empty());
  EXPECT_EQ(AuthEngineConfig::GetLogLevel(), kLogLevelDebug);
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);
  AuthEngineConfig::SetLogLevel(static_cast<VantrelAuthLogLevel>(-3));  // to a level nothing passes
  AuthEngineConfig::SetLogLevel(kLogLevelInfo);                        // so this one is silent
  EXPECT_EQ(LogRecorder::Texts(), (std::vector<std::string>{"AuthEngineConfig::SetLogLevel(1)",
                                                            "AuthEngineConfig::SetLogLevel(-3)"}));
  LogRecorder::Entries().clear();
  AuthEngineConfig::SetLogLevel(kLogLevelOff);  // down to 0: still logged
  EXPECT_EQ(LogRecorder::Texts(), std::vector<std::string>{"AuthEngineConfig::SetLogLevel(0)"});
  EXPECT_EQ(AuthEngineConfig::GetLogLevel(), kLogLevelOff);
}

void OtherCallback(VantrelAuthLogLevel, const char*) {}

TEST_F(AuthEngineConfigTest, OldCallbackHearsOfItsReplacement) {
  LogRecorder recorder(kLogLevelInfo);
  AuthEngineConfig::SetLoggerCallback(&OtherCallback);
  EXPECT_EQ(LogRecorder::Texts(), std::vector<std::string>{"AuthEngineConfig::SetLoggerCallback(...)"});
  AuthEngineConfig::SetLoggerCallback(&LogRecorder::Record);  // OtherCallback hears this one
  EXPECT_EQ(LogRecorder::Entries().size(), 1u);
  AuthEngineConfig::SetLoggerCallback(nullptr);
  AuthEngineConfig::SetProxy("p");  // logging has ended
  EXPECT_EQ(LogRecorder::Entries().size(), 2u);
}

TEST_F(AuthEngineConfigTest, GlobalSetUpLeavesTheConfigurationAlone) {
  LogRecorder recorder(kLogLevelInfo);
  AuthEngineConfig::SetProxy("http://proxy:3128");
  AuthEngineConfig::SetTempLogDir("/tmp");
  EXPECT_EQ(AuthEngineConfig::GetDefaultBufferSize(), 256u);
  EXPECT_EQ(AuthEngineConfig::GetMaxRedirect(), 10);
  AuthEngine::GlobalInit();
  EXPECT_EQ(AuthEngineConfig::GetDefaultBufferSize(), 256u);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(AuthEngineConfig::GetMaxRedirect(), 10);
  EXPECT_STREQ(AuthEngineConfig::GetProxy(), "http://proxy:3128");
  EXPECT_STREQ(AuthEngineConfig::GetTempLogDir(), "/tmp");
  EXPECT_EQ(AuthEngineConfig::GetLogLevel(), kLogLevelInfo);
  LogRecorder::Entries().clear();
  AuthEngineConfig::SetProxy(nullptr);
  EXPECT_EQ(LogRecorder::Entries().size(), 1u);  // the callback is still installed
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

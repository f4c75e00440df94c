// AuthEngine::GetResultStr: the result table through the buffer protocol.
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "AuthEngine.h"
#include "VantrelCurlGlobal.h"

namespace Vantrel {
namespace Auth {
namespace {

CURLcode FailingInit(long) { return CURLE_FAILED_INIT; }

std::string Text(const AuthEngine& engine, AuthResult result) {
  char buffer[128];
  size_t size = sizeof(buffer);
  engine.GetResultStr(result, buffer, &size);
  EXPECT_EQ(size, sizeof(buffer));
  return buffer;
}

class ResultTextTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk); }
  void TearDown() override { AuthEngine::GlobalCleanup(); }
};

TEST_F(ResultTextTest, EveryValueHasItsText) {
  AuthEngine engine;
  EXPECT_EQ(Text(engine, kAuthResultOk), "OK");
  EXPECT_EQ(Text(engine, kAuthResultInternalError), "Internal error");
  EXPECT_EQ(Text(engine, kAuthResultInitError), "Initialisation error");
  EXPECT_EQ(Text(engine, kAuthResultInvalidInput), "Invalid input");
  EXPECT_EQ(Text(engine, kAuthResultInvalidOption), "Invalid option");
  EXPECT_EQ(Text(engine, kAuthResultSendFailed), "Failed to send request");
  EXPECT_EQ(Text(engine, kAuthResultHttpError), "HTTP error");
  EXPECT_EQ(Text(engine, kAuthResultAuthFailed), "Authentication failed");
  EXPECT_EQ(Text(engine, kAuthResultBposNotSupported),
            "BPOS converted SharePoint Online site.  Not supported.");
}

TEST_F(ResultTextTest, BufferProtocolRows) {
  AuthEngine engine;
  char buffer[8];
  std::memset(buffer, '#', sizeof(buffer));
  size_t size = 3;
  engine.GetResultStr(kAuthResultOk, buffer, &size);
  EXPECT_STREQ(buffer, "OK");
  EXPECT_EQ(size, 3u);

  std::memset(buffer, '#', sizeof(buffer));
  size = 2;
  engine.GetResultStr(kAuthResultOk, buffer, &size);
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(buffer[1], '#');
  EXPECT_EQ(size, 3u);

  std::memset(buffer, '#', sizeof(buffer));
  size = 0;
  engine.GetResultStr(kAuthResultOk, buffer, &size);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_EQ(size, 3u);

  size = 0;
  engine.GetResultStr(kAuthResultBposNotSupported, nullptr, &size);
  EXPECT_EQ(size, std::strlen("BPOS converted SharePoint Online site.  Not supported.") + 1);
}

TEST_F(ResultTextTest, ValueOutsideTheTableReadsAsNoText) {
  AuthEngine engine;
  for (int value : {-1, 9, 1000}) {
    char buffer[4] = "###";
    size_t size = sizeof(buffer);
    engine.GetResultStr(static_cast<AuthResult>(value), buffer, &size);
    EXPECT_STREQ(buffer, "") << value;
    EXPECT_EQ(size, sizeof(buffer)) << value;
  }
}

TEST_F(ResultTextTest, TextsOutliveGlobalCleanup) {
  AuthEngine engine;
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(Text(engine, kAuthResultHttpError), "HTTP error");
}

// The table is filled by the first GlobalInit, not at load: only a new
// process shows the state before it.
TEST(ResultTextFreshProcessTest, EmptyBeforeTheFirstGlobalInit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        AuthEngine engine;
        bool all_empty = true;
        for (int value = 0; value <= 8; ++value) {
          char buffer[64] = "untouched";
          size_t size = sizeof(buffer);
          engine.GetResultStr(static_cast<AuthResult>(value), buffer, &size);
          all_empty = all_empty && buffer[0] == '\0' && size == sizeof(buffer);
        }
        std::exit(all_empty ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(ResultTextFreshProcessTest, FailedGlobalInitStillFillsTheTable) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        VantrelCurlGlobal::SetHooksForTesting(&FailingInit, nullptr);
        AuthResult result = AuthEngine::GlobalInit();
        AuthEngine engine;
        char buffer[64];
        size_t size = sizeof(buffer);
        engine.GetResultStr(result, buffer, &size);
        std::exit(result == kAuthResultInitError && std::strcmp(buffer, "Initialisation error") == 0 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

// The engine: global set-up through libcurl's hooks, result texts, the
// engine's authenticators.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "VantrelAuthEngine.h"
#include "network/VantrelCurlGlobal.h"
#include "support/LogCapture.h"

namespace Vantrel::Auth {
namespace {

int init_calls = 0, cleanup_calls = 0;
long init_flags = -1;
CURLcode init_result = CURLE_OK;
CURLcode CountingInit(long flags) {
  ++init_calls;
  init_flags = flags;
  return init_result;
}
void CountingCleanup() { ++cleanup_calls; }

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    VantrelCurlGlobal::SetHooksForTesting(&CountingInit, &CountingCleanup);
    AuthEngine::GlobalCleanup();
    init_calls = cleanup_calls = 0;
    init_result = CURLE_OK;
  }
  void TearDown() override {
    AuthEngine::GlobalCleanup();
    VantrelCurlGlobal::SetHooksForTesting(nullptr, nullptr);
  }
};

TEST_F(EngineTest, GlobalInitAndCleanupCycles) {
  AuthEngine::GlobalCleanup();  // without init: nothing to undo
  EXPECT_EQ(cleanup_calls, 0);
  for (int cycle = 1; cycle <= 3; ++cycle) {
    EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
    EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
    AuthEngine::GlobalCleanup();
    AuthEngine::GlobalCleanup();
    EXPECT_EQ(init_calls, cycle);
    EXPECT_EQ(cleanup_calls, cycle);
  }
  EXPECT_EQ(init_flags, CURL_GLOBAL_ALL);

  init_result = CURLE_FAILED_INIT;  // a failure is tried again next time
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultInitError);
  AuthEngine::GlobalCleanup();
  EXPECT_EQ(cleanup_calls, 3);
  init_result = CURLE_OK;
  EXPECT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  EXPECT_EQ(init_calls, 5);
}

std::string ResultText(AuthResult result, size_t size = 64) {
  char buffer[64] = "untouched";
  AuthEngine().GetResultStr(result, buffer, &size);
  return size == 64 ? buffer : "size changed";
}

TEST_F(EngineTest, ResultTexts) {
  const char* texts[] = {"OK", "Internal error", "Initialisation error", "Invalid input", "Invalid option",
                         "Failed to send request", "HTTP error", "Authentication failed",
                         "BPOS converted SharePoint Online site.  Not supported.", "Interaction required",
                         "Cancelled", "Timed out"};
  ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  AuthEngine::GlobalCleanup();  // the texts outlive it
  for (int value = 0; value < 12; ++value) EXPECT_EQ(ResultText(static_cast<AuthResult>(value)), texts[value]);
  for (int value : {-1, 12}) EXPECT_EQ(ResultText(static_cast<AuthResult>(value)), "") << value;
  size_t size = 0;
  AuthEngine().GetResultStr(kAuthResultOk, nullptr, &size);  // a null buffer asks for the size
  EXPECT_EQ(size, 3u);
  AuthEngine().GetResultStr(kAuthResultOk, nullptr, nullptr);
}

TEST(AuthEngineTest, EachAccessorCreatesOnceAndAllShareTheTransport) {
  ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  AuthEngine engine, other;
  auto all = [&engine] {
    return std::vector<AuthBase*>{engine.Ntlm(), engine.SharePointFba(), engine.Adfs(), engine.SharePointAdfs(),
                                  engine.Office365(), engine.SharePointOffice365(), engine.EntraId()};
  };
  EXPECT_EQ(all(), all());
  for (AuthBase* authenticator : all()) EXPECT_EQ(authenticator->GetNetworkControl(), engine.Ntlm()->GetNetworkControl());
  EXPECT_NE(other.SharePointFba()->GetNetworkControl(), engine.Ntlm()->GetNetworkControl());
}

TEST(AuthEngineTest, DestructionDeletesTheTransportFirstThenTheAuthenticatorsInOrder) {
  testing::ScopedLogCapture log(kLogLevelDebug);
  {
    AuthEngine engine;
    engine.SharePointOffice365();  // asked for out of declaration order
    engine.SharePointFba();
    engine.Office365();
    engine.Adfs();
    testing::ScopedLogCapture::Clear();
  }
  long last = -1;
  for (const char* line : {"AuthEngine::~AuthEngine()", "NetworkControlLibcurl::~NetworkControlLibcurl() called",
                           "SharePointFba::~SharePointFba()", "Adfs::~Adfs()", "Office365::~Office365()",
                           "SharePointOffice365::~SharePointOffice365()"}) {
    EXPECT_GT(testing::ScopedLogCapture::IndexOf(line), last) << line;
    last = testing::ScopedLogCapture::IndexOf(line);
  }
}

}  // namespace
}  // namespace Vantrel::Auth

// The engine hands out one authenticator of each kind, created on demand, all
// on its one transport, and tears down the transport first.
#include <gtest/gtest.h>

#include <string>

#include "Adfs.h"
#include "AuthEngine.h"
#include "Ntlm.h"
#include "Office365.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"
#include "support/LogCapture.h"

namespace Vantrel {
namespace Auth {
namespace {

using testing::ScopedLogCapture;

TEST(AuthEngineTest, EachAccessorCreatesOnceAndAllShareTheTransport) {
  ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk);
  AuthEngine engine, other;
  AuthBase* all[] = {engine.Ntlm(), engine.SharePointFba(), engine.Adfs(), engine.SharePointAdfs(),
                     engine.Office365(), engine.SharePointOffice365()};
  AuthBase* again[] = {engine.Ntlm(), engine.SharePointFba(), engine.Adfs(), engine.SharePointAdfs(),
                       engine.Office365(), engine.SharePointOffice365()};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(again[i], all[i]);
    EXPECT_EQ(all[i]->GetNetworkControl(), all[0]->GetNetworkControl());
  }
  EXPECT_NE(other.SharePointFba()->GetNetworkControl(), all[0]->GetNetworkControl());
}

TEST(AuthEngineTest, DestructionDeletesTheTransportFirstThenTheAuthenticatorsInOrder) {
  ScopedLogCapture log(kLogLevelDebug);
  {
    AuthEngine engine;
    engine.SharePointOffice365();  // asked for out of declaration order
    engine.SharePointFba();
    engine.Office365();
    engine.Adfs();
    ScopedLogCapture::Clear();
  }
  long last = -1;
  for (const char* line : {"AuthEngine::~AuthEngine()", "NetworkControlLibcurl::~NetworkControlLibcurl() called",
                           "SharePointFba::~SharePointFba()", "Adfs::~Adfs()", "Office365::~Office365()",
                           "SharePointOffice365::~SharePointOffice365()"}) {
    EXPECT_GT(ScopedLogCapture::IndexOf(line), last) << line;
    last = ScopedLogCapture::IndexOf(line);
  }
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

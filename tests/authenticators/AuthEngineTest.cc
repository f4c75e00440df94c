// The engine's half that hands out authenticators: one of each kind, created
// on demand, all on the engine's one transport, and torn down transport first.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

class AuthEngineTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(AuthEngine::GlobalInit(), kAuthResultOk); }
};

TEST_F(AuthEngineTest, EachAccessorCreatesOnceAndAllShareTheTransport) {
  AuthEngine engine;
  Vantrel::Auth::SharePointFba* fba = engine.SharePointFba();
  ASSERT_NE(fba, nullptr);
  fba->EnableSslVerifyCert(false);
  EXPECT_EQ(engine.SharePointFba(), fba);
  EXPECT_FALSE(engine.SharePointFba()->IsSslVerifyCertEnabled());

  AuthBase* all[] = {engine.Ntlm(), fba, engine.Adfs(), engine.SharePointAdfs(),
                     engine.Office365(), engine.SharePointOffice365()};
  EXPECT_EQ(engine.Ntlm(), all[0]);
  EXPECT_EQ(engine.Adfs(), all[2]);
  EXPECT_EQ(engine.SharePointAdfs(), all[3]);
  EXPECT_EQ(engine.Office365(), all[4]);
  EXPECT_EQ(engine.SharePointOffice365(), all[5]);
  ASSERT_NE(fba->GetNetworkControl(), nullptr);
  for (AuthBase* authenticator : all) {
    EXPECT_EQ(authenticator->GetNetworkControl(), fba->GetNetworkControl());
  }

  // A second engine has a transport of its own.
  AuthEngine other;
  EXPECT_NE(other.SharePointFba()->GetNetworkControl(), fba->GetNetworkControl());
}

TEST_F(AuthEngineTest, DestructionDeletesTheTransportFirstThenTheAuthenticatorsInOrder) {
  ScopedLogCapture log(kLogLevelDebug);
  const std::string transport_gone = "NetworkControlLibcurl::~NetworkControlLibcurl() called";
  {
    AuthEngine untouched;
    ScopedLogCapture::Clear();
  }
  EXPECT_GE(ScopedLogCapture::IndexOf(transport_gone), 0);
  EXPECT_EQ(ScopedLogCapture::IndexOf("SharePointFba::~SharePointFba()"), -1);

  {
    AuthEngine engine;
    // Asked for in another order than the fields are declared in.
    engine.SharePointOffice365();
    engine.SharePointFba();
    engine.Office365();
    engine.Adfs();
    ScopedLogCapture::Clear();
  }
  long engine_gone = ScopedLogCapture::IndexOf("AuthEngine::~AuthEngine()");
  long transport = ScopedLogCapture::IndexOf(transport_gone);
  long fba = ScopedLogCapture::IndexOf("SharePointFba::~SharePointFba()");
  long adfs = ScopedLogCapture::IndexOf("Adfs::~Adfs()");
  long office365 = ScopedLogCapture::IndexOf("Office365::~Office365()");
  long online = ScopedLogCapture::IndexOf("SharePointOffice365::~SharePointOffice365()");
  EXPECT_EQ(engine_gone, 0);
  EXPECT_GT(transport, engine_gone);
  EXPECT_GT(fba, transport);
  EXPECT_GT(adfs, fba);
  EXPECT_GT(office365, adfs);
  EXPECT_GT(online, office365);
}

}  // namespace
}  // namespace Auth
}  // namespace Vantrel

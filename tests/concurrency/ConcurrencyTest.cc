// Two engines on two threads, each signing in over and over through every
// flow, with the global configuration set once beforehand and a log callback
// that both threads enter. What the library promises for this: each engine's
// results are its own, and there is no data race (the ThreadSanitizer build
// runs this test: script/tsan).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Adfs.h"
#include "AuthEngine.h"
#include "AuthEngineConfig.h"
#include "CredentialFactory.h"
#include "Office365.h"
#include "SharePointAdfs.h"
#include "SharePointFba.h"
#include "SharePointOffice365.h"
#include "authenticators/OnlineFixture.h"
#include "emulator/AdfsServer.h"
#include "emulator/FbaSite.h"
#include "emulator/TrustSite.h"

namespace Vantrel {
namespace Auth {
namespace testing {
namespace {

constexpr int kRounds = 50;
constexpr char kFormsSite[] = "https://intranet.contoso.test/sites/fba";
constexpr char kTrustSite[] = "https://intranet.contoso.test/sites/adfs";
constexpr char kTrustRealm[] = "urn:sharepoint:contoso";
constexpr char kAdfsServer[] = "https://adfs.contoso.test";
constexpr char kAdfsUser[] = "alice@contoso.test";
constexpr char kAdfsPassword[] = "Looking-Glass-7";

// The host's callback: entered from both threads at once, so it locks.
std::mutex log_mutex;
std::map<std::thread::id, size_t> lines_by_thread;
void CountLine(VantrelAuthLogLevel, const char* text) {
  std::lock_guard<std::mutex> lock(log_mutex);
  if (text != nullptr && text[0] != '\0') ++lines_by_thread[std::this_thread::get_id()];
}

class ConcurrencyTest : public OnlineTest {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();  // sets the proxy
    InstallService();
    InstallSite();
    Emulation::AdfsServerOptions adfs;
    adfs.host = "adfs.contoso.test";
    Emulation::TrustSiteOptions trust;
    trust.realm = kTrustRealm;
    trust.adfs = Emulation::InstallAdfsServer(&emulator_, adfs);
    Emulation::InstallTrustSite(&emulator_, trust);
    Emulation::InstallFbaSite(&emulator_, Emulation::FbaSiteOptions());

    {
      std::lock_guard<std::mutex> lock(log_mutex);
      lines_by_thread.clear();
    }
    AuthEngineConfig::SetLoggerCallback(&CountLine);
    AuthEngineConfig::SetLogLevel(kLogLevelDebug);
    // Verbose capture on, with a file for each engine: transports made in one
    // second in one directory would share theirs.
    engine_.reset();
    for (int i = 0; i < 2; ++i) {
      char dir[] = "/tmp/vantrel-concurrency.XXXXXX";
      ASSERT_NE(mkdtemp(dir), nullptr);
      dirs_[i] = dir;
      AuthEngineConfig::SetTempLogDir(dir);
      engines_[i] = std::make_unique<AuthEngine>();
    }
    AuthEngineConfig::SetTempLogDir(nullptr);
  }

  void TearDown() override {
    for (int i = 0; i < 2; ++i) {
      engines_[i].reset();
      rmdir(dirs_[i].c_str());
    }
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
    AuthEngineConfig::SetLoggerCallback(nullptr);
    OnlineTest::TearDown();
  }

  // One thread's work: every flow, kRounds times, on its own engine.
  // Returns the FedAuth values it got, or nothing after a failure.
  std::vector<std::string> SignInRepeatedly(AuthEngine& engine, std::string* failure) {
    for (AuthBase* authenticator :
         {static_cast<AuthBase*>(engine.SharePointFba()), static_cast<AuthBase*>(engine.Adfs()),
          static_cast<AuthBase*>(engine.SharePointAdfs()),
          static_cast<AuthBase*>(engine.Office365()),
          static_cast<AuthBase*>(engine.SharePointOffice365())}) {
      Trust(authenticator);
    }
    CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kManagedPassword));
    std::vector<std::string> cookies;
    auto fail = [&](const char* step, const AuthBase& authenticator) {
      *failure = std::string(step) + ": " + Detail(authenticator);
      return std::vector<std::string>();
    };
    for (int round = 0; round < kRounds; ++round) {
      SharePointFba* fba = engine.SharePointFba();
      if (fba->Authenticate(kFormsSite, "alice", "Wonderland-42") != kAuthResultOk) {
        return fail("forms", *fba);
      }
      cookies.push_back(fba->GetFedAuthCookie()->GetValue());

      Adfs* adfs = engine.Adfs();
      if (adfs->AuthenticateByUser(kAdfsServer, kTrustRealm, kAdfsUser, kAdfsPassword) !=
          kAuthResultOk) {
        return fail("adfs", *adfs);
      }
      std::string rstr = Fetch([adfs](char* buffer, size_t* size) { adfs->GetRstr(buffer, size); });
      SharePointAdfs* trust = engine.SharePointAdfs();
      if (trust->AuthenticateByRstr(kTrustSite, rstr.c_str()) != kAuthResultOk) {
        return fail("trust", *trust);
      }
      cookies.push_back(trust->GetFedAuthCookie()->GetValue());

      Office365* office365 = engine.Office365();
      if (office365->Authenticate(kSite, user.get()) != kAuthResultOk) {
        return fail("office365", *office365);
      }
      CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(
          Fetch([office365](char* buffer, size_t* size) { office365->GetRstr(buffer, size); })));
      SharePointOffice365* online = engine.SharePointOffice365();
      if (online->Authenticate(kSite, token.get()) != kAuthResultOk) {
        return fail("online", *online);
      }
      cookies.push_back(online->GetFedAuthCookie()->GetValue());
    }
    return cookies;
  }

  std::string dirs_[2];
  std::unique_ptr<AuthEngine> engines_[2];
};

TEST_F(ConcurrencyTest, TwoEnginesSignInAtOnceThroughEveryFlow) {
  std::string failures[2];
  std::vector<std::string> cookies[2];
  std::thread threads[2];
  for (int i = 0; i < 2; ++i) {
    threads[i] = std::thread([this, i, &failures, &cookies] {
      cookies[i] = SignInRepeatedly(*engines_[i], &failures[i]);
    });
  }
  std::thread::id ids[2] = {threads[0].get_id(), threads[1].get_id()};
  for (std::thread& thread : threads) thread.join();

  std::set<std::string> distinct;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(failures[i], "") << "thread " << i;
    EXPECT_EQ(cookies[i].size(), size_t{3 * kRounds}) << "thread " << i;
    distinct.insert(cookies[i].begin(), cookies[i].end());
  }
  // Every sign-in got a session of its own: nothing crossed between engines.
  EXPECT_EQ(distinct.size(), size_t{6 * kRounds});
  std::lock_guard<std::mutex> lock(log_mutex);
  for (int i = 0; i < 2; ++i) EXPECT_GT(lines_by_thread[ids[i]], 0u) << "thread " << i;
}

}  // namespace
}  // namespace testing
}  // namespace Auth
}  // namespace Vantrel

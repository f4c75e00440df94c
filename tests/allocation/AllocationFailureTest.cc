// Every sign-in against the emulator, with each of its allocations made to
// fail in turn and the log callback made to throw at each of its calls: the
// exception reaches the host, the authenticator signs in normally afterwards,
// and nothing is left allocated. And no block that a sign-in frees (on
// success, on failure, when the next attempt resets it, when the engine goes)
// still holds a password, secret, key, token or session.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
#include "allocation/AllocationHooks.h"
#include "emulator/EntraService.h"
#include "support/Authenticators.h"
#include "support/OnlineTest.h"
#include "support/TestCertificates.h"
#include "text/UrlUtil.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VANTREL_TEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VANTREL_TEST_ASAN 1
#endif
#ifdef VANTREL_TEST_ASAN
#include <sanitizer/lsan_interface.h>
#endif

namespace Vantrel::Auth::testing {
namespace {

// Letters and digits only, so that they read the same escaped or not. Every
// wrong one shares the right one's prefix, which is what the search looks for.
constexpr char kAccountPassword[] = "Pw4Allocation7Zeta";
constexpr char kWrongPassword[] = "Pw4Allocation7Wrong";
constexpr char kPasswordPrefix[] = "Pw4Allocation7";
constexpr char kAppSecret[] = "Cs9AllocationSecret";
constexpr char kWrongAppSecret[] = "Cs9AllocationWrong";
constexpr char kAppSecretPrefix[] = "Cs9Allocation";
constexpr char kClientId[] = "3f6b9c2e-8d41-4a7e-b0c5-1e2d3f4a5b6c";
constexpr char kFederatedSite[] = "https://fabrikam.sharepoint.com/sites/sales";
// A sign-in needs far fewer; more means the countdown never reaches the end.
constexpr long kMostAllocations = 20000;

// What the flows need that a sign-in made earlier, outside the measurement.
struct Prepared {
  std::string ca_file;
  std::string adfs_rstr;    // from ADFS, for the trusting site
  std::string token_rstr;   // from Office 365, for SharePoint Online
  std::string forged_rstr;  // the same with a token nobody issued
  std::string certificate_file;
  std::string key_file;
};

// One sign-in; `good` false gives it a wrong password, secret or token.
using SignIn = std::function<AuthResult(AuthEngine&, const Prepared&, bool good)>;

struct Flow {
  const char* name;
  bool entra;  // the Entra ID world rather than the SharePoint one
  SignIn sign_in;
};

template <typename Authenticator>
Authenticator* Trusting(Authenticator* authenticator, const Prepared& p) {
  authenticator->SetCaFile(p.ca_file.c_str());
  return authenticator;
}

const char* Password(bool good) { return good ? kAccountPassword : kWrongPassword; }

EntraId* Application(AuthEngine& engine, const Prepared& p) {
  EntraId* entra = Trusting(engine.EntraId(), p);
  entra->SetClientId(kClientId);
  return entra;
}

const Flow kFlows[] = {
    {"Forms", false,
     [](AuthEngine& e, const Prepared& p, bool good) {
       return Trusting(e.SharePointFba(), p)->Authenticate(kFormsSite, "alice", Password(good));
     }},
    {"AdfsByUser", false,
     [](AuthEngine& e, const Prepared& p, bool good) {
       return Trusting(e.Adfs(), p)->AuthenticateByUser(kAdfsServer, kTrustRealm, kFederatedUser, Password(good));
     }},
    {"SharePointAdfsByRstr", false,
     [](AuthEngine& e, const Prepared& p, bool good) {
       // The forms site has no trust endpoint: the RSTR goes out and is refused.
       return Trusting(e.SharePointAdfs(), p)->AuthenticateByRstr(good ? kTrustSite : kFormsSite, p.adfs_rstr.c_str());
     }},
    {"Office365BinaryToken", false,
     [](AuthEngine& e, const Prepared& p, bool good) {
       // Finds the realm by the site's redirects first.
       CredentialPtr credential(CredentialFactory::CreateBasicUsernameCredential(kManagedUser, Password(good)));
       return Trusting(e.Office365(), p)->Authenticate(kSite, credential.get());
     }},
    {"SharePointOnline", false,
     [](AuthEngine& e, const Prepared& p, bool good) {
       CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(good ? p.token_rstr : p.forged_rstr));
       return Trusting(e.SharePointOffice365(), p)->Authenticate(kSite, token.get());
     }},
    {"FederatedDiscoveryChain", false,
     [](AuthEngine& e, const Prepared& p, bool good) {
       SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
       std::string server;
       AuthResult found = Trusting(e.SharePointOffice365(), p)->GetAuthTarget(kFederatedUser, kind, server);
       if (found != kAuthResultOk) return found;
       CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential(kFederatedUser, Password(good)));
       Adfs* adfs = Trusting(e.Adfs(), p);
       AuthResult adfs_result = adfs->Authenticate(server.c_str(), kOnlineRealm, user.get());
       if (adfs_result != kAuthResultOk) return adfs_result;
       // Moved into the factory, which wipes it.
       CredentialPtr assertion(CredentialFactory::CreateCredentialFromRstr(RstrOf(*adfs)));
       return Trusting(e.Office365(), p)->Authenticate(kFederatedSite, assertion.get());
     }},
    {"EntraClientSecret", true,
     [](AuthEngine& e, const Prepared& p, bool good) {
       EntraId* entra = Application(e, p);
       entra->EnableSiteCheck(false);  // the site takes no app-only token got with a secret
       return entra->AuthenticateWithClientSecret(kSite, good ? kAppSecret : kWrongAppSecret);
     }},
    {"EntraCertificate", true,
     [](AuthEngine& e, const Prepared& p, bool good) {
       EntraId* entra = Application(e, p);
       if (!good) entra->SetClientId("00000000-0000-0000-0000-000000000000");
       return entra->AuthenticateWithCertificate(kSite, p.certificate_file.c_str(), p.key_file.c_str(), nullptr);
     }},
};

void PrintTo(const Flow& flow, std::ostream* out) { *out << flow.name; }

struct LogFailure {};
thread_local long log_countdown = 0;
void ThrowingLog(VantrelAuthLogLevel, const char*) {
  if (log_countdown > 0 && --log_countdown == 0) throw LogFailure();
}

long LeaksFound() {
#ifdef VANTREL_TEST_ASAN
  return __lsan_do_recoverable_leak_check();
#else
  return 0;
#endif
}

// What of a secret to search for. A short one whole; of a signed token
// (three parts) the signature's last 24 bytes, as header and claims alone
// prove nothing; of any other long one 24 bytes from the middle and the end.
void AddSlices(const std::string& secret, std::vector<std::string>* out) {
  if (secret.size() <= 32) {
    out->push_back(secret);
  } else if (std::count(secret.begin(), secret.end(), '.') == 2) {
    out->push_back(secret.substr(secret.size() - 24));
  } else {
    out->push_back(secret.substr(secret.size() / 2 - 12, 24));
    out->push_back(secret.substr(secret.size() - 24));
  }
}

class SignInFailureTest : public OnlineTest, public ::testing::WithParamInterface<Flow> {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    engine_.reset();
    prepared_.ca_file = emulator_.CaFile();
    if (GetParam().entra) {
      InstallEntraWorld();
    } else {
      InstallSharePointWorld();
    }
    // The logger is made once per process: not by a measured sign-in.
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
  }
  void TearDown() override {
    AuthEngineConfig::SetLoggerCallback(nullptr);
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
    OnlineTest::TearDown();
  }

  void InstallSharePointWorld() {
    Emulation::Office365ServiceOptions service;
    service.accounts = {{kManagedUser, {"Managed", "", kAccountPassword}},
                        {kFederatedUser, {"Federated", std::string(kAdfsServer) + "/adfs/ls/?wa=wsignin1.0", ""}}};
    service.trusted_issuers = {kAdfsIssuer};
    InstallService(service);
    InstallSite();
    Emulation::OnlineSiteOptions fabrikam;
    fabrikam.host = "fabrikam.sharepoint.com";
    fabrikam_ = Emulation::InstallOnlineSite(&emulator_, fabrikam, service_);
    Emulation::AdfsServerOptions adfs;
    adfs.host = "adfs.fabrikam.com";
    adfs.issuer = kAdfsIssuer;
    adfs.accounts = {{kFederatedUser, kAccountPassword}};
    adfs.realms = {kOnlineRealm, kTrustRealm};
    Emulation::TrustSiteOptions trust;
    trust.realm = kTrustRealm;
    adfs_ = trust.adfs = Emulation::InstallAdfsServer(&emulator_, adfs);
    trust_ = Emulation::InstallTrustSite(&emulator_, trust);
    fba_ = Emulation::InstallFbaSite(&emulator_, {"/sites/fba", "", {{"alice", kAccountPassword}}});

    // The tokens that two of the flows start from.
    AuthEngine engine;
    Adfs* adfs_authenticator = Trusting(engine.Adfs(), prepared_);
    ASSERT_EQ(adfs_authenticator->AuthenticateByUser(kAdfsServer, kTrustRealm, kFederatedUser, kAccountPassword),
              kAuthResultOk);
    prepared_.adfs_rstr = RstrOf(*adfs_authenticator);
    CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential(kManagedUser, kAccountPassword));
    Office365* office365 = Trusting(engine.Office365(), prepared_);
    ASSERT_EQ(office365->Authenticate(kSite, user.get()), kAuthResultOk);
    prepared_.token_rstr = RstrOf(*office365);
    prepared_.forged_rstr = prepared_.token_rstr;
    size_t token = prepared_.forged_rstr.find("t=EwBg");
    ASSERT_NE(token, std::string::npos);
    prepared_.forged_rstr.replace(token, 6, "t=EwBh");
  }

  void InstallEntraWorld() {
    const TestCertificates& keys = TestCertificates::Shared();
    prepared_.certificate_file = keys.cert_pem;
    prepared_.key_file = keys.key_pem;
    Emulation::EntraServiceOptions options;
    options.applications = {{kClientId, TestCertificates::ReadFile(keys.cert_pem), kAppSecret}};
    entra_ = Emulation::InstallEntraService(&emulator_, options);
    Emulation::InstallEntraSite(&emulator_, {}, entra_);
  }

  AuthResult SignIn(AuthEngine& engine, bool good = true) { return GetParam().sign_in(engine, prepared_, good); }

  // What no freed block may hold. At debug level the log lines carry tokens,
  // cookies and response bodies by design; passwords and secrets never.
  std::vector<std::string> Secrets(bool with_tokens) const {
    std::vector<std::string> secrets = {kPasswordPrefix, kAppSecretPrefix};
    if (!with_tokens) return secrets;
    std::vector<std::string> tokens;
    if (GetParam().entra) {
      // Not the access tokens: nlohmann's parser keeps copies of the text it
      // reads in buffers of its own, which it frees unwiped.
      for (const Emulation::Request& request : emulator_.Requests()) {
        size_t at = request.body.find("client_assertion=");
        if (at != std::string::npos) tokens.push_back(request.body.substr(at + 17, request.body.find('&', at) - at - 17));
      }
      std::string key = TestCertificates::ReadFile(prepared_.key_file);
      tokens.push_back(key.substr(key.find('\n') + 1, 64));
    } else {
      for (const auto& sessions : {fba_->IssuedTokens(), trust_->IssuedTokens(), site_->IssuedCookies(),
                                   fabrikam_->IssuedCookies()}) {
        tokens.insert(tokens.end(), sessions.begin(), sessions.end());
      }
      for (const auto& token : service_->IssuedTokens()) tokens.push_back(token.value);
      for (const auto& assertion : adfs_->Issued()) {
        size_t start = assertion.text.find("SignatureValue>") + 15;
        tokens.push_back(assertion.text.substr(start, assertion.text.find('<', start) - start));
      }
      for (const char* user : {kManagedUser, kFederatedUser}) tokens.push_back(PercentEncode(user) + "IAAAAA");
    }
    for (const std::string& token : tokens) AddSlices(token, &secrets);
    return secrets;
  }

  // Fails the test when some block freed since the last call held a secret.
  void ExpectNoSecretFreed(const char* when, bool with_tokens) const {
    std::vector<std::string> found = AllocationHooks::TakeSecretsFound(Secrets(with_tokens));
    std::string list;
    for (const std::string& secret : found) list += " [" + secret + "]";
    EXPECT_TRUE(found.empty()) << when << ": freed unwiped:" << list;
  }

  // Nothing the measured sign-ins allocated is left, and nothing leaked.
  void ExpectNothingLeft() const {
    EXPECT_EQ(AllocationHooks::LiveCounted(), live_before_);
    EXPECT_EQ(LeaksFound(), 0);
  }

  Prepared prepared_;
  const long live_before_ = AllocationHooks::LiveCounted();
  std::shared_ptr<Emulation::FbaSiteState> fba_;
  std::shared_ptr<Emulation::TrustSiteState> trust_;
  std::shared_ptr<Emulation::AdfsServerState> adfs_;
  std::shared_ptr<Emulation::OnlineSiteState> fabrikam_;
  std::shared_ptr<Emulation::EntraServiceState> entra_;
};

// At debug level, so that the request and response dumps allocate too.
TEST_P(SignInFailureTest, EachAllocationFailsInTurn) {
  AuthEngineConfig::SetLoggerCallback([](VantrelAuthLogLevel, const char*) {});
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);
  long runs = 0;
  AllocationHooks::Count(true);
  {
    AuthEngine engine;
    long n = 1;
    for (; n < kMostAllocations; ++n) {
      AllocationHooks::ArmCountdown(n);
      AuthResult result = kAuthResultOk;
      bool threw = false;
      try {
        result = SignIn(engine);
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      if (!AllocationHooks::DisarmCountdown()) {
        ASSERT_FALSE(threw);
        EXPECT_EQ(result, kAuthResultOk);
        break;
      }
    }
    EXPECT_LT(n, kMostAllocations);
    runs = n;
    // Outside the loop the same engine signs in as if nothing had happened.
    AuthResult again = SignIn(engine);
    EXPECT_EQ(again, kAuthResultOk);
  }
  AllocationHooks::Count(false);
  RecordProperty("allocations", static_cast<int>(runs));
  ExpectNothingLeft();
}

TEST_P(SignInFailureTest, LogCallbackThrowsAtEachCall) {
  long runs = 0;
  AllocationHooks::Count(true);
  {
    AuthEngine engine;
    AuthEngineConfig::SetLoggerCallback(&ThrowingLog);
    AuthEngineConfig::SetLogLevel(kLogLevelDebug);
    long k = 1;
    for (; k < kMostAllocations; ++k) {
      log_countdown = k;
      try {
        // Reaching here, the countdown outlasted the sign-in.
        EXPECT_EQ(SignIn(engine), kAuthResultOk);
        break;
      } catch (const LogFailure&) {
      }
    }
    EXPECT_LT(k, kMostAllocations);
    runs = k;
    log_countdown = 0;
    EXPECT_EQ(SignIn(engine), kAuthResultOk);
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
  }
  AllocationHooks::Count(false);
  RecordProperty("log_calls", static_cast<int>(runs));
  ExpectNothingLeft();
}

// Success, a second success that resets the first, a refused sign-in, and
// the engine's end: at both log levels.
TEST_P(SignInFailureTest, NoSecretLeftInFreedMemory) {
  AuthEngineConfig::SetLoggerCallback([](VantrelAuthLogLevel, const char*) {});
  for (VantrelAuthLogLevel level : {kLogLevelOff, kLogLevelDebug}) {
    AuthEngineConfig::SetLogLevel(level);
    const bool with_tokens = level == kLogLevelOff;
    AllocationHooks::Record(true);
    {
      AuthEngine engine;
      AuthResult first = SignIn(engine);
      AuthResult second = SignIn(engine);
      AuthResult refused = SignIn(engine, false);
      AllocationHooks::Record(false);
      EXPECT_EQ(first, kAuthResultOk);
      EXPECT_EQ(second, kAuthResultOk);
      EXPECT_NE(refused, kAuthResultOk);
      ExpectNoSecretFreed("sign-ins", with_tokens);
      AllocationHooks::Record(true);
    }
    AllocationHooks::Record(false);
    ExpectNoSecretFreed("engine's end", with_tokens);
  }
}

INSTANTIATE_TEST_SUITE_P(EverySignIn, SignInFailureTest, ::testing::ValuesIn(kFlows),
                         [](const ::testing::TestParamInfo<Flow>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace Vantrel::Auth::testing

// Every sign-in against the emulator with each of its allocations made to
// fail in turn, and with the log callback throwing at each of its calls: the
// exception reaches the host, the engine signs in normally afterwards, and
// nothing is left allocated. And no block that a sign-in frees (success,
// refusal, reset by the next attempt, the engine's end) holds a secret.
//
// This program replaces the global operator new and delete. On the test
// thread alone they count down to a failure, count live blocks and copy
// freed blocks aside; the emulator's threads are never touched.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "VantrelAuthEngine.h"
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
#if defined(__SANITIZE_ADDRESS__) || defined(VANTREL_TEST_ASAN)
#include <sanitizer/lsan_interface.h>
#define VANTREL_TEST_ASAN 1
#endif

namespace {

// Plain values: operator new runs before a thread's dynamic thread_locals.
thread_local long countdown = 0;  // the allocation that throws; 0: none
thread_local bool fired = false;
thread_local bool counting = false;
thread_local bool recording = false;
std::atomic<long> live_counted{0};
// Bytes of the blocks freed while recording, each followed by a NUL.
std::string* graveyard = nullptr;

struct alignas(std::max_align_t) BlockHeader {
  size_t size;
  bool counted;
};

void* Allocate(size_t size, bool nothrow) {
  if (countdown > 0 && --countdown == 0) {
    fired = true;
    if (nothrow) return nullptr;
    throw std::bad_alloc();
  }
  auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
  if (header == nullptr) return nothrow ? nullptr : throw std::bad_alloc();
  // Nothing of a block's last owner is left in it: what the search finds,
  // this owner wrote.
  std::memset(header + 1, 0xA5, size);
  *header = {size, counting};
  if (counting) ++live_counted;
  return header + 1;
}

void Release(void* block) {
  if (block == nullptr) return;
  BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
  if (recording) {
    recording = false;  // the graveyard's own growth isn't recorded
    graveyard->append(static_cast<const char*>(block), header->size).push_back('\0');
    recording = true;
  }
  if (header->counted) --live_counted;
  std::free(header);
}

void* AllocateAligned(size_t size, std::align_val_t align, bool nothrow) {
  size_t a = static_cast<size_t>(align);
  void* block = std::aligned_alloc(a, (size + a - 1) / a * a);
  return block != nullptr || nothrow ? block : throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size, false); }
void* operator new[](size_t size) { return Allocate(size, false); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, size_t) noexcept { Release(block); }
void operator delete[](void* block, size_t) noexcept { Release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { Release(block); }
// Over-aligned blocks go to the C library untouched.
void* operator new(size_t size, std::align_val_t a) { return AllocateAligned(size, a, false); }
void* operator new[](size_t size, std::align_val_t a) { return AllocateAligned(size, a, false); }
void* operator new(size_t size, std::align_val_t a, const std::nothrow_t&) noexcept { return AllocateAligned(size, a, true); }
void* operator new[](size_t size, std::align_val_t a, const std::nothrow_t&) noexcept { return AllocateAligned(size, a, true); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { std::free(block); }

namespace Vantrel::Auth::testing {
namespace {

// Letters and digits only, the same escaped or not. A wrong one shares the
// right one's prefix, which is what the search looks for.
constexpr char kAccountPassword[] = "Pw4Allocation7Zeta";
constexpr char kWrongPassword[] = "Pw4Allocation7Wrong";
constexpr char kPasswordPrefix[] = "Pw4Allocation7";
constexpr char kClientId[] = "3f6b9c2e-8d41-4a7e-b0c5-1e2d3f4a5b6c";
constexpr long kMostRuns = 20000;  // a sign-in needs far fewer

// What the flows start from, made by sign-ins outside the measurement.
struct Prepared {
  std::string ca_file, adfs_rstr, token_rstr, forged_rstr, certificate_file, key_file;
};

struct Flow {
  const char* name;
  bool entra;  // the Entra ID world rather than the SharePoint one
  // `good` false: a wrong password or client, or a token nobody issued.
  std::function<AuthResult(AuthEngine&, const Prepared&, bool good)> sign_in;
};
void PrintTo(const Flow& flow, std::ostream* out) { *out << flow.name; }

template <typename Authenticator>
Authenticator* Trusting(Authenticator* authenticator, const Prepared& p) {
  authenticator->SetCaFile(p.ca_file.c_str());
  return authenticator;
}
const char* Password(bool good) { return good ? kAccountPassword : kWrongPassword; }

const Flow kFlows[] = {
    {"Forms", false, [](AuthEngine& e, const Prepared& p, bool good) {
       return Trusting(e.SharePointFba(), p)->Authenticate(kFormsSite, "alice", Password(good));
     }},
    {"AdfsByUser", false, [](AuthEngine& e, const Prepared& p, bool good) {
       return Trusting(e.Adfs(), p)->AuthenticateByUser(kAdfsServer, kTrustRealm, kFederatedUser, Password(good));
     }},
    {"SharePointAdfsByRstr", false, [](AuthEngine& e, const Prepared& p, bool good) {
       // The forms site has no trust endpoint: the RSTR goes out and is refused.
       return Trusting(e.SharePointAdfs(), p)->AuthenticateByRstr(good ? kTrustSite : kFormsSite, p.adfs_rstr.c_str());
     }},
    {"Office365RealmAndToken", false, [](AuthEngine& e, const Prepared& p, bool good) {
       CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential(kManagedUser, Password(good)));
       return Trusting(e.Office365(), p)->Authenticate(kSite, user.get());
     }},
    {"SharePointOnline", false, [](AuthEngine& e, const Prepared& p, bool good) {
       CredentialPtr token(CredentialFactory::CreateCredentialFromRstr(good ? p.token_rstr : p.forged_rstr));
       return Trusting(e.SharePointOffice365(), p)->Authenticate(kSite, token.get());
     }},
    {"FederatedChain", false, [](AuthEngine& e, const Prepared& p, bool good) {
       SharePointOffice365AuthNamespace kind = kAuthNamespaceUnknown;
       std::string server;
       AuthResult step = Trusting(e.SharePointOffice365(), p)->GetAuthTarget(kFederatedUser, kind, server);
       CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential(kFederatedUser, Password(good)));
       Adfs* adfs = Trusting(e.Adfs(), p);
       if (step == kAuthResultOk) step = adfs->Authenticate(server.c_str(), kOnlineRealm, user.get());
       if (step != kAuthResultOk) return step;
       CredentialPtr assertion(CredentialFactory::CreateCredentialFromRstr(RstrOf(*adfs)));  // wiped by the factory
       return Trusting(e.Office365(), p)->Authenticate("https://fabrikam.sharepoint.com/sites/sales", assertion.get());
     }},
    {"EntraCertificate", true, [](AuthEngine& e, const Prepared& p, bool good) {
       EntraId* entra = Trusting(e.EntraId(), p);
       entra->SetClientId(good ? kClientId : "00000000-0000-0000-0000-000000000000");
       return entra->AuthenticateWithCertificate(kSite, p.certificate_file.c_str(), p.key_file.c_str(), nullptr);
     }},
};

struct LogFailure {};
thread_local long log_countdown = 0;
void ThrowingLog(VantrelAuthLogLevel, const char*) {
  if (log_countdown > 0 && --log_countdown == 0) throw LogFailure();
}
void QuietLog(VantrelAuthLogLevel, const char*) {}

// What of a secret to look for: a short one whole; of a signed token the
// signature's end, as header and claims prove nothing; else middle and end.
void AddSlices(const std::string& secret, std::vector<std::string>* out) {
  if (secret.size() <= 32) return out->push_back(secret);
  if (std::count(secret.begin(), secret.end(), '.') != 2) out->push_back(secret.substr(secret.size() / 2 - 12, 24));
  out->push_back(secret.substr(secret.size() - 24));
}

class SignInFailureTest : public OnlineTest, public ::testing::WithParamInterface<Flow> {
 protected:
  void SetUp() override {
    OnlineTest::SetUp();
    engine_.reset();
    prepared_.ca_file = emulator_.CaFile();
    GetParam().entra ? InstallEntraWorld() : InstallSharePointWorld();
    AuthEngineConfig::SetLoggerCallback(&QuietLog);  // the logger exists before any measurement
  }
  void TearDown() override {
    AuthEngineConfig::SetLoggerCallback(nullptr);
    AuthEngineConfig::SetLogLevel(kLogLevelOff);
    OnlineTest::TearDown();
  }

  void InstallSharePointWorld() {
    EveryFlowSites sites = InstallEveryFlowSites(kAccountPassword);
    fabrikam_ = sites.fabrikam;
    adfs_ = sites.adfs;
    trust_ = sites.trust;
    fba_ = sites.fba;

    AuthEngine engine;  // AdfsByUser and Office365RealmAndToken give the tokens
    ASSERT_EQ(kFlows[1].sign_in(engine, prepared_, true), kAuthResultOk);
    prepared_.adfs_rstr = RstrOf(*engine.Adfs());
    ASSERT_EQ(kFlows[3].sign_in(engine, prepared_, true), kAuthResultOk);
    prepared_.token_rstr = prepared_.forged_rstr = RstrOf(*engine.Office365());
    prepared_.forged_rstr.replace(prepared_.forged_rstr.find("t=EwBg"), 6, "t=EwBh");
  }

  void InstallEntraWorld() {
    const TestCertificates& keys = TestCertificates::Shared();
    prepared_.certificate_file = keys.cert_pem;
    prepared_.key_file = keys.key_pem;
    Emulation::EntraServiceOptions options;
    options.applications = {{kClientId, TestCertificates::ReadFile(keys.cert_pem), ""}};
    entra_ = Emulation::InstallEntraService(&emulator_, options);
    Emulation::InstallEntraSite(&emulator_, {}, entra_);
  }

  AuthResult SignIn(AuthEngine& engine, bool good = true) { return GetParam().sign_in(engine, prepared_, good); }

  // Arms a failure at the k-th event for k = 1, 2, ... until a sign-in ends
  // without it; each run must return or throw `Failure`. Then one more
  // sign-in on the same engine, and nothing the runs allocated may be left.
  template <typename Failure>
  void FailEachInTurn(const std::function<void(long)>& arm, const std::function<bool()>& disarm) {
    const long live_before = live_counted;
    long k = 1;
    counting = true;
    {
      AuthEngine engine;
      for (bool failed = true; failed && k < kMostRuns; ++k) {
        arm(k);
        AuthResult result = kAuthResultOk;
        try {
          result = SignIn(engine);
        } catch (const Failure&) {
        }
        failed = disarm();
        if (!failed) {
          EXPECT_EQ(result, kAuthResultOk) << "after " << k << " runs";
        }
      }
      EXPECT_EQ(SignIn(engine), kAuthResultOk);
    }
    counting = false;
    EXPECT_LT(k, kMostRuns);
    EXPECT_EQ(live_counted.load(), live_before);
#ifdef VANTREL_TEST_ASAN
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
    RecordProperty("runs", static_cast<int>(k - 1));
  }

  // What no freed block may hold. At debug level the log lines carry tokens,
  // cookies and bodies by design; passwords never. Not Entra ID's access
  // tokens: nlohmann's parser copies what it reads into buffers of its own,
  // which it frees unwiped.
  std::vector<std::string> Secrets(bool with_tokens) const {
    std::vector<std::string> tokens, secrets = {kPasswordPrefix};
    if (with_tokens && GetParam().entra) {
      for (const Emulation::Request& request : emulator_.Requests()) {
        size_t at = request.body.find("client_assertion=");
        if (at != std::string::npos) tokens.push_back(request.body.substr(at + 17, request.body.find('&', at) - at - 17));
      }
      std::string key = TestCertificates::ReadFile(prepared_.key_file);
      tokens.push_back(key.substr(key.find('\n') + 1, 64));
    } else if (with_tokens) {
      for (const auto& sessions : {fba_->IssuedTokens(), trust_->IssuedTokens(), site_->IssuedCookies(), fabrikam_->IssuedCookies()}) {
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

  void ExpectNoSecretFreed(const char* when, bool with_tokens) const {
    std::string found;
    for (const std::string& secret : Secrets(with_tokens)) {
      if (graveyard->find(secret) != std::string::npos) found += " [" + secret + "]";
    }
    graveyard->clear();
    EXPECT_EQ(found, "") << when << ": freed unwiped";
  }

  Prepared prepared_;
  std::shared_ptr<Emulation::FbaSiteState> fba_;
  std::shared_ptr<Emulation::TrustSiteState> trust_;
  std::shared_ptr<Emulation::AdfsServerState> adfs_;
  std::shared_ptr<Emulation::OnlineSiteState> fabrikam_;
  std::shared_ptr<Emulation::EntraServiceState> entra_;
};

// At debug level, so that the request and response dumps allocate too.
TEST_P(SignInFailureTest, EachAllocationFailsInTurn) {
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);
  FailEachInTurn<std::bad_alloc>([](long n) { countdown = n, fired = false; },
                                 [] { return countdown = 0, fired; });
}

TEST_P(SignInFailureTest, LogCallbackThrowsAtEachCall) {
  AuthEngineConfig::SetLoggerCallback(&ThrowingLog);
  AuthEngineConfig::SetLogLevel(kLogLevelDebug);
  FailEachInTurn<LogFailure>([](long k) { log_countdown = k; },
                             [] { return log_countdown == 0 || (log_countdown = 0, false); });
}

TEST_P(SignInFailureTest, NoSecretLeftInFreedMemory) {
  static std::string freed;
  freed.reserve(64 << 20);
  graveyard = &freed;
  for (VantrelAuthLogLevel level : {kLogLevelOff, kLogLevelDebug}) {
    AuthEngineConfig::SetLogLevel(level);
    recording = true;
    {
      AuthEngine engine;
      AuthResult first = SignIn(engine), second = SignIn(engine), refused = SignIn(engine, false);
      recording = false;
      EXPECT_EQ(first, kAuthResultOk);
      EXPECT_EQ(second, kAuthResultOk);  // which reset the first one's results
      EXPECT_NE(refused, kAuthResultOk);
      ExpectNoSecretFreed("sign-ins", level == kLogLevelOff);
      recording = true;
    }
    recording = false;
    ExpectNoSecretFreed("engine's end", level == kLogLevelOff);
  }
}

INSTANTIATE_TEST_SUITE_P(EverySignIn, SignInFailureTest, ::testing::ValuesIn(kFlows),
                         [](const ::testing::TestParamInfo<Flow>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace Vantrel::Auth::testing

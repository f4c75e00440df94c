// Servers that go quiet in each phase of a request, met by each kind of sign-in. An attempt ends
// when its time-out runs out, or within a second of AuthEngine::Cancel from another thread, with
// its result and detail, and leaves no thread or descriptor behind. The bounds are those of a
// plain build, stretched by TimingSlack() under the sanitizers and valgrind.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/Authenticators.h"
#include "support/EmulatorTest.h"
#include "support/TimingSlack.h"

namespace Vantrel::Auth::testing {
namespace {

using Clock = std::chrono::steady_clock;
using Emulation::Emulator;
using Emulation::Response;
using Outcome = std::pair<AuthResult, std::string>;  // and the detail

// 1 s to connect, 2 s per request: unequal, so that naming the wrong one shows.
const std::string kByConnect = "Connect time-out of 1 s reached: ", kByRequest = "Request time-out of 2 s reached: ";
const std::string kRstr = "<t:RequestSecurityTokenResponse xmlns:t=\"urn:trust\"><wsse:BinarySecurityToken>t=EwB"
                          "</wsse:BinarySecurityToken></t:RequestSecurityTokenResponse>";

// Every answer closes its connection: the engine pools none, so descriptors add up at once.
Response Closing(Response response) {
  response.close_connection = true;
  return response;
}
const Response kToken = Closing(Response::Text(200, kRstr, "application/soap+xml"));
const Response kNoRedirect = Closing(Response::Text(200, "no redirect"));
const Response kSilent = [] { Response silent; silent.never_answer = true; return silent; }();

Outcome Ran(const AuthBase& authenticator, AuthResult result) { return {result, Detail(authenticator)}; }
const char* Proxied(Emulator& server, AuthBase* authenticator) {
  AuthEngineConfig::SetProxy(server.ProxyUrl().c_str());
  authenticator->SetCaFile(server.CaFile().c_str());
  return "https://contoso.sharepoint.com/sites/team";
}
Outcome Office365SignIn(Emulator& server, AuthEngine& engine) {
  Office365* office365 = engine.Office365();
  office365->SetServer(server.HttpUrl("").c_str());
  CredentialPtr user(CredentialFactory::CreateBasicUsernameCredential("user", "secret"));
  return Ran(*office365, office365->Authenticate(server.HttpUrl("/sites/a").c_str(), user.get()));
}

// What the server does and the sign-in that meets it; when the time-outs end it, the outcome
// (the detail's start) and the seconds it takes, 0 for at once.
struct Stall {
  const char* name;
  std::function<Outcome(Emulator&, AuthEngine&)> sign_in;
  Outcome outcome;
  long seconds;
};
void PrintTo(const Stall& stall, std::ostream* out) { *out << stall.name; }

const Stall kStalls[] = {
    {"NeverAnswers", [](Emulator& server, AuthEngine& engine) {
       server.Enqueue(kSilent);
       return Ran(*engine.SharePointFba(), engine.SharePointFba()->Authenticate(server.HttpUrl("/").c_str(), "u", "p"));
     }, {kAuthResultSendFailed, kByRequest}, 2},
    {"AnswersAByteASecond", [](Emulator& server, AuthEngine& engine) {
       Response trickled = kToken;
       trickled.byte_interval = std::chrono::seconds(1);
       server.Enqueue(trickled);
       return Ran(*engine.Adfs(), engine.Adfs()->AuthenticateByUser(server.HttpUrl("/").c_str(), "urn:x", "u", "p"));
     }, {kAuthResultSendFailed, kByRequest}, 2},
    {"StopsInTheTlsHandshake", [](Emulator& server, AuthEngine& engine) {
       server.StallTlsHandshakes(true);
       engine.SharePointFba()->SetCaFile(server.CaFile().c_str());
       return Ran(*engine.SharePointFba(), engine.SharePointFba()->Authenticate(server.HttpsUrl("/").c_str(), "u", "p"));
     }, {kAuthResultSendFailed, kByConnect}, 1},
    {"ProxyNeverOpensTheTunnel", [](Emulator& server, AuthEngine& engine) {
       server.Route("CONNECT", "", "", [](const Emulation::Request&) { return kSilent; });
       EntraId* entra = engine.EntraId();
       entra->SetClientId("3f6b9c2e-8d41-4a7e-b0c5-1e2d3f4a5b6c");
       return Ran(*entra, entra->AuthenticateWithClientSecret(Proxied(server, entra), "secret"));
     }, {kAuthResultSendFailed, kByConnect}, 1},
    // Advice that never comes: once its time-out has run out the sign-in goes on without it, but
    // a Cancel while it waits ends the whole attempt.
    {"RealmProbeNeverAnswered", [](Emulator& server, AuthEngine& engine) {
       for (const Response& answer : {kSilent, kToken}) server.Enqueue(answer);
       return Office365SignIn(server, engine);
     }, {kAuthResultOk, ""}, 2},
    {"GetUserRealmNeverAnswered", [](Emulator& server, AuthEngine& engine) {
       server.Enqueue(kSilent);
       SharePointOffice365* online = engine.SharePointOffice365();
       Proxied(server, online);
       SharePointOffice365AuthNamespace type;
       std::string url;
       return Ran(*online, online->GetAuthTarget("adele@contoso.com", type, url));
     }, {kAuthResultInternalError, "Could not find Office 365 Auth Namespace Type"}, 2},
    // The framing alone tells that an answer is whole: nothing waits for the close.
    {"HoldsTheConnectionAfterEachAnswer", [](Emulator& server, AuthEngine& engine) {
       for (Response answer : {kNoRedirect, kToken}) {
         answer.hold_after_answer = true;
         server.Enqueue(answer);
       }
       return Office365SignIn(server, engine);
     }, {kAuthResultOk, ""}, 0},
};

class StalledServerTest : public EmulatorTest, public ::testing::WithParamInterface<std::tuple<Stall, bool>> {
 protected:
  void TearDown() override {
    AuthEngineConfig::SetProxy(nullptr);
    AuthEngineConfig::SetConnectTimeout(0);  // back to the defaults: none
    AuthEngineConfig::SetRequestTimeout(0);
    EmulatorTest::TearDown();
  }
};

std::pair<long, long> DescriptorsAndThreads() {
  auto count = [](const char* folder) {
    return static_cast<long>(std::distance(std::filesystem::directory_iterator(folder), {}));
  };
  return {count("/proc/self/fd"), count("/proc/self/task")};
}

TEST_P(StalledServerTest, EndsInTimeWithItsResultAndLeavesNothingBehind) {
  const auto& [stall, by_cancel] = GetParam();
  const std::chrono::duration<double> second(TimingSlack());
  // A Cancel needs no time-out: those cases run with none, as by default.
  AuthEngineConfig::SetConnectTimeout(by_cancel ? 0 : 1);
  AuthEngineConfig::SetRequestTimeout(by_cancel ? 0 : 2);
  const auto before = DescriptorsAndThreads();

  // Cancels 300 ms in; when the time-outs are to end it, only if they fail to, so that such a
  // fault fails the test instead of hanging it.
  const Clock::time_point started = Clock::now();
  const Clock::time_point cancel_at = started + std::chrono::duration_cast<Clock::duration>(
      by_cancel ? std::chrono::duration<double>(0.3) : std::chrono::seconds(stall.seconds) + 5 * second);
  std::atomic<bool> over{false};
  Clock::time_point cancelled = Clock::time_point::max();
  std::thread canceller([&] {
    while (!over && Clock::now() < cancel_at) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (over) return;
    cancelled = Clock::now();
    engine_->Cancel();
  });
  const Outcome outcome = stall.sign_in(emulator_, *engine_);
  const Clock::time_point ended = Clock::now();
  over = true;
  canceller.join();

  if (by_cancel) {
    EXPECT_EQ(outcome, Outcome(kAuthResultCancelled, "The sign-in was cancelled."));
    // Half the promise: libcurl's own wake, once a second, must not pass for it.
    EXPECT_LT(ended - cancelled, 0.5 * second);
  } else {
    EXPECT_EQ(outcome.first, stall.outcome.first);
    EXPECT_EQ(outcome.second.substr(0, stall.outcome.second.size()), stall.outcome.second) << outcome.second;
    if (stall.outcome.first == kAuthResultOk) { EXPECT_EQ(outcome.second, ""); }
    // libcurl's clock is not quite ours: it may see a second end a hair early.
    EXPECT_GE(ended - started, std::chrono::seconds(stall.seconds) - std::chrono::milliseconds(20));
    EXPECT_LT(ended - started, std::chrono::seconds(stall.seconds) + second);
  }
  // The emulator's connection threads end once the client has gone. Fewer is
  // fine: a connection libcurl kept from before may have been closed.
  auto after = DescriptorsAndThreads();
  auto left_behind = [&] { return after.first > before.first || after.second > before.second; };
  for (auto until = Clock::now() + 2 * second; left_behind() && Clock::now() < until; after = DescriptorsAndThreads()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_FALSE(left_behind()) << "descriptors, threads: " << before.first << ", " << before.second << " before, "
                              << after.first << ", " << after.second << " after";
}

std::vector<std::tuple<Stall, bool>> Ends() {  // a server that doesn't stall leaves nothing to cancel
  std::vector<std::tuple<Stall, bool>> all;
  for (const Stall& stall : kStalls) {
    for (bool by_cancel : {false, true}) {
      if (!by_cancel || stall.seconds > 0) all.emplace_back(stall, by_cancel);
    }
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Servers, StalledServerTest, ::testing::ValuesIn(Ends()),
                         [](const ::testing::TestParamInfo<std::tuple<Stall, bool>>& info) {
                           return std::string(std::get<0>(info.param).name) +
                                  (std::get<1>(info.param) ? "_ByCancel" : "_ByTimeOut");
                         });

}  // namespace
}  // namespace Vantrel::Auth::testing

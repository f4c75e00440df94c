// What hostile answers cost: time and peak memory of each case of
// tests/authenticators/HostileServerTest.cc against the emulator, and the
// growth of every search over a body with the body's size (1, 4, 16, 64 MB),
// for the shapes that make a backtracking search do the most work.
//
//   build/bench/bench_hostile --benchmark_filter=Curve
//   build/bench/bench_hostile --benchmark_filter=Server
//
// "peak_MB" is the process's peak resident memory while the case ran, the
// emulator's copy of the body included, and "added_MB" its growth over what
// was resident when the case began; "MB/s" is body bytes searched per second. Masking by the two searches that define it is measured too, on
// smaller texts, for comparison with the linear scan that replaced it.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "VantrelAuthEngine64/Adfs.h"
#include "VantrelAuthEngine64/AuthEngine.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "VantrelAuthEngine64/CredentialFactory.h"
#include "VantrelAuthEngine64/NetworkConfig.h"
#include "VantrelAuthEngine64/Office365.h"
#include "VantrelAuthEngine64/SharePointFba.h"
#include "VantrelAuthEngine64/SharePointOffice365.h"
#include "base/StringUtil.h"
#include "emulator/Emulator.h"
#include "network/NetscapeCookie.h"
#include "support/HostileBodies.h"
#include "text/RegexUtil.h"

namespace {

using namespace Vantrel::Auth;
using Vantrel::Auth::testing::Filler;
using Vantrel::Auth::testing::kMegabyte;
using Vantrel::Auth::testing::Measure;
using Vantrel::Auth::testing::Repeat;
using Vantrel::Emulation::Emulator;
using Vantrel::Emulation::Response;

const char kRstrPattern[] =
    "(<[^<]*RequestSecurityTokenResponse[^>]*>[^]+</[^<]*RequestSecurityTokenResponse[^>]*>)";
const char kTokenPattern[] =
    "<[^<]*BinarySecurityToken[^>]*>(t=[^]+)</[^<]*BinarySecurityToken[^>]*>";
const char kAssertionPattern[] = "(<[A-z]+?:Assertion.*?>.*?</[A-z]+?:Assertion>)";
const char kNamespacePattern[] = "\"NameSpaceType\":\\s*\"(.+?)\"";

// `unit` repeated up to `size` bytes.
std::string Fill(const std::string& unit, size_t size) { return Repeat(unit, size / unit.size()); }

struct Shape {
  const char* name;
  std::function<std::string(size_t)> body;
  std::function<void(const char*)> search;
};

std::function<void(const char*)> First(const char* pattern) {
  return [pattern](const char* text) {
    char* capture = RegexFirstCapture(text, pattern);
    benchmark::DoNotOptimize(capture);
    StrFree(&capture);
  };
}

std::function<void(const char*)> Element(const char* word) {
  return [word](const char* text) {
    char* capture = ExtractXmlElement(text, word, false);
    benchmark::DoNotOptimize(capture);
    StrFree(&capture);
  };
}

void Mask(const char* text) {
  char* copy = StrDup(text);
  MaskPassword(copy);
  benchmark::DoNotOptimize(copy);
  StrFree(&copy);
}

// The masking as the two searches define it, which the scan replaced.
void MaskBySearches(const char* text) {
  char* prefix = RegexFirstCapture(
      text, "^([^]*<[^<]*[Pp]assword[^>]*>)[^]*</[^<]*[Pp]assword[^>]*>[^]*$");
  char* suffix = RegexFirstCapture(
      text, "^[^]*<[^<]*[Pp]assword[^>]*>[^]*(</[^<]*[Pp]assword[^>]*>[^]*)$");
  benchmark::DoNotOptimize(prefix);
  StrFree(&prefix);
  StrFree(&suffix);
}

const Shape kShapes[] = {
    {"RstrUnclosed", [](size_t n) { return Fill("<t:RequestSecurityTokenResponse", n); },
     First(kRstrPattern)},
    {"RstrUnclosedTags", [](size_t n) { return Fill("<t:RequestSecurityTokenResponse>", n) + "</t:x>"; },
     First(kRstrPattern)},
    {"RstrSpanning",
     [](size_t n) {
       return "<t:RequestSecurityTokenResponse>" + Filler(n) + "</t:RequestSecurityTokenResponse>";
     },
     First(kRstrPattern)},
    {"TokenUnclosed", [](size_t n) { return Fill("<wsse:BinarySecurityToken>t=", n) + "</x>"; },
     First(kTokenPattern)},
    {"TokenBehindFiller",
     [](size_t n) {
       return Filler(n) + "<wsse:BinarySecurityToken>t=x</wsse:BinarySecurityToken>";
     },
     First(kTokenPattern)},
    {"AssertionUnclosed", [](size_t n) { return Fill("<saml:Assertion>", n) + "</saml:Assertion"; },
     First(kAssertionPattern)},
    {"StrSiteUnclosed", [](size_t n) { return Fill("<strSite>", n); }, Element("strSite")},
    {"StrSiteUnclosedEnd", [](size_t n) { return Fill("<strSite x", n) + "></strSite"; },
     Element("strSite")},
    {"StrSiteSpanning", [](size_t n) { return "<strSite>" + Filler(n) + "</strSite>"; },
     Element("strSite")},
    {"NamespaceBehindJson",
     [](size_t n) { return Fill("\"Key\": \"value\",\n", n) + "\"NameSpaceType\":\"Managed\""; },
     First(kNamespacePattern)},
    {"MaskUnclosedTags", [](size_t n) { return Fill("<password>", n); }, Mask},
    {"MaskUnclosedWords", [](size_t n) { return Fill("<password", n) + "<password>x</password>"; },
     Mask},
};

// Keep freed memory for reuse. Otherwise every copy of 32 MB or more gets a
// fresh mapping, whose first touch of each page costs more, on a virtual
// machine, than the search over it: the 64 MB points would measure the kernel.
void RetainFreedMemory() {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 0x7fffffff);
}

// The allocator's defaults again, and the retained memory given back, so that
// resident memory tells what a case needs.
void ReleaseFreedMemory() {
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  mallopt(M_TRIM_THRESHOLD, 128 * 1024);
  malloc_trim(0);
}

void Curve(benchmark::State& state, const Shape* shape) {
  RetainFreedMemory();
  const std::string body = shape->body(static_cast<size_t>(state.range(0)) * kMegabyte);
  for (auto _ : state) shape->search(body.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(body.size()));
}

// The old masking, on texts of 16 to 256 KB: four times the text, sixteen
// times the time.
void CurveMaskBySearches(benchmark::State& state) {
  const std::string body = Fill("<password>", static_cast<size_t>(state.range(0)) * 1024);
  for (auto _ : state) MaskBySearches(body.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(body.size()));
}

void CurveCookieLine(benchmark::State& state) {
  const std::string line = Repeat("\t", static_cast<size_t>(state.range(0))) + "\r";
  for (auto _ : state) {
    Cookie cookie;
    ParseNetscapeCookie(&cookie, line.c_str());
  }
}

// --- the server cases -------------------------------------------------------------

class Server {
 public:
  Server() {
    AuthEngine::GlobalInit();
    emulator_.Start();
    engine_ = std::make_unique<AuthEngine>();
    engine_->Office365()->SetServer(emulator_.HttpUrl("").c_str());
  }
  ~Server() {
    engine_.reset();
    emulator_.Stop();
  }
  std::string Http(const std::string& path) const { return emulator_.HttpUrl(path); }

  Emulator emulator_;
  std::unique_ptr<AuthEngine> engine_;
};

const std::string kRstrOpen = "<t:RequestSecurityTokenResponse>";
const std::string kRstrClose = "</t:RequestSecurityTokenResponse>";
const std::string kTokenRstr = kRstrOpen +
                               "<wsse:BinarySecurityToken>t=x&amp;p=</wsse:BinarySecurityToken>" +
                               kRstrClose;

struct ServerCase {
  const char* name;
  // Queues the answers, then signs in once.
  std::function<void(Server&)> run;
};

void RunAdfs(Server& server, std::string body) {
  server.emulator_.Enqueue(Response::Text(200, std::move(body), "application/soap+xml"));
  server.engine_->Adfs()->AuthenticateByUser(server.Http("/").c_str(), "urn:x", "user", "secret");
}

void RunOffice365(Server& server, std::string token_body, ICredential* credential = nullptr) {
  std::unique_ptr<ICredential> user(CredentialFactory::CreateBasicUsernameCredential("u", "p"));
  server.emulator_.Enqueue(Response::Text(200, "probe"));
  server.emulator_.Enqueue(Response::Text(200, std::move(token_body), "application/soap+xml"));
  server.engine_->Office365()->Authenticate(server.Http("/sites/a").c_str(),
                                            credential != nullptr ? credential : user.get());
}

void RunOnline(Server& server, std::string site_and_web) {
  std::unique_ptr<ICredential> token(CredentialFactory::CreateCredentialFromRstr(kTokenRstr));
  server.emulator_.Enqueue(Response::Text(200, "probe"));
  server.emulator_.Enqueue(Response::Text(200, std::move(site_and_web), "text/xml"));
  server.emulator_.Enqueue(Response::Redirect(302, "/").SetCookie("FedAuth=f; path=/"));
  server.engine_->SharePointOffice365()->Authenticate(server.Http("/sites/a").c_str(), token.get());
}

void RunForms(Server& server, Response response) {
  server.emulator_.Enqueue(std::move(response));
  server.engine_->SharePointFba()->Authenticate(server.Http("/sites/a").c_str(), "user", "secret");
}

const size_t kHuge = 64 * kMegabyte;

const ServerCase kServerCases[] = {
    {"Rstr64MB", [](Server& s) {
       static const std::string body = Filler(kHuge / 2) + kRstrOpen + Filler(kHuge / 2) + kRstrClose;
       RunAdfs(s, body);
     }},
    {"BinaryToken64MB", [](Server& s) {
       static const std::string body = Filler(kHuge) + kTokenRstr;
       RunOffice365(s, body);
     }},
    {"StrSite64MB",
     [](Server& s) {
       static const std::string body = Filler(kHuge) + "<strSite>https://h/x</strSite>";
       RunOnline(s, body);
     }},
    {"FormsBody64MB",
     [](Server& s) {
       static const std::string body = Filler(kHuge);
       RunForms(s, Response::Text(200, body).SetCookie("FedAuth=a; path=/"));
     }},
    {"StrSiteOpenings100k", [](Server& s) { RunOnline(s, Repeat("<strSite>", 100000)); }},
    {"RstrOpenings100k", [](Server& s) { RunAdfs(s, Repeat("<t:RequestSecurityTokenResponse", 100000)); }},
    {"PasswordTagAssertion1MB",
     [](Server& s) {
       std::unique_ptr<ICredential> assertion(CredentialFactory::CreateCredentialFromRstr(
           kRstrOpen + "<saml:Assertion>" + Repeat("<password>", 100000) + "</saml:Assertion>" +
           kRstrClose));
       RunOffice365(s, kTokenRstr, assertion.get());
     }},
    {"HeaderLines10k",
     [](Server& s) {
       Response response = Response::Text(200, "ok");
       for (int i = 0; i < 10000; ++i) response.AddHeader("X-Filler-" + std::to_string(i), "value");
       RunForms(s, std::move(response.SetCookie("FedAuth=h; path=/")));
     }},
    {"SetCookieLines5k",
     [](Server& s) {
       Response response = Response::Text(200, "ok");
       response.SetCookie("FedAuth=c; path=/");
       for (int i = 0; i < 5000; ++i) response.SetCookie("c" + std::to_string(i) + "=v; path=/");
       RunForms(s, std::move(response));
     }},
    {"NulInBodyAndHeader",
     [](Server& s) {
       RunAdfs(s, std::string(1, '\0') + Filler(kMegabyte) + kTokenRstr);
       RunForms(s, Response::Text(200, "ok").AddHeaderLine(std::string("X-N: a") + '\0' + "b"));
     }},
    {"RedirectLoop",
     [](Server& s) {
       std::string loop = s.Http("/loop");
       for (int i = 0; i < AuthEngineConfig::GetMaxRedirect(); ++i) {
         s.emulator_.Enqueue(Response::Redirect(302, loop));
       }
       std::unique_ptr<ICredential> user(CredentialFactory::CreateBasicUsernameCredential("u", "p"));
       s.emulator_.Enqueue(Response::Text(200, kTokenRstr, "application/soap+xml"));
       s.engine_->Office365()->Authenticate(loop.c_str(), user.get());
     }},
    {"Location1MB",
     [](Server& s) {
       s.emulator_.Enqueue(Response::Redirect(302, "/n?wreply=" + Repeat("https%3a%2f%2fx", kMegabyte / 15)));
       std::unique_ptr<ICredential> user(CredentialFactory::CreateBasicUsernameCredential("u", "p"));
       s.emulator_.Enqueue(Response::Text(200, kTokenRstr, "application/soap+xml"));
       s.engine_->Office365()->Authenticate(s.Http("/huge").c_str(), user.get());
     }},
    {"ClosedMidBody",
     [](Server& s) {
       Response response = Response::Text(200, Filler(kMegabyte)).SetCookie("FedAuth=f; path=/");
       response.close_after_body_bytes = 1000;
       RunForms(s, std::move(response));
     }},
};

void ServerCost(benchmark::State& state, const ServerCase* server_case) {
  ReleaseFreedMemory();
  Server server;
  // Once unmeasured: a case builds its body the first time it runs.
  server_case->run(server);
  server.emulator_.ClearRequests();
  double peak = 0;
  double added = 0;
  for (auto _ : state) {
    auto cost = Measure([&] { server_case->run(server); });
    peak = std::max(peak, static_cast<double>(cost.peak_bytes));
    added = std::max(added, static_cast<double>(cost.peak_bytes) - static_cast<double>(cost.start_bytes));
    server.emulator_.ClearRequests();
  }
  state.counters["peak_MB"] = peak / kMegabyte;
  state.counters["added_MB"] = added / kMegabyte;
}

void RegisterAll() {
  for (const Shape& shape : kShapes) {
    benchmark::RegisterBenchmark((std::string("Curve/") + shape.name).c_str(), Curve, &shape)
        ->Arg(1)->Arg(4)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->MinTime(0.2);
  }
  benchmark::RegisterBenchmark("Curve/MaskBySearches_KB", CurveMaskBySearches)
      ->Arg(16)->Arg(32)->Arg(64)->Arg(128)->Unit(benchmark::kMillisecond)->Iterations(1);
  benchmark::RegisterBenchmark("Curve/CookieLineTabs", CurveCookieLine)
      ->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
  for (const ServerCase& server_case : kServerCases) {
    benchmark::RegisterBenchmark((std::string("Server/") + server_case.name).c_str(), ServerCost,
                                 &server_case)
        ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

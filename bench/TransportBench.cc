// What the library adds to the network: each sign-in against the in-process
// emulator on loopback, beside the same requests made with bare libcurl on
// one reused easy handle (see BareCurlClient). "ratio" is library/bare, of
// medians; "conns" counts the connections one steady-state sign-in used, so
// that connection reuse shows, and "requests" the requests it made.
#include <benchmark/benchmark.h>

#include <set>
#include <string>

#include "BareCurlClient.h"
#include "PairedRun.h"
#include "SignInWorld.h"
#include "VantrelAuthEngine64/AuthEngine.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"

namespace Vantrel {
namespace Bench {
namespace {

size_t ConnectionsUsed(const std::vector<Emulation::Request>& requests) {
  std::set<std::uint64_t> ids;
  for (const Emulation::Request& request : requests) ids.insert(request.connection_id);
  return ids.size();
}

void SignInBesideBareCurl(benchmark::State& state, const std::string& name) {
  SignInWorld& world = SignInWorld::Shared();
  const SignInWorld::SignIn& sign_in = world.Find(name);
  Emulation::Emulator& emulator = world.emulator();
  Auth::AuthEngine engine;
  world.Prepare(&engine, sign_in);
  BareCurlClient bare(sign_in.proxied ? emulator.ProxyUrl() : "",
                      sign_in.https ? emulator.CaFile() : "");

  // The first sign-in opens the connections; the second is what every later
  // one looks like, and its requests are the ones bare libcurl makes.
  emulator.ClearRequests();
  bool ready = sign_in.run(&engine);
  emulator.ClearRequests();
  ready = ready && sign_in.run(&engine);
  const std::vector<Emulation::Request> recorded = emulator.Requests();
  bare.Load(recorded);
  emulator.ClearRequests();
  ready = ready && bare.Run() && bare.Run();
  const size_t bare_connections = ConnectionsUsed(emulator.Requests());
  emulator.ClearRequests();
  if (!ready) {
    state.SkipWithError("the sign-in or its bare replay failed before timing");
    for (auto _ : state) {
    }
    return;
  }

  RunPaired(
      state, [&] { return sign_in.run(&engine); }, [&] { return bare.Run(); },
      [&] { emulator.ClearRequests(); });
  state.counters["requests"] = static_cast<double>(recorded.size());
  state.counters["conns"] = static_cast<double>(ConnectionsUsed(recorded));
  state.counters["base_conns"] = static_cast<double>(bare_connections);
  Auth::AuthEngineConfig::SetProxy(nullptr);
}

const bool kRegistered = [] {
  for (const char* name : {"Fba/http", "Fba/https", "AdfsByUser/http", "AdfsByUser/https",
                           "SharePointAdfsByRstr/http", "SharePointAdfsByRstr/https",
                           "OnlineChain/https"}) {
    benchmark::RegisterBenchmark((std::string("SignIn/") + name).c_str(), SignInBesideBareCurl,
                                 std::string(name))
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
}  // namespace Bench
}  // namespace Vantrel

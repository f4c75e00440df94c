// What one forms sign-in costs in memory, and whether an engine that signs in
// over and over keeps what it used. The site answers with one fixed response
// and keeps no state, and the emulator's request log is emptied after every
// sign-in, so the process can grow only through the client.
//
// Counters: "allocs" heap allocations of one sign-in on the calling thread
// (libcurl's and PCRE2's included) and "base_allocs" those of the same request
// made with bare libcurl; "heap_peak_KB" how far that thread's live heap rose
// during one sign-in; "rss_peak_KB" how far the process's resident memory rose
// during one sign-in; "rss_1k_MB" and "rss_10k_MB" resident memory after
// 1,000 and 10,000 sign-ins on one engine, and "growth_KB" the difference.
#include <benchmark/benchmark.h>

#include "AllocationCounter.h"
#include "BareCurlClient.h"
#include "SignInWorld.h"
#include "VantrelAuthEngine64/AuthEngine.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"
#include "support/HostileBodies.h"

namespace Vantrel {
namespace Bench {
namespace {

using Auth::testing::PeakResidentBytes;
using Auth::testing::ResetPeakResident;
using Auth::testing::ResidentBytes;

constexpr double kKilobyte = 1024;
constexpr double kMegabyte = 1024 * 1024;

void FbaSignInMemory(benchmark::State& state) {
  SignInWorld& world = SignInWorld::Shared();
  Emulation::Emulator& emulator = world.emulator();
  Auth::AuthEngineConfig::SetProxy(nullptr);
  Auth::AuthEngine engine;
  int signed_in = 0;
  auto sign_in = [&] {
    bool ok = world.FixedFbaSignIn(&engine);
    emulator.ClearRequests();
    signed_in += ok ? 1 : 0;
    return ok;
  };

  for (auto _ : state) {
    // Past the first connection and the first of every allocation pool.
    for (int i = 0; i < 100; ++i) sign_in();
    world.FixedFbaSignIn(&engine);
    BareCurlClient bare("", "");
    bare.Load(emulator.Requests());
    emulator.ClearRequests();
    bare.Run();

    size_t allocations = 0, heap_peak = 0, bare_allocations = 0;
    {
      AllocationCounter counter;
      sign_in();
      allocations = counter.allocations();
      heap_peak = counter.peak_bytes();
    }
    {
      AllocationCounter counter;
      bare.Run();
      bare_allocations = counter.allocations();
    }
    emulator.ClearRequests();

    ResetPeakResident();
    const size_t before = ResidentBytes();
    sign_in();
    const size_t rss_peak = PeakResidentBytes() - before;

    while (signed_in < 1000) sign_in();
    const size_t rss_1k = ResidentBytes();
    while (signed_in < 10000) sign_in();
    const size_t rss_10k = ResidentBytes();

    state.counters["allocs"] = static_cast<double>(allocations);
    state.counters["base_allocs"] = static_cast<double>(bare_allocations);
    state.counters["heap_peak_KB"] = static_cast<double>(heap_peak) / kKilobyte;
    state.counters["rss_peak_KB"] = static_cast<double>(rss_peak) / kKilobyte;
    state.counters["rss_1k_MB"] = static_cast<double>(rss_1k) / kMegabyte;
    state.counters["rss_10k_MB"] = static_cast<double>(rss_10k) / kMegabyte;
    state.counters["growth_KB"] =
        (static_cast<double>(rss_10k) - static_cast<double>(rss_1k)) / kKilobyte;
  }
  if (signed_in < 10000) state.SkipWithError("a sign-in failed");
}

BENCHMARK(FbaSignInMemory)->Name("Memory/FbaSignIn")->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Bench
}  // namespace Vantrel

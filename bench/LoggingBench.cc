// What logging costs a forms sign-in, against a sign-in with the level at 0
// and no callback. "Off": the level at 0 with a callback installed; the ratio
// should be 1 within noise. "Debug": every line handed to a callback that
// reads each text once, the request and response dumps and libcurl's verbose
// text (through a temporary directory) included.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <unistd.h>

#include "PairedRun.h"
#include "SignInWorld.h"
#include "VantrelAuthEngine64/AuthEngine.h"
#include "VantrelAuthEngine64/AuthEngineConfig.h"

namespace Vantrel {
namespace Bench {
namespace {

using Auth::VantrelAuthLogLevel;
using Auth::kLogLevelDebug;
using Auth::kLogLevelOff;

size_t logged_bytes = 0;

void ReadLine(VantrelAuthLogLevel, const char* text) { logged_bytes += std::strlen(text); }

void SignInWithLogging(benchmark::State& state, VantrelAuthLogLevel level) {
  SignInWorld& world = SignInWorld::Shared();
  const SignInWorld::SignIn& sign_in = world.Find("Fba/http");
  // The transport picks its verbose log file when it is made.
  char log_dir[] = "/tmp/vantrel-bench-XXXXXX";
  const bool have_dir = mkdtemp(log_dir) != nullptr;
  if (have_dir) Auth::AuthEngineConfig::SetTempLogDir(log_dir);
  auto engine = std::make_unique<Auth::AuthEngine>();
  world.Prepare(engine.get(), sign_in);
  auto with_callback = [&] {
    Auth::AuthEngineConfig::SetLogLevel(level);
    Auth::AuthEngineConfig::SetLoggerCallback(&ReadLine);
    return sign_in.run(engine.get());
  };
  auto without = [&] {
    Auth::AuthEngineConfig::SetLogLevel(kLogLevelOff);
    Auth::AuthEngineConfig::SetLoggerCallback(nullptr);
    return sign_in.run(engine.get());
  };
  if (!without()) state.SkipWithError("the sign-in failed");
  logged_bytes = 0;
  RunPaired(state, with_callback, without, [&] { world.emulator().ClearRequests(); });
  state.counters["log_bytes"] =
      benchmark::Counter(static_cast<double>(logged_bytes), benchmark::Counter::kAvgIterations);
  Auth::AuthEngineConfig::SetLoggerCallback(nullptr);
  Auth::AuthEngineConfig::SetLogLevel(kLogLevelOff);
  Auth::AuthEngineConfig::SetTempLogDir(nullptr);
  engine.reset();  // removes its log file
  if (have_dir) rmdir(log_dir);
}

BENCHMARK_CAPTURE(SignInWithLogging, Off, kLogLevelOff)
    ->Name("Logging/Off/Fba/http")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(SignInWithLogging, Debug, kLogLevelDebug)
    ->Name("Logging/Debug/Fba/http")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace Bench
}  // namespace Vantrel

// How much slower than a plain build this test program runs. A test that proves "within a
// second" bounds by a second times this: exact on a plain build, loose enough for the sanitizers
// and valgrind that CI runs it under.
#pragma once

#include <cstdlib>
#include <cstring>

namespace Vantrel::Auth::testing {

inline double TimingSlack() {
  const char* preload = std::getenv("LD_PRELOAD");  // valgrind preloads libraries of its own
  if (preload != nullptr && std::strstr(preload, "vgpreload") != nullptr) return 10;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return 3;
#elif defined(__has_feature)
  return __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ? 3 : 1;
#else
  return 1;
#endif
}

}  // namespace Vantrel::Auth::testing

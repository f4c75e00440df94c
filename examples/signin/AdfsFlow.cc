#include <cstdio>

#include "Flows.h"

int RunAdfs(const Options&) {
  std::fprintf(stderr, "signin: this flow is not available yet\n");
  return 2;
}

#include <cstdio>
#include <cstdlib>

#include "bench/backend.h"

void bench::Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "%s failed\n", what);
  std::exit(1);
}

// The workloads: what is prepared, what is timed, and how many operations that is.
#pragma once

#include <string>
#include <vector>

#include "bench/backend.h"

namespace bench {

struct Workload {
  const char* name;
  const char* operation;  // what one operation is
  size_t operations;
  void (*prepare)(Backend&);  // leaves the volume mounted
  void (*run)(Backend&);
  void (*finish)(Backend&);  // leaves it unmounted
  bool remounts;             // for those only that keep what is unmounted
};

const std::vector<Workload>& Workloads();

}  // namespace bench

// A host for the library that keeps its one file in memory and writes down every call.
#pragma once

#include "bench/trace.h"

namespace bench {

// Where calls go from now on; null: nowhere.
void RecordCalls(std::vector<Call>* calls);

}  // namespace bench

// A trace: the container calls of one workload, in their order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

enum class Access : std::uint32_t { kRead, kWrite, kFlush, kOpen, kClose, kCreate };

struct Call {
  Access access;
  std::uint32_t position;
  std::uint32_t count;
};

struct Trace {
  std::vector<Call> prepared;  // the writes and nothing else of what went before
  std::vector<Call> timed;
};

Trace LoadTrace(const std::string& path);
void SaveTrace(const std::string& path, const Trace& trace);

}  // namespace bench

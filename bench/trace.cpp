#include "bench/trace.h"

#include <fstream>

#include "bench/backend.h"

namespace bench {
namespace {

void Put(std::ofstream& file, const std::vector<Call>& calls) {
  const std::uint64_t count = calls.size();
  file.write(reinterpret_cast<const char*>(&count), sizeof count);
  file.write(reinterpret_cast<const char*>(calls.data()), static_cast<std::streamsize>(count * sizeof(Call)));
}

std::vector<Call> Get(std::ifstream& file) {
  std::uint64_t count = 0;
  file.read(reinterpret_cast<char*>(&count), sizeof count);
  std::vector<Call> calls(file ? count : 0);
  file.read(reinterpret_cast<char*>(calls.data()), static_cast<std::streamsize>(calls.size() * sizeof(Call)));
  return calls;
}

}  // namespace

Trace LoadTrace(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  Trace trace;
  trace.prepared = Get(file);
  trace.timed = Get(file);
  Require(file.good(), "loading a trace");
  return trace;
}

void SaveTrace(const std::string& path, const Trace& trace) {
  std::ofstream file(path, std::ios::binary);
  Put(file, trace.prepared);
  Put(file, trace.timed);
  Require(file.flush().good(), "saving a trace");
}

}  // namespace bench

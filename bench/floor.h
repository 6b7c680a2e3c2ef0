// The floor: the container calls of a workload on a plain file or plain memory, one system call or one copy each, with
// no file system at all.
#pragma once

#include "bench/trace.h"

namespace bench {

class Floor {
 public:
  Floor(const std::string& trace, bool inMemory);
  ~Floor();
  Floor(const Floor&) = delete;
  Floor& operator=(const Floor&) = delete;

  // Makes what the workload found; then its own calls, once.
  void Prepare();
  void Run();

 private:
  void RunOnFile(const std::vector<Call>& calls);
  void RunInMemory(const std::vector<Call>& calls);

  Trace trace_;
  bool inMemory_;
  int file_ = -1;
  std::vector<char> memory_;
  std::vector<char> buffer_;
};

}  // namespace bench

#include "bench/floor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "bench/backend.h"

namespace bench {
namespace {

constexpr char kFile[] = "bench.floor";
constexpr size_t kLongestCall = 8192;

}  // namespace

Floor::Floor(const std::string& trace, bool inMemory)
    : trace_(LoadTrace(trace)), inMemory_(inMemory), buffer_(kLongestCall, 'x') {
  if (!inMemory) return;
  size_t size = 0;
  for (const std::vector<Call>* calls : {&trace_.prepared, &trace_.timed}) {
    for (const Call& call : *calls) size = std::max(size, size_t{call.position} + call.count);
  }
  memory_.assign(size, 'y');
}

Floor::~Floor() {
  if (file_ >= 0) close(file_);
  std::remove(kFile);
}

void Floor::Prepare() {
  if (inMemory_) return;
  if (file_ >= 0) close(file_);
  file_ = open(kFile, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  Require(file_ >= 0, "making the plain file");
  RunOnFile(trace_.prepared);
}

void Floor::Run() { inMemory_ ? RunInMemory(trace_.timed) : RunOnFile(trace_.timed); }

void Floor::RunOnFile(const std::vector<Call>& calls) {
  for (const Call& call : calls) {
    const auto count = static_cast<ssize_t>(call.count);
    switch (call.access) {
      case Access::kRead:
        Require(pread(file_, buffer_.data(), call.count, call.position) == count, "reading");
        break;
      case Access::kWrite:
        Require(pwrite(file_, buffer_.data(), call.count, call.position) == count, "writing");
        break;
      case Access::kFlush:
        Require(fdatasync(file_) == 0, "flushing");
        break;
      case Access::kCreate:
      case Access::kOpen:
        if (file_ >= 0) close(file_);
        file_ = open(kFile, O_RDWR | O_CREAT | O_CLOEXEC | (call.access == Access::kCreate ? O_TRUNC : 0), 0600);
        Require(file_ >= 0, "opening");
        break;
      case Access::kClose:
        break;  // by the next open
    }
  }
}

void Floor::RunInMemory(const std::vector<Call>& calls) {
  for (const Call& call : calls) {
    if (call.access == Access::kRead) std::memcpy(buffer_.data(), memory_.data() + call.position, call.count);
    if (call.access == Access::kWrite) std::memcpy(memory_.data() + call.position, buffer_.data(), call.count);
  }
}

}  // namespace bench

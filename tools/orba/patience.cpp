#include "tools/orba/patience.h"

#include <algorithm>
#include <chrono>

#include "mount/unmount.h"
#include "orba.h"
#include "tools/orba/host/host.h"
#include "tools/orba/interrupt.h"

namespace orba::tool {

namespace {

std::int64_t Now() {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

std::optional<std::uint32_t>* WaitOption() {
  static std::optional<std::uint32_t> seconds;
  return &seconds;
}

Patience::Patience() : end_(WaitOption()->value_or(0) == kForever ? INT64_MAX : Now()) {
  if (end_ != INT64_MAX) end_ += std::int64_t{1000} * WaitOption()->value_or(0);
}

bool Patience::WaitMore() {
  const std::int64_t left = end_ == INT64_MAX ? INT64_MAX : end_ - Now();
  if (left <= 0) return false;
  host::Pause(static_cast<int>(std::min<std::int64_t>(left, pause_)));
  CheckInterrupt();
  pause_ = std::min(2 * pause_, 100);
  return true;
}

Failure BusyFailure(const std::string& container, const std::string& holder) {
  Failure failure = LibraryFailure("cannot open " + ShellWord(container), container, ORB_ERROR_CONTAINER_IN_USE);
  if (!holder.empty()) failure.AddAdvice("it is open in " + holder);
  const std::string folder = mount::FolderOf(host::RealPath(container));
  if (!folder.empty()) failure.AddAdvice("it is mounted; unmount it with: orba umount " + ShellWord(folder));
  failure.AddAdvice("wait until it is free with: --wait");
  return failure;
}

}  // namespace orba::tool

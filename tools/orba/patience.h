// How long commands wait for a container that another program has open: --wait. Stands on failure, interrupt and host.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/orba/failure.h"

namespace orba::tool {

constexpr std::uint32_t kForever = UINT32_MAX;

// What --wait was given: seconds, or kForever; nothing without it.
std::optional<std::uint32_t>* WaitOption();

// One wait. Lasts no longer than --wait says, which is not at all without it.
class Patience {
 public:
  Patience();
  // Waits a little before another try. False when it has waited long enough. Throws an Interrupt when a signal comes.
  bool WaitMore();

 private:
  std::int64_t end_;  // milliseconds of the steady clock
  int pause_ = 5;     // milliseconds
};

// "cannot open CONTAINER: another program has the container open", with what that is where the system
// tells, and the folder at which it is mounted.
Failure BusyFailure(const std::string& container, const std::string& holder);

}  // namespace orba::tool

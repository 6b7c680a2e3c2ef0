// A container of the host as what a repair writes to. Stands on host and inspect/.
#pragma once

#include <cstddef>
#include <cstdint>

#include "inspect/repair/apply.h"

namespace orba::tool {

// Calls that a signal interrupts are made again, and short writes continued. Where a call fails, errno says why.
class HostTarget : public inspect::Target {
 public:
  // `descriptor` is open for writing and stays the caller's.
  explicit HostTarget(int descriptor) : descriptor_(descriptor) {}

  bool Write(std::uint64_t offset, const void* bytes, std::size_t count) override;
  bool Cut(std::uint64_t size) override;
  bool Flush() override;

 private:
  int descriptor_;
};

}  // namespace orba::tool

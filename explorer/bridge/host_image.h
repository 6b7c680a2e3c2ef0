// A container that the page reads piece by piece. Stands on host and inspect/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "inspect/container/image.h"

namespace orba::explorer {

// Reads go through a cache of large pages: each one that is missing costs a message between processes of the browser.
class HostImage : public inspect::Image {
 public:
  explicit HostImage(std::uint64_t size);

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override;

 private:
  const std::uint8_t* Page(std::uint64_t page) const;

  static constexpr std::size_t kPageSize = 65536;
  static constexpr std::size_t kPages = 256;
  static constexpr std::uint64_t kNoPage = ~std::uint64_t{0};

  std::uint64_t size_;
  mutable std::vector<std::vector<std::uint8_t>> cache_;  // page p lies in place p mod kPages
  mutable std::vector<std::uint64_t> cached_;             // which page each place holds
};

}  // namespace orba::explorer

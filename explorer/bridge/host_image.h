// A container that the page reads piece by piece. Stands on host and inspect/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "inspect/container/image.h"

namespace orba::explorer {

// Reads go through a cache of pages, 64 MiB of them at most, for each read of the page's costs a message between
// processes of the browser. The map blocks of a large file lie far apart, so any page may lie in any place; pages that
// are read one after the other come many at a time.
class HostImage : public inspect::PagedImage {
 public:
  explicit HostImage(std::uint64_t size) : PagedImage(size, kPageSize) {}

 private:
  const std::uint8_t* Page(std::uint64_t page) const override;
  bool Fetch(std::uint64_t page) const;
  void Keep(std::uint64_t page, const std::uint8_t* bytes, std::size_t count) const;

  static constexpr std::size_t kPageSize = 16384;
  static constexpr std::size_t kPages = 4096;
  static constexpr std::size_t kAhead = 16;  // pages that come at a time when they are read in order

  mutable std::unordered_map<std::uint64_t, std::vector<std::uint8_t>> cache_;  // by page
  mutable std::vector<std::uint64_t> order_;  // the pages of the cache; the oldest lies in place oldest_
  mutable std::size_t oldest_ = 0;
  mutable std::uint64_t next_ = 0;  // the page behind those that were fetched last
  mutable std::vector<std::uint8_t> fetched_;
};

}  // namespace orba::explorer

#include "explorer/bridge/host_image.h"

#include <algorithm>
#include <cstring>

#include "explorer/bridge/host.h"

namespace orba::explorer {

HostImage::HostImage(std::uint64_t size) : size_(size), cache_(kPages), cached_(kPages, kNoPage) {}

bool HostImage::Read(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > size_ || count > size_ - offset) return false;
  auto* to = static_cast<std::uint8_t*>(out);
  while (count > 0) {
    const std::uint8_t* page = Page(offset / kPageSize);
    if (page == nullptr) return false;
    const auto from = static_cast<std::size_t>(offset % kPageSize);
    const std::size_t part = std::min(count, kPageSize - from);
    std::memcpy(to, page + from, part);
    to += part;
    offset += part;
    count -= part;
  }
  return true;
}

// The page's bytes, or null when the browser cannot read them. The last page may be short; Read never looks past the
// end.
const std::uint8_t* HostImage::Page(std::uint64_t page) const {
  const auto place = static_cast<std::size_t>(page % kPages);
  std::vector<std::uint8_t>& bytes = cache_[place];
  if (cached_[place] == page) return bytes.data();
  cached_[place] = kNoPage;
  bytes.resize(kPageSize);
  const std::uint64_t offset = page * kPageSize;
  const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(kPageSize, size_ - offset));
  if (HostRead(static_cast<double>(offset), bytes.data(), count) == 0) return nullptr;
  cached_[place] = page;
  return bytes.data();
}

}  // namespace orba::explorer

#include "explorer/bridge/host_image.h"

#include <algorithm>
#include <cstring>

#include "explorer/bridge/host.h"

namespace orba::explorer {

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
  auto found = cache_.find(page);
  if (found == cache_.end()) {
    if (!Fetch(page)) return nullptr;
    found = cache_.find(page);
  }
  return found->second.data();
}

// Reads the page, and some behind it where pages are read in order and the browser can read them all.
bool HostImage::Fetch(std::uint64_t page) const {
  const std::uint64_t offset = page * kPageSize;
  std::size_t count = 0;
  bool read = false;
  for (std::size_t pages = page == next_ ? kAhead : 1; !read && pages > 0; pages /= kAhead) {
    count = static_cast<std::size_t>(std::min<std::uint64_t>(pages * kPageSize, size_ - offset));
    fetched_.resize(count);
    read = HostRead(static_cast<double>(offset), fetched_.data(), static_cast<std::uint32_t>(count)) != 0;
  }
  if (!read) return false;
  next_ = page;
  for (std::size_t at = 0; at < count; at += kPageSize) {
    Keep(next_++, &fetched_[at], std::min(kPageSize, count - at));
  }
  return true;
}

// Keeps the bytes of a page in place of those that have been kept longest.
void HostImage::Keep(std::uint64_t page, const std::uint8_t* bytes, std::size_t count) const {
  if (!cache_.emplace(page, std::vector<std::uint8_t>(bytes, bytes + count)).second) return;
  if (order_.size() < kPages) {
    order_.push_back(page);
    return;
  }
  cache_.erase(order_[oldest_]);
  order_[oldest_] = page;
  oldest_ = (oldest_ + 1) % kPages;
}

}  // namespace orba::explorer

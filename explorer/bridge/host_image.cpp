#include "explorer/bridge/host_image.h"

#include <algorithm>

#include "explorer/bridge/host.h"

namespace orba::explorer {

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
    count = static_cast<std::size_t>(std::min<std::uint64_t>(pages * kPageSize, Size() - offset));
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

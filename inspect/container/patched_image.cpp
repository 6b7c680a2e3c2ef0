#include "inspect/container/patched_image.h"

#include <algorithm>
#include <cstring>

namespace orba::inspect {

bool PatchedImage::Read(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > size_ || count > size_ - offset) return false;
  auto* to = static_cast<std::uint8_t*>(out);
  while (count > 0) {
    const std::uint64_t from = offset % kPageSize;
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(count, kPageSize - from));
    const auto page = pages_.find(offset / kPageSize);
    if (page != pages_.end()) {
      std::memcpy(to, page->second.data() + from, part);
    } else if (offset + part <= base_.Size()) {
      if (!base_.Read(offset, to, part)) return false;
    } else {
      return false;  // every page past the base's last whole one is laid over when the container grows
    }
    offset += part;
    to += part;
    count -= part;
  }
  return true;
}

void PatchedImage::Write(std::uint64_t offset, const void* bytes, std::size_t count) {
  if (count == 0) return;
  const std::uint64_t first = std::min(offset, size_) / kPageSize;
  const std::uint64_t last = (offset + count - 1) / kPageSize;
  for (std::uint64_t page = first; page <= last; ++page) {
    const auto [place, fresh] = pages_.try_emplace(page);
    if (!fresh) continue;
    place->second.resize(kPageSize);
    const std::uint64_t start = page * kPageSize;
    if (start >= base_.Size()) continue;
    const auto there = static_cast<std::size_t>(std::min(kPageSize, base_.Size() - start));
    base_.Read(start, place->second.data(), there);  // a page that the host cannot read stays zero
  }
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  size_ = std::max(size_, offset + count);
  while (count > 0) {
    const std::uint64_t to = offset % kPageSize;
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(count, kPageSize - to));
    std::memcpy(pages_[offset / kPageSize].data() + to, from, part);
    offset += part;
    from += part;
    count -= part;
  }
}

bool PatchedImage::Touches(std::uint64_t offset, std::uint64_t count) const {
  const auto page = pages_.lower_bound(offset / kPageSize);
  return count > 0 && page != pages_.end() && page->first <= (offset + count - 1) / kPageSize;
}

}  // namespace orba::inspect

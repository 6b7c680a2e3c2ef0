#include "inspect/container/image.h"

#include <algorithm>
#include <cstring>

namespace orba::inspect {

bool PagedImage::Read(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > size_ || count > size_ - offset) return false;
  auto* to = static_cast<std::uint8_t*>(out);
  while (count > 0) {
    const std::uint8_t* page = Page(offset / pageSize_);
    if (page == nullptr) return false;
    const auto from = static_cast<std::size_t>(offset % pageSize_);
    const std::size_t part = std::min(count, pageSize_ - from);
    std::memcpy(to, page + from, part);
    to += part;
    offset += part;
    count -= part;
  }
  return true;
}

bool MemoryImage::Read(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > bytes_.size() || count > bytes_.size() - offset) return false;
  if (count > 0) std::memcpy(out, bytes_.data() + offset, count);
  return true;
}

}  // namespace orba::inspect

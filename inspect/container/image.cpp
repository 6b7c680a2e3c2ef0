#include "inspect/container/image.h"

#include <cstring>

namespace orba::inspect {

bool MemoryImage::Read(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > bytes_.size() || count > bytes_.size() - offset) return false;
  if (count > 0) std::memcpy(out, bytes_.data() + offset, count);
  return true;
}

}  // namespace orba::inspect

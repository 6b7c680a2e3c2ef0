#include "tools/orba/host_target.h"

#include <cerrno>

#include "tools/orba/host/host.h"

namespace orba::tool {

bool HostTarget::Write(std::uint64_t offset, const void* bytes, std::size_t count) {
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  while (count > 0) {
    const std::ptrdiff_t part = host::WriteAt(descriptor_, offset, from, count);
    if (part < 0 && errno == EINTR) continue;
    if (part == 0) errno = EIO;
    if (part <= 0) return false;
    from += part;
    offset += static_cast<std::uint64_t>(part);
    count -= static_cast<std::size_t>(part);
  }
  return true;
}

bool HostTarget::Cut(std::uint64_t size) { return host::Truncate(descriptor_, size); }

bool HostTarget::Flush() { return host::Sync(descriptor_); }

}  // namespace orba::tool

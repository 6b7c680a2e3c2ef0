// Why a container could not be mounted, and what to do about it. Stands on address and failure.
#pragma once

#include <cstdint>

#include "tools/orba/address.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"

namespace orba::tool {

// `code` is the library's, `status` what the host knows of the container.
Failure MountFailure(const Address& address, std::uint32_t code, const host::Status& status);

}  // namespace orba::tool

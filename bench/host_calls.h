// Counts the system calls that the libraries under test ask the C library for, and lets none of them wait for the disk:
// its speed would hide everything else.
#pragma once

#include <cstdint>

namespace bench {

std::uint64_t HostCalls();

}  // namespace bench

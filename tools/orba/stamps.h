// Times entered into containers that are not mounted: the library stamps what it writes with the present time alone.
// Stands on raw_container and inspect/.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "orba.h"

namespace orba::tool {

// The date of a second since 1970, or before it; no date where there is none that a container can hold.
OrbTime TimeOf(std::int64_t seconds);

// Times of files and directories by their paths in the container, "/" for the root; what is no date is left alone.
using Stamps = std::map<std::string, OrbTime>;

// Enters them, and has them on the disk. A stop in between leaves some of them as they were. Throws a Failure.
void EnterTimes(const std::string& container, const Stamps& stamps);
// The same time for everything.
void EnterTime(const std::string& container, const OrbTime& time);

}  // namespace orba::tool

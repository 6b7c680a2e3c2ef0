// The host as the library sees it, where the test has it in hand. The clock stands still during a call and goes on
// between calls, so that each time stamp tells which call set it. Making files durable is counted and not done: the
// containers are thrown away, and waiting for the disk would take most of the time. Stands on the C library alone.
#pragma once

#include <cstdint>
#include <string>

namespace model {

// Seconds since 1970, UTC. From the first call on, the process knows no other time.
void SetClock(std::uint64_t seconds);

// How often a file or folder was to be made durable so far.
std::uint64_t Syncs();

// Whether the file of that name was written to since it was made durable.
bool HasUnsyncedWrites(const std::string& path);

}  // namespace model

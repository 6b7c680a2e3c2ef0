// The host's clock as the library sees it, in the test's hand: it stands still during a call and goes on between calls, so
// that each time stamp tells which call set it. Stands on the C library alone.
#pragma once

#include <cstdint>

namespace model {

// Seconds since 1970, UTC. From the first call on, the process knows no other time.
void SetClock(std::uint64_t seconds);

}  // namespace model

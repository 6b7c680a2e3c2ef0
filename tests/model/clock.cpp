#include "tests/model/clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

std::uint64_t g_seconds;  // 0: not set, the host's own clock holds

}  // namespace

// The program's own function goes before the C library's, for the library under test as well. Time spent inside calls
// does not pass.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (g_seconds == 0) return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  time->tv_sec = static_cast<time_t>(g_seconds);
  time->tv_nsec = 999999999;
  return 0;
}

namespace model {

void SetClock(std::uint64_t seconds) { g_seconds = seconds; }

}  // namespace model

#include "tests/model/host.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

std::uint64_t g_seconds;  // 0: not set, the host's own clock holds
std::uint64_t g_syncs;

}  // namespace

// The program's own functions go before the C library's, for the library under test as well.
extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (g_seconds == 0) return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  time->tv_sec = static_cast<time_t>(g_seconds);
  time->tv_nsec = 999999999;
  return 0;
}

int fsync(int) {
  ++g_syncs;
  return 0;
}

int fdatasync(int) {
  ++g_syncs;
  return 0;
}

}  // extern "C"

namespace model {

void SetClock(std::uint64_t seconds) { g_seconds = seconds; }

std::uint64_t Syncs() { return g_syncs; }

}  // namespace model

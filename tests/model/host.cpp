#include "tests/model/host.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <set>

namespace {

std::uint64_t g_seconds;  // 0: not set, the host's own clock holds
std::uint64_t g_syncs;
std::set<ino_t> g_unsynced;

ino_t InodeOf(int descriptor) {
  struct stat status = {};
  return fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

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

int fdatasync(int descriptor) {
  ++g_syncs;
  g_unsynced.erase(InodeOf(descriptor));
  return 0;
}

ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t position) {
  g_unsynced.insert(InodeOf(descriptor));
  return syscall(SYS_pwrite64, descriptor, bytes, count, position);
}

}  // extern "C"

namespace model {

void SetClock(std::uint64_t seconds) { g_seconds = seconds; }

std::uint64_t Syncs() { return g_syncs; }

bool HasUnsyncedWrites(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && g_unsynced.count(status.st_ino) != 0;
}

}  // namespace model

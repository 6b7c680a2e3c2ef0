#include "unit/platform/system_calls.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace {

constexpr size_t kNoLimit = SIZE_MAX;

struct Order {
  uint32_t failAfter = 0;  // counts down; 0 = no failure ordered
  uint32_t times = 0;      // failures from then on
  int error = 0;
  size_t limit = kNoLimit;
};

Order g_orders[systemcalls::kCalls];
uint32_t g_counts[systemcalls::kCalls];
int64_t g_blocks;
int64_t g_mapped;
bool g_clocksStopped;
timespec g_now;

// Whether the call is to fail, errno set.
bool Refuse(systemcalls::Call call) {
  g_counts[call]++;
  Order& order = g_orders[call];
  if (order.failAfter == 0 || --order.failAfter != 0) return false;
  if (--order.times != 0) order.failAfter = 1;
  errno = order.error;
  return true;
}

size_t Shorten(systemcalls::Call call, size_t count) {
  const size_t limit = g_orders[call].limit;
  g_orders[call].limit = kNoLimit;
  return limit < count ? limit : count;
}

}  // namespace

void systemcalls::Reset() {
  for (Order& order : g_orders) order = {};
  for (uint32_t& count : g_counts) count = 0;
  g_blocks = 0;
  g_mapped = 0;
  g_clocksStopped = false;
}

uint32_t systemcalls::Count(Call call) { return g_counts[call]; }

uint32_t systemcalls::CountAll() {
  uint32_t sum = 0;
  for (int call = 0; call < kMalloc; call++) sum += g_counts[call];
  return sum;
}

void systemcalls::FailNext(Call call, int error, uint32_t times) { FailNth(call, 1, error, times); }

void systemcalls::FailNth(Call call, uint32_t n, int error, uint32_t times) {
  g_orders[call].failAfter = n;
  g_orders[call].times = times;
  g_orders[call].error = error;
}

void systemcalls::ShortenNext(Call call, size_t bytes) { g_orders[call].limit = bytes; }

int64_t systemcalls::BlocksHeld() { return g_blocks; }

int64_t systemcalls::BytesMapped() { return g_mapped; }

void systemcalls::StopClocks(timespec now) {
  g_clocksStopped = true;
  g_now = now;
}

using namespace systemcalls;

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int descriptor);
int __real_stat(const char* path, struct stat* status);
int __real_fstat(int descriptor, struct stat* status);
int __real_flock(int descriptor, int operation);
int __real_fcntl(int descriptor, int command, ...);
int __real_unlink(const char* path);
off_t __real_lseek(int descriptor, off_t offset, int origin);
ssize_t __real_pread(int descriptor, void* buffer, size_t count, off_t offset);
ssize_t __real_preadv(int descriptor, const iovec* pieces, int count, off_t offset);
ssize_t __real_pwrite(int descriptor, const void* buffer, size_t count, off_t offset);
int __real_fdatasync(int descriptor);
int __real_fsync(int descriptor);
void* __real_mmap(void* address, size_t size, int access, int flags, int descriptor, off_t offset);
int __real_munmap(void* address, size_t size);
void* __real_mremap(void* address, size_t oldSize, size_t newSize, int flags);
int __real_mprotect(void* address, size_t size, int access);
int __real_madvise(void* address, size_t size, int advice);
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);
int __real_clock_gettime(clockid_t clock, timespec* now);

int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return Refuse(kOpen) ? -1 : __real_open(path, flags, mode);
}

// Closes in any case, as Linux does: only the result is the ordered one.
int __wrap_close(int descriptor) {
  if (!Refuse(kClose)) return __real_close(descriptor);
  const int error = errno;
  __real_close(descriptor);
  errno = error;
  return -1;
}

int __wrap_stat(const char* path, struct stat* status) { return Refuse(kStat) ? -1 : __real_stat(path, status); }

int __wrap_fstat(int descriptor, struct stat* status) { return Refuse(kFstat) ? -1 : __real_fstat(descriptor, status); }

int __wrap_flock(int descriptor, int operation) { return Refuse(kFlock) ? -1 : __real_flock(descriptor, operation); }

int __wrap_fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return Refuse(kFcntl) ? -1 : __real_fcntl(descriptor, command, argument);
}

int __wrap_unlink(const char* path) { return Refuse(kUnlink) ? -1 : __real_unlink(path); }

off_t __wrap_lseek(int descriptor, off_t offset, int origin) {
  return Refuse(kLseek) ? -1 : __real_lseek(descriptor, offset, origin);
}

ssize_t __wrap_pread(int descriptor, void* buffer, size_t count, off_t offset) {
  return Refuse(kPread) ? -1 : __real_pread(descriptor, buffer, Shorten(kPread, count), offset);
}

ssize_t __wrap_preadv(int descriptor, const iovec* pieces, int count, off_t offset) {
  if (Refuse(kPreadv)) return -1;
  iovec shortened[IOV_MAX];
  size_t left = Shorten(kPreadv, kNoLimit);
  for (int i = 0; i < count; i++) {
    shortened[i] = pieces[i];
    if (left < shortened[i].iov_len) shortened[i].iov_len = left;
    left -= shortened[i].iov_len;
  }
  return __real_preadv(descriptor, shortened, count, offset);
}

ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t count, off_t offset) {
  return Refuse(kPwrite) ? -1 : __real_pwrite(descriptor, buffer, Shorten(kPwrite, count), offset);
}

int __wrap_fdatasync(int descriptor) { return Refuse(kFdatasync) ? -1 : __real_fdatasync(descriptor); }

int __wrap_fsync(int descriptor) { return Refuse(kFsync) ? -1 : __real_fsync(descriptor); }

void* __wrap_mmap(void* address, size_t size, int access, int flags, int descriptor, off_t offset) {
  void* mapping = Refuse(kMmap) ? MAP_FAILED : __real_mmap(address, size, access, flags, descriptor, offset);
  if (mapping != MAP_FAILED) g_mapped += static_cast<int64_t>(size);
  return mapping;
}

int __wrap_munmap(void* address, size_t size) {
  if (Refuse(kMunmap)) return -1;
  g_mapped -= static_cast<int64_t>(size);
  return __real_munmap(address, size);
}

void* __wrap_mremap(void* address, size_t oldSize, size_t newSize, int flags) {
  void* mapping = Refuse(kMremap) ? MAP_FAILED : __real_mremap(address, oldSize, newSize, flags);
  if (mapping != MAP_FAILED) g_mapped += static_cast<int64_t>(newSize) - static_cast<int64_t>(oldSize);
  return mapping;
}

int __wrap_mprotect(void* address, size_t size, int access) {
  return Refuse(kMprotect) ? -1 : __real_mprotect(address, size, access);
}

int __wrap_madvise(void* address, size_t size, int advice) {
  return Refuse(kMadvise) ? -1 : __real_madvise(address, size, advice);
}

void* __wrap_malloc(size_t size) {
  void* block = Refuse(kMalloc) ? nullptr : __real_malloc(size);
  if (block != nullptr) g_blocks++;
  return block;
}

void* __wrap_calloc(size_t count, size_t size) {
  void* block = Refuse(kCalloc) ? nullptr : __real_calloc(count, size);
  if (block != nullptr) g_blocks++;
  return block;
}

void* __wrap_realloc(void* block, size_t size) {
  void* moved = Refuse(kRealloc) ? nullptr : __real_realloc(block, size);
  if (block == nullptr && moved != nullptr) g_blocks++;
  return moved;
}

void __wrap_free(void* block) {
  if (block != nullptr) g_blocks--;
  __real_free(block);
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (!g_clocksStopped) return __real_clock_gettime(clock, now);
  *now = g_now;
  return 0;
}

}  // extern "C"

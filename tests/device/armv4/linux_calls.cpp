// The kernel's calls for a program on bare Linux, compiled with Linux's headers: under the names that the host layer of
// the library and the loader of images use, and those of linux.h. Linux's C library itself is not linked, for it needs
// a later processor.
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "linux.h"

namespace {

long Word(const void* pointer) { return static_cast<long>(reinterpret_cast<uintptr_t>(pointer)); }

long Call(long number, long a = 0, long b = 0, long c = 0, long d = 0, long e = 0, long f = 0) {
  return linux_call(a, b, c, d, e, f, number);
}

// The result as the C library gives it: -1 and errno for an error.
long Result(long result) {
  if (result >= 0 || result < -4095) return result;
  errno = static_cast<int>(-result);
  return -1;
}

long Low(int64_t value) { return static_cast<long>(value & 0xFFFFFFFF); }
long High(int64_t value) { return static_cast<long>(value >> 32); }

}  // namespace

// ---- What Linux's headers declare -----------------------------------------------------------------------------------

extern "C" {

int* __errno_location() {
  static int error;
  return &error;
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const long mode = (flags & O_CREAT) != 0 ? va_arg(arguments, long) : 0;
  va_end(arguments);
  return static_cast<int>(Result(Call(SYS_open, Word(path), flags | O_LARGEFILE, mode)));
}

int fcntl64(int file, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return static_cast<int>(Result(Call(SYS_fcntl64, file, command, argument)));
}

// A 64-bit argument takes an even register and the one behind it, which leaves the fourth of these idle.
ssize_t pread64(int file, void* buffer, size_t count, off64_t offset) {
  return Result(Call(SYS_pread64, file, Word(buffer), static_cast<long>(count), 0, Low(offset), High(offset)));
}

ssize_t pwrite64(int file, const void* buffer, size_t count, off64_t offset) {
  return Result(Call(SYS_pwrite64, file, Word(buffer), static_cast<long>(count), 0, Low(offset), High(offset)));
}

ssize_t preadv64(int file, const struct iovec* parts, int count, off64_t offset) {
  return Result(Call(SYS_preadv, file, Word(parts), count, Low(offset), High(offset)));
}

int fstat64(int file, struct stat64* status) noexcept {
  return static_cast<int>(Result(Call(SYS_fstat64, file, Word(status))));
}

int stat64(const char* path, struct stat64* status) noexcept {
  return static_cast<int>(Result(Call(SYS_stat64, Word(path), Word(status))));
}

int ftruncate64(int file, off64_t size) noexcept {
  return static_cast<int>(Result(Call(SYS_ftruncate64, file, 0, Low(size), High(size))));
}

int close(int file) { return static_cast<int>(Result(Call(SYS_close, file))); }
int flock(int file, int operation) noexcept { return static_cast<int>(Result(Call(SYS_flock, file, operation))); }
int fsync(int file) { return static_cast<int>(Result(Call(SYS_fsync, file))); }
int fdatasync(int file) { return static_cast<int>(Result(Call(SYS_fdatasync, file))); }
int unlink(const char* path) noexcept { return static_cast<int>(Result(Call(SYS_unlink, Word(path)))); }

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
  return Result(Call(SYS_readlink, Word(path), Word(buffer), static_cast<long>(size)));
}

int clock_gettime(clockid_t clock, struct timespec* now) noexcept {
  return static_cast<int>(Result(Call(SYS_clock_gettime, clock, Word(now))));
}

void* mmap64(void* address, size_t size, int protection, int flags, int file, off64_t offset) noexcept {
  const long result = Result(Call(SYS_mmap2, Word(address), static_cast<long>(size), protection, flags, file,
                                  static_cast<long>(offset >> 12)));
  return reinterpret_cast<void*>(result);
}

int mprotect(void* address, size_t size, int protection) noexcept {
  return static_cast<int>(Result(Call(SYS_mprotect, Word(address), static_cast<long>(size), protection)));
}

int munmap(void* address, size_t size) noexcept {
  return static_cast<int>(Result(Call(SYS_munmap, Word(address), static_cast<long>(size))));
}

// ---- What the other half needs --------------------------------------------------------------------------------------

long linux_file_status(int file, unsigned* mode, long long* size) {
  struct stat64 status;
  const long result = Call(SYS_fstat64, file, Word(&status));
  if (result != 0) return result;
  *mode = status.st_mode;
  *size = status.st_size;
  return 0;
}

long linux_open(const char* path, bool read, bool write, bool create, bool exclusive, bool truncate, bool append,
                unsigned mode) {
  const int flags = (read && write ? O_RDWR
                     : write       ? O_WRONLY
                                   : O_RDONLY) |
                    (create ? O_CREAT : 0) | (exclusive ? O_EXCL : 0) | (truncate ? O_TRUNC : 0) |
                    (append ? O_APPEND : 0) | O_LARGEFILE;
  return Call(SYS_open, Word(path), flags, static_cast<long>(mode));
}

long linux_read(int file, void* buffer, unsigned count) {
  return Call(SYS_read, file, Word(buffer), static_cast<long>(count));
}

long linux_write(int file, const void* buffer, unsigned count) {
  return Call(SYS_write, file, Word(buffer), static_cast<long>(count));
}

long linux_close(int file) { return Call(SYS_close, file); }
long linux_seek(int file, long offset, int origin) { return Call(SYS_lseek, file, offset, origin); }
long linux_unlink(const char* path) { return Call(SYS_unlink, Word(path)); }
long linux_rename(const char* from, const char* to) { return Call(SYS_rename, Word(from), Word(to)); }
long linux_make_directory(const char* path, unsigned mode) {
  return Call(SYS_mkdir, Word(path), static_cast<long>(mode));
}

long linux_working_directory(char* buffer, unsigned size) {
  return Call(SYS_getcwd, Word(buffer), static_cast<long>(size));
}

long linux_break(unsigned long address) { return Call(SYS_brk, static_cast<long>(address)); }

long linux_random(void* buffer, unsigned count) { return Call(SYS_getrandom, Word(buffer), static_cast<long>(count)); }

long long linux_microseconds() {
  struct timespec now = {};
  Call(SYS_clock_gettime, CLOCK_REALTIME, Word(&now));
  return static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void linux_exit(int status) {
  for (;;) Call(SYS_exit_group, status);
}

}  // extern "C"

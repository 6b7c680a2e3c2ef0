// The calls that the C library for bare machines makes, answered by Linux.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "linux.h"

extern "C" {

void* __dso_handle = nullptr;       // this program is not a library: its destructors are its own
alignas(8) char thread_block[256];  // the thread's own variables, all of which begin as zero

// Only what is there for calls of the C++ library on a machine with one thread.
unsigned __atomic_fetch_sub_4(volatile void* place, unsigned value, int /*order*/) {
  auto* const word = static_cast<volatile unsigned*>(place);
  const unsigned old = *word;
  *word = old - value;
  return old;
}

unsigned __atomic_fetch_add_4(volatile void* place, unsigned value, int order) {
  return __atomic_fetch_sub_4(place, 0 - value, order);
}

void _init() {}
void _fini() {}

void _exit(int status) { linux_exit(status); }

}  // extern "C"

namespace {

// Linux's error numbers up to 34 are the C library's too. No test tells the others apart.
long Result(long result) {
  if (result >= 0 || result < -4095) return result;
  errno = result >= -34 ? static_cast<int>(-result) : EIO;
  return -1;
}

}  // namespace

extern "C" {

int _open(const char* path, int flags, int mode) {
  const int access = flags & O_ACCMODE;
  return static_cast<int>(
      Result(linux_open(path, access != O_WRONLY, access != O_RDONLY, (flags & O_CREAT) != 0, (flags & O_EXCL) != 0,
                        (flags & O_TRUNC) != 0, (flags & O_APPEND) != 0, static_cast<unsigned>(mode))));
}

int _read(int file, void* buffer, size_t count) { return static_cast<int>(Result(linux_read(file, buffer, count))); }

int _write(int file, const void* buffer, size_t count) {
  return static_cast<int>(Result(linux_write(file, buffer, count)));
}

int _close(int file) { return static_cast<int>(Result(linux_close(file))); }
off_t _lseek(int file, off_t offset, int origin) { return Result(linux_seek(file, offset, origin)); }
int _unlink(const char* path) { return static_cast<int>(Result(linux_unlink(path))); }
int _rename(const char* from, const char* to) { return static_cast<int>(Result(linux_rename(from, to))); }
int mkdir(const char* path, mode_t mode) { return static_cast<int>(Result(linux_make_directory(path, mode))); }

int _fstat(int file, struct stat* status) {
  unsigned mode = 0;
  long long size = 0;
  if (Result(linux_file_status(file, &mode, &size)) != 0) return -1;
  *status = {};
  status->st_mode = mode;  // the bits mean the same
  status->st_size = static_cast<off_t>(size);
  status->st_blksize = 4096;
  return 0;
}

int _stat(const char* path, struct stat* status) {
  const int file = _open(path, O_RDONLY, 0);
  if (file < 0) return -1;
  const int result = _fstat(file, status);
  _close(file);
  return result;
}

int _isatty(int) {
  errno = ENOTTY;
  return 0;
}

char* getcwd(char* buffer, size_t size) { return Result(linux_working_directory(buffer, size)) < 0 ? nullptr : buffer; }

void* _sbrk(ptrdiff_t more) {
  static uintptr_t heap = 0;
  if (heap == 0) heap = static_cast<uintptr_t>(linux_break(0));
  const uintptr_t old = heap;
  const uintptr_t wanted = old + static_cast<uintptr_t>(more);
  if (static_cast<uintptr_t>(linux_break(wanted)) < wanted) {
    errno = ENOMEM;
    return reinterpret_cast<void*>(-1);
  }
  heap = wanted;
  return reinterpret_cast<void*>(old);
}

int _gettimeofday(struct timeval* now, void* /*zone*/) {
  const long long microseconds = linux_microseconds();
  now->tv_sec = microseconds / 1000000;
  now->tv_usec = static_cast<suseconds_t>(microseconds % 1000000);
  return 0;
}

int getentropy(void* buffer, size_t count) { return linux_random(buffer, count) == static_cast<long>(count) ? 0 : -1; }

int _getpid() { return 1; }

int _kill(int, int signal) { linux_exit(128 + signal); }

// Linux's headers give seconds 32 bits here, the C library 64.
struct tm* linux_gmtime_r(const int32_t* seconds, struct tm* out) {
  const time_t time = *seconds;
  return gmtime_r(&time, out);
}

}  // extern "C"

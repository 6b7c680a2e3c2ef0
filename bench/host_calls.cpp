// The program's own functions go before the C library's, for every library that it loads.
#include "bench/host_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdarg>

namespace {

std::uint64_t g_calls;

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

std::uint64_t bench::HostCalls() { return g_calls; }

// COUNTED(result, name, parameters, arguments) defines `name` as itself, counted.
#define COUNTED(result, name, parameters, arguments)          \
  result name parameters {                                    \
    static auto* const next = Next<result parameters>(#name); \
    ++g_calls;                                                \
    return next arguments;                                    \
  }

#define COUNTED_OPEN(name)                                             \
  int name(const char* path, int flags, ...) {                         \
    static auto* const next = Next<int(const char*, int, ...)>(#name); \
    va_list rest;                                                      \
    va_start(rest, flags);                                             \
    const auto mode = va_arg(rest, unsigned);                          \
    va_end(rest);                                                      \
    ++g_calls;                                                         \
    return next(path, flags, mode);                                    \
  }

#define COUNTED_FCNTL(name)                                    \
  int name(int file, int command, ...) {                       \
    static auto* const next = Next<int(int, int, ...)>(#name); \
    va_list rest;                                              \
    va_start(rest, command);                                   \
    void* const argument = va_arg(rest, void*);                \
    va_end(rest);                                              \
    ++g_calls;                                                 \
    return next(file, command, argument);                      \
  }

extern "C" {

COUNTED_OPEN(open)
COUNTED_OPEN(open64)
COUNTED_FCNTL(fcntl)
COUNTED_FCNTL(fcntl64)
COUNTED(int, close, (int file), (file))
COUNTED(ssize_t, read, (int file, void* bytes, size_t count), (file, bytes, count))
COUNTED(ssize_t, write, (int file, const void* bytes, size_t count), (file, bytes, count))
COUNTED(ssize_t, pread, (int file, void* bytes, size_t count, off_t at), (file, bytes, count, at))
COUNTED(ssize_t, pread64, (int file, void* bytes, size_t count, off_t at), (file, bytes, count, at))
COUNTED(ssize_t, pwrite, (int file, const void* bytes, size_t count, off_t at), (file, bytes, count, at))
COUNTED(ssize_t, pwrite64, (int file, const void* bytes, size_t count, off_t at), (file, bytes, count, at))
COUNTED(ssize_t, preadv, (int file, const iovec* pieces, int count, off_t at), (file, pieces, count, at))
COUNTED(off_t, lseek, (int file, off_t distance, int origin) noexcept, (file, distance, origin))
COUNTED(off_t, lseek64, (int file, off_t distance, int origin) noexcept, (file, distance, origin))
COUNTED(int, ftruncate, (int file, off_t size) noexcept, (file, size))
COUNTED(int, ftruncate64, (int file, off_t size) noexcept, (file, size))
COUNTED(int, fallocate64, (int file, int mode, off_t at, off_t size), (file, mode, at, size))
COUNTED(int, stat, (const char* path, struct stat* status) noexcept, (path, status))
COUNTED(int, stat64, (const char* path, struct stat64* status) noexcept, (path, status))
COUNTED(int, lstat64, (const char* path, struct stat64* status) noexcept, (path, status))
COUNTED(int, fstat, (int file, struct stat* status) noexcept, (file, status))
COUNTED(int, fstat64, (int file, struct stat64* status) noexcept, (file, status))
COUNTED(int, flock, (int file, int operation) noexcept, (file, operation))
COUNTED(int, access, (const char* path, int mode) noexcept, (path, mode))
COUNTED(int, unlink, (const char* path) noexcept, (path))
COUNTED(void*, mmap, (void* at, size_t size, int access, int flags, int file, off_t offset) noexcept,
        (at, size, access, flags, file, offset))
COUNTED(void*, mmap64, (void* at, size_t size, int access, int flags, int file, off_t offset) noexcept,
        (at, size, access, flags, file, offset))
COUNTED(int, munmap, (void* at, size_t size) noexcept, (at, size))
COUNTED(int, mprotect, (void* at, size_t size, int access) noexcept, (at, size, access))
COUNTED(int, madvise, (void* at, size_t size, int advice) noexcept, (at, size, advice))

int fsync(int) {
  ++g_calls;
  return 0;
}

int fdatasync(int) {
  ++g_calls;
  return 0;
}

}  // extern "C"

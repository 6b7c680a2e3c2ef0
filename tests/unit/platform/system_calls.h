// Counts and fails the system calls and allocations that the host layer and the memory file make. They are the real
// ones: each call written in this program's own objects comes here first (-Wl,--wrap) and is passed on, unless a test
// ordered otherwise.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

namespace systemcalls {

enum Call {
  kOpen,
  kClose,
  kStat,
  kFstat,
  kFlock,
  kFcntl,
  kUnlink,
  kLseek,
  kPread,
  kPreadv,
  kPwrite,
  kFdatasync,
  kFsync,
  kMmap,
  kMunmap,
  kMremap,
  kMprotect,
  kMadvise,
  kMalloc,  // from here on no system calls
  kCalloc,
  kRealloc,
  kCalls,
};

// Forgets all orders and counts.
void Reset();

// Calls made since the last reset, refused ones included; of one kind, and of all kinds but allocations.
uint32_t Count(Call call);
uint32_t CountAll();

// The next call, or the n-th from now, fails with `error` and is not made, and so do those after it up to `times`. For
// allocations the error is ENOMEM.
void FailNext(Call call, int error, uint32_t times = 1);
void FailNth(Call call, uint32_t n, int error, uint32_t times = 1);

// The next pread, preadv or pwrite moves at most `bytes`, which may be 0.
void ShortenNext(Call call, size_t bytes);

// Blocks from malloc, calloc and realloc that were not freed since the last reset.
int64_t BlocksHeld();

// Bytes of address space from mmap and mremap that were not given back since the last reset.
int64_t BytesMapped();

// From now until the reset every clock shows this time.
void StopClocks(timespec now);

}  // namespace systemcalls

// The bytes of one open file that were read lately, so that reading them again needs no system call: at most 1 MiB in
// lines of 4 KiB, each taken from the heap when it is first needed. Reads that go on where the last ones ended fetch
// lines ahead. Nothing is held back: a write goes to the file, and then into the lines that hold its place.
//
// Bytes are copied out of lines, never mapped: a medium that fails stays an error code, a file that was cut a short
// read. Stands on the C library alone.
//
// The lines agree with the file as long as all writes come through this cache, which is what the exclusive lock on the
// file is for. A line at the file's end holds zeros behind the end, as the file will once it grows.
#pragma once

#include <stdint.h>

namespace orba {
namespace posix {

constexpr uint32_t kCacheLineSize = 4096;
constexpr uint32_t kCacheLines = 256;
constexpr uint32_t kCacheReadAhead = 32;  // lines, at most

struct ReadCache;

// An empty cache, or null without memory.
ReadCache* NewReadCache();
void FreeReadCache(ReadCache* cache);  // null: nothing

// Reads `count` bytes at `position`, all of them before `size`, the file's size, from the lines or the file. `cache`
// may be null: from the file then, as where memory for a line is lacking.
//   returns  0, `*done` the bytes read: fewer than `count` only where the file proves shorter than `size`;
//            errno, `*done` the bytes read before the failure. Only a failure within the asked bytes counts: where the
//            rest of their lines cannot be read, they alone are. A line that could not be read in full is not kept.
int ReadCached(ReadCache* cache, int descriptor, uint64_t size, uint64_t position, void* buffer, uint32_t count,
               uint32_t* done);

// After the file took the bytes: puts them into the lines that hold their place.
void UpdateCache(ReadCache* cache, uint64_t position, const void* bytes, uint32_t count);

// After a write that failed or was cut short: forgets the lines that hold its place.
void DropFromCache(ReadCache* cache, uint64_t position, uint32_t count);

}  // namespace posix
}  // namespace orba

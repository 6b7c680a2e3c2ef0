// The seam between the memory file and its host: where the file's bytes are kept. Each folder beside this header
// implements it once:
//   chunks/   devices and desktop Windows: pieces from the heap
//   posix/    Linux: a range of addresses, mapped as it is needed
#pragma once

#include "memfile/memfile.h"

// Provides memory for the bytes from `begin` to before `end`, which is above `begin` and at most MEMFILE_MAX_SIZE.
// False without memory; whatever the result, no byte changes its value.
bool ProvidePages(MemFileU32 begin, MemFileU32 end);

// Copies `count` bytes from or to `position`. Bytes that were never written to are zeros. What is written to must have
// been provided, and what is read must lie below something that was.
void ReadPages(MemFileU32 position, void* out, MemFileU32 count);
void WritePages(MemFileU32 position, const void* in, MemFileU32 count);

// Frees all memory: every byte is zero again.
void ReleasePages();

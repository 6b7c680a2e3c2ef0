// Layer: free space. Blocks that were used once and are free again are kept in a chain of free-chain records
// (layout.h), newest first; blocks never used do not exist yet, because the volume grows at its container's end. Stands
// on block I/O.
//
// Invariants:
//   F1  the head record, where there is one, is cached whole (Volume::freeChain); records behind it are never in memory
//   F2  a record's entries are a binary min-heap of nonzero block numbers: the lowest free block goes first
//   F3  a new block at the container's end is taken only when the chain is empty
//   F4  allocation and the first write of a block go together: until it is written, a block at the end is not taken
//
// What a stop between two writes leaves:
//   a record pushed    record, then header: its block holds a record that nothing refers to, and is lost
//   a record popped    header, then the caller's first write: that block is lost
//   an entry in, out   one block write
// The chain itself is sound after each of them.
#pragma once

#include <stdint.h>

#include "volume/volume.h"

namespace orba {

// Brings the cache in line with header.freeChainHead: releases it for 0, else reads and checks the head record.
//   fails  ORB_ERROR_OUT_OF_MEMORY; the read's code; ORB_ERROR_DAMAGED_RECORD (signature, count above capacity, a zero
//          entry). The cache is released.
bool LoadFreeChain(Volume* volume);

// Writes the cache into the head block.
bool StoreFreeChain(Volume* volume);

// Takes a block: the lowest of the head record, the record's own block where it is empty, or, with no chain, the one at
// the container's end (nothing is written then; the caller's first write makes the container longer).
//   returns  the block number, 0 on failure: ORB_ERROR_VOLUME_FULL where the container would reach 2^31 bytes, or the
//            code of what failed below. What was taken from the cache stays taken.
uint32_t AllocBlock(Volume* volume);

// Frees a block. One that was allocated but never written (not wholly inside the container) needs nothing.
//   fails  ORB_ERROR_WRITE (failed volume), ORB_ERROR_DAMAGED_RECORD (block 0 or beyond the container's end): nothing
//          changed. Codes of the writes: cache and head are already changed. Freeing a block twice is not noticed.
bool FreeBlock(Volume* volume, uint32_t block);

// Takes a block and writes one block of data into it, in that order. Returns its number, 0 on failure; a block whose
// write fails is lost (Q19).
uint32_t AllocWriteBlock(const void* data, Volume* volume, uint32_t flags);

// The same with `length` bytes of data, 0 to a block, and zeros behind them. Only the padding takes memory, one block;
// where there is none the block is lost as well.
uint32_t AllocWriteBlockPadded(const void* data, Volume* volume, uint32_t flags, uint32_t length);

}  // namespace orba

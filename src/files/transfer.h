// Layer: reading, writing, positioning and resizing of open files. Stands on open files, the block map and block I/O.
// Transfers go block by block straight between the caller's buffer and the container: a partial block first where the
// position is inside one, then whole blocks, then what is left. Only growing needs a buffer of its own.
#pragma once

#include <stdint.h>

#include "nodes/node.h"
#include "orba.h"

namespace orba {

// Moves the position. It never passes the end of the file, unlike the platform's own (Q5).
//   returns  the new position, or 0xFFFFFFFF with the position unchanged: ORB_ERROR_INVALID_HANDLE, ORB_ERROR_SEEK,
//            ORB_ERROR_INVALID_ARGUMENT (origin)
uint32_t OrbSeekFile(uint32_t handle, int32_t distance, uint32_t origin);

// Reads up to count bytes. *done is 0 first, then what was read, also on failure.
//   fails  ORB_ERROR_INVALID_HANDLE, ORB_ERROR_ACCESS_DENIED (not open for reading), codes from below
bool OrbReadOpenFile(uint32_t handle, void* buffer, uint32_t count, OrbU32* done);

// Writes count bytes, extending the file. *done is 0 first, then what was written, also on failure.
//   fails   ORB_ERROR_INVALID_HANDLE, ORB_ERROR_ACCESS_DENIED (not open for writing), codes from below. The stored size
//           covers what the block map reaches.
//   writes  for each block: 1. the data, 2. its map entries, where it is new   3. where the file grew, the node: the
//           commit point of that block. A file that is one block long then has its node written once more (Q6)
bool OrbWriteOpenFile(uint32_t handle, const void* buffer, uint32_t count, OrbU32* done);

// Sets the size; a position past the new end moves to it.
//   fails  ORB_ERROR_INVALID_HANDLE, ORB_ERROR_INVALID_ARGUMENT (above 0x7FFFFFFF), ORB_ERROR_ACCESS_DENIED, codes from
//          below, with the size as last stored
bool OrbSetOpenFileSize(uint32_t handle, uint32_t size);

// Grows a file with zeros; blocks are taken for all of it.
//   writes  1. the last block's rest, then the node   2. for each new block: data, map entries, node
bool OrbGrowFile(OrbNode* node, uint32_t size);

// Shrinks a file, one block at a time from its end.
//   writes  for each block: 1. its map slot, where it is in a block-map block   2. the node   3. the free chain; at the
//           end, the node with the exact size. A block is freed only when nothing refers to it any more.
bool OrbShrinkFile(OrbNode* node, uint32_t size);

}  // namespace orba

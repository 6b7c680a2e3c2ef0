// Layer: the block map, from a byte position of a file or directory to the block that holds it. Stands on block I/O,
// the free chain and nodes; reading and writing the bytes themselves is for the layers above.
//
// With P = block size / 4, logical block i of a node lies
//   i < 6          in direct slot i
//   i < 6 + P      in slot i - 6 of the block `indirect`
//   else           in slot (i - 6 - P) mod P of the block in slot (i - 6 - P) / P of the block `doubleIndirect`
//
// Invariants:
//   M1  the map is filled in order: a logical block is there only when all lower ones are
//   M2  a block-map block is made when its slot 0 is set; its first zero slot ends its list
//   M3  shrinking clears slots but keeps block-map blocks, which growing uses again (Q17)
//   M4  the map never refers to a block that was not written
#pragma once

#include <stdint.h>

#include "nodes/node.h"

namespace orba {

// Finds the block that holds a byte position.
//   returns  the block number; 0 with ORB_ERROR_DAMAGED_RECORD where the map has none there, or the read's code
//   cost     no container read for the first six blocks, one or two beyond
uint32_t LookupFileBlock(const OrbNode* node, uint32_t position);

// Enters a block as the one that holds a byte position, or with 0 clears the slot. Direct slots and the numbers of
// block-map blocks change in the in-memory node only, which the caller writes afterwards; block-map blocks are written
// at once.
//   fails  ORB_ERROR_ABORTED: the node is not valid. ORB_ERROR_DAMAGED_RECORD: logical block above (size + 1) / block
//          size (Q18); a block-map block would have to start at a slot other than 0. ORB_ERROR_VOLUME_FULL: beyond the
//          map. Space and write codes: a second-level block just made is freed where there is no space or memory for
//          its parent, and stays in use after any other failure (Q20).
bool SetFileBlock(OrbNode* node, uint32_t position, uint32_t block);

// Writes one slot of a block-map block; with mapBlock 0 makes the block, for slot 0 only.
//   returns  the block-map block, 0 on failure
uint32_t SetIndirectEntry(Volume* volume, uint32_t mapBlock, uint32_t slot, uint32_t value);

// Grows a node by one block: takes a block, writes `length` bytes (0 to a block) and zeros behind them, enters it at a
// position on a block border. Size and node record are the caller's to store.
//   fails  ORB_ERROR_VOLUME_FULL past the end of the map, before a block is taken; else as above, and the new block is
//          lost
bool AppendFileBlock(OrbNode* node, uint32_t position, const void* data, uint32_t length, uint32_t flags);

// Empties a node: writes it with size 0, no blocks and the current time, then frees its blocks up to the first slot
// that is 0 (Q25), and its block-map blocks where it had six blocks or more (Q17). A stop in between loses blocks,
// nothing else.
bool ReleaseFileBlocks(OrbNode* node);

// Frees a block-map block, then the blocks it lists, up to its first zero slot.
bool ReleaseIndirectTree(Volume* volume, uint32_t mapBlock);

}  // namespace orba

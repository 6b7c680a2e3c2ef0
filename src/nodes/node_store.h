// Layer: nodes on disk: which numbers are in use (the node bitmap), the node blocks that hold the records, creation and
// deletion. Stands on nodes, the block map and the free chain.
//
// Invariants:
//   S1  numbers are given out lowest first
//   S2  a record is on disk before the bitmap marks its number used; a number is marked free before its blocks are
//       freed. A stop in between leaves an unreachable record or lost blocks, never a number in use twice
//   S3  a node block whose numbers are all free is freed, and made anew when one of them is needed again
//   S4  where a table could not be written, its image in memory goes back to what the disk holds (V3)
#pragma once

#include <stdint.h>

#include "nodes/node.h"

namespace orba {

// Makes a node: no data, the current time, the lowest free number.
//   attributes  kNodeReadOnly and kNodeUserFlag in any mix, or ORB_NODE_DIRECTORY, which then stands alone
//   returns     the node with one reference, or null: ORB_ERROR_INVALID_ARGUMENT (other attribute bits),
//               ORB_ERROR_NO_FREE_NODE, ORB_ERROR_OUT_OF_MEMORY, space and write codes
//   writes      1. node block and node-block table, where the number's node block does not exist yet
//               2. the record   3. the bitmap: the commit point
OrbNode* OrbNodeCreate(Volume* volume, uint16_t attributes);

// Deletes a node that the caller alone holds, and consumes the caller's reference in any case.
//   fails   ORB_ERROR_ABORTED: not a valid node. ORB_ERROR_IN_USE: held by others too. ORB_ERROR_DAMAGED_RECORD: its
//           number is marked free already. Nothing changed. Later failures leave some of its blocks in use.
//   writes  1. the bitmap: the commit point   2. the emptied record   3. the free chain, for each of its blocks
//           4. table and free chain, where its node block is freed
bool OrbNodeDelete(OrbNode* node);

// Takes a block, fills it with empty records that carry their numbers, and enters it in the node-block table.
//   index  below kNodeTableEntries, of an entry that is 0
bool OrbNodeBlockInit(Volume* volume, uint32_t index);

// Frees a node block: the table first, then the block.
bool OrbNodeBlockRelease(Volume* volume, uint32_t index);

}  // namespace orba

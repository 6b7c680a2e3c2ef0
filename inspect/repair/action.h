// What a repair does: steps as facts, and the one table that turns them into sentences. Stands on nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orba::inspect {

struct Write {
  std::uint64_t offset = 0;
  std::vector<std::uint8_t> bytes;
};

// What a step does and why. The comment tells which facts it has beside its writes.
enum class ActionKind : std::uint8_t {
  kSetMark,
  kClearMark,
  // header, node-block table, bitmap, node records
  kWriteHeader,     // first: the block size; last: the bitmap's size
  kPointTable,      // first: the table entry; block
  kClearTable,      // first to last, count of them: table entries
  kSignSlot,        // node
  kClearFreeSlot,   // node
  kClearLostSlot,   // node
  kUseRoot,         //
  kFreeNumbers,     // first to last, count of them: nodes
  kUseNamed,        // node; name: that refers to it
  kUseWithData,     // node; count: of bytes
  kFixRecord,       // node; first: attributes
  kMakeRootRecord,  // block
  kMakeRoot,        //
  kMakeRecord,      // node; block
  kMakeNodeBlock,   // first: the table entry
  kReturnRecord,    // node
  kMoveRecord,      // node; first: the node in whose slot it lay
  kMoveRecords,     // first: the table entry; block: the new one; count: of records
  kReturnSectors,   // node; block: the new one; count: of sectors
  kFreeNode,        // node
  // block maps
  kReturnMap,       // node; block; count: of blocks that it leads to
  kReturnEntries,   // node; block; count: of entries
  kReturnFirst,     // node
  kNewFirst,        // node
  kSplitReturn,     // node; block: its own; first: the shared one
  kSplitNew,        // node; first: the shared one
  kCopyBlock,       // node; block
  kTakeTwice,       // node; block, count of them. Of all kinds that take blocks out
  kTakeStray,       // past the size, and something else's
  kTakeForeignMap,  // something else's, and no block numbers
  kTakeNoNumbers,   // no block numbers
  kTakeNoEntries,   // no entries
  kTakeOutside,     // beyond the end
  kTakeDouble,      // node
  kTakeUnneeded,    // node
  kCountGrown,      // node; name
  kUndoGrowth,      // node; block
  kFixSize,         // node
  kFillHoles,       // node; count: of blocks
  kCutShrunk,       // node; count: of blocks left
  kCutMissing,      // node; count: of blocks left
  kCutHole,         // node
  kCutTail,         // node; count: of bytes left
  kFillTail,        // block
  // directories
  kDropFreedBlock,  // node
  kWholeEntries,    // node
  kSetEnd,          // node; name
  kCountMore,       // node; count: of entries
  kCountLess,       // node; count: of entries
  kCloseGaps,       // node
  kEmptyCopy,       // node; other: whose first block it is a copy of; count: of entries
  kRemoveSecond,    // node; name; other, newName: where the node keeps its name; first: the node
  kRemoveTwice,     // node; name
  kRemoveDangling,  // node; name; first: the node referred to
  kRemoveMany,      // node; count: of names, as the last three
  kEndMove,         // as kRemoveSecond: of the interrupted operation, like the next two
  kEndRemoval,      // as kRemoveSecond
  kUndoRemoval,     // node; name; first: the node
  kCopyNode,        // node; name; first: the node; other, newName: the name that it keeps
  kKeepCopy,        // name: a path; newName: a path
  kRepoint,         // node; name; first: the node from now on; last: until now
  kRename,          // node; name; newName
  kWriteDot,        // node; name
  kBreakCycle,      // node; other
  kMakeLostFound,   // newName: a path
  kLink,            // node; count: of bytes; newName: a path
  // the free chain
  kBuildChain,  // count: of blocks; first: of records
};

// One step that a person can follow, with the writes it takes, in order. A write may lie past the container's end and
// then makes it longer; it never leaves a gap.
struct Action {
  ActionKind kind = ActionKind::kSetMark;
  std::uint16_t node = 0;
  std::uint16_t other = 0;
  std::uint32_t block = 0;
  std::uint32_t first = 0;
  std::uint32_t last = 0;
  std::uint64_t count = 1;
  std::string path;       // of `node`, when the step was planned
  std::string otherPath;  // of `other`
  std::string name;       // as it stands in the container
  std::string newName;
  bool dropsChain = false;  // the free chain is dropped on the way
  std::vector<Write> writes;
};

// One sentence without its full stop: "points table entry 1 at block 12, which holds its nodes".
std::string ToText(const Action& action);

}  // namespace orba::inspect

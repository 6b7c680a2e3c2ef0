// What the inspection has to say: findings, each with its kind, its severity and its place. Stands on nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orba::inspect {

enum class Severity : std::uint8_t {
  kNote,      // breaks no rule, but is worth a look
  kLeak,      // space in use that nothing names; nothing is lost but the space
  kHalfMade,  // what an operation that was stopped between two writes leaves: its end or its undoing is known
  kDamage,    // breaks a rule of the format
};

// "note", "leak", "half-made", "damage"
const char* Name(Severity severity);

// Every kind has one severity. Names (Name) are stable: scripts may rely on them. In brackets: the invariant, numbered in
// the headers of the library's layers, that does not hold where the finding is made.
enum class Kind : std::uint8_t {
  // the container and its header
  kUnreadable,       // the host could not read a range that lies inside the container
  kContainerShort,   // the container ends inside the header, the table or the bitmap
  kContainerLong,    // 2^31 bytes or more
  kTrailingBytes,    // bytes after the last whole block
  kHeaderSignature,  // not "ORBA"
  kHeaderVersion,    // not "1.0 "
  kHeaderField,      // a size, an offset or the block size is wrong
  kHeaderReserved,   // a reserved byte or flag is set
  kHeaderShiftBits,  // the block shift has bits above its low byte
  kReservedRegion,   // the header sets a region aside between bitmap and data area
  kLayoutUnknown,    // block size and bitmap size cannot be learnt; nothing further was read
  // node-block table, bitmap, node blocks
  kTableOutside,      // a table entry names a block beyond the container's end
  kTableUnneeded,     // a table entry for node numbers that the bitmap does not cover
  kNodeBlockForeign,  // the block that a table entry names holds no node slot
  kNodeBlockIdle,     // a node block without a node in use (S3)
  kNodeSignature,     // a slot without "INO1"
  kNodeNumber,        // a slot with another slot's number
  kNodePlaceless,     // the bitmap says in use, but no node block holds the number (S2)
  kRootFree,          // the bitmap says that node 1 is free
  kRootLost,          // node 1 cannot be read or is no directory
  // node records and block maps
  kNodeAttributes,  // attribute bits that no node may have
  kNodeReserved,    // a reserved byte is set
  kNodeTime,        // no date of the calendar
  kNodeSize,        // a size that no block map can hold
  kMapMissing,      // a block-map block that the size needs is not there (M1)
  kMapForeign,      // a block-map block that holds something else than block numbers (M2)
  kMapHole,         // no block where the size says there is data (M1)
  kMapOutside,      // a block beyond the container's end (M4)
  kMapBeyondSize,   // blocks past the size
  kBlockShared,     // a block with two owners
  kGrowthHalfMade,  // one block past the size: the size was not yet stored
  kShrinkHalfMade,  // the last block is already taken out of the map: the size was not yet stored
  // directories
  kDirSize,             // not a multiple of 32, or below the two entries that each directory has (D2)
  kDirHole,             // an entry with node number 0 inside the size (D2)
  kDirPastSize,         // entries past the size (D2)
  kDirBlockForeign,     // a block without anything that could be an entry
  kDirAfterEnd,         // number fields set behind the end mark, where nothing looks
  kDirDot,              // the first entry is not "." with the directory's own number (D1)
  kDirDotDot,           // the second entry is not ".." with the parent's number (D1)
  kDirCycle,            // directories that contain each other and hang on nothing
  kNameIllegal,         // a name that the rule for names refuses
  kNameLower,           // a name that is not in upper case
  kNameDuplicate,       // a name that stands twice in its directory
  kEntryOutside,        // an entry with a node number that the volume does not have
  kEntryToRoot,         // an entry that names the root
  kEntryToFree,         // an entry that names a free node (S2)
  kEntryToLost,         // an entry that names a node whose record is lost
  kManyNames,           // a node with names that no interrupted move explains
  kAppendHalfMade,      // an entry just past the size: the size was not yet stored
  kRemovalHalfMade,     // the last entry is cleared: the size was not yet stored
  kEntryDoubled,        // the last entry was copied into the hole, but still stands at the end
  kLastBlockGivenBack,  // a directory's last block that already went back to the free chain (D4)
  kTwoNames,            // a node with a name in each of two directories: an interrupted move
  // free chain
  kChainOutside,       // the head or a link names a block beyond the container's end
  kChainSignature,     // a record without "FBC1"
  kChainCount,         // a count above the capacity
  kChainCycle,         // a link back to an earlier record
  kChainZeroEntry,     // an entry 0 (F2)
  kChainEntryOutside,  // an entry beyond the container's end
  kChainHeapOrder,     // an entry smaller than its parent (F2)
  kChainDuplicate,     // a block that stands in the chain twice
  kChainBlockInUse,    // a free block that something uses
  kChainPartial,       // a record behind the head that is not full
  // leaks
  kBlockLeaked,  // blocks that nothing names
  kNodeLeaked,   // a node in use that no entry names
};
constexpr std::size_t kKinds = static_cast<std::size_t>(Kind::kNodeLeaked) + 1;

// The kind's short name, such as "block-shared".
const char* Name(Kind kind);
Severity SeverityOf(Kind kind);

// "1 block", "2 blocks"; for a plural of another kind: Counted(n, "entry", "entries").
std::string Counted(std::uint64_t count, const char* one, const char* many = nullptr);

constexpr std::uint64_t kNoOffset = ~std::uint64_t{0};

struct Finding {
  Kind kind = Kind::kUnreadable;
  std::uint32_t node = 0;            // 0 = no node's
  std::uint32_t block = 0;           // 0 = outside the data area, or no block's
  std::uint64_t offset = kNoOffset;  // byte in the container
  std::uint32_t count = 1;           // how many things of this kind the finding stands for, such as blocks in a row
  std::string path;                  // the node's path, where it has a node
  std::string text;                  // one sentence: what is wrong and what it means
};

}  // namespace orba::inspect

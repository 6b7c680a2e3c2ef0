// The container format: every record that lies on disk, declared once. Nothing here needs the library; whoever reads
// containers includes this header alone.
//
// A container, in file order (B the block size, M the node bitmap size in bytes, both chosen when formatting):
//
//   offset       size     contents
//   0            128      volume header (VolumeHeader)
//   128          896      node-block table: 224 u32; entry k is the block that holds nodes k*(B/64)+1 to (k+1)*(B/64),
//                         0 = not allocated
//   1024         M        node bitmap: node n is bit 7-((n-1) mod 8) of byte (n-1)/8; set = free, clear = in use
//   1024+M       B each   data area: blocks, numbered from 1; block n starts at 1024+M+(n-1)*B. The area ends where the
//                         container ends and grows by appending, up to a container of less than 2^31 bytes
//
// A block is one of: a node block (B/64 OrbNodeRecord), a directory block (B/32 OrbDirEntry), a block-map block (B/4
// u32 block numbers), a free-chain record (FreeChainRecord), or plain file data.
//
// All integers are little-endian. Every record is naturally aligned, so the structs below carry no padding; the
// static_asserts say so.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace orba {

constexpr uint32_t kNoBlock = 0;  // block numbers count from 1

// ---- Volume header, at offset 0 of the container --------------------------------------------------------------------

constexpr uint32_t kVolumeSignature = 0x4142524F;  // "ORBA"
constexpr uint32_t kVolumeVersion = 0x20302E31;    // "1.0 "
constexpr uint32_t kVolumeDirty = 0x00000001;      // stateFlags: an update is in progress, or was interrupted

struct VolumeHeader {
  uint32_t signature;        //  0  "ORBA"
  uint32_t version;          //  4  "1.0 "
  uint32_t headerSize;       //  8  128
  uint32_t nodeTableOffset;  // 12  128
  uint32_t nodeTableSize;    // 16  896, in bytes
  uint32_t bitmapOffset;     // 20  1024
  uint32_t bitmapSize;       // 24  M, in bytes
  uint32_t reservedOffset;   // 28  1024 + M
  uint32_t reservedSize;     // 32  0; no such region is ever written
  uint32_t dataOffset;       // 36  1024 + M: block 1
  uint32_t blockSize;        // 40  B: 1024, 2048, 4096 or 8192
  uint32_t blockShift;       // 44  log2(B); only the low byte counts
  uint32_t freeChainHead;    // 48  newest free-chain record, 0 = none
  uint32_t stateFlags;       // 52  bit 0: kVolumeDirty
  uint8_t reserved[72];      // 56  zero, never read
};
static_assert(sizeof(VolumeHeader) == 128, "the header takes 128 bytes");
static_assert(offsetof(VolumeHeader, dataOffset) == 36, "layout");
static_assert(offsetof(VolumeHeader, freeChainHead) == 48, "layout");
static_assert(offsetof(VolumeHeader, stateFlags) == 52, "layout");

constexpr uint32_t kHeaderWords = 14;  // offsets 0 to 52: the part that is byte-order converted
constexpr uint32_t kHeaderSize = sizeof(VolumeHeader);
constexpr uint32_t kStateFlagsOffset = offsetof(VolumeHeader, stateFlags);

constexpr uint32_t kNodeTableEntries = 224;
constexpr uint32_t kNodeTableSize = kNodeTableEntries * 4;
constexpr uint32_t kBitmapOffset = kHeaderSize + kNodeTableSize;

constexpr bool IsBlockSize(uint32_t size) { return size == 1024 || size == 2048 || size == 4096 || size == 8192; }

// The largest node bitmap that formatting and mounting accept: (B/64) x 448 numbers, a bit each. It admits twice the
// nodes that the node-block table can place; the numbers beyond the table can never be given out.
constexpr uint32_t MaxBitmapSize(uint32_t blockSize) { return blockSize - blockSize / 8; }

// A container never reaches this size: positions are signed 32-bit numbers to the host.
constexpr uint32_t kContainerLimit = 0x80000000;

// ---- Node: one file or directory, 64 bytes in a node block ----------------------------------------------------------

constexpr uint32_t kNodeSignature = 0x314F4E49;  // "INO1"
constexpr uint16_t kRootNode = 1;                // nodes count from 1

// Attribute bits.
constexpr uint16_t kNodeReadOnly = 0x0001;
constexpr uint16_t kNodeUserFlag = 0x0002;    // the caller's; the library never tests it
constexpr uint16_t kNodeSystemFlag = 0x0004;  // on the root only
constexpr uint16_t ORB_NODE_DIRECTORY = 0x0008;
constexpr uint16_t kRootAttributes = 0x000E;  // what formatting gives the root

// UTC. The eighth byte is not part of the stamp and is zero.
struct TimeStamp {
  uint16_t year;     // 0
  uint8_t month;     // 2  1 to 12
  uint8_t day;       // 3  1 to 31
  uint8_t hour;      // 4
  uint8_t minute;    // 5
  uint8_t second;    // 6
  uint8_t reserved;  // 7
};
static_assert(sizeof(TimeStamp) == 8, "a stamp fills eight bytes");

constexpr uint32_t kDirectBlocks = 6;

struct OrbNodeRecord {
  uint32_t signature;              //  0  "INO1"
  uint16_t number;                 //  4  this node's number; written when its node block is made, never changed
  uint16_t attributes;             //  6
  TimeStamp time;                  //  8  last change
  uint32_t size;                   // 16  bytes; of a directory 32 for each entry
  uint32_t reserved[3];            // 20  zero
  uint32_t direct[kDirectBlocks];  // 32  logical blocks 0 to 5
  uint32_t indirect;               // 56  block-map block for logical blocks 6 to 5 + B/4, 0 = none
  uint32_t doubleIndirect;         // 60  block-map block of block-map blocks for the rest, 0 = none
};
static_assert(sizeof(OrbNodeRecord) == 64, "a node takes 64 bytes");
static_assert(offsetof(OrbNodeRecord, time) == 8, "layout");
static_assert(offsetof(OrbNodeRecord, size) == 16, "layout");
static_assert(offsetof(OrbNodeRecord, direct) == 32, "layout");
static_assert(offsetof(OrbNodeRecord, doubleIndirect) == 60, "layout");

constexpr uint32_t kNodeSize = sizeof(OrbNodeRecord);

// ---- Directory entry, 32 bytes in a directory block -----------------------------------------------------------------
// Entries are dense: entry i lies in directory block i / (B/32). Entry 0 is ".", entry 1 "..". An entry with node
// number 0 ends the directory.

constexpr uint32_t kNameSize = 30;  // 29 characters and the terminator

struct OrbDirEntry {
  uint16_t node;         // 0  0 = end of the directory
  char name[kNameSize];  // 2  upper case, NUL-terminated; bytes after the NUL carry no meaning
};
static_assert(sizeof(OrbDirEntry) == 32, "an entry takes 32 bytes");
static_assert(offsetof(OrbDirEntry, name) == 2, "layout");

constexpr uint32_t kDirEntrySize = sizeof(OrbDirEntry);

// ---- Free-chain record: one whole block that lists free blocks ------------------------------------------------------
// The chain is a stack of records; the header refers to the newest. A record's own block is free too: it is handed out
// when the record is empty and the next record takes its place.

constexpr uint32_t kFreeChainSignature = 0x31434246;  // "FBC1"

struct FreeChainRecord {
  uint32_t signature;  // 0  "FBC1"
  uint32_t next;       // 4  the record that was newest before this one, 0 = last
  uint32_t count;      // 8  entries in use, at most (B - 12) / 4
  uint32_t heap[1];    // 12 free block numbers, a binary min-heap (children of entry k, counted from 1: 2k and 2k+1);
                       //    runs to the end of the block
};
static_assert(offsetof(FreeChainRecord, heap) == 12, "layout");

constexpr uint32_t kFreeChainHeader = offsetof(FreeChainRecord, heap);

}  // namespace orba

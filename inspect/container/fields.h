// The lowest layer of the inspection: every field of every on-disk record, and with it the way from the container's
// bytes to the records of volume/layout.h and back. Works byte by byte, so that neither the host's byte order nor
// alignment matters. Stands on the layout alone.
//
// Decoding, encoding, the check of the header, the places of findings, dumps and the tables of docs/container-format.md
// all go by the tables below; volume/layout.h is where an offset is written down.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "volume/layout.h"

namespace orba::inspect {

inline std::uint16_t Get16(const std::uint8_t* bytes) { return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8)); }

inline std::uint32_t Get32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(Get16(bytes)) | static_cast<std::uint32_t>(Get16(bytes + 2)) << 16;
}

inline void Put16(std::uint8_t* bytes, std::uint16_t value) {
  bytes[0] = static_cast<std::uint8_t>(value);
  bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void Put32(std::uint8_t* bytes, std::uint32_t value) {
  Put16(bytes, static_cast<std::uint16_t>(value));
  Put16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

// ---- The fields -----------------------------------------------------------------------------------------------------

// How the bytes of a field are to be understood.
enum class Form : std::uint8_t {
  kText,        // four characters, in memory a number
  kNumber,      // an integer
  kBlock,       // a block number, 0 = none
  kAttributes,  // attribute bits
  kFlags,       // state flags
  kTime,        // a TimeStamp, as far as kTimeFields goes
  kName,        // characters up to a NUL
  kReserved,    // zero
};

struct Field {
  std::uint32_t offset;  // in the record
  std::uint32_t width;   // of one element: 1, 2 or 4 bytes
  std::uint32_t count;   // elements in a row
  Form form;
  const char* name;     // what dump and the format page call it; fields of one record may share a name
  const char* meaning;  // what a sentence calls it

  constexpr std::uint32_t size() const { return width * count; }
};

// Offset, width and count of a member.
#define ORBA_MEMBER(record, member)                                                 \
  offsetof(record, member), sizeof(std::remove_extent_t<decltype(record::member)>), \
      static_cast<std::uint32_t>(sizeof(record::member) / sizeof(std::remove_extent_t<decltype(record::member)>))

inline constexpr std::array kHeaderFields = {
    Field{ORBA_MEMBER(VolumeHeader, signature), Form::kText, "signature", "the signature"},
    Field{ORBA_MEMBER(VolumeHeader, version), Form::kText, "version", "the version"},
    Field{ORBA_MEMBER(VolumeHeader, headerSize), Form::kNumber, "header size", "the header size"},
    Field{ORBA_MEMBER(VolumeHeader, nodeTableOffset), Form::kNumber, "table offset", "the node-block table's offset"},
    Field{ORBA_MEMBER(VolumeHeader, nodeTableSize), Form::kNumber, "table size", "the node-block table's size"},
    Field{ORBA_MEMBER(VolumeHeader, bitmapOffset), Form::kNumber, "bitmap offset", "the node bitmap's offset"},
    Field{ORBA_MEMBER(VolumeHeader, bitmapSize), Form::kNumber, "bitmap size", "the node bitmap's size"},
    Field{ORBA_MEMBER(VolumeHeader, reservedOffset), Form::kNumber, "reserved offset", "the reserved region's offset"},
    Field{ORBA_MEMBER(VolumeHeader, reservedSize), Form::kNumber, "reserved size", "the reserved region's size"},
    Field{ORBA_MEMBER(VolumeHeader, dataOffset), Form::kNumber, "data area offset", "the data area's offset"},
    Field{ORBA_MEMBER(VolumeHeader, blockSize), Form::kNumber, "block size", "the block size"},
    Field{ORBA_MEMBER(VolumeHeader, blockShift), Form::kNumber, "block shift", "the block shift"},
    Field{ORBA_MEMBER(VolumeHeader, freeChainHead), Form::kBlock, "free-chain head", "the free chain's head"},
    Field{ORBA_MEMBER(VolumeHeader, stateFlags), Form::kFlags, "state flags", "the state flags"},
    Field{ORBA_MEMBER(VolumeHeader, reserved), Form::kReserved, "reserved", "the header's reserved bytes"},
};

inline constexpr std::array kTimeFields = {
    Field{ORBA_MEMBER(TimeStamp, year), Form::kNumber, "year", "the year"},
    Field{ORBA_MEMBER(TimeStamp, month), Form::kNumber, "month", "the month"},
    Field{ORBA_MEMBER(TimeStamp, day), Form::kNumber, "day", "the day"},
    Field{ORBA_MEMBER(TimeStamp, hour), Form::kNumber, "hour", "the hour"},
    Field{ORBA_MEMBER(TimeStamp, minute), Form::kNumber, "minute", "the minute"},
    Field{ORBA_MEMBER(TimeStamp, second), Form::kNumber, "second", "the second"},
};

inline constexpr std::array kNodeFields = {
    Field{ORBA_MEMBER(OrbNodeRecord, signature), Form::kText, "signature", "the signature"},
    Field{ORBA_MEMBER(OrbNodeRecord, number), Form::kNumber, "number", "the node's own number"},
    Field{ORBA_MEMBER(OrbNodeRecord, attributes), Form::kAttributes, "attributes", "the attributes"},
    Field{offsetof(OrbNodeRecord, time), 1, offsetof(TimeStamp, reserved), Form::kTime, "time stamp",
          "the time of the last change"},
    Field{offsetof(OrbNodeRecord, time) + offsetof(TimeStamp, reserved), 1, sizeof(TimeStamp::reserved),
          Form::kReserved, "reserved", "the byte behind the time stamp"},
    Field{ORBA_MEMBER(OrbNodeRecord, size), Form::kNumber, "size", "the size"},
    Field{ORBA_MEMBER(OrbNodeRecord, reserved), Form::kReserved, "reserved", "the node's reserved bytes"},
    Field{ORBA_MEMBER(OrbNodeRecord, direct), Form::kBlock, "direct", "a direct block"},
    Field{ORBA_MEMBER(OrbNodeRecord, indirect), Form::kBlock, "indirect", "the indirect block"},
    Field{ORBA_MEMBER(OrbNodeRecord, doubleIndirect), Form::kBlock, "double-indirect", "the double-indirect block"},
};

inline constexpr std::array kEntryFields = {
    Field{ORBA_MEMBER(OrbDirEntry, node), Form::kNumber, "node number", "the entry's node"},
    Field{ORBA_MEMBER(OrbDirEntry, name), Form::kName, "name", "the entry's name"},
};

// The entries go on to the end of the block.
inline constexpr std::array kChainFields = {
    Field{ORBA_MEMBER(FreeChainRecord, signature), Form::kText, "signature", "the signature"},
    Field{ORBA_MEMBER(FreeChainRecord, next), Form::kBlock, "next", "the next record"},
    Field{ORBA_MEMBER(FreeChainRecord, count), Form::kNumber, "count", "the number of entries"},
    Field{ORBA_MEMBER(FreeChainRecord, heap), Form::kBlock, "entries", "a free block"},
};

#undef ORBA_MEMBER

// Each field begins where the one before it ends, and the last ends with the record.
template <std::size_t kCount>
constexpr bool AreComplete(const std::array<Field, kCount>& fields, std::size_t size) {
  std::size_t at = 0;
  for (const Field& field : fields) {
    if (field.offset != at) return false;
    at += field.size();
  }
  return at == size;
}
static_assert(AreComplete(kHeaderFields, sizeof(VolumeHeader)), "every byte of the header");
static_assert(AreComplete(kTimeFields, offsetof(TimeStamp, reserved)), "every byte of a time stamp");
static_assert(AreComplete(kNodeFields, sizeof(OrbNodeRecord)), "every byte of a node");
static_assert(AreComplete(kEntryFields, sizeof(OrbDirEntry)), "every byte of an entry");
static_assert(AreComplete(kChainFields, sizeof(FreeChainRecord)), "every byte of a free-chain record");

// The first of the field's numbers as a record's bytes hold it.
std::uint32_t NumberOf(const Field& field, const std::uint8_t* record);

// ---- Where things without a name of their own lie -------------------------------------------------------------------

constexpr std::uint32_t kBlockSizes[] = {1024, 2048, 4096, 8192};
constexpr std::uint32_t kShiftMask = 0xFF;  // of the header's block shift: what readers use

constexpr std::uint32_t kWordSize = 4;  // a slot of a block map, an entry of the table or of the free chain

// Entry `index` of the node-block table.
constexpr std::uint64_t TableEntryOffset(std::uint32_t index) { return kHeaderSize + std::uint64_t{kWordSize} * index; }

// The byte of the bitmap with the bit of `node`, in the bitmap and in the container, and the bit in that byte.
constexpr std::uint32_t BitmapIndex(std::uint32_t node) { return (node - 1) / 8; }
constexpr std::uint64_t BitmapByteOffset(std::uint32_t node) { return kBitmapOffset + BitmapIndex(node); }
constexpr std::uint8_t BitmapBit(std::uint32_t node) { return static_cast<std::uint8_t>(0x80 >> ((node - 1) % 8)); }

// Entry `k`, counted from 0, of a free-chain record.
constexpr std::uint64_t HeapOffset(std::uint32_t k) { return kFreeChainHeader + std::uint64_t{kWordSize} * k; }

// ---- The records ----------------------------------------------------------------------------------------------------

// kHeaderSize bytes <-> header.
VolumeHeader DecodeHeader(const std::uint8_t* bytes);
void EncodeHeader(const VolumeHeader& header, std::uint8_t* bytes);

// The bytes of a time stamp, up to its eighth, which becomes zero.
TimeStamp DecodeTime(const std::uint8_t* bytes);

// kNodeSize bytes <-> node record.
OrbNodeRecord DecodeNode(const std::uint8_t* bytes);
void EncodeNode(const OrbNodeRecord& node, std::uint8_t* bytes);

// What tells a node's slot: signature and number, its first bytes.
constexpr std::uint32_t kNodeMarkSize = offsetof(OrbNodeRecord, attributes);
bool HasNodeSignature(const std::uint8_t* slot);
std::uint16_t NodeNumber(const std::uint8_t* slot);
// Signature and number are those of `node`; only kNodeMarkSize bytes are looked at.
bool IsSlotOf(const std::uint8_t* slot, std::uint32_t node);

// The record of a node that is not in use.
OrbNodeRecord EmptyNode(std::uint16_t number);

// kDirEntrySize bytes <-> directory entry. The name's bytes are taken as they are.
OrbDirEntry DecodeEntry(const std::uint8_t* bytes);
void EncodeEntry(const OrbDirEntry& entry, std::uint8_t* bytes);

// The entries that a directory's size counts.
constexpr std::uint32_t EntryCount(const OrbNodeRecord& directory) { return directory.size / kDirEntrySize; }

// A free-chain record in memory. `heap` holds as many of the `count` entries as the block has room for.
struct ChainRecord {
  std::uint32_t signature = kFreeChainSignature;
  std::uint32_t next = kNoBlock;
  std::uint32_t count = 0;
  std::vector<std::uint32_t> heap;
};

// A whole block <-> free-chain record. Encoding needs room for the heap, and fills the block up with zeros.
ChainRecord DecodeChain(const std::vector<std::uint8_t>& block);
std::vector<std::uint8_t> EncodeChain(const ChainRecord& record, std::uint32_t blockSize);

// The words of a block-map block or of the node-block table.
std::vector<std::uint32_t> DecodeWords(const std::uint8_t* bytes, std::size_t count);

}  // namespace orba::inspect

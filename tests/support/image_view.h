// Reads single records out of the bytes of a container, for tests. Nothing is checked but that the bytes are there:
// what lies beyond them throws std::out_of_range. For a judgement of a whole container see inspect/.
#pragma once

#include <string.h>

#include <string>
#include <vector>

#include "support/file_image.h"
#include "volume/layout.h"

namespace testhost {

// The address of `size` bytes at a byte offset.
const uint8_t* BytesAt(const Bytes& bytes, size_t offset, size_t size);
uint8_t* BytesAt(Bytes& bytes, size_t offset, size_t size);

// A record, or an integer, at a byte offset.
template <typename Record>
Record ReadRecord(const Bytes& bytes, size_t offset) {
  Record record;
  memcpy(&record, BytesAt(bytes, offset, sizeof record), sizeof record);
  return record;
}

template <typename Record>
void WriteRecord(Bytes& bytes, size_t offset, const Record& record) {
  memcpy(BytesAt(bytes, offset, sizeof record), &record, sizeof record);
}

inline uint16_t ReadU16(const Bytes& bytes, size_t offset) { return ReadRecord<uint16_t>(bytes, offset); }
inline uint32_t ReadU32(const Bytes& bytes, size_t offset) { return ReadRecord<uint32_t>(bytes, offset); }
inline void WriteU16(Bytes& bytes, size_t offset, uint16_t value) { WriteRecord(bytes, offset, value); }
inline void WriteU32(Bytes& bytes, size_t offset, uint32_t value) { WriteRecord(bytes, offset, value); }

orba::VolumeHeader HeaderOf(const Bytes& image);
bool IsMarkedDirty(const Bytes& image);

// Byte offset of a block, by the image's own header. Block numbers count from 1.
size_t BlockOffset(const Bytes& image, uint32_t block);

// A whole block; one that the end of the image cuts off throws.
Bytes BlockOf(const Bytes& image, uint32_t block);

// Blocks in the data area, a cut-off one included.
uint32_t BlockCount(const Bytes& image);

// Entry k, counted from 0, of the node-block table.
uint32_t NodeTableEntry(const Bytes& image, uint32_t k);

// Whether the bitmap has node `number` in use.
bool NodeInUse(const Bytes& image, uint32_t number);

// Byte offset of a node's record, and the record. Throws where its node block is not allocated.
size_t NodeOffset(const Bytes& image, uint32_t number);
orba::OrbNodeRecord NodeOf(const Bytes& image, uint32_t number);

// Entry `index`, counted from 0, of a directory block.
orba::OrbDirEntry EntryOf(const Bytes& image, uint32_t block, uint32_t index);

// An entry's name, cut at 29 characters where it has no terminator.
std::string NameOf(const orba::OrbDirEntry& entry);

// A free-chain record and the block numbers it lists, in heap order.
struct FreeChainView {
  uint32_t signature;
  uint32_t next;
  std::vector<uint32_t> heap;
};
FreeChainView FreeChainOf(const Bytes& image, uint32_t block);

}  // namespace testhost

// Reads single records out of the bytes of a container, for tests. Nothing is checked but that the bytes are there:
// what lies beyond them throws std::out_of_range. For a judgement of a whole container see inspect/.
#pragma once

#include <string.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/file_image.h"
#include "volume/layout.h"

namespace testhost {

// A record, or an integer, at a byte offset.
template <typename Record>
Record ReadRecord(const Bytes& bytes, size_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < sizeof(Record)) throw std::out_of_range("the bytes end before");
  Record record;
  memcpy(&record, bytes.data() + offset, sizeof record);
  return record;
}

template <typename Record>
void WriteRecord(Bytes& bytes, size_t offset, const Record& record) {
  ReadRecord<Record>(bytes, offset);
  memcpy(bytes.data() + offset, &record, sizeof record);
}

inline uint16_t ReadU16(const Bytes& bytes, size_t offset) { return ReadRecord<uint16_t>(bytes, offset); }
inline uint32_t ReadU32(const Bytes& bytes, size_t offset) { return ReadRecord<uint32_t>(bytes, offset); }
inline void WriteU16(Bytes& bytes, size_t offset, uint16_t value) { WriteRecord(bytes, offset, value); }
inline void WriteU32(Bytes& bytes, size_t offset, uint32_t value) { WriteRecord(bytes, offset, value); }

inline orba::VolumeHeader HeaderOf(const Bytes& image) { return ReadRecord<orba::VolumeHeader>(image, 0); }
inline bool IsMarkedDirty(const Bytes& image) { return (HeaderOf(image).stateFlags & orba::kVolumeDirty) != 0; }

// Byte offset of a block, by the image's own header.
inline size_t BlockOffset(const Bytes& image, uint32_t block) {
  const orba::VolumeHeader header = HeaderOf(image);
  return header.dataOffset + size_t{block - 1} * header.blockSize;
}

// A whole block. The last one of an image may be cut off: then it throws.
inline Bytes BlockOf(const Bytes& image, uint32_t block) {
  const size_t offset = BlockOffset(image, block);
  const size_t size = HeaderOf(image).blockSize;
  if (offset > image.size() || image.size() - offset < size) throw std::out_of_range("the bytes end before the block");
  const auto begin = image.begin() + static_cast<ptrdiff_t>(offset);
  return Bytes(begin, begin + static_cast<ptrdiff_t>(size));
}

// Blocks in the data area, a cut-off one included.
inline uint32_t BlockCount(const Bytes& image) {
  const orba::VolumeHeader header = HeaderOf(image);
  return static_cast<uint32_t>((image.size() - header.dataOffset + header.blockSize - 1) / header.blockSize);
}

// Entry k of the node-block table.
inline uint32_t NodeTableEntry(const Bytes& image, uint32_t k) {
  return ReadU32(image, HeaderOf(image).nodeTableOffset + size_t{k} * 4);
}

// Whether the bitmap has node `number` in use.
inline bool NodeInUse(const Bytes& image, uint32_t number) {
  const size_t offset = HeaderOf(image).bitmapOffset + (number - 1) / 8;
  return (ReadRecord<uint8_t>(image, offset) >> (7 - (number - 1) % 8) & 1) == 0;
}

// Byte offset of a node's record, and the record. Throws where its node block is not allocated.
inline size_t NodeOffset(const Bytes& image, uint32_t number) {
  const uint32_t perBlock = HeaderOf(image).blockSize / orba::kNodeSize;
  const uint32_t block = NodeTableEntry(image, (number - 1) / perBlock);
  if (block == orba::kNoBlock) throw std::out_of_range("the node block is not allocated");
  return BlockOffset(image, block) + size_t{(number - 1) % perBlock} * orba::kNodeSize;
}
inline orba::OrbNodeRecord NodeOf(const Bytes& image, uint32_t number) {
  return ReadRecord<orba::OrbNodeRecord>(image, NodeOffset(image, number));
}

// Entry `index`, counted from 0, of a directory block.
inline orba::OrbDirEntry EntryOf(const Bytes& image, uint32_t block, uint32_t index) {
  return ReadRecord<orba::OrbDirEntry>(image, BlockOffset(image, block) + size_t{index} * orba::kDirEntrySize);
}

// An entry's name, cut at 29 characters where it has no terminator.
inline std::string NameOf(const orba::OrbDirEntry& entry) {
  return std::string(entry.name, strnlen(entry.name, orba::kNameSize - 1));
}

// A free-chain record: the block numbers it lists, in heap order.
struct FreeChainView {
  uint32_t signature;
  uint32_t next;
  std::vector<uint32_t> heap;
};
inline FreeChainView FreeChainOf(const Bytes& image, uint32_t block) {
  const size_t offset = BlockOffset(image, block);
  const auto record = ReadRecord<orba::FreeChainRecord>(image, offset);
  FreeChainView view = {record.signature, record.next, {}};
  for (uint32_t i = 0; i < record.count; ++i) {
    view.heap.push_back(ReadU32(image, offset + orba::kFreeChainHeader + size_t{i} * 4));
  }
  return view;
}

}  // namespace testhost

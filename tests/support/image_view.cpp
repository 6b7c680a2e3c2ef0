#include "support/image_view.h"

#include <stdexcept>

namespace testhost {

using orba::VolumeHeader;

const uint8_t* BytesAt(const Bytes& bytes, size_t offset, size_t size) {
  if (offset > bytes.size() || bytes.size() - offset < size) throw std::out_of_range("the bytes end before");
  return bytes.data() + offset;
}

uint8_t* BytesAt(Bytes& bytes, size_t offset, size_t size) {
  if (offset > bytes.size() || bytes.size() - offset < size) throw std::out_of_range("the bytes end before");
  return bytes.data() + offset;
}

VolumeHeader HeaderOf(const Bytes& image) { return ReadRecord<VolumeHeader>(image, 0); }

bool IsMarkedDirty(const Bytes& image) { return (HeaderOf(image).stateFlags & orba::kVolumeDirty) != 0; }

size_t BlockOffset(const Bytes& image, uint32_t block) {
  if (block == orba::kNoBlock) throw std::out_of_range("blocks count from 1");
  const VolumeHeader header = HeaderOf(image);
  return header.dataOffset + size_t{block - 1} * header.blockSize;
}

Bytes BlockOf(const Bytes& image, uint32_t block) {
  const size_t size = HeaderOf(image).blockSize;
  const uint8_t* bytes = BytesAt(image, BlockOffset(image, block), size);
  return Bytes(bytes, bytes + size);
}

uint32_t BlockCount(const Bytes& image) {
  const VolumeHeader header = HeaderOf(image);
  const size_t area = image.size() > header.dataOffset ? image.size() - header.dataOffset : 0;
  return static_cast<uint32_t>((area + header.blockSize - 1) / header.blockSize);
}

uint32_t NodeTableEntry(const Bytes& image, uint32_t k) {
  return ReadU32(image, HeaderOf(image).nodeTableOffset + size_t{k} * 4);
}

bool NodeInUse(const Bytes& image, uint32_t number) {
  const uint32_t bit = number - 1;
  const uint8_t byte = ReadRecord<uint8_t>(image, HeaderOf(image).bitmapOffset + bit / 8);
  return (byte >> (7 - bit % 8) & 1) == 0;
}

size_t NodeOffset(const Bytes& image, uint32_t number) {
  const uint32_t perBlock = HeaderOf(image).blockSize / orba::kNodeSize;
  const uint32_t block = NodeTableEntry(image, (number - 1) / perBlock);
  if (block == orba::kNoBlock) throw std::out_of_range("the node block is not allocated");
  return BlockOffset(image, block) + size_t{(number - 1) % perBlock} * orba::kNodeSize;
}

orba::OrbNodeRecord NodeOf(const Bytes& image, uint32_t number) {
  return ReadRecord<orba::OrbNodeRecord>(image, NodeOffset(image, number));
}

orba::OrbDirEntry EntryOf(const Bytes& image, uint32_t block, uint32_t index) {
  return ReadRecord<orba::OrbDirEntry>(image, BlockOffset(image, block) + size_t{index} * orba::kDirEntrySize);
}

std::string NameOf(const orba::OrbDirEntry& entry) {
  return std::string(entry.name, strnlen(entry.name, orba::kNameSize - 1));
}

FreeChainView FreeChainOf(const Bytes& image, uint32_t block) {
  const size_t offset = BlockOffset(image, block);
  FreeChainView view = {ReadU32(image, offset), ReadU32(image, offset + offsetof(orba::FreeChainRecord, next)), {}};
  const uint32_t count = ReadU32(image, offset + offsetof(orba::FreeChainRecord, count));
  for (uint32_t i = 0; i < count; ++i) {
    view.heap.push_back(ReadU32(image, offset + orba::kFreeChainHeader + size_t{i} * 4));
  }
  return view;
}

}  // namespace testhost

#include "inspect/container/fields.h"

namespace orba::inspect {

VolumeHeader DecodeHeader(const std::uint8_t* bytes) {
  VolumeHeader header;
  header.signature = Get32(bytes);
  header.version = Get32(bytes + 4);
  header.headerSize = Get32(bytes + 8);
  header.nodeTableOffset = Get32(bytes + 12);
  header.nodeTableSize = Get32(bytes + 16);
  header.bitmapOffset = Get32(bytes + 20);
  header.bitmapSize = Get32(bytes + 24);
  header.reservedOffset = Get32(bytes + 28);
  header.reservedSize = Get32(bytes + 32);
  header.dataOffset = Get32(bytes + 36);
  header.blockSize = Get32(bytes + 40);
  header.blockShift = Get32(bytes + 44);
  header.freeChainHead = Get32(bytes + 48);
  header.stateFlags = Get32(bytes + 52);
  std::memcpy(header.reserved, bytes + 56, sizeof header.reserved);
  return header;
}

void EncodeHeader(const VolumeHeader& header, std::uint8_t* bytes) {
  Put32(bytes, header.signature);
  Put32(bytes + 4, header.version);
  Put32(bytes + 8, header.headerSize);
  Put32(bytes + 12, header.nodeTableOffset);
  Put32(bytes + 16, header.nodeTableSize);
  Put32(bytes + 20, header.bitmapOffset);
  Put32(bytes + 24, header.bitmapSize);
  Put32(bytes + 28, header.reservedOffset);
  Put32(bytes + 32, header.reservedSize);
  Put32(bytes + 36, header.dataOffset);
  Put32(bytes + 40, header.blockSize);
  Put32(bytes + 44, header.blockShift);
  Put32(bytes + 48, header.freeChainHead);
  Put32(bytes + 52, header.stateFlags);
  std::memcpy(bytes + 56, header.reserved, sizeof header.reserved);
}

OrbNodeRecord DecodeNode(const std::uint8_t* bytes) {
  OrbNodeRecord node;
  node.signature = Get32(bytes);
  node.number = Get16(bytes + 4);
  node.attributes = Get16(bytes + 6);
  node.time = {Get16(bytes + 8), bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]};
  node.size = Get32(bytes + 16);
  for (std::uint32_t i = 0; i < 3; ++i) node.reserved[i] = Get32(bytes + 20 + 4 * i);
  for (std::uint32_t i = 0; i < kDirectBlocks; ++i) node.direct[i] = Get32(bytes + 32 + 4 * i);
  node.indirect = Get32(bytes + 56);
  node.doubleIndirect = Get32(bytes + 60);
  return node;
}

void EncodeNode(const OrbNodeRecord& node, std::uint8_t* bytes) {
  Put32(bytes, node.signature);
  Put16(bytes + 4, node.number);
  Put16(bytes + 6, node.attributes);
  Put16(bytes + 8, node.time.year);
  bytes[10] = node.time.month;
  bytes[11] = node.time.day;
  bytes[12] = node.time.hour;
  bytes[13] = node.time.minute;
  bytes[14] = node.time.second;
  bytes[15] = node.time.reserved;
  Put32(bytes + 16, node.size);
  for (std::uint32_t i = 0; i < 3; ++i) Put32(bytes + 20 + 4 * i, node.reserved[i]);
  for (std::uint32_t i = 0; i < kDirectBlocks; ++i) Put32(bytes + 32 + 4 * i, node.direct[i]);
  Put32(bytes + 56, node.indirect);
  Put32(bytes + 60, node.doubleIndirect);
}

OrbDirEntry DecodeEntry(const std::uint8_t* bytes) {
  OrbDirEntry entry;
  entry.node = Get16(bytes);
  std::memcpy(entry.name, bytes + 2, kNameSize);
  return entry;
}

void EncodeEntry(const OrbDirEntry& entry, std::uint8_t* bytes) {
  Put16(bytes, entry.node);
  std::memcpy(bytes + 2, entry.name, kNameSize);
}

}  // namespace orba::inspect

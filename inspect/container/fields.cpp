#include "inspect/container/fields.h"

#include <algorithm>
#include <cstring>

namespace orba::inspect {

namespace {

// The record's struct has each field at the same offset as the container.
template <std::size_t kCount>
void DecodeFields(const std::array<Field, kCount>& fields, const std::uint8_t* bytes, void* record) {
  auto* to = static_cast<unsigned char*>(record);
  for (const Field& field : fields) {
    const std::uint32_t end = field.offset + field.size();
    for (std::uint32_t at = field.offset; at < end; at += field.width) {
      if (field.width == sizeof(std::uint32_t)) {
        const std::uint32_t value = Get32(bytes + at);
        std::memcpy(to + at, &value, sizeof value);
      } else if (field.width == sizeof(std::uint16_t)) {
        const std::uint16_t value = Get16(bytes + at);
        std::memcpy(to + at, &value, sizeof value);
      } else {
        to[at] = bytes[at];
      }
    }
  }
}

template <std::size_t kCount>
void EncodeFields(const std::array<Field, kCount>& fields, const void* record, std::uint8_t* bytes) {
  const auto* from = static_cast<const unsigned char*>(record);
  for (const Field& field : fields) {
    const std::uint32_t end = field.offset + field.size();
    for (std::uint32_t at = field.offset; at < end; at += field.width) {
      if (field.width == sizeof(std::uint32_t)) {
        std::uint32_t value;
        std::memcpy(&value, from + at, sizeof value);
        Put32(bytes + at, value);
      } else if (field.width == sizeof(std::uint16_t)) {
        std::uint16_t value;
        std::memcpy(&value, from + at, sizeof value);
        Put16(bytes + at, value);
      } else {
        bytes[at] = from[at];
      }
    }
  }
}

constexpr std::uint32_t kTimeOffset = offsetof(OrbNodeRecord, time);

}  // namespace

std::uint32_t NumberOf(const Field& field, const std::uint8_t* record) {
  if (field.width == sizeof(std::uint32_t)) return Get32(record + field.offset);
  return field.width == sizeof(std::uint16_t) ? Get16(record + field.offset) : record[field.offset];
}

VolumeHeader DecodeHeader(const std::uint8_t* bytes) {
  VolumeHeader header;
  DecodeFields(kHeaderFields, bytes, &header);
  return header;
}

void EncodeHeader(const VolumeHeader& header, std::uint8_t* bytes) { EncodeFields(kHeaderFields, &header, bytes); }

TimeStamp DecodeTime(const std::uint8_t* bytes) {
  TimeStamp time = {};
  DecodeFields(kTimeFields, bytes, &time);
  return time;
}

OrbNodeRecord DecodeNode(const std::uint8_t* bytes) {
  OrbNodeRecord node;
  DecodeFields(kNodeFields, bytes, &node);
  DecodeFields(kTimeFields, bytes + kTimeOffset, &node.time);
  return node;
}

void EncodeNode(const OrbNodeRecord& node, std::uint8_t* bytes) {
  EncodeFields(kNodeFields, &node, bytes);
  EncodeFields(kTimeFields, &node.time, bytes + kTimeOffset);
}

bool HasNodeSignature(const std::uint8_t* slot) {
  return Get32(slot + offsetof(OrbNodeRecord, signature)) == kNodeSignature;
}

std::uint16_t NodeNumber(const std::uint8_t* slot) { return Get16(slot + offsetof(OrbNodeRecord, number)); }

bool IsSlotOf(const std::uint8_t* slot, std::uint32_t node) {
  return HasNodeSignature(slot) && NodeNumber(slot) == node;
}

OrbNodeRecord EmptyNode(std::uint16_t number) {
  OrbNodeRecord node = {};
  node.signature = kNodeSignature;
  node.number = number;
  return node;
}

OrbDirEntry DecodeEntry(const std::uint8_t* bytes) {
  OrbDirEntry entry;
  DecodeFields(kEntryFields, bytes, &entry);
  return entry;
}

void EncodeEntry(const OrbDirEntry& entry, std::uint8_t* bytes) { EncodeFields(kEntryFields, &entry, bytes); }

ChainRecord DecodeChain(const std::vector<std::uint8_t>& block) {
  FreeChainRecord head;
  DecodeFields(kChainFields, block.data(), &head);
  const std::size_t room = (block.size() - kFreeChainHeader) / kWordSize;
  const std::size_t count = std::min<std::size_t>(head.count, room);
  return {head.signature, head.next, head.count, DecodeWords(block.data() + kFreeChainHeader, count)};
}

std::vector<std::uint8_t> EncodeChain(const ChainRecord& record, std::uint32_t blockSize) {
  std::vector<std::uint8_t> block(blockSize);
  const FreeChainRecord head = {record.signature, record.next, record.count, {0}};
  EncodeFields(kChainFields, &head, block.data());
  std::uint8_t* entry = block.data() + kFreeChainHeader;
  for (const std::uint32_t free : record.heap) {
    Put32(entry, free);
    entry += kWordSize;
  }
  return block;
}

std::vector<std::uint32_t> DecodeWords(const std::uint8_t* bytes, std::size_t count) {
  std::vector<std::uint32_t> words(count);
  for (std::size_t i = 0; i < count; ++i) words[i] = Get32(bytes + kWordSize * i);
  return words;
}

}  // namespace orba::inspect

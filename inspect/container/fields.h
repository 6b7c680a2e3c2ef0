// The lowest layer of the inspection: turns the container's bytes into the records of volume/layout.h and back, one
// byte at a time, so that neither the host's byte order nor alignment matters. Stands on the layout alone.
#pragma once

#include <cstdint>
#include <cstring>

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

// kHeaderSize bytes <-> header.
VolumeHeader DecodeHeader(const std::uint8_t* bytes);
void EncodeHeader(const VolumeHeader& header, std::uint8_t* bytes);

// kNodeSize bytes <-> node record.
OrbNodeRecord DecodeNode(const std::uint8_t* bytes);
void EncodeNode(const OrbNodeRecord& node, std::uint8_t* bytes);

// kDirEntrySize bytes <-> directory entry. The name's 30 bytes are taken as they are.
OrbDirEntry DecodeEntry(const std::uint8_t* bytes);
void EncodeEntry(const OrbDirEntry& entry, std::uint8_t* bytes);

}  // namespace orba::inspect

// Where things lie in a container: the block size, the bitmap's size and all that follows from them. Taken from
// the header, and where that is damaged from the rest of the container. Stands on image and fields.
#pragma once

#include <cstdint>

#include "inspect/container/fields.h"
#include "inspect/container/image.h"
#include "volume/layout.h"

namespace orba::inspect {

struct Geometry {
  std::uint32_t blockSize = 0;   // B; 0 = the layout is unknown
  std::uint32_t bitmapSize = 0;  // M
  std::uint32_t dataOffset = 0;  // byte position of block 1
  std::uint32_t blocks = 0;      // whole blocks that the container holds: block numbers run from 1 to this

  bool known() const { return blockSize != 0; }
  std::uint32_t nodesPerBlock() const { return blockSize / kNodeSize; }
  std::uint32_t entriesPerBlock() const { return blockSize / kDirEntrySize; }
  std::uint32_t mapSlots() const { return blockSize / kWordSize; }
  std::uint32_t chainCapacity() const { return (blockSize - kFreeChainHeader) / kWordSize; }

  // The highest node number that the volume can have: the bitmap's bits, as far as the table has room for their blocks.
  // The root is there even when the bitmap is empty.
  std::uint32_t nodeLimit() const;

  // Table entries that those nodes need.
  std::uint32_t tableEntries() const {
    const std::uint32_t perBlock = nodesPerBlock();
    return perBlock == 0 ? 0 : (nodeLimit() + perBlock - 1) / perBlock;
  }

  // The number of the first node in node block `index`.
  std::uint32_t firstNode(std::uint32_t index) const { return index * nodesPerBlock() + 1; }

  // The first logical block that the double-indirect block serves, that slot `slot` of it serves, and the first that no
  // map can hold.
  std::uint64_t firstDouble() const { return kDirectBlocks + std::uint64_t{mapSlots()}; }
  std::uint64_t firstOfSecond(std::uint64_t slot) const { return firstDouble() + slot * mapSlots(); }
  std::uint64_t mapCapacity() const { return firstOfSecond(mapSlots()); }

  bool Holds(std::uint32_t block) const { return block != kNoBlock && block <= blocks; }
  std::uint64_t BlockOffset(std::uint32_t block) const {
    return dataOffset + (static_cast<std::uint64_t>(block) - 1) * blockSize;
  }
  // The block in which byte `offset` of the data area lies.
  std::uint32_t BlockAt(std::uint64_t offset) const {
    return static_cast<std::uint32_t>((offset - dataOffset) / blockSize) + 1;
  }
  // Slot `slot` of node block, directory block or block-map block `block`.
  std::uint64_t NodeOffset(std::uint32_t block, std::uint32_t slot) const {
    return BlockOffset(block) + std::uint64_t{kNodeSize} * slot;
  }
  std::uint64_t EntryOffset(std::uint32_t block, std::uint32_t slot) const {
    return BlockOffset(block) + std::uint64_t{kDirEntrySize} * slot;
  }
  std::uint64_t SlotOffset(std::uint32_t block, std::uint64_t slot) const {
    return BlockOffset(block) + kWordSize * slot;
  }
  std::uint64_t BlocksFor(std::uint32_t bytes) const {
    return (static_cast<std::uint64_t>(bytes) + blockSize - 1) / blockSize;
  }
};

// Beside kVolumeDirty in the state flags: the mark is a repair's own, and no operation of the library was stopped.
constexpr std::uint32_t kRepairMark = 2;

// True when the header's sizes and offsets agree with each other and with the limits, so that a mount would take them.
// Signature, version, state flags and reserved bytes do not matter here.
bool FieldsAgree(const VolumeHeader& header);

// The geometry of the container: the header's where its fields agree and the root lies where they say. Otherwise
// everything that the header says twice is tried until block 1, which always is the root's node block, confirms it;
// then that block is searched for, and at last whatever else shows where blocks begin (layout_search.h). Fields that
// agree give way only to a geometry by which the root is found. When all fails, a geometry that is not known.
Geometry FindGeometry(const Image& image, const VolumeHeader& header);

// What formatting would have written, with the chain head and the flags of `header` kept.
VolumeHeader SoundHeader(const Geometry& geometry, const VolumeHeader& header);

}  // namespace orba::inspect

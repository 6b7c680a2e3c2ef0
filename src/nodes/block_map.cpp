#include "nodes/block_map.h"

#include <string.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/scratch.h"
#include "space/block_io.h"
#include "space/free_chain.h"

namespace orba {

namespace {

// Logical block i of a node, beyond the direct slots.
struct MapPlace {
  bool isDouble;      // reached through doubleIndirect
  uint32_t mapSlot;   // the slot of doubleIndirect, where isDouble
  uint32_t leafSlot;  // the slot that holds the data block's number
};

MapPlace PlaceOf(const Volume* volume, uint32_t i) {
  const uint32_t words = volume->wordsPerBlock;
  if (i < kDirectBlocks + words) return {false, 0, i - kDirectBlocks};
  const uint32_t j = i - kDirectBlocks - words;
  return {true, j >> (BlockShift(volume) - 2), j & (words - 1)};
}

// Reads one slot of a block-map block, 0 included.
bool ReadMapSlot(Volume* volume, uint32_t mapBlock, uint32_t slot, uint32_t* value) {
  if (mapBlock == kNoBlock || slot >= volume->wordsPerBlock) return Fail(ORB_ERROR_DAMAGED_RECORD);
  if (!ReadBlockBytes(value, volume, mapBlock, slot * 4, 4)) return false;
  ConvertField(value);
  return true;
}

// The block number in a slot; 0 with the error set where the slot is empty.
uint32_t LookupMapSlot(Volume* volume, uint32_t mapBlock, uint32_t slot) {
  uint32_t block = kNoBlock;
  if (!ReadMapSlot(volume, mapBlock, slot, &block)) return kNoBlock;
  return block != kNoBlock ? block : Fail(ORB_ERROR_DAMAGED_RECORD);
}

bool SetDoubleIndirect(OrbNode* node, const MapPlace& place, uint32_t block) {
  Volume* const volume = node->volume;
  uint32_t* const top = &node->record.doubleIndirect;
  if (*top != kNoBlock) {
    uint32_t second = kNoBlock;
    if (!ReadMapSlot(volume, *top, place.mapSlot, &second)) return false;
    const uint32_t stored = SetIndirectEntry(volume, second, place.leafSlot, block);
    if (stored == kNoBlock) return false;
    return second != kNoBlock || SetIndirectEntry(volume, *top, place.mapSlot, stored) != kNoBlock;
  }
  const uint32_t second = SetIndirectEntry(volume, kNoBlock, place.leafSlot, block);
  if (second == kNoBlock) return false;
  *top = SetIndirectEntry(volume, kNoBlock, place.mapSlot, second);
  if (*top != kNoBlock) return true;
  if (IsOutOfSpace()) FreeBlock(volume, second);
  return false;
}

// Frees a block-map block, then what its slots list up to the first zero one: data blocks at level 1, block-map blocks
// of level 1 at level 2.
bool ReleaseMapTree(Volume* volume, uint32_t mapBlock, uint32_t level) {
  const Scratch map(Allocate(volume->header.blockSize));
  if (map.bytes == nullptr || !ReadBlock(map.bytes, volume, mapBlock)) return false;
  if (!FreeBlock(volume, mapBlock)) return false;  // what it lists is in memory by now
  for (uint32_t slot = 0; slot < volume->wordsPerBlock; ++slot) {
    uint32_t block = map.As<uint32_t>()[slot];
    if (block == kNoBlock) break;
    ConvertField(&block);
    if (!(level == 1 ? FreeBlock(volume, block) : ReleaseMapTree(volume, block, level - 1))) return false;
  }
  return true;
}

bool IsInsideMap(const Volume* volume, uint32_t i) {
  const uint32_t words = volume->wordsPerBlock;
  return i < kDirectBlocks + words + words * words;
}

}  // namespace

uint32_t LookupFileBlock(const OrbNode* node, uint32_t position) {
  Volume* const volume = node->volume;
  const uint32_t i = BlockIndex(volume, position);
  if (i < kDirectBlocks) {
    const uint32_t block = node->record.direct[i];
    return block != kNoBlock ? block : Fail(ORB_ERROR_DAMAGED_RECORD);
  }
  const MapPlace place = PlaceOf(volume, i);
  if (!place.isDouble) return LookupMapSlot(volume, node->record.indirect, place.leafSlot);
  const uint32_t second = LookupMapSlot(volume, node->record.doubleIndirect, place.mapSlot);
  return second != kNoBlock ? LookupMapSlot(volume, second, place.leafSlot) : kNoBlock;
}

bool SetFileBlock(OrbNode* node, uint32_t position, uint32_t block) {
  if (!OrbNodeIsValid(node)) return Fail(ORB_ERROR_ABORTED);
  const Volume* const volume = node->volume;
  const uint32_t i = BlockIndex(volume, position);
  // Q18: a block past the end may be entered when the size is a multiple of the block size, or one byte short of one.
  if (i > BlockIndex(volume, node->record.size + 1)) return Fail(ORB_ERROR_DAMAGED_RECORD);
  if (!IsInsideMap(volume, i)) return Fail(ORB_ERROR_VOLUME_FULL);
  if (i < kDirectBlocks) {
    node->record.direct[i] = block;
    return true;
  }
  const MapPlace place = PlaceOf(volume, i);
  if (place.isDouble) return SetDoubleIndirect(node, place, block);
  const uint32_t indirect = SetIndirectEntry(node->volume, node->record.indirect, place.leafSlot, block);
  if (indirect == kNoBlock) return false;
  node->record.indirect = indirect;
  return true;
}

uint32_t SetIndirectEntry(Volume* volume, uint32_t mapBlock, uint32_t slot, uint32_t value) {
  ConvertField(&value);
  if (mapBlock != kNoBlock) {
    return WriteBlockBytes(&value, volume, mapBlock, kBlockMapWrite, slot * 4, 4) ? mapBlock : kNoBlock;
  }
  if (slot != 0) return Fail(ORB_ERROR_DAMAGED_RECORD);
  return AllocWriteBlockPadded(&value, volume, kBlockMapWrite, 4);
}

bool AppendFileBlock(OrbNode* node, uint32_t position, const void* data, uint32_t length, uint32_t flags) {
  Volume* const volume = node->volume;
  if (!IsInsideMap(volume, BlockIndex(volume, position))) return Fail(ORB_ERROR_VOLUME_FULL);
  const uint32_t block = AllocWriteBlockPadded(data, volume, flags, length);
  return block != kNoBlock && SetFileBlock(node, position, block);
}

bool ReleaseFileBlocks(OrbNode* node) {
  Volume* const volume = node->volume;
  if (node->record.size == 0) return true;

  const OrbNodeRecord before = node->record;
  node->record.size = 0;
  memset(node->record.direct, 0, sizeof node->record.direct);
  node->record.indirect = kNoBlock;
  node->record.doubleIndirect = kNoBlock;
  if (!StampAndWriteNode(node)) return false;  // the commit point: the node is empty

  for (uint32_t i = 0; i < kDirectBlocks && before.direct[i] != kNoBlock; ++i) {
    if (!FreeBlock(volume, before.direct[i])) return false;
  }
  if (before.direct[kDirectBlocks - 1] == kNoBlock || before.indirect == kNoBlock) return true;
  if (!ReleaseIndirectTree(volume, before.indirect)) return false;
  return before.doubleIndirect == kNoBlock || ReleaseMapTree(volume, before.doubleIndirect, 2);
}

bool ReleaseIndirectTree(Volume* volume, uint32_t mapBlock) { return ReleaseMapTree(volume, mapBlock, 1); }

}  // namespace orba

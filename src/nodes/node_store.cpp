#include "nodes/node_store.h"

#include "base/error.h"
#include "base/scratch.h"
#include "nodes/block_map.h"
#include "space/block_io.h"
#include "space/free_chain.h"

namespace orba {

namespace {

constexpr uint8_t kAllFree = 0xFF;

// A number's place in the bitmap: numbers are packed highest bit first, a set bit means free.
uint32_t BitmapByte(uint32_t number) { return (number - 1) / 8; }
uint8_t BitmapMask(uint32_t number) { return static_cast<uint8_t>(0x80 >> ((number - 1) % 8)); }

// The lowest free number, or 0 with ORB_ERROR_NO_FREE_NODE. The bitmap may go further than the node-block table
// can (Q27).
uint32_t FindFreeNumber(const Volume* volume) {
  const uint32_t bytes = volume->header.bitmapSize;
  uint32_t byte = 0;
  while (byte < bytes && volume->bitmap[byte] == 0) ++byte;
  if (byte == bytes) return Fail(ORB_ERROR_NO_FREE_NODE);
  uint32_t number = 8 * byte + 1;
  while ((volume->bitmap[byte] & BitmapMask(number)) == 0) ++number;
  return NodeBlockIndex(volume, number) < kNodeTableEntries ? number : Fail(ORB_ERROR_NO_FREE_NODE);
}

// Turns a number's bit over and writes the bitmap.
bool FlipBitmapBit(Volume* volume, uint32_t number) {
  uint8_t* const byte = &volume->bitmap[BitmapByte(number)];
  const uint8_t before = *byte;
  *byte = static_cast<uint8_t>(before ^ BitmapMask(number));
  if (StoreNodeBitmap(volume)) return true;
  *byte = before;
  return false;
}

// Sets an entry of the node-block table and writes the table.
bool SetNodeBlock(Volume* volume, uint32_t index, uint32_t block) {
  const uint32_t before = volume->nodeTable[index];
  volume->nodeTable[index] = block;
  if (StoreNodeBlockTable(volume)) return true;
  volume->nodeTable[index] = before;
  return false;
}

bool IsNodeBlockFree(const Volume* volume, uint32_t index) {
  const uint32_t bytes = volume->nodesPerBlock / 8;
  for (uint32_t i = index * bytes; i < (index + 1) * bytes && i < volume->header.bitmapSize; ++i) {
    if (volume->bitmap[i] != kAllFree) return false;
  }
  return true;
}

}  // namespace

OrbNode* OrbNodeCreate(Volume* volume, uint16_t attributes) {
  constexpr uint16_t kAllowed = kNodeReadOnly | kNodeUserFlag | ORB_NODE_DIRECTORY;
  if ((attributes & ~kAllowed) != 0) {
    Fail(ORB_ERROR_INVALID_ARGUMENT);
    return nullptr;
  }
  if ((attributes & ORB_NODE_DIRECTORY) != 0) attributes = ORB_NODE_DIRECTORY;

  NodeRef created(OrbNodeAlloc());
  if (created.node == nullptr) return nullptr;
  const uint32_t number = FindFreeNumber(volume);
  if (number == 0) return nullptr;
  const uint32_t index = NodeBlockIndex(volume, number);
  if (volume->nodeTable[index] == kNoBlock && !OrbNodeBlockInit(volume, index)) return nullptr;

  OrbNodeRecord* const record = &created.node->record;
  record->signature = kNodeSignature;
  record->number = static_cast<uint16_t>(number);
  record->attributes = attributes;
  created.node->volume = volume;
  if (!StampAndWriteNode(created.node)) return nullptr;
  if (!FlipBitmapBit(volume, number)) return nullptr;  // the commit point
  return created.Take();
}

bool OrbNodeDelete(OrbNode* node) {
  if (!OrbNodeIsValid(node)) return Fail(ORB_ERROR_ABORTED);
  const NodeRef held(node);
  if (node->references != 1) return Fail(ORB_ERROR_IN_USE);

  Volume* const volume = node->volume;
  const uint32_t number = node->record.number;
  const bool counted = number != 0 && BitmapByte(number) < volume->header.bitmapSize;
  if (!counted || (volume->bitmap[BitmapByte(number)] & BitmapMask(number)) != 0) return Fail(ORB_ERROR_DAMAGED_RECORD);

  if (!FlipBitmapBit(volume, number)) return false;  // the commit point
  if (!ReleaseFileBlocks(node)) return false;
  const uint32_t index = NodeBlockIndex(volume, number);
  return !IsNodeBlockFree(volume, index) || OrbNodeBlockRelease(volume, index);
}

bool OrbNodeBlockInit(Volume* volume, uint32_t index) {
  const Scratch block(AllocateZeroed(volume->header.blockSize));
  if (block.bytes == nullptr) return false;
  FillNodeBlock(block.As<OrbNodeRecord>(), volume->nodesPerBlock, index * volume->nodesPerBlock + 1);
  const uint32_t number = AllocWriteBlock(block.bytes, volume, kNodeWrite);
  return number != kNoBlock && SetNodeBlock(volume, index, number);
}

bool OrbNodeBlockRelease(Volume* volume, uint32_t index) {
  const uint32_t block = volume->nodeTable[index];
  return SetNodeBlock(volume, index, kNoBlock) && FreeBlock(volume, block);
}

}  // namespace orba

#include "operations/format.h"

#include <string.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/scratch.h"
#include "namespace/directory.h"
#include "nodes/node.h"
#include "space/block_io.h"
#include "storage/container.h"
#include "volume/time_stamp.h"
#include "volume/volume.h"

namespace orba {

namespace {

constexpr uint32_t kRootNodeBlock = 1;
constexpr uint32_t kRootDirBlock = 2;

void FillHeader(VolumeHeader* header, uint32_t bitmapSize, uint32_t blockSize) {
  header->signature = kVolumeSignature;
  header->version = kVolumeVersion;
  header->headerSize = kHeaderSize;
  header->nodeTableOffset = kHeaderSize;
  header->nodeTableSize = kNodeTableSize;
  header->bitmapOffset = kBitmapOffset;
  header->bitmapSize = bitmapSize;
  header->reservedOffset = kBitmapOffset + bitmapSize;
  header->reservedSize = 0;
  header->dataOffset = header->reservedOffset + header->reservedSize;
  header->blockSize = blockSize;
  while (blockSize >= 2) {
    blockSize /= 2;
    ++header->blockShift;
  }
}

bool Append(const Volume* volume, const void* bytes, uint32_t size) {
  uint32_t written = 0;
  return ContainerWrite(volume->container, bytes, size, &written);
}

// Builds the next `size` bytes of the container in zeroed memory and appends them.
bool WriteRegion(const Volume* volume, uint32_t size, void (*fill)(uint8_t* bytes, uint32_t size)) {
  const Scratch region(AllocateZeroed(size != 0 ? size : 1));
  if (region.bytes == nullptr) return false;
  fill(region.bytes, size);
  return Append(volume, region.bytes, size);
}

void FillNodeTable(uint8_t* bytes, uint32_t) {
  uint32_t* const first = reinterpret_cast<uint32_t*>(bytes);
  *first = kRootNodeBlock;
  ConvertField(first);
}

// All numbers are free but the root's. An empty bitmap is an empty write.
void FillBitmap(uint8_t* bytes, uint32_t size) {
  memset(bytes, 0xFF, size);
  bytes[0] = 0x7F;
}

void FillRootNodeBlock(uint8_t* bytes, uint32_t size) {
  OrbNodeRecord* const records = reinterpret_cast<OrbNodeRecord*>(bytes);
  FillNodeBlock(records, size / kNodeSize, 1);
  OrbNodeRecord* const root = &records[kRootNode - 1];
  ConvertNodeRecord(root);
  root->attributes = kRootAttributes;
  GetTime(&root->time);
  root->size = 2 * kDirEntrySize;
  root->direct[0] = kRootDirBlock;
  ConvertNodeRecord(root);
}

// The root is its own parent.
void FillRootDirectory(uint8_t* bytes, uint32_t) {
  OrbDirEntry* const entries = reinterpret_cast<OrbDirEntry*>(bytes);
  MakeDirEntry(&entries[0], kRootNode, ".");
  MakeDirEntry(&entries[1], kRootNode, "..");
}

}  // namespace

bool FormatVolume(const WideChar* container, uint32_t bitmapSize, uint32_t blockSize) {
  if (!IsBlockSize(blockSize) || bitmapSize > MaxBitmapSize(blockSize)) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  if (!ContainerCreate(container)) return false;
  Volume volume = {};
  volume.container = ContainerOpen(container);
  if (volume.container == kNoContainer) return false;
  if (!Append(&volume, &volume.header, kHeaderSize)) return false;  // zeros so far, in the header's place
  FillHeader(&volume.header, bitmapSize, blockSize);
  return WriteRegion(&volume, kNodeTableSize, FillNodeTable) && WriteRegion(&volume, bitmapSize, FillBitmap) &&
         WriteRegion(&volume, blockSize, FillRootNodeBlock) && WriteRegion(&volume, blockSize, FillRootDirectory) &&
         ContainerFlush(volume.container) && StoreVolumeHeader(&volume) && ContainerClose(volume.container);
}

}  // namespace orba

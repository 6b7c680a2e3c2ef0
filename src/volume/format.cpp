#include "volume/format.h"

#include <string.h>

#include "interface/byte_order.h"
#include "interface/error.h"
#include "interface/time_stamp.h"
#include "namespace/directory.h"
#include "namespace/node.h"
#include "space/block_io.h"
#include "space/scratch.h"
#include "storage/container.h"
#include "volume/volume.h"

namespace orba {

namespace {

constexpr uint32_t kRootNodeBlock = 1;
constexpr uint32_t kRootDirBlock = 2;

bool Append(const Volume* volume, const void* bytes, uint32_t count) {
  uint32_t written = 0;
  return ContainerWrite(volume->container, bytes, count, &written);
}

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

bool WriteHeaderPlaceholder(const Volume* volume) {
  const VolumeHeader zeros = {};
  return Append(volume, &zeros, kHeaderSize);
}

bool WriteNodeTable(const Volume* volume) {
  const ZeroedScratch table(kNodeTableSize);
  if (table.bytes == nullptr) return false;
  *table.As<uint32_t>() = kRootNodeBlock;
  ConvertField(table.As<uint32_t>());
  return Append(volume, table.bytes, kNodeTableSize);
}

// All numbers are free but the root's. An empty bitmap is an empty write.
bool WriteBitmap(const Volume* volume) {
  const uint32_t size = volume->header.bitmapSize;
  const Scratch bitmap(size + 1);
  if (bitmap.bytes == nullptr) return false;
  memset(bitmap.bytes, 0xFF, size);
  bitmap.bytes[0] = 0x7F;
  return Append(volume, bitmap.bytes, size);
}

bool WriteRootNodeBlock(const Volume* volume) {
  const ZeroedScratch block(volume->header.blockSize);
  if (block.bytes == nullptr) return false;
  OrbNodeRecord* const records = block.As<OrbNodeRecord>();
  FillNodeBlock(records, volume->header.blockSize / kNodeSize, 1);
  OrbNodeRecord* const root = &records[kRootNode - 1];
  ConvertNodeRecord(root);
  root->attributes = kRootAttributes;
  GetTime(&root->time);
  root->size = 2 * kDirEntrySize;
  root->direct[0] = kRootDirBlock;
  ConvertNodeRecord(root);
  return Append(volume, block.bytes, volume->header.blockSize);
}

// The root is its own parent.
bool WriteRootDirectory(const Volume* volume) {
  const ZeroedScratch block(volume->header.blockSize);
  if (block.bytes == nullptr) return false;
  MakeDirEntry(&block.As<OrbDirEntry>()[0], kRootNode, ".");
  MakeDirEntry(&block.As<OrbDirEntry>()[1], kRootNode, "..");
  return Append(volume, block.bytes, volume->header.blockSize);
}

}  // namespace

bool FormatVolume(const WideChar* container, uint32_t bitmapSize, uint32_t blockSize) {
  if (!IsBlockSize(blockSize) || bitmapSize > MaxBitmapSize(blockSize)) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  if (!ContainerCreate(container)) return false;
  Volume volume = {};
  volume.container = ContainerOpen(container);
  if (volume.container == kNoContainer) return false;
  FillHeader(&volume.header, bitmapSize, blockSize);
  return WriteHeaderPlaceholder(&volume) && WriteNodeTable(&volume) && WriteBitmap(&volume) &&
         WriteRootNodeBlock(&volume) && WriteRootDirectory(&volume) && ContainerFlush(volume.container) &&
         StoreVolumeHeader(&volume) && ContainerClose(volume.container);
}

}  // namespace orba

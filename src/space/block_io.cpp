#include "space/block_io.h"

#include <string.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/scratch.h"
#include "storage/container.h"

namespace orba {

namespace {

bool SeekTo(const Volume* volume, uint32_t position) {
  // From 2^31 on the distance is negative to the host, which refuses it.
  return ContainerSeek(volume->container, static_cast<int32_t>(position), coredll::kFileBegin) != kSeekFailed;
}

bool WriteAt(const Volume* volume, const void* buffer, uint32_t position, uint32_t length) {
  uint32_t written = 0;
  return SeekTo(volume, position) && ContainerWrite(volume->container, buffer, length, &written);
}

bool RefuseIfFailed(const Volume* volume) { return volume->failed != 0 ? Fail(ORB_ERROR_WRITE) : true; }

// Writes the flags word as it stands in memory.
bool WriteStateFlags(Volume* volume) {
  if (WriteAt(volume, &volume->header.stateFlags, kStateFlagsOffset, sizeof volume->header.stateFlags)) return true;
  volume->failed = 1;
  return false;
}

// The container position of a byte in a block; 0xFFFFFFFF where no container reaches, as for any byte of block 0.
uint32_t BytePosition(const Volume* volume, uint32_t block, uint32_t offset) {
  const uint32_t start = volume->header.dataOffset;
  const uint32_t reach = start < kContainerLimit ? (kContainerLimit - start) >> BlockShift(volume) : 0;  // in blocks
  if (block - 1 >= reach) return 0xFFFFFFFF;
  return start + ((block - 1) << BlockShift(volume)) + offset;
}

}  // namespace

uint32_t BlockPosition(const Volume* volume, uint32_t block) { return BytePosition(volume, block, 0); }

bool ReadVolumeBytes(Volume* volume, void* buffer, uint32_t position, uint32_t length) {
  uint32_t read = 0;
  if (!SeekTo(volume, position) || !ContainerRead(volume->container, buffer, length, &read)) return false;
  return read == length || Fail(ORB_ERROR_DAMAGED_VOLUME);
}

bool WriteVolumeBytes(Volume* volume, const void* buffer, uint32_t position, uint32_t length, uint32_t flags) {
  if (!RefuseIfFailed(volume)) return false;
  const bool metadata = (flags & kMetadataWrite) != 0;
  if (metadata && !MarkVolumeDirty(volume)) return false;
  if (WriteAt(volume, buffer, position, length)) return true;
  // A full disk leaves what was there before intact, so the volume may go on; after anything else nobody knows.
  if (metadata && GetError() != ORB_ERROR_DISK_FULL) volume->failed = 1;
  return false;
}

bool ReadBlock(void* buffer, Volume* volume, uint32_t block) {
  return ReadVolumeBytes(volume, buffer, BlockPosition(volume, block), volume->header.blockSize);
}

bool ReadBlockBytes(void* buffer, Volume* volume, uint32_t block, uint32_t offset, uint32_t length) {
  return ReadVolumeBytes(volume, buffer, BytePosition(volume, block, offset), length);
}

bool WriteBlock(const void* buffer, Volume* volume, uint32_t block, uint32_t flags) {
  return WriteBlockBytes(buffer, volume, block, flags, 0, volume->header.blockSize);
}

bool WriteBlockBytes(const void* buffer, Volume* volume, uint32_t block, uint32_t flags, uint32_t offset,
                     uint32_t length) {
  return WriteVolumeBytes(volume, buffer, BytePosition(volume, block, offset), length, flags);
}

bool MarkVolumeDirty(Volume* volume) {
  if ((volume->header.stateFlags & kVolumeDirty) != 0) return true;
  volume->header.stateFlags |= kVolumeDirty;
  return WriteStateFlags(volume);
}

bool OrbCommitVolume(Volume* volume) {
  if (!RefuseIfFailed(volume)) return false;
  if ((volume->header.stateFlags & kVolumeDirty) == 0) return true;
  volume->header.stateFlags &= ~kVolumeDirty;
  return WriteStateFlags(volume);  // the commit point: the container mounts again
}

bool StoreWords(Volume* volume, const void* record, uint32_t size, uint32_t words, uint32_t position, uint32_t flags) {
  const Scratch copy(Allocate(size));
  if (copy.bytes == nullptr) return false;
  memcpy(copy.bytes, record, size);
  ConvertWords(copy.As<uint32_t>(), words);
  return WriteVolumeBytes(volume, copy.bytes, position, size, flags);
}

bool StoreVolumeHeader(Volume* volume) {
  return StoreWords(volume, &volume->header, kHeaderSize, kHeaderWords, 0, kMetadataWrite);
}

bool StoreNodeBlockTable(Volume* volume) {
  const VolumeHeader& header = volume->header;
  return StoreWords(volume, volume->nodeTable, header.nodeTableSize, header.nodeTableSize / 4, header.nodeTableOffset,
                    kMetadataWrite);
}

bool StoreNodeBitmap(Volume* volume) {
  return WriteVolumeBytes(volume, volume->bitmap, volume->header.bitmapOffset, volume->header.bitmapSize,
                          kMetadataWrite);
}

}  // namespace orba

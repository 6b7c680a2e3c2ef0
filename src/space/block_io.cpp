#include "space/block_io.h"

#include <string.h>

#include "interface/byte_order.h"
#include "interface/error.h"
#include "space/scratch.h"
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

// The container position of a byte in a block; 0xFFFFFFFF where it does not fit 32 bits, as for any byte of block 0.
uint32_t BytePosition(const Volume* volume, uint32_t block, uint32_t offset) {
  const uint64_t position =
      volume->header.dataOffset + (static_cast<uint64_t>(block - 1) << BlockShift(volume)) + offset;
  return position <= 0xFFFFFFFF ? static_cast<uint32_t>(position) : 0xFFFFFFFF;
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

bool StoreVolumeHeader(Volume* volume) {
  const Scratch copy(kHeaderSize);
  if (copy.bytes == nullptr) return false;
  memcpy(copy.bytes, &volume->header, kHeaderSize);
  ConvertWords(copy.As<uint32_t>(), kHeaderWords);
  return WriteVolumeBytes(volume, copy.bytes, 0, kHeaderSize, kMetadataWrite);
}

bool StoreNodeBlockTable(Volume* volume) {
  const Scratch copy(volume->header.nodeTableSize);
  if (copy.bytes == nullptr) return false;
  memcpy(copy.bytes, volume->nodeTable, volume->header.nodeTableSize);
  ConvertWords(copy.As<uint32_t>(), volume->header.nodeTableSize / 4);
  return WriteVolumeBytes(volume, copy.bytes, volume->header.nodeTableOffset, volume->header.nodeTableSize,
                          kMetadataWrite);
}

bool StoreNodeBitmap(Volume* volume) {
  return WriteVolumeBytes(volume, volume->bitmap, volume->header.bitmapOffset, volume->header.bitmapSize,
                          kMetadataWrite);
}

}  // namespace orba

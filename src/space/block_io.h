// Layer: block I/O. Turns block numbers into container positions and offers the only reads and writes the layers above
// use; keeps the update-in-progress mark and the volume-failed state; writes the three fixed tables back. Stands on the
// container and the volume record.
//
// Protocol of the mark (header.stateFlags, kVolumeDirty):
//   B1  the first metadata write of an operation sets the mark on disk before it writes anything else
//   B2  OrbCommitVolume, at the end of each entry point that changes a volume, clears it
//   B3  a metadata write that fails with any code but ORB_ERROR_DISK_FULL fails the volume: every later write, and the
//       commit, fail with ORB_ERROR_WRITE, so the mark stays on disk and the container refuses to mount. After a full
//       disk the volume goes on (Q21)
// StoreVolumeHeader copies the header before the mark is set; where it is an operation's first metadata write, the copy
// therefore takes the mark off the disk again while memory keeps it (Q22).
//
// Reads and writes cost one seek and one transfer each. Nothing checks a block number against the container's size: a
// read past the end fails with ORB_ERROR_DAMAGED_VOLUME, a write past the end is how the volume grows. A byte range
// within a block is the caller's to keep inside it.
#pragma once

#include <stdint.h>

#include "volume/volume.h"

namespace orba {

// How a block is written. Bit 0: a metadata write. Bits 8 to 10 say what is written; nothing reads them.
enum WriteFlags : uint32_t {
  kDataWrite = 0,  // file data: no mark, and a failure does not fail the volume
  kMetadataWrite = 1,
  kFreeChainWrite = 0x101,
  kNodeWrite = 0x201,
  kDirectoryWrite = 0x301,
  kBlockMapWrite = 0x401,
};

// Returns the container position of a block's first byte. A number that no container reaches, 0 among them, yields
// 0xFFFFFFFF, which every seek refuses.
uint32_t BlockPosition(const Volume* volume, uint32_t block);

// All of these return true on success. Reads fail with the container's code, or ORB_ERROR_DAMAGED_VOLUME where fewer
// bytes came than were asked for; a failed volume stays readable. Writes fail with ORB_ERROR_WRITE on a failed volume,
// else with the container's code (see B3).
bool ReadVolumeBytes(Volume* volume, void* buffer, uint32_t position, uint32_t length);
bool WriteVolumeBytes(Volume* volume, const void* buffer, uint32_t position, uint32_t length, uint32_t flags);
bool ReadBlock(void* buffer, Volume* volume, uint32_t block);
bool ReadBlockBytes(void* buffer, Volume* volume, uint32_t block, uint32_t offset, uint32_t length);
bool WriteBlock(const void* buffer, Volume* volume, uint32_t block, uint32_t flags);
bool WriteBlockBytes(const void* buffer, Volume* volume, uint32_t block, uint32_t flags, uint32_t offset,
                     uint32_t length);

// Sets the mark, in memory and on disk; writes nothing where it is set already. A failure fails the volume.
bool MarkVolumeDirty(Volume* volume);

// Ends an update: clears the mark, in memory and on disk; writes nothing where it is clear. A failure fails the volume;
// on a failed volume it fails with ORB_ERROR_WRITE.
bool OrbCommitVolume(Volume* volume);

// Writes a record of `size` bytes from a copy whose first `words` words are in disk order.
//   fails  ORB_ERROR_OUT_OF_MEMORY where the copy cannot be had: nothing was written
bool StoreWords(Volume* volume, const void* record, uint32_t size, uint32_t words, uint32_t position, uint32_t flags);

// Write the header, the node-block table, the node bitmap back whole, as metadata (the bitmap has no byte order and is
// not copied).
bool StoreVolumeHeader(Volume* volume);
bool StoreNodeBlockTable(Volume* volume);
bool StoreNodeBitmap(Volume* volume);

}  // namespace orba

#include "operations/mount.h"

#include <stdlib.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/name.h"
#include "base/scratch.h"
#include "files/find.h"
#include "files/open_file.h"
#include "namespace/current_directory.h"
#include "nodes/node.h"
#include "space/block_io.h"
#include "space/free_chain.h"
#include "storage/container.h"
#include "storage/memory_file.h"

namespace orba {

namespace {

bool ReadHeader(Volume* volume) {
  if (!ReadVolumeBytes(volume, &volume->header, 0, kHeaderSize)) return false;
  ConvertWords(&volume->header.signature, kHeaderWords);
  return CheckHeader(volume->header);
}

// Reads one of the fixed tables into memory of its own, or returns null. An empty one is an empty read.
void* LoadTable(Volume* volume, uint32_t offset, uint32_t size) {
  void* const table = Allocate(size != 0 ? size : 1);
  if (table == nullptr || ReadVolumeBytes(volume, table, offset, size)) return table;
  free(table);
  return nullptr;
}

bool LoadTables(Volume* volume) {
  const VolumeHeader& header = volume->header;
  volume->nodeTable = static_cast<uint32_t*>(LoadTable(volume, header.nodeTableOffset, header.nodeTableSize));
  if (volume->nodeTable == nullptr) return false;
  ConvertWords(volume->nodeTable, kNodeTableEntries);
  volume->bitmap = static_cast<uint8_t*>(LoadTable(volume, header.bitmapOffset, header.bitmapSize));
  return volume->bitmap != nullptr;
}

bool LoadVolume(Volume* volume) {
  if (!ReadHeader(volume)) return false;
  ComputeBlockCounts(volume);
  if (!LoadTables(volume) || !LoadFreeChain(volume)) return false;
  volume->root = OrbNodeGet(volume, kRootNode);
  if (volume->root == nullptr) return false;
  return IsDirectory(volume->root) || Fail(ORB_ERROR_DAMAGED_RECORD);
}

// Releases the root and frees all memory of a volume. Nodes still held by others belong to no volume from here on (N4).
void FreeVolume(Volume* volume) {
  OrbNodeRelease(volume->root);
  DetachNodes(volume);
  free(volume->nodeTable);
  free(volume->bitmap);
  free(volume->freeChain);
  free(volume);
}

bool OpenAndLoad(Volume* volume, const WideChar* container, const char* name) {
  if (!OrbIsValidVolumeName(name)) return Fail(ORB_ERROR_INVALID_NAME);
  OrbNameCopyUpper(volume->name, name);
  if (VolumeFind(name, nullptr) != nullptr) return Fail(ORB_ERROR_ALREADY_MOUNTED);
  volume->container = ContainerOpen(container);
  if (volume->container == kNoContainer) return false;
  if (LoadVolume(volume)) return true;
  ContainerClose(volume->container);
  return false;
}

// The current directory leaves a volume that is unmounted: for the root of the next older volume, else of the next
// newer one, else there is none.
void MoveCurrentDirectoryOff(const Volume* volume, const Volume* previous) {
  if (!OrbIsCurrentDirVolume(volume)) return;
  const Volume* const refuge = volume->next != nullptr ? volume->next : previous;
  OrbSetCurrentDirNode(refuge->root);  // the list head's root is null: no current directory
}

bool CloseContainer(uint32_t container) {
  return container == kMemoryFile ? MemFileDelete() : ContainerClose(container);
}

}  // namespace

bool MountVolume(const WideChar* container, const char* name) {
  Volume* const volume = static_cast<Volume*>(AllocateZeroed(sizeof(Volume)));
  if (volume == nullptr) return false;
  if (!OpenAndLoad(volume, container, name)) {
    FreeVolume(volume);
    return false;
  }
  if (g_VolumeListHead.next == nullptr) OrbSetCurrentDirNode(volume->root);
  volume->next = g_VolumeListHead.next;
  g_VolumeListHead.next = volume;
  return true;
}

bool GetVolumeInfo(const char* name, OrbU32* bitmapSize, OrbU32* blockSize) {
  const Volume* const volume = VolumeFind(name, nullptr);
  if (volume == nullptr) return Fail(ORB_ERROR_NOT_MOUNTED);
  if (bitmapSize != nullptr) *bitmapSize = volume->header.bitmapSize;
  if (blockSize != nullptr) *blockSize = volume->header.blockSize;
  return true;
}

bool UnmountVolume(const char* name) {
  Volume* previous = nullptr;
  Volume* const volume = OrbIsValidVolumeName(name) ? VolumeFind(name, &previous) : nullptr;
  if (volume == nullptr) return Fail(ORB_ERROR_NOT_MOUNTED);
  MoveCurrentDirectoryOff(volume, previous);
  const bool filesClosed = OrbCloseVolumeFiles(volume);
  const bool findsClosed = OrbCloseVolumeFinds(volume);
  previous->next = volume->next;
  const uint32_t container = volume->container;
  FreeVolume(volume);
  const bool containerClosed = CloseContainer(container);
  return filesClosed && findsClosed && containerClosed;
}

bool VolumeUnmountAll() {
  bool unmounted = true;
  while (g_VolumeListHead.next != nullptr) {
    if (!UnmountVolume(g_VolumeListHead.next->name)) unmounted = false;
  }
  return unmounted;
}

bool CheckHeader(const VolumeHeader& header) {
  if (header.signature != kVolumeSignature) return Fail(ORB_ERROR_DAMAGED_VOLUME);
  if (header.version != kVolumeVersion) return Fail(ORB_ERROR_WRONG_VERSION);
  if (header.headerSize != kHeaderSize || header.nodeTableSize != kNodeTableSize) return Fail(ORB_ERROR_DAMAGED_VOLUME);
  if (!IsBlockSize(header.blockSize)) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  const uint32_t shift = header.blockShift & 0xFF;
  if (shift >= 32 || 1u << shift != header.blockSize) return Fail(ORB_ERROR_DAMAGED_VOLUME);
  if (header.bitmapSize > MaxBitmapSize(header.blockSize)) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  // The reserved size may be anything on disk: a region that no container can hold, or that wraps, is damage.
  if (header.nodeTableOffset != header.headerSize ||
      header.bitmapOffset != header.nodeTableOffset + header.nodeTableSize ||
      header.reservedOffset != header.bitmapOffset + header.bitmapSize ||
      header.reservedSize >= kContainerLimit - header.reservedOffset ||
      header.dataOffset != header.reservedOffset + header.reservedSize) {
    return Fail(ORB_ERROR_DAMAGED_VOLUME);
  }
  return (header.stateFlags & kVolumeDirty) == 0 || Fail(ORB_ERROR_NOT_CLEAN);
}

}  // namespace orba

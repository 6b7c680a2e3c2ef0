#include "volume/volume.h"

#include "base/name.h"

namespace orba {

Volume g_VolumeListHead;

Volume* VolumeFind(const char* name, Volume** previous) {
  Volume* before = &g_VolumeListHead;
  while (before->next != nullptr && OrbNameCompare(name, before->next->name) != 0) before = before->next;
  Volume* const found = before->next;
  if (previous != nullptr) *previous = found != nullptr ? before : nullptr;
  return found;
}

void ComputeBlockCounts(Volume* volume) {
  const uint32_t size = volume->header.blockSize;
  volume->nodesPerBlock = size / kNodeSize;
  volume->entriesPerBlock = size / kDirEntrySize;
  volume->wordsPerBlock = size / 4;
  volume->chainCapacity = (size - kFreeChainHeader) / 4;
}

}  // namespace orba

#include "namespace/create.h"

#include "interface/error.h"
#include "namespace/directory.h"
#include "namespace/name.h"
#include "namespace/node_store.h"
#include "space/block_io.h"
#include "space/block_map.h"
#include "space/scratch.h"

namespace orba {

namespace {

// Gives a new directory its first block, with "." and "..".
bool WriteFirstDirBlock(OrbNode* directory, uint16_t parent) {
  const uint32_t blockSize = directory->volume->header.blockSize;
  const ZeroedScratch block(blockSize);
  if (block.bytes == nullptr) return false;
  OrbDirEntry* const entries = block.As<OrbDirEntry>();
  MakeDirEntry(&entries[0], directory->record.number, ".");
  MakeDirEntry(&entries[1], parent, "..");
  if (!AppendFileBlock(directory, 0, block.bytes, blockSize, kDirectoryWrite)) return false;
  directory->record.size = 2 * kDirEntrySize;
  return StampAndWriteNode(directory);
}

}  // namespace

bool OrbCreateNodeAt(OrbNode* parent, const char* name, uint16_t attributes) {
  if (!OrbIsValidName(name)) return Fail(ORB_ERROR_INVALID_NAME);
  if (OrbDirLookup(parent, name) != 0) return Fail(ORB_ERROR_FILE_EXISTS);
  if (GetError() != ORB_ERROR_NONE) return false;

  OrbNode* const node = OrbNodeCreate(parent->volume, attributes);
  if (node == nullptr) return false;
  if (IsDirectory(node) && !WriteFirstDirBlock(node, parent->record.number)) return AbandonNewNode(node);
  if (!OrbDirAddEntry(parent, name, node->record.number, false)) return AbandonNewNode(node);
  OrbNodeRelease(node);
  return true;
}

bool AbandonNewNode(OrbNode* node) {
  if (IsOutOfSpace()) {
    OrbNodeDelete(node);
  } else {
    OrbNodeRelease(node);
  }
  return false;
}

}  // namespace orba

#include "operations/create.h"

#include "base/error.h"
#include "base/scratch.h"
#include "namespace/directory.h"
#include "nodes/block_map.h"
#include "nodes/node_store.h"
#include "space/block_io.h"

namespace orba {

namespace {

// Gives a new directory its first block, with "." and "..".
bool WriteFirstDirBlock(OrbNode* directory, uint16_t parent) {
  const uint32_t blockSize = directory->volume->header.blockSize;
  const Scratch block(AllocateZeroed(blockSize));
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
  if (!OrbDirRequireNewName(parent, name)) return false;

  OrbNode* const node = OrbNodeCreate(parent->volume, attributes);
  if (node == nullptr) return false;
  return NameNewNode(parent, name, node, !IsDirectory(node) || WriteFirstDirBlock(node, parent->record.number));
}

bool NameNewNode(OrbNode* parent, const char* name, OrbNode* node, bool filled) {
  const bool named = filled && OrbDirAddEntry(parent, name, node->record.number, false);
  if (!named && IsOutOfSpace()) {
    OrbNodeDelete(node);
  } else {
    OrbNodeRelease(node);
  }
  return named;
}

}  // namespace orba

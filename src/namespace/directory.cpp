#include "namespace/directory.h"

#include <string.h>

#include "interface/byte_order.h"
#include "interface/current_directory.h"
#include "interface/error.h"
#include "namespace/name.h"
#include "space/block_io.h"
#include "space/block_map.h"
#include "space/free_chain.h"
#include "space/scratch.h"

namespace orba {

namespace {

constexpr uint32_t kParentEntry = 1;      // ".."
constexpr uint32_t kFirstNamedEntry = 2;  // behind "." and ".."
constexpr uint32_t kMaxEntries = 2 * 0x10000;

// An entry found in a directory: its block, which the scan's buffer holds, and its place there.
struct EntryPlace {
  uint32_t block;      // block number
  uint32_t index;      // entry of the directory, counted from 0
  OrbDirEntry* entry;  // in the buffer; null where nothing was found
};

bool CheckDirectory(const OrbNode* directory) {
  if (!OrbNodeIsValid(directory) || !IsDirectory(directory)) return Fail(ORB_ERROR_PATH_NOT_FOUND);
  return IsDirSizeSane(directory);
}

// Room for one block of a directory; bytes is null, with the error set, where the node is no sound directory either.
void* AllocateDirBlock(const OrbNode* directory) {
  return CheckDirectory(directory) ? Allocate(directory->volume->header.blockSize) : nullptr;
}

struct DirBlock : Scratch {
  explicit DirBlock(const OrbNode* directory) : Scratch(AllocateDirBlock(directory)) {}
  OrbDirEntry* Entries() const { return As<OrbDirEntry>(); }
};

uint32_t EntryCount(const OrbNode* directory) { return directory->record.size / kDirEntrySize; }

uint32_t EntrySlot(const OrbNode* directory, uint32_t index) {
  return index & (directory->volume->entriesPerBlock - 1);
}

// Reads the block that holds an entry. Returns its number, 0 on failure.
uint32_t ReadDirBlock(const DirBlock& buffer, const OrbNode* directory, uint32_t index) {
  const uint32_t block = LookupFileBlock(directory, index * kDirEntrySize);
  return block != kNoBlock && ReadBlock(buffer.bytes, directory->volume, block) ? block : kNoBlock;
}

bool WriteDirBlock(const DirBlock& buffer, const OrbNode* directory, uint32_t block) {
  return WriteBlock(buffer.bytes, directory->volume, block, kDirectoryWrite);
}

// Scans from entry `first` on for a name, or, where name is null, for a node number. Nothing found: a null entry; the
// error state tells whether something failed.
EntryPlace FindEntry(const DirBlock& buffer, const OrbNode* directory, uint32_t first, const char* name,
                     uint16_t number) {
  const EntryPlace nothing = {kNoBlock, 0, nullptr};
  const uint32_t count = EntryCount(directory);
  uint32_t block = kNoBlock;
  for (uint32_t index = first; index < count; ++index) {
    if (block == kNoBlock || EntrySlot(directory, index) == 0) {
      block = ReadDirBlock(buffer, directory, index);
      if (block == kNoBlock) return nothing;
    }
    OrbDirEntry* const entry = &buffer.Entries()[EntrySlot(directory, index)];
    if (entry->node == 0) return nothing;
    const bool found = name != nullptr ? OrbNameCompare(name, entry->name) == 0 : EntryNode(entry) == number;
    if (found) return {block, index, entry};
  }
  return nothing;
}

EntryPlace FindNamedEntry(const DirBlock& buffer, const OrbNode* directory, const char* name) {
  const EntryPlace place = FindEntry(buffer, directory, kFirstNamedEntry, name, 0);
  if (place.entry == nullptr) FailIfClear(ORB_ERROR_FILE_NOT_FOUND);
  return place;
}

bool RequireNewName(OrbNode* directory, const char* name) {
  if (!OrbIsValidName(name)) return Fail(ORB_ERROR_INVALID_NAME);
  if (OrbDirLookup(directory, name) != 0) return Fail(ORB_ERROR_FILE_EXISTS);
  return GetError() == ORB_ERROR_NONE;
}

// Puts an entry behind the last one, into the room its block has left or into a new block.
bool WriteNewEntry(OrbNode* directory, const char* name, uint16_t number) {
  const uint32_t index = EntryCount(directory);
  const uint32_t slot = EntrySlot(directory, index);
  if (slot == 0) {
    const ZeroedScratch block(directory->volume->header.blockSize);
    if (block.bytes == nullptr) return false;
    MakeDirEntry(block.As<OrbDirEntry>(), number, name);
    return AppendFileBlock(directory, directory->record.size, block.bytes, directory->volume->header.blockSize,
                           kDirectoryWrite);
  }
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr) return false;
  const uint32_t block = ReadDirBlock(buffer, directory, index);
  if (block == kNoBlock) return false;
  MakeDirEntry(&buffer.Entries()[slot], number, name);
  return WriteDirBlock(buffer, directory, block);
}

// The node may go: nobody but the caller holds it, and it is empty where it has to be.
bool IsRemovable(OrbNode* node, bool requireEmpty) {
  if (node->references >= 2) return Fail(OrbIsCurrentDirNode(node) ? ORB_ERROR_CURRENT_DIRECTORY : ORB_ERROR_IN_USE);
  if (!requireEmpty || !IsDirectory(node) || OrbDirIsEmpty(node)) return true;
  return FailIfClear(ORB_ERROR_NOT_EMPTY);
}

// Clears the last entry of a directory, its last block being in the buffer, and brings that block back to disk; an
// emptied block goes out of the map and into the free chain instead.
bool DropLastEntry(const DirBlock& buffer, OrbNode* directory, uint32_t lastBlock) {
  const uint32_t last = EntryCount(directory) - 1;
  buffer.Entries()[EntrySlot(directory, last)].node = 0;
  if (buffer.Entries()[0].node != 0) return WriteDirBlock(buffer, directory, lastBlock);
  return SetFileBlock(directory, last * kDirEntrySize, kNoBlock) && FreeBlock(directory->volume, lastBlock);
}

// Moves the last entry into the hole at `hole`, whose block the buffer holds, and drops it at the end.
bool CloseHole(const DirBlock& buffer, const EntryPlace& hole, OrbNode* directory) {
  const uint32_t last = EntryCount(directory) - 1;
  const uint32_t lastSlot = EntrySlot(directory, last);
  if (BlockIndex(directory->volume, last * kDirEntrySize) ==
      BlockIndex(directory->volume, hole.index * kDirEntrySize)) {
    if (hole.index != last) *hole.entry = buffer.Entries()[lastSlot];
    return DropLastEntry(buffer, directory, hole.block);
  }
  const DirBlock lastBuffer(directory);
  if (lastBuffer.bytes == nullptr) return false;
  const uint32_t lastBlock = ReadDirBlock(lastBuffer, directory, last);
  if (lastBlock == kNoBlock) return false;
  *hole.entry = lastBuffer.Entries()[lastSlot];
  return WriteDirBlock(buffer, directory, hole.block) && DropLastEntry(lastBuffer, directory, lastBlock);
}

}  // namespace

uint16_t OrbDirLookup(OrbNode* directory, const char* name) {
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr) return 0;
  const EntryPlace place = FindEntry(buffer, directory, 0, name, 0);
  return place.entry != nullptr ? EntryNode(place.entry) : 0;
}

OrbNode* OrbDirOpenChild(OrbNode* directory, const char* name) {
  if (name[0] == '\0') return CheckDirectory(directory) ? OrbNodeAddRef(directory) : nullptr;
  const uint16_t number = OrbDirLookup(directory, name);
  return number != 0 ? OrbNodeGet(directory->volume, number) : nullptr;
}

bool OrbDirFindName(char* out, OrbNode* directory, uint16_t number) {
  out[0] = '\0';
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr) return false;
  const EntryPlace place = FindEntry(buffer, directory, kFirstNamedEntry, nullptr, number);
  if (place.entry == nullptr) return false;
  CopyEntryName(out, place.entry);
  return true;
}

bool OrbDirAddEntry(OrbNode* directory, const char* name, uint16_t number, bool check) {
  if (!CheckDirectory(directory)) return false;
  if (check && !RequireNewName(directory, name)) return false;
  if (!WriteNewEntry(directory, name, number)) return false;
  directory->record.size += kDirEntrySize;
  if (StampAndWriteNode(directory)) return true;  // the commit point
  directory->record.size -= kDirEntrySize;
  return false;
}

bool OrbDirRenameEntry(OrbNode* directory, const char* newName, const char* oldName, bool check) {
  if (!CheckDirectory(directory)) return false;
  if (check) {
    if (IsDotName(oldName) || IsDotDotName(oldName)) return Fail(ORB_ERROR_INVALID_NAME);
    if (!RequireNewName(directory, newName)) return false;
  }
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr) return false;
  const EntryPlace place = FindNamedEntry(buffer, directory, oldName);
  if (place.entry == nullptr) return false;
  OrbNameCopyUpper(place.entry->name, newName);  // left-overs of a longer name stay behind the terminator
  return WriteDirBlock(buffer, directory, place.block);
}

OrbNode* OrbDirRemoveEntry(OrbNode* directory, const char* name, bool requireEmpty) {
  if (!CheckDirectory(directory)) return nullptr;
  if (IsDotName(name) || IsDotDotName(name)) {
    Fail(ORB_ERROR_INVALID_NAME);
    return nullptr;
  }
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr) return nullptr;
  const EntryPlace place = FindNamedEntry(buffer, directory, name);
  if (place.entry == nullptr) return nullptr;

  NodeRef removed(OrbNodeGet(directory->volume, EntryNode(place.entry)));
  if (removed.node == nullptr || !IsRemovable(removed.node, requireEmpty)) return nullptr;
  if (!CloseHole(buffer, place, directory)) return nullptr;
  directory->record.size -= kDirEntrySize;
  if (!StampAndWriteNode(directory)) return nullptr;  // the commit point
  return removed.Take();
}

bool OrbDirIsEmpty(OrbNode* directory) {
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr || ReadDirBlock(buffer, directory, 0) == kNoBlock) return false;
  return buffer.Entries()[kFirstNamedEntry].node == 0;
}

bool OrbDirSetParent(OrbNode* directory, uint16_t parent) {
  const DirBlock buffer(directory);
  if (buffer.bytes == nullptr) return false;
  const uint32_t block = ReadDirBlock(buffer, directory, 0);
  if (block == kNoBlock) return false;
  ConvertField(&parent);
  buffer.Entries()[kParentEntry].node = parent;
  return WriteDirBlock(buffer, directory, block);
}

void MakeDirEntry(OrbDirEntry* entry, uint16_t number, const char* name) {
  memset(entry, 0, sizeof *entry);
  ConvertField(&number);
  entry->node = number;
  OrbNameCopyUpper(entry->name, name);
}

void CopyEntryName(char* out, const OrbDirEntry* entry) {
  memcpy(out, entry->name, kNameSize);
  out[kNameSize - 1] = '\0';
}

uint16_t EntryNode(const OrbDirEntry* entry) {
  uint16_t number = entry->node;
  ConvertField(&number);
  return number;
}

bool IsDirSizeSane(const OrbNode* directory) {
  const uint32_t size = directory->record.size;
  return (size != 0 && size <= kMaxEntries * kDirEntrySize) || Fail(ORB_ERROR_DAMAGED_RECORD);
}

}  // namespace orba

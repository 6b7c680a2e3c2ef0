#include "namespace/directory.h"

#include <string.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/name.h"
#include "base/scratch.h"
#include "namespace/current_directory.h"
#include "nodes/block_map.h"
#include "space/block_io.h"
#include "space/free_chain.h"

namespace orba {

namespace {

constexpr uint32_t kParentEntry = 1;      // ".."
constexpr uint32_t kFirstNamedEntry = 2;  // behind "." and ".."
constexpr uint32_t kMaxEntries = 2 * 0x10000;

bool CheckDirectory(const OrbNode* directory) {
  if (!OrbNodeIsValid(directory) || !IsDirectory(directory)) return Fail(ORB_ERROR_PATH_NOT_FOUND);
  return IsDirSizeSane(directory);
}

// Memory for one block of a directory; null, with the error set, also where the node is not a sound directory.
void* AllocateDirBlock(const OrbNode* directory) {
  return CheckDirectory(directory) ? Allocate(directory->volume->header.blockSize) : nullptr;
}

uint32_t EntryCount(const OrbNode* directory) { return directory->record.size / kDirEntrySize; }

uint32_t EntrySlot(const OrbNode* directory, uint32_t index) {
  return index & (directory->volume->entriesPerBlock - 1);
}

// Reads the block that holds an entry. Returns its number, 0 on failure.
uint32_t ReadDirBlock(OrbDirEntry* entries, const OrbNode* directory, uint32_t index) {
  const uint32_t block = LookupFileBlock(directory, index * kDirEntrySize);
  return block != kNoBlock && ReadBlock(entries, directory->volume, block) ? block : kNoBlock;
}

bool WriteDirBlock(const OrbDirEntry* entries, const OrbNode* directory, uint32_t block) {
  return WriteBlock(entries, directory->volume, block, kDirectoryWrite);
}

// What to look for in a directory: an entry, and the bits of it that count.
struct SoughtEntry {
  alignas(size_t) OrbDirEntry entry = {};
  alignas(size_t) OrbDirEntry counts = {};
};

// A name counts up to its terminator. Of a letter the bit that tells lower from upper case does not, whatever case the
// disk holds.
void SeekName(SoughtEntry* sought, const char* name) {
  uint32_t i = 0;
  do {
    sought->entry.name[i] = name[i];
    sought->counts.name[i] = IsLetter(name[i]) ? ~('a' ^ 'A') : ~0;
  } while (name[i++] != '\0');
}

// Compares by the machine's words; nearly every entry differs in the first or second.
bool IsSought(const SoughtEntry& sought, const OrbDirEntry* entry) {
  using Word [[gnu::may_alias]] = size_t;
  const Word* const words = reinterpret_cast<const Word*>(entry);
  const Word* const wanted = reinterpret_cast<const Word*>(&sought.entry);
  const Word* const counts = reinterpret_cast<const Word*>(&sought.counts);
  for (uint32_t i = 0; i < kDirEntrySize / sizeof(Word); ++i) {
    if (((words[i] ^ wanted[i]) & counts[i]) != 0) return false;
  }
  return true;
}

// Goes on from the cursor to the entry with a name. Null where there is none; the error state tells whether something
// failed.
OrbDirEntry* FindEntry(DirCursor* cursor, const char* name) {
  SoughtEntry sought;
  SeekName(&sought, name);
  OrbDirEntry* entry = OrbDirEntryAt(cursor);
  while (entry != nullptr && !IsSought(sought, entry)) entry = OrbDirEntryAfter(cursor, entry);
  return entry;
}

// The entry with a name, "." and ".." skipped; ORB_ERROR_FILE_NOT_FOUND where there is none.
OrbDirEntry* FindNamedEntry(DirCursor* cursor, const char* name) {
  cursor->index = kFirstNamedEntry;
  OrbDirEntry* const entry = FindEntry(cursor, name);
  if (entry == nullptr) FailIfClear(ORB_ERROR_FILE_NOT_FOUND);
  return entry;
}

// Puts an entry behind the last one, into the room its block has left or into a new block.
bool WriteNewEntry(OrbNode* directory, const char* name, uint16_t number) {
  const uint32_t index = EntryCount(directory);
  const uint32_t slot = EntrySlot(directory, index);
  if (slot == 0) {
    const uint32_t blockSize = directory->volume->header.blockSize;
    const Scratch newBlock(AllocateZeroed(blockSize));
    if (newBlock.bytes == nullptr) return false;
    MakeDirEntry(newBlock.As<OrbDirEntry>(), number, name);
    return AppendFileBlock(directory, directory->record.size, newBlock.bytes, blockSize, kDirectoryWrite);
  }
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr) return false;
  const uint32_t block = ReadDirBlock(entries, directory, index);
  if (block == kNoBlock) return false;
  MakeDirEntry(&entries[slot], number, name);
  return WriteDirBlock(entries, directory, block);
}

// True where only the caller holds the node and it is empty if it has to be.
bool IsRemovable(OrbNode* node, bool requireEmpty) {
  if (!RequireSoleHolder(node)) return false;
  if (!requireEmpty || !IsDirectory(node) || OrbDirIsEmpty(node)) return true;
  return FailIfClear(ORB_ERROR_NOT_EMPTY);
}

// Clears the last entry of a directory, whose last block is in the buffer, writes that block and stores the smaller
// size. An emptied block leaves the map and is freed instead; where the free chain cannot be stored, the directory
// gives it up all the same, because in memory it may be free already.
bool DropLastEntry(OrbDirEntry* entries, OrbNode* directory, uint32_t lastBlock) {
  const uint32_t last = EntryCount(directory) - 1;
  entries[EntrySlot(directory, last)].node = 0;
  const bool emptied = entries[0].node == 0;
  if (!(emptied ? SetFileBlock(directory, last * kDirEntrySize, kNoBlock)
                : WriteDirBlock(entries, directory, lastBlock))) {
    return false;
  }
  const bool freed = !emptied || FreeBlock(directory->volume, lastBlock);
  directory->record.size -= kDirEntrySize;
  return StampAndWriteNode(directory) && freed;  // the commit point
}

// Moves the last entry into the hole at the cursor, whose block is in `entries`, and drops it at the end (Q24).
bool CloseHole(OrbDirEntry* entries, const DirCursor& hole, OrbNode* directory) {
  const uint32_t last = EntryCount(directory) - 1;
  const bool inLastBlock =
      BlockIndex(directory->volume, hole.index * kDirEntrySize) == BlockIndex(directory->volume, last * kDirEntrySize);
  const Scratch lastBuffer(inLastBlock ? nullptr : AllocateDirBlock(directory));
  OrbDirEntry* lastEntries = entries;
  uint32_t lastBlock = hole.block;
  if (!inLastBlock) {
    lastEntries = lastBuffer.As<OrbDirEntry>();
    if (lastEntries == nullptr) return false;
    lastBlock = ReadDirBlock(lastEntries, directory, last);
    if (lastBlock == kNoBlock) return false;
  }
  entries[EntrySlot(directory, hole.index)] = lastEntries[EntrySlot(directory, last)];
  if (!inLastBlock && !WriteDirBlock(entries, directory, hole.block)) return false;
  return DropLastEntry(lastEntries, directory, lastBlock);
}

}  // namespace

OrbDirEntry* OrbDirEntryAt(DirCursor* cursor) {
  const OrbNode* const directory = cursor->directory;
  const uint32_t position = cursor->index * kDirEntrySize;
  if (position - OffsetInBlock(directory->volume, position) >= directory->record.size) return nullptr;
  cursor->block = ReadDirBlock(cursor->entries, directory, cursor->index);
  if (cursor->block == kNoBlock) return nullptr;
  OrbDirEntry* const entry = &cursor->entries[EntrySlot(directory, cursor->index)];
  return entry->node != 0 ? entry : nullptr;
}

OrbDirEntry* OrbDirEntryAfter(DirCursor* cursor, OrbDirEntry* entry) {
  ++cursor->index;
  if (EntrySlot(cursor->directory, cursor->index) == 0) return OrbDirEntryAt(cursor);
  return entry[1].node != 0 ? entry + 1 : nullptr;
}

uint16_t OrbDirLookup(OrbNode* directory, const char* name) {
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr) return 0;
  DirCursor cursor = {directory, entries, 0, kNoBlock};
  const OrbDirEntry* const entry = FindEntry(&cursor, name);
  return entry != nullptr ? EntryNode(entry) : 0;
}

OrbNode* OrbDirOpenChild(OrbNode* directory, const char* name) {
  if (name[0] == '\0') return CheckDirectory(directory) ? OrbNodeAddRef(directory) : nullptr;
  const uint16_t number = OrbDirLookup(directory, name);
  return number != 0 ? OrbNodeGet(directory->volume, number) : nullptr;
}

bool OrbDirRequireNewName(OrbNode* directory, const char* name) {
  if (!OrbIsValidName(name)) return Fail(ORB_ERROR_INVALID_NAME);
  if (OrbDirLookup(directory, name) != 0) return Fail(ORB_ERROR_FILE_EXISTS);
  return GetError() == ORB_ERROR_NONE;
}

bool OrbDirFindName(char* out, OrbNode* directory, uint16_t number) {
  out[0] = '\0';
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr) return false;
  DirCursor cursor = {directory, entries, kFirstNamedEntry, kNoBlock};
  OrbDirEntry* entry = OrbDirEntryAt(&cursor);
  while (entry != nullptr && EntryNode(entry) != number) entry = OrbDirEntryAfter(&cursor, entry);
  if (entry == nullptr) return false;
  CopyEntryName(out, entry);
  return true;
}

bool OrbDirAddEntry(OrbNode* directory, const char* name, uint16_t number, bool check) {
  if (!CheckDirectory(directory)) return false;
  if (check && !OrbDirRequireNewName(directory, name)) return false;
  if (!WriteNewEntry(directory, name, number)) return false;
  directory->record.size += kDirEntrySize;
  if (StampAndWriteNode(directory)) return true;  // the commit point
  directory->record.size -= kDirEntrySize;
  return false;
}

bool OrbDirRenameEntry(OrbNode* directory, const char* newName, const char* oldName, bool check) {
  if (!CheckDirectory(directory)) return false;
  if (check) {
    if (IsReservedName(oldName)) return Fail(ORB_ERROR_INVALID_NAME);
    if (!OrbDirRequireNewName(directory, newName)) return false;
  }
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr) return false;
  DirCursor cursor = {directory, entries, 0, kNoBlock};
  OrbDirEntry* const entry = FindNamedEntry(&cursor, oldName);
  if (entry == nullptr) return false;
  OrbNameCopyUpper(entry->name, newName);  // the rest of a longer name stays behind the terminator
  return WriteDirBlock(entries, directory, cursor.block);
}

OrbNode* OrbDirRemoveEntry(OrbNode* directory, const char* name, bool requireEmpty) {
  if (!CheckDirectory(directory)) return nullptr;
  if (IsReservedName(name)) {
    Fail(ORB_ERROR_INVALID_NAME);
    return nullptr;
  }
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr) return nullptr;
  DirCursor cursor = {directory, entries, 0, kNoBlock};
  const OrbDirEntry* const entry = FindNamedEntry(&cursor, name);
  if (entry == nullptr) return nullptr;
  if (cursor.index >= EntryCount(directory)) {  // past the size: which entry is the last to fill the hole with?
    Fail(ORB_ERROR_DAMAGED_RECORD);
    return nullptr;
  }

  NodeRef removed(OrbNodeGet(directory->volume, EntryNode(entry)));
  if (removed.node == nullptr || !IsRemovable(removed.node, requireEmpty)) return nullptr;
  return CloseHole(entries, cursor, directory) ? removed.Take() : nullptr;
}

bool OrbDirIsEmpty(OrbNode* directory) {
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr || ReadDirBlock(entries, directory, 0) == kNoBlock) return false;
  return entries[kFirstNamedEntry].node == 0;
}

bool OrbDirSetParent(OrbNode* directory, uint16_t parent) {
  const Scratch buffer(AllocateDirBlock(directory));
  OrbDirEntry* const entries = buffer.As<OrbDirEntry>();
  if (entries == nullptr) return false;
  const uint32_t block = ReadDirBlock(entries, directory, 0);
  if (block == kNoBlock) return false;
  ConvertField(&parent);
  entries[kParentEntry].node = parent;
  return WriteDirBlock(entries, directory, block);
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

#include "files/find.h"

#include <stdlib.h>
#include <string.h>

#include "base/error.h"
#include "base/name.h"
#include "base/scratch.h"
#include "files/open_file.h"
#include "namespace/directory.h"

namespace orba {

OrbFindEntry g_FindTable[kFindSlots];
uint32_t g_dwFindCursor;

namespace {

static_assert(sizeof(OrbFindDataA) == 48 && sizeof(OrbTime) == sizeof(TimeStamp), "callers know these bytes");
static_assert(offsetof(OrbFindDataA, size) == 12 && offsetof(OrbFindDataA, name) == 16, "callers know these bytes");
static_assert(sizeof(OrbFindDataW) == 136 && offsetof(OrbFindDataW, name) == 16, "callers know these bytes");

const SlotTable kSearches = {g_FindTable, sizeof g_FindTable[0], kFindSlots, kFindHandleTag,
                             ORB_ERROR_TOO_MANY_SEARCHES};

OrbFindEntry* SearchOf(uint32_t handle) { return static_cast<OrbFindEntry*>(SlotOfHandle(kSearches, handle)); }

char* CopyPattern(const char* pattern) {
  if (pattern[0] == '\0') pattern = "*";
  char* const copy = static_cast<char*>(Allocate(static_cast<uint32_t>(strlen(pattern)) + 2));
  return copy != nullptr ? strcpy(copy, pattern) : nullptr;
}

// Moves the offset past the next entry that matches and copies its name. Null where there is none.
const OrbDirEntry* NextMatch(OrbFindEntry* search, const Scratch& buffer, char* name) {
  DirCursor cursor = {search->node, buffer.As<OrbDirEntry>(), search->offset / kDirEntrySize, kNoBlock};
  OrbDirEntry* entry = OrbDirEntryAt(&cursor);
  for (; entry != nullptr; entry = OrbDirEntryAfter(&cursor, entry)) {
    search->offset += kDirEntrySize;
    CopyEntryName(name, entry);
    if (OrbMatchWildcard(name, search->pattern)) return entry;
  }
  FailIfClear(ORB_ERROR_NO_MORE_ENTRIES);
  return nullptr;
}

}  // namespace

uint32_t OrbFindOpen(OrbNode* directory, const char* pattern) {
  if (!OrbNodeIsValid(directory)) {
    Fail(ORB_ERROR_PATH_NOT_FOUND);
  } else if (!IsDirectory(directory)) {
    Fail(ORB_ERROR_NOT_A_DIRECTORY);
  } else if (strlen(pattern) > ORB_MAX_NAME) {
    Fail(ORB_ERROR_INVALID_NAME);
  } else if (FindFreeSlot(kSearches, directory, &g_dwFindCursor)) {
    char* const copy = CopyPattern(pattern);
    if (copy == nullptr) return kFindFailed;
    OrbFindEntry* const search = &g_FindTable[g_dwFindCursor];
    search->node = OrbNodeAddRef(directory);
    search->offset = 0;
    search->pattern = copy;
    return kFindHandleTag | g_dwFindCursor;
  }
  return kFindFailed;
}

bool OrbFindNext(uint32_t handle, OrbFindDataA* found) {
  OrbFindEntry* const search = SearchOf(handle);
  if (search == nullptr) return false;
  Volume* const volume = search->node->volume;
  if (volume == nullptr) return Fail(ORB_ERROR_INVALID_HANDLE);  // unmounted under the search
  if (search->offset >= search->node->record.size) return Fail(ORB_ERROR_NO_MORE_ENTRIES);
  if (!IsDirSizeSane(search->node)) return false;

  const Scratch buffer(Allocate(volume->header.blockSize));
  if (buffer.bytes == nullptr) return false;
  char name[kNameSize];
  const OrbDirEntry* const entry = NextMatch(search, buffer, name);
  if (entry == nullptr) return false;
  const NodeRef node(OrbNodeGet(volume, EntryNode(entry)));
  if (node.node == nullptr) return false;
  const OrbNodeRecord& record = node.node->record;
  strcpy(found->name, name);
  found->size = record.size;
  memcpy(&found->time, &record.time, sizeof found->time);
  found->attributes = record.attributes;
  return true;
}

bool OrbFindCloseHandle(uint32_t handle) {
  OrbFindEntry* const search = SearchOf(handle);
  if (search == nullptr) return false;
  OrbNodeRelease(search->node);
  search->node = nullptr;
  free(search->pattern);
  search->pattern = nullptr;
  return true;
}

bool OrbCloseVolumeFinds(const Volume* volume) { return CloseVolumeSlots(kSearches, volume); }

}  // namespace orba

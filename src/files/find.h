// Layer: searches, a table of 64 slots for the process. A slot owns one reference to its directory's node and a copy of
// its pattern. Stands on directories, the name rules and open files.
//
// A find handle is kFindHandleTag | slot. A search reads its directory's blocks anew with each call and moves forward
// only; reaching the end does not free the slot. While it is open its directory counts as in use. Unmounting does not
// end a search: its directory then belongs to no volume, OrbFindNext fails, OrbFindCloseHandle frees the slot.
#pragma once

#include <stdint.h>

#include "files/slots.h"
#include "nodes/node.h"
#include "orba.h"

namespace orba {

constexpr uint32_t kFindHandleTag = 0x20000;
constexpr uint32_t kFindSlots = 64;
constexpr uint32_t kFindFailed = 0xFFFFFFFF;

struct OrbFindEntry : Slot {  // the node is the directory
  uint32_t offset;            // of the next entry to look at, bytes into the directory
  char* pattern;              // owned
};

extern OrbFindEntry g_FindTable[kFindSlots];
extern uint32_t g_dwFindCursor;  // where the search for a free slot starts

// Starts a search; an empty pattern means "*". Returns the handle or kFindFailed: ORB_ERROR_PATH_NOT_FOUND (not a valid
// node), ORB_ERROR_NOT_A_DIRECTORY, ORB_ERROR_INVALID_NAME (pattern above 29 characters), ORB_ERROR_ALREADY_OPEN (this
// directory is being searched), ORB_ERROR_TOO_MANY_SEARCHES, ORB_ERROR_OUT_OF_MEMORY.
uint32_t OrbFindOpen(OrbNode* directory, const char* pattern);

// Finds the next match and fills the record.
//   fails  ORB_ERROR_INVALID_HANDLE (also: the volume is gone), ORB_ERROR_NO_MORE_ENTRIES, ORB_ERROR_OUT_OF_MEMORY,
//          codes from below. The record is untouched; the next call skips an entry whose node could not be read.
bool OrbFindNext(uint32_t handle, OrbFindDataA* found);

bool OrbFindCloseHandle(uint32_t handle);

// Tries to close a volume's searches for unmounting: passes their handles to the close of open files, which accepts
// none of them. So each open search makes this fail with ORB_ERROR_INVALID_HANDLE and stays (Q9).
bool OrbCloseVolumeFinds(const Volume* volume);

}  // namespace orba

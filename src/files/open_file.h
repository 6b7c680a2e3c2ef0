// Layer: open files, a table of 128 slots for the process. A slot owns one reference to its file's node. Stands on
// nodes and the container.
//
// A file handle is ORB_OPEN_HANDLE_TAG | slot. There is no generation count: a handle that was closed refers to
// whatever is opened in its slot next (Q13). Operations on a handle that is not valid fail with
// ORB_ERROR_INVALID_HANDLE.
#pragma once

#include <stdint.h>

#include "files/slots.h"
#include "nodes/node.h"

namespace orba {

constexpr uint32_t ORB_OPEN_HANDLE_TAG = 0x10000;
constexpr uint32_t kOpenFileSlots = 128;
constexpr uint32_t kOpenFailed = 0xFFFFFFFF;

struct OrbOpenFileEntry : Slot {
  uint32_t position;  // 0 to the file's size
  uint16_t mode;      // ORB_OPEN_READ, ORB_OPEN_WRITE
};

extern OrbOpenFileEntry g_OpenFileTable[kOpenFileSlots];
extern uint32_t g_dwOpenFileCursor;  // where the search for a free slot starts

// Opens a file that the caller alone holds. The first test that fails decides the code:
// ORB_ERROR_PATH_NOT_FOUND (not a valid node), ORB_ERROR_WRONG_KIND (a directory), ORB_ERROR_INVALID_ARGUMENT (mode
// bits), ORB_ERROR_ACCESS_DENIED (writing a read-only file), ORB_ERROR_ALREADY_OPEN, ORB_ERROR_TOO_MANY_OPEN_FILES,
// ORB_ERROR_IN_USE (held elsewhere). Returns the handle or kOpenFailed.
uint32_t OrbOpenFile(OrbNode* node, uint16_t mode);

// Flushes the container of the file's volume. Nothing is written: data and node are stored as they change.
bool OrbFlushFile(uint32_t handle);

// The file's size, or 0xFFFFFFFF.
uint32_t OrbGetOpenFileSize(uint32_t handle);

// Flushes and frees the slot; the result is the flush's, the slot is free in any case.
bool OrbCloseOpenFile(uint32_t handle);

// Closes all files of a volume; false if one of them did not close cleanly.
bool OrbCloseVolumeFiles(const Volume* volume);

// Passes the handles of all slots that belong to a volume to OrbCloseOpenFile; false if one of them did not close.
bool CloseVolumeSlots(const SlotTable& table, const Volume* volume);

// The volume of the file, or null for an invalid handle, with no error set.
Volume* OrbGetHandleVolume(uint32_t handle);

// The slot a handle refers to, or null with ORB_ERROR_INVALID_HANDLE.
OrbOpenFileEntry* OpenFileOf(uint32_t handle);

}  // namespace orba

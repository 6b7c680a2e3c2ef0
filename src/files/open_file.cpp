#include "files/open_file.h"

#include "base/error.h"
#include "storage/container.h"

namespace orba {

OrbOpenFileEntry g_OpenFileTable[kOpenFileSlots];
uint32_t g_dwOpenFileCursor;

namespace {

const SlotTable kOpenFiles = {g_OpenFileTable, sizeof g_OpenFileTable[0], kOpenFileSlots, ORB_OPEN_HANDLE_TAG,
                              ORB_ERROR_TOO_MANY_OPEN_FILES};

bool CanOpen(const OrbNode* node, uint32_t mode) {
  if (!OrbNodeIsValid(node)) return Fail(ORB_ERROR_PATH_NOT_FOUND);
  if (IsDirectory(node)) return Fail(ORB_ERROR_WRONG_KIND);
  if ((mode & ~(ORB_OPEN_READ | ORB_OPEN_WRITE)) != 0) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  const bool readOnly = (node->record.attributes & kNodeReadOnly) != 0;
  return !(readOnly && (mode & ORB_OPEN_WRITE) != 0) || Fail(ORB_ERROR_ACCESS_DENIED);
}

bool Flush(const OrbOpenFileEntry* file) { return ContainerFlush(file->node->volume->container); }

}  // namespace

uint32_t OrbOpenFile(OrbNode* node, uint16_t mode) {
  if (!CanOpen(node, mode)) return kOpenFailed;
  if (!FindFreeSlot(kOpenFiles, node, &g_dwOpenFileCursor)) return kOpenFailed;
  if (node->references >= 2) {
    Fail(ORB_ERROR_IN_USE);
    return kOpenFailed;
  }
  OrbOpenFileEntry* const file = &g_OpenFileTable[g_dwOpenFileCursor];
  file->node = OrbNodeAddRef(node);
  file->position = 0;
  file->mode = mode;
  return ORB_OPEN_HANDLE_TAG | g_dwOpenFileCursor;
}

bool OrbFlushFile(uint32_t handle) {
  const OrbOpenFileEntry* const file = OpenFileOf(handle);
  return file != nullptr && Flush(file);
}

uint32_t OrbGetOpenFileSize(uint32_t handle) {
  const OrbOpenFileEntry* const file = OpenFileOf(handle);
  return file != nullptr ? file->node->record.size : ORB_INVALID_SIZE;
}

bool OrbCloseOpenFile(uint32_t handle) {
  OrbOpenFileEntry* const file = OpenFileOf(handle);
  if (file == nullptr) return false;
  const bool flushed = Flush(file);
  OrbNodeRelease(file->node);
  file->node = nullptr;
  return flushed;
}

bool OrbCloseVolumeFiles(const Volume* volume) { return CloseVolumeSlots(kOpenFiles, volume); }

bool CloseVolumeSlots(const SlotTable& table, const Volume* volume) {
  bool closed = true;
  for (uint32_t index = 0; index < table.count; ++index) {
    const OrbNode* const node = SlotAt(table, index)->node;
    if (node == nullptr || node->volume != volume) continue;
    if (!OrbCloseOpenFile(table.tag | index)) closed = false;
  }
  return closed;
}

Volume* OrbGetHandleVolume(uint32_t handle) {
  const OrbOpenFileEntry* const file = static_cast<OrbOpenFileEntry*>(FindSlot(kOpenFiles, handle));
  return file != nullptr ? file->node->volume : nullptr;
}

OrbOpenFileEntry* OpenFileOf(uint32_t handle) {
  return static_cast<OrbOpenFileEntry*>(SlotOfHandle(kOpenFiles, handle));
}

}  // namespace orba

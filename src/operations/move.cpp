#include "operations/move.h"

#include "base/error.h"
#include "base/name.h"
#include "namespace/current_directory.h"
#include "namespace/directory.h"

namespace orba {

namespace {

// A directory must not move below itself: the moved node may not lie on the way up from the destination to the root. No
// healthy way is longer than the volume has nodes.
bool IsOutsideOf(const OrbNode* moved, OrbNode* directory) {
  const Volume* const volume = directory->volume;
  NodeRef present(OrbNodeAddRef(directory));
  for (uint32_t steps = 8 * volume->header.bitmapSize; present.node != volume->root; --steps) {
    if (present.node == moved) return Fail(ORB_ERROR_IN_USE);
    if (steps == 0) return Fail(ORB_ERROR_DAMAGED_RECORD);
    OrbNode* const parent = OrbDirOpenChild(present.node, "..");
    if (parent == nullptr) return FailIfClear(ORB_ERROR_DAMAGED_RECORD);
    present.Replace(parent);
  }
  return true;
}

// The node under a name, held; null unless it may move to toDirectory.
OrbNode* OpenMovable(OrbNode* fromDirectory, const char* fromName, OrbNode* toDirectory) {
  const uint16_t number = OrbDirLookup(fromDirectory, fromName);
  if (number == 0) {
    FailIfClear(ORB_ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  NodeRef moved(OrbNodeGet(fromDirectory->volume, number));
  if (moved.node == nullptr) return nullptr;
  if (!RequireSoleHolder(moved.node)) return nullptr;
  if (IsDirectory(moved.node) && !IsOutsideOf(moved.node, toDirectory)) return nullptr;
  return moved.Take();
}

}  // namespace

bool OrbMoveNode(OrbNode* toDirectory, const char* toName, OrbNode* fromDirectory, const char* fromName) {
  if (toDirectory == fromDirectory) return OrbDirRenameEntry(toDirectory, toName, fromName, true);
  if (toDirectory->volume != fromDirectory->volume) return Fail(ORB_ERROR_MOVE_NOT_ALLOWED);
  if (IsReservedName(fromName)) return Fail(ORB_ERROR_INVALID_NAME);
  {
    const NodeRef moved(OpenMovable(fromDirectory, fromName, toDirectory));
    if (moved.node == nullptr) return false;
    if (!OrbDirAddEntry(toDirectory, toName, moved.node->record.number, true)) return false;
    if (IsDirectory(moved.node) && !OrbDirSetParent(moved.node, toDirectory->record.number)) return false;
  }
  // The node is released by now: the removal must be its only holder.
  const NodeRef removed(OrbDirRemoveEntry(fromDirectory, fromName, false));
  return removed.node != nullptr;
}

}  // namespace orba

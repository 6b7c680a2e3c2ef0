// Operation: moving a file or directory between directories of one volume. Works on entries only: the node, its number
// and its data stay where they are. Stands on directories.
#pragma once

#include "nodes/node.h"

namespace orba {

// Moves an entry; within one directory this is a rename in place.
//   fails   ORB_ERROR_MOVE_NOT_ALLOWED (another volume), ORB_ERROR_INVALID_NAME, ORB_ERROR_FILE_NOT_FOUND,
//           ORB_ERROR_FILE_EXISTS (the destination name), ORB_ERROR_CURRENT_DIRECTORY, ORB_ERROR_IN_USE (somebody holds
//           the node; or a directory would go below itself), ORB_ERROR_DAMAGED_RECORD (the way up from the destination
//           does not reach the root): nothing changed. A failure once the new entry is in leaves both names.
//   writes  1. destination block(s), destination node   2. a moved directory's block 0, with the new ".."
//           3. source block(s), source node: the commit point
//   The new name is written before the old one goes, so a stop leaves two names rather than none.
bool OrbMoveNode(OrbNode* toDirectory, const char* toName, OrbNode* fromDirectory, const char* fromName);

}  // namespace orba

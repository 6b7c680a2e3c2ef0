// Operation: creating files and directories. Stands on directories and the node store.
#pragma once

#include <stdint.h>

#include "nodes/node.h"

namespace orba {

// Makes an empty file or directory in a parent directory.
//   attributes  as for OrbNodeCreate
//   fails   ORB_ERROR_INVALID_NAME (also the empty name), ORB_ERROR_FILE_EXISTS, and OrbNodeCreate's codes: nothing
//           changed. Later failures: for lack of space or memory the new node is deleted again; after any other code
//           its number and blocks stay in use under no name (Q20).
//   writes  1. the node (OrbNodeCreate)   2. a directory's first block, then its node again   3. the parent's block
//           with the entry   4. the parent's node: the commit point
bool OrbCreateNodeAt(OrbNode* parent, const char* name, uint16_t attributes);

// Enters a new node in its parent if it could be filled, and releases it. Where either failed, the node is deleted for
// lack of space or memory, and left without a name after any other failure.
bool NameNewNode(OrbNode* parent, const char* name, OrbNode* node, bool filled);

}  // namespace orba

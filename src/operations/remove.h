// Operation: deleting files and empty directories. Stands on directories and the node store.
#pragma once

#include "nodes/node.h"

namespace orba {

// Removes a name and deletes the node it refers to.
//   fails   OrbDirRemoveEntry's codes: nothing changed. OrbNodeDelete's codes: the name is gone, the node wholly or
//           partly still there.
//   writes  1. the parent's directory blocks and node (OrbDirRemoveEntry)   2. the node bitmap and the freed space
//           (OrbNodeDelete)
//   The entry goes first, so a stop leaves at worst a node without a name, never a name for a freed node.
bool OrbDeleteNodeAt(OrbNode* parent, const char* name);

}  // namespace orba

// Operation: deleting files and empty directories. Stands on directories and the node store.
#pragma once

#include "nodes/node.h"

namespace orba {

// Removes a name and deletes the node it stands for.
//   fails   OrbDirRemoveEntry's codes: nothing changed. Codes of OrbNodeDelete: the name is gone, the node partly or
//           wholly still there.
//   writes  1. the parent's directory blocks and node (OrbDirRemoveEntry)   2. the node bitmap and the freed space
//           (OrbNodeDelete)
//   The entry goes first, so a stop leaves at worst a node that nothing names, never a name for a freed node.
bool OrbDeleteNodeAt(OrbNode* parent, const char* name);

}  // namespace orba

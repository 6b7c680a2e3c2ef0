// Operation: creating files and directories. Stands on directories and the node store.
#pragma once

#include <stdint.h>

#include "namespace/node.h"

namespace orba {

// Makes an empty file or directory in a parent directory.
//   attributes  as for OrbNodeCreate
//   fails   ORB_ERROR_INVALID_NAME (also the empty name), ORB_ERROR_FILE_EXISTS, and OrbNodeCreate's codes: nothing
//           changed. Later failures: for lack of space or memory the new node is deleted again; after any other code its
//           number and blocks stay taken under no name, deliberately.
//   writes  1. the node (OrbNodeCreate)   2. a directory's first block, then its node again   3. the parent's block with
//           the entry   4. the parent's node: the commit point
bool OrbCreateNodeAt(OrbNode* parent, const char* name, uint16_t attributes);

// Undoes the creation of a node that could not be given its name, or leaves it: deletes it where the present error is a
// lack of space or memory, else only lets it go. Consumes the reference; the result is false.
bool AbandonNewNode(OrbNode* node);

}  // namespace orba

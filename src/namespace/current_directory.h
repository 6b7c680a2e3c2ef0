// Layer: the current directory, one for the whole process, against which relative paths resolve. Stands on nodes.
// Mounting the first volume sets it, unmounting moves or clears it, OrbSetCurrentDirectory changes it.
#pragma once

#include "nodes/node.h"

namespace orba {

// The node of the current directory, or null where none is set. Holds a reference of its own.
extern OrbNode* g_pCurrentDir;

// Makes a directory the current one; null clears it. The previous one's reference is released.
//   fails  ORB_ERROR_PATH_NOT_FOUND: not a valid node; ORB_ERROR_WRONG_KIND: not a directory. Nothing changed.
bool OrbSetCurrentDirNode(OrbNode* node);

// Returns the current directory with one added reference, or null.
OrbNode* OrbGetCurrentDirNode();

bool OrbIsCurrentDirVolume(const Volume* volume);
bool OrbIsCurrentDirNode(const OrbNode* node);

// True where the caller alone holds a node; else ORB_ERROR_CURRENT_DIRECTORY where it is the current directory, and
// ORB_ERROR_IN_USE where anything else holds it.
bool RequireSoleHolder(const OrbNode* node);

}  // namespace orba

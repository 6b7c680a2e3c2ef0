// Operation: full path names, "VOL:/DIR/NAME". Stands on path resolution and directories.
#pragma once

#include "nodes/node.h"

namespace orba {

// Turns a path into its full form: the volume's name, ":/", the stored names of the directories from the root down, and
// the last name in upper case, which need not exist.
//   out     [ORB_PATH_BUFFER]; an empty string after every failure
//   fails   the path's own codes; ORB_ERROR_PATH_TOO_LONG: above 127 characters, or more than 62 levels above the
//           parent; ORB_ERROR_OUT_OF_MEMORY; ORB_ERROR_DAMAGED_RECORD: a directory on the way has no "..", or its
//           parent does not list it
bool OrbGetFullPathName(char* out, const char* path);

// The ancestors of a path's last name: element 0 is its parent, each further element the parent of the one before.
// Every element up to the first null holds a reference.
constexpr uint32_t kMaxLevels = 63;

// Releases the references and frees the array.
void OrbReleaseNodeChain(OrbNode** chain);

}  // namespace orba

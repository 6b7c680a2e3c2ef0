// Operation: copying a file, within a volume or to another one with any block size. Stands on directories, the node
// store and the block map.
#pragma once

#include "nodes/node.h"

namespace orba {

// Makes a copy of a file's data, attributes and time stamp under a new name. Never overwrites.
//   fails   ORB_ERROR_WRONG_KIND (not a valid node, or a directory), ORB_ERROR_INVALID_NAME, ORB_ERROR_FILE_EXISTS:
//           nothing changed. Later failures: as for OrbCreateNodeAt.
//   writes  1. the node   2. for each block: the data, its map entries, the node with the size so far (for an empty
//           file the node once more, with the source's time)   3. the directory's block and node: the commit point
bool OrbCopyNodeTo(OrbNode* directory, const char* name, OrbNode* source);

// Appends the source's data to an empty destination. The destination's node is written after every block, so that a
// stop leaves a shorter but consistent copy.
bool OrbCopyFileData(OrbNode* destination, const OrbNode* source);

}  // namespace orba

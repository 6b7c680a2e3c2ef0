// Layer: path resolution. Turns a path into a node, or into the directory that holds its last name and that name.
// Stands on directories, the current directory, the list of volumes and the name rules.
//
// A path is an optional volume part (everything before the first ":"), then components separated by "/". Runs of "/"
// count as one; leading and trailing "/" add nothing, but a leading one starts at the root. "." and ".." are ordinary
// entries of every directory. A walk that fails holds no node.
#pragma once

#include "nodes/node.h"

namespace orba {

// Walks to the directory that holds the path's last name.
//   finalName  [kNameSize] the last name as it stands in the path. A path that ends in "." or ".." yields the actual
//              parent and the stored name instead; one that ends at a root yields the root and an empty name
//   returns    the directory, held, or null with finalName empty:
//              ORB_ERROR_PATH_NOT_FOUND  empty path, a missing directory, a file used as one
//              ORB_ERROR_NOT_MOUNTED     no current directory, whatever the path (Q12), or no such volume
//              ORB_ERROR_INVALID_NAME    volume part illegal, a component above ORB_MAX_NAME characters
OrbNode* OrbWalkPath(char* finalName, const char* path);

// Resolves the whole path to its node, held. Null with no error set where only the last name is missing.
OrbNode* OrbResolvePath(const char* path);

// The same with a code where only the last name is missing: ORB_ERROR_FILE_NOT_FOUND, ORB_ERROR_PATH_NOT_FOUND.
OrbNode* ResolveFile(const char* path);
OrbNode* ResolveDirectory(const char* path);

// True for a path that ends in "/", and so in no name: it stands for the directory before it.
bool EndsInSeparator(const char* path);

// Copies the volume part into out[kNameSize] (empty where there is none) and returns the rest of the path, or null:
// ORB_ERROR_INVALID_NAME.
const char* OrbSplitVolumeName(char* out, const char* path);

// Copies the next component into out[kNameSize] (empty at the end) and returns the position behind it and its "/", or
// null: ORB_ERROR_INVALID_NAME for one above 29 characters. Only its length is tested.
const char* OrbNextPathComponent(char* out, const char* position);

}  // namespace orba

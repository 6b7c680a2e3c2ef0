// Operation: reading and changing the attribute word of a file. Stands on path resolution, nodes and block I/O.
#pragma once

#include <stdint.h>

namespace orba {

// Returns the attribute word of a file or directory, or ORB_INVALID_ATTRIBUTES (0xFFFF): the path's codes,
// ORB_ERROR_FILE_NOT_FOUND.
uint32_t OrbGetAttributes(const char* path);

// Replaces a file's attribute word and commits the volume. A value that the file has already succeeds, even while it is
// open, and stores nothing. The time stamp does not change.
//   fails  ORB_ERROR_INVALID_ARGUMENT (bits other than 1 and 2; the path is not looked at), the path's codes,
//          ORB_ERROR_FILE_NOT_FOUND, ORB_ERROR_WRONG_KIND (a directory), ORB_ERROR_IN_USE: nothing changed, no commit
bool OrbSetAttributes(const char* path, int32_t attributes);

}  // namespace orba

// Operation: changing the attribute word of a file. Stands on nodes.
#pragma once

#include <stdint.h>

#include "nodes/node.h"

namespace orba {

// True for a word of nothing but the bits that callers may set, 1 and 2; else ORB_ERROR_INVALID_ARGUMENT.
bool AreSettable(int32_t attributes);

// True where a node may be given this word; else ORB_ERROR_WRONG_KIND (a directory), ORB_ERROR_IN_USE (held by others
// too). The word that a file has already may be set while it is open (Q11).
bool MaySetAttributes(const OrbNode* node, int32_t attributes);

// Replaces the attribute word of a file that may be given it. Where it is the current one nothing is stored. The time
// stamp does not change.
//   fails   OrbNodeWrite's codes
//   writes  the node: the commit point
bool OrbSetAttributes(OrbNode* file, uint16_t attributes);

}  // namespace orba

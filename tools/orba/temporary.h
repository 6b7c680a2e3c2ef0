// Names of files in containers that are being written or replaced: ~ORBA-1.TMP, ~ORBA-2.TMP and so on. Whoever stops
// meanwhile leaves one; what it holds is still where it came from, unfinished, or meant to be overwritten. Stands on
// place.
#pragma once

#include <string>
#include <vector>

#include "tools/orba/place.h"

namespace orba::tool {

bool IsTemporaryName(const std::string& name);

// The first temporary name that is not among the items of a directory.
std::string FreeTemporaryName(const std::vector<Item>& items);

// A temporary name beside `target` that is free, for the file that is to take its place. Messages call it by the
// target's name.
Address TemporaryBeside(Session* session, const Address& target);

// Puts the finished file `temporary` in the place of the file `target` of the same directory. A stop in between leaves
// the new contents under one of the two names.
void Replace(Session* session, const Address& temporary, const Address& target);

}  // namespace orba::tool

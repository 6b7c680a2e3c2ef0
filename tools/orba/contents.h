// All that lies below a place in a container that is not mounted. Stands on look.
#pragma once

#include <string>
#include <vector>

#include "tools/orba/look.h"

namespace orba::tool {

struct Content {
  std::string name;  // from the place on: "LOGS/DAY1.TXT"
  Match match;
};

// Files and directories below a directory, sorted within theirs, each directory before what it holds; a file alone is
// there under its own name. What cannot be listed is told.
std::vector<Content> ContentsOf(Look* look, const Match& place);

}  // namespace orba::tool

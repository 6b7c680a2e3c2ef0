// "*" for any characters, also none, and "?" for one, in names without regard to case. Stands on host.
#pragma once

#include <string>
#include <vector>

#include "tools/orba/host/host.h"

namespace orba::tool {

bool HasWildcard(const std::string& text);
bool Matches(const std::string& name, const std::string& pattern);

// The arguments as a shell would have handed them over: where it has left it to the program, patterns of host paths
// become the paths that match, sorted, or stay as they are where none does. What refers to a place inside a container
// stays. Names that begin with a dot match a pattern that does.
std::vector<std::string> Expanded(const std::vector<host::Argument>& arguments);

}  // namespace orba::tool

// "*" for any characters, also none, and "?" for one, in names without regard to case.
#pragma once

#include <string>

namespace orba::tool {

bool HasWildcard(const std::string& text);
bool Matches(const std::string& name, const std::string& pattern);

}  // namespace orba::tool

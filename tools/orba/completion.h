// The completions for the shells, made from the commands' records and their syntax. Stands on command.
#pragma once

#include <string>
#include <vector>

#include "tools/orba/command.h"

namespace orba::tool {

const std::vector<std::string>& CompletedShells();

// The script for one of these shells. `program` are the options that stand before any command.
std::string Completion(const std::string& shell, const Syntax& program);

}  // namespace orba::tool

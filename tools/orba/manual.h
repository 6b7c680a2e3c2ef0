// What explains the command line, made from the commands' records and their syntax: the help and the manual page.
// Stands on command.
#pragma once

#include <string>

#include "tools/orba/command.h"

namespace orba::tool {

extern const char* const kVersion;

std::string ProgramHelp();
std::string CommandHelp(const Command& command);

// orba(1), in troff.
std::string ManualPage();

}  // namespace orba::tool

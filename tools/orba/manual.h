// Everything that explains the command line, made from the commands' records and their syntax: the help, the manual
// page and the completion. Stands on command.
#pragma once

#include <string>

#include "tools/orba/command.h"

namespace orba::tool {

extern const char* const kVersion;

std::string ProgramHelp();
std::string CommandHelp(const Command& command);

// orba(1), in troff.
std::string ManualPage();

// The completion for bash. `program` are the options that stand before any command.
std::string BashCompletion(const Syntax& program);

}  // namespace orba::tool

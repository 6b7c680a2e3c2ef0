// Everything that explains the command line, made from the commands' records and the options they define: the help, the
// manual page and the completion. Stands on command.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace orba::tool {

extern const char* const kVersion;

// Makes `app` and all its sub-commands print the help below.
void SetHelp(CLI::App* app);

// Of the program, or of one sub-command of it.
std::string HelpText(const CLI::App& app);

// orba(1), in troff.
std::string ManualPage(const CLI::App& app);

// The completion for bash.
std::string BashCompletion(const CLI::App& app);

}  // namespace orba::tool

// Where the file system says what callers cannot be told by an errno value alone: on standard error, or in the system's
// log once nobody reads that. Stands on the standard library alone.
#pragma once

#include <string>

namespace orba::mount {

void LogToSystem();

// One line, without its end. Bytes that are no visible characters are written as \xNN.
void Log(const std::string& line);

}  // namespace orba::mount

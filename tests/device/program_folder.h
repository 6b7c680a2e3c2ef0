#pragma once

#include <string>

namespace device {

// The folder of the running program, without a trailing "/".
std::string ProgramFolder();

}  // namespace device

// Result codes by name, as tests state and print them.
#pragma once

#include <stdint.h>

#include <string>

namespace testhost {

// "DISK_FULL" for ORB_ERROR_DISK_FULL; a number that is no code as "0x30000024".
std::string NameOfCode(uint32_t code);

}  // namespace testhost

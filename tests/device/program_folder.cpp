#include "program_folder.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace device {

std::string ProgramFolder() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) std::abort();
  const std::string program(path, static_cast<size_t>(length));
  return program.substr(0, program.rfind('/'));
}

}  // namespace device

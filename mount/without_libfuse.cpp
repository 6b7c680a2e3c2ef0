// Takes the place of file_system.cpp where libfuse is not there.
#include "mount/file_system.h"

namespace orba::mount {

bool IsAvailable() { return false; }

Settings OwnSettings() { return {}; }

std::string Serve(Tree* /*tree*/, const Settings& /*settings*/, const std::function<void()>& /*mounted*/) {
  return "libfuse was not there when this program was built";
}

}  // namespace orba::mount

// Takes the place of everything here that needs libfuse, or a system that has it. IsAvailable tells the tool, which
// then asks for nothing else.
#include "mount/background.h"
#include "mount/file_system.h"
#include "mount/log.h"
#include "mount/unmount.h"

namespace orba::mount {

bool IsAvailable() { return false; }

Settings OwnSettings() { return {}; }

std::string Serve(Tree* /*tree*/, const Settings& /*settings*/, const std::function<void()>& /*mounted*/) {
  return "this program was built without libfuse";
}

bool GoToBackground() { return false; }
void Leave() {}

void LogToSystem() {}
void Log(const std::string& /*line*/) {}

std::string ContainerAt(const std::string& /*folder*/) { return ""; }
std::string FolderOf(const std::string& /*container*/) { return ""; }
std::string Unmount(const std::string& /*folder*/, bool /*detach*/) { return "nothing can be mounted"; }

}  // namespace orba::mount

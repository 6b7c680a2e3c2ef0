// Folders that containers are mounted at, and how they cease to be. Stands on the system alone.
#pragma once

#include <string>

namespace orba::mount {

// The container that is mounted at a folder, as an absolute path; empty where none is.
std::string ContainerAt(const std::string& folder);

// The folder at which a container is mounted, given its absolute path; empty where there is none.
std::string FolderOf(const std::string& container);

// Unmounts what is mounted at a folder; `detach` does so while it is in use, and it goes when nobody uses it any more.
// Returns an empty text, or what stands in the way.
std::string Unmount(const std::string& folder, bool detach);

}  // namespace orba::mount

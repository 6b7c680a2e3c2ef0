// A tree served to the host as a folder, by libfuse 3. Stands on tree, log and libfuse; without_libfuse.cpp takes its
// place where that is not there when the tool is built.
//
// The low-level interface of libfuse is used, which knows files by number: a name in any letter case leads to one and
// the same inode, so that the kernel caches its contents once. While the container is mounted nothing but this folder
// changes it, therefore the kernel may keep what it has read, and attributes, for as long as it likes. Names it has to
// ask for again each time in a folder that can be changed: one that goes under one spelling would stay there under
// another. Writes are not held back by the kernel; each has reached the tree when the caller's write returns.
//
// Closing a file that was open for writing makes all changes durable, as the library has it; so does fsync of anything.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "mount/tree.h"

namespace orba::mount {

// False where the tool was built without libfuse; nothing can be mounted then.
bool IsAvailable();

struct Settings {
  std::string source;      // the container, as tables of mounts show it
  std::string folder;      // where it is mounted
  bool readOnly = false;   // the tree cannot be changed
  std::uint32_t user = 0;  // whose everything is
  std::uint32_t group = 0;
  std::uint32_t mask = 022;          // permissions that nobody has
  std::vector<std::string> options;  // for libfuse and the kernel: "allow_other"
};

// Everything belongs to who runs this; permissions as that one's umask has it.
Settings OwnSettings();

// Mounts the tree and serves it until it is unmounted, or SIGINT, SIGTERM or SIGHUP comes; unmounts it then. Calls
// `mounted` once callers can use the folder. Returns an empty text, or what went wrong.
std::string Serve(Tree* tree, const Settings& settings, const std::function<void()>& mounted);

}  // namespace orba::mount

#include "mount/unmount.h"

#include <fcntl.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

namespace orba::mount {

namespace {

// As the table of mounts has it, also where nobody serves the folder any more.
std::string Absolute(const std::string& folder) {
  const auto resolve = [](const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), std::free);
    return std::string(resolved == nullptr ? "" : resolved.get());
  };
  std::string path = resolve(folder);
  if (!path.empty()) return path;
  const std::string plain = folder.substr(0, folder.find_last_not_of('/') + 1);
  const std::size_t slash = plain.rfind('/');
  const std::string above = slash == std::string::npos ? resolve(".") : resolve(plain.substr(0, slash + 1));
  const std::string name = slash == std::string::npos ? plain : plain.substr(slash + 1);
  return above.empty() ? folder : (above == "/" ? "" : above) + "/" + name;
}

// fusermount3 may unmount what its caller has mounted, whoever that is. Its exit status, and what it says.
int RunHelper(const std::string& folder, bool detach, std::string* said) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    execlp("fusermount3", "fusermount3", detach ? "-uz" : "-u", "--", folder.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  char part[256];
  for (ssize_t got = 1; child > 0 && got > 0;) {
    got = read(ends[0], part, sizeof part);
    if (got > 0) said->append(part, static_cast<std::size_t>(got));
    if (got < 0 && errno == EINTR) got = 1;
  }
  close(ends[0]);
  int status = -1;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  while (!said->empty() && said->back() == '\n') said->pop_back();
  return status;
}

void VisitMounts(const std::function<void(const mntent&)>& visit) {
  const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent("/proc/self/mounts", "re"), endmntent);
  while (const mntent* const entry = table == nullptr ? nullptr : getmntent(table.get())) visit(*entry);
}

bool IsContainer(const mntent& entry) { return std::strcmp(entry.mnt_type, "fuse.orba") == 0; }

}  // namespace

std::string ContainerAt(const std::string& folder) {
  const std::string path = Absolute(folder);
  std::string container;
  VisitMounts([&](const mntent& entry) {
    if (path == entry.mnt_dir) container = IsContainer(entry) ? entry.mnt_fsname : "";  // the last one lies on top
  });
  return container;
}

std::string FolderOf(const std::string& container) {
  std::string folder;
  VisitMounts([&](const mntent& entry) {
    if (IsContainer(entry) && container == entry.mnt_fsname) folder = entry.mnt_dir;
  });
  return folder;
}

std::string Unmount(const std::string& folder, bool detach) {
  const std::string path = Absolute(folder);
  if (umount2(path.c_str(), (detach ? MNT_DETACH : 0) | UMOUNT_NOFOLLOW) == 0) return "";
  if (errno != EPERM) return std::strerror(errno);
  std::string said;
  if (RunHelper(path, detach, &said) == 0) return "";
  return said.empty() ? "fusermount3, which comes with libfuse, cannot be run" : said;
}

}  // namespace orba::mount

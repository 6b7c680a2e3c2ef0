#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tools/orba/host/host.h"

namespace orba::tool::host {

namespace {

Kind KindOf(mode_t mode) {
  if (S_ISREG(mode)) return Kind::kFile;
  if (S_ISDIR(mode)) return Kind::kDirectory;
  if (S_ISLNK(mode)) return Kind::kLink;
  if (S_ISFIFO(mode)) return Kind::kPipe;
  return S_ISSOCK(mode) ? Kind::kSocket : Kind::kDevice;
}

Status Told(int result, const struct stat& status) {
  if (result != 0) return {};
  return {KindOf(status.st_mode),
          static_cast<std::uint64_t>(status.st_size),
          {status.st_dev, status.st_ino},
          std::int64_t{status.st_mtim.tv_sec},
          std::int64_t{status.st_mtim.tv_nsec}};
}

}  // namespace

Status StatusOf(const std::string& path) {
  struct stat status = {};
  const int result = stat(path.c_str(), &status);
  return Told(result, status);
}

Status OwnStatusOf(const std::string& path) {
  struct stat status = {};
  const int result = lstat(path.c_str(), &status);
  return Told(result, status);
}

Status StatusOf(int file) {
  struct stat status = {};
  const int result = fstat(file, &status);
  return Told(result, status);
}

bool ListDirectory(const std::string& path, std::vector<std::string>* names) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
  if (directory == nullptr) return false;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) return errno == 0;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
}

std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> place(realpath(path.c_str(), nullptr), std::free);
  return place == nullptr ? "" : place.get();
}

std::uint64_t FreeSpace(const std::string& path) {
  struct statvfs disk = {};
  if (statvfs(path.c_str(), &disk) != 0) return UINT64_MAX;
  return std::uint64_t{disk.f_bavail} * disk.f_frsize;
}

namespace {

// As the library locks containers, so that the lock ends when the file is closed. False with EBUSY where another one's
// forbids it.
bool LockFor(int file, Share share) {
  if (share == Share::kAll || flock(file, (share == Share::kNobody ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0) return true;
  if (errno != EWOULDBLOCK) return true;  // a file system without locks has no one to keep out
  errno = EBUSY;
  return false;
}

int Open(const std::string& path, int access, Share share) {
  const int file = open(path.c_str(), access | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (file < 0 || LockFor(file, share)) return file;
  const int error = errno;
  close(file);
  errno = error;
  return -1;
}

}  // namespace

int OpenForReading(const std::string& path, Share share) { return Open(path, O_RDONLY, share); }

int OpenForWriting(const std::string& path, Share share) { return Open(path, O_RDWR, share); }

int CreateNew(const std::string& path) { return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); }

int CreateTemporary(std::string* path) {
  static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  static std::atomic<std::uint64_t> number =
      static_cast<std::uint64_t>(time(nullptr)) << 32 ^ static_cast<std::uint64_t>(getpid());
  const std::size_t end = path->find_last_not_of('X') + 1;
  for (;;) {
    std::uint64_t rest = ++number * 6364136223846793005u >> 24;  // its upper bits are the more mixed ones
    for (std::size_t i = end; i < path->size(); ++i, rest /= sizeof kLetters - 1) {
      (*path)[i] = kLetters[rest % (sizeof kLetters - 1)];
    }
    // Unlike mkostemp, lets others read the file as far as the mask of the process does.
    const int file = open(path->c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0 && errno == EEXIST) continue;
    // Who removes unused files takes what is not locked yet; then a new one is needed.
    if (file < 0 || LockFor(file, Share::kNobody)) return file;
    close(file);
  }
}

int CreateUnnamed() {
  const char* const chosen = getenv("TMPDIR");
  std::string path = chosen != nullptr && chosen[0] != '\0' ? chosen : "/tmp";
  path += "/.orba-XXXXXX";
  const int file = mkostemp(path.data(), O_CLOEXEC);
  if (file >= 0) unlink(path.c_str());
  return file;
}

int DuplicateStandardInput() { return fcntl(kInput, F_DUPFD_CLOEXEC, 3); }

bool Close(int file) { return close(file) == 0; }

std::ptrdiff_t Read(int file, void* bytes, std::size_t count) { return read(file, bytes, count); }

std::ptrdiff_t Write(int file, const void* bytes, std::size_t count) { return write(file, bytes, count); }

std::ptrdiff_t ReadAt(int file, std::uint64_t offset, void* bytes, std::size_t count) {
  return pread(file, bytes, count, static_cast<off_t>(offset));
}

std::ptrdiff_t WriteAt(int file, std::uint64_t offset, const void* bytes, std::size_t count) {
  return pwrite(file, bytes, count, static_cast<off_t>(offset));
}

bool Rewind(int file) { return lseek(file, 0, SEEK_SET) == 0; }

bool Truncate(int file, std::uint64_t size) {
  int result = 0;
  do {
    result = ftruncate(file, static_cast<off_t>(size));
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool Sync(int file) {
  int result = 0;
  do {
    result = fsync(file);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EINVAL;
}

bool SyncDisk(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const bool done = file >= 0 && syncfs(file) == 0;
  const int error = errno;
  if (file >= 0) close(file);
  errno = error;
  return done;
}

bool CanSyncDisks() { return true; }

std::string HolderOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return "";
  char wanted[64];  // as /proc/locks has the file: "08:01:1234"
  std::snprintf(wanted, sizeof wanted, " %02x:%02x:%llu ", major(status.st_dev), minor(status.st_dev),
                static_cast<unsigned long long>(status.st_ino));
  const std::unique_ptr<FILE, int (*)(FILE*)> locks(fopen("/proc/locks", "re"), fclose);
  char line[256];
  while (locks != nullptr && fgets(line, sizeof line, locks.get()) != nullptr) {
    int process = 0;
    const bool ours = std::strstr(line, wanted) != nullptr && std::strstr(line, "->") == nullptr;
    if (!ours || std::sscanf(line, "%*s %*s %*s %*s %d", &process) != 1 || process <= 0) continue;
    char name[32] = "";
    const std::string commPath = "/proc/" + std::to_string(process) + "/comm";
    const std::unique_ptr<FILE, int (*)(FILE*)> comm(fopen(commPath.c_str(), "re"), fclose);
    const bool named = comm != nullptr && fgets(name, sizeof name, comm.get()) != nullptr;
    name[std::strcspn(name, "\n")] = '\0';
    return "process " + std::to_string(process) + (named ? std::string(" (") + name + ")" : "");
  }
  return "";
}

bool SetTime(int file, std::int64_t seconds) {
  const timespec stamp = {seconds, 0};
  const timespec times[2] = {stamp, stamp};
  return futimens(file, times) == 0;
}

bool SetTimeToNow(int file) { return futimens(file, nullptr) == 0; }

void TakeOverSyncs() { setenv("ORBA_SYNC", "caller", 1); }

void SetClock(const std::array<unsigned, 6>& time) {
  std::string text;
  for (const unsigned part : time) text += (text.empty() ? "" : " ") + std::to_string(part);
  setenv("ORBA_CLOCK", text.c_str(), 1);
}

void ResetClock() { unsetenv("ORBA_CLOCK"); }

bool Rename(const std::string& from, const std::string& to, bool overwrite) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), overwrite ? 0 : RENAME_NOREPLACE) == 0) return true;
  // Not every file system knows the renaming that never replaces.
  if (errno != EINVAL) return false;
  if (OwnStatusOf(to).kind != Kind::kNothing) {
    errno = EEXIST;
    return false;
  }
  return rename(from.c_str(), to.c_str()) == 0;
}

bool Replace(const std::string& path, const std::string& by, const std::string& kept) {
  struct stat old = {};
  if (stat(path.c_str(), &old) != 0) return false;
  // The superuser's alone may have another's owner; then permissions, which a change of owner may take away.
  if (chown(by.c_str(), old.st_uid, old.st_gid) != 0 && errno != EPERM) return false;
  if (chmod(by.c_str(), old.st_mode & 07777) != 0) return false;
  if (kept.empty()) return rename(by.c_str(), path.c_str()) == 0;
  const bool linked = link(path.c_str(), kept.c_str()) == 0;
  if (!linked && errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return false;
  if (!linked && !Rename(path, kept, false)) return false;
  if (rename(by.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  if (linked) {
    unlink(kept.c_str());
  } else {
    Rename(kept, path, false);
  }
  errno = error;
  return false;
}

bool Remove(const std::string& path) { return unlink(path.c_str()) == 0; }

bool RemoveUnused(const std::string& path) {
  const int file = OpenForWriting(path, Share::kNobody);
  if (file < 0) return false;
  const bool done = unlink(path.c_str()) == 0;
  const int error = errno;
  close(file);
  errno = error;
  return done;
}

bool RemoveDirectory(const std::string& path) { return rmdir(path.c_str()) == 0; }

bool MakeDirectory(const std::string& path) { return mkdir(path.c_str(), 0777) == 0; }

int OpenDirectory(const std::string& path) { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

const char* ErrorName(int error) { return strerrorname_np(error); }

std::string ErrorText(int error) { return strerror(error); }

bool IsNoSpace(int error) { return error == ENOSPC || error == EDQUOT; }

}  // namespace orba::tool::host

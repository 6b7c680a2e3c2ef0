#include "tools/orba/host_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <utility>

#include "tools/orba/failure.h"
#include "tools/orba/interrupt.h"

namespace orba::tool {

Descriptor::~Descriptor() {
  if (descriptor_ >= 0) close(descriptor_);
}

int Descriptor::Take() { return std::exchange(descriptor_, -1); }

Descriptor OpenForReading(const std::string& path) {
  const std::string what = "cannot read " + path;
  // A pipe without a writer must not stop us here; it is refused below.
  const bool standardInput = path == "-";
  Descriptor file(standardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status = {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) throw HostFailure(what, errno);
  if (standardInput || S_ISREG(status.st_mode)) return file;
  if (S_ISDIR(status.st_mode)) throw HostFailure(what, EISDIR);
  throw Failure(what, "it is no ordinary file", "name an ordinary file");
}

std::size_t ReadFully(int descriptor, const std::string& path, void* buffer, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    AwaitInput(descriptor);
    const ssize_t part = read(descriptor, static_cast<char*>(buffer) + done, count - done);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) throw HostFailure("cannot read " + path, errno);
    if (part == 0) break;
    done += static_cast<std::size_t>(part);
  }
  return done;
}

void WriteFully(int descriptor, const std::string& what, const void* buffer, std::size_t count) {
  const char* bytes = static_cast<const char*>(buffer);
  while (count > 0) {
    const ssize_t part = write(descriptor, bytes, count);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) throw HostFailure("cannot write " + what, errno);
    bytes += part;
    count -= static_cast<std::size_t>(part);
  }
}

Descriptor OpenPassingFile() {
  const char* const chosen = std::getenv("TMPDIR");
  std::string path = JoinPath(chosen != nullptr && chosen[0] != '\0' ? chosen : "/tmp", ".orba-XXXXXX");
  Descriptor file(mkostemp(path.data(), O_CLOEXEC));
  if (file.get() < 0) throw HostFailure("cannot make a passing file " + path, errno);
  unlink(path.c_str());
  return file;
}

std::vector<std::string> ListHostDirectory(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
  if (directory == nullptr) throw HostFailure("cannot list " + path, errno);
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) throw HostFailure("cannot list " + path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

std::string JoinPath(const std::string& directory, const std::string& name) {
  std::string path = directory;
  if (path.size() > 2 && path.compare(path.size() - 2, 2, "/.") == 0) path.pop_back();
  return path.empty() || path.back() == '/' ? path + name : path + "/" + name;
}

std::string ParentOf(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/');
  const std::size_t slash = end == std::string::npos ? 0 : path.rfind('/', end);
  if (slash == std::string::npos) return ".";
  const std::size_t last = path.find_last_not_of('/', slash);
  return last == std::string::npos ? "/" : path.substr(0, last + 1);
}

std::string BaseName(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return "";
  const std::size_t slash = path.rfind('/', end);
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  const std::string name = path.substr(start, end - start + 1);
  return name == "." || name == ".." ? "" : name;
}

bool IsHostDirectory(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool HostFileExists(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

bool IsSameHostFile(const std::string& a, const std::string& b) {
  struct stat first = {};
  struct stat second = {};
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

void MakeHostDirectory(const std::string& path) {
  if (mkdir(path.c_str(), 0777) == 0) return;
  const int error = errno;
  if (error != EEXIST || !IsHostDirectory(path)) {
    const std::string what = "cannot make the directory " + path;
    throw error == EEXIST ? HostFailure(what, error, "use another name") : HostFailure(what, error);
  }
}

bool ToHostTime(const OrbTime& time, timespec* out) {
  if (time.year < 1601 || time.month < 1 || time.month > 12 || time.day < 1 || time.day > 31 || time.hour > 23 ||
      time.minute > 59 || time.second > 59) {
    return false;
  }
  std::tm utc = {};
  utc.tm_year = time.year - 1900;
  utc.tm_mon = time.month - 1;
  utc.tm_mday = time.day;
  utc.tm_hour = time.hour;
  utc.tm_min = time.minute;
  utc.tm_sec = time.second;
  *out = {timegm(&utc), 0};
  return true;
}

void StampHostDirectory(const std::string& path, const OrbTime& time) {
  timespec stamp;
  if (!ToHostTime(time, &stamp)) return;
  const timespec times[2] = {stamp, stamp};
  utimensat(AT_FDCWD, path.c_str(), times, 0);  // another user's directory keeps its own time
}

NewHostFile::NewHostFile(std::string path) : path_(std::move(path)) {
  const std::size_t slash = path_.rfind('/');
  temporary_ = (slash == std::string::npos ? "" : path_.substr(0, slash + 1)) + ".orba-XXXXXX";
  descriptor_ = mkostemp(temporary_.data(), O_CLOEXEC);
  if (descriptor_ < 0) {
    temporary_.clear();
    Fail();
  }
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(descriptor_, 0666 & ~mask);
}

NewHostFile::~NewHostFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void NewHostFile::Write(const void* buffer, std::size_t count) { WriteFully(descriptor_, path_, buffer, count); }

void NewHostFile::Publish(const OrbTime& time, bool overwrite) {
  timespec stamp;
  if (ToHostTime(time, &stamp)) {
    const timespec times[2] = {stamp, stamp};
    if (futimens(descriptor_, times) != 0) Fail();
  }
  if (close(std::exchange(descriptor_, -1)) != 0) Fail();
  int renamed = renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), overwrite ? 0 : RENAME_NOREPLACE);
  // Not every file system knows the exchange that never replaces; whether the name was free has been asked before.
  if (renamed != 0 && errno == EINVAL && !HostFileExists(path_)) renamed = rename(temporary_.c_str(), path_.c_str());
  if (renamed != 0) Fail();
  temporary_.clear();
}

void NewHostFile::Fail() const { throw HostFailure("cannot write " + path_, errno); }

}  // namespace orba::tool

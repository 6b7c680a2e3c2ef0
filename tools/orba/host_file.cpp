#include "tools/orba/host_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
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
  throw Failure(what, "it is no ordinary file but " + KindOf(status.st_mode), "name an ordinary file");
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

std::string KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISSOCK(mode)) return "a socket";
  return S_ISREG(mode) ? "an ordinary file" : "a device";
}

std::string PlaceToWrite(const std::string& path) {
  const std::string what = "cannot write " + path;
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return path;
  const bool link = S_ISLNK(status.st_mode);
  if (link && stat(path.c_str(), &status) != 0) {
    throw HostFailure(what, errno, "it is a symbolic link that leads nowhere; use another name, or remove it");
  }
  if (S_ISDIR(status.st_mode)) throw HostFailure(what, EISDIR, "use another name");
  if (!S_ISREG(status.st_mode)) {
    throw Failure(what, "it is no ordinary file but " + KindOf(status.st_mode), "use another name");
  }
  if (!link) return path;
  const std::unique_ptr<char, void (*)(void*)> place(realpath(path.c_str(), nullptr), std::free);
  if (place == nullptr) throw HostFailure(what, errno);
  return place.get();
}

namespace {

std::tm CalendarTime(const OrbTime& time) {
  std::tm utc = {};
  utc.tm_year = time.year - 1900;
  utc.tm_mon = time.month - 1;
  utc.tm_mday = time.day;
  utc.tm_hour = time.hour;
  utc.tm_min = time.minute;
  utc.tm_sec = time.second;
  return utc;
}

}  // namespace

bool IsDate(const OrbTime& time) {
  constexpr OrbU16 kFirstYear = 1601;  // that devices know
  const std::tm utc = CalendarTime(time);
  std::tm sane = utc;
  timegm(&sane);  // turns the 30th of February into a day of March
  return time.year >= kFirstYear && sane.tm_mon == utc.tm_mon && sane.tm_mday == utc.tm_mday &&
         sane.tm_hour == utc.tm_hour && sane.tm_min == utc.tm_min && sane.tm_sec == utc.tm_sec;
}

namespace {

// What the host cannot keep becomes the present time, not another one.
void Stamp(int descriptor, const OrbTime& time) {
  if (!IsDate(time)) return;
  std::tm utc = CalendarTime(time);
  const timespec stamp = {timegm(&utc), 0};
  const timespec times[2] = {stamp, stamp};
  constexpr std::int64_t kCoarsest = 2;  // seconds that file systems count in
  struct stat status = {};
  const bool kept = futimens(descriptor, times) == 0 && fstat(descriptor, &status) == 0 &&
                    std::abs(std::int64_t{status.st_mtim.tv_sec} - std::int64_t{stamp.tv_sec}) < kCoarsest;
  if (!kept) futimens(descriptor, nullptr);
}

}  // namespace

void StampHostDirectory(const std::string& path, const OrbTime& time) {
  const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() >= 0) Stamp(directory.get(), time);  // another user's directory keeps its own time
}

NewHostFile::NewHostFile(std::string path) : path_(std::move(path)), place_(PlaceToWrite(path_)) {
  const std::size_t slash = place_.rfind('/');
  temporary_ = (slash == std::string::npos ? "" : place_.substr(0, slash + 1)) + ".orba-XXXXXX";
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
  Stamp(descriptor_, time);
  if (close(std::exchange(descriptor_, -1)) != 0) Fail();
  int renamed = renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, place_.c_str(), overwrite ? 0 : RENAME_NOREPLACE);
  // Not every file system knows the exchange that never replaces; whether the name was free has been asked before.
  if (renamed != 0 && errno == EINVAL && !HostFileExists(place_)) renamed = rename(temporary_.c_str(), place_.c_str());
  if (renamed != 0) Fail();
  temporary_.clear();
}

void NewHostFile::Fail() const { throw HostFailure("cannot write " + path_, errno); }

}  // namespace orba::tool

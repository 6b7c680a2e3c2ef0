#include "tools/orba/host_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "inspect/container/date.h"
#include "tools/orba/failure.h"
#include "tools/orba/interrupt.h"

namespace orba::tool {

Descriptor::~Descriptor() {
  if (descriptor_ >= 0) host::Close(descriptor_);
}

int Descriptor::Take() { return std::exchange(descriptor_, -1); }

Descriptor OpenForReading(const std::string& path, host::Share share) {
  const std::string what = "cannot read " + path;
  const bool standardInput = path == "-";
  Descriptor file(standardInput ? host::DuplicateStandardInput() : host::OpenForReading(path, share));
  if (file.get() < 0 && errno == EBUSY && share != host::Share::kAll) return file;
  const host::Status status = file.get() < 0 ? host::Status{} : host::StatusOf(file.get());
  if (status.kind == host::Kind::kNothing) throw HostFailure(what, errno);
  if (standardInput || status.kind == host::Kind::kFile) return file;
  if (status.kind == host::Kind::kDirectory) throw HostFailure(what, EISDIR);
  throw Failure(what, "it is not an ordinary file but " + KindText(status.kind), "give an ordinary file");
}

Descriptor OpenForWriting(const std::string& path, host::Share share) {
  Descriptor file(host::OpenForWriting(path, share));
  if (file.get() >= 0 && host::StatusOf(file.get()).kind == host::Kind::kFile) return file;
  if (file.get() >= 0) errno = EINVAL;
  return Descriptor(-1);
}

void SyncDirectory(const std::string& path) {
  const Descriptor directory(host::OpenDirectory(path));
  if (directory.get() < 0 || !host::Sync(directory.get())) {
    throw HostFailure("cannot sync the directory " + path, errno);
  }
}

namespace {

std::size_t ReadAll(int descriptor, const std::string& path, void* buffer, std::size_t count, void (*wait)(int)) {
  std::size_t done = 0;
  while (done < count) {
    wait(descriptor);
    const std::ptrdiff_t part = host::Read(descriptor, static_cast<char*>(buffer) + done, count - done);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) throw HostFailure("cannot read " + path, errno);
    if (part == 0) break;
    done += static_cast<std::size_t>(part);
  }
  return done;
}

}  // namespace

std::size_t ReadFully(int descriptor, const std::string& path, void* buffer, std::size_t count) {
  return ReadAll(descriptor, path, buffer, count, AwaitInput);
}

std::size_t ReadOrdinary(int descriptor, const std::string& path, void* buffer, std::size_t count) {
  return ReadAll(descriptor, path, buffer, count, [](int) { CheckInterrupt(); });
}

void WriteFully(int descriptor, const std::string& what, const void* buffer, std::size_t count) {
  const char* bytes = static_cast<const char*>(buffer);
  while (count > 0) {
    const std::ptrdiff_t part = host::Write(descriptor, bytes, count);
    if (part < 0 && errno == EINTR) continue;
    if (part < 0) throw HostFailure("cannot write " + what, errno);
    bytes += part;
    count -= static_cast<std::size_t>(part);
  }
}

std::vector<std::string> ListHostDirectory(const std::string& path) {
  std::vector<std::string> names;
  if (!host::ListDirectory(path, &names)) throw HostFailure("cannot list " + path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

std::string JoinPath(const std::string& directory, const std::string& name) {
  std::string path = directory;
  const std::size_t size = path.size();
  if (size > 2 && path[size - 1] == '.' && host::IsSeparator(path[size - 2])) path.pop_back();
  return path + host::SeparatorAfter(path) + name;
}

namespace {

// Where the last name of a path begins and ends; both at the same place where there is none.
std::pair<std::size_t, std::size_t> LastName(const std::string& path) {
  const std::size_t root = host::RootLength(path);
  std::size_t end = path.size();
  while (end > root && host::IsSeparator(path[end - 1])) --end;
  std::size_t start = end;
  while (start > root && !host::IsSeparator(path[start - 1])) --start;
  return {start, end};
}

}  // namespace

std::string ParentOf(const std::string& path) {
  const std::string parent = WithoutSeparators(path.substr(0, LastName(path).first));
  return parent.empty() ? "." : parent;
}

std::string BaseName(const std::string& path) {
  const auto [start, end] = LastName(path);
  const std::string name = path.substr(start, end - start);
  return name == "." || name == ".." ? "" : name;
}

bool EndsWithSeparator(const std::string& path) { return !path.empty() && host::IsSeparator(path.back()); }

std::string WithoutSeparators(const std::string& path) {
  std::size_t end = path.size();
  while (end > host::RootLength(path) && host::IsSeparator(path[end - 1])) --end;
  return path.substr(0, end);
}

bool IsHostDirectory(const std::string& path) { return host::StatusOf(path).kind == host::Kind::kDirectory; }

bool HostFileExists(const std::string& path) { return host::OwnStatusOf(path).kind != host::Kind::kNothing; }

bool IsSameHostFile(const std::string& a, const std::string& b) {
  const host::Status first = host::StatusOf(a);
  const host::Status second = host::StatusOf(b);
  return first.kind != host::Kind::kNothing && second.kind != host::Kind::kNothing && first.id == second.id;
}

void MakeHostDirectory(const std::string& path) {
  if (host::MakeDirectory(path)) return;
  const int error = errno;
  if (error != EEXIST || !IsHostDirectory(path)) {
    const std::string what = "cannot make the directory " + path;
    throw error == EEXIST ? HostFailure(what, error, "use another name") : HostFailure(what, error);
  }
}

void MakeHostDirectories(const std::string& path) {
  if (IsHostDirectory(path)) return;
  const std::string parent = ParentOf(path);
  if (parent != path) MakeHostDirectories(parent);
  MakeHostDirectory(path);
}

std::string KindText(host::Kind kind) {
  switch (kind) {
    case host::Kind::kDirectory:
      return "a directory";
    case host::Kind::kPipe:
      return "a pipe";
    case host::Kind::kSocket:
      return "a socket";
    case host::Kind::kFile:
      return "an ordinary file";
    default:
      return "a device";
  }
}

namespace {

// The path; throws where no file can have its name.
const std::string& PossiblePath(const std::string& path) {
  const std::string problem = host::NameProblem(BaseName(path));
  if (!problem.empty()) throw Failure("cannot write " + path, problem, "use another name");
  return path;
}

}  // namespace

std::string PlaceToWrite(const std::string& path) {
  const std::string what = "cannot write " + path;
  host::Status status = host::OwnStatusOf(path);
  if (status.kind == host::Kind::kNothing) return PossiblePath(path);
  const bool link = status.kind == host::Kind::kLink;
  if (link) status = host::StatusOf(path);
  if (status.kind == host::Kind::kNothing) {
    throw HostFailure(what, errno, "it is a symbolic link that leads nowhere; use another name, or remove it");
  }
  if (status.kind == host::Kind::kDirectory) throw HostFailure(what, EISDIR, "use another name");
  if (status.kind != host::Kind::kFile) {
    throw Failure(what, "it is not an ordinary file but " + KindText(status.kind), "use another name");
  }
  if (!link) return path;
  std::string place = host::RealPath(path);
  if (place.empty()) throw HostFailure(what, errno);
  return place;
}

namespace {

TimeStamp StampOf(const OrbTime& time) {
  return {time.year, time.month, time.day, time.hour, time.minute, time.second, 0};
}

}  // namespace

bool IsDate(const OrbTime& time) { return inspect::IsDate(StampOf(time)); }

std::int64_t SecondsSince1970(const OrbTime& date) { return inspect::SecondsSince1970(StampOf(date)); }

namespace {

// What the host cannot keep becomes the present time, not another one.
void Stamp(int descriptor, const OrbTime& time) {
  if (!IsDate(time)) return;
  const std::int64_t seconds = SecondsSince1970(time);
  constexpr std::int64_t kCoarsest = 2;  // seconds that file systems count in
  // Any file system knows the years from 1980 to 2037.
  const bool known = time.year >= 1980 && time.year < 2038;
  const bool kept = host::SetTime(descriptor, seconds) &&
                    (known || std::abs(host::StatusOf(descriptor).changed - seconds) < kCoarsest);
  if (!kept) host::SetTimeToNow(descriptor);
}

}  // namespace

void StampHostDirectory(const std::string& path, const OrbTime& time) {
  const Descriptor directory(host::OpenDirectory(path));
  if (directory.get() >= 0) Stamp(directory.get(), time);  // another user's directory keeps its own time
}

namespace {

constexpr const char* kTemporaryName = ".orba-XXXXXX";
constexpr const char* kLockedEnding = ".new";  // of a file that the one without it locks

bool IsTemporaryHostName(const std::string& name, const std::string& ending) {
  const std::string pattern = kTemporaryName;
  const std::size_t fixed = pattern.find('X');
  return name.size() == pattern.size() + ending.size() && name.compare(0, fixed, pattern, 0, fixed) == 0 &&
         name.compare(pattern.size(), ending.size(), ending) == 0;
}

// False where somebody may be at work on it.
bool RemoveLeft(const std::string& path, bool locked) {
  if (host::OwnStatusOf(path).kind != host::Kind::kFile) return false;
  if (!locked) return host::RemoveUnused(path);
  const std::string lock = path.substr(0, path.size() - std::strlen(kLockedEnding));
  return host::OwnStatusOf(lock).kind == host::Kind::kNothing && host::Remove(path);
}

}  // namespace

void SweepTemporaries(const std::string& directory) {
  std::vector<std::string> names;
  host::ListDirectory(directory, &names);
  std::sort(names.begin(), names.end());  // locks before what they lock
  for (const std::string& name : names) {
    const bool locked = IsTemporaryHostName(name, kLockedEnding);
    if (!locked && !IsTemporaryHostName(name, "")) continue;
    const std::string path = JoinPath(directory, name);
    if (RemoveLeft(path, locked)) Report("removed " + Visible(path) + ", which an interrupted run had left");
  }
}

TemporaryName::TemporaryName(const std::string& directory, const std::string& what)
    : lock_(JoinPath(directory, kTemporaryName)), descriptor_(host::CreateTemporary(&lock_)) {
  if (descriptor_ < 0) throw HostFailure(what, errno);
  path_ = lock_ + kLockedEnding;
}

TemporaryName::~TemporaryName() {
  if (!path_.empty()) host::Remove(path_);
  host::Close(descriptor_);
  host::Remove(lock_);
}

void SyncDisks(const std::set<std::string>& directories) {
  if (!host::CanSyncDisks()) return;  // each file was synced when it was published
  std::set<std::uint64_t> done;
  for (const std::string& directory : directories) {
    const host::Status status = host::StatusOf(directory);
    if (status.kind == host::Kind::kNothing || !done.insert(status.id.first).second) continue;
    if (!host::SyncDisk(directory)) throw HostFailure("cannot sync what was written to " + directory, errno);
  }
}

NewHostFile::NewHostFile(std::string path, bool isNew)
    : path_(std::move(path)),
      place_(isNew ? PossiblePath(path_) : PlaceToWrite(path_)),
      temporary_(place_.substr(0, LastName(place_).first) + kTemporaryName),
      descriptor_(host::CreateTemporary(&temporary_)) {
  if (descriptor_ >= 0) return;
  temporary_.clear();
  Fail();
}

NewHostFile::~NewHostFile() {
  if (descriptor_ >= 0) host::Close(descriptor_);
  if (!temporary_.empty()) host::Remove(temporary_);
}

void NewHostFile::Write(const void* buffer, std::size_t count) { WriteFully(descriptor_, path_, buffer, count); }

void NewHostFile::ReadBack(const std::function<void(const void* bytes, std::size_t count)>& take) const {
  std::vector<char> buffer(256 * 1024);
  std::uint64_t offset = 0;
  for (;;) {
    CheckInterrupt();
    const std::ptrdiff_t count = host::ReadAt(descriptor_, offset, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw HostFailure("cannot read back " + path_, errno);
    if (count == 0) return;
    take(buffer.data(), static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
}

void NewHostFile::Publish(const OrbTime& time, bool overwrite, bool sync) {
  Stamp(descriptor_, time);
  if ((sync || !host::CanSyncDisks()) && !host::Sync(descriptor_)) Fail();
  if (!host::Close(std::exchange(descriptor_, -1)) || !host::Rename(temporary_, place_, overwrite)) Fail();
  temporary_.clear();
  if (sync) SyncDirectory(ParentOf(place_));
}

void NewHostFile::Fail() const { throw HostFailure("cannot write " + path_, errno); }

}  // namespace orba::tool

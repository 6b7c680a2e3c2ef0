// Files of the host: opened for reading, written under a temporary name until they are whole, stamped with the times
// that a container holds. Stands on failure, interrupt and host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "orba.h"
#include "tools/orba/host/host.h"

namespace orba::tool {

// A descriptor, closed in any case.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.Take()) {}

  int get() const { return descriptor_; }
  int Take();

 private:
  int descriptor_;
};

// Opens an ordinary file for reading; "-" is standard input. Throws a Failure. Where another one has the file open that
// `share` rules out, the descriptor is below 0.
Descriptor OpenForReading(const std::string& path, host::Share share = host::Share::kAll);

// Opens an ordinary file for reading and writing. Where that fails the descriptor is below 0 and errno says why.
Descriptor OpenForWriting(const std::string& path, host::Share share = host::Share::kAll);

// Sees to it that names given or taken in the directory outlive a loss of power. Throws a Failure.
void SyncDirectory(const std::string& path);

// Bytes read, less than `count` at the end alone.
std::size_t ReadFully(int descriptor, const std::string& path, void* buffer, std::size_t count);

// The same of an ordinary file, for which nobody has to wait.
std::size_t ReadOrdinary(int descriptor, const std::string& path, void* buffer, std::size_t count);

// `what` is what it is about, as in "cannot write WHAT".
void WriteFully(int descriptor, const std::string& what, const void* buffer, std::size_t count);

// The names in a directory, sorted, "." and ".." left out.
std::vector<std::string> ListHostDirectory(const std::string& path);

std::string JoinPath(const std::string& directory, const std::string& name);

// What the path lies in: "a" of "a/b" and "a/b/", "." of "b", "/" of "/a".
std::string ParentOf(const std::string& path);

// The last name of a path: "b" of "a/b/". Empty for "/", "." and "..", also behind a path.
std::string BaseName(const std::string& path);

bool IsHostDirectory(const std::string& path);
bool HostFileExists(const std::string& path);  // a link that leads nowhere exists too

// "a pipe", "a device"
std::string KindText(host::Kind kind);

// Where a file written to `path` ends up: there, or where a symbolic link leads. Throws a Failure where something is
// there that is not an ordinary file: no file may take the place of a device.
std::string PlaceToWrite(const std::string& path);

bool IsSameHostFile(const std::string& a, const std::string& b);

void MakeHostDirectory(const std::string& path);    // one that is there is fine
void MakeHostDirectories(const std::string& path);  // with those that it lies in

bool EndsWithSeparator(const std::string& path);
std::string WithoutSeparators(const std::string& path);  // at its end

bool IsDate(const OrbTime& time);  // of the calendar
std::int64_t SecondsSince1970(const OrbTime& date);

// Stamps a directory with a time, as far as the host can keep it; another one is never set.
void StampHostDirectory(const std::string& path, const OrbTime& time);

// Removes what interrupted runs have left of files that were being written in a directory, and reports each. Those of
// runs that are still at work stay, and so does what cannot be listed or removed.
void SweepTemporaries(const std::string& directory);

// Has all that was written below these directories, each a place of its own, on the disk. Throws a Failure.
void SyncDisks(const std::set<std::string>& directories);

// A name for a file that others make and open as they need it, such as the library a container. While this lives, a
// file beside it that is open all the time keeps other runs from removing it as left. Then both go.
class TemporaryName {
 public:
  // Throws a Failure that begins with `what`.
  TemporaryName(const std::string& directory, const std::string& what);
  ~TemporaryName();
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;

  const std::string& path() const { return path_; }  // empty once released
  void Release() { path_.clear(); }                  // the file has its own name

 private:
  std::string lock_;
  int descriptor_;
  std::string path_;
};

// A file that is being written: beside its place, under a name of its own, and gone again unless it is published.
class NewHostFile {
 public:
  // `isNew` says that nothing is at the path, which else is looked at: PlaceToWrite.
  explicit NewHostFile(std::string path, bool isNew = false);
  ~NewHostFile();
  NewHostFile(const NewHostFile&) = delete;
  NewHostFile& operator=(const NewHostFile&) = delete;

  void Write(const void* buffer, std::size_t count);

  // Hands all that was written to `take`, as the host reads it.
  void ReadBack(const std::function<void(const void* bytes, std::size_t count)>& take) const;

  // Stamps the file, as far as the host can keep the time, and gives it its name. Without `overwrite` fails where the
  // name is taken by now. With `sync`, contents and name are on the disk then.
  void Publish(const OrbTime& time, bool overwrite, bool sync = false);

 private:
  [[noreturn]] void Fail() const;

  std::string path_;       // as messages have it
  std::string place_;      // where that is
  std::string temporary_;  // empty once published
  int descriptor_;
};

}  // namespace orba::tool

// The mounted containers of one run, and what commands do with places inside them, in the library's calls. A container
// is mounted when it is first needed and unmounted when the session ends. Stands on address, host_file and failure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/failure.h"
#include "tools/orba/host_file.h"

namespace orba::tool {

// A file or directory as its directory lists it.
struct Item {
  std::string name;  // of a root "."
  OrbU32 attributes = 0;
  OrbU32 size = 0;
  OrbTime time = {};

  bool IsDirectory() const { return (attributes & ORB_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsReadOnly() const { return (attributes & ORB_ATTRIBUTE_READ_ONLY) != 0; }
};

struct Match {
  Address address;
  Item item;
};

// Every member but the destructor throws a Failure that names the address where the library refuses.
class Session {
 public:
  // The library opens containers for writing. With kLook alone, one that the host lets us only read is read from a
  // copy.
  enum Purpose { kLook, kChange };

  explicit Session(Purpose purpose = kChange) : purpose_(purpose) {}
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Unmounts everything; throws when a container did not close cleanly.
  void Close();

  // The path by which the library knows the place, such as "V1:/LOGS". Mounts the container.
  std::string PathOf(const Address& address);

  OrbU32 BlockSize(const Address& address);
  OrbU32 NodeLimit(const Address& address);  // files and directories that the container can hold

  // What stands at the address; nothing where the name, or a directory on the way, is missing.
  std::optional<Item> Find(const Address& address);
  // The same, but what is missing is a failure: "cannot ACTION card.orb:/A.TXT".
  Item Get(const Address& address, const char* action);

  // What a directory holds, "." and ".." left out, sorted by name.
  std::vector<Item> List(const Address& directory);

  // The places that an address with wildcards, in any of its names, stands for, sorted. One without stands for itself.
  // Throws when there is none.
  std::vector<Match> Expand(const Address& pattern, const char* action);

  void CreateFile(const Address& address);
  void CreateDirectory(const Address& address);
  void Delete(const Address& address);
  void Rename(const Address& address, const std::string& newName);
  void SetAttributes(const Address& address, OrbU32 attributes);

 private:
  struct Volume {
    std::string name;
    std::string container;  // as it was written first
  };
  // Device and number of the host's file: the same container may be written in several ways.
  using FileId = std::pair<std::uint64_t, std::uint64_t>;

  const Volume& Mount(const Address& address);
  OrbU32 MountAs(const std::string& volume, const std::string& container);
  void ExpandBelow(const Address& directory, const Address& pattern, std::size_t depth, std::vector<Match>* matches);

  Purpose purpose_;
  std::vector<Descriptor> copies_;     // of what can only be read
  std::map<std::string, FileId> ids_;  // by container as written
  std::map<FileId, Volume> volumes_;
  unsigned mounted_ = 0;
};

// Lists directory after directory of one walk and notices when they contain each other: then there would be no end.
class Walker {
 public:
  // No sane container nests deeper: beyond 62 levels not even the library can tell a full path.
  static constexpr std::size_t kDeepest = 512;

  explicit Walker(Session* session) : session_(session) {}
  std::vector<Item> List(const Address& directory);

 private:
  Session* session_;
  OrbU32 listed_ = 0;
};

// An open file of a container. Throws as the session does.
class VolumeFile {
 public:
  // `mode` is ORB_OPEN_READ or ORB_OPEN_WRITE.
  VolumeFile(Session* session, const Address& address, OrbU32 mode);
  ~VolumeFile();
  VolumeFile(const VolumeFile&) = delete;
  VolumeFile& operator=(const VolumeFile&) = delete;

  // Bytes read, 0 at the end.
  OrbU32 Read(void* buffer, OrbU32 count);
  void Write(const void* buffer, OrbU32 count);
  void SetSize(OrbU32 size);
  void Close();

 private:
  Address address_;
  OrbHandle handle_;
};

// ~ORBA-1.TMP, ~ORBA-2.TMP and so on: names of files that are being written or replaced. Whoever stops meanwhile leaves
// one; what it holds is still where it came from, unfinished, or meant to be overwritten.
bool IsPassingName(const std::string& name);

// A passing name beside `target` that is free, for the file that is to take its place. Messages call it by the target's
// name. Where the path would be too long, the target itself.
Address TemporaryBeside(Session* session, const Address& target);

// A file that is read-only is in the way: "WHAT: WHICH is read-only (...)".
Failure ReadOnlyFailure(const std::string& what, const Address& address, const std::string& which);

// Puts the finished file `temporary` in the place of the file `target` of the same directory. A stop in between leaves
// the new contents under one of the two names.
void Replace(Session* session, const Address& temporary, const Address& target);

// The host's name of a container as the library takes it. Throws on a name that is no UTF-8.
std::u16string WideName(const std::string& container);

}  // namespace orba::tool

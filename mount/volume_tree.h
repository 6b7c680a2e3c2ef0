// A mounted volume as a tree that can be changed, through the exports of the library alone. Stands on tree and orba.h.
//
// The library knows files by path, opens each once and 128 at a time; callers here know them by number, and open them
// as often as they like. So each file or directory that was met has an object, which knows its name and its directory,
// and a file that is being read or written has one handle for all who opened it. Handles are opened when they are first
// needed; the one that was used longest ago gives way when there are too many.
//
// What POSIX asks beyond the library:
//   - A file that is open and loses its name, or is replaced by another, is renamed to ~ORBA-1.TMP, or the first such
//     name that is free. No caller sees that name; the file is deleted when it is closed for the last time. A stop
//     before leaves it under that name.
//   - Rename over a file puts that out of the way in the same manner first. So a stop in between leaves both files, and
//     a failure neither lost.
//   - A file that was cut and is deleted grows a little before, or blocks of its map would stay in use under no name.
//   - A file that is made read-only while it is open for writing gets the attribute when the last writer closes it.
//   - What was removed can be asked for until nobody knows its number any more.
//
// The library goes through a directory to find a name in it, which takes long where there are thousands. So a directory
// in which a name is looked up is read once, and what it tells of each name is kept until a call may have changed it.
// After a call that fails half-way in a directory, its names are looked up on the disk each time.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "mount/tree.h"
#include "orba.h"

namespace orba::mount {

// What the library does not tell of a container; each answers with an errno value.
struct VolumeHost {
  std::function<int(Space*)> measure;
  std::function<int()> sync;  // has all that was written to the container on the disk
};

class VolumeTree : public Tree {
 public:
  // `volume` is mounted, as long as the tree lives: "V1".
  VolumeTree(const std::string& volume, VolumeHost host);
  // Deletes what lost its name and is still open.
  ~VolumeTree() override;
  VolumeTree(const VolumeTree&) = delete;
  VolumeTree& operator=(const VolumeTree&) = delete;

  int Find(Inode directory, const std::string& name, Status* status) override;
  int Get(Inode inode, Status* status) override;
  int List(Inode directory, std::vector<Child>* children) override;
  void Forget(Inode inode) override { removed_.erase(inode); }
  int Measure(Space* space) override { return host_.measure(space); }

  int Open(Inode file, bool forWriting) override;
  void Close(Inode file, bool forWriting) override;
  int Read(Inode file, std::uint64_t position, void* bytes, std::size_t count, std::size_t* done) override;

  int Create(Inode directory, const std::string& name, bool asDirectory, Status* status) override;
  int Remove(Inode directory, const std::string& name) override;
  int Rename(Inode from, const std::string& name, Inode to, const std::string& newName, bool overwrite) override;
  int Write(Inode file, std::uint64_t position, const void* bytes, std::size_t count, std::size_t* done) override;
  int Resize(Inode file, std::uint64_t size) override;
  int SetAttributes(Inode file, std::uint32_t attributes) override;
  int Sync() override;

 private:
  struct Object {
    Inode inode = 0;
    Object* parent = nullptr;  // of the root nobody
    std::string name;          // in upper case
    bool directory = false;
    bool hidden = false;  // it has lost its name
    bool listed = false;  // of a directory: each of its names has an object
    bool unsure = false;  // of a directory: its objects may be other than its names
    bool known = false;   // the next three are right
    std::uint32_t attributes = 0;
    std::uint32_t size = 0;
    std::int64_t changed = 0;
    bool cut = false;           // it may have more block-map blocks than it needs
    bool sealed = false;        // to be read-only once nobody writes
    std::uint32_t readers = 0;  // how often it is open
    std::uint32_t writers = 0;
    OrbHandle handle = ORB_INVALID_HANDLE;
    bool handleWrites = false;
    std::unordered_map<std::string, Object*> children;  // those met so far, by name

    bool IsOpen() const { return readers + writers > 0; }
  };

  Object* ObjectOf(Inode inode) const;
  Object* Meet(Object* directory, const std::string& name, bool isDirectory);
  void Drop(Object* object);
  int Failed(Object* directory, const std::string& path);
  void Reattach(Object* object, Object* directory, const std::string& name);
  std::string PathOf(const Object* object) const;
  static std::string PathIn(const std::string& directory, const std::string& name) { return directory + "/" + name; }

  int Look(const std::string& path, OrbFindDataA* found) const;
  static void Note(Object* object, const OrbFindDataA& found);
  int GetObject(Object* object, Status* status) const;
  int ListObject(Object* directory, std::vector<Child>* children);

  int Take(Object* file, bool forWriting);
  int OpenHandle(Object* file, OrbU32 mode);
  int CloseHandle(Object* file);
  int Extend(Object* file, OrbU32 size);

  int FreeName(const Object* directory, std::string* name) const;
  int Hide(Object* object);
  int ClearHidden(Object* directory);
  int Delete(Object* object);
  int Move(Object* object, Object* directory, const std::string& name);
  int CheckReplacement(const Object* object, Object* target);

  std::string volume_;
  VolumeHost host_;
  OrbU32 blockSize_ = 0;
  std::uint32_t largest_ = ORB_MAX_FILE_SIZE;  // bytes that a file can have
  Inode next_ = kRootInode;
  std::unordered_map<Inode, std::unique_ptr<Object>> objects_;
  std::unordered_map<Inode, Status> removed_;
  Object* root_;
  std::list<Object*> held_;  // those with a handle, the one used last behind
};

}  // namespace orba::mount

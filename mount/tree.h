// What a mounted folder shows: directories and files, each with a number of its own for as long as it is mounted. One
// tree stands on the library and can be changed (volume_tree), another on the reader of the inspection side and cannot
// (container_tree); the file system (file_system) knows neither. Stands on the standard library alone.
//
// Calls answer with 0, or with an errno value and nothing changed unless their comment says otherwise. Nothing here is
// safe to be called by two threads at a time.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orba::mount {

// Never given to anything else, not even when what it stood for is gone.
using Inode = std::uint64_t;
constexpr Inode kRootInode = 1;

constexpr std::size_t kLongestName = 29;

constexpr std::uint32_t kReadOnlyAttribute = 1;  // these two as containers keep them
constexpr std::uint32_t kUserAttribute = 2;

struct Status {
  Inode inode = 0;
  bool directory = false;
  bool nameless = false;         // it has been removed, but is still in use
  std::uint32_t attributes = 0;  // of a file: the two above
  std::uint32_t size = 0;        // bytes
  std::int64_t changed = 0;      // seconds since 1970
};

struct Child {
  std::string name;
  bool directory = false;
  Inode inode = 0;
};

struct Space {
  std::uint64_t blockSize = 0;
  std::uint64_t blocks = 0;     // what the container has and can still get
  std::uint64_t free = 0;       // of these
  std::uint64_t nodes = 0;      // files and directories that it can hold
  std::uint64_t freeNodes = 0;  // that it can still take
};

struct Remark {
  std::string name;  // "node"
  std::string text;  // "17"
};

class Tree {
 public:
  virtual ~Tree() = default;

  // ---- Looking

  // What the name stands for in any letter case. ENOENT, also for a name that no directory can hold.
  virtual int Find(Inode directory, const std::string& name, Status* status) = 0;
  virtual int Get(Inode inode, Status* status) = 0;
  // Where it fails `children` are those that could be read.
  virtual int List(Inode directory, std::vector<Child>* children) = 0;
  // Nobody knows the number any more. Until then Get answers for what has been removed, too.
  virtual void Forget(Inode /*inode*/) {}
  // What is known of it beside its status.
  virtual int Remarks(Inode /*inode*/, std::vector<Remark>* /*remarks*/) { return 0; }
  virtual int Measure(Space* space) = 0;

  // ---- Files

  // May be opened any number of times. EACCES for writing to a read-only file.
  virtual int Open(Inode file, bool forWriting) = 0;
  virtual void Close(Inode file, bool forWriting) = 0;
  // Fewer bytes than `count` at the end of the file alone.
  virtual int Read(Inode file, std::uint64_t position, void* bytes, std::size_t count, std::size_t* done) = 0;

  // ---- Changing; EROFS unless the tree can be changed

  virtual int Create(Inode /*directory*/, const std::string& /*name*/, bool /*asDirectory*/, Status* /*status*/) {
    return EROFS;
  }
  // An open file loses its name, and goes when it is closed for the last time.
  virtual int Remove(Inode /*directory*/, const std::string& /*name*/) { return EROFS; }
  // Takes the place of a file, or of an empty directory, of the new name if `overwrite`; else EEXIST.
  virtual int Rename(Inode /*from*/, const std::string& /*name*/, Inode /*to*/, const std::string& /*newName*/,
                     bool /*overwrite*/) {
    return EROFS;
  }
  // A gap before `position` is filled with zeros. What fits is written; an error when nothing does.
  virtual int Write(Inode /*file*/, std::uint64_t /*position*/, const void* /*bytes*/, std::size_t /*count*/,
                    std::size_t* /*done*/) {
    return EROFS;
  }
  virtual int Resize(Inode /*file*/, std::uint64_t /*size*/) { return EROFS; }
  virtual int SetAttributes(Inode /*file*/, std::uint32_t /*attributes*/) { return EROFS; }

  // Has every change so far on the disk.
  virtual int Sync() { return 0; }
};

}  // namespace orba::mount

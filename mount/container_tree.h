// A container that is looked into without being mounted, as a tree that cannot be changed: also one that is marked or
// damaged. Whatever can be read of it is there; what cannot fails with EIO, and the log and a remark say why. Stands on
// tree and the reader of the inspection side.
//
// All directories are read at the beginning, each once: one to which names lead back or a second time is there, but
// cannot be listed under the later name (ELOOP). Contents of files are read when they are asked for. A name by which no
// path could lead to what it stands for is shown as one that can: "A\x2FB" for one with a slash in it, and "A~2" for
// the second of two that are equal.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "inspect/container/reader.h"
#include "mount/tree.h"

namespace orba::mount {

// What the container has and what is free of it; an errno value.
int MeasureContainer(const inspect::Image& image, Space* space);

class ContainerTree : public Tree {
 public:
  // The image must live as long as the tree, and not change meanwhile.
  explicit ContainerTree(const inspect::Image& image);
  ContainerTree(const ContainerTree&) = delete;
  ContainerTree& operator=(const ContainerTree&) = delete;

  // Something can be read. When not, no other call makes sense.
  bool readable() const { return reader_.readable(); }

  int Find(Inode directory, const std::string& name, Status* status) override;
  int Get(Inode inode, Status* status) override;
  int List(Inode directory, std::vector<Child>* children) override;
  int Remarks(Inode inode, std::vector<Remark>* remarks) override;
  int Measure(Space* space) override;

  int Open(Inode file, bool forWriting) override;
  void Close(Inode /*file*/, bool /*forWriting*/) override {}
  int Read(Inode file, std::uint64_t position, void* bytes, std::size_t count, std::size_t* done) override;

 private:
  struct Object {
    Inode parent = 0;  // of the root none
    std::string name;  // as shown
    inspect::Node node;
    inspect::Problem problem;                       // in the way of reading it, or all of it
    std::unordered_map<std::string, Inode> byName;  // in upper case
    std::vector<Inode> children;                    // in the order of the directory
  };

  inspect::Onward Take(const inspect::Step& step);
  void Add(Inode parent, const inspect::Listed& entry);
  std::string FreeName(Inode directory, const std::string& shown);
  std::string PathOf(const Object& object) const;
  Object* ObjectOf(Inode inode) { return inode == 0 || inode > objects_.size() ? nullptr : &objects_[inode - 1]; }

  inspect::Reader reader_;
  std::deque<Object> objects_;                                // the one with inode n in place n - 1
  std::unordered_map<std::uint16_t, Inode> directories_;      // by node number, those that are entered
  std::map<std::pair<Inode, std::string>, unsigned> equals_;  // while all is read: how often a name has come
};

}  // namespace orba::mount

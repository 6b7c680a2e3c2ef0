// A simple model of what a caller can see: volumes, directories, files, handles, searches, the current directory. It is
// written from the interface's promises. Of the container it knows how many blocks and node numbers each call takes and
// gives back, because a caller sees when they run out, but neither where they lie nor what is written in which order.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orba.h"

namespace model {

using Bytes = std::vector<std::uint8_t>;

struct Entry {
  std::string name;
  int node;
};

struct Node {
  bool directory = false;
  std::uint32_t attributes = 0;
  std::uint64_t stamp = 0;     // seconds since 1970, UTC
  Bytes data;                  // of a file
  std::vector<Entry> entries;  // of a directory, "." and ".." first
  int parent = 0;
  int volume = 0;
  int kept = 0;               // references that a copy or move left behind
  std::uint32_t number = 0;   // in its volume, from 0
  bool indirect = false;      // has the block that maps blocks 6 and on; cutting the file leaves it
  std::uint32_t seconds = 0;  // second-level map blocks; the first one comes with the block that lists them
};

struct Volume {
  bool formatted = false;
  std::uint32_t blockSize = 0;
  std::uint32_t bitmapBytes = 0;
  std::vector<bool> numbers;     // in use; files and directories, the root included
  std::vector<bool> nodeBlocks;  // there; one holds blockSize / 64 nodes
  std::uint64_t room = 0;        // blocks to be had before the volume is full
  std::uint64_t lost = 0;        // blocks that nothing names and no call gives back
  int root = 0;
  std::string name;  // while mounted
};

struct OpenFile {
  int node = 0;  // 0 = free
  std::uint32_t position = 0;
  std::uint32_t mode = 0;
};

struct Search {
  int node = 0;  // 0 = free
  bool detached = false;
  std::size_t index = 0;
  std::string pattern;
};

struct Result {
  std::uint32_t value = 0;  // what the call returns
  std::uint32_t code = 0;   // what OrbGetLastError says then
};

struct Found {
  std::uint32_t attributes = 0;
  std::uint64_t stamp = 0;
  std::uint32_t size = 0;
  std::string name;
};

// What the model can be told to predict wrongly, to see that the comparison notices.
enum class Wrong { kNothing, kCode, kSize, kOrder, kByte, kStamp, kAttributes, kHandle, kRoom, kInfo, kCount };

class Model {
 public:
  explicit Model(int containers) : volumes_(static_cast<std::size_t>(containers)) {}

  Wrong wrong = Wrong::kNothing;
  std::uint64_t now = 0;  // the clock during the next call, seconds since 1970, UTC

  // Containers have numbers from 0 on and are mounted by them. What is not formatted does not exist.
  Result Format(int container, std::uint32_t bitmapBytes, std::uint32_t blockSize, bool folderExists);
  // Lengthens an unmounted container by unused blocks until only `room` can still be had; returns by how many.
  std::uint64_t LeaveRoom(int container, std::uint64_t room);

  Result Mount(int container, const std::string& name);
  Result Unmount(const std::string& name);
  Result Create(const std::string& path, std::uint32_t attributes);
  Result Copy(const std::string& source, const std::string& target);
  Result Move(const std::string& source, const std::string& target);
  Result Rename(const std::string& path, const std::string& newName);
  Result Delete(const std::string& path);
  Result GetAttributes(const std::string& path);
  Result SetAttributes(const std::string& path, std::int32_t attributes);
  Result Open(const std::string& path, std::uint32_t mode);
  Result Seek(std::uint32_t handle, std::int32_t distance, std::uint32_t origin);
  Result Read(std::uint32_t handle, std::uint32_t count, Bytes* out);
  Result Write(std::uint32_t handle, const Bytes& bytes, std::uint32_t* done);
  Result SetSize(std::uint32_t handle, std::uint32_t size);
  Result GetSize(std::uint32_t handle);
  Result Flush(std::uint32_t handle);
  Result Close(std::uint32_t handle);
  Result SetCurrentDirectory(const std::string& path);
  Result FullPath(const std::string& path, std::string* out);
  Result FindFirst(const std::string& path, Found* found);
  Result FindNext(std::uint32_t handle, Found* found);
  Result FindClose(std::uint32_t handle);
  Result VolumeInfo(const std::string& name, std::uint32_t* bitmapBytes, std::uint32_t* blockSize);

  // For choosing calls that meet something: the paths of everything mounted, and what is open.
  std::vector<std::string> Paths(bool directories) const;
  const std::vector<OpenFile>& Files() const { return files_; }
  const std::vector<Search>& Searches() const { return searches_; }
  const std::vector<Volume>& Containers() const { return volumes_; }
  std::uint32_t SizeOf(const OpenFile& file) const { return static_cast<std::uint32_t>(At(file.node).data.size()); }
  const Volume& VolumeOf(int node) const { return volumes_[static_cast<std::size_t>(At(node).volume)]; }

  // For looking at what a call did. A node is 0 for none.
  int DirectoryOf(const std::string& path) const;  // where the last name of a path is, or would be
  int FileAt(const std::string& path) const;       // the file under a path
  int NodeOf(std::uint32_t handle) const;          // of an open file or search
  int ParentOf(int node) const { return At(node).parent; }
  int Current() const { return current_; }
  int RootOf(const std::string& volume) const;  // of a mounted volume
  std::uint32_t HandleOf(int node) const;       // of the open file, ORB_INVALID_HANDLE for none
  bool IsKept(int node) const { return At(node).kept > 0; }
  std::uint32_t FileSize(int node) const { return static_cast<std::uint32_t>(At(node).data.size()); }
  bool PathOf(int node, std::string* path) const;           // false for what no path leads to
  std::vector<int> Tree(int root, bool directories) const;  // all directories, or all files, at and below a directory

 private:
  struct Place {  // where a path leads: a directory and the last name in it
    int directory = 0;
    std::string name;
  };

  Node& At(int node) { return *nodes_.at(node); }
  const Node& At(int node) const { return *nodes_.at(node); }
  Volume& VolumeOf(int node) { return volumes_[static_cast<std::size_t>(At(node).volume)]; }
  int NewNode(int volume, bool directory, std::uint32_t attributes);
  std::uint32_t TakeNumber(int volume, std::uint32_t* number);
  void Discard(int node);
  std::uint32_t BlocksOf(int node) const;
  std::uint32_t Append(int node, std::uint32_t index);
  std::uint32_t AddEntry(int directory, const std::string& name, int node);
  std::uint32_t Fill(int copy, int source);
  int Lookup(int directory, const std::string& name) const;
  std::uint32_t Walk(const std::string& path, Place* place) const;
  std::uint32_t Descend(int* present, const std::string& name) const;
  std::uint32_t Resolve(const std::string& path, std::uint32_t missing, int* node) const;
  int MountedVolume(const std::string& name) const;
  int OtherHolders(int node) const;
  std::uint32_t InUse(int node) const;
  std::uint32_t NewName(int directory, const std::string& name) const;
  void Remove(int directory, const std::string& name);
  std::uint32_t RenameIn(int directory, const std::string& oldName, const std::string& newName);
  OpenFile* FileOf(std::uint32_t handle);
  Search* SearchOf(std::uint32_t handle);
  bool FindMatch(Search* search, Found* found);

  std::vector<Volume> volumes_;
  std::vector<int> mounted_;  // newest first
  std::map<int, std::unique_ptr<Node>> nodes_;
  int lastNode_ = 0;
  int current_ = 0;  // node, 0 = none
  std::vector<OpenFile> files_ = std::vector<OpenFile>(ORB_MAX_OPEN_FILES);
  std::vector<Search> searches_ = std::vector<Search>(ORB_MAX_SEARCHES);
  std::size_t fileCursor_ = 0;
  std::size_t searchCursor_ = 0;
};

}  // namespace model

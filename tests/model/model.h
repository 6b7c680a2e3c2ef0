// A simple model of what a caller can see: volumes, directories, files, handles, searches, the current directory. It knows
// nothing of blocks, records or reference counts on disk; it is written from the interface's promises alone.
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
  Bytes data;                  // of a file
  std::vector<Entry> entries;  // of a directory, "." and ".." first
  int parent = 0;
  int volume = 0;
  int kept = 0;                // references that a copy or move left behind
  bool cutWithBlocks = false;  // was cut while it had map blocks: deleting it may lose them
};

struct Volume {
  std::uint32_t blockSize = 0;
  std::uint32_t limit = 0;  // files and directories, the root included
  std::uint32_t used = 1;
  int root = 0;
  std::string name;    // while mounted
  bool leaks = false;  // a file was deleted that had been cut: a leak is expected
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
  std::uint32_t size = 0;
  std::string name;
};

class Model {
 public:
  // Adds a formatted container; its number counts from 0.
  void AddContainer(std::uint32_t blockSize, std::uint32_t bitmapBytes);

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

 private:
  struct Place {  // where a path leads: a directory and the last name in it
    int directory = 0;
    std::string name;
  };

  Node& At(int node) { return *nodes_.at(node); }
  const Node& At(int node) const { return *nodes_.at(node); }
  int NewNode(int volume, bool directory, std::uint32_t attributes);
  int Lookup(int directory, const std::string& name) const;
  std::uint32_t Walk(const std::string& path, Place* place) const;
  std::uint32_t Descend(int* present, const std::string& name) const;
  std::uint32_t Resolve(const std::string& path, std::uint32_t missing, int* node) const;
  int MountedVolume(const std::string& name) const;
  int OtherHolders(int node) const;
  std::uint32_t InUse(int node) const;
  std::uint32_t NewName(int directory, const std::string& name) const;
  std::uint32_t RoomForNode(int volume) const;
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

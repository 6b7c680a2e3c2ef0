// What files and directories take in a container, and whether a container has it. Stands on inspect/ and failure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "tools/orba/failure.h"

namespace orba::tool {

// Blocks that contents of `size` bytes take, block-map blocks included: six numbers fit into the node, each map block
// holds a quarter as many as it has bytes.
std::uint64_t BlocksTaken(std::uint64_t size, std::uint64_t blockSize);

// The largest file with blocks of this size, in bytes.
std::uint64_t LargestFile(std::uint64_t blockSize);

// What a container can still take.
struct Capacity {
  std::uint64_t freeBlocks = 0;
  std::uint64_t appendable = 0;      // blocks, up to the largest size of a container
  std::uint64_t appendableHere = 0;  // the same, as far as its disk has room
  std::uint64_t freeNodes = 0;
  std::uint64_t unusedSlots = 0;  // for nodes, in blocks that are there
  std::uint64_t nodesPerBlock = 1;
};

// Of the container in the host's file of this name; nothing where it cannot be made out, or the host lets nobody look
// into what the library has open.
std::optional<Capacity> CapacityOf(const std::string& container);

// Adds up what a plan takes in the order in which it is carried out. It never comes out above what is taken in the end,
// so that nothing is refused that would fit.
class Scales {
 public:
  explicit Scales(std::uint64_t blockSize) : blockSize_(blockSize) {}

  // A new file of `size` bytes; one of `replaced` bytes goes when it is complete.
  void AddFile(std::uint64_t size, std::optional<std::uint64_t> replaced);
  void AddDirectory();
  // A file of `size` bytes that goes before the rest is done.
  void AddLeft(std::uint64_t size);
  // An entry more in the directory at this path, which is `size` bytes long before the plan, 0 if it is planned.
  void AddEntry(const std::string& directory, std::uint64_t size);

  // Why the container cannot hold it; nothing where it can.
  std::optional<Failure> Refusal(const std::string& container, const Capacity& capacity) const;

 private:
  void Take(std::uint64_t blocks, std::uint64_t nodes);

  std::uint64_t blockSize_;
  std::map<std::string, std::uint64_t> directories_;  // sizes by path
  std::uint64_t blocks_ = 0;
  std::uint64_t freed_ = 0;
  std::uint64_t mostBlocks_ = 0;  // that are taken at any time
  std::uint64_t nodes_ = 0;
  std::uint64_t freedNodes_ = 0;
};

}  // namespace orba::tool

#include "tools/orba/weigh.h"

#include <algorithm>
#include <memory>

#include "inspect/check/finding.h"
#include "inspect/container/reader.h"
#include "orba.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_image.h"
#include "tools/orba/terminal.h"
#include "volume/layout.h"

namespace orba::tool {

namespace {

inspect::Geometry GeometryOf(std::uint64_t blockSize) {
  inspect::Geometry geometry;
  geometry.blockSize = static_cast<std::uint32_t>(blockSize);
  return geometry;
}

}  // namespace

std::uint64_t BlocksTaken(std::uint64_t size, std::uint64_t blockSize) {
  const inspect::Geometry geometry = GeometryOf(blockSize);
  const std::uint64_t slots = geometry.mapSlots();
  const std::uint64_t data = (size + blockSize - 1) / blockSize;
  if (data <= kDirectBlocks) return data;
  if (data <= geometry.firstDouble()) return data + 1;
  return data + 2 + (data - geometry.firstDouble() + slots - 1) / slots;
}

std::uint64_t LargestFile(std::uint64_t blockSize) {
  return std::min<std::uint64_t>(ORB_MAX_FILE_SIZE, GeometryOf(blockSize).mapCapacity() * blockSize);
}

std::optional<Capacity> CapacityOf(const std::string& container) {
  const std::unique_ptr<FileImage> image = FileImage::Open(container);
  if (image == nullptr) return std::nullopt;
  inspect::Reader reader(*image);
  if (!reader.readable()) return std::nullopt;
  const inspect::Geometry& geometry = reader.geometry();
  const std::uint64_t end = geometry.dataOffset + std::uint64_t{geometry.blocks} * geometry.blockSize;
  Capacity capacity;
  capacity.freeBlocks = reader.FreeBlocks();
  capacity.appendable = (kContainerLimit - 1 - std::min<std::uint64_t>(end, kContainerLimit - 1)) / geometry.blockSize;
  capacity.appendableHere = std::min(capacity.appendable, host::FreeSpace(container) / geometry.blockSize);
  capacity.freeNodes = reader.FreeNodes();
  capacity.nodesPerBlock = geometry.nodesPerBlock();
  const std::uint64_t used = geometry.nodeLimit() - std::min<std::uint64_t>(capacity.freeNodes, geometry.nodeLimit());
  const std::uint64_t slots = reader.NodeBlocks() * capacity.nodesPerBlock;
  capacity.unusedSlots = slots - std::min(slots, used);
  return capacity;
}

void Scales::Take(std::uint64_t blocks, std::uint64_t nodes) {
  blocks_ += blocks;
  nodes_ += nodes;
  mostBlocks_ = std::max(mostBlocks_, blocks_ - std::min(freed_, blocks_));
}

void Scales::AddFile(std::uint64_t size, std::optional<std::uint64_t> replaced) {
  Take(BlocksTaken(size, blockSize_), replaced.has_value() ? 0 : 1);
  if (replaced.has_value()) freed_ += BlocksTaken(*replaced, blockSize_);
}

void Scales::AddLeft(std::uint64_t size) {
  freed_ += BlocksTaken(size, blockSize_);
  ++freedNodes_;
}

void Scales::AddDirectory() { Take(1, 1); }

void Scales::AddEntry(const std::string& directory, std::uint64_t size) {
  const std::uint64_t before = directories_.emplace(directory, size == 0 ? 2 * kDirEntrySize : size).first->second;
  const std::uint64_t after = before + kDirEntrySize;
  directories_[directory] = after;
  Take(BlocksTaken(after, blockSize_) - BlocksTaken(before, blockSize_), 0);
}

std::optional<Failure> Scales::Refusal(const std::string& container, const Capacity& capacity) const {
  const std::uint64_t nodes = nodes_ - std::min(freedNodes_, nodes_);
  const std::string what = "cannot put all of it into " + ShellWord(container);
  if (nodes > capacity.freeNodes) {
    return Failure(what,
                   "these are " + inspect::Counted(nodes, "file or directory", "files and directories") +
                       ", and it has room for " + std::to_string(capacity.freeNodes) + " more (" +
                       CodeText(ORB_ERROR_NO_FREE_NODE) + ")",
                   "use a container for more: orba format --nodes N, at most 28672 with --block-size 8192",
                   ORB_ERROR_NO_FREE_NODE);
  }
  const std::uint64_t newSlots = nodes - std::min(nodes, capacity.unusedSlots);
  const std::uint64_t needed = mostBlocks_ + (newSlots + capacity.nodesPerBlock - 1) / capacity.nodesPerBlock;
  const std::uint64_t here = capacity.freeBlocks + capacity.appendableHere;
  const std::uint64_t anywhere = capacity.freeBlocks + capacity.appendable;
  if (needed <= here) return std::nullopt;
  const bool disk = needed <= anywhere;
  const auto text = [this](std::uint64_t blocks) {
    return HumanSize(blocks * blockSize_) + " (" + inspect::Counted(blocks, "block") + ")";
  };
  const OrbU32 code = disk ? ORB_ERROR_DISK_FULL : ORB_ERROR_VOLUME_FULL;
  return Failure(what,
                 "it takes " + text(needed) + ", and " + (disk ? "its disk" : "a container") + " has room for " +
                     text(disk ? here : anywhere) + " (" + CodeText(code) + ")",
                 disk ? "make room on the disk, or put less" : "put less, or spread it over several containers", code);
}

}  // namespace orba::tool

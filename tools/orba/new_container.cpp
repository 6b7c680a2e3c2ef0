#include "tools/orba/new_container.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "inspect/check/finding.h"
#include "orba.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/terminal.h"
#include "tools/orba/weigh.h"
#include "volume/layout.h"

namespace orba::tool {

namespace {

constexpr std::uint32_t kBlockSizes[] = {1024, 2048, 4096, 8192};

// What the node-block table has room for.
std::uint32_t MostNodes(std::uint32_t blockSize) { return kNodeTableEntries * (blockSize / kNodeSize); }

// Unless the user says otherwise a container can hold a quarter more than it does, so that a device can add to it.
std::uint64_t UsualSpare(std::uint64_t nodes) { return std::max<std::uint64_t>(nodes / 4, 64); }

}  // namespace

// ---- Shapes ---------------------------------------------------------------------------------------------------------

void ShapeOptions::Define(Syntax* syntax) {
  syntax->SizeOutOf("-b,--block-size", "BYTES", &blockSize, {1024, 2048, 4096, 8192}, "1024, 2048, 4096 or 8192 bytes");
  syntax->Number("-n,--nodes", "N", &nodes, Syntax::kAll,
                 "room for this many files and directories at least, the root included; rounded up to a multiple of 8");
  syntax->Number("--spare", "N", &spare, Syntax::kAll, "room for this many more than there are");
  syntax->Exclude("--nodes", "--spare");
}

Measure::Measure() {
  for (std::size_t i = 0; i < blocks_.size(); ++i) blocks_[i].size = kBlockSizes[i];
}

void Measure::AddFile(std::uint64_t size) {
  for (Blocks& blocks : blocks_) blocks.count += BlocksTaken(size, blocks.size);
  largest_ = std::max(largest_, size);
  bytes_ += size;
  ++nodes_;
}

void Measure::AddDirectory(std::uint64_t entries) {
  for (Blocks& blocks : blocks_) blocks.count += BlocksTaken((entries + 2) * kDirEntrySize, blocks.size);
  ++nodes_;
}

std::optional<Shape> Measure::With(const Blocks& blocks, const ShapeOptions& options) const {
  const std::uint64_t most = MostNodes(blocks.size);
  std::uint64_t nodes = std::min(nodes_ + UsualSpare(nodes_), most);
  if (options.nodes.has_value()) nodes = *options.nodes;
  if (options.spare.has_value()) nodes = nodes_ + *options.spare;
  if (nodes < nodes_ || nodes > most || largest_ > LargestFile(blocks.size)) return std::nullopt;
  Shape shape;
  shape.blockSize = blocks.size;
  shape.bitmapBytes = static_cast<std::uint32_t>((nodes + 7) / 8);
  shape.nodes = 8 * shape.bitmapBytes;
  const std::uint64_t perBlock = blocks.size / kNodeSize;
  shape.size = kBitmapOffset + shape.bitmapBytes + blocks.size * (blocks.count + (nodes_ + perBlock - 1) / perBlock);
  return shape.size < kContainerLimit ? std::optional<Shape>(shape) : std::nullopt;
}

Shape Measure::Choose(const ShapeOptions& options, const std::string& what) const {
  std::optional<Shape> best;
  for (const Blocks& blocks : blocks_) {
    if (options.blockSize.has_value() && *options.blockSize != blocks.size) continue;
    const std::optional<Shape> shape = With(blocks, options);
    if (shape.has_value() && (!best.has_value() || shape->size <= best->size)) best = shape;
  }
  if (!best.has_value()) Refuse(options, what);
  return *best;
}

void Measure::Refuse(const ShapeOptions& options, const std::string& what) const {
  const std::uint32_t blockSize = options.blockSize.value_or(8192);
  const std::uint64_t wanted = options.nodes.value_or(static_cast<std::uint32_t>(nodes_)) + options.spare.value_or(0);
  const std::string with = "with blocks of " + std::to_string(blockSize) + " bytes ";
  const std::uint64_t needed = std::max(wanted, nodes_);
  if (needed > MostNodes(blockSize)) {
    throw Failure(what,
                  with + "a container holds " + std::to_string(MostNodes(blockSize)) + " files and directories, and " +
                      "room is needed for " + std::to_string(needed) + " (" + CodeText(ORB_ERROR_NO_FREE_NODE) + ")",
                  blockSize < 8192 ? "use larger blocks" : "spread them over several containers, or pack some into one",
                  ORB_ERROR_NO_FREE_NODE);
  }
  if (nodes_ > wanted) {
    throw Failure(what, "these are " + std::to_string(nodes_) + " files and directories, the root included",
                  "give --nodes more, or leave it out", ORB_ERROR_NO_FREE_NODE);
  }
  if (largest_ > LargestFile(blockSize)) {
    throw Failure(what,
                  "a file has " + std::to_string(largest_) + " bytes, and " + with + "it can have " +
                      std::to_string(LargestFile(blockSize)),
                  blockSize < 8192 ? "use larger blocks" : "leave it out, or split it", ORB_ERROR_VOLUME_FULL);
  }
  throw Failure(what,
                "the files have " + inspect::Counted(bytes_, "byte") +
                    " in all, and a container is smaller than 2 GiB (" + CodeText(ORB_ERROR_VOLUME_FULL) + ")",
                "spread them over several containers", ORB_ERROR_VOLUME_FULL);
}

// ---- The container --------------------------------------------------------------------------------------------------

NewContainer::NewContainer(std::string place, const Shape& shape) : place_(std::move(place)) {
  const std::string what = "cannot make the container " + place_;
  const std::string problem = host::NameProblem(BaseName(place_));
  if (!problem.empty()) throw Failure(what, problem, "use another name");
  const std::uint64_t room = host::FreeSpace(ParentOf(place_));
  if (room < shape.size) {
    throw Failure(what,
                  "it takes " + HumanSize(shape.size) + ", and its disk has room for " + HumanSize(room) + " (" +
                      CodeText(ORB_ERROR_DISK_FULL) + ")",
                  "make room on the disk, or make it on another one", ORB_ERROR_DISK_FULL);
  }
  SweepTemporaries(ParentOf(place_));
  name_.emplace(ParentOf(place_), what);
  if (OrbCreateVolumeEx(WideName(file()).c_str(), shape.bitmapBytes, shape.blockSize) == 0) {
    throw LibraryFailure(what, place_);
  }
  session_.emplace().PlaceAt(place_, file());
}

void NewContainer::Publish() {
  if (!host::Rename(file(), place_, false)) throw HostFailure("cannot make the container " + place_, errno);
  name_->Release();
  SyncDirectory(ParentOf(place_));
}

void NewContainer::Replace(const std::string& kept) {
  if (!host::Replace(place_, file(), kept)) {
    throw HostFailure("cannot put the new container in the place of " + place_, errno,
                      errno == EEXIST ? kept + " is there; use another name" : "the old one is as it was");
  }
  name_->Release();
  SyncDirectory(ParentOf(place_));
}

}  // namespace orba::tool

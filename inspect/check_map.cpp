#include <algorithm>

#include "inspect/block_map.h"
#include "inspect/check_work.h"

namespace orba::inspect {

namespace {

using std::to_string;

// One walk over the block map of one node.
struct MapWalk {
  Work* work;
  const NodeInfo& node;
  std::uint64_t blocks;                    // that the size needs
  std::vector<DirectoryBlock> directory;   // blocks to take entries from
  std::uint64_t holes = 0, firstHole = 0;  // empty slots below the size
  std::uint64_t extras = 0, firstExtra = 0;
  std::uint32_t extraBlock = 0;
  std::uint64_t extraOffset = 0, holeOffset = 0;
  bool doubleEnded = false;  // a zero slot of the double-indirect block was met

  bool Visit(const MapSlot& slot);
  bool VisitMapBlock(const MapSlot& slot);
  void VisitData(const MapSlot& slot);
};

bool MapWalk::Visit(const MapSlot& slot) {
  if (slot.level != MapLevel::kData) return VisitMapBlock(slot);
  VisitData(slot);
  return false;
}

// True to go down into it: each map block is entered once, whoever names it, so that no walk runs without end.
bool MapWalk::VisitMapBlock(const MapSlot& slot) {
  const std::uint32_t number = node.number;
  const auto index = static_cast<std::uint32_t>(slot.index);
  if (slot.level == MapLevel::kSecond && slot.block != kNoBlock && doubleEnded) {
    work->Add(Kind::kMapHole, {number, slot.block, slot.offset},
              "the double-indirect block has a gap before this slot");
    doubleEnded = false;
  }
  if (slot.block == kNoBlock) {
    const bool first = slot.level == MapLevel::kSecond && !doubleEnded;
    if (slot.level == MapLevel::kSecond) doubleEnded = true;
    if (slot.index < blocks && (first || slot.level != MapLevel::kSecond)) {
      work->Add(Kind::kMapMissing, {number, 0, slot.offset},
                "no block-map block serves logical block " + to_string(index) + " and what follows; the size counts " +
                    to_string(blocks) + " blocks");
    }
    if (slot.level == MapLevel::kIndirect && slot.index >= blocks && node.record.doubleIndirect != kNoBlock) {
      work->Add(Kind::kMapMissing, {number, 0, slot.offset}, "there is a double-indirect block but no indirect block");
    }
    return false;
  }
  if (!work->geometry().Holds(slot.block)) {
    work->Add(Kind::kMapOutside, {number, slot.block, slot.offset},
              "the map names " + BlockText(slot.block) + " as block-map block, which the container does not hold");
    return false;
  }
  work->Claim(slot.block, {BlockUse::kMap, false, node.number, index}, slot.offset);
  if (work->entered[slot.block]) return false;
  work->entered[slot.block] = true;
  return true;
}

void MapWalk::VisitData(const MapSlot& slot) {
  const auto index = static_cast<std::uint32_t>(slot.index);
  if (slot.block == kNoBlock) {
    if (slot.index >= blocks) return;
    if (holes++ == 0) {
      firstHole = slot.index;
      holeOffset = slot.offset;
    }
    return;
  }
  if (slot.index >= blocks && extras++ == 0) {
    firstExtra = slot.index;
    extraBlock = slot.block;
    extraOffset = slot.offset;
  }
  if (!work->geometry().Holds(slot.block)) {
    work->Add(
        Kind::kMapOutside, {node.number, slot.block, slot.offset},
        "logical block " + to_string(index) + " is " + BlockText(slot.block) + ", which the container does not hold");
    return;
  }
  const BlockUse use = node.IsDirectory() ? BlockUse::kDirectory : BlockUse::kFile;
  work->Claim(slot.block, {use, false, node.number, index}, slot.offset);
  if (!node.IsDirectory() || slot.index >= blocks || work->parsed[slot.block]) return;
  work->parsed[slot.block] = true;
  directory.push_back({slot.index, slot.block});
}

// A shrink takes the last block out of an indirect block before it stores the smaller size; so does a directory when its
// last block falls empty.
bool IsHalfMadeShrink(const MapWalk& walk, std::uint32_t blockSize) {
  return walk.holes == 1 && walk.firstHole + 1 == walk.blocks && walk.firstHole >= kDirectBlocks &&
         (!walk.node.IsDirectory() || walk.node.record.size % blockSize == kDirEntrySize);
}

// Growth writes the new block's number into an indirect block before it stores the larger size. Direct slots are stored
// together with the size.
bool IsHalfMadeGrowth(const MapWalk& walk, std::uint32_t blockSize) {
  return walk.extras == 1 && walk.firstExtra == walk.blocks && walk.firstExtra >= kDirectBlocks &&
         walk.node.record.size % blockSize == 0;
}

void Judge(Work* work, const MapWalk& walk) {
  const std::uint32_t number = walk.node.number;
  const std::uint32_t blockSize = work->geometry().blockSize;
  if (walk.holes > 0 && IsHalfMadeShrink(walk, blockSize)) {
    work->Add(Kind::kShrinkHalfMade, {number, 0, walk.holeOffset},
              "logical block " + to_string(walk.firstHole) +
                  ", the last, is already out of the map: a shrink was stopped before it stored the size");
  } else if (walk.holes > 0) {
    work->Add(Kind::kMapHole, {number, 0, walk.holeOffset, static_cast<std::uint32_t>(walk.holes)},
              to_string(walk.holes) + " of " + to_string(walk.blocks) +
                  " blocks are missing, the first is logical block " + to_string(walk.firstHole) +
                  "; reading there fails");
  }
  if (walk.extras > 0 && IsHalfMadeGrowth(walk, blockSize)) {
    work->Add(Kind::kGrowthHalfMade, {number, walk.extraBlock, walk.extraOffset},
              "logical block " + to_string(walk.firstExtra) +
                  " lies past the size: growth was stopped before it stored the size");
  } else if (walk.extras > 0) {
    work->Add(Kind::kMapBeyondSize,
              {number, walk.extraBlock, walk.extraOffset, static_cast<std::uint32_t>(walk.extras)},
              to_string(walk.extras) + " blocks lie past the size, from logical block " + to_string(walk.firstExtra) +
                  " on; the size may be damaged");
  }
}

}  // namespace

void WalkNode(Work* work, NodeInfo* node) {
  const Geometry& geometry = work->geometry();
  std::uint64_t blocks = geometry.BlocksFor(node->record.size);
  if (node->record.size >= kContainerLimit || blocks > geometry.mapCapacity()) {
    work->Add(Kind::kNodeSize, {node->number, 0, node->offset + 16},
              "a size of " + to_string(node->record.size) + " bytes is more than a block map can hold");
    blocks = std::min(blocks, geometry.mapCapacity());
  }
  MapWalk walk = {work, *node, blocks, {}};
  VisitMap(work->image, geometry, node->record, node->offset, [&](const MapSlot& slot) { return walk.Visit(slot); });
  Judge(work, walk);
  if (node->IsDirectory()) ParseDirectory(work, node, walk.directory);
}

}  // namespace orba::inspect

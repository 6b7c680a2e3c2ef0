#include <algorithm>

#include "inspect/check/work.h"
#include "inspect/container/block_map.h"

namespace orba::inspect {

namespace {

using std::to_string;

// One walk over the block map of one node.
struct MapWalk {
  Work* work;
  const NodeInfo& node;
  MapSummary* map;
  std::vector<DirectoryBlock> directory;  // blocks to take entries from
  bool doubleEnded = false;               // an empty slot of the double-indirect block was met
  MapSlot outside = {};                   // the first of a run of slots that name blocks beyond the container's end
  std::uint32_t outsideCount = 0;

  bool Visit(const MapSlot& slot);
  bool VisitMapBlock(const MapSlot& slot);
  Contents ContentsOfMap(std::uint32_t block);
  void VisitData(const MapSlot& slot);
  void AddOutside(const MapSlot& slot);
  void EndOutside();
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
  const bool second = slot.level == MapLevel::kSecond;
  if (second && slot.block != kNoBlock && doubleEnded && !map->doubleGap) {
    work->Add(Kind::kMapHole, {number, slot.block, slot.offset},
              "the double-indirect block has a gap before this slot");
    map->doubleGap = true;
  }
  if (slot.block == kNoBlock) {
    const bool first = !second || !doubleEnded;
    doubleEnded |= second;
    if (slot.index < map->needed && first && !map->sizeImpossible) {
      work->Add(Kind::kMapMissing, {number, 0, slot.offset},
                "no block-map block serves logical block " + to_string(index) + " and what follows; the size counts " +
                    Counted(map->needed, "block"));
    }
    if (slot.level == MapLevel::kIndirect && slot.index >= map->needed && node.record.doubleIndirect != kNoBlock) {
      work->Add(Kind::kMapMissing, {number, 0, slot.offset}, "there is a double-indirect block but no indirect block");
    }
    return false;
  }
  if (!work->geometry().Holds(slot.block)) {
    work->NoteOutside(slot.block);
    work->Add(Kind::kMapOutside, {number, slot.block, slot.offset},
              "the map names " + BlockText(slot.block) + " as block-map block, which the container does not hold");
    return false;
  }
  const Contents contents = ContentsOfMap(slot.block);
  // Node records and directories find their owners without this slot.
  if (contents == Contents::kAny || contents == Contents::kNoNumbers) {
    work->Claim(slot.block, {BlockUse::kMap, false, node.number, index}, slot.offset);
  }
  if (contents == Contents::kAny) {
    const bool first = !work->entered[slot.block];
    work->entered[slot.block] = true;
    return first;
  }
  work->model().blocks[slot.block].noMap = true;
  if (work->CountOnly(Kind::kMapForeign)) return false;
  work->Add(Kind::kMapForeign, {number, slot.block, slot.offset},
            BlockText(slot.block) + " should serve logical block " + to_string(index) +
                " and what follows, but holds " +
                (contents == Contents::kNodes       ? "node records"
                 : contents == Contents::kDirectory ? "a directory"
                                                    : "no block numbers"));
  return false;
}

// Each block is looked at once.
Contents MapWalk::ContentsOfMap(std::uint32_t block) {
  if (work->entered[block]) return Contents::kAny;
  const auto known = work->noMaps.find(block);
  if (known != work->noMaps.end()) return known->second;
  const Contents contents = ContentsOf(work->image, work->geometry(), block);
  if (contents != Contents::kAny) work->noMaps.emplace(block, contents);
  return contents;
}

void MapWalk::VisitData(const MapSlot& slot) {
  const auto index = static_cast<std::uint32_t>(slot.index);
  const bool extra = slot.index >= map->needed;
  if (slot.block == kNoBlock) {
    if (extra || map->holes++ > 0) return;
    map->firstHole = slot.index;
    map->holeOffset = slot.offset;
    return;
  }
  if (extra && map->extras++ == 0) {
    map->firstExtra = slot.index;
    map->extraBlock = slot.block;
    map->extraOffset = slot.offset;
  }
  if (!work->geometry().Holds(slot.block)) {
    if (!extra) work->NoteOutside(slot.block);
    AddOutside(slot);
    return;
  }
  if (!extra) {
    ++map->present;
    map->end = slot.index + 1;
  }
  const BlockUse use = node.IsDirectory() ? BlockUse::kDirectory : BlockUse::kFile;
  work->Claim(slot.block, {use, false, node.number, index}, slot.offset);
  if (!node.IsDirectory() || extra || work->parsed[slot.block]) return;
  work->parsed[slot.block] = true;
  directory.push_back({slot.index, slot.block});
}

void MapWalk::AddOutside(const MapSlot& slot) {
  if (outsideCount > 0 && slot.index != outside.index + outsideCount) EndOutside();
  if (outsideCount++ == 0) outside = slot;
}

void MapWalk::EndOutside() {
  if (outsideCount == 0) return;
  const std::string first = to_string(outside.index);
  const std::string last = to_string(outside.index + outsideCount - 1);
  const std::string block = BlockText(outside.block);
  work->Add(Kind::kMapOutside, {node.number, outside.block, outside.offset, outsideCount},
            outsideCount == 1 ? "logical block " + first + " is " + block + ", which the container does not hold"
                              : "logical blocks " + first + " to " + last +
                                    " are blocks that the container does not hold, the first " + block);
  outsideCount = 0;
}

// A shrink takes the last block out of an indirect block before it stores the smaller size; so does a directory when its
// last block falls empty.
bool IsHalfMadeShrink(const NodeInfo& node, const MapSummary& map, std::uint32_t blockSize) {
  return map.holes == 1 && map.firstHole + 1 == map.needed && map.firstHole >= kDirectBlocks &&
         (!node.IsDirectory() || node.record.size % blockSize == kDirEntrySize);
}

// Growth writes the new block's number into an indirect block before it stores the larger size. Direct slots are stored
// together with the size.
bool IsHalfMadeGrowth(const NodeInfo& node, const MapSummary& map, std::uint32_t blockSize) {
  return map.extras == 1 && map.firstExtra == map.needed && map.firstExtra >= kDirectBlocks &&
         node.record.size % blockSize == 0;
}

void Judge(Work* work, const NodeInfo& node, MapSummary* map) {
  const std::uint32_t number = node.number;
  const std::uint32_t blockSize = work->geometry().blockSize;
  map->shrinkHalfMade = IsHalfMadeShrink(node, *map, blockSize);
  map->growthHalfMade = IsHalfMadeGrowth(node, *map, blockSize);
  if (map->shrinkHalfMade) {
    work->Add(Kind::kShrinkHalfMade, {number, 0, map->holeOffset},
              "logical block " + to_string(map->firstHole) +
                  ", the last, is already out of the map: a shrink was stopped before it stored the size");
  } else if (map->holes > 0 && !map->sizeImpossible) {
    work->Add(Kind::kMapHole, {number, 0, map->holeOffset, static_cast<std::uint32_t>(map->holes)},
              "no block for " + to_string(map->holes) + " of " + Counted(map->needed, "logical block") + ", from " +
                  to_string(map->firstHole) + " on; reading there fails");
  }
  if (map->growthHalfMade) {
    work->Add(Kind::kGrowthHalfMade, {number, map->extraBlock, map->extraOffset},
              "logical block " + to_string(map->firstExtra) +
                  " lies past the size: growth was stopped before it stored the size");
  } else if (map->extras > 0) {
    work->Add(Kind::kMapBeyondSize,
              {number, map->extraBlock, map->extraOffset, static_cast<std::uint32_t>(map->extras)},
              Counted(map->extras, "block") + " past the size, from logical block " + to_string(map->firstExtra) +
                  " on; the size may be damaged");
  }
}

}  // namespace

void WalkNode(Work* work, NodeInfo* node) {
  const Geometry& geometry = work->geometry();
  std::uint64_t blocks = geometry.BlocksFor(node->record.size);
  if (node->record.size >= kContainerLimit || blocks > geometry.mapCapacity()) {
    work->Add(Kind::kNodeSize, {node->number, 0, node->offset + offsetof(OrbNodeRecord, size)},
              "a size of " + to_string(node->record.size) + " bytes is more than a block map can hold");
    blocks = std::min(blocks, geometry.mapCapacity());
    node->map.sizeImpossible = true;
  }
  node->map.needed = blocks;
  MapWalk walk = {work, *node, &node->map, {}};
  VisitMap(work->image, geometry, node->record, node->offset, [&](const MapSlot& slot) { return walk.Visit(slot); });
  walk.EndOutside();
  Judge(work, *node, &node->map);
  if (node->IsDirectory()) ParseDirectory(work, node, walk.directory);
}

}  // namespace orba::inspect

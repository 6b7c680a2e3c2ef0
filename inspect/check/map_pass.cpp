#include <algorithm>

#include "inspect/check/work.h"
#include "inspect/container/block_map.h"

namespace orba::inspect {

namespace {

// One walk over the block map of one node.
struct MapWalk {
  Work* work;
  const NodeInfo& node;
  MapSummary* map;
  std::vector<DirectoryBlock> directory;  // blocks to take entries from
  bool doubleEnded = false;               // an empty slot of the double-indirect block was met
  MapSlot outside = {};                   // the first of a run of slots with blocks beyond the container's end
  std::uint32_t outsideCount = 0;

  bool Visit(const MapSlot& slot);
  bool VisitMapBlock(const MapSlot& slot);
  Contents ContentsOfMap(const MapSlot& slot);
  std::uint64_t SlotsNeeded(const MapSlot& slot) const;
  void VisitData(const MapSlot& slot);
  void AddOutside(const MapSlot& slot);
  void EndOutside();
};

bool MapWalk::Visit(const MapSlot& slot) {
  if (slot.level != MapLevel::kData) return VisitMapBlock(slot);
  VisitData(slot);
  return false;
}

// True to go down into it: each map block is entered once, whoever refers to it, so that every walk ends.
bool MapWalk::VisitMapBlock(const MapSlot& slot) {
  const std::uint32_t number = node.number;
  const auto index = static_cast<std::uint32_t>(slot.index);
  const bool second = slot.level == MapLevel::kSecond;
  if (second && slot.block != kNoBlock && doubleEnded && !map->doubleGap) {
    work->Add(Kind::kMapHole, {number, slot.block, slot.offset}, {{true}});
    map->doubleGap = true;
  }
  if (slot.block == kNoBlock) {
    const bool first = !second || !doubleEnded;
    doubleEnded |= second;
    if (slot.index < map->needed && first && !map->sizeImpossible) {
      work->Add(Kind::kMapBlockMissing, {number, 0, slot.offset}, {{false, index, map->needed}});
    }
    if (slot.level == MapLevel::kIndirect && slot.index >= map->needed && node.record.doubleIndirect != kNoBlock) {
      work->Add(Kind::kMapBlockMissing, {number, 0, slot.offset}, {{true}});
    }
    return false;
  }
  if (!work->geometry().Holds(slot.block)) {
    work->NoteOutside(slot.block);
    work->Add(Kind::kMapOutside, {number, slot.block, slot.offset}, {{true}});
    return false;
  }
  const Contents contents = ContentsOfMap(slot);
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
  work->Add(Kind::kMapBlockForeign, {number, slot.block, slot.offset}, {{static_cast<std::uint64_t>(contents), index}});
  return false;
}

// Where a file is read whole by the slots that it needs, what lies behind them may be no numbers. Each block is looked
// at once.
Contents MapWalk::ContentsOfMap(const MapSlot& slot) {
  const Geometry& geometry = work->geometry();
  if (work->entered[slot.block]) return Contents::kAny;
  auto known = work->noMaps.find(slot.block);
  if (known == work->noMaps.end()) {
    std::vector<std::uint8_t> bytes(geometry.blockSize);
    if (!work->Read(geometry.BlockOffset(slot.block), bytes.data(), bytes.size())) return Contents::kAny;
    NoMap found = {ContentsOf(geometry, bytes), 0};
    if (found.contents == Contents::kAny) return Contents::kAny;
    while (found.leading < geometry.mapSlots() && geometry.Holds(Get32(&bytes[kWordSize * found.leading]))) {
      ++found.leading;
    }
    known = work->noMaps.emplace(slot.block, found).first;
  }
  const std::uint64_t needed = SlotsNeeded(slot);
  const bool whole = needed > 0 && needed <= known->second.leading;
  return whole && known->second.contents == Contents::kNoNumbers ? Contents::kAny : known->second.contents;
}

// How many slots of the map block the node's size asks for, from its front on.
std::uint64_t MapWalk::SlotsNeeded(const MapSlot& slot) const {
  const std::uint32_t slots = work->geometry().mapSlots();
  const std::uint64_t rest = map->needed - std::min<std::uint64_t>(map->needed, slot.index);
  return std::min<std::uint64_t>(slots, slot.level == MapLevel::kDouble ? (rest + slots - 1) / slots : rest);
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
  work->Add(Kind::kMapOutside, {node.number, outside.block, outside.offset, outsideCount},
            {{false, outside.index, outside.index + outsideCount - 1}});
  outsideCount = 0;
}

// A shrink takes the last block out of an indirect block before it stores the smaller size; so does a directory when
// its last block becomes empty.
bool IsInterruptedShrink(const NodeInfo& node, const MapSummary& map, std::uint32_t blockSize) {
  return map.holes == 1 && map.firstHole + 1 == map.needed && map.firstHole >= kDirectBlocks &&
         (!node.IsDirectory() || node.record.size % blockSize == kDirEntrySize);
}

// Growth writes the new block's number into an indirect block before it stores the larger size. Direct slots are stored
// together with the size.
bool IsInterruptedGrowth(const NodeInfo& node, const MapSummary& map, std::uint32_t blockSize) {
  return map.extras == 1 && map.firstExtra == map.needed && map.firstExtra >= kDirectBlocks &&
         node.record.size % blockSize == 0;
}

void Judge(Work* work, const NodeInfo& node, MapSummary* map) {
  const std::uint32_t number = node.number;
  const std::uint32_t blockSize = work->geometry().blockSize;
  map->shrinkInterrupted = IsInterruptedShrink(node, *map, blockSize);
  map->growthInterrupted = IsInterruptedGrowth(node, *map, blockSize);
  if (map->shrinkInterrupted) {
    work->Add(Kind::kShrinkInterrupted, {number, 0, map->holeOffset}, {{map->firstHole}});
  } else if (map->holes > 0 && !map->sizeImpossible) {
    work->Add(Kind::kMapHole, {number, 0, map->holeOffset, static_cast<std::uint32_t>(map->holes)},
              {{false, map->needed, map->firstHole}});
  }
  if (map->growthInterrupted) {
    work->Add(Kind::kGrowthInterrupted, {number, map->extraBlock, map->extraOffset}, {{map->firstExtra}});
  } else if (map->extras > 0) {
    work->Add(Kind::kMapBeyondSize,
              {number, map->extraBlock, map->extraOffset, static_cast<std::uint32_t>(map->extras)},
              {{map->firstExtra}});
  }
}

}  // namespace

void WalkNode(Work* work, NodeInfo* node) {
  const Geometry& geometry = work->geometry();
  std::uint64_t blocks = geometry.BlocksFor(node->record.size);
  if (node->record.size >= kContainerLimit || blocks > geometry.mapCapacity()) {
    work->Add(Kind::kNodeSize, {node->number, 0, node->offset + offsetof(OrbNodeRecord, size)}, {{node->record.size}});
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

// Repair of block maps: every slot names a block of the container that is the node's alone, and there are as many as
// the size says.
//
// May assume: node records are where they belong and say what kind of node they are. Changes: slots, sizes, and new
// blocks for holes and second owners.
//
// One principle decides: a block that two slots lead to holds what both were read as, so both have it afterwards, the
// second as a copy. Nothing is taken out of a map that a reader reads.
#include <algorithm>

#include "inspect/container/block_map.h"
#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

// Visits every slot of every node in use, going down into each map block once.
void VisitAll(RepairWork* work, const std::function<bool(const NodeInfo&, const MapSlot&)>& visit) {
  std::vector<bool> entered(work->model().blocks.size());
  for (const NodeInfo& node : work->model().nodes) {
    if (node.state != NodeState::kUsed) continue;
    VisitMap(work->image, work->geometry(), node.record, node.offset, [&](const MapSlot& slot) {
      if (!visit(node, slot) || slot.level == MapLevel::kData || !work->CanEnter(slot.block)) return false;
      const bool first = !entered[slot.block];
      entered[slot.block] = true;
      return first;
    });
  }
}

// ---- Blocks with two owners -----------------------------------------------------------------------------------------

struct Owner {
  bool taken;
  bool map;  // as block-map block
  bool firstOfDirectory;
  std::uint16_t node;  // 0 = none: a node block
};

// Slots of one node that go for one reason are one action.
void ClearSlot(RepairWork* work, const NodeInfo& node, const MapSlot& slot, ActionKind why) {
  const bool more =
      !work->actions.empty() && work->actions.back().kind == why && work->actions.back().node == node.number;
  if (more) {
    ++work->actions.back().count;
  } else {
    work->Begin(why, node.number).block = slot.block;
  }
  work->PutWord(slot.offset, kNoBlock);
}

// Two directories have the same first block; the "." in it says whose it is. The other's own one is looked for.
void SplitDirectories(RepairWork* work, const NodeInfo& node, const MapSlot& slot, const Owner& owner) {
  const bool mine = Get16(work->GetBlock(slot.block).data()) == node.number;
  const NodeInfo& other = mine ? work->model().nodes[owner.node] : node;
  std::uint32_t block = work->FindDirectoryBlock(other.number);
  Action& action = work->Begin(block != kNoBlock ? ActionKind::kSplitReturn : ActionKind::kSplitNew, other.number);
  action.block = block;
  action.first = slot.block;
  if (block == kNoBlock) block = work->Take(NewDirectoryBlock(work->geometry(), other.number, kRootNode));
  work->PutWord(other.offset + offsetof(OrbNodeRecord, direct), block);
}

void CopyBlock(RepairWork* work, const NodeInfo& node, const MapSlot& slot) {
  work->Begin(ActionKind::kCopyBlock, node.number).block = slot.block;
  const std::uint32_t copy = work->TakeForCopy(work->GetBlock(slot.block));
  work->PutWord(slot.offset, copy);  // no block left: better none than a shared one
}

// Block numbers of the container up to the first zero, then zeros.
bool LooksLikeMap(const RepairWork& work, std::uint32_t block) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  bool ended = false;
  for (std::size_t at = 0; at < bytes.size(); at += 4) {
    const std::uint32_t slot = Get32(&bytes[at]);
    ended |= slot == kNoBlock;
    if (slot != kNoBlock && (ended || !work.geometry().Holds(slot))) return false;
  }
  return true;
}

// One walk over every slot. The first walk settles what block-map blocks share, and nothing else: until then a change
// to a slot could be a change to somebody's data.
struct Unsharing {
  RepairWork* work;
  bool mapsOnly;
  std::vector<Owner> owners;

  bool Visit(const NodeInfo& node, const MapSlot& slot);
  void Separate(const NodeInfo& node, const MapSlot& slot, const Owner& owner);
};

// True to go down into the block.
bool Unsharing::Visit(const NodeInfo& node, const MapSlot& slot) {
  const bool map = slot.level != MapLevel::kData;
  if (map ? !work->CanEnter(slot.block) : !work->geometry().Holds(slot.block)) return false;  // CutForeign's
  const bool shared = work->model().blocks[slot.block].shared;
  if (map && shared && !LooksLikeMap(*work, slot.block)) {
    ClearSlot(work, node, slot, ActionKind::kTakeForeignMap);
    return false;
  }
  Owner& owner = owners[slot.block];
  const bool involvesMap = map || owner.map;
  const bool strayExtra = !map && shared && slot.index >= node.map.needed &&
                          !(node.IsDirectory() && CountNamelessEntries(*work, slot.block) > 0);
  if (!owner.taken && !strayExtra) {
    owner = {true, map, !map && node.IsDirectory() && slot.index == 0, node.number};
    return true;
  }
  if (mapsOnly && !involvesMap) return false;
  if (strayExtra) {
    ClearSlot(work, node, slot, ActionKind::kTakeStray);
  } else {
    Separate(node, slot, owner);
  }
  return false;
}

void Unsharing::Separate(const NodeInfo& node, const MapSlot& slot, const Owner& owner) {
  const bool firstOfDirectory = node.IsDirectory() && slot.level == MapLevel::kData && slot.index == 0;
  const bool read = !node.IsDirectory() && !owner.map && slot.level == MapLevel::kData;
  if (owner.node == node.number && !read) {
    ClearSlot(work, node, slot, ActionKind::kTakeTwice);
  } else if (firstOfDirectory && owner.firstOfDirectory) {
    SplitDirectories(work, node, slot, owner);
  } else {
    CopyBlock(work, node, slot);
  }
}

// ---- Holes and sizes ------------------------------------------------------------------------------------------------

void SetSize(RepairWork* work, const NodeInfo& node, std::uint32_t size) {
  OrbNodeRecord record = work->GetNode(node.number);
  record.size = size;
  work->PutNode(node.number, record);
}

std::uint32_t SizeOf(const RepairWork& work, std::uint64_t blocks) {
  const std::uint64_t most = (kContainerLimit - 1) / work.geometry().blockSize;
  return static_cast<std::uint32_t>(std::min(blocks, most) * work.geometry().blockSize);
}

// Growth wrote the new block but not the size. A directory's new entry is counted when it gives its node a name; a
// file's new block is let go.
void FinishGrowth(RepairWork* work, const NodeInfo& node) {
  const MapSummary& map = node.map;
  if (node.IsDirectory()) {
    const std::vector<std::uint8_t> bytes = work->GetBlock(map.extraBlock);
    const OrbDirEntry entry = DecodeEntry(bytes.data());
    const bool names = work->model().IsNode(entry.node) && work->model().nodes[entry.node].state == NodeState::kUsed &&
                       work->model().nodes[entry.node].names.empty() && entry.node != kRootNode;
    if (names && IsLegalName(NameOf(entry)) && Get16(&bytes[kDirEntrySize]) == 0) {
      work->Begin(ActionKind::kCountGrown, node.number).name = NameOf(entry);
      SetSize(work, node, node.record.size + kDirEntrySize);
      return;
    }
  }
  work->Begin(ActionKind::kUndoGrowth, node.number).block = map.extraBlock;
  work->PutWord(map.extraOffset, kNoBlock);
}

// Blocks past the size: those that follow it without a gap make the node longer, the others go.
void FixExtras(RepairWork* work, const NodeInfo& node) {
  std::uint64_t end = node.map.needed;
  work->Begin(ActionKind::kFixSize, node.number);
  VisitMap(work->image, work->geometry(), node.record, node.offset, [&](const MapSlot& slot) {
    const bool extra = slot.level == MapLevel::kData && slot.index >= node.map.needed && slot.block != kNoBlock;
    if (extra && slot.index == end) {
      ++end;
    } else if (extra) {
      work->PutWord(slot.offset, kNoBlock);
    }
    return work->CanEnter(slot.block);
  });
  if (end > node.map.needed) SetSize(work, node, SizeOf(*work, end));
}

void MakeFirstBlock(RepairWork* work, const NodeInfo& node) {
  std::uint32_t block = work->FindDirectoryBlock(node.number);
  const bool found = block != kNoBlock;
  work->Begin(found ? ActionKind::kReturnFirst : ActionKind::kNewFirst, node.number);
  if (!found) block = work->Take(NewDirectoryBlock(work->geometry(), node.number, kRootNode));
  if (block == kNoBlock) return;
  OrbNodeRecord record = work->GetNode(node.number);
  record.direct[0] = block;
  if (node.number == kRootNode && !IsDate(record.time)) record.time = work->now;
  // What the block holds is taken in; FixDirectorySizes cuts the empty places off.
  if (node.map.end == 0) record.size = found ? work->geometry().blockSize : 2 * kDirEntrySize;
  work->PutNode(node.number, record);
}

// The logical blocks below the size that the map does not give.
std::vector<std::uint64_t> MissingBlocks(const RepairWork& work, const NodeInfo& node) {
  std::vector<bool> there(static_cast<std::size_t>(node.map.end));
  VisitMap(work.image, work.geometry(), node.record, node.offset, [&](const MapSlot& slot) {
    const bool data = slot.level == MapLevel::kData && slot.index < there.size();
    if (data && slot.block != kNoBlock) there[static_cast<std::size_t>(slot.index)] = true;
    return work.CanEnter(slot.block);
  });
  std::vector<std::uint64_t> missing;
  for (std::size_t i = 0; i < there.size(); ++i) {
    if (!there[i]) missing.push_back(i);
  }
  return missing;
}

bool Fill(RepairWork* work, const NodeInfo& node, const std::vector<std::uint64_t>& missing) {
  const std::vector<std::uint8_t> zeros(work->geometry().blockSize);
  work->Begin(ActionKind::kFillHoles, node.number).count = missing.size();
  for (const std::uint64_t index : missing) {
    OrbNodeRecord record = work->GetNode(node.number);
    const std::uint32_t block = work->TakeForCopy(zeros);
    if (block == kNoBlock || !SetMapSlot(work, &record, index, block)) return false;
    work->PutNode(node.number, record);
  }
  return true;
}

// Slots after a gap in the double-indirect block, and a double-indirect block without an indirect one, serve nothing.
void FixUnneeded(RepairWork* work, const NodeInfo& node) {
  const std::uint64_t needed = node.map.needed;
  if (node.record.doubleIndirect == kNoBlock) return;
  if (node.record.indirect == kNoBlock && needed <= kDirectBlocks) {
    OrbNodeRecord record = node.record;
    record.doubleIndirect = kNoBlock;
    work->Begin(ActionKind::kTakeDouble, node.number);
    work->PutNode(node.number, record);
  } else if (node.map.doubleGap) {
    bool ended = false;
    work->Begin(ActionKind::kTakeUnneeded, node.number);
    VisitMap(work->image, work->geometry(), node.record, node.offset, [&](const MapSlot& slot) {
      const bool second = slot.level == MapLevel::kSecond;
      ended |= second && slot.block == kNoBlock;
      if (ended && second && slot.block != kNoBlock) work->PutWord(slot.offset, kNoBlock);
      return slot.level == MapLevel::kDouble;
    });
  }
}

void FixMap(RepairWork* work, const NodeInfo& node) {
  const MapSummary& map = node.map;
  const bool tooLarge =
      work->geometry().BlocksFor(node.record.size) > map.needed || node.record.size >= kContainerLimit;
  if (map.growthInterrupted) return FinishGrowth(work, node);
  if (map.extras > 0) return FixExtras(work, node);
  const bool named = node.number == kRootNode || !node.names.empty() || !node.pending.empty();
  if (node.IsDirectory() && node.record.direct[0] == kNoBlock && (map.needed > 0 || named)) {
    return MakeFirstBlock(work, node);
  }
  if (map.end < map.needed || tooLarge) {
    work->Begin(map.shrinkInterrupted ? ActionKind::kCutShrunk : ActionKind::kCutMissing, node.number).count = map.end;
    return CutNode(work, node.number, map.end, SizeOf(*work, map.end));
  }
  if (map.present == map.needed) return FixUnneeded(work, node);
  const std::vector<std::uint64_t> missing = MissingBlocks(*work, node);
  // A file of holes is not worth the space that its zeros would take.
  if (missing.size() <= map.present + 256 && Fill(work, node, missing)) return;
  work->Begin(ActionKind::kCutHole, node.number);
  CutNode(work, node.number, missing.front(), SizeOf(*work, missing.front()));
}

}  // namespace

void FillTail(RepairWork* work) {
  const Geometry& geometry = work->geometry();
  const std::uint32_t tail = geometry.blocks + 1;
  const std::uint64_t size = work->image.Size();
  const std::uint64_t end = geometry.BlockOffset(tail + 1);
  if (!work->model().tailNamed || end >= kContainerLimit) return;
  // A file that goes no further ends where the container does.
  VisitAll(work, [&](const NodeInfo& node, const MapSlot& slot) {
    const bool data = slot.level == MapLevel::kData && slot.block == tail && !node.IsDirectory();
    const std::uint64_t left = slot.index * geometry.blockSize + (size - geometry.BlockOffset(tail));
    if (data && node.map.end <= slot.index && left < node.record.size) {
      work->Begin(ActionKind::kCutTail, node.number).count = left;
      SetSize(work, node, static_cast<std::uint32_t>(left));
    }
    return true;
  });
  work->Begin(ActionKind::kFillTail).block = tail;
  const std::vector<std::uint8_t> zeros(static_cast<std::size_t>(end - size));
  work->Put(size, zeros.data(), zeros.size());
}

// Slots of a block-map block that something else uses too wait until Unshare has settled whose it is.
void CutOutside(RepairWork* work) {
  const Geometry& geometry = work->geometry();
  if (work->report.Count(Kind::kMapOutside) == 0) return;
  VisitAll(work, [&](const NodeInfo& node, const MapSlot& slot) {
    const BlockInfo& holder = work->model().blocks[geometry.BlockAt(slot.offset)];
    const bool disputed = holder.use != BlockUse::kNodeBlock && holder.shared;
    const bool outside = slot.block != kNoBlock && !geometry.Holds(slot.block);
    if (outside && !disputed) ClearSlot(work, node, slot, ActionKind::kTakeOutside);
    return true;
  });
}

void CutForeign(RepairWork* work) {
  VisitAll(work, [&](const NodeInfo& node, const MapSlot& slot) {
    const std::vector<std::uint64_t>& foreign = node.directory.foreign;
    const bool data = slot.level == MapLevel::kData;
    if (slot.block != kNoBlock && !data && !work->CanEnter(slot.block)) {
      ClearSlot(work, node, slot, ActionKind::kTakeNoNumbers);
    } else if (data && std::binary_search(foreign.begin(), foreign.end(), slot.index)) {
      ClearSlot(work, node, slot, ActionKind::kTakeNoEntries);
    }
    return true;
  });
}

void Unshare(RepairWork* work) {
  if (work->report.Count(Kind::kBlockShared) + work->report.Count(Kind::kChainBlockInUse) == 0) return;
  for (const bool mapsOnly : {true, false}) {
    Unsharing walk = {work, mapsOnly, std::vector<Owner>(work->model().blocks.size())};
    for (const std::uint32_t block : work->model().table) {
      if (work->geometry().Holds(block)) walk.owners[block].taken = true;
    }
    VisitAll(work, [&](const NodeInfo& node, const MapSlot& slot) { return walk.Visit(node, slot); });
    if (work->changed) return;
  }
}

void FixMaps(RepairWork* work) {
  for (const NodeInfo& node : work->model().nodes) {
    if (node.state == NodeState::kUsed) FixMap(work, node);
  }
}

bool SetMapSlot(RepairWork* work, OrbNodeRecord* record, std::uint64_t index, std::uint32_t block) {
  const Geometry& geometry = work->geometry();
  const MapPath path = PathTo(geometry, index);
  const auto newMap = [&](std::uint32_t slot, std::uint32_t value) {
    std::vector<std::uint8_t> bytes(geometry.blockSize);
    Put32(&bytes[std::size_t{kWordSize} * slot], value);
    return work->Take(bytes);
  };
  if (path.from == MapLevel::kData) {
    record->direct[path.slot] = block;
    return true;
  }
  if (path.from == MapLevel::kIndirect) {
    if (record->indirect == kNoBlock) return (record->indirect = newMap(path.slot, block)) != kNoBlock;
    work->PutWord(geometry.SlotOffset(record->indirect, path.slot), block);
    return true;
  }
  std::uint32_t second = kNoBlock;
  if (record->doubleIndirect != kNoBlock) {
    second = Get32(&work->GetBlock(record->doubleIndirect)[std::size_t{kWordSize} * path.second]);
  }
  if (second != kNoBlock) {
    work->PutWord(geometry.SlotOffset(second, path.slot), block);
    return true;
  }
  second = newMap(path.slot, block);
  if (second == kNoBlock) return false;
  if (record->doubleIndirect == kNoBlock) {
    return (record->doubleIndirect = newMap(path.second, second)) != kNoBlock;
  }
  work->PutWord(geometry.SlotOffset(record->doubleIndirect, path.second), second);
  return true;
}

void CutNode(RepairWork* work, std::uint16_t number, std::uint64_t end, std::uint32_t size) {
  OrbNodeRecord record = work->GetNode(number);
  std::vector<std::uint64_t> slots;
  VisitMap(work->image, work->geometry(), record, work->model().nodes[number].offset, [&](const MapSlot& slot) {
    const bool behind = slot.level == MapLevel::kData && slot.index >= std::max<std::uint64_t>(end, kDirectBlocks);
    if (behind && slot.block != kNoBlock) slots.push_back(slot.offset);
    return work->CanEnter(slot.block);
  });
  for (auto slot = slots.rbegin(); slot != slots.rend(); ++slot) work->PutWord(*slot, kNoBlock);
  for (std::uint64_t i = end; i < kDirectBlocks; ++i) record.direct[i] = kNoBlock;
  record.size = size;
  work->PutNode(number, record);
}

}  // namespace orba::inspect

// Repair of what lies outside directories and block maps: header, node-block table, bitmap, node records, the root.
//
// May assume: nothing but the layout. Changes: header, table, bitmap and records; no block is taken but for a lost
// root.
//
// One principle decides: all evidence is counted, and what stands in its place stays there while any of it speaks for
// that. A block keeps its place in the table for a single slot in use.
#include <algorithm>
#include <map>

#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

// ---- Node-block table -----------------------------------------------------------------------------------------------

// A slot of the block is that of a node in use, as node block `index`. The block stays in its place for it, whatever
// became of the other slots.
bool HoldsUsedNode(const RepairWork& work, std::uint32_t block, std::uint32_t index) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  const std::uint32_t first = work.geometry().firstNode(index);
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock() && work.model().IsNode(first + i); ++i) {
    const std::uint8_t* slot = &bytes[i * kNodeSize];
    if (IsSlotOf(slot, first + i) && work.model().nodes[first + i].state != NodeState::kFree) return true;
  }
  return false;
}

bool HasSignature(const RepairWork& work, std::uint32_t block) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock(); ++i) {
    if (HasNodeSignature(&bytes[i * kNodeSize])) return true;
  }
  return false;
}

bool IsNeeded(const RepairWork& work, std::uint32_t index) {
  const std::uint32_t first = work.geometry().firstNode(index);
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock() && work.model().IsNode(first + i); ++i) {
    if (work.model().nodes[first + i].state != NodeState::kFree) return true;
  }
  return false;
}

// What the nodes in use are worth that the block would bring back as node block `index`. In a lost block, and in one to
// which the wrong table entry refers, a node is in use when the bitmap, a name or the data that it holds says so.
std::uint32_t Worth(const RepairWork& work, std::uint32_t block, std::uint32_t index, const std::vector<bool>& named) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  const std::uint32_t first = work.geometry().firstNode(index);
  const bool misplaced = work.model().blocks[block].use == BlockUse::kNodeBlock;
  const bool lost = work.IsLost(block) || misplaced;
  std::uint32_t worth = 0;
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock() && work.model().IsNode(first + i); ++i) {
    const OrbNodeRecord record = DecodeNode(&bytes[i * kNodeSize]);
    if (record.signature == kNodeSignature && record.number != first + i) continue;  // another's
    const bool used = work.model().nodes[first + i].state != NodeState::kFree ||
                      (lost && (named[first + i] || HoldsData(work, first + i, record)));
    if (!used || !IsPlausible(work.geometry(), first + i, record)) continue;
    worth += HoldsData(work, first + i, record) ? 3 : 2;  // of two copies the sounder one
  }
  return worth;
}

// The indices that slots of the block speak for, by the number of those slots.
std::map<std::uint32_t, std::uint32_t> CountVotes(const RepairWork& work, std::uint32_t block) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  const std::uint32_t perBlock = work.geometry().nodesPerBlock();
  std::map<std::uint32_t, std::uint32_t> votes;
  for (std::uint32_t i = 0; i < perBlock; ++i) {
    const std::uint8_t* slot = &bytes[i * kNodeSize];
    const std::uint32_t number = NodeNumber(slot);
    const std::uint32_t first = number - i;
    if (!HasNodeSignature(slot) || first % perBlock != 1) continue;
    if (first / perBlock < kNodeTableEntries) ++votes[first / perBlock];  // also where `first` is below 0
  }
  return votes;
}

// Blocks that may have been node blocks before the table lost them, by their index: those that nothing names or that
// stand in the wrong place of the table, and block 1, which formatting makes the first node block.
struct Candidates {
  std::multimap<std::uint32_t, std::uint32_t> blocks;
  std::vector<bool> named;
};

Candidates FindCandidates(const RepairWork& work) {
  Candidates candidates = {{}, FindNamed(work)};
  for (std::uint32_t block = 1; block < work.model().blocks.size(); ++block) {
    if (!work.IsLoose(block) && work.model().blocks[block].use != BlockUse::kNodeBlock && block != 1) continue;
    for (const auto& [index, slots] : CountVotes(work, block)) candidates.blocks.emplace(index, block);
  }
  return candidates;
}

// Which block each of the indices gets, none of them twice. What brings most nodes in use back comes first.
using Picks = std::map<std::uint32_t, std::uint32_t>;

Picks PickNodeBlocks(const RepairWork& work, const std::vector<std::uint32_t>& indices, std::set<std::uint32_t> taken) {
  struct Claim {
    std::uint32_t worth, index, block;
  };
  const Candidates candidates = FindCandidates(work);
  std::vector<Claim> claims;
  for (const std::uint32_t index : indices) {
    const auto range = candidates.blocks.equal_range(index);
    for (auto at = range.first; at != range.second; ++at) {
      const std::uint32_t worth = Worth(work, at->second, index, candidates.named);
      if (worth > 0) claims.push_back({worth, index, at->second});
    }
  }
  std::stable_sort(claims.begin(), claims.end(), [](const Claim& a, const Claim& b) { return a.worth > b.worth; });
  Picks picks;
  for (const Claim& claim : claims) {
    if (picks.count(claim.index) == 0 && taken.insert(claim.block).second) picks[claim.index] = claim.block;
  }
  return picks;
}

bool IsRightEntry(const RepairWork& work, std::uint32_t index) {
  const std::uint32_t block = work.model().table[index];
  if (!work.geometry().Holds(block) || index >= work.geometry().tableEntries()) return false;
  std::map<std::uint32_t, std::uint32_t> votes = CountVotes(work, block);
  const std::uint32_t own = votes[index];
  for (std::uint32_t other = 0; other < kNodeTableEntries; ++other) {  // of several entries for a block one is right
    if (other == index || work.model().table[other] != block) continue;
    if (votes[other] > own || (votes[other] == own && other < index)) return false;
  }
  if (HoldsUsedNode(work, block, index)) return true;
  for (const auto& [other, slots] : votes) {
    if (slots > own) return false;
  }
  const BlockInfo& owner = work.model().blocks[block];
  return own > 0 ||
         (owner.use == BlockUse::kNodeBlock && owner.index == index && !owner.shared && HasSignature(work, block));
}

// Entries in a row are one action.
void ClearEntries(RepairWork* work, const std::vector<std::uint32_t>& entries) {
  for (std::size_t first = 0; first < entries.size();) {
    std::size_t end = first + 1;
    while (end < entries.size() && entries[end] == entries[end - 1] + 1) ++end;
    Action& action = work->Begin(ActionKind::kClearTable);
    action.count = end - first;
    action.first = entries[first];
    action.last = entries[end - 1];
    for (; first < end; ++first) work->PutWord(TableEntryOffset(entries[first]), kNoBlock);
  }
}

// ---- Node records ---------------------------------------------------------------------------------------------------

std::uint16_t RightAttributes(const NodeInfo& node) {
  if (node.number == kRootNode) return kRootAttributes;
  return node.IsDirectory() ? std::uint16_t{ORB_NODE_DIRECTORY}
                            : static_cast<std::uint16_t>(node.record.attributes & (kNodeReadOnly | kNodeUserFlag));
}

}  // namespace

void FixHeader(RepairWork* work) {
  const Report& report = work->report;
  if (report.Count(Kind::kHeaderSignature) + report.Count(Kind::kHeaderVersion) + report.Count(Kind::kHeaderField) +
          report.Count(Kind::kHeaderReserved) ==
      0) {
    return;
  }
  Action& action = work->Begin(ActionKind::kWriteHeader);
  action.first = work->geometry().blockSize;
  action.last = work->geometry().bitmapSize;
  VolumeHeader header = SoundHeader(work->geometry(), work->model().header);
  std::uint8_t bytes[kHeaderSize] = {};
  work->image.Read(0, bytes, sizeof bytes);
  header.stateFlags = Get32(bytes + kStateFlagsOffset) & (kVolumeDirty | kRepairMark);  // as marked by now
  EncodeHeader(header, bytes);
  work->Put(0, bytes, sizeof bytes);
}

void FixTable(RepairWork* work) {
  const Model& model = work->model();
  const bool anyLost = work->report.totals.leakedBlocks > 0;
  std::vector<std::uint32_t> wrong;
  std::vector<std::uint32_t> wanted;
  std::set<std::uint32_t> right;  // blocks
  for (std::uint32_t index = 0; index < kNodeTableEntries; ++index) {
    if (IsRightEntry(*work, index)) {
      right.insert(model.table[index]);
      continue;
    }
    const bool needed = index < work->geometry().tableEntries() && (anyLost || IsNeeded(*work, index));
    if (needed) wanted.push_back(index);
    if (needed || model.table[index] != kNoBlock) wrong.push_back(index);
  }
  const Picks picks = wanted.empty() ? Picks() : PickNodeBlocks(*work, wanted, right);
  std::vector<std::uint32_t> cleared;
  for (const std::uint32_t index : wrong) {
    const auto pick = picks.find(index);
    const std::uint32_t found = pick == picks.end() ? kNoBlock : pick->second;
    if (found == model.table[index]) continue;
    if (found == kNoBlock) {
      cleared.push_back(index);
      continue;
    }
    Action& action = work->Begin(ActionKind::kPointTable);
    action.first = index;
    action.block = found;
    work->PutWord(TableEntryOffset(index), found);
  }
  ClearEntries(work, cleared);
}

std::vector<bool> FindNamed(const RepairWork& work) {
  std::vector<bool> named(work.model().nodes.size());
  for (const NodeInfo& directory : work.model().nodes) {
    for (const Entry& entry : directory.entries) {
      if (NamesNode(work, entry)) named[entry.record.node] = true;
    }
  }
  return named;
}

bool IsCopyOfAnother(const Model& model, const NodeInfo& node) {
  const std::uint16_t other = node.record.number;
  if (node.record.signature != kNodeSignature || other == node.number || !model.IsNode(other)) return false;
  const OrbNodeRecord& record = model.nodes[other].record;
  return record.signature == kNodeSignature && record.number == other && record.direct[0] != kNoBlock &&
         std::equal(record.direct, record.direct + kDirectBlocks, node.record.direct) &&
         record.indirect == node.record.indirect && record.doubleIndirect == node.record.doubleIndirect;
}

void FixSlots(RepairWork* work) {
  for (const NodeInfo& node : work->model().nodes) {
    if (node.number == 0 || node.offset == 0) continue;
    if (node.record.signature == kNodeSignature && node.record.number == node.number) continue;
    std::uint8_t bytes[kNodeSize];
    EncodeNode(EmptyNode(node.number), bytes);
    if (node.readable && !IsCopyOfAnother(work->model(), node)) {
      work->Begin(ActionKind::kSignSlot, node.number);
      work->Put(node.offset, bytes, kNodeMarkSize);
    } else if (node.number != kRootNode) {
      work->Begin(node.state == NodeState::kFree ? ActionKind::kClearFreeSlot : ActionKind::kClearLostSlot,
                  node.number);
      if (node.state != NodeState::kFree) work->SetFree(node.number, true);
      work->Put(node.offset, bytes, sizeof bytes);
    } else if (node.state == NodeState::kUsed) {
      // The root, by a copy of another's record: its blocks are that one's, its own are found by what they hold.
      OrbNodeRecord record = EmptyNode(kRootNode);
      record.attributes = kRootAttributes;
      record.time = work->now;
      work->Begin(ActionKind::kSignSlot, kRootNode);
      work->PutNode(kRootNode, record);
    }
  }
}

void FixBitmap(RepairWork* work) {
  const Model& model = work->model();
  const std::uint32_t bits = model.bits();
  if (bits > 0 && model.IsFreeBit(kRootNode)) {
    work->Begin(ActionKind::kUseRoot);
    work->SetFree(kRootNode, false);
  }
  const auto placeless = [&](std::uint32_t number) {
    return number <= bits && !model.IsFreeBit(number) && (!model.IsNode(number) || model.nodes[number].offset == 0);
  };
  for (std::uint32_t first = kRootNode + 1; first <= bits; ++first) {
    std::uint32_t end = first;
    while (placeless(end)) ++end;
    if (end == first) continue;
    Action& action = work->Begin(ActionKind::kFreeNumbers);
    action.count = end - first;
    action.first = first;
    action.last = end - 1;
    for (; first < end; ++first) work->SetFree(first, true);
  }
}

void FixRecords(RepairWork* work) {
  for (const NodeInfo& node : work->model().nodes) {
    if (node.state != NodeState::kUsed) continue;
    OrbNodeRecord record = node.record;
    record.attributes = RightAttributes(node);
    // What gave the root its record back may not have known its time.
    if (record.attributes != node.record.attributes && node.number == kRootNode && !IsDate(record.time)) {
      record.time = work->now;
    }
    record.time.reserved = 0;
    std::fill(std::begin(record.reserved), std::end(record.reserved), 0u);
    std::uint8_t was[kNodeSize], is[kNodeSize];
    EncodeNode(node.record, was);
    EncodeNode(record, is);
    if (std::equal(std::begin(was), std::end(was), std::begin(is))) continue;
    work->Begin(ActionKind::kFixRecord, node.number).first = record.attributes;
    work->PutNode(node.number, record);
  }
}

void FixRoot(RepairWork* work) {
  const NodeInfo& root = work->model().nodes[kRootNode];
  if (root.state == NodeState::kUsed) return;
  std::uint32_t block = work->FindDirectoryBlock(kRootNode);
  OrbNodeRecord record = EmptyNode(kRootNode);
  record.attributes = kRootAttributes;
  record.time = work->now;
  record.size = block != kNoBlock ? work->geometry().blockSize : 2 * kDirEntrySize;
  work->Begin(block != kNoBlock ? ActionKind::kMakeRootRecord : ActionKind::kMakeRoot).block = block;
  if (block == kNoBlock) block = work->Take(NewDirectoryBlock(work->geometry(), kRootNode, kRootNode));
  if (block == kNoBlock) return;
  record.direct[0] = block;
  if (root.offset != 0) {
    work->PutNode(kRootNode, record);
    return;
  }
  std::vector<std::uint8_t> bytes(work->geometry().blockSize);
  for (std::uint32_t i = 0; i < work->geometry().nodesPerBlock(); ++i) {
    EncodeNode(EmptyNode(static_cast<std::uint16_t>(i + 1)), &bytes[i * kNodeSize]);
  }
  EncodeNode(record, bytes.data());
  const std::uint32_t nodeBlock = work->Take(bytes);
  if (nodeBlock != kNoBlock) work->PutWord(TableEntryOffset(0), nodeBlock);
}

std::vector<std::uint8_t> NewDirectoryBlock(const Geometry& geometry, std::uint16_t number, std::uint16_t parent) {
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  OrbDirEntry entry = {};
  entry.node = number;
  SetName(&entry, ".");
  EncodeEntry(entry, &bytes[0]);
  entry.node = parent;
  SetName(&entry, "..");
  EncodeEntry(entry, &bytes[kDirEntrySize]);
  return bytes;
}

}  // namespace orba::inspect

// Repair of what lies outside directories and block maps: header, node-block table, bitmap, node records, the root.
#include <algorithm>
#include <map>

#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

using std::to_string;

std::uint32_t FirstNode(const Geometry& geometry, std::uint32_t index) { return index * geometry.nodesPerBlock() + 1; }

// ---- Node-block table -----------------------------------------------------------------------------------------------

// Slots of the block that carry the signature and the number they would have as node block `index`.
std::uint32_t GoodSlots(const RepairWork& work, std::uint32_t block, std::uint32_t index) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  std::uint32_t good = 0;
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock(); ++i) {
    const std::uint8_t* slot = &bytes[i * kNodeSize];
    if (Get32(slot) == kNodeSignature && Get16(slot + 4) == FirstNode(work.geometry(), index) + i) ++good;
  }
  return good;
}

bool HasSignature(const RepairWork& work, std::uint32_t block) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock(); ++i) {
    if (Get32(&bytes[i * kNodeSize]) == kNodeSignature) return true;
  }
  return false;
}

bool IsNeeded(const RepairWork& work, std::uint32_t index) {
  const std::uint32_t first = FirstNode(work.geometry(), index);
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock() && work.model().IsNode(first + i); ++i) {
    if (work.model().nodes[first + i].state != NodeState::kFree) return true;
  }
  return false;
}

// By number: a directory has an entry that names the node.
std::vector<bool> FindNamed(const RepairWork& work) {
  std::vector<bool> named(work.model().nodes.size());
  for (const NodeInfo& directory : work.model().nodes) {
    for (const Entry& entry : directory.entries) {
      if (NamesNode(work, entry)) named[entry.record.node] = true;
    }
  }
  return named;
}

// How many nodes in use the block would bring back as node block `index`. In a lost block a node is in use when the bitmap,
// a name or the data that it holds says so.
std::uint32_t Worth(const RepairWork& work, std::uint32_t block, std::uint32_t index, const std::vector<bool>& named) {
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  const std::uint32_t first = FirstNode(work.geometry(), index);
  const bool lost = work.IsLost(block);
  std::uint32_t worth = 0;
  for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock() && work.model().IsNode(first + i); ++i) {
    const OrbNodeRecord record = DecodeNode(&bytes[i * kNodeSize]);
    const bool used = work.model().nodes[first + i].state != NodeState::kFree ||
                      (lost && (named[first + i] || HoldsData(work, first + i, record)));
    if (used && IsPlausible(work.geometry(), first + i, record)) ++worth;
  }
  return worth;
}

// The index that the block's slots speak for, or none when too few of them agree. The rest may have been overwritten.
constexpr std::uint32_t kNoIndex = kNodeTableEntries;
constexpr std::uint32_t kEnoughSlots = 8;  // half of the smallest block's

std::uint32_t IndexOf(const RepairWork& work, std::uint32_t block) {
  const Geometry& geometry = work.geometry();
  const std::uint32_t perBlock = geometry.nodesPerBlock();
  if (perBlock == 0) return kNoIndex;
  for (const std::uint32_t slot : {0u, 1u, perBlock / 2, perBlock - 1}) {  // either half of the block may be lost
    std::uint8_t bytes[6];
    if (!work.image.Read(geometry.BlockOffset(block) + slot * kNodeSize, bytes, sizeof bytes)) return kNoIndex;
    const std::uint32_t first = Get16(bytes + 4) - slot;
    if (Get32(bytes) != kNodeSignature || first % perBlock != 1) continue;
    const std::uint32_t index = first / perBlock;
    if (index < kNodeTableEntries && GoodSlots(work, block, index) >= kEnoughSlots) return index;
  }
  return kNoIndex;
}

// Blocks that may have been node blocks before the table lost them, by their index: those that nothing names or that stand
// in the wrong place of the table, and block 1, where the first node block lies for all time.
struct Candidates {
  bool searched = false;
  std::multimap<std::uint32_t, std::uint32_t> blocks;
  std::vector<bool> named;
};

Candidates FindCandidates(const RepairWork& work) {
  Candidates candidates = {true, {}, FindNamed(work)};
  for (std::uint32_t block = 1; block < work.model().blocks.size(); ++block) {
    if (!work.IsLoose(block) && work.model().blocks[block].use != BlockUse::kNodeBlock && block != 1) continue;
    const std::uint32_t index = IndexOf(work, block);
    if (index != kNoIndex) candidates.blocks.emplace(index, block);
  }
  return candidates;
}

// The best of the candidates, 0 when none brings a node in use back.
std::uint32_t PickNodeBlock(const RepairWork& work, const Candidates& candidates, std::uint32_t index) {
  std::uint32_t best = kNoBlock;
  std::uint32_t bestWorth = 0;
  const auto range = candidates.blocks.equal_range(index);
  for (auto at = range.first; at != range.second; ++at) {
    const std::uint32_t worth = Worth(work, at->second, index, candidates.named);
    if (worth <= bestWorth) continue;
    best = at->second;
    bestWorth = worth;
  }
  return best;
}

bool IsRightEntry(const RepairWork& work, std::uint32_t index) {
  const std::uint32_t block = work.model().table[index];
  if (!work.geometry().Holds(block) || index >= work.geometry().tableEntries()) return false;
  const BlockInfo& owner = work.model().blocks[block];
  const std::uint32_t spoken = IndexOf(work, block);
  if (spoken != kNoIndex) return spoken == index;
  return owner.use == BlockUse::kNodeBlock && owner.index == index && !owner.shared && HasSignature(work, block);
}

// Entries in a row are one action.
void ClearEntries(RepairWork* work, const std::vector<std::uint32_t>& entries) {
  for (std::size_t first = 0; first < entries.size();) {
    std::size_t end = first + 1;
    while (end < entries.size() && entries[end] == entries[end - 1] + 1) ++end;
    work->Begin(end - first == 1 ? "clears table entry " + to_string(entries[first]) + ": it names no node block"
                                 : "clears table entries " + to_string(entries[first]) + " to " +
                                       to_string(entries[end - 1]) + ": they name no node blocks");
    for (; first < end; ++first) work->PutWord(kHeaderSize + 4 * entries[first], kNoBlock);
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
  work->Begin("writes the header anew, for blocks of " + to_string(work->geometry().blockSize) +
              " bytes and a bitmap of " + to_string(work->geometry().bitmapSize) + " bytes");
  VolumeHeader header = SoundHeader(work->geometry(), work->model().header);
  header.stateFlags = kVolumeDirty;
  std::uint8_t bytes[kHeaderSize];
  EncodeHeader(header, bytes);
  work->Put(0, bytes, sizeof bytes);
}

void FixTable(RepairWork* work) {
  const Model& model = work->model();
  const bool anyLost = work->report.totals.leakedBlocks > 0;
  Candidates candidates;
  std::vector<std::uint32_t> cleared;
  for (std::uint32_t index = 0; index < kNodeTableEntries; ++index) {
    const bool wanted = index < work->geometry().tableEntries() && (anyLost || IsNeeded(*work, index));
    if (IsRightEntry(*work, index) || (model.table[index] == kNoBlock && !wanted)) continue;
    if (wanted && !candidates.searched) candidates = FindCandidates(*work);
    const std::uint32_t found = wanted ? PickNodeBlock(*work, candidates, index) : kNoBlock;
    if (found == model.table[index]) continue;
    if (found == kNoBlock) {
      cleared.push_back(index);
      continue;
    }
    work->Begin("points table entry " + to_string(index) + " at block " + to_string(found) + ", which holds its nodes");
    work->PutWord(kHeaderSize + 4 * index, found);
  }
  ClearEntries(work, cleared);
}

void FixSlots(RepairWork* work) {
  for (const NodeInfo& node : work->model().nodes) {
    if (node.number == 0 || node.offset == 0) continue;
    if (node.record.signature == kNodeSignature && node.record.number == node.number) continue;
    std::uint8_t bytes[kNodeSize];
    EncodeNode(EmptyNode(node.number), bytes);
    if (node.readable) {
      work->Begin("writes signature and number into the slot of node " + to_string(node.number));
      work->Put(node.offset, bytes, 6);
    } else if (node.number != kRootNode) {
      work->Begin(
          "clears the slot of node " + to_string(node.number) +
          (node.state == NodeState::kFree ? ", which is free" : ", whose record is lost, and gives the node back"));
      if (node.state != NodeState::kFree) work->SetFree(node.number, true);
      work->Put(node.offset, bytes, sizeof bytes);
    }
  }
}

void FixBitmap(RepairWork* work) {
  const Model& model = work->model();
  const auto bits = static_cast<std::uint32_t>(model.bitmap.size() * 8);
  if (bits > 0 && model.IsFreeBit(kRootNode)) {
    work->Begin("notes in the bitmap that the root's node is in use");
    work->SetFree(kRootNode, false);
  }
  const auto placeless = [&](std::uint32_t number) {
    return number <= bits && !model.IsFreeBit(number) && (!model.IsNode(number) || model.nodes[number].offset == 0);
  };
  for (std::uint32_t first = kRootNode + 1; first <= bits; ++first) {
    std::uint32_t end = first;
    while (placeless(end)) ++end;
    if (end == first) continue;
    work->Begin("notes in the bitmap that " + (end - first == 1
                                                   ? "node " + to_string(first) + " is free: no node block holds it"
                                                   : "nodes " + to_string(first) + " to " + to_string(end - 1) +
                                                         " are free: no node block holds them"));
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
    work->Begin("gives " + NodeName(*work, node.number) + " attributes " + to_string(record.attributes) +
                " and clears its reserved bytes");
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
  record.time.reserved = 0;
  record.size = block != kNoBlock ? work->geometry().blockSize : 2 * kDirEntrySize;
  work->Begin(block != kNoBlock ? "makes a new root node for the directory in block " + to_string(block)
                                : "makes a new, empty root directory");
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
  if (nodeBlock != kNoBlock) work->PutWord(kHeaderSize, nodeBlock);
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

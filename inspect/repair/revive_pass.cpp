// Repair of nodes that the bitmap calls free but which are in use. The bitmap is one bit against a whole record:
// deleting a node leaves a record of size 0 without blocks, and takes its name away first. So an entry that names the
// node speaks for it, and so does a record that holds data.
//
// May assume: slots carry their own numbers. Changes: bits of the bitmap; in free records, blocks that others have too.
#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

// The blocks that the record itself names, in its order.
std::vector<std::uint32_t> NamedBlocks(const OrbNodeRecord& record) {
  std::vector<std::uint32_t> blocks;
  for (const std::uint32_t block : record.direct) {
    if (block != kNoBlock) blocks.push_back(block);
  }
  if (record.indirect != kNoBlock) blocks.push_back(record.indirect);
  if (record.doubleIndirect != kNoBlock) blocks.push_back(record.doubleIndirect);
  return blocks;
}

// The record has the slots that its size needs, and of the direct ones no others.
bool HasItsSlots(const Geometry& geometry, const OrbNodeRecord& record) {
  const std::uint64_t needed = geometry.BlocksFor(record.size);
  for (std::uint32_t i = 0; i < kDirectBlocks; ++i) {
    if ((record.direct[i] != kNoBlock) != (i < needed)) return false;
  }
  return (needed <= kDirectBlocks || record.indirect != kNoBlock) &&
         (needed <= kDirectBlocks + geometry.mapSlots() || record.doubleIndirect != kNoBlock);
}

// The directory whose first block this is has another entry than its dots.
bool HasEntries(const RepairWork& work, std::uint32_t block) {
  std::uint8_t number[2] = {};
  work.image.Read(work.geometry().BlockOffset(block) + 2 * kDirEntrySize, number, sizeof number);
  return Get16(number) != 0;
}

// What is left of a node that was removed too.
bool IsEmptied(const OrbNodeRecord& record) { return record.size == 0 && NamedBlocks(record).empty(); }

// A node that is in use: `entry` refers to it, or, where that is null, it holds data.
struct Revival {
  const NodeInfo* node;
  const Entry* entry;
};

std::vector<Revival> FindRevivals(const RepairWork& work) {
  const Model& model = work.model();
  std::vector<Revival> found;
  std::vector<bool> named(model.nodes.size());
  for (const NodeInfo& directory : model.nodes) {
    for (const Entry& entry : directory.entries) {
      const std::uint16_t number = entry.record.node;
      if (!NamesNode(work, entry) || named[number] || !CanBeRevived(work, number)) continue;
      if (IsEmptied(model.nodes[number].record)) continue;  // FixNames knows more of its name
      named[number] = true;
      found.push_back({&model.nodes[number], &entry});
    }
  }
  std::set<std::pair<std::uint32_t, std::vector<std::uint32_t>>> seen;  // sizes and blocks
  for (const NodeInfo& node : model.nodes) {
    if (!CanBeRevived(work, node.number) || !HoldsData(work, node.number, node.record)) continue;
    // Of records with the same contents one is enough.
    const bool fresh = seen.emplace(node.record.size, NamedBlocks(node.record)).second;
    if (fresh && !named[node.number]) found.push_back({&node, nullptr});
  }
  return found;
}

// Gives a file that is known by its data alone copies of the blocks that its record shares with nodes that are revived
// before it. Were the repair stopped in between, they would be the other's blocks, and the file one that was removed.
// The copies are appended: the free chain is still wanted.
void CopyShared(RepairWork* work, const NodeInfo& node, const std::set<std::uint32_t>& taken) {
  work->careful = true;
  for (std::uint64_t slot = node.offset + offsetof(OrbNodeRecord, direct); slot < node.offset + kNodeSize;
       slot += kWordSize) {
    std::uint8_t bytes[kWordSize] = {};
    work->image.Read(slot, bytes, sizeof bytes);
    if (taken.count(Get32(bytes)) == 0) continue;
    work->Begin(ActionKind::kCopyBlock, node.number).block = Get32(bytes);
    const std::uint32_t copy = work->TakeForCopy(work->GetBlock(Get32(bytes)));
    if (copy != kNoBlock) work->PutWord(slot, copy);
  }
  work->careful = false;
}

}  // namespace

bool CanBeRevived(const RepairWork& work, std::uint32_t number) {
  const NodeInfo& node = work.model().nodes[number];
  return node.state == NodeState::kFree && node.readable && IsPlausible(work.geometry(), number, node.record);
}

bool NamesNode(const RepairWork& work, const Entry& entry) {
  return entry.index >= 2 && !entry.pastSize && work.model().IsNode(entry.record.node) &&
         IsLegalName(NameOf(entry.record));
}

bool HoldsData(const RepairWork& work, std::uint32_t number, const OrbNodeRecord& record) {
  if (record.size == 0 || !IsPlausible(work.geometry(), number, record)) return false;
  if (!HasItsSlots(work.geometry(), record)) return false;
  std::vector<std::uint32_t> blocks = NamedBlocks(record);
  for (const std::uint32_t block : blocks) {
    if (!work.IsLost(block)) return false;
  }
  std::sort(blocks.begin(), blocks.end());
  if (std::adjacent_find(blocks.begin(), blocks.end()) != blocks.end()) return false;
  return (record.attributes & ORB_NODE_DIRECTORY) == 0 || HasEntries(work, record.direct[0]);
}

void ReviveNodes(RepairWork* work) {
  const std::vector<Revival> revivals = FindRevivals(*work);
  std::set<std::uint32_t> taken;
  for (const auto& [node, entry] : revivals) {
    if (entry == nullptr && !node->IsDirectory()) CopyShared(work, *node, taken);
    for (const std::uint32_t block : NamedBlocks(node->record)) taken.insert(block);
  }
  for (const auto& [node, entry] : revivals) {
    if (entry != nullptr) {
      work->Begin(ActionKind::kUseNamed, node->number).name = NameOf(entry->record);
    } else {
      work->Begin(ActionKind::kUseWithData, node->number).count = node->record.size;
    }
    work->SetFree(node->number, false);
  }
}

}  // namespace orba::inspect

// Repair of nodes that the bitmap calls free but which are in use. The bitmap is one bit against a whole record:
// deleting a node leaves a record of size 0 without blocks, and takes its name away first. So an entry that names the
// node speaks for it, and so does a record that holds data.
//
// May assume: slots carry their own numbers. Changes: bits of the bitmap.
#include <algorithm>
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

void ReviveNamed(RepairWork* work, std::vector<bool>* revived) {
  for (const NodeInfo& directory : work->model().nodes) {
    for (const Entry& entry : directory.entries) {
      const std::uint16_t number = entry.record.node;
      if (!NamesNode(*work, entry) || (*revived)[number] || !CanBeRevived(*work, number)) continue;
      if (IsEmptied(work->model().nodes[number].record)) continue;  // FixNames knows more of its name
      (*revived)[number] = true;
      work->Begin(ActionKind::kUseNamed, number).name = NameOf(entry.record);
      work->SetFree(number, false);
    }
  }
}

// The same as HoldsData, but files in use have the blocks.
bool SharesData(const RepairWork& work, const NodeInfo& node) {
  const std::vector<std::uint32_t> blocks = NamedBlocks(node.record);
  const auto isFiles = [&](std::uint32_t block) { return work.model().blocks[block].use == BlockUse::kFile; };
  return node.record.size > 0 && HasItsSlots(work.geometry(), node.record) &&
         std::all_of(blocks.begin(), blocks.end(), isFiles);
}

// Of records with the same contents one is enough. Where two lead to one block and do not, both are in use: Unshare
// gives the second a copy. A repair that was stopped may have brought back the first of them alone.
void ReviveWithData(RepairWork* work, const std::vector<bool>& revived) {
  std::set<std::pair<std::uint32_t, std::vector<std::uint32_t>>> seen;  // sizes and blocks
  for (const NodeInfo& node : work->model().nodes) {
    if (node.state == NodeState::kUsed && work->resumed) seen.emplace(node.record.size, NamedBlocks(node.record));
  }
  for (const NodeInfo& node : work->model().nodes) {
    if (!CanBeRevived(*work, node.number)) continue;
    if (!HoldsData(*work, node.number, node.record) && !(work->resumed && SharesData(*work, node))) continue;
    const bool fresh = seen.emplace(node.record.size, NamedBlocks(node.record)).second;
    if (!fresh || revived[node.number]) continue;
    work->Begin(ActionKind::kUseWithData, node.number).count = node.record.size;
    work->SetFree(node.number, false);
  }
}

}  // namespace

bool CanBeRevived(const RepairWork& work, std::uint32_t number) {
  const Model& model = work.model();
  if (!model.IsNode(number) || number > model.bitmap.size() * 8) return false;
  const NodeInfo& node = model.nodes[number];
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
  std::vector<bool> revived(work->model().nodes.size());
  ReviveNamed(work, &revived);
  ReviveWithData(work, revived);
}

}  // namespace orba::inspect

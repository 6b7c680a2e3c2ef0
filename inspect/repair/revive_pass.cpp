// Repair of nodes that the bitmap calls free but which are in use. The bitmap is one bit against a whole record:
// deleting a node leaves a record of size 0 without blocks, and takes its name away first. So an entry that names the
// node speaks for it, and so does a record that holds data.
//
// May assume: slots carry their own numbers. Changes: bits of the bitmap.
#include <algorithm>

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

void ReviveWithData(RepairWork* work, const std::vector<bool>& revived) {
  std::vector<bool> taken(work->model().blocks.size());
  const auto isTaken = [&](std::uint32_t block) { return taken[block]; };
  for (const NodeInfo& node : work->model().nodes) {
    if (!CanBeRevived(*work, node.number) || !HoldsData(*work, node.number, node.record)) continue;
    const std::vector<std::uint32_t> blocks = NamedBlocks(node.record);
    if (std::any_of(blocks.begin(), blocks.end(), isTaken)) continue;
    for (const std::uint32_t block : blocks) taken[block] = true;
    if (revived[node.number]) continue;
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

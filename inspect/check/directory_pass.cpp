#include <algorithm>
#include <unordered_map>

#include "inspect/check/work.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

// ---- Taking the entries ---------------------------------------------------------------------------------------------

// A last block that holds one entry is freed before the directory's size is stored. As a new record of
// the chain it starts with "FBC1" and counts nothing, which reads as an entry "C1" of node 16966.
bool HoldsChainRecord(const Work& work, const std::vector<std::uint8_t>& bytes, std::uint32_t block) {
  const ChainRecord record = DecodeChain(bytes);
  if (record.signature != kFreeChainSignature || record.count != 0) return false;
  if (work.chainMark[block] == kRecord) return true;
  if (record.next > work.geometry().blocks) return false;
  const std::uint16_t node = DecodeEntry(bytes.data()).node;
  const Model& model = work.report.model;
  return record.next != kNoBlock || !model.IsNode(node) || model.nodes[node].state != NodeState::kUsed;
}

bool IsDot(const OrbDirEntry& entry) { return NameOf(entry) == "." || NameOf(entry) == ".."; }

// Something else than a directory's block: several entries, and none of them with a name that an entry can have.
bool IsForeign(const Work& work, const std::vector<std::uint8_t>& bytes) {
  constexpr std::uint32_t kEnough = 6;  // a few may be damaged entries
  std::uint32_t entries = 0;
  for (std::uint32_t slot = 0; slot < work.report.model.geometry.entriesPerBlock(); ++slot) {
    const OrbDirEntry entry = DecodeEntry(&bytes[slot * kDirEntrySize]);
    if (entry.node == 0) continue;
    if (IsDot(entry) || IsLegalName(NameOf(entry))) return false;
    ++entries;
  }
  return entries >= kEnough;
}

void TakeBlock(Work* work, NodeInfo* directory, const DirectoryBlock& at, const std::vector<std::uint8_t>& bytes,
               bool* ended) {
  DirectorySummary& found = directory->directory;
  const Geometry& geometry = work->geometry();
  const std::uint32_t count = EntryCount(directory->record);
  for (std::uint32_t slot = 0; slot < geometry.entriesPerBlock(); ++slot) {
    Entry entry;
    const std::uint64_t index = at.index * geometry.entriesPerBlock() + slot;
    entry.index = static_cast<std::uint32_t>(index);
    entry.block = at.block;
    entry.offset = geometry.EntryOffset(at.block, slot);
    entry.pastSize = index >= count;
    entry.record = DecodeEntry(&bytes[slot * kDirEntrySize]);
    const bool empty = entry.record.node == 0;
    if (!entry.pastSize && empty && found.holes++ == 0) {
      found.firstHole = index;
      found.holeOffset = entry.offset;
      found.holeBlock = at.block;
    }
    if (entry.pastSize && *ended && !empty) found.behindEnd = true;
    if (entry.pastSize && empty) *ended = true;
    if (empty || *ended) continue;
    if (entry.pastSize) ++found.past;
    directory->entries.push_back(entry);
  }
}

void JudgeHoles(Work* work, NodeInfo* directory) {
  DirectorySummary& found = directory->directory;
  const std::uint32_t count = EntryCount(directory->record);
  const Place place = {directory->number, found.holeBlock, found.holeOffset, found.holes};
  found.removalInterrupted = found.holes == 1 && found.firstHole + 1 == count && count > 2 &&
                             found.holeOffset != work->geometry().BlockOffset(found.holeBlock);
  if (found.removalInterrupted) {
    work->Add(Kind::kRemovalInterrupted, place);
  } else {
    work->Add(Kind::kDirHole, place, {{found.firstHole}});
  }
}

void JudgePast(Work* work, NodeInfo* directory) {
  DirectorySummary& found = directory->directory;
  const auto past = std::find_if(directory->entries.begin(), directory->entries.end(),
                                 [](const Entry& entry) { return entry.pastSize; });
  const Place place = {directory->number, past->block, past->offset, found.past};
  const std::string name = NameOf(past->record);
  found.appendInterrupted = found.past == 1 && directory->record.size % kDirEntrySize == 0 && IsLegalName(name) &&
                            work->report.model.RefersToUsed(past->record);
  const bool torn = work->WasStopped() && found.past == 1 && directory->record.size % kDirEntrySize == 0 &&
                    !IsLegalName(name) && work->report.model.RefersToUsed(past->record);
  if (found.appendInterrupted) {
    work->Add(Kind::kAppendInterrupted, place, {{past->record.node}, name});
  } else if (torn) {
    work->Add(Kind::kDirTorn, place, {{2}, name});
  } else {
    work->Add(Kind::kDirBeyondSize, place);
  }
}

// ---- Judging entries and names --------------------------------------------------------------------------------------

void CheckDots(Work* work, const NodeInfo& directory) {
  if (!directory.directory.firstBlockRead) return;
  const Entry* dots[2] = {nullptr, nullptr};
  for (const Entry& entry : directory.entries) {
    if (entry.index < 2) dots[entry.index] = &entry;
  }
  const std::uint32_t number = directory.number;
  if (dots[0] != nullptr && (NameOf(dots[0]->record) != "." || dots[0]->record.node != number)) {
    work->Add(Kind::kDirDot, {number, dots[0]->block, dots[0]->offset},
              {{dots[0]->record.node}, NameOf(dots[0]->record)});
  }
  if (dots[1] == nullptr) return;
  const std::uint16_t up = dots[1]->record.node;
  const std::vector<NameRef>& names = directory.names.empty() ? directory.pending : directory.names;
  bool right = number == kRootNode ? up == kRootNode : names.empty();
  for (const NameRef& name : names) right |= name.directory == up;  // the root has none
  if (NameOf(dots[1]->record) == ".." && right) return;
  work->Add(Kind::kDirDotDot, {number, dots[1]->block, dots[1]->offset}, {{up}, NameOf(dots[1]->record)});
}

void CheckSize(Work* work, const NodeInfo& directory) {
  const std::uint32_t size = directory.record.size;
  const std::uint32_t number = directory.number;
  // A directory being made has no size until its first block is written; it has no name either.
  if (size == 0 && !directory.IsNamed() && number != kRootNode) return;
  if (size % kDirEntrySize == 0 && size >= 2 * kDirEntrySize) return;
  work->Add(Kind::kDirSize, {number, 0, directory.offset + offsetof(OrbNodeRecord, size)}, {{size}});
}

void CheckName(Work* work, const NodeInfo& directory, const Entry& entry) {
  const std::string name = NameOf(entry.record);
  const Place place = {directory.number, entry.block, entry.offset + offsetof(OrbDirEntry, name)};
  if (!IsLegalName(name)) {
    work->Add(Kind::kNameIllegal, place, {{}, name});
  } else if (UpperCase(name) != name) {
    work->Add(Kind::kNameLowerCase, place, {{}, name});
  }
}

// How many entries refer to nodes that the bitmap calls free.
std::uint32_t CountEntriesToFree(const Model& model) {
  std::uint32_t count = 0;
  for (const NodeInfo& directory : model.nodes) {
    for (const Entry& entry : directory.entries) {
      const std::uint16_t number = entry.record.node;
      if (entry.index < 2 || entry.pastSize || !model.IsNode(number)) continue;
      if (model.nodes[number].state == NodeState::kFree) ++count;
    }
  }
  return count;
}

// True when the entry refers to a node that can have names.
bool CheckTarget(Work* work, const NodeInfo& directory, const Entry& entry) {
  const Model& model = work->report.model;
  const std::uint16_t number = entry.record.node;
  const Place place = {directory.number, entry.block, entry.offset};
  const Facts facts = {{number}, NameOf(entry.record)};
  if (!model.IsNode(number)) {
    work->Add(Kind::kEntryOutside, place, facts);
  } else if (number == kRootNode) {
    work->Add(Kind::kEntryToRoot, place, facts);
  } else if (model.nodes[number].state == NodeState::kFree) {
    const bool torn = work->WasStopped() && model.nodes[number].readable && work->entriesToFree == 1;
    work->Add(torn ? Kind::kBitmapTorn : Kind::kEntryToFree, place, facts);
  } else if (model.nodes[number].state == NodeState::kLost) {
    work->Add(Kind::kEntryToLost, place, facts);
  } else {
    return true;
  }
  return false;
}

// True when `entry` is the last of its directory and `first` is its copy: a removal fills the hole there before it
// clears the last entry. Where both lie in one block, they are written together, and a part of that can be.
bool IsInterruptedCopy(const Work& work, const NodeInfo& directory, const Entry& entry, const Entry& first) {
  return entry.index + 1 == EntryCount(directory.record) && entry.record.node == first.record.node &&
         (entry.block != first.block || work.WasStopped());
}

void CheckDirectory(Work* work, NodeInfo* directory) {
  Model& model = work->model();
  std::unordered_map<std::string, std::size_t> seen;
  for (std::size_t i = 0; i < directory->entries.size(); ++i) {
    Entry& entry = directory->entries[i];
    if (entry.index < 2) continue;
    const NameRef name = {directory->number, static_cast<std::uint32_t>(i)};
    if (entry.pastSize) {
      if (model.RefersToUsed(entry.record)) model.nodes[entry.record.node].pending.push_back(name);
      continue;
    }
    CheckName(work, *directory, entry);
    const auto [first, fresh] = seen.emplace(UpperCase(NameOf(entry.record)), i);
    if (!fresh && IsInterruptedCopy(*work, *directory, entry, directory->entries[first->second])) {
      const bool torn = entry.block == directory->entries[first->second].block;
      work->Add(torn ? Kind::kDirTorn : Kind::kEntryDoubled, {directory->number, entry.block, entry.offset},
                {{}, NameOf(entry.record)});
      entry.doubled = true;
      continue;
    }
    if (!fresh && IsLegalName(NameOf(entry.record))) {
      work->Add(Kind::kNameDuplicate, {directory->number, entry.block, entry.offset}, {{}, NameOf(entry.record)});
    }
    if (CheckTarget(work, *directory, entry)) model.nodes[entry.record.node].names.push_back(name);
  }
}

// ---- What leads where -----------------------------------------------------------------------------------------------

// Marks all that `start` leads to and that nothing led to before.
void Spread(Model* model, std::uint16_t start, Reach reach) {
  model->nodes[start].reach = reach;
  std::vector<std::uint16_t> queue = {start};
  while (!queue.empty()) {
    const std::uint16_t number = queue.back();
    queue.pop_back();
    const NodeInfo& directory = model->nodes[number];
    if (!directory.IsDirectory()) continue;
    for (std::size_t i = 0; i < directory.entries.size(); ++i) {
      const Entry& entry = directory.entries[i];
      if (entry.index < 2 || !model->RefersToUsed(entry.record)) continue;
      NodeInfo& child = model->nodes[entry.record.node];
      if (child.reach != Reach::kNone) continue;
      child.reach = reach;
      child.parent = number;
      child.parentEntry = static_cast<std::uint32_t>(i);
      queue.push_back(child.number);
    }
  }
}

// From a node that has a name but cannot be reached from the root: climbs until a directory comes up twice.
std::uint16_t FindInCycle(const Model& model, std::uint16_t number) {
  std::vector<bool> seen(model.nodes.size());
  while (!seen[number]) {
    seen[number] = true;
    const NodeInfo& node = model.nodes[number];
    if (!node.IsNamed()) break;
    number = (node.names.empty() ? node.pending : node.names).front().directory;
  }
  return number;
}

// `directory` lies below `node` or is it.
bool LiesIn(const Model& model, std::uint16_t directory, std::uint16_t node) {
  while (directory != node && directory != 0) directory = model.nodes[directory].parent;
  return directory == node;
}

// Two names in two directories, as a move leaves them. A directory is never moved into itself.
bool IsInterruptedMove(const Model& model, const NodeInfo& node) {
  const auto isLegal = [&](const NameRef& name) { return IsLegalName(NameOf(model.EntryOf(name).record)); };
  return node.names.size() == 2 && node.pending.empty() && node.names[0].directory != node.names[1].directory &&
         isLegal(node.names[0]) && isLegal(node.names[1]) && !LiesIn(model, node.names[0].directory, node.number) &&
         !LiesIn(model, node.names[1].directory, node.number);
}

// Two names in one block, the second of them the directory's last: the hole of a removed entry was written up to within
// the name.
bool IsTornRemoval(const Model& model, const NodeInfo& node) {
  if (node.names.size() != 2 || node.names[0].directory != node.names[1].directory) return false;
  const Entry& hole = model.EntryOf(node.names[0]);
  const Entry& last = model.EntryOf(node.names[1]);
  return hole.block == last.block && last.index + 1 == EntryCount(model.nodes[node.names[0].directory].record);
}

// A directory's first two entries, of which the first refers to the node itself.
bool BeginsAsDirectory(const NodeInfo& node, const std::vector<std::uint8_t>& first) {
  const OrbDirEntry self = DecodeEntry(&first[0]);
  return NameOf(self) == "." && self.node == node.number && NameOf(DecodeEntry(&first[kDirEntrySize])) == "..";
}

// There are entries, but neither dot is among them, nor one that leads anywhere.
bool IsNoDirectory(const Model& model, const NodeInfo& node, const std::vector<std::uint8_t>& blocks) {
  bool any = false;
  for (std::size_t at = 0; at < blocks.size(); at += kDirEntrySize) {
    const OrbDirEntry entry = DecodeEntry(&blocks[at]);
    const std::string name = NameOf(entry);
    if (at == 0 && (name == "." || entry.node == node.number)) return false;
    if (at == kDirEntrySize && name == "..") return false;
    if (at > kDirEntrySize && model.RefersToUsed(entry) && IsLegalName(name)) return false;
    any |= entry.node != 0;
  }
  return any;
}

}  // namespace

void JudgeKind(Work* work, NodeInfo* node) {
  const Geometry& geometry = work->geometry();
  const std::uint32_t size = node->record.size;
  const std::uint64_t count = std::min<std::uint64_t>(geometry.BlocksFor(size), kDirectBlocks);
  std::vector<std::uint8_t> blocks;
  for (std::uint32_t i = 0; i < count && geometry.Holds(node->record.direct[i]); ++i) {
    blocks.resize(blocks.size() + geometry.blockSize);
    std::uint8_t* to = &blocks[blocks.size() - geometry.blockSize];
    if (!work->image.Read(geometry.BlockOffset(node->record.direct[i]), to, geometry.blockSize)) return;
  }
  if (blocks.empty()) return;
  if ((node->record.attributes & ORB_NODE_DIRECTORY) == 0) {
    node->wrongKind = size % kDirEntrySize == 0 && size >= 2 * kDirEntrySize && BeginsAsDirectory(*node, blocks);
  } else {
    node->wrongKind = node->number != kRootNode && IsNoDirectory(work->report.model, *node, blocks);
  }
}

void ParseDirectory(Work* work, NodeInfo* directory, const std::vector<DirectoryBlock>& blocks) {
  const Geometry& geometry = work->geometry();
  DirectorySummary& found = directory->directory;
  const std::uint64_t last = geometry.BlocksFor(directory->record.size) - 1;
  const bool single = directory->record.size % geometry.blockSize == kDirEntrySize;  // one entry in the last block
  bool ended = false;
  for (const DirectoryBlock& at : blocks) {
    std::vector<std::uint8_t> bytes(geometry.blockSize);
    if (!work->Read(geometry.BlockOffset(at.block), bytes.data(), bytes.size())) continue;
    found.firstBlockRead |= at.index == 0;
    if (single && at.index == last && last > 0) {
      found.lastBlockIsRecord = HoldsChainRecord(*work, bytes, at.block);
      if (found.lastBlockIsRecord || work->chainMark[at.block] == kListed) {
        work->freed[at.block] = true;
        work->Add(Kind::kLastBlockFreed, {directory->number, at.block, geometry.BlockOffset(at.block)});
      }
      if (found.lastBlockIsRecord) continue;
    }
    if (IsForeign(*work, bytes)) {
      found.foreign.push_back(at.index);
      work->Add(Kind::kDirBlockForeign, {directory->number, at.block, geometry.BlockOffset(at.block)},
                {{at.index * geometry.entriesPerBlock()}});
      continue;
    }
    TakeBlock(work, directory, at, bytes, &ended);
  }
  if (found.holes > 0 && !directory->map.sizeImpossible) JudgeHoles(work, directory);
  if (found.past > 0) JudgePast(work, directory);
  if (found.behindEnd) {
    work->Add(Kind::kDirAfterEnd, {directory->number});
  }
}

void CheckEntries(Work* work) {
  work->entriesToFree = CountEntriesToFree(work->model());
  for (NodeInfo& node : work->model().nodes) {
    if (node.state == NodeState::kUsed && node.IsDirectory()) CheckDirectory(work, &node);
  }
  for (const NodeInfo& node : work->model().nodes) {
    if (node.state != NodeState::kUsed || !node.IsDirectory()) continue;
    CheckSize(work, node);
    CheckDots(work, node);
  }
}

void CheckNames(Work* work) {
  const std::vector<NodeInfo>& nodes = work->model().nodes;
  const auto several =
      std::count_if(nodes.begin(), nodes.end(), [](const NodeInfo& node) { return node.names.size() > 1; });
  const bool stopped = work->WasStopped() && several == 1;
  for (const NodeInfo& node : nodes) {
    if (node.names.size() < 2) continue;
    if (stopped && IsTornRemoval(work->report.model, node)) {
      const Entry& hole = work->report.model.EntryOf(node.names[0]);
      work->Add(Kind::kDirTorn, {node.names[0].directory, hole.block, hole.offset}, {{1}, NameOf(hole.record)});
    } else if (stopped && IsInterruptedMove(work->report.model, node)) {
      work->Add(Kind::kTwoNames, {node.number}, {{node.names[0].directory, node.names[1].directory}});
    } else {
      work->Add(Kind::kManyNames, {node.number, 0, kNoOffset, static_cast<std::uint32_t>(node.names.size())});
    }
  }
}

void CheckReach(Work* work) {
  Model& model = work->model();
  if (model.nodes[kRootNode].state == NodeState::kUsed) Spread(&model, kRootNode, Reach::kRoot);
  for (const NodeInfo& node : model.nodes) {
    if (node.state != NodeState::kUsed || node.number == kRootNode || node.IsNamed()) continue;
    Spread(&model, node.number, Reach::kLeaked);
    work->Add(Kind::kNodeLeaked, {node.number, 0, node.offset}, {{work->IsDamaged(), node.record.size}});
  }
  for (const NodeInfo& node : model.nodes) {
    if (node.state != NodeState::kUsed || node.reach != Reach::kNone || node.number == kRootNode) continue;
    const std::uint16_t found = FindInCycle(model, node.number);
    if (model.nodes[found].reach != Reach::kNone) continue;
    Spread(&model, found, Reach::kCycle);
    work->Add(Kind::kDirCycle, {found, 0, model.nodes[found].offset});
  }
}

}  // namespace orba::inspect

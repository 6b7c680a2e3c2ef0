// Repair of what is in use for nothing: nodes without a name, and the free chain; and copies under /LOST.FND.
//
// May assume: everything else is sound. Changes: /LOST.FND, the bits of empty nodes, the chain.
//
// One principle decides: what holds something gets a name, and only what nothing refers to is free.
#include <algorithm>
#include <cstdio>

#include "inspect/container/block_map.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

using std::to_string;

constexpr char kLostFound[] = "LOST.FND";

bool HoldsNothing(const NodeInfo& node) {
  if (!node.IsDirectory()) return node.record.size == 0;
  return std::none_of(node.entries.begin(), node.entries.end(), [](const Entry& entry) { return entry.index >= 2; });
}

Names NamesIn(const NodeInfo& directory) {
  Names names;
  for (const Entry& entry : directory.entries) names.Add(UpperCase(NameOf(entry.record)));
  return names;
}

// ---- /LOST.FND ------------------------------------------------------------------------------------------------------

// The directory to link lost nodes in, and its name. 0 when it is still to be made: under that name, which is free.
struct LostFound {
  std::uint16_t number = 0;
  std::string name;
};

LostFound FindLostFound(const Model& model) {
  const std::vector<Entry>& entries = model.nodes[kRootNode].entries;
  LostFound found;
  for (std::uint32_t i = 1;; ++i) {
    found.name = i == 1 ? kLostFound : kLostFound + ("~" + to_string(i));
    const auto entry = std::find_if(entries.begin(), entries.end(),
                                    [&](const Entry& at) { return UpperCase(NameOf(at.record)) == found.name; });
    if (entry == entries.end()) return found;
    const std::uint16_t number = entry->record.node;
    if (!model.IsNode(number) || number == kRootNode) continue;
    const NodeInfo& node = model.nodes[number];
    if (node.state != NodeState::kUsed || !node.IsDirectory() || node.map.present != node.map.needed) continue;
    found.number = number;
    return found;
  }
}

// In the order in which the library makes a directory: block, record, bitmap, entry.
void MakeLostFound(RepairWork* work, const std::string& name) {
  work->Begin(ActionKind::kMakeLostFound).newName = "/" + name;
  const auto [number, offset] = work->TakeNode();
  if (number == 0) return;
  const std::uint32_t block = work->Take(NewDirectoryBlock(work->geometry(), number, kRootNode));
  if (block == kNoBlock) return;
  OrbNodeRecord record = EmptyNode(number);
  record.attributes = ORB_NODE_DIRECTORY;
  record.time = work->now;
  record.size = 2 * kDirEntrySize;
  record.direct[0] = block;
  std::uint8_t bytes[kNodeSize];
  EncodeNode(record, bytes);
  work->Put(offset, bytes, sizeof bytes);
  work->SetFree(number, false);
  AddEntry(work, kRootNode, name, number);
}

void Link(RepairWork* work, const NodeInfo& node, const LostFound& lost, Names* names) {
  const std::uint16_t directory = lost.number;
  char wish[16];
  std::snprintf(wish, sizeof wish, "NODE%04u", static_cast<unsigned>(node.number));
  const auto best = work->bestNames.find(node.number);
  const std::string name = names->Unique(best == work->bestNames.end() ? wish : best->second);
  Action& action = work->Begin(ActionKind::kLink, node.number);
  action.count = node.record.size;
  action.newName = (directory == kRootNode ? "/" : "/" + lost.name + "/") + name;
  if (node.IsDirectory()) {
    const std::uint64_t dots = FindEntry(*work, node.record, 1);
    OrbDirEntry up = {};
    up.node = directory;
    SetName(&up, "..");
    if (dots != 0) work->PutEntry(dots, up);
  }
  AddEntry(work, directory, name, node.number);
}

// What a file of that size takes, block-map blocks with it.
std::uint64_t CountBlocks(const Geometry& geometry, std::uint32_t size) {
  const std::uint64_t blocks = geometry.BlocksFor(size);
  const std::uint64_t twice = blocks - std::min(blocks, geometry.firstDouble());
  const std::uint64_t second = (twice + geometry.mapSlots() - 1) / geometry.mapSlots();
  return blocks + (blocks > kDirectBlocks ? 1 : 0) + (twice > 0 ? 1 : 0) + second;
}

// ---- The chain ------------------------------------------------------------------------------------------------------

bool IsChainSound(const Report& report) {
  std::uint64_t faults =
      report.Count(Kind::kBlockLeaked) + report.Count(Kind::kLastBlockFreed) + report.Count(Kind::kHeaderTorn);
  for (auto kind = static_cast<std::size_t>(Kind::kChainOutside);
       kind <= static_cast<std::size_t>(Kind::kChainBlockInUse); ++kind) {
    faults += report.counts[kind];
  }
  return faults == 0;
}

}  // namespace

std::uint16_t AddCopy(RepairWork* work, const OrbNodeRecord& like, const Image& from) {
  const Geometry& geometry = work->geometry();
  if (CountBlocks(geometry, like.size) > work->RoomForCopies()) return 0;  // half a copy serves nobody
  const auto [number, offset] = work->TakeNode();
  if (number == 0) return 0;
  OrbNodeRecord record = like;
  std::fill(std::begin(record.direct), std::end(record.direct), kNoBlock);
  record.indirect = record.doubleIndirect = kNoBlock;
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  for (std::uint64_t index = 0; index < geometry.BlocksFor(like.size); ++index) {
    const std::uint32_t block = FindBlock(from, geometry, like, index);
    if (block == kNoBlock || !from.Read(geometry.BlockOffset(block), bytes.data(), bytes.size())) return 0;
    const std::uint32_t copy = work->TakeForCopy(bytes);
    if (copy == kNoBlock || !SetMapSlot(work, &record, index, copy)) return 0;
  }
  record.signature = kNodeSignature;
  record.number = number;
  std::uint8_t slot[kNodeSize];
  EncodeNode(record, slot);
  work->Put(offset, slot, sizeof slot);
  work->SetFree(number, false);
  return number;
}

void KeepCopies(RepairWork* work, const Image& before, const std::vector<Loss>& losses) {
  LostFound lost = FindLostFound(work->model());
  if (lost.number == 0) {
    MakeLostFound(work, lost.name);
    work->Recheck();
    if (work->unreadable) return;
    lost = FindLostFound(work->model());
  }
  if (lost.number == 0) return;
  work->ResetBudget();
  Names names = NamesIn(work->model().nodes[lost.number]);
  std::set<std::uint16_t> copied;  // one copy stands for all names of a node
  for (const Loss& loss : losses) {
    if (!copied.insert(loss.node).second) continue;
    const std::string name = names.Unique(IsLegalName(loss.name) ? UpperCase(loss.name) : "FILE");
    Action& action = work->Begin(ActionKind::kKeepCopy);
    action.name = loss.name;
    action.newName = "/" + lost.name + "/" + name;
    const std::uint16_t copy = AddCopy(work, loss.record, before);
    if (copy == 0) continue;  // a smaller one may still find room
    if (!AddEntry(work, lost.number, name, copy)) return;
  }
}

void FixLeakedNodes(RepairWork* work) {
  const Model& model = work->model();
  bool left = false;
  for (const NodeInfo& node : model.nodes) {
    if (!IsNameless(node)) continue;
    if (!HoldsNothing(node)) {
      left = true;
      continue;
    }
    work->Begin(ActionKind::kFreeNode, node.number);
    work->SetFree(node.number, true);
  }
  if (!left || work->changed) return;
  LostFound lost = FindLostFound(model);
  if (lost.number == 0) MakeLostFound(work, lost.name);
  if (work->changed) return;
  if (lost.number == 0) lost.number = kRootNode;  // no node or no block is left for it
  Names names = NamesIn(model.nodes[lost.number]);
  for (const NodeInfo& node : model.nodes) {
    if (IsNameless(node)) Link(work, node, lost, &names);
  }
}

void FixChain(RepairWork* work) {
  if (IsChainSound(work->report)) return;
  const Geometry& geometry = work->geometry();
  std::vector<std::uint32_t> free;
  for (std::uint32_t block = 1; block < work->model().blocks.size(); ++block) {
    if (work->IsLoose(block)) free.push_back(block);
  }
  // The highest blocks become records, the lowest lie in the head record, which the library empties first.
  const std::size_t capacity = geometry.chainCapacity();
  const std::size_t records = (free.size() + capacity) / (capacity + 1);
  std::size_t end = free.size() - records;
  Action& action = work->Begin(ActionKind::kBuildChain);
  action.count = free.size();
  action.first = static_cast<std::uint32_t>(records);
  if (work->model().header.freeChainHead != kNoBlock) work->PutWord(kChainHeadOffset, kNoBlock);
  std::uint32_t next = kNoBlock;
  for (std::size_t i = 0; i < records; ++i) {
    const std::size_t count = i + 1 < records ? capacity : end;
    ChainRecord record;
    record.next = next;
    record.count = static_cast<std::uint32_t>(count);
    record.heap.assign(free.begin() + static_cast<std::ptrdiff_t>(end - count),
                       free.begin() + static_cast<std::ptrdiff_t>(end));
    const std::vector<std::uint8_t> bytes = EncodeChain(record, geometry.blockSize);
    end -= count;
    next = free[free.size() - 1 - i];
    work->Put(geometry.BlockOffset(next), bytes.data(), bytes.size());
  }
  if (next != kNoBlock) work->PutWord(kChainHeadOffset, next);
}

}  // namespace orba::inspect

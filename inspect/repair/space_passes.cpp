// Repair of what is in use for nothing: nodes without a name, and the free chain.
#include <algorithm>
#include <cstdio>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

using std::to_string;

constexpr char kLostFound[] = "LOST.FND";
constexpr std::uint32_t kChainHeadOffset = 48;

bool IsLeaked(const NodeInfo& node) {
  return node.state == NodeState::kUsed && node.number != kRootNode && node.names.empty() && node.pending.empty();
}

bool HoldsNothing(const NodeInfo& node) {
  if (!node.IsDirectory()) return node.record.size == 0;
  return std::none_of(node.entries.begin(), node.entries.end(), [](const Entry& entry) { return entry.index >= 2; });
}

std::set<std::string> NamesIn(const NodeInfo& directory) {
  std::set<std::string> names;
  for (const Entry& entry : directory.entries) names.insert(UpperCase(NameOf(entry.record)));
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
    const auto entry = std::find_if(entries.begin(), entries.end(), [&](const Entry& at) {
      return at.index >= 2 && UpperCase(NameOf(at.record)) == found.name;
    });
    if (entry == entries.end()) return found;
    const std::uint16_t number = entry->record.node;
    if (!model.IsNode(number) || number == kRootNode) continue;
    const NodeInfo& node = model.nodes[number];
    if (node.state != NodeState::kUsed || !node.IsDirectory() || node.map.present != node.map.needed) continue;
    found.number = number;
    return found;
  }
}

// The lowest free number, with a node block to hold it; 0 when there is none.
std::uint16_t TakeNode(RepairWork* work, std::uint64_t* offset) {
  const Model& model = work->model();
  const Geometry& geometry = work->geometry();
  std::uint32_t number = 1;
  while (number < model.nodes.size() && model.nodes[number].state != NodeState::kFree) ++number;
  if (number >= model.nodes.size() || number > model.bitmap.size() * 8) return 0;
  const std::uint32_t index = (number - 1) / geometry.nodesPerBlock();
  std::uint32_t block = model.table[index];
  if (block == kNoBlock) {
    std::vector<std::uint8_t> bytes(geometry.blockSize);
    for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
      OrbNodeRecord record = {};
      record.signature = kNodeSignature;
      record.number = static_cast<std::uint16_t>(index * geometry.nodesPerBlock() + i + 1);
      EncodeNode(record, &bytes[i * kNodeSize]);
    }
    block = work->Take(bytes);
    if (block == kNoBlock) return 0;
    work->PutWord(kHeaderSize + 4 * index, block);
  }
  *offset = geometry.BlockOffset(block) + (number - 1) % geometry.nodesPerBlock() * kNodeSize;
  return static_cast<std::uint16_t>(number);
}

// In the order in which the library makes a directory: block, record, bitmap, entry.
void MakeLostFound(RepairWork* work, const std::string& name) {
  work->Begin("makes the directory /" + name);
  std::uint64_t offset = 0;
  const std::uint16_t number = TakeNode(work, &offset);
  if (number == 0) return;
  const std::uint32_t block = work->Take(NewDirectoryBlock(work->geometry(), number, kRootNode));
  if (block == kNoBlock) return;
  OrbNodeRecord record = {};
  record.signature = kNodeSignature;
  record.number = number;
  record.attributes = ORB_NODE_DIRECTORY;
  record.time = work->now;
  record.time.reserved = 0;
  record.size = 2 * kDirEntrySize;
  record.direct[0] = block;
  std::uint8_t bytes[kNodeSize];
  EncodeNode(record, bytes);
  work->Put(offset, bytes, sizeof bytes);
  work->SetFree(number, false);
  AddEntry(work, kRootNode, name, number);
}

void Link(RepairWork* work, const NodeInfo& node, const LostFound& lost, std::set<std::string>* taken) {
  const std::uint16_t directory = lost.number;
  char wish[16];
  std::snprintf(wish, sizeof wish, "NODE%04u", static_cast<unsigned>(node.number));
  const std::string name = UniqueName(wish, taken);
  work->Begin("links node " + to_string(node.number) + ", which has " + Counted(node.record.size, "byte") +
              " but no name, as " + (directory == kRootNode ? "/" : "/" + lost.name + "/") + name);
  if (node.IsDirectory()) {
    const std::uint64_t dots = FindEntry(*work, node.record, 1);
    OrbDirEntry up = {};
    up.node = directory;
    SetName(&up, "..");
    if (dots != 0) work->PutEntry(dots, up);
  }
  AddEntry(work, directory, name, node.number);
}

// ---- The chain ------------------------------------------------------------------------------------------------------

bool IsChainSound(const Report& report) {
  std::uint64_t faults = report.Count(Kind::kBlockLeaked) + report.Count(Kind::kLastBlockFreed);
  for (auto kind = static_cast<std::size_t>(Kind::kChainOutside);
       kind <= static_cast<std::size_t>(Kind::kChainBlockInUse); ++kind) {
    faults += report.counts[kind];
  }
  return faults == 0;
}

}  // namespace

void FixLeakedNodes(RepairWork* work) {
  const Model& model = work->model();
  bool left = false;
  for (const NodeInfo& node : model.nodes) {
    if (!IsLeaked(node)) continue;
    if (!HoldsNothing(node)) {
      left = true;
      continue;
    }
    work->Begin("gives node " + to_string(node.number) + " back: it holds nothing and has no name");
    work->SetFree(node.number, true);
  }
  if (!left || work->changed) return;
  LostFound lost = FindLostFound(model);
  if (lost.number == 0) MakeLostFound(work, lost.name);
  if (work->changed) return;
  if (lost.number == 0) lost.number = kRootNode;  // no node or no block is left for it
  std::set<std::string> taken = NamesIn(model.nodes[lost.number]);
  for (const NodeInfo& node : model.nodes) {
    if (IsLeaked(node)) Link(work, node, lost, &taken);
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
  work->Begin("builds the free chain anew: " + Counted(free.size(), "block") + " in " + Counted(records, "record"));
  if (work->model().header.freeChainHead != kNoBlock) work->PutWord(kChainHeadOffset, kNoBlock);
  std::uint32_t next = kNoBlock;
  for (std::size_t i = 0; i < records; ++i) {
    const std::size_t count = i + 1 < records ? capacity : end;
    std::vector<std::uint8_t> bytes(geometry.blockSize);
    Put32(&bytes[0], kFreeChainSignature);
    Put32(&bytes[4], next);
    Put32(&bytes[8], static_cast<std::uint32_t>(count));
    for (std::size_t k = 0; k < count; ++k) Put32(&bytes[kFreeChainHeader + 4 * k], free[end - count + k]);
    end -= count;
    next = free[free.size() - 1 - i];
    work->Put(geometry.BlockOffset(next), bytes.data(), bytes.size());
  }
  if (next != kNoBlock) work->PutWord(kChainHeadOffset, next);
}

}  // namespace orba::inspect

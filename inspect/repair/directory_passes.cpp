// Repair of directories: sizes, gaps, the dots and the names themselves; and how entries are added and removed.
//
// May assume: block maps are sound. Changes: entries and sizes of directories whose blocks are all there.
//
// One principle decides: the entries that are there count, not the size that counts them; of equal names the first, to
// which paths lead, keeps its own.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <tuple>

#include "inspect/container/block_map.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

void SetSize(RepairWork* work, std::uint16_t number, std::uint32_t size) {
  OrbNodeRecord record = work->GetNode(number);
  record.size = size;
  work->PutNode(number, record);
}

// ---- Sizes ----------------------------------------------------------------------------------------------------------

// Entries behind the size: those that give a node its only name are counted, and an end mark is set behind them.
void FixPast(RepairWork* work, const NodeInfo& directory) {
  std::uint32_t size = directory.record.size;
  for (const Entry& entry : directory.entries) {
    if (!entry.pastSize) continue;
    const bool wanted = work->model().RefersToUsed(entry.record) && IsLegalName(NameOf(entry.record)) &&
                        work->model().nodes[entry.record.node].names.empty();
    if (!wanted) {
      work->Begin(ActionKind::kSetEnd, directory.number).name = NameOf(entry.record);
      work->PutHalf(entry.offset, 0);
      break;
    }
    size += kDirEntrySize;
  }
  if (size == directory.record.size) return;
  work->Begin(ActionKind::kCountMore, directory.number).count = (size - directory.record.size) / kDirEntrySize;
  SetSize(work, directory.number, size);
}

// Places without an entry, and none is behind the size: at the end they are cut off, elsewhere the last entry moves in.
void FixHoles(RepairWork* work, const NodeInfo& directory) {
  const std::uint32_t count = EntryCount(directory.record);
  std::vector<bool> there(count);
  std::uint32_t end = 2;
  for (const Entry& entry : directory.entries) {
    there[entry.index] = true;
    end = std::max(end, entry.index + 1);
  }
  if (end < count) {
    work->Begin(ActionKind::kCountLess, directory.number).count = count - end;
    const std::uint32_t size = end * kDirEntrySize;
    CutNode(work, directory.number, work->geometry().BlocksFor(size), size);
    return;
  }
  work->Begin(ActionKind::kCloseGaps, directory.number);
  for (std::uint32_t index = count; index-- > 2;) {
    if (!there[index]) RemoveEntry(work, directory.number, index);
  }
  for (std::uint32_t index = 0; index < 2; ++index) {
    if (there[index]) continue;
    OrbDirEntry entry = {};
    entry.node = index == 0 ? directory.number : kRootNode;  // FixEntries knows better
    SetName(&entry, index == 0 ? "." : "..");
    work->PutEntry(FindEntry(*work, work->GetNode(directory.number), index), entry);
  }
}

// ---- Copies of other directories ------------------------------------------------------------------------------------

// Another directory in use, as the "." of the first block has it, that has every entry of this block itself; null when
// there is none. What the block refers to is that directory's, so nothing is lost with it.
const NodeInfo* FindOriginal(const Model& model, const NodeInfo& directory, std::uint32_t perBlock) {
  const auto dotOf = [&](const NodeInfo& node) {
    const bool there = !node.entries.empty() && node.entries[0].index == 0 && NameOf(node.entries[0].record) == ".";
    return there ? node.entries[0].record.node : std::uint16_t{0};
  };
  const std::uint16_t number = dotOf(directory);
  if (number == directory.number || !model.IsNode(number)) return nullptr;
  const NodeInfo& other = model.nodes[number];
  if (dotOf(other) != number) return nullptr;
  std::set<std::pair<std::uint16_t, std::string>> names;
  for (const Entry& entry : other.entries) {
    if (!entry.pastSize) names.emplace(entry.record.node, NameOf(entry.record));
  }
  const bool all = std::all_of(directory.entries.begin(), directory.entries.end(), [&](const Entry& entry) {
    return entry.index < 2 || entry.index >= perBlock || names.count({entry.record.node, NameOf(entry.record)}) != 0;
  });
  return all ? &other : nullptr;
}

// ---- Names and dots -------------------------------------------------------------------------------------------------

std::string MakeLegal(const Entry& entry) {
  std::string name = UpperCase(NameOf(entry.record)).substr(0, kNameSize - 1);
  for (char& c : name) {
    if (!IsNameCharacter(c)) c = '_';
  }
  if (IsLegalName(name)) return name;
  char text[16];
  std::snprintf(text, sizeof text, "NODE%04u", static_cast<unsigned>(entry.record.node));
  return text;
}

void FixNamesIn(RepairWork* work, const NodeInfo& directory) {
  Names names;
  for (const Entry& entry : directory.entries) names.Add(UpperCase(NameOf(entry.record)));
  std::set<std::string> seen;
  for (const Entry& entry : directory.entries) {
    if (entry.index < 2 || entry.pastSize) continue;
    const std::string name = NameOf(entry.record);
    // Paths take no notice of case: of equal names they lead to the first, which keeps its own.
    const bool keeps = IsLegalName(name) && seen.insert(UpperCase(name)).second;
    if (keeps && UpperCase(name) == name) continue;
    OrbDirEntry record = entry.record;
    const std::string better = keeps ? UpperCase(name) : names.Unique(MakeLegal(entry));
    SetName(&record, better);
    Action& action = work->Begin(ActionKind::kRename, directory.number);
    action.name = NameOf(entry.record);
    action.newName = better;
    work->PutEntry(entry.offset, record);
  }
}

void FixDot(RepairWork* work, const NodeInfo& directory, const Entry& entry) {
  const char* const name = entry.index == 0 ? "." : "..";
  std::uint16_t node = entry.record.node;
  if (entry.index == 0) {
    node = directory.number;
  } else if (directory.number == kRootNode) {
    node = kRootNode;
  } else if (!directory.names.empty()) {
    node = directory.names.front().directory;
  }
  if (entry.record.node == node && NameOf(entry.record) == name) return;
  OrbDirEntry record = {};
  record.node = node;
  SetName(&record, name);
  work->Begin(ActionKind::kWriteDot, directory.number).name = name;
  work->PutEntry(entry.offset, record);
}

}  // namespace

void DropFreedBlocks(RepairWork* work) {
  for (const NodeInfo& directory : work->model().nodes) {
    if (directory.state != NodeState::kUsed || !directory.directory.lastBlockIsRecord) continue;
    // Its map blocks must be its own; where they are not, Unshare comes first.
    if (directory.map.needed > kDirectBlocks && work->report.Count(Kind::kBlockShared) > 0) continue;
    work->Begin(ActionKind::kDropFreedBlock, directory.number);
    CutNode(work, directory.number, directory.map.needed - 1, directory.record.size - kDirEntrySize);
  }
}

void EmptyCopies(RepairWork* work) {
  const std::uint32_t perBlock = work->geometry().entriesPerBlock();
  for (const NodeInfo& directory : work->model().nodes) {
    const NodeInfo* const original = FindOriginal(work->model(), directory, perBlock);
    if (original == nullptr) continue;
    Action& action = work->Begin(ActionKind::kEmptyCopy, directory.number);
    action.other = original->number;
    action.otherPath = PathOf(work->model(), original->number);
    action.count = 0;
    for (auto entry = directory.entries.rbegin(); entry != directory.entries.rend(); ++entry) {
      if (entry->index < 2 || entry->index >= perBlock) continue;
      ++action.count;
      work->PutHalf(entry->offset, 0);
    }
  }
}

void FixDirectorySizes(RepairWork* work) {
  for (const NodeInfo& directory : work->model().nodes) {
    if (!IsWhole(directory)) continue;
    const std::uint32_t size = directory.record.size;
    if (size % kDirEntrySize != 0 || size < 2 * kDirEntrySize) {
      work->Begin(ActionKind::kWholeEntries, directory.number);
      SetSize(work, directory.number, std::max(2 * kDirEntrySize, size / kDirEntrySize * kDirEntrySize));
    } else if (directory.directory.past > 0) {
      FixPast(work, directory);
    } else if (directory.directory.holes > 0) {
      FixHoles(work, directory);
    }
  }
}

void FixEntries(RepairWork* work) {
  for (const NodeInfo& directory : work->model().nodes) {
    FixNamesIn(work, directory);
    for (const Entry& entry : directory.entries) {
      if (entry.index < 2) FixDot(work, directory, entry);
    }
  }
}

bool IsWhole(const NodeInfo& node) {
  return node.state == NodeState::kUsed && node.IsDirectory() && node.map.needed > 0 &&
         node.map.present == node.map.needed && node.map.extras == 0 && node.directory.firstBlockRead;
}

bool IsNameless(const NodeInfo& node) {
  return node.state == NodeState::kUsed && node.number != kRootNode && !node.IsNamed();
}

std::uint16_t DotDotOf(const NodeInfo& directory) {
  for (const Entry& entry : directory.entries) {
    if (entry.index == 1) return entry.record.node;
  }
  return 0;
}

std::uint64_t FindEntry(const RepairWork& work, const OrbNodeRecord& directory, std::uint32_t index) {
  const Geometry& geometry = work.geometry();
  // Blocks taken in this round are not yet counted in the model's geometry.
  Geometry now = geometry;
  now.blocks = static_cast<std::uint32_t>((work.image.Size() - geometry.dataOffset) / geometry.blockSize);
  const std::uint32_t block = FindBlock(work.image, now, directory, index / geometry.entriesPerBlock());
  return block == kNoBlock ? 0 : geometry.EntryOffset(block, index % geometry.entriesPerBlock());
}

void RemoveEntry(RepairWork* work, std::uint16_t directory, std::uint32_t index) {
  const OrbNodeRecord record = work->GetNode(directory);
  const std::uint32_t last = EntryCount(record) - 1;
  const std::uint64_t from = FindEntry(*work, record, last);
  const std::uint64_t to = FindEntry(*work, record, index);
  if (from == 0 || to == 0 || index > last) return;
  if (index != last) {
    std::uint8_t bytes[kDirEntrySize];
    work->image.Read(from, bytes, sizeof bytes);
    work->Put(to, bytes, sizeof bytes);
  }
  const std::uint32_t size = record.size - kDirEntrySize;
  const std::uint64_t blocks = work->geometry().BlocksFor(size);
  if (last % work->geometry().entriesPerBlock() == 0) return CutNode(work, directory, blocks, size);
  work->PutHalf(from, 0);
  SetSize(work, directory, size);
}

bool AddEntry(RepairWork* work, std::uint16_t directory, const std::string& name, std::uint16_t node) {
  OrbNodeRecord record = work->GetNode(directory);
  OrbDirEntry entry = {};
  entry.node = node;
  SetName(&entry, name);
  const std::uint32_t index = EntryCount(record);
  if (record.size % work->geometry().blockSize != 0) {
    const std::uint64_t offset = FindEntry(*work, record, index);
    if (offset == 0) return false;
    work->PutEntry(offset, entry);
  } else {
    std::vector<std::uint8_t> bytes(work->geometry().blockSize);
    EncodeEntry(entry, bytes.data());
    const std::uint32_t block = work->Take(bytes);
    if (block == kNoBlock || !SetMapSlot(work, &record, index / work->geometry().entriesPerBlock(), block)) {
      return false;
    }
  }
  record.size += kDirEntrySize;
  work->PutNode(directory, record);
  return true;
}

std::string Names::Unique(const std::string& wish) {
  std::string name = wish;
  if (taken_.insert(name).second) return name;
  std::uint32_t& next = next_.emplace(wish, 2).first->second;
  do {
    const std::string tail = "~" + std::to_string(next++);
    name = wish.substr(0, kNameSize - 1 - tail.size()) + tail;
  } while (!taken_.insert(name).second);
  return name;
}

}  // namespace orba::inspect

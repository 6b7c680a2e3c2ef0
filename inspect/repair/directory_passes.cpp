// Repair of directories: sizes, entries, names, and what hangs on what.
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

using std::to_string;

std::string Quoted(const Entry& entry) { return "\"" + Printable(NameOf(entry.record)) + "\""; }

// A directory in use of which every block is there.
bool IsWhole(const NodeInfo& node) {
  return node.state == NodeState::kUsed && node.IsDirectory() && node.map.needed > 0 &&
         node.map.present == node.map.needed && node.map.extras == 0 && node.directory.firstBlockRead;
}

bool NamesUsedNode(const Model& model, const Entry& entry) {
  const std::uint16_t number = entry.record.node;
  return model.IsNode(number) && number != kRootNode && model.nodes[number].state == NodeState::kUsed;
}

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
    const bool wanted = NamesUsedNode(work->model(), entry) && IsLegalName(NameOf(entry.record)) &&
                        work->model().nodes[entry.record.node].names.empty();
    if (!wanted) {
      work->Begin("sets the end mark of " + NodeName(*work, directory.number) + " over " + Quoted(entry) +
                  ", which its size does not count");
      work->PutHalf(entry.offset, 0);
      break;
    }
    size += kDirEntrySize;
  }
  if (size == directory.record.size) return;
  work->Begin("counts " + Counted((size - directory.record.size) / kDirEntrySize, "entry", "entries") + " more in " +
              NodeName(*work, directory.number));
  SetSize(work, directory.number, size);
}

// Places without an entry: at the end they are cut off, elsewhere the last entry moves in.
void FixHoles(RepairWork* work, const NodeInfo& directory) {
  const std::uint32_t count = EntryCount(directory.record);
  std::vector<bool> there(count);
  std::uint32_t end = 2;
  for (const Entry& entry : directory.entries) {
    if (entry.pastSize) continue;
    there[entry.index] = true;
    end = std::max(end, entry.index + 1);
  }
  if (end < count) {
    work->Begin("counts " + Counted(count - end, "entry", "entries") + " less in " + NodeName(*work, directory.number));
    const std::uint32_t size = end * kDirEntrySize;
    CutNode(work, directory.number, work->geometry().BlocksFor(size), size);
    return;
  }
  work->Begin("closes the gaps between the entries of " + NodeName(*work, directory.number));
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

// ---- Removing -------------------------------------------------------------------------------------------------------

// By directory, places in it to be given up, highest first.
using Removals = std::map<std::uint16_t, std::map<std::uint32_t, std::string, std::greater<>>>;

void RemoveAll(RepairWork* work, const Removals& removals) {
  for (const auto& [directory, places] : removals) {
    for (const auto& [index, why] : places) {
      work->Begin(why);
      RemoveEntry(work, directory, index);
    }
  }
}

const Entry& EntryOf(const Model& model, const NameRef& name) {
  return model.nodes[name.directory].entries[name.entry];
}

// Which of a file's names came last, as far as that can still be told.
std::size_t NewestName(const Model& model, const std::vector<NameRef>& names) {
  const auto rank = [&](const NameRef& name) {
    const NodeInfo& directory = model.nodes[name.directory];
    const TimeStamp& time = directory.record.time;
    const bool last = EntryOf(model, name).index + 1 == EntryCount(directory.record);
    return std::make_tuple(last, time.year, time.month, time.day, time.hour, time.minute, time.second, name.directory);
  };
  std::size_t newest = 0;
  for (std::size_t i = 1; i < names.size(); ++i) {
    if (rank(names[i]) > rank(names[newest])) newest = i;
  }
  return newest;
}

std::uint16_t DotDotOf(const NodeInfo& directory) {
  for (const Entry& entry : directory.entries) {
    if (entry.index == 1) return entry.record.node;
  }
  return 0;
}

bool HasLegalName(const Model& model, const NameRef& name) { return IsLegalName(NameOf(EntryOf(model, name).record)); }

// The one to keep; a legal one if there is any.
NameRef RightName(const Model& model, const NodeInfo& node) {
  std::vector<NameRef> names;
  std::copy_if(node.names.begin(), node.names.end(), std::back_inserter(names),
               [&](const NameRef& name) { return HasLegalName(model, name); });
  if (names.empty()) names = node.names;
  if (node.IsDirectory()) {
    const std::uint16_t up = DotDotOf(node);
    for (const NameRef& name : names) {
      if (name.directory == up) return name;
    }
  }
  // Two names in one directory: the first is the one that a path finds.
  for (const NameRef& name : names) {
    if (name.directory != names[0].directory) return names[NewestName(model, names)];
  }
  return names[0];
}

void CollectSecondNames(const RepairWork& work, Removals* removals) {
  const Model& model = work.model();
  for (const NodeInfo& node : model.nodes) {
    if (node.names.size() < 2) continue;
    const NameRef right = RightName(model, node);
    for (const NameRef& name : node.names) {
      const bool keep = name.directory == right.directory && name.entry == right.entry;
      if (keep || !IsWhole(model.nodes[name.directory])) continue;
      const Entry& entry = EntryOf(model, name);
      (*removals)[name.directory][entry.index] =
          "removes " + Quoted(entry) + " from " + NodeName(work, name.directory) + ": node " + to_string(node.number) +
          " keeps its name " + Quoted(EntryOf(model, right)) + " in " + NodeName(work, right.directory);
    }
  }
}

// ---- An entry that names another's node -----------------------------------------------------------------------------

// Numbers are given out in order: the entry stands before or behind that of the node's neighbour.
bool StandsBeside(const Model& model, const NameRef& name, std::uint16_t node) {
  const std::vector<Entry>& entries = model.nodes[name.directory].entries;
  const bool behind = name.entry > 2 && entries[name.entry - 1].record.node + 1 == node;
  const bool before = name.entry + 1 < entries.size() && entries[name.entry + 1].record.node == node + 1;
  return behind || before;
}

// Which of the two names was `lost`'s before its number was damaged; null when that cannot be told. An illegal name is the
// damaged one; of two legal ones the one in `lost`'s place, if the other is not in it as well.
const NameRef* DamagedName(const Model& model, const NodeInfo& node, const NodeInfo& lost) {
  const NameRef& first = node.names[0];
  const NameRef& second = node.names[1];
  const bool legal = HasLegalName(model, first);
  const bool beside = StandsBeside(model, first, lost.number);
  const NameRef* damaged = nullptr;
  if (legal != HasLegalName(model, second)) {
    damaged = legal ? &second : &first;
  } else if (beside != StandsBeside(model, second, lost.number)) {
    damaged = beside ? &first : &second;
  }
  if (damaged == nullptr) return nullptr;
  const bool wrongPlace = lost.IsDirectory() && DotDotOf(lost) != damaged->directory;
  const bool rightAsItIs =
      node.IsDirectory() && DotDotOf(node) == damaged->directory && first.directory != second.directory;
  return wrongPlace || rightAsItIs ? nullptr : damaged;
}

// One node has lost its only name, and one has two: no stopped move leaves that.
void RepointEntry(RepairWork* work) {
  const Model& model = work->model();
  const NodeInfo* twice = nullptr;
  const NodeInfo* lost = nullptr;
  for (const NodeInfo& node : model.nodes) {
    if (node.state != NodeState::kUsed || node.number == kRootNode) continue;
    const bool nameless = node.names.empty() && node.pending.empty();
    if ((nameless && lost != nullptr) || (node.names.size() > 1 && twice != nullptr)) return;
    if (nameless) lost = &node;
    if (node.names.size() > 1) twice = &node;
  }
  if (lost == nullptr || twice == nullptr || twice->names.size() != 2) return;
  const NameRef* const name = DamagedName(model, *twice, *lost);
  if (name == nullptr || !IsWhole(model.nodes[name->directory])) return;
  const Entry& entry = EntryOf(model, *name);
  work->Begin("lets " + Quoted(entry) + " in " + NodeName(*work, name->directory) + " name node " +
              to_string(lost->number) + ", which has lost its name, and no longer node " + to_string(twice->number) +
              ", which has another");
  work->PutHalf(entry.offset, lost->number);
}

void CollectUseless(const RepairWork& work, const NodeInfo& directory, Removals* removals) {
  std::map<std::string, std::uint16_t> seen;
  for (const Entry& entry : directory.entries) {
    if (entry.index < 2 || entry.pastSize) continue;
    const auto [first, fresh] = seen.emplace(UpperCase(NameOf(entry.record)), entry.record.node);
    const bool again = !fresh && first->second == entry.record.node;
    if (!again && !entry.doubled && NamesUsedNode(work.model(), entry)) continue;
    (*removals)[directory.number][entry.index] =
        "removes " + Quoted(entry) + " from " + NodeName(work, directory.number) +
        (again || entry.doubled ? ": it is there twice" : ": node " + to_string(entry.record.node) + " is not there");
  }
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

void FixNames(RepairWork* work, const NodeInfo& directory) {
  std::set<std::string> taken;
  for (const Entry& entry : directory.entries) {
    if (entry.index >= 2) taken.insert(NameOf(entry.record));
  }
  std::set<std::string> seen;
  for (const Entry& entry : directory.entries) {
    if (entry.index < 2 || entry.pastSize) continue;
    const std::string name = NameOf(entry.record);
    if (IsLegalName(name) && UpperCase(name) == name && seen.insert(name).second) continue;
    OrbDirEntry record = entry.record;
    const std::string better = UniqueName(MakeLegal(entry), &taken);
    SetName(&record, better);
    seen.insert(better);
    work->Begin("renames " + Quoted(entry) + " in " + NodeName(*work, directory.number) + " to \"" + better + "\"");
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
  work->Begin("writes \"" + std::string(name) + "\" of " + NodeName(*work, directory.number) + " anew");
  work->PutEntry(entry.offset, record);
}

}  // namespace

void DropGivenBackBlocks(RepairWork* work) {
  for (const NodeInfo& directory : work->model().nodes) {
    if (directory.state != NodeState::kUsed || !directory.directory.lastBlockIsRecord) continue;
    // Its map blocks must be its own; where they are not, Unshare comes first.
    if (directory.map.needed > kDirectBlocks && work->report.Count(Kind::kBlockShared) > 0) continue;
    work->Begin("takes the last block out of " + NodeName(*work, directory.number) + ": it was already given back");
    CutNode(work, directory.number, directory.map.needed - 1, directory.record.size - kDirEntrySize);
  }
}

void FixDirectorySizes(RepairWork* work) {
  for (const NodeInfo& directory : work->model().nodes) {
    if (!IsWhole(directory)) continue;
    const std::uint32_t size = directory.record.size;
    if (size % kDirEntrySize != 0 || size < 2 * kDirEntrySize) {
      work->Begin("makes the size of " + NodeName(*work, directory.number) + " one of whole entries");
      SetSize(work, directory.number, std::max(2 * kDirEntrySize, size / kDirEntrySize * kDirEntrySize));
    } else if (directory.directory.past > 0) {
      FixPast(work, directory);
    } else if (directory.directory.holes > 0) {
      FixHoles(work, directory);
    }
  }
}

void RemoveEntries(RepairWork* work) {
  RepointEntry(work);
  if (work->changed) return;
  Removals removals;
  CollectSecondNames(*work, &removals);
  for (const NodeInfo& directory : work->model().nodes) {
    if (IsWhole(directory)) CollectUseless(*work, directory, &removals);
  }
  RemoveAll(work, removals);
}

void FixEntries(RepairWork* work) {
  for (const NodeInfo& directory : work->model().nodes) {
    if (!IsWhole(directory)) continue;
    FixNames(work, directory);
    for (const Entry& entry : directory.entries) {
      if (entry.index < 2) FixDot(work, directory, entry);
    }
  }
}

void BreakCycles(RepairWork* work) {
  const Model& model = work->model();
  Removals removals;
  for (const NodeInfo& node : model.nodes) {
    if (node.reach != Reach::kCycle || node.parent != 0) continue;
    for (const NameRef& name : node.names) {
      removals[name.directory][EntryOf(model, name).index] = "takes " + NodeName(*work, node.number) + " out of " +
                                                             NodeName(*work, name.directory) +
                                                             ", which lies in it: no path leads there";
    }
  }
  RemoveAll(work, removals);
}

std::uint64_t FindEntry(const RepairWork& work, const OrbNodeRecord& directory, std::uint32_t index) {
  const Geometry& geometry = work.geometry();
  // Blocks taken in this round are not yet counted in the model's geometry.
  Geometry now = geometry;
  now.blocks = static_cast<std::uint32_t>((work.image.Size() - geometry.dataOffset) / geometry.blockSize);
  const std::uint32_t block = FindBlock(work.image, now, directory, index / geometry.entriesPerBlock());
  return block == kNoBlock ? 0 : geometry.BlockOffset(block) + index % geometry.entriesPerBlock() * kDirEntrySize;
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

std::string UniqueName(const std::string& wish, std::set<std::string>* taken) {
  std::string name = wish;
  for (std::uint32_t i = 2; !taken->insert(name).second; ++i) {
    const std::string tail = "~" + to_string(i);
    name = wish.substr(0, kNameSize - 1 - tail.size()) + tail;
  }
  return name;
}

}  // namespace orba::inspect

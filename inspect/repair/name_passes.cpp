// Repair of names: which node an entry is the name of, and which entry a node keeps.
//
// May assume: node records, bitmap and block maps are sound, and each directory whose blocks are all there (IsWhole)
// counts its entries right. Changes: entries, and for copies new nodes and blocks.
//
// One principle decides: what a path reads is not taken away. Two names of a file are two files from now on, the second
// with a copy; a name is removed only where it leads to nothing, where the same directory has it twice, or where the
// mark vouches for an operation that was about to remove it. A directory cannot be copied and keeps the name that its
// ".." speaks for. Entries are given other nodes only where one node has lost its name and nothing else can be meant.
#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

constexpr std::size_t kMostActions = 10000;  // beyond that nobody reads a line for each name

// ---- Removing -------------------------------------------------------------------------------------------------------

// An entry to be given up, and why.
struct Removal {
  ActionKind kind;
  const Entry* entry;
  NameRef kept = {};  // kRemoveSecond, kEndMove, kEndRemoval: the name that stays
};

void BeginRemoval(RepairWork* work, std::uint16_t directory, const Removal& removal) {
  Action& action = work->Begin(removal.kind, directory);
  action.name = NameOf(removal.entry->record);
  action.first = removal.entry->record.node;
  action.other = removal.kind == ActionKind::kBreakCycle ? removal.entry->record.node : removal.kept.directory;
  action.otherPath = PathOf(work->model(), action.other);
  if (removal.kept.directory != 0) action.newName = NameOf(work->model().EntryOf(removal.kept).record);
}

// The removals are in the order of the entries; the last goes first.
void RemoveEach(RepairWork* work, std::uint16_t directory, const std::vector<Removal>& removals) {
  for (auto removal = removals.rbegin(); removal != removals.rend(); ++removal) {
    BeginRemoval(work, directory, *removal);
    RemoveEntry(work, directory, removal->entry->index);
  }
}

// The same as one action.
void RemoveMany(RepairWork* work, std::uint16_t directory, const std::vector<Removal>& removals) {
  work->Begin(ActionKind::kRemoveMany, directory).count = removals.size();
  for (auto removal = removals.rbegin(); removal != removals.rend(); ++removal) {
    RemoveEntry(work, directory, removal->entry->index);
  }
}

// Which of a file's names came last, as far as that can still be told.
std::size_t NewestName(const Model& model, const std::vector<NameRef>& names) {
  const auto rank = [&](const NameRef& name) {
    const NodeInfo& directory = model.nodes[name.directory];
    const TimeStamp& time = directory.record.time;
    const bool last = model.EntryOf(name).index + 1 == EntryCount(directory.record);
    return std::make_tuple(last, time.year, time.month, time.day, time.hour, time.minute, time.second, name.directory);
  };
  std::size_t newest = 0;
  for (std::size_t i = 1; i < names.size(); ++i) {
    if (rank(names[i]) > rank(names[newest])) newest = i;
  }
  return newest;
}

bool HasLegalName(const Entry& entry) { return IsLegalName(NameOf(entry.record)); }
bool HasLegalName(const Model& model, const NameRef& name) { return HasLegalName(model.EntryOf(name)); }

// The one to keep; a legal one if there is any.
NameRef RightName(const Model& model, const NodeInfo& node) {
  std::vector<NameRef> names;
  std::copy_if(node.names.begin(), node.names.end(), std::back_inserter(names),
               [&](const NameRef& name) { return HasLegalName(model, name); });
  if (names.empty()) names = node.names;
  const std::uint16_t up = DotDotOf(node);
  for (const NameRef& name : names) {
    if (name.directory == up) return name;
  }
  // All in one directory: the first is the one that a path finds. They are in the order of the directories.
  const bool apart = names.front().directory != names.back().directory;
  return apart ? names[NewestName(model, names)] : names.front();
}

// ---- What the mark vouches for --------------------------------------------------------------------------------------

bool HasSeveralNames(const NodeInfo& node) { return node.names.size() > 1; }

// The only node that the predicate holds for; null when there is none, or another one.
template <typename Predicate>
const NodeInfo* FindOnly(const Model& model, const Predicate& predicate) {
  const NodeInfo* found = nullptr;
  for (const NodeInfo& node : model.nodes) {
    if (!predicate(node)) continue;
    if (found != nullptr) return nullptr;
    found = &node;
  }
  return found;
}

// The only node that has lost its name; copies that repair made wait for theirs.
const NodeInfo* FindOnlyNameless(const RepairWork& work) {
  return FindOnly(work.model(),
                  [&](const NodeInfo& node) { return IsNameless(node) && work.bestNames.count(node.number) == 0; });
}

// A move was stopped before it took the old name away: the only node with two names has them in two directories.
bool IsStoppedMove(const RepairWork& work, const NodeInfo& node) {
  const Model& model = work.model();
  return node.names.size() == 2 && node.names[0].directory != node.names[1].directory &&
         HasLegalName(model, node.names[0]) && HasLegalName(model, node.names[1]);
}

// A removal fills the hole with the last entry and clears that, both in one block, and the front of the block alone was
// written, up to within the hole: the hole names the last entry's node, by a name that is partly another's.
bool IsStoppedRemoval(const RepairWork& work, const NodeInfo& node) {
  const Model& model = work.model();
  if (node.names.size() != 2) return false;
  const NameRef& name = node.names[1];
  const Entry& last = model.EntryOf(name);
  return model.EntryOf(node.names[0]).block == last.block &&
         last.index + 1 == EntryCount(model.nodes[name.directory].record);
}

// The name that the stopped operation was about to take away is removed, at most one in a repair.
bool FinishStopped(RepairWork* work) {
  const Model& model = work->model();
  if (!work->marked || work->vouched.node != 0) return false;
  const NodeInfo* const node = FindOnly(model, HasSeveralNames);
  if (node == nullptr) return false;
  const bool removal = IsStoppedRemoval(*work, *node);
  if (!removal && !IsStoppedMove(*work, *node)) return false;
  const NameRef right = removal ? node->names[1] : RightName(model, *node);
  const NameRef wrong = right == node->names[0] ? node->names[1] : node->names[0];
  if (!IsWhole(model.nodes[wrong.directory])) return false;
  work->vouched.node = node->number;
  const ActionKind kind = removal ? ActionKind::kEndRemoval : ActionKind::kEndMove;
  BeginRemoval(work, wrong.directory, {kind, &model.EntryOf(wrong), right});
  RemoveEntry(work, wrong.directory, model.EntryOf(wrong).index);
  return true;
}

// ---- Second names ---------------------------------------------------------------------------------------------------

bool AreEqual(const Model& model, const NameRef& one, const NameRef& other) {
  return UpperCase(NameOf(model.EntryOf(one).record)) == UpperCase(NameOf(model.EntryOf(other).record));
}

// From here on the mark stands for this repair: were it stopped, names that are left would look like a move's.
void NoteRepair(RepairWork* work) {
  const std::uint32_t flags = work->model().header.stateFlags | kRepairMark;
  if (!work->report.marked || flags == work->model().header.stateFlags || work->changed) return;
  work->Begin(ActionKind::kSetMark);
  work->PutWord(kStateFlagsOffset, flags);
}

// Gives the second names of files nodes and contents of their own. What cannot be copied is left for removal.
void CopySecondNames(RepairWork* work) {
  const Model& model = work->model();
  for (const NodeInfo& node : model.nodes) {
    if (!HasSeveralNames(node) || node.IsDirectory() || !work->IsNodeLeft()) continue;
    const NameRef right = RightName(model, node);
    std::set<std::pair<std::uint16_t, std::string>> seen;
    for (const NameRef& name : node.names) {
      const bool keep = name == right;
      const bool again = !seen.emplace(name.directory, UpperCase(NameOf(model.EntryOf(name).record))).second;
      if (keep || again || !HasLegalName(model, name) || !IsWhole(model.nodes[name.directory])) continue;
      const Entry& entry = model.EntryOf(name);
      NoteRepair(work);
      Action& action = work->Begin(ActionKind::kCopyNode, name.directory);
      action.name = NameOf(entry.record);
      action.newName = NameOf(model.EntryOf(right).record);
      action.other = right.directory;
      action.otherPath = PathOf(model, right.directory);
      action.first = node.number;
      const std::uint16_t copy = AddCopy(work, node.record, work->image);
      if (copy != 0) work->PutHalf(entry.offset, copy);
    }
  }
}

// By number: the name that a node with several keeps.
std::vector<NameRef> RightNames(const Model& model) {
  std::vector<NameRef> right(model.nodes.size());
  for (const NodeInfo& node : model.nodes) {
    if (HasSeveralNames(node)) right[node.number] = RightName(model, node);
  }
  return right;
}

// ---- Entries whose number was damaged -------------------------------------------------------------------------------

// Of different numbers.
bool IsOneBitAway(std::uint32_t a, std::uint32_t b) {
  const std::uint32_t bits = a ^ b;
  return (bits & (bits - 1)) == 0;
}

// Numbers are given out in order: the entry stands before or behind that of the node's neighbour.
bool StandsBeside(const Model& model, const NameRef& name, std::uint16_t node) {
  const std::vector<Entry>& entries = model.nodes[name.directory].entries;
  const bool behind = name.entry > 2 && entries[name.entry - 1].record.node + 1 == node;
  const bool before = name.entry + 1 < entries.size() && entries[name.entry + 1].record.node == node + 1;
  return behind || before;
}

// Which of the two names was `lost`'s before its number was damaged; null when that cannot be told. An illegal name is
// the damaged one; a directory's ".." tells where its name stands; else the one in `lost`'s place, if the other is not
// in it as well. One in the place of both may be sound.
const NameRef* DamagedName(const Model& model, const NodeInfo& node, const NodeInfo& lost) {
  const NameRef& first = node.names[0];
  const NameRef& second = node.names[1];
  const bool apart = first.directory != second.directory;
  const auto canBe = [&](const NameRef& name) {
    const bool right = apart && node.IsDirectory() && DotDotOf(node) == name.directory;
    return !right && (!lost.IsDirectory() || DotDotOf(lost) == name.directory);
  };
  if (canBe(first) != canBe(second)) return canBe(first) ? &first : &second;
  if (!canBe(first)) return nullptr;
  const bool legal = HasLegalName(model, first);
  if (legal != HasLegalName(model, second)) return legal ? &second : &first;
  const auto isMisplaced = [&](const NameRef& name) {
    return StandsBeside(model, name, lost.number) && !StandsBeside(model, name, node.number);
  };
  if (isMisplaced(first) == isMisplaced(second)) return nullptr;
  return isMisplaced(first) ? &first : &second;
}

// What the entry was read as until now is kept, where that was a file and there is room. Without room the name would
// go.
void Repoint(RepairWork* work, std::uint16_t directory, const Entry& entry, std::uint16_t lost) {
  Action& action = work->Begin(ActionKind::kRepoint, directory);
  action.name = NameOf(entry.record);
  action.first = lost;
  action.last = entry.record.node;
  const bool file = work->model().RefersToUsed(entry.record) && !work->model().nodes[entry.record.node].IsDirectory();
  if (file && HasLegalName(entry)) {  // without room it is node 0's name, for which nobody asks
    work->bestNames[AddCopy(work, work->model().nodes[entry.record.node].record, work->image)] = NameOf(entry.record);
  }
  work->PutHalf(entry.offset, lost);
}

// One entry's number was damaged and is another node's now: that node has two names, and `lost` has lost its own. Null
// where none can be told to be that node. `onlyTwice` is asked last.
const NodeInfo* FindTwice(const Model& model, const NodeInfo& lost, const NodeInfo* onlyTwice) {
  const NodeInfo* twice = nullptr;
  for (std::uint32_t bit = 1; bit < 0x10000; bit <<= 1) {
    const std::uint32_t number = lost.number ^ bit;
    if (!model.IsNode(number) || model.nodes[number].names.size() != 2) continue;
    if (twice != nullptr) return nullptr;
    twice = &model.nodes[number];
  }
  return twice != nullptr ? twice : onlyTwice;
}

// Which of its names is the damaged entry; null where that cannot be told.
const NameRef* FindDamagedName(const Model& model, const NodeInfo& lost, const NodeInfo& twice) {
  if (AreEqual(model, twice.names[0], twice.names[1])) return nullptr;
  const NameRef* const name = DamagedName(model, twice, lost);
  if (name == nullptr) return nullptr;
  const bool likely = lost.IsDirectory() || IsOneBitAway(twice.number, lost.number) || !HasLegalName(model, *name);
  return likely ? name : nullptr;
}

// An entry that leads to no node.
struct Dangling {
  std::uint16_t directory;
  const Entry* entry;
};

std::vector<Dangling> FindDangling(const Model& model) {
  std::vector<Dangling> found;
  for (const NodeInfo& directory : model.nodes) {
    for (const Entry& entry : directory.entries) {
      if (entry.index >= 2 && !entry.pastSize && !model.RefersToUsed(entry.record)) {
        found.push_back({directory.number, &entry});
      }
    }
  }
  return found;
}

bool CanBeNameOf(const Dangling& name, const NodeInfo& node) {
  return !node.IsDirectory() || DotDotOf(node) == name.directory;
}

// The only node without a name that the entry can have been the name of before one bit of its number was damaged.
const NodeInfo* FindOneBitAway(const Model& model, const Dangling& name) {
  const NodeInfo* found = nullptr;
  for (std::uint32_t bit = 1; bit < 0x10000; bit <<= 1) {
    const std::uint32_t number = name.entry->record.node ^ bit;
    if (!model.IsNode(number) || !IsNameless(model.nodes[number]) || !CanBeNameOf(name, model.nodes[number])) continue;
    if (model.nodes[number].record.size == 0) continue;  // a bit of the bitmap may be what was damaged
    if (found != nullptr) return nullptr;
    found = &model.nodes[number];
  }
  return found;
}

// Entries that lead to no node get the nodes without a name that they can have been the names of, where that is
// certain.
void RepointDangling(RepairWork* work) {
  const Model& model = work->model();
  const std::vector<Dangling> dangling = FindDangling(model);
  std::map<std::uint16_t, std::vector<const Dangling*>> claims;  // by node
  for (const Dangling& name : dangling) {
    const NodeInfo* const node = FindOneBitAway(model, name);
    if (node != nullptr) claims[node->number].push_back(&name);
  }
  for (const auto& [node, names] : claims) {
    if (names.size() == 1) Repoint(work, names[0]->directory, *names[0]->entry, node);
  }
  if (work->changed || dangling.size() != 1) return;
  const NodeInfo* const lost = FindOnlyNameless(*work);
  if (lost != nullptr && IsPlausible(work->geometry(), lost->number, lost->record) &&
      CanBeNameOf(dangling.front(), *lost)) {
    Repoint(work, dangling.front().directory, *dangling.front().entry, lost->number);
  }
}

void RepointSecondNames(RepairWork* work) {
  const Model& model = work->model();
  const NodeInfo* const onlyTwice = FindOnly(model, HasSeveralNames);
  const bool single = onlyTwice != nullptr && onlyTwice->names.size() == 2 && FindOnlyNameless(*work) != nullptr;
  std::map<std::uint16_t, std::vector<const NodeInfo*>> claims;  // of lost nodes, by the node with two names
  for (const NodeInfo& node : model.nodes) {
    if (!IsNameless(node) || node.record.size == 0) continue;  // nothing is worth the risk to take a path that reads
    const NodeInfo* const twice = FindTwice(model, node, single ? onlyTwice : nullptr);
    if (twice != nullptr) claims[twice->number].push_back(&node);
  }
  for (const auto& [number, lost] : claims) {
    if (lost.size() != 1) continue;
    const NameRef* const name = FindDamagedName(model, *lost.front(), model.nodes[number]);
    if (name != nullptr) Repoint(work, name->directory, model.EntryOf(*name), lost.front()->number);
  }
}

// ---- Entries to be removed ------------------------------------------------------------------------------------------

// Second names, and entries that lead nowhere; `right` are the names that stay.
std::vector<Removal> FindUseless(const RepairWork& work, const NodeInfo& directory, const std::vector<NameRef>& right) {
  const Model& model = work.model();
  std::vector<Removal> removals;
  std::unordered_map<std::string, std::uint16_t> seen;
  for (std::size_t i = 0; i < directory.entries.size(); ++i) {
    const Entry& entry = directory.entries[i];
    if (entry.index < 2 || entry.pastSize) continue;
    const auto [first, fresh] = seen.emplace(UpperCase(NameOf(entry.record)), entry.record.node);
    const bool leads = model.RefersToUsed(entry.record);
    const NameRef kept = leads ? right[entry.record.node] : NameRef{};
    if (kept == NameRef{directory.number, static_cast<std::uint32_t>(i)}) continue;
    if (!fresh && first->second == entry.record.node) {
      removals.push_back({ActionKind::kRemoveTwice, &entry});
    } else if (!leads) {
      removals.push_back({ActionKind::kRemoveDangling, &entry});
    } else if (kept.directory != 0) {
      removals.push_back({ActionKind::kRemoveSecond, &entry, kept});
    }
  }
  return removals;
}

// A node that the bitmap calls free, and that was emptied as one that was removed is: only a name speaks for it.
bool ReviveEmpty(RepairWork* work) {
  std::set<std::uint16_t> revived;
  for (const Dangling& name : FindDangling(work->model())) {
    if (!NamesNode(*work, *name.entry) || !CanBeRevived(*work, name.entry->record.node)) continue;
    if (!revived.insert(name.entry->record.node).second) continue;
    work->Begin(ActionKind::kUseNamed, name.entry->record.node).name = NameOf(name.entry->record);
    work->SetFree(name.entry->record.node, false);
  }
  return work->changed;
}

}  // namespace

void UndoTornRemovals(RepairWork* work) {
  const Model& model = work->model();
  if (!work->marked || work->vouched.node != 0) return;
  const NodeInfo* const lost = FindOnlyNameless(*work);
  if (lost == nullptr) return;
  const NodeInfo* const directory =
      FindOnly(model, [](const NodeInfo& node) { return IsWhole(node) && node.directory.removalInterrupted; });
  if (directory == nullptr || !CanBeNameOf({directory->number, nullptr}, *lost)) return;
  std::uint8_t bytes[kDirEntrySize];
  if (!work->image.Read(directory->directory.holeOffset, bytes, sizeof bytes)) return;
  const std::string name = NameOf(DecodeEntry(bytes));
  const bool legal = IsLegalName(name) && UpperCase(name) == name;
  const bool there = std::any_of(directory->entries.begin(), directory->entries.end(),
                                 [&](const Entry& entry) { return UpperCase(NameOf(entry.record)) == name; });
  if (!legal || there) return;
  work->vouched.node = lost->number;
  Action& action = work->Begin(ActionKind::kUndoRemoval, directory->number);
  action.name = name;
  action.first = lost->number;
  work->PutHalf(directory->directory.holeOffset, lost->number);
}

void FixNames(RepairWork* work) {
  RepointDangling(work);
  if (work->changed || ReviveEmpty(work)) return;
  RepointSecondNames(work);
  if (work->changed || FinishStopped(work)) return;
  CopySecondNames(work);
  if (work->changed) return;
  const std::vector<NameRef> right = RightNames(work->model());
  for (const NodeInfo& directory : work->model().nodes) {
    if (!IsWhole(directory)) continue;
    const std::vector<Removal> removals = FindUseless(*work, directory, right);
    if (removals.empty()) continue;
    const bool many = !work->keepsActions || work->actions.size() + removals.size() > kMostActions;
    (many ? RemoveMany : RemoveEach)(work, directory.number, removals);
  }
}

void BreakCycles(RepairWork* work) {
  const Model& model = work->model();
  for (const NodeInfo& directory : model.nodes) {
    std::vector<Removal> removals;
    for (const Entry& entry : directory.entries) {
      if (entry.index < 2 || !model.RefersToUsed(entry.record)) continue;
      const NodeInfo& node = model.nodes[entry.record.node];
      if (node.reach == Reach::kCycle && node.parent == 0) removals.push_back({ActionKind::kBreakCycle, &entry});
    }
    RemoveEach(work, directory.number, removals);
  }
}

}  // namespace orba::inspect

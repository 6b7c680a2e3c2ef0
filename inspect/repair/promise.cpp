#include "inspect/repair/promise.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "inspect/check/finding.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/container/reader.h"

namespace orba::inspect {

namespace {

using std::to_string;

constexpr const char* kLostFound = "/LOST.FND";

// A name of a directory: the directory that holds it and the name, in upper case.
using DirectoryName = std::pair<std::uint16_t, std::string>;

// A file of the repaired container.
struct Found {
  Node node;
  bool inLostFound;
  bool matched = false;  // it is what a file before was
  bool stays = false;    // there was a file at its path
};

// A place in the tree before, from which paths are made when they are needed. The root's is the first.
struct Place {
  std::uint32_t parent;
  std::string name;
};

// A file that is not at its path any more.
struct Missing {
  std::uint32_t place;
  Node node;
  bool weak;  // it may be anywhere
};

// A directory whose files are to be looked for, in the one that it has become.
struct Pair {
  Node before;
  Node after;  // no directory where it is gone
  std::uint32_t place;
  bool weak;   // no path leads there
  bool alias;  // its first block is another directory's, to which a path leads
};

bool LeadsThere(const Listed& entry) {
  return !entry.problem.IsFailure() && !entry.nameProblem && entry.place != Listed::Place::kBehindHole;
}

// Below /LOST.FND, or /LOST.FND~2 and so on where that name was taken.
bool IsInLostFound(const std::string& path) {
  const std::size_t length = std::strlen(kLostFound);
  return path.compare(0, length, kLostFound) == 0 && (path[length] == '/' || path[length] == '~') &&
         path.find('/', length) != std::string::npos;
}

// The number in the "." of the directory, 0 where there is none.
std::uint16_t DotOf(Reader* reader, const Node& directory) {
  std::uint8_t bytes[kDirEntrySize] = {};
  std::uint32_t done = 0;
  reader->Read(directory, 0, bytes, sizeof bytes, &done);
  const OrbDirEntry dot = DecodeEntry(bytes);
  return NameOf(dot) == "." ? dot.node : std::uint16_t{0};
}

class Judge {
 public:
  Judge(const Image& before, const Image& after, const Vouched& vouched, const Touched& touched)
      : before_(before),
        after_(after),
        vouched_(vouched),
        touched_(touched),
        beforeBudget_(before_.geometry()),
        afterBudget_(after_.geometry()) {}

  Promise Run();

 private:
  // A directory after, with its entries by what leads to them.
  struct Index {
    Listing listing;
    std::unordered_map<std::string, std::size_t> byName;
    std::unordered_map<std::uint16_t, std::size_t> byNode;
  };
  // Files after, by what they hold; of a size once it was asked for.
  struct Pool {
    bool lostFoundAlone;
    std::unordered_set<std::uint32_t> sizes;
    std::unordered_multimap<std::uint64_t, std::uint32_t> byHash;
  };

  void NoteNames();
  void WalkAfter();

  void ComparePair(const Pair& pair);
  void CompareDirectory(const Listed& entry, const Pair& pair, const Listed* match);
  void CompareFile(const Listed& entry, const Pair& pair, const Listed* match);
  bool IsAlias(const Node& directory);
  static const Listed* MatchFor(const Listed& entry, const Index& after);
  std::uint32_t AddPlace(const Pair& pair, const Listed& entry);

  Trouble FindTrouble(Reader* reader, const Node& file, Budget* budget) const;
  bool IsWhole(Reader* reader, const Node& file, Budget* budget) const {
    return FindTrouble(reader, file, budget) == Trouble::kNone;
  }
  bool IsSame(const Node& before, const Node& after);
  bool IsSamePiece(std::uint64_t before, std::uint64_t after, std::uint64_t bytes) const;
  std::uint64_t Hash(Reader* reader, const Node& file) const;

  void Fill(Pool* pool, std::uint32_t size);
  bool FindMissing(const Missing& missing);
  void Excuse(const std::vector<Missing>& missing);
  std::string PathOf(std::uint32_t place) const;

  Reader before_;
  Reader after_;
  const Vouched vouched_;
  const Touched& touched_;
  Budget beforeBudget_;
  Budget afterBudget_;
  Promise promise_;

  std::multimap<std::uint16_t, DirectoryName> names_;                         // of directories before
  std::unordered_map<std::uint16_t, DirectoryName> directories_;              // after, by number
  std::unordered_map<std::uint16_t, Node> afterNodes_;                        // these directories
  std::vector<Found> found_;                                                  // files after
  std::map<std::pair<std::uint16_t, std::uint32_t>, std::uint32_t> foundAt_;  // by directory and entry
  std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> bySize_;      // found_, by size

  std::unordered_map<std::uint16_t, Node> standsFor_;  // copies under /LOST.FND, by the node before

  Pool all_ = {false, {}, {}};
  Pool lostFound_ = {true, {}, {}};

  std::vector<Place> places_;
  std::vector<Pair> pairs_;
  std::vector<Pair> weakPairs_;
  std::unordered_set<std::uint16_t> entered_;    // directories before, by the entry that led there
  std::unordered_set<std::uint16_t> looked_;     // the same, by the number in their records
  std::unordered_set<std::uint16_t> keptNodes_;  // files before
  std::vector<Missing> missing_;
};

// ---- Both sides -----------------------------------------------------------------------------------------------------

// The names of directories before: where one has several, it is enough that one of them stays.
void Judge::NoteNames() {
  Node root;
  if (before_.Root(&root).IsFailure()) return;
  Budget budget(before_.geometry());
  const auto note = [&](const Step& step) {
    if (step.what != Step::What::kEntry) return Onward::kOn;
    if (!LeadsThere(*step.entry) || step.entry->node.record.number != step.entry->number) return Onward::kPast;
    if (step.entry->node.directory) {
      names_.emplace(step.entry->number, DirectoryName(step.directory.number, UpperCase(step.entry->name)));
    }
    return Onward::kOn;
  };
  Walk(&before_, root, "", note, &budget);
}

// What the repaired container holds.
void Judge::WalkAfter() {
  Node root;
  if (after_.Root(&root).IsFailure()) return;
  const auto take = [&](const Step& step) {
    if (step.what != Step::What::kEntry || !LeadsThere(*step.entry)) return Onward::kPast;
    const Listed& entry = *step.entry;
    if (entry.node.directory) {
      directories_[entry.number] = DirectoryName(step.directory.number, UpperCase(entry.name));
      afterNodes_[entry.number] = entry.node;
      return Onward::kOn;
    }
    const auto index = static_cast<std::uint32_t>(found_.size());
    found_.push_back({entry.node, IsInLostFound(step.path)});
    foundAt_[{step.directory.number, entry.index}] = index;
    bySize_[entry.node.size()].push_back(index);
    return Onward::kOn;
  };
  Walk(&after_, root, "", take, &afterBudget_);
}

Promise Judge::Run() {
  NoteNames();
  WalkAfter();
  Pair top = {};
  if (!before_.Root(&top.before).IsFailure()) {
    after_.Root(&top.after);
    places_.emplace_back();
    entered_.insert(kRootNode);
    looked_.insert(top.before.record.number);
    pairs_.push_back(top);
  }
  while (!pairs_.empty() || !weakPairs_.empty()) {
    std::vector<Pair>* const from = pairs_.empty() ? &weakPairs_ : &pairs_;
    const Pair pair = from->back();
    from->pop_back();
    ComparePair(pair);
  }
  std::vector<Missing> lost;
  for (const Missing& missing : missing_) {
    if (!FindMissing(missing)) lost.push_back(missing);
  }
  Excuse(lost);
  for (const Found& found : found_) {
    const bool whole = !found.matched && IsWhole(&after_, found.node, &afterBudget_);
    const bool toLost = found.inLostFound && !found.stays;
    promise_.regained += whole ? 1 : 0;
    promise_.unnamed += whole && toLost ? 1 : 0;
    promise_.toLost += toLost ? 1 : 0;
  }
  return promise_;
}

// ---- Directory by directory -----------------------------------------------------------------------------------------

// The entry of `after`, a directory's listing, that `entry` has become: by its name, or, where none need lead there, by
// its node. Null where there is none.
const Listed* Judge::MatchFor(const Listed& entry, const Index& after) {
  if (!entry.nameProblem) {
    const auto match = after.byName.find(UpperCase(entry.name));
    return match == after.byName.end() ? nullptr : &after.listing.entries[match->second];
  }
  const auto match = after.byNode.find(entry.number);
  return match == after.byNode.end() ? nullptr : &after.listing.entries[match->second];
}

void Judge::ComparePair(const Pair& pair) {
  const Listing before = before_.List(pair.before, &beforeBudget_);
  Index after;
  after.listing = after_.List(pair.after);
  for (std::size_t i = 0; i < after.listing.entries.size(); ++i) {
    const Listed& entry = after.listing.entries[i];
    if (!LeadsThere(entry)) continue;
    after.byName.emplace(UpperCase(entry.name), i);
    after.byNode.emplace(entry.number, i);
  }
  for (const Listed& entry : before.entries) {
    if (entry.problem.IsFailure()) continue;
    const Listed* const match = MatchFor(entry, after);
    if (entry.node.directory) {
      CompareDirectory(entry, pair, match);
    } else {
      CompareFile(entry, pair, match);
    }
  }
}

std::uint32_t Judge::AddPlace(const Pair& pair, const Listed& entry) {
  places_.push_back({pair.place, entry.name});
  return static_cast<std::uint32_t>(places_.size() - 1);
}

bool Judge::IsAlias(const Node& directory) {
  const std::uint16_t dot = DotOf(&before_, directory);
  if (dot == directory.number || (dot != kRootNode && names_.count(dot) == 0)) return false;
  Node other;  // there, as a path leads to it
  before_.ReadNode(dot, &other);
  return DotOf(&before_, other) == dot;
}

void Judge::CompareDirectory(const Listed& entry, const Pair& pair, const Listed* match) {
  const std::uint16_t recorded = entry.node.record.number;
  const bool weak = pair.weak || !LeadsThere(entry) || recorded != entry.number;
  if (entered_.count(entry.number) > 0) return;
  // The slot of another directory, which is looked through under its own number.
  if (recorded != entry.number && (looked_.count(recorded) > 0 || names_.count(recorded) > 0)) return;
  if (weak && names_.count(entry.number) > 0) return;  // a path leads there elsewhere
  entered_.insert(entry.number);
  looked_.insert(recorded);
  Pair below = {};
  below.before = entry.node;
  // Under another of the names that it had, where it kept that one.
  const auto now = directories_.find(entry.number);
  const auto names = names_.equal_range(entry.number);
  const bool named = now != directories_.end() && std::any_of(names.first, names.second, [&](const auto& name) {
                       return name.second == now->second;
                     });
  if (named) {
    below.after = afterNodes_[entry.number];
  } else if (match != nullptr) {
    below.after = match->node;
  }
  below.place = AddPlace(pair, entry);
  below.weak = weak;
  below.alias = IsAlias(entry.node);
  (weak ? weakPairs_ : pairs_).push_back(below);
}

void Judge::CompareFile(const Listed& entry, const Pair& pair, const Listed* match) {
  Found* found = nullptr;
  if (match != nullptr) {
    const auto at = foundAt_.find({pair.after.number, match->index});
    if (at != foundAt_.end()) found = &found_[at->second];
  }
  if (found != nullptr) found->stays = true;
  // The record of a file that was removed, or another's that holds nothing: nothing is there to be read.
  if (entry.node.size() == 0 && (entry.node.free || entry.node.record.number != entry.number)) return;
  // A directory by its attributes, and it has turned out to be one.
  if ((entry.node.record.attributes & ORB_NODE_DIRECTORY) != 0 && directories_.count(entry.number) > 0) return;
  const Trouble trouble = FindTrouble(&before_, entry.node, &beforeBudget_);
  if (trouble == Trouble::kCrossed) {
    ++promise_.unread;
    if (found != nullptr) found->matched = true;
    return;
  }
  if (trouble != Trouble::kNone) {
    if (found == nullptr || !IsWhole(&after_, found->node, nullptr)) return;
    found->matched = true;
    ++promise_.mended;
    return;
  }
  ++promise_.readable;
  if (found != nullptr && IsSame(entry.node, found->node)) {
    found->matched = true;
    keptNodes_.insert(entry.number);
    ++promise_.kept;
    return;
  }
  const bool another = pair.alias && entry.index < before_.geometry().entriesPerBlock();
  const bool weak = pair.weak || another || !LeadsThere(entry) || entry.node.record.number != entry.number;
  missing_.push_back({AddPlace(pair, entry), entry.node, weak});
}

// ---- Contents -------------------------------------------------------------------------------------------------------

// What keeps the file from being read whole.
Trouble Judge::FindTrouble(Reader* reader, const Node& file, Budget* budget) const {
  const std::uint64_t blocks = reader->geometry().BlocksFor(file.size());
  if (blocks > reader->geometry().blocks) return Trouble::kBlockOutside;
  Extent extent;
  for (std::uint64_t index = 0; index < blocks; index += extent.count) {
    const Problem problem = reader->FindExtent(file, index, blocks, &extent, budget);
    if (problem) return problem.trouble;
  }
  return Trouble::kNone;
}

bool Judge::IsSamePiece(std::uint64_t before, std::uint64_t after, std::uint64_t bytes) const {
  if (touched_ && before == after && !touched_(before, bytes)) return true;
  std::vector<std::uint8_t> a(static_cast<std::size_t>(bytes));
  std::vector<std::uint8_t> b(a.size());
  return before_.image().Read(before, a.data(), a.size()) && after_.image().Read(after, b.data(), b.size()) && a == b;
}

// `before` is whole. Both sides have one block size: a repair cannot change it and keep anything.
bool Judge::IsSame(const Node& before, const Node& after) {
  constexpr std::uint64_t kMost = 16;  // blocks compared at a time
  if (before.size() != after.size() || before_.geometry().blockSize != after_.geometry().blockSize) return false;
  const std::uint64_t blockSize = before_.geometry().blockSize;
  const std::uint64_t blocks = before_.geometry().BlocksFor(before.size());
  for (std::uint64_t index = 0; index < blocks;) {
    Extent from;
    Extent to;
    if (before_.FindExtent(before, index, kMost, &from) || after_.FindExtent(after, index, kMost, &to)) return false;
    const std::uint64_t count = std::min(from.count, to.count);
    const std::uint64_t bytes = std::min(count * blockSize, before.size() - index * blockSize);
    if (!IsSamePiece(before_.geometry().BlockOffset(from.block), after_.geometry().BlockOffset(to.block), bytes)) {
      return false;
    }
    index += count;
  }
  return true;
}

std::uint64_t Judge::Hash(Reader* reader, const Node& file) const {
  std::uint64_t hash = 0xCBF29CE484222325;
  const auto mix = [&hash](const std::uint8_t* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) hash = (hash ^ bytes[i]) * 0x100000001B3;
    return true;
  };
  reader->ReadAll(file, mix);
  return hash;
}

// ---- What is not at its path ----------------------------------------------------------------------------------------

// Adds the files of this size, unless they are there.
void Judge::Fill(Pool* pool, std::uint32_t size) {
  if (!pool->sizes.insert(size).second) return;
  const auto files = bySize_.find(size);
  if (files == bySize_.end()) return;
  for (const std::uint32_t index : files->second) {
    const Found& found = found_[index];
    const bool wanted = !pool->lostFoundAlone || (found.inLostFound && !found.matched);
    if (wanted) pool->byHash.emplace(Hash(&after_, found.node), index);
  }
}

// Looks for the contents under /LOST.FND, where each file stands for one; those of a weak one anywhere.
bool Judge::FindMissing(const Missing& missing) {
  constexpr int kMostTries = 16;
  Pool* const pool = missing.weak ? &all_ : &lostFound_;
  // What one node was read as by several paths, one copy stands for.
  const auto copy = standsFor_.find(missing.node.number);
  if (copy != standsFor_.end() && IsSame(missing.node, copy->second)) {
    ++promise_.kept;
    return true;
  }
  Fill(pool, missing.node.size());
  auto at = pool->byHash.equal_range(Hash(&before_, missing.node));
  for (int tries = 0; at.first != at.second && tries < kMostTries; ++tries, ++at.first) {
    Found& found = found_[at.first->second];
    if (!IsSame(missing.node, found.node)) continue;
    found.matched = true;
    keptNodes_.insert(missing.node.number);
    ++promise_.kept;
    if (!missing.weak) {
      standsFor_.emplace(missing.node.number, found.node);
      pool->byHash.erase(at.first);
    }
    return true;
  }
  return false;
}

// One object may have lost a name, or all, to the operation that the mark vouches for.
void Judge::Excuse(const std::vector<Missing>& missing) {
  const bool vouches = before_.marked() && !vouched_.none;
  std::uint16_t node = vouched_.node;
  for (const Missing& file : missing) {
    const bool meant = vouches && (node == 0 || node == file.node.number);
    if (meant && (file.node.size() == 0 || keptNodes_.count(file.node.number) > 0)) {
      node = file.node.number;
      if (promise_.excused++ == 0) promise_.firstExcused = PathOf(file.place);
      continue;
    }
    promise_.lostFiles.push_back({places_[file.place].name, file.node.number, file.node.record});
    if (promise_.losses.size() < kMostLosses) promise_.losses.push_back(PathOf(file.place));
  }
}

std::string Judge::PathOf(std::uint32_t place) const {
  constexpr std::size_t kLongest = 1000;
  std::string path;
  for (; place != 0; place = places_[place].parent) {
    if (path.size() > kLongest) return "..." + path;
    path.insert(0, "/" + Printable(places_[place].name));
  }
  return path;
}

}  // namespace

Promise JudgePromise(const Image& before, const Image& after, const Vouched& vouched, const Touched& touched) {
  return Judge(before, after, vouched, touched).Run();
}

std::string ExcusedText(const Promise& promise) {
  constexpr const char* kOperation = " with the interrupted operation";
  if (promise.excused == 0) return "";
  if (promise.excused == 1) return promise.firstExcused + " ends" + kOperation;
  return to_string(promise.excused) + " end" + kOperation + ", first " + promise.firstExcused;
}

std::string UnreadText(const Promise& promise) {
  const bool one = promise.unread == 1;
  return "whether " + Counted(promise.unread, "file") + (one ? " is" : " are") +
         " kept is not known: " + (one ? "it reads" : "they read") + " the same blocks as others over and over";
}

std::string ToText(const Promise& promise) {
  std::string text = "keeps " + to_string(promise.kept) + " of " + Counted(promise.readable, "readable file");
  if (promise.unread > 0) text += "; " + UnreadText(promise);
  if (promise.excused > 0) text += "; " + ExcusedText(promise);
  if (promise.regained > 0) {
    text += "; " + to_string(promise.regained) + (promise.regained == 1 ? " more comes back" : " more come back");
  }
  if (promise.toLost > 0) {
    text += "; " + to_string(promise.toLost) + (promise.toLost == 1 ? " goes" : " go") + " to " + kLostFound;
  }
  text += "\n";
  for (const std::string& path : promise.losses) text += "would lose " + path + "\n";
  if (promise.lost() > promise.losses.size()) {
    text += "would lose " + to_string(promise.lost() - promise.losses.size()) + " more\n";
  }
  return text;
}

}  // namespace orba::inspect

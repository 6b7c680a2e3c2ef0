#include "inspect/repair/repair.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

using std::to_string;

constexpr Pass kPasses[] = {
    FixHeader, FillTail,   FixTable,    CutOutside,     ReturnSectors,   RegainRecords,    RegainDirectories,
    FixSlots,  FixBitmap,  ReviveNodes, FixRecords,     DropFreedBlocks, RegainMaps,       RegainEntries,
    Unshare,   CutForeign, FixMaps,     FixRoot,        EmptyCopies,     UndoTornRemovals, FixDirectorySizes,
    FixNames,  FixEntries, BreakCycles, FixLeakedNodes, FixChain};

// Far more rounds than any damage takes; a guard against passes that undo each other.
constexpr int kMostRounds = 100;

// Runs the passes up to the first that changes something, and tells whether there was one.
bool RunRound(RepairWork* work) {
  return std::any_of(std::begin(kPasses), std::end(kPasses), [work](Pass pass) {
    pass(work);
    return work->changed;
  });
}

void MakeClean(RepairWork* work) {
  work->Recheck();
  for (int round = 0; round < kMostRounds; ++round) {
    if (work->unreadable || work->report.IsClean() || !RunRound(work)) return;
    work->Recheck();
  }
}

// Notes a failure to read what the check before the repair has read.
class WatchedImage : public Image {
 public:
  explicit WatchedImage(const Image& base) : base_(base) {}

  std::uint64_t Size() const override { return base_.Size(); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    if (base_.Read(offset, out, count)) return true;
    if (count <= Size() && offset <= Size() - count) failed_ = true;
    return false;
  }

  bool failed() const { return failed_; }

 private:
  const Image& base_;
  mutable bool failed_ = false;
};

// ---- The promise ----------------------------------------------------------------------------------------------------

Promise Judge(const RepairWork& work, const Image& before) {
  const auto touched = [&](std::uint64_t offset, std::uint64_t count) { return work.image.Touches(offset, count); };
  Vouched vouched = work.vouched;
  vouched.none = !work.marked;
  return JudgePromise(before, work.image, vouched, touched);
}

// ---- Ends -----------------------------------------------------------------------------------------------------------

// Where what is in use ends.
std::uint64_t EndOfUse(const Model& model) {
  const std::vector<BlockInfo>& blocks = model.blocks;
  const auto last = std::find_if(blocks.rbegin(), blocks.rend(),
                                 [](const BlockInfo& block) { return block.use != BlockUse::kNothing; });
  return model.geometry.BlockOffset(static_cast<std::uint32_t>(blocks.rend() - last));
}

// A plan only adds; what must be taken off the end is for a person to say.
std::string TooLong(const Report& report) {
  const std::string what = "the container has 2^31 bytes or more, and repair takes nothing off its end; ";
  if (report.Count(Severity::kDamage) + report.Count(Severity::kInterrupted) > report.Count(Kind::kContainerLong)) {
    return what + "it is damaged as well: recover what it holds";
  }
  return what + "cut it to " + to_string(EndOfUse(report.model)) + " bytes, where what is in use ends";
}

std::string Hopeless(const Report& report) {
  if (report.Count(Kind::kUnreadable) > 0) {
    return "the host cannot read all of the container; copy what can be read to a sound medium and repair the copy";
  }
  if (report.Count(Kind::kLayoutUnknown) > 0) {
    return "no block size and no root directory can be made out; this may be no container at all";
  }
  if (report.model.nodes.empty()) {
    return "the container ends before its data area; nothing of what it held can be saved";
  }
  return report.Count(Kind::kContainerLong) > 0 ? TooLong(report) : "";
}

// A mount takes the container as it is.
bool Mounts(const Report& report) {
  return !report.marked && report.Count(Kind::kHeaderSignature) + report.Count(Kind::kHeaderVersion) +
                                   report.Count(Kind::kHeaderField) + report.Count(Kind::kRootLost) ==
                               0;
}

void ClearMark(RepairWork* work) {
  work->Begin(ActionKind::kClearMark);
  work->PutWord(kStateFlagsOffset, 0);
  work->Recheck();
}

bool IsWholeAndEmpty(const NodeInfo& directory) {
  return directory.state == NodeState::kUsed && directory.directory.firstBlockRead &&
         directory.map.present == directory.map.needed && directory.entries.size() <= 2;
}

// There were files, or nodes of which nothing is known, and none of them is left.
bool LosesAll(const Plan& plan) {
  const auto isLoss = [](const NodeInfo& node) {
    return node.number != kRootNode &&
           (node.state == NodeState::kLost ||
            (node.state == NodeState::kUsed && !node.IsDirectory() && node.record.size > 0));
  };
  if (!plan.possible || plan.after.totals.files > 0 || plan.after.totals.directories > 1) return false;
  const std::vector<NodeInfo>& nodes = plan.before.model.nodes;
  return !IsWholeAndEmpty(nodes[kRootNode]) && std::any_of(nodes.begin(), nodes.end(), isLoss);
}

// Files can be added before anything is repaired: the layout, the root and the container's end are as they should be.
bool CanKeepFirst(const RepairWork& work) {
  const Report& report = work.report;
  const NodeInfo& root = work.model().nodes[kRootNode];
  return report.Count(Kind::kHeaderField) == 0 && !work.model().tailNamed && IsWhole(root) &&
         root.directory.holes == 0 && root.directory.past == 0 && root.record.size % kDirEntrySize == 0 &&
         std::none_of(root.entries.begin(), root.entries.end(),
                      [&](const Entry& entry) { return work.model().blocks[entry.block].shared; });
}

// Makes the image clean. Files that this would cost but for copies are named in `losses`: these copies are made first,
// where that is possible, else last. Without them it may break the promise.
Promise Mend(RepairWork* work, const Image& before, const std::vector<Loss>* losses) {
  if (losses != nullptr && work->report.Count(Kind::kHeaderField) > 0) {
    FixHeader(work);  // changes nothing that files are read from
    work->Recheck();
  }
  if (losses != nullptr && CanKeepFirst(*work)) {
    // Copies are appended where these numbers lead.
    CutOutside(work);
    work->careful = true;
    KeepCopies(work, before, *losses);
    work->careful = false;
  }
  MakeClean(work);
  Promise promise = Judge(*work, before);
  if (losses == nullptr || promise.lost() == 0 || work->unreadable) return promise;
  KeepCopies(work, before, promise.lostFiles);
  MakeClean(work);
  return Judge(*work, before);
}

Plan Draft(const Image& image, const TimeStamp& now, Report before, const std::vector<Loss>* losses) {
  Plan plan;
  plan.before = std::move(before);
  RepairWork work(image, now, plan.before);
  plan.promise = Mend(&work, image, losses);
  if (!work.report.IsClean()) {
    plan.problem = Counted(work.report.Count(Severity::kDamage) + work.report.Count(Severity::kInterrupted) +
                               work.report.Count(Severity::kLeak),
                           "finding") +
                   " left" + (Mounts(plan.before) ? "" : ", and the container stays marked");
  }
  if (work.report.marked && (plan.problem.empty() || Mounts(plan.before))) ClearMark(&work);
  if (!work.actions.empty() && work.actions.back().writes.empty()) work.actions.pop_back();
  plan.actions = std::move(work.actions);
  plan.possible = !work.unreadable;
  plan.after = std::move(work.report);
  return plan;
}

Plan Impossible(Report before, const std::string& problem) {
  Plan plan;
  plan.before = std::move(before);
  plan.after = plan.before;
  plan.problem = problem;
  return plan;
}

}  // namespace

Plan PlanRepair(const Image& image, const TimeStamp& now) {
  Report before = Check(image);
  const std::string problem = Hopeless(before);
  if (!problem.empty()) return Impossible(std::move(before), problem);
  const WatchedImage watched(image);
  Plan plan = Draft(watched, now, std::move(before), nullptr);
  if (plan.possible && plan.promise.lost() > 0) {
    const std::vector<Loss> losses = plan.promise.lostFiles;
    plan = Draft(watched, now, std::move(plan.before), &losses);
  }
  if (plan.possible && !watched.failed()) return plan;
  return Impossible(
      std::move(plan.before),
      "what could be read before cannot be read again: the container is being changed, or its medium fails");
}

std::optional<Promise> ForeseeRepair(const Image& image, const TimeStamp& now, Report checked) {
  if (!Hopeless(checked).empty()) return std::nullopt;
  const WatchedImage watched(image);
  const auto foresee = [&](Report report, const std::vector<Loss>* losses) -> std::optional<Promise> {
    RepairWork work(watched, now, std::move(report));
    work.keepsActions = false;
    Promise promise = Mend(&work, watched, losses);
    if (work.unreadable || watched.failed()) return std::nullopt;
    return promise;
  };
  std::optional<Promise> promise = foresee(std::move(checked), nullptr);
  if (!promise.has_value() || promise->lost() == 0) return promise;
  Report again = Check(watched);
  if (!Hopeless(again).empty()) return std::nullopt;
  return foresee(std::move(again), &promise->lostFiles);
}

std::string StepsText(const Plan& plan) {
  std::string text;
  if (LosesAll(plan)) text += "nothing of what the container held can be saved: it will be empty\n";
  for (std::size_t i = 0; i < plan.actions.size(); ++i) {
    const Action& action = plan.actions[i];
    text += to_string(i + 1) + ". " + ToText(action) + " (" + Counted(action.writes.size(), "write") + ")\n";
  }
  return text;
}

std::string OutcomeText(const Plan& plan) {
  std::string text;
  if (plan.possible && plan.actions.empty()) text += "nothing to repair\n";
  if (!plan.problem.empty()) text += plan.problem + "\n";
  if (plan.possible && !plan.actions.empty()) text += ToText(plan.promise);
  return text;
}

std::string ToText(const Plan& plan) { return StepsText(plan) + OutcomeText(plan); }

// ---- Writing --------------------------------------------------------------------------------------------------------

RepairWork::RepairWork(const Image& from, const TimeStamp& time, Report checked)
    : image(from), now(time), report(std::move(checked)) {
  now.reserved = 0;
  marked = model().header.stateFlags == kVolumeDirty;
  ResetBudget();
  for (const BlockInfo& block : model().blocks) {
    wasFree.push_back(block.use == BlockUse::kFree || block.use == BlockUse::kChainRecord);
  }
}

Action& RepairWork::Begin(ActionKind kind, std::uint16_t node) {
  if (actions.empty() && !report.marked) {
    actions.emplace_back();
    PutWord(kStateFlagsOffset, report.model.header.stateFlags | kVolumeDirty | kRepairMark);
  }
  if (!actions.empty() && (!wrote_ || !keepsActions)) actions.pop_back();
  wrote_ = false;
  actions.emplace_back();
  Action& action = actions.back();
  action.kind = kind;
  action.node = node;
  if (keepsActions) action.path = PathOf(model(), node);
  return action;
}

void RepairWork::Put(std::uint64_t offset, const void* bytes, std::size_t count) {
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  if (keepsActions) actions.back().writes.push_back({offset, std::vector<std::uint8_t>(from, from + count)});
  image.Write(offset, bytes, count);
  changed = wrote_ = true;
}

void RepairWork::PutWord(std::uint64_t offset, std::uint32_t value) {
  std::uint8_t bytes[4];
  Put32(bytes, value);
  Put(offset, bytes, sizeof bytes);
}

void RepairWork::PutHalf(std::uint64_t offset, std::uint16_t value) {
  std::uint8_t bytes[2];
  Put16(bytes, value);
  Put(offset, bytes, sizeof bytes);
}

void RepairWork::PutNode(std::uint16_t number, const OrbNodeRecord& record) {
  std::uint8_t bytes[kNodeSize];
  EncodeNode(record, bytes);
  Put(model().nodes[number].offset, bytes, sizeof bytes);
}

void RepairWork::PutEntry(std::uint64_t offset, const OrbDirEntry& entry) {
  std::uint8_t bytes[kDirEntrySize];
  EncodeEntry(entry, bytes);
  Put(offset, bytes, sizeof bytes);
}

void RepairWork::SetFree(std::uint32_t node, bool free) {
  const std::uint64_t offset = BitmapByteOffset(node);
  const std::uint8_t mask = BitmapBit(node);
  std::uint8_t byte = 0;
  image.Read(offset, &byte, 1);
  byte = static_cast<std::uint8_t>(free ? byte | mask : byte & ~mask);
  Put(offset, &byte, 1);
}

// ---- Reading --------------------------------------------------------------------------------------------------------

OrbNodeRecord RepairWork::GetNode(std::uint16_t number) const {
  std::uint8_t bytes[kNodeSize] = {};
  image.Read(model().nodes[number].offset, bytes, sizeof bytes);
  return DecodeNode(bytes);
}

std::vector<std::uint8_t> RepairWork::GetBlock(std::uint32_t block) const {
  std::vector<std::uint8_t> bytes(geometry().blockSize);
  image.Read(geometry().BlockOffset(block), bytes.data(), bytes.size());
  return bytes;
}

// ---- Blocks ---------------------------------------------------------------------------------------------------------

bool RepairWork::IsLoose(std::uint32_t block) const {
  const BlockUse use = model().blocks[block].use;
  return use == BlockUse::kNothing || use == BlockUse::kFree || use == BlockUse::kChainRecord;
}

bool RepairWork::IsLost(std::uint32_t block) const {
  return geometry().Holds(block) && IsLoose(block) && !(block < wasFree.size() && wasFree[block]);
}

std::uint32_t RepairWork::NextLoose(std::uint32_t* next, bool lost) const {
  while (*next < model().blocks.size() && (!IsLoose(*next) || IsLost(*next) != lost)) ++*next;
  return *next < model().blocks.size() ? (*next)++ : kNoBlock;
}

std::uint32_t RepairWork::Take(const std::vector<std::uint8_t>& contents) {
  if (budget == 0) return kNoBlock;
  std::uint32_t block = kNoBlock;
  if (!careful) {
    DropChain(this);
    block = NextLoose(&round_.nextFree, false);
  }
  if (block == kNoBlock) {
    const std::uint64_t size = std::max<std::uint64_t>(image.Size(), geometry().dataOffset);
    block = static_cast<std::uint32_t>((size - geometry().dataOffset) / geometry().blockSize + 1);
    if (geometry().BlockOffset(block) + geometry().blockSize >= kContainerLimit) {
      block = careful ? kNoBlock : NextLoose(&round_.nextLost, true);
    }
    if (block == kNoBlock) return kNoBlock;
  }
  --budget;
  Put(geometry().BlockOffset(block), contents.data(), contents.size());
  return block;
}

void RepairWork::ResetBudget() { budget = geometry().blocks + 1024u; }

std::uint64_t RepairWork::RoomForCopies() const {
  constexpr std::uint64_t kFew = 64;  // a directory, map blocks
  const std::uint64_t reserve = model().nodes.size() / geometry().entriesPerBlock() + kFew;
  return budget - std::min(budget, reserve);
}

std::uint32_t RepairWork::TakeForCopy(const std::vector<std::uint8_t>& contents) {
  return RoomForCopies() > 0 ? Take(contents) : kNoBlock;
}

std::uint32_t RepairWork::FindDirectoryBlock(std::uint16_t number) {
  if (!round_.directoryBlocksRead) {
    round_.directoryBlocksRead = true;
    for (const bool lost : {true, false}) {  // what a deleted directory left does not come first
      for (std::uint32_t block = 1; block < model().blocks.size(); ++block) {
        std::uint8_t bytes[2 * kDirEntrySize];
        if (!IsLoose(block) || IsLost(block) != lost) continue;
        if (!image.Read(geometry().BlockOffset(block), bytes, sizeof bytes)) continue;
        const OrbDirEntry self = DecodeEntry(bytes);
        if (NameOf(self) == "." && NameOf(DecodeEntry(bytes + kDirEntrySize)) == "..") {
          round_.directoryBlocks.emplace(self.node, block);
        }
      }
    }
  }
  const auto found = round_.directoryBlocks.find(number);
  return found == round_.directoryBlocks.end() ? kNoBlock : found->second;
}

// An entry that leads to nothing must not come to read what a new node holds. In a careful repair nodes are free beyond
// doubt: their records are there, and empty.
bool RepairWork::CanTake(const NodeInfo& node) const {
  if (node.state != NodeState::kFree || round_.referred[node.number]) return false;
  const OrbNodeRecord& record = node.record;
  return !careful || (record.signature == kNodeSignature && record.number == node.number && record.size == 0 &&
                      record.direct[0] == kNoBlock);
}

bool RepairWork::IsNodeLeft() {
  if (round_.referred.empty()) {
    round_.referred.resize(std::numeric_limits<decltype(OrbDirEntry::node)>::max() + std::size_t{1});
    for (const NodeInfo& directory : model().nodes) {
      for (const Entry& entry : directory.entries) round_.referred[entry.record.node] = true;
    }
  }
  while (round_.nextNode < model().nodes.size() && !CanTake(model().nodes[round_.nextNode])) ++round_.nextNode;
  return round_.nextNode < model().nodes.size();
}

RepairWork::NewNode RepairWork::TakeNode() {
  if (!IsNodeLeft()) return {};
  const std::uint32_t perBlock = geometry().nodesPerBlock();
  const std::uint32_t index = (round_.nextNode - 1) / perBlock;
  std::uint32_t block = model().table[index];
  if (block == kNoBlock) block = round_.nodeBlocks[index];
  if (block == kNoBlock) {
    std::vector<std::uint8_t> bytes(geometry().blockSize);
    for (std::uint32_t i = 0; i < perBlock; ++i) {
      EncodeNode(EmptyNode(static_cast<std::uint16_t>(geometry().firstNode(index) + i)), &bytes[i * kNodeSize]);
    }
    block = Take(bytes);
    if (block == kNoBlock) return {};
    PutWord(TableEntryOffset(index), block);
    round_.nodeBlocks[index] = block;
  }
  const auto number = static_cast<std::uint16_t>(round_.nextNode++);
  return {number, geometry().NodeOffset(block, (number - 1) % perBlock)};
}

void RepairWork::Recheck() {
  if (changed) {
    report = {};  // not two at a time in memory
    report = Check(image);
    unreadable = !report.readable;
  }
  changed = false;
  round_ = {};
}

void DropChain(RepairWork* work) {
  std::uint8_t bytes[4] = {};
  work->image.Read(kChainHeadOffset, bytes, sizeof bytes);
  if (Get32(bytes) == kNoBlock) return;
  work->actions.back().dropsChain = true;
  work->PutWord(kChainHeadOffset, kNoBlock);
}

}  // namespace orba::inspect

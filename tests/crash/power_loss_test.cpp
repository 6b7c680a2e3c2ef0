// What a loss of power can leave beyond a stop between two writes: the last write is on the disk in part, or some of
// the operation's writes are and others are not. The order of writes does not cover that; repair does. From each such
// container one run makes a clean one, in which every file that could be read before can be read. Of a torn write all
// that the operation has nothing to do with is there under its name as well; of reordered writes, which may have
// overwritten names on their way to another place, what it holds. The same where the repair is torn in its turn and run
// again.
#include <algorithm>
#include <random>

#include "crash/operation_test.h"
#include "inspect/repair/promise.h"
#include "inspect/repair/repair.h"
#include "operations/mount.h"

namespace orba {

namespace {

using testhost::Bystanders;
using testhost::CallRecord;
using testhost::FileImage;
using testhost::InspectedImage;

class PowerLoss : public OperationTest {
 protected:
  void SetUp() override;

  // What must be left of that which the operation has nothing to do with.
  enum class Keeps { kNames, kContents };

  // Repairs a container and judges what comes of it. No images where the same one was judged before.
  RepairRun Repair(const FileImage& image, Keeps keeps);

  // The same, and what comes of it is mounted, read and used.
  void RepairAndMount(const FileImage& image, Keeps keeps);

  const std::vector<CallRecord>& writes() const { return writes_; }

 private:
  std::vector<CallRecord> writes_;  // of the whole operation
  std::vector<Bystanders> bystanders_;
  std::set<size_t> judged_;
};

void PowerLoss::SetUp() {
  OperationTest::SetUp();
  std::vector<std::string> touched = operation().touched;
  if (touched.front() != "/") touched.push_back("/");  // what is found goes to a new directory there
  bystanders_.emplace_back(states().front().image, touched);
  testhost::Begin(operation(), prepared());
  ASSERT_TRUE(operation().run());
  writes_ = testhost::Writes();
  VolumeUnmountAll();
  testhost::SetTracing(false);
  ASSERT_EQ(writes_.size() + 1, states().size());
}

RepairRun PowerLoss::Repair(const FileImage& image, Keeps keeps) {
  if (!judged_.insert(image.Hash()).second) return {};
  RepairRun run = RunRepair(image);
  const FileImage& repaired = run.images.back();
  const inspect::Report report = testhost::Inspect(repaired);
  EXPECT_EQ(testhost::Verdict(report), "clean");
  const inspect::Promise promise = inspect::JudgePromise(InspectedImage(image), InspectedImage(repaired));
  EXPECT_TRUE(promise.holds()) << ToText(promise);
  const Bystanders& bystanders = bystanders_.front();
  EXPECT_EQ(keeps == Keeps::kNames ? bystanders.MissingFrom(repaired, report) : bystanders.LostFrom(repaired, report),
            "");
  Count("repaired after a loss of power: " + ClassOf(run.before));
  return run;
}

void PowerLoss::RepairAndMount(const FileImage& image, Keeps keeps) {
  const std::vector<FileImage> images = Repair(image, keeps).images;
  if (images.empty()) return;
  const bool mounted = testhost::MountContainer(images.back());
  EXPECT_EQ(Outcome(mounted), "");
  if (!mounted) return;
  if (keeps == Keeps::kNames) {
    EXPECT_EQ(bystanders_.front().MissingFrom(testhost::ReadVolume("A")), "");
  }
  EXPECT_EQ(UseVolume(), "");
  EXPECT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(testhost::Verdict(testhost::GetFile(testhost::kChangedContainer)), "clean");
}

// ---- Torn writes ----------------------------------------------------------------------------------------------------

// Where a write can end early: at each 64 bytes of it, or some of these, and at each sector of the container.
std::set<size_t> Cuts(const CallRecord& write) {
#ifdef ORBA_SANITIZED
  constexpr size_t kStep = 64 * 5;
#else
  constexpr size_t kStep = 64;
#endif
  constexpr size_t kSector = 512;
  std::set<size_t> cuts;
  for (size_t cut = kStep; cut < write.count; cut += kStep) cuts.insert(cut);
  for (size_t cut = kSector - write.position % kSector; cut < write.count; cut += kSector) cuts.insert(cut);
  return cuts;
}

// The bytes of `after` from one place of a write to another, over `before`.
FileImage Part(const FileImage& before, const FileImage& after, const CallRecord& write, size_t from, size_t to) {
  FileImage image = before;
  const Bytes bytes = after.ToBytes(write.position + from, to - from);
  image.Write(write.position + from, bytes.data(), bytes.size());
  return image;
}

// What a write leaves that landed in part, its front or its rear: each different container once.
std::vector<FileImage> Torn(const FileImage& before, const FileImage& after, const CallRecord& write) {
  std::vector<FileImage> torn;
  const auto add = [&](FileImage image) {
    if (image != before && image != after && (torn.empty() || image != torn.back())) torn.push_back(std::move(image));
  };
  const std::set<size_t> cuts = Cuts(write);
  for (const size_t cut : cuts) add(Part(before, after, write, 0, cut));
  for (const size_t cut : cuts) add(Part(before, after, write, cut, write.count));
  return torn;
}

// The front half of the bytes that a write changes, over `before`.
FileImage TornInTheMiddle(const FileImage& before, const inspect::Write& write) {
  const Bytes old = before.ToBytes(write.offset, write.bytes.size());
  const auto changed = std::mismatch(old.begin(), old.end(), write.bytes.begin()).second;
  const auto first = changed - write.bytes.begin();
  const auto same = old.size() < write.bytes.size()
                        ? 0
                        : std::mismatch(old.rbegin(), old.rend() - first, write.bytes.rbegin()).first - old.rbegin();
  const auto count = static_cast<size_t>(write.bytes.end() - same - changed);
  FileImage image = before;
  image.Write(write.offset + static_cast<size_t>(first), write.bytes.data() + first, (count + 1) / 2);
  return image;
}

// Every write has its turn, but of file data, whose parts differ in nothing that repair looks at, and of an operation
// of very many writes, only some in between.
bool WriteHasTurn(size_t k, size_t count) { return HasTurn(k, count, {20, 29}, {2, 197}); }

void CountKinds(const FileImage& image) {
  const inspect::Report report = testhost::Inspect(image);
  for (const inspect::KindInfo& info : inspect::AllKinds()) {
    const bool counts = info.severity == inspect::Severity::kDamage || info.severity == inspect::Severity::kInterrupted;
    if (counts && report.Count(info.kind) > 0) {
      Count(std::string("torn writes that leave ") + (report.marked ? "" : "no mark and ") + info.name);
    }
  }
}

TEST_P(PowerLoss, torn_write_is_repaired_in_one_run) {
  const std::set<size_t> data = DataWrites(writes());
  for (size_t k = 0; k < writes().size(); ++k) {
    if (!WriteHasTurn(k, writes().size())) continue;
    SCOPED_TRACE("write " + std::to_string(k));
    std::vector<FileImage> torn = Torn(states()[k].image, states()[k + 1].image, writes()[k]);
    if (data.count(k) != 0 && torn.size() > 2) torn = {torn.front(), torn.back()};
    for (const FileImage& image : torn) {
      CountKinds(image);
      RepairAndMount(image, Keeps::kNames);
    }
    Count("torn writes", torn.size());
  }
}

// ---- Reordered writes -----------------------------------------------------------------------------------------------

// Which of an operation's writes are on the disk.
using Subset = std::vector<bool>;

// All subsets of few writes; of many, those that lack one of the first or of the last, and some at random.
std::vector<Subset> Subsets(size_t count) {
#ifdef ORBA_SANITIZED
  constexpr size_t kExhaustive = 4;
  constexpr size_t kEnds = 2;
  constexpr size_t kRandom = 2;
#else
  constexpr size_t kExhaustive = 6;
  constexpr size_t kEnds = 8;
  constexpr size_t kRandom = 24;
#endif
  std::vector<Subset> subsets;
  if (count <= kExhaustive) {
    for (size_t bits = 0; bits < size_t{1} << count; ++bits) {
      subsets.emplace_back(count);
      for (size_t k = 0; k < count; ++k) subsets.back()[k] = (bits >> k & 1) != 0;
    }
    return subsets;
  }
  for (size_t k = 0; k < count; ++k) {
    if (k >= kEnds && k + kEnds < count) continue;
    subsets.emplace_back(count, true);
    subsets.back()[k] = false;
  }
  std::mt19937 random(static_cast<uint32_t>(count));
  for (size_t i = 0; i < kRandom; ++i) {
    subsets.emplace_back(count);
    for (size_t k = 0; k < count; ++k) subsets.back()[k] = random() % 2 != 0;
  }
  return subsets;
}

TEST_P(PowerLoss, reordered_writes_are_repaired_in_one_run) {
  for (const Subset& subset : Subsets(writes().size())) {
    FileImage image = states().front().image;
    std::string landed;
    for (size_t k = 0; k < subset.size(); ++k) {
      if (!subset[k]) continue;
      const Bytes bytes = states()[k + 1].image.ToBytes(writes()[k].position, writes()[k].count);
      image.Write(writes()[k].position, bytes.data(), bytes.size());
      landed += " " + std::to_string(k);
    }
    SCOPED_TRACE("landed:" + landed);
    RepairAndMount(image, Keeps::kContents);
    Count("subsets of an operation's writes");
  }
}

// ---- Two stops in a row ---------------------------------------------------------------------------------------------

// The operation's write is torn in its middle, then each write of the repair is, then repair runs again.
TEST_P(PowerLoss, torn_repair_of_a_torn_write_is_repaired_in_one_run) {
  for (size_t k = 0; k < writes().size(); ++k) {
    if (!WriteHasTurn(k, writes().size())) continue;
    SCOPED_TRACE("write " + std::to_string(k));
    const std::vector<FileImage> torn = Torn(states()[k].image, states()[k + 1].image, writes()[k]);
    if (torn.empty()) continue;
    const RepairRun first = Repair(torn[torn.size() / 2], Keeps::kNames);
    for (size_t i = 0; i < first.writes.size(); ++i) {
      SCOPED_TRACE("write of the repair " + std::to_string(i));
      Repair(TornInTheMiddle(first.images[i], first.writes[i]), Keeps::kNames);
      Count("torn repairs run again");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, PowerLoss, ::testing::ValuesIn(AllOperations()), NameOfOperation);

}  // namespace

}  // namespace orba

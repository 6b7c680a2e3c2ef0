#include "crash/operation_test.h"

#include <stdio.h>

#include <map>

#include "inspect/repair/repair.h"

namespace orba {

namespace {

class Sums : public ::testing::Environment {
 public:
  void TearDown() override {
    for (const auto& [what, sum] : sums_) printf("%8zu %s\n", sum, what.c_str());
  }
  void Add(const std::string& what, size_t number) { sums_[what] += number; }

 private:
  std::map<std::string, size_t> sums_;
};

// Owned by the test framework.
Sums* const g_Sums = static_cast<Sums*>(::testing::AddGlobalTestEnvironment(new Sums));

struct Prepared {
  testhost::FileSet files;
  std::vector<StopState> states;
};

// An operation is prepared and run once for all its tests.
const Prepared& PreparedOnce(const testhost::Operation& operation) {
  static std::map<const testhost::Operation*, Prepared> all;
  Prepared& prepared = all[&operation];
  if (!prepared.states.empty()) return prepared;
  prepared.files = testhost::Prepare(operation);
  for (const testhost::FileImage& image : testhost::StopStates(operation, prepared.files)) {
    prepared.states.push_back({image, testhost::Inspect(image)});
    prepared.states.back().report.model = {};
  }
  return prepared;
}

}  // namespace

void OperationTest::SetUp() {
  LibraryTest::SetUp();
  const Prepared& made = PreparedOnce(operation());
  prepared_ = &made.files;
  states_ = &made.states;
}

std::set<size_t> OperationTest::DataWrites(const std::vector<testhost::CallRecord>& writes) const {
  const inspect::Model whole = testhost::Inspect(states().back().image).model;
  const inspect::Geometry& geometry = whole.geometry;
  std::set<size_t> data;
  for (size_t k = 0; k < writes.size(); ++k) {
    const uint64_t position = writes[k].position;
    if (position < geometry.dataOffset) continue;
    const inspect::BlockInfo& block = whole.blocks.at((position - geometry.dataOffset) / geometry.blockSize + 1);
    const Bytes written = states()[k + 1].image.ToBytes(position, 4);
    if (block.use == inspect::BlockUse::kFile && testhost::ReadU32(written, 0) != kFreeChainSignature) data.insert(k);
  }
  return data;
}

std::string UseVolume() {
  const char kName[] = "/AFTER";
  const Bytes data = Pattern(2500);
  const OrbU32 size = static_cast<OrbU32>(data.size());
  Bytes read(size);
  OrbU32 done = 0;
  if (!OrbCreateFileA(kName, 0)) return "create " + Outcome(false);
  const OrbHandle file = OrbOpenFileA(kName, ORB_OPEN_READ | ORB_OPEN_WRITE);
  if (file == ORB_INVALID_HANDLE) return "open " + Outcome(false);
  if (!OrbWriteFile(file, data.data(), size, &done)) return "write " + Outcome(false);
  OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN);
  if (!OrbReadFile(file, read.data(), size, &done)) return "read " + Outcome(false);
  if (read != data) return "read other bytes";
  if (!OrbCloseFile(file)) return "close " + Outcome(false);
  if (!OrbDeleteFileA(kName)) return "delete " + Outcome(false);
  return "";
}

std::string Worse(const inspect::Report& before, const inspect::Report& after) {
  std::string worse;
  for (const inspect::KindInfo& info : inspect::AllKinds()) {
    if (info.severity == inspect::Severity::kNote || info.kind == inspect::Kind::kBlockLeaked) continue;
    if (after.Count(info.kind) > before.Count(info.kind)) worse += std::string(" ") + info.name;
  }
  if (after.totals.leakedBlocks > before.totals.leakedBlocks + 1) worse += " block-leaked";
  return worse;
}

RepairRun RunRepair(const testhost::FileImage& image) {
  constexpr TimeStamp kNow = {2010, 1, 2, 3, 4, 5, 6};
  inspect::Plan plan = inspect::PlanRepair(testhost::InspectedImage(image), kNow);
  EXPECT_TRUE(plan.IsComplete()) << plan.problem << ToText(plan);
  RepairRun run;
  run.before = std::move(plan.before);
  run.before.model = {};
  run.images = {image};
  for (inspect::Action& action : plan.actions) {
    for (inspect::Write& write : action.writes) {
      run.images.push_back(run.images.back());
      run.images.back().Write(write.offset, write.bytes.data(), write.bytes.size());
      run.writes.push_back(std::move(write));
    }
  }
  return run;
}

std::string ClassOf(const inspect::Report& report) {
  const std::string mark = report.marked ? "marked" : "unmarked";
  switch (report.Worst()) {
    case inspect::Severity::kNote:
      return mark + ", clean";
    case inspect::Severity::kLeak:
      return mark + ", leaks";
    case inspect::Severity::kInterrupted:
      return mark + ", interrupted";
    case inspect::Severity::kDamage:
      return mark + ", damaged";
  }
  return "";
}

std::vector<const testhost::Operation*> AllOperations() {
  std::vector<const testhost::Operation*> all;
  for (const testhost::Operation& operation : testhost::Operations()) all.push_back(&operation);
  return all;
}

std::string NameOfOperation(const ::testing::TestParamInfo<const testhost::Operation*>& info) {
  return info.param->name;
}

void Count(const std::string& what, size_t number) { g_Sums->Add(what, number); }

}  // namespace orba

// Lets every operation meet a failure at every host call and every allocation. The call fails with the code that stands
// for the failure, what the volume may still do is as it should be, nothing is leaked in memory, and the disk holds
// exactly what was written up to there - or, where the operation undoes itself for want of space or memory, what is
// listed.
#include <algorithm>
#include <ostream>
#include <set>

#include "crash/operation_test.h"
#include "crash/verdicts.h"
#include "inspect/view/report.h"
#include "nodes/node.h"
#include "operations/mount.h"

namespace orba {

namespace {

using testhost::CallRecord;
using testhost::FileImage;
using testhost::Operation;

// ---- What a failure must lead to ------------------------------------------------------------------------------------

// The library's code for a host code met in a call.
uint32_t CodeFor(Call call, uint32_t hostCode) {
  const bool write = call == Call::kWriteFile;
  switch (hostCode) {
    case 5:
      return ORB_ERROR_ACCESS_DENIED;
    case 112:
      return write ? ORB_ERROR_DISK_FULL : ORB_ERROR_READ;
    default:
      return write ? ORB_ERROR_WRITE : ORB_ERROR_READ;
  }
}

// The host calls of an operation that met no failure, and what it left.
struct Plain {
  std::vector<CallRecord> calls;  // those that can fail
  uint32_t allocations;
  std::set<size_t> dataWrites;  // which of its writes, counted from 0, are of file data
};

std::vector<CallRecord> CallsThatCanFail() {
  std::vector<CallRecord> calls;
  for (const CallRecord& record : testhost::Trace()) {
    if (record.call != Call::kGetTickCount && record.call != Call::kGetSystemTime) calls.push_back(record);
  }
  return calls;
}

size_t WritesAmong(const std::vector<CallRecord>& calls, size_t first) {
  return static_cast<size_t>(std::count_if(calls.begin(), calls.begin() + static_cast<ptrdiff_t>(first),
                                           [](const CallRecord& call) { return call.call == Call::kWriteFile; }));
}

enum class Purpose { kOther, kData, kMetadata, kMark };

Purpose PurposeOfPosition(const Plain& plain, uint64_t position, size_t write) {
  if (position == kStateFlagsOffset) return Purpose::kMark;
  return plain.dataWrites.count(write) != 0 ? Purpose::kData : Purpose::kMetadata;
}

// What a seek or write is for: that of the plain run in its place, as far as the two go together; metadata behind that,
// for only undoing and the commit come then. A seek whose next call is a read is for that.
Purpose PurposeOf(const Plain& plain, const std::vector<CallRecord>& calls, size_t i) {
  const CallRecord& call = calls[i];
  const bool seek = call.call == Call::kSetFilePointer;
  if (!seek && call.call != Call::kWriteFile) return Purpose::kOther;
  const uint64_t position = seek ? static_cast<uint64_t>(call.distance) : call.position;
  const bool together = std::none_of(calls.begin(), calls.begin() + static_cast<ptrdiff_t>(i),
                                     [](const CallRecord& earlier) { return earlier.error != 0; });
  if (together && seek && plain.calls.at(i + 1).call != Call::kWriteFile) return Purpose::kOther;
  return PurposeOfPosition(plain, position, together ? WritesAmong(calls, i) : plain.calls.size());
}

struct Answer {
  uint32_t code = 0;
  bool failed = false;  // the volume
};

// The code of the last call that failed stands, unless a failure failed the volume before the commit: the commit then
// says that the volume refuses writes. Failing to write the mark fails the volume whatever the code; failing to write
// other metadata does unless the disk is full.
Answer ExpectedAnswer(const Plain& plain, const std::vector<CallRecord>& calls) {
  Answer expected;
  bool marked = false;
  for (size_t i = 0; i < calls.size(); ++i) {
    const CallRecord& call = calls[i];
    if (call.error == 0) {
      marked |= call.call == Call::kWriteFile && call.position == kStateFlagsOffset;
      continue;
    }
    const Purpose purpose = PurposeOf(plain, calls, i);
    expected.code = CodeFor(call.call, call.error);
    if (purpose == Purpose::kMark) {
      expected.failed = true;
      if (marked) return expected;  // the commit itself
    }
    expected.failed |= purpose == Purpose::kMetadata && expected.code != ORB_ERROR_DISK_FULL;
  }
  if (expected.failed) expected.code = ORB_ERROR_WRITE;
  return expected;
}

// ---- What the library holds -----------------------------------------------------------------------------------------

struct Holdings {
  uint32_t references = 0;
  size_t memory = 0;  // allocations, cached chain records left out: they come and go
  size_t handles = 0;
};

bool operator==(const Holdings& a, const Holdings& b) {
  return a.references == b.references && a.memory == b.memory && a.handles == b.handles;
}

std::ostream& operator<<(std::ostream& out, const Holdings& held) {
  return out << held.references << " references, " << held.memory << " allocations, " << held.handles << " handles";
}

Holdings Held() {
  Holdings held;
  for (const OrbNode* node = g_NodeListHead.next; node != nullptr; node = node->next)
    held.references += node->references;
  held.memory = testhost::AllocationsHeld();
  for (const Volume* volume = g_VolumeListHead.next; volume != nullptr; volume = volume->next) {
    if (volume->freeChain != nullptr) --held.memory;
  }
  held.handles = testhost::OpenHandles();
  return held;
}

// ---- The tests ------------------------------------------------------------------------------------------------------

constexpr uint32_t kDiskFull = 112;
constexpr uint32_t kAccessDenied = 5;
constexpr uint32_t kGeneralFailure = 31;

constexpr uint32_t kCallsOfName = 4;        // to look a name up: seek and read, of the directory and of the node
constexpr uint32_t kAllocationsOfName = 2;  // the directory's block and the node

class FailingOperation : public OperationTest {
 protected:
  void SetUp() override;

  // The operation again and again, with one host call after the other failing; with one write after the other; with one
  // allocation after the other. Result of the last two: the VerdictList of what is left where it is not as after a
  // stop.
  void FailEachCall(uint32_t hostCode, Repeat repeat);
  std::string FailEachWrite(uint32_t hostCode, Repeat repeat);
  std::string FailEachAllocation(Repeat repeat);

 private:
  // What is on the disk after a failure.
  struct Disk {
    bool asStopped = false;  // what a stop leaves at that place; but unmarked, unless the volume failed
    inspect::Report report;
  };

  void Begin();
  std::vector<CallRecord> RunFailing();
  Disk Judge(uint32_t n, uint32_t perName, const Answer& answer, const std::vector<CallRecord>& calls);
  Disk JudgeDisk(const std::vector<CallRecord>& calls, bool failed) const;
  void ExpectVolumeGoesOn(const inspect::Report& disk);
  void ExpectVolumeRefusesWrites();

  Plain plain_;
  Bytes bystander_;
  Holdings held_;
};

void FailingOperation::SetUp() {
  OperationTest::SetUp();
  testhost::Begin(operation(), prepared());
  bystander_ = testhost::ReadFile("/B.PART");
  testhost::ClearTrace();
  const uint32_t allocations = testhost::AllocationCalls();
  EXPECT_TRUE(operation().run());
  plain_.allocations = testhost::AllocationCalls() - allocations;
  plain_.calls = CallsThatCanFail();
  plain_.dataWrites = DataWrites(testhost::Writes());
  VolumeUnmountAll();
  testhost::Restore({});
}

void FailingOperation::FailEachCall(uint32_t hostCode, Repeat repeat) {
  const uint32_t count = static_cast<uint32_t>(plain_.calls.size());
  for (uint32_t n = 1; n <= count; ++n) {
    if (!HasTurn(n - 1, count, kAll, {4, 13})) continue;
    const Call call = plain_.calls[n - 1].call;
    if (call == Call::kWriteFile && hostCode == kDiskFull) continue;  // FailEachWrite does that
    SCOPED_TRACE("call " + std::to_string(n));
    Begin();
    testhost::FailNthCall(n, hostCode, repeat);
    const std::vector<CallRecord> calls = RunFailing();
    const Disk disk = Judge(n, kCallsOfName, ExpectedAnswer(plain_, calls), calls);
    Count("host calls failed");
    if (disk.asStopped) continue;
    // A directory lets go of its emptied block even though that cannot be freed.
    EXPECT_TRUE(call == Call::kGetFileSize && repeat == Repeat::kOnce);
    EXPECT_EQ(disk.report.Worst(), inspect::Severity::kLeak) << ToText(disk.report);
    EXPECT_EQ(disk.report.totals.leakedBlocks, 1u);
  }
}

std::string FailingOperation::FailEachWrite(uint32_t hostCode, Repeat repeat) {
  std::map<size_t, std::string> undone;
  const size_t count = states().size() - 1;
  for (uint32_t n = 1; n <= count; ++n) {
    SCOPED_TRACE("write " + std::to_string(n));
    Begin();
    testhost::FailNthCall(Call::kWriteFile, n, hostCode, repeat);
    const std::vector<CallRecord> calls = RunFailing();
    const Disk disk = Judge(0, 0, ExpectedAnswer(plain_, calls), calls);
    // Of damage there is none but a name behind a directory's size, and the second name that a failed move leaves.
    EXPECT_EQ(disk.report.Count(inspect::Severity::kDamage),
              disk.report.Count(inspect::Kind::kDirBeyondSize) + disk.report.Count(inspect::Kind::kManyNames));
    if (!disk.asStopped) undone[n] = testhost::Verdict(disk.report);
    Count("host calls failed");
  }
  return testhost::VerdictList(undone);
}

std::string FailingOperation::FailEachAllocation(Repeat repeat) {
  std::map<size_t, std::string> undone;
  const uint32_t count = plain_.allocations;
  for (uint32_t n = 1; n <= count; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    Begin();
    testhost::FailNthAllocation(n, repeat);
    const std::vector<CallRecord> calls = RunFailing();
    const Disk disk = Judge(n, kAllocationsOfName, {ORB_ERROR_OUT_OF_MEMORY, false}, calls);
    EXPECT_EQ(disk.report.Count(inspect::Severity::kDamage), disk.report.Count(inspect::Kind::kManyNames));
    if (!disk.asStopped) undone[n] = testhost::Verdict(disk.report);
  }
  Count("allocations failed", count);
  return testhost::VerdictList(undone);
}

void FailingOperation::Begin() {
  testhost::Begin(operation(), prepared());
  held_ = Held();
}

// Runs the operation, which is to fail. The error code stays for the caller to look at.
std::vector<CallRecord> FailingOperation::RunFailing() {
  EXPECT_FALSE(operation().run());
  std::vector<CallRecord> calls = CallsThatCanFail();
  testhost::ClearFaults();
  return calls;
}

// After the n-th call or allocation has failed. `perName` of them are made for each name of a path.
FailingOperation::Disk FailingOperation::Judge(uint32_t n, uint32_t perName, const Answer& answer,
                                               const std::vector<CallRecord>& calls) {
  EXPECT_EQ(GetError(), answer.code);
  EXPECT_EQ(VolumeFind("A", nullptr)->failed != 0, answer.failed);
  const uint32_t first = operation().firstPathNames * perName;
  const bool secondPath = n > first && n <= first + operation().secondPathNames * perName;
  if (secondPath) {  // what the first path led to is kept on purpose
    ++held_.references;
    if (first > 0) ++held_.memory;  // no root
  }
  EXPECT_EQ(Held(), held_);

  const Disk disk = JudgeDisk(calls, answer.failed);
  Count("disks after a failure: " + ClassOf(disk.report));
  EXPECT_EQ(testhost::ReadFile("/B.PART"), bystander_);
  if (answer.failed) {
    ExpectVolumeRefusesWrites();
  } else {
    ExpectVolumeGoesOn(disk.report);
  }

  EXPECT_TRUE(VolumeUnmountAll());
  EXPECT_EQ(NodesListed(), secondPath ? 1u : 0u);
  if (secondPath) OrbNodeRelease(g_NodeListHead.next);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
  EXPECT_EQ(testhost::OpenHandles(), 0u);
  testhost::Restore({});
  return disk;
}

// The disk should hold what the whole operation writes, up to the failure; and then the mark is taken off, unless the
// volume failed.
FailingOperation::Disk FailingOperation::JudgeDisk(const std::vector<CallRecord>& calls, bool failed) const {
  size_t writes = 0;
  bool marked = false;
  for (const CallRecord& call : calls) {
    if (call.call != Call::kWriteFile || call.error != 0) continue;
    const bool mark = call.position == kStateFlagsOffset;
    if (mark && marked) break;
    marked |= mark;
    ++writes;
  }
  const FileImage disk = testhost::GetFile(testhost::kChangedContainer);
  if (writes < states().size()) {
    const StopState& stopped = states()[writes];
    if (failed && disk == stopped.image) return {true, stopped.report};
    if (!failed && disk == testhost::Unmarked(stopped.image)) return {true, testhost::Inspect(disk)};
  }
  return {false, testhost::Inspect(disk)};
}

void FailingOperation::ExpectVolumeRefusesWrites() {
  testhost::ClearTrace();
  EXPECT_EQ(OrbCreateFileA("/AFTER", 0), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
}

// Where a directory still names its last block though that is free again, the block would be given to the next file:
// see hazard_test.cpp.
void FailingOperation::ExpectVolumeGoesOn(const inspect::Report& disk) {
  if (disk.Count(inspect::Kind::kLastBlockFreed) != 0) return;
  EXPECT_EQ(UseVolume(), "");
  EXPECT_EQ(Worse(disk, testhost::Inspect(testhost::GetFile(testhost::kChangedContainer))), "");
}

TEST_P(FailingOperation, answers_a_call_that_fails) { FailEachCall(kAccessDenied, Repeat::kOnce); }
TEST_P(FailingOperation, answers_calls_that_fail_from_then_on) { FailEachCall(kGeneralFailure, Repeat::kFromThenOn); }
TEST_P(FailingOperation, answers_a_call_that_fails_for_want_of_space) { FailEachCall(kDiskFull, Repeat::kOnce); }
TEST_P(FailingOperation, answers_calls_that_fail_for_want_of_space) { FailEachCall(kDiskFull, Repeat::kFromThenOn); }
TEST_P(FailingOperation, answers_a_disk_that_is_full_once) {
  ExpectVerdicts(operation(), Situation::kFullDisk, FailEachWrite(kDiskFull, Repeat::kOnce));
}
TEST_P(FailingOperation, answers_a_disk_that_stays_full) {
  EXPECT_EQ(FailEachWrite(kDiskFull, Repeat::kFromThenOn), "");
}
TEST_P(FailingOperation, answers_an_allocation_that_fails) {
  ExpectVerdicts(operation(), Situation::kNoMemory, FailEachAllocation(Repeat::kOnce));
}
TEST_P(FailingOperation, answers_the_end_of_memory) {
  ExpectVerdicts(operation(), Situation::kEndOfMemory, FailEachAllocation(Repeat::kFromThenOn));
}

INSTANTIATE_TEST_SUITE_P(Operations, FailingOperation, ::testing::ValuesIn(AllOperations()), NameOfOperation);

}  // namespace

}  // namespace orba

// Stops every operation after every single write. What is left is inspected: never damage, the dirty mark where it is
// promised, interrupted operations exactly as listed, leaks otherwise; and all that the operation has nothing to do
// with is there, byte for byte.
#include "crash/operation_test.h"
#include "crash/verdicts.h"

namespace orba {

namespace {

using inspect::Severity;

class StoppedOperation : public OperationTest {
 protected:
  // The writes of the whole operation.
  std::vector<testhost::CallRecord> WritesOfOperation() {
    testhost::Begin(operation(), prepared());
    EXPECT_TRUE(operation().run());
    return testhost::Writes();
  }
};

TEST_P(StoppedOperation, leaves_what_is_listed) {
  std::vector<std::string> verdicts;
  for (const StopState& state : states()) {
    // Where the mark was lost nothing tells that two names are a move's.
    const uint64_t names = state.report.marked ? 0 : state.report.Count(inspect::Kind::kManyNames);
    EXPECT_EQ(state.report.Count(Severity::kDamage), names) << "after " << verdicts.size();
    verdicts.push_back(testhost::Verdict(state.report));
    Count("states after a stop: " + ClassOf(state.report));
  }
  ExpectVerdicts(operation(), Situation::kStop, testhost::VerdictList(verdicts));
  Count("operations stopped");
}

// The mark goes on the disk before the first metadata and off it at the very end; file data needs none. The one
// exception: where the header is the first metadata, its copy was taken before the mark was set and takes it off again,
// until a later header puts it back.
TEST_P(StoppedOperation, is_marked_from_its_first_metadata_write_to_its_end) {
  const std::vector<testhost::CallRecord> writes = WritesOfOperation();
  const std::set<size_t> data = DataWrites(writes);
  bool begun = false;   // the mark was written
  bool marked = false;  // it is on the disk
  for (size_t k = 0; k < writes.size(); ++k) {
    const uint64_t position = writes[k].position;
    if (position == kStateFlagsOffset) {
      EXPECT_TRUE(!begun || k + 1 == writes.size());
      marked = !begun;
      begun = true;
    } else if (data.count(k) == 0) {
      EXPECT_TRUE(begun);
      if (position == 0) marked = writes[k - 1].position != kStateFlagsOffset;
    }
    EXPECT_EQ(states()[k + 1].report.marked, marked) << "after " << k + 1;
  }
  EXPECT_FALSE(marked);
}

TEST_P(StoppedOperation, leaves_everything_else_as_it_is) {
  const testhost::Bystanders bystanders(states().front().image, operation().touched);
  for (const StopState& state : states()) {
    EXPECT_EQ(bystanders.MissingFrom(state.image, testhost::Inspect(state.image)), "");
  }
  Count("untouched files and directories compared", bystanders.count() * states().size());
}

// A marked container is refused. One without the mark mounts, and so does one whose mark was taken off by force;
// everything else can be read through the library then.
TEST_P(StoppedOperation, is_refused_while_marked) {
  const testhost::Bystanders bystanders(states().front().image, operation().touched);
  for (const StopState& state : states()) {
    const bool marked = state.report.marked;
    EXPECT_EQ(Outcome(testhost::MountContainer(state.image)), marked ? "NOT_CLEAN" : "");
    if (marked) {
      EXPECT_EQ(Outcome(testhost::MountContainer(testhost::Unmarked(state.image))), "");
    }
    EXPECT_EQ(bystanders.MissingFrom(testhost::ReadVolume("A")), "");
    EXPECT_EQ(OrbUnmountVolumeA("A"), 1);
  }
}

// Where the mark was lost, the container mounts as it is, and can be used; but for a directory that still names a block
// it gave back: see hazard_test.cpp.
TEST_P(StoppedOperation, can_be_used_where_the_mark_was_lost) {
  for (const StopState& state : states()) {
    if (state.report.marked || state.report.IsClean()) continue;
    if (state.report.Count(inspect::Kind::kLastBlockFreed) != 0) continue;
    ASSERT_TRUE(testhost::MountContainer(state.image));
    EXPECT_EQ(UseVolume(), "");
    EXPECT_EQ(Worse(state.report, testhost::Inspect(testhost::GetFile(testhost::kChangedContainer))), "");
    EXPECT_EQ(OrbUnmountVolumeA("A"), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, StoppedOperation, ::testing::ValuesIn(AllOperations()), NameOfOperation);

}  // namespace

}  // namespace orba

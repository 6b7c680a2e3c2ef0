// Stops formatting after every single write, and lets every host call and allocation of it fail: an unfinished
// container is never taken for a volume, and never for a file that could be formatted again.
#include <algorithm>
#include <ostream>

#include "crash/operation_test.h"

namespace orba {

namespace {

using testhost::CallRecord;
using testhost::FileImage;

const testhost::FileName kContainer = u"NEW";

struct Shape {
  uint32_t bitmapSize;
  uint32_t blockSize;
};

void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.blockSize << " with " << shape.bitmapSize; }

class Formatting : public LibraryTest, public ::testing::WithParamInterface<Shape> {
 protected:
  static bool Format() {
    return OrbCreateVolumeEx(kContainer.c_str(), GetParam().bitmapSize, GetParam().blockSize) != 0;
  }

  // A failed format leaves its container open, so that nobody else takes it.
  void EndFailedFormat() {
    EXPECT_EQ(testhost::AllocationsHeld(), 0u);
    EXPECT_EQ(NodesListed(), 0u);
    testhost::ClearFaults();
    testhost::DropHandles();
    testhost::Restore({});
    testhost::ClearTrace();
  }
};

// The container after 0, 1, 2 ... of these writes.
std::vector<FileImage> StatesAfter(const std::vector<CallRecord>& writes) {
  std::vector<FileImage> states(1);
  for (const CallRecord& write : writes) {
    states.push_back(states.back());
    states.back().Write(write.position, write.data.data(), write.data.size());
  }
  return states;
}

// What formatting makes of a host's failure, by the call it met.
uint32_t CodeFor(const CallRecord& call) {
  const bool denied = call.error == 5;
  switch (call.call) {
    case Call::kCreateFile:
      if (call.disposition == coredll::kCreateNew) return ORB_ERROR_CANNOT_CREATE;
      return denied ? ORB_ERROR_ACCESS_DENIED : ORB_ERROR_CANNOT_OPEN;
    case Call::kSetFilePointer:
      return denied ? ORB_ERROR_ACCESS_DENIED : ORB_ERROR_READ;
    default:
      return denied ? ORB_ERROR_ACCESS_DENIED : ORB_ERROR_DISK_FULL;
  }
}

TEST_P(Formatting, stopped_after_any_write_is_no_volume_before_the_last) {
  testhost::KeepWriteData(true);
  ASSERT_TRUE(Format());
  const std::vector<CallRecord> writes = testhost::Writes();
  ASSERT_EQ(writes.size(), 7u);
  const std::vector<FileImage> states = StatesAfter(writes);
  for (size_t k = 0; k < states.size(); ++k) {
    SCOPED_TRACE("after " + std::to_string(k));
    testhost::SetFile(u"VOL", states[k]);
    const bool whole = k + 1 == states.size();
    EXPECT_EQ(Outcome(OrbMountVolume(u"VOL", u"A")), whole ? "" : "DAMAGED_VOLUME");
    EXPECT_EQ(testhost::Inspect(states[k]).Worst(), whole ? inspect::Severity::kNote : inspect::Severity::kDamage);
    EXPECT_EQ(Outcome(OrbCreateVolumeEx(u"VOL", GetParam().bitmapSize, GetParam().blockSize)), "FILE_EXISTS");
    Count("states after a stop: formatting");
  }
  EXPECT_EQ(testhost::Verdict(states.back()), "clean");
  EXPECT_EQ(states.back(), testhost::GetFile(kContainer));
}

TEST_P(Formatting, with_any_call_failing_returns_its_code) {
  ASSERT_TRUE(Format());
  const uint32_t count = testhost::CallCount();
  // create, close, open, five writes, flush, three for the header and its mark, close
  ASSERT_EQ(count, 3u + 5 + 1 + 4 + 1);
  testhost::Restore({});
  for (const uint32_t hostCode : {5u, 112u}) {
    for (const Repeat repeat : {Repeat::kOnce, Repeat::kFromThenOn}) {
      for (uint32_t n = 1; n <= count; ++n) {
        SCOPED_TRACE("call " + std::to_string(n) + ", host code " + std::to_string(hostCode));
        testhost::FailNthCall(n, hostCode, repeat);
        EXPECT_FALSE(Format());
        std::vector<CallRecord> calls = testhost::Trace();
        calls.erase(std::remove_if(calls.begin(), calls.end(), [](const CallRecord& call) { return call.error == 0; }),
                    calls.end());
        ASSERT_EQ(calls.size(), 1u);  // it goes on no further
        // Closing after creating is part of creating.
        EXPECT_EQ(GetError(), n == 2 ? ORB_ERROR_CANNOT_CREATE : CodeFor(calls.front()));
        EXPECT_EQ(testhost::FileExists(kContainer), n > 1);
        EXPECT_EQ(testhost::OpenHandles(), n > 3 && n < count ? 1u : 0u);
        Count("host calls failed");
        EndFailedFormat();
      }
    }
  }
}

TEST_P(Formatting, with_any_allocation_failing_leaves_what_it_wrote) {
  const uint32_t before = testhost::AllocationCalls();
  ASSERT_TRUE(Format());
  const uint32_t count = testhost::AllocationCalls() - before;
  ASSERT_EQ(count, 5u);  // table, bitmap, node block, directory block, header
  const FileImage whole = testhost::GetFile(kContainer);
  testhost::Restore({});
  uint64_t written = 128;
  const uint64_t sizes[] = {896, GetParam().bitmapSize, GetParam().blockSize, GetParam().blockSize};
  for (uint32_t n = 1; n <= count; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    testhost::FailNthAllocation(n);
    EXPECT_EQ(Outcome(Format()), "OUT_OF_MEMORY");
    EXPECT_EQ(testhost::OpenHandles(), 1u);
    EXPECT_EQ(testhost::FileSize(kContainer), written);
    if (n < count) written += sizes[n - 1];
    Count("allocations failed");
    EndFailedFormat();
  }
  EXPECT_EQ(written, whole.size());
}

INSTANTIATE_TEST_SUITE_P(Shapes, Formatting,
                         ::testing::Values(Shape{16, 1024}, Shape{0, 1024}, Shape{896, 1024}, Shape{1024, 4096},
                                           Shape{7168, 8192}));

}  // namespace

}  // namespace orba

#include "support/allocations.h"

#include <gtest/gtest-spi.h>
#include <stdlib.h>
#include <string.h>

#include <stdexcept>

#include "support/host_test.h"

namespace testhost {
namespace {

// Keeps the compiler from doing away with an allocation that nothing uses.
template <typename Pointer>
Pointer Escape(Pointer memory) {
  asm volatile("" : "+r"(memory) : : "memory");
  return memory;
}

uint8_t* Malloc(size_t size) { return Escape(static_cast<uint8_t*>(malloc(size))); }
uint8_t* Calloc(size_t count, size_t size) { return Escape(static_cast<uint8_t*>(calloc(count, size))); }

class Allocations : public HostTest {};

TEST_F(Allocations, held_memory_is_counted_until_freed) {
  uint8_t* a = Malloc(100);
  uint8_t* b = Calloc(3, 10);
  EXPECT_EQ(AllocationsHeld(), 2u);
  EXPECT_EQ(BytesHeld(), 130u);
  EXPECT_EQ(AllocationCalls(), 2u);
  free(a);
  EXPECT_EQ(AllocationsHeld(), 1u);
  EXPECT_EQ(BytesHeld(), 30u);
  free(b);
  EXPECT_EQ(AllocationsHeld(), 0u);
  EXPECT_EQ(BytesHeld(), 0u);
  EXPECT_EQ(AllocationCalls(), 2u);
}

TEST_F(Allocations, peak_is_the_most_held_at_a_time) {
  free(Malloc(50));
  uint8_t* a = Malloc(30);
  uint8_t* b = Malloc(30);
  EXPECT_EQ(PeakBytes(), 60u);
  free(a);
  ResetPeakBytes();
  EXPECT_EQ(PeakBytes(), 30u);
  free(Malloc(5));
  EXPECT_EQ(PeakBytes(), 35u);
  free(b);
}

TEST_F(Allocations, fresh_memory_is_filled_and_calloc_memory_zero) {
  uint8_t* filled = Malloc(3);
  uint8_t* zeros = Calloc(1, 3);
  EXPECT_EQ(Bytes(filled, filled + 3), (Bytes{0xA5, 0xA5, 0xA5}));
  EXPECT_EQ(Bytes(zeros, zeros + 3), (Bytes{0, 0, 0}));
  free(filled);
  free(zeros);
}

TEST_F(Allocations, nth_allocation_fails_once) {
  FailNthAllocation(2);
  uint8_t* a = Malloc(1);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(AllocationFaultsFired(), 0u);
  EXPECT_EQ(Calloc(1, 1), nullptr);
  EXPECT_EQ(AllocationFaultsFired(), 1u);
  uint8_t* c = Malloc(1);
  EXPECT_NE(c, nullptr);
  EXPECT_EQ(AllocationsHeld(), 2u);
  EXPECT_EQ(AllocationCalls(), 3u);
  free(a);
  free(c);
}

TEST_F(Allocations, nth_allocation_fails_from_then_on_until_cleared) {
  FailNthAllocation(1, Repeat::kFromThenOn);
  EXPECT_EQ(Malloc(1), nullptr);
  EXPECT_EQ(Malloc(1), nullptr);
  EXPECT_EQ(AllocationFaultsFired(), 2u);
  ClearAllocationFaults();
  uint8_t* memory = Malloc(1);
  EXPECT_NE(memory, nullptr);
  free(memory);
}

TEST_F(Allocations, clear_faults_and_reset_end_a_failure_ordered) {
  FailNthAllocation(1);
  ClearFaults();
  uint8_t* a = Malloc(1);
  EXPECT_NE(a, nullptr);
  free(a);
  FailNthAllocation(1);
  ResetHost();
  uint8_t* b = Malloc(1);
  EXPECT_NE(b, nullptr);
  free(b);
}

TEST_F(Allocations, failing_allocation_spares_the_test_itself) {
  FailNthAllocation(1, Repeat::kFromThenOn);
  const Bytes bytes(100000, 1);
  SetFile(u"A", bytes);
  EXPECT_EQ(FileBytes(u"A"), bytes);
  EXPECT_EQ(AllocationFaultsFired(), 0u);
  ClearAllocationFaults();
}

TEST_F(Allocations, calloc_of_too_much_fails_and_counts_nothing) {
  volatile size_t huge = SIZE_MAX / 2;
  EXPECT_EQ(Calloc(huge, 3), nullptr);
  EXPECT_EQ(AllocationsHeld(), 0u);
}

TEST_F(Allocations, free_of_null_and_foreign_memory_passes) {
  free(Escape(static_cast<void*>(nullptr)));
  free(Escape(strdup("made inside the C library")));
  EXPECT_EQ(AllocationsHeld(), 0u);
  EXPECT_EQ(AllocationCalls(), 0u);
}

TEST_F(Allocations, memory_from_before_a_reset_is_freed_uncounted) {
  uint8_t* memory = Malloc(10);
  ResetHost();
  EXPECT_EQ(AllocationsHeld(), 0u);
  free(memory);
  EXPECT_EQ(BytesHeld(), 0u);
}

TEST_F(Allocations, nth_of_zero_throws) { EXPECT_THROW(FailNthAllocation(0), std::invalid_argument); }

// ---- The fixture's own check ----------------------------------------------------------------------------------------

// A test that is run by hand.
struct LeakTest : HostTest {
  explicit LeakTest(bool expectsNothing) {
    if (expectsNothing) ExpectNothingHeld();
  }
  void TestBody() override {}
  using HostTest::TearDown;
};

TEST_F(Allocations, fixture_reports_memory_held_at_the_end) {
  uint8_t* memory = Malloc(12);
  EXPECT_NONFATAL_FAILURE(LeakTest(true).TearDown(), "12 bytes not freed");
  free(memory);
  LeakTest(true).TearDown();
}

TEST_F(Allocations, fixture_reports_handles_held_at_the_end) {
  const Handle file =
      orba::coredll::CreateFileW(u"A", orba::coredll::kGenericReadWrite, 0, nullptr, orba::coredll::kCreateNew, 0, 0);
  EXPECT_NONFATAL_FAILURE(LeakTest(true).TearDown(), "host handles left open");
  orba::coredll::CloseHandle(file);
  LeakTest(true).TearDown();
}

TEST_F(Allocations, fixture_reports_nothing_unless_asked) {
  uint8_t* memory = Malloc(12);
  LeakTest(false).TearDown();
  free(memory);
}

}  // namespace
}  // namespace testhost

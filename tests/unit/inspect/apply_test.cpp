#include "inspect/repair/apply.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tools/orba/host_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;

// A container in memory that refuses from the n-th write on.
struct MemoryTarget : Target {
  explicit MemoryTarget(Bytes contents) : bytes(std::move(contents)) {}

  Bytes bytes;
  std::size_t writes = 0;
  std::size_t refuse = ~std::size_t{0};

  bool Write(std::uint64_t offset, const void* from, std::size_t count) override {
    if (writes++ >= refuse) return false;
    bytes.resize(std::max<std::size_t>(bytes.size(), offset + count));
    std::copy_n(static_cast<const std::uint8_t*>(from), count, bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
  }
  bool Cut(std::uint64_t size) override {
    bytes.resize(size);
    return true;
  }
  bool Flush() override {
    flushes.push_back(writes);
    return flushes.size() <= refuseFlush;
  }

  std::vector<std::size_t> flushes;  // how many writes came before each
  std::size_t refuseFlush = ~std::size_t{0};
};

// A container whose repair overwrites, appends and overlaps.
ImageBuilder Damaged() {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "A", 3000);
  image.AddFile(1, "B", 9000);
  image.Put32(image.MapOffset(3, 1), image.MappedBlock(2, 0));
  image.Put32(image.MapOffset(3, 2), 0);
  image.AddNode(0);
  image.Put16(image.EntryOffset(1, 2), 99);
  return image;
}

Plan PlanFor(const Bytes& bytes) { return PlanRepair(MemoryImage(bytes), testimage::kRepairTime); }

TEST(ApplyPlan, all_writes_make_the_container_clean) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  MemoryTarget target(before);
  EXPECT_TRUE(ApplyPlan(plan, &target));
  EXPECT_EQ(target.writes, testimage::WriteCount(plan));
  const Report report = Check(MemoryImage(target.bytes));
  EXPECT_TRUE(report.IsClean());
  EXPECT_FALSE(report.marked);
}

TEST(ApplyPlan, a_write_fails_stops_there) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  MemoryTarget target(before);
  target.refuse = 3;
  EXPECT_FALSE(ApplyPlan(plan, &target));
  EXPECT_EQ(target.bytes, testimage::AfterWrites(plan, before, 3));
}

TEST(ApplyPlan, several_writes_mark_is_flushed_before_the_others_and_taken_away_after_them) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const std::size_t writes = testimage::WriteCount(plan);
  MemoryTarget target(before);
  EXPECT_TRUE(ApplyPlan(plan, &target));
  EXPECT_EQ(target.flushes, (std::vector<std::size_t>{1, writes - 1, writes}));
}

TEST(ApplyPlan, a_flush_fails_stops_there) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const std::size_t writes = testimage::WriteCount(plan);
  const std::size_t expected[] = {1, writes - 1, writes};
  for (std::size_t flush = 0; flush < 3; ++flush) {
    MemoryTarget target(before);
    target.refuseFlush = flush;
    EXPECT_FALSE(ApplyPlan(plan, &target)) << flush;
    EXPECT_EQ(target.writes, expected[flush]) << flush;
  }
}

TEST(Undo, after_every_number_of_writes_gives_the_old_bytes_back) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  const std::size_t writes = testimage::WriteCount(plan);
  ASSERT_GT(testimage::AfterWrites(plan, before, writes).size(), before.size());
  for (std::size_t done = 0; done <= writes; ++done) {
    MemoryTarget target(testimage::AfterWrites(plan, before, done));
    EXPECT_TRUE(UndoFits(undo, MemoryImage(target.bytes))) << done;
    EXPECT_TRUE(ApplyUndo(undo, &target));
    EXPECT_EQ(target.bytes, before) << done;
  }
}

TEST(Undo, itself_stopped_can_be_tried_again) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  MemoryTarget target(testimage::AfterWrites(plan, before, testimage::WriteCount(plan)));
  target.refuse = 2;
  EXPECT_FALSE(ApplyUndo(undo, &target));
  EXPECT_TRUE(UndoFits(undo, MemoryImage(target.bytes)));
  target.refuse = ~std::size_t{0};
  EXPECT_TRUE(ApplyUndo(undo, &target));
  EXPECT_EQ(target.bytes, before);
}

// The header comes back with the mark in it.
TEST(Undo, stopped_at_any_write_the_container_stays_marked_and_it_can_be_tried_again) {
  ImageBuilder image = Damaged();
  image.Put32(40, 0);
  const Bytes before = image.bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  const Bytes repaired = testimage::AfterWrites(plan, before, testimage::WriteCount(plan));
  MemoryTarget whole(repaired);
  ASSERT_TRUE(ApplyUndo(undo, &whole));
  EXPECT_EQ(whole.bytes, before);
  const std::size_t writes = whole.writes;
  ASSERT_GT(writes, 4u);
  EXPECT_EQ(whole.flushes, (std::vector<std::size_t>{1, writes - 1, writes - 1, writes}));
  for (std::size_t done = 1; done < writes; ++done) {
    MemoryTarget target(repaired);
    target.refuse = done;
    EXPECT_FALSE(ApplyUndo(undo, &target));
    EXPECT_EQ(target.bytes[kStateFlagsOffset], kVolumeDirty | kRepairMark) << done;
    EXPECT_TRUE(UndoFits(undo, MemoryImage(target.bytes))) << done;
    target.refuse = ~std::size_t{0};
    EXPECT_TRUE(ApplyUndo(undo, &target));
    EXPECT_EQ(target.bytes, before) << done;
  }
}

TEST(Undo, a_flush_fails_stops_there) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  const Bytes repaired = testimage::AfterWrites(plan, before, testimage::WriteCount(plan));
  for (std::size_t flush = 0; flush < 4; ++flush) {
    MemoryTarget target(repaired);
    target.refuseFlush = flush;
    EXPECT_FALSE(ApplyUndo(undo, &target)) << flush;
    EXPECT_EQ(target.flushes.size(), flush + 1);
  }
}

TEST(Undo, any_byte_of_the_file_changed_or_missing_is_refused_and_nothing_written) {
  const Bytes before = Damaged().bytes();
  const Bytes undo = MakeUndo(PlanFor(before), MemoryImage(before));
  MemoryTarget target(before);
  for (std::size_t at = 0; at < undo.size(); at += at < 64 ? 1 : 97) {
    Bytes bad = undo;
    bad[at] ^= 0x10;
    EXPECT_FALSE(IsUndo(bad)) << at;
    EXPECT_FALSE(UndoFits(bad, MemoryImage(before))) << at;
    EXPECT_FALSE(ApplyUndo(bad, &target)) << at;
    EXPECT_FALSE(ApplyUndo(Bytes(undo.begin(), undo.begin() + static_cast<std::ptrdiff_t>(at)), &target)) << at;
  }
  EXPECT_EQ(target.writes, 0u);
}

TEST(UndoFits, a_write_that_came_half_fits) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  std::size_t halves = 0;
  const std::size_t writes = testimage::WriteCount(plan);
  for (std::size_t done = 0; done < writes; ++done) {
    const Bytes now = testimage::AfterWrites(plan, before, done);
    const Bytes next = testimage::AfterWrites(plan, before, done + 1);
    const auto first = std::mismatch(now.begin(), now.end(), next.begin()).first - now.begin();
    Bytes half = now;
    half.resize(next.size());  // what was appended and did not come is zeros
    std::copy_n(next.begin(), std::min<std::ptrdiff_t>(first + 1, static_cast<std::ptrdiff_t>(half.size())),
                half.begin());
    EXPECT_TRUE(UndoFits(undo, MemoryImage(half))) << done;
    halves += half != now && half != next ? 1 : 0;
  }
  EXPECT_GT(halves, 0u);
}

TEST(UndoFits, a_byte_that_the_repair_did_not_write_does_not_fit) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  std::vector<Bytes> states;
  for (std::size_t done = 0; done <= testimage::WriteCount(plan); ++done) {
    states.push_back(testimage::AfterWrites(plan, before, done));
  }
  Bytes changed = states.back();
  for (std::size_t at = 0; at < changed.size(); at += at < 4096 ? 1 : 13) {
    const std::uint8_t was = changed[at];
    const auto seen = [&](const Bytes& state) { return at < state.size() && state[at] == changed[at]; };
    do {
      ++changed[at];
    } while (changed[at] == 0 || std::any_of(states.begin(), states.end(), seen));
    EXPECT_FALSE(UndoFits(undo, MemoryImage(changed))) << at;
    changed[at] = was;
  }
  EXPECT_TRUE(UndoFits(undo, MemoryImage(changed)));
}

TEST(UndoFits, container_longer_or_shorter_than_the_repair_makes_it_does_not_fit) {
  const Bytes before = Damaged().bytes();
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  Bytes longer = testimage::AfterWrites(plan, before, testimage::WriteCount(plan));
  longer.push_back(0);
  EXPECT_FALSE(UndoFits(undo, MemoryImage(longer)));
  EXPECT_FALSE(UndoFits(undo, MemoryImage(Bytes(before.begin(), before.end() - 1))));
  EXPECT_FALSE(UndoFits(undo, MemoryImage(Bytes())));
}

TEST(UndoFits, another_container_with_the_same_damage_and_length_does_not_fit) {
  const auto marked = [](const char* name) {
    ImageBuilder image(1024, 32);
    image.AddFile(1, name, 3000);
    image.Put32(kStateFlagsOffset, kVolumeDirty);
    return image.bytes();
  };
  const Bytes one = marked("A");
  const Bytes other = marked("B");
  ASSERT_EQ(one.size(), other.size());
  const Bytes undo = MakeUndo(PlanFor(one), MemoryImage(one));
  EXPECT_TRUE(UndoFits(undo, MemoryImage(one)));
  EXPECT_FALSE(UndoFits(undo, MemoryImage(other)));
}

TEST(Undo, empty_plan_is_a_file_that_changes_nothing) {
  const Bytes before = ImageBuilder(1024, 32).bytes();
  const Bytes undo = MakeUndo(PlanFor(before), MemoryImage(before));
  EXPECT_EQ(undo.size(), 36u);
  MemoryTarget target(before);
  EXPECT_TRUE(ApplyUndo(undo, &target));
  EXPECT_EQ(target.bytes, before);
}

}  // namespace
}  // namespace orba::inspect

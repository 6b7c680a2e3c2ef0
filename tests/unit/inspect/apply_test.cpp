#include "inspect/repair/apply.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

#include "inspect/container/fields.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"
#include "tools/orba/host_image.h"

namespace orba::inspect {
namespace {

using testimage::BadByte;
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

// A plan of these writes alone.
Plan PlanOf(const std::vector<Write>& writes) {
  Plan plan;
  plan.actions.resize(1);
  plan.actions[0].writes = writes;
  return plan;
}

// The checksum that an undo file has for these bytes, none of which is written.
std::uint32_t SumOf(const Bytes& bytes) { return Get32(&MakeUndo(Plan(), MemoryImage(bytes))[20]); }

// With another word at `offset`, and the checksum that is right then.
Bytes WithWord(Bytes undo, std::size_t offset, std::uint32_t word) {
  Put32(&undo[offset], word);
  Put32(&undo[undo.size() - 4], SumOf(Bytes(undo.begin(), undo.end() - 4)));
  return undo;
}

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

// Stops the undoing of a repair after each write.
void ExpectMarkedAtEveryStop(const Bytes& before) {
  const Plan plan = PlanFor(before);
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  const Bytes repaired = testimage::AfterWrites(plan, before, testimage::WriteCount(plan));
  MemoryTarget whole(repaired);
  ASSERT_TRUE(ApplyUndo(undo, &whole));
  EXPECT_EQ(whole.bytes, before);
  const std::size_t writes = whole.writes;
  ASSERT_GT(writes, 2u);
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

TEST(Undo, stopped_at_any_write_the_container_stays_marked_and_it_can_be_tried_again) {
  ExpectMarkedAtEveryStop(Damaged().bytes());
}

// The header comes back with the mark in it.
TEST(Undo, stopped_while_the_header_comes_back_the_container_stays_marked) {
  ImageBuilder image = Damaged();
  image.Put32(40, 0);
  ExpectMarkedAtEveryStop(image.bytes());
}

// The repair cleared the mark; while it is taken back there is another.
TEST(Undo, of_a_mark_alone_stopped_at_any_write_can_be_tried_again) {
  ImageBuilder image(1024, 32);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  ExpectMarkedAtEveryStop(image.bytes());
}

// Records what is asked of it.
struct RecordingTarget : Target {
  std::map<std::uint64_t, Bytes> writes;
  std::uint64_t size = 0;

  bool Write(std::uint64_t offset, const void* bytes, std::size_t count) override {
    writes[offset].assign(static_cast<const std::uint8_t*>(bytes), static_cast<const std::uint8_t*>(bytes) + count);
    return true;
  }
  bool Cut(std::uint64_t end) override {
    size = end;
    return true;
  }
  bool Flush() override { return true; }
};

TEST(Undo, of_a_repair_that_left_the_flags_alone_does_not_mark) {
  const Bytes before = Damaged().bytes();
  RecordingTarget target;
  EXPECT_TRUE(ApplyUndo(MakeUndo(PlanOf({{8, {1, 2}}, {2000, {3}}}), MemoryImage(before)), &target));
  const std::map<std::uint64_t, Bytes> expected = {{8, {before[8], before[9]}}, {2000, {before[2000]}}};
  EXPECT_EQ(target.writes, expected);
}

TEST(Undo, offsets_and_length_have_64_bits) {
  Bytes undo = MakeUndo(PlanOf({{2000, {9}}}), MemoryImage(Bytes(3000, 5)));
  undo = WithWord(WithWord(undo, 24, 0x87654321), 28, 0x12345678);  // the length
  undo = WithWord(WithWord(undo, 32, 0xFEDCBA98), 36, 0x01234567);  // where the range is
  RecordingTarget target;
  EXPECT_TRUE(ApplyUndo(undo, &target));
  EXPECT_EQ(target.writes, (std::map<std::uint64_t, Bytes>{{0x01234567FEDCBA98, {5}}}));
  EXPECT_EQ(target.size, 0x1234567887654321u);
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

TEST(Undo, file_is_as_described) {
  const Bytes undo = MakeUndo(PlanOf({{2, {1, 2}}, {0x123456789A, {3}}}), MemoryImage(Bytes(300, 7)));
  const Bytes expected = {'O',  'R',  'B',  'A',  'U',  'N', 'D', 'O',                    //
                          2,    0,    0,    0,                                            // version
                          1,    0,    0,    0,    2,    0,   0,   0,                      // ranges and writes
                          0xD8, 0x62, 0x10, 0x4C,                                         // CRC-32 of 298 bytes 7
                          0x2C, 1,    0,    0,    0,    0,   0,   0,                      // length
                          2,    0,    0,    0,    0,    0,   0,   0,   2, 0, 0, 0, 7, 7,  // the range
                          2,    0,    0,    0,    0,    0,   0,   0,   2, 0, 0, 0, 1, 2,  // the writes
                          0x9A, 0x78, 0x56, 0x34, 0x12, 0,   0,   0,   1, 0, 0, 0, 3};
  ASSERT_EQ(undo.size(), expected.size() + 4);
  EXPECT_EQ(Bytes(undo.begin(), undo.end() - 4), expected);
  EXPECT_EQ(Get32(&undo[undo.size() - 4]), SumOf(expected));
}

TEST(Undo, checksum_is_crc_32) {
  const std::string digits = "123456789";
  EXPECT_EQ(SumOf(Bytes(digits.begin(), digits.end())), 0xCBF43926u);
  Bytes all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  EXPECT_EQ(SumOf(all), 0x29058C73u);
  EXPECT_EQ(SumOf(Bytes(70000, 7)), 0x691342CDu);
}

// Undo files are compared with containers by other builds too.
TEST(Undo, what_the_host_cannot_read_counts_as_zeros_in_pieces_of_64_kib) {
  const Bytes bytes = testimage::Pattern(200000, 1);
  Bytes zeros = bytes;
  std::fill(zeros.begin() + 65536, zeros.begin() + 2 * 65536, std::uint8_t{0});
  EXPECT_EQ(MakeUndo({}, BadByte(bytes, 100000)), MakeUndo({}, MemoryImage(zeros)));
  const Plan plan = PlanOf({{1000, {1, 2}}});  // pieces begin behind what is written
  zeros = bytes;
  std::fill(zeros.begin() + 1002 + 65536, zeros.begin() + 1002 + 2 * 65536, std::uint8_t{0});
  EXPECT_EQ(MakeUndo(plan, BadByte(bytes, 100000)), MakeUndo(plan, MemoryImage(zeros)));
}

TEST(Undo, of_every_byte_of_a_container_gives_them_back) {
  const Bytes before(300, 7);
  const Bytes undo = MakeUndo(PlanOf({{0, Bytes(300, 8)}}), MemoryImage(before));
  MemoryTarget target(Bytes(300, 8));
  EXPECT_TRUE(UndoFits(undo, MemoryImage(target.bytes)));
  EXPECT_TRUE(ApplyUndo(undo, &target));
  EXPECT_EQ(target.bytes, before);
}

TEST(Undo, write_of_no_bytes_is_sound) { EXPECT_TRUE(IsUndo(MakeUndo(PlanOf({{5, {}}}), MemoryImage(Bytes(300, 7))))); }

TEST(Undo, range_of_no_bytes_lies_in_the_container) {
  const Bytes undo = MakeUndo(PlanOf({{300, {}}}), MemoryImage(Bytes(300, 7)));
  const Bytes range = WithWord(WithWord(undo, 12, 1), 16, 0);  // what was a write
  EXPECT_TRUE(IsUndo(range));
  EXPECT_FALSE(IsUndo(WithWord(range, 32, 301)));
}

// Sums are right, what they are of is not.
TEST(Undo, file_that_contradicts_itself_is_refused) {
  const Bytes undo = MakeUndo(PlanOf({{20, {1, 2, 3, 4}}}), MemoryImage(Bytes(300, 7)));
  ASSERT_TRUE(IsUndo(WithWord(undo, 20, 0)));
  EXPECT_FALSE(IsUndo(WithWord(undo, 4, 0x58444E55)));  // the last letter of the signature
  EXPECT_FALSE(IsUndo(WithWord(undo, 8, 3)));           // the version
  EXPECT_FALSE(IsUndo(WithWord(undo, 12, 0)));          // the number of ranges
  EXPECT_FALSE(IsUndo(WithWord(undo, 12, 2)));
  EXPECT_FALSE(IsUndo(WithWord(undo, 12, 3)));
  EXPECT_FALSE(IsUndo(WithWord(undo, 16, 0)));  // of writes
  EXPECT_FALSE(IsUndo(WithWord(undo, 16, 2)));
  EXPECT_TRUE(IsUndo(WithWord(undo, 24, 24)));  // the container's length
  EXPECT_FALSE(IsUndo(WithWord(undo, 24, 23)));
  EXPECT_FALSE(IsUndo(WithWord(undo, 24, 3)));
  EXPECT_FALSE(IsUndo(WithWord(undo, 36, 1)));  // where the range is
  EXPECT_FALSE(IsUndo(WithWord(undo, 40, 3)));  // its length
  EXPECT_FALSE(IsUndo(WithWord(undo, 40, 30)));
  const Bytes long_undo = WithWord(WithWord(undo, 24, 0xFFFFFFFF), 28, 0xFFFFFFFF);
  EXPECT_FALSE(IsUndo(WithWord(long_undo, 12, 0xFFFFFFFF)));
  EXPECT_FALSE(IsUndo(WithWord(long_undo, 40, 0xFFFFFFF0)));
}

TEST(WrittenRanges, what_overlaps_or_touches_is_one) {
  using Ranges = std::map<std::uint64_t, std::uint64_t>;
  const auto ranges = [](const std::vector<Write>& writes) { return WrittenRanges(PlanOf(writes), 30); };
  EXPECT_EQ(ranges({{2, Bytes(3)}, {10, Bytes(5)}}), (Ranges{{2, 5}, {10, 15}}));
  EXPECT_EQ(ranges({{2, Bytes(3)}, {5, Bytes(5)}}), (Ranges{{2, 10}}));
  EXPECT_EQ(ranges({{5, Bytes(5)}, {2, Bytes(3)}}), (Ranges{{2, 10}}));
  EXPECT_EQ(ranges({{10, Bytes(10)}, {5, Bytes(7)}}), (Ranges{{5, 20}}));
  EXPECT_EQ(ranges({{2, Bytes(3)}, {10, Bytes(5)}, {4, Bytes(7)}}), (Ranges{{2, 15}}));
}

TEST(WrittenRanges, what_is_appended_is_in_none) {
  using Ranges = std::map<std::uint64_t, std::uint64_t>;
  const auto ranges = [](const std::vector<Write>& writes) { return WrittenRanges(PlanOf(writes), 30); };
  EXPECT_EQ(ranges({{25, Bytes(10)}}), (Ranges{{25, 30}}));
  EXPECT_EQ(ranges({{30, Bytes(10)}}), Ranges());
  EXPECT_EQ(ranges({{40, Bytes(10)}}), Ranges());
}

// The byte is what the file has behind the first write's bytes: the second write's offset, 104.
TEST(UndoFits, byte_that_neither_of_two_writes_accounts_for_does_not_fit) {
  const Bytes undo = MakeUndo(PlanOf({{100, Bytes(4, 1)}, {104, Bytes(4, 2)}}), MemoryImage(Bytes(300, 7)));
  Bytes now(300, 7);
  now[104] = 2;
  EXPECT_TRUE(UndoFits(undo, MemoryImage(now)));
  now[104] = 104;
  EXPECT_FALSE(UndoFits(undo, MemoryImage(now)));
}

TEST(UndoFits, ranges_that_overlap_do_not_fit) {
  const Bytes before(300, 7);
  const Bytes undo = MakeUndo(PlanOf({{100, Bytes(4, 1)}, {110, Bytes(4, 2)}}), MemoryImage(before));
  ASSERT_TRUE(UndoFits(undo, MemoryImage(before)));
  const std::uint32_t sum = SumOf(Bytes(300 - 6, 7));
  EXPECT_FALSE(UndoFits(WithWord(WithWord(undo, 20, sum), 48, 102), MemoryImage(before)));
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

// What the work on an open file costs: calls at the container, by kind and in order, and memory.
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::TraceText;

class OpenFileCost : public LibraryTest {
 protected:
  // Opens the file "F" with `size` bytes of data on a volume of blocks of 1024 bytes, at position 0.
  void Start(uint32_t size) {
    volume_ = FormatAndMount();
    ASSERT_EQ(OrbCreateFileA("F", 0), 1);
    file_ = OrbOpenFileA("F", 3);
    buffer_ = Pattern(size);
    ASSERT_EQ(Write(size), size);
    buffer_.resize(1 << 20);
    Begin(0);
  }

  // Moves to a position and starts to count.
  void Begin(uint32_t position) {
    ASSERT_EQ(OrbSetFilePointer(file_, static_cast<OrbI32>(position), ORB_SEEK_BEGIN), position);
    g_dwReadCount = g_dwWriteCount = g_dwSeekCount = 0;
    testhost::ClearTrace();
    testhost::ResetPeakBytes();
    held_ = testhost::BytesHeld();
    allocations_ = testhost::AllocationCalls();
  }

  OrbU32 Read(uint32_t count) {
    OrbU32 done = 0;
    EXPECT_EQ(OrbReadFile(file_, buffer_.data(), count, &done), 1) << std::hex << GetError();
    return done;
  }
  OrbU32 Write(uint32_t count) {
    OrbU32 done = 0;
    EXPECT_EQ(OrbWriteFile(file_, buffer_.data(), count, &done), 1) << std::hex << GetError();
    return done;
  }

  uint32_t Allocations() const { return testhost::AllocationCalls() - allocations_; }
  size_t Peak() const { return testhost::PeakBytes() - held_; }
  static void ExpectCalls(uint32_t reads, uint32_t writes, uint32_t seeks, uint32_t sizes) {
    EXPECT_EQ(g_dwReadCount, reads);
    EXPECT_EQ(g_dwWriteCount, writes);
    EXPECT_EQ(g_dwSeekCount, seeks);
    EXPECT_EQ(testhost::CallCount(Call::kGetFileSize), sizes);
    EXPECT_EQ(testhost::CallCount(), reads + writes + seeks + sizes);
  }

  Volume* volume_ = nullptr;
  OrbHandle file_ = 0;
  Bytes buffer_;
  size_t held_ = 0;
  uint32_t allocations_ = 0;
};

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(OpenFileCost, read_inside_a_direct_block_is_one_transfer) {
  Start(6 * 1024);
  Begin(1024 + 10);
  EXPECT_EQ(Read(100), 100u);
  ExpectCalls(1, 0, 1, 0);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, read_of_six_direct_blocks_is_six_transfers) {
  Start(6 * 1024);
  EXPECT_EQ(Read(6 * 1024), 6u * 1024);
  ExpectCalls(6, 0, 6, 0);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, read_across_block_borders_is_a_transfer_for_each_piece) {
  Start(6 * 1024);
  Begin(1000);
  EXPECT_EQ(Read(2000), 2000u);
  EXPECT_EQ(TraceText(), "seek 4088 / read 4088 24 / seek 4112 / read 4112 1024 / seek 5136 / read 5136 952");
}

TEST_F(OpenFileCost, read_through_the_single_indirect_block_is_two_transfers_a_block) {
  Start(20 * 1024);
  Begin(6 * 1024);
  EXPECT_EQ(Read(14 * 1024), 14u * 1024);
  ExpectCalls(28, 0, 28, 0);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, read_through_the_double_indirect_block_is_three_transfers_a_block) {
  Start(270 * 1024);
  Begin(262 * 1024);
  EXPECT_EQ(Read(8 * 1024), 8u * 1024);
  ExpectCalls(24, 0, 24, 0);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, read_at_the_end_of_the_file_makes_no_call) {
  Start(100);
  Begin(100);
  EXPECT_EQ(Read(1000), 0u);
  ExpectCalls(0, 0, 0, 0);
}

TEST_F(OpenFileCost, positions_and_sizes_make_no_call) {
  Start(300 * 1024);
  EXPECT_EQ(OrbSetFilePointer(file_, -1, ORB_SEEK_END), 300u * 1024 - 1);
  EXPECT_EQ(OrbGetFileSize(file_), 300u * 1024);
  ExpectCalls(0, 0, 0, 0);
  EXPECT_EQ(Allocations(), 0u);
}

// ---- Overwriting ----------------------------------------------------------------------------------------------------

TEST_F(OpenFileCost, overwriting_inside_the_file_is_the_data_and_no_metadata) {
  Start(6 * 1024);
  EXPECT_EQ(Write(6 * 1024), 6u * 1024);
  ExpectCalls(0, 6, 6, 0);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, overwriting_part_of_a_block_writes_that_part_alone) {
  Start(6 * 1024);
  Begin(1000);
  EXPECT_EQ(Write(100), 100u);
  EXPECT_EQ(TraceText(), "seek 4088 / write 4088 24 / seek 4112 / write 4112 76");
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, overwriting_through_the_indirect_blocks_reads_their_slots) {
  Start(270 * 1024);
  Begin(261 * 1024);
  EXPECT_EQ(Write(2 * 1024), 2u * 1024);
  ExpectCalls(1 + 2, 2, 5, 0);
  EXPECT_EQ(Allocations(), 0u);
}

// ---- Growing --------------------------------------------------------------------------------------------------------

TEST_F(OpenFileCost, growing_by_a_whole_block_is_its_data_the_node_the_mark_and_the_commit) {
  Start(1024);
  Begin(1024);
  EXPECT_EQ(Write(1024), 1024u);
  EXPECT_EQ(TraceText(),
            "size / seek 4112 / write 4112 1024 / seek 52 / write 52 4 / seek 1104 / write 1104 64 / seek 52 / "
            "write 52 4");
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, growing_by_a_partial_block_takes_one_block_of_memory) {
  Start(1024);
  Begin(1024);
  EXPECT_EQ(Write(10), 10u);
  ExpectCalls(0, 4, 4, 1);
  EXPECT_EQ(Allocations(), 1u);
  EXPECT_EQ(Peak(), 1024u);
}

TEST_F(OpenFileCost, growing_inside_the_last_block_is_its_bytes_the_node_the_mark_and_the_commit) {
  Start(100);
  Begin(100);
  EXPECT_EQ(Write(50), 50u);
  EXPECT_EQ(TraceText(),
            "seek 3188 / write 3188 50 / seek 52 / write 52 4 / seek 1104 / write 1104 64 / seek 52 / write 52 4");
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, growing_by_many_whole_blocks_marks_and_commits_once) {
  Start(0);
  EXPECT_EQ(Write(6 * 1024), 6u * 1024);
  ExpectCalls(0, 6 + 6 + 2, 6 + 6 + 2, 6);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, growing_into_the_single_indirect_block_makes_it_once) {
  Start(6 * 1024);
  Begin(6 * 1024);
  EXPECT_EQ(Write(3 * 1024), 3u * 1024);
  // Three times data, slot (the first one in a new block) and node, and the mark and the commit.
  ExpectCalls(0, 9 + 2, 9 + 2, 3 + 1);
  EXPECT_EQ(Allocations(), 1u);  // the new map block's zeros
}

TEST_F(OpenFileCost, growing_in_the_double_range_reads_one_slot_a_block) {
  Start(263 * 1024);
  Begin(263 * 1024);
  EXPECT_EQ(Write(2 * 1024), 2u * 1024);
  ExpectCalls(2, 6 + 2, 8 + 2, 2);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, growing_from_the_free_chain_writes_the_record_for_each_block) {
  Start(0);
  ASSERT_EQ(Write(5 * 1024), 5u * 1024);
  ASSERT_EQ(OrbSetFileSize(file_, 0), 1);
  Begin(0);
  EXPECT_EQ(Write(2 * 1024), 2u * 1024);
  ExpectCalls(0, 6 + 2, 6 + 2, 0);
  EXPECT_EQ(Allocations(), 2u);  // the record's copy, each time
  EXPECT_EQ(Peak(), 1024u);
}

TEST_F(OpenFileCost, extending_takes_one_buffer_for_all_blocks) {
  Start(0);
  ASSERT_EQ(OrbSetFileSize(file_, 5 * 1024), 1);
  ExpectCalls(0, 5 + 5 + 2, 5 + 5 + 2, 5);
  EXPECT_EQ(Allocations(), 1u);
  EXPECT_EQ(Peak(), 1024u);
}

// ---- Shrinking, flushing, closing -----------------------------------------------------------------------------------

TEST_F(OpenFileCost, shrinking_within_the_last_block_is_the_node_the_mark_and_the_commit) {
  Start(1000);
  ASSERT_EQ(OrbSetFileSize(file_, 10), 1);
  ExpectCalls(0, 3, 3, 0);
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, shrinking_by_blocks_is_the_node_and_the_chain_for_each) {
  Start(4 * 1024);
  ASSERT_EQ(OrbSetFileSize(file_, 2 * 1024), 1);
  // Twice the node; the first block becomes a record (record and header), the second an entry; mark and commit.
  ExpectCalls(0, 2 + 2 + 1 + 2, 2 + 2 + 1 + 2, 2);
}

TEST_F(OpenFileCost, setting_the_size_it_has_makes_no_call) {
  Start(4 * 1024);
  ASSERT_EQ(OrbSetFileSize(file_, 4 * 1024), 1);
  ExpectCalls(0, 0, 0, 0);
}

TEST_F(OpenFileCost, flush_and_close_are_one_flush_each) {
  Start(4 * 1024);
  ASSERT_EQ(OrbFlushFileBuffers(file_), 1);
  ASSERT_EQ(OrbCloseFile(file_), 1);
  EXPECT_EQ(TraceText(), "flush / flush");
  EXPECT_EQ(Allocations(), 0u);
}

TEST_F(OpenFileCost, opening_a_file_of_the_root_reads_its_name_and_its_node) {
  Start(4 * 1024);
  ASSERT_EQ(OrbCloseFile(file_), 1);
  testhost::ClearTrace();
  ASSERT_EQ(OrbOpenFileA("F", 1), file_);
  EXPECT_EQ(TraceText(), "seek 2064 / read 2064 1024 / seek 1104 / read 1104 64");
}

}  // namespace
}  // namespace orba

#include "unit/nodes/block_map_test.h"

#include <string.h>

#include <iterator>

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class BlockMapLookup : public BlockMapTest {};
class BlockMapSet : public BlockMapTest {};
class BlockMapAppend : public BlockMapTest {};

// "seek P / read P 4" for a slot of a block.
std::string ReadOfSlot(uint32_t blockPosition, uint32_t slot) {
  const std::string at = std::to_string(blockPosition + slot * 4);
  return "seek " + at + " / read " + at + " 4";
}

// ---- Lookup ---------------------------------------------------------------------------------------------------------

TEST_F(BlockMapLookup, first_six_blocks_cost_no_read) {
  for (uint32_t i = 0; i < 6; ++i) node_->record.direct[i] = 100 + i;
  for (uint32_t i = 0; i < 6; ++i) {
    EXPECT_EQ(LookupFileBlock(node_, i * 1024), 100 + i);
    EXPECT_EQ(LookupFileBlock(node_, i * 1024 + 1023), 100 + i);
  }
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapLookup, seventh_block_is_slot_0_of_the_single_indirect_block) {
  SetBlocks(20);
  node_->record.indirect = 10;
  PutWord(10, 0, 77);
  EXPECT_EQ(LookupFileBlock(node_, 6 * 1024), 77u);
  EXPECT_EQ(TraceText(), ReadOfSlot(PositionOf(10), 0));
  EXPECT_EQ(LookupFileBlock(node_, 7 * 1024 - 1), 77u);
}

TEST_F(BlockMapLookup, borders_lie_at_6_and_at_6_and_p_for_every_block_size) {
  for (const uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    SCOPED_TRACE(blockSize);
    Start(blockSize);
    SetBlocks(20);
    const uint32_t p = blockSize / 4;
    node_->record.direct[5] = 5;
    node_->record.indirect = 10;
    node_->record.doubleIndirect = 11;
    PutWord(10, p - 1, 71);
    PutWord(11, 0, 12);
    PutWord(11, 1, 13);
    PutWord(12, 0, 72);
    PutWord(12, p - 1, 73);
    PutWord(13, 0, 74);
    EXPECT_EQ(LookupFileBlock(node_, 6 * blockSize - 1), 5u);
    EXPECT_EQ(TraceText(), "");
    EXPECT_EQ(LookupFileBlock(node_, (6 + p) * blockSize - 1), 71u);
    EXPECT_EQ(TraceText(), ReadOfSlot(PositionOf(10), p - 1));
    testhost::ClearTrace();
    EXPECT_EQ(LookupFileBlock(node_, (6 + p) * blockSize), 72u);
    EXPECT_EQ(TraceText(), ReadOfSlot(PositionOf(11), 0) + " / " + ReadOfSlot(PositionOf(12), 0));
    testhost::ClearTrace();
    EXPECT_EQ(LookupFileBlock(node_, (6 + 2 * p - 1) * blockSize), 73u);
    EXPECT_EQ(TraceText(), ReadOfSlot(PositionOf(11), 0) + " / " + ReadOfSlot(PositionOf(12), p - 1));
    testhost::ClearTrace();
    EXPECT_EQ(LookupFileBlock(node_, (6 + 2 * p) * blockSize), 74u);
    EXPECT_EQ(TraceText(), ReadOfSlot(PositionOf(11), 1) + " / " + ReadOfSlot(PositionOf(13), 0));
  }
}

TEST_F(BlockMapLookup, double_indirect_block_serves_from_268288_on_with_blocks_of_1024) {
  SetBlocks(20);
  node_->record.indirect = 10;
  node_->record.doubleIndirect = 11;
  PutWord(10, 255, 71);
  PutWord(11, 0, 12);
  PutWord(12, 0, 72);
  EXPECT_EQ(LookupFileBlock(node_, 268287), 71u);
  EXPECT_EQ(LookupFileBlock(node_, 268288), 72u);
}

TEST_F(BlockMapLookup, last_block_of_the_map_is_the_last_slot_of_the_last_second_level_block) {
  SetBlocks(20);
  node_->record.doubleIndirect = 11;
  PutWord(11, 255, 12);
  PutWord(12, 255, 72);
  EXPECT_EQ(LookupFileBlock(node_, 65797 * 1024), 72u);
}

TEST_F(BlockMapLookup, slot_beyond_the_map_is_damage_and_reads_nothing) {
  SetBlocks(20);
  node_->record.doubleIndirect = 11;
  for (const uint32_t position : {65798u * 1024, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    ClearError();
    EXPECT_EQ(LookupFileBlock(node_, position), 0u) << position;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << position;
  }
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapLookup, missing_block_anywhere_on_the_way_is_damage) {
  SetBlocks(20);
  const auto expectDamage = [this](uint32_t position, const char* what) {
    ClearError();
    EXPECT_EQ(LookupFileBlock(node_, position), 0u) << what;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << what;
  };
  expectDamage(0, "direct slot");
  expectDamage(6 * 1024, "single-indirect block");
  expectDamage(268288, "double-indirect block");
  EXPECT_EQ(testhost::CallCount(), 0u);
  node_->record.indirect = 10;
  node_->record.doubleIndirect = 11;
  expectDamage(6 * 1024, "slot of the single-indirect block");
  expectDamage(268288, "slot of the double-indirect block");
  PutWord(11, 0, 12);
  expectDamage(268288, "slot of the second-level block");
}

TEST_F(BlockMapLookup, map_block_past_the_end_is_damage_of_the_volume) {
  node_->record.indirect = 10;
  EXPECT_EQ(LookupFileBlock(node_, 6 * 1024), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
}

TEST_F(BlockMapLookup, map_block_out_of_reach_fails_at_the_host) {
  SetBlocks(20);
  node_->record.indirect = 0xFFFFFFFF;
  EXPECT_EQ(LookupFileBlock(node_, 7 * 1024), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_READ);
}

TEST_F(BlockMapLookup, number_in_a_slot_is_returned_as_it_is) {
  SetBlocks(20);
  node_->record.direct[0] = 0xFFFFFFFF;
  node_->record.indirect = 10;
  PutWord(10, 0, 0x00FFFFFF);
  EXPECT_EQ(LookupFileBlock(node_, 0), 0xFFFFFFFFu);
  EXPECT_EQ(LookupFileBlock(node_, 6 * 1024), 0x00FFFFFFu);
}

TEST_F(BlockMapLookup, failed_read_returns_0_with_its_code) {
  SetBlocks(20);
  node_->record.doubleIndirect = 11;
  PutWord(11, 0, 12);
  PutWord(12, 0, 72);
  for (uint32_t n = 1; n <= 2; ++n) {
    FailNthCall(Call::kReadFile, n, coredll::kHostNotReady);
    EXPECT_EQ(LookupFileBlock(node_, 268288), 0u);
    EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  }
}

// ---- Set: which blocks ----------------------------------------------------------------------------------------------

TEST_F(BlockMapSet, node_that_is_not_live_is_refused) {
  OrbNode stranger = {};
  stranger.volume = volume_;
  stranger.references = 1;
  EXPECT_FALSE(SetFileBlock(&stranger, 0, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  EXPECT_FALSE(SetFileBlock(nullptr, 0, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  node_->references = 0;
  ClearError();
  EXPECT_FALSE(SetFileBlock(node_, 0, 3));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  node_->references = 1;
  EXPECT_EQ(node_->record.direct[0], 0u);
}

TEST_F(BlockMapSet, limit_is_the_size_and_one_in_whole_blocks) {  // M1, Q18
  SetBlocks(20);
  const struct {
    uint32_t size, logical;
    bool allowed;
  } cases[] = {
      {0, 0, true},         {0, 1, false},         {1022, 1, false},       {1023, 1, true},     {1024, 1, true},
      {1024, 2, false},     {6 * 1024, 6, true},   {6 * 1024, 7, false},   {6134, 6, false},    {6143, 6, true},
      {6143, 7, false},     {6145, 6, true},       {5 * 1024, 0, true},    {5 * 1024, 4, true}, {5 * 1024, 5, true},
      {5 * 1024, 6, false}, {0xFFFFFFFF, 0, true}, {0xFFFFFFFF, 1, false},
  };
  for (const auto& c : cases) {
    node_->record.size = c.size;
    node_->record.indirect = 10;
    ClearError();
    EXPECT_EQ(SetFileBlock(node_, c.logical * 1024, 7), c.allowed) << c.size << " " << c.logical;
    EXPECT_EQ(GetError(), c.allowed ? 0u : ORB_ERROR_DAMAGED_RECORD) << c.size << " " << c.logical;
  }
  node_->record.size = 0;
}

TEST_F(BlockMapSet, every_position_of_a_block_means_the_block) {
  EXPECT_TRUE(SetFileBlock(node_, 1023, 7));
  EXPECT_EQ(node_->record.direct[0], 7u);
}

TEST_F(BlockMapSet, direct_slots_change_in_memory_alone) {
  node_->record.size = 6 * 1024;
  for (uint32_t i = 0; i < 6; ++i) EXPECT_TRUE(SetFileBlock(node_, i * 1024, 100 + i));
  for (uint32_t i = 0; i < 6; ++i) EXPECT_EQ(node_->record.direct[i], 100 + i);
  EXPECT_TRUE(SetFileBlock(node_, 5 * 1024, 0));
  EXPECT_EQ(node_->record.direct[5], 0u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapSet, block_beyond_the_map_is_refused_as_volume_full) {
  node_->record.size = 65798 * 1024;
  EXPECT_FALSE(SetFileBlock(node_, 65798 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapSet, last_block_of_the_map_can_be_set) {
  SetBlocks(20);
  node_->record.size = 65797 * 1024;
  node_->record.doubleIndirect = 11;
  PutWord(11, 255, 12);
  EXPECT_TRUE(SetFileBlock(node_, 65797 * 1024, 7));
  EXPECT_EQ(WordAt(12, 255), 7u);
}

// ---- Set: the single-indirect block ---------------------------------------------------------------------------------

TEST_F(BlockMapSet, seventh_block_makes_the_single_indirect_block_with_zeros_behind_its_slot) {  // M2
  Grow(6);
  const uint32_t end = testhost::BlockCount(FileBytes(u"VOL"));
  EXPECT_TRUE(SetFileBlock(node_, 6 * 1024, 0x01020304));
  EXPECT_EQ(node_->record.indirect, end + 1);
  Bytes expected(1024);
  testhost::WriteU32(expected, 0, 0x01020304);
  EXPECT_EQ(BlockBytes(end + 1), expected);
  const std::string at = std::to_string(PositionOf(end + 1));
  EXPECT_EQ(TraceText(), "size / seek 52 / write 52 4 / seek " + at + " / write " + at + " 1024");
  EXPECT_EQ(testhost::NodeOf(FileBytes(u"VOL"), 2).indirect, 0u);  // the node's record is for the caller to write
}

TEST_F(BlockMapSet, later_block_is_one_write_of_its_slot) {
  SetBlocks(20);
  node_->record.size = 8 * 1024;
  node_->record.indirect = 10;
  EXPECT_TRUE(SetFileBlock(node_, 8 * 1024, 7));
  EXPECT_EQ(TraceText(), "seek 52 / write 52 4 / seek 10264 / write 10264 4");
  EXPECT_EQ(WordAt(10, 2), 7u);
  EXPECT_EQ(node_->record.indirect, 10u);
}

TEST_F(BlockMapSet, cleared_slot_is_zero_and_its_map_block_stays) {  // M3
  Grow(7);
  const uint32_t indirect = node_->record.indirect;
  EXPECT_TRUE(SetFileBlock(node_, 6 * 1024, 0));
  EXPECT_EQ(WordAt(indirect, 0), 0u);
  EXPECT_EQ(node_->record.indirect, indirect);
}

TEST_F(BlockMapSet, single_indirect_block_missing_where_its_slot_is_not_0_is_damage) {
  node_->record.size = 7 * 1024;
  EXPECT_FALSE(SetFileBlock(node_, 7 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(node_->record.indirect, 0u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapSet, single_indirect_block_that_cannot_be_made_leaves_the_node) {
  const uint32_t codes[] = {ORB_ERROR_NOT_READY, ORB_ERROR_DISK_FULL};
  const uint32_t hosts[] = {coredll::kHostNotReady, coredll::kHostDiskFull};
  for (size_t i = 0; i < 2; ++i) {
    Start(1024);
    node_->record.size = 6 * 1024;
    FailNthCall(Call::kWriteFile, 2, hosts[i]);
    EXPECT_FALSE(SetFileBlock(node_, 6 * 1024, 7));
    EXPECT_EQ(GetError(), codes[i]);
    EXPECT_EQ(node_->record.indirect, 0u);
    EXPECT_EQ(volume_->failed, i == 0 ? 1u : 0u);
  }
}

// ---- Set: the double-indirect block ---------------------------------------------------------------------------------

TEST_F(BlockMapSet, first_block_of_the_double_range_makes_the_second_level_block_and_then_its_parent) {
  SetBlocks(20);
  node_->record.size = 262 * 1024;
  EXPECT_TRUE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(TraceText(),
            "size / seek 52 / write 52 4 / seek 21520 / write 21520 1024 / size / seek 22544 / write 22544 1024");
  EXPECT_EQ(node_->record.doubleIndirect, 22u);
  Bytes expected(1024);
  testhost::WriteU32(expected, 0, 21);
  EXPECT_EQ(BlockBytes(22), expected);
  testhost::WriteU32(expected, 0, 7);
  EXPECT_EQ(BlockBytes(21), expected);
}

TEST_F(BlockMapSet, block_of_an_existing_second_level_block_is_one_read_and_one_write) {
  SetBlocks(20);
  node_->record.size = 265 * 1024;
  node_->record.doubleIndirect = 11;
  PutWord(11, 0, 12);
  EXPECT_TRUE(SetFileBlock(node_, 265 * 1024, 7));
  EXPECT_EQ(TraceText(), "seek 11280 / read 11280 4 / seek 52 / write 52 4 / seek 12316 / write 12316 4");
  EXPECT_EQ(WordAt(12, 3), 7u);
}

TEST_F(BlockMapSet, second_level_border_makes_another_second_level_block_and_enters_it) {
  SetBlocks(20);
  node_->record.size = (262 + 256) * 1024;
  node_->record.doubleIndirect = 11;
  PutWord(11, 0, 12);
  EXPECT_TRUE(SetFileBlock(node_, (262 + 256) * 1024, 7));
  EXPECT_EQ(TraceText(),
            "seek 11284 / read 11284 4 / size / seek 52 / write 52 4 / seek 21520 / write 21520 1024 / seek 11284 / "
            "write 11284 4");
  EXPECT_EQ(WordAt(11, 1), 21u);
  EXPECT_EQ(WordAt(21, 0), 7u);
  EXPECT_EQ(node_->record.doubleIndirect, 11u);
}

TEST_F(BlockMapSet, cleared_slot_of_a_second_level_block_leaves_the_tree) {
  SetBlocks(20);
  node_->record.size = 263 * 1024;
  node_->record.doubleIndirect = 11;
  PutWord(11, 0, 12);
  PutWord(12, 0, 7);
  EXPECT_TRUE(SetFileBlock(node_, 262 * 1024, 0));
  EXPECT_EQ(WordAt(12, 0), 0u);
  EXPECT_EQ(WordAt(11, 0), 12u);
  EXPECT_EQ(node_->record.doubleIndirect, 11u);
}

TEST_F(BlockMapSet, second_level_block_missing_where_its_slot_is_not_0_is_damage) {
  SetBlocks(20);
  node_->record.size = 263 * 1024;
  node_->record.doubleIndirect = 11;
  EXPECT_FALSE(SetFileBlock(node_, 263 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(TraceText(), "seek 11280 / read 11280 4");
}

TEST_F(BlockMapSet, double_indirect_block_missing_where_the_slot_is_not_0_is_damage) {
  node_->record.size = 263 * 1024;
  EXPECT_FALSE(SetFileBlock(node_, 263 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapSet, double_indirect_block_missing_behind_its_first_second_level_block_loses_the_new_one) {
  SetBlocks(20);
  node_->record.size = (262 + 256) * 1024;
  EXPECT_FALSE(SetFileBlock(node_, (262 + 256) * 1024, 7));  // slot 0 of a second-level block, slot 1 of its parent
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(node_->record.doubleIndirect, 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(testhost::BlockCount(FileBytes(u"VOL")), 21u);
}

TEST_F(BlockMapSet, slot_of_the_double_indirect_block_that_cannot_be_read_fails_with_its_code) {
  SetBlocks(20);
  node_->record.size = 262 * 1024;
  node_->record.doubleIndirect = 11;
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
}

TEST_F(BlockMapSet, slot_of_the_double_indirect_block_that_cannot_be_written_loses_the_second_level_block) {
  SetBlocks(20);
  node_->record.size = 262 * 1024;
  node_->record.doubleIndirect = 11;
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(WordAt(11, 0), 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 0u);  // not freed: only a missing parent does that
  EXPECT_EQ(testhost::BlockCount(FileBytes(u"VOL")), 21u);
}

// ---- Set: an unfinished double-indirect tree ------------------------------------------------------------------------

TEST_F(BlockMapSet, parent_that_meets_a_full_disk_frees_the_second_level_block) {
  SetBlocks(20);
  node_->record.size = 262 * 1024;
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(node_->record.doubleIndirect, 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 21u);
  EXPECT_EQ(volume_->failed, 0u);
}

TEST_F(BlockMapSet, parent_that_meets_the_containers_limit_frees_the_second_level_block) {
  testhost::ResizeFile(u"VOL", 0x80000000u - 1024 - 1008);  // on a block border: room for one block
  const uint32_t second = (0x80000000u - 1024 - 1008 - 1040) / 1024 + 1;
  node_->record.size = 262 * 1024;
  EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
  EXPECT_EQ(node_->record.doubleIndirect, 0u);
  EXPECT_EQ(volume_->header.freeChainHead, second);
}

TEST_F(BlockMapSet, parent_without_memory_frees_the_second_level_block) {
  SetBlocks(20);
  node_->record.size = 262 * 1024;
  FailNthAllocation(2);
  EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(node_->record.doubleIndirect, 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 21u);
}

TEST_F(BlockMapSet, parent_that_fails_for_another_reason_leaves_the_second_level_block_taken) {
  for (const Call call : {Call::kGetFileSize, Call::kSetFilePointer}) {
    Start(1024);
    SetBlocks(20);
    node_->record.size = 262 * 1024;
    FailNthCall(call, call == Call::kGetFileSize ? 2 : 3, coredll::kHostNotReady);
    EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
    EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
    EXPECT_EQ(node_->record.doubleIndirect, 0u);
    EXPECT_EQ(volume_->header.freeChainHead, 0u);
    EXPECT_EQ(testhost::BlockCount(FileBytes(u"VOL")), 21u);
  }
}

TEST_F(BlockMapSet, second_level_block_that_cannot_be_had_makes_nothing) {
  SetBlocks(20);
  node_->record.size = 262 * 1024;
  testhost::ResizeFile(u"VOL", 0x7FFFFFFF);
  EXPECT_FALSE(SetFileBlock(node_, 262 * 1024, 7));
  EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
  EXPECT_EQ(TraceText(), "size");
  EXPECT_EQ(node_->record.doubleIndirect, 0u);
}

// ---- Single entries -------------------------------------------------------------------------------------------------

TEST_F(BlockMapSet, entry_of_an_existing_block_returns_that_block) {
  SetBlocks(20);
  EXPECT_EQ(SetIndirectEntry(volume_, 10, 255, 0x01020304), 10u);
  EXPECT_EQ(FileBytes(u"VOL", PositionOf(10) + 1020, 4), (Bytes{4, 3, 2, 1}));
}

TEST_F(BlockMapSet, entry_of_no_block_makes_one_for_slot_0_only) {
  EXPECT_EQ(SetIndirectEntry(volume_, 0, 1, 7), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(testhost::CallCount(), 0u);
  EXPECT_EQ(SetIndirectEntry(volume_, 0, 0, 7), 3u);
  EXPECT_EQ(WordAt(3, 0), 7u);
}

TEST_F(BlockMapSet, entry_that_cannot_be_written_returns_0) {
  SetBlocks(20);
  FailNthCall(Call::kWriteFile, 2, coredll::kHostNotReady);
  EXPECT_EQ(SetIndirectEntry(volume_, 10, 0, 7), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(volume_->failed, 1u);
}

TEST_F(BlockMapSet, entry_of_a_new_block_that_cannot_be_written_returns_0) {
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_EQ(SetIndirectEntry(volume_, 0, 0, 7), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
}

// ---- Append ---------------------------------------------------------------------------------------------------------

TEST_F(BlockMapAppend, data_is_written_before_the_map_names_it) {  // M4
  Grow(6);
  const uint32_t end = testhost::BlockCount(FileBytes(u"VOL"));
  const Bytes data = Pattern(1024, 9);
  EXPECT_TRUE(AppendFileBlock(node_, 6 * 1024, data.data(), 1024, kDataWrite));
  const std::string first = std::to_string(PositionOf(end + 1));
  const std::string second = std::to_string(PositionOf(end + 2));
  EXPECT_EQ(TraceText(), "size / seek " + first + " / write " + first + " 1024 / size / seek 52 / write 52 4 / seek " +
                             second + " / write " + second + " 1024");
  EXPECT_EQ(WordAt(node_->record.indirect, 0), end + 1);
  EXPECT_EQ(BlockBytes(end + 1), data);
}

TEST_F(BlockMapAppend, part_of_a_block_is_one_write_of_a_whole_block_with_zeros_behind) {
  const Bytes data = Pattern(10);
  EXPECT_TRUE(AppendFileBlock(node_, 0, data.data(), 10, kDataWrite));
  EXPECT_EQ(TraceText(), "size / seek 3088 / write 3088 1024");
  Bytes expected = data;
  expected.resize(1024);
  EXPECT_EQ(BlockBytes(node_->record.direct[0]), expected);
}

TEST_F(BlockMapAppend, whole_block_takes_no_memory_and_a_part_one_block) {
  const Bytes data = Pattern(1024);
  const uint32_t before = testhost::AllocationCalls();
  EXPECT_TRUE(AppendFileBlock(node_, 0, data.data(), 1024, kDataWrite));
  EXPECT_EQ(testhost::AllocationCalls(), before);
  node_->record.size = 1024;
  EXPECT_TRUE(AppendFileBlock(node_, 1024, data.data(), 1023, kDataWrite));
  EXPECT_EQ(testhost::AllocationCalls(), before + 1);
}

TEST_F(BlockMapAppend, block_beyond_the_map_is_refused_before_a_block_is_taken) {
  const struct { uint32_t blockSize, capacity; } sizes[] = {{1024, 65798}, {2048, 262662}};
  for (const auto& size : sizes) {
    Start(size.blockSize);
    node_->record.size = size.capacity * size.blockSize;
    EXPECT_FALSE(AppendFileBlock(node_, node_->record.size, "x", 1, kDataWrite));
    EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
    EXPECT_EQ(testhost::CallCount(), 0u);
  }
}

TEST_F(BlockMapAppend, block_whose_map_entry_fails_is_lost) {
  Grow(6);
  const uint32_t end = testhost::BlockCount(FileBytes(u"VOL"));
  FailNthAllocation(1);  // the single-indirect block's padding; the data takes none
  const Bytes data = Pattern(1024);
  EXPECT_FALSE(AppendFileBlock(node_, 6 * 1024, data.data(), 1024, kDataWrite));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(testhost::BlockCount(FileBytes(u"VOL")), end + 1);
  EXPECT_EQ(node_->record.indirect, 0u);
}

TEST_F(BlockMapAppend, file_through_all_three_ranges_is_found_again_block_by_block) {
  const Blocks blocks = Grow(600);
  for (uint32_t i = 0; i < 600; ++i) {
    ASSERT_NE(blocks[i], 0u) << i;
    ASSERT_EQ(BlockBytes(blocks[i]), Pattern(1024, i)) << i;
  }
  // Map blocks lie between the data they were made for: 6 direct, map, 256, two maps, 256, map, the rest.
  EXPECT_EQ(blocks[5], 8u);
  EXPECT_EQ(blocks[6], 9u);
  EXPECT_EQ(node_->record.indirect, 10u);
  EXPECT_EQ(blocks[7], 11u);
  EXPECT_EQ(blocks[262], 266u);
  EXPECT_EQ(WordAt(node_->record.doubleIndirect, 0), 267u);
  EXPECT_EQ(node_->record.doubleIndirect, 268u);
  EXPECT_EQ(blocks[263], 269u);
  EXPECT_EQ(blocks[518], 524u);
  EXPECT_EQ(WordAt(node_->record.doubleIndirect, 1), 525u);
  EXPECT_EQ(blocks[519], 526u);
}

// ---- Through open files ---------------------------------------------------------------------------------------------

TEST_F(BlockMapAppend, single_indirect_block_is_used_again_after_shrinking_to_6_blocks) {  // M3
  OrbNodeRelease(node_);
  const OrbHandle file = OrbOpenFileA("F", 3);
  node_ = OrbNodeGet(volume_, 2);
  ASSERT_EQ(OrbSetFileSize(file, 7 * 1024), 1);
  const uint32_t indirect = node_->record.indirect;
  const uint32_t blocks = testhost::BlockCount(FileBytes(u"VOL"));
  ASSERT_EQ(OrbSetFileSize(file, 6 * 1024), 1);
  EXPECT_EQ(node_->record.indirect, indirect);
  EXPECT_EQ(WordAt(indirect, 0), 0u);
  ASSERT_EQ(OrbSetFileSize(file, 7 * 1024), 1);
  EXPECT_EQ(node_->record.indirect, indirect);
  EXPECT_NE(WordAt(indirect, 0), 0u);
  EXPECT_EQ(testhost::BlockCount(FileBytes(u"VOL")), blocks);
}

TEST_F(BlockMapAppend, file_at_the_end_of_its_map_does_not_grow) {
  OrbNodeRelease(node_);
  const OrbHandle file = OrbOpenFileA("F", 3);
  node_ = OrbNodeGet(volume_, 2);
  node_->record.size = 65798 * 1024;  // as if the map were full
  testhost::ClearTrace();
  ASSERT_EQ(OrbSetFilePointer(file, 0, ORB_SEEK_END), 67377152u);
  OrbU32 done = 77;
  EXPECT_EQ(OrbWriteFile(file, "x", 1, &done), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(OrbSetFileSize(file, 67377153), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_VOLUME_FULL);
  EXPECT_EQ(OrbGetFileSize(file), 67377152u);
  EXPECT_EQ(testhost::CallCount(), 0u);
  node_->record.size = 0;
}

}  // namespace
}  // namespace orba

#include <string.h>

#include "unit/nodes/block_map_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class BlockMapRelease : public BlockMapTest {
 protected:
  void SetUp() override {
    BlockMapTest::SetUp();
    testhost::KeepWriteData(true);
  }

  OrbNodeRecord OnDisk() const { return testhost::NodeOf(FileBytes(u"VOL"), 2); }
};

Blocks Joined(const std::vector<Blocks>& parts) {
  Blocks all;
  for (const Blocks& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Blocks Part(const Blocks& blocks, size_t from, size_t to) {
  return Blocks(blocks.begin() + static_cast<ptrdiff_t>(from), blocks.begin() + static_cast<ptrdiff_t>(to));
}

// ---- Order ----------------------------------------------------------------------------------------------------------

TEST_F(BlockMapRelease, node_is_written_empty_and_stamped_before_any_block_is_freed) {
  Grow(2);
  testhost::SetClock({2005, 7, 0, 8, 9, 10, 11, 0});
  testhost::WriteJournal journal(u"VOL");
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(TraceText(),
            "seek 52 / write 52 4 / seek 1104 / write 1104 64 / size / seek 3088 / write 3088 1024 / seek 0 / "
            "write 0 128 / size / seek 3088 / write 3088 1024");
  const OrbNodeRecord record = testhost::NodeOf(journal.StateAfter(2), 2);
  EXPECT_EQ(record.size, 0u);
  EXPECT_EQ(record.direct[0], 0u);
  EXPECT_EQ(record.direct[1], 0u);
  EXPECT_EQ(record.time.year, 2005);
  EXPECT_EQ(record.time.second, 11);
  EXPECT_EQ(testhost::HeaderOf(journal.StateAfter(2)).freeChainHead, 0u);
}

TEST_F(BlockMapRelease, everything_but_size_blocks_and_stamp_of_the_node_stays) {
  Grow(7);
  node_->record.attributes = 3;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  const OrbNodeRecord record = OnDisk();
  EXPECT_EQ(record.signature, kNodeSignature);
  EXPECT_EQ(record.number, 2);
  EXPECT_EQ(record.attributes, 3);
  EXPECT_EQ(record.size, 0u);
  for (const uint32_t block : record.direct) EXPECT_EQ(block, 0u);
  EXPECT_EQ(record.indirect, 0u);
  EXPECT_EQ(record.doubleIndirect, 0u);
  EXPECT_EQ(0, memcmp(&record, &node_->record, sizeof record));
}

TEST_F(BlockMapRelease, direct_blocks_are_freed_in_slot_order) {
  const Blocks blocks = Grow(4);
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), blocks);
}

TEST_F(BlockMapRelease, seven_blocks_are_six_the_map_block_and_its_one) {
  const Blocks blocks = Grow(7);
  const uint32_t indirect = node_->record.indirect;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6), {indirect}, {blocks[6]}}));
}

TEST_F(BlockMapRelease, full_single_indirect_block_is_freed_to_its_last_slot) {
  const Blocks blocks = Grow(262);
  const uint32_t indirect = node_->record.indirect;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6), {indirect}, Part(blocks, 6, 262)}));
}

TEST_F(BlockMapRelease, double_indirect_block_goes_before_the_trees_it_lists) {
  const Blocks blocks = Grow(521);
  const uint32_t indirect = node_->record.indirect;
  const uint32_t top = node_->record.doubleIndirect;
  const uint32_t first = WordAt(top, 0);
  const uint32_t second = WordAt(top, 1);
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6),
                                  {indirect},
                                  Part(blocks, 6, 262),
                                  {top},
                                  {first},
                                  Part(blocks, 262, 518),
                                  {second},
                                  Part(blocks, 518, 521)}));
}

TEST_F(BlockMapRelease, double_indirect_block_filled_to_its_last_slot_is_walked_to_its_end) {
  SetBlocks(600);
  Grow(262);
  node_->record.doubleIndirect = 10;
  for (uint32_t slot = 0; slot < 256; ++slot) PutWord(10, slot, 20 + slot);  // second-level blocks that list nothing
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  const Blocks freed = FreedOrder();
  ASSERT_EQ(freed.size(), 6u + 1 + 256 + 1 + 256);
  EXPECT_EQ(freed[263], 10u);
  EXPECT_EQ(freed[264], 20u);
  EXPECT_EQ(freed.back(), 275u);
}

TEST_F(BlockMapRelease, emptied_file_has_given_everything_back) {
  Grow(521);
  const uint32_t blocks = testhost::BlockCount(FileBytes(u"VOL"));
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder().size() + 2, blocks);  // all but the node block and the root's
}

// ---- Where lists end ------------------------------------------------------------------------------------------------

TEST_F(BlockMapRelease, empty_file_is_done_at_once) {
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(testhost::CallCount(), 0u);
  EXPECT_EQ(testhost::CallCount(Call::kGetSystemTime), 0u);
}

TEST_F(BlockMapRelease, file_of_size_0_keeps_the_map_blocks_it_has) {  // M3
  SetBlocks(20);
  node_->record.indirect = 10;
  node_->record.doubleIndirect = 11;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(node_->record.indirect, 10u);
  EXPECT_EQ(node_->record.doubleIndirect, 11u);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(BlockMapRelease, file_shrunk_to_nothing_keeps_its_map_block_out_of_the_chain_when_it_is_deleted) {  // Q17
  const Blocks blocks = Grow(7);
  const uint32_t indirect = node_->record.indirect;
  OrbNodeRelease(node_);
  node_ = nullptr;
  const OrbHandle file = OrbOpenFileA("F", 3);
  ASSERT_EQ(OrbSetFileSize(file, 0), 1);
  ASSERT_EQ(OrbCloseFile(file), 1);
  EXPECT_EQ(OnDisk().indirect, indirect);
  ASSERT_EQ(OrbDeleteFileA("F"), 1);
  Blocks freed = FreedOrder();
  EXPECT_EQ(freed.size(), 7u);
  for (const uint32_t block : freed) EXPECT_NE(block, indirect);
}

TEST_F(BlockMapRelease, first_zero_direct_slot_ends_the_direct_blocks) {
  const Blocks blocks = Grow(3);
  node_->record.direct[1] = 0;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Blocks({blocks[0]}));
}

TEST_F(BlockMapRelease, indirect_block_stays_where_the_last_direct_slot_is_zero) {
  const Blocks blocks = Grow(7);
  node_->record.direct[5] = 0;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Part(blocks, 0, 5));
}

TEST_F(BlockMapRelease, indirect_block_goes_where_an_inner_direct_slot_is_zero) {
  const Blocks blocks = Grow(7);
  const uint32_t indirect = node_->record.indirect;
  node_->record.direct[2] = 0;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 2), {indirect}, {blocks[6]}}));
}

TEST_F(BlockMapRelease, double_indirect_block_stays_where_there_is_no_single_one) {
  SetBlocks(20);
  const Blocks blocks = Grow(6);
  node_->record.doubleIndirect = 11;
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), blocks);
}

TEST_F(BlockMapRelease, first_zero_slot_ends_a_map_block) {  // M2, Q25
  const Blocks blocks = Grow(9);
  const uint32_t indirect = node_->record.indirect;
  PutWord(indirect, 1, 0);
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6), {indirect}, {blocks[6]}}));
}

TEST_F(BlockMapRelease, first_zero_slot_ends_the_double_indirect_block) {  // Q25
  const Blocks blocks = Grow(521);
  const uint32_t top = node_->record.doubleIndirect;
  PutWord(top, 0, 0);
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  const Blocks freed = FreedOrder();
  EXPECT_EQ(freed.size(), 6u + 1 + 256 + 1);
  EXPECT_EQ(freed.back(), top);
}

// ---- The tree alone -------------------------------------------------------------------------------------------------

TEST_F(BlockMapRelease, tree_is_its_map_block_and_what_it_lists) {
  SetBlocks(20);
  PutWord(10, 0, 12);
  PutWord(10, 1, 11);
  EXPECT_TRUE(ReleaseIndirectTree(volume_, 10));
  EXPECT_EQ(FreedOrder(), Blocks({10, 12, 11}));
}

TEST_F(BlockMapRelease, tree_is_read_before_its_map_block_is_freed) {
  SetBlocks(20);
  PutWord(10, 0, 12);
  EXPECT_TRUE(ReleaseIndirectTree(volume_, 10));  // the map block becomes a free-chain record, which overwrites it
  EXPECT_EQ(TraceText(),
            "seek 10256 / read 10256 1024 / size / seek 52 / write 52 4 / seek 10256 / write 10256 1024 / seek 0 / "
            "write 0 128 / size / seek 10256 / write 10256 1024");
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_F(BlockMapRelease, node_that_cannot_be_written_frees_nothing) {
  const Blocks blocks = Grow(7);
  for (const uint32_t host : {coredll::kHostDiskFull, coredll::kHostNotReady}) {
    FailNthCall(Call::kWriteFile, 2, host);
    node_->record.size = 7 * 1024;
    EXPECT_FALSE(ReleaseFileBlocks(node_));
    EXPECT_EQ(GetError(), host == coredll::kHostDiskFull ? ORB_ERROR_DISK_FULL : ORB_ERROR_NOT_READY);
    EXPECT_EQ(FreedOrder(), Blocks());
    EXPECT_EQ(OnDisk().size, 7u * 1024);
    EXPECT_EQ(OnDisk().direct[0], blocks[0]);
    volume_->header.stateFlags = 0;
  }
}

TEST_F(BlockMapRelease, block_that_cannot_be_freed_ends_it) {
  const Blocks blocks = Grow(5);
  node_->record.direct[2] = 0x00123456;
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(FreedOrder(), Part(blocks, 0, 2));
  EXPECT_EQ(OnDisk().size, 0u);
}

TEST_F(BlockMapRelease, failed_write_of_the_chain_ends_it) {
  const Blocks blocks = Grow(5);
  FailNthCall(Call::kWriteFile, 6, coredll::kHostNotReady);  // mark, node, record, header, first entry, second entry
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(volume_->failed, 1u);
  EXPECT_EQ(testhost::FreeChainOf(FileBytes(u"VOL"), blocks[0]).heap, Blocks({blocks[1]}));
}

TEST_F(BlockMapRelease, no_memory_for_the_map_block_ends_it_after_the_direct_blocks) {
  const Blocks blocks = Grow(7);
  FailNthAllocation(9);  // three for the first block freed, one for each of five more
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(FreedOrder(), Part(blocks, 0, 6));
}

TEST_F(BlockMapRelease, no_memory_for_the_double_indirect_block_ends_it_after_the_single_tree) {
  const Blocks blocks = Grow(263);
  const uint32_t indirect = node_->record.indirect;
  // 3 + 5 direct, the map, its 257 blocks, of which the one after a full record takes two (record and header).
  FailNthAllocation(3 + 5 + 1 + 257 + 1 + 1);
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6), {indirect}, Part(blocks, 6, 262)}));
}

TEST_F(BlockMapRelease, map_block_that_cannot_be_read_ends_it_before_it_is_freed) {
  const Blocks blocks = Grow(7);
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(FreedOrder(), Part(blocks, 0, 6));
}

TEST_F(BlockMapRelease, double_indirect_block_that_cannot_be_read_ends_it_before_it_is_freed) {
  const Blocks blocks = Grow(263);
  const uint32_t indirect = node_->record.indirect;
  FailNthCall(Call::kReadFile, 2, coredll::kHostNotReady);
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6), {indirect}, Part(blocks, 6, 262)}));
}

TEST_F(BlockMapRelease, map_block_past_the_end_is_damage_of_the_volume) {
  const Blocks blocks = Grow(7);
  node_->record.indirect = 1000;
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  EXPECT_EQ(FreedOrder(), Part(blocks, 0, 6));
}

TEST_F(BlockMapRelease, number_in_a_map_block_that_lies_past_the_end_is_damage) {
  const Blocks blocks = Grow(9);
  const uint32_t indirect = node_->record.indirect;
  PutWord(indirect, 1, 0xFFFFFFFF);
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(FreedOrder(), Joined({Part(blocks, 0, 6), {indirect}, {blocks[6]}}));
}

TEST_F(BlockMapRelease, number_in_the_double_indirect_block_that_lies_past_the_end_is_damage_of_the_volume) {
  Grow(263);
  PutWord(node_->record.doubleIndirect, 0, 100000);
  EXPECT_FALSE(ReleaseFileBlocks(node_));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
}

TEST_F(BlockMapRelease, maps_that_name_each_other_come_to_an_end) {
  SetBlocks(20);
  Grow(6);
  node_->record.indirect = 10;
  node_->record.doubleIndirect = 11;
  for (uint32_t slot = 0; slot < 256; ++slot) {
    PutWord(10, slot, 10);
    PutWord(11, slot, 11);
  }
  testhost::SetTracing(false);
  ReleaseFileBlocks(node_);
  EXPECT_EQ(node_->record.size, 0u);
}

// ---- Cost -----------------------------------------------------------------------------------------------------------

TEST_F(BlockMapRelease, memory_is_one_block_for_each_level_the_cache_and_a_copy) {
  Grow(521);
  const size_t held = testhost::BytesHeld();
  testhost::ResetPeakBytes();
  EXPECT_TRUE(ReleaseFileBlocks(node_));
  EXPECT_EQ(testhost::PeakBytes() - held, 4u * 1024);
  EXPECT_EQ(testhost::BytesHeld() - held, 1024u);  // the cache stays
}

}  // namespace
}  // namespace orba

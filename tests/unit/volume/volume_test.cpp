#include "volume/volume.h"

#include <string.h>

#include "unit/library_test.h"

namespace orba {
namespace {

class VolumeList : public LibraryTest {
 protected:
  // Puts records named A, B, C on the list, in this order.
  void SetUp() override {
    LibraryTest::SetUp();
    for (Volume* volume : {&a_, &b_, &c_}) {
      volume->next = g_VolumeListHead.next;
      g_VolumeListHead.next = volume;
    }
    strcpy(a_.name, "A");
    strcpy(b_.name, "B");
    strcpy(c_.name, "C");
  }
  void TearDown() override {
    g_VolumeListHead.next = nullptr;
    LibraryTest::TearDown();
  }

  Volume a_ = {};
  Volume b_ = {};
  Volume c_ = {};
};

TEST_F(VolumeList, find_ignores_letter_case) {
  strcpy(b_.name, "DATA");
  EXPECT_EQ(VolumeFind("data", nullptr), &b_);
  EXPECT_EQ(VolumeFind("DaTa", nullptr), &b_);
}

TEST_F(VolumeList, find_compares_whole_names) {
  strcpy(b_.name, "DATA");
  EXPECT_EQ(VolumeFind("DAT", nullptr), nullptr);
  EXPECT_EQ(VolumeFind("DATA1", nullptr), nullptr);
  EXPECT_EQ(VolumeFind("", nullptr), nullptr);
}

TEST_F(VolumeList, find_reports_the_record_before) {
  Volume* previous = nullptr;
  EXPECT_EQ(VolumeFind("A", &previous), &a_);
  EXPECT_EQ(previous, &b_);
  EXPECT_EQ(VolumeFind("B", &previous), &b_);
  EXPECT_EQ(previous, &c_);
}

TEST_F(VolumeList, find_of_the_head_reports_a_marker_whose_next_is_the_list) {
  Volume* previous = nullptr;
  EXPECT_EQ(VolumeFind("C", &previous), &c_);
  ASSERT_NE(previous, nullptr);
  previous->next = &b_;
  EXPECT_EQ(VolumeFind("C", nullptr), nullptr);
  EXPECT_EQ(VolumeFind("B", &previous), &b_);
  EXPECT_EQ(previous, &g_VolumeListHead);
}

TEST_F(VolumeList, find_of_an_absent_name_clears_the_predecessor) {
  Volume* previous = &a_;
  EXPECT_EQ(VolumeFind("D", &previous), nullptr);
  EXPECT_EQ(previous, nullptr);
}

TEST_F(VolumeList, find_on_an_empty_list_clears_the_predecessor) {
  g_VolumeListHead.next = nullptr;
  Volume* previous = &a_;
  EXPECT_EQ(VolumeFind("A", &previous), nullptr);
  EXPECT_EQ(previous, nullptr);
}

TEST_F(VolumeList, find_sets_no_error) {
  VolumeFind("D", nullptr);
  EXPECT_EQ(GetError(), 0u);
}

TEST(VolumeRecord, counts_follow_from_the_block_size) {
  const struct {
    uint32_t blockSize, nodes, entries, words, chain;
  } sizes[] = {
      {1024, 16, 32, 256, 253}, {2048, 32, 64, 512, 509}, {4096, 64, 128, 1024, 1021}, {8192, 128, 256, 2048, 2045}};
  for (const auto& expected : sizes) {
    Volume volume = {};
    volume.header.blockSize = expected.blockSize;
    ComputeBlockCounts(&volume);
    EXPECT_EQ(volume.nodesPerBlock, expected.nodes);
    EXPECT_EQ(volume.entriesPerBlock, expected.entries);
    EXPECT_EQ(volume.wordsPerBlock, expected.words);
    EXPECT_EQ(volume.chainCapacity, expected.chain);
  }
}

TEST(VolumeRecord, position_arithmetic_uses_the_low_byte_of_the_shift) {
  Volume volume = {};
  volume.header.blockSize = 4096;
  volume.header.blockShift = 0xABCD000C;
  EXPECT_EQ(BlockIndex(&volume, 4095), 0u);
  EXPECT_EQ(BlockIndex(&volume, 4096), 1u);
  EXPECT_EQ(BlockIndex(&volume, 0xFFFFFFFF), 0xFFFFFu);
  EXPECT_EQ(OffsetInBlock(&volume, 4095), 4095u);
  EXPECT_EQ(OffsetInBlock(&volume, 4097), 1u);
}

TEST(VolumeRecord, blocks_for_a_size_are_rounded_up) {
  Volume volume = {};
  volume.header.blockSize = 1024;
  volume.header.blockShift = 10;
  EXPECT_EQ(BlocksFor(&volume, 0), 0u);
  EXPECT_EQ(BlocksFor(&volume, 1), 1u);
  EXPECT_EQ(BlocksFor(&volume, 1024), 1u);
  EXPECT_EQ(BlocksFor(&volume, 1025), 2u);
  EXPECT_EQ(BlocksFor(&volume, 0xFFFFFFFF), 0x400000u);
}

}  // namespace
}  // namespace orba

#include "nodes/node_store.h"

#include <string.h>

#include "space/block_io.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;

// A fresh volume: blocks of 1024 bytes, 16 nodes to a node block, 128 numbers. Block 1 is the first node block.
class NodeStore : public TreeTest {
 protected:
  void TearDown() override {
    for (OrbNode* node : held_) OrbNodeRelease(node);
    TreeTest::TearDown();
  }

  // A created node, held until the test ends; its number, or 0.
  uint32_t Create(uint16_t attributes = 0) {
    ClearError();
    OrbNode* const node = OrbNodeCreate(volume_, attributes);
    if (node == nullptr) return 0;
    held_.push_back(node);
    OrbCommitVolume(volume_);
    return node->record.number;
  }

  void CreateUpTo(uint32_t last) {
    while (Create() != last) ASSERT_LT(held_.back()->record.number, last);
    testhost::ClearTrace();
  }

  // Deletes a node that Create made.
  bool DeleteNumber(uint32_t number) {
    ClearError();
    for (size_t i = 0; i < held_.size(); ++i) {
      if (held_[i]->record.number != number) continue;
      OrbNode* const node = held_[i];
      held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(i));
      const bool deleted = OrbNodeDelete(node);
      const uint32_t code = GetError();
      OrbCommitVolume(volume_);
      SetError(code);
      return deleted;
    }
    ADD_FAILURE() << number << " is not there";
    return false;
  }

  std::vector<OrbNode*> held_;
};

// ---- Creation -------------------------------------------------------------------------------------------------------

TEST_F(NodeStore, create_writes_the_record_before_the_bitmap) {  // S2
  testhost::ClearTrace();
  OrbNode* const node = OrbNodeCreate(volume_, 3);
  held_.push_back(node);
  EXPECT_EQ(Calls(), "mark / write node 2 / write bitmap");
  EXPECT_EQ(node->references, 1u);
  EXPECT_EQ(node->volume, volume_);
  EXPECT_EQ(volume_->bitmap[0], 0x3F);
  EXPECT_EQ(testhost::FileBytes(u"VOL", 1024, 2), (Bytes{0x3F, 0xFF}));
  Bytes expected(64);
  const Bytes head = {'I', 'N', 'O', '1', 2, 0, 3, 0, 0xD1, 0x07, 2, 3, 4, 5, 6, 0};
  std::copy(head.begin(), head.end(), expected.begin());
  EXPECT_EQ(testhost::FileBytes(u"VOL", testhost::NodeOffset(Image(), 2), 64), expected);
  OrbCommitVolume(volume_);
}

TEST_F(NodeStore, create_gives_out_the_lowest_free_number) {  // S1
  CreateUpTo(9);
  ASSERT_TRUE(DeleteNumber(5));
  ASSERT_TRUE(DeleteNumber(3));
  ASSERT_TRUE(DeleteNumber(8));
  EXPECT_EQ(Create(), 3u);
  EXPECT_EQ(Create(), 5u);
  EXPECT_EQ(Create(), 8u);
  EXPECT_EQ(Create(), 10u);
}

TEST_F(NodeStore, create_crosses_bytes_of_the_bitmap) {
  CreateUpTo(8);
  EXPECT_EQ(volume_->bitmap[0], 0x00);
  EXPECT_EQ(Create(), 9u);
  EXPECT_EQ(volume_->bitmap[1], 0x7F);
}

TEST_F(NodeStore, create_accepts_bits_1_2_and_8_alone) {
  for (uint32_t attributes = 0; attributes < 0x10000; ++attributes) {
    if ((attributes & 0xFFF4) == 0) continue;
    ClearError();
    ASSERT_EQ(OrbNodeCreate(volume_, static_cast<uint16_t>(attributes)), nullptr) << attributes;
    ASSERT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT) << attributes;
  }
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(NodeStore, create_keeps_a_file_s_bits_and_gives_a_directory_no_other) {
  for (uint16_t attributes = 0; attributes < 16; ++attributes) {
    if ((attributes & 4) != 0) continue;
    const uint32_t number = Create(attributes);
    EXPECT_EQ(Stored(number).attributes, attributes < 8 ? attributes : 8) << attributes;
  }
}

TEST_F(NodeStore, create_of_the_first_number_of_a_missing_node_block_makes_the_block_first) {
  CreateUpTo(16);
  OrbNode* const node = OrbNodeCreate(volume_, 0);
  held_.push_back(node);
  EXPECT_EQ(Calls(), "size / mark / write block 3 / write table / write node 17 / write bitmap");
  EXPECT_EQ(testhost::TraceText({Call::kWriteFile}),
            "write 52 4 / write 3088 1024 / write 128 896 / write 3088 64 / write 1024 16");
  EXPECT_EQ(volume_->nodeTable[1], 3u);
  const Bytes image = Image();
  EXPECT_EQ(testhost::NodeTableEntry(image, 1), 3u);
  for (uint16_t slot = 1; slot < 16; ++slot) {
    OrbNodeRecord expected = {};
    memcpy(&expected.signature, "INO1", 4);
    expected.number = static_cast<uint16_t>(17 + slot);
    const OrbNodeRecord record = testhost::NodeOf(image, 17u + slot);
    EXPECT_EQ(memcmp(&record, &expected, 64), 0) << slot;
  }
  EXPECT_EQ(testhost::NodeOf(image, 17).time.year, 2001u);
  OrbCommitVolume(volume_);
}

TEST_F(NodeStore, create_in_a_node_block_that_is_there_takes_no_block) {
  CreateUpTo(17);
  EXPECT_EQ(Create(), 18u);
  EXPECT_EQ(Calls(), "mark / write node 18 / write bitmap / clear");
}

TEST_F(NodeStore, create_needs_a_node_block_for_every_first_number_of_one_and_for_no_other) {
  const struct { uint32_t blockSize, bitmapSize; } sizes[] = {{1024, 896}, {2048, 1792}, {4096, 3584}, {8192, 7168}};
  for (const auto& size : sizes) {
    const uint32_t perBlock = size.blockSize / 64;
    for (const uint32_t k : {1u, 2u, 7u, 222u}) {
      SCOPED_TRACE(std::to_string(size.blockSize) + " " + std::to_string(k));
      Start(size.bitmapSize, size.blockSize);
      memset(volume_->bitmap, 0, k * perBlock / 8);  // numbers 1 to k * perBlock are in use
      const uint32_t first = k * perBlock + 1;
      testhost::ClearTrace();
      EXPECT_EQ(Create(), first);
      EXPECT_EQ(Calls(), "size / mark / write block 3 / write table / write node " + std::to_string(first) +
                             " / write bitmap / clear");
      EXPECT_EQ(volume_->nodeTable[k], 3u);
      EXPECT_EQ(testhost::NodeTableEntry(Image(), k), 3u);
      testhost::ClearTrace();
      for (uint32_t number = first + 1; number < first + perBlock; ++number) ASSERT_EQ(Create(), number);
      EXPECT_EQ(Blocks(), 3u);
      EXPECT_EQ(testhost::CallCount(Call::kGetFileSize), 0u);
      EXPECT_EQ(Create(), first + perBlock);
      EXPECT_EQ(Blocks(), 4u);
      EXPECT_EQ(volume_->nodeTable[k + 1], 4u);
      for (OrbNode* node : held_) OrbNodeRelease(node);
      held_.clear();
    }
  }
}

TEST_F(NodeStore, create_without_a_free_number_fails) {
  Start(2, 1024);
  CreateUpTo(16);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_FREE_NODE);
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(NodesListed(), 16u);
}

TEST_F(NodeStore, create_on_a_volume_without_a_bitmap_fails) {
  Start(0, 1024);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_FREE_NODE);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(NodeStore, create_of_a_number_beyond_the_node_block_table_fails) {  // Q27
  Start(896, 1024);                                                        // 7168 bits, of which the table places 3584
  memset(volume_->bitmap, 0, 3584 / 8 - 1);
  volume_->bitmap[3584 / 8 - 1] = 0x01;
  EXPECT_EQ(Create(), 3584u);
  EXPECT_EQ(volume_->nodeTable[223], 3u);
  testhost::ClearTrace();
  EXPECT_EQ(volume_->bitmap[3584 / 8], 0xFF);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_FREE_NODE);
  EXPECT_EQ(Calls(), "");
}

TEST_F(NodeStore, create_without_memory_for_the_object_fails) {
  FailNthAllocation(1);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(Calls(), "");
}

TEST_F(NodeStore, create_without_memory_for_a_node_block_fails_and_changes_nothing) {
  CreateUpTo(16);
  FailNthAllocation(2);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(volume_->nodeTable[1], 0u);
  EXPECT_EQ(Create(), 17u);
}

TEST_F(NodeStore, create_without_memory_for_the_table_loses_the_block_and_leaves_the_table) {
  CreateUpTo(16);
  FailNthAllocation(3);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(Writes(), "mark / block 3");
  EXPECT_EQ(volume_->nodeTable[1], 0u);
  EXPECT_EQ(Create(), 17u);
  EXPECT_EQ(volume_->nodeTable[1], 4u);
}

TEST_F(NodeStore, create_whose_record_is_not_written_leaves_the_number_free) {
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->bitmap[0], 0x7F);
  EXPECT_EQ(NodesListed(), 1u);
  OrbCommitVolume(volume_);
  EXPECT_EQ(Create(), 2u);
}

TEST_F(NodeStore, create_whose_bitmap_is_not_written_leaves_the_number_free) {  // S4, V3
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->bitmap[0], 0x7F);
  EXPECT_EQ(Image()[1024], 0x7F);
  EXPECT_EQ(NodesListed(), 1u);
  OrbCommitVolume(volume_);
  EXPECT_EQ(Create(), 2u);
}

TEST_F(NodeStore, create_whose_table_is_not_written_leaves_the_table) {  // S4, V3
  CreateUpTo(16);
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_EQ(Create(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->nodeTable[1], 0u);
  EXPECT_EQ(testhost::NodeTableEntry(Image(), 1), 0u);
  EXPECT_EQ(volume_->bitmap[2], 0xFF);
  OrbCommitVolume(volume_);
  EXPECT_EQ(Create(), 17u);
}

TEST_F(NodeStore, create_that_fails_for_another_reason_than_a_full_disk_fails_the_volume) {
  FailNthCall(Call::kWriteFile, 2, coredll::kHostNotReady);
  ClearError();
  EXPECT_EQ(OrbNodeCreate(volume_, 0), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(volume_->failed, 1u);
  EXPECT_EQ(OrbNodeCreate(volume_, 0), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
}

// ---- Deletion -------------------------------------------------------------------------------------------------------

TEST_F(NodeStore, delete_of_an_empty_node_writes_the_bitmap_alone) {
  CreateUpTo(3);
  EXPECT_TRUE(DeleteNumber(3));
  EXPECT_EQ(Calls(), "mark / write bitmap / clear");
  EXPECT_EQ(volume_->bitmap[0], 0x3F);
  EXPECT_FALSE(testhost::NodeInUse(Image(), 3));
  EXPECT_EQ(NodesListed(), 2u);
}

TEST_F(NodeStore, delete_marks_the_number_free_before_it_empties_the_record_and_frees_the_blocks) {  // S2
  MakeFile("F", Pattern(2500));  // node 2, blocks 3 to 5
  ClearError();
  OrbNode* const node = OrbNodeGet(volume_, 2);
  testhost::SetClock({2002, 1, 0, 1, 0, 0, 0, 0});
  testhost::ClearTrace();
  EXPECT_TRUE(OrbNodeDelete(node));
  // Block 3 becomes the record of the free chain, blocks 4 and 5 its entries.
  EXPECT_EQ(Calls(),
            "mark / write bitmap / write node 2 / size / write block 3 / write header / size / write block 3 / size / "
            "write block 3");
  const OrbNodeRecord record = Stored(2);
  EXPECT_EQ(record.size, 0u);
  EXPECT_EQ(record.direct[0], 0u);
  EXPECT_EQ(record.direct[2], 0u);
  EXPECT_EQ(record.time.year, 2002u);
  EXPECT_EQ(testhost::FreeChainOf(Image(), 3).heap, (std::vector<uint32_t>{4, 5}));
  OrbCommitVolume(volume_);
}

TEST_F(NodeStore, delete_of_the_last_node_of_a_node_block_frees_the_block) {  // S3
  CreateUpTo(18);
  ASSERT_TRUE(DeleteNumber(17));
  EXPECT_EQ(Calls(), "mark / write bitmap / clear");
  testhost::ClearTrace();
  ASSERT_TRUE(DeleteNumber(18));
  EXPECT_EQ(Calls(), "mark / write bitmap / write table / size / write block 3 / write header / clear");
  EXPECT_EQ(volume_->nodeTable[1], 0u);
  EXPECT_EQ(testhost::NodeTableEntry(Image(), 1), 0u);
  EXPECT_EQ(ChainHead(), 3u);
  EXPECT_EQ(Create(), 17u);  // in a node block made anew, of the block that came back
  EXPECT_EQ(volume_->nodeTable[1], 3u);
  EXPECT_EQ(ChainHead(), 0u);
}

TEST_F(NodeStore, delete_keeps_a_node_block_with_another_number_in_use) {
  CreateUpTo(32);
  for (uint32_t number = 17; number < 32; ++number) ASSERT_TRUE(DeleteNumber(number));
  EXPECT_EQ(volume_->nodeTable[1], 3u);
  ASSERT_TRUE(DeleteNumber(32));
  EXPECT_EQ(volume_->nodeTable[1], 0u);
}

TEST_F(NodeStore, delete_looks_at_a_node_block_up_to_the_bitmap_s_end) {
  Start(3, 1024);  // 24 numbers: the second node block is covered by one byte
  CreateUpTo(17);
  ASSERT_TRUE(DeleteNumber(17));
  EXPECT_EQ(volume_->nodeTable[1], 0u);
}

TEST_F(NodeStore, delete_of_a_node_that_others_hold_fails_and_takes_the_reference) {
  CreateUpTo(2);
  OrbNode* const node = held_[0];
  OrbNodeAddRef(node);
  ClearError();
  EXPECT_FALSE(OrbNodeDelete(node));
  EXPECT_EQ(GetError(), ORB_ERROR_IN_USE);
  EXPECT_EQ(node->references, 1u);
  EXPECT_EQ(Calls(), "");
  EXPECT_TRUE(testhost::NodeInUse(Image(), 2));
}

TEST_F(NodeStore, delete_of_a_node_that_is_not_valid_is_aborted) {
  OrbNode stranger = *volume_->root;
  ClearError();
  EXPECT_FALSE(OrbNodeDelete(&stranger));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  EXPECT_EQ(stranger.references, volume_->root->references);
  EXPECT_FALSE(OrbNodeDelete(nullptr));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  EXPECT_EQ(Calls(), "");
}

TEST_F(NodeStore, delete_of_a_number_that_is_free_already_is_damage_and_takes_the_reference) {
  CreateUpTo(2);
  volume_->bitmap[0] = 0x7F;
  OrbNode* const node = held_.back();
  held_.clear();
  ClearError();
  EXPECT_FALSE(OrbNodeDelete(node));
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(Calls(), "");
}

TEST_F(NodeStore, delete_of_a_number_outside_the_bitmap_is_damage) {
  CreateUpTo(2);
  for (const unsigned number : {0u, 129u, 65535u}) {
    OrbNode* const node = OrbNodeAddRef(held_[0]);
    node->references = 1;
    node->record.number = static_cast<uint16_t>(number);
    ClearError();
    EXPECT_FALSE(OrbNodeDelete(node)) << number;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << number;
    EXPECT_EQ(NodesListed(), 1u) << number;
    held_[0] = OrbNodeGet(volume_, 2);
  }
  EXPECT_TRUE(testhost::NodeInUse(Image(), 2));
}

TEST_F(NodeStore, delete_whose_bitmap_is_not_written_leaves_all_as_it_was) {  // S4, V3
  MakeFile("F", Pattern(100));
  ClearError();
  OrbNode* const node = OrbNodeGet(volume_, 2);
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbNodeDelete(node));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->bitmap[0], 0x3F);
  EXPECT_TRUE(testhost::NodeInUse(Image(), 2));
  EXPECT_EQ(Stored(2).size, 100u);
  EXPECT_EQ(NodesListed(), 1u);
  OrbCommitVolume(volume_);
}

TEST_F(NodeStore, delete_whose_record_is_not_written_frees_no_block) {
  MakeFile("F", Pattern(100));
  ClearError();
  OrbNode* const node = OrbNodeGet(volume_, 2);
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_FALSE(OrbNodeDelete(node));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_FALSE(testhost::NodeInUse(Image(), 2));
  EXPECT_EQ(ChainHead(), 0u);
  EXPECT_EQ(NodesListed(), 1u);
  OrbCommitVolume(volume_);
}

TEST_F(NodeStore, delete_whose_table_is_not_written_keeps_the_node_block) {
  CreateUpTo(17);
  FailNthCall(Call::kWriteFile, 3, coredll::kHostDiskFull);
  EXPECT_FALSE(DeleteNumber(17));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->nodeTable[1], 3u);
  EXPECT_EQ(testhost::NodeTableEntry(Image(), 1), 3u);
  EXPECT_EQ(Create(), 17u);
  EXPECT_EQ(volume_->nodeTable[1], 3u);
}

// The table on disk no longer refers to the block, the chain does not list it yet.
TEST_F(NodeStore, delete_whose_node_block_cannot_be_freed_has_lost_the_block) {
  CreateUpTo(17);
  const testhost::FileSet files = testhost::Snapshot();
  const struct {
    Call call;
    uint32_t n, host, code;
    const char* calls;
    uint32_t head;  // in memory
  } failures[] = {
      {Call::kGetFileSize, 1, coredll::kHostAccessDenied, ORB_ERROR_ACCESS_DENIED,
       "mark / write bitmap / write table / size !5", 0},
      {Call::kWriteFile, 4, coredll::kHostDiskFull, ORB_ERROR_DISK_FULL,
       "mark / write bitmap / write table / size / write block 3 !112", 3},
      {Call::kWriteFile, 5, coredll::kHostDiskFull, ORB_ERROR_DISK_FULL,
       "mark / write bitmap / write table / size / write block 3 / write header !112", 3},
  };
  for (const auto& failure : failures) {
    SCOPED_TRACE(failure.calls);
    FailNthCall(failure.call, failure.n, failure.host);
    EXPECT_FALSE(DeleteNumber(17));
    EXPECT_EQ(GetError(), failure.code);
    EXPECT_EQ(Calls(), std::string(failure.calls) + " / clear");
    EXPECT_EQ(volume_->nodeTable[1], 0u);
    EXPECT_EQ(testhost::NodeTableEntry(Image(), 1), 0u);
    EXPECT_FALSE(testhost::NodeInUse(Image(), 17));
    EXPECT_EQ(ChainHead(), 0u);
    EXPECT_EQ(volume_->header.freeChainHead, failure.head);
    EXPECT_EQ(NodesListed(), 16u);
    Damage([&](Bytes* image) { *image = files.at(u"VOL").ToBytes(); });
    for (OrbNode* node : held_) OrbNodeRelease(node);
    held_.assign(1, OrbNodeGet(volume_, 17));
    for (uint16_t number = 2; number <= 16; ++number) held_.push_back(OrbNodeGet(volume_, number));
    testhost::ClearTrace();
  }
}

TEST_F(NodeStore, delete_whose_node_block_finds_no_memory_has_lost_the_block) {
  CreateUpTo(17);
  FailNthAllocation(2);  // after the table's copy: the chain's cache
  EXPECT_FALSE(DeleteNumber(17));
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(Calls(), "mark / write bitmap / write table / size / clear");
  EXPECT_EQ(volume_->nodeTable[1], 0u);
  EXPECT_EQ(testhost::NodeTableEntry(Image(), 1), 0u);
  EXPECT_EQ(volume_->header.freeChainHead, 0u);
  EXPECT_EQ(Create(), 17u);
  EXPECT_EQ(volume_->nodeTable[1], 4u);  // a new one: block 3 is nobody's
}

// ---- Node blocks ----------------------------------------------------------------------------------------------------

TEST_F(NodeStore, node_block_of_every_size_holds_its_numbers) {
  for (const uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    Start(64, blockSize);
    ClearError();
    EXPECT_TRUE(OrbNodeBlockInit(volume_, 2));
    EXPECT_EQ(Calls(), "size / mark / write block 3 / write table");
    const Bytes block = testhost::BlockOf(Image(), 3);
    const uint32_t perBlock = blockSize / 64;
    for (uint32_t slot = 0; slot < perBlock; ++slot) {
      EXPECT_EQ(testhost::ReadU32(block, slot * 64), kNodeSignature);
      EXPECT_EQ(testhost::ReadU16(block, slot * 64 + 4), 2 * perBlock + slot + 1);
    }
    testhost::ClearTrace();
    EXPECT_TRUE(OrbNodeBlockRelease(volume_, 2));
    EXPECT_EQ(Calls(), "write table / size / write block 3 / write header");
    EXPECT_EQ(volume_->nodeTable[2], 0u);
    OrbCommitVolume(volume_);
  }
}

}  // namespace
}  // namespace orba

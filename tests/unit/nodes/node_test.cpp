#include "nodes/node.h"

#include <stdlib.h>
#include <string.h>

#include "space/block_io.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

// A volume of 128 nodes. Node 2 is directory D, node 3 file F of 5 bytes.
class Node : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    MakeDirectory("D");
    MakeFile("F", {1, 2, 3, 4, 5});
  }

  OrbNode* Get(uint16_t number) {
    ClearError();
    return OrbNodeGet(volume_, number);
  }
};

// ---- Validity -------------------------------------------------------------------------------------------------------

TEST_F(Node, null_is_not_valid) { EXPECT_FALSE(OrbNodeIsValid(nullptr)); }

TEST_F(Node, arbitrary_pointers_are_not_valid_and_not_followed) {
  for (const uintptr_t address : {uintptr_t{1}, uintptr_t{8}, uintptr_t{0x10000}, ~uintptr_t{0}, ~uintptr_t{7}}) {
    const OrbNode* const node = reinterpret_cast<const OrbNode*>(address);
    EXPECT_FALSE(OrbNodeIsValid(node)) << address;
  }
}

TEST_F(Node, object_that_is_not_listed_is_not_valid_whatever_it_counts) {
  OrbNode stranger = *volume_->root;
  EXPECT_EQ(stranger.references, 2u);
  EXPECT_FALSE(OrbNodeIsValid(&stranger));
}

TEST_F(Node, head_of_the_list_is_not_valid) { EXPECT_FALSE(OrbNodeIsValid(&g_NodeListHead)); }

TEST_F(Node, listed_object_is_valid_while_it_is_referenced) {
  OrbNode* const node = Get(3);
  EXPECT_TRUE(OrbNodeIsValid(node));
  node->references = 0;
  EXPECT_FALSE(OrbNodeIsValid(node));
  node->references = 1;
  OrbNodeRelease(node);
  EXPECT_FALSE(OrbNodeIsValid(node));
}

// ---- References -----------------------------------------------------------------------------------------------------

TEST_F(Node, add_reference_returns_the_pointer_it_was_given) {
  OrbNode stranger = {};
  EXPECT_EQ(OrbNodeAddRef(nullptr), nullptr);
  EXPECT_EQ(OrbNodeAddRef(&stranger), &stranger);
  EXPECT_EQ(stranger.references, 0u);
  EXPECT_EQ(OrbNodeAddRef(volume_->root), volume_->root);
  EXPECT_EQ(volume_->root->references, 3u);
  OrbNodeRelease(volume_->root);
  EXPECT_EQ(volume_->root->references, 2u);
}

TEST_F(Node, release_of_null_of_strangers_and_of_freed_pointers_does_nothing) {
  OrbNode stranger = {};
  stranger.references = 1;
  OrbNodeRelease(nullptr);
  OrbNodeRelease(&stranger);
  EXPECT_EQ(stranger.references, 1u);
  OrbNode* const node = Get(3);
  OrbNodeRelease(node);
  OrbNodeRelease(node);  // freed by now
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Node, release_of_a_dead_object_does_not_count_below_0) {
  OrbNode* const node = OrbNodeAlloc();
  node->references = 0;
  OrbNodeRelease(node);
  EXPECT_EQ(node->references, 0u);
  EXPECT_EQ(NodesListed(), 2u);
  node->references = 1;
  OrbNodeRelease(node);
}

TEST_F(Node, last_release_unlinks_from_any_place_of_the_list) {
  for (const uint32_t released : {0u, 1u, 2u}) {
    OrbNode* nodes[] = {OrbNodeAlloc(), OrbNodeAlloc(), OrbNodeAlloc()};
    OrbNodeRelease(nodes[released]);
    EXPECT_EQ(NodesListed(), 3u);
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(OrbNodeIsValid(nodes[i]), i != released);
    for (OrbNode* node : nodes) OrbNodeRelease(node);
    EXPECT_EQ(NodesListed(), 1u);
  }
}

TEST_F(Node, alloc_puts_a_zeroed_object_with_one_reference_at_the_head) {
  OrbNode* const node = OrbNodeAlloc();
  EXPECT_EQ(g_NodeListHead.next, node);
  EXPECT_EQ(node->next, volume_->root);
  OrbNode expected = {};
  expected.references = 1;
  expected.next = node->next;
  EXPECT_EQ(memcmp(node, &expected, sizeof expected), 0);
  OrbNodeRelease(node);
}

TEST_F(Node, alloc_takes_a_dead_object_before_new_memory) {
  OrbNode* const dead = OrbNodeAlloc();
  OrbNode* const live = OrbNodeAlloc();
  memset(&dead->record, 0xEE, sizeof dead->record);
  dead->references = 0;
  const uint32_t allocations = testhost::AllocationCalls();
  OrbNode* const node = OrbNodeAlloc();
  EXPECT_EQ(node, dead);
  EXPECT_EQ(testhost::AllocationCalls(), allocations);
  EXPECT_EQ(g_NodeListHead.next, node);
  EXPECT_EQ(node->next, live);
  EXPECT_EQ(node->references, 1u);
  EXPECT_EQ(node->record.size, 0u);
  EXPECT_EQ(NodesListed(), 3u);
  OrbNodeRelease(node);
  OrbNodeRelease(live);
}

TEST_F(Node, alloc_without_memory_fails_and_leaves_the_list_alone) {
  testhost::FailNthAllocation(1);
  EXPECT_EQ(OrbNodeAlloc(), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(NodesListed(), 1u);
}

// ---- Getting --------------------------------------------------------------------------------------------------------

TEST_F(Node, get_reads_the_record_once_and_shares_the_object) {  // N1, N2
  OrbNode* const first = Get(3);
  EXPECT_EQ(Calls(), "read node 3");
  EXPECT_EQ(first->record.number, 3u);
  EXPECT_EQ(first->record.size, 5u);
  EXPECT_EQ(first->volume, volume_);
  EXPECT_EQ(first->references, 1u);
  testhost::ClearTrace();
  OrbNode* const second = Get(3);
  EXPECT_EQ(second, first);
  EXPECT_EQ(first->references, 2u);
  EXPECT_EQ(Calls(), "");
  OrbNodeRelease(first);
  OrbNodeRelease(second);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Node, get_tells_the_same_number_of_two_volumes_apart) {
  Format(16, 2048, u"OTHER");
  Volume* const other = Mount(u"OTHER", u"B");
  EXPECT_NE(other->root, volume_->root);
  OrbNode* const mine = Get(1);
  OrbNode* const theirs = OrbNodeGet(other, 1);
  EXPECT_EQ(mine, volume_->root);
  EXPECT_EQ(theirs, other->root);
  OrbNodeRelease(mine);
  OrbNodeRelease(theirs);
}

TEST_F(Node, get_passes_over_a_dead_object_of_the_number) {
  OrbNode* const dead = Get(3);
  dead->record.size = 99;
  dead->references = 0;
  OrbNode* const node = Get(3);  // the dead object, read anew
  EXPECT_EQ(node, dead);
  EXPECT_EQ(node->record.size, 5u);
  OrbNodeRelease(node);
}

TEST_F(Node, get_does_not_look_at_the_signature) {  // Q26
  Damage([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 3), 0); });
  OrbNode* const node = Get(3);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->record.signature, 0u);
  EXPECT_EQ(node->record.size, 5u);
  OrbNodeRelease(node);
}

TEST_F(Node, get_knows_a_record_by_the_number_it_was_asked_for) {  // Q26
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::NodeOffset(*image, 3) + 4, 2); });
  OrbNode* const three = Get(3);
  OrbNode* const two = Get(2);
  EXPECT_NE(three, two);
  EXPECT_EQ(three->record.number, 3u);
  EXPECT_EQ(three->record.size, 5u);
  OrbNodeRelease(three);
  OrbNodeRelease(two);
}

TEST_F(Node, get_whose_read_fails_keeps_the_code_and_leaves_no_object) {
  testhost::FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_EQ(Get(3), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(NodesListed(), 1u);
  testhost::ShortenNthRead(1, 63);
  EXPECT_EQ(Get(3), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Node, get_without_memory_fails) {
  testhost::FailNthAllocation(1);
  EXPECT_EQ(Get(3), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(Calls(), "");
}

TEST_F(Node, number_that_no_volume_gives_out_is_a_damaged_record) {
  // 128 nodes; block 1 holds 1 to 16, the others have no node block.
  for (const unsigned number : {0u, 17u, 128u, 129u, 224u * 16 + 1, 65535u}) {
    EXPECT_EQ(Get(static_cast<uint16_t>(number)), nullptr) << number;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << number;
  }
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(NodesListed(), 1u);
  OrbNode* const last = Get(16);
  EXPECT_NE(last, nullptr);
  OrbNodeRelease(last);
}

TEST_F(Node, number_above_the_bitmap_is_a_damaged_record_though_its_node_block_exists) {
  Start(1, 1024);  // 8 nodes in a block of 16
  OrbNode* const last = Get(8);
  EXPECT_NE(last, nullptr);
  OrbNodeRelease(last);
  EXPECT_EQ(Get(9), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
}

TEST_F(Node, number_beyond_the_node_block_table_is_a_damaged_record) {
  Start(896, 1024);  // 7168 numbers, of which the table places 3584
  volume_->nodeTable[kNodeTableEntries - 1] = 1;
  OrbNode* const last = Get(3584);
  EXPECT_NE(last, nullptr);
  OrbNodeRelease(last);
  EXPECT_EQ(Get(3585), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  EXPECT_EQ(Get(7168), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  volume_->nodeTable[kNodeTableEntries - 1] = 0;
}

TEST_F(Node, root_of_a_volume_without_a_bitmap_is_there) {
  Start(0, 1024);
  EXPECT_EQ(volume_->root->record.number, 1u);
  EXPECT_EQ(volume_->root->record.attributes, 0x000Eu);
  EXPECT_EQ(Get(2), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD);
  ClearError();
  EXPECT_TRUE(OrbNodeWrite(volume_->root));
  EXPECT_EQ(Writes(), "mark / node 1");
  EXPECT_TRUE(OrbCommitVolume(volume_));
}

TEST_F(Node, node_block_beyond_the_container_cannot_be_read) {
  volume_->nodeTable[1] = 1000;
  EXPECT_EQ(Get(17), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);
  volume_->nodeTable[1] = 0x80000000;
  EXPECT_EQ(Get(17), nullptr);
  EXPECT_EQ(GetError(), ORB_ERROR_READ);  // the host refuses the seek
  volume_->nodeTable[1] = 0;
}

TEST_F(Node, record_lies_at_its_slot_for_every_block_size) {
  for (const uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    Start(16, blockSize);
    const uint32_t last = blockSize / 64 < 128 ? blockSize / 64 : 128;
    OrbNode* const node = Get(static_cast<uint16_t>(last));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(testhost::TraceText({Call::kReadFile}), "read " + std::to_string(1040 + (last - 1) * 64) + " 64");
    EXPECT_EQ(node->record.number, last);
    EXPECT_EQ(node->record.signature, kNodeSignature);
    OrbNodeRelease(node);
  }
}

// ---- Writing --------------------------------------------------------------------------------------------------------

TEST_F(Node, write_stores_the_64_bytes_of_the_record_as_metadata) {  // N2
  OrbNode* const node = Get(3);
  node->record.size = 0x01020304;
  node->record.attributes = 3;
  node->record.time = {2030, 12, 31, 23, 59, 58, 0};
  node->record.direct[5] = 0x0A0B0C0D;
  node->record.indirect = 0x11121314;
  node->record.doubleIndirect = 0x21222324;
  testhost::ClearTrace();
  EXPECT_TRUE(OrbNodeWrite(node));
  EXPECT_EQ(Writes(), "mark / node 3");
  const size_t offset = testhost::NodeOffset(Image(), 3);
  Bytes expected(64);
  const Bytes head = {'I', 'N', 'O', '1', 3, 0, 3, 0, 0xEE, 0x07, 12, 31, 23, 59, 58, 0, 4, 3, 2, 1};
  const Bytes tail = {0x0D, 0x0C, 0x0B, 0x0A, 0x14, 0x13, 0x12, 0x11, 0x24, 0x23, 0x22, 0x21};
  std::copy(head.begin(), head.end(), expected.begin());
  std::copy(tail.begin(), tail.end(), expected.begin() + 52);
  expected[32] = static_cast<uint8_t>(node->record.direct[0]);
  EXPECT_EQ(testhost::FileBytes(u"VOL", offset, 64), expected);
  OrbNodeRelease(node);
  OrbCommitVolume(volume_);
}

TEST_F(Node, write_of_a_node_that_is_not_valid_is_aborted) {
  OrbNode stranger = *volume_->root;
  ClearError();
  EXPECT_FALSE(OrbNodeWrite(&stranger));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  EXPECT_FALSE(OrbNodeWrite(nullptr));
  EXPECT_EQ(GetError(), ORB_ERROR_ABORTED);
  EXPECT_EQ(Calls(), "");
}

TEST_F(Node, write_of_a_number_without_a_place_is_a_damaged_record) {
  OrbNode* const node = Get(3);
  testhost::ClearTrace();
  for (const unsigned number : {0u, 17u, 129u, 65535u}) {
    node->record.number = static_cast<uint16_t>(number);
    EXPECT_FALSE(OrbNodeWrite(node)) << number;
    EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_RECORD) << number;
  }
  EXPECT_EQ(Calls(), "");
  OrbNodeRelease(node);
}

TEST_F(Node, write_that_fails_keeps_the_code) {
  testhost::FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);  // after the mark
  EXPECT_FALSE(OrbNodeWrite(volume_->root));
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_EQ(volume_->failed, 0u);
  testhost::FailNthCall(Call::kWriteFile, 1, coredll::kHostWriteProtected);
  EXPECT_FALSE(OrbNodeWrite(volume_->root));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE_PROTECTED);
  EXPECT_EQ(volume_->failed, 1u);
  EXPECT_FALSE(OrbNodeWrite(volume_->root));
  EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
}

TEST_F(Node, stamp_and_write_takes_the_time_of_now_and_leaves_the_eighth_byte) {
  OrbNode* const node = Get(3);
  node->record.time.reserved = 0x77;
  testhost::SetClock({1999, 12, 5, 31, 23, 59, 58, 999});
  EXPECT_TRUE(StampAndWriteNode(node));
  const TimeStamp time = Stored(3).time;
  EXPECT_EQ(time.year, 1999u);
  EXPECT_EQ(time.month, 12u);
  EXPECT_EQ(time.day, 31u);
  EXPECT_EQ(time.hour, 23u);
  EXPECT_EQ(time.minute, 59u);
  EXPECT_EQ(time.second, 58u);
  EXPECT_EQ(time.reserved, 0x77u);
  OrbNodeRelease(node);
  OrbCommitVolume(volume_);
}

// ---- Nodes of a volume that goes away -------------------------------------------------------------------------------

TEST_F(Node, node_held_over_an_unmount_belongs_to_no_volume) {
  OrbNode* const node = Get(3);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_TRUE(OrbNodeIsValid(node));
  EXPECT_EQ(node->volume, nullptr);
  EXPECT_EQ(node->references, 1u);
  EXPECT_EQ(NodesListed(), 1u);
  OrbNodeRelease(node);
  EXPECT_EQ(NodesListed(), 0u);
}

TEST_F(Node, node_held_over_an_unmount_matches_no_lookup_of_a_volume_at_the_same_address) {  // N4
  OrbNode* const old = Get(3);
  old->record.size = 4711;
  DetachNodes(volume_);             // the volume goes ...
  volume_->root->volume = volume_;  // ... and another one comes, where it lay
  OrbNode* const fresh = Get(3);
  EXPECT_NE(fresh, old);
  EXPECT_EQ(fresh->record.size, 5u);
  EXPECT_EQ(Get(3), fresh);
  OrbNodeRelease(fresh);
  OrbNodeRelease(fresh);
  EXPECT_EQ(old->references, 1u);
  OrbNodeRelease(old);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Node, detach_cuts_the_nodes_of_that_volume_alone) {
  Format(16, 1024, u"OTHER");
  Volume* const other = Mount(u"OTHER", u"B");
  OrbNode* const mine = Get(3);
  OrbNode* const theirs = OrbNodeGet(other, 2);
  ASSERT_NE(theirs, nullptr);
  DetachNodes(other);
  EXPECT_EQ(theirs->volume, nullptr);
  EXPECT_EQ(other->root->volume, nullptr);
  EXPECT_EQ(mine->volume, volume_);
  EXPECT_EQ(volume_->root->volume, volume_);
  other->root->volume = other;
  OrbNodeRelease(theirs);
  OrbNodeRelease(mine);
}

// ---- Records --------------------------------------------------------------------------------------------------------

TEST_F(Node, node_block_is_filled_with_signatures_and_numbers_and_nothing_else) {
  OrbNodeRecord records[16] = {};
  FillNodeBlock(records, 16, 17);
  for (uint16_t slot = 0; slot < 16; ++slot) {
    OrbNodeRecord expected = {};
    memcpy(&expected.signature, "INO1", 4);
    expected.number = static_cast<uint16_t>(17 + slot);
    EXPECT_EQ(memcmp(&records[slot], &expected, sizeof expected), 0) << slot;
  }
}

TEST_F(Node, convert_there_and_back_changes_nothing) {
  Bytes bytes = Pattern(64);
  OrbNodeRecord record;
  memcpy(&record, bytes.data(), 64);
  ConvertNodeRecord(&record);
  ConvertNodeRecord(&record);
  EXPECT_EQ(memcmp(&record, bytes.data(), 64), 0);
}

// ---- References for a scope -----------------------------------------------------------------------------------------

TEST_F(Node, scoped_reference_releases_replaces_and_hands_over) {
  {
    const NodeRef held(Get(3));
    EXPECT_EQ(NodesListed(), 2u);
  }
  EXPECT_EQ(NodesListed(), 1u);
  OrbNode* taken = nullptr;
  {
    NodeRef held(Get(3));
    held.Replace(Get(2));
    EXPECT_EQ(NodesListed(), 2u);
    EXPECT_EQ(held.node->record.number, 2u);
    taken = held.Take();
    EXPECT_EQ(held.node, nullptr);
  }
  EXPECT_TRUE(OrbNodeIsValid(taken));
  OrbNodeRelease(taken);
  { const NodeRef nothing(nullptr); }
  EXPECT_EQ(NodesListed(), 1u);
}

}  // namespace
}  // namespace orba

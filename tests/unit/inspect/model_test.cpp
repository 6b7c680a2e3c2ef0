#include "inspect/check/model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "inspect/check/check.h"
#include "inspect/container/image.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::ImageBuilder;

Model ModelOf(const ImageBuilder& image) { return Check(MemoryImage(image.bytes())).model; }

// node 2 /A (1500 bytes), 3 /D, 4 /D/B (7 blocks and a map block)
struct ThreeNodes : ImageBuilder {
  ThreeNodes() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1500);
    AddDirectory(1, "D");
    AddFile(3, "B", 7 * 1024);
  }
};

TEST(Model, bit_that_is_set_means_free) {
  const Model model = ModelOf(ThreeNodes());
  EXPECT_EQ(model.bits(), 256u);
  for (std::uint32_t number = 1; number <= 4; ++number) EXPECT_FALSE(model.IsFreeBit(number)) << number;
  for (std::uint32_t number = 5; number <= 256; ++number) EXPECT_TRUE(model.IsFreeBit(number)) << number;
}

TEST(Model, numbers_from_1_to_the_limit_are_nodes) {
  const Model model = ModelOf(ThreeNodes());
  EXPECT_FALSE(model.IsNode(0));
  EXPECT_TRUE(model.IsNode(1));
  EXPECT_TRUE(model.IsNode(256));
  EXPECT_FALSE(model.IsNode(257));
}

TEST(Model, entry_refers_to_a_used_node_that_is_not_the_root) {
  const Model model = ModelOf(ThreeNodes());
  const auto refers = [&](std::uint16_t number) {
    OrbDirEntry entry = {};
    entry.node = number;
    return model.RefersToUsed(entry);
  };
  EXPECT_FALSE(refers(0));
  EXPECT_FALSE(refers(kRootNode));
  EXPECT_TRUE(refers(2));
  EXPECT_TRUE(refers(3));
  EXPECT_FALSE(refers(5));
  EXPECT_FALSE(refers(257));
}

TEST(Model, lost_node_is_not_referred_to) {
  ThreeNodes image;
  for (std::uint32_t at = 0; at < 64; ++at) image.Put8(image.NodeOffset(2) + at, 0xEE);
  const Model model = ModelOf(image);
  ASSERT_EQ(model.nodes[2].state, NodeState::kLost);
  OrbDirEntry entry = {};
  entry.node = 2;
  EXPECT_FALSE(model.RefersToUsed(entry));
}

TEST(Model, name_leads_to_its_entry) {
  const Model model = ModelOf(ThreeNodes());
  ASSERT_EQ(model.nodes[4].names.size(), 1u);
  EXPECT_EQ(model.EntryOf(model.nodes[4].names[0]).record.node, 4);
  EXPECT_STREQ(model.EntryOf(model.nodes[4].names[0]).record.name, "B");
  EXPECT_TRUE(model.nodes[4].IsNamed());
  EXPECT_FALSE(model.nodes[1].IsNamed());
}

TEST(Model, entry_that_is_not_counted_is_a_pending_name) {
  ThreeNodes image;
  image.SetSize(1, 96);
  const Model model = ModelOf(image);
  EXPECT_TRUE(model.nodes[3].names.empty());
  EXPECT_EQ(model.nodes[3].pending.size(), 1u);
  EXPECT_TRUE(model.nodes[3].IsNamed());
}

TEST(Model, copy_that_an_interrupted_removal_left_is_doubled) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = image.AddDirectory(1, "FULL");
  for (int i = 2; i < 35; ++i) image.AddFile(directory, "F" + std::to_string(i), 0u);
  const auto last = image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(directory, 34));
  std::copy(last, last + 32, image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(directory, 7)));
  const Model model = ModelOf(image);
  ASSERT_EQ(model.nodes[directory].entries.size(), 35u);
  for (const Entry& entry : model.nodes[directory].entries) EXPECT_EQ(entry.doubled, entry.index == 34) << entry.index;
}

TEST(Model, blocks_know_their_use_owner_and_place) {
  ThreeNodes image;
  const std::uint32_t leaked = image.AppendBlock();
  const std::uint32_t first = image.AppendBlock(), second = image.AppendBlock();
  const std::vector<std::uint32_t> records = image.SetChain({{first}, {second}});
  const Model model = ModelOf(image);
  const auto expect = [&](std::uint32_t block, BlockUse use, std::uint16_t node, std::uint32_t index) {
    EXPECT_EQ(Name(model.blocks[block].use), std::string(Name(use))) << block;
    EXPECT_EQ(model.blocks[block].node, node) << block;
    EXPECT_EQ(model.blocks[block].index, index) << block;
    EXPECT_FALSE(model.blocks[block].shared) << block;
    EXPECT_FALSE(model.blocks[block].noMap) << block;
  };
  expect(1, BlockUse::kNodeBlock, 0, 0);
  expect(2, BlockUse::kDirectory, 1, 0);
  expect(image.MappedBlock(2, 1), BlockUse::kFile, 2, 1);
  expect(image.MappedBlock(4, 6), BlockUse::kFile, 4, 6);
  expect(image.Get32(image.NodeOffset(4) + 56), BlockUse::kMap, 4, 6);
  expect(leaked, BlockUse::kNothing, 0, 0);
  expect(records[0], BlockUse::kChainRecord, 0, 0);
  expect(records[1], BlockUse::kChainRecord, 0, 1);
  expect(first, BlockUse::kFree, 0, 0);
  expect(second, BlockUse::kFree, 0, 1);
  ASSERT_EQ(model.chain.size(), 2u);
  EXPECT_EQ(model.chain[1].block, records[1]);
  EXPECT_EQ(model.chain[1].count, 1u);
}

TEST(Model, block_that_cannot_be_a_map_block_is_known) {
  ThreeNodes image;
  image.Put32(image.NodeOffset(4) + 56, 1);
  EXPECT_TRUE(ModelOf(image).blocks[1].noMap);
  image.Put32(image.NodeOffset(4) + 56, 5);
  EXPECT_TRUE(ModelOf(image).blocks[5].noMap);
  EXPECT_FALSE(ModelOf(image).blocks[1].noMap);
}

// "FBC1" reads as an entry of node 16966, which is in use here; the chain says what the block is.
TEST(Model, last_block_of_a_directory_that_is_in_the_chain_is_a_record) {
  ImageBuilder image(8192, 2200);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  for (int i = 0; i < 255; ++i) image.AddFile(directory, "F" + std::to_string(i), 0);
  const std::uint32_t last = image.MappedBlock(directory, 1);
  ASSERT_NE(last, 0u);
  image.Put32(ImageBuilder::TableOffset(132), image.AppendBlock());
  image.SetFree(16966, false);
  image.PutText(image.NodeOffset(16966), "INO1");
  image.Put16(image.NodeOffset(16966) + 4, 16966);
  for (std::uint32_t at = 0; at < 8192; ++at) image.Put8(image.BlockOffset(last) + at, 0);
  image.PutText(image.BlockOffset(last), "FBC1");
  ASSERT_EQ(ModelOf(image).nodes[16966].state, NodeState::kUsed);
  EXPECT_FALSE(ModelOf(image).nodes[directory].directory.lastBlockIsRecord);
  image.Put32(48, last);
  EXPECT_TRUE(ModelOf(image).nodes[directory].directory.lastBlockIsRecord);
}

TEST(Model, uses_have_words) {
  EXPECT_STREQ(Name(BlockUse::kNothing), "nothing");
  EXPECT_STREQ(Name(BlockUse::kNodeBlock), "node block");
  EXPECT_STREQ(Name(BlockUse::kMap), "map");
  EXPECT_STREQ(Name(BlockUse::kFile), "file");
  EXPECT_STREQ(Name(BlockUse::kDirectory), "directory");
  EXPECT_STREQ(Name(BlockUse::kChainRecord), "chain record");
  EXPECT_STREQ(Name(BlockUse::kFree), "free");
}

TEST(Model, reach_says_how_a_node_can_be_found) {
  ThreeNodes image;
  const std::uint16_t lost = image.AddDirectory(1, "L");
  image.AddFile(lost, "IN", 1);
  image.Put16(image.EntryOffset(1, 4), 0);
  image.SetSize(1, 128);
  const Model model = ModelOf(image);
  EXPECT_EQ(model.nodes[1].reach, Reach::kRoot);
  EXPECT_EQ(model.nodes[4].reach, Reach::kRoot);
  EXPECT_EQ(model.nodes[4].parent, 3);
  EXPECT_EQ(model.nodes[5].reach, Reach::kLeaked);
  EXPECT_EQ(model.nodes[6].reach, Reach::kLeaked);
  EXPECT_EQ(model.nodes[7].reach, Reach::kNone);
}

TEST(PathOf, node_has_the_path_that_leads_to_it) {
  const Model model = ModelOf(ThreeNodes());
  EXPECT_EQ(PathOf(model, 1), "/");
  EXPECT_EQ(PathOf(model, 2), "/A");
  EXPECT_EQ(PathOf(model, 4), "/D/B");
  EXPECT_EQ(PathOf(model, 5), "(node 5)");
  EXPECT_EQ(PathOf(model, 0), "");
  EXPECT_EQ(PathOf(model, 257), "");
}

TEST(PathOf, node_below_one_without_a_name_begins_with_its_number) {
  ThreeNodes image;
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 96);
  EXPECT_EQ(PathOf(ModelOf(image), 4), "(node 3)/B");
}

TEST(PathOf, long_path_loses_its_front) {
  ImageBuilder image(1024, 32);
  std::uint16_t directory = 1;
  const std::string name(29, 'N');
  for (int i = 0; i < 34; ++i) directory = image.AddDirectory(directory, name);
  const std::uint16_t almost = directory;  // 34 names of 30 characters with their slashes: 1020
  directory = image.AddDirectory(directory, name);
  const Model model = ModelOf(image);
  EXPECT_EQ(PathOf(model, almost - 1).size(), 33u * 30);
  EXPECT_EQ(PathOf(model, almost).size(), 34u * 30);
  EXPECT_EQ(PathOf(model, directory).substr(0, 5), ".../N");
  EXPECT_EQ(PathOf(model, directory).size(), 3 + 34u * 30);
}

TEST(PathOf, path_of_1000_characters_is_cut_there) {
  ImageBuilder image(1024, 32);
  std::uint16_t directory = image.AddDirectory(image.AddDirectory(1, "TOP"), std::string(9, 'M'));
  for (int i = 0; i < 33; ++i) directory = image.AddDirectory(directory, std::string(29, 'N'));
  const std::string path = PathOf(ModelOf(image), directory);
  EXPECT_EQ(path.substr(0, 5), ".../M");
  EXPECT_EQ(path.size(), 1003u);
}

// ---- Records --------------------------------------------------------------------------------------------------------

TEST(AreLegal, root_has_its_own_attributes) {
  EXPECT_TRUE(AreLegal(1, 0x000E));
  EXPECT_FALSE(AreLegal(1, 0x0008));
  EXPECT_FALSE(AreLegal(1, 0));
  EXPECT_FALSE(AreLegal(2, 0x000E));
}

TEST(AreLegal, files_may_have_two_flags_and_directories_none) {
  for (const std::uint32_t attributes : {0x0000u, 0x0001u, 0x0002u, 0x0003u, 0x0008u}) {
    EXPECT_TRUE(AreLegal(2, static_cast<std::uint16_t>(attributes))) << attributes;
  }
  for (const std::uint32_t attributes : {0x0004u, 0x0009u, 0x000Au, 0x0010u, 0x8000u}) {
    EXPECT_FALSE(AreLegal(2, static_cast<std::uint16_t>(attributes))) << attributes;
  }
}

struct Plausible : testing::Test {
  Plausible() {
    geometry.blockSize = 1024;
    geometry.bitmapSize = 32;
    geometry.dataOffset = 1056;
    geometry.blocks = 9;
    record.time = {2004, 6, 15, 12, 30, 45, 0};
    record.size = 7 * 1024;
  }
  bool Is() const { return IsPlausible(geometry, 2, record); }

  Geometry geometry;
  OrbNodeRecord record = {};
};

TEST_F(Plausible, sound_record_is) { EXPECT_TRUE(Is()); }

TEST_F(Plausible, attributes_must_be_legal) {
  record.attributes = 0x0010;
  EXPECT_FALSE(Is());
}

TEST_F(Plausible, time_stamp_must_be_a_date) {
  record.time.month = 13;
  EXPECT_FALSE(Is());
}

TEST_F(Plausible, reserved_bytes_must_be_zero) {
  record.time.reserved = 1;
  EXPECT_FALSE(Is());
  record.time.reserved = 0;
  for (std::uint32_t& word : record.reserved) {
    word = 1;
    EXPECT_FALSE(Is());
    word = 0;
  }
}

TEST_F(Plausible, size_must_be_below_the_largest_container) {
  record.size = kContainerLimit - 1;
  EXPECT_TRUE(Is());
  record.size = kContainerLimit;
  EXPECT_FALSE(Is());
}

TEST_F(Plausible, blocks_must_lie_in_the_container) {
  const auto bounded = [&](std::uint32_t* block) {
    *block = 9;
    EXPECT_TRUE(Is());
    *block = 10;
    EXPECT_FALSE(Is());
    *block = 0;
  };
  for (std::uint32_t& block : record.direct) bounded(&block);
  bounded(&record.indirect);
  bounded(&record.doubleIndirect);
}

}  // namespace
}  // namespace orba::inspect

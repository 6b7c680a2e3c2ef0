#include "inspect/container/block_map.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "inspect/container/fields.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;

constexpr std::uint32_t kFirstDouble = 6 + 256;  // with blocks of 1024 bytes

// A file /F, node 2, with one block behind a second-level block.
struct Deep : ImageBuilder {
  Deep() : ImageBuilder(1024, 32) { AddFile(1, "F", (kFirstDouble + 1) * 1024); }

  MemoryImage image() const { return MemoryImage(bytes()); }
  Geometry geometry() const {
    Geometry found;
    found.blockSize = 1024;
    found.bitmapSize = 32;
    found.dataOffset = 1024 + 32;
    found.blocks = Blocks();
    return found;
  }
  OrbNodeRecord node() const { return DecodeNode(&bytes()[NodeOffset(2)]); }
  std::uint32_t Word(std::uint32_t block, std::uint32_t slot) const { return Get32(BlockOffset(block) + 4 * slot); }
};

TEST(PathTo, direct_slots_come_first) {
  const Geometry geometry = Deep().geometry();
  for (std::uint32_t i = 0; i < 6; ++i) {
    const MapPath path = PathTo(geometry, i);
    EXPECT_EQ(path.from, MapLevel::kData);
    EXPECT_EQ(path.slot, i);
  }
}

TEST(PathTo, indirect_block_serves_as_many_as_it_has_slots) {
  const Geometry geometry = Deep().geometry();
  EXPECT_EQ(PathTo(geometry, 6).from, MapLevel::kIndirect);
  EXPECT_EQ(PathTo(geometry, 6).slot, 0u);
  EXPECT_EQ(PathTo(geometry, 261).from, MapLevel::kIndirect);
  EXPECT_EQ(PathTo(geometry, 261).slot, 255u);
}

TEST(PathTo, double_indirect_block_serves_the_rest) {
  const Geometry geometry = Deep().geometry();
  const auto at = [&](std::uint64_t index) {
    const MapPath path = PathTo(geometry, index);
    EXPECT_EQ(path.from, MapLevel::kDouble);
    return std::make_tuple(path.second, path.slot);
  };
  EXPECT_EQ(at(262), std::make_tuple(0u, 0u));
  EXPECT_EQ(at(262 + 255), std::make_tuple(0u, 255u));
  EXPECT_EQ(at(262 + 256), std::make_tuple(1u, 0u));
  EXPECT_EQ(at(geometry.mapCapacity() - 1), std::make_tuple(255u, 255u));
}

TEST(FindBlock, every_level_leads_to_its_block) {
  const Deep deep;
  const OrbNodeRecord node = deep.node();
  const MemoryImage image = deep.image();
  for (const std::uint32_t index : {0u, 5u, 6u, 7u, 261u, 262u}) {
    EXPECT_EQ(FindBlock(image, deep.geometry(), node, index), deep.MappedBlock(2, index)) << index;
    EXPECT_NE(deep.MappedBlock(2, index), 0u);
  }
  EXPECT_EQ(FindBlock(image, deep.geometry(), node, 263), 0u);
}

TEST(FindBlock, index_that_no_map_holds_has_no_block) {
  const Deep deep;
  const Geometry geometry = deep.geometry();
  EXPECT_EQ(FindBlock(deep.image(), geometry, deep.node(), geometry.mapCapacity()), 0u);
  EXPECT_EQ(FindBlock(deep.image(), geometry, deep.node(), ~std::uint64_t{0}), 0u);
}

TEST(FindBlock, number_beyond_the_end_is_no_block) {
  Deep deep;
  deep.Put32(deep.NodeOffset(2) + 32, deep.Blocks() + 1);
  EXPECT_EQ(FindBlock(deep.image(), deep.geometry(), deep.node(), 0), 0u);
  deep.Put32(deep.NodeOffset(2) + 32, deep.Blocks());
  EXPECT_EQ(FindBlock(deep.image(), deep.geometry(), deep.node(), 0), deep.Blocks());
  deep.Put32(deep.NodeOffset(2) + 56, deep.Blocks() + 1);
  EXPECT_EQ(FindBlock(deep.image(), deep.geometry(), deep.node(), 6), 0u);
}

TEST(VisitMap, slots_come_in_logical_order_with_their_places) {
  const Deep deep;
  const OrbNodeRecord node = deep.node();
  const std::uint64_t at = deep.NodeOffset(2);
  std::vector<MapSlot> slots;
  VisitMap(deep.image(), deep.geometry(), node, at, [&](const MapSlot& slot) {
    slots.push_back(slot);
    return true;
  });
  ASSERT_EQ(slots.size(), 6u + 1 + 256 + 1 + 256 + 256);
  const auto expect = [&](std::size_t i, MapLevel level, std::uint64_t index, std::uint32_t block,
                          std::uint64_t offset) {
    EXPECT_EQ(slots[i].level, level) << i;
    EXPECT_EQ(slots[i].index, index) << i;
    EXPECT_EQ(slots[i].block, block) << i;
    EXPECT_EQ(slots[i].offset, offset) << i;
  };
  const std::uint32_t second = deep.Word(node.doubleIndirect, 0);
  expect(0, MapLevel::kData, 0, node.direct[0], at + 32);
  expect(5, MapLevel::kData, 5, node.direct[5], at + 52);
  expect(6, MapLevel::kIndirect, 6, node.indirect, at + 56);
  expect(7, MapLevel::kData, 6, deep.Word(node.indirect, 0), deep.BlockOffset(node.indirect));
  expect(262, MapLevel::kData, 261, deep.Word(node.indirect, 255), deep.BlockOffset(node.indirect) + 1020);
  expect(263, MapLevel::kDouble, 262, node.doubleIndirect, at + 60);
  expect(264, MapLevel::kSecond, 262, second, deep.BlockOffset(node.doubleIndirect));
  expect(265, MapLevel::kData, 262, deep.Word(second, 0), deep.BlockOffset(second));
  expect(520, MapLevel::kData, 517, 0, deep.BlockOffset(second) + 1020);
  expect(521, MapLevel::kSecond, 518, 0, deep.BlockOffset(node.doubleIndirect) + 4);
  expect(775, MapLevel::kSecond, 262 + 255 * 256, 0, deep.BlockOffset(node.doubleIndirect) + 1020);
}

TEST(VisitMap, refused_map_block_is_not_entered) {
  const Deep deep;
  std::size_t visited = 0;
  VisitMap(deep.image(), deep.geometry(), deep.node(), 0, [&](const MapSlot& slot) {
    ++visited;
    return slot.level == MapLevel::kDouble;
  });
  EXPECT_EQ(visited, 6u + 1 + 1 + 256);
}

TEST(VisitMap, map_block_beyond_the_end_is_not_entered) {
  Deep deep;
  deep.Put32(deep.NodeOffset(2) + 56, deep.Blocks() + 1);
  deep.Put32(deep.NodeOffset(2) + 60, 0);
  std::size_t visited = 0;
  VisitMap(deep.image(), deep.geometry(), deep.node(), 0, [&](const MapSlot&) { return ++visited > 0; });
  EXPECT_EQ(visited, 8u);
}

// ---- What a block looks like ----------------------------------------------------------------------------------------

struct OneBlock : Deep {
  OneBlock() : block(AppendBlock()) {}

  Contents Look() const {
    const auto first = bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(block));
    return ContentsOf(geometry(), Bytes(first, first + 1024));
  }
  void PutNode(std::uint32_t slot, std::uint16_t number) {
    PutText(BlockOffset(block) + 64 * slot, "INO1");
    Put16(BlockOffset(block) + 64 * slot + 4, number);
  }
  void PutWord(std::uint32_t slot, std::uint32_t value) { Put32(BlockOffset(block) + 4 * slot, value); }

  std::uint32_t block;
};

TEST(ContentsOf, zeros_may_be_block_numbers) { EXPECT_EQ(OneBlock().Look(), Contents::kAny); }

TEST(ContentsOf, eight_numbered_slots_are_nodes) {
  OneBlock one;
  for (std::uint32_t i = 0; i < 7; ++i) one.PutNode(i, static_cast<std::uint16_t>(33 + i));
  EXPECT_NE(one.Look(), Contents::kNodes);
  one.PutNode(15, 48);
  EXPECT_EQ(one.Look(), Contents::kNodes);
  one.PutNode(15, 47);
  EXPECT_NE(one.Look(), Contents::kNodes);
  one.PutNode(15, 48);
  one.PutText(one.BlockOffset(one.block) + 64 * 15, "INO2");
  EXPECT_NE(one.Look(), Contents::kNodes);
}

TEST(ContentsOf, two_dots_with_numbers_are_a_directory) {
  OneBlock one;
  const std::uint64_t at = one.BlockOffset(one.block);
  one.Put16(at, 2);
  one.PutText(at + 2, ".");
  one.Put16(at + 32, 1);
  one.PutText(at + 34, "..");
  EXPECT_EQ(one.Look(), Contents::kDirectory);
  one.Put16(at + 32, 0);
  EXPECT_NE(one.Look(), Contents::kDirectory);
  one.Put16(at + 32, 1);
  one.Put16(at, 0);
  EXPECT_NE(one.Look(), Contents::kDirectory);
  one.Put16(at, 2);
  one.PutText(at + 34, ".A");
  EXPECT_NE(one.Look(), Contents::kDirectory);
}

TEST(ContentsOf, six_impossible_numbers_in_the_majority_are_no_numbers) {
  OneBlock one;
  const std::uint32_t impossible = kContainerLimit / 1024;
  for (std::uint32_t i = 0; i < 5; ++i) one.PutWord(i, impossible);
  EXPECT_EQ(one.Look(), Contents::kAny);
  one.PutWord(5, impossible);
  EXPECT_EQ(one.Look(), Contents::kNoNumbers);
  for (std::uint32_t i = 6; i < 11; ++i) one.PutWord(i, 1);
  EXPECT_EQ(one.Look(), Contents::kNoNumbers);
  one.PutWord(11, 1);
  EXPECT_EQ(one.Look(), Contents::kAny);
  one.PutWord(11, 0);
  one.PutWord(0, impossible - 1);
  EXPECT_EQ(one.Look(), Contents::kAny);
}

}  // namespace
}  // namespace orba::inspect

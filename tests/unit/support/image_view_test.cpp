#include "support/image_view.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace testhost {
namespace {

// A container of blocks of 1024 bytes with a bitmap of 16 bytes and three whole blocks.
Bytes Container() {
  orba::VolumeHeader header = {};
  header.signature = orba::kVolumeSignature;
  header.nodeTableOffset = 128;
  header.nodeTableSize = 896;
  header.bitmapOffset = 1024;
  header.bitmapSize = 16;
  header.dataOffset = 1040;
  header.blockSize = 1024;
  Bytes image(1040 + 3 * 1024);
  WriteRecord(image, 0, header);
  return image;
}

TEST(ImageView, integers_are_read_and_written_little_endian) {
  Bytes bytes = {0x11, 0x22, 0x33, 0x44, 0x55};
  EXPECT_EQ(ReadU16(bytes, 1), 0x3322);
  EXPECT_EQ(ReadU32(bytes, 1), 0x55443322u);
  WriteU16(bytes, 0, 0xABCD);
  WriteU32(bytes, 1, 0x01020304);
  EXPECT_EQ(bytes, (Bytes{0xCD, 4, 3, 2, 1}));
}

TEST(ImageView, bytes_behind_the_end_throw) {
  Bytes bytes(5);
  EXPECT_THROW(ReadU32(bytes, 2), std::out_of_range);
  EXPECT_THROW(ReadU32(bytes, 6), std::out_of_range);
  EXPECT_THROW(WriteU16(bytes, 4, 1), std::out_of_range);
  EXPECT_THROW(HeaderOf(bytes), std::out_of_range);
  EXPECT_THROW(BlockOf(Container(), 4), std::out_of_range);
  EXPECT_THROW(BlockOf(Container(), 0), std::out_of_range);
}

TEST(ImageView, dirty_mark_is_bit_0_of_the_flags) {
  Bytes image = Container();
  EXPECT_FALSE(IsMarkedDirty(image));
  WriteU32(image, 52, 2);
  EXPECT_FALSE(IsMarkedDirty(image));
  WriteU32(image, 52, 1);
  EXPECT_TRUE(IsMarkedDirty(image));
}

TEST(ImageView, blocks_follow_the_data_offset) {
  Bytes image = Container();
  image[1040] = 1;
  image[1040 + 2048] = 3;
  EXPECT_EQ(BlockOffset(image, 1), 1040u);
  EXPECT_EQ(BlockOffset(image, 3), 3088u);
  EXPECT_EQ(BlockOf(image, 1)[0], 1);
  EXPECT_EQ(BlockOf(image, 3)[0], 3);
  EXPECT_EQ(BlockOf(image, 3).size(), 1024u);
  EXPECT_EQ(BlockCount(image), 3u);
  image.push_back(0);
  EXPECT_EQ(BlockCount(image), 4u);
}

TEST(ImageView, clear_bit_from_the_high_end_is_a_node_in_use) {
  Bytes image = Container();
  for (size_t i = 0; i < 16; ++i) image[1024 + i] = 0xFF;
  image[1024] = 0x7F;
  image[1025] = 0xFE;
  EXPECT_TRUE(NodeInUse(image, 1));
  EXPECT_FALSE(NodeInUse(image, 2));
  EXPECT_FALSE(NodeInUse(image, 15));
  EXPECT_TRUE(NodeInUse(image, 16));
}

TEST(ImageView, node_is_found_through_the_table) {
  Bytes image = Container();
  WriteU32(image, 132, 2);  // entry 1: nodes 17 to 32
  orba::OrbNodeRecord record = {};
  record.number = 18;
  record.size = 77;
  WriteRecord(image, 1040 + 1024 + 64, record);
  EXPECT_EQ(NodeTableEntry(image, 1), 2u);
  EXPECT_EQ(NodeOffset(image, 18), 1040u + 1024 + 64);
  EXPECT_EQ(NodeOf(image, 18).number, 18);
  EXPECT_EQ(NodeOf(image, 18).size, 77u);
  EXPECT_THROW(NodeOf(image, 1), std::out_of_range);
}

TEST(ImageView, entry_and_its_name_are_read) {
  Bytes image = Container();
  orba::OrbDirEntry entry = {5, "NAME"};
  WriteRecord(image, 1040 + 1024 + 32, entry);
  EXPECT_EQ(EntryOf(image, 2, 1).node, 5);
  EXPECT_EQ(NameOf(EntryOf(image, 2, 1)), "NAME");
  memset(entry.name, 'X', sizeof entry.name);
  EXPECT_EQ(NameOf(entry), std::string(29, 'X'));
}

TEST(ImageView, free_chain_lists_its_entries) {
  Bytes image = Container();
  const size_t offset = 1040;
  WriteU32(image, offset, orba::kFreeChainSignature);
  WriteU32(image, offset + 4, 9);
  WriteU32(image, offset + 8, 2);
  WriteU32(image, offset + 12, 3);
  WriteU32(image, offset + 16, 8);
  const FreeChainView view = FreeChainOf(image, 1);
  EXPECT_EQ(view.signature, 0x31434246u);
  EXPECT_EQ(view.next, 9u);
  EXPECT_EQ(view.heap, (std::vector<uint32_t>{3, 8}));
}

}  // namespace
}  // namespace testhost

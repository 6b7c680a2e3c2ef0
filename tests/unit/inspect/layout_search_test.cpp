#include "inspect/container/layout_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "inspect/container/image.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;

Layout Search(const ImageBuilder& image) { return SearchLayout(MemoryImage(image.bytes())); }

// All in front of block `first` is lost.
void EraseBefore(ImageBuilder* image, std::uint32_t first) {
  std::fill_n(image->bytes().begin(), image->BlockOffset(first), std::uint8_t{0});
}

// 40 files and 3 directories: a node block for each of the larger block sizes, three for the smallest.
ImageBuilder Tree(std::uint32_t blockSize, std::uint32_t bitmapBytes) {
  ImageBuilder image(blockSize, bitmapBytes);
  std::uint16_t directory = 1;
  for (int i = 0; i < 3; ++i) directory = image.AddDirectory(directory, "D");
  for (int i = 0; i < 40; ++i) image.AddFile(directory, "F" + std::to_string(i), 100);
  return image;
}

TEST(SearchLayout, lost_header_table_and_bitmap_are_made_good) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    for (const std::uint32_t bitmapBytes : {8u, 100u, 896u}) {
      ImageBuilder image = Tree(blockSize, bitmapBytes);
      EraseBefore(&image, 1);
      EXPECT_EQ(Search(image).blockSize, blockSize) << bitmapBytes;
      EXPECT_EQ(Search(image).dataOffset, 1024 + bitmapBytes) << blockSize;
    }
  }
}

TEST(SearchLayout, lost_first_block_is_made_good_too) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    ImageBuilder image = Tree(blockSize, 60);
    for (int i = 0; i < 150; ++i) image.AddFile(1, "G" + std::to_string(i), 0);  // more node blocks
    image.AddDirectory(1, "E");
    EraseBefore(&image, 2);
    EXPECT_EQ(Search(image).blockSize, blockSize);
    EXPECT_EQ(Search(image).dataOffset, 1084u) << blockSize;
  }
}

TEST(SearchLayout, two_witnesses_are_enough_and_one_is_not) {
  ImageBuilder image(1024, 8);  // the root's directory in block 2, and the first node block
  EraseBefore(&image, 1);
  EXPECT_EQ(Search(image).blockSize, 1024u);
  EXPECT_EQ(Search(image).dataOffset, 1032u);
  EraseBefore(&image, 2);
  EXPECT_EQ(Search(image).blockSize, 0u);
}

// Four slots of the first node block fit a block of any size, and nothing else is there.
TEST(SearchLayout, sizes_that_are_supported_alike_are_none) {
  ImageBuilder image(1024, 8);
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(5)), 12 * 64, std::uint8_t{0});
  EraseBefore(&image, 1);
  EXPECT_EQ(Search(image).blockSize, 1024u);  // the root's directory lies where block 2 of this size would
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(2)), 1024, std::uint8_t{0});
  EXPECT_EQ(Search(image).blockSize, 0u);
}

TEST(SearchLayout, directories_that_lie_elsewhere_contradict) {
  ImageBuilder image = Tree(1024, 8);
  for (std::uint16_t node = 1; node <= 4; ++node) {
    image.Put32(image.NodeOffset(node) + 32, image.MappedBlock(node, 0) + 1);
  }
  EraseBefore(&image, 1);
  EXPECT_EQ(Search(image).blockSize, 0u);
}

// In blocks of half the size one of the two would lie where it should.
TEST(SearchLayout, exchanged_directories_contradict_nothing) {
  ImageBuilder image(4096, 64);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  for (int i = 0; i < 150; ++i) image.AddFile(directory, "F" + std::to_string(i), 100);
  ASSERT_EQ(image.MappedBlock(directory, 0), 3u);
  EraseBefore(&image, 1);
  const auto second = image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(2));
  std::swap_ranges(second, second + 4096, second + 4096);
  EXPECT_EQ(Search(image).blockSize, 4096u);
  EXPECT_EQ(Search(image).dataOffset, 1088u);
}

TEST(SearchLayout, directories_whose_records_lead_to_a_third_contradict) {
  ImageBuilder image(1024, 8);
  image.AddFile(1, "A", 3000);  // the directories do not lie where block 2 of another size would
  const std::uint16_t directories[] = {image.AddDirectory(1, "D"), image.AddDirectory(1, "E")};
  for (const std::uint16_t directory : directories) {
    ImageBuilder erased = image;
    EraseBefore(&erased, 1);
    EXPECT_EQ(Search(erased).blockSize, 1024u);
    image.Put32(image.NodeOffset(directory) + 32, 2);  // the root's
  }
  EraseBefore(&image, 1);
  EXPECT_EQ(Search(image).blockSize, 0u);
}

TEST(SearchLayout, deleted_directories_lie_where_they_may) {
  ImageBuilder image = Tree(1024, 8);
  EraseBefore(&image, 1);
  for (std::uint16_t node = 10; node < 20; ++node) {
    const std::uint32_t old = image.AppendBlock();  // the dots of a node that is a file now
    image.Put16(image.BlockOffset(old), node);
    image.PutText(image.BlockOffset(old) + 2, ".");
    image.Put16(image.BlockOffset(old) + 32, 1);
    image.PutText(image.BlockOffset(old) + 34, "..");
  }
  EXPECT_EQ(Search(image).blockSize, 1024u);
  EXPECT_EQ(Search(image).dataOffset, 1032u);
}

TEST(SearchLayout, data_area_begins_no_later_than_behind_the_largest_bitmap) {
  ImageBuilder image = Tree(1024, 896);
  EraseBefore(&image, 1);
  EXPECT_EQ(Search(image).dataOffset, 1920u);
  image.bytes().insert(image.bytes().begin(), 1);  // one byte more in front
  EXPECT_EQ(Search(image).blockSize, 0u);
}

// A scan goes by pieces of 64 KiB; the node block and the directory each begin in one piece and end in the next.
TEST(SearchLayout, records_across_the_pieces_of_the_scan_are_found) {
  for (const std::uint32_t shift : {1u, 20u, 32u, 63u, 64u, 65u}) {
    ImageBuilder image(1024, 64 + 8 + shift);
    for (int i = 0; i < 14; ++i) image.AddFile(1, "F" + std::to_string(i), i == 0 ? 61 * 1024 : 0);
    image.AddFile(1, "NODE17", 0);  // its node block begins before 64 KiB
    const std::uint16_t directory = image.AddDirectory(1, "D");
    ASSERT_GT(image.NodeOffset(directory), 65536u - 1024);
    EraseBefore(&image, 1);
    EXPECT_EQ(Search(image).blockSize, 1024u) << shift;
    EXPECT_EQ(Search(image).dataOffset, 1024 + 72 + shift);
  }
}

// Slots `first` on, `count` of them, in a row from byte `offset` on.
void PutSlots(Bytes* bytes, std::size_t offset, std::uint16_t first, std::uint16_t count) {
  for (std::uint16_t i = 0; i < count; ++i) {
    std::uint8_t* slot = &(*bytes)[offset + 64u * i];
    std::memcpy(slot, "INO1", 4);
    slot[4] = static_cast<std::uint8_t>((first + i) & 0xFF);
    slot[5] = static_cast<std::uint8_t>((first + i) >> 8);
  }
}

Layout Search(const Bytes& bytes) { return SearchLayout(MemoryImage(bytes)); }

TEST(SearchLayout, node_blocks_alone_are_enough) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  EXPECT_EQ(Search(bytes).blockSize, 0u);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
  EXPECT_EQ(Search(bytes).dataOffset, 1100u);
}

TEST(SearchLayout, node_block_of_which_a_sector_is_lost_is_one_run) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 4096 * 9, 65, 24);
  PutSlots(&bytes, 1100 + 4096 * 9 + 2048, 97, 32);
  PutSlots(&bytes, 1100 + 4096 * 30, 129, 24);
  PutSlots(&bytes, 1100 + 4096 * 30 + 2048, 161, 32);
  EXPECT_EQ(Search(bytes).blockSize, 4096u);
  EXPECT_EQ(Search(bytes).dataOffset, 1100u);
}

TEST(SearchLayout, record_whose_number_is_damaged_ends_no_run) {
  Bytes bytes(300000);
  for (const std::uint16_t first : {std::uint16_t{65}, std::uint16_t{129}}) {
    const std::size_t offset = 1100 + 64u * 3 * (first - 1);
    PutSlots(&bytes, offset, first, 64);
    bytes[offset + 64 * 30 + 5] ^= 0x10;
  }
  EXPECT_EQ(Search(bytes).blockSize, 4096u);
}

TEST(SearchLayout, records_with_more_than_a_sector_between_them_are_two_runs) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 4096 * 9, 65, 23);
  PutSlots(&bytes, 1100 + 4096 * 9 + 2048, 97, 32);
  PutSlots(&bytes, 1100 + 4096 * 30, 129, 23);
  PutSlots(&bytes, 1100 + 4096 * 30 + 2048, 161, 32);
  EXPECT_EQ(Search(bytes).blockSize, 2048u);
}

// By blocks of 8192 bytes these would be the halves of two node blocks, and lie in four.
TEST(SearchLayout, parts_of_one_node_block_in_two_places_contradict) {
  ImageBuilder image(4096, 64);
  for (int i = 0; i < 190; ++i) image.AddFile(1, "F" + std::to_string(i), 1);
  const std::uint32_t directory = image.MappedBlock(1, 0);  // where block 2 of 8192 bytes begins
  Bytes root(4096);
  std::copy_n(&image.bytes()[image.BlockOffset(directory)], root.size(), root.begin());
  std::copy_n(&image.bytes()[image.BlockOffset(3)], root.size(), &image.bytes()[image.BlockOffset(directory)]);
  std::copy_n(root.begin(), root.size(), &image.bytes()[image.BlockOffset(3)]);
  EraseBefore(&image, 1);
  EXPECT_EQ(Search(image).blockSize, 4096u);
  EXPECT_EQ(Search(image).dataOffset, 1088u);
}

TEST(SearchLayout, sectors_in_the_wrong_place_contradict_nothing) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  PutSlots(&bytes, 1024, 33, 8);
  PutSlots(&bytes, 100000, 41, 8);
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
  PutSlots(&bytes, 100000, 41, 9);
  PutSlots(&bytes, 1024, 33, 9);
  EXPECT_EQ(Search(bytes).blockSize, 0u);
}

TEST(SearchLayout, slots_that_lie_where_no_block_begins_contradict) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  PutSlots(&bytes, 1000 + 1024 * 50, 81, 15);
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
  PutSlots(&bytes, 1000 + 1024 * 60, 97, 15);
  EXPECT_EQ(Search(bytes).blockSize, 0u);
}

TEST(SearchLayout, slots_that_go_on_into_another_block_contradict) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  PutSlots(&bytes, 1100 + 1024 * 50, 81, 17);
  PutSlots(&bytes, 1100 + 1024 * 60, 129, 17);
  EXPECT_EQ(Search(bytes).blockSize, 0u);
}

TEST(SearchLayout, slots_within_a_block_say_nothing) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  PutSlots(&bytes, 1100 + 1024 * 50, 81, 15);
  PutSlots(&bytes, 1100 + 1024 * 60 + 64, 98, 15);
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
}

TEST(SearchLayout, guess_is_taken_where_nothing_contradicts_it) {
  Bytes bytes(300000);
  const auto guessed = [&bytes] { return SearchLayout(MemoryImage(bytes), {1024, 1100}).blockSize; };
  EXPECT_EQ(guessed(), 1024u);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  EXPECT_EQ(guessed(), 1024u);
  PutSlots(&bytes, 1000 + 1024 * 50, 81, 15);
  EXPECT_EQ(guessed(), 0u);
}

TEST(SearchLayout, runs_of_fewer_than_four_slots_say_nothing) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100, 1, 3);
  EXPECT_EQ(Search(bytes).blockSize, 0u);
  PutSlots(&bytes, 1100, 1, 4);
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
}

TEST(SearchLayout, slots_without_a_number_are_none) {
  Bytes bytes(300000);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  for (std::size_t block = 50; block < 60; ++block) {
    for (std::size_t i = 0; i < 8; ++i) PutSlots(&bytes, 1100 + 1024 * block + 64 * i, 0, 1);
  }
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
}

TEST(SearchLayout, record_at_the_beginning_of_a_piece_is_found) {
  for (const std::size_t start :
       {std::size_t{65536}, std::size_t{65537}, std::size_t{65536 - 200}, std::size_t{65536 - 129}}) {
    Bytes bytes(300000);
    PutSlots(&bytes, start, 17, 16);
    PutSlots(&bytes, start + 3 * 1024, 49, 16);
    EXPECT_EQ(Search(bytes).blockSize, 1024u) << start;
    EXPECT_EQ(Search(bytes).dataOffset, 1024 + start % 1024) << start;
  }
}

TEST(SearchLayout, last_record_of_a_container_is_found) {
  Bytes bytes(1100 + 1024 * 31);
  PutSlots(&bytes, 1100 + 1024 * 9, 17, 16);
  PutSlots(&bytes, 1100 + 1024 * 30, 49, 16);
  EXPECT_EQ(Search(bytes).blockSize, 1024u);
  bytes.pop_back();
  EXPECT_EQ(Search(bytes).blockSize, 0u);
}

TEST(SearchLayout, anything_else_has_no_layout) {
  EXPECT_EQ(SearchLayout(MemoryImage({})).blockSize, 0u);
  EXPECT_EQ(SearchLayout(MemoryImage(Bytes(63))).blockSize, 0u);
  EXPECT_EQ(SearchLayout(MemoryImage(Bytes(200000))).blockSize, 0u);
  EXPECT_EQ(SearchLayout(MemoryImage(testimage::Pattern(200000, 1))).blockSize, 0u);
}

}  // namespace
}  // namespace orba::inspect

#include "inspect/container/geometry.h"

#include <gtest/gtest.h>

#include <cstring>

#include "inspect/container/fields.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;

VolumeHeader HeaderOf(const ImageBuilder& image) { return DecodeHeader(image.bytes().data()); }

Geometry GeometryOf(const ImageBuilder& image) { return FindGeometry(MemoryImage(image.bytes()), HeaderOf(image)); }

Geometry Made(std::uint32_t blockSize, std::uint32_t bitmapSize) {
  Geometry geometry;
  geometry.blockSize = blockSize;
  geometry.bitmapSize = bitmapSize;
  geometry.dataOffset = 1024 + bitmapSize;
  return geometry;
}

TEST(Geometry, unknown_layout_has_no_block_size) {
  EXPECT_FALSE(Geometry().known());
  EXPECT_EQ(Geometry().tableEntries(), 0u);
  EXPECT_TRUE(Made(1024, 1).known());
}

TEST(Geometry, records_fill_a_block) {
  const Geometry geometry = Made(2048, 8);
  EXPECT_EQ(geometry.nodesPerBlock(), 32u);
  EXPECT_EQ(geometry.entriesPerBlock(), 64u);
  EXPECT_EQ(geometry.mapSlots(), 512u);
  EXPECT_EQ(geometry.chainCapacity(), 509u);
}

TEST(Geometry, node_limit_is_the_lower_of_bitmap_and_table) {
  EXPECT_EQ(Made(1024, 0).nodeLimit(), 1u);
  EXPECT_EQ(Made(1024, 1).nodeLimit(), 8u);
  EXPECT_EQ(Made(1024, 448).nodeLimit(), 224u * 16);
  EXPECT_EQ(Made(1024, 896).nodeLimit(), 224u * 16);
}

TEST(Geometry, table_has_an_entry_for_every_node) {
  EXPECT_EQ(Made(1024, 0).tableEntries(), 1u);
  EXPECT_EQ(Made(1024, 2).tableEntries(), 1u);
  EXPECT_EQ(Made(1024, 3).tableEntries(), 2u);
  EXPECT_EQ(Made(1024, 896).tableEntries(), 224u);
  EXPECT_EQ(Made(1024, 8).firstNode(0), 1u);
  EXPECT_EQ(Made(1024, 8).firstNode(3), 49u);
}

TEST(Geometry, map_serves_three_ranges) {
  const Geometry geometry = Made(1024, 8);
  EXPECT_EQ(geometry.firstDouble(), 262u);
  EXPECT_EQ(geometry.firstOfSecond(0), 262u);
  EXPECT_EQ(geometry.firstOfSecond(2), 262u + 512);
  EXPECT_EQ(geometry.mapCapacity(), 262u + 256 * 256);
}

TEST(Geometry, blocks_lie_behind_each_other) {
  Geometry geometry = Made(1024, 8);
  geometry.blocks = 5;
  EXPECT_FALSE(geometry.Holds(0));
  EXPECT_TRUE(geometry.Holds(1));
  EXPECT_TRUE(geometry.Holds(5));
  EXPECT_FALSE(geometry.Holds(6));
  EXPECT_EQ(geometry.BlockOffset(1), 1032u);
  EXPECT_EQ(geometry.BlockOffset(3), 1032u + 2048);
  EXPECT_EQ(geometry.NodeOffset(3, 2), 1032u + 2048 + 128);
  EXPECT_EQ(geometry.EntryOffset(3, 2), 1032u + 2048 + 64);
  EXPECT_EQ(geometry.SlotOffset(3, 2), 1032u + 2048 + 8);
  EXPECT_EQ(geometry.BlocksFor(0), 0u);
  EXPECT_EQ(geometry.BlocksFor(1), 1u);
  EXPECT_EQ(geometry.BlocksFor(1024), 1u);
  EXPECT_EQ(geometry.BlocksFor(1025), 2u);
  EXPECT_EQ(geometry.BlocksFor(0xFFFFFFFF), 4194304u);
}

TEST(FieldsAgree, formatted_header_agrees) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    EXPECT_TRUE(FieldsAgree(HeaderOf(ImageBuilder(blockSize, 32)))) << blockSize;
    EXPECT_TRUE(FieldsAgree(HeaderOf(ImageBuilder(blockSize, MaxBitmapSize(blockSize))))) << blockSize;
  }
}

TEST(FieldsAgree, any_field_that_is_wrong_disagrees) {
  const ImageBuilder image(1024, 32);
  for (std::uint32_t offset = 8; offset <= 44; offset += 4) {
    for (const std::uint32_t change : {1u, 0xFFFFFFFFu}) {
      ImageBuilder wrong = image;
      wrong.Put32(offset, wrong.Get32(offset) + change);
      EXPECT_FALSE(FieldsAgree(HeaderOf(wrong))) << offset << " " << change;
    }
  }
}

TEST(FieldsAgree, signature_flags_and_upper_bytes_of_the_shift_do_not_matter) {
  ImageBuilder image(1024, 32);
  image.Put32(0, 0);
  image.Put32(4, 0);
  image.Put32(44, 0xFFFFFF0A);
  image.Put32(48, 77);
  image.Put32(52, 0xFFFFFFFF);
  EXPECT_TRUE(FieldsAgree(HeaderOf(image)));
}

TEST(FieldsAgree, bitmap_has_a_largest_size) {
  VolumeHeader header = HeaderOf(ImageBuilder(1024, MaxBitmapSize(1024)));
  EXPECT_TRUE(FieldsAgree(header));
  ++header.bitmapSize;
  ++header.reservedOffset;
  ++header.dataOffset;
  EXPECT_FALSE(FieldsAgree(header));
}

TEST(FieldsAgree, reserved_region_ends_before_the_largest_container) {
  VolumeHeader header = HeaderOf(ImageBuilder(1024, 32));
  header.reservedSize = kContainerLimit - header.reservedOffset - 1;
  header.dataOffset = header.reservedOffset + header.reservedSize;
  EXPECT_TRUE(FieldsAgree(header));
  ++header.reservedSize;
  ++header.dataOffset;
  EXPECT_FALSE(FieldsAgree(header));
}

TEST(FindGeometry, sound_header_is_taken) {
  const ImageBuilder image(2048, 100);
  const Geometry geometry = GeometryOf(image);
  EXPECT_EQ(geometry.blockSize, 2048u);
  EXPECT_EQ(geometry.bitmapSize, 100u);
  EXPECT_EQ(geometry.dataOffset, 1124u);
  EXPECT_EQ(geometry.blocks, 2u);
}

TEST(FindGeometry, whole_blocks_are_counted) {
  ImageBuilder image(1024, 32);
  image.bytes().resize(image.bytes().size() + 1023);
  EXPECT_EQ(GeometryOf(image).blocks, 2u);
  image.bytes().resize(image.bytes().size() + 1);
  EXPECT_EQ(GeometryOf(image).blocks, 3u);
  image.bytes().resize(1000);
  EXPECT_EQ(GeometryOf(image).blocks, 0u);
}

// Each pair of fields that says the same is wrong in one of them, for every block size.
TEST(FindGeometry, one_wrong_field_is_made_good_by_the_others) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    for (const std::uint32_t offset : {8u, 12u, 16u, 20u, 24u, 28u, 32u, 36u, 40u, 44u}) {
      ImageBuilder image(blockSize, 40);
      image.Put32(offset, image.Get32(offset) ^ 0x13);
      const Geometry geometry = GeometryOf(image);
      EXPECT_EQ(geometry.blockSize, blockSize) << offset;
      EXPECT_EQ(geometry.bitmapSize, 40u) << offset;
      EXPECT_EQ(geometry.dataOffset, 1064u) << offset;
    }
  }
}

TEST(FindGeometry, lost_header_is_made_good_by_the_roots_node_block) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    for (const std::uint32_t bitmapSize : {0u, 1u, 77u, MaxBitmapSize(blockSize)}) {
      ImageBuilder image(blockSize, bitmapSize);
      std::memset(image.bytes().data(), 0, kHeaderSize);
      const Geometry geometry = GeometryOf(image);
      EXPECT_EQ(geometry.blockSize, blockSize);
      EXPECT_EQ(geometry.bitmapSize, bitmapSize);
      EXPECT_EQ(geometry.dataOffset, 1024 + bitmapSize);
      EXPECT_EQ(geometry.blocks, 2u);
    }
  }
}

// A smaller region could as well be the rest of the bitmap.
TEST(FindGeometry, large_reserved_region_is_believed_where_the_root_lies_behind_it) {
  ImageBuilder image(1024, 32);
  image.bytes().insert(image.bytes().begin() + 1056, 8000, std::uint8_t{0xAA});
  image.Put32(32, 8000);
  image.Put32(36, 9056);
  image.Put32(40, 9);  // the block size: the header does not agree any more
  const Geometry geometry = GeometryOf(image);
  EXPECT_EQ(geometry.blockSize, 1024u);
  EXPECT_EQ(geometry.bitmapSize, 32u);
  EXPECT_EQ(geometry.dataOffset, 9056u);
}

TEST(FindGeometry, bitmap_before_a_reserved_region_is_known_by_what_lies_behind_it) {
  ImageBuilder image(1024, 32);
  image.bytes().insert(image.bytes().begin() + 1056, 8000, std::uint8_t{0xAA});
  image.Put32(24, 0x7000);  // the bitmap's size
  image.Put32(28, 0x7777);  // where the reserved region begins
  image.Put32(32, 8000);
  image.Put32(36, 9056);
  const Geometry geometry = GeometryOf(image);
  EXPECT_EQ(geometry.blockSize, 1024u);
  EXPECT_EQ(geometry.bitmapSize, 32u);
  EXPECT_EQ(geometry.dataOffset, 9056u);
}

TEST(FindGeometry, bitmap_of_the_largest_size_before_a_reserved_region_is_believed) {
  ImageBuilder image(1024, MaxBitmapSize(1024));
  image.bytes().insert(image.bytes().begin() + 1024 + 896, 64, std::uint8_t{0xAA});
  image.Put32(32, 64);
  image.Put32(36, 1984);
  image.Put32(40, 9);
  const Geometry geometry = GeometryOf(image);
  EXPECT_EQ(geometry.blockSize, 1024u);
  EXPECT_EQ(geometry.bitmapSize, 896u);
  EXPECT_EQ(geometry.dataOffset, 1984u);
}

TEST(FindGeometry, data_area_inside_the_table_is_not_believed) {
  Bytes bytes(5000);
  for (std::uint16_t i = 0; i < 16; ++i)
    EncodeNode(EmptyNode(static_cast<std::uint16_t>(i + 1)), &bytes[600 + 64u * i]);
  VolumeHeader header = {};
  header.bitmapSize = 448;
  header.dataOffset = 600;
  EXPECT_FALSE(FindGeometry(MemoryImage(bytes), header).known());
}

TEST(FindGeometry, sound_header_gives_way_to_another_place_of_the_root) {
  ImageBuilder image(1024, 32);
  const ImageBuilder other(1024, 64);
  std::memcpy(image.bytes().data(), other.bytes().data(), kHeaderSize);
  EXPECT_EQ(GeometryOf(image).bitmapSize, 32u);
}

TEST(FindGeometry, sound_header_is_believed_where_the_root_is_nowhere) {
  for (const std::uint64_t offset : {0u, 4u, 32u}) {  // signature, number, first block of the root's node
    ImageBuilder image(1024, 32);
    image.Put32(image.NodeOffset(1) + offset, 0xFFFFFFFF);
    EXPECT_EQ(GeometryOf(image).bitmapSize, 32u) << offset;
    EXPECT_EQ(GeometryOf(image).blockSize, 1024u) << offset;
  }
}

// Of zeros one field says that there is no bitmap, and a copy of the first node block lies where block 1 would be then.
TEST(FindGeometry, erased_header_says_nothing_of_a_bitmap) {
  ImageBuilder image(1024, 64);
  for (int i = 0; i < 40; ++i) image.AddDirectory(1, "D" + std::to_string(i));
  std::memmove(&image.bytes()[1024], &image.bytes()[image.BlockOffset(1)], 1024);
  std::memset(image.bytes().data(), 0, kHeaderSize);
  EXPECT_EQ(GeometryOf(image).bitmapSize, 64u);
  EXPECT_EQ(GeometryOf(image).blockSize, 1024u);
}

// Nothing but the first node block speaks for the layout, and a directory that lies elsewhere against it: then it takes
// two fields of the header that say the same.
TEST(FindGeometry, contradicted_node_block_needs_the_headers_word) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.Put32(image.NodeOffset(directory) + 32, 200);
  std::memset(&image.bytes()[image.BlockOffset(2)], 0, 1024);
  image.Put32(40, 9);  // the block size
  EXPECT_EQ(GeometryOf(image).blockSize, 1024u);
  EXPECT_EQ(GeometryOf(image).bitmapSize, 32u);
  std::memset(image.bytes().data(), 0, 128);
  EXPECT_FALSE(GeometryOf(image).known());
  image.Put32(image.NodeOffset(directory) + 32, 3);  // where it is
  EXPECT_TRUE(GeometryOf(image).known());
}

TEST(FindGeometry, too_few_slots_are_no_node_block) {
  ImageBuilder image(1024, 32);
  std::memset(image.bytes().data(), 0, kHeaderSize);
  std::memset(&image.bytes()[image.NodeOffset(9)], 0, 8 * 64);  // 8 of 16 are left
  EXPECT_TRUE(GeometryOf(image).known());
  std::memset(&image.bytes()[image.NodeOffset(8)], 0, 64);
  std::memset(&image.bytes()[image.BlockOffset(2)], 0, 1024);
  EXPECT_FALSE(GeometryOf(image).known());
}

TEST(FindGeometry, eight_slots_are_enough_where_they_are_half_of_them) {
  ImageBuilder image(2048, 32);
  std::memset(image.bytes().data(), 0, kHeaderSize);
  std::memset(&image.bytes()[image.BlockOffset(2)], 0, 2048);
  const ImageBuilder whole = image;
  const auto keep = [&](std::uint32_t first, std::uint32_t last) {  // and slots 1 and 32
    image = whole;
    for (std::uint32_t slot = 2; slot < 32; ++slot) {
      if (slot < first || slot > last) std::memset(&image.bytes()[image.BlockOffset(1) + 64 * (slot - 1)], 0, 64);
    }
    return GeometryOf(image).blockSize;
  };
  EXPECT_EQ(keep(2, 15), 2048u);  // 16 of 32
  EXPECT_EQ(keep(2, 14), 0u);
  std::memset(&image.bytes()[image.BlockOffset(1) + 64 * 8], 0, 64 * 24);
  EXPECT_EQ(GeometryOf(image).blockSize, 1024u);  // 8 of 8
  std::memset(&image.bytes()[image.BlockOffset(1) + 64 * 7], 0, 64);
  EXPECT_EQ(GeometryOf(image).blockSize, 0u);
}

TEST(FindGeometry, short_container_has_no_layout) {
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1024}, std::size_t{1029}, std::size_t{1030}, std::size_t{3000}}) {
    EXPECT_FALSE(FindGeometry(MemoryImage(Bytes(size)), VolumeHeader{}).known()) << size;
  }
}

TEST(SoundHeader, is_what_formatting_writes) {
  ImageBuilder image(4096, 50);
  Geometry geometry = GeometryOf(image);
  VolumeHeader kept = {};
  kept.freeChainHead = 9;
  kept.stateFlags = 0xFFFFFFFF;
  Bytes bytes(kHeaderSize);
  EncodeHeader(SoundHeader(geometry, kept), bytes.data());
  image.Put32(48, 9);
  image.Put32(52, kVolumeDirty);
  EXPECT_EQ(bytes, Bytes(image.bytes().begin(), image.bytes().begin() + kHeaderSize));
}

TEST(SoundHeader, keeps_the_reserved_region) {
  Geometry geometry = Made(1024, 32);
  geometry.dataOffset += 100;
  const VolumeHeader header = SoundHeader(geometry, {});
  EXPECT_EQ(header.reservedOffset, 1056u);
  EXPECT_EQ(header.reservedSize, 100u);
  EXPECT_EQ(header.dataOffset, 1156u);
  EXPECT_EQ(header.stateFlags, 0u);
}

}  // namespace
}  // namespace orba::inspect

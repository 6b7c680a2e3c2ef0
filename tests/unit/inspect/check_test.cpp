// Every kind of finding, from an image broken in just that way; and valid images, on which the checker must be silent.
#include "inspect/check/check.h"

#include <gtest/gtest.h>

#include <string>

#include "inspect/view/report.h"
#include "tests/support/image_builder.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::FillDirectory;
using testimage::ImageBuilder;
using testimage::Pattern;
using testimage::Small;
using testimage::WithChain;

Report CheckOf(const ImageBuilder& image) { return Check(MemoryImage(image.bytes())); }

// "block-shared node=3 block=5 offset=1234 count=1; ..." in the order of finding, notes included.
std::string FoundIn(const Report& report) {
  std::string text;
  for (const Finding& finding : report.findings) {
    if (!text.empty()) text += "; ";
    text += Name(finding.kind);
    if (finding.node != 0) text += " node=" + std::to_string(finding.node);
    if (finding.block != 0) text += " block=" + std::to_string(finding.block);
    if (finding.offset != kNoOffset) text += " offset=" + std::to_string(finding.offset);
    if (finding.count != 1) text += " count=" + std::to_string(finding.count);
  }
  return text;
}

std::string FoundIn(const ImageBuilder& image) { return FoundIn(CheckOf(image)); }

std::string At(const char* kind, std::uint32_t node, std::uint32_t block, std::uint64_t offset,
               std::uint32_t count = 1) {
  std::string text = kind;
  if (node != 0) text += " node=" + std::to_string(node);
  if (block != 0) text += " block=" + std::to_string(block);
  if (offset != kNoOffset) text += " offset=" + std::to_string(offset);
  if (count != 1) text += " count=" + std::to_string(count);
  return text;
}

// ---- Valid images ---------------------------------------------------------------------------------------------------

TEST(CheckValid, formatted_every_block_size_and_bitmap_is_clean) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    for (const std::uint32_t bitmap : {0u, 1u, 7u, 128u, blockSize / 64 * 448 / 8}) {
      const Report report = CheckOf(ImageBuilder(blockSize, bitmap));
      EXPECT_EQ(FoundIn(report), "") << blockSize << " " << bitmap;
      EXPECT_TRUE(report.readable);
      EXPECT_TRUE(report.IsClean());
      EXPECT_FALSE(report.marked);
      EXPECT_EQ(report.model.geometry.blocks, 2u);
      EXPECT_EQ(report.totals.directories, 1u);
    }
  }
}

TEST(CheckValid, small_tree_is_clean_and_counted) {
  const Report report = CheckOf(Small());
  EXPECT_EQ(FoundIn(report), "");
  EXPECT_EQ(report.totals.files, 2u);
  EXPECT_EQ(report.totals.directories, 3u);
  EXPECT_EQ(report.totals.fileBytes, 1500u + 7 * 1024);
  EXPECT_EQ(report.totals.freeNodes, 256u - 5);
  EXPECT_EQ(PathOf(report.model, 4), "/D/B");
  EXPECT_EQ(PathOf(report.model, 1), "/");
}

TEST(CheckValid, map_borders_are_clean) {
  for (const std::uint32_t blocks : {1u, 6u, 7u, 262u, 263u, 518u, 519u}) {
    ImageBuilder image(1024, 32);
    image.AddFile(1, "F", blocks * 1024);
    image.AddFile(1, "G", blocks * 1024 - 1);
    EXPECT_EQ(FoundIn(image), "") << blocks;
  }
}

TEST(CheckValid, large_directory_is_clean) {
  for (const std::uint32_t entries : {31u, 32u, 33u, 192u, 193u, 230u}) {
    ImageBuilder image(1024, 128);
    FillDirectory(&image, entries);
    EXPECT_EQ(FoundIn(image), "") << entries;
  }
}

TEST(CheckValid, chain_of_two_records_is_clean_and_counted) {
  ImageBuilder image(1024, 32);
  std::vector<std::uint32_t> full;
  for (int i = 0; i < 253; ++i) full.push_back(image.AppendBlock());
  const std::uint32_t one = image.AppendBlock();
  image.SetChain({{one}, full});
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), "");
  EXPECT_EQ(report.totals.freeBlocks, 256u);
  EXPECT_EQ(report.model.chain.size(), 2u);
  EXPECT_EQ(report.model.blocks[one].use, BlockUse::kFree);
}

TEST(CheckValid, map_blocks_kept_after_shrinking_are_in_use) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 263 * 1024);
  std::vector<std::uint32_t> freed;
  for (std::uint32_t i = 263; i-- > 0;) {
    freed.push_back(image.MappedBlock(node, i));
    image.Put32(image.MapOffset(node, i), 0);
  }
  image.SetSize(node, 0);
  freed.resize(253);
  image.SetChain({freed});
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Severity::kDamage), 0u);
  EXPECT_EQ(report.Count(Severity::kInterrupted), 0u);
  EXPECT_EQ(report.totals.leakedBlocks, 10u);  // those that the record had no room for
}

TEST(CheckValid, left_overs_behind_the_nul_of_a_name_are_ignored) {
  Small image;
  image.PutText(image.EntryOffset(1, 2) + 4, "left over");
  EXPECT_EQ(FoundIn(image), "");
}

// ---- Header ---------------------------------------------------------------------------------------------------------

TEST(CheckHeader, dirty_mark_is_reported_on_its_own) {
  Small image;
  image.Put32(52, 1);
  const Report report = CheckOf(image);
  EXPECT_TRUE(report.marked);
  EXPECT_EQ(FoundIn(report), "");
}

TEST(CheckHeader, signature_other_is_found_and_the_rest_is_read) {
  Small image;
  image.Put8(0, 'X');
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), "header-signature offset=0");
  EXPECT_TRUE(report.readable);
}

TEST(CheckHeader, version_other_is_found) {
  Small image;
  image.Put8(4, '2');
  EXPECT_EQ(FoundIn(image), "header-version offset=4");
}

TEST(CheckHeader, any_field_wrong_is_found_and_the_rest_still_read) {  // C1
  for (std::uint32_t offset = 8; offset <= 44; offset += 4) {
    for (const std::uint32_t value : {1u, 4096u, 0xFFFFFFFFu}) {
      Small image;
      const std::uint32_t was = image.Get32(offset);
      image.Put32(offset, value);
      const Report report = CheckOf(image);
      EXPECT_EQ(report.Count(Kind::kHeaderField), 1u) << offset << " " << value << " was " << was;
      EXPECT_EQ(report.findings[0].offset, offset) << offset << " " << value;
      EXPECT_EQ(report.Count(Severity::kDamage), 1u) << offset << " " << value << FoundIn(report);
      EXPECT_EQ(report.totals.files, 2u) << offset << " " << value;
    }
  }
}

TEST(CheckHeader, block_size_and_shift_and_offsets_wrong_layout_found_by_the_roots_nodes) {
  Small image;
  for (std::uint32_t offset = 8; offset <= 44; offset += 4) image.Put32(offset, 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.model.geometry.blockSize, 1024u);
  EXPECT_EQ(report.model.geometry.bitmapSize, 32u);
  EXPECT_EQ(report.Count(Kind::kHeaderField), 9u);  // the reserved region's size is 0
  EXPECT_EQ(report.totals.files, 2u);
}

TEST(CheckHeader, sound_header_of_another_container_gives_way_to_where_the_root_is) {
  Small image;
  const Bytes other = ImageBuilder(4096, 512).bytes();
  for (std::uint32_t i = 0; i < 128; ++i) image.Put8(i, other[i]);
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), At("header-field", 0, 0, 24) + "; " + At("header-field", 0, 0, 28) + "; " +
                                 At("header-field", 0, 0, 36) + "; " + At("header-field", 0, 0, 40) + "; " +
                                 At("header-field", 0, 0, 44));
  EXPECT_EQ(report.model.geometry.blockSize, 1024u);
}

TEST(CheckHeader, root_lost_too_sound_header_is_believed) {
  Small image;
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(1) + i, 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kHeaderField), 0u);
  EXPECT_EQ(report.model.geometry.blockSize, 1024u);
}

TEST(CheckHeader, layout_nowhere_to_be_found_is_unreadable) {
  Small image;
  image.Put32(40, 0);
  image.Put32(image.NodeOffset(1), 0);
  for (std::uint16_t i = 1; i <= 16; ++i) image.Put32(image.NodeOffset(i), 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), "layout-unknown offset=8");
  EXPECT_FALSE(report.readable);
}

TEST(CheckHeader, reserved_byte_set_is_found) {
  Small image;
  image.Put8(127, 1);
  EXPECT_EQ(FoundIn(image), "header-reserved offset=127");
}

TEST(CheckHeader, flag_without_meaning_set_is_found) {
  Small image;
  image.Put32(52, 6);
  EXPECT_EQ(FoundIn(image), "header-reserved offset=52");
}

TEST(CheckHeader, shift_bits_that_nothing_reads_are_found) {
  Small image;
  image.Put32(44, 0x100 + 10);
  EXPECT_EQ(FoundIn(image), "header-shift-bits offset=44");
}

TEST(CheckHeader, reserved_region_before_the_data_is_found) {
  Small image;
  image.bytes().insert(image.bytes().begin() + 1024 + 32, 512, std::uint8_t{0});
  image.Put32(32, 512);
  image.Put32(36, 1024 + 32 + 512);
  EXPECT_EQ(FoundIn(image), "reserved-region offset=32");
}

TEST(CheckContainer, every_length_below_the_data_area_is_short) {  // C1
  const Small image;
  for (std::size_t size = 0; size < 1024 + 32; ++size) {
    const Report report =
        Check(MemoryImage(Bytes(image.bytes().begin(), image.bytes().begin() + static_cast<long>(size))));
    EXPECT_EQ(FoundIn(report), At("container-short", 0, 0, size)) << size;
    EXPECT_FALSE(report.readable);
  }
}

TEST(CheckContainer, container_of_2_gib_is_too_long) {
  struct Long : MemoryImage {
    using MemoryImage::MemoryImage;
    std::uint64_t Size() const override { return 0x80000000; }
  };
  const Report report = Check(Long(ImageBuilder(8192, 32).bytes()));
  EXPECT_EQ(report.Count(Kind::kContainerLong), 1u);
  EXPECT_EQ(report.findings[0].offset, 0x80000000u);
  EXPECT_EQ(report.findings[0].node, 0u);
  EXPECT_EQ(report.totals.appendableBlocks, 0u);
}

TEST(CheckContainer, trailing_bytes_are_counted) {
  Small image;
  const std::uint64_t end = image.bytes().size();
  image.bytes().resize(end + 1023);
  EXPECT_EQ(FoundIn(image), At("trailing-bytes", 0, 0, end, 1023));
}

TEST(CheckContainer, ends_in_a_block_in_use_the_rest_of_it_is_not_left_to_the_next_block) {
  Small image;
  const std::uint32_t last = image.Blocks();  // of /D/E, the directory
  image.bytes().resize(image.bytes().size() - 900);
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), At("map-outside", 5, last, image.NodeOffset(5) + 32) + "; " +
                                 At("trailing-bytes", 0, 0, image.BlockOffset(last), 124));
  EXPECT_EQ(Sentence(report.findings[1]),
            "124 bytes follow the last whole block; they begin block " + std::to_string(last) + ", which is in use");
}

TEST(CheckContainer, bytes_that_the_host_cannot_read_are_found) {
  Small image;
  const testimage::BadByte bad(image.bytes(), image.EntryOffset(3, 0));
  const Report report = Check(bad);
  EXPECT_EQ(report.Count(Kind::kUnreadable), 1u);
  EXPECT_EQ(report.findings[0].offset, bad.bad);
  EXPECT_FALSE(report.readable);
}

// ---- Node-block table, bitmap, node blocks --------------------------------------------------------------------------

TEST(CheckTable, entry_beyond_the_end_is_found) {  // C3
  Small image;
  image.Put32(ImageBuilder::TableOffset(1), 999);
  EXPECT_EQ(FoundIn(image), At("table-outside", 0, 999, 132));
}

TEST(CheckTable, entry_for_nodes_that_cannot_be_is_unneeded) {
  Small image;
  const std::uint32_t block = image.AppendBlock();
  image.Put32(ImageBuilder::TableOffset(16), block);  // 32 bytes of bitmap: 256 nodes in 16 blocks
  EXPECT_EQ(FoundIn(image), At("table-unneeded", 0, block, 128 + 64));
}

TEST(CheckTable, one_block_twice_is_shared) {  // C2
  Small image;
  image.Put32(ImageBuilder::TableOffset(1), 1);
  EXPECT_EQ(FoundIn(image), At("block-shared", 0, 1, 132));
}

TEST(CheckTable, block_without_nodes_is_foreign) {
  Small image;
  const std::uint32_t block = image.AppendBlock();
  image.Put32(ImageBuilder::TableOffset(3), block);
  EXPECT_EQ(FoundIn(image), At("node-block-foreign", 0, block, 128 + 12));
}

TEST(CheckNodes, kind_is_judged_by_the_blocks_within_the_size) {
  Small image;
  const std::uint16_t like = image.AddFile(1, "LIKE", 64);
  const auto block = [&](std::uint16_t node) { return image.BlockOffset(image.MappedBlock(node, 0)); };
  for (std::uint64_t i = 0; i < 64; ++i) image.Put8(block(like) + i, image.bytes()[block(3) + i]);
  image.Put16(block(like), like);
  EXPECT_TRUE(CheckOf(image).model.nodes[like].wrongKind);
  image.SetSize(like, 32);
  EXPECT_FALSE(CheckOf(image).model.nodes[like].wrongKind);

  image.Put16(image.NodeOffset(2) + 6, image.Get16(image.NodeOffset(3) + 6));  // A is marked as a directory
  image.SetSize(2, 1024);
  image.Put32(image.MapOffset(2, 1), image.MappedBlock(3, 0));
  EXPECT_TRUE(CheckOf(image).model.nodes[2].wrongKind);
}

TEST(CheckMap, blocks_past_the_size_are_not_among_those_that_are_there) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "F", 5 * 1024);
  image.SetSize(file, 3 * 1024);
  image.Put32(image.MapOffset(file, 1), 0);
  const MapSummary map = CheckOf(image).model.nodes[file].map;
  EXPECT_EQ(map.needed, 3u);
  EXPECT_EQ(map.present, 2u);
  EXPECT_EQ(map.end, 3u);
  EXPECT_EQ(map.extras, 2u);
}

TEST(CheckTable, block_without_used_nodes_is_a_note) {
  Small image;
  for (int i = 0; i < 12; ++i) image.AddNode(0);  // 6 to 17
  for (std::uint16_t n = 6; n <= 17; ++n) image.SetFree(n, true);
  EXPECT_EQ(FoundIn(image), At("node-block-unused", 0, image.Blocks(), 132));
  EXPECT_TRUE(CheckOf(image).IsClean());
}

TEST(CheckNodes, signature_other_is_found_in_used_and_free_slots) {
  Small image;
  image.Put8(image.NodeOffset(4), 'X');
  image.Put8(image.NodeOffset(9), 'X');  // free slots carry theirs too
  EXPECT_EQ(FoundIn(image),
            At("node-signature", 4, 1, image.NodeOffset(4)) + "; " + At("node-signature", 9, 1, image.NodeOffset(9)));
}

TEST(CheckNodes, number_other_is_found) {
  Small image;
  image.Put16(image.NodeOffset(4) + 4, 5);
  EXPECT_EQ(FoundIn(image), At("node-number", 4, 1, image.NodeOffset(4) + 4));
}

TEST(CheckNodes, slot_with_neither_is_read_while_the_rest_is_plausible) {
  Small image;
  image.Put32(image.NodeOffset(2), 0);
  image.Put16(image.NodeOffset(2) + 4, 0);
  EXPECT_EQ(FoundIn(image),
            At("node-signature", 2, 1, image.NodeOffset(2)) + "; " + At("node-number", 2, 1, image.NodeOffset(2) + 4));
}

TEST(CheckNodes, slot_overwritten_is_lost) {  // C4
  Small image;
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(2) + i, 0xAA);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kNodeWithoutBlock), 1u);
  EXPECT_EQ(report.Count(Kind::kEntryToLost), 1u);
  EXPECT_EQ(report.model.nodes[2].state, NodeState::kLost);
}

TEST(CheckBitmap, used_without_a_node_block_is_found) {
  Small image;
  image.SetFree(100, false);
  EXPECT_EQ(FoundIn(image), At("node-without-block", 100, 0, 1024 + 99 / 8));
}

TEST(CheckBitmap, used_without_a_node_block_in_a_row_is_one_finding) {
  Small image;
  for (std::uint32_t node = 100; node < 120; ++node) image.SetFree(static_cast<std::uint16_t>(node), false);
  image.SetFree(122, false);
  EXPECT_EQ(FoundIn(image), At("node-without-block", 100, 0, 1024 + 99 / 8, 20) + "; " +
                                At("node-without-block", 122, 0, 1024 + 121 / 8));
}

TEST(CheckBitmap, used_beyond_the_table_is_found) {
  ImageBuilder image(1024, 896);
  image.SetFree(224 * 16 + 1, false);
  EXPECT_EQ(FoundIn(image), At("node-without-block", 224 * 16 + 1, 0, 1024 + 224 * 2));
  image.SetFree(224 * 16 + 1, true);
  image.SetFree(896 * 8, false);  // the bitmap's last
  EXPECT_EQ(FoundIn(image), At("node-without-block", 896 * 8, 0, 1024 + 895));
}

TEST(CheckBitmap, root_free_is_found) {
  Small image;
  image.SetFree(1, true);
  EXPECT_EQ(FoundIn(image), At("root-free", 1, 0, 1024));
}

TEST(CheckNodes, root_block_missing_root_is_lost) {
  Small image;
  image.Put32(ImageBuilder::TableOffset(0), 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kRootLost), 1u);
  EXPECT_EQ(report.Count(Kind::kNodeWithoutBlock), 1u);  // for nodes 2 to 5
}

TEST(CheckNodes, root_marked_as_file_is_read_as_the_directory_that_it_is) {
  Small image;
  image.Put16(image.NodeOffset(1) + 6, 0);
  EXPECT_EQ(FoundIn(image), At("node-attributes", 1, 0, image.NodeOffset(1) + 6));
}

TEST(CheckNodes, root_without_directory_kind_and_dot_is_lost) {
  Small image;
  image.Put16(image.NodeOffset(1) + 6, 0);
  image.PutText(image.EntryOffset(1, 0) + 2, "X");
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kRootLost), 1u);
  EXPECT_EQ(report.Count(Kind::kNodeAttributes), 1u);
}

TEST(CheckNodes, directory_marked_as_file_is_read_as_directory) {
  Small image;
  image.Put16(image.NodeOffset(3) + 6, 0);
  EXPECT_EQ(FoundIn(image), At("node-attributes", 3, 0, image.NodeOffset(3) + 6));
}

TEST(CheckNodes, file_marked_as_directory_is_read_as_file) {
  Small image;
  image.Put16(image.NodeOffset(4) + 6, 8);
  EXPECT_EQ(FoundIn(image), At("node-attributes", 4, 0, image.NodeOffset(4) + 6));
}

TEST(CheckNodes, attributes_unknown_are_found) {  // C4
  for (const int bad : {4, 9, 10, 14, 16, 0x8000}) {
    Small image;
    image.Put16(image.NodeOffset(2) + 6, static_cast<std::uint16_t>(bad));
    EXPECT_EQ(CheckOf(image).Count(Kind::kNodeAttributes), 1u) << bad;
  }
  for (const int good : {0, 1, 2, 3}) {
    Small image;
    image.Put16(image.NodeOffset(2) + 6, static_cast<std::uint16_t>(good));
    EXPECT_EQ(FoundIn(image), "") << good;
  }
}

TEST(CheckNodes, reserved_bytes_set_are_found) {
  for (const std::uint32_t offset : {15u, 20u, 31u}) {
    Small image;
    image.Put8(image.NodeOffset(2) + offset, 1);
    EXPECT_EQ(CheckOf(image).Count(Kind::kNodeReserved), 1u) << offset;
  }
}

TEST(CheckNodes, time_stamp_is_a_note) {
  Small image;
  image.Put8(image.NodeOffset(2) + 10, 13);
  EXPECT_EQ(FoundIn(image), At("node-time", 2, 0, image.NodeOffset(2) + 8));
  EXPECT_TRUE(CheckOf(image).IsClean());
}

// ---- Block maps -----------------------------------------------------------------------------------------------------

TEST(CheckMap, size_that_no_map_holds_is_found) {
  Small image;
  image.SetSize(2, 0x80000000);
  EXPECT_EQ(CheckOf(image).Count(Kind::kNodeSize), 1u);
  image.SetSize(2, (6 + 256 + 65536) * 1024 + 1);
  EXPECT_EQ(CheckOf(image).Count(Kind::kNodeSize), 1u);
  image.SetSize(2, (6 + 256 + 65536) * 1024);
  EXPECT_EQ(CheckOf(image).Count(Kind::kNodeSize), 0u);
}

TEST(CheckMap, direct_slot_empty_is_a_hole) {  // C5
  Small image;
  const std::uint32_t block = image.MappedBlock(2, 0);
  image.Put32(image.MapOffset(2, 0), 0);
  EXPECT_EQ(FoundIn(image), At("map-hole", 2, 0, image.MapOffset(2, 0)) + "; " +
                                At("block-leaked", 0, block, image.BlockOffset(block)));
}

TEST(CheckMap, indirect_block_missing_is_found) {  // C5
  Small image;
  image.Put32(image.NodeOffset(4) + 56, 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kMapBlockMissing), 1u);
  EXPECT_EQ(report.Count(Severity::kDamage), 1u);
  EXPECT_EQ(report.totals.leakedBlocks, 2u);
}

TEST(CheckMap, second_level_block_missing_reported_once) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 800 * 1024);
  const std::uint64_t slot = image.BlockOffset(image.Get32(image.NodeOffset(node) + 60)) + 4;
  image.Put32(slot, 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kMapBlockMissing), 1u);
  EXPECT_EQ(report.findings[0].offset, slot);
  EXPECT_EQ(report.Count(Kind::kMapHole), 1u);  // the gap before the third second-level block
}

TEST(CheckMap, double_indirect_without_indirect_is_found) {
  Small image;
  image.Put32(image.NodeOffset(2) + 60, image.AppendBlock());
  EXPECT_EQ(FoundIn(image), At("map-block-missing", 2, 0, image.NodeOffset(2) + 56));
}

TEST(CheckMap, block_beyond_the_end_is_found) {  // C3
  Small image;
  image.Put32(image.MapOffset(2, 1), image.Blocks() + 1);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.findings[0].kind, Kind::kMapOutside);
  EXPECT_EQ(report.findings[0].block, image.Blocks() + 1);
  EXPECT_EQ(report.Count(Severity::kDamage), 1u);
}

TEST(CheckMap, map_block_beyond_the_end_is_found) {
  Small image;
  image.Put32(image.NodeOffset(4) + 56, 0xFFFFFFFF);
  EXPECT_EQ(CheckOf(image).Count(Kind::kMapOutside), 1u);
}

TEST(CheckMap, container_cut_inside_a_referenced_block_is_found) {
  Small image;
  const std::uint32_t last = image.Blocks();  // directory E's block
  image.bytes().resize(image.bytes().size() - 1);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kMapOutside), 1u);
  EXPECT_EQ(report.findings[0].block, last);
  EXPECT_EQ(report.Count(Kind::kTrailingBytes), 1u);
}

TEST(CheckMap, container_cut_inside_a_map_block_knows_what_was_cut) {
  Small image;
  image.Put32(image.NodeOffset(4) + 56, image.Blocks() + 1);
  EXPECT_FALSE(CheckOf(image).model.tailNamed);
  image.bytes().resize(image.bytes().size() + 100);
  EXPECT_TRUE(CheckOf(image).model.tailNamed);
}

TEST(CheckMap, direct_slot_past_the_size_is_found) {  // C5
  Small image;
  const std::uint32_t block = image.AppendBlock();
  image.Put32(image.MapOffset(2, 2), block);
  EXPECT_EQ(FoundIn(image), At("map-beyond-size", 2, block, image.MapOffset(2, 2)));
}

TEST(CheckMap, size_that_no_map_holds_says_nothing_of_what_is_missing) {
  Small image;
  image.SetSize(2, 0xFFFFFFFF);
  EXPECT_EQ(FoundIn(image), At("node-size", 2, 0, image.NodeOffset(2) + 16));
}

TEST(CheckMap, blocks_beyond_the_end_in_a_row_are_one_finding) {
  Small image;
  for (const std::uint32_t i : {1u, 2u, 3u, 5u}) image.Put32(image.MapOffset(4, i), 500 + i);
  EXPECT_EQ(
      FoundIn(image).substr(0, FoundIn(image).find("; block-leaked")),
      At("map-outside", 4, 501, image.MapOffset(4, 1), 3) + "; " + At("map-outside", 4, 505, image.MapOffset(4, 5)));
}

TEST(CheckMap, map_block_without_block_numbers_is_foreign) {
  Small image;
  const std::uint32_t map = image.Get32(image.NodeOffset(4) + 56);
  const std::uint32_t block = image.MappedBlock(4, 6);
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(map) + i, 'x');
  EXPECT_EQ(FoundIn(image), At("map-block-foreign", 4, map, image.NodeOffset(4) + 56) + "; " +
                                At("block-leaked", 0, block, image.BlockOffset(block)));
}

TEST(CheckMap, block_of_two_files_is_shared) {  // C2
  Small image;
  const std::uint32_t mine = image.MappedBlock(4, 3);
  const std::uint32_t shared = image.MappedBlock(2, 0);
  image.Put32(image.MapOffset(4, 3), shared);
  EXPECT_EQ(FoundIn(image), At("block-shared", 4, shared, image.MapOffset(4, 3)) + "; " +
                                At("block-leaked", 0, mine, image.BlockOffset(mine)));
}

TEST(CheckMap, map_block_that_names_itself_ends) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 300 * 1024);
  const std::uint32_t twice = image.Get32(image.NodeOffset(node) + 60);
  for (std::uint32_t i = 0; i < 256; ++i) image.Put32(image.BlockOffset(twice) + 4 * i, twice);
  EXPECT_EQ(CheckOf(image).Count(Kind::kBlockShared), 256u);
}

TEST(CheckMap, growth_stopped_before_the_size_is_half_made) {
  for (const std::uint32_t blocks : {7u, 262u, 263u, 300u}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t node = image.AddFile(1, "F", blocks * 1024);
    if (blocks == 262) continue;  // a new double-indirect block is stored together with the size
    image.AppendToNode(node, {});
    EXPECT_EQ(FoundIn(image),
              At("growth-interrupted", node, image.MappedBlock(node, blocks), image.MapOffset(node, blocks)))
        << blocks;
  }
}

TEST(CheckMap, shrink_stopped_before_the_size_is_half_made) {
  for (const std::uint32_t blocks : {7u, 262u, 263u, 300u}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t node = image.AddFile(1, "F", blocks * 1024 - 5);
    const std::uint32_t block = image.MappedBlock(node, blocks - 1);
    image.Put32(image.MapOffset(node, blocks - 1), 0);
    EXPECT_EQ(FoundIn(image), At("shrink-interrupted", node, 0, image.MapOffset(node, blocks - 1)) + "; " +
                                  At("block-leaked", 0, block, image.BlockOffset(block)))
        << blocks;
  }
}

TEST(CheckMap, hole_before_the_last_block_is_damage) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 9 * 1024);
  image.Put32(image.MapOffset(node, 7), 0);
  EXPECT_EQ(CheckOf(image).Count(Kind::kMapHole), 1u);
}

TEST(CheckMap, two_blocks_past_the_size_is_damage) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 9 * 1024);
  image.SetSize(node, 7 * 1024);
  EXPECT_EQ(FoundIn(image), At("map-beyond-size", node, image.MappedBlock(node, 7), image.MapOffset(node, 7), 2));
}

// ---- Directories ----------------------------------------------------------------------------------------------------

TEST(CheckDirectory, size_no_multiple_of_32_is_found) {
  Small image;
  image.SetSize(5, 70);
  EXPECT_EQ(FoundIn(image), At("dir-size", 5, 0, image.NodeOffset(5) + 16));
}

TEST(CheckDirectory, size_0_with_a_name_is_found) {
  Small image;
  image.SetSize(5, 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kDirSize), 1u);
  EXPECT_EQ(report.Count(Kind::kMapBeyondSize), 1u);
}

TEST(CheckDirectory, size_too_small_entries_past_it) {
  Small image;
  const std::uint16_t directory = FillDirectory(&image, 6);
  image.SetSize(directory, 4 * 32);
  EXPECT_EQ(FoundIn(image),
            At("dir-beyond-size", directory, image.MappedBlock(directory, 0), image.EntryOffset(directory, 4), 2));
}

TEST(CheckDirectory, size_too_large_entries_missing) {
  Small image;
  image.SetSize(3, 7 * 32);
  EXPECT_EQ(FoundIn(image), At("dir-hole", 3, image.MappedBlock(3, 0), image.EntryOffset(3, 4), 3));
}

// Six entries of another kind are, five are not; one sound name is enough.
TEST(CheckDirectory, block_of_bad_names_is_foreign_from_six_on) {
  for (const std::uint32_t bad : {5u, 6u}) {
    for (const std::uint32_t at : {0u, 3u}) {
      ImageBuilder image(1024, 32);
      const std::uint16_t directory = FillDirectory(&image, 40);
      const std::uint64_t block = image.BlockOffset(image.MappedBlock(directory, 1));
      for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(block + i, 0);
      for (std::uint32_t i = 0; i < bad; ++i) {
        image.Put16(block + 32 * (at + i), 1000);
        image.PutText(block + 32 * (at + i) + 2, "?");
      }
      EXPECT_EQ(CheckOf(image).Count(Kind::kDirBlockForeign), bad == 6 ? 1u : 0u) << bad << at;
      image.PutText(block + 32 * at + 2, "A");
      EXPECT_EQ(CheckOf(image).Count(Kind::kDirBlockForeign), 0u) << bad << at;
    }
  }
}

TEST(CheckDirectory, block_without_entries_is_one_finding) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 40);
  const std::uint32_t block = image.MappedBlock(directory, 1);
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(block) + i, 0xEE);
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report).substr(0, FoundIn(report).find("; node-leaked")),
            At("dir-block-foreign", directory, block, image.BlockOffset(block)));
  EXPECT_EQ(report.findings[0].facts.numbers[0], 32u);  // the first entry that may be missing
  EXPECT_EQ(report.Count(Kind::kNodeLeaked), 8u);
}

TEST(CheckDirectory, dots_without_numbers_leave_the_names_behind_them) {
  Small image;
  image.Put16(image.EntryOffset(3, 0), 0);
  image.Put16(image.EntryOffset(3, 1), 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.model.nodes[4].names.size(), 1u);
  EXPECT_EQ(report.model.nodes[4].reach, Reach::kRoot);
  EXPECT_EQ(report.Count(Kind::kNodeLeaked), 0u);
}

TEST(CheckDirectory, hole_in_the_middle_is_found) {  // C6
  Small image;
  image.Put16(image.EntryOffset(3, 2), 0);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.findings[0].kind, Kind::kDirHole);
  EXPECT_EQ(report.Count(Kind::kNodeLeaked), 1u);
}

TEST(CheckDirectory, numbers_behind_the_end_mark_are_a_note) {
  Small image;
  image.Put16(image.EntryOffset(3, 6), 4);
  EXPECT_EQ(FoundIn(image), At("dir-after-end", 3, 0, kNoOffset));
}

TEST(CheckDirectory, dot_of_another_node_is_found) {
  Small image;
  image.Put16(image.EntryOffset(5, 0), 3);
  EXPECT_EQ(FoundIn(image), At("dir-dot", 5, image.MappedBlock(5, 0), image.EntryOffset(5, 0)));
}

TEST(CheckDirectory, dots_with_other_names_are_found) {
  Small image;
  image.PutText(image.EntryOffset(5, 0) + 2, "X");
  image.PutText(image.EntryOffset(5, 1) + 2, "X");
  const std::uint32_t block = image.MappedBlock(5, 0);
  EXPECT_EQ(FoundIn(image), At("dir-dot", 5, block, image.EntryOffset(5, 0)) + "; " +
                                At("dir-dotdot", 5, block, image.EntryOffset(5, 1)));
}

TEST(CheckDirectory, dot_dot_of_another_node_is_found) {  // C6
  Small image;
  image.Put16(image.EntryOffset(5, 1), 1);
  EXPECT_EQ(FoundIn(image), At("dir-dotdot", 5, image.MappedBlock(5, 0), image.EntryOffset(5, 1)));
}

TEST(CheckDirectory, root_dot_dot_of_another_node_is_found) {
  Small image;
  image.Put16(image.EntryOffset(1, 1), 3);
  EXPECT_EQ(FoundIn(image), At("dir-dotdot", 1, 2, image.EntryOffset(1, 1)));
}

// An entry that leads to the root gives it no parent.
TEST(CheckDirectory, root_dot_dot_of_a_directory_that_names_the_root_is_found) {
  Small image;
  image.AddEntry(3, "UP", 1);
  image.Put16(image.EntryOffset(1, 1), 3);
  EXPECT_EQ(CheckOf(image).Count(Kind::kDirDotDot), 1u);
}

TEST(CheckDirectory, cycle_is_told_by_a_directory_of_it_and_not_by_a_file_below) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "T", 0);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  const std::uint16_t inside = image.AddDirectory(directory, "E");
  image.AddEntry(directory, "T", file);
  image.AddEntry(inside, "D", directory);
  image.Put16(image.EntryOffset(directory, 1), inside);
  image.Put16(image.EntryOffset(1, 2), 0);
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 2 * 32);
  EXPECT_EQ(FoundIn(image), At("dir-cycle", directory, 0, image.NodeOffset(directory)));
}

TEST(CheckDirectory, cycle_of_directories_is_found) {  // C7
  Small image;                                         // D moves into E, which lies in D
  image.AddEntry(5, "D", 3);
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 3 * 32);
  image.Put16(image.EntryOffset(3, 1), 5);
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), At("dir-cycle", 3, 0, image.NodeOffset(3)));
  EXPECT_EQ(report.model.nodes[4].reach, Reach::kCycle);
}

TEST(CheckDirectory, directory_in_itself_is_a_cycle) {
  Small image;
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 3 * 32);
  image.AddEntry(3, "SELF", 3);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kDirCycle), 1u);
  EXPECT_EQ(report.Count(Kind::kDirDotDot), 1u);
}

TEST(CheckNames, name_illegal_is_found) {
  for (const char* name : {"A B", "A/B", "A:B", "", ".", "..", "\x80", "123456789012345678901234567890"}) {
    ImageBuilder image(1024, 32);
    image.AddFile(1, name, 0);
    EXPECT_EQ(FoundIn(image), At("name-illegal", 1, 2, image.EntryOffset(1, 2) + 2)) << name;
  }
}

TEST(CheckNames, every_legal_character_and_length_is_clean) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "!#$%&'()-^~@{}[]_.", 0);
  image.AddFile(1, "12345678901234567890123456789", 0);
  image.AddFile(1, "...", 0);
  EXPECT_EQ(FoundIn(image), "");
}

TEST(CheckNames, lower_case_is_found) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "Ab", 0);
  EXPECT_EQ(FoundIn(image), At("name-lower-case", 1, 2, image.EntryOffset(1, 2) + 2));
}

TEST(CheckNames, name_twice_in_one_directory_is_found) {  // C6
  Small image;
  image.AddFile(1, "A", 0);
  EXPECT_EQ(FoundIn(image), At("name-duplicate", 1, 2, image.EntryOffset(1, 4)));
}

TEST(CheckEntries, number_out_of_range_is_found) {
  Small image;
  image.AddEntry(1, "X", 257);
  EXPECT_EQ(FoundIn(image), At("entry-outside", 1, 2, image.EntryOffset(1, 4)));
}

TEST(CheckEntries, entry_to_the_root_is_found) {
  Small image;
  image.AddEntry(3, "X", 1);
  EXPECT_EQ(FoundIn(image), At("entry-to-root", 3, image.MappedBlock(3, 0), image.EntryOffset(3, 4)));
}

TEST(CheckEntries, entry_to_a_free_node_is_found) {  // C7
  Small image;
  image.AddEntry(1, "X", 9);
  EXPECT_EQ(FoundIn(image), At("entry-to-free", 1, 2, image.EntryOffset(1, 4)));
}

TEST(CheckEntries, three_names_of_a_node_are_counted) {  // C7
  Small image;
  image.AddEntry(3, "X", 2);
  image.AddEntry(5, "Y", 2);
  EXPECT_EQ(FoundIn(image), At("many-names", 2, 0, kNoOffset, 3));
}

TEST(CheckEntries, two_names_in_one_directory_is_damage) {
  Small image;
  image.AddEntry(1, "X", 2);
  EXPECT_EQ(FoundIn(image), At("many-names", 2, 0, kNoOffset, 2));
}

TEST(CheckEntries, file_with_two_names_on_a_marked_container_is_a_stopped_move) {
  Small image;
  image.AddEntry(3, "X", 2);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_EQ(FoundIn(image), At("two-names", 2, 0, kNoOffset));
}

TEST(CheckEntries, directory_with_a_name_below_itself_is_no_stopped_move) {
  ImageBuilder image(1024, 32);
  const std::uint16_t moved = image.AddDirectory(1, "E");
  const std::uint16_t below = image.AddDirectory(moved, "G");
  const std::uint16_t other = image.AddDirectory(1, "P");
  image.AddEntry(below, "E", moved);
  image.AddEntry(other, "E", moved);
  image.Put16(image.EntryOffset(1, 2), other);  // P twice, so E's two names are those
  image.PutText(image.EntryOffset(1, 2) + 2, "P");
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 3 * 32);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kTwoNames), 0u);
  EXPECT_EQ(report.Count(Kind::kManyNames), 1u);
}

TEST(CheckEntries, two_names_of_which_one_is_illegal_is_damage) {
  for (const bool first : {true, false}) {
    Small image;
    image.AddEntry(3, "X", 2);
    image.Put32(kStateFlagsOffset, kVolumeDirty);
    image.PutText((first ? image.EntryOffset(1, 2) : image.EntryOffset(3, 4)) + 2, "?");
    const Report report = CheckOf(image);
    EXPECT_EQ(report.Count(Kind::kNameIllegal), 1u) << first;
    EXPECT_EQ(report.Count(Kind::kManyNames), 1u) << first;
    EXPECT_EQ(report.Count(Kind::kTwoNames), 0u) << first;
  }
}

TEST(CheckEntries, directory_with_two_names_on_a_marked_container_is_a_stopped_move_before_and_after_its_dot_dot) {
  Small image;
  image.AddEntry(1, "E", 5);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_EQ(FoundIn(image), "two-names node=5");
  image.Put16(image.EntryOffset(5, 1), 1);
  EXPECT_EQ(FoundIn(image), "two-names node=5");
}

TEST(CheckDirectory, directory_named_below_itself_is_no_half_made_move) {
  Small image;
  image.AddEntry(5, "UP", 3);
  EXPECT_EQ(FoundIn(image), At("many-names", 3, 0, kNoOffset, 2));
}

TEST(CheckDirectory, entry_not_yet_counted_is_half_made) {
  Small image;
  const std::uint16_t node = image.AddNode(0);
  image.AddEntry(1, "NEW", node);
  image.SetSize(1, image.Size(1) - 32);
  EXPECT_EQ(FoundIn(image), At("append-interrupted", 1, 2, image.EntryOffset(1, 4)));
}

TEST(CheckDirectory, directory_not_yet_counted_is_half_made) {
  Small image;
  image.AddDirectory(1, "NEW");
  image.SetSize(1, image.Size(1) - 32);
  EXPECT_EQ(FoundIn(image), At("append-interrupted", 1, 2, image.EntryOffset(1, 4)));
}

TEST(CheckDirectory, uncounted_entry_of_a_free_node_is_damage) {
  Small image;
  image.AddEntry(1, "NEW", 77);
  image.SetSize(1, image.Size(1) - 32);
  EXPECT_EQ(FoundIn(image), At("dir-beyond-size", 1, 2, image.EntryOffset(1, 4)));
}

TEST(CheckDirectory, last_entry_cleared_but_counted_is_half_made) {
  Small image;
  const std::uint16_t directory = FillDirectory(&image, 5);
  const std::uint16_t node = image.Get16(image.EntryOffset(directory, 4));
  image.Put16(image.EntryOffset(directory, 4), 0);
  EXPECT_EQ(FoundIn(image),
            At("removal-interrupted", directory, image.MappedBlock(directory, 0), image.EntryOffset(directory, 4)) +
                "; " + At("node-leaked", node, 0, image.NodeOffset(node)));
}

TEST(CheckDirectory, last_entry_copied_into_the_hole_is_half_made) {
  Small image;
  const std::uint16_t directory = FillDirectory(&image, 35);
  const std::uint16_t removed = image.Get16(image.EntryOffset(directory, 7));
  for (std::uint32_t i = 0; i < 32; ++i) {
    image.Put8(image.EntryOffset(directory, 7) + i, image.bytes()[image.EntryOffset(directory, 34) + i]);
  }
  const std::uint32_t block = image.MappedBlock(directory, 1);
  EXPECT_EQ(FoundIn(image), At("entry-doubled", directory, block, image.EntryOffset(directory, 34)) + "; " +
                                At("node-leaked", removed, 0, image.NodeOffset(removed)));
}

TEST(CheckDirectory, last_block_listed_as_free_is_half_made) {
  Small image;
  const std::uint16_t directory = FillDirectory(&image, 33);
  const std::uint32_t block = image.MappedBlock(directory, 1);
  image.SetChain({{block}});
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), At("last-block-freed", directory, block, image.BlockOffset(block)));
  EXPECT_EQ(report.model.blocks[block].use, BlockUse::kDirectory);
}

TEST(CheckDirectory, last_block_turned_chain_record_is_half_made) {
  for (const bool linked : {false, true}) {
    for (const bool older : {false, true}) {
      Small image;
      const std::uint16_t directory = FillDirectory(&image, 33);
      const std::uint16_t node = image.Get16(image.EntryOffset(directory, 32));
      const std::uint32_t next = older ? image.SetChain({{}})[0] : 0;
      const std::uint32_t block = image.MappedBlock(directory, 1);
      for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(block) + i, 0);
      image.PutText(image.BlockOffset(block), "FBC1");
      image.Put32(image.BlockOffset(block) + 4, next);
      if (linked) image.Put32(48, block);
      const std::string partial =
          linked && older ? At("chain-partial", 0, next, image.BlockOffset(next) + 8) + "; " : "";
      EXPECT_EQ(FoundIn(image), partial + At("last-block-freed", directory, block, image.BlockOffset(block)) + "; " +
                                    At("node-leaked", node, 0, image.NodeOffset(node)));
    }
  }
}

TEST(CheckDirectory, full_block_listed_as_free_is_damage) {
  Small image;
  const std::uint16_t directory = FillDirectory(&image, 34);
  const std::uint32_t block = image.MappedBlock(directory, 1);
  image.SetChain({{block}});
  EXPECT_EQ(FoundIn(image), At("chain-block-in-use", directory, block, image.BlockOffset(block)));
}

// ---- Free chain -----------------------------------------------------------------------------------------------------

TEST(CheckChain, sound_chain_is_clean) { EXPECT_EQ(FoundIn(WithChain<Small>()), ""); }

TEST(CheckChain, head_beyond_the_end_is_found) {
  Small image;
  image.Put32(48, image.Blocks() + 1);
  EXPECT_EQ(FoundIn(image), At("chain-outside", 0, image.Blocks() + 1, 48));
}

TEST(CheckChain, link_beyond_the_end_is_found) {  // C3
  WithChain<Small> image;
  image.Put32(image.at + 4, 0xFFFFFFFF);
  EXPECT_EQ(FoundIn(image), At("chain-outside", 0, 0xFFFFFFFF, image.at + 4));
}

TEST(CheckChain, signature_other_is_found_and_its_blocks_leak) {
  WithChain<Small> image;
  image.Put8(image.at, 'X');
  EXPECT_EQ(FoundIn(image), At("chain-signature", 0, image.record, image.at) + "; " +
                                At("block-leaked", 0, image.a, image.BlockOffset(image.a), 4));
}

TEST(CheckChain, count_above_capacity_is_found_and_all_blocks_leak) {  // C8
  WithChain<Small> image;
  image.Put32(image.at + 8, 254);
  EXPECT_EQ(CheckOf(image).Count(Kind::kChainCount), 1u);
  EXPECT_EQ(CheckOf(image).totals.leakedBlocks, 4u);
}

TEST(CheckChain, entry_zero_is_found) {
  WithChain<Small> image;
  image.Put32(image.at + 8, 4);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.Count(Kind::kChainZeroEntry), 1u);
  EXPECT_EQ(report.findings[0].offset, image.at + 24);
}

TEST(CheckChain, entry_beyond_the_end_is_found) {
  WithChain<Small> image;
  image.Put32(image.at + 20, image.record + 1);
  EXPECT_EQ(FoundIn(image), At("chain-entry-outside", 0, image.record, image.at + 20) + "; " +
                                At("block-leaked", 0, image.c, image.BlockOffset(image.c)));
}

TEST(CheckChain, heap_out_of_order_is_found) {  // C8
  WithChain<Small> image;
  image.Put32(image.at + 12, image.b);
  image.Put32(image.at + 16, image.a);
  EXPECT_EQ(FoundIn(image), At("chain-heap-order", 0, image.record, image.at + 16));
}

TEST(CheckChain, entry_twice_is_a_duplicate) {
  WithChain<Small> image;
  image.Put32(image.at + 20, image.b);
  EXPECT_EQ(FoundIn(image), At("chain-duplicate", 0, image.b, image.at + 20) + "; " +
                                At("block-leaked", 0, image.c, image.BlockOffset(image.c)));
}

TEST(CheckChain, record_that_lists_itself_is_a_duplicate) {
  WithChain<Small> image;
  image.Put32(image.at + 20, image.record);
  EXPECT_EQ(CheckOf(image).Count(Kind::kChainDuplicate), 1u);
}

TEST(CheckChain, cycle_of_records_is_found) {
  WithChain<Small> image;
  image.Put32(image.at + 4, image.record);
  EXPECT_EQ(FoundIn(image), At("chain-cycle", 0, image.record, image.at + 4));
}

TEST(CheckChain, entry_in_use_is_found) {  // C2
  WithChain<Small> image;
  const std::uint32_t used = image.MappedBlock(2, 0);
  image.Put32(image.at + 12, used);
  EXPECT_EQ(FoundIn(image), At("chain-block-in-use", 2, used, image.BlockOffset(used)) + "; " +
                                At("block-leaked", 0, image.a, image.BlockOffset(image.a)));
}

TEST(CheckChain, record_behind_the_head_not_full_is_a_note) {
  Small image;
  const std::uint32_t block = image.AppendBlock();
  const std::vector<std::uint32_t> records = image.SetChain({{}, {block}});
  EXPECT_EQ(FoundIn(image), At("chain-partial", 0, records[1], image.BlockOffset(records[1]) + 8));
}

// ---- Leaks ----------------------------------------------------------------------------------------------------------

TEST(CheckLeaks, blocks_in_a_row_are_one_finding) {
  Small image;
  const std::uint32_t first = image.AppendBlock();
  image.AppendBlock();
  image.AppendBlock();
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), At("block-leaked", 0, first, image.BlockOffset(first), 3));
  EXPECT_EQ(report.Worst(), Severity::kLeak);
}

TEST(CheckLeaks, node_without_a_name_is_leaked) {
  Small image;
  const std::uint16_t node = image.AddNode(0);
  EXPECT_EQ(FoundIn(image), At("node-leaked", node, 0, image.NodeOffset(node)));
}

TEST(CheckLeaks, directory_without_its_first_block_is_no_damage) {
  Small image;
  const std::uint16_t node = image.AddNode(8);
  EXPECT_EQ(FoundIn(image), At("node-leaked", node, 0, image.NodeOffset(node)));
}

TEST(CheckLeaks, directory_without_a_name_its_contents_are_not_reported_again) {
  Small image;
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 96);
  const Report report = CheckOf(image);
  EXPECT_EQ(FoundIn(report), At("node-leaked", 3, 0, image.NodeOffset(3)));
  EXPECT_EQ(PathOf(report.model, 4), "(node 3)/B");
}

// ---- Any bytes ------------------------------------------------------------------------------------------------------

TEST(CheckAnything, random_changes_never_crash_or_hang) {
  std::uint32_t state = 1;
  const auto next = [&state] { return (state = state * 1664525u + 1013904223u) >> 8; };
  WithChain<Small> base;
  FillDirectory(&base, 40);
  base.AddFile(1, "BIG", 300 * 1024);
  for (int round = 0; round < 3000; ++round) {
    Bytes bytes = base.bytes();
    const std::uint32_t changes = 1 + next() % 8;
    for (std::uint32_t i = 0; i < changes; ++i) {
      const std::size_t at = next() % 2 == 0 ? next() % 4096 : next() % bytes.size();
      bytes[at] = static_cast<std::uint8_t>(next());
    }
    if (next() % 4 == 0) bytes.resize(next() % bytes.size());
    const Report report = Check(MemoryImage(bytes));
    EXPECT_LE(report.findings.size(), kMaxFindings);
    EXPECT_FALSE(ToText(report).empty());
  }
}

TEST(CheckAnything, all_bytes_equal_never_crash_or_hang) {
  for (int value = 0; value < 256; ++value) {
    const Report report = Check(MemoryImage(Bytes(50000, static_cast<std::uint8_t>(value))));
    EXPECT_FALSE(report.readable);
    EXPECT_FALSE(report.IsClean());
  }
}

TEST(CheckAnything, more_findings_than_are_kept_are_still_counted) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "F", 12000 * 1024);
  for (std::uint32_t i = 0; i < 12000; ++i) image.Put32(image.MapOffset(2, i), 2);
  const Report report = CheckOf(image);
  EXPECT_EQ(report.findings.size(), kMaxFindings);
  EXPECT_EQ(report.Count(Kind::kBlockShared), 12000u);
}

// ---- Text and JSON --------------------------------------------------------------------------------------------------

TEST(ReportText, clean_is_a_summary_alone) {
  EXPECT_EQ(ToText(CheckOf(ImageBuilder(1024, 32))),
            "0 files with 0 bytes, 1 directory, 255 free nodes; 2 blocks of 1024 bytes, 0 free, 0 leaked\n"
            "contents carry no checksums: a file can be damaged without a finding\n"
            "clean: damage 0, interrupted 0, leak 0, note 0\n");
}

TEST(ReportText, finding_names_its_place) {
  Small image;
  image.Put32(52, 1);
  image.Put16(image.NodeOffset(4) + 4, 5);
  const std::string text = ToText(CheckOf(image));
  EXPECT_EQ(text.substr(0, text.find('\n')), "damage      node-number at /D/B, node 4, block 1, byte " +
                                                 std::to_string(image.NodeOffset(4) + 4) +
                                                 ": the slot has number 5 instead of its own");
  EXPECT_NE(text.find("damaged, marked as being updated: damage 1, interrupted 0, leak 0, note 0\n"),
            std::string::npos);
}

TEST(ReportJson, finding_is_an_object_with_its_place) {
  Small image;
  image.PutText(image.EntryOffset(1, 2) + 2, "\"\\\x01");
  const std::string json = ToJson(CheckOf(image));
  EXPECT_EQ(json.find("{\"verdict\":\"damaged\",\"marked\":false,\"readable\":true,\"damage\":1,"), 0u);
  EXPECT_NE(json.find("{\"severity\":\"damage\",\"kind\":\"name-illegal\",\"rules\":[\"C6\"],\"node\":1,\"path\":\"/"
                      "\",\"block\":2,\"offset\":" +
                      std::to_string(image.EntryOffset(1, 2) + 2) +
                      ",\"count\":1,\"text\":\"the name \\\"\\\"\\\\x5c\\\\x01\\\" is not one that a path can hold\"}"),
            std::string::npos)
      << json;
}

}  // namespace
}  // namespace orba::inspect

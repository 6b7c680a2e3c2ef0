// Repair of block maps: blocks with two owners, slots that lead astray, holes and sizes. Contents stay what they were
// read as, and no byte of anybody else's blocks is written.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::Repaired;
using testimage::RepairedFromEveryStop;
using testimage::SameFiles;
using testimage::SmallWithC;
using testimage::StepsOf;
using testimage::Tree;

using Files = std::map<std::string, Bytes>;

constexpr std::uint32_t kIndirectOffset = 56, kDoubleOffset = 60;  // in a node record

std::uint32_t IndirectOf(const ImageBuilder& image, std::uint16_t node) {
  return image.Get32(image.NodeOffset(node) + kIndirectOffset);
}

void FillBlock(ImageBuilder* image, std::uint32_t block, std::uint8_t value) {
  for (std::uint32_t i = 0; i < image->blockSize(); ++i) image->Put8(image->BlockOffset(block) + i, value);
}

void Zero(Bytes* contents, std::uint32_t first, std::uint32_t end) {
  std::fill(contents->begin() + first * 1024, contents->begin() + end * 1024, std::uint8_t{0});
}

std::string Number(std::uint32_t number) { return std::to_string(number); }

// ---- Blocks with two owners -----------------------------------------------------------------------------------------

// What a free node's record leads to is nobody's.
TEST(RepairShared, record_of_a_free_node_takes_no_part) {
  SmallWithC image;
  image.AddFile(1, "X", 700);  // node 7
  image.AddFile(1, "Y", 800);
  image.AddFile(1, "Z", 900);
  image.Put32(image.MapOffset(7, 0), image.MappedBlock(8, 0));
  image.Put16(image.EntryOffset(1, 4), 9);  // Z in X's place
  image.PutText(image.EntryOffset(1, 4) + 2, "Z");
  image.Put16(image.EntryOffset(1, 6), 0);
  image.SetSize(1, image.Size(1) - 32);
  image.SetFree(7, true);
  image.Put32(image.MapOffset(9, 0), image.MappedBlock(8, 0));
  const std::string steps = StepsOf(image.bytes());
  EXPECT_EQ(steps.find("/Y"), std::string::npos) << steps;
  EXPECT_NE(steps.find("gives /Z (node 9) a copy of block " + Number(image.MappedBlock(8, 0))), std::string::npos)
      << steps;
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), Tree(image.bytes())));
}

// The slot of a block-map block of F, node 7, leads to a block of A that might hold numbers.
struct MapOverData : SmallWithC {
  MapOverData(std::uint32_t blocks, std::uint32_t first, std::uint32_t second) {
    AddFile(1, "F", blocks * 1024);
    a = MappedBlock(2, 0);
    FillBlock(this, a, 0);
    Put32(BlockOffset(a), first);
    Put32(BlockOffset(a) + 4, second);
    sound = Tree(bytes());
    Put32(NodeOffset(7) + kIndirectOffset, a);
  }
  std::uint32_t a;
  Files sound;
};

TEST(RepairShared, map_slot_leads_to_a_files_data_the_data_stays_and_the_map_comes_back) {
  const std::uint32_t map = IndirectOf(SmallWithC(), 4);
  for (const auto& [first, second] : {std::pair{0u, map}, std::pair{5000u, 0u}, std::pair{map, 5000u}}) {
    const MapOverData big(9, first, second), small(2, first, second);
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(big.bytes())), big.sound));
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(small.bytes())), small.sound));
    EXPECT_EQ(StepsOf(small.bytes()),
              "takes block " + Number(small.a) + " out of /F (node 7): something else's, and no block numbers\n");
  }
}

TEST(RepairShared, map_slot_leads_to_data_of_a_later_file_the_data_stays) {
  SmallWithC image;
  image.AddFile(1, "F", 700);
  image.AddFile(1, "X", 1024);
  const std::uint32_t block = image.MappedBlock(8, 0);
  FillBlock(&image, block, 0);
  image.Put32(image.BlockOffset(block) + 4, IndirectOf(image, 4));
  const Files sound = Tree(image.bytes());
  image.Put32(image.NodeOffset(7) + kIndirectOffset, block);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), sound));
  EXPECT_EQ(StepsOf(image.bytes()),
            "takes block " + Number(block) + " out of /F (node 7): something else's, and no block numbers\n");
}

// The slot of A's map that is not needed leads to a directory's block: numbers in there are not A's.
TEST(RepairShared, map_slot_leads_to_a_directory_nothing_in_it_is_written) {
  SmallWithC image;
  image.PutText(image.EntryOffset(3, 3) + 34, "left over");  // behind the last entry, where nothing is read
  Files expected = Tree(image.bytes());
  const Bytes d(image.bytes().begin() + static_cast<long>(image.EntryOffset(3, 0)),
                image.bytes().begin() + static_cast<long>(image.EntryOffset(3, 0)) + 1024);
  image.Put32(image.NodeOffset(2) + kIndirectOffset, image.MappedBlock(3, 0));
  image.Put32(image.MapOffset(4, 2), image.MappedBlock(2, 0));
  image.Put32(image.MapOffset(4, 3), 5000);
  std::copy_n(expected.at("/A").begin(), 1024, expected.at("/D/B").begin() + 2 * 1024);
  Zero(&expected.at("/D/B"), 3, 4);
  std::string texts;
  const Bytes repaired = RepairedFromEveryStop(image.bytes(), &texts);
  EXPECT_TRUE(SameFiles(Tree(repaired), expected));
  EXPECT_TRUE(std::equal(d.begin(), d.end(), repaired.begin() + static_cast<long>(image.EntryOffset(3, 0))));
  EXPECT_EQ(texts.find("/D (node 3)"), std::string::npos) << texts;
}

TEST(RepairShared, slots_of_a_map_beyond_the_end_where_a_copy_is_appended_become_zeros) {
  SmallWithC image;
  image.AddFile(1, "BIG", 12 * 1024);
  Files expected = Tree(image.bytes());
  image.Put32(image.MapOffset(7, 0), image.MappedBlock(2, 0));
  for (std::uint32_t i = 7; i < 11; ++i) image.Put32(image.MapOffset(7, i), image.Blocks() + i - 6);
  std::copy_n(expected.at("/A").begin(), 1024, expected.at("/BIG").begin());
  Zero(&expected.at("/BIG"), 7, 11);
  std::string texts;
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes(), &texts)), expected));
  EXPECT_NE(texts.find("takes 4 blocks out of /BIG (node 7): beyond the container's end\n"), std::string::npos)
      << texts;
}

// X reads B's block-map block as its contents; a slot in that block is not right.
TEST(RepairShared, map_block_read_as_contents_is_copied_before_its_slots_change) {
  SmallWithC image;
  image.AddFile(1, "X", 700);
  image.Put32(image.MapOffset(7, 0), IndirectOf(image, 4));
  image.Put32(image.MapOffset(4, 6), image.MappedBlock(2, 0));
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(image.bytes())));
}

TEST(RepairShared, contents_read_as_a_map_block_stay_though_slots_in_it_are_not_right) {
  SmallWithC image;
  image.AddFile(1, "BIG", 9 * 1024);
  image.Put32(image.MapOffset(7, 7), IndirectOf(image, 4));
  image.Put32(image.MapOffset(2, 0), IndirectOf(image, 7));
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(image.bytes())));
}

TEST(RepairShared, file_reads_a_directorys_first_block_goes_on_reading_it) {
  SmallWithC image;
  image.Put32(image.MapOffset(2, 0), image.MappedBlock(3, 0));
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(image.bytes())));
}

TEST(RepairShared, file_reads_a_node_block_goes_on_reading_what_it_was) {
  SmallWithC image;
  image.Put32(image.MapOffset(2, 0), 1);
  const Files read = Tree(image.bytes());
  const Bytes repaired = RepairedFromEveryStop(image.bytes());
  EXPECT_TRUE(SameFiles(Tree(repaired), read));
}

// The block lies in the chain as well, but its one entry is the only name of a file.
TEST(RepairShared, block_past_a_directorys_size_listed_as_free_its_entry_is_kept) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = testimage::FillDirectory(&image, 33, testimage::Sizes::kNumber);
  const Files sound = Tree(image.bytes());
  image.SetSize(directory, 1024);
  image.SetChain({{image.MappedBlock(directory, 1)}});
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), sound));
}

TEST(RepairShared, one_block_shared_and_one_listed_as_free_both_are_settled) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 0), image.MappedBlock(2, 0));
  image.SetChain({{image.MappedBlock(4, 1)}});
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(image.bytes())));
  EXPECT_EQ(StepsOf(image.bytes()), "gives /D/B (node 4) a copy of block " + Number(image.MappedBlock(2, 0)) +
                                        ", which something else uses too; drops the free chain for now\n"
                                        "builds the free chain anew: 1 block in 1 record\n");
}

TEST(RepairShared, first_block_of_two_directories_is_told_as_the_ones_that_its_dot_names) {
  for (const bool there : {true, false}) {
    SmallWithC image;
    const std::uint32_t own = image.MappedBlock(5, 0), shared = image.MappedBlock(3, 0);
    if (!there) FillBlock(&image, own, 0xEE);
    image.Put32(image.MapOffset(5, 0), shared);
    const std::string block = Number(shared) + " is another directory's\n";
    const std::string steps = StepsOf(image.bytes());
    const std::string expected = there ? "gives /D/E (node 5) its own first block " + Number(own) + " back: block "
                                       : "gives /D/E (node 5) a first block of its own: block ";
    EXPECT_EQ(steps.compare(0, expected.size() + block.size(), expected + block), 0) << steps;
    EXPECT_EQ(steps.find("first block", expected.size() + block.size()), std::string::npos) << steps;
  }
}

// ---- Slots that lead astray -----------------------------------------------------------------------------------------

TEST(RepairSlot, of_a_directory_leads_to_no_entries_what_it_named_is_kept) {
  for (const std::uint32_t entries : {33u, 7 * 32u + 1}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t directory = testimage::FillDirectory(&image, entries, testimage::Sizes::kNumber);
    Files expected = Tree(image.bytes());
    const std::uint32_t block = image.MappedBlock(directory, entries / 32);
    FillBlock(&image, block, 0xEE);
    const auto last = expected.find("/FULL/F" + Number(entries - 1));
    expected["/LOST.FND/"] = {};
    expected["/LOST.FND/NODE0" + Number(1000 + entries).substr(1)] = last->second;
    expected.erase(last);
    std::string texts;
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes(), &texts)), expected));
    EXPECT_NE(texts.find("takes block " + Number(block) + " out of /FULL (node 2): no entries in it\n"),
              std::string::npos)
        << texts;
  }
}

TEST(RepairSlot, double_indirect_block_without_an_indirect_one_is_taken_out) {
  for (const std::uint32_t blocks : {2u, 6u}) {
    SmallWithC image;
    image.AddFile(1, "F", blocks * 1024);
    const Files sound = Tree(image.bytes());
    image.Put32(image.NodeOffset(7) + kDoubleOffset, image.AppendBlock());
    EXPECT_EQ(StepsOf(image.bytes()),
              "takes the double-indirect block, which serves nothing, out of /F (node 7)\n"
              "builds the free chain anew: 1 block in 1 record\n");
    EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), sound));
  }
}

TEST(RepairSlot, behind_a_gap_of_the_double_indirect_block_is_taken_out) {
  for (const bool hole : {true, false}) {  // of the first direct slots, of which the file has no need
    ImageBuilder image(1024, 32);
    const std::uint16_t file = image.AddFile(1, "F", 300 * 1024);
    const Files sound = Tree(image.bytes());
    const std::uint32_t twice = image.Get32(image.NodeOffset(file) + kDoubleOffset);
    for (const std::uint32_t slot : {2u, 3u, 5u}) {
      if (slot == 2 || hole) image.Put32(image.BlockOffset(twice) + 4 * slot, image.AppendBlock());
    }
    EXPECT_EQ(StepsOf(image.bytes()),
              "takes block-map blocks that serve nothing out of /F (node 2)\nbuilds the free chain anew: " +
                  std::string(hole ? "3 blocks" : "1 block") + " in 1 record\n");
    EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), sound));
  }
}

TEST(RepairSlot, behind_a_gap_of_a_double_indirect_block_that_a_shrunk_file_has_kept_is_taken_out_alone) {
  SmallWithC image;
  const std::uint32_t indirect = image.AppendBlock(), twice = image.AppendBlock(), first = image.AppendBlock();
  image.Put32(image.NodeOffset(2) + kIndirectOffset, indirect);
  image.Put32(image.NodeOffset(2) + kDoubleOffset, twice);
  image.Put32(image.BlockOffset(twice), first);
  const Files sound = Tree(image.bytes());
  image.Put32(image.BlockOffset(twice) + 8, image.AppendBlock());
  EXPECT_EQ(StepsOf(image.bytes()),
            "takes block-map blocks that serve nothing out of /A (node 2)\n"
            "builds the free chain anew: 1 block in 1 record\n");
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), sound));
}

// ---- Growth ---------------------------------------------------------------------------------------------------------

// ---- Block-map blocks of which a part was overwritten ---------------------------------------------------------------

// By the slots that its size needs a file is read whole.
TEST(RepairMapBlock, nothing_but_garbage_behind_the_slots_that_are_needed_file_stays_as_it_is) {
  struct Case {
    std::uint32_t blocks, level, needed;  // 0 = indirect, 1 = double-indirect, 2 = the first that that one leads to
  };
  for (const Case& of : {Case{7, 0, 1}, Case{106, 0, 100}, Case{263, 1, 1}, Case{263, 2, 1}, Case{519, 1, 2}}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t file = image.AddFile(1, "F", of.blocks * 1024);
    const std::uint32_t twice = image.Get32(image.NodeOffset(file) + kDoubleOffset);
    const std::uint32_t block = of.level == 0   ? IndirectOf(image, file)
                                : of.level == 1 ? twice
                                                : image.Get32(image.BlockOffset(twice));
    const Files files = Tree(image.bytes());
    for (std::uint32_t at = 4 * of.needed; at < 1024; ++at) image.Put8(image.BlockOffset(block) + at, 0xAA);
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), files)) << of.blocks << " " << of.level;
    image.Put8(image.BlockOffset(block) + 4 * of.needed - 1, 0xAA);
    EXPECT_LT(Tree(Repaired(image.bytes())).at("/F").size(), of.blocks * 1024u) << of.blocks << " " << of.level;
  }
}

// The block holds what would be a directory's entry.
TEST(RepairGrowth, of_a_file_by_a_block_that_reads_as_an_entry_is_undone) {
  SmallWithC image;
  image.AddFile(1, "X", 700);  // node 7
  const Files sound = Tree(image.bytes());
  image.Put16(image.EntryOffset(1, 4), 0);
  image.SetSize(1, image.Size(1) - 32);
  Bytes entry(1024);
  entry[0] = 7;
  entry[2] = 'X';
  image.AppendToNode(4, entry);
  Files expected = sound;
  expected["/LOST.FND/"] = {};
  expected["/LOST.FND/NODE0007"] = sound.at("/X");
  expected.erase("/X");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairGrowth, block_past_the_size_behind_a_gap_goes_and_the_size_stays) {
  SmallWithC image;
  image.Put32(image.MapOffset(2, 4), image.AppendBlock());
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(SmallWithC().bytes())));
}

// ---- Holes ----------------------------------------------------------------------------------------------------------

TEST(RepairHole, first_block_of_a_file_becomes_zeros) {
  SmallWithC image;
  Files expected = Tree(image.bytes());
  image.Put32(image.MapOffset(2, 0), 0);
  Zero(&expected.at("/A"), 0, 1);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairHole, around_the_first_slot_of_the_double_indirect_block_becomes_zeros) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "F", 300 * 1024);
  Files expected = Tree(image.bytes());
  for (const std::uint32_t index : {261u, 262u}) image.Put32(image.MapOffset(file, index), 0);
  Zero(&expected.at("/F"), 261, 263);
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected));
}

// A file of holes is filled where that takes 256 blocks more than it has, and not one more.
TEST(RepairHole, files_of_many_holes_are_filled_up_to_a_limit) {
  for (const std::uint32_t missing : {258u, 259u}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t file = image.AddFile(1, "F", (missing + 2) * 1024);
    Files expected = Tree(image.bytes());
    for (std::uint32_t i = 0; i < missing; ++i) image.Put32(image.MapOffset(file, i), 0);
    Zero(&expected.at("/F"), 0, missing);
    if (missing > 258) {
      expected.at("/F").clear();
      EXPECT_EQ(StepsOf(image.bytes()),
                "cuts /F (node 2) off before its first missing block\n"
                "builds the free chain anew: 261 blocks in 2 records\n");
    }
    EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected));
  }
}

// ---- The container's end --------------------------------------------------------------------------------------------

TEST(RepairTail, container_ends_in_a_block_map_block_its_file_is_whole) {
  SmallWithC image;
  image.AddFile(1, "BIG", 7 * 1024);
  const Files sound = Tree(image.bytes());
  ASSERT_EQ(IndirectOf(image, 7), image.Blocks());
  image.bytes().resize(image.bytes().size() - 100);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), sound));
}

TEST(RepairTail, container_ends_in_the_last_block_behind_a_map_block_the_file_ends_there) {
  SmallWithC image;
  image.AddFile(1, "BIG", 8 * 1024);
  Files expected = Tree(image.bytes());
  image.bytes().resize(image.bytes().size() - 100);
  expected.at("/BIG").resize(8 * 1024 - 100);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairTail, container_ends_behind_a_hole_of_the_file_the_file_ends_there) {
  SmallWithC image;
  image.AddFile(1, "F", 3 * 1024);
  Files expected = Tree(image.bytes());
  image.Put32(image.MapOffset(7, 1), 0);
  image.bytes().resize(image.bytes().size() - 100);
  Zero(&expected.at("/F"), 1, 2);
  expected.at("/F").resize(3 * 1024 - 100);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairTail, file_whose_end_is_missing_elsewhere_is_cut_by_whole_blocks) {
  SmallWithC image;
  image.AddFile(1, "F", 1000);
  image.Put32(image.MapOffset(2, 1), 0);
  image.bytes().resize(image.bytes().size() - 100);
  const std::string steps = StepsOf(image.bytes());
  EXPECT_EQ(steps, "cuts /F (node 7) off after 924 bytes: the rest is not there\nfills block " +
                       Number(image.Blocks() + 1) +
                       ", in which the container ends, up with zeros\n"
                       "cuts /A (node 2) off after 1 block: the rest is not there\n"
                       "builds the free chain anew: 1 block in 1 record\n");
}

// ---- First blocks of directories ------------------------------------------------------------------------------------

TEST(RepairFirst, lost_and_overwritten_directory_is_empty_and_of_the_right_size) {
  SmallWithC image;
  image.AddDirectory(1, "G");
  FillBlock(&image, image.MappedBlock(7, 0), 0xEE);
  image.Put32(image.MapOffset(7, 0), 0);
  EXPECT_EQ(StepsOf(image.bytes()),
            "gives /G (node 7) a new first block\n"
            "builds the free chain anew: 1 block in 1 record\n");
}

TEST(RepairFirst, lost_of_a_directory_of_two_is_the_only_thing_to_return) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = testimage::FillDirectory(&image, 40, testimage::Sizes::kNumber);
  const Bytes sound = image.bytes();
  image.Put32(image.MapOffset(directory, 0), 0);
  EXPECT_EQ(StepsOf(image.bytes()), "gives /FULL (node 2) its first block back\n");
  EXPECT_EQ(Repaired(image.bytes()), sound);
}

TEST(RepairFirst, lost_of_a_directory_without_a_name_what_it_holds_stays_together) {
  SmallWithC image;
  const Files sound = Tree(image.bytes());
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, image.Size(1) - 32);
  image.Put32(image.MapOffset(3, 0), 0);
  const Files files = Tree(RepairedFromEveryStop(image.bytes()));
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/B"), sound.at("/D/B"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/E/C"), sound.at("/D/E/C"));
}

TEST(RepairFirst, directory_of_size_zero_without_one_gets_its_own_back) {
  for (const bool counted : {true, false}) {  // its name, by the size of the directory above
    SmallWithC image;
    image.SetSize(5, 0);
    image.Put32(image.MapOffset(5, 0), 0);
    if (!counted) image.SetSize(3, image.Size(3) - 32);
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(SmallWithC().bytes()))) << counted;
  }
}

TEST(RepairFirst, directory_that_was_being_made_gets_none) {
  SmallWithC image;
  image.AddNode(0x0008);
  EXPECT_EQ(StepsOf(image.bytes()), "frees node 7: it holds nothing and has no name\n");
}

TEST(RepairFirst, only_a_root_without_a_date_gets_the_time_of_the_repair) {
  for (const bool dated : {true, false}) {
    for (const std::uint16_t node : {std::uint16_t{1}, std::uint16_t{3}}) {
      SmallWithC image;
      const std::uint64_t year = image.NodeOffset(node) + 8;
      if (!dated) image.Put16(year, 0);
      image.Put32(image.MapOffset(node, 0), 0);
      const Bytes repaired = Repaired(image.bytes());
      const int is = repaired[year] | repaired[year + 1] << 8;
      EXPECT_EQ(is, dated ? 2004 : node == 1 ? testimage::kRepairTime.year : 0) << node;
    }
  }
}

}  // namespace
}  // namespace orba::inspect

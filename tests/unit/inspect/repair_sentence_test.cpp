// What a plan says that it does: the very actions, with their numbers, and no others.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::FillDirectory;
using testimage::ImageBuilder;
using testimage::Sizes;
using testimage::SmallWithC;
using testimage::StepsOf;

TEST(RepairSentence, entries_not_counted_are_told_by_their_number) {
  SmallWithC image;
  image.SetSize(3, 2 * 32);  // B and E
  EXPECT_EQ(StepsOf(image.bytes()), "counts 2 entries more in /D (node 3)\n");
}

TEST(RepairSentence, name_in_lower_case_is_told_with_the_new_one) {
  SmallWithC image;
  image.PutText(image.EntryOffset(3, 2) + 2, "b");
  EXPECT_EQ(StepsOf(image.bytes()), "renames \"b\" in /D (node 3) to \"B\"\n");
}

TEST(RepairSentence, step_that_drops_the_chain_says_so) {
  testimage::WithChain<SmallWithC> image;
  image.AddNode(0);
  image.AppendToNode(7, Bytes(1024, 1));
  image.SetSize(7, 1024);
  EXPECT_EQ(StepsOf(image.bytes()),
            "makes the directory /LOST.FND; drops the free chain for now\n"
            "links node 7, which has 1024 bytes but no name, as /LOST.FND/NODE0007\n"
            "builds the free chain anew: 3 blocks in 1 record\n");
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  const Write& first = plan.actions[1].writes[0];  // before one of the chain's blocks is written
  EXPECT_EQ(first.offset, 48u);
  EXPECT_EQ(first.bytes, Bytes(4));
}

TEST(RepairSentence, header_is_told_with_its_layout) {
  SmallWithC image;
  image.Put32(0, 0);
  EXPECT_EQ(StepsOf(image.bytes()), "writes the header anew, for blocks of 1024 bytes and a bitmap of 32 bytes\n");
}

TEST(RepairSentence, exchanged_entries_of_full_node_blocks_are_set_right_at_once) {
  ImageBuilder image(1024, 32);
  FillDirectory(&image, 49, Sizes::kZero);  // nodes 2 to 49
  const std::uint32_t second = image.Get32(ImageBuilder::TableOffset(1));
  const std::uint32_t third = image.Get32(ImageBuilder::TableOffset(2));
  image.Put32(ImageBuilder::TableOffset(1), third);
  image.Put32(ImageBuilder::TableOffset(2), second);
  EXPECT_EQ(StepsOf(image.bytes()), "points table entry 1 at block " + std::to_string(second) +
                                        ", which holds its nodes\n" + "points table entry 2 at block " +
                                        std::to_string(third) + ", which holds its nodes\n");
}

TEST(RepairSentence, table_entries_in_a_row_are_one_action) {
  SmallWithC image;
  for (const std::uint32_t entry : {17u, 18u, 19u, 21u}) image.Put32(ImageBuilder::TableOffset(entry), 500 + entry);
  EXPECT_EQ(StepsOf(image.bytes()),
            "clears table entries 17 to 19: they lead to no node blocks\n"
            "clears table entry 21: it leads to no node block\n");
}

TEST(RepairSentence, new_root_comes_with_a_whole_node_block) {
  ImageBuilder image(1024, 32);
  for (const std::uint32_t block : {1u, 2u}) {
    for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(block) + i, 0xAA);
  }
  EXPECT_EQ(StepsOf(image.bytes()),
            "clears table entry 0: it leads to no node block\n"
            "makes a new, empty root directory\n"
            "builds the free chain anew: 2 blocks in 1 record\n");
}

TEST(RepairSentence, file_that_ends_with_the_container_is_not_cut) {
  for (const std::uint32_t missing : {0u, 1u}) {
    ImageBuilder image(1024, 32);
    image.AddFile(1, "A", 1500);
    image.bytes().resize(image.bytes().size() - (2048 - 1500) - missing);
    const std::string cut = "cuts /A (node 2) off after 1499 bytes: the rest is not there\n";
    EXPECT_EQ(StepsOf(image.bytes()),
              (missing > 0 ? cut : "") + "fills block 4, in which the container ends, up with zeros\n");
  }
}

TEST(RepairSentence, of_two_names_in_one_directory_the_first_stays) {
  SmallWithC image;
  image.AddEntry(3, "X", 2);
  image.AddEntry(3, "Y", 2);
  image.Put16(image.EntryOffset(1, 2), 6);
  EXPECT_EQ(StepsOf(image.bytes()),
            "gives \"Y\" in /D (node 3) a copy of \"X\" in /D (node 3): both refer to node 2\n"
            "gives \"A\" in / (node 1) a copy of \"C\" in /D/E (node 5): both refer to node 6\n");
}

TEST(RepairSentence, block_beyond_the_end_is_named) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 6), 500);
  EXPECT_EQ(StepsOf(image.bytes()),
            "takes block 500 out of /D/B (node 4): beyond the container's end\n"
            "cuts /D/B (node 4) off after 6 blocks: the next was being freed\n"
            "builds the free chain anew: 1 block in 1 record\n");
}

TEST(RepairSentence, removing_the_last_entry_frees_the_block_that_held_it_alone) {
  for (const std::uint32_t entries : {33u, 34u}) {
    ImageBuilder image(1024, 32);
    image.AddEntry(FillDirectory(&image, entries - 1, Sizes::kNumber), "X", 200);
    const std::string freed = "builds the free chain anew: 1 block in 1 record\n";
    EXPECT_EQ(StepsOf(image.bytes()),
              "removes \"X\" from /FULL (node 2): node 200 is not there\n" + (entries == 33 ? freed : ""));
  }
}

TEST(RepairSentence, block_twice_in_a_directory_is_taken_out) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 40, Sizes::kNumber);
  image.Put32(image.MapOffset(directory, 1), image.MappedBlock(directory, 0));
  EXPECT_EQ(StepsOf(image.bytes()),
            "takes block 3 out of /FULL (node 2): there already\n"
            "gives /FULL (node 2) its block 37 with 8 entries back\n");
}

TEST(RepairSentence, file_that_shares_a_directorys_first_block_gets_a_copy) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 0), image.MappedBlock(3, 0));
  EXPECT_EQ(StepsOf(image.bytes()),
            "gives /D/B (node 4) a copy of block 5, which something else uses too\n"
            "builds the free chain anew: 1 block in 1 record\n");
}

TEST(RepairSentence, growth_by_a_block_without_a_sound_entry_is_undone) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 193, Sizes::kNumber);
  const std::uint64_t entry = image.EntryOffset(directory, 192);
  image.SetSize(directory, 192 * 32);
  EXPECT_EQ(StepsOf(image.bytes()), "counts the entry \"F192\" that was added to /FULL (node 2)\n");
  image.PutText(entry + 2, "?");
  EXPECT_EQ(StepsOf(image.bytes()),
            "takes block 212, with which it was about to grow, out of /FULL (node 2)\n"
            "makes the directory /LOST.FND\n"
            "links node 193, which has 192 bytes but no name, as /LOST.FND/NODE0193\n"
            "builds the free chain anew: 1 block in 1 record\n");
}

TEST(RepairSentence, of_two_names_in_one_marked_directory_the_last_stays_where_it_ends_the_directory) {
  SmallWithC image;
  image.AddEntry(1, "X", 2);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_EQ(
      StepsOf(image.bytes()),
      "ends the interrupted removal in / (node 1): removes \"A\", written in part over the removed entry; node 2, "
      "the only one with two names, keeps \"X\"\n");
  image.AddFile(1, "Z", 3);
  EXPECT_EQ(StepsOf(image.bytes()), "gives \"X\" in / (node 1) a copy of \"A\" in / (node 1): both refer to node 2\n");
}

TEST(RepairSentence, name_that_leads_to_a_free_node_gets_its_own_and_nothing_is_copied) {
  SmallWithC image;
  image.Put16(image.EntryOffset(1, 2), 2 + 128);
  EXPECT_EQ(StepsOf(image.bytes()),
            "lets \"A\" in / (node 1) refer to node 2, which has lost its name, and no longer to node 130\n");
}

TEST(RepairSentence, no_layout_is_why_there_is_no_plan) {
  const Plan plan = PlanRepair(MemoryImage(Bytes(50000, 7)), testimage::kRepairTime);
  EXPECT_EQ(ToText(plan), "no block size and no root directory can be made out; this may be no container at all\n");
}

TEST(RepairSentence, what_is_left_stands_behind_the_actions) {
  SmallWithC image;
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  plan.problem = "2 findings left";
  EXPECT_EQ(ToText(plan),
            "1. clears the mark of an update in progress (1 write)\n"
            "2 findings left\n"
            "keeps 3 of 3 readable files\n");
}

TEST(RepairSentence, record_that_is_a_copy_of_anothers_is_cleared) {
  SmallWithC image;
  const auto from = image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(2));
  std::copy(from, from + 64, image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(4)));
  EXPECT_EQ(StepsOf(image.bytes()),
            "clears the slot of node 4, whose record is lost, and frees the node\n"
            "removes \"B\" from /D (node 3): node 4 is not there\n"
            "builds the free chain anew: 8 blocks in 1 record\n");
}

TEST(RepairSentence, node_block_is_known_by_the_numbers_of_its_slots) {
  SmallWithC image;
  const std::uint32_t other = image.AppendBlock();
  const auto from = image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(1));
  std::copy(from, from + 1024, image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(other)));
  for (std::uint32_t i = 1; i < 16; ++i) {
    image.Put16(image.BlockOffset(other) + 64 * i + 4, static_cast<std::uint16_t>(17 + i));
  }
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(6) + i, 0xAA);
  image.Put32(ImageBuilder::TableOffset(0), 0);
  const std::string first = "points table entry 0 at block 1, which holds its nodes\n";
  EXPECT_EQ(StepsOf(image.bytes()).substr(0, first.size()), first);
}

TEST(RepairSentence, record_that_lies_in_a_lost_block_too_comes_back) {
  for (const bool copied : {false, true}) {  // from another slot over it; else overwritten
    SmallWithC image;
    const std::uint32_t other = image.AppendBlock();
    const auto at = [&](std::uint64_t offset) { return image.bytes().begin() + static_cast<std::ptrdiff_t>(offset); };
    std::copy_n(at(image.BlockOffset(1)), 1024, at(image.BlockOffset(other)));
    if (copied) std::copy_n(at(image.NodeOffset(2)), 64, at(image.NodeOffset(4)));
    if (!copied) std::fill_n(at(image.NodeOffset(4)), 64, std::uint8_t{0xAA});
    EXPECT_EQ(StepsOf(image.bytes()),
              "gives node 4 its record back, which lies in a lost block as well\n"
              "builds the free chain anew: 1 block in 1 record\n")
        << copied;
  }
}

TEST(RepairSentence, directories_of_a_lost_node_block_are_in_use_whatever_the_bitmap_says) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(1) + i, 0xAA);
  image.SetFree(5, true);
  EXPECT_EQ(StepsOf(image.bytes()),
            "clears table entry 0: it leads to no node block\n"
            "makes a new block for the nodes of table entry 0, with the directories among them\n"
            "gives / (node 1) attributes 14 and clears its reserved bytes\n"
            "gives / (node 1) its first block back\n"
            "counts 28 entries fewer in / (node 1)\n"
            "counts 28 entries fewer in /D (node 3)\n"
            "counts 29 entries fewer in /D/E (node 5)\n"
            "removes \"A\" from / (node 1): node 2 is not there\n"
            "removes \"B\" from /D (node 3): node 4 is not there\n"
            "removes \"C\" from /D/E (node 5): node 6 is not there\n"
            "builds the free chain anew: 12 blocks in 1 record\n");
}

TEST(RepairSentence, last_number_of_the_bitmap_is_given_out) {
  ImageBuilder image(1024, 1);
  const std::uint16_t file = image.AddFile(1, "A", 700);
  for (const char* name : {"B", "C", "D", "E"}) image.AddFile(1, name, 0u);
  image.AddEntry(image.AddDirectory(1, "F"), "TOO", file);
  EXPECT_EQ(StepsOf(image.bytes()),
            "gives \"A\" in / (node 1) a copy of \"TOO\" in /F (node 7): both refer to node 2\n");
}

TEST(RepairSentence, full_directory_without_record_gets_the_blocks_behind_it) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 40, Sizes::kNumber);
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(directory) + i, 0xAA);
  EXPECT_EQ(StepsOf(image.bytes()),
            "makes a new record of node 2 for the directory in block 3\n"
            "gives /FULL (node 2) its block 37 with 8 entries back\n"
            "counts 24 entries fewer in /FULL (node 2)\n");
}

// With two files more, X and Y of 1500 bytes, nodes 7 and 8, that are free and have no names.
struct Unnamed : SmallWithC {
  Unnamed() {
    AddFile(1, "X", 1500);
    AddFile(1, "Y", 1500);
    for (const std::uint32_t entry : {4u, 5u}) Put16(EntryOffset(1, entry), 0);
    SetSize(1, 4 * 32);
    for (const std::uint16_t node : {std::uint16_t{7}, std::uint16_t{8}}) SetFree(node, true);
  }
};

TEST(RepairSentence, of_two_free_records_with_the_same_data_one_is_in_use) {
  Unnamed image;
  for (const std::uint32_t i : {0u, 1u}) image.Put32(image.MapOffset(8, i), image.MappedBlock(7, i));
  EXPECT_EQ(StepsOf(image.bytes()),
            "notes in the bitmap that node 7, which has 1500 bytes in blocks that nothing else uses, is in use\n"
            "makes the directory /LOST.FND\n"
            "links node 7, which has 1500 bytes but no name, as /LOST.FND/NODE0007\n"
            "builds the free chain anew: 2 blocks in 1 record\n");
}

TEST(RepairSentence, free_record_with_one_block_twice_stays_free) {
  Unnamed image;
  for (const std::uint16_t node : {std::uint16_t{7}, std::uint16_t{8}}) {
    image.Put32(image.MapOffset(node, 1), image.MappedBlock(node, 0));
  }
  EXPECT_EQ(StepsOf(image.bytes()), "builds the free chain anew: 4 blocks in 1 record\n");
}

TEST(RepairSentence, free_node_with_two_names_is_noted_once) {
  SmallWithC image;
  image.AddEntry(3, "X", 2);
  image.SetFree(2, true);
  EXPECT_EQ(StepsOf(image.bytes()),
            "notes in the bitmap that node 2, to which \"A\" refers, is in use\n"
            "gives \"A\" in / (node 1) a copy of \"X\" in /D (node 3): both refer to node 2\n");
}

TEST(RepairSentence, empty_free_node_with_two_names_is_noted_once) {
  SmallWithC image;
  const std::uint16_t node = image.AddFile(1, "Z", 0u);
  image.AddEntry(3, "X", node);
  image.SetFree(node, true);
  EXPECT_EQ(StepsOf(image.bytes()),
            "notes in the bitmap that node 7, to which \"Z\" refers, is in use\n"
            "gives \"Z\" in / (node 1) a copy of \"X\" in /D (node 3): both refer to node 7\n");
}

// /D (node 3) has `count` more names of /D/E (node 5), and the root an entry that leads nowhere.
struct ManyNames : SmallWithC {
  explicit ManyNames(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) AddEntry(3, "N" + std::to_string(i), 5);
    AddEntry(1, "Y", 200);
  }
};

TEST(RepairSentence, names_are_told_one_by_one_up_to_ten_thousand_steps) {
  const Plan plan = PlanRepair(MemoryImage(ManyNames(9998).bytes()), testimage::kRepairTime);
  ASSERT_EQ(plan.actions.size(), 10002u);  // the mark, "Y", 9,998, the chain, the mark
  EXPECT_EQ(ToText(plan.actions[1]), "removes \"Y\" from / (node 1): node 200 is not there");
  EXPECT_EQ(ToText(plan.actions[2]), "removes \"N9997\" from /D (node 3): node 5 keeps its name \"E\" in /D (node 3)");
}

TEST(RepairSentence, beyond_ten_thousand_steps_the_names_of_a_directory_are_one) {
  const ManyNames image(9999);
  EXPECT_EQ(StepsOf(image.bytes()),
            "removes \"Y\" from / (node 1): node 200 is not there\n"
            "removes 9999 names from /D (node 3): the nodes are not there or keep other names\n"
            "builds the free chain anew: 312 blocks in 2 records\n");
  EXPECT_EQ(testimage::Repaired(image.bytes()).size(), image.bytes().size());
}

TEST(RepairSentence, copies_share_one_new_node_block) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 16, Sizes::kNumber);
  ASSERT_EQ(directory + 14u, 16u);
  for (const std::uint16_t node : {std::uint16_t{5}, std::uint16_t{6}}) {
    image.AddEntry(1, "X" + std::to_string(node), node);
  }
  EXPECT_EQ(StepsOf(image.bytes()),
            "gives \"X5\" in / (node 1) a copy of \"F4\" in /FULL (node 2): both refer to node 5\n"
            "gives \"F5\" in /FULL (node 2) a copy of \"X6\" in / (node 1): both refer to node 6\n");
  EXPECT_EQ(testimage::Tree(testimage::Repaired(image.bytes())).size(), 18u);  // 2 directories, 14 files, 2 copies
}

}  // namespace
}  // namespace orba::inspect

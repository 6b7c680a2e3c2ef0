// Repair of directories: every step that a plan takes for them, and no other.
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

// ---- Sizes ----------------------------------------------------------------------------------------------------------

TEST(RepairDirectorySize, name_that_leads_nowhere_behind_it_ends_the_directory) {
  SmallWithC image;
  const Files sound = Tree(image.bytes());
  image.AddEntry(3, "X", 200);
  image.AddFile(3, "Y", 700);  // node 7
  image.SetSize(3, 4 * 32);
  Files expected = sound;
  expected["/LOST.FND/"] = {};
  expected["/LOST.FND/NODE0007"] = testimage::Pattern(700, 701);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
  EXPECT_EQ(StepsOf(image.bytes()),
            "sets the end mark of /D (node 3) over \"X\", which its size does not count\n"
            "makes the directory /LOST.FND\n"
            "links node 7, which has 700 bytes but no name, as /LOST.FND/NODE0007\n");
}

TEST(RepairDirectorySize, last_of_one_entry_is_counted_away) {
  SmallWithC image;
  image.Put16(image.EntryOffset(5, 2), 0);
  EXPECT_EQ(StepsOf(image.bytes()),
            "counts 1 entry less in /D/E (node 5)\n"
            "makes the directory /LOST.FND\n"
            "links node 6, which has 10 bytes but no name, as /LOST.FND/NODE0006\n");
}

TEST(RepairDirectorySize, not_of_whole_entries_is_rounded_down) {
  SmallWithC image;
  image.SetSize(3, 4 * 32 + 2);
  EXPECT_EQ(StepsOf(image.bytes()), "makes the size of /D (node 3) one of whole entries\n");
}

TEST(RepairDirectorySize, less_than_the_dots_is_that_of_the_dots_and_the_entries_behind_them_are_counted) {
  SmallWithC image;
  image.SetSize(3, 1);
  EXPECT_EQ(StepsOf(image.bytes()),
            "makes the size of /D (node 3) one of whole entries\n"
            "counts 2 entries more in /D (node 3)\n");
}

TEST(RepairDirectorySize, last_block_freed_is_taken_out_though_another_block_is_shared) {
  SmallWithC image;
  const std::uint16_t directory = testimage::FillDirectory(&image, 5 * 32 + 1);
  const std::uint32_t last = image.MappedBlock(directory, 5);
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(last) + i, 0);
  image.PutText(image.BlockOffset(last), "FBC1");
  image.Put32(48, last);
  image.Put32(image.MapOffset(4, 0), image.MappedBlock(2, 0));
  const std::string freed = "takes the last block out of /FULL (node 7): it was already freed\n";
  const std::string copied = "gives /D/B (node 4) a copy of block " + std::to_string(image.MappedBlock(2, 0)) +
                             ", which something else uses too; drops the free chain for now\n";
  const std::string steps = StepsOf(image.bytes());
  EXPECT_EQ(steps.substr(0, freed.size() + copied.size()), freed + copied);
  EXPECT_EQ(steps.find("/FULL", freed.size()), std::string::npos) << steps;
}

// ---- Dots -----------------------------------------------------------------------------------------------------------

TEST(RepairDots, one_cleared_is_written_and_the_other_is_left_alone) {
  for (const std::uint16_t directory : {std::uint16_t{5}, std::uint16_t{3}}) {
    for (const std::uint32_t dot : {0u, 1u}) {
      SmallWithC image;
      image.Put16(image.EntryOffset(directory, dot), 0);
      const std::string where = directory == 5 ? "/D/E (node 5)\n" : "/D (node 3)\n";
      const bool again = dot == 1 && directory == 5;  // the root is not above it
      EXPECT_EQ(StepsOf(image.bytes()), "closes the gaps between the entries of " + where +
                                            (again ? "writes \"..\" of /D/E (node 5) anew\n" : ""));
      EXPECT_EQ(RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
    }
  }
}

TEST(RepairDots, both_cleared_of_an_empty_directory_are_written) {
  SmallWithC image;
  image.AddDirectory(1, "G");
  const Bytes sound = image.bytes();
  for (const std::uint32_t dot : {0u, 1u}) image.Put16(image.EntryOffset(7, dot), 0);
  EXPECT_EQ(StepsOf(image.bytes()), "closes the gaps between the entries of /G (node 7)\n");
  EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
}

// ---- Copies of other directories ------------------------------------------------------------------------------------

// P, node 8, holds OTHER, node 9, whose block is a copy of D's, node 2, with five files.
struct CopyOfD : ImageBuilder {
  CopyOfD() : ImageBuilder(1024, 32) {
    AddDirectory(1, "D");
    for (std::uint32_t i = 0; i < 5; ++i) AddFile(2, "F" + std::to_string(i), 10 + i);
    AddDirectory(1, "P");
    AddDirectory(8, "OTHER");
    std::copy_n(bytes().begin() + static_cast<std::ptrdiff_t>(EntryOffset(2, 0)), 1024,
                bytes().begin() + static_cast<std::ptrdiff_t>(EntryOffset(9, 0)));
    SetSize(9, Size(2));
  }
};

// What both were read as; where OTHER is no copy its names are files of their own.
Files BothKept() {
  Files files = Tree(CopyOfD().bytes());
  for (std::uint32_t i = 0; i < 5; ++i) {
    const std::string name = "/F" + std::to_string(i);
    files["/P/OTHER" + name] = files.at("/D" + name);
  }
  return files;
}

TEST(RepairCopiedBlock, is_emptied_in_one_step_whatever_its_dot_dot_says) {
  for (const bool own : {true, false}) {
    CopyOfD image;
    if (own) image.Put16(image.EntryOffset(9, 1), 8);
    EXPECT_EQ(
        StepsOf(image.bytes()),
        std::string("takes 5 entries out of /P/OTHER (node 9), whose first block is a copy of that of /D (node 2)\n"
                    "counts 5 entries fewer in /P/OTHER (node 9)\n"
                    "writes \".\" of /P/OTHER (node 9) anew\n") +
            (own ? "" : "writes \"..\" of /P/OTHER (node 9) anew\n"));
  }
}

TEST(RepairCopiedBlock, original_whose_own_dot_is_damaged_both_keep_their_names) {
  CopyOfD image;
  image.Put16(image.EntryOffset(2, 0), 77);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), BothKept()));
}

TEST(RepairCopiedBlock, name_of_its_own_behind_the_first_both_keep_their_names) {
  CopyOfD image;
  image.PutText(image.EntryOffset(9, 3) + 2, "G1");
  Files expected = BothKept();
  expected["/P/OTHER/G1"] = expected.at("/P/OTHER/F1");
  expected.erase("/P/OTHER/F1");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

// What lies behind the size of D is read, but not counted, so that OTHER's block is no copy.
TEST(RepairCopiedBlock, name_that_the_original_does_not_count_stays) {
  CopyOfD image;
  image.SetSize(2, image.Size(2) - 32);
  Files expected = BothKept();
  expected["/LOST.FND/"] = {};
  expected["/LOST.FND/F4"] = expected.at("/D/F4");
  expected.erase("/D/F4");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

// G names A as the root does, and its "." seems to be the root's, or is not there.
TEST(RepairCopiedBlock, first_entry_that_is_not_a_dot_says_nothing) {
  for (const bool there : {true, false}) {
    SmallWithC image;
    image.AddEntry(image.AddDirectory(1, "G"), "A", 2);
    image.Put16(image.EntryOffset(7, 0), there ? 1 : 0);
    if (there) image.PutText(image.EntryOffset(7, 0) + 2, "?");
    Files expected = Tree(SmallWithC().bytes());
    expected["/G/"] = {};
    expected["/G/A"] = expected.at("/A");
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
  }
}

// ---- Entries --------------------------------------------------------------------------------------------------------

TEST(RepairEntry, removed_the_last_one_takes_its_place_before_it_is_cleared_and_then_the_size_changes) {
  for (const bool last : {true, false}) {
    SmallWithC image;
    image.AddEntry(3, "X", 200);
    if (!last) image.AddFile(3, "Y", 70);
    const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
    ASSERT_EQ(plan.actions.size(), 3u);
    EXPECT_EQ(ToText(plan.actions[1]), "removes \"X\" from /D (node 3): node 200 is not there");
    std::vector<std::uint64_t> offsets;
    for (const Write& write : plan.actions[1].writes) offsets.push_back(write.offset);
    std::vector<std::uint64_t> expected = {image.EntryOffset(3, last ? 4 : 5), image.NodeOffset(3)};
    if (!last) expected.insert(expected.begin(), image.EntryOffset(3, 4));
    EXPECT_EQ(offsets, expected);
  }
}

TEST(RepairEntry, equal_names_of_the_greatest_length_end_in_a_number_and_are_no_longer) {
  const std::string name = "12345678901234567890123456789";
  SmallWithC image;
  image.AddFile(3, name, 5);
  image.AddFile(3, name, 6);
  const Files files = Tree(RepairedFromEveryStop(image.bytes()));
  EXPECT_EQ(files.at("/D/" + name).size(), 5u);
  EXPECT_EQ(files.at("/D/" + name.substr(0, 27) + "~2").size(), 6u);
}

}  // namespace
}  // namespace orba::inspect

// Repair of names: entries whose numbers were damaged, nodes with several names, and what the mark of a stopped move or
// removal vouches for. What only one reading explains comes back; where two are possible nothing is guessed, and what
// paths read they go on reading.
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

using testimage::AfterWrites;
using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::Repaired;
using testimage::RepairedFromEveryStop;
using testimage::SameFiles;
using testimage::SmallWithC;
using testimage::Tree;

using Files = std::map<std::string, Bytes>;

// FULL is node 7, F2 to F9 are nodes 8 to 15, in the order of their numbers.
struct InOrder : SmallWithC {
  InOrder() { testimage::FillDirectory(this, 10, testimage::Sizes::kNumber); }
  void Point(std::uint32_t entry, std::uint16_t node) { Put16(EntryOffset(7, entry), node); }
};

// G is node 7, X8 to X12 are nodes 8 to 12 in the root, and G holds N, node 13, alone.
struct Alone : SmallWithC {
  Alone() {
    AddDirectory(1, "G");
    for (std::uint32_t i = 8; i < 13; ++i) AddFile(1, "X" + std::to_string(i), i);
    AddFile(7, "N", 13);
  }
  void Point(std::uint16_t node) { Put16(EntryOffset(7, 2), node); }
};

// With what the node without a name holds under /LOST.FND.
Files WithLost(Files paths, const char* name, const Bytes& contents) {
  paths["/LOST.FND/"] = {};
  paths[std::string("/LOST.FND/") + name] = contents;
  return paths;
}

void TakeLastName(ImageBuilder* image, std::uint16_t directory) {
  const std::uint32_t size = image->Size(directory) - 32;
  image->Put16(image->EntryOffset(directory, size / 32), 0);
  image->SetSize(directory, size);
}

void Mark(ImageBuilder* image) { image->Put32(kStateFlagsOffset, kVolumeDirty); }

// ---- Names that lead nowhere ----------------------------------------------------------------------------------------

TEST(RepairDangling, one_bit_of_two_numbers_damaged_and_a_third_all_names_come_back) {
  for (const int bit : {0, 1, 7, 15}) {
    InOrder image;
    image.AddFile(1, "LAST", 50);  // node 16
    const Files sound = Tree(image.bytes());
    image.Point(4, 0x0A ^ 0x40);
    image.Point(6, 0xFFF);
    image.Put16(image.EntryOffset(1, 5), static_cast<std::uint16_t>(16 ^ 1 << bit));
    EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), sound)) << bit;
  }
}

TEST(RepairDangling, number_one_bit_from_two_nodes_without_names_is_not_guessed) {
  InOrder image;
  image.AddFile(1, "LAST", 50);  // node 16
  Files expected = Tree(image.bytes());
  image.Point(2, 24);  // F2, node 8
  TakeLastName(&image, 1);
  expected = WithLost(expected, "NODE0008", expected.at("/FULL/F2"));
  expected = WithLost(expected, "NODE0016", expected.at("/LAST"));
  expected.erase("/FULL/F2");
  expected.erase("/LAST");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairDangling, two_names_one_bit_from_one_node_neither_is_guessed) {
  InOrder image;
  Files expected = Tree(image.bytes());
  image.Point(4, 0x0A ^ 0x40);
  image.AddEntry(7, "X", 0x0A ^ 0x80);
  expected = WithLost(expected, "NODE0010", expected.at("/FULL/F4"));
  expected.erase("/FULL/F4");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

// ---- Names that lead to another's node ------------------------------------------------------------------------------

TEST(RepairMisled, number_two_bits_from_the_lost_one_path_reads_as_before) {
  InOrder image;
  const Bytes own = Tree(image.bytes()).at("/FULL/F4");
  image.Point(4, 12);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(Tree(image.bytes()), "NODE0010", own)));
}

TEST(RepairMisled, last_name_behind_its_neighbour_leads_to_its_own_node_again) {
  SmallWithC image;
  image.AddDirectory(1, "G");
  image.AddFile(7, "P", 8);
  image.AddFile(7, "Q", 9);
  image.AddFile(1, "R", 10);
  image.AddFile(1, "S", 11);
  const Files sound = Tree(image.bytes());
  image.Put16(image.EntryOffset(7, 3), 11);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(sound, "Q", sound.at("/S"))));
}

// ".." is a directory's second entry and no neighbour of its first name: P, whose number is one less than L's, is not.
TEST(RepairMisled, first_name_behind_the_dots_is_not_taken_for_the_lost_nodes) {
  ImageBuilder image(1024, 32);
  const std::uint16_t h = image.AddDirectory(1, "H");
  const std::uint16_t p = image.AddDirectory(1, "P");
  const std::uint16_t lost = image.AddFile(h, "L", 44);
  ASSERT_EQ(lost, p + 1);
  const std::uint16_t s = image.AddDirectory(p, "S");
  const std::uint16_t node = image.AddFile(s, "N", 66);
  const Bytes own = Tree(image.bytes()).at("/H/L");
  image.Put16(image.EntryOffset(h, 2), node);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(Tree(image.bytes()), "NODE0004", own)));
}

TEST(RepairMisled, name_of_a_directory_where_its_dot_dot_does_not_lead_gets_the_lost_file) {
  Alone image;
  const Files sound = Tree(image.bytes());
  image.Point(5);  // E
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), sound));
}

TEST(RepairMisled, two_names_of_a_directory_side_by_side_the_one_in_the_lost_files_place_gets_it) {
  SmallWithC image;
  for (std::uint32_t i = 7; i < 12; ++i) image.AddFile(1, "X" + std::to_string(i), i);
  image.AddFile(3, "L", 12);
  image.AddFile(3, "M", 13);
  const Files sound = Tree(image.bytes());
  image.Put16(image.EntryOffset(3, 5), 5);  // M's; E, node 5, stands two places before
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), sound));
}

// Neither name stands in the directory of which the lost one's ".." speaks, though one has its neighbour before it.
TEST(RepairMisled, lost_directory_whose_dot_dot_speaks_for_neither_name_is_not_guessed) {
  SmallWithC image;
  image.AddDirectory(1, "G");
  image.AddFile(1, "X", 8);
  image.AddFile(3, "Z", 9);
  image.AddEntry(3, "Y", 6);
  image.AddFile(image.AddDirectory(1, "K"), "IN", 11);  // K is node 10
  Files expected = Tree(image.bytes());
  TakeLastName(&image, 1);
  expected = WithLost(expected, "NODE0010/IN", expected.at("/K/IN"));
  expected["/LOST.FND/NODE0010/"] = {};
  expected.erase("/K/");
  expected.erase("/K/IN");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairMisled, illegal_one_of_two_names_gets_the_lost_node) {
  Alone image;
  Files expected = Tree(image.bytes());
  image.Point(12);
  image.PutText(image.EntryOffset(7, 2) + 2, "?");
  expected["/G/_"] = expected.at("/G/N");
  expected.erase("/G/N");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairMisled, two_legal_names_and_no_neighbours_both_paths_read_as_before) {
  Alone image;
  const Bytes own = Tree(image.bytes()).at("/G/N");
  image.Point(12);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(Tree(image.bytes()), "NODE0013", own)));
}

TEST(RepairMisled, lowest_bit_damaged_and_another_name_lost_both_come_back) {
  InOrder image;
  const Files sound = Tree(image.bytes());
  image.Point(4, 11);
  image.Point(6, 0xFFF);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(sound, "F4", sound.at("/FULL/F5"))));
}

// A block of entries was copied over another: no number was damaged.
TEST(RepairMisled, same_name_in_two_directories_is_a_copied_entry_and_not_the_lost_nodes) {
  InOrder image;
  image.AddFile(1, "P", 16);
  const std::uint16_t lost = image.AddFile(1, "Q", 17);
  image.AddFile(1, "R", 18);
  const std::uint16_t twice = image.AddFile(7, "S", 19);
  ASSERT_EQ(lost ^ twice, 2);
  const Bytes contents = Tree(image.bytes()).at("/Q");
  const std::uint64_t place = image.EntryOffset(1, 6);
  const auto of = [&](std::uint64_t offset) { return image.bytes().begin() + static_cast<std::ptrdiff_t>(offset); };
  ASSERT_EQ(image.Get16(place), lost);
  std::copy_n(of(image.EntryOffset(7, 10)), 32, of(place));
  const Files before = Tree(image.bytes());
  ASSERT_EQ(before.count("/S"), 1u);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(before, "NODE0017", contents)));
}

TEST(RepairMisled, two_nodes_with_second_names_one_bit_from_the_lost_one_none_is_guessed) {
  InOrder image;
  Files expected = Tree(image.bytes());
  image.Point(4, 8);           // node 10 is one bit away from 8
  image.AddEntry(1, "X", 11);  // and from 11
  expected = WithLost(expected, "NODE0010", expected.at("/FULL/F4"));
  expected["/FULL/F4"] = expected.at("/FULL/F2");
  expected["/X"] = expected.at("/FULL/F5");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

// Q, node 9, stands behind 8 and before 11. Node 10 has lost its name as well, and might have stood there.
TEST(RepairMisled, name_in_the_place_of_two_lost_nodes_is_not_guessed) {
  SmallWithC image;
  image.AddDirectory(1, "G");
  image.AddFile(7, "P", 8);
  image.AddFile(7, "Q", 9);
  image.AddFile(1, "R", 10);
  image.AddFile(7, "S", 11);
  const Files sound = Tree(image.bytes());
  TakeLastName(&image, 1);
  image.Put16(image.EntryOffset(7, 3), 11);
  Files expected = WithLost(Tree(image.bytes()), "NODE0009", sound.at("/G/Q"));
  expected = WithLost(expected, "NODE0010", sound.at("/R"));
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

// One of them belongs in the entry's place, the other only has a number as near.
TEST(RepairMisled, another_lost_node_one_bit_away_is_reason_enough_not_to_guess) {
  InOrder image;
  const Files sound = Tree(image.bytes());
  image.Point(5, 9);  // F5's entry, of node 11, leads to F3's
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), WithLost(sound, "F5", sound.at("/FULL/F3"))));
  image.AddDirectory(1, "H");  // node 16, in which F7's entry would be, of node 13
  image.Put16(image.EntryOffset(7, 7), 16);
  image.PutText(image.EntryOffset(7, 7) + 2, "H");
  TakeLastName(&image, 1);
  Files expected = WithLost(Tree(image.bytes()), "NODE0011", sound.at("/FULL/F5"));
  expected["/LOST.FND/NODE0013"] = sound.at("/FULL/F7");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

TEST(RepairMisled, node_with_three_names_gives_none_to_the_lost_one) {
  InOrder image;
  Files expected = Tree(image.bytes());
  image.Point(4, 2);
  image.AddEntry(7, "X", 2);
  expected = WithLost(expected, "NODE0010", expected.at("/FULL/F4"));
  expected["/FULL/F4"] = expected["/FULL/X"] = expected.at("/A");
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), expected));
}

// The second name would go for lack of a node for a copy: better it leads where it led.
TEST(RepairMisled, no_node_left_for_a_copy_name_leads_to_its_own_node_again) {
  ImageBuilder image(1024, 1);
  for (std::uint32_t i = 2; i < 9; ++i) image.AddFile(1, "F" + std::to_string(i), i);
  const Bytes sound = image.bytes();
  image.Put16(image.EntryOffset(1, 4), 5);  // F4
  EXPECT_EQ(Repaired(image.bytes()), sound);
}

// ---- Cycles ---------------------------------------------------------------------------------------------------------

TEST(RepairCycle, first_names_of_two_directories_lead_to_each_other_one_is_taken_out) {
  SmallWithC image;
  image.AddDirectory(1, "P");
  image.AddDirectory(7, "Q");
  image.AddEntry(8, "P", 7);
  image.AddFile(8, "IN", 20);
  TakeLastName(&image, 1);
  image.Put16(image.EntryOffset(7, 1), 8);
  Files expected = Tree(SmallWithC().bytes());
  expected = WithLost(expected, "NODE0007/Q/IN", testimage::Pattern(20, 22));
  expected["/LOST.FND/NODE0007/"] = expected["/LOST.FND/NODE0007/Q/"] = {};
  std::string texts;
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes(), &texts)), expected));
  EXPECT_NE(texts.find(", which lies in it: no path leads there\n"), std::string::npos) << texts;
}

// ---- Several names --------------------------------------------------------------------------------------------------

TEST(RepairSeveral, illegal_name_is_removed_and_not_taken_for_a_stopped_move) {
  for (const bool first : {true, false}) {
    SmallWithC image;
    image.AddEntry(3, first ? "X" : "?", 2);
    if (first) image.PutText(image.EntryOffset(1, 2) + 2, "?");
    Mark(&image);
    std::string texts;
    RepairedFromEveryStop(image.bytes(), &texts);
    EXPECT_NE(texts.find(first ? "removes \"?\" from / (node 1): node 2 keeps its name \"X\" in /D (node 3)\n"
                               : "removes \"?\" from /D (node 3): node 2 keeps its name \"A\" in / (node 1)\n"),
              std::string::npos)
        << texts;
  }
}

TEST(RepairSeveral, three_names_in_a_marked_container_all_stay) {
  SmallWithC image;
  image.AddEntry(1, "X", 2);
  image.AddEntry(3, "Y", 2);
  Mark(&image);
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes())), Tree(image.bytes())));
}

TEST(RepairSeveral, two_names_in_two_blocks_of_a_marked_directory_both_stay) {
  SmallWithC image;
  testimage::FillDirectory(&image, 40, testimage::Sizes::kNumber);
  image.AddEntry(7, "X", 8);  // F2, in the first block
  Mark(&image);
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), Tree(image.bytes())));
}

TEST(RepairSeveral, same_name_of_the_same_node_is_told_as_there_twice) {
  SmallWithC image;
  image.AddEntry(1, "A", 2);
  image.AddFile(1, "Z", 7);
  const Files sound = Tree(image.bytes());
  std::string texts;
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes(), &texts)), sound));
  EXPECT_NE(texts.find("removes \"A\" from / (node 1): it is there twice\n"), std::string::npos) << texts;
}

// The mark of the stopped operation becomes the repair's own before the first copy, and that once.
TEST(RepairSeveral, copies_in_a_marked_container_mark_it_once) {
  const std::string mark = "marks the container as being updated\n";
  for (const std::uint32_t flags : {kVolumeDirty, kVolumeDirty | kRepairMark}) {
    SmallWithC image;
    image.AddEntry(3, "X", 2);
    image.AddEntry(5, "Y", 2);
    image.Put32(kStateFlagsOffset, flags);
    std::string texts;
    RepairedFromEveryStop(image.bytes(), &texts);
    EXPECT_EQ(texts, (flags == kVolumeDirty ? mark : "") +
                         "gives \"A\" in / (node 1) a copy of \"Y\" in /D/E (node 5): both refer to node 2\n"
                         "gives \"X\" in /D (node 3) a copy of \"Y\" in /D/E (node 5): both refer to node 2\n"
                         "clears the mark of an update in progress\n");
  }
}

// The double-indirect block of the copy is new, and so are the blocks that it leads to.
TEST(RepairSeveral, second_name_of_a_file_with_all_kinds_of_map_blocks_reads_the_same) {
  ImageBuilder image(1024, 24);
  image.AddEntry(1, "G", image.AddFile(1, "F", 600 * 1024));
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), Tree(image.bytes())));
}

// Node 9 was never written, and is the first that is free.
TEST(RepairSeveral, name_that_leads_nowhere_does_not_come_to_read_the_copy) {
  SmallWithC image;
  for (const char* name : {"F7", "F8"}) image.AddFile(1, name, 1u);
  Files expected = Tree(image.bytes());
  expected["/D/X"] = expected.at("/A");
  image.AddEntry(3, "X", 2);
  image.AddEntry(1, "GONE", 9);
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected));
}

// Copies may take as many blocks as there are, and 1,024, but for those that are left for names: there is room for one
// beside the one that stands for all names under /LOST.FND.
TEST(RepairSeveral, names_for_which_there_is_no_room_are_removed_and_what_they_read_is_kept) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "F", 600 * 1024);
  for (const char* name : {"G", "H", "I"}) image.AddEntry(1, name, file);
  const Bytes contents = Tree(image.bytes()).at("/F");
  std::string texts;
  const Files paths = Tree(Repaired(image.bytes(), &texts));
  EXPECT_TRUE(
      SameFiles(paths, {{"/", {}}, {"/F", contents}, {"/G", contents}, {"/LOST.FND/", {}}, {"/LOST.FND/I", contents}}));
  EXPECT_EQ(texts,
            "marks the container as being updated\n"
            "makes the directory /LOST.FND\n"
            "keeps what \"I\" was read as, as /LOST.FND/I\n"
            "gives \"G\" in / (node 1) a copy of \"F\" in / (node 1): both refer to node 2\n"
            "removes \"I\" from / (node 1): node 2 keeps its name \"F\" in / (node 1)\n"
            "removes \"H\" from / (node 1): node 2 keeps its name \"F\" in / (node 1)\n"
            "clears the mark of an update in progress\n");
}

// ---- What the mark vouches for --------------------------------------------------------------------------------------

// F4, node 4, has the number of F5 and comes back; what F5 is read as by that path cannot be kept: no node is left.
TEST(RepairVouched, stopped_move_excuses_no_other_name) {
  ImageBuilder image(1024, 1);
  image.AddDirectory(1, "D");
  for (std::uint32_t i = 3; i < 9; ++i) image.AddFile(1, "F" + std::to_string(i), i == 5 ? 0 : i);
  Files expected = Tree(image.bytes());
  image.Put16(image.EntryOffset(1, 4), 5);
  image.AddEntry(2, "MOVED", 7);
  Mark(&image);
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  EXPECT_EQ(plan.promise.losses, std::vector<std::string>{"/F4"});
  EXPECT_EQ(plan.promise.firstExcused, "/F7");
  expected["/D/MOVED"] = expected.at("/F7");
  expected.erase("/F7");
  EXPECT_TRUE(SameFiles(Tree(AfterWrites(plan, image.bytes(), testimage::WriteCount(plan))), expected));
}

// The last entry of D is cleared and still counted, and its node has no other name.
struct StoppedRemoval : SmallWithC {
  StoppedRemoval() {
    AddFile(3, "LAST", 20);  // node 7
    sound = Tree(bytes());
    Put16(EntryOffset(3, 4), 0);
    Mark(this);
  }
  Files sound;
};

TEST(RepairVouched, stopped_removal_is_taken_back) {
  const StoppedRemoval image;
  std::string texts;
  EXPECT_TRUE(SameFiles(Tree(RepairedFromEveryStop(image.bytes(), &texts)), image.sound));
  EXPECT_EQ(texts,
            "takes the interrupted removal in /D (node 3) back: \"LAST\", whose entry is cleared, refers to node 7 "
            "again, the only one without a name\n"
            "clears the mark of an update in progress\n");
}

TEST(RepairVouched, stopped_removal_excuses_no_other_file) {
  StoppedRemoval image;
  testimage::AddKnotted(&image, "0");
  const Bytes read = Tree(image.bytes()).at("/0");
  const Files paths = Tree(Repaired(image.bytes()));
  EXPECT_EQ(paths.at("/D/LAST"), image.sound.at("/D/LAST"));
  EXPECT_EQ(paths.at("/LOST.FND/0"), read);
}

TEST(RepairVouched, stopped_removal_is_the_only_operation_and_two_names_of_a_file_stay) {
  StoppedRemoval image;
  image.AddEntry(5, "SECOND", 2);
  Files expected = image.sound;
  expected["/D/E/SECOND"] = expected.at("/A");
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected));
}

TEST(RepairVouched, cleared_entry_with_a_name_that_was_never_written_stays_cleared) {
  for (const char* name : {"last", "LA?T"}) {
    StoppedRemoval image;
    image.PutText(image.EntryOffset(3, 4) + 2, name);
    Files expected = WithLost(image.sound, "NODE0007", image.sound.at("/D/LAST"));
    expected.erase("/D/LAST");
    EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected)) << name;
  }
}

// The last entry has filled the hole of the removed one: A is gone, and its place is LAST's.
TEST(RepairVouched, cleared_entry_whose_name_is_there_stays_cleared) {
  SmallWithC image;
  image.AddFile(1, "LAST", 20);
  Files expected = Tree(image.bytes());
  for (std::uint32_t i = 0; i < 32; ++i) {
    image.Put8(image.EntryOffset(1, 2) + i, image.bytes()[image.EntryOffset(1, 4) + i]);
  }
  image.Put16(image.EntryOffset(1, 4), 0);
  Mark(&image);
  expected = WithLost(expected, "NODE0002", expected.at("/A"));
  expected.erase("/A");
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected));
}

}  // namespace
}  // namespace orba::inspect

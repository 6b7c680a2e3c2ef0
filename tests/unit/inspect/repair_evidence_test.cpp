// Repair where two readings are possible: records in slots of other nodes, blocks that are copies of another
// directory's, names that only a stopped operation explains. Most are also repaired from each state in which a first
// repair may stop.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "inspect/container/patched_image.h"
#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::LongImage;
using testimage::Repaired;
using testimage::RepairedFromEveryStop;
using testimage::Tree;
using testimage::WithChain;

// 40 files in a directory, nodes 3 to 42; in blocks of 1024 bytes there are 16 nodes each.
struct Forty : ImageBuilder {
  explicit Forty(std::uint32_t blockSize = 1024) : ImageBuilder(blockSize, 32) {
    const std::uint16_t directory = AddDirectory(1, "D");
    for (std::uint32_t i = 0; i < 40; ++i) AddFile(directory, "F" + std::to_string(i), 10 * i);
  }

  void Copy(std::uint64_t to, const Bytes& sound, std::uint64_t from, std::size_t count) {
    std::copy_n(sound.begin() + static_cast<std::ptrdiff_t>(from), count,
                bytes().begin() + static_cast<std::ptrdiff_t>(to));
  }
  void Exchange(std::uint64_t one, std::uint64_t other, std::size_t count) {
    const Bytes sound = bytes();
    Copy(one, sound, other, count);
    Copy(other, sound, one, count);
  }
};

// Exchanges the bytes from one node's record on with those from the other's on.
void ExpectAllReturns(std::uint16_t one, std::uint16_t other, std::size_t count) {
  Forty image;
  const auto sound = Tree(image.bytes());
  image.Exchange(image.NodeOffset(one), image.NodeOffset(other), count);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), sound);
}

TEST(RepairStrays, exchanged_sectors_every_record_returns_to_its_slot) { ExpectAllReturns(17, 33, 512); }

TEST(RepairStrays, exchanged_sectors_of_one_block_every_record_returns_to_its_slot) { ExpectAllReturns(17, 25, 512); }

TEST(RepairStrays, exchanged_sectors_with_root_and_directory_all_comes_back) { ExpectAllReturns(1, 17, 512); }

TEST(RepairStrays, exchanged_records_with_names_return) { ExpectAllReturns(5, 40, 64); }

TEST(RepairStrays, exchanged_records_that_are_the_last_of_their_blocks_return) { ExpectAllReturns(16, 32, 64); }

// While a record lies in the slot of a free node, nothing else tells that its file's block is in use.
TEST(RepairStrays, block_listed_as_free_by_mistake_is_not_taken_before_its_records_return) {
  WithChain<Forty> image;
  const auto sound = Tree(image.bytes());
  const std::uint32_t block = image.MappedBlock(35, 0);
  ASSERT_LT(block, image.a);
  image.Put32(image.at + 8, block);
  image.Exchange(image.NodeOffset(33), image.NodeOffset(41), 512);  // nodes from 43 on are free
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), sound);
}

TEST(RepairStrays, once_its_records_are_back_free_blocks_are_taken_again) {
  WithChain<Forty> image;
  image.AddNode(0);  // what has no name goes to a new /LOST.FND
  image.AppendToNode(43, Bytes(1024, 1));
  image.SetSize(43, 1024);
  image.Exchange(image.NodeOffset(5), image.NodeOffset(7), 64);
  const Bytes repaired = Repaired(image.bytes());
  EXPECT_EQ(Tree(repaired).count("/LOST.FND/NODE0043"), 1u);
  EXPECT_EQ(repaired.size(), image.bytes().size() + 1024);  // the node block alone
}

TEST(RepairStrays, no_room_for_a_new_node_block_records_return_in_place) {
  Forty image(8192);
  const auto sound = Tree(image.bytes());
  image.Exchange(image.NodeOffset(17), image.NodeOffset(33), 512);
  const LongImage full(image.bytes(), kContainerLimit - 1);
  const Plan plan = PlanRepair(full, testimage::kRepairTime);
  EXPECT_TRUE(plan.IsComplete()) << ToText(plan);
  PatchedImage repaired(full);
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) repaired.Write(write.offset, write.bytes.data(), write.bytes.size());
  }
  Bytes beginning(image.bytes().size());
  ASSERT_TRUE(repaired.Read(0, beginning.data(), beginning.size()));
  EXPECT_EQ(Tree(beginning), sound);
}

// Nodes from 129 on: a sector of their records was written over one of the first node block, and their own is lost.
TEST(RepairStrays, own_node_block_is_lost_and_no_room_for_a_new_one_nothing_is_written_in_its_stead) {
  Forty image(8192);
  for (std::uint32_t i = 40; i < 135; ++i) image.AddFile(2, "F" + std::to_string(i), 10);
  image.Copy(image.NodeOffset(33), image.bytes(), image.NodeOffset(129), 512);
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(129)), 8192, std::uint8_t{0xAA});
  const Plan plan = PlanRepair(LongImage(image.bytes(), kContainerLimit - 1), testimage::kRepairTime);
  EXPECT_TRUE(plan.IsComplete()) << ToText(plan);
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) EXPECT_NE(write.offset, 0u) << ToText(action);
  }
}

TEST(RepairStrays, sector_in_anothers_place_its_own_records_are_lost_alone) {
  Forty image;
  auto sound = Tree(image.bytes());
  image.Copy(image.NodeOffset(17), image.bytes(), image.NodeOffset(33), 512);
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(33)), 512, std::uint8_t{0});
  for (int i = 14; i < 22; ++i) EXPECT_EQ(sound.erase("/D/F" + std::to_string(i)), 1u);
  EXPECT_EQ(Tree(Repaired(image.bytes())), sound);
}

TEST(RepairStrays, root_slot_with_a_copy_of_a_files_record_the_root_is_found_by_its_block) {
  Forty image;
  const auto sound = Tree(image.bytes());
  image.Copy(image.NodeOffset(1), image.bytes(), image.NodeOffset(10), 64);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), sound);
}

TEST(RepairStrays, damaged_number_of_a_node_whose_own_record_is_there_is_corrected) {
  Forty image;
  const Bytes sound = image.bytes();
  image.Put16(image.NodeOffset(5) + 4, 40);
  EXPECT_EQ(Repaired(image.bytes()), sound);
}

TEST(RepairStrays, number_that_no_name_refers_to_is_corrected) {
  Forty image;
  const Bytes sound = image.bytes();
  image.Put16(image.NodeOffset(5) + 4, 200);
  EXPECT_EQ(Repaired(image.bytes()), sound);
}

// The steps between the mark and its end.
std::string StepsOf(const Forty& image) {
  const std::string text = ToText(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime));
  const std::size_t from = text.find("\n2. ") + 1;
  return text.substr(from, text.find("clears the mark") - 3 - from);
}

std::string MovesRecords(std::uint32_t entry, std::uint32_t block, const char* records) {
  return "writes the node block of table entry " + std::to_string(entry) + " anew, as block " + std::to_string(block) +
         ", with " + records + " from the slots of other nodes (2 writes)\n";
}

TEST(RepairStrays, exchanged_records_plan_says_which_node_blocks_are_written) {
  Forty image;
  const std::uint32_t end = image.Blocks();
  image.Exchange(image.NodeOffset(16), image.NodeOffset(32), 64);
  EXPECT_EQ(StepsOf(image).substr(0, 300),
            ("2. " + MovesRecords(0, end + 1, "1 record") + "3. " + MovesRecords(1, end + 2, "1 record") +
             "4. builds the free chain anew: 2 blocks in 1 record (2 writes)\n")
                .substr(0, 300));
}

TEST(RepairStrays, exchanged_sectors_plan_counts_the_records) {
  Forty image;
  const std::uint32_t end = image.Blocks();
  image.Exchange(image.NodeOffset(1), image.NodeOffset(17), 512);
  EXPECT_EQ(StepsOf(image), "2. " + MovesRecords(0, end + 1, "8 records") + "3. " +
                                MovesRecords(1, end + 2, "8 records") +
                                "4. builds the free chain anew: 2 blocks in 1 record (2 writes)\n");
}

TEST(RepairStrays, exchanged_records_of_nodes_that_the_bitmap_calls_free_are_in_use_at_once) {
  Forty image;
  const auto sound = Tree(image.bytes());
  const std::uint32_t end = image.Blocks();
  image.Exchange(image.NodeOffset(5), image.NodeOffset(40), 64);
  image.SetFree(5, true);
  EXPECT_EQ(StepsOf(image), "2. writes the node block of table entry 0 anew, as block " + std::to_string(end + 1) +
                                ", with 1 record from the slots of other nodes (3 writes)\n3. " +
                                MovesRecords(2, end + 2, "1 record") +
                                "4. builds the free chain anew: 2 blocks in 1 record (2 writes)\n");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), sound);
}

// Without names the records that lie side by side are the only evidence of what was where.
TEST(RepairStrays, exchanged_records_side_by_side_without_names_return) {
  Forty image;
  const auto sound = Tree(image.bytes());
  for (std::uint32_t i = 0; i < 40; ++i) image.Put16(image.EntryOffset(2, 2 + i), 0);
  image.Exchange(image.NodeOffset(20), image.NodeOffset(40), 128);
  const auto files = Tree(RepairedFromEveryStop(image.bytes()));
  for (const int node : {20, 21, 40, 41}) {
    EXPECT_EQ(files.at("/LOST.FND/NODE00" + std::to_string(node)), sound.at("/D/F" + std::to_string(node - 3))) << node;
  }
}

TEST(RepairStrays, damaged_number_is_that_of_a_lost_record_without_a_name_it_is_corrected) {
  Forty image;
  auto sound = Tree(image.bytes());
  image.Put16(image.NodeOffset(5) + 4, 42);
  image.Put16(image.EntryOffset(2, 41), 0);
  image.SetSize(2, 41 * 32);
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(42)), 64, std::uint8_t{0xAA});
  sound.erase("/D/F39");
  EXPECT_EQ(Tree(Repaired(image.bytes())), sound);
  EXPECT_EQ(StepsOf(image),
            "2. writes signature and number into the slot of node 5 (1 write)\n"
            "3. clears the slot of node 42, whose record is lost, and frees the node (2 writes)\n"
            "4. builds the free chain anew: 1 block in 1 record (2 writes)\n");
}

TEST(RepairStrays, damaged_number_is_that_of_a_lost_record_and_attributes_are_damaged_too_it_is_corrected) {
  Forty image;
  auto sound = Tree(image.bytes());
  image.Put16(image.NodeOffset(5) + 4, 40);
  image.Put16(image.NodeOffset(5) + 6, 0xFF00);
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(40)), 64, std::uint8_t{0xAA});
  sound.erase("/D/F37");
  EXPECT_EQ(Tree(Repaired(image.bytes())), sound);
}

TEST(RepairStrays, record_in_two_other_slots_alike_returns) {
  Forty image;
  auto sound = Tree(image.bytes());
  const std::uint64_t own = image.NodeOffset(40);
  for (const std::uint16_t node : {std::uint16_t{5}, std::uint16_t{9}}) {
    image.Copy(image.NodeOffset(node), image.bytes(), own, 64);
    sound.erase("/D/F" + std::to_string(node - 3));
  }
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(own), 64, std::uint8_t{0xAA});
  EXPECT_EQ(Tree(Repaired(image.bytes())).at("/D/F37"), sound.at("/D/F37"));
}

TEST(RepairStrays, records_of_one_number_in_two_other_slots_that_differ_none_is_guessed) {
  Forty image;
  const std::uint64_t own = image.NodeOffset(40);
  for (const std::uint16_t node : {std::uint16_t{5}, std::uint16_t{9}}) {
    image.Copy(image.NodeOffset(node), image.bytes(), own, 64);
    image.Put32(image.NodeOffset(node) + 16, node);
  }
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(own), 64, std::uint8_t{0xAA});
  EXPECT_EQ(Tree(Repaired(image.bytes())).count("/D/F37"), 0u);
}

// The node block of 17 to 32 is lost, and a sector of it was written over one of 33 to 40.
TEST(RepairStrays, own_node_block_is_lost_it_is_made_anew_with_the_records) {
  Forty image;
  const auto sound = Tree(image.bytes());
  const std::uint32_t end = image.Blocks();
  image.Copy(image.NodeOffset(33), image.bytes(), image.NodeOffset(17), 512);
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(17)), 1024, std::uint8_t{0xAA});
  const auto files = Tree(RepairedFromEveryStop(image.bytes()));
  for (int node = 17; node < 25; ++node) {
    const std::string path = "/D/F" + std::to_string(node - 3);
    EXPECT_EQ(files.at(path), sound.at(path));
  }
  const std::string steps = StepsOf(image);
  EXPECT_NE(steps.find(MovesRecords(1, end + 1, "8 records")), std::string::npos) << steps;
  EXPECT_EQ(steps.find("slot of node 2"), std::string::npos) << steps;
}

TEST(RepairTable, one_block_in_two_entries_serves_the_one_with_more_records) {
  Forty image;
  const auto sound = Tree(image.bytes());
  image.Put32(ImageBuilder::TableOffset(2), image.Get32(ImageBuilder::TableOffset(1)));
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), sound);
}

// ---- Copies of directories ------------------------------------------------------------------------------------------

struct TwoDirectories : Forty {
  TwoDirectories() {
    other = AddDirectory(1, "OTHER");
    AddFile(other, "ALONE", 77);
  }
  std::uint16_t other;
};

TEST(RepairCopies, first_block_is_anothers_is_emptied_and_what_it_named_keeps_a_name) {
  TwoDirectories image;
  auto expected = Tree(image.bytes());
  const Bytes alone = expected.at("/OTHER/ALONE");
  image.Copy(image.BlockOffset(image.MappedBlock(image.other, 0)), image.bytes(),
             image.BlockOffset(image.MappedBlock(2, 0)), 1024);
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  EXPECT_TRUE(plan.promise.holds());
  EXPECT_EQ(plan.promise.kept, plan.promise.readable);
  expected.erase("/OTHER/ALONE");
  expected["/LOST.FND/"] = {};
  expected["/LOST.FND/NODE0044"] = alone;
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), expected);
}

TEST(RepairCopies, first_block_is_anothers_the_entries_of_the_second_stay) {
  TwoDirectories image;
  for (int i = 0; i < 40; ++i) image.AddFile(image.other, "G" + std::to_string(i), 1);
  image.Copy(image.BlockOffset(image.MappedBlock(image.other, 0)), image.bytes(),
             image.BlockOffset(image.MappedBlock(2, 0)), 1024);
  const auto tree = Tree(Repaired(image.bytes()));
  EXPECT_EQ(tree.count("/OTHER/F0"), 0u);
  EXPECT_EQ(tree.count("/OTHER/G29"), 1u);  // the first in the second block
  EXPECT_EQ(tree.count("/OTHER/G39"), 1u);
}

TEST(RepairCopies, copy_with_a_name_of_its_own_keeps_all_names) {
  TwoDirectories image;
  const std::uint64_t block = image.BlockOffset(image.MappedBlock(image.other, 0));
  image.Copy(block, image.bytes(), image.BlockOffset(image.MappedBlock(2, 0)), 1024);
  image.PutText(block + 2 * 32 + 2, "G0");
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  EXPECT_EQ(plan.promise.kept, plan.promise.readable);
  const auto tree = Tree(Repaired(image.bytes()));
  ASSERT_EQ(tree.count("/OTHER/G0"), 1u);
  EXPECT_EQ(tree.at("/OTHER/G0"), tree.at("/D/F0"));
}

// ---- Two names ------------------------------------------------------------------------------------------------------

TEST(RepairTwoNames, without_a_mark_both_stay_with_contents_of_their_own) {
  TwoDirectories image;
  auto expected = Tree(image.bytes());
  image.AddEntry(image.other, "SECOND", 10);
  expected["/OTHER/SECOND"] = expected.at("/D/F7");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), expected);
}

TEST(RepairTwoNames, with_the_mark_a_move_is_ended) {
  TwoDirectories image;
  auto expected = Tree(image.bytes());
  image.AddEntry(image.other, "SECOND", 10);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  expected["/OTHER/SECOND"] = expected.at("/D/F7");
  expected.erase("/D/F7");
  std::string texts;
  EXPECT_EQ(Tree(Repaired(image.bytes(), &texts)), expected);
  EXPECT_NE(
      texts.find("ends the interrupted move of node 10, the only one with two names: removes \"F7\" from /D (node "
                 "2); it keeps \"SECOND\" in /OTHER (node 43)\n"),
      std::string::npos)
      << texts;
}

TEST(RepairTwoNames, with_the_mark_of_a_repair_both_stay) {
  TwoDirectories image;
  auto expected = Tree(image.bytes());
  image.AddEntry(image.other, "SECOND", 10);
  image.Put32(kStateFlagsOffset, kVolumeDirty | kRepairMark);
  expected["/OTHER/SECOND"] = expected.at("/D/F7");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), expected);
}

TEST(RepairTwoNames, two_nodes_with_the_mark_all_names_stay) {
  TwoDirectories image;
  auto expected = Tree(image.bytes());
  image.AddEntry(image.other, "SECOND", 10);
  image.AddEntry(image.other, "THIRD", 11);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  expected["/OTHER/SECOND"] = expected.at("/D/F7");
  expected["/OTHER/THIRD"] = expected.at("/D/F8");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), expected);
}

}  // namespace
}  // namespace orba::inspect

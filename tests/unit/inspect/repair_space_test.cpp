// Repair of what is in use without a name, and copies under /LOST.FND: every step of the plan, and what is made.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::AddKnotted;
using testimage::AfterWrites;
using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::Repaired;
using testimage::SameFiles;
using testimage::SmallWithC;
using testimage::StepsOf;
using testimage::Tree;

using Files = std::map<std::string, Bytes>;

TEST(RepairLostFound, is_a_directory_of_the_time_of_the_repair) {
  SmallWithC image;
  image.Put16(image.EntryOffset(5, 2), 0);  // C's
  TimeStamp now = testimage::kRepairTime;
  now.reserved = 7;
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), now);
  const OrbNodeRecord& record = plan.after.model.nodes[7].record;
  EXPECT_EQ(PathOf(plan.after.model, 7), "/LOST.FND");
  EXPECT_EQ(record.attributes, ORB_NODE_DIRECTORY);
  EXPECT_EQ(record.time.year, now.year);
  EXPECT_EQ(record.time.second, now.second);
  EXPECT_EQ(record.time.reserved, 0u);
}

TEST(RepairLostFound, directory_gets_its_dot_dot_with_the_name) {
  SmallWithC image;
  image.Put16(image.EntryOffset(1, 3), 0);  // D's
  image.SetSize(1, 3 * 32);
  EXPECT_EQ(StepsOf(image.bytes()),
            "makes the directory /LOST.FND\n"
            "links node 3, which has 128 bytes but no name, as /LOST.FND/NODE0003\n");
}

// The entries of the last ones lie in a block that is taken on the way.
TEST(RepairLostFound, more_directories_than_its_first_block_holds_are_linked_in_one_step_each) {
  ImageBuilder image(1024, 32);
  constexpr std::uint32_t kMany = 33;
  const std::uint16_t directory = image.AddDirectory(1, "H");
  for (std::uint32_t i = 0; i < kMany; ++i) {
    image.AddFile(image.AddDirectory(directory, "D" + std::to_string(i)), "F", i);
  }
  for (std::uint32_t i = 2; i < kMany + 2; ++i) {
    for (std::uint32_t at = 0; at < 32; ++at) image.Put8(image.EntryOffset(directory, i) + at, 0);
  }
  image.Put32(image.MapOffset(directory, 1), 0);
  image.SetSize(directory, 2 * 32);
  const std::string steps = StepsOf(image.bytes());
  std::uint32_t links = 0;
  for (std::size_t at = steps.find("links node"); at != std::string::npos; at = steps.find("links node", at + 1))
    ++links;
  EXPECT_EQ(links, kMany) << steps;
  EXPECT_EQ(Tree(Repaired(image.bytes())).size(), 3 + 2 * kMany);
}

TEST(RepairCopy, of_what_a_file_was_read_as_is_told_with_both_paths) {
  ImageBuilder image(1024, 32);
  AddKnotted(&image, "F");
  EXPECT_EQ(StepsOf(image.bytes()),
            "makes the directory /LOST.FND\n"
            "keeps what \"F\" was read as, as /LOST.FND/F\n"
            "takes block 10 out of /F (node 2): there already\n"
            "fills 1 missing block of /F (node 2) with zeros\n"
            "builds the free chain anew: 1 block in 1 record\n");
}

// What is left of the room when X has two copies of its 955 blocks is just what a copy of Y takes, or a block less.
TEST(RepairCopy, of_a_second_name_is_made_where_the_room_is_just_enough) {
  struct Case {
    std::uint32_t blocks, maps;
  };
  for (const Case& of : {Case{6, 0}, Case{7, 1}, Case{263, 3}, Case{518, 3}, Case{519, 4}}) {
    for (const std::uint32_t spare : {1u, 0u}) {
      ImageBuilder image(1024, 32);
      const std::uint16_t x = image.AddFile(1, "X", 950 * 1024);
      const std::uint16_t y = image.AddFile(1, "Y", of.blocks * 1024);
      for (const char* name : {"X2", "X3"}) image.AddEntry(1, name, x);
      image.AddEntry(1, "Y2", y);
      const std::uint32_t room = image.Blocks() + 1024 - 72 - 2 * 955;
      ASSERT_LT(room, of.blocks + of.maps);
      for (std::uint32_t i = room + 1; i < of.blocks + of.maps + spare; ++i) image.AppendBlock();
      const std::string steps = StepsOf(image.bytes());
      EXPECT_EQ(steps.find("keeps what \"Y2\"") == std::string::npos, spare == 1) << of.blocks << "\n" << steps;
    }
  }
}

TEST(RepairCopy, goes_to_the_directory_that_is_there) {
  ImageBuilder image(1024, 32);
  image.AddFile(image.AddDirectory(1, "LOST.FND"), "OLD", 5);
  AddKnotted(&image, "F");
  Files expected = Tree(image.bytes());
  expected["/LOST.FND/F"] = expected.at("/F");
  for (std::uint32_t i = 0; i < 1024; ++i) expected.at("/F")[7 * 1024 + i] = 0;
  EXPECT_TRUE(SameFiles(Tree(Repaired(image.bytes())), expected));
}

TEST(RepairCopy, of_a_file_whose_signature_is_damaged_has_a_sound_one) {
  ImageBuilder image(1024, 32);
  image.Put8(image.NodeOffset(AddKnotted(&image, "F")), 'X');
  const std::string steps = StepsOf(image.bytes());
  EXPECT_NE(steps.find("keeps what \"F\" was read as, as /LOST.FND/F\n"), std::string::npos) << steps;
  EXPECT_EQ(steps.find("the slot of node 4"), std::string::npos) << steps;
}

TEST(RepairCopy, no_node_left_for_it_nothing_is_named_so_and_the_plan_says_what_is_lost) {
  ImageBuilder image(1024, 1);
  image.AddDirectory(1, "LOST.FND");
  AddKnotted(&image, "F");
  for (int i = 4; i < 9; ++i) image.AddFile(1, "F" + std::to_string(i), 1);
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  EXPECT_TRUE(plan.IsComplete());
  EXPECT_EQ(plan.promise.losses, std::vector<std::string>{"/F"});
  EXPECT_EQ(StepsOf(image.bytes()),
            "takes block 11 out of /F (node 3): there already\n"
            "fills 1 missing block of /F (node 3) with zeros\n"
            "builds the free chain anew: 1 block in 1 record\n");
  Files expected = Tree(image.bytes());
  for (std::uint32_t i = 0; i < 1024; ++i) expected.at("/F")[7 * 1024 + i] = 0;
  EXPECT_TRUE(SameFiles(Tree(AfterWrites(plan, image.bytes(), testimage::WriteCount(plan))), expected));
}

TEST(RepairChain, head_leads_into_a_file_and_there_is_no_free_block_head_is_written_once) {
  SmallWithC image;
  image.Put32(48, image.MappedBlock(2, 0));
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  ASSERT_EQ(plan.actions.size(), 3u);
  EXPECT_EQ(plan.actions[1].writes.size(), 1u);
  EXPECT_EQ(AfterWrites(plan, image.bytes(), 3), SmallWithC().bytes());
}

}  // namespace
}  // namespace orba::inspect

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

}  // namespace
}  // namespace orba::inspect

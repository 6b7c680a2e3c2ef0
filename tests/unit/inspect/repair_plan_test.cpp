// The plan as a whole: when there is none, what it says, and where the blocks come from that its steps take.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "inspect/container/patched_image.h"
#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::BadByte;
using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::LongImage;
using testimage::SmallWithC;
using testimage::Tree;

std::string PathsIn(const Bytes& container) {
  std::string paths;
  for (const auto& [path, contents] : Tree(container)) paths += path + " ";
  return paths;
}

// ---- No plan --------------------------------------------------------------------------------------------------------

TEST(RepairImpossible, no_layout_says_so) {
  const Plan plan = PlanRepair(MemoryImage(Bytes(50000, 7)), testimage::kRepairTime);
  EXPECT_FALSE(plan.possible);
  EXPECT_FALSE(plan.problem.empty());
  EXPECT_EQ(plan.actions.size(), 0u);
  EXPECT_EQ(plan.before.Count(Kind::kLayoutUnknown), 1u);
  EXPECT_EQ(plan.after.Count(Kind::kLayoutUnknown), 1u);
}

TEST(RepairImpossible, host_cannot_read_one_sector_says_so) {
  const SmallWithC image;
  const Plan plan = PlanRepair(BadByte(image.bytes(), image.EntryOffset(3, 0)), testimage::kRepairTime);
  EXPECT_FALSE(plan.possible);
  EXPECT_EQ(plan.before.Count(Kind::kUnreadable), 1u);
  EXPECT_EQ(ToText(plan),
            "the host cannot read all of the container; copy what can be read to a sound medium and repair the copy\n");
}

// The host reads so many times, then no more.
struct Failing : MemoryImage {
  Failing(const Bytes& bytes, std::size_t times) : MemoryImage(bytes), left(times) {}
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    if (left == 0 || !MemoryImage::Read(offset, out, count)) return false;
    --left;
    return true;
  }
  mutable std::size_t left;
};

TEST(RepairImpossible, host_fails_to_read_what_it_has_read_plans_nothing) {
  constexpr std::size_t kMany = 1u << 30;
  SmallWithC image;
  image.Put8(image.NodeOffset(2), 'X');
  const Failing sound(image.bytes(), kMany);
  ASSERT_TRUE(PlanRepair(sound, testimage::kRepairTime).IsComplete());
  const std::size_t reads = kMany - sound.left;
  for (std::size_t times = 0; times < reads; ++times) {
    const Plan plan = PlanRepair(Failing(image.bytes(), times), testimage::kRepairTime);
    EXPECT_FALSE(plan.possible) << times;
    EXPECT_FALSE(plan.problem.empty()) << times;
    EXPECT_EQ(plan.actions.size(), 0u) << times;
  }
}

TEST(RepairImpossible, container_too_long_says_where_to_cut_and_plans_nothing) {
  const SmallWithC image;
  const Plan plan = PlanRepair(LongImage(image.bytes(), 0x80000000), testimage::kRepairTime);
  EXPECT_FALSE(plan.possible);
  EXPECT_EQ(plan.actions.size(), 0u);
  EXPECT_NE(plan.problem.find("cut it to " + std::to_string(image.bytes().size()) + " bytes"), std::string::npos)
      << plan.problem;
}

TEST(RepairImpossible, container_too_long_and_damaged_advises_recovery) {
  SmallWithC image;
  image.Put8(image.NodeOffset(2), 'X');
  const Plan plan = PlanRepair(LongImage(image.bytes(), 0x80000000), testimage::kRepairTime);
  EXPECT_FALSE(plan.possible);
  EXPECT_EQ(plan.actions.size(), 0u);
  EXPECT_NE(plan.problem.find("recover what it holds"), std::string::npos) << plan.problem;
}

TEST(RepairImpossible, container_too_long_and_interrupted_advises_recovery) {
  SmallWithC image;
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  image.SetSize(3, image.Size(3) - 32);  // E is entered, and not yet counted
  const Plan plan = PlanRepair(LongImage(image.bytes(), kContainerLimit), testimage::kRepairTime);
  EXPECT_EQ(plan.before.Count(Severity::kInterrupted), 1u);
  EXPECT_NE(plan.problem.find("recover what it holds"), std::string::npos) << plan.problem;
}

// No cut would make it short enough.
TEST(RepairImpossible, container_too_long_and_in_use_up_to_its_end_advises_recovery) {
  SmallWithC image;
  const auto first = static_cast<std::uint32_t>((kContainerLimit - image.BlockOffset(1)) / 1024 + 1);  // past 2^31
  const std::string problem = "the container has 2^31 bytes or more, and repair takes nothing off its end; ";
  const auto planned = [&](std::uint32_t block) {
    image.Put32(image.MapOffset(2, 1), block);
    return PlanRepair(LongImage(image.bytes(), image.BlockOffset(first + 2)), testimage::kRepairTime).problem;
  };
  EXPECT_EQ(planned(first - 1), problem + "cut it to 2147482656 bytes, where what is in use ends");
  EXPECT_EQ(planned(first), problem + "it is damaged as well: recover what it holds");
  EXPECT_EQ(planned(first + 1), problem + "it is damaged as well: recover what it holds");
}

TEST(RepairImpossible, container_ends_before_its_data_says_that_nothing_can_be_saved) {
  for (const std::size_t size : {0u, 500u, 1024u, 1055u}) {
    const SmallWithC image;
    const Plan plan = PlanRepair(MemoryImage({image.bytes().begin(), image.bytes().begin() + static_cast<long>(size)}),
                                 testimage::kRepairTime);
    EXPECT_FALSE(plan.possible) << size;
    EXPECT_NE(plan.problem.find("nothing of what it held can be saved"), std::string::npos) << plan.problem;
  }
}

TEST(ForeseeRepair, container_without_a_layout_has_no_promise) {
  const MemoryImage image(Bytes(50000, 7));
  EXPECT_FALSE(ForeseeRepair(image, testimage::kRepairTime, Check(image)).has_value());
}

TEST(ForeseeRepair, container_too_long_has_no_promise) {
  const LongImage image(SmallWithC().bytes(), kContainerLimit);
  EXPECT_FALSE(ForeseeRepair(image, testimage::kRepairTime, Check(image)).has_value());
}

// The file F of AddKnotted, alone.
struct Knotted : ImageBuilder {
  Knotted() : ImageBuilder(1024, 32) { testimage::AddKnotted(this, "F"); }
};

TEST(ForeseeRepair, host_fails_to_read_what_the_check_has_read_there_is_no_promise) {
  constexpr std::size_t kMany = 1u << 30;
  const Bytes bytes = Knotted().bytes();
  const Report checked = Check(MemoryImage(bytes));
  const Failing sound(bytes, kMany);
  const std::optional<Promise> promise = ForeseeRepair(sound, testimage::kRepairTime, checked);
  ASSERT_TRUE(promise.has_value());
  EXPECT_EQ(ToText(*promise), ToText(PlanRepair(MemoryImage(bytes), testimage::kRepairTime).promise));
  const std::size_t reads = kMany - sound.left;
  for (std::size_t times = 0; times < reads; ++times) {
    EXPECT_FALSE(ForeseeRepair(Failing(bytes, times), testimage::kRepairTime, checked).has_value()) << times;
  }
}

// ---- What it says ---------------------------------------------------------------------------------------------------

TEST(PlanText, every_action_is_a_line) {
  SmallWithC image;
  image.Put8(image.NodeOffset(2), 'X');
  EXPECT_EQ(ToText(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime)),
            "1. marks the container as being updated (1 write)\n"
            "2. writes signature and number into the slot of node 2 (1 write)\n"
            "3. clears the mark of an update in progress (1 write)\n"
            "keeps 3 of 3 readable files\n");
}

constexpr char kNothing[] = "nothing of what the container held can be saved: it will be empty\n";

bool SaysNothingIsLeft(const Bytes& bytes) {
  return ToText(PlanRepair(MemoryImage(bytes), testimage::kRepairTime)).find(kNothing) != std::string::npos;
}

void Overwrite(ImageBuilder* image, std::uint16_t node) {
  std::fill_n(image->bytes().begin() + static_cast<std::ptrdiff_t>(image->NodeOffset(node)), 64, std::uint8_t{'X'});
}

TEST(PlanText, only_file_is_lost_says_that_nothing_is_left) {
  ImageBuilder image(1024, 32);
  Overwrite(&image, image.AddFile(1, "F", 1));
  EXPECT_TRUE(SaysNothingIsLeft(image.bytes()));
}

TEST(PlanText, only_file_of_one_byte_is_cut_off_says_that_nothing_is_left) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "F", 1);
  image.bytes().resize(image.BlockOffset(2));
  EXPECT_TRUE(SaysNothingIsLeft(image.bytes()));
}

TEST(PlanText, node_in_use_of_which_nothing_is_known_beside_an_empty_root_is_no_loss) {
  ImageBuilder image(1024, 32);
  Overwrite(&image, image.AddNode(0));
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));
}

TEST(PlanText, empty_root_without_its_dots_is_no_loss) {
  ImageBuilder image(1024, 32);
  Overwrite(&image, image.AddNode(0));
  image.Put8(image.EntryOffset(1, 1) + 2, 0);
  image.SetSize(1, 32);
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));
}

TEST(PlanText, root_and_nothing_with_data_is_lost_is_no_loss) {
  ImageBuilder image(1024, 32);
  const auto loseRoot = [&image] {
    std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(1, 0)), 1024, std::uint8_t{'X'});
  };
  loseRoot();
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));  // nothing was there
  image.AddNode(0);
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));  // an empty file
  image.AddDirectory(1, "D");
  loseRoot();
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));  // an empty directory
}

TEST(PlanText, one_of_two_files_is_lost_says_nothing_of_all) {
  ImageBuilder image(1024, 32);
  Overwrite(&image, image.AddFile(1, "F", 1));
  image.AddFile(1, "G", 1);
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));
}

TEST(PlanText, directory_is_left_says_nothing_of_all) {
  ImageBuilder image(1024, 32);
  Overwrite(&image, image.AddFile(1, "F", 1));
  image.AddDirectory(1, "D");
  EXPECT_FALSE(SaysNothingIsLeft(image.bytes()));
}

// ---- Where blocks come from -----------------------------------------------------------------------------------------

// As long as a container can be, every block of it in use but for the last `left`, which are lost.
struct Brimful : ImageBuilder {
  explicit Brimful(std::uint32_t left, int files = 0) : ImageBuilder(8192, 32) {
    constexpr std::uint32_t kSlots = 8192 / 4;
    for (int i = 0; i < files; ++i) AddFile(1, "F" + std::to_string(i), 0);
    big = AddFile(1, "BIG", 0);
    const auto all = static_cast<std::uint32_t>((kContainerLimit - 1 - BlockOffset(1)) / 8192);
    const std::uint32_t maps = 2 + (all - 6) / kSlots;
    const std::uint32_t first = AppendBlock();
    for (std::uint32_t i = 1; i < maps; ++i) AppendBlock();
    const std::uint32_t next = first + maps;
    Put32(NodeOffset(big) + 56, first);
    Put32(NodeOffset(big) + 60, first + 1);
    for (std::uint32_t i = 0; i < maps - 2; ++i) Put32(BlockOffset(first + 1) + 4 * i, first + 2 + i);
    for (std::uint32_t block = next; block <= all - left; ++block) Append(block);
  }
  void Append(std::uint32_t block) {
    Put32(MapOffset(big, Size(big) / 8192), block);
    SetSize(big, Size(big) + 8192);
  }
  // The root's block is zeros and BIG's.
  void LoseRootBlock() {
    std::fill_n(bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(2)), 8192, std::uint8_t{0});
    Append(2);
    Put32(NodeOffset(1) + 32, 0);
  }
  LongImage Whole() const { return {bytes(), kContainerLimit - 1}; }
  std::uint16_t big = 0;
};

std::string Planned(const Brimful& image) { return ToText(PlanRepair(image.Whole(), testimage::kRepairTime)); }

TEST(TakeBlock, none_is_left_for_the_root_directory_stays_damaged) {
  Brimful image(0);
  EXPECT_EQ(Planned(image), "nothing to repair\n");
  image.LoseRootBlock();
  EXPECT_EQ(Planned(image),
            "1. marks the container as being updated (1 write)\n"
            "2. clears the mark of an update in progress (1 write)\n"
            "2 findings left\n"
            "keeps 0 of 0 readable files\n");
}

TEST(TakeBlock, none_is_left_for_a_lost_root_container_stays_marked) {
  Brimful image(0);
  image.LoseRootBlock();
  Overwrite(&image, 1);
  EXPECT_EQ(Planned(image),
            "1. marks the container as being updated (1 write)\n"
            "4 findings left, and the container stays marked\n"
            "keeps 0 of 0 readable files\n");
  image.Put32(8 + 8, 0);  // the size of the header's table
  EXPECT_NE(Planned(image).find("findings left, and the container stays marked\n"), std::string::npos);
}

TEST(TakeBlock, none_is_left_and_no_mount_takes_the_header_container_stays_marked) {
  Brimful image(0);
  image.LoseRootBlock();
  image.PutText(0, "XXXX");
  image.PutText(4, "XXXX");
  EXPECT_EQ(Planned(image),
            "1. marks the container as being updated (1 write)\n"
            "2. writes the header anew, for blocks of 8192 bytes and a bitmap of 32 bytes (1 write)\n"
            "2 findings left, and the container stays marked\n"
            "keeps 0 of 0 readable files\n");
}

TEST(TakeBlock, lost_one_is_taken_where_nothing_can_be_appended) {
  Brimful image(1);
  image.LoseRootBlock();
  EXPECT_EQ(Planned(image),
            "1. marks the container as being updated (1 write)\n"
            "2. gives / (node 1) a new first block (2 writes)\n"
            "3. links node 2, which has 2146402304 bytes but no name, as /NODE0002 (2 writes)\n"
            "4. clears the mark of an update in progress (1 write)\n"
            "keeps 0 of 0 readable files; 1 more comes back\n");
}

TEST(TakeNode, no_block_is_left_for_its_record_the_root_gets_the_name) {
  Brimful image(0, 128 - 2);  // all nodes of the first block
  std::fill_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(1, 128)), 32, std::uint8_t{0});
  image.SetSize(1, 128 * 32);
  EXPECT_EQ(Planned(image),
            "1. marks the container as being updated (1 write)\n"
            "2. links node 128, which has 2146402304 bytes but no name, as /NODE0128 (2 writes)\n"
            "3. clears the mark of an update in progress (1 write)\n"
            "keeps 126 of 126 readable files; 1 more comes back\n");
}

// ---- A directory's first block by its "." ---------------------------------------------------------------------------

// /D (node 3) has lost its first block. Before it lies another, `decoy`, with a copy of it, of which no slot knows.
struct Decoy : ImageBuilder {
  Decoy() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1024);
    decoy = AppendBlock();
    const std::uint16_t directory = AddDirectory(1, "D");
    AddFile(directory, "F", 3);
    own = MappedBlock(directory, 0);
    std::copy_n(At(own), 64, At(decoy));  // without F
    Put32(NodeOffset(directory) + 32, 0);
  }
  Bytes::iterator At(std::uint32_t block) { return bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(block)); }
  std::string Names() const { return PathsIn(testimage::Repaired(bytes())); }
  std::uint32_t decoy = 0, own = 0;
};

constexpr char kAllNames[] = "/ /A /D/ /D/F ";

TEST(FindDirectoryBlock, first_entry_is_no_dot_is_none) {
  Decoy image;
  image.Put8(image.BlockOffset(image.decoy) + 2, 'X');
  EXPECT_EQ(image.Names(), kAllNames);
}

TEST(FindDirectoryBlock, second_entry_is_no_dot_dot_is_none) {
  Decoy image;
  image.Put8(image.BlockOffset(image.decoy) + 34, 'X');
  EXPECT_EQ(image.Names(), kAllNames);
}

TEST(FindDirectoryBlock, block_of_a_file_is_none) {
  Decoy image;
  image.Put32(image.MapOffset(2, 0), image.decoy);
  EXPECT_EQ(image.Names(), kAllNames);
}

TEST(FindDirectoryBlock, free_block_comes_after_lost_ones) {
  Decoy image;
  image.SetChain({{image.decoy}});
  EXPECT_EQ(image.Names(), kAllNames);
}

TEST(FindDirectoryBlock, free_block_is_taken_where_there_is_no_other) {
  Decoy image;
  std::fill_n(image.At(image.decoy), 64, std::uint8_t{0});
  image.SetChain({{image.own}});
  EXPECT_EQ(image.Names(), kAllNames);
}

// ---- Copies before the repair ---------------------------------------------------------------------------------------

// The first thing that is done is to make copies.
bool KeepsFirst(const Bytes& bytes) {
  const Plan plan = PlanRepair(MemoryImage(bytes), testimage::kRepairTime);
  EXPECT_TRUE(plan.IsComplete() && plan.promise.holds()) << ToText(plan);
  return plan.actions[1].kind == ActionKind::kMakeLostFound;
}

TEST(KeepCopies, sound_root_and_end_copies_come_first) { EXPECT_TRUE(KeepsFirst(Knotted().bytes())); }

TEST(KeepCopies, header_is_damaged_it_comes_first) {
  Knotted image;
  image.Put32(8, 0);
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

TEST(KeepCopies, container_ends_within_a_block_in_use_it_comes_first) {
  Knotted image;
  image.AddFile(1, "LAST", 1024);
  image.bytes().pop_back();
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

TEST(KeepCopies, hole_in_the_root_it_comes_first) {
  Knotted image;
  image.AddFile(1, "G", 0);
  image.Put16(image.EntryOffset(1, 2), 0);
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

TEST(KeepCopies, entries_past_the_roots_size_they_come_first) {
  Knotted image;
  image.AddFile(1, "G", 0);
  image.SetSize(1, image.Size(1) - 32);
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

TEST(KeepCopies, size_of_the_root_is_no_multiple_of_an_entry_it_comes_first) {
  Knotted image;
  image.SetSize(1, image.Size(1) + 5);
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

TEST(KeepCopies, root_misses_a_block_it_comes_first) {
  Knotted image;
  for (int i = 0; i < 40; ++i) image.AddFile(1, "G" + std::to_string(i), 0);
  image.Put32(image.MapOffset(1, 1), 0);
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

TEST(KeepCopies, root_shares_a_block_it_comes_first) {
  Knotted image;
  image.Put32(image.MapOffset(image.AddFile(1, "G", 1024), 0), image.MappedBlock(1, 0));
  EXPECT_FALSE(KeepsFirst(image.bytes()));
}

// ---- Nodes for copies -----------------------------------------------------------------------------------------------

TEST(TakeNode, number_that_an_entry_refers_to_is_not_taken_for_a_copy) {
  Knotted image;
  image.AddEntry(1, "GHOST", 3);
  const Bytes repaired = testimage::Repaired(image.bytes());
  EXPECT_EQ(PathsIn(repaired), "/ /F /LOST.FND/ /LOST.FND/F ");
  EXPECT_EQ(Tree(repaired).at("/LOST.FND/F"), Tree(image.bytes()).at("/F"));
}

TEST(TakeNode, free_record_that_names_a_block_is_not_taken_for_a_copy) {
  Knotted image;
  image.Put32(image.NodeOffset(3) + 32, image.AppendBlock());
  const Bytes repaired = testimage::Repaired(image.bytes());
  EXPECT_EQ(Tree(repaired).count("/LOST.FND/F"), 1u);
  const auto at = static_cast<std::ptrdiff_t>(image.NodeOffset(3));
  EXPECT_TRUE(std::equal(repaired.begin() + at, repaired.begin() + at + 64, image.bytes().begin() + at));
}

}  // namespace
}  // namespace orba::inspect

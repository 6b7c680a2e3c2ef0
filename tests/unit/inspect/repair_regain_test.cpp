// Repair of what has lost the one field that led to it: directories whose records were overwritten, block-map blocks
// and blocks of entries that no slot names. What belongs to nobody else comes back, and what only looks like it does
// not.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
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
using testimage::Pattern;
using testimage::Repaired;
using testimage::RepairedFromEveryStop;
using testimage::Tree;

// A container of blocks of 1024 bytes: 16 nodes, 32 entries or 256 slots of a map in each.
struct Regaining : ImageBuilder {
  Regaining() : ImageBuilder(1024, 32) {}

  void Overwrite(std::uint64_t offset, std::size_t count) {
    std::fill_n(bytes().begin() + static_cast<std::ptrdiff_t>(offset), count, std::uint8_t{0xAA});
  }
  void OverwriteRecord(std::uint16_t node) { Overwrite(NodeOffset(node), 64); }

  // The beginning of a directory's block.
  void PutDots(std::uint32_t block, std::uint16_t self, std::uint16_t up, const std::string& first = ".",
               const std::string& second = "..") {
    Put16(BlockOffset(block), self);
    PutText(BlockOffset(block) + 2, first);
    Put16(BlockOffset(block) + 32, up);
    PutText(BlockOffset(block) + 34, second);
  }

  Bytes Read(std::uint64_t offset, std::size_t count) const {
    const auto from = bytes().begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(from, from + static_cast<std::ptrdiff_t>(count));
  }
  void Put(std::uint64_t offset, const Bytes& data) {
    std::copy(data.begin(), data.end(), bytes().begin() + static_cast<std::ptrdiff_t>(offset));
  }
  Bytes Record(std::uint16_t node) const { return Read(NodeOffset(node), 64); }

  // A block that nobody uses, with these bytes in slot `slot` of 64.
  std::uint32_t AppendRecord(const Bytes& record, std::uint32_t slot = 0) {
    const std::uint32_t block = AppendBlock();
    Put(BlockOffset(block) + 64 * slot, record);
    return block;
  }

  std::uint64_t IndirectOffset(std::uint16_t node) const { return NodeOffset(node) + 56; }
  std::uint64_t DoubleOffset(std::uint16_t node) const { return NodeOffset(node) + 60; }
};

// ---- Directories without a record -----------------------------------------------------------------------------------

TEST(RegainDirectory, record_made_anew_has_the_time_of_the_repair) {
  Regaining image;
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.AddFile(directory, "IN", 10);
  image.OverwriteRecord(directory);
  const Report after = Check(MemoryImage(Repaired(image.bytes())));
  const TimeStamp& time = after.model.nodes[directory].record.time;
  EXPECT_EQ(std::memcmp(&time, &testimage::kRepairTime, sizeof time), 0);
}

TEST(RegainDirectory, node_block_made_anew_is_written_and_then_referred_to) {
  Regaining image;
  for (int i = 2; i < 17; ++i) image.AddFile(1, "F" + std::to_string(i), 10);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  const auto files = Tree(image.bytes());
  image.Overwrite(image.NodeOffset(directory), 1024);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
  const std::string text = ToText(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime));
  EXPECT_NE(text.find("with the directories among them (2 writes)"), std::string::npos) << text;
}

TEST(RegainDirectory, empty_one_comes_back) {
  Regaining image;
  const std::uint16_t directory = image.AddDirectory(1, "EMPTY");
  const auto files = Tree(image.bytes());
  image.OverwriteRecord(directory);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainDirectory, its_block_is_the_first_it_comes_back) {
  Regaining image;
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.AddFile(directory, "IN", 10);
  const auto files = Tree(image.bytes());
  const std::uint32_t block = image.MappedBlock(directory, 0);
  image.Put32(image.MapOffset(directory, 0), 1);
  std::swap_ranges(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(1)),
                   image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(2)),
                   image.bytes().begin() + static_cast<std::ptrdiff_t>(image.BlockOffset(block)));
  image.Put32(ImageBuilder::TableOffset(0), block);
  ASSERT_EQ(Tree(image.bytes()), files);
  image.OverwriteRecord(directory);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainDirectory, block_with_only_one_of_the_dots_before_its_own_is_not_taken_for_it) {
  for (const bool first : {false, true}) {
    Regaining image;
    const std::uint32_t other = image.AppendBlock();
    const std::uint16_t directory = image.AddDirectory(1, "D");
    image.AddFile(directory, "IN", 10);
    const auto files = Tree(image.bytes());
    image.PutDots(other, directory, 1, first ? "." : "ONE", first ? "TWO" : "..");
    image.OverwriteRecord(directory);
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
  }
}

TEST(RegainDirectory, block_of_a_file_with_its_dots_is_not_taken_for_it) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "COPY", Bytes(1024));
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.AddFile(directory, "IN", 10);
  image.PutDots(image.MappedBlock(file, 0), directory, 1);
  const auto files = Tree(image.bytes());
  image.OverwriteRecord(directory);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainDirectory, first_block_is_a_files_its_own_comes_back) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", 900);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.AddFile(directory, "IN", 10);
  const auto files = Tree(image.bytes());
  image.Put32(image.MapOffset(directory, 0), image.MappedBlock(file, 0));
  std::string texts;
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes(), &texts)), files);
  EXPECT_NE(texts.find("gives /D (node 3) its first block back\n"), std::string::npos) << texts;
}

TEST(RegainDirectory, file_with_the_attributes_of_one_does_not_get_the_block_of_a_deleted_one) {
  Regaining image;
  const std::uint16_t parent = image.AddDirectory(1, "D");
  const std::uint16_t file = image.AddFile(1, "F", 960);
  const auto files = Tree(image.bytes());
  image.PutDots(image.AppendBlock(), file, parent);
  image.Put16(image.NodeOffset(file) + 6, ORB_NODE_DIRECTORY);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

// The ".." of the directory in it is no name.
TEST(RegainDirectory, block_of_a_deleted_one_from_a_directory_that_lies_in_the_lost_one_is_not_taken_for_it) {
  Regaining image;
  const std::uint32_t left = image.AppendBlock();
  const std::uint16_t directory = image.AddDirectory(1, "D");
  const std::uint16_t inner = image.AddDirectory(directory, "INNER");
  image.AddFile(inner, "IN", 10);
  image.PutDots(left, directory, inner);
  const auto files = Tree(image.bytes());
  image.OverwriteRecord(directory);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

// Nodes 17 to 32 are lost, and the bitmap calls them free. D, node 17, held F2, node 2.
TEST(RegainDirectory, block_of_a_deleted_one_whose_node_block_is_lost_is_not_taken_for_one) {
  Regaining image;
  for (int i = 2; i < 17; ++i) image.AddFile(1, "F" + std::to_string(i), 10);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  ASSERT_EQ(directory, 17);
  image.AddEntry(directory, "F2", 2);
  std::copy_n(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(1, 17)), 32,
              image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(1, 2)));
  image.Put16(image.EntryOffset(1, 17), 0);
  image.SetSize(1, 17 * 32);
  const auto files = Tree(image.bytes());
  image.PutDots(image.AppendBlock(), 20, directory);
  image.Overwrite(image.NodeOffset(17), 1024);
  image.SetFree(17, true);
  std::string texts;
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes(), &texts)), files);
  EXPECT_NE(texts.find("makes a new block for the nodes of table entry 1"), std::string::npos) << texts;
  EXPECT_EQ(texts.find("frees node 20"), std::string::npos) << texts;
  EXPECT_EQ(texts.find("gives"), std::string::npos) << texts;
}

// ---- Block-map blocks without a slot --------------------------------------------------------------------------------

TEST(RegainMap, shared_and_too_short_for_one_of_two_that_one_gets_its_own_back) {
  Regaining image;
  const std::uint16_t right = image.AddFile(1, "RIGHT", 9 * 1024);
  const std::uint16_t wrong = image.AddFile(1, "WRONG", 10 * 1024);
  const std::uint16_t none = image.AddFile(1, "NONE", 9 * 1024 - 5);
  const auto files = Tree(image.bytes());
  image.Put32(image.IndirectOffset(wrong), image.Get32(image.IndirectOffset(right)));
  image.Put32(image.IndirectOffset(none), 0);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

// Of the one that was right before, the number of blocks says so: a block of just as many slots that is nobody's is not
// given to it instead.
TEST(RegainMap, shared_and_too_short_for_one_of_two_the_other_keeps_it) {
  Regaining image;
  const std::uint16_t right = image.AddFile(1, "RIGHT", 9 * 1024);
  const std::uint16_t wrong = image.AddFile(1, "WRONG", 10 * 1024);
  const std::uint16_t gone = image.AddFile(1, "GONE", 9 * 1024 - 5);
  const auto was = Tree(image.bytes());
  image.Overwrite(image.MapOffset(wrong, 6), 1024);
  image.Put32(image.IndirectOffset(wrong), image.Get32(image.IndirectOffset(right)));
  image.OverwriteRecord(gone);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())).at("/RIGHT"), was.at("/RIGHT"));
}

TEST(RegainMap, shared_and_full_for_both_of_two_no_other_is_given_to_either) {
  Regaining image;
  const std::uint16_t right = image.AddFile(1, "RIGHT", 262 * 1024);
  const std::uint16_t same = image.AddFile(1, "SAME", 262 * 1024 - 5);
  const std::uint16_t none = image.AddFile(1, "NONE", 262 * 1024 - 9);
  const auto was = Tree(image.bytes());
  image.Put32(image.IndirectOffset(same), image.Get32(image.IndirectOffset(right)));
  for (std::uint32_t i = 0; i < 256; ++i) image.Put32(image.MapOffset(none, 6 + i), 0);
  const auto files = Tree(Repaired(image.bytes()));
  EXPECT_EQ(files.at("/RIGHT"), was.at("/RIGHT"));
  Bytes read = was.at("/SAME");
  std::copy_n(was.at("/RIGHT").begin() + 6 * 1024, read.size() - 6 * 1024, read.begin() + 6 * 1024);
  EXPECT_EQ(files.at("/SAME"), read);
}

TEST(RegainMap, slot_leads_to_anothers_contents_which_are_zeros_its_own_comes_back) {
  Regaining image;
  const std::uint16_t other = image.AddFile(1, "OTHER", Bytes(1024));
  const std::uint16_t file = image.AddFile(1, "F", 7 * 1024);
  const auto files = Tree(image.bytes());
  image.Put32(image.IndirectOffset(file), image.MappedBlock(other, 0));
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainMap, size_of_another_is_impossible_it_claims_none) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", 300 * 1024);
  const std::uint16_t large = image.AddFile(1, "LARGE", 6 * 1024);
  const auto files = Tree(image.bytes());
  image.Put32(image.IndirectOffset(file), 0);
  image.SetSize(large, 0xFFFFFFFF);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainMap, another_needs_just_as_many_blocks_as_its_maps_hold_it_claims_none) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", 9 * 1024);
  image.AddFile(1, "DIRECT", 6 * 1024);
  image.AddFile(1, "SINGLE", 262 * 1024);
  const auto files = Tree(image.bytes());
  image.Put32(image.IndirectOffset(file), 0);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainMap, one_comes_back_plan_says_which) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", 9 * 1024);
  const std::uint32_t map = image.Get32(image.IndirectOffset(file));
  image.Put32(image.IndirectOffset(file), 0);
  std::string texts;
  Repaired(image.bytes(), &texts);
  const std::string step =
      "gives /F (node 2) its block-map block " + std::to_string(map) + " back, which leads to 3 blocks\n";
  EXPECT_NE(texts.find(step), std::string::npos) << texts;
}

TEST(RegainMap, two_files_could_have_it_neither_is_guessed) {
  Regaining image;
  const std::uint16_t first = image.AddFile(1, "FIRST", 9 * 1024);
  const std::uint16_t second = image.AddFile(1, "SECOND", 9 * 1024);
  const auto was = Tree(image.bytes());
  image.Overwrite(image.MapOffset(first, 6), 1024);
  for (const std::uint16_t node : {first, second}) image.Put32(image.IndirectOffset(node), 0);
  const auto files = Tree(Repaired(image.bytes()));
  for (const char* path : {"/FIRST", "/SECOND"}) {
    EXPECT_EQ(files.at(path), Bytes(was.at(path).begin(), was.at(path).begin() + 6 * 1024)) << path;
  }
}

TEST(RegainMap, double_indirect_block_that_leads_to_one_block_comes_back) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", 263 * 1024);
  const auto files = Tree(image.bytes());
  image.Put32(image.DoubleOffset(file), 0);
  EXPECT_EQ(Tree(Repaired(image.bytes())), files);
}

TEST(RegainMap, double_indirect_block_of_another_has_a_block_that_is_no_map_it_is_not_taken_for_it) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", (262 + 256) * 1024);
  const std::uint16_t other = image.AddFile(1, "OTHER", (262 + 257) * 1024);
  const auto was = Tree(image.bytes());
  image.Overwrite(image.MapOffset(other, 262 + 256), 1024);
  for (const std::uint16_t node : {file, other}) image.Put32(image.DoubleOffset(node), 0);
  EXPECT_EQ(Tree(Repaired(image.bytes())).at("/F"), was.at("/F"));
}

// 200 and 56 blocks, as many as F needs.
TEST(RegainMap, double_indirect_block_of_another_has_a_gap_it_is_not_taken_for_it) {
  Regaining image;
  const std::uint16_t file = image.AddFile(1, "F", (262 + 256) * 1024);
  const std::uint16_t other = image.AddFile(1, "OTHER", (262 + 256 + 56) * 1024);
  const auto was = Tree(image.bytes());
  image.Put(image.MapOffset(other, 262 + 200), Bytes(56 * 4));
  for (const std::uint16_t node : {file, other}) image.Put32(image.DoubleOffset(node), 0);
  EXPECT_EQ(Tree(Repaired(image.bytes())).at("/F"), was.at("/F"));
}

TEST(RegainMap, slot_leads_to_a_directory_its_own_comes_back_and_the_directory_is_not_touched) {
  Regaining image;
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.AddFile(directory, "IN", 10);
  const std::uint16_t file = image.AddFile(1, "F", (262 + 256 + 3) * 1024);
  const Bytes sound = image.bytes();
  image.Put32(image.DoubleOffset(file), image.MappedBlock(directory, 0));
  std::string texts;
  EXPECT_EQ(Repaired(image.bytes(), &texts), sound);
  EXPECT_EQ(texts.find(" /D "), std::string::npos) << texts;
}

// ---- Blocks of entries without a slot -------------------------------------------------------------------------------

// A directory of 32 entries and these, F2 and so on: node 3 and so on.
struct TwoBlocks : Regaining {
  explicit TwoBlocks(std::uint32_t more)
      : directory(testimage::FillDirectory(this, 32 + more, testimage::Sizes::kNumber)) {}
  std::uint16_t directory;

  // The entries of the second block.
  void LoseSecond() { Put32(MapOffset(directory, 1), 0); }
  std::uint16_t NodeAt(std::uint32_t index) const { return Get16(EntryOffset(directory, index)); }

  void PutAt(std::uint32_t block, std::uint32_t slot, std::uint16_t node, const std::string& name) {
    Put16(BlockOffset(block) + 32 * slot, node);
    PutText(BlockOffset(block) + 32 * slot + 2, name);
  }
  // Files without names, and their entries in a block that nobody uses.
  std::uint32_t AppendEntries(std::uint32_t count) {
    const std::uint32_t block = AppendBlock();
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint16_t node = AddNode(0);
      AppendToNode(node, Bytes(5, 1));
      SetSize(node, 5);
      PutAt(block, i, node, "L" + std::to_string(node));
    }
    return block;
  }
};

TEST(RegainEntries, block_of_one_entry_that_cannot_be_is_not_taken_for_it) {
  struct Case {
    std::uint16_t node;  // 0 = the one that the directory's own block names
    const char* name;
  };
  for (const Case& other :
       {Case{0, "low"}, Case{0, "A B"}, Case{60000, "FAR"}, Case{1, "ROOT"}, Case{200, "FREE"}, Case{3, "TAKEN"}}) {
    TwoBlocks image(1);
    const auto files = Tree(image.bytes());
    image.PutAt(image.AppendBlock(), 0, other.node != 0 ? other.node : image.NodeAt(32), other.name);
    image.LoseSecond();
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files) << other.name;
  }
}

TEST(RegainEntries, block_with_one_node_twice_or_with_a_gap_is_not_taken_for_it) {
  for (const bool twice : {false, true}) {
    TwoBlocks image(2);
    const auto files = Tree(image.bytes());
    const std::uint32_t block = image.AppendBlock();
    image.PutAt(block, twice ? 0 : 2, image.NodeAt(32), "ONE");
    image.PutAt(block, 1, image.NodeAt(twice ? 32 : 33), "TWO");
    image.LoseSecond();
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files) << twice;
  }
}

// Of the last file the entry is there, and the size of its directory does not count it yet.
TEST(RegainEntries, block_with_the_node_of_an_entry_not_yet_counted_is_not_taken_for_it) {
  TwoBlocks image(1);
  const std::uint16_t last = image.AddFile(1, "LAST", 5);
  const auto files = Tree(image.bytes());
  image.SetSize(1, image.Size(1) - 32);
  image.PutAt(image.AppendBlock(), 0, last, "LAST");
  image.LoseSecond();
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(RegainEntries, one_block_comes_back_plan_says_which) {
  TwoBlocks image(2);
  const std::uint32_t block = image.MappedBlock(image.directory, 1);
  image.LoseSecond();
  std::string texts;
  Repaired(image.bytes(), &texts);
  EXPECT_EQ(texts, "marks the container as being updated\ngives /FULL (node 2) its block " + std::to_string(block) +
                       " with 2 entries back\nclears the mark of an update in progress\n");
}

TEST(RegainEntries, file_with_a_hole_needs_none) {
  TwoBlocks image(33);
  const std::uint16_t file = image.AddFile(1, "HOLE", 3 * 1024);
  auto files = Tree(image.bytes());
  image.LoseSecond();
  image.Put32(image.MapOffset(file, 1), 0);
  std::fill_n(files.at("/HOLE").begin() + 1024, 1024, std::uint8_t{0});
  EXPECT_EQ(Tree(Repaired(image.bytes())), files);
}

TEST(RegainEntries, directory_of_an_impossible_size_claims_none) {
  TwoBlocks image(33);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  const auto files = Tree(image.bytes());
  image.LoseSecond();
  image.SetSize(other, 0xFFFFFFFF);
  EXPECT_EQ(Tree(Repaired(image.bytes())), files);
}

// Two directories need a block of one entry each, and there are two.
TEST(RegainEntries, blocks_of_two_directories_alike_are_not_guessed) {
  TwoBlocks image(1);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  for (int i = 2; i < 33; ++i) image.AddFile(other, "G" + std::to_string(i), 5);
  const auto was = Tree(image.bytes());
  image.LoseSecond();
  image.Put32(image.MapOffset(other, 1), 0);
  std::string texts;
  const auto files = Tree(RepairedFromEveryStop(image.bytes(), &texts));
  EXPECT_EQ(files.count("/FULL/F32") + files.count("/OTHER/G32") + files.count("/FULL/G32"), 0u);
  EXPECT_EQ(files.at("/LOST.FND/NODE0033"), was.at("/FULL/F32"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0065"), was.at("/OTHER/G32"));
  EXPECT_EQ(texts.find("header"), std::string::npos) << texts;
}

TEST(RegainEntries, two_directories_miss_a_block_alike_and_one_is_there_neither_is_guessed) {
  TwoBlocks image(1);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  for (int i = 2; i < 33; ++i) image.AddFile(other, "G" + std::to_string(i), 5);
  const auto was = Tree(image.bytes());
  image.Overwrite(image.EntryOffset(image.directory, 32), 1024);
  image.LoseSecond();
  image.Put32(image.MapOffset(other, 1), 0);
  std::string texts;
  const auto files = Tree(RepairedFromEveryStop(image.bytes(), &texts));
  EXPECT_EQ(files.count("/FULL/G32") + files.count("/OTHER/G32"), 0u);
  EXPECT_EQ(files.at("/LOST.FND/NODE0065"), was.at("/OTHER/G32"));
  EXPECT_EQ(texts.find("header"), std::string::npos) << texts;
}

TEST(RegainEntries, more_blocks_than_are_missing_none_is_guessed) {
  TwoBlocks image(1);
  image.LoseSecond();
  image.AppendEntries(1);
  const auto files = Tree(RepairedFromEveryStop(image.bytes()));
  EXPECT_EQ(files.count("/FULL/F32"), 0u);
  EXPECT_EQ(files.count("/LOST.FND/NODE0033"), 1u);
  EXPECT_EQ(files.count("/LOST.FND/NODE0034"), 1u);
}

TEST(RegainEntries, map_slot_leads_to_another_directory_that_one_is_not_touched) {
  Regaining image;
  const std::uint16_t directory = testimage::FillDirectory(&image, 6 * 32 + 1);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  image.AddFile(other, "IN", 10);
  image.Overwrite(image.MapOffset(directory, 6), 1024);
  image.Put32(image.IndirectOffset(directory), image.MappedBlock(other, 0));
  std::string texts;
  const auto files = Tree(Repaired(image.bytes(), &texts));
  EXPECT_EQ(files.count("/OTHER/IN"), 1u);
  EXPECT_EQ(texts.find("gives"), std::string::npos) << texts;
}

// ---- Directories whose record was made anew, and which go on behind their first block ------------------------------

TEST(RegainEntries, two_records_made_anew_of_full_directories_a_block_is_not_guessed) {
  TwoBlocks image(1);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  for (int i = 2; i < 32; ++i) image.AddFile(other, "G" + std::to_string(i), 5);
  auto files = Tree(image.bytes());
  for (const std::uint16_t node : {image.directory, other}) image.OverwriteRecord(node);
  files["/LOST.FND/"] = {};
  files["/LOST.FND/NODE0033"] = files.at("/FULL/F32");
  files.erase("/FULL/F32");
  EXPECT_EQ(Tree(Repaired(image.bytes())), files);
}

// At most one block of a directory is not full.
TEST(RegainEntries, record_made_anew_and_two_blocks_could_be_its_last_none_is_guessed) {
  for (const std::uint32_t count : {1u, 2u}) {
    TwoBlocks image(1);
    auto files = Tree(image.bytes());
    image.AppendEntries(count);
    image.OverwriteRecord(image.directory);
    const auto left = Tree(Repaired(image.bytes()));
    EXPECT_EQ(left.count("/FULL/F31"), 1u) << count;
    EXPECT_EQ(left.count("/FULL/F32"), 0u) << count;
    EXPECT_EQ(left.at("/LOST.FND/NODE0033"), files.at("/FULL/F32")) << count;
    EXPECT_EQ(left.count("/LOST.FND/NODE0034"), 1u) << count;
  }
}

TEST(RegainEntries, record_made_anew_full_block_and_two_that_could_be_its_last_none_is_guessed) {
  TwoBlocks image(33);
  auto files = Tree(image.bytes());
  image.AppendEntries(2);
  image.OverwriteRecord(image.directory);
  const auto left = Tree(Repaired(image.bytes()));
  EXPECT_EQ(left.count("/FULL/F31"), 1u);
  EXPECT_EQ(left.count("/FULL/F32"), 0u);
  EXPECT_EQ(left.at("/LOST.FND/NODE0065"), files.at("/FULL/F64"));
  EXPECT_EQ(left.count("/LOST.FND/NODE0066"), 1u);
}

TEST(RegainEntries, record_made_anew_full_block_and_two_alike_only_the_full_one_is_taken) {
  TwoBlocks image(33);
  auto files = Tree(image.bytes());
  image.AppendEntries(1);
  image.OverwriteRecord(image.directory);
  const auto left = Tree(Repaired(image.bytes()));
  EXPECT_EQ(left.at("/FULL/F63"), files.at("/FULL/F63"));
  EXPECT_EQ(left.count("/FULL/F64"), 0u);
  EXPECT_EQ(left.at("/LOST.FND/NODE0065"), files.at("/FULL/F64"));
  EXPECT_EQ(left.count("/LOST.FND/NODE0066"), 1u);
}

TEST(RegainEntries, record_made_anew_beside_a_directory_whose_block_is_overwritten_goes_on_with_its_own) {
  TwoBlocks image(1);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  for (int i = 2; i < 39; ++i) image.AddFile(other, "G" + std::to_string(i), 5);
  const auto was = Tree(image.bytes());
  image.Overwrite(image.EntryOffset(other, 32), 1024);
  image.Put32(image.MapOffset(other, 1), 0);
  image.OverwriteRecord(image.directory);
  EXPECT_EQ(Tree(Repaired(image.bytes())).at("/FULL/F32"), was.at("/FULL/F32"));
}

TEST(RegainEntries, record_made_anew_beside_a_directory_that_misses_a_block_each_gets_its_own) {
  TwoBlocks image(32);
  const std::uint16_t other = image.AddDirectory(1, "OTHER");
  for (int i = 2; i < 39; ++i) image.AddFile(other, "G" + std::to_string(i), 5);
  const auto files = Tree(image.bytes());
  image.Put32(image.MapOffset(other, 1), 0);
  image.OverwriteRecord(image.directory);
  EXPECT_EQ(Tree(Repaired(image.bytes())), files);
}

// ---- Records in lost blocks -----------------------------------------------------------------------------------------

// /A (node 2) of 10 bytes and /F (node 3) of 20. What slot 3 held lies in a block that nobody uses, once it is lost.
struct LostRecord : Regaining {
  LostRecord() {
    AddFile(1, "A", 10);
    file = AddFile(1, "F", 20);
    files = Tree(bytes());
    block = MappedBlock(file, 0);
    record = Record(file);
  }
  void Lose() { OverwriteRecord(file); }
  std::uint16_t file;
  std::uint32_t block;
  Bytes record;
  std::map<std::string, Bytes> files;
};

// As a record says it: of another size.
Bytes WithSize(Bytes record, std::uint8_t size) {
  record[16] = size;
  return record;
}

TEST(RegainRecord, one_comes_back_plan_says_so) {
  for (const bool free : {false, true}) {
    LostRecord image;
    image.AppendRecord(image.record, 7);
    image.Lose();
    image.SetFree(image.file, free);
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), image.files);
    const std::string text = ToText(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime));
    const std::string step = "2. gives node 3 its record back, which lies in a lost block as well (";
    EXPECT_NE(text.find(step + (free ? "2 writes)\n3. builds" : "1 write)\n3. builds")), std::string::npos) << text;
  }
}

TEST(RegainRecord, of_a_file_of_one_byte_comes_back) {
  LostRecord image;
  image.AppendRecord(WithSize(image.record, 1));
  image.Lose();
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())).at("/F"), Bytes(1, image.files.at("/F")[0]));
}

TEST(RegainRecord, two_alike_it_comes_back) {
  LostRecord image;
  image.AppendRecord(image.record, 7);
  image.AppendRecord(image.record, 3);
  image.Lose();
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), image.files);
}

TEST(RegainRecord, two_that_differ_neither_is_guessed) {
  LostRecord image;
  image.AppendRecord(image.record, 7);
  image.AppendRecord(WithSize(image.record, 21), 3);
  image.Lose();
  image.files.erase("/F");
  EXPECT_EQ(Tree(Repaired(image.bytes())), image.files);
}

// Records that say nothing do not stand against the one that does.
TEST(RegainRecord, another_of_the_number_empty_implausible_or_without_signature_it_comes_back) {
  for (const std::uint32_t change : {0u, 7u, 16u}) {  // of the signature, the attributes or the size
    LostRecord image;
    Bytes other = image.record;
    other[19] = 0;
    other[change] = change == 16 ? 0 : 0xF0;
    image.AppendRecord(image.record);
    image.AppendRecord(change == 0 ? WithSize(other, 30) : other, 9);
    image.Lose();
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), image.files) << change;
  }
}

TEST(RegainRecord, its_block_is_another_files_it_is_not_taken) {
  LostRecord image;
  Bytes old = image.record;
  old[32] = static_cast<std::uint8_t>(image.MappedBlock(2, 0));
  image.AppendRecord(old);
  image.Lose();
  image.files.erase("/F");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), image.files);
}

TEST(RegainRecord, of_a_file_that_has_its_own_is_not_taken) {
  LostRecord image;
  Bytes old = image.record;
  old[32] = static_cast<std::uint8_t>(image.AppendBlock());
  image.AppendRecord(old);
  image.OverwriteRecord(2);  // another's is lost
  image.files.erase("/A");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), image.files);
}

// The block of nodes 17 to 32 is lost, and a record of it lies in a slot where it never was.
TEST(RegainRecord, of_a_node_without_a_node_block_nothing_is_written_over_for_it) {
  Regaining image;
  for (int i = 2; i < 18; ++i) image.AddFile(1, "F" + std::to_string(i), 10);
  auto files = Tree(image.bytes());
  image.AppendRecord(image.Record(17), 9);
  image.Overwrite(image.NodeOffset(17), 1024);
  files.erase("/F17");
  std::string texts;
  EXPECT_EQ(Tree(Repaired(image.bytes(), &texts)), files);
  EXPECT_EQ(texts.find("header"), std::string::npos) << texts;
}

// A record of the same number in another node's slot stands behind it.
TEST(RegainRecord, another_in_the_slot_of_another_node_the_one_in_a_lost_block_counts) {
  LostRecord image;
  image.AppendRecord(image.record);
  image.Lose();
  Bytes stray = WithSize(image.record, 12);
  stray[32] = static_cast<std::uint8_t>(image.MappedBlock(2, 0));
  image.Put(image.NodeOffset(2), stray);
  EXPECT_EQ(Tree(Repaired(image.bytes())).at("/F"), image.files.at("/F"));
}

}  // namespace
}  // namespace orba::inspect

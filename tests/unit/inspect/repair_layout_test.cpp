// Repair of the node-block table: which block is taken for the node block of which entry, and what speaks for one that
// stands in its place; and of the header, which comes before all else.
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
using testimage::Tree;

// Files in the root from node 2 on: F2 and so on, of as many bytes. 16 nodes in a block.
struct Nodes : ImageBuilder {
  explicit Nodes(std::uint16_t last) : ImageBuilder(1024, 32) {
    for (std::uint16_t node = 2; node <= last; ++node) AddFile(1, "F" + std::to_string(node), node);
  }

  Bytes Block(std::uint32_t block) const {
    const auto from = bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(block));
    return Bytes(from, from + 1024);
  }
  void PutBlock(std::uint32_t block, const Bytes& data) {
    std::copy(data.begin(), data.end(), bytes().begin() + static_cast<std::ptrdiff_t>(BlockOffset(block)));
  }
  void Overwrite(std::uint64_t offset, std::size_t count) {
    std::fill_n(bytes().begin() + static_cast<std::ptrdiff_t>(offset), count, std::uint8_t{0xAA});
  }
  void CopyRecord(std::uint16_t to, std::uint16_t from) {
    std::copy_n(bytes().begin() + static_cast<std::ptrdiff_t>(NodeOffset(from)), 64,
                bytes().begin() + static_cast<std::ptrdiff_t>(NodeOffset(to)));
  }
  // A block that nobody uses, with the empty slots of the nodes from this one on.
  std::uint32_t AppendSlots(std::uint16_t first) {
    const std::uint32_t block = AppendBlock();
    for (std::uint16_t i = 0; i < 16; ++i) {
      PutText(BlockOffset(block) + 64 * i, "INO1");
      Put16(BlockOffset(block) + 64 * i + 4, static_cast<std::uint16_t>(first + i));
    }
    return block;
  }
  std::uint32_t NodeBlock(std::uint32_t entry) const { return Get32(TableOffset(entry)); }
  void SetEntry(std::uint32_t entry, std::uint32_t block) { Put32(TableOffset(entry), block); }
};

std::string PlanOf(const Nodes& image) {
  return ToText(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime));
}

void ExpectKept(const std::map<std::string, Bytes>& files, const std::map<std::string, Bytes>& was, int node) {
  const auto found = files.find("/F" + std::to_string(node));
  ASSERT_NE(found, files.end()) << node;
  EXPECT_EQ(found->second, was.at(found->first)) << node;
}

// ---- Blocks that stand in their place -------------------------------------------------------------------------------

// Records of another node block were written over this one. An old copy of it, which nobody uses, has all its nodes.
TEST(LayoutTable, one_slot_of_a_node_in_use_is_left_block_stays_in_its_place) {
  for (const std::uint16_t left : {std::uint16_t{9}, std::uint16_t{17}, std::uint16_t{25}, std::uint16_t{32}}) {
    Nodes image(48);
    const std::uint16_t entry = left < 17 ? 0 : 1;
    image.PutBlock(image.AppendBlock(), image.Block(image.NodeBlock(entry)));
    image.SetSize(left, 8);
    const auto was = Tree(image.bytes());
    const auto end = static_cast<std::uint16_t>(16 * (entry + 1));
    for (auto node = static_cast<std::uint16_t>(16 * entry + 1); node <= end; ++node) {
      if (node != left) image.CopyRecord(node, static_cast<std::uint16_t>(node + 16));
    }
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), was) << left;
  }
}

TEST(LayoutTable, numbers_lost_and_one_signature_left_block_stays_in_its_place) {
  for (const std::uint16_t left : {std::uint16_t{17}, std::uint16_t{25}, std::uint16_t{32}}) {
    Nodes image(32);
    const auto was = Tree(image.bytes());
    for (std::uint16_t node = 17; node <= 32; ++node) {
      image.Put16(image.NodeOffset(node) + 4, 0);
      if (node != left) image.Put32(image.NodeOffset(node), 0);
    }
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), was) << left;
  }
}

TEST(LayoutTable, number_of_the_only_node_in_use_speaks_for_another_entry_block_stays_in_its_place) {
  Nodes image(17);
  const Bytes sound = image.bytes();
  image.Put16(image.NodeOffset(17) + 4, 33);
  EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
}

TEST(LayoutTable, numbers_speak_for_an_entry_that_no_table_has_block_stays_in_its_place) {
  Nodes image(18);
  const auto was = Tree(image.bytes());
  for (std::uint16_t node = 17; node < 26; ++node) {
    image.Put16(image.NodeOffset(node) + 4, static_cast<std::uint16_t>(224 * 16 + node - 16));
  }
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), was);
}

// ---- Blocks that are found again ------------------------------------------------------------------------------------

// Nothing else tells that something is lost: the file is empty, and the chain lists its node block.
TEST(LayoutTable, block_of_one_empty_file_is_listed_as_free_it_is_found_again) {
  for (const std::uint16_t left : {std::uint16_t{17}, std::uint16_t{25}, std::uint16_t{32}}) {
    Nodes image(1);
    for (int node = 2; node <= 32; ++node) image.AddNode(0);
    for (std::uint16_t node = 2; node <= 32; ++node) image.SetFree(node, node != left);
    image.AddEntry(1, "EMPTY", left);
    const auto was = Tree(image.bytes());
    image.SetChain({{image.NodeBlock(1)}});
    image.SetEntry(1, 0);
    EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), was) << left;
  }
}

TEST(LayoutTable, entries_exchanged_and_nodes_called_free_both_are_set_at_once) {
  Nodes image(48);
  const auto was = Tree(image.bytes());
  const std::uint32_t one = image.NodeBlock(1), two = image.NodeBlock(2);
  image.SetEntry(1, two);
  image.SetEntry(2, one);
  for (std::uint16_t node = 17; node <= 32; ++node) image.SetFree(node, true);
  const std::string text = PlanOf(image);
  EXPECT_NE(text.find("points table entry 1 at block " + std::to_string(one)), std::string::npos) << text;
  EXPECT_NE(text.find("points table entry 2 at block " + std::to_string(two)), std::string::npos) << text;
  EXPECT_EQ(text.find("clears"), text.find("clears the mark")) << text;
  EXPECT_EQ(Tree(Repaired(image.bytes())), was);
}

TEST(LayoutTable, one_record_is_left_of_a_lost_block_it_is_found_again) {
  for (const std::uint16_t left : {std::uint16_t{17}, std::uint16_t{32}}) {
    Nodes image(32);
    const auto was = Tree(image.bytes());
    for (std::uint16_t node = 17; node <= 32; ++node) {
      if (node != left) image.Overwrite(image.NodeOffset(node), 64);
    }
    image.SetEntry(1, 0);
    ExpectKept(Tree(RepairedFromEveryStop(image.bytes())), was, left);
  }
}

TEST(LayoutTable, lost_block_of_nodes_of_which_none_is_in_use_stays_out) {
  Nodes image(2);
  image.AppendSlots(33);
  EXPECT_EQ(PlanOf(image),
            "1. marks the container as being updated (1 write)\n"
            "2. builds the free chain anew: 1 block in 1 record (2 writes)\n"
            "3. clears the mark of an update in progress (1 write)\n"
            "keeps 1 of 1 readable file\n");
}

// Two blocks for entry 1, the first of them before the other: empty files of the nodes from 17 on in the one, and files
// with data in the other.
struct TwoBlocksForOne : Nodes {
  TwoBlocksForOne(std::uint16_t empty, std::uint16_t data, bool emptyFirst) : Nodes(16) {
    const std::uint32_t spare = AppendBlock();
    const std::uint16_t last = static_cast<std::uint16_t>(16 + std::max(empty, data));
    for (std::uint16_t node = 17; node <= last; ++node) AddFile(1, "F" + std::to_string(node), 0u);
    const std::uint32_t real = NodeBlock(1);
    PutBlock(spare, Bytes(1024));
    Bytes whole = Block(real), files = whole;
    for (std::uint16_t i = 0; i < 16; ++i) {
      if (i >= empty) std::fill_n(whole.begin() + 64 * i, 64, std::uint8_t{0});
      if (i >= data) std::fill_n(files.begin() + 64 * i, 64, std::uint8_t{0});
    }
    for (std::uint16_t i = 0; i < data; ++i) {
      const std::uint32_t block = AppendBlock();
      Put8(BlockOffset(block), 'x');
      files[static_cast<std::size_t>(64 * i + 16)] = 1;
      files[static_cast<std::size_t>(64 * i + 32)] = static_cast<std::uint8_t>(block);
    }
    PutBlock(emptyFirst ? spare : real, whole);
    PutBlock(emptyFirst ? real : spare, files);
    SetEntry(1, 0);
  }
};

TEST(LayoutTable, two_blocks_for_an_entry_the_one_with_more_of_its_nodes_is_taken_and_of_equals_that_with_data) {
  struct Case {
    std::uint16_t empty, data;
    bool takesData;
  };
  for (const Case& blocks :
       {Case{1, 1, true}, Case{3, 1, false}, Case{4, 2, false}, Case{2, 1, false}, Case{3, 3, true}}) {
    for (const bool emptyFirst : {true, false}) {
      const TwoBlocksForOne image(blocks.empty, blocks.data, emptyFirst);
      const auto files = Tree(Repaired(image.bytes()));
      ASSERT_EQ(files.count("/F17"), 1u) << blocks.empty << blocks.data << emptyFirst;
      EXPECT_EQ(files.at("/F17") == Bytes(1, 'x'), blocks.takesData) << blocks.empty << blocks.data << emptyFirst;
    }
  }
}

// A block that looks like the lost one, before it: with implausible records, without signatures, or a file's contents.
TEST(LayoutTable, block_that_only_looks_like_the_lost_one_is_not_taken_for_it) {
  for (const char* what : {"implausible", "unsigned", "file"}) {
    Nodes image(2);
    const std::uint16_t file = image.AddFile(1, "COPY", Bytes(1024));
    const std::uint32_t spare = image.AppendBlock();
    const bool inFile = what[0] == 'f';
    for (std::uint16_t node = 4; node <= 18; ++node) image.AddFile(1, "F" + std::to_string(node), 0u);
    const std::uint32_t copy = inFile ? image.MappedBlock(file, 0) : spare;
    image.PutBlock(copy, image.Block(image.NodeBlock(1)));
    for (std::uint64_t at = image.BlockOffset(copy); at < image.BlockOffset(copy) + 1024; at += 64) {
      if (what[0] == 'i') image.Put8(at + 7, 0xF0);
      if (what[0] == 'u') image.Put8(at, 0);
    }
    const auto was = Tree(image.bytes());
    const std::uint32_t real = image.NodeBlock(1);
    image.SetEntry(1, 0);
    const std::string text = PlanOf(image);
    EXPECT_NE(text.find("points table entry 1 at block " + std::to_string(real) + ","), std::string::npos)
        << what << text;
    EXPECT_EQ(Tree(Repaired(image.bytes())), was) << what;
  }
}

// A file of the second node block names block 1, to which the table does not lead any more.
TEST(LayoutTable, first_block_is_a_files_too_it_is_still_the_first_node_block) {
  Nodes image(17);
  const auto was = Tree(image.bytes());
  image.Put32(image.MapOffset(17, 0), 1);
  image.SetEntry(0, 0);
  const auto files = Tree(Repaired(image.bytes()));
  for (int node = 2; node <= 16; ++node) ExpectKept(files, was, node);
}

// ---- Header ---------------------------------------------------------------------------------------------------------

TEST(LayoutHeader, damaged_beside_a_file_that_is_made_longer_what_it_was_read_as_is_kept_first) {
  ImageBuilder image(1024, 32);
  const std::uint16_t file = image.AddFile(1, "F", 2000);
  Bytes contents = Tree(image.bytes()).at("/F");
  image.SetSize(file, 900);
  image.Put32(offsetof(VolumeHeader, headerSize), 0);
  contents.resize(900);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())).at("/LOST.FND/F"), contents);
}

// ---- What each step says and writes ---------------------------------------------------------------------------------

// The steps between the mark and its end.
std::string StepsBetween(const Nodes& image) {
  const std::string text = PlanOf(image);
  const std::size_t from = text.find("\n2. ") + 1;
  return text.substr(from, text.rfind('\n', text.find("clears the mark")) + 1 - from);
}

TEST(LayoutSteps, entries_that_lead_to_no_node_blocks_are_cleared_in_runs) {
  Nodes image(2);
  const Bytes sound = image.bytes();
  for (const std::uint32_t entry : {3u, 4u, 5u, 9u, 223u}) image.SetEntry(entry, 9999);
  EXPECT_EQ(StepsBetween(image),
            "2. clears table entries 3 to 5: they lead to no node blocks (3 writes)\n"
            "3. clears table entry 9: it leads to no node block (1 write)\n"
            "4. clears table entry 223: it leads to no node block (1 write)\n");
  EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
}

// The bitmap has 256 bits: 16 entries are enough.
TEST(LayoutSteps, entry_for_nodes_that_cannot_be_is_cleared_whatever_its_block_holds) {
  for (const std::uint32_t entry : {16u, 17u, 223u}) {
    Nodes image(2);
    image.SetEntry(entry, image.AppendSlots(static_cast<std::uint16_t>(16 * entry + 1)));
    EXPECT_EQ(StepsBetween(image), "2. clears table entry " + std::to_string(entry) +
                                       ": it leads to no node block (1 write)\n"
                                       "3. builds the free chain anew: 1 block in 1 record (2 writes)\n");
  }
}

TEST(LayoutSteps, two_entries_for_a_block_the_first_of_equals_keeps_it) {
  Nodes image(32);
  const Bytes sound = image.bytes();
  for (const std::uint32_t entry : {0u, 5u, 200u}) {
    Nodes twice = image;
    twice.SetEntry(entry == 0 ? 2 : entry, twice.NodeBlock(1));
    EXPECT_EQ(RepairedFromEveryStop(twice.bytes()), sound) << entry;
  }
}

// Both kinds of slots are in the block. The entry with more of them keeps it, of equals the first, and the records of
// the other return to a new one.
TEST(LayoutTable, two_entries_for_a_block_that_holds_nodes_of_both_all_of_them_are_kept) {
  for (const std::uint16_t count : {std::uint16_t{7}, std::uint16_t{8}, std::uint16_t{9}}) {
    Nodes image(48);
    const auto was = Tree(image.bytes());
    for (std::uint16_t i = 0; i < count; ++i) {
      image.CopyRecord(static_cast<std::uint16_t>(17 + i), static_cast<std::uint16_t>(33 + i));
    }
    image.Overwrite(image.NodeOffset(33), 1024);
    image.SetEntry(2, image.NodeBlock(1));
    const std::string text = PlanOf(image);
    const std::string clears = "2. clears table entry " + std::to_string(count > 8 ? 1 : 2) + ": ";
    EXPECT_NE(text.find(clears), std::string::npos) << text;
    const auto files = Tree(RepairedFromEveryStop(image.bytes()));
    for (int node = 2; node <= 48; ++node) {
      if (node < 17 || (node >= 17 + count && node < 33 + count)) ExpectKept(files, was, node);
    }
  }
}

TEST(LayoutSteps, numbers_in_use_without_a_node_block_are_freed_in_runs) {
  Nodes image(2);
  const Bytes sound = image.bytes();
  for (std::uint16_t node = 33; node < 41; ++node) image.SetFree(node, false);
  image.SetFree(50, false);
  image.SetFree(256, false);
  EXPECT_EQ(StepsBetween(image),
            "2. notes in the bitmap that nodes 33 to 40 are free: no node block holds them (8 writes)\n"
            "3. notes in the bitmap that node 50 is free: no node block holds it (1 write)\n"
            "4. notes in the bitmap that node 256 is free: no node block holds it (1 write)\n");
  EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
}

TEST(LayoutSteps, slots_of_free_nodes_are_signed_or_cleared) {
  Nodes image(2);
  const Bytes sound = image.bytes();
  image.Put8(image.NodeOffset(5), 0);
  image.Overwrite(image.NodeOffset(9), 64);
  EXPECT_EQ(StepsBetween(image),
            "2. writes signature and number into the slot of node 5 (1 write)\n"
            "3. clears the slot of node 9, which is free (1 write)\n");
  EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
}

TEST(LayoutSteps, attributes_that_a_file_can_have_are_kept) {
  for (const std::uint16_t kept : {std::uint16_t{0}, kNodeReadOnly, kNodeUserFlag}) {
    Nodes image(2);
    image.Put16(image.NodeOffset(2) + 6, kept);
    const Bytes sound = image.bytes();
    image.Put16(image.NodeOffset(2) + 6, static_cast<std::uint16_t>(kept | 0xF000));
    EXPECT_EQ(StepsBetween(image), "2. gives /F2 (node 2) attributes " + std::to_string(kept) +
                                       " and clears its reserved bytes (1 write)\n");
    EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
  }
}

TEST(LayoutSteps, roots_attributes_are_written_its_time_only_where_it_is_none) {
  for (const bool date : {true, false}) {
    Nodes image(2);
    const TimeStamp was = Check(MemoryImage(image.bytes())).model.nodes[1].record.time;
    image.Put16(image.NodeOffset(1) + 6, 0xF00E);
    if (!date) image.Put8(image.NodeOffset(1) + 10, 13);
    const OrbNodeRecord record = Check(MemoryImage(RepairedFromEveryStop(image.bytes()))).model.nodes[1].record;
    EXPECT_EQ(record.attributes, kRootAttributes);
    EXPECT_EQ(record.time.year, date ? was.year : testimage::kRepairTime.year);
    EXPECT_EQ(record.time.second, date ? was.second : testimage::kRepairTime.second);
  }
}

TEST(LayoutSteps, file_with_a_date_that_is_none_keeps_it) {
  Nodes image(2);
  image.Put8(image.NodeOffset(2) + 10, 13);
  const Bytes sound = image.bytes();
  image.Put32(image.NodeOffset(2) + 20, 1);  // reserved
  EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound);
}

TEST(LayoutSteps, header_is_written_anew_and_the_mark_of_a_repair_stays_until_its_end) {
  for (const std::uint32_t flags : {0u, kVolumeDirty, kVolumeDirty | kRepairMark}) {
    Nodes image(2);
    const Bytes sound = image.bytes();
    image.Put32(0, 0x12345678);
    image.Put32(kStateFlagsOffset, flags);
    const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
    for (const Action& action : plan.actions) {
      if (action.kind != ActionKind::kWriteHeader) continue;
      EXPECT_EQ(ToText(action), "writes the header anew, for blocks of 1024 bytes and a bitmap of 32 bytes");
      const std::uint32_t mark = flags == kVolumeDirty ? kVolumeDirty : kVolumeDirty | kRepairMark;
      EXPECT_EQ(action.writes[0].bytes[kStateFlagsOffset], mark) << flags;
    }
    EXPECT_EQ(RepairedFromEveryStop(image.bytes()), sound) << flags;
  }
}

// A second run must not take the mark for that of a move.
TEST(LayoutSteps, header_is_written_anew_and_the_repair_stopped_both_names_of_a_file_stay) {
  Nodes image(4);
  image.AddEntry(image.AddDirectory(1, "D"), "SECOND", 3);
  auto files = Tree(image.bytes());
  image.Put32(0, 0x12345678);
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(LayoutRoot, record_overwritten_plan_says_which_block_it_has) {
  Nodes image(2);
  image.Overwrite(image.NodeOffset(1), 64);
  const std::string steps = StepsBetween(image);
  EXPECT_NE(steps.find("makes a new root node for the directory in block 2 (1 write)\n"), std::string::npos) << steps;
  const OrbNodeRecord record = Check(MemoryImage(Repaired(image.bytes()))).model.nodes[1].record;
  EXPECT_EQ(record.attributes, kRootAttributes);
  EXPECT_EQ(record.time.year, testimage::kRepairTime.year);
  EXPECT_EQ(record.size, 3 * kDirEntrySize);
}

TEST(LayoutRoot, record_and_block_overwritten_plan_says_that_the_new_one_is_empty) {
  Nodes image(2);
  image.Overwrite(image.NodeOffset(1), 64);
  image.Overwrite(image.BlockOffset(2), 1024);
  const std::string steps = StepsBetween(image);
  EXPECT_NE(steps.find("makes a new, empty root directory (2 writes)\n"), std::string::npos) << steps;
}

// Nothing is left of the first node block and of the root's: both are made anew, with the slots that belong there.
TEST(LayoutRoot, node_block_and_block_overwritten_both_are_made_anew) {
  Nodes image(17);
  const Bytes data = Tree(image.bytes()).at("/F17");
  image.Overwrite(image.NodeOffset(1), 1024);
  image.Overwrite(image.BlockOffset(2), 1024);
  const std::string steps = StepsBetween(image);
  EXPECT_EQ(steps.find("slot"), std::string::npos) << steps;
  const auto files = Tree(RepairedFromEveryStop(image.bytes()));
  ASSERT_EQ(files.count("/LOST.FND/NODE0017"), 1u);
  EXPECT_EQ(files.at("/LOST.FND/NODE0017"), data);
}

}  // namespace
}  // namespace orba::inspect

// Repair of containers broken in one way each. Every one is also repaired from each state in which a first repair may
// stop.
#include "inspect/repair/repair.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"
#include "tests/support/small_image.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::FillDirectory;
using testimage::ImageBuilder;
using testimage::Pattern;
using testimage::Sizes;
using testimage::Small;
using testimage::SmallWithC;
using testimage::Tree;
using testimage::WithChain;

using Files = std::map<std::string, Bytes>;

Files Repair(const ImageBuilder& image, std::string* texts = nullptr) {
  return Tree(testimage::RepairedFromEveryStop(image.bytes(), texts));
}

// The files of a sound image, with some taken away, and some added under other names.
Files Without(Files files, std::initializer_list<const char*> paths) {
  for (const char* path : paths) EXPECT_EQ(files.erase(path), 1u) << path;
  return files;
}

std::string PathsOf(const Files& files) {
  std::string text;
  for (const auto& [path, bytes] : files) text += path + " ";
  return text;
}

#define EXPECT_FILES(files, expected) \
  EXPECT_TRUE((files) == (expected)) << PathsOf(files) << "instead of " << PathsOf(expected)

// ---- Nothing, and the mark alone ------------------------------------------------------------------------------------

TEST(RepairNothing, clean_container_plan_is_empty) {
  const Plan plan = PlanRepair(MemoryImage(SmallWithC().bytes()), testimage::kRepairTime);
  EXPECT_TRUE(plan.IsComplete());
  EXPECT_EQ(plan.actions.size(), 0u);
  EXPECT_EQ(ToText(plan), "nothing to repair\n");
}

TEST(RepairNothing, notes_alone_plan_is_empty) {
  SmallWithC image;
  image.Put8(image.NodeOffset(2) + 10, 13);
  EXPECT_EQ(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime).actions.size(), 0u);
}

TEST(RepairMark, mark_alone_is_cleared) {
  SmallWithC image;
  image.Put32(52, 1);
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  EXPECT_EQ(ToText(plan), "1. clears the mark of an update in progress (1 write)\nkeeps 3 of 3 readable files\n");
  EXPECT_EQ(testimage::AfterWrites(plan, image.bytes(), 1), SmallWithC().bytes());
}

TEST(RepairMark, damage_without_mark_mark_first_and_last) {
  SmallWithC image;
  image.Put8(image.NodeOffset(2), 'X');
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  ASSERT_EQ(plan.actions.size(), 3u);
  EXPECT_EQ(plan.actions[0].writes[0].offset, 52u);
  EXPECT_EQ(plan.actions[0].writes[0].bytes, (Bytes{kVolumeDirty | kRepairMark, 0, 0, 0}));
  EXPECT_EQ(plan.actions[2].writes[0].offset, 52u);
  EXPECT_EQ(plan.actions[2].writes[0].bytes, (Bytes{0, 0, 0, 0}));
}

TEST(RepairLength, nothing_is_left_of_the_data_plan_says_so) {
  const SmallWithC image;
  const std::string nothing = "nothing of what the container held can be saved: it will be empty\n";
  for (const std::uint32_t block : {1u, 2u}) {
    const Bytes bytes(image.bytes().begin(), image.bytes().begin() + static_cast<long>(image.BlockOffset(block)));
    const Plan plan = PlanRepair(MemoryImage(bytes), testimage::kRepairTime);
    EXPECT_EQ(ToText(plan).find(nothing) != std::string::npos, true) << block << ToText(plan);
  }
  ImageBuilder empty(1024, 32);
  empty.Put8(1024, 0);  // nodes 2 to 8 in use
  EXPECT_EQ(ToText(PlanRepair(MemoryImage(empty.bytes()), testimage::kRepairTime)).find(nothing), std::string::npos);
}

// ---- Header, table, bitmap, slots -----------------------------------------------------------------------------------

TEST(RepairHeader, any_field_wrong_is_written_anew) {
  for (std::uint32_t offset = 0; offset <= 44; offset += 4) {
    SmallWithC image;
    image.Put32(offset, 0x12345678);
    EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes()) << offset;
  }
}

TEST(RepairHeader, reserved_bytes_and_flags_are_cleared) {
  SmallWithC image;
  image.Put8(100, 1);
  image.Put32(52, 0xFFFFFFFE);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairLength, cut_anywhere_keeps_the_files_before_the_cut) {
  const SmallWithC whole;
  const Files files = Tree(whole.bytes());
  for (std::size_t size = 1024 + 32; size < whole.bytes().size(); size += 211) {
    Bytes bytes(whole.bytes().begin(), whole.bytes().begin() + static_cast<std::ptrdiff_t>(size));
    const Files left = Tree(testimage::RepairedFromEveryStop(bytes));
    for (const auto& [path, contents] : left) {
      if (files.count(path) == 0) continue;  // LOST.FND
      const Bytes& was = files.at(path);
      EXPECT_TRUE(contents.size() <= was.size() && std::equal(contents.begin(), contents.end(), was.begin()))
          << path << size;
    }
    const bool kept = size >= whole.BlockOffset(whole.MappedBlock(2, 1)) + 1500 - 1024;
    EXPECT_EQ(left.count("/A") == 1 && left.at("/A") == files.at("/A"), kept) << size;
  }
}

TEST(RepairTable, entry_lost_node_block_is_found_again) {
  for (const std::uint32_t value : {0u, 2u, 999u, 0xFFFFFFFFu}) {
    for (const std::uint32_t entry : {0u, 1u}) {
      SmallWithC image;
      FillDirectory(&image, 20, Sizes::kNumber);
      const Files files = Tree(image.bytes());
      image.Put32(ImageBuilder::TableOffset(entry), value);
      EXPECT_FILES(Repair(image), files);
    }
  }
}

TEST(RepairTable, two_entries_exchanged_are_set_right) {
  SmallWithC image;
  FillDirectory(&image, 40, Sizes::kNumber);
  const Files files = Tree(image.bytes());
  const std::uint32_t one = image.Get32(ImageBuilder::TableOffset(1));
  image.Put32(ImageBuilder::TableOffset(1), image.Get32(ImageBuilder::TableOffset(2)));
  image.Put32(ImageBuilder::TableOffset(2), one);
  EXPECT_FILES(Tree(testimage::Repaired(image.bytes())), files);
}

TEST(RepairTable, entry_for_nodes_that_cannot_be_is_cleared) {
  SmallWithC image;
  image.Put32(ImageBuilder::TableOffset(223), 5);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairTable, node_block_overwritten_its_files_are_lost_the_others_kept) {
  SmallWithC image;
  FillDirectory(&image, 20, Sizes::kNumber);
  Files files = Tree(image.bytes());
  const std::uint64_t at = image.BlockOffset(image.Get32(ImageBuilder::TableOffset(1)));
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(at + i, 0xEE);
  for (auto file = files.begin(); file != files.end();) {  // FULL is node 7, so node 17 is F11
    const bool lost =
        file->first.size() > 6 && file->first.compare(0, 7, "/FULL/F") == 0 && std::stoi(file->first.substr(7)) >= 11;
    file = lost ? files.erase(file) : std::next(file);
  }
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairSlots, signature_and_number_are_written) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 6; ++i) {
    image.Put8(image.NodeOffset(4) + i, 0xAA);
    image.Put8(image.NodeOffset(16) + i, 0xAA);
  }
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairSlots, record_overwritten_node_and_name_go) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(2) + i, 0xAA);
  EXPECT_FILES(Repair(image), Without(Tree(SmallWithC().bytes()), {"/A"}));
}

TEST(RepairBitmap, every_node_free_is_all_revived) {
  SmallWithC image;
  for (std::uint16_t node = 1; node <= 6; ++node) image.SetFree(node, true);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairBitmap, every_node_in_use_the_rest_is_given_back) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 32; ++i) image.Put8(1024 + i, 0);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairBitmap, used_beyond_the_table_is_freed) {
  ImageBuilder image(1024, 896);
  const Bytes sound = image.bytes();
  image.SetFree(224 * 16 + 5, false);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), sound);
}

// ---- One pointer or number that leads astray ------------------------------------------------------------------------

TEST(RepairStray, pointer_to_a_node_block_that_the_table_lost_nodes_are_regained) {
  for (const std::uint32_t offset : {56u, 60u}) {  // indirect, double-indirect
    SmallWithC image;
    FillDirectory(&image, 40, Sizes::kNumber);
    const Files files = Tree(image.bytes());
    image.Put32(image.NodeOffset(2) + offset, image.Get32(ImageBuilder::TableOffset(1)));
    image.Put32(ImageBuilder::TableOffset(1), 0);
    EXPECT_FILES(Repair(image), files);
  }
}

TEST(RepairStray, map_pointer_to_a_directorys_block_directory_is_left_alone) {
  SmallWithC image;
  image.AddFile(1, "BIG", 8 * 1024);
  const Files files = Tree(image.bytes());
  image.Put32(image.NodeOffset(2) + 56, image.MappedBlock(3, 0));  // /A has two blocks and needs no map
  std::string texts;
  EXPECT_FILES(Repair(image, &texts), files);
  EXPECT_NE(texts.find("out of /A (node 2): no block numbers in it"), std::string::npos) << texts;
}

TEST(RepairStray, map_pointer_of_a_directorys_record_to_its_own_block_directory_is_whole) {
  SmallWithC image;
  const Files files = Tree(image.bytes());
  image.Put32(image.NodeOffset(3) + 56, image.MappedBlock(3, 0));
  image.Put32(image.NodeOffset(3) + 32, 0);
  EXPECT_FILES(Repair(image), files);
}

// FULL is node 7, F2 to F9 are nodes 8 to 15.
struct Named : SmallWithC {
  Named() { FillDirectory(this, 10, Sizes::kNumber); }
  void Point(std::uint32_t entry, std::uint16_t node) { Put16(EntryOffset(7, entry), node); }
};

TEST(RepairStray, entry_without_name_names_anothers_node_names_its_own_again) {
  Named image;
  const Files was = Tree(image.bytes());
  image.Put32(image.EntryOffset(7, 4), 2);  // F4, node 10: number and the name's first bytes
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/A"), was.at("/A"));
  EXPECT_EQ(files.at("/FULL/NODE0010"), was.at("/FULL/F4"));
  EXPECT_EQ(files.size(), was.size());
}

TEST(RepairStray, entry_beside_its_neighbours_names_anothers_node_names_its_own_again) {
  Named image;
  Files files = Tree(image.bytes());
  image.Point(4, 2);
  files["/LOST.FND/"] = {};
  files["/LOST.FND/F4"] = files.at("/A");  // what it was read as
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairStray, directorys_entry_names_anothers_node_names_its_own_again) {
  Named image;
  Files files = Tree(image.bytes());
  image.Put16(image.EntryOffset(1, 3), 4);  // D, node 3; 4 is its file B
  files["/LOST.FND/"] = {};
  files["/LOST.FND/D"] = files.at("/D/B");
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairStray, lowest_bit_of_an_entrys_number_damaged_names_its_own_again) {
  Named image;
  Files files = Tree(image.bytes());
  image.Point(4, 11);  // F4, node 10; 11 is F5
  files["/LOST.FND/"] = {};
  files["/LOST.FND/F4"] = files.at("/FULL/F5");
  EXPECT_FILES(Repair(image), files);
}

// The entry that stands before that of the next number is the damaged one.
TEST(RepairStray, entry_before_its_neighbour_names_anothers_node_names_its_own_again) {
  Named image;
  Files files = Tree(image.bytes());
  image.Point(2, 12);  // F2, node 8; 12 is F6, four places behind
  files["/LOST.FND/"] = {};
  files["/LOST.FND/F2"] = files.at("/FULL/F6");
  EXPECT_FILES(Repair(image), files);
}

// Every third file lies in the root, nodes 3, 6 and 9, the others in D, 4, 5, 7 and 8. Node 6 or 7 has both names of
// the two, and between 5 and 8 each would be in its place.
TEST(RepairStray, entry_in_the_place_of_both_nodes_both_paths_read_as_before) {
  for (const bool inRoot : {true, false}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t directory = image.AddDirectory(1, "D");
    for (std::uint32_t i = 0; i < 7; ++i) {
      image.AddFile(i % 3 == 0 ? std::uint16_t{1} : directory, "F" + std::to_string(i), 10 + i);
    }
    const Files was = Tree(image.bytes());
    image.Put16(image.EntryOffset(inRoot ? 1 : directory, 4), inRoot ? 7 : 6);
    Files files = Tree(image.bytes());
    files["/LOST.FND/"] = {};
    files[inRoot ? "/LOST.FND/NODE0006" : "/LOST.FND/NODE0007"] = was.at(inRoot ? "/F3" : "/D/F4");
    EXPECT_FILES(Repair(image), files);
  }
}

TEST(RepairStray, entry_of_an_empty_file_names_anothers_node_both_paths_read_as_before) {
  SmallWithC image;
  image.AddFile(1, "EMPTY", 0);  // node 7
  image.AddFile(5, "LAST", 10);  // node 8, behind C, node 6
  image.Put16(image.EntryOffset(1, 4), 6);
  EXPECT_FILES(Repair(image), Tree(image.bytes()));
}

TEST(RepairStray, entry_without_name_and_no_node_without_name_legal_name_is_kept) {
  Named image;
  const Files files = Tree(image.bytes());
  image.AddEntry(7, "X", 2);
  image.Put8(image.EntryOffset(7, 10) + 2, 0);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairStray, two_nodes_without_name_far_from_the_numbers_none_is_guessed) {
  Named image;
  const Files was = Tree(image.bytes());
  image.Point(4, 5);  // E, of which node 10 is four bits away
  image.Put16(image.EntryOffset(7, 6), 0xFFF);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/LOST.FND/NODE0010"), was.at("/FULL/F4"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0012"), was.at("/FULL/F6"));
}

TEST(RepairStray, two_nodes_without_name_and_one_bit_damaged_in_one_number_that_comes_back_then_the_other) {
  Named image;
  const Files was = Tree(image.bytes());
  image.Point(4, 2);
  image.Put16(image.EntryOffset(7, 6), 0xFFF);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/FULL/F4"), was.at("/FULL/F4"));
  EXPECT_EQ(files.at("/FULL/F6"), was.at("/FULL/F6"));
}

// ---- Sectors of directories and of node records that changed places -------------------------------------------------

void Exchange(ImageBuilder* image, std::uint64_t a, std::uint64_t b) {
  Bytes& bytes = image->bytes();
  std::swap_ranges(bytes.begin() + static_cast<std::ptrdiff_t>(a), bytes.begin() + static_cast<std::ptrdiff_t>(a + 512),
                   bytes.begin() + static_cast<std::ptrdiff_t>(b));
}

// FULL is node 7, F2 to F69 are nodes 8 to 75, of 2 to 69 bytes.
struct ThreeBlocks : SmallWithC {
  ThreeBlocks() { FillDirectory(this, 70, Sizes::kNumber); }
};

TEST(RepairSectors, one_of_a_directory_and_one_of_node_records_go_back) {
  for (const std::uint16_t node : {std::uint16_t{17}, std::uint16_t{25}, std::uint16_t{65}}) {
    for (const std::uint32_t entry : {16u, 32u, 48u}) {
      ThreeBlocks image;
      const Files files = Tree(image.bytes());
      Exchange(&image, image.NodeOffset(node), image.EntryOffset(7, entry));
      EXPECT_FILES(Repair(image), files) << node << " " << entry;
    }
  }
}

TEST(RepairSectors, two_of_one_block_go_back) {
  ThreeBlocks image;
  const Files files = Tree(image.bytes());
  Exchange(&image, image.NodeOffset(25), image.EntryOffset(7, 32));
  Exchange(&image, image.NodeOffset(33), image.EntryOffset(7, 48));
  std::string texts;
  EXPECT_FILES(Repair(image, &texts), files);
  EXPECT_NE(texts.find(": 2 sectors of it and of node records had changed places"), std::string::npos) << texts;
}

TEST(RepairSectors, empty_files_and_free_nodes_are_in_them_too) {
  SmallWithC image;
  FillDirectory(&image, 52, Sizes::kZero);  // the last node is 57
  const Files files = Tree(image.bytes());
  Exchange(&image, image.NodeOffset(57), image.EntryOffset(7, 16));
  EXPECT_FILES(Tree(testimage::Repaired(image.bytes())), files);
}

TEST(RepairSectors, copy_of_node_records_in_a_directory_moves_nothing) {
  ThreeBlocks image;
  const Bytes records(image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(25)),
                      image.bytes().begin() + static_cast<std::ptrdiff_t>(image.NodeOffset(25)) + 512);
  std::copy(records.begin(), records.end(),
            image.bytes().begin() + static_cast<std::ptrdiff_t>(image.EntryOffset(7, 48)));
  std::string texts;
  Repair(image, &texts);
  EXPECT_EQ(texts.find("changed places"), std::string::npos) << texts;
}

TEST(RepairSectors, node_records_over_a_directory_without_its_entries_move_nothing) {
  ThreeBlocks image;
  Exchange(&image, image.NodeOffset(25), image.EntryOffset(7, 48));
  image.Put16(image.NodeOffset(25), 0xFFFF);  // no node has this number: these are no entries
  std::string texts;
  Repair(image, &texts);
  EXPECT_EQ(texts.find("changed places"), std::string::npos) << texts;
}

// ---- Erased flash: every byte 0xFF, and a bitmap that calls every node free -----------------------------------------

// node 7 /FULL with F2 to F39 as nodes 8 to 45, 46 /P, 47 /P/Q, 48 /P/Q/R: three node blocks. Three blocks are free.
struct WideTree : SmallWithC {
  WideTree() {
    FillDirectory(this, 40, Sizes::kNumber);
    const std::uint16_t inner = AddDirectory(AddDirectory(1, "P"), "Q");
    AddFile(inner, "R", 8 * 1024);
    const std::uint32_t free = AppendBlock();
    AppendBlock();
    SetChain({{free, free + 1}});
  }

  void Erase(std::uint64_t from, std::uint64_t end) {
    for (std::uint64_t at = from; at < end; ++at) Put8(at, 0xFF);
  }
};

TEST(RepairErased, bitmap_nothing_is_lost) {
  WideTree image;
  image.Erase(1024, 1024 + 32);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), WideTree().bytes());
}

TEST(RepairErased, header_table_and_bitmap_nothing_is_lost) {
  WideTree image;
  image.Erase(0, 1024 + 32);
  EXPECT_FILES(Tree(testimage::Repaired(image.bytes())), Tree(WideTree().bytes()));
}

TEST(RepairErased, table_entry_and_its_bits_node_block_is_found_again) {
  WideTree image;
  image.Put32(ImageBuilder::TableOffset(1), 0);
  image.Erase(1024 + 2, 1024 + 4);  // nodes 17 to 32
  std::string texts;
  EXPECT_FILES(Repair(image, &texts), Tree(WideTree().bytes()));
  EXPECT_NE(texts.find("points table entry 1 at block "), std::string::npos) << texts;
}

TEST(RepairErased, bitmap_first_nodes_and_root_keeps_what_zeros_would_keep) {
  WideTree erased, zeros;
  erased.Erase(1024, erased.BlockOffset(3));
  for (std::uint64_t at = 1024; at < zeros.BlockOffset(3); ++at) zeros.Put8(at, 0);
  const Files files = Tree(testimage::RepairedFromEveryStop(erased.bytes()));
  EXPECT_FILES(files, Tree(testimage::Repaired(zeros.bytes())));
  const Files was = Tree(WideTree().bytes());
  EXPECT_EQ(files.at("/LOST.FND/NODE0007/F12"), was.at("/FULL/F12"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0046/Q/R"), was.at("/P/Q/R"));
}

// ---- The first bytes lost: where the blocks lie must be made out from the rest --------------------------------------

// 40 directories of two files each. With the largest bitmap but a few bytes, so that no block begins at a round place.
ImageBuilder Directories(std::uint32_t blockSize) {
  ImageBuilder image(blockSize, 800);
  for (int i = 0; i < 40; ++i) {
    const std::uint16_t directory = image.AddDirectory(1, "D" + std::to_string(i));
    image.AddFile(directory, "A", 100 + static_cast<std::uint32_t>(i));
    image.AddFile(directory, "B", blockSize + static_cast<std::uint32_t>(i));
  }
  return image;
}

TEST(RepairFirstBytesLost, any_block_size_what_lies_behind_is_kept) {
  for (const std::uint32_t blockSize : {1024u, 2048u, 4096u, 8192u}) {
    for (const std::uint8_t fill : {std::uint8_t{0}, std::uint8_t{0xFF}}) {
      for (const std::uint32_t count : {1824u, 4096u}) {  // up to the data area, and more
        ImageBuilder image = Directories(blockSize);
        const Files files = Tree(image.bytes());
        std::fill_n(image.bytes().begin(), count, fill);
        const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
        ASSERT_TRUE(plan.possible) << blockSize;
        EXPECT_EQ(plan.after.model.geometry.blockSize, blockSize);
        EXPECT_EQ(plan.after.model.geometry.dataOffset, 1824u);
        std::multiset<Bytes> left;
        for (const auto& file : Tree(testimage::Repaired(image.bytes()))) left.insert(file.second);
        // Bytes 1824 to 4095 hold the records of the first 36 nodes, or all of a smaller block.
        const int lost = count == 4096 ? std::min(static_cast<int>(blockSize / 64), 36) : 0;
        for (int i = 0; i < 40; ++i) {
          const std::string path = "/D" + std::to_string(i);
          if (2 + 3 * i <= lost) continue;
          EXPECT_EQ(left.count(files.at(path + "/A")), 1u) << blockSize << path;
          EXPECT_EQ(left.count(files.at(path + "/B")), 1u) << blockSize << path;
        }
      }
    }
  }
}

TEST(RepairFirstBytesLost, flat_container_of_default_size_root_tells_the_layout) {
  ImageBuilder image(4096, 1024);
  for (int i = 0; i < 50; ++i) image.AddFile(1, "F" + std::to_string(i), 10 + static_cast<std::uint32_t>(i));
  const Files files = Tree(image.bytes());
  std::fill_n(image.bytes().begin(), 4096, std::uint8_t{0});  // nodes 1 to 32 among it
  const Files left = Tree(testimage::Repaired(image.bytes()));
  EXPECT_EQ(left.size(), 1u + 19);
  for (int i = 31; i < 50; ++i) EXPECT_EQ(left.at("/F" + std::to_string(i)), files.at("/F" + std::to_string(i)));
}

TEST(RepairFirstBytesLost, one_trace_only_is_hopeless) {
  ImageBuilder image(1024, 32);
  image.AddDirectory(1, "D");  // block 3; the first two are gone
  std::fill_n(image.bytes().begin(), image.BlockOffset(3), std::uint8_t{0});
  EXPECT_FALSE(PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime).possible);
}

TEST(RepairFirstBytesLost, traces_that_contradict_each_other_are_hopeless) {
  ImageBuilder image = Directories(1024);
  Bytes bytes(image.bytes().begin() + 8192, image.bytes().end());
  for (std::size_t i = 2; i < 12; ++i) {  // each block 100 bytes further away from the one before than it was
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(i * 8192), 100, std::uint8_t{0});
  }
  EXPECT_FALSE(PlanRepair(MemoryImage(bytes), testimage::kRepairTime).possible);
}

// ---------------------------------------------------------------------------------------------------------------------

TEST(RepairErased, record_with_data_but_no_name_is_linked_under_lost_found) {
  WideTree image;
  image.SetFree(2, true);  // A, the root's first entry
  image.Put16(image.EntryOffset(1, 2), 0);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/LOST.FND/NODE0002"), Tree(WideTree().bytes()).at("/A"));
}

// A bit of X's record was damaged: a block of it is Y's. Both have lost name and bit.
struct TwoFreeWithOneBlock : SmallWithC {
  explicit TwoFreeWithOneBlock(std::uint32_t blocks) {
    const std::uint32_t free = AppendBlock();
    SetChain({{free, AppendBlock()}});
    x = AddFile(1, "X", blocks * 1024 - 900);
    y = AddFile(1, "Y", blocks * 1024 - 800);
    if (blocks <= 6) {
      Put32(MapOffset(x, blocks - 1), MappedBlock(y, 0));
    } else {
      Put32(NodeOffset(x) + 56, Get32(NodeOffset(y) + 56));  // the block-map block
    }
    const auto read = Tree(bytes());
    files = {{"/LOST.FND/NODE0007", read.at("/X")}, {"/LOST.FND/NODE0008", read.at("/Y")}};
    for (const std::uint32_t entry : {4u, 5u}) Put16(EntryOffset(1, entry), 0);
    SetSize(1, 4 * 32);
    for (const std::uint16_t node : {x, y}) SetFree(node, true);
  }
  std::uint16_t x, y;
  Files files;  // after a repair
};

// Marked or not: a repair that was stopped between the two need not know that it was.
TEST(RepairErased, two_records_with_one_block_and_other_sizes_are_both_in_use) {
  for (const std::uint32_t flags : {0u, kVolumeDirty, kVolumeDirty | kRepairMark}) {
    for (const std::uint32_t blocks : {1u, 3u, 8u}) {
      TwoFreeWithOneBlock image(blocks);
      image.Put32(kStateFlagsOffset, flags);
      Files expected = Tree(SmallWithC().bytes());
      expected["/LOST.FND/"] = {};
      expected.insert(image.files.begin(), image.files.end());
      EXPECT_FILES(Repair(image), expected);
    }
  }
}

// An entry whose number was damaged and is now that of a file that was deleted: the node without a name is meant.
TEST(RepairErased, entry_that_names_a_deleted_files_node_names_its_own_again) {
  SmallWithC image;
  const std::uint16_t gone = image.AddFile(1, "X", 0);  // node 7: its record has a date, and nothing else
  image.Put16(image.EntryOffset(1, 4), 0);
  image.SetSize(1, 4 * 32);
  image.SetFree(gone, true);
  const Files files = Tree(image.bytes());
  image.Put16(image.EntryOffset(5, 2), gone);  // C, node 6
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairErased, deleted_files_record_stays_free) {
  WideTree image;
  const std::uint16_t node = image.AddNode(0);  // its time stamp stays
  image.SetFree(node, true);
  image.AppendBlock();
  std::string texts;
  EXPECT_FILES(Repair(image, &texts), Tree(WideTree().bytes()));
  EXPECT_EQ(texts.find("notes in the bitmap"), std::string::npos) << texts;
}

TEST(RepairErased, free_record_with_blocks_of_the_chain_stays_free) {
  WideTree image;
  const std::uint16_t node = image.AddNode(0);
  image.AppendToNode(node, Pattern(8, 8));
  image.SetSize(node, 8);
  image.SetFree(node, true);
  image.SetChain({{image.MappedBlock(node, 0)}});
  const Files files = Repair(image);
  EXPECT_FILES(files, Tree(WideTree().bytes()));
}

TEST(RepairErased, empty_directory_without_name_is_not_brought_back) {
  WideTree image;
  const std::uint16_t node = image.AddDirectory(1, "EMPTY");
  image.SetSize(1, image.Size(1) - 32);
  image.Put16(image.EntryOffset(1, image.Size(1) / 32), 0);
  image.SetFree(node, true);
  EXPECT_FILES(Repair(image), Tree(WideTree().bytes()));
}

TEST(RepairRecords, attributes_and_reserved_bytes_are_put_right) {
  for (const std::uint16_t node : {std::uint16_t{1}, std::uint16_t{2}, std::uint16_t{5}}) {
    SmallWithC image;
    image.Put8(image.NodeOffset(node) + 7, 0xF0);
    image.Put8(image.NodeOffset(node) + 15, 1);
    image.Put32(image.NodeOffset(node) + 24, 1);
    EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes()) << node;
  }
}

TEST(RepairRecords, file_marked_as_directory_is_a_file_again) {
  SmallWithC image;
  image.Put16(image.NodeOffset(4) + 6, 8);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairRecords, directory_marked_as_file_is_a_directory_again) {
  SmallWithC image;
  image.Put16(image.NodeOffset(5) + 6, 0);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairRoot, record_overwritten_is_made_anew_from_its_block) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(1) + i, 0xAA);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairRoot, record_all_zeros_but_its_number_gets_the_time_of_the_repair) {
  SmallWithC image;
  for (std::uint32_t i = 6; i < 64; ++i) image.Put8(image.NodeOffset(1) + i, 0);
  const Bytes after = testimage::RepairedFromEveryStop(image.bytes());
  EXPECT_FILES(Tree(after), Tree(SmallWithC().bytes()));
  EXPECT_EQ(Check(MemoryImage(after)).model.nodes[1].record.time.year, testimage::kRepairTime.year);
}

TEST(RepairRoot, nodes_regained_around_it_gets_the_time_of_the_repair) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(1) + i, 0);
  EXPECT_EQ(Check(MemoryImage(testimage::RepairedFromEveryStop(image.bytes()))).model.nodes[1].record.time.year,
            testimage::kRepairTime.year);
}

TEST(RepairRoot, record_and_block_overwritten_files_are_linked_under_lost_found) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(1) + i, 0xAA);
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(2) + i, 0xAA);
  const Files was = Tree(SmallWithC().bytes());
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/LOST.FND/NODE0002"), was.at("/A"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/B"), was.at("/D/B"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/E/C"), was.at("/D/E/C"));
}

TEST(RepairRoot, first_node_block_overwritten_directories_are_found_by_their_blocks) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(1) + i, 0xAA);
  EXPECT_EQ(PathsOf(Repair(image)), "/ /D/ /D/E/ ");
}

// The directory is the last node of the block that was overwritten.
TEST(RepairRoot, second_node_block_overwritten_its_directory_is_found_by_its_block) {
  ImageBuilder image(1024, 32);
  for (int i = 2; i < 32; ++i) image.AddFile(1, "F" + std::to_string(i), 0);
  image.AddFile(image.AddDirectory(1, "D"), "IN", 10);
  const Bytes in = Tree(image.bytes()).at("/D/IN");
  const std::uint64_t block = image.NodeOffset(17);
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(block + i, 0xAA);
  EXPECT_EQ(Repair(image).at("/D/IN"), in);
}

// ---- Block maps -----------------------------------------------------------------------------------------------------

TEST(RepairMap, block_shared_second_owner_gets_a_copy) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 6), image.MappedBlock(2, 0));
  Files files = Tree(SmallWithC().bytes());
  std::copy(files.at("/A").begin(), files.at("/A").begin() + 1024, files.at("/D/B").begin() + 6 * 1024);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairMap, map_block_shared_both_files_keep_their_contents) {
  ImageBuilder image(1024, 32);
  const std::uint16_t a = image.AddFile(1, "A", 9 * 1024);
  const std::uint16_t b = image.AddFile(1, "B", 9 * 1024 - 7);
  Files files = Tree(image.bytes());
  image.Put32(image.NodeOffset(b) + 56, image.Get32(image.NodeOffset(a) + 56));
  std::copy(files.at("/A").begin() + 6 * 1024, files.at("/A").end() - 7, files.at("/B").begin() + 6 * 1024);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairMap, directories_share_their_first_block_each_has_its_own_again) {
  for (const bool first : {false, true}) {
    SmallWithC image;
    const std::uint16_t a = first ? 3 : 5, b = first ? 5 : 3;
    image.Put32(image.MapOffset(a, 0), image.MappedBlock(b, 0));
    Files files = Tree(SmallWithC().bytes());
    if (first) {  // D was read as E, to which no path led but this
      files["/LOST.FND/"] = {};
      files["/LOST.FND/C"] = files.at("/D/E/C");
    }
    EXPECT_FILES(Repair(image), files);
  }
}

TEST(RepairMap, directories_share_their_first_block_the_other_is_overwritten_the_dot_decides) {
  for (const bool first : {false, true}) {
    SmallWithC image;
    const std::uint16_t a = first ? 3 : 5, b = first ? 5 : 3;
    for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.EntryOffset(a, 0) + i, 0xEE);
    image.Put32(image.MapOffset(a, 0), image.MappedBlock(b, 0));
    const Files was = Tree(SmallWithC().bytes());
    const Files files = Repair(image);
    if (first) {  // D has the block of E
      EXPECT_EQ(files.at("/LOST.FND/NODE0004"), was.at("/D/B"));
      EXPECT_EQ(files.at("/LOST.FND/NODE0005/C"), was.at("/D/E/C"));
      EXPECT_EQ(files.count("/D/"), 1u);
    } else {
      EXPECT_EQ(files.at("/D/B"), was.at("/D/B"));
      EXPECT_EQ(files.at("/LOST.FND/NODE0006"), was.at("/D/E/C"));
    }
  }
}

TEST(RepairMap, directory_shares_a_files_block_file_keeps_its_size) {
  SmallWithC image;
  image.Put32(image.MapOffset(2, 0), image.MappedBlock(3, 0));
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/D/B"), Tree(SmallWithC().bytes()).at("/D/B"));
  EXPECT_EQ(files.at("/A").size(), 1500u);
}

TEST(RepairMap, block_twice_in_one_file_file_reads_as_it_did) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 2), image.MappedBlock(4, 1));
  Files files = Tree(SmallWithC().bytes());
  std::copy_n(files.at("/D/B").begin() + 1024, 1024, files.at("/D/B").begin() + 2048);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairMap, slot_beyond_the_end_in_the_middle_becomes_zeros) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 3), 5000);
  Files files = Tree(SmallWithC().bytes());
  std::fill(files.at("/D/B").begin() + 3072, files.at("/D/B").begin() + 4096, std::uint8_t{0});
  EXPECT_FILES(Repair(image), files);
}

// The copy of the shared block is appended just where the slots lead.
TEST(RepairMap, slots_beyond_the_end_where_a_copy_is_appended_become_zeros) {
  Small image;
  const Files before = Tree(image.bytes());
  image.Put32(image.MapOffset(4, 0), image.MappedBlock(2, 0));
  for (std::uint32_t i = 1; i < 6; ++i) image.Put32(image.MapOffset(4, i), image.Blocks() + i);
  Files files = before;
  Bytes& contents = files.at("/D/B");
  std::copy_n(before.at("/A").begin(), 1024, contents.begin());
  std::fill(contents.begin() + 1024, contents.begin() + 6 * 1024, std::uint8_t{0});
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairMap, last_slots_beyond_the_end_tail_is_cut_off) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 6), 0);
  image.Put32(image.NodeOffset(4) + 56, 5000);
  image.Put32(image.MapOffset(4, 5), 5001);
  Files files = Tree(SmallWithC().bytes());
  files.at("/D/B").resize(5 * 1024);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairMap, map_blocks_that_no_slot_names_are_found_again) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 800 * 1024);
  const Bytes whole = image.bytes();
  const std::uint64_t indirect = image.NodeOffset(node) + 56;
  const std::uint64_t second = image.BlockOffset(image.Get32(indirect + 4));
  for (const std::uint64_t slot : {indirect, indirect + 4, second + 8}) {
    ImageBuilder broken = image;
    broken.Put32(slot, slot == indirect ? 0 : 5000);
    EXPECT_EQ(testimage::RepairedFromEveryStop(broken.bytes()), whole) << slot;
  }
}

TEST(RepairMap, two_map_blocks_that_cannot_be_told_apart_are_not_guessed) {
  SmallWithC image;
  const std::uint16_t twin = image.AddFile(1, "TWIN", 7 * 1024);
  const Files was = Tree(image.bytes());
  for (const std::uint16_t node : {std::uint16_t{4}, twin}) image.Put32(image.NodeOffset(node) + 56, 0);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/D/B"), Bytes(was.at("/D/B").begin(), was.at("/D/B").begin() + 6 * 1024));
  EXPECT_EQ(files.at("/TWIN"), Bytes(was.at("/TWIN").begin(), was.at("/TWIN").begin() + 6 * 1024));
}

TEST(RepairMap, second_level_block_missing_becomes_zeros) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 800 * 1024);
  Bytes contents = Tree(image.bytes()).at("/F");
  image.Put32(image.MapOffset(node, 6 + 256 + 256), 0);  // not to be known for what it was
  image.Put32(image.BlockOffset(image.Get32(image.NodeOffset(node) + 60)) + 4, 0);
  std::fill(contents.begin() + (6 + 256 + 256) * 1024, contents.begin() + (6 + 256 + 512) * 1024, std::uint8_t{0});
  EXPECT_EQ(Tree(testimage::Repaired(image.bytes())).at("/F"), contents);
}

TEST(RepairMap, size_too_small_grows_over_the_blocks_that_follow_and_what_was_read_is_kept) {
  SmallWithC image;
  image.SetSize(4, 100);
  Files files = Tree(SmallWithC().bytes());
  files["/LOST.FND/"] = {};
  files["/LOST.FND/B"] = Bytes(files.at("/D/B").begin(), files.at("/D/B").begin() + 100);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairMap, size_far_too_large_is_cut_to_the_blocks) {
  for (const std::uint32_t size : {8u * 1024, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    SmallWithC image;
    image.SetSize(4, size);
    EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
  }
}

TEST(RepairMap, blocks_behind_what_a_container_can_hold_leave_a_size_that_it_can_hold) {
  constexpr std::uint32_t kLimit = 0x80000000 / 8192;
  for (const std::uint32_t index : {kLimit - 1, kLimit + 6}) {  // of the last block
    ImageBuilder image(8192, 32);
    const std::uint16_t node = image.AddFile(1, "A", 7 * 8192);
    const std::uint32_t second = image.AppendBlock();
    const std::uint32_t twice = image.AppendBlock();
    image.Put32(image.BlockOffset(second) + 4 * ((index - 6) % 2048), image.MappedBlock(node, 6));
    image.Put32(image.MapOffset(node, 6), 0);
    image.Put32(image.BlockOffset(twice) + 4 * ((index - 6) / 2048 - 1), second);
    image.Put32(image.NodeOffset(node) + 60, twice);
    image.SetSize(node, 0xC0000000);
    EXPECT_EQ(Tree(testimage::Repaired(image.bytes())).at("/A").size(), 6u * 8192) << index;
  }
}

TEST(RepairMap, stray_block_of_another_past_the_size_is_taken_out) {
  SmallWithC image;
  image.Put32(image.MapOffset(2, 2), image.MappedBlock(4, 0));
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairMap, growth_half_made_is_undone) {
  SmallWithC image;
  image.AppendToNode(4, Pattern(1024, 99));
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairMap, shrink_half_made_is_finished) {
  SmallWithC image;
  image.Put32(image.MapOffset(4, 6), 0);
  Files files = Tree(SmallWithC().bytes());
  files.at("/D/B").resize(6 * 1024);
  EXPECT_FILES(Repair(image), files);
}

// What a file was read as is kept before anything changes, in blocks at the end; then free blocks are taken again.
TEST(RepairMap, map_block_that_leads_to_itself_leaves_a_hole_for_a_free_block) {
  struct Image : SmallWithC {
    std::uint16_t file = AddFile(1, "F", 9 * 1024);
  };
  WithChain<Image> image;
  image.Put32(image.MapOffset(image.file, 6), image.Get32(image.NodeOffset(image.file) + 56));
  const Bytes read = Tree(image.bytes()).at("/F");
  Bytes holed = read;
  std::fill(holed.begin() + 6 * 1024, holed.begin() + 7 * 1024, std::uint8_t{0});
  const Bytes repaired = testimage::Repaired(image.bytes());
  EXPECT_EQ(Tree(repaired).at("/LOST.FND/F"), read);
  EXPECT_EQ(Tree(repaired).at("/F"), holed);
  EXPECT_EQ(repaired.size(), image.bytes().size() + 11 * 1024);  // the directory, nine blocks and their block-map block
}

// Files whose block-map block fills its slots with itself: each is read as many blocks and has few.
struct FullOfThemselves : ImageBuilder {
  FullOfThemselves() : ImageBuilder(1024, 32) { AddFile(1, "SOUND", 300 * 1024); }

  std::uint16_t Add(const std::string& name, std::uint32_t blocks) {
    const std::uint16_t node = AddFile(1, name, 7 * 1024);
    for (std::uint32_t i = 6; i < blocks; ++i) Put32(MapOffset(node, i), Get32(NodeOffset(node) + 56));
    SetSize(node, blocks * 1024);
    return node;
  }

  // As many of 262 blocks, which take 263 to copy.
  void AddMany(int count) {
    for (int i = 0; i < count; ++i) Add("F" + std::to_string(i), 262);
  }
};

// Before anything else is repaired copies may take as many blocks as there are with LOST.FND, and 1,024, but for 72
// that are left for names. What does not fit is copied at the end.
TEST(RepairCopies, room_ends_the_last_copy_that_fits_is_made_at_once) {
  for (const std::uint32_t more : {0u, 1u}) {
    FullOfThemselves image;
    image.AddMany(4);
    const std::uint32_t blocks = image.Blocks() + 9;  // with LAST's and LOST.FND's
    image.Add("LAST", blocks + 1024 - 72 - 4 * 263 - 1 + more);
    const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
    EXPECT_TRUE(plan.promise.holds()) << more;
    std::vector<std::size_t> copies;  // places in the plan, behind the mark and /LOST.FND
    for (std::size_t i = 0; i < plan.actions.size(); ++i) {
      if (plan.actions[i].kind == ActionKind::kKeepCopy) copies.push_back(i);
    }
    ASSERT_EQ(copies.size(), 5u);
    EXPECT_EQ(copies[3], 5u);
    EXPECT_EQ(copies[4] == 6, more == 0);
  }
}

TEST(RepairCopies, more_files_than_there_was_room_for_at_first_are_kept_afterwards) {
  FullOfThemselves image;
  image.AddMany(6);
  const Files before = Without(Tree(image.bytes()), {"/", "/SOUND"});
  ASSERT_EQ(before.size(), 6u);
  const Files files = Tree(testimage::Repaired(image.bytes()));
  for (const auto& [path, bytes] : before) EXPECT_EQ(files.at("/LOST.FND" + path), bytes) << path;
}

TEST(RepairCopies, far_more_files_than_there_is_room_for_a_repair_does_not_grow_the_container_without_end) {
  FullOfThemselves image;
  image.AddMany(14);
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  EXPECT_FALSE(plan.promise.holds());
  EXPECT_EQ(plan.promise.lost(), 2u);
}

TEST(RepairCopies, small_file_behind_one_without_room_is_kept_at_once) {
  FullOfThemselves image;
  image.AddMany(14);
  testimage::AddKnotted(&image, "SMALL");
  const std::string steps = testimage::StepsOf(image.bytes());
  EXPECT_NE(steps.find("as /LOST.FND/F4\n"
                       "keeps what \"SMALL\" was read as, as /LOST.FND/SMALL\n"
                       "takes 256 blocks out of /F0 (node 3): there already\n"),
            std::string::npos)
      << steps;
}

TEST(RepairCopies, file_with_two_names_gets_one_copy) {
  FullOfThemselves image;
  image.AddEntry(1, "TOO", image.Add("F", 20));
  const Bytes read = Tree(image.bytes()).at("/F");
  const Files files = Tree(testimage::Repaired(image.bytes()));
  EXPECT_EQ(PathsOf(files), "/ /F /LOST.FND/ /LOST.FND/F /SOUND /TOO ");
  EXPECT_EQ(files.at("/LOST.FND/F"), read);
}

TEST(RepairCopies, slots_beyond_the_end_where_copies_are_appended_become_zeros) {
  FullOfThemselves image;
  image.Add("F", 20);
  const std::uint16_t holed = image.AddFile(1, "HOLED", 6 * 1024);
  const Files before = Tree(image.bytes());
  for (std::uint32_t i = 1; i < 5; ++i) image.Put32(image.MapOffset(holed, i), image.Blocks() + i);
  const Files files = Tree(testimage::Repaired(image.bytes()));
  EXPECT_EQ(files.at("/LOST.FND/F"), before.at("/F"));
  Bytes contents = before.at("/HOLED");
  std::fill(contents.begin() + 1024, contents.begin() + 5 * 1024, std::uint8_t{0});
  EXPECT_EQ(files.at("/HOLED"), contents);
}

TEST(RepairMap, every_slot_the_same_is_bounded) {
  ImageBuilder image(1024, 32);
  const std::uint16_t node = image.AddFile(1, "F", 600 * 1024);
  for (std::uint32_t i = 0; i < 600; ++i) image.Put32(image.MapOffset(node, i), 2);
  testimage::Repaired(image.bytes());
}

// ---- Directories ----------------------------------------------------------------------------------------------------

TEST(RepairDirectory, first_block_lost_is_found_again) {
  SmallWithC image;
  image.Put32(image.MapOffset(3, 0), 5000);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairDirectory, record_overwritten_is_made_anew_from_its_blocks) {
  for (const std::uint32_t entries : {5u, 32u, 33u, 64u, 7 * 32u + 3}) {
    ImageBuilder image(1024, 64);
    const std::uint16_t directory = FillDirectory(&image, entries, Sizes::kNumber);
    const Files was = Tree(image.bytes());
    for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(directory) + i, 0xAA);
    EXPECT_FILES(entries < 64 ? Repair(image) : Tree(testimage::Repaired(image.bytes())), was);
  }
}

TEST(RepairDirectory, records_of_a_full_one_and_another_overwritten_entries_go_to_the_full_one) {
  SmallWithC image;
  const std::uint16_t directory = FillDirectory(&image, 70, Sizes::kNumber);
  const Files files = Tree(image.bytes());
  for (const std::uint16_t node : {directory, std::uint16_t{5}}) {
    for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(node) + i, 0xAA);
  }
  EXPECT_FILES(Tree(testimage::Repaired(image.bytes())), files);
}

TEST(RepairDirectory, record_of_a_file_overwritten_what_a_deleted_directory_left_is_not_taken_for_it) {
  SmallWithC image;
  const std::uint16_t node = image.AddFile(1, "F", 3000);
  const std::uint32_t left = image.AppendBlock();  // of a directory that had this number, in /D
  const std::uint8_t dots[] = {static_cast<std::uint8_t>(node), 0, '.'};
  for (std::uint32_t i = 0; i < 3; ++i) image.Put8(image.BlockOffset(left) + i, dots[i]);
  image.Put16(image.BlockOffset(left) + 32, 3);
  image.PutText(image.BlockOffset(left) + 34, "..");
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.NodeOffset(node) + i, 0xAA);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairDirectory, blocks_that_no_slot_names_are_found_again) {
  ImageBuilder image(1024, 64);
  const std::uint16_t directory = FillDirectory(&image, 7 * 32 + 3, Sizes::kNumber);
  const Bytes whole = image.bytes();
  image.Put32(image.MapOffset(directory, 1), 0);
  image.Put32(image.MapOffset(directory, 3), 5000);
  image.Put32(image.MapOffset(directory, 7), 0);
  EXPECT_FILES(Repair(image), Tree(whole));
}

TEST(RepairDirectory, middle_block_lost_entries_of_the_others_are_kept) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 100, Sizes::kNumber);
  const Files was = Tree(image.bytes());
  image.PutText(image.EntryOffset(directory, 40) + 2, "no name");  // not to be known for what it was
  image.Put32(image.MapOffset(directory, 1), 0);
  const Files files = Repair(image);
  for (std::uint32_t i = 2; i < 100; ++i) {
    const std::string name = "/FULL/F" + std::to_string(i);
    char lost[32];
    std::snprintf(lost, sizeof lost, "/LOST.FND/NODE%04u", directory + i - 1);
    EXPECT_EQ(files.at(i >= 32 && i < 64 ? lost : name), was.at(name)) << i;
  }
}

TEST(RepairDirectory, sizes_wrong_are_put_right) {
  for (const std::uint32_t size : {0u, 1u, 32u, 63u, 65u, 96u, 130u, 160u, 1024u, 5000u, 0xFFFFFFFFu}) {
    SmallWithC image;
    image.SetSize(3, size);
    EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
  }
}

TEST(RepairDirectory, hole_in_the_middle_is_closed_and_the_node_linked) {
  SmallWithC image;
  image.Put16(image.EntryOffset(3, 2), 0);
  Files files = Tree(SmallWithC().bytes());
  files["/LOST.FND/NODE0004"] = files.at("/D/B");
  files["/LOST.FND/"] = {};
  EXPECT_FILES(Repair(image), Without(files, {"/D/B"}));
}

TEST(RepairDirectory, dots_are_written_anew) {
  SmallWithC image;
  for (std::uint32_t i = 0; i < 64; ++i) image.Put8(image.EntryOffset(5, 0) + i, 0xEE);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairDirectory, dots_cleared_are_written_anew) {
  SmallWithC image;
  image.Put16(image.EntryOffset(5, 0), 0);
  image.Put16(image.EntryOffset(5, 1), 0);
  image.Put16(image.EntryOffset(1, 1), 3);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), SmallWithC().bytes());
}

TEST(RepairDirectory, entries_that_name_nothing_are_removed) {
  SmallWithC image;
  image.AddEntry(3, "FREE", 12);
  image.AddEntry(3, "FAR", 60000);
  image.AddEntry(3, "ROOT", 1);
  image.AddFile(3, "LAST", 5);
  Files files = Tree(SmallWithC().bytes());
  files["/D/LAST"] = Pattern(5, 9);
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairDirectory, names_illegal_or_twice_are_replaced) {
  SmallWithC image;
  image.AddFile(3, "low", 1);
  image.AddFile(3, "LOW", 2);
  image.AddFile(3, "A B", 3);
  image.AddFile(3, "", 4);
  image.AddFile(3, "..", 5);
  image.AddFile(3, "123456789012345678901234567890", 6);
  image.AddFile(3, "LOW", 7);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/D/LOW").size(), 1u);  // the one that paths led to
  EXPECT_EQ(files.at("/D/LOW~2").size(), 2u);
  EXPECT_EQ(files.at("/D/A_B").size(), 3u);
  EXPECT_EQ(files.at("/D/NODE0010").size(), 4u);
  EXPECT_EQ(files.at("/D/NODE0011").size(), 5u);
  EXPECT_EQ(files.at("/D/12345678901234567890123456789").size(), 6u);
  EXPECT_EQ(files.at("/D/LOW~3").size(), 7u);
}

TEST(RepairDirectory, file_with_three_names_becomes_three_files) {
  SmallWithC image;
  image.AddEntry(3, "X", 2);
  image.AddEntry(5, "Y", 2);
  Files files = Tree(SmallWithC().bytes());
  files["/D/X"] = files["/D/E/Y"] = files.at("/A");
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairDirectory, file_with_names_in_three_directories_keeps_the_one_in_the_youngest) {
  SmallWithC image;
  image.AddEntry(3, "X", 2);
  image.AddEntry(5, "Y", 2);
  for (const std::uint16_t directory : {std::uint16_t{1}, std::uint16_t{3}, std::uint16_t{5}}) {
    image.AddFile(directory, "LAST", 1);  // none of the three is the last entry
  }
  image.Put8(image.NodeOffset(5) + 8, 0xFF);
  const Bytes repaired = testimage::Repaired(image.bytes());
  EXPECT_NE(repaired[image.EntryOffset(1, 2)], 2);
  EXPECT_NE(repaired[image.EntryOffset(3, 4)], 2);
  EXPECT_EQ(repaired[image.EntryOffset(5, 3)], 2);
}

// Of two in the directory that changed last the first keeps the node.
TEST(RepairDirectory, file_with_two_names_in_the_younger_directory_keeps_the_first_of_them) {
  SmallWithC image;
  for (const char* name : {"X", "Y", "Z"}) image.AddEntry(5, name, 2);
  image.Put16(image.EntryOffset(5, 5), 6);  // the last entry is another's
  image.Put8(image.NodeOffset(5) + 8, 0xFF);
  const Bytes repaired = testimage::Repaired(image.bytes());
  EXPECT_EQ(repaired[image.EntryOffset(5, 3)], 2);
  EXPECT_NE(repaired[image.EntryOffset(5, 4)], 2);
  EXPECT_NE(repaired[image.EntryOffset(1, 2)], 2);
}

// The name that stays is not the one to which a path leads: that one goes.
TEST(RepairDirectory, file_without_room_for_copies_keeps_the_second_of_two_equal_names) {
  ImageBuilder image(1024, 1);
  const std::uint16_t directory = image.AddDirectory(1, "D");
  const std::uint16_t file = image.AddFile(1, "A", 0u);
  for (int i = 0; i < 5; ++i) image.AddFile(1, "F" + std::to_string(i), 1);
  for (int i = 0; i < 2; ++i) image.AddEntry(directory, "X", file);
  const Bytes repaired = testimage::Repaired(image.bytes());
  EXPECT_EQ(Tree(repaired).count("/D/X"), 1u);
  EXPECT_EQ(Tree(repaired).size(), 1 + 1 + 1 + 5u);
}

TEST(RepairDirectory, cycle_is_linked_under_lost_found) {
  SmallWithC image;
  image.AddEntry(5, "D", 3);
  image.Put16(image.EntryOffset(1, 3), 0);
  image.SetSize(1, 3 * 32);
  image.Put16(image.EntryOffset(3, 1), 5);
  const Files was = Tree(SmallWithC().bytes());
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/B"), was.at("/D/B"));
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/E/C"), was.at("/D/E/C"));
}

TEST(RepairDirectory, entry_leads_back_to_an_ancestor_the_dot_dot_decides) {
  SmallWithC image;
  image.AddEntry(5, "UP", 3);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

// ---- Half-made operations -------------------------------------------------------------------------------------------

TEST(RepairHalfMade, created_node_without_a_name_is_given_back) {
  SmallWithC image;
  image.AddNode(0);
  image.AddNode(8);
  const Bytes after = testimage::RepairedFromEveryStop(image.bytes());
  EXPECT_FILES(Tree(after), Tree(SmallWithC().bytes()));
  EXPECT_EQ(Check(MemoryImage(after)).totals.freeNodes, 250u);
}

TEST(RepairHalfMade, created_entry_not_yet_counted_is_finished) {
  SmallWithC image;
  image.AddFile(1, "NEW", 0);
  const Bytes finished = image.bytes();
  image.SetSize(1, image.Size(1) - 32);
  EXPECT_EQ(testimage::RepairedFromEveryStop(image.bytes()), finished);
}

TEST(RepairHalfMade, created_entry_in_a_new_block_behind_six_is_finished) {
  ImageBuilder image(1024, 32);
  const std::uint16_t directory = FillDirectory(&image, 7 * 32 + 1, Sizes::kNumber);
  const Files files = Tree(image.bytes());
  image.SetSize(directory, 7 * 1024);
  EXPECT_FILES(Tree(testimage::Repaired(image.bytes())), files);
}

TEST(RepairHalfMade, move_of_a_file_the_new_name_stays) {
  SmallWithC image;
  image.AddFile(1, "Z", 3);
  image.AddEntry(3, "MOVED", 2);
  Files files = Tree(SmallWithC().bytes());
  files["/D/MOVED"] = files.at("/A");
  files["/Z"] = Pattern(3, 4);
  EXPECT_FILES(Repair(image), files);  // nothing vouches for a move: both names are files
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_FILES(Repair(image), Without(files, {"/A"}));
}

TEST(RepairHalfMade, move_of_a_file_both_names_last_the_younger_directory_has_the_new_one) {
  for (const bool root : {false, true}) {
    ImageBuilder image(1024, 32);
    const std::uint16_t directory = image.AddDirectory(1, "D");
    const std::uint16_t file = image.AddFile(1, "F", 3);
    image.AddEntry(directory, "G", file);
    image.Put32(kStateFlagsOffset, kVolumeDirty);
    image.Put8(image.NodeOffset(root ? 1 : directory) + 14, 46);
    const Files files = Repair(image);
    EXPECT_EQ(files.count("/F"), root ? 1u : 0u);
    EXPECT_EQ(files.count("/D/G"), root ? 0u : 1u);
  }
}

TEST(RepairHalfMade, move_of_a_directory_the_dot_dot_decides) {
  for (const bool done : {false, true}) {
    SmallWithC image;
    image.AddEntry(1, "MOVED", 5);
    if (done) image.Put16(image.EntryOffset(5, 1), 1);
    const Files files = Repair(image);
    EXPECT_EQ(files.count("/MOVED/C"), done ? 1u : 0u);
    EXPECT_EQ(files.count("/D/E/C"), done ? 0u : 1u);
  }
}

TEST(RepairHalfMade, move_not_yet_counted_is_undone) {
  SmallWithC image;
  image.AddEntry(3, "MOVED", 2);
  image.SetSize(3, image.Size(3) - 32);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_FILES(Repair(image), Tree(SmallWithC().bytes()));
}

TEST(RepairHalfMade, move_not_yet_counted_without_amark_is_undone_and_what_paths_read_is_kept) {
  SmallWithC image;
  image.AddEntry(3, "MOVED", 2);
  image.SetSize(3, image.Size(3) - 32);
  Files files = Tree(SmallWithC().bytes());
  files["/LOST.FND/"] = {};
  files["/LOST.FND/MOVED"] = files.at("/A");
  EXPECT_FILES(Repair(image), files);
}

// A removal whose hole and last entry lie in one block: A is removed from the root, FULL moves into its place.
struct Removal : SmallWithC {
  Removal() { AddFile(1, "LAST", 20); }

  // The block as the removal writes it.
  Bytes Written() const {
    Bytes block(bytes().begin() + At(), bytes().begin() + At() + 1024);
    std::copy_n(block.begin() + 4 * 32, 32, block.begin() + 2 * 32);
    block[4 * 32] = block[4 * 32 + 1] = 0;
    return block;
  }
  std::ptrdiff_t At() const { return static_cast<std::ptrdiff_t>(EntryOffset(1, 0)); }
};

TEST(RepairTorn, front_of_aremovals_block_no_file_is_mixed_up) {
  const Removal sound;
  const Files was = Tree(sound.bytes());
  const Bytes written = sound.Written();
  for (std::ptrdiff_t cut = 2 * 32 + 2; cut < 1024; ++cut) {
    Removal image;
    image.Put32(kStateFlagsOffset, kVolumeDirty);
    std::copy_n(written.begin(), cut, image.bytes().begin() + image.At());
    const Files files = Tree(testimage::Repaired(image.bytes()));
    ASSERT_EQ(files.at("/LAST"), was.at("/LAST")) << cut;
    ASSERT_EQ(files.at("/D/B"), was.at("/D/B")) << cut;
    ASSERT_EQ(files.at("/LOST.FND/NODE0002"), was.at("/A")) << cut;
    ASSERT_EQ(files.size(), was.size() + 1) << cut << PathsOf(files);
  }
}

TEST(RepairTorn, rear_of_aremovals_block_removal_is_undone) {
  const Removal sound;
  const Files was = Tree(sound.bytes());
  const Bytes written = sound.Written();
  for (std::ptrdiff_t cut = 3 * 32; cut <= 4 * 32; ++cut) {
    Removal image;
    image.Put32(kStateFlagsOffset, kVolumeDirty);
    std::copy(written.begin() + cut, written.end(), image.bytes().begin() + image.At() + cut);
    ASSERT_EQ(testimage::Repaired(image.bytes()), sound.bytes()) << cut;
  }
}

TEST(RepairTorn, rear_of_aremovals_block_from_within_the_hole_only_the_removed_name_changes) {
  const Removal sound;
  const Files was = Tree(sound.bytes());
  const Bytes written = sound.Written();
  for (std::ptrdiff_t cut = 2 * 32 + 3; cut < 3 * 32; ++cut) {
    Removal image;
    image.Put32(kStateFlagsOffset, kVolumeDirty);
    std::copy(written.begin() + cut, written.end(), image.bytes().begin() + image.At() + cut);
    const Files files = Tree(testimage::Repaired(image.bytes()));
    ASSERT_EQ(files.at("/LAST"), was.at("/LAST")) << cut;
    ASSERT_EQ(files.size(), was.size()) << cut << PathsOf(files);
    ASSERT_EQ(std::count_if(files.begin(), files.end(), [&](const auto& file) { return file.second == was.at("/A"); }),
              1)
        << cut;
  }
}

TEST(RepairTorn, removal_of_the_last_entry_not_yet_counted_is_undone) {
  Removal image;
  const Bytes sound = image.bytes();
  image.Put16(image.EntryOffset(1, 4), 0);
  image.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_EQ(testimage::Repaired(image.bytes()), sound);
}

TEST(RepairHalfMade, removed_last_entry_still_counted_is_finished) {
  SmallWithC image;
  image.Put16(image.EntryOffset(1, 3), 0);
  const Files files = Repair(image);
  EXPECT_EQ(files.count("/A"), 1u);
  EXPECT_EQ(files.count("/LOST.FND/NODE0003/B"), 1u);
}

TEST(RepairHalfMade, last_entry_doubled_goes_from_the_end) {
  for (const std::uint32_t entries : {33u, 35u}) {
    SmallWithC image;
    const std::uint16_t directory = FillDirectory(&image, entries, Sizes::kNumber);
    Files files = Tree(image.bytes());
    for (std::uint32_t i = 0; i < 32; ++i) {
      image.Put8(image.EntryOffset(directory, 7) + i, image.bytes()[image.EntryOffset(directory, entries - 1) + i]);
    }
    files["/LOST.FND/"] = {};
    files["/LOST.FND/NODE0013"] = files.at("/FULL/F7");
    EXPECT_FILES(Repair(image), Without(files, {"/FULL/F7"}));
  }
}

TEST(RepairHalfMade, last_block_listed_as_free_its_entry_is_kept) {
  SmallWithC image;
  const std::uint16_t directory = FillDirectory(&image, 33, Sizes::kNumber);
  const Files files = Tree(image.bytes());
  image.SetChain({{image.MappedBlock(directory, 1)}});
  EXPECT_FILES(Repair(image), files);
}

TEST(RepairHalfMade, last_block_turned_chain_record_is_dropped) {
  for (const bool linked : {false, true}) {
    for (const std::uint32_t entries : {33u, 6 * 32u + 1, 7 * 32u + 1}) {
      ImageBuilder image(1024, 32);
      const std::uint16_t directory = FillDirectory(&image, entries, Sizes::kNumber);
      const Files files = Tree(image.bytes());
      const std::uint32_t block = image.MappedBlock(directory, entries / 32);
      for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(block) + i, 0);
      image.PutText(image.BlockOffset(block), "FBC1");
      if (linked) image.Put32(48, block);
      const Files left = Tree(testimage::RepairedFromEveryStop(image.bytes()));
      const std::string last = "/FULL/F" + std::to_string(entries - 1);
      char lost[32];
      std::snprintf(lost, sizeof lost, "/LOST.FND/NODE%04u", directory + entries - 2);
      EXPECT_EQ(left.count(last), 0u);
      EXPECT_EQ(left.at(lost), files.at(last));
      EXPECT_EQ(left.size(), files.size() + 1);
    }
  }
}

// Until it is settled whose block-map block it is, nothing is taken out of it: the other file reads through it.
TEST(RepairHalfMade, last_block_turned_chain_record_under_another_files_map_block_is_read_as_before) {
  SmallWithC image;
  const std::uint16_t directory = FillDirectory(&image, 6 * 32 + 1, Sizes::kNumber);
  const std::uint16_t last = image.AddFile(5, "LAST", 7 * 1024);
  const std::uint32_t block = image.MappedBlock(directory, 6);
  for (std::uint32_t i = 0; i < 1024; ++i) image.Put8(image.BlockOffset(block) + i, 0);
  image.PutText(image.BlockOffset(block), "FBC1");
  image.Put32(image.NodeOffset(last) + 56, image.Get32(image.NodeOffset(directory) + 56));  // the indirect block
  const Bytes read = Tree(image.bytes()).at("/D/E/LAST");
  EXPECT_EQ(Tree(testimage::Repaired(image.bytes())).at("/D/E/LAST"), read);
}

// ---- Chain and leaks ------------------------------------------------------------------------------------------------

TEST(RepairChain, every_damage_chain_is_built_anew) {
  struct Case {
    std::uint32_t offset, value;
  };
  const WithChain<SmallWithC> sound;
  for (const Case& change :
       {Case{0, 0}, Case{4, 9999}, Case{4, sound.record}, Case{8, 4}, Case{8, 254}, Case{12, 0}, Case{12, 9999},
        Case{12, sound.c}, Case{16, sound.a}, Case{16, sound.record}, Case{12, 2}}) {
    WithChain<SmallWithC> image;
    image.Put32(image.at + change.offset, change.value);
    const Bytes after = testimage::RepairedFromEveryStop(image.bytes());
    EXPECT_EQ(Tree(after), Tree(SmallWithC().bytes()));
    EXPECT_EQ(Check(MemoryImage(after)).totals.freeBlocks, 4u) << change.offset << " " << change.value;
  }
}

TEST(RepairChain, head_is_taken_off_before_records_are_written_and_set_behind_them) {
  WithChain<SmallWithC> image;
  image.Put32(image.at + 12, 0xFFFF);
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  ASSERT_EQ(plan.actions.size(), 3u);  // between the mark and its end
  const std::vector<Write>& writes = plan.actions[1].writes;
  ASSERT_EQ(writes.size(), 3u);
  EXPECT_EQ(writes[0].offset, 48u);
  EXPECT_EQ(writes[0].bytes, Bytes(4));
  EXPECT_EQ(writes[1].bytes.size(), 1024u);
  EXPECT_EQ(writes[2].offset, 48u);
}

TEST(RepairChain, there_is_none_head_is_written_once) {
  SmallWithC image;
  image.AppendBlock();
  const Plan plan = PlanRepair(MemoryImage(image.bytes()), testimage::kRepairTime);
  ASSERT_EQ(plan.actions.size(), 3u);  // mark, chain, mark
  EXPECT_EQ(ToText(plan.actions[1]), "builds the free chain anew: 1 block in 1 record");
  EXPECT_EQ(plan.actions[1].writes.size(), 2u);  // the record, then the head
}

TEST(RepairChain, head_beyond_the_end_is_built_anew) {
  WithChain<SmallWithC> image;
  image.Put32(48, 9999);
  EXPECT_EQ(Check(MemoryImage(testimage::RepairedFromEveryStop(image.bytes()))).totals.freeBlocks, 4u);
}

TEST(RepairChain, many_leaked_blocks_make_full_records_behind_the_head) {
  for (const std::uint32_t blocks : {1u, 2u, 253u, 254u, 255u, 508u, 509u, 700u}) {
    SmallWithC image;
    for (std::uint32_t i = 0; i < blocks; ++i) image.AppendBlock();
    const Report report = Check(MemoryImage(testimage::RepairedFromEveryStop(image.bytes())));
    EXPECT_EQ(report.totals.freeBlocks, blocks);
    EXPECT_EQ(report.model.chain.size(), (blocks + 253) / 254);
    EXPECT_EQ(report.Count(Kind::kChainPartial), 0u);
    EXPECT_TRUE(report.model.chain[0].count == 0 || report.model.blocks[image.Blocks() - blocks + 1].index == 0);
  }
}

TEST(RepairLeaks, node_with_data_is_linked_under_lost_found) {
  SmallWithC image;
  const std::uint16_t node = image.AddFile(1, "GONE", 3000);
  image.Put16(image.EntryOffset(1, 4), 0);
  image.SetSize(1, image.Size(1) - 32);
  Files files = Tree(SmallWithC().bytes());
  ASSERT_EQ(node, 7);
  files["/LOST.FND/"] = {};
  files["/LOST.FND/NODE0007"] = Pattern(3000, 3004);
  std::string texts;
  EXPECT_FILES(Repair(image, &texts), files);
  EXPECT_EQ(texts,
            "marks the container as being updated\n"
            "makes the directory /LOST.FND\n"
            "links node 7, which has 3000 bytes but no name, as /LOST.FND/NODE0007\n"
            "clears the mark of an update in progress\n");
}

TEST(RepairLeaks, lost_found_is_there_is_used_again_and_names_stay_unique) {
  SmallWithC image;
  const std::uint16_t lost = image.AddDirectory(1, "LOST.FND");  // 7
  image.AddFile(lost, "NODE0009", 5);
  const std::uint16_t node = image.AddFile(1, "GONE", 3000);
  ASSERT_EQ(node, 9);
  image.SetSize(1, image.Size(1) - 32);
  image.Put16(image.EntryOffset(1, 5), 0);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/LOST.FND/NODE0009").size(), 5u);
  EXPECT_EQ(files.at("/LOST.FND/NODE0009~2").size(), 3000u);
}

TEST(RepairLeaks, lost_found_is_a_file_another_name_is_taken) {
  SmallWithC image;
  image.AddFile(1, "LOST.FND", 5);
  image.AddFile(1, "GONE", 3000);
  image.SetSize(1, image.Size(1) - 32);
  image.Put16(image.EntryOffset(1, 5), 0);
  const Files files = Repair(image);
  EXPECT_EQ(files.at("/LOST.FND").size(), 5u);
  EXPECT_EQ(files.at("/LOST.FND~2/NODE0008").size(), 3000u);
}

TEST(RepairLeaks, no_node_free_for_lost_found_links_in_the_root) {
  ImageBuilder image(1024, 1);
  for (int i = 0; i < 7; ++i) image.AddFile(1, "F" + std::to_string(i), 100);
  image.Put16(image.EntryOffset(1, 8), 0);
  image.SetSize(1, image.Size(1) - 32);
  EXPECT_EQ(Repair(image).at("/NODE0008").size(), 100u);
}

TEST(RepairLeaks, root_full_and_many_lost_nodes_all_are_named) {
  ImageBuilder image(1024, 64);
  for (int i = 0; i < 30; ++i) image.AddFile(1, "F" + std::to_string(i), 1);
  for (int i = 0; i < 60; ++i) {
    const std::uint16_t node = image.AddNode(0);
    image.AppendToNode(node, Pattern(8, node));
    image.SetSize(node, 8);
  }
  const Files files = Repair(image);
  EXPECT_EQ(files.size(), 1 + 30 + 1 + 60u);
  EXPECT_EQ(files.at("/LOST.FND/NODE0040"), Pattern(8, 40));
}

// ---- Any damage -----------------------------------------------------------------------------------------------------

struct Rich : WithChain<SmallWithC> {
  Rich() {
    FillDirectory(this, 40, Sizes::kNumber);
    AddFile(1, "BIG", 300 * 1024);
    AddDirectory(AddDirectory(1, "X"), "Y");
  }
};

TEST(RepairAnything, random_damage_is_clean_after_one_run) {
  std::uint32_t state = 7;
  const auto next = [&state] { return (state = state * 1664525u + 1013904223u) >> 8; };
  const Rich base;
  std::vector<std::uint64_t> places;  // the header, the table, the bitmap, node slots, directories, the chain record
  for (std::uint64_t i = 0; i < 1024 + 32; ++i) places.push_back(i);
  for (std::uint64_t i = 0; i < 7 * 1024; ++i) places.push_back(base.BlockOffset(1) + i % 2048);
  for (const int node : {1, 3, 5, 7}) {
    for (std::uint32_t i = 0; i < 256; ++i) places.push_back(base.EntryOffset(static_cast<std::uint16_t>(node), 0) + i);
  }
  for (std::uint32_t i = 0; i < 256; ++i) places.push_back(base.at + i % 24);
  int possible = 0;
  for (int round = 0; round < 300 && !testing::Test::HasFailure(); ++round) {
    Bytes bytes = base.bytes();
    const std::uint32_t changes = 1 + next() % 12;
    for (std::uint32_t i = 0; i < changes; ++i) {
      const std::uint64_t at = next() % 8 == 0 ? next() % bytes.size() : places[next() % places.size()];
      bytes[at] = static_cast<std::uint8_t>(next() % 3 == 0 ? next() : next() % 20);
    }
    if (next() % 16 == 0) bytes.resize(1024 + next() % (bytes.size() - 1024));
    const Plan plan = PlanRepair(MemoryImage(bytes), testimage::kRepairTime);
    if (!plan.possible) continue;
    ++possible;
    SCOPED_TRACE(round);
    testimage::Repaired(bytes);
    const std::size_t writes = testimage::WriteCount(plan);
    if (writes > 0) testimage::Repaired(testimage::AfterWrites(plan, bytes, next() % writes));
  }
  EXPECT_GT(possible, 280);
}

}  // namespace
}  // namespace orba::inspect

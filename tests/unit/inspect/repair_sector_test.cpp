// Repair of sectors of directories and of node records that changed places: what is taken for one, and what is not.
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

// /F2 to /F9, nodes 2 to 9, and /FULL, node 10, with F2 and so on in it: as many entries, nodes from 11 on. A sector
// holds 8 records or 16 entries.
struct Sectors : ImageBuilder {
  explicit Sectors(std::uint32_t entries = 70, std::uint32_t blockSize = 1024, std::uint32_t bitmap = 32)
      : ImageBuilder(blockSize, bitmap) {
    for (std::uint32_t i = 2; i < 10; ++i) AddFile(1, "F" + std::to_string(i), i);
    directory = testimage::FillDirectory(this, entries, testimage::Sizes::kNumber);
  }

  auto At(std::uint64_t offset) { return bytes().begin() + static_cast<std::ptrdiff_t>(offset); }
  void Exchange(std::uint16_t node, std::uint32_t entry) {
    std::swap_ranges(At(NodeOffset(node)), At(NodeOffset(node) + 512), At(EntryOffset(directory, entry)));
  }
  void CopyRecords(std::uint16_t node, std::uint32_t entry) {
    std::copy_n(At(NodeOffset(node)), 512, At(EntryOffset(directory, entry)));
  }
  std::uint16_t directory;
};

constexpr const char* kChangedPlaces = "had changed places";

void ExpectAllIsBack(const Sectors& sound, const Sectors& image) {
  std::string texts;
  EXPECT_EQ(Tree(Repaired(image.bytes(), &texts)), Tree(sound.bytes()));
  EXPECT_NE(texts.find(kChangedPlaces), std::string::npos) << texts;
}

void ExpectNoneMoves(const Sectors& image) {
  std::string texts;
  Repaired(image.bytes(), &texts);
  EXPECT_EQ(texts.find(kChangedPlaces), std::string::npos) << texts;
}

TEST(SectorPlaces, with_the_dots_or_the_last_entries_or_behind_the_direct_blocks_goes_back) {
  for (const std::uint32_t entry : {0u, 6 * 32u + 16, 7 * 32u}) {
    const Sectors sound(7 * 32 + 5);
    Sectors image = sound;
    image.Exchange(33, entry);
    ExpectAllIsBack(sound, image);
  }
}

// In the sector beside it a name has an A, which is 65, where a record has its number.
TEST(SectorPlaces, with_the_roots_record_goes_back_and_nothing_goes_into_its_place) {
  for (const char* name : {"F32", "XXA"}) {
    Sectors sound;
    sound.PutText(sound.EntryOffset(sound.directory, 32) + 2, name);
    Sectors image = sound;
    image.Exchange(1, 48);
    ExpectAllIsBack(sound, image);
  }
}

TEST(SectorPlaces, name_beside_it_reads_as_the_number_of_its_first_record_only_one_goes_back) {
  Sectors sound;
  sound.PutText(sound.EntryOffset(sound.directory, 32) + 2, "XXA");
  Sectors image = sound;
  image.Exchange(65, 48);
  ExpectAllIsBack(sound, image);
}

TEST(SectorPlaces, copy_of_others_beside_the_one_with_the_roots_record_the_root_is_whole) {
  Sectors image;
  const auto was = Tree(image.bytes());
  image.CopyRecords(17, 32);
  image.Exchange(1, 48);
  const auto files = Tree(Repaired(image.bytes()));
  for (int i = 2; i < 10; ++i) {
    const std::string path = "/F" + std::to_string(i);
    ASSERT_EQ(files.count(path), 1u) << path;
    EXPECT_EQ(files.at(path), was.at(path));
  }
}

TEST(SectorPlaces, one_of_the_records_is_damaged_none_moves) {
  for (const std::uint32_t record : {0u, 1u, 7u}) {
    Sectors image;
    image.Exchange(25, 48);
    image.Put8(image.EntryOffset(image.directory, 48) + 64 * record, 0);
    ExpectNoneMoves(image);
  }
}

TEST(SectorPlaces, one_of_the_entries_cannot_be_none_moves) {
  for (const bool name : {true, false}) {
    Sectors image;
    image.Exchange(25, 48);
    const std::uint64_t entry = image.NodeOffset(25) + 5 * 32;
    if (name) image.PutText(entry + 2, "A B");
    if (!name) image.Put16(entry, 0xFFFF);
    ExpectNoneMoves(image);
  }
}

// Records of empty files, from 65 on, read as entries where there are as many nodes as "IN" makes.
TEST(SectorPlaces, copy_of_records_that_read_as_entries_none_moves) {
  Sectors image(300, 8192, 2560);
  for (std::uint16_t node = 65; node < 73; ++node) {
    image.SetSize(node, 0);
    image.Put32(image.MapOffset(node, 0), 0);
    image.Put32(image.NodeOffset(node) + 8, 0);
    image.Put32(image.NodeOffset(node) + 12, 0);
  }
  image.CopyRecords(65, 32);
  for (std::uint16_t node = 81; node < 89; ++node) image.Put8(image.NodeOffset(node), 0);  // a sector is lost, it seems
  ExpectNoneMoves(image);
}

// Records 29 to 36 lie in two blocks, and behind the first of these a file's zeros.
TEST(SectorPlaces, records_that_do_not_begin_a_sector_none_moves_and_no_files_block_is_written_over) {
  Sectors image(8);
  const std::uint16_t file = image.AddFile(1, "ZEROS", Bytes(1024));
  ASSERT_EQ(file, 17);  // its node block is the one before
  ASSERT_EQ(image.BlockOffset(image.MappedBlock(file, 0)), image.NodeOffset(17) + 1024);
  for (int i = 0; i < 40; ++i) image.AddFile(image.directory, "G" + std::to_string(i), 5);
  const std::uint64_t sector = image.EntryOffset(image.directory, 32);
  for (std::uint16_t i = 0; i < 8; ++i) {
    const auto node = static_cast<std::uint16_t>(29 + i);
    std::copy_n(image.At(image.NodeOffset(node)), 64, image.At(sector + 64 * i));
    std::fill_n(image.At(image.NodeOffset(node)), 64, std::uint8_t{0});
  }
  const auto files = Tree(Repaired(image.bytes()));
  ASSERT_EQ(files.count("/ZEROS"), 1u);
  EXPECT_EQ(files.at("/ZEROS"), Bytes(1024));
}

TEST(SectorPlaces, block_listed_as_free_by_mistake_is_not_taken_for_the_directory) {
  const Sectors sound;
  Sectors image = sound;
  image.SetChain({{image.MappedBlock(27, 0)}});
  image.Exchange(25, 48);
  ExpectAllIsBack(sound, image);
}

TEST(SectorPlaces, once_all_is_back_free_blocks_are_taken_again) {
  testimage::WithChain<Sectors> image;
  const std::uint16_t node = image.AddNode(0);  // what has no name goes to a new /LOST.FND
  image.AppendToNode(node, Bytes(5, 1));
  image.SetSize(node, 5);
  image.Exchange(25, 48);
  EXPECT_EQ(Repaired(image.bytes()).size(), image.bytes().size() + 1024);  // the directory's block alone
}

// A record before that of the directory: of a node that is not in use.
TEST(SectorPlaces, free_record_refers_to_the_block_too_all_goes_back) {
  const Sectors sound;
  Sectors image = sound;
  image.SetFree(5, true);
  image.Put16(image.NodeOffset(5) + 6, 8);
  image.SetSize(5, 0);
  image.Put32(image.MapOffset(5, 0), image.MappedBlock(image.directory, 1));
  image.Exchange(25, 48);
  const auto files = Tree(Repaired(image.bytes()));
  for (const auto& [path, contents] : Tree(sound.bytes())) {
    if (path == "/F5") continue;
    ASSERT_EQ(files.count(path), 1u) << path;
    EXPECT_EQ(files.at(path), contents);
  }
}

}  // namespace
}  // namespace orba::inspect

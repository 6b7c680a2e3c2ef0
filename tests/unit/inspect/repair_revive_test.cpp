// Repair of nodes that the bitmap calls free: which records are taken for those of files and directories in use, and
// which for what a removed one left.
#include <gtest/gtest.h>

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

// /OTHER (node 2) of 8 blocks. The last name in the root is taken away together with the bit of its node.
struct Revivable : ImageBuilder {
  Revivable() : ImageBuilder(1024, 32) { AddFile(1, "OTHER", 8 * 1024); }

  void Remove(std::uint16_t node) {
    files = Tree(bytes());
    SetSize(1, Size(1) - 32);
    Put16(EntryOffset(1, Size(1) / 32), 0);
    SetFree(node, true);
  }
  std::map<std::string, Bytes> files;  // before
};

// The container repaired: only /OTHER is left.
void ExpectGone(const Revivable& image) {
  const std::map<std::string, Bytes> files = {{"/", {}}, {"/OTHER", image.files.at("/OTHER")}};
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

// It comes back without its name.
void ExpectRevived(const Revivable& image, const std::string& path) {
  std::map<std::string, Bytes> files = {{"/", {}}, {"/LOST.FND/", {}}, {"/OTHER", image.files.at("/OTHER")}};
  files["/LOST.FND/NODE0003"] = image.files.at(path);
  EXPECT_EQ(Tree(Repaired(image.bytes())), files);
}

TEST(ReviveNodes, size_needs_just_what_a_level_of_the_map_holds_it_comes_back) {
  for (const std::uint32_t blocks : {6u, 7u, 262u, 263u}) {
    Revivable image;
    image.Remove(image.AddFile(1, "F", blocks * 1024));
    ExpectRevived(image, "/F");
  }
}

TEST(ReviveNodes, slot_that_its_size_needs_is_empty_or_one_behind_is_not_it_stays_free) {
  struct Case {
    std::uint32_t blocks, slot;
    bool filled;
  };
  for (const Case& damage : {Case{3, 0, false}, Case{3, 2, false}, Case{3, 3, true}, Case{3, 5, true},
                             Case{7, 6, false}, Case{263, 7, false}}) {
    Revivable image;
    const std::uint16_t file = image.AddFile(1, "F", damage.blocks * 1024);
    image.Remove(file);
    image.Put32(image.NodeOffset(file) + 32 + 4 * damage.slot, damage.filled ? image.AppendBlock() : 0);
    ExpectGone(image);
  }
}

TEST(ReviveNodes, one_of_its_blocks_is_anothers_it_stays_free) {
  for (const std::uint32_t slot : {1u, 6u, 7u}) {
    Revivable image;
    const std::uint16_t file = image.AddFile(1, "F", 263 * 1024);
    image.Remove(file);
    image.Put32(image.NodeOffset(file) + 32 + 4 * slot,
                image.Get32(image.NodeOffset(2) + 32 + 4 * (slot == 7 ? 6 : slot)));
    ExpectGone(image);
  }
}

// X and Y, which have lost their names, have a block in common; the chain lists the one of Z, which has its name.
TEST(ReviveNodes, two_records_with_one_block_the_copy_is_not_written_over_what_the_chain_lists_by_mistake) {
  Revivable image;
  const std::uint16_t z = image.AddFile(1, "Z", 30);
  const std::uint16_t x = image.AddFile(1, "X", 100);
  const std::uint16_t y = image.AddFile(1, "Y", 200);
  image.Put32(image.MapOffset(y, 0), image.MappedBlock(x, 0));
  auto files = Tree(image.bytes());
  image.Remove(y);
  image.Remove(x);
  image.SetFree(z, true);
  image.SetChain({{image.MappedBlock(z, 0)}});
  files["/LOST.FND/"] = {};
  files["/LOST.FND/NODE0004"] = files.at("/X");
  files["/LOST.FND/NODE0005"] = files.at("/Y");
  files.erase("/X");
  files.erase("/Y");
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), files);
}

TEST(ReviveNodes, two_that_have_names_with_one_block_the_copy_takes_a_free_one) {
  Revivable image;
  const std::uint32_t free = image.AppendBlock();
  const std::uint16_t x = image.AddFile(1, "X", 100);
  const std::uint16_t y = image.AddFile(1, "Y", 200);
  image.SetChain({{free, image.MappedBlock(y, 0)}});
  image.Put32(image.MapOffset(y, 0), image.MappedBlock(x, 0));
  const auto files = Tree(image.bytes());
  for (const std::uint16_t node : {x, y}) image.SetFree(node, true);
  const Bytes repaired = RepairedFromEveryStop(image.bytes());
  EXPECT_EQ(Tree(repaired), files);
  EXPECT_EQ(repaired.size(), image.bytes().size());
}

TEST(ReviveNodes, block_of_its_own_twice_it_stays_free) {
  Revivable image;
  const std::uint16_t file = image.AddFile(1, "F", 3 * 1024);
  image.Remove(file);
  image.Put32(image.MapOffset(file, 2), image.MappedBlock(file, 0));
  ExpectGone(image);
}

TEST(ReviveNodes, directory_with_one_entry_comes_back) {
  Revivable image;
  const std::uint16_t directory = image.AddDirectory(1, "D");
  image.AddFile(directory, "IN", 10);
  image.Remove(directory);
  const auto files = Tree(RepairedFromEveryStop(image.bytes()));
  EXPECT_EQ(files.at("/LOST.FND/NODE0003/IN"), image.files.at("/D/IN"));
}

TEST(ReviveNodes, dot_dot_overwritten_with_a_name_is_no_name) {
  Revivable image;
  const std::uint16_t directory = image.AddDirectory(1, "D");
  const std::uint16_t file = image.AddFile(1, "F", 10);
  image.Remove(file);
  image.files.erase("/F");
  image.Put32(image.MapOffset(file, 0), image.MappedBlock(2, 0));
  image.Put16(image.EntryOffset(directory, 1), file);
  image.PutText(image.EntryOffset(directory, 1) + 2, "UP");
  const Bytes& other = image.files.at("/OTHER");
  image.files["/LOST.FND/"] = {};
  image.files["/LOST.FND/UP"] = Bytes(other.begin(), other.begin() + 10);  // what it was read as
  EXPECT_EQ(Tree(RepairedFromEveryStop(image.bytes())), image.files);
}

}  // namespace
}  // namespace orba::inspect

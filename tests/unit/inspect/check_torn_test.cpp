// Updates of which a part was written: findings of their own on a marked container, damage on any other.
#include <gtest/gtest.h>

#include <string>

#include "inspect/check/check.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::ImageBuilder;

std::string KindsOf(const ImageBuilder& image, std::uint32_t flags) {
  ImageBuilder marked = image;
  marked.Put32(kStateFlagsOffset, flags);
  const Report report = Check(MemoryImage(marked.bytes()));
  std::string kinds;
  for (const Finding& finding : report.findings) {
    if (SeverityOf(finding.kind) > Severity::kLeak)
      kinds += (kinds.empty() ? "" : " ") + std::string(Name(finding.kind));
  }
  return kinds;
}

std::string Marked(const ImageBuilder& image) { return KindsOf(image, kVolumeDirty); }
std::string Unmarked(const ImageBuilder& image) { return KindsOf(image, 0); }
std::string MarkedByRepair(const ImageBuilder& image) { return KindsOf(image, kVolumeDirty | kRepairMark); }

// node 2 /A, 3 /D, 4 /D/B, 5 /D/C; blocks in a free chain of one record.
struct Free : ImageBuilder {
  explicit Free(std::uint32_t blocks = 20) : ImageBuilder(1024, 32) {
    AddFile(1, "A", 100);
    AddDirectory(1, "D");
    AddFile(3, "B", 200);
    AddFile(3, "C", 300);
    std::vector<std::uint32_t> free;
    for (std::uint32_t i = 0; i < blocks; ++i) free.push_back(AppendBlock());
    record = BlockOffset(SetChain({free})[0]);
  }
  std::uint64_t Entry(std::uint32_t k) const { return record + 12 + 4 * (k - 1); }  // counted from 1
  std::uint32_t Count() const { return Get32(record + 8); }
  std::uint64_t record;
};

TEST(TornChain, last_entry_counted_and_zero_is_an_update_on_a_marked_container) {
  Free image;
  image.Put32(image.Entry(20), 0);
  EXPECT_EQ(Marked(image), "chain-torn");
  ImageBuilder marked = image;
  marked.Put32(kStateFlagsOffset, kVolumeDirty);
  EXPECT_EQ(Check(MemoryImage(marked.bytes())).findings[0].offset, image.record + 8);
  EXPECT_EQ(MarkedByRepair(image), "chain-torn");
  EXPECT_EQ(Unmarked(image), "chain-zero-entry");
}

TEST(TornChain, zero_in_the_middle_is_damage) {
  Free image;
  image.Put32(image.Entry(5), 0);
  EXPECT_EQ(Marked(image), "chain-zero-entry");
}

TEST(TornChain, as_many_faults_as_a_path_has_entries_are_an_update_one_more_is_damage) {
  Free image;  // five levels
  for (const std::uint32_t k : {12u, 14u, 16u, 18u, 20u}) image.Put32(image.Entry(k), image.Get32(image.Entry(k - 1)));
  EXPECT_EQ(Marked(image), "chain-torn");
  image.Put32(image.Entry(10), image.Get32(image.Entry(9)));
  EXPECT_NE(Marked(image), "chain-torn");
}

TEST(TornChain, entry_out_of_order_is_an_update) {
  Free image;
  const std::uint32_t first = image.Get32(image.Entry(1));
  image.Put32(image.Entry(1), image.Get32(image.Entry(2)));
  image.Put32(image.Entry(2), first);
  EXPECT_EQ(Marked(image), "chain-torn");
  EXPECT_EQ(Unmarked(image), "chain-heap-order");
}

TEST(TornChain, entry_outside_is_damage) {
  Free image;
  image.Put32(image.Entry(20), 5000);
  EXPECT_EQ(Marked(image), "chain-entry-outside");
}

TEST(TornChain, sound_record_is_none) { EXPECT_EQ(Marked(Free()), ""); }

TEST(TornHeader, head_outside_or_without_a_record_is_an_update_on_a_marked_container) {
  Free image;
  image.Put32(48, 5000);
  EXPECT_EQ(Marked(image), "header-torn");
  EXPECT_EQ(Unmarked(image), "chain-outside");
  image.Put32(48, image.Blocks() - 1);
  EXPECT_EQ(Marked(image), "header-torn");
  EXPECT_EQ(Unmarked(image), "chain-signature");
}

TEST(TornHeader, link_of_a_record_is_damage) {
  Free image;
  image.Put32(image.record + 4, 5000);
  EXPECT_EQ(Marked(image), "chain-outside");
  image.Put32(image.record + 4, image.Blocks() - 1);
  EXPECT_EQ(Marked(image), "chain-signature");
}

TEST(TornTable, entry_for_unused_nodes_that_leads_to_none_is_an_update_on_a_marked_container) {
  Free image;
  image.Put32(ImageBuilder::TableOffset(3), 5000);
  EXPECT_EQ(Marked(image), "table-torn");
  EXPECT_EQ(Unmarked(image), "table-outside");
  image.Put32(ImageBuilder::TableOffset(3), image.MappedBlock(2, 0));
  EXPECT_EQ(Marked(image), "table-torn");
  EXPECT_EQ(Unmarked(image), "node-block-foreign block-shared");
}

TEST(TornTable, two_such_entries_are_damage) {
  Free image;
  image.Put32(ImageBuilder::TableOffset(3), 5000);
  image.Put32(ImageBuilder::TableOffset(4), 5001);
  EXPECT_EQ(Marked(image), "table-outside table-outside");
}

TEST(TornTable, entry_of_nodes_in_use_is_damage) {
  Free image;
  image.Put32(ImageBuilder::TableOffset(3), 5000);
  image.SetFree(64, false);
  EXPECT_EQ(Marked(image), "table-outside node-without-block");
}

TEST(TornTable, entry_to_a_block_with_any_node_record_is_no_update) {
  Free image;
  const std::uint64_t block = image.BlockOffset(image.AppendBlock());
  image.Put32(ImageBuilder::TableOffset(3), image.Blocks());
  EXPECT_EQ(Marked(image), "table-torn");
  for (const std::uint32_t slot : {0u, 15u}) {
    ImageBuilder one = image;
    one.Put32(block + 64 * slot, kNodeSignature);
    EXPECT_EQ(Marked(one).find("table-torn"), std::string::npos) << slot;
  }
}

TEST(TornTable, entry_of_nodes_of_which_the_first_is_in_use_is_damage) {
  Free image;
  image.Put32(ImageBuilder::TableOffset(3), 5000);
  image.SetFree(49, false);
  EXPECT_EQ(Marked(image), "table-outside node-without-block");
}

TEST(TornTable, entry_that_the_volume_cannot_have_is_damage) {
  for (const std::uint32_t index : {16u, 17u}) {
    Free image;
    image.Put32(ImageBuilder::TableOffset(index), 5000);
    EXPECT_EQ(Marked(image), "table-outside") << index;
  }
}

TEST(TornBitmap, only_entry_to_a_free_node_is_an_update_on_a_marked_container) {
  Free image;
  image.SetFree(4, true);
  EXPECT_EQ(Marked(image), "bitmap-torn");
  EXPECT_EQ(MarkedByRepair(image), "entry-to-free");
  EXPECT_EQ(Unmarked(image), "entry-to-free");
  image.SetFree(2, true);
  EXPECT_EQ(Marked(image), "entry-to-free entry-to-free");
}

TEST(TornDirectory, two_names_in_a_block_before_its_last_are_damage) {
  Free image;
  image.AddFile(3, "E", 0);
  image.Put16(image.EntryOffset(3, 2), 5);  // B leads to C's node
  EXPECT_EQ(Marked(image), "many-names");
}

TEST(TornDirectory, last_entry_in_a_hole_of_its_block_is_an_update_on_a_marked_container) {
  Free image;
  const std::uint64_t hole = image.EntryOffset(3, 2);
  const std::uint64_t last = image.EntryOffset(3, 3);
  for (std::uint64_t i = 0; i < 32; ++i) image.Put8(hole + i, image.bytes()[last + i]);
  EXPECT_EQ(Marked(image), "dir-torn");
  EXPECT_EQ(Unmarked(image), "name-duplicate many-names");
}

TEST(TornDirectory, number_of_the_last_entry_in_a_hole_of_its_block_is_an_update_on_a_marked_container) {
  Free image;
  image.Put16(image.EntryOffset(3, 2), 5);
  EXPECT_EQ(Marked(image), "dir-torn");
  EXPECT_EQ(Unmarked(image), "many-names");
}

TEST(TornDirectory, number_without_a_name_past_the_size_is_an_update_on_a_marked_container) {
  Free image;
  const std::uint16_t node = image.AddNode(0);
  image.Put16(image.EntryOffset(3, 4), node);
  EXPECT_EQ(Marked(image), "dir-torn");
  EXPECT_EQ(Unmarked(image), "dir-beyond-size");
}

TEST(TornMove, two_names_are_an_update_on_a_marked_container_alone) {
  Free image;
  image.AddEntry(3, "MOVED", 2);
  EXPECT_EQ(Marked(image), "two-names");
  EXPECT_EQ(MarkedByRepair(image), "many-names");
  EXPECT_EQ(Unmarked(image), "many-names");
  image.AddEntry(1, "TOO", 4);
  EXPECT_EQ(Marked(image), "many-names many-names");
}

TEST(LeakedBlock, words_depend_on_damage_and_mark) {
  Free image;
  image.AppendBlock();
  const auto sentence = [&](std::uint32_t flags) {
    image.Put32(kStateFlagsOffset, flags);
    const Report report = Check(MemoryImage(image.bytes()));
    return report.findings.empty() ? "" : Sentence(report.findings.back());
  };
  const std::string block = "block " + std::to_string(image.Blocks()) + " is neither in use nor in the free chain; ";
  EXPECT_EQ(sentence(0), block +
                             "ordinary use can leave this behind: map blocks of a file that was shortened before it "
                             "was deleted, or of a directory that was large once");
  EXPECT_EQ(sentence(kVolumeDirty), block + "the interrupted update can have left it behind");
  image.Put8(image.NodeOffset(2), 0);
  EXPECT_EQ(sentence(kVolumeDirty), block + "the damage may hide what refers to it");
}

}  // namespace
}  // namespace orba::inspect

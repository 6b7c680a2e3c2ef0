#include "inspect/view/report.h"

#include <gtest/gtest.h>

#include <string>

#include "inspect/container/image.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::ImageBuilder;

Report ReportOf(const ImageBuilder& image) { return Check(MemoryImage(image.bytes())); }

std::string LastLine(const std::string& text) {
  const std::size_t start = text.rfind('\n', text.size() - 2);
  return text.substr(start + 1, text.size() - start - 2);
}

std::string Verdict(const ImageBuilder& image) { return LastLine(ToText(ReportOf(image))); }

// blocks: 1 nodes, 2 root, 3 A, 4 leaked, 5 free, 6 the chain
struct OneFile : ImageBuilder {
  OneFile() : ImageBuilder(1024, 32) { AddFile(1, "A", 900); }
};

TEST(ReportText, verdict_is_the_worst_severity) {
  OneFile image;
  EXPECT_EQ(Verdict(image), "clean: damage 0, interrupted 0, leak 0, note 0");
  image.Put32(44, 0x10A);
  EXPECT_EQ(Verdict(image), "clean: damage 0, interrupted 0, leak 0, note 1");
  image.AppendBlock();
  EXPECT_EQ(Verdict(image), "leaks: damage 0, interrupted 0, leak 1, note 1");
  image.SetSize(1, 128);
  EXPECT_EQ(Verdict(image), "interrupted: damage 0, interrupted 1, leak 1, note 1");
  image.Put32(52, kVolumeDirty);
  EXPECT_EQ(Verdict(image), "interrupted, marked as being updated: damage 0, interrupted 1, leak 1, note 1");
  image.Put16(image.NodeOffset(2) + 4, 9);
  EXPECT_EQ(Verdict(image), "damaged, marked as being updated: damage 1, interrupted 1, leak 1, note 1");
}

TEST(ReportText, summary_counts_files_nodes_and_blocks) {
  OneFile image;
  image.AppendBlock();
  image.SetChain({{image.AppendBlock()}});
  image.AddDirectory(1, "D");
  EXPECT_EQ(ToText(ReportOf(image)),
            "leak        block-leaked at block 4, byte 4128: block 4 is neither in use nor in the free chain; ordinary "
            "use can "
            "leave this behind: map blocks of a file that was shortened before it was deleted, or of a directory that "
            "was large once\n"
            "1 file with 900 bytes, 2 directories, 253 free nodes; 7 blocks of 1024 bytes, 2 free, 1 leaked\n"
            "contents carry no checksums: a file can be damaged without a finding\n"
            "leaks: damage 0, interrupted 0, leak 1, note 0\n");
}

TEST(ReportText, place_of_a_node_without_a_name_is_its_number) {
  OneFile image;
  const std::uint16_t node = image.AddNode(0);
  EXPECT_EQ(ToText(ReportOf(image)).substr(0, 40), "leak        node-leaked at (node 3), byt");
  image.Put16(image.NodeOffset(node) + 6, 0x4000);
  EXPECT_EQ(ToText(ReportOf(image)).substr(0, 48),
            "damage      node-attributes at (node 3), byte " + std::to_string(image.NodeOffset(node) + 6).substr(0, 2));
}

TEST(ReportText, layout_unknown_has_no_summary) {
  EXPECT_EQ(
      ToText(Check(MemoryImage(testimage::Bytes(3000)))),
      "damage      header-signature at byte 0: the container does not begin with \"ORBA\"; a mount refuses this\n"
      "damage      header-version at byte 4: the version is not \"1.0 \"; a mount refuses this\n"
      "damage      layout-unknown at byte 8: block size and bitmap size are contradictory and no root directory was "
      "found; nothing further was read\n"
      "damaged: damage 3, interrupted 0, leak 0, note 0\n");
}

TEST(ReportText, largest_container_has_room_for_a_number_of_blocks) {
  OneFile image;
  image.bytes().resize(4095);
  EXPECT_EQ(ReportOf(image).totals.appendableBlocks, 2097148u);  // up to 2147483647 bytes
  image.bytes().push_back(0);
  EXPECT_EQ(ReportOf(image).totals.appendableBlocks, 2097147u);
}

// A directory with more bad names than findings are kept.
struct Many : ImageBuilder {
  Many() : ImageBuilder(8192, 32) {
    const std::uint16_t directory = AddDirectory(1, "D");
    std::vector<std::uint8_t> block(8192);
    for (std::uint32_t at = 0; at < block.size(); at += 32) {
      block[at] = 200;
      block[at + 2] = ' ';
    }
    block[34] = 'A';  // or the block would be something else than a directory's
    for (std::uint32_t blocks = 1; blocks <= 21; ++blocks) {
      SetSize(directory, blocks * 8192);
      AppendToNode(directory, block);
    }
    SetSize(directory, 22 * 8192);
  }
};

TEST(ReportText, findings_that_are_not_kept_are_counted) {
  const Report report = ReportOf(Many());
  ASSERT_EQ(report.findings.size(), kMaxFindings);
  std::uint64_t all = 0;
  for (const KindInfo& info : AllKinds()) all += report.Count(info.kind);
  ASSERT_GT(all, kMaxFindings);
  const std::string text = ToText(report);
  EXPECT_NE(text.find("\nand " + std::to_string(all - kMaxFindings) + " more\n"), std::string::npos);
  EXPECT_NE(ToJson(report).find("\"unlisted\":" + std::to_string(all - kMaxFindings) + ","), std::string::npos);
}

TEST(ReportJson, clean_container_has_every_key) {
  OneFile image;
  image.SetChain({{image.AppendBlock()}});
  EXPECT_EQ(
      ToJson(ReportOf(image)),
      "{\"verdict\":\"clean\",\"marked\":false,\"readable\":true,\"damage\":0,\"interrupted\":0,\"leak\":0,\"note\":0,"
      "\"blockSize\":1024,\"bitmapBytes\":32,\"blocks\":5,\"files\":1,\"fileBytes\":900,\"directories\":1,"
      "\"freeNodes\":254,\"freeBlocks\":2,\"leakedBlocks\":0,\"appendableBlocks\":2097145,\"unlisted\":0,"
      "\"findings\":[]}");
}

TEST(ReportJson, findings_have_what_is_known_of_their_place) {
  OneFile image;
  image.Put32(52, kVolumeDirty);
  image.Put16(image.EntryOffset(1, 2), 300);
  image.AppendBlock();
  const std::string json = ToJson(ReportOf(image));
  EXPECT_EQ(json.substr(json.find("\"findings\"")),
            "\"findings\":[{\"severity\":\"damage\",\"kind\":\"entry-outside\",\"rules\":[\"C7\"],\"node\":1,"
            "\"path\":\"/\",\"block\":2,\"offset\":2144,"
            "\"count\":1,\"text\":\"\\\"A\\\" refers to node 300, a number that the volume does not have\"},"
            "{\"severity\":\"leak\",\"kind\":\"node-leaked\",\"rules\":[],\"node\":2,\"path\":\"(node "
            "2)\",\"offset\":1120,\"count\":1,"
            "\"text\":\"the node is in use, with 900 bytes, but has no name; the damage may hide it\"},"
            "{\"severity\":\"leak\",\"kind\":\"block-leaked\",\"rules\":[],\"block\":4,\"offset\":4128,\"count\":1,"
            "\"text\":\"block 4 is "
            "neither in use nor in the free chain; the damage may hide what refers to it\"}]}");
  EXPECT_EQ(json.substr(0, 61), "{\"verdict\":\"damaged\",\"marked\":true,\"readable\":true,\"damage\":1");
}

}  // namespace
}  // namespace orba::inspect

#include "inspect/check/finding.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>

namespace orba::inspect {
namespace {

std::string SentenceOf(Kind kind, const Place& place, const Facts& facts = {}) {
  Finding finding;
  static_cast<Place&>(finding) = place;
  finding.kind = kind;
  finding.facts = facts;
  return Sentence(finding);
}

TEST(Finding, names_are_unique) {
  std::set<std::string> names;
  for (const KindInfo& info : AllKinds()) EXPECT_TRUE(names.insert(info.name).second) << info.name;
  EXPECT_EQ(names.size(), kKinds);
}

TEST(Finding, kind_has_the_row_with_its_name) {
  EXPECT_STREQ(Name(Kind::kUnreadable), "unreadable");
  EXPECT_STREQ(Name(Kind::kBlockShared), "block-shared");
  EXPECT_STREQ(Name(Kind::kNodeLeaked), "node-leaked");
  EXPECT_EQ(SeverityOf(Kind::kUnreadable), Severity::kDamage);
  EXPECT_EQ(SeverityOf(Kind::kTwoNames), Severity::kInterrupted);
  EXPECT_EQ(SeverityOf(Kind::kNodeLeaked), Severity::kLeak);
  EXPECT_EQ(SeverityOf(Kind::kNodeTime), Severity::kNote);
}

TEST(Finding, severity_has_its_word) {
  EXPECT_STREQ(Name(Severity::kNote), "note");
  EXPECT_STREQ(Name(Severity::kLeak), "leak");
  EXPECT_STREQ(Name(Severity::kInterrupted), "interrupted");
  EXPECT_STREQ(Name(Severity::kDamage), "damage");
}

// Damage breaks a rule; what breaks one of the checker's is damage.
TEST(Finding, damage_breaks_a_rule) {
  for (const KindInfo& info : AllKinds()) {
    const bool breaks = std::string(info.rules).find('C') != std::string::npos;
    EXPECT_EQ(breaks, info.severity == Severity::kDamage && info.kind != Kind::kUnreadable) << info.name;
  }
}

TEST(Finding, every_sentence_is_filled_in) {
  for (const KindInfo& info : AllKinds()) {
    for (std::uint64_t choice = 0; choice < 4; ++choice) {
      for (std::uint32_t count = 1; count < 3; ++count) {
        const std::string text = SentenceOf(info.kind, {7, 9, 4, count}, {{choice, 5, 6}, "N"});
        EXPECT_GT(text.size(), 10u) << info.name;
        EXPECT_EQ(text.find_first_of("{}|#?"), std::string::npos) << text;
      }
    }
  }
}

TEST(Finding, sentence_takes_place_and_numbers) {
  EXPECT_EQ(SentenceOf(Kind::kTableOutside, {0, 70, 140}, {{3}}),
            "table entry 3 refers to block 70, which lies beyond the container's end");
  EXPECT_EQ(SentenceOf(Kind::kNodeBlockForeign, {0, 8, 132}, {{1, 17, 32}}),
            "table entry 1 refers to block 8, which holds no nodes; nodes 17 to 32 are lost");
  EXPECT_EQ(SentenceOf(Kind::kHeaderField, {0, 0, 40}, {{5, 1024, false}}),
            "the block size is 5 and should be 1024; a mount refuses this");
  EXPECT_EQ(SentenceOf(Kind::kHeaderField, {0, 0, 24}, {{5, 1024, true}}),
            "the node bitmap's size is 5 and should be 1024; a mount believes it and finds no root");
}

TEST(Finding, sentence_counts) {
  EXPECT_EQ(SentenceOf(Kind::kDirHole, {2, 3, 4, 1}, {{7}}),
            "1 entry inside the size without a node, from entry 7 on; a reader takes that for the directory's end");
  EXPECT_EQ(SentenceOf(Kind::kDirHole, {2, 3, 4, 2}, {{7}}),
            "2 entries inside the size without a node, from entry 7 on; a reader takes that for the directory's end");
  EXPECT_EQ(SentenceOf(Kind::kNodeSize, {2}, {{4294967295u}}),
            "a size of 4294967295 bytes is more than a block map can hold");
}

TEST(Finding, sentence_of_a_row_names_its_ends) {
  EXPECT_EQ(SentenceOf(Kind::kNodeWithoutBlock, {5, 0, 1024, 1}, {{false}}),
            "the bitmap says that the node is in use, but no node block holds its record");
  EXPECT_EQ(SentenceOf(Kind::kNodeWithoutBlock, {5, 0, 1024, 4}, {{true}}),
            "the bitmap says that nodes 5 to 8 are in use, but the node-block table has no room for them");
  EXPECT_EQ(SentenceOf(Kind::kMapOutside, {2, 99, 5, 1}, {{false, 3, 3}}),
            "logical block 3 is block 99, which lies beyond the container's end");
  EXPECT_EQ(SentenceOf(Kind::kMapOutside, {2, 99, 5, 2}, {{false, 3, 4}}),
            "logical blocks 3 to 4 are blocks beyond the container's end, the first block 99");
  EXPECT_EQ(SentenceOf(Kind::kMapOutside, {2, 99, 5}, {{true}}),
            "the map refers to block 99 as block-map block, which lies beyond the container's end");
}

TEST(Finding, sentence_of_a_leak_says_where_it_may_come_from) {
  EXPECT_EQ(
      SentenceOf(Kind::kBlockLeaked, {0, 5, 9, 3}, {{false}}),
      "blocks 5 to 7 are neither in use nor in the free chain; ordinary use can leave this behind: map blocks of a "
      "file that was shortened before it was deleted, or of a directory that was large once");
  EXPECT_EQ(SentenceOf(Kind::kBlockLeaked, {0, 5, 9, 1}, {{true}}),
            "block 5 is neither in use nor in the free chain; the damage may hide what refers to it");
  EXPECT_EQ(SentenceOf(Kind::kNodeLeaked, {5, 0, 9}, {{false, 1}}), "the node is in use, with 1 byte, but has no name");
  EXPECT_EQ(SentenceOf(Kind::kNodeLeaked, {5, 0, 9}, {{true, 2}}),
            "the node is in use, with 2 bytes, but has no name; the damage may hide it");
}

TEST(Finding, sentence_tells_the_owners_apart) {
  const BlockInfo table = {BlockUse::kNodeBlock, false, 0, 6};
  const BlockInfo map = {BlockUse::kMap, false, 3, 6};
  const BlockInfo file = {BlockUse::kFile, false, 4, 12};
  const BlockInfo directory = {BlockUse::kDirectory, false, 5, 2};
  const BlockInfo record = {BlockUse::kChainRecord, false, 0, 0};
  EXPECT_EQ(SentenceOf(Kind::kBlockShared, {3, 8, 1}, {{}, "", table, map}),
            "block 8 serves as node block of table entry 6, but also as block-map block of node 3; a write to the one "
            "changes the other");
  EXPECT_EQ(SentenceOf(Kind::kBlockShared, {3, 8, 1}, {{}, "", file, directory}),
            "block 8 serves as block 12 of file 4, but also as block 2 of directory 5; a write to the one changes the "
            "other");
  EXPECT_EQ(SentenceOf(Kind::kChainBlockInUse, {3, 8, 1}, {{}, "", {}, record}),
            "block 8 is in the free chain but serves as free-chain record; it would be allocated again");
}

TEST(Finding, name_in_a_sentence_is_printable) {
  EXPECT_EQ(SentenceOf(Kind::kNameIllegal, {1}, {{}, "A{0}\n"}),
            "the name \"A{0}\\x0a\" is not one that a path can hold");
}

TEST(Finding, number_picks_the_text) {
  EXPECT_EQ(SentenceOf(Kind::kMapBlockForeign, {2, 8, 1}, {{1, 6}}),
            "block 8 should serve logical block 6 and what follows, but holds no block numbers");
  EXPECT_EQ(SentenceOf(Kind::kMapBlockForeign, {2, 8, 1}, {{2, 6}}),
            "block 8 should serve logical block 6 and what follows, but holds node records");
  EXPECT_EQ(SentenceOf(Kind::kMapBlockForeign, {2, 8, 1}, {{3, 6}}),
            "block 8 should serve logical block 6 and what follows, but holds a directory");
  EXPECT_EQ(SentenceOf(Kind::kTrailingBytes, {0, 0, 9, 1}, {{false, 5}}),
            "1 byte follows the last whole block; the next block appended overwrites it");
  EXPECT_EQ(SentenceOf(Kind::kTrailingBytes, {0, 0, 9, 2}, {{true, 5}}),
            "2 bytes follow the last whole block; they begin block 5, which is in use");
}

// The table of the tool's page has every kind with its severity, in the order of the code.
TEST(Finding, page_of_the_tool_lists_every_kind) {
  std::string expected, found;
  for (const KindInfo& info : AllKinds()) {
    expected += std::string("| `") + info.name + "` | " + Name(info.severity) + " |\n";
  }
  std::ifstream page(ORBA_TOOL_PAGE);
  bool listed = false;
  for (std::string line; std::getline(page, line);) {
    listed |= line.rfind("| `unreadable` |", 0) == 0;
    listed &= line.rfind("| `", 0) == 0;
    if (listed) found += line.substr(0, line.find('|', line.find('|', 1) + 1) + 1) + "\n";
  }
  EXPECT_EQ(found, expected);
}

TEST(Counted, number_chooses_the_noun) {
  EXPECT_EQ(Counted(0, "block"), "0 blocks");
  EXPECT_EQ(Counted(1, "block"), "1 block");
  EXPECT_EQ(Counted(2, "block"), "2 blocks");
  EXPECT_EQ(Counted(1, "entry", "entries"), "1 entry");
  EXPECT_EQ(Counted(2, "entry", "entries"), "2 entries");
}

}  // namespace
}  // namespace orba::inspect

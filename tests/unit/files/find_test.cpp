#include "files/find.h"

#include <string.h>

#include "namespace/path.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostNotReady;
using testhost::FailNthAllocation;
using testhost::FailNthCall;

// The root of "A" holds directory D (node 2, block 3) and files B.TXT (3, of 10 bytes), A.TXT (4) and A.B.TXT (5).
class Find : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    MakeDirectory("D");
    MakeFile("B.TXT", Pattern(10));
    MakeFile("A.TXT");
    MakeFile("A.B.TXT");
  }

  // The name found first, or the outcome; the handle is in search_.
  std::string First(const char* pattern) {
    search_ = OrbFindFirstFileA(pattern, &found_);
    return search_ != ORB_INVALID_HANDLE && GetError() == 0 ? found_.name : Outcome(false);
  }
  std::string Next() {
    return OrbFindNextFileA(search_, &found_) != 0 && GetError() == 0 ? found_.name : Outcome(false);
  }
  std::string Close() { return Outcome(OrbFindClose(search_)); }

  // All names that a pattern finds, in their order, and what ends them.
  Lines All(const char* pattern) {
    Lines names = {First(pattern)};
    if (search_ == ORB_INVALID_HANDLE) return names;
    while (GetError() == 0) names.push_back(Next());
    EXPECT_EQ(Close(), "");
    return names;
  }

  OrbHandle search_ = ORB_INVALID_HANDLE;
  OrbFindDataA found_ = {};
};

const char* const kEnd = "NO_MORE_ENTRIES";

// ---- What is listed -------------------------------------------------------------------------------------------------

TEST_F(Find, star_lists_everything_the_dots_first) {
  EXPECT_EQ(All("*"), (Lines{".", "..", "D", "B.TXT", "A.TXT", "A.B.TXT", kEnd}));
}

TEST_F(Find, empty_pattern_is_a_star) {
  for (const char* path : {"/", "A:/", "A:", "a:/", "D/../", "//", ".", "/."}) {
    EXPECT_EQ(All(path), (Lines{".", "..", "D", "B.TXT", "A.TXT", "A.B.TXT", kEnd})) << path;
  }
  EXPECT_EQ(All("D/"), (Lines{".", "..", kEnd}));
  EXPECT_EQ(All("A:/D/"), (Lines{".", "..", kEnd}));
  EXPECT_EQ(All("d//"), (Lines{".", "..", kEnd}));
}

TEST_F(Find, patterns_match_without_backtracking_or_case) {
  EXPECT_EQ(All("*.TXT"), (Lines{"B.TXT", "A.TXT", kEnd}));
  EXPECT_EQ(All("a*"), (Lines{"A.TXT", "A.B.TXT", kEnd}));
  EXPECT_EQ(All("?.txt"), (Lines{"B.TXT", "A.TXT", kEnd}));
  EXPECT_EQ(All("*.B.*"), (Lines{"A.B.TXT", kEnd}));
  EXPECT_EQ(All("a.b.txt"), (Lines{"A.B.TXT", kEnd}));
  EXPECT_EQ(All("."), (Lines{".", "..", "D", "B.TXT", "A.TXT", "A.B.TXT", kEnd}));  // the root, not a pattern
  EXPECT_EQ(All("?"), (Lines{".", "D", kEnd}));
}

TEST_F(Find, dots_as_the_last_name_search_the_parent_for_the_stored_name) {
  MakeDirectory("D/E");
  EXPECT_EQ(All("D/E/."), (Lines{"E", kEnd}));
  EXPECT_EQ(All("D/E/.."), (Lines{"D", kEnd}));
}

TEST_F(Find, nothing_that_matches_ends_the_search_at_once) {
  EXPECT_EQ(First("*.NONE"), kEnd);
  EXPECT_EQ(search_, ORB_INVALID_HANDLE);
  EXPECT_EQ(g_FindTable[0].node, nullptr);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Find, end_is_told_again_and_again_and_keeps_the_slot) {
  ASSERT_EQ(First("B*"), "B.TXT");
  testhost::ClearTrace();
  EXPECT_EQ(Next(), kEnd);
  EXPECT_EQ(Calls(), "read block 2");
  EXPECT_EQ(Next(), kEnd);
  EXPECT_EQ(Next(), kEnd);
  EXPECT_NE(g_FindTable[0].node, nullptr);
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, record_tells_attributes_time_and_size_as_stored) {
  ASSERT_EQ(OrbSetFileAttributesA("B.TXT", 3), 1);
  memset(&found_, 0xEE, sizeof found_);
  ASSERT_EQ(First("B.TXT"), "B.TXT");
  const OrbNodeRecord node = Stored(3);
  EXPECT_EQ(found_.attributes, 3u);
  EXPECT_EQ(found_.size, 10u);
  EXPECT_EQ(memcmp(&found_.time, &node.time, 8), 0);
  EXPECT_EQ(Close(), "");
  ASSERT_EQ(First("D"), "D");
  EXPECT_EQ(found_.attributes, 8u);
  EXPECT_EQ(found_.size, 64u);
  EXPECT_EQ(Close(), "");
  ASSERT_EQ(First("/"), ".");
  EXPECT_EQ(found_.attributes, 0x000Eu);
  EXPECT_EQ(found_.size, 6u * 32);
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, record_tells_what_an_open_file_is_at_the_moment) {
  const OrbHandle file = Open("A.TXT");
  OrbU32 done = 0;
  ASSERT_EQ(OrbWriteFile(file, "data", 4, &done), 1);
  ASSERT_EQ(First("A.TXT"), "A.TXT");
  EXPECT_EQ(found_.size, 4u);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
}

// ---- Calls and offsets ----------------------------------------------------------------------------------------------

TEST_F(Find, each_call_reads_the_block_and_the_node) {
  ASSERT_EQ(First("/*.TXT"), "B.TXT");
  EXPECT_EQ(Calls(), "read block 2 / read node 3");
  EXPECT_EQ(g_FindTable[0].offset, 4u * 32);
  testhost::ClearTrace();
  EXPECT_EQ(Next(), "A.TXT");
  EXPECT_EQ(Calls(), "read block 2 / read node 4");
  EXPECT_EQ(g_FindTable[0].offset, 5u * 32);
  testhost::ClearTrace();
  EXPECT_EQ(Next(), kEnd);
  EXPECT_EQ(Calls(), "read block 2");
  EXPECT_EQ(g_FindTable[0].offset, 6u * 32);
  testhost::ClearTrace();
  EXPECT_EQ(Next(), kEnd);
  EXPECT_EQ(Calls(), "");  // nothing is left to read
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, search_goes_on_through_the_blocks) {
  MakeFiles("D/F", 1, 70);  // entries 2 to 71 in three blocks
  const std::string second = std::to_string(Stored(2).direct[1]);
  const std::string third = std::to_string(Stored(2).direct[2]);
  ASSERT_EQ(First("D/F70"), "F70");
  EXPECT_EQ(Reads().substr(0, Reads().rfind(" / ")),
            "block 2 / node 2 / block 3 / block " + second + " / block " + third);
  EXPECT_EQ(Close(), "");
  ASSERT_EQ(First("D/F3?"), "F30");
  testhost::ClearTrace();
  EXPECT_EQ(Next(), "F31");  // entry 32, the first of the second block
  EXPECT_EQ(Reads().substr(0, Reads().find(" / ")), "block " + second);
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, each_call_takes_one_buffer_and_frees_it) {
  ASSERT_EQ(First("*"), ".");
  const uint32_t calls = testhost::AllocationCalls();
  const size_t held = testhost::AllocationsHeld();
  ASSERT_EQ(Next(), "..");
  EXPECT_EQ(testhost::AllocationCalls(), calls + 1);  // the root's node is held
  ASSERT_EQ(Next(), "D");
  EXPECT_EQ(testhost::AllocationsHeld(), held);
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, entries_added_behind_the_offset_are_found) {
  ASSERT_EQ(First("*.TXT"), "B.TXT");
  MakeFile("Z.TXT");
  EXPECT_EQ(Next(), "A.TXT");
  EXPECT_EQ(Next(), "Z.TXT");
  MakeFile("Y.TXT");
  EXPECT_EQ(Next(), "Y.TXT");
  EXPECT_EQ(Next(), kEnd);
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, entry_moved_in_front_of_the_offset_by_a_removal_is_missed) {
  ASSERT_EQ(First("*.TXT"), "B.TXT");
  Delete("B.TXT");  // A.B.TXT moves into its place
  EXPECT_EQ(Next(), "A.TXT");
  EXPECT_EQ(Next(), kEnd);
  EXPECT_EQ(Close(), "");
}

// ---- Damaged directories --------------------------------------------------------------------------------------------

TEST_F(Find, number_0_ends_the_listing_even_where_entries_follow) {
  MakeFiles("D/F", 1, 40);
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 3) + 4 * 32, 0); });
  EXPECT_EQ(All("D/"), (Lines{".", "..", "F1", "F2", kEnd}));
}

TEST_F(Find, call_that_begins_at_the_size_finds_nothing_one_that_comes_past_it_looks_at_the_block_to_its_end) {
  MakeFiles("D/F", 1, 3);
  Damage([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 16, 96); });
  EXPECT_EQ(All("D/"), (Lines{".", "..", "F1", kEnd}));
  EXPECT_EQ(All("D/F3"), (Lines{"F3", kEnd}));
}

TEST_F(Find, name_without_a_terminator_is_cut_at_29_characters) {
  Damage([](Bytes* image) {
    const size_t entry = testhost::BlockOffset(*image, 2) + 3 * 32;
    for (size_t i = 2; i < 32; ++i) (*image)[entry + i] = 'Q';
  });
  const std::string cut(29, 'Q');
  ASSERT_EQ(First("Q*"), cut);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(All(cut.c_str()), (Lines{cut, kEnd}));
}

TEST_F(Find, entry_whose_node_does_not_exist_is_passed_by_the_next_call) {
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 2) + 3 * 32, 500); });
  EXPECT_EQ(First("B*"), "DAMAGED_RECORD");
  EXPECT_EQ(g_FindTable[0].node, nullptr);
  ASSERT_EQ(First("*"), ".");
  ASSERT_EQ(Next(), "..");
  ASSERT_EQ(Next(), "D");
  memset(&found_, 0x5C, sizeof found_);
  OrbFindDataA before = found_;
  EXPECT_EQ(Next(), "DAMAGED_RECORD");
  EXPECT_EQ(memcmp(&found_, &before, sizeof before), 0);  // the record is untouched
  EXPECT_EQ(Next(), "A.TXT");
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, directory_of_size_0_has_no_entries) {
  Damage([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 16, 0); });
  EXPECT_EQ(All("A:/D/*"), Lines{kEnd});
}

TEST_F(Find, directory_larger_than_a_volume_can_fill_is_damage) {
  Damage([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 16, 0xFFFFFFE0); });
  EXPECT_EQ(All("A:/D/*"), Lines{"DAMAGED_RECORD"});
}

TEST_F(Find, block_missing_from_the_map_is_damage) {
  MakeFiles("D/F", 1, 40);
  Damage([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 36, 0); });
  ASSERT_EQ(First("D/F30"), "F30");
  EXPECT_EQ(Next(), "DAMAGED_RECORD");
  EXPECT_EQ(Next(), "DAMAGED_RECORD");  // it stays where it is
  EXPECT_EQ(Close(), "");
}

// ---- Opening a search -----------------------------------------------------------------------------------------------

TEST_F(Find, slot_holds_directory_offset_and_pattern) {
  ASSERT_EQ(First("D/*"), ".");
  EXPECT_EQ(search_, 0x20000u);
  EXPECT_EQ(g_FindTable[0].node->record.number, 2u);
  EXPECT_EQ(g_FindTable[0].node->references, 1u);
  EXPECT_STREQ(g_FindTable[0].pattern, "*");
  EXPECT_EQ(g_FindTable[0].offset, 32u);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(g_FindTable[0].node, nullptr);
  EXPECT_EQ(g_FindTable[0].pattern, nullptr);
}

TEST_F(Find, table_of_bad_patterns_gives_each_its_code) {
  const struct {
    const char* pattern;
    const char* outcome;
  } rows[] = {
      {"", "PATH_NOT_FOUND"},
      {"NONE/*", "PATH_NOT_FOUND"},
      {"NONE/", "PATH_NOT_FOUND"},  // a directory that is not there
      {"B.TXT/*", "PATH_NOT_FOUND"},
      {"B.TXT/", "NOT_A_DIRECTORY"},  // a file
      {"*/", "PATH_NOT_FOUND"},
      {"C:/*", "NOT_MOUNTED"},
      {"A*:/*", "INVALID_NAME"},
      {"123456789012345678901234567890", "INVALID_NAME"},
      {"12345678901234567890123456789", "NO_MORE_ENTRIES"},
      {"NONE", "NO_MORE_ENTRIES"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(First(row.pattern), row.outcome) << row.pattern;
    EXPECT_EQ(search_, ORB_INVALID_HANDLE) << row.pattern;
    EXPECT_EQ(NodesListed(), 1u) << row.pattern;
  }
}

TEST_F(Find, open_decides_by_the_first_test_that_fails) {
  ClearError();
  OrbNode stranger = {};
  const std::string longPattern(30, '*');
  EXPECT_EQ(OrbFindOpen(&stranger, longPattern.c_str()), kFindFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OrbFindOpen(nullptr, "*"), kFindFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  ClearError();
  const NodeRef file(OrbResolvePath("B.TXT"));
  EXPECT_EQ(OrbFindOpen(file.node, longPattern.c_str()), kFindFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_A_DIRECTORY);
  ASSERT_EQ(First("*"), ".");
  EXPECT_EQ(OrbFindOpen(volume_->root, longPattern.c_str()), kFindFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
  EXPECT_EQ(OrbFindOpen(volume_->root, longPattern.substr(1).c_str()), kFindFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_ALREADY_OPEN);
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, second_search_of_a_directory_fails_until_the_first_is_closed) {
  ASSERT_EQ(First("*"), ".");
  const OrbHandle first = search_;
  EXPECT_EQ(First("*"), "ALREADY_OPEN");
  EXPECT_EQ(First("B*"), "ALREADY_OPEN");
  EXPECT_EQ(First("D/*"), ".");  // of another directory
  EXPECT_EQ(Close(), "");
  search_ = first;
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(First("*"), ".");
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, open_without_memory_for_the_pattern_takes_no_slot) {
  ClearError();
  FailNthAllocation(1);
  EXPECT_EQ(OrbFindOpen(volume_->root, "*"), kFindFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(g_FindTable[0].node, nullptr);
  EXPECT_EQ(volume_->root->references, 2u);
}

TEST_F(Find, first_with_any_allocation_failing_ends_the_search) {
  const Operation finding = {nullptr, [this] { return First("D/*") == "." && Close().empty(); }, nullptr};
  // The walk to D, D's node, the pattern, the block, and "." is D, which is held.
  EXPECT_EQ(FailEachAllocation(finding), Lines(4, "OUT_OF_MEMORY"));
  for (const OrbFindEntry& slot : g_FindTable) EXPECT_EQ(slot.node, nullptr);
}

TEST_F(Find, first_with_any_read_failing_ends_the_search) {
  for (uint32_t n = 1; n <= 4; ++n) {
    FailNthCall(Call::kReadFile, n, kHostNotReady);
    EXPECT_EQ(First("/D/../B*"), "NOT_READY") << n;
    EXPECT_EQ(search_, ORB_INVALID_HANDLE) << n;
    EXPECT_EQ(NodesListed(), 1u) << n;
    EXPECT_EQ(g_FindTable[0].node, nullptr) << n;
    testhost::ClearFaults();
  }
}

TEST_F(Find, next_that_cannot_read_its_block_stays_where_it_is) {
  ASSERT_EQ(First("*"), ".");
  FailNthCall(Call::kReadFile, 1, kHostNotReady);
  EXPECT_EQ(Next(), "NOT_READY");
  EXPECT_EQ(Next(), "..");
  FailNthAllocation(1);
  EXPECT_EQ(Next(), "OUT_OF_MEMORY");
  EXPECT_EQ(Next(), "D");
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, next_that_cannot_read_a_node_has_passed_it) {
  ASSERT_EQ(First("*"), ".");
  ASSERT_EQ(Next(), "..");
  FailNthCall(Call::kReadFile, 2, kHostNotReady);
  EXPECT_EQ(Next(), "NOT_READY");
  EXPECT_EQ(Next(), "B.TXT");  // D is passed
  EXPECT_EQ(Close(), "");
}

// ---- The table and its cursor ---------------------------------------------------------------------------------------

TEST_F(Find, table_takes_64_searches_and_no_more) {
  Start(16, 1024);
  for (uint32_t i = 0; i <= 64; ++i) MakeDirectory(("D" + std::to_string(i)).c_str());
  for (uint32_t i = 0; i < 64; ++i) {
    ASSERT_EQ(First(("D" + std::to_string(i) + "/").c_str()), ".") << i;
    EXPECT_EQ(search_, 0x20000u + i);
  }
  EXPECT_EQ(g_dwFindCursor, 63u);
  EXPECT_EQ(First("D64/"), "TOO_MANY_SEARCHES");
  EXPECT_EQ(g_dwFindCursor, 63u);
  EXPECT_EQ(First("D5/"), "ALREADY_OPEN");  // met before the table is known to be full
  EXPECT_EQ(g_dwFindCursor, 4u);            // five slots were looked at before
  for (const OrbHandle closed : {0x20007u, 0x20003u}) ASSERT_EQ(OrbFindClose(closed), 1);
  EXPECT_EQ(First("D64/"), ".");
  EXPECT_EQ(search_, 0x20007u);
  EXPECT_EQ(First("D3/"), ".");
  EXPECT_EQ(search_, 0x20003u);
  for (uint32_t i = 0; i < 64; ++i) EXPECT_EQ(OrbFindClose(0x20000 + i), 1);
  EXPECT_EQ(NodesListed(), 1u);
}

// ---- Handles --------------------------------------------------------------------------------------------------------

TEST_F(Find, every_other_handle_is_invalid) {
  const OrbHandle file = Open("A.TXT");
  ASSERT_EQ(First("*"), ".");
  for (const OrbHandle handle :
       {0u, 0xFFFFu, 0x10000u, file, 0x20001u, 0x2003Fu, 0x20040u, 0x2FFFFu, 0x30000u, 0x120000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Outcome(OrbFindNextFileA(handle, &found_)), "INVALID_HANDLE") << handle;
    EXPECT_EQ(Outcome(OrbFindClose(handle)), "INVALID_HANDLE") << handle;
  }
  EXPECT_EQ(Next(), "..");
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(Close(), "INVALID_HANDLE");
  EXPECT_EQ(Next(), "INVALID_HANDLE");
  EXPECT_EQ(OrbCloseFile(file), 1);
}

TEST_F(Find, searched_directory_counts_as_in_use) {
  ASSERT_EQ(First("D/"), ".");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "IN_USE");
  EXPECT_EQ(OrbSetCurrentDirectoryA("D"), 1);
  EXPECT_EQ(OrbSetCurrentDirectoryA("/"), 1);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "");
}

// ---- Unmounting under a search --------------------------------------------------------------------------------------

TEST_F(Find, unmount_with_an_open_search_fails_yet_unmounts_and_keeps_the_search) {  // Q9
  ASSERT_EQ(First("D/"), ".");
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "INVALID_HANDLE");
  EXPECT_EQ(OrbGetVolumeInfoA("A", nullptr, nullptr), 0);
  EXPECT_EQ(testhost::OpenHandles(), 0u);
  EXPECT_NE(g_FindTable[0].node, nullptr);
  EXPECT_EQ(Next(), "INVALID_HANDLE");
  EXPECT_EQ(Next(), "INVALID_HANDLE");
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(Close(), "INVALID_HANDLE");
  EXPECT_EQ(NodesListed(), 0u);
}

TEST_F(Find, unmount_with_an_open_search_of_the_root_keeps_the_root_s_node_alone) {
  ASSERT_EQ(First("/"), ".");
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "INVALID_HANDLE");
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(g_FindTable[0].node->volume, nullptr);
  volume_ = Mount();
  ASSERT_NE(volume_, nullptr);
  EXPECT_NE(volume_->root, g_FindTable[0].node);
  const OrbHandle old = search_;
  ASSERT_EQ(First("/"), ".");  // the new root is another directory
  EXPECT_EQ(search_, 0x20001u);
  EXPECT_EQ(Close(), "");
  search_ = old;
  EXPECT_EQ(Next(), "INVALID_HANDLE");
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, unmount_with_a_search_of_another_volume_open_succeeds) {
  Format(16, 1024, u"OTHER");
  ASSERT_NE(Mount(u"OTHER", u"B"), nullptr);
  ASSERT_EQ(First("B:/"), ".");
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(Next(), "..");
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, closing_a_volume_s_searches_closes_none) {
  ClearError();
  EXPECT_TRUE(OrbCloseVolumeFinds(volume_));
  EXPECT_EQ(GetError(), 0u);
  ASSERT_EQ(First("*"), ".");
  EXPECT_FALSE(OrbCloseVolumeFinds(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
  EXPECT_EQ(Next(), "..");
  EXPECT_EQ(Close(), "");
}

TEST_F(Find, closing_a_volume_s_searches_closes_no_file_in_a_slot_of_that_number_either) {
  const OrbHandle file = Open("A.TXT");
  ASSERT_EQ(First("*"), ".");
  EXPECT_FALSE(OrbCloseVolumeFinds(volume_));
  EXPECT_EQ(OrbGetFileSize(file), 0u);
  EXPECT_EQ(Close(), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
}

}  // namespace
}  // namespace orba

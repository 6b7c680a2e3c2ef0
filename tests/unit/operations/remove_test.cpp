#include "operations/remove.h"

#include "namespace/current_directory.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostAccessDenied;
using coredll::kHostDiskFull;
using coredll::kHostNotReady;

class Remove : public TreeTest {
 protected:
  static std::string DeleteFile(const char* path) { return Outcome(OrbDeleteFileA(path)); }

  static Operation Deleting(const char* path) {
    return {nullptr, [=] { return OrbDeleteFileA(path) != 0; }, nullptr};
  }
};

// ---- Order of writes ------------------------------------------------------------------------------------------------

TEST_F(Remove, empty_file_writes_entry_parent_and_bitmap) {
  MakeFile("F");
  EXPECT_EQ(DeleteFile("F"), "");
  EXPECT_EQ(Calls(), "read block 2 / read node 2 / mark / write block 2 / write node 1 / write bitmap / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, file_with_blocks_writes_the_emptied_node_before_the_chain) {
  MakeFile("F", Pattern(1500));  // blocks 3 and 4
  EXPECT_EQ(DeleteFile("F"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / read node 2 / mark / write block 2 / write node 1 / write bitmap / write node 2 / size / "
            "write block 3 / write header / size / write block 3 / clear");
  EXPECT_EQ(testhost::FreeChainOf(Image(), 3).heap, std::vector<uint32_t>{4});
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, file_of_seven_blocks_frees_the_direct_blocks_the_map_block_and_its_one) {
  MakeFile("F", Pattern(7 * 1024));  // blocks 3 to 8, 9 the seventh, 10 the map's
  ASSERT_EQ(Stored(2).indirect, 10u);
  EXPECT_EQ(DeleteFile("F"), "");
  EXPECT_EQ(
      Calls(),
      "read block 2 / read node 2 / mark / write block 2 / write node 1 / write bitmap / write node 2 / size / "
      "write block 3 / write header / size / write block 3 / size / write block 3 / size / write block 3 / size / "
      "write block 3 / size / write block 3 / read block 10 / size / write block 3 / size / write block 3 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, directory_frees_its_block) {
  MakeDirectory("D");
  EXPECT_EQ(DeleteFile("D"), "");
  EXPECT_EQ(
      Calls(),
      "read block 2 / read node 2 / read block 3 / mark / write block 2 / write node 1 / write bitmap / write node 2 "
      "/ size / write block 3 / write header / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, last_node_of_a_node_block_frees_the_node_block) {
  MakeFiles("F", 2, 17);  // node 17 is the first in block 3
  EXPECT_EQ(DeleteFile("F17"), "");
  EXPECT_EQ(
      Calls(),
      "read block 2 / read block 3+0:64 / mark / write block 2 / write node 1 / write bitmap / write table / size / "
      "write block 3 / write header / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, only_name_in_a_block_frees_the_parent_s_block_before_the_parent_s_node) {
  MakeFiles("F", 2, 32);  // F32 is the first of the root's second block, block 4; nodes 17 to 32 are in block 3
  ASSERT_EQ(Stored(1).direct[1], 4u);
  EXPECT_EQ(DeleteFile("F32"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / read block 4 / read node 32 / size / mark / write block 4 / write header / write node 1 / "
            "write bitmap / clear");
  EXPECT_EQ(Stored(1).size, 1024u);
  EXPECT_EQ(Stored(1).direct[1], 0u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, full_chain_record_is_pushed_behind_a_new_one) {
  MakeFile("BIG", Bytes(255 * 1024));
  Delete("BIG");  // 1 record with 253 entries would need 254 blocks; there are 256 with the map's
  MakeFile("F", Pattern(1024));
  Delete("F");
  EXPECT_EQ(Findings(), "");
  const testhost::FreeChainView head = testhost::FreeChainOf(Image(), ChainHead());
  EXPECT_NE(head.next, 0u);
  EXPECT_EQ(testhost::FreeChainOf(Image(), head.next).heap.size(), 253u);
}

TEST_F(Remove, middle_name_makes_room_for_the_last) {
  MakeFiles("F", 1, 4);
  EXPECT_EQ(DeleteFile("F2"), "");
  EXPECT_EQ(Names("."), (Lines{"F1", "F4", "F3"}));
}

TEST_F(Remove, stop_after_any_write_leaves_a_mark_and_no_name_of_a_freed_node) {
  MakeFile("A");
  MakeFile("F", Pattern(1500));
  MakeFile("Z");
  testhost::WriteJournal journal(u"VOL");
  ASSERT_EQ(DeleteFile("F"), "");
  journal.Stop();
  Lines left;
  for (size_t k = 0; k <= journal.count(); ++k) left.push_back(FindingsIn(journal.StateAfter(k)));
  EXPECT_EQ(left,
            (Lines{"", "marked", "marked removal-interrupted node-leaked", "marked node-leaked", "marked block-leaked",
                   "marked block-leaked", "marked block-leaked", "marked block-leaked", "marked", ""}));
}

// ---- Codes ----------------------------------------------------------------------------------------------------------

TEST_F(Remove, table_of_bad_paths_gives_each_its_code) {
  MakeDirectory("D");
  MakeDirectory("D/E");
  MakeFile("D/E/F");
  const struct {
    const char* path;
    const char* outcome;
  } rows[] = {
      {"X", "FILE_NOT_FOUND"},
      {"D/X", "FILE_NOT_FOUND"},
      {"/", "FILE_NOT_FOUND"},  // the root and an empty name
      {"..", "FILE_NOT_FOUND"},
      {"A:", "FILE_NOT_FOUND"},
      {"D", "NOT_EMPTY"},
      {"D/E", "NOT_EMPTY"},
      {"D/E/.", "NOT_EMPTY"},  // E itself
      {"X/Y", "PATH_NOT_FOUND"},
      {"D/E/F/G", "PATH_NOT_FOUND"},
      {"D/E/F/.", "PATH_NOT_FOUND"},
      {"", "PATH_NOT_FOUND"},
      {"B:/X", "NOT_MOUNTED"},
      {"A B", "FILE_NOT_FOUND"},  // the rule of names is not asked
      {"123456789012345678901234567890", "INVALID_NAME"},
  };
  const Bytes before = Image();
  testhost::ClearTrace();
  for (const auto& row : rows) EXPECT_EQ(DeleteFile(row.path), row.outcome) << row.path;
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Remove, dots_name_the_directory_they_lead_to) {
  MakeDirectory("D");
  MakeDirectory("D/E");
  MakeDirectory("D/E/F");
  EXPECT_EQ(DeleteFile("D/E/F/."), "");
  EXPECT_EQ(Names("D/E"), Lines{});
  MakeDirectory("D/E/F");
  EXPECT_EQ(DeleteFile("D/E/F/.."), "NOT_EMPTY");  // E, which holds F
  EXPECT_EQ(DeleteFile("d/e/f/"), "");
  EXPECT_EQ(DeleteFile("D/E/."), "");
  EXPECT_EQ(DeleteFile("D"), "");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, dots_are_refused_by_the_operation_itself) {
  for (const char* name : {".", ".."}) {
    ClearError();
    EXPECT_FALSE(OrbDeleteNodeAt(volume_->root, name));
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
  }
}

TEST_F(Remove, open_file_is_in_use_and_stays) {
  MakeFile("F", Pattern(100));
  const OrbHandle file = Open("F");
  EXPECT_EQ(DeleteFile("F"), "IN_USE");
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
  EXPECT_EQ(DeleteFile("F"), "");
}

TEST_F(Remove, current_directory_says_so_and_stays) {
  MakeDirectory("D");
  MakeDirectory("D/E");
  ASSERT_EQ(OrbSetCurrentDirectoryA("D/E"), 1);
  EXPECT_EQ(DeleteFile("/D/E"), "CURRENT_DIRECTORY");
  EXPECT_EQ(DeleteFile("."), "CURRENT_DIRECTORY");
  EXPECT_EQ(DeleteFile(".."), "NOT_EMPTY");  // D is not the current directory, but not empty
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
  EXPECT_EQ(DeleteFile("D/E"), "");
}

TEST_F(Remove, searched_directory_is_in_use) {
  MakeDirectory("D");
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("D/", &found);
  EXPECT_EQ(DeleteFile("D"), "IN_USE");
  EXPECT_EQ(OrbFindClose(search), 1);
  EXPECT_EQ(DeleteFile("D"), "");
}

TEST_F(Remove, number_that_is_free_already_loses_the_name_and_reports_damage) {
  MakeFile("F", Pattern(1024));
  Damage([](Bytes* image) { (*image)[1024] = 0x7F; });
  EXPECT_EQ(DeleteFile("F"), "DAMAGED_RECORD");
  EXPECT_EQ(DeleteFile("F"), "FILE_NOT_FOUND");
  EXPECT_EQ(NodesListed(), 1u);
}

// ---- Every call failing ---------------------------------------------------------------------------------------------

TEST_F(Remove, with_any_write_meeting_a_full_disk_leaves_what_was_written) {
  MakeFile("A");
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Deleting("F")),
            (Lines{
                "mark: WRITE",
                "write block 2: DISK_FULL",
                "write node 1: DISK_FULL, removal-interrupted node-leaked",
                "write bitmap: DISK_FULL, node-leaked",
                "write node 3: DISK_FULL, block-leaked",
                "write block 3: DISK_FULL, block-leaked",
                "write header: DISK_FULL, block-leaked",
                "write block 3: DISK_FULL, block-leaked",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Remove, with_any_write_failing_otherwise_fails_the_volume) {
  MakeFile("A");
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, Deleting("F")),
            (Lines{
                "mark: WRITE",
                "write block 2: WRITE, marked",
                "write node 1: WRITE, marked removal-interrupted node-leaked",
                "write bitmap: WRITE, marked node-leaked",
                "write node 3: WRITE, marked block-leaked",
                "write block 3: WRITE, marked block-leaked",
                "write header: WRITE, marked block-leaked",
                "write block 3: WRITE, marked block-leaked",
                "clear: ACCESS_DENIED, marked",
            }));
}

TEST_F(Remove, with_any_read_failing_changes_nothing_or_stops_where_it_is) {
  MakeFile("F", Pattern(7 * 1024));
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, Deleting("F")),
            (Lines{
                "read block 2: NOT_READY",
                "read node 2: NOT_READY",
                "read block 10: NOT_READY, block-leaked",
            }));
}

TEST_F(Remove, with_any_size_query_failing_stops_where_it_is) {
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kGetFileSize, kHostAccessDenied, Repeat::kOnce, Deleting("F")),
            (Lines{
                "size: ACCESS_DENIED, block-leaked",
                "size: ACCESS_DENIED, block-leaked",
            }));
}

TEST_F(Remove, with_any_allocation_failing_leaves_leaks_at_most) {
  MakeFile("F", Pattern(7 * 1024));
  Lines expected(13, "OUT_OF_MEMORY, block-leaked");
  expected[0] = expected[1] = "OUT_OF_MEMORY";  // the parent's block and the node: before anything is written
  // The chain's first record (cache, copy and header), five entries, the map block's contents, itself and its one
  // block.
  EXPECT_EQ(FailEachAllocation(Deleting("F")), expected);
}

// V is alone in the root's second block and in its node block, and the chain's head record is full.
TEST_F(Remove, with_any_allocation_failing_while_all_shrinks_leaves_leaks_at_most) {
  MakeDirectory("D");
  MakeFile("D/J");
  MakeFiles("F", 1, 29);  // nodes 4 to 32
  MakeFile("V", Pattern(7 * 1024));
  ASSERT_EQ(NumberOf("V"), 33u);
  ASSERT_EQ(Stored(1).size, 33u * 32);
  Resize("F1", 254 * 1024);
  Resize("F1", 0);
  ASSERT_EQ(testhost::FreeChainOf(Image(), ChainHead()).heap.size(), 253u);
  const Lines lines = FailEachAllocation(Deleting("V"));
  EXPECT_EQ(lines, (Lines{
                       "OUT_OF_MEMORY",                            // the parent's block
                       "OUT_OF_MEMORY",                            // the node
                       "OUT_OF_MEMORY, block-leaked node-leaked",  // the new record, in the parent's second block
                       "OUT_OF_MEMORY, block-leaked node-leaked",  // the header that refers to it
                       "OUT_OF_MEMORY, block-leaked",              // the six direct blocks
                       "OUT_OF_MEMORY, block-leaked", "OUT_OF_MEMORY, block-leaked", "OUT_OF_MEMORY, block-leaked",
                       "OUT_OF_MEMORY, block-leaked", "OUT_OF_MEMORY, block-leaked",
                       "OUT_OF_MEMORY, block-leaked",  // the map block's contents
                       "OUT_OF_MEMORY, block-leaked",  // the map block
                       "OUT_OF_MEMORY, block-leaked",  // its one block
                       "OUT_OF_MEMORY",                // the table: the node block stays, idle
                       "OUT_OF_MEMORY, block-leaked",  // the node block
                   }));
  const std::string record = std::to_string(Stored(1).direct[1]);
  const std::string nodes = std::to_string(testhost::NodeTableEntry(Image(), 2));
  EXPECT_EQ(DeleteFile("V"), "");
  std::string expected = "mark / block " + record + " / header / node 1 / bitmap / block " + nodes + "+0:64";
  for (int entry = 0; entry < 8; ++entry) expected += " / block " + record;
  EXPECT_EQ(Writes(), expected + " / table / block " + record + " / clear");
  EXPECT_EQ(testhost::FreeChainOf(Image(), ChainHead()).heap.size(), 9u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Remove, of_an_emptied_parent_block_with_any_write_failing_shows_the_order) {
  MakeFiles("F", 2, 32);
  EXPECT_EQ(
      FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Deleting("F32")),
      (Lines{
          "mark: WRITE",
          "write block 4: DISK_FULL, block-leaked node-leaked",  // the chain's record, in the directory's last block
          "write header: DISK_FULL, block-leaked node-leaked",
          "write node 1: DISK_FULL, last-block-freed node-leaked",
          "write bitmap: DISK_FULL, node-leaked",
          "clear: DISK_FULL, marked",
      }));
}

}  // namespace
}  // namespace orba

#include "operations/create.h"

#include <string.h>

#include <functional>
#include <set>

#include "namespace/directory.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostAccessDenied;
using coredll::kHostDiskFull;
using coredll::kHostNotReady;

// A fresh volume: block 1 the nodes, block 2 the root. The next node is 2, the next block 3.
class Create : public TreeTest {
 protected:
  static std::string CreateFile(const char* path, uint32_t attributes = 0) {
    return Outcome(OrbCreateFileA(path, attributes));
  }

  static Operation Creating(const char* path, uint32_t attributes = 0) {
    return {nullptr, [=] { return OrbCreateFileA(path, attributes) != 0; }, nullptr};
  }
};

// ---- Order of writes ------------------------------------------------------------------------------------------------

TEST_F(Create, file_writes_node_bitmap_entry_and_parent) {
  EXPECT_EQ(CreateFile("F"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / mark / write node 2 / write bitmap / read block 2 / write block 2 / write node 1 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Create, directory_writes_its_first_block_and_its_node_again_before_the_entry) {
  EXPECT_EQ(CreateFile("D", 8), "");
  EXPECT_EQ(Calls(),
            "read block 2 / mark / write node 2 / write bitmap / size / write block 3 / write node 2 / read block 2 / "
            "write block 2 / write node 1 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Create, directory_takes_its_block_from_the_free_chain) {
  MakeFile("X", Pattern(3000));  // blocks 3 to 5
  Delete("X");
  EXPECT_EQ(CreateFile("D", 8), "");
  // Block 3 is the chain's record, block 4 its lowest entry.
  EXPECT_EQ(Writes(), "mark / node 2 / bitmap / block 3 / block 4 / node 2 / block 2 / node 1 / clear");
  EXPECT_EQ(Stored(2).direct[0], 4u);
}

TEST_F(Create, in_a_full_block_of_the_parent_writes_a_new_block_before_the_parent_s_node) {
  MakeFiles("F", 1, 30);  // 32 entries; nodes 2 to 31, whose second node block is block 3
  EXPECT_EQ(CreateFile("LAST"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / mark / write node 32 / write bitmap / size / write block 4 / write node 1 / clear");
  EXPECT_EQ(Stored(1).size, 33u * 32);
  EXPECT_EQ(Stored(1).direct[1], 4u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Create, with_a_new_node_block_writes_block_and_table_first) {
  MakeFiles("F", 1, 15);  // nodes 2 to 16
  EXPECT_EQ(CreateFile("LAST"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / size / mark / write block 3 / write table / write node 17 / write bitmap / read block 2 / "
            "write block 2 / write node 1 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Create, directory_with_a_new_node_block_and_a_new_parent_block_does_all_of_it_in_order) {
  MakeFiles("F", 1, 30);
  MakeDirectory("D");     // node 32, in the root's second block
  MakeFiles("G", 1, 63);  // nodes 33 to 95: the root's third block is full
  ASSERT_EQ(Stored(1).size, 3u * 1024);
  MakeFile("D/J");  // node 96: the next number needs a node block
  EXPECT_EQ(CreateFile("K", 8), "");
  const std::string node = "97";
  const uint32_t blocks = Blocks();  // node block, first block and the root's fourth are the last three
  EXPECT_EQ(Writes(), "mark / block " + std::to_string(blocks - 2) + " / table / node " + node + " / bitmap / block " +
                          std::to_string(blocks - 1) + " / node " + node + " / block " + std::to_string(blocks) +
                          " / node 1 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Create, stop_after_any_write_leaves_no_damage) {
  const std::set<std::string> harmless = {"marked", "marked block-leaked", "marked node-leaked",
                                          "marked block-leaked node-leaked", "marked append-interrupted"};
  MakeFiles("F", 1, 15);
  for (const uint32_t attributes : {0u, 8u}) {
    testhost::WriteJournal journal(u"VOL");
    ASSERT_EQ(CreateFile(attributes == 0 ? "FILE" : "DIRECTORY", attributes), "");
    journal.Stop();
    for (size_t k = 0; k <= journal.count(); ++k) {
      const std::string left = FindingsIn(journal.StateAfter(k));
      if (k == 0 || k == journal.count()) {
        EXPECT_EQ(left, "") << k;
      } else {
        EXPECT_EQ(harmless.count(left), 1u) << k << ": " << left;
      }
    }
  }
}

// ---- What is made ---------------------------------------------------------------------------------------------------

TEST_F(Create, file_is_empty_and_closed) {
  EXPECT_EQ(CreateFile("f.txt", 3), "");
  const OrbNodeRecord record = Stored(2);
  EXPECT_EQ(record.signature, kNodeSignature);
  EXPECT_EQ(record.number, 2u);
  EXPECT_EQ(record.attributes, 3u);
  EXPECT_EQ(record.size, 0u);
  EXPECT_EQ(record.direct[0], 0u);
  EXPECT_EQ(testhost::NameOf(StoredEntry(2, 2)), "F.TXT");
  EXPECT_EQ(StoredEntry(2, 2).node, 2u);
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(Blocks(), 2u);
}

TEST_F(Create, directory_holds_itself_and_its_parent) {
  MakeDirectory("D");
  EXPECT_EQ(CreateFile("D/E", 0x0B), "");
  const OrbNodeRecord record = Stored(3);
  EXPECT_EQ(record.attributes, 8u);  // a directory carries no other bit
  EXPECT_EQ(record.size, 64u);
  EXPECT_EQ(record.direct[0], 4u);
  EXPECT_EQ(record.direct[1], 0u);
  Bytes expected(1024);
  expected[0] = 3;
  expected[2] = '.';
  expected[32] = 2;
  expected[34] = '.';
  expected[35] = '.';
  EXPECT_EQ(testhost::BlockOf(Image(), 4), expected);
  EXPECT_EQ(Stored(2).size, 96u);
}

TEST_F(Create, stamps_the_new_node_and_the_parent) {
  testhost::SetClock({2010, 7, 0, 8, 9, 10, 11, 0});
  EXPECT_EQ(CreateFile("F"), "");
  for (const uint32_t node : {1u, 2u}) {
    const TimeStamp time = Stored(node).time;
    EXPECT_EQ(time.year, 2010u);
    EXPECT_EQ(time.month, 7u);
    EXPECT_EQ(time.day, 8u);
    EXPECT_EQ(time.hour, 9u);
    EXPECT_EQ(time.minute, 10u);
    EXPECT_EQ(time.second, 11u);
    EXPECT_EQ(time.reserved, 0u);
  }
}

TEST_F(Create, takes_over_a_node_slot_without_any_rest_of_its_last_owner) {
  MakeFile("BIG", Pattern(9000));
  Delete("BIG");
  EXPECT_EQ(CreateFile("F"), "");
  OrbNodeRecord expected = {};
  memcpy(&expected.signature, "INO1", 4);
  expected.number = 2;
  expected.time = {2001, 2, 3, 4, 5, 6, 0};
  const OrbNodeRecord record = Stored(2);
  EXPECT_EQ(memcmp(&record, &expected, sizeof record), 0);
}

// ---- Codes ----------------------------------------------------------------------------------------------------------

TEST_F(Create, table_of_bad_paths_gives_each_its_code) {
  MakeDirectory("D");
  MakeDirectory("D/A");
  MakeFile("AB");
  const struct {
    const char* path;
    uint32_t attributes;
    const char* outcome;
  } rows[] = {
      {"ab", 0, "FILE_EXISTS"},
      {"AB", 8, "FILE_EXISTS"},
      {"d", 0, "FILE_EXISTS"},
      {"d/a/..", 0, "FILE_EXISTS"},  // the root and the stored name D
      {"d/..", 0, "INVALID_NAME"},   // the root and an empty name
      {"/", 0, "INVALID_NAME"},
      {".", 8, "INVALID_NAME"},
      {"A:", 0, "INVALID_NAME"},
      {"NEW/", 0, "INVALID_NAME"},  // nothing stands behind the last "/"
      {"D/NEW//", 8, "INVALID_NAME"},
      {"AB/", 0, "INVALID_NAME"},
      {"A B", 0, "INVALID_NAME"},
      {"A*", 0, "INVALID_NAME"},
      {"A\\B", 0, "INVALID_NAME"},
      {"\xE4", 0, "INVALID_NAME"},
      {"123456789012345678901234567890", 0, "INVALID_NAME"},
      {"A B", 0x10, "INVALID_NAME"},  // the name is looked at first
      {"AB", 0x10, "FILE_EXISTS"},    // then whether it is there
      {"X", 0x10, "INVALID_ARGUMENT"},
      {"X", 4, "INVALID_ARGUMENT"},
      {"X", 0x8000, "INVALID_ARGUMENT"},
      {"X", 0x000C, "INVALID_ARGUMENT"},
      {"NONE/X", 0, "PATH_NOT_FOUND"},
      {"NONE/X/", 0, "PATH_NOT_FOUND"},  // the walk comes first
      {"AB/X", 0, "PATH_NOT_FOUND"},
      {"", 0, "PATH_NOT_FOUND"},
      {"B:/X", 0, "NOT_MOUNTED"},
  };
  testhost::ClearTrace();
  const Bytes before = Image();
  for (const auto& row : rows) EXPECT_EQ(CreateFile(row.path, row.attributes), row.outcome) << row.path;
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Create, without_a_free_number_fails) {
  Start(1, 1024);
  MakeFiles("F", 2, 8);
  EXPECT_EQ(CreateFile("X"), "NO_FREE_NODE");
  EXPECT_EQ(Writes(), "");
  Delete("F5");
  EXPECT_EQ(CreateFile("X"), "");
  EXPECT_EQ(NumberOf("X"), 5u);
}

TEST_F(Create, in_what_is_not_a_directory_is_path_not_found) {
  MakeFile("F");
  ClearError();
  const NodeRef file(OrbNodeGet(volume_, 2));
  EXPECT_FALSE(OrbCreateNodeAt(file.node, "X", 0));
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
}

TEST_F(Create, at_the_container_s_limit_a_file_fits_and_a_directory_does_not) {
  testhost::ResizeFile(u"VOL", 0x80000000u - 1024);
  EXPECT_EQ(CreateFile("D", 8), "VOLUME_FULL");
  EXPECT_FALSE(testhost::NodeInUse(testhost::FileBytes(u"VOL", 0, 4096), 2));
  EXPECT_EQ(CreateFile("F"), "");
  testhost::ResizeFile(u"VOL", 3088);
}

// ---- Every call failing ---------------------------------------------------------------------------------------------

TEST_F(Create, file_with_any_write_meeting_a_full_disk_is_undone) {  // Q20
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Creating("F")),
            (Lines{
                "mark: WRITE",  // the mark that cannot be written fails the volume
                "write node 2: DISK_FULL",
                "write bitmap: DISK_FULL",
                "write block 2: DISK_FULL",
                "write node 1: DISK_FULL, dir-beyond-size",  // the entry stands past the size
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Create, file_with_any_write_failing_otherwise_fails_the_volume_and_undoes_nothing) {  // Q20
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, Creating("F")),
            (Lines{
                "mark: WRITE",
                "write node 2: WRITE, marked",
                "write bitmap: WRITE, marked",
                "write block 2: WRITE, marked node-leaked",
                "write node 1: WRITE, marked append-interrupted",
                "clear: ACCESS_DENIED, marked",
            }));
}

TEST_F(Create, file_with_the_disk_full_from_a_write_on_leaves_what_could_not_be_undone) {
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kFromThenOn, Creating("F")),
            (Lines{
                "mark: WRITE",
                "write node 2: DISK_FULL, marked",
                "write bitmap: DISK_FULL, marked",
                "write block 2: DISK_FULL, marked node-leaked",
                "write node 1: DISK_FULL, marked append-interrupted",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Create, directory_with_any_write_meeting_a_full_disk_is_undone) {
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Creating("D", 8)),
            (Lines{
                "mark: WRITE",
                "write node 2: DISK_FULL",
                "write bitmap: DISK_FULL",
                "write block 3: DISK_FULL",
                "write node 2: DISK_FULL",
                "write block 2: DISK_FULL",
                "write node 1: DISK_FULL, dir-beyond-size",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Create, directory_with_any_write_failing_otherwise_undoes_nothing) {
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, Creating("D", 8)),
            (Lines{
                "mark: WRITE",
                "write node 2: WRITE, marked",
                "write bitmap: WRITE, marked",
                "write block 3: WRITE, marked node-leaked",
                "write node 2: WRITE, marked block-leaked node-leaked",
                "write block 2: WRITE, marked node-leaked",
                "write node 1: WRITE, marked append-interrupted",
                "clear: ACCESS_DENIED, marked",
            }));
}

TEST_F(Create, with_a_new_node_block_and_any_write_meeting_a_full_disk_leaves_a_lost_block_at_most) {
  MakeFiles("F", 1, 15);
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Creating("X")),
            (Lines{
                "mark: WRITE",
                "write block 3: DISK_FULL",
                "write table: DISK_FULL, block-leaked",
                "write node 17: DISK_FULL",  // an idle node block stays
                "write bitmap: DISK_FULL",
                "write block 2: DISK_FULL",
                "write node 1: DISK_FULL, dir-beyond-size",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Create, with_a_new_parent_block_and_any_write_meeting_a_full_disk_leaves_a_lost_block_at_most) {
  MakeFiles("F", 1, 30);
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Creating("X")),
            (Lines{
                "mark: WRITE",
                "write node 32: DISK_FULL",
                "write bitmap: DISK_FULL",
                "write block 4: DISK_FULL",
                "write node 1: DISK_FULL, block-leaked",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Create, with_any_read_failing_undoes_nothing) {
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, Creating("D", 8)),
            (Lines{
                "read block 2: NOT_READY",
                "read block 2: NOT_READY, node-leaked",
            }));
}

TEST_F(Create, with_the_size_query_failing_undoes_nothing) {
  EXPECT_EQ(FailEach(Call::kGetFileSize, kHostAccessDenied, Repeat::kOnce, Creating("D", 8)),
            (Lines{
                "size: ACCESS_DENIED, node-leaked",
            }));
}

TEST_F(Create, with_any_seek_failing_is_like_its_transfer_failing_for_another_reason_than_a_full_disk) {
  EXPECT_EQ(FailEach(Call::kSetFilePointer, kHostDiskFull, Repeat::kOnce, Creating("F")),
            (Lines{
                "seek 2064: READ",
                "seek 52: WRITE",
                "seek 1104: WRITE, marked",
                "seek 1024: WRITE, marked",
                "seek 2064: READ, node-leaked",
                "seek 2064: WRITE, marked node-leaked",
                "seek 1040: WRITE, marked append-interrupted",
                "seek 52: READ, marked",
            }));
}

TEST_F(Create, with_any_allocation_failing_is_undone) {
  const Lines lines = FailEachAllocation(Creating("D", 8));
  ASSERT_EQ(lines.size(), 4u);  // lookup, node, first block, the parent's block
  for (const std::string& line : lines) EXPECT_EQ(line, "OUT_OF_MEMORY");
}

// A new node block from the chain's last entry, the directory's first block from its emptied record, a new block for
// the parent at the container's end.
TEST_F(Create, with_any_allocation_failing_while_all_grows_leaves_a_lost_block_at_most) {
  MakeDirectory("D");
  MakeFile("D/J");
  MakeFiles("F", 1, 29);  // nodes 4 to 32; the root's block is full
  Resize("F1", 2048);
  Resize("F1", 0);  // block 6 is the chain's record, block 5 its entry
  EXPECT_EQ(FailEachAllocation(Creating("E", 8)),
            (Lines{
                "OUT_OF_MEMORY",                // the lookup
                "OUT_OF_MEMORY",                // the node
                "OUT_OF_MEMORY",                // the node block
                "OUT_OF_MEMORY",                // the chain's record
                "OUT_OF_MEMORY, block-leaked",  // the table: the node block is written
                "OUT_OF_MEMORY",                // the first block
                "OUT_OF_MEMORY",                // the header, for the emptied record
                "OUT_OF_MEMORY",                // the parent's block
            }));
  EXPECT_EQ(CreateFile("E", 8), "");
  EXPECT_EQ(
      Writes(),
      "mark / block 6 / block 5 / table / node 33 / bitmap / header / block 6 / node 33 / block 7 / node 1 / clear");
  EXPECT_EQ(Findings(), "");
}

// The undoing puts the directory's block into the chain as a new record, and the node block behind it.
TEST_F(Create, with_the_last_allocation_failing_while_all_grows_frees_every_block) {
  MakeDirectory("D");
  MakeFile("D/J");
  MakeFiles("F", 1, 29);
  Resize("F1", 2048);
  Resize("F1", 0);
  testhost::FailNthAllocation(8);
  EXPECT_EQ(CreateFile("E", 8), "OUT_OF_MEMORY");
  EXPECT_EQ(testhost::AllocationFaultsFired(), 1u);
  EXPECT_EQ(Writes(),
            "mark / block 6 / block 5 / table / block 5+0:64 / bitmap / header / block 6 / block 5+0:64 / "
            "bitmap / block 5+0:64 / block 6 / header / table / block 6 / clear");  // node 33 lies in block 5
  EXPECT_EQ(ChainHead(), 6u);
  EXPECT_EQ(testhost::FreeChainOf(Image(), 6).next, 0u);
  EXPECT_EQ(testhost::FreeChainOf(Image(), 6).heap, std::vector<uint32_t>{5});
  EXPECT_EQ(testhost::NodeTableEntry(Image(), 2), 0u);
  EXPECT_FALSE(testhost::NodeInUse(Image(), 33));
  EXPECT_EQ(Blocks(), 6u);
  EXPECT_EQ(Stored(1).size, 1024u);
  EXPECT_EQ(Findings(), "");
}

}  // namespace
}  // namespace orba

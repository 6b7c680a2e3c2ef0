#include "operations/copy.h"

#include <string.h>

#include "namespace/path.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostAccessDenied;
using coredll::kHostDiskFull;
using coredll::kHostNotReady;

// Volume "A" with blocks of 1024 bytes.
class Copy : public TreeTest {
 protected:
  static std::string CopyFile(const char* from, const char* to) { return Outcome(OrbCopyFileA(from, to)); }

  static Operation Copying(const char* from, const char* to) {
    return {nullptr, [=] { return OrbCopyFileA(from, to) != 0; }, nullptr};
  }

  // Formats u"OTHER" and mounts it as "B".
  void MountOther(uint32_t blockSize) {
    Format(16, blockSize, u"OTHER");
    ASSERT_NE(Mount(u"OTHER", u"B"), nullptr) << std::hex << GetError();
    testhost::ClearTrace();
  }

  static void SetLaterClock() { testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 0}); }
};

// ---- Order of calls -------------------------------------------------------------------------------------------------

TEST_F(Copy, empty_file_stores_its_node_twice_and_takes_no_block) {
  MakeFile("F");
  SetLaterClock();
  EXPECT_EQ(CopyFile("F", "G"), "");
  EXPECT_EQ(
      Calls(),
      "read block 2 / read node 2 / read block 2 / mark / write node 3 / write bitmap / write node 3 / read block 2 / "
      "write block 2 / write node 1 / clear");
  EXPECT_EQ(Stored(3).size, 0u);
  EXPECT_EQ(Stored(3).time.year, 2001u);  // the source's
  EXPECT_EQ(Blocks(), 2u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Copy, stores_the_node_after_every_block) {
  MakeFile("F", Pattern(2500));  // blocks 3 to 5
  SetLaterClock();
  EXPECT_EQ(CopyFile("F", "G"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / read node 2 / read block 2 / mark / write node 3 / write bitmap / "
            "read block 3 / size / write block 6 / write node 3 / "
            "read block 4 / size / write block 7 / write node 3 / "
            "read block 5 / size / write block 8 / write node 3 / "
            "read block 2 / write block 2 / write node 1 / clear");
  EXPECT_EQ(Contents("G"), Pattern(2500));
  EXPECT_EQ(Findings(), "");
}

TEST_F(Copy, sizes_grow_by_a_block_and_never_past_the_source) {
  MakeFile("F", Pattern(2500));
  testhost::ClearTrace();
  ASSERT_EQ(CopyFile("F", "G"), "");
  std::vector<uint32_t> sizes;
  for (const testhost::CallRecord& record : testhost::Writes()) {
    if (record.count != 64 || record.data[4] != 3) continue;
    sizes.push_back(testhost::ReadU32(record.data, 16));
  }
  EXPECT_EQ(sizes, (std::vector<uint32_t>{0, 1024, 2048, 2500}));
}

TEST_F(Copy, keeps_attributes_and_the_source_s_time) {
  MakeFile("F", Pattern(100));
  ASSERT_EQ(OrbSetFileAttributesA("F", 3), 1);
  SetLaterClock();
  EXPECT_EQ(CopyFile("f", "g"), "");
  const OrbNodeRecord source = Stored(2);
  const OrbNodeRecord copy = Stored(3);
  EXPECT_EQ(copy.attributes, 3u);
  EXPECT_EQ(memcmp(&copy.time, &source.time, 8), 0);
  EXPECT_EQ(copy.time.year, 2001u);
  EXPECT_EQ(Stored(1).time.year, 2010u);
  EXPECT_EQ(testhost::NameOf(StoredEntry(2, 3)), "G");
}

TEST_F(Copy, last_block_of_the_copy_holds_what_the_source_s_block_holds) {
  MakeFile("F", Pattern(2048));
  Resize("F", 1500);  // the rest of the second block keeps its bytes
  ASSERT_EQ(CopyFile("F", "G"), "");
  const Bytes image = Image();
  EXPECT_EQ(testhost::BlockOf(image, Stored(3).direct[1]), testhost::BlockOf(image, Stored(2).direct[1]));
}

TEST_F(Copy, takes_free_blocks_first) {
  MakeFile("X", Pattern(3000));  // blocks 3 to 5
  MakeFile("F", Pattern(1000));  // block 6
  Delete("X");                   // 3 is the record, 4 and 5 its entries
  ASSERT_EQ(CopyFile("F", "G"), "");
  EXPECT_EQ(Stored(NumberOf("G")).direct[0], 4u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Copy, of_a_file_across_all_borders_of_the_map_is_the_same) {
  const Bytes bytes = Pattern((6 + 256 + 2) * 1024 + 17);
  MakeFile("F", bytes);
  EXPECT_EQ(CopyFile("F", "G"), "");
  Remount();
  EXPECT_EQ(Contents("G"), bytes);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Copy, of_an_open_file_takes_what_it_holds) {
  MakeFile("F", Pattern(1500));
  const OrbHandle file = Open("F");
  EXPECT_EQ(CopyFile("F", "G"), "");
  EXPECT_EQ(OrbCloseFile(file), 1);
  EXPECT_EQ(Contents("G"), Pattern(1500));
}

TEST_F(Copy, stop_after_any_write_leaves_a_shorter_copy_without_a_name) {
  MakeFile("F", Pattern(2500));
  testhost::WriteJournal journal(u"VOL");
  ASSERT_EQ(CopyFile("F", "G"), "");
  journal.Stop();
  Lines left;
  for (size_t k = 0; k <= journal.count(); ++k) left.push_back(FindingsIn(journal.StateAfter(k)));
  EXPECT_EQ(left, (Lines{"", "marked", "marked",
                         "marked node-leaked",                                     // the bitmap
                         "marked block-leaked node-leaked", "marked node-leaked",  // a block, the node
                         "marked block-leaked node-leaked", "marked node-leaked",  // a block, the node
                         "marked block-leaked node-leaked", "marked node-leaked",  // a block, the node
                         "marked append-interrupted", "marked", ""}));             // the entry, the parent
}

// ---- Between volumes ------------------------------------------------------------------------------------------------

TEST_F(Copy, of_1500_bytes_to_blocks_of_4096_is_one_block_with_zeros_behind) {
  MountOther(4096);
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(CopyFile("F", "B:/G"), "");
  EXPECT_EQ(Calls(u"VOL"), "read block 2 / read node 2 / read block 3 / read block 4");
  EXPECT_EQ(Writes(u"OTHER"), "mark / node 2 / bitmap / block 3 / node 2 / block 2 / node 1 / clear");
  const OrbNodeRecord copy = testhost::NodeOf(Image(u"OTHER"), 2);
  EXPECT_EQ(copy.size, 1500u);
  EXPECT_EQ(copy.direct[0], 3u);
  EXPECT_EQ(copy.direct[1], 0u);
  Bytes expected = testhost::BlockOf(Image(), 3);
  const Bytes second = testhost::BlockOf(Image(), 4);
  expected.insert(expected.end(), second.begin(), second.end());
  expected.resize(4096);
  EXPECT_EQ(testhost::BlockOf(Image(u"OTHER"), 3), expected);
  EXPECT_EQ(Findings(u"OTHER"), "");
}

TEST_F(Copy, of_1500_bytes_from_blocks_of_4096_is_two_blocks) {
  MountOther(4096);
  MakeFile("B:/F", Pattern(1500));
  EXPECT_EQ(CopyFile("B:/F", "G"), "");
  EXPECT_EQ(Calls(u"OTHER"), "read block 2 / read node 2 / read block 3");
  EXPECT_EQ(Writes(), "mark / node 2 / bitmap / block 3 / node 2 / block 4 / node 2 / block 2 / node 1 / clear");
  EXPECT_EQ(Stored(2).size, 1500u);
  EXPECT_EQ(Stored(2).direct[1], 4u);
  EXPECT_EQ(Stored(2).direct[2], 0u);
  EXPECT_EQ(Contents("G"), Pattern(1500));
  EXPECT_EQ(Findings(), "");
}

TEST_F(Copy, between_all_block_sizes_and_around_their_borders_is_the_same) {
  for (const uint32_t from : {1024u, 2048u, 8192u}) {
    Start(64, from);
    for (const uint32_t to : {1024u, 4096u, 8192u}) {
      MountOther(to);
      const uint32_t larger = from > to ? from : to;
      for (const uint32_t size :
           {1u, from - 1, from, from + 1, larger - 1, larger, larger + 1, 3 * larger, 3 * larger + from + 1}) {
        const Bytes bytes = Pattern(size, size);
        MakeFile("F", bytes);
        EXPECT_EQ(CopyFile("F", "B:/G"), "") << from << " " << to << " " << size;
        EXPECT_EQ(Contents("B:/G"), bytes) << from << " " << to << " " << size;
        EXPECT_EQ(Findings(u"OTHER"), "") << from << " " << to << " " << size;
        Delete("F");
        Delete("B:/G");
      }
      ASSERT_EQ(OrbUnmountVolumeA("B"), 1);
      testhost::RemoveFile(u"OTHER");
    }
  }
}

// ---- Codes ----------------------------------------------------------------------------------------------------------

TEST_F(Copy, table_of_bad_paths_gives_each_its_code) {
  MakeDirectory("D");
  MakeFile("F", Pattern(10));
  MakeFile("D/F");
  const struct {
    const char* from;
    const char* to;
    const char* outcome;
  } rows[] = {
      {"X", "G", "FILE_NOT_FOUND"},  {"D/X", "G", "FILE_NOT_FOUND"}, {"X/Y", "G", "PATH_NOT_FOUND"},
      {"", "G", "PATH_NOT_FOUND"},   {"B:/X", "G", "NOT_MOUNTED"},   {"D", "G", "WRONG_KIND"},
      {"/", "G", "WRONG_KIND"},      {"D", "F", "WRONG_KIND"},  // the kind is looked at first
      {"D", "A B", "WRONG_KIND"},    {"F", "A B", "INVALID_NAME"},   {"F", "/", "INVALID_NAME"},
      {"F", "D/..", "INVALID_NAME"}, {"F", "F", "FILE_EXISTS"},      {"F", "D", "FILE_EXISTS"},
      {"F", "d/f", "FILE_EXISTS"},   {"F", "D/.", "FILE_EXISTS"},
  };
  testhost::ClearTrace();
  for (const auto& row : rows) EXPECT_EQ(CopyFile(row.from, row.to), row.outcome) << row.from << " to " << row.to;
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 1u);
}

// Only creation refuses them.
TEST_F(Copy, separators_behind_the_new_name_add_nothing) {
  MakeDirectory("D");
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(CopyFile("F", "NEW/"), "");
  EXPECT_EQ(CopyFile("F/", "D/NEW//"), "");
  EXPECT_EQ(Names("/"), (Lines{"D", "F", "NEW"}));
  EXPECT_EQ(Names("D"), Lines{"NEW"});
  EXPECT_EQ(Contents("NEW"), Pattern(1500));
  EXPECT_EQ(Contents("D/NEW"), Pattern(1500));
  EXPECT_EQ(CopyFile("F", "D/"), "FILE_EXISTS");  // D itself, not what is below it
  EXPECT_EQ(Findings(), "");
}

TEST_F(Copy, of_a_node_that_is_not_valid_is_of_the_wrong_kind) {
  OrbNode stranger = {};
  ClearError();
  EXPECT_FALSE(OrbCopyNodeTo(volume_->root, "G", &stranger));
  EXPECT_EQ(GetError(), ORB_ERROR_WRONG_KIND);
  EXPECT_FALSE(OrbCopyNodeTo(volume_->root, "G", nullptr));
  EXPECT_EQ(GetError(), ORB_ERROR_WRONG_KIND);
}

TEST_F(Copy, second_path_that_does_not_resolve_keeps_the_source_referenced) {
  LeavesThingsBehind();
  MakeFile("F");
  EXPECT_EQ(CopyFile("F", "NONE/G"), "PATH_NOT_FOUND");
  EXPECT_EQ(NodesListed(), 2u);
  EXPECT_EQ(OrbOpenFileA("F", 1), ORB_INVALID_HANDLE);
  EXPECT_EQ(GetError(), ORB_ERROR_IN_USE);
  EXPECT_EQ(Outcome(OrbDeleteFileA("F")), "IN_USE");
  EXPECT_EQ(CopyFile("F", "G"), "");  // it can still be copied
}

TEST_F(Copy, kept_reference_can_be_let_go_after_its_volume_is_gone) {
  MakeFile("F");
  ASSERT_EQ(OrbCopyFileA("F", "NONE/G"), 0);
  OrbNode* const kept = g_NodeListHead.next;
  ASSERT_EQ(kept->record.number, 2u);
  Remount();
  EXPECT_EQ(kept->volume, nullptr);
  OrbCloseFile(Open("F"));  // in use no longer
  OrbNodeRelease(kept);
}

TEST_F(Copy, without_a_free_number_fails) {
  Start(1, 1024);
  MakeFiles("F", 2, 8);
  EXPECT_EQ(CopyFile("F2", "X"), "NO_FREE_NODE");
  EXPECT_EQ(Writes(), "");
}

TEST_F(Copy, of_a_source_whose_map_ends_early_leaves_the_copy_without_a_name) {
  MakeFile("F", Pattern(3000));
  Damage([](Bytes* image) { testhost::WriteU32(*image, testhost::NodeOffset(*image, 2) + 40, 0); });
  EXPECT_EQ(CopyFile("F", "G"), "DAMAGED_RECORD");
  EXPECT_EQ(NumberOf("G"), 0u);
  EXPECT_TRUE(testhost::NodeInUse(Image(), 3));
  EXPECT_EQ(Stored(3).size, 2048u);
  EXPECT_EQ(NodesListed(), 1u);
}

// Every position of the source leads to its block 3, so that no end of the map stops the copy; the copy is as far as it
// can be. A position counted in chunks would go past 2^32 and begin anew, for ever.
TEST_F(Copy, of_a_source_whose_size_lies_just_below_2_to_the_32_ends) {
  Start(16, 8192);
  Format(16, 8192, u"OTHER");
  Bytes other = Image(u"OTHER");
  const Bytes data = Pattern(8192);
  other.insert(other.end(), data.begin(), data.end());  // block 3, then the map's 4 and 5
  for (const uint32_t named : {3u, 4u}) {
    for (uint32_t slot = 0; slot < 2048; ++slot) {
      const Bytes word = Word(named);
      other.insert(other.end(), word.begin(), word.end());
    }
  }
  testhost::WriteRecord(other, testhost::NodeOffset(other, 2),
                        OrbNodeRecord{kNodeSignature, 2, 0, {}, 0xFFFFFFFE, {}, {3, 3, 3, 3, 3, 3}, 4, 5});
  testhost::SetFile(u"OTHER", other);
  Volume* const from = Mount(u"OTHER", u"B");
  ASSERT_NE(from, nullptr);

  MakeFile("G");  // its map: block 3, whose slot 254 names block 4
  testhost::PatchFile(u"VOL", testhost::BlockOffset(Image(), 3), Bytes(2 * 8192));
  testhost::PatchFile(u"VOL", testhost::BlockOffset(Image(), 3) + 254 * 4, Word(4));
  const NodeRef source(OrbNodeGet(from, 2));
  const NodeRef copy(OrbNodeGet(volume_, 2));
  copy.node->record.size = 0xFFFFC000;
  copy.node->record.doubleIndirect = 3;
  testhost::ClearTrace();
  testhost::FailNthCall(Call::kWriteFile, 7, kHostNotReady, Repeat::kFromThenOn);
  EXPECT_TRUE(OrbCopyFileData(copy.node, source.node));
  EXPECT_EQ(testhost::FaultsFired(), 0u);
  testhost::ClearFaults();

  // Positions 0 and 0xFFFFE000, the latter in slot 2041 of slot 254.
  EXPECT_EQ(Reads(u"OTHER"), "block 3 / block 5+1016:4 / block 4+8164:4 / block 3");
  EXPECT_EQ(Writes(), "block 5 / mark / node 2 / block 6 / block 4+8164:4 / node 2");
  EXPECT_EQ(copy.node->record.size, 0xFFFFFFFEu);
  EXPECT_EQ(Stored(2).size, 0xFFFFFFFEu);
  EXPECT_EQ(Stored(2).direct[0], 5u);
  EXPECT_EQ(testhost::ReadU32(testhost::BlockOf(Image(), 4), 8164), 6u);
  EXPECT_EQ(testhost::BlockOf(Image(), 5), data);
  EXPECT_EQ(testhost::BlockOf(Image(), 6), data);
  EXPECT_EQ(Blocks(), 6u);
}

TEST_F(Copy, of_attributes_that_no_creation_takes_fails) {
  MakeFile("F");
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::NodeOffset(*image, 2) + 6, 0x0100); });
  EXPECT_EQ(CopyFile("F", "G"), "INVALID_ARGUMENT");
  EXPECT_EQ(Writes(), "");
}

TEST_F(Copy, that_fills_the_container_is_undone) {
  MakeFile("F", Pattern(3000));
  testhost::ResizeFile(u"VOL", 0x80000000u - 2 * 1024 - 512);
  EXPECT_EQ(CopyFile("F", "G"), "VOLUME_FULL");
  EXPECT_EQ(NumberOf("G"), 0u);
  EXPECT_FALSE(testhost::NodeInUse(testhost::FileBytes(u"VOL", 0, 4096), 3));
}

// ---- Every call failing ---------------------------------------------------------------------------------------------

TEST_F(Copy, with_any_write_meeting_a_full_disk_is_undone) {
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Copying("F", "G")),
            (Lines{
                "mark: WRITE",
                "write node 3: DISK_FULL",
                "write bitmap: DISK_FULL",
                "write block 5: DISK_FULL",
                "write node 3: DISK_FULL",
                "write block 6: DISK_FULL",
                "write node 3: DISK_FULL",
                "write block 2: DISK_FULL",
                "write node 1: DISK_FULL, dir-beyond-size",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Copy, with_a_metadata_write_failing_otherwise_fails_the_volume_and_a_data_write_does_not) {
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, Copying("F", "G")),
            (Lines{
                "mark: WRITE",
                "write node 3: WRITE, marked",
                "write bitmap: WRITE, marked",
                "write block 5: ACCESS_DENIED, node-leaked",
                "write node 3: WRITE, marked block-leaked node-leaked",
                "write block 6: ACCESS_DENIED, node-leaked",
                "write node 3: WRITE, marked block-leaked node-leaked",
                "write block 2: WRITE, marked node-leaked",
                "write node 1: WRITE, marked append-interrupted",
                "clear: ACCESS_DENIED, marked",
            }));
}

TEST_F(Copy, with_any_read_below_the_walks_failing_undoes_nothing) {
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, Copying("F", "G")),
            (Lines{
                "read block 2: NOT_READY",
                "read node 2: NOT_READY",
                "read block 2: NOT_READY",
                "read block 3: NOT_READY, node-leaked",
                "read block 4: NOT_READY, node-leaked",
                "read block 2: NOT_READY, node-leaked",
            }));
}

TEST_F(Copy, with_the_size_query_failing_undoes_nothing) {
  MakeFile("F", Pattern(1500));
  EXPECT_EQ(FailEach(Call::kGetFileSize, kHostAccessDenied, Repeat::kOnce, Copying("F", "G")),
            (Lines{"size: ACCESS_DENIED, node-leaked", "size: ACCESS_DENIED, node-leaked"}));
}

TEST_F(Copy, with_any_allocation_failing_is_undone) {
  MakeFile("F", Pattern(1500));
  const Lines lines = FailEachAllocation(Copying("F", "G"));
  EXPECT_EQ(lines, Lines(6, "OUT_OF_MEMORY"));  // two lookups, two nodes, the chunk, the parent's block
}

}  // namespace
}  // namespace orba

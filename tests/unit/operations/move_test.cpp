#include "operations/move.h"

#include <string.h>

#include "namespace/current_directory.h"
#include "namespace/path.h"
#include "space/block_io.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using coredll::kHostAccessDenied;
using coredll::kHostDiskFull;
using coredll::kHostNotReady;

// D (node 2, block 3), E (node 3, block 4), D/F (node 4), a file, and D/G (node 5, block 5), a directory.
class Move : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    MakeDirectory("D");
    MakeDirectory("E");
    MakeFile("D/F");
    MakeDirectory("D/G");
  }

  static std::string MoveFile(const char* from, const char* to) { return Outcome(OrbMoveFileA(from, to)); }
  static std::string RenameFile(const char* path, const char* name) { return Outcome(OrbRenameFileA(path, name)); }

  static Operation Moving(const char* from, const char* to) {
    return {nullptr, [=] { return OrbMoveFileA(from, to) != 0; }, nullptr};
  }
};

// ---- Order of writes ------------------------------------------------------------------------------------------------

TEST_F(Move, file_writes_the_new_name_before_it_takes_the_old_one) {
  EXPECT_EQ(MoveFile("D/F", "E/H"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / read node 2 / read block 2 / read node 3 / "  // the two walks
            "read block 3 / read node 4 / "                               // the source's name and node
            "read block 4 / read block 4 / mark / write block 4 / write node 3 / "
            "read block 3 / read node 4 / write block 3 / write node 2 / clear");
  EXPECT_EQ(Names("D"), Lines{"G"});
  EXPECT_EQ(Names("E"), Lines{"H"});
  EXPECT_EQ(NumberOf("E/H"), 4u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, directory_points_its_parent_entry_at_the_destination_in_between) {
  EXPECT_EQ(MoveFile("D/G", "E/H"), "");
  EXPECT_EQ(Writes(), "mark / block 4 / node 3 / block 5 / block 3 / node 2 / clear");
  EXPECT_EQ(StoredEntry(5, 1).node, 3u);
  EXPECT_EQ(NumberOf("E/H/.."), 3u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, directory_to_the_root_needs_no_way_up) {
  EXPECT_EQ(MoveFile("D/G", "/G"), "");
  EXPECT_EQ(
      Calls(),
      "read block 2 / read node 2 / read block 3 / read node 5 / read block 2 / read block 2 / mark / write block 2 / "
      "write node 1 / read block 5 / write block 5 / read block 3 / read node 5 / write block 3 / write node 2 / "
      "clear");
  EXPECT_EQ(StoredEntry(5, 1).node, 1u);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, directory_looks_at_the_way_up_from_the_destination) {
  MakeDirectory("E/H");    // node 6, block 6
  MakeDirectory("E/H/I");  // node 7, block 7
  EXPECT_EQ(MoveFile("D/G", "E/H/I/G"), "");
  // The walks, the source's name and node, then ".." of I and of H and of E.
  EXPECT_EQ(Reads().substr(0, Reads().find(" / block 7 / block 7")),
            "block 2 / node 2 / block 2 / node 3 / block 4 / node 6 / block 6 / node 7 / block 3 / node 5 / block 7 / "
            "node 6 / "
            "block 6 / node 3 / block 4");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, into_a_full_block_writes_the_destination_s_new_block_first) {
  MakeFiles("E/N", 1, 30);
  const uint32_t block = Blocks() + 1;
  EXPECT_EQ(MoveFile("D/F", "E/F"), "");
  EXPECT_EQ(Writes(), "mark / block " + std::to_string(block) + " / node 3 / block 3 / node 2 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, of_the_only_name_in_a_block_frees_the_source_s_block) {
  MakeFiles("D/N", 1, 29);  // with F and G 31 names; N29 is alone in D's second block
  const std::string block = std::to_string(Stored(2).direct[1]);
  EXPECT_EQ(MoveFile("D/N29", "E/N29"), "");
  EXPECT_EQ(Writes(), "mark / block 4 / node 3 / block " + block + " / header / node 2 / clear");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, leaves_the_node_and_its_time_alone) {
  MakeFile("D/P", Pattern(2000));
  const uint32_t node = NumberOf("D/P");
  const OrbNodeRecord before = Stored(node);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 0});
  EXPECT_EQ(MoveFile("D/P", "E/P"), "");
  const OrbNodeRecord after = Stored(node);
  EXPECT_EQ(memcmp(&after, &before, sizeof after), 0);
  EXPECT_EQ(Contents("E/P"), Pattern(2000));
  EXPECT_EQ(Stored(2).time.year, 2010u);
  EXPECT_EQ(Stored(3).time.year, 2010u);
}

TEST_F(Move, within_one_directory_is_a_rename_in_place) {
  const OrbNodeRecord before = Stored(2);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 0});
  EXPECT_EQ(MoveFile("D/F", "D/X"), "");
  EXPECT_EQ(Calls(),
            "read block 2 / read node 2 / read block 2 / read block 3 / read block 3 / mark / write block 3 / clear");
  EXPECT_EQ(Names("D"), (Lines{"X", "G"}));
  const OrbNodeRecord after = Stored(2);
  EXPECT_EQ(memcmp(&after, &before, sizeof after), 0);
}

TEST_F(Move, within_one_directory_works_on_what_is_in_use) {
  const OrbHandle file = Open("D/F");
  EXPECT_EQ(MoveFile("D/F", "D/X"), "");  // a rename asks nobody
  EXPECT_EQ(OrbCloseFile(file), 1);
}

TEST_F(Move, stop_after_any_write_leaves_two_names_rather_than_none) {
  testhost::WriteJournal journal(u"VOL");
  ASSERT_EQ(MoveFile("D/G", "E/G"), "");
  journal.Stop();
  Lines left;
  for (size_t k = 0; k <= journal.count(); ++k) left.push_back(FindingsIn(journal.StateAfter(k)));
  EXPECT_EQ(left, (Lines{"", "marked", "marked append-interrupted", "marked two-names", "marked two-names",
                         "marked removal-interrupted", "marked", ""}));
}

// ---- Codes ----------------------------------------------------------------------------------------------------------

TEST_F(Move, table_of_bad_paths_gives_each_its_code) {
  MakeFile("E/F");
  MakeDirectory("D/G/H");
  Format(16, 1024, u"OTHER");
  ASSERT_NE(Mount(u"OTHER", u"B"), nullptr);
  const struct {
    const char* from;
    const char* to;
    const char* outcome;
  } rows[] = {
      {"D/F", "B:/F", "MOVE_NOT_ALLOWED"},
      {"D/X", "B:/F", "MOVE_NOT_ALLOWED"},  // the volumes are looked at first
      {"B:/X", "D/F", "MOVE_NOT_ALLOWED"},
      {"D/X", "E/X", "FILE_NOT_FOUND"},
      {"/", "E/X", "FILE_NOT_FOUND"},
      {"D/F", "E/F", "FILE_EXISTS"},
      {"D/F", "e/f", "FILE_EXISTS"},
      {"D/G", "E/F", "FILE_EXISTS"},
      {"D/F", "/D", "FILE_EXISTS"},
      {"D/F", "E/.", "FILE_EXISTS"},  // the root and E
      {"D", "D/G/D", "IN_USE"},       // into its own child
      {"D", "D/D", "IN_USE"},         // into itself: the destination is held
      {"D", "D/G/H/D", "IN_USE"},     // further down
      {"D/G", "D/G/H/G", "IN_USE"},
      {"D/F", "D/G", "FILE_EXISTS"},  // a rename
      {"D/F", "D/f", "FILE_EXISTS"},  // the name in another case is there
      {"D/X", "D/Y", "FILE_NOT_FOUND"},
      {"E", "..", "INVALID_NAME"},  // a rename to nothing
  };
  const Bytes before = Image();
  testhost::ClearTrace();
  for (const auto& row : rows) EXPECT_EQ(MoveFile(row.from, row.to), row.outcome) << row.from << " to " << row.to;
  EXPECT_EQ(Image(), before);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 2u);
}

// Only creation refuses them.
TEST_F(Move, separators_behind_the_new_name_add_nothing) {
  EXPECT_EQ(MoveFile("D/F", "E/NEW/"), "");
  EXPECT_EQ(Names("E"), Lines{"NEW"});
  EXPECT_EQ(NumberOf("E/NEW"), 4u);
  EXPECT_EQ(MoveFile("E/NEW/", "D/NEWER//"), "");
  EXPECT_EQ(Names("D"), (Lines{"G", "NEWER"}));
  EXPECT_EQ(MoveFile("D/G", "D/DIR/"), "");  // a rename
  EXPECT_EQ(Names("D"), (Lines{"DIR", "NEWER"}));
  EXPECT_EQ(MoveFile("D/DIR", "E/"), "FILE_EXISTS");  // E itself, not what is below it
  EXPECT_EQ(Names("E"), Lines{});
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, into_a_full_block_on_a_full_volume_changes_nothing) {
  MakeFiles("E/N", 1, 30);
  const uint64_t size = testhost::FileSize(u"VOL");
  testhost::ResizeFile(u"VOL", 0x80000000u - 1024);
  const Lines namesOfD = Names("D");
  const Lines namesOfE = Names("E");
  const testhost::FileImage before = testhost::GetFile(u"VOL");
  for (const char* name : {"F", "G"}) {  // a file and a directory
    testhost::ClearTrace();
    EXPECT_EQ(MoveFile((std::string("D/") + name).c_str(), (std::string("E/") + name).c_str()), "VOLUME_FULL") << name;
    EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u) << name;
  }
  EXPECT_EQ(testhost::GetFile(u"VOL"), before);
  EXPECT_EQ(Names("D"), namesOfD);
  EXPECT_EQ(Names("E"), namesOfE);
  EXPECT_EQ(NumberOf("D/F"), 4u);
  EXPECT_EQ(NumberOf("D/G/.."), 2u);
  EXPECT_EQ(NodesListed(), 1u);
  testhost::ResizeFile(u"VOL", size);
  EXPECT_EQ(Findings(), "");
  EXPECT_EQ(MoveFile("D/F", "E/F"), "");
}

TEST_F(Move, dots_as_the_source_name_are_refused_by_the_operation_itself) {
  ClearError();
  const NodeRef directory(OrbNodeGet(volume_, 2));
  for (const char* name : {".", ".."}) {
    ClearError();
    EXPECT_FALSE(OrbMoveNode(volume_->root, "X", directory.node, name));
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
  }
}

TEST_F(Move, of_what_is_held_fails_and_changes_nothing) {
  const OrbHandle file = Open("D/F");
  EXPECT_EQ(MoveFile("D/F", "E/F"), "IN_USE");
  EXPECT_EQ(OrbCloseFile(file), 1);
  ASSERT_EQ(OrbSetCurrentDirectoryA("D/G"), 1);
  EXPECT_EQ(MoveFile("/D/G", "/E/G"), "CURRENT_DIRECTORY");
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("D/G/", &found);
  EXPECT_EQ(MoveFile("D/G", "E/G"), "IN_USE");
  EXPECT_EQ(OrbFindClose(search), 1);
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(MoveFile("D/G", "E/G"), "");
}

TEST_F(Move, of_a_directory_above_the_current_one_is_allowed) {
  ASSERT_EQ(OrbSetCurrentDirectoryA("D/G"), 1);
  EXPECT_EQ(MoveFile("/D", "/E/D"), "");
  char path[ORB_PATH_BUFFER];
  ASSERT_EQ(OrbGetCurrentDirectoryA(path), 1);
  EXPECT_STREQ(path, "A:/E/D/G");
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(Move, second_path_that_does_not_resolve_keeps_the_source_directory_referenced) {
  LeavesThingsBehind();
  EXPECT_EQ(MoveFile("D/F", "NONE/F"), "PATH_NOT_FOUND");
  EXPECT_EQ(NodesListed(), 2u);
  EXPECT_EQ(OrbSetFileAttributesA("D/F", 1), 1);  // the file itself is free
  EXPECT_EQ(Outcome(OrbDeleteFileA("D/F")), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D/G")), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "IN_USE");
}

TEST_F(Move, kept_reference_can_be_let_go_after_its_volume_is_gone) {
  ASSERT_EQ(OrbMoveFileA("D/F", "NONE/F"), 0);
  OrbNode* const kept = g_NodeListHead.next;
  ASSERT_EQ(kept->record.number, 2u);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(NodesListed(), 1u);
  volume_ = Mount();
  ASSERT_NE(volume_, nullptr);
  EXPECT_EQ(Outcome(OrbDeleteFileA("D/F")), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D/G")), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "");  // nothing holds the new volume's D
  OrbNodeRelease(kept);
}

TEST_F(Move, way_up_in_a_ring_ends_as_damage) {
  MakeDirectory("E/H");  // node 6, block 6: E's ".." becomes H, H's is E
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 4) + 32, 6); });
  EXPECT_EQ(MoveFile("D/G", "E/H/G"), "DAMAGED_RECORD");
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(MoveFile("D/F", "E/H/F"), "");  // a file does not look up
}

TEST_F(Move, way_up_may_take_as_many_steps_as_the_volume_has_nodes) {
  Start(2, 1024);  // 16 nodes: 15 directories below each other, one to move
  std::string path;
  for (int i = 0; i < 14; ++i) {
    path += path.empty() ? "D" : "/D";
    MakeDirectory(path.c_str());
  }
  MakeDirectory("M");
  EXPECT_EQ(MoveFile("M", (path + "/M").c_str()), "");
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, way_up_without_a_parent_entry_is_damage) {
  Damage([](Bytes* image) { testhost::WriteU16(*image, testhost::BlockOffset(*image, 4) + 32, 0); });
  EXPECT_EQ(MoveFile("D/G", "E/G"), "DAMAGED_RECORD");
  EXPECT_EQ(Writes(), "");
}

// ---- Every call failing ---------------------------------------------------------------------------------------------

TEST_F(Move, with_any_write_meeting_a_full_disk_undoes_nothing) {
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, Moving("D/G", "E/G")),
            (Lines{
                "mark: WRITE",
                "write block 4: DISK_FULL",
                "write node 3: DISK_FULL, append-interrupted",
                "write block 5: DISK_FULL, many-names",
                "write block 3: DISK_FULL, many-names",
                "write node 2: DISK_FULL, removal-interrupted",
                "clear: DISK_FULL, marked",
            }));
}

TEST_F(Move, with_any_write_failing_otherwise_fails_the_volume) {
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kFromThenOn, Moving("D/F", "E/F")),
            (Lines{
                "mark: WRITE",
                "write block 4: WRITE, marked",
                "write node 3: WRITE, marked append-interrupted",
                "write block 3: WRITE, marked two-names",
                "write node 2: WRITE, marked removal-interrupted",
                "clear: ACCESS_DENIED, marked",
            }));
}

// Below the entry point, because a walk that fails on the second path keeps the first one's reference.
class MoveNode : public Move {
 protected:
  Operation MovingNode() {
    return {[this] {
              ClearError();
              from_ = OrbResolvePath("D");
              to_ = OrbResolvePath("E");
            },
            [this] {
              const bool moved = OrbMoveNode(to_, "G", from_, "G");
              const uint32_t code = GetError();
              OrbCommitVolume(volume_);
              SetError(code);
              return moved;
            },
            [this] {
              OrbNodeRelease(from_);
              OrbNodeRelease(to_);
            }};
  }

  OrbNode* from_ = nullptr;
  OrbNode* to_ = nullptr;
};

TEST_F(MoveNode, with_any_read_failing_undoes_nothing) {
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, MovingNode()),
            (Lines{
                "read block 3: NOT_READY",              // the source's name
                "read node 5: NOT_READY",               // its node
                "read block 4: NOT_READY",              // the way up
                "read block 4: NOT_READY",              // the new name
                "read block 4: NOT_READY",              // its block
                "read block 5: NOT_READY, many-names",  // the moved directory's first block
                "read block 3: NOT_READY, many-names",
                "read node 5: NOT_READY, many-names",
            }));
}

TEST_F(MoveNode, with_any_allocation_failing_undoes_nothing) {
  EXPECT_EQ(FailEachAllocation(MovingNode()), (Lines{
                                                  "OUT_OF_MEMORY",
                                                  "OUT_OF_MEMORY",
                                                  "OUT_OF_MEMORY",
                                                  "OUT_OF_MEMORY",
                                                  "OUT_OF_MEMORY",
                                                  "OUT_OF_MEMORY, many-names",
                                                  "OUT_OF_MEMORY, many-names",
                                                  "OUT_OF_MEMORY, many-names",
                                              }));
}

// ---- Renaming -------------------------------------------------------------------------------------------------------

TEST_F(Move, rename_writes_the_one_directory_block) {
  const OrbNodeRecord before = Stored(2);
  testhost::SetClock({2010, 1, 0, 2, 3, 4, 5, 0});
  EXPECT_EQ(RenameFile("D/F", "longer.name"), "");
  EXPECT_EQ(Calls(), "read block 2 / read node 2 / read block 3 / read block 3 / mark / write block 3 / clear");
  EXPECT_EQ(Names("D"), (Lines{"LONGER.NAME", "G"}));
  const OrbNodeRecord after = Stored(2);
  EXPECT_EQ(memcmp(&after, &before, sizeof after), 0);
  EXPECT_EQ(Findings(), "");
}

TEST_F(Move, rename_table_of_bad_paths_gives_each_its_code) {
  const struct {
    const char* path;
    const char* name;
    const char* outcome;
  } rows[] = {
      {"D/F", "G", "FILE_EXISTS"},      {"D/F", "F", "FILE_EXISTS"},
      {"D/F", "f", "FILE_EXISTS"},      {"D/F", ".", "FILE_EXISTS"},
      {"D/F", "..", "FILE_EXISTS"},     {"D/F", "", "INVALID_NAME"},
      {"D/F", "A/B", "INVALID_NAME"},  // a bare name, not a path
      {"D/F", "E:X", "INVALID_NAME"},   {"D/F", "123456789012345678901234567890", "INVALID_NAME"},
      {"D/X", "Y", "FILE_NOT_FOUND"},   {"D/X", "G", "FILE_EXISTS"},  // the new name is looked at first
      {"/", "X", "FILE_NOT_FOUND"},     {"X/Y", "Z", "PATH_NOT_FOUND"},
      {"D/F/G", "Z", "PATH_NOT_FOUND"}, {"", "X", "PATH_NOT_FOUND"},
      {"B:/F", "X", "NOT_MOUNTED"},
  };
  testhost::ClearTrace();
  for (const auto& row : rows) EXPECT_EQ(RenameFile(row.path, row.name), row.outcome) << row.path << " to " << row.name;
  EXPECT_EQ(Writes(), "");
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(Move, rename_of_the_dots_renames_the_directory_they_lead_to) {
  EXPECT_EQ(RenameFile("D/G/.", "H"), "");
  EXPECT_EQ(RenameFile("D/H/..", "I"), "");
  EXPECT_EQ(NumberOf("I/H"), 5u);
  EXPECT_EQ(RenameFile("I/", "D"), "");
}

TEST_F(Move, rename_works_on_what_is_open_searched_or_current) {  // Q8
  const OrbHandle file = Open("D/F");
  ASSERT_EQ(OrbSetCurrentDirectoryA("D/G"), 1);
  EXPECT_EQ(RenameFile("/D/F", "X"), "");
  EXPECT_EQ(RenameFile("/D/G", "Y"), "");
  char path[ORB_PATH_BUFFER];
  ASSERT_EQ(OrbGetCurrentDirectoryA(path), 1);
  EXPECT_STREQ(path, "A:/D/Y");
  EXPECT_EQ(OrbCloseFile(file), 1);
  ASSERT_EQ(OrbSetCurrentDirectoryA("/"), 1);
}

TEST_F(Move, rename_with_every_call_failing_changes_one_name_or_none) {
  const Operation renaming = {nullptr, [] { return OrbRenameFileA("D/F", "X") != 0; }, nullptr};
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostDiskFull, Repeat::kOnce, renaming),
            (Lines{"mark: WRITE", "write block 3: DISK_FULL", "clear: DISK_FULL, marked"}));
  EXPECT_EQ(FailEach(Call::kWriteFile, kHostAccessDenied, Repeat::kOnce, renaming),
            (Lines{"mark: WRITE", "write block 3: WRITE, marked", "clear: ACCESS_DENIED, marked"}));
  EXPECT_EQ(FailEach(Call::kReadFile, kHostNotReady, Repeat::kOnce, renaming),
            (Lines{"read block 2: NOT_READY", "read node 2: NOT_READY", "read block 3: NOT_READY",
                   "read block 3: NOT_READY"}));
  EXPECT_EQ(FailEachAllocation(renaming), (Lines{"OUT_OF_MEMORY", "OUT_OF_MEMORY", "OUT_OF_MEMORY", "OUT_OF_MEMORY"}));
}

}  // namespace
}  // namespace orba

#include "files/find.h"
#include "files/open_file.h"
#include "namespace/current_directory.h"
#include "nodes/node.h"
#include "operations/mount.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class Unmounting : public LibraryTest {
 protected:
  // Mounts volumes A, B and C, in this order; A's root is the current directory.
  void MountThree() {
    for (const char16_t* name : {u"A", u"B", u"C"}) {
      Format(16, 1024, name);
      ASSERT_NE(Mount(name, name), nullptr);
    }
    c_ = g_VolumeListHead.next;
    b_ = c_->next;
    a_ = b_->next;
    testhost::ClearTrace();
  }

  Volume* a_ = nullptr;
  Volume* b_ = nullptr;
  Volume* c_ = nullptr;
};

// ---- What it does ---------------------------------------------------------------------------------------------------

TEST_F(Unmounting, container_is_closed_and_nothing_is_written) {
  FormatAndMount();
  const Bytes before = FileBytes(u"VOL");
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(TraceText(), "close");
  EXPECT_EQ(FileBytes(u"VOL"), before);
}

TEST_F(Unmounting, nothing_is_left) {  // N3
  FormatAndMount();
  ASSERT_EQ(OrbUnmountVolumeA("a"), 1);
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_EQ(g_pCurrentDir, nullptr);
  EXPECT_EQ(NodesListed(), 0u);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
  EXPECT_EQ(testhost::OpenHandles(), 0u);
}

TEST_F(Unmounting, free_chain_block_is_freed_too) {
  Volume* const volume = FormatAndMount();
  ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
  ASSERT_EQ(OrbDeleteFileA("D"), 1);
  ASSERT_NE(volume->freeChain, nullptr);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(Unmounting, dirty_mark_is_left_as_it_is) {
  Volume* const volume = FormatAndMount();
  FailNthCall(Call::kWriteFile, 3, coredll::kHostNotReady);
  ASSERT_EQ(OrbCreateFileA("F", 0), 0);
  ASSERT_EQ(volume->failed, 1u);
  testhost::ClearTrace();
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(TraceText(), "close");
  EXPECT_TRUE(testhost::IsMarkedDirty(FileBytes(u"VOL")));
}

TEST_F(Unmounting, what_was_stored_is_there_after_the_next_mount) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 1), 1);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(OrbGetFileAttributesA("F"), 1u);
}

TEST_F(Unmounting, record_in_the_middle_is_unlinked) {
  MountThree();
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("B")), "");
  EXPECT_EQ(g_VolumeListHead.next, c_);
  EXPECT_EQ(c_->next, a_);
  EXPECT_EQ(a_->next, nullptr);
}

TEST_F(Unmounting, all_of_them_empties_the_list) {
  MountThree();
  EXPECT_TRUE(VolumeUnmountAll());
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_EQ(TraceText(u"A"), "close");
  EXPECT_EQ(TraceText(u"B"), "close");
  EXPECT_EQ(TraceText(u"C"), "close");
  EXPECT_EQ(testhost::Trace()[0].name, u"C");  // the newest first
}

TEST_F(Unmounting, all_of_them_goes_on_after_a_failure_and_reports_it) {
  MountThree();
  FailNthCall(Call::kCloseHandle, 2, coredll::kHostNotReady);
  EXPECT_FALSE(VolumeUnmountAll());
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_EQ(testhost::CallCount(Call::kCloseHandle), 3u);
}

TEST_F(Unmounting, all_of_none_is_a_success) { EXPECT_TRUE(VolumeUnmountAll()); }

// ---- Names ----------------------------------------------------------------------------------------------------------

TEST_F(Unmounting, unknown_name_or_one_no_volume_can_have_changes_nothing) {
  Volume* const volume = FormatAndMount();
  for (const char* name : {"B", "", "AA", "A ", "A:", "/", "ABCDEFGHIJKLMNOPQRSTUVWXYZ1234"}) {
    EXPECT_EQ(OrbUnmountVolumeA(name), 0) << name;
    EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED) << name;
  }
  EXPECT_EQ(g_VolumeListHead.next, volume);
  EXPECT_EQ(TraceText(), "");
}

TEST_F(Unmounting, error_is_cleared_first) {
  FormatAndMount();
  _OrbSetError(0x12345678);
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
}

// ---- The current directory ------------------------------------------------------------------------------------------

TEST_F(Unmounting, current_directory_moves_to_the_next_older_volume) {
  MountThree();
  OrbSetCurrentDirNode(c_->root);
  ASSERT_EQ(OrbUnmountVolumeA("C"), 1);
  EXPECT_EQ(g_pCurrentDir, b_->root);
  EXPECT_EQ(b_->root->references, 2u);
  ASSERT_EQ(OrbUnmountVolumeA("B"), 1);
  EXPECT_EQ(g_pCurrentDir, a_->root);
}

TEST_F(Unmounting, current_directory_of_the_oldest_volume_moves_to_its_newer_neighbour) {
  MountThree();
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(g_pCurrentDir, b_->root);
  EXPECT_EQ(b_->root->references, 2u);
}

TEST_F(Unmounting, current_directory_of_a_volume_in_the_middle_moves_to_the_older_one) {
  MountThree();
  OrbSetCurrentDirNode(b_->root);
  ASSERT_EQ(OrbUnmountVolumeA("B"), 1);
  EXPECT_EQ(g_pCurrentDir, a_->root);
}

TEST_F(Unmounting, current_directory_of_the_only_volume_is_cleared) {
  FormatAndMount();
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(g_pCurrentDir, nullptr);
}

TEST_F(Unmounting, current_directory_on_another_volume_stays) {
  MountThree();
  ASSERT_EQ(OrbUnmountVolumeA("C"), 1);
  EXPECT_EQ(g_pCurrentDir, a_->root);
  ASSERT_EQ(OrbUnmountVolumeA("B"), 1);
  EXPECT_EQ(g_pCurrentDir, a_->root);
}

TEST_F(Unmounting, current_directory_below_the_root_is_let_go) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
  ASSERT_EQ(OrbSetCurrentDirectoryA("D"), 1);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(g_pCurrentDir, nullptr);
  EXPECT_EQ(NodesListed(), 0u);
}

// ---- Open files and searches ----------------------------------------------------------------------------------------

TEST_F(Unmounting, open_files_are_flushed_and_closed_first) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  ASSERT_EQ(OrbCreateFileA("G", 0), 1);
  ASSERT_EQ(OrbOpenFileA("F", 1), 0x10000u);
  ASSERT_EQ(OrbOpenFileA("G", 1), 0x10001u);
  testhost::ClearTrace();
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(TraceText(), "flush / flush / close");
  EXPECT_EQ(OrbGetFileSize(0x10000), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
}

TEST_F(Unmounting, open_files_of_other_volumes_stay_open) {
  MountThree();
  ASSERT_EQ(OrbCreateFileA("B:/F", 0), 1);
  const OrbHandle file = OrbOpenFileA("B:/F", 1);
  testhost::ClearTrace();
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(TraceText(), "close");
  EXPECT_EQ(OrbGetFileSize(file), 0u);
}

TEST_F(Unmounting, file_that_does_not_flush_makes_it_fail_but_it_goes_on) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  ASSERT_EQ(OrbCreateFileA("G", 0), 1);
  OrbOpenFileA("F", 1);
  OrbOpenFileA("G", 1);
  testhost::ClearTrace();
  FailNthCall(Call::kFlushFileBuffers, 1, coredll::kHostNotReady);
  EXPECT_EQ(OrbUnmountVolumeA("A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(TraceText(), "flush !21 / flush / close");
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_EQ(g_OpenFileTable[0].node, nullptr);
}

TEST_F(Unmounting, container_that_does_not_close_makes_it_fail_but_it_is_done) {
  FormatAndMount();
  FailNthCall(Call::kCloseHandle, 1, coredll::kHostNotReady);
  EXPECT_EQ(OrbUnmountVolumeA("A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(Unmounting, open_search_makes_it_fail_and_keeps_its_slot) {  // N3
  FormatAndMount();
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("*", &found);
  ASSERT_EQ(search, 0x20000u);
  EXPECT_EQ(OrbUnmountVolumeA("A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
  EXPECT_NE(g_FindTable[0].node, nullptr);
  EXPECT_EQ(OrbFindNextFileA(search, &found), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
  EXPECT_EQ(Outcome(OrbFindClose(search)), "");
  EXPECT_EQ(NodesListed(), 0u);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(Unmounting, search_of_another_volume_does_not_matter) {
  MountThree();
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("B:/*", &found);
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("C")), "");
  EXPECT_EQ(Outcome(OrbFindNextFileA(search, &found)), "");
  EXPECT_EQ(OrbFindClose(search), 1);
}

// ---- Nodes that stay behind -----------------------------------------------------------------------------------------

TEST_F(Unmounting, node_still_held_belongs_to_no_volume_and_matches_no_lookup) {  // N4
  Volume* const volume = FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  OrbNode* const held = OrbNodeGet(volume, 2);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(held->volume, nullptr);
  EXPECT_EQ(held->references, 1u);

  Volume* const again = Mount();
  OrbNode* const fresh = OrbNodeGet(again, 2);
  EXPECT_NE(fresh, held);
  OrbNodeRelease(fresh);
  EXPECT_EQ(OrbOpenFileA("F", 1), 0x10000u);  // held by nobody on this volume
  OrbNodeRelease(held);
  EXPECT_EQ(NodesListed(), 2u);
}

TEST_F(Unmounting, root_still_held_by_a_search_is_no_root_of_the_next_mount) {
  FormatAndMount();
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("*", &found);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 0);
  Volume* const again = Mount();
  EXPECT_EQ(again->root->references, 2u);
  EXPECT_NE(again->root, g_FindTable[0].node);
  EXPECT_EQ(OrbFindFirstFileA("*", &found), 0x20001u);  // its directory is not being searched
  EXPECT_EQ(OrbFindClose(0x20001), 1);
  EXPECT_EQ(OrbFindClose(search), 1);
}

TEST_F(Unmounting, reference_kept_by_a_failed_copy_is_cut_loose) {
  LeavesThingsBehind();
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  ASSERT_EQ(OrbCopyFileA("F", "NONE/G"), 0);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(NodesListed(), 1u);
  ASSERT_NE(Mount(), nullptr);
  EXPECT_EQ(OrbOpenFileA("F", 1), 0x10000u);
}

}  // namespace
}  // namespace orba

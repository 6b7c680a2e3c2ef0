#include "storage/memory_file.h"

#include <algorithm>

#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;
using testhost::HideProcedure;
using testhost::MemFile;
using testhost::TraceText;

class MemoryFile : public LibraryTest {
 protected:
  static bool Read(uint32_t count) {
    Bytes bytes(count + 1);
    uint32_t done = 0;
    return MemFileRead(bytes.data(), count, &done);
  }
  static bool Write(uint32_t count) {
    const Bytes bytes(count + 1);
    uint32_t done = 0;
    return MemFileWrite(bytes.data(), count, &done);
  }
};

// ---- Loading --------------------------------------------------------------------------------------------------------

TEST_F(MemoryFile, create_loads_the_library_and_binds_six_entry_points_by_name) {
  EXPECT_TRUE(MemFileCreate());
  EXPECT_EQ(TraceText({Call::kLoadLibrary, Call::kGetProcAddress, Call::kCreateMemFile}),
            "load memfile.dll / proc CreateMemFile / proc ReadMemFile / proc WriteMemFile / proc SeekMemFile / "
            "proc GetMemFileSize / proc DeleteMemFile / memcreate");
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(MemoryFile, create_without_the_library_fails) {
  testhost::SetMemFilePresent(false);
  EXPECT_FALSE(MemFileCreate());
  EXPECT_EQ(GetError(), ORB_ERROR_MEMFILE_NOT_FOUND);
  EXPECT_EQ(TraceText({Call::kLoadLibrary, Call::kGetProcAddress}), "load memfile.dll !126");
}

TEST_F(MemoryFile, create_without_its_entry_point_fails_and_leaves_the_library_loaded) {
  HideProcedure(u"CreateMemFile");
  EXPECT_FALSE(MemFileCreate());
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(MemFile().references, 1u);
}

TEST_F(MemoryFile, create_that_the_library_refuses_sets_no_code) {
  FailNthCall(Call::kCreateMemFile, 1, coredll::kHostOutOfMemory);
  EXPECT_FALSE(MemFileCreate());
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(MemoryFile, create_again_loads_the_library_again) {
  EXPECT_TRUE(MemFileCreate());
  EXPECT_TRUE(MemFileCreate());
  EXPECT_EQ(MemFile().loads, 2u);
  EXPECT_EQ(MemFile().creates, 2u);
}

TEST_F(MemoryFile, failing_to_load_again_keeps_what_is_loaded) {
  ASSERT_TRUE(MemFileCreate());
  FailNthCall(Call::kLoadLibrary, 1, coredll::kHostNotEnoughMemory);
  EXPECT_FALSE(MemFileCreate());
  EXPECT_EQ(GetError(), ORB_ERROR_MEMFILE_NOT_FOUND);
  EXPECT_TRUE(Write(1));
  EXPECT_TRUE(MemFileDelete());
  EXPECT_EQ(MemFile().frees, 1u);
  EXPECT_EQ(MemFile().references, 0u);
}

// ---- Calls without an entry point -----------------------------------------------------------------------------------

TEST_F(MemoryFile, calls_before_loading_fail_and_return_0) {
  EXPECT_FALSE(Read(1));
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_FALSE(Write(1));
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_EQ(MemFileSeek(5, 0), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_EQ(MemFileGetSize(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_FALSE(MemFileDelete());
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(testhost::CallCount(), 0u);
}

TEST_F(MemoryFile, missing_entry_point_fails_its_own_call_alone) {
  HideProcedure(u"ReadMemFile");
  ASSERT_TRUE(MemFileCreate());
  EXPECT_TRUE(Write(4));
  EXPECT_EQ(MemFileGetSize(), 4u);
  EXPECT_FALSE(Read(1));
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

TEST_F(MemoryFile, each_missing_entry_point_fails_with_the_same_code) {
  for (const char16_t* name : {u"WriteMemFile", u"SeekMemFile", u"GetMemFileSize"}) HideProcedure(name);
  ASSERT_TRUE(MemFileCreate());
  EXPECT_FALSE(Write(1));
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_EQ(MemFileSeek(1, 0), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_EQ(MemFileGetSize(), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

// ---- Results --------------------------------------------------------------------------------------------------------

TEST_F(MemoryFile, failed_transfer_leaves_the_error_state_alone) {
  ASSERT_TRUE(MemFileCreate());
  SetError(0x12345678);
  FailNthCall(Call::kReadMemFile, 1, coredll::kHostNotReady);
  FailNthCall(Call::kWriteMemFile, 1, coredll::kHostDiskFull);
  EXPECT_FALSE(Read(1));
  EXPECT_FALSE(Write(1));
  EXPECT_EQ(GetError(), 0x12345678u);
}

TEST_F(MemoryFile, failed_seek_and_size_return_the_librarys_failure_value) {
  ASSERT_TRUE(MemFileCreate());
  FailNthCall(Call::kSeekMemFile, 1, coredll::kHostInvalidParameter);
  FailNthCall(Call::kGetMemFileSize, 1, coredll::kHostNotReady);
  EXPECT_EQ(MemFileSeek(1, 0), 0xFFFFFFFFu);
  EXPECT_EQ(MemFileGetSize(), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), 0u);
}

// ---- Unloading ------------------------------------------------------------------------------------------------------

TEST_F(MemoryFile, delete_calls_the_library_once_and_then_unloads_it) {
  ASSERT_TRUE(MemFileCreate());
  EXPECT_TRUE(MemFileDelete());
  EXPECT_EQ(TraceText({Call::kDeleteMemFile, Call::kFreeLibrary}), "memdelete / free");
  EXPECT_EQ(MemFile().deletes, 1u);
  EXPECT_EQ(MemFile().frees, 1u);
}

TEST_F(MemoryFile, delete_ignores_what_the_library_says_of_it) {
  ASSERT_TRUE(MemFileCreate());
  FailNthCall(Call::kDeleteMemFile, 1, coredll::kHostNotReady);
  EXPECT_TRUE(MemFileDelete());
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(MemFile().frees, 1u);
}

TEST_F(MemoryFile, delete_without_its_entry_point_fails_but_unloads) {
  HideProcedure(u"DeleteMemFile");
  ASSERT_TRUE(MemFileCreate());
  EXPECT_FALSE(MemFileDelete());
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(MemFile().frees, 1u);
}

TEST_F(MemoryFile, calls_after_the_deletion_find_no_library) {
  ASSERT_TRUE(MemFileCreate());
  ASSERT_TRUE(MemFileDelete());
  EXPECT_FALSE(Read(1));
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  ClearError();
  EXPECT_FALSE(MemFileDelete());
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(MemFile().frees, 1u);
}

// ---- The life of a memory volume ------------------------------------------------------------------------------------

TEST_F(MemoryFile, mounting_before_formatting_fails_at_the_header_and_leaves_nothing) {
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(MemFile().loads, 0u);
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(MemoryFile, formatting_without_the_library_fails) {
  testhost::SetMemFilePresent(false);
  EXPECT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_MEMFILE_NOT_FOUND);
  EXPECT_TRUE(testhost::FileNames().empty());
}

TEST_F(MemoryFile, mounting_without_the_library_does_not_look_for_it) {
  testhost::SetMemFilePresent(false);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(testhost::CallCount(Call::kLoadLibrary), 0u);
}

TEST_F(MemoryFile, formatting_with_a_library_that_does_not_load_fails_whatever_the_reason) {
  for (const uint32_t host : {coredll::kHostNotEnoughMemory, coredll::kHostAccessDenied, coredll::kHostNotReady}) {
    FailNthCall(Call::kLoadLibrary, 1, host);
    EXPECT_EQ(OrbCreateVolume(u"??MEM??"), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_MEMFILE_NOT_FOUND) << host;
  }
  EXPECT_EQ(MemFile().loads, 0u);
}

TEST_F(MemoryFile, formatting_makes_the_same_bytes_as_in_a_host_file) {
  Format();
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  EXPECT_EQ(testhost::MemFileImage().ToBytes(), testhost::FileBytes(u"VOL"));
}

TEST_F(MemoryFile, mounting_does_not_load_the_library) {
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  testhost::ClearTrace();
  EXPECT_EQ(Outcome(OrbMountVolume(u"??MEM??", u"A")), "");
  EXPECT_EQ(MemFile().loads, 1u);
  EXPECT_EQ(TraceText(),
            "memseek 0 / memread 0 128 / memseek 128 / memread 128 896 / memseek 1024 / memread 1024 16 / "
            "memseek 1040 / memread 1040 64");
}

TEST_F(MemoryFile, unmounting_deletes_the_memory_file_once_and_unloads_the_library) {
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  ASSERT_EQ(OrbMountVolume(u"??MEM??", u"A"), 1);
  testhost::ClearTrace();
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(TraceText({Call::kDeleteMemFile, Call::kFreeLibrary, Call::kCloseHandle}), "memdelete / free");
  EXPECT_EQ(MemFile().references, 0u);
}

TEST_F(MemoryFile, formatting_twice_loads_twice_and_unmounting_unloads_once) {  // Q15
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  EXPECT_EQ(MemFile().loads, 2u);
  ASSERT_EQ(OrbMountVolume(u"??MEM??", u"A"), 1);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(MemFile().frees, 1u);
  EXPECT_EQ(MemFile().references, 1u);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);  // nothing is bound any more
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

TEST_F(MemoryFile, unmounting_without_the_delete_entry_point_fails_but_is_done) {
  HideProcedure(u"DeleteMemFile");
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  ASSERT_EQ(OrbMountVolume(u"??MEM??", u"A"), 1);
  EXPECT_EQ(OrbUnmountVolumeA("A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(MemFile().references, 0u);
  EXPECT_EQ(g_VolumeListHead.next, nullptr);
}

TEST_F(MemoryFile, formatting_that_the_library_refuses_sets_no_code) {
  FailNthCall(Call::kCreateMemFile, 1, coredll::kHostOutOfMemory);
  EXPECT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 0);
  EXPECT_EQ(GetError(), 0u);
  EXPECT_EQ(TraceText(), "memcreate !14");
  EXPECT_EQ(MemFile().references, 1u);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);  // there is no memory file, which the library tells without a code
  EXPECT_EQ(GetError(), 0u);
}

TEST_F(MemoryFile, failed_mount_of_a_memory_volume_keeps_the_memory_file) {
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  FailNthCall(Call::kReadMemFile, 2, coredll::kHostNotReady);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);
  EXPECT_EQ(GetError(), 0u);  // the library's failures carry no code
  EXPECT_EQ(MemFile().references, 1u);
  EXPECT_EQ(Outcome(OrbMountVolume(u"??MEM??", u"A")), "");
}

TEST_F(MemoryFile, nothing_guards_a_memory_volume_against_being_mounted_twice) {  // Q15
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 1);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"B"), 1);
  EXPECT_EQ(OrbUnmountVolumeA("B"), 1);
  EXPECT_EQ(OrbCreateFileA("A:/F", 0), 0);  // the memory file is gone
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(OrbUnmountVolumeA("A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

TEST_F(MemoryFile, files_on_a_memory_volume_keep_their_data) {
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  ASSERT_EQ(OrbMountVolume(u"??MEM??", u"A"), 1);
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  const OrbHandle file = OrbOpenFileA("F", 3);
  const Bytes data = Pattern(10000);
  Bytes back(10000);
  OrbU32 done = 0;
  EXPECT_EQ(Outcome(OrbWriteFile(file, data.data(), 10000, &done)), "");
  EXPECT_EQ(OrbSetFilePointer(file, 0, 0), 0u);
  EXPECT_EQ(Outcome(OrbReadFile(file, back.data(), 10000, &done)), "");
  EXPECT_EQ(back, data);
  EXPECT_EQ(g_dwReadCount + g_dwWriteCount + g_dwSeekCount, 0u);
}

TEST_F(MemoryFile, failed_metadata_write_to_the_memory_file_fails_the_volume) {
  ASSERT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 1);
  ASSERT_EQ(OrbMountVolume(u"??MEM??", u"A"), 1);
  FailNthCall(Call::kWriteMemFile, 1, coredll::kHostDiskFull);
  EXPECT_EQ(OrbCreateFileA("F", 0), 0);
  EXPECT_EQ(GetError(),
            ORB_ERROR_WRITE);  // the write failed without a code, so the volume failed and refused the commit
  EXPECT_EQ(g_VolumeListHead.next->failed, 1u);
}

// ---- A library without one of its entry points ----------------------------------------------------------------------

TEST_F(MemoryFile, volume_without_the_create_entry_point_is_not_formatted) {
  HideProcedure(u"CreateMemFile");
  EXPECT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(OrbCreateVolume(u"??MEM??"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(MemFile().references, 2u);  // nothing unloads what was loaded
}

TEST_F(MemoryFile, volume_without_the_write_entry_point_is_not_formatted) {
  HideProcedure(u"WriteMemFile");
  EXPECT_EQ(OrbCreateVolumeEx(u"??MEM??", 16, 1024), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(TraceText(), "memcreate");
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);  // the memory file is empty
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

TEST_F(MemoryFile, volume_without_the_read_entry_point_is_formatted_but_does_not_mount) {
  HideProcedure(u"ReadMemFile");
  EXPECT_EQ(Outcome(OrbCreateVolumeEx(u"??MEM??", 16, 1024)), "");
  Format();
  EXPECT_EQ(testhost::MemFileImage().ToBytes(), testhost::FileBytes(u"VOL"));
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(TraceText(), "memseek 0");
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

// A seek that finds no entry point returns 0 rather than the failure value, so that nobody stops: the mark and the
// header are written where the memory file ends, and the call succeeds with the code set.
TEST_F(MemoryFile, volume_without_the_seek_entry_point_is_formatted_in_the_wrong_order_and_does_not_mount) {
  HideProcedure(u"SeekMemFile");
  EXPECT_EQ(Outcome(OrbCreateVolumeEx(u"??MEM??", 16, 1024)), "success with NO_MEMFILE");
  EXPECT_EQ(
      TraceText(),
      "memcreate / memwrite 0 128 / memwrite 128 896 / memwrite 1024 16 / memwrite 1040 1024 / memwrite 2064 1024 "
      "/ memwrite 3088 4 / memwrite 3092 128");
  Format();
  Bytes expected = testhost::FileBytes(u"VOL");
  const Bytes header(expected.begin(), expected.begin() + 128);
  std::fill(expected.begin(), expected.begin() + 128, uint8_t{0});
  expected.insert(expected.end(), {1, 0, 0, 0});
  expected.insert(expected.end(), header.begin(), header.end());
  EXPECT_EQ(testhost::MemFileImage().ToBytes(), expected);
  EXPECT_EQ(OrbMountVolume(u"??MEM??", u"A"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_DAMAGED_VOLUME);  // the read at the end finds nothing
  EXPECT_EQ(TraceText(), "memread 3220 128 =0");
  EXPECT_EQ(testhost::AllocationsHeld(), 0u);
}

// A size query without an entry point returns 0; the reason is kept, though 0 bytes hold no data area either.
TEST_F(MemoryFile, volume_without_the_size_entry_point_takes_files_but_no_blocks) {
  HideProcedure(u"GetMemFileSize");
  EXPECT_EQ(Outcome(OrbCreateVolumeEx(u"??MEM??", 16, 1024)), "");
  EXPECT_EQ(Outcome(OrbMountVolume(u"??MEM??", u"A")), "");
  EXPECT_EQ(Outcome(OrbCreateFileA("F", 0)), "");
  EXPECT_EQ(Outcome(OrbCreateDirectoryA("D")), "NO_MEMFILE");
  EXPECT_EQ(OrbGetFileAttributesA("D"), 0xFFFFu);
  EXPECT_TRUE(testhost::NodeInUse(testhost::MemFileImage().ToBytes(), 3));  // D's number stays taken
  const OrbHandle file = OrbOpenFileA("F", ORB_OPEN_WRITE);
  OrbU32 done = 77;
  EXPECT_EQ(Outcome(OrbWriteFile(file, "x", 1, &done)), "NO_MEMFILE");
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Outcome(OrbSetFileSize(file, 1)), "NO_MEMFILE");
  EXPECT_EQ(OrbGetFileSize(file), 0u);
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("F")), "");
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
}

}  // namespace
}  // namespace orba

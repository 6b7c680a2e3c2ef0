// The frame of the A forms: what every entry point does around its operation.
#include "interface/entry_points.h"

#include <functional>

#include "files/find.h"
#include "namespace/current_directory.h"
#include "nodes/node.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class EntryPoints : public LibraryTest {
 protected:
  // The number of the last write among the host's calls of this kind when `operation` runs on a fresh volume.
  static uint32_t WritesOf(const std::function<void()>& operation) {
    testhost::ClearTrace();
    operation();
    return testhost::CallCount(Call::kWriteFile);
  }
};

// ---- Null pointers --------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, null_pointer_fails_with_the_failure_value_and_touches_nothing) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  const OrbHandle file = OrbOpenFileA("F", 3);
  OrbFindDataA found;
  OrbU32 done = 77;
  char buffer[ORB_PATH_BUFFER] = "kept";
  const Bytes before = FileBytes(u"VOL");
  testhost::ClearTrace();
  const struct {
    const char* name;
    std::function<OrbU32()> call;
    OrbU32 failure;
  } calls[] = {
      {"CreateVolume", [&] { return OrbCreateVolume(nullptr); }, 0},
      {"CreateVolumeEx", [&] { return OrbCreateVolumeEx(nullptr, 16, 1024); }, 0},
      {"MountVolume container", [&] { return OrbMountVolume(nullptr, u"B"); }, 0},
      {"MountVolume volume", [&] { return OrbMountVolume(u"VOL", nullptr); }, 0},
      {"GetVolumeInfoA", [&] { return OrbGetVolumeInfoA(nullptr, &done, &done); }, 0},
      {"UnmountVolumeA", [&] { return OrbUnmountVolumeA(nullptr); }, 0},
      {"CreateFileA", [&] { return OrbCreateFileA(nullptr, 0); }, 0},
      {"CreateDirectoryA", [&] { return OrbCreateDirectoryA(nullptr); }, 0},
      {"CopyFileA source", [&] { return OrbCopyFileA(nullptr, "G"); }, 0},
      {"CopyFileA target", [&] { return OrbCopyFileA("F", nullptr); }, 0},
      {"MoveFileA source", [&] { return OrbMoveFileA(nullptr, "G"); }, 0},
      {"MoveFileA target", [&] { return OrbMoveFileA("F", nullptr); }, 0},
      {"RenameFileA path", [&] { return OrbRenameFileA(nullptr, "G"); }, 0},
      {"RenameFileA name", [&] { return OrbRenameFileA("F", nullptr); }, 0},
      {"DeleteFileA", [&] { return OrbDeleteFileA(nullptr); }, 0},
      {"GetFileAttributesA", [&] { return OrbGetFileAttributesA(nullptr); }, 0xFFFF},
      {"SetFileAttributesA", [&] { return OrbSetFileAttributesA(nullptr, 0); }, 0},
      {"ConvertEndian", [&] { return OrbConvertEndian(nullptr, 1), 0u; }, 0},
      {"OpenFileA", [&] { return OrbOpenFileA(nullptr, 1); }, 0xFFFFFFFF},
      {"ReadFile buffer", [&] { return OrbReadFile(file, nullptr, 1, &done); }, 0},
      {"ReadFile done", [&] { return OrbReadFile(file, buffer, 1, nullptr); }, 0},
      {"WriteFile buffer", [&] { return OrbWriteFile(file, nullptr, 1, &done); }, 0},
      {"WriteFile done", [&] { return OrbWriteFile(file, buffer, 1, nullptr); }, 0},
      {"GetCurrentDirectoryA", [&] { return OrbGetCurrentDirectoryA(nullptr); }, 0},
      {"SetCurrentDirectoryA", [&] { return OrbSetCurrentDirectoryA(nullptr); }, 0},
      {"GetFullPathNameA output", [&] { return OrbGetFullPathNameA(nullptr, "F"); }, 0},
      {"GetFullPathNameA path", [&] { return OrbGetFullPathNameA(buffer, nullptr); }, 0},
      {"FindFirstFileA pattern", [&] { return OrbFindFirstFileA(nullptr, &found); }, 0xFFFFFFFF},
      {"FindFirstFileA record", [&] { return OrbFindFirstFileA("*", nullptr); }, 0xFFFFFFFF},
      {"FindNextFileA", [&] { return OrbFindNextFileA(0x20000, nullptr); }, 0},
  };
  for (const auto& entry : calls) {
    EXPECT_EQ(entry.call(), entry.failure) << entry.name;
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT) << entry.name;
  }
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(FileBytes(u"VOL"), before);
  EXPECT_EQ(done, 0u);  // set before anything is looked at
  EXPECT_STREQ(buffer, "kept");
  EXPECT_EQ(NodesListed(), 2u);  // the root and the open file
}

TEST_F(EntryPoints, transfer_of_0_bytes_needs_no_buffer) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  const OrbHandle file = OrbOpenFileA("F", 3);
  OrbU32 done = 77;
  EXPECT_EQ(Outcome(OrbReadFile(file, nullptr, 0, &done)), "");
  EXPECT_EQ(done, 0u);
  done = 77;
  EXPECT_EQ(Outcome(OrbWriteFile(file, nullptr, 0, &done)), "");
  EXPECT_EQ(done, 0u);
}

// ---- Arguments ------------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, create_volume_formats_with_1024_and_4096) {
  ASSERT_EQ(OrbCreateVolume(u"ONE"), 1);
  ASSERT_EQ(OrbCreateVolumeEx(u"TWO", 1024, 4096), 1);
  EXPECT_EQ(FileBytes(u"ONE"), FileBytes(u"TWO"));
}

TEST_F(EntryPoints, create_directory_is_create_file_with_attribute_8) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateDirectoryA("X"), 1);
  const Bytes directory = FileBytes(u"VOL");
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  testhost::RemoveFile(u"VOL");
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("X", 8), 1);
  EXPECT_EQ(FileBytes(u"VOL"), directory);
  EXPECT_EQ(OrbGetFileAttributesA("X"), 8u);
}

TEST_F(EntryPoints, create_file_passes_on_the_low_16_bits_of_the_attributes) {
  FormatAndMount();
  EXPECT_EQ(Outcome(OrbCreateFileA("F", 0xFFFF0003)), "");
  EXPECT_EQ(OrbGetFileAttributesA("F"), 3u);
}

TEST_F(EntryPoints, open_file_passes_on_the_low_16_bits_of_the_mode) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  const OrbHandle file = OrbOpenFileA("F", 0xFFFF0001);
  EXPECT_EQ(file, 0x10000u);
  OrbU32 done = 0;
  EXPECT_EQ(OrbWriteFile(file, "x", 1, &done), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_ACCESS_DENIED);
}

// ---- Codes of paths that lead nowhere -------------------------------------------------------------------------------

TEST_F(EntryPoints, missing_last_name_is_file_not_found_where_the_object_is_meant) {
  FormatAndMount();
  EXPECT_EQ(OrbGetFileAttributesA("F"), 0xFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OrbSetFileAttributesA("F", 1), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OrbOpenFileA("F", 1), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OrbCopyFileA("F", "G"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
}

TEST_F(EntryPoints, missing_last_name_is_path_not_found_where_a_current_directory_is_meant) {
  FormatAndMount();
  EXPECT_EQ(OrbSetCurrentDirectoryA("D"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
}

TEST_F(EntryPoints, more_specific_code_of_the_resolution_is_kept) {
  FormatAndMount();
  const struct {
    const char* path;
    uint32_t code;
  } paths[] = {{"NONE/F", ORB_ERROR_PATH_NOT_FOUND},
               {"B:/F", ORB_ERROR_NOT_MOUNTED},
               {"A B:/F", ORB_ERROR_INVALID_NAME},
               {"", ORB_ERROR_PATH_NOT_FOUND}};
  for (const auto& entry : paths) {
    SCOPED_TRACE(entry.path);
    EXPECT_EQ(OrbGetFileAttributesA(entry.path), 0xFFFFu);
    EXPECT_EQ(GetError(), entry.code);
    EXPECT_EQ(OrbSetFileAttributesA(entry.path, 1), 0);
    EXPECT_EQ(GetError(), entry.code);
    EXPECT_EQ(OrbOpenFileA(entry.path, 1), 0xFFFFFFFFu);
    EXPECT_EQ(GetError(), entry.code);
    EXPECT_EQ(OrbCopyFileA(entry.path, "G"), 0);
    EXPECT_EQ(GetError(), entry.code);
    EXPECT_EQ(OrbSetCurrentDirectoryA(entry.path), 0);
    EXPECT_EQ(GetError(), entry.code);
  }
}

TEST_F(EntryPoints, failed_read_during_resolution_keeps_its_code) {
  FormatAndMount();
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_EQ(OrbGetFileAttributesA("F"), 0xFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
}

TEST_F(EntryPoints, set_current_directory_to_a_file_fails_and_keeps_the_previous) {
  Volume* const volume = FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  EXPECT_EQ(OrbSetCurrentDirectoryA("F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_WRONG_KIND);
  EXPECT_EQ(g_pCurrentDir, volume->root);
  EXPECT_EQ(NodesListed(), 1u);
}

// ---- References -----------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, calls_release_every_reference_they_took_whether_or_not_they_succeed) {
  Volume* const volume = FormatAndMount();
  OrbFindDataA found;
  char path[ORB_PATH_BUFFER];
  const struct {
    const char* name;
    std::function<void()> call;
  } calls[] = {
      {"create directory", [] { OrbCreateDirectoryA("D"); }},
      {"create again", [] { OrbCreateDirectoryA("D"); }},
      {"create file", [] { OrbCreateFileA("D/F", 0); }},
      {"create nowhere", [] { OrbCreateFileA("NONE/F", 0); }},
      {"create with bad bits", [] { OrbCreateFileA("G", 4); }},
      {"copy", [] { OrbCopyFileA("D/F", "G"); }},
      {"copy onto itself", [] { OrbCopyFileA("D/F", "D/F"); }},
      {"copy a directory", [] { OrbCopyFileA("D", "E"); }},
      {"copy nothing", [] { OrbCopyFileA("D/X", "E"); }},
      {"rename", [] { OrbRenameFileA("G", "H"); }},
      {"rename nothing", [] { OrbRenameFileA("G", "H"); }},
      {"move", [] { OrbMoveFileA("H", "D/H"); }},
      {"move nothing", [] { OrbMoveFileA("H", "D/H"); }},
      {"move from nowhere", [] { OrbMoveFileA("NONE/H", "H"); }},
      {"attributes", [] { OrbGetFileAttributesA("D/H"); }},
      {"no attributes", [] { OrbGetFileAttributesA("D/NONE"); }},
      {"set attributes", [] { OrbSetFileAttributesA("D/H", 1); }},
      {"set attributes of a directory", [] { OrbSetFileAttributesA("D", 1); }},
      {"open a directory", [] { OrbOpenFileA("D", 1); }},
      {"open and close", [] { OrbCloseFile(OrbOpenFileA("D/H", 1)); }},
      {"current directory there and back", [] { OrbSetCurrentDirectoryA("D"), OrbSetCurrentDirectoryA("/"); }},
      {"full path", [&] { OrbGetFullPathNameA(path, "D/H"); }},
      {"current path", [&] { OrbGetCurrentDirectoryA(path); }},
      {"search", [&] { OrbFindClose(OrbFindFirstFileA("D/*", &found)); }},
      {"search without a match", [&] { OrbFindFirstFileA("D/Z", &found); }},
      {"delete a full directory", [] { OrbDeleteFileA("D"); }},
      {"delete a file", [] { OrbDeleteFileA("D/H"); }},
      {"delete nothing", [] { OrbDeleteFileA("D/H"); }},
  };
  for (const auto& entry : calls) {
    entry.call();
    EXPECT_EQ(NodesListed(), 1u) << entry.name;
    EXPECT_EQ(volume->root->references, 2u) << entry.name;  // the volume's and the current directory's
  }
}

TEST_F(EntryPoints, copy_to_a_directory_that_does_not_resolve_keeps_the_source_in_use) {  // Q4
  LeavesThingsBehind();
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  EXPECT_EQ(OrbCopyFileA("F", "NONE/G"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OrbOpenFileA("F", 1), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_IN_USE);
  EXPECT_EQ(NodesListed(), 2u);
}

TEST_F(EntryPoints, move_to_a_directory_that_does_not_resolve_keeps_the_source_directory_in_use) {  // Q4
  LeavesThingsBehind();
  FormatAndMount();
  ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
  ASSERT_EQ(OrbCreateFileA("D/F", 0), 1);
  EXPECT_EQ(OrbMoveFileA("D/F", "NONE/G"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(NodesListed(), 2u);
  ASSERT_EQ(OrbDeleteFileA("D/F"), 1);
  EXPECT_EQ(OrbDeleteFileA("D"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_IN_USE);
}

TEST_F(EntryPoints, first_path_is_resolved_before_the_second) {
  FormatAndMount();
  EXPECT_EQ(OrbCopyFileA("F", "B:/G"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OrbMoveFileA("NONE/F", "B:/G"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
}

// ---- Commit ---------------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, mutating_call_whose_commit_fails_returns_0_though_its_work_is_done) {
  const struct {
    const char* name;
    std::function<OrbBool()> call;
  } calls[] = {
      {"create", [] { return OrbCreateFileA("NEW", 0); }},
      {"copy", [] { return OrbCopyFileA("F", "NEW"); }},
      {"move", [] { return OrbMoveFileA("F", "D/NEW"); }},
      {"rename", [] { return OrbRenameFileA("F", "NEW"); }},
      {"delete", [] { return OrbDeleteFileA("F"); }},
      {"attributes", [] { return OrbSetFileAttributesA("F", 1); }},
      {"directory", [] { return OrbCreateDirectoryA("NEW"); }},
  };
  for (const auto& entry : calls) {
    SCOPED_TRACE(entry.name);
    FormatAndMount();
    ASSERT_EQ(OrbCreateFileA("F", 0), 1);
    ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
    const testhost::FileSet files = testhost::Snapshot();
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    ASSERT_NE(Mount(), nullptr);
    const uint32_t writes = WritesOf([&] { ASSERT_EQ(entry.call(), 1); });
    const Bytes after = FileBytes(u"VOL");
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);

    testhost::Restore(files);
    ASSERT_NE(Mount(), nullptr);
    FailNthCall(Call::kWriteFile, writes, coredll::kHostAccessDenied);
    EXPECT_EQ(entry.call(), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_ACCESS_DENIED);
    Bytes marked = after;
    marked[kStateFlagsOffset] = 1;
    EXPECT_EQ(FileBytes(u"VOL"), marked);
    testhost::ClearFaults();
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    testhost::RemoveFile(u"VOL");
  }
}

TEST_F(EntryPoints, handle_call_whose_commit_fails_returns_0_though_its_work_is_done) {
  const std::function<OrbBool(OrbHandle)> calls[] = {
      [](OrbHandle file) {
        OrbU32 done = 0;
        const OrbBool written = OrbWriteFile(file, "data", 4, &done);
        EXPECT_EQ(done, 4u);
        return written;
      },
      [](OrbHandle file) { return OrbSetFileSize(file, 4); },
  };
  for (const auto& call : calls) {
    FormatAndMount();
    ASSERT_EQ(OrbCreateFileA("F", 0), 1);
    const OrbHandle file = OrbOpenFileA("F", 3);
    FailNthCall(Call::kWriteFile, 4, coredll::kHostDiskFull);  // after block, mark and node
    EXPECT_EQ(call(file), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
    EXPECT_EQ(OrbGetFileSize(file), 4u);
    EXPECT_TRUE(testhost::IsMarkedDirty(FileBytes(u"VOL")));
    testhost::ClearFaults();
    ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
    testhost::RemoveFile(u"VOL");
  }
}

TEST_F(EntryPoints, failed_operation_is_committed_too) {
  FormatAndMount();
  FailNthCall(Call::kWriteFile, 2, coredll::kHostDiskFull);  // the node's record, after the mark
  EXPECT_EQ(OrbCreateFileA("F", 0), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_DISK_FULL);
  EXPECT_FALSE(testhost::IsMarkedDirty(FileBytes(u"VOL")));
  EXPECT_EQ(Outcome(OrbCreateFileA("F", 0)), "");
}

TEST_F(EntryPoints, call_that_changes_nothing_writes_nothing) {
  FormatAndMount();
  EXPECT_EQ(OrbDeleteFileA("F"), 0);
  EXPECT_EQ(OrbRenameFileA("F", "G"), 0);
  EXPECT_EQ(OrbCreateFileA("F", 0x10), 0);
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
}

TEST_F(EntryPoints, invalid_handle_means_no_commit) {
  Volume* const volume = FormatAndMount();
  volume->header.stateFlags = kVolumeDirty;
  OrbU32 done = 0;
  EXPECT_EQ(OrbWriteFile(0x10000, "x", 1, &done), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
  EXPECT_EQ(OrbSetFileSize(0x10000, 1), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
  EXPECT_EQ(TraceText(), "");
  volume->header.stateFlags = 0;
}

TEST_F(EntryPoints, copy_commits_the_volume_of_the_target) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  Format(16, 1024, u"OTHER");
  Volume* const other = Mount(u"OTHER", u"B");
  Volume* const own = other->next;
  own->header.stateFlags = kVolumeDirty;
  EXPECT_EQ(Outcome(OrbCopyFileA("A:/F", "B:/F")), "");
  EXPECT_FALSE(testhost::IsMarkedDirty(FileBytes(u"OTHER")));
  EXPECT_EQ(other->header.stateFlags, 0u);
  EXPECT_EQ(own->header.stateFlags, kVolumeDirty);
  own->header.stateFlags = 0;
}

TEST_F(EntryPoints, move_to_another_volume_commits_the_volume_of_the_target_only) {
  FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  Format(16, 1024, u"OTHER");
  Volume* const other = Mount(u"OTHER", u"B");
  Volume* const own = other->next;
  own->header.stateFlags = kVolumeDirty;
  other->header.stateFlags = kVolumeDirty;
  EXPECT_EQ(OrbMoveFileA("A:/F", "B:/F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_MOVE_NOT_ALLOWED);
  EXPECT_EQ(other->header.stateFlags, 0u);
  EXPECT_EQ(own->header.stateFlags, kVolumeDirty);
  own->header.stateFlags = 0;
}

TEST_F(EntryPoints, mutating_calls_on_a_failed_volume_return_0_and_write_nothing) {
  Volume* const volume = FormatAndMount();
  ASSERT_EQ(OrbCreateFileA("F", 0), 1);
  const OrbHandle file = OrbOpenFileA("F", 3);
  ASSERT_EQ(OrbCreateFileA("G", 0), 1);
  volume->failed = 1;
  testhost::ClearTrace();
  const std::function<OrbBool()> calls[] = {
      [] { return OrbCreateFileA("NEW", 0); },
      [] { return OrbCopyFileA("G", "NEW"); },
      [] { return OrbMoveFileA("G", "NEW"); },
      [] { return OrbRenameFileA("G", "NEW"); },
      [] { return OrbDeleteFileA("G"); },
      [] { return OrbSetFileAttributesA("G", 1); },
      [&] {
        OrbU32 done = 0;
        return OrbWriteFile(file, "x", 1, &done);
      },
      [&] { return OrbSetFileSize(file, 1); },
  };
  for (const auto& call : calls) {
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(GetError(), ORB_ERROR_WRITE);
  }
  EXPECT_EQ(testhost::CallCount(Call::kWriteFile), 0u);
  EXPECT_EQ(OrbGetFileAttributesA("G"), 0u);  // reading goes on
}

}  // namespace
}  // namespace orba

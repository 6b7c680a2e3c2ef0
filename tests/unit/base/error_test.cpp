#include "base/error.h"

#include <functional>

#include "files/find.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;

class Error : public LibraryTest {};

TEST_F(Error, state_starts_clear) { EXPECT_EQ(OrbGetLastError(), 0u); }

TEST_F(Error, set_takes_any_value) {  // Q3
  _OrbSetError(0x12345678);
  EXPECT_EQ(OrbGetLastError(), 0x12345678u);
  _OrbSetError(0xFFFFFFFF);
  EXPECT_EQ(OrbGetLastError(), 0xFFFFFFFFu);
}

TEST_F(Error, get_does_not_clear) {
  _OrbSetError(0x30000013);
  OrbGetLastError();
  EXPECT_EQ(OrbGetLastError(), 0x30000013u);
}

TEST_F(Error, clear_makes_it_0) {  // Q3
  _OrbSetError(0x12345678);
  _OrbCrearError();
  EXPECT_EQ(OrbGetLastError(), 0u);
}

TEST_F(Error, fail_sets_the_code_and_returns_false) {
  EXPECT_FALSE(Fail(0x30000007));
  EXPECT_EQ(GetError(), 0x30000007u);
}

TEST_F(Error, fail_overwrites_an_earlier_code) {
  Fail(0x30000007);
  Fail(0x30000003);
  EXPECT_EQ(GetError(), 0x30000003u);
}

TEST_F(Error, fail_if_clear_keeps_an_earlier_code) {
  Fail(0x30000007);
  EXPECT_FALSE(FailIfClear(0x30000013));
  EXPECT_EQ(GetError(), 0x30000007u);
}

TEST_F(Error, fail_if_clear_sets_the_code_where_there_is_none) {
  EXPECT_FALSE(FailIfClear(0x30000013));
  EXPECT_EQ(GetError(), 0x30000013u);
}

TEST_F(Error, out_of_space_is_three_codes_and_no_other) {
  std::vector<uint32_t> codes;
  for (uint32_t code = 0x30000000; code <= 0x300000FF; ++code) {
    SetError(code);
    if (IsOutOfSpace()) codes.push_back(code);
  }
  EXPECT_EQ(codes, (std::vector<uint32_t>{0x30000011, 0x3000001A, 0x3000001B}));
  for (const uint32_t code : {0u, 0x10000001u, 0x1Au, 0x1000001Au}) {
    SetError(code);
    EXPECT_FALSE(IsOutOfSpace()) << code;
  }
}

TEST_F(Error, public_names_have_the_documented_values) {
  EXPECT_EQ(ORB_ERROR_NONE, 0u);
  EXPECT_EQ(ORB_ERROR_NO_MORE_ENTRIES, 0x10000001u);
  EXPECT_EQ(ORB_ERROR_CANNOT_CREATE, 0x30000001u);
  EXPECT_EQ(ORB_ERROR_CANNOT_OPEN, 0x30000002u);
  EXPECT_EQ(ORB_ERROR_WRITE, 0x30000003u);
  EXPECT_EQ(ORB_ERROR_READ, 0x30000004u);
  EXPECT_EQ(ORB_ERROR_WRITE_PROTECTED, 0x30000005u);
  EXPECT_EQ(ORB_ERROR_NOT_READY, 0x30000006u);
  EXPECT_EQ(ORB_ERROR_ABORTED, 0x30000007u);
  EXPECT_EQ(ORB_ERROR_CONTAINER_IN_USE, 0x30000008u);
  EXPECT_EQ(ORB_ERROR_WRONG_VERSION, 0x30000009u);
  EXPECT_EQ(ORB_ERROR_DAMAGED_VOLUME, 0x3000000Au);
  EXPECT_EQ(ORB_ERROR_DAMAGED_RECORD, 0x3000000Bu);
  EXPECT_EQ(ORB_ERROR_NOT_CLEAN, 0x3000000Cu);
  EXPECT_EQ(ORB_ERROR_ALREADY_MOUNTED, 0x3000000Du);
  EXPECT_EQ(ORB_ERROR_INVALID_ARGUMENT, 0x3000000Eu);
  EXPECT_EQ(ORB_ERROR_INVALID_NAME, 0x3000000Fu);
  EXPECT_EQ(ORB_ERROR_PATH_TOO_LONG, 0x30000010u);
  EXPECT_EQ(ORB_ERROR_OUT_OF_MEMORY, 0x30000011u);
  EXPECT_EQ(ORB_ERROR_NOT_MOUNTED, 0x30000012u);
  EXPECT_EQ(ORB_ERROR_FILE_NOT_FOUND, 0x30000013u);
  EXPECT_EQ(ORB_ERROR_PATH_NOT_FOUND, 0x30000014u);
  EXPECT_EQ(ORB_ERROR_FILE_EXISTS, 0x30000015u);
  EXPECT_EQ(ORB_ERROR_ALREADY_OPEN, 0x30000016u);
  EXPECT_EQ(ORB_ERROR_NO_FREE_NODE, 0x30000017u);
  EXPECT_EQ(ORB_ERROR_TOO_MANY_OPEN_FILES, 0x30000018u);
  EXPECT_EQ(ORB_ERROR_ACCESS_DENIED, 0x30000019u);
  EXPECT_EQ(ORB_ERROR_DISK_FULL, 0x3000001Au);
  EXPECT_EQ(ORB_ERROR_VOLUME_FULL, 0x3000001Bu);
  EXPECT_EQ(ORB_ERROR_INVALID_HANDLE, 0x3000001Cu);
  EXPECT_EQ(ORB_ERROR_WRONG_KIND, 0x3000001Du);
  EXPECT_EQ(ORB_ERROR_NOT_A_DIRECTORY, 0x3000001Eu);
  EXPECT_EQ(ORB_ERROR_CURRENT_DIRECTORY, 0x30000020u);
  EXPECT_EQ(ORB_ERROR_NOT_EMPTY, 0x30000021u);
  EXPECT_EQ(ORB_ERROR_IN_USE, 0x30000022u);
  EXPECT_EQ(ORB_ERROR_MOVE_NOT_ALLOWED, 0x30000023u);
  EXPECT_EQ(ORB_ERROR_TOO_MANY_SEARCHES, 0x30000025u);
  EXPECT_EQ(ORB_ERROR_SEEK, 0x30000026u);
  EXPECT_EQ(ORB_ERROR_NO_MEMFILE, 0x30000027u);
  EXPECT_EQ(ORB_ERROR_MEMFILE_NOT_FOUND, 0x30000028u);
}

// ---- The entry rule -------------------------------------------------------------------------------------------------

TEST_F(Error, every_successful_call_leaves_the_state_clear) {
  OrbHandle file = 0;
  OrbHandle search = 0;
  OrbFindDataA found;
  OrbTime now;
  char path[ORB_PATH_BUFFER];
  char bytes[4] = {'d', 'a', 't', 'a'};
  OrbU32 done = 0;
  const struct {
    const char* name;
    std::function<bool()> call;
  } calls[] = {
      {"CreateVolume", [&] { return OrbCreateVolume(u"DEFAULT") == 1; }},
      {"CreateVolumeEx", [&] { return OrbCreateVolumeEx(u"VOL", 16, 1024) == 1; }},
      {"MountVolume", [&] { return OrbMountVolume(u"VOL", u"A") == 1; }},
      {"GetVolumeInfoA", [&] { return OrbGetVolumeInfoA("A", nullptr, nullptr) == 1; }},
      {"CreateFileA", [&] { return OrbCreateFileA("F", 0) == 1; }},
      {"CreateDirectoryA", [&] { return OrbCreateDirectoryA("D") == 1; }},
      {"SetFileAttributesA", [&] { return OrbSetFileAttributesA("F", 2) == 1; }},
      {"GetFileAttributesA", [&] { return OrbGetFileAttributesA("F") == 2; }},
      {"CopyFileA", [&] { return OrbCopyFileA("F", "G") == 1; }},
      {"RenameFileA", [&] { return OrbRenameFileA("G", "H") == 1; }},
      {"MoveFileA", [&] { return OrbMoveFileA("H", "D/H") == 1; }},
      {"DeleteFileA", [&] { return OrbDeleteFileA("D/H") == 1; }},
      {"OpenFileA", [&] { return (file = OrbOpenFileA("F", 3)) == 0x10000; }},
      {"WriteFile", [&] { return OrbWriteFile(file, bytes, 4, &done) == 1; }},
      {"SetFilePointer", [&] { return OrbSetFilePointer(file, 0, 0) == 0; }},
      {"ReadFile", [&] { return OrbReadFile(file, bytes, 4, &done) == 1; }},
      {"SetFileSize", [&] { return OrbSetFileSize(file, 2) == 1; }},
      {"GetFileSize", [&] { return OrbGetFileSize(file) == 2; }},
      {"FlushFileBuffers", [&] { return OrbFlushFileBuffers(file) == 1; }},
      {"CloseFile", [&] { return OrbCloseFile(file) == 1; }},
      {"SetCurrentDirectoryA", [&] { return OrbSetCurrentDirectoryA("D") == 1; }},
      {"GetCurrentDirectoryA", [&] { return OrbGetCurrentDirectoryA(path) == 1; }},
      {"GetFullPathNameA", [&] { return OrbGetFullPathNameA(path, "X") == 1; }},
      {"FindFirstFileA", [&] { return (search = OrbFindFirstFileA("/*", &found)) == 0x20000; }},
      {"FindNextFileA", [&] { return OrbFindNextFileA(search, &found) == 1; }},
      {"FindClose", [&] { return OrbFindClose(search) == 1; }},
      {"GetTime", [&] { return OrbGetTime(&now), true; }},
      {"ConvertEndian", [&] { return OrbConvertEndian(bytes, 4), true; }},
      {"UnmountVolumeA", [&] { return OrbUnmountVolumeA("A") == 1; }},
  };
  for (const auto& entry : calls) {
    _OrbSetError(0x12345678);
    EXPECT_TRUE(entry.call()) << entry.name;
    EXPECT_EQ(OrbGetLastError(), 0u) << entry.name;
  }
}

TEST_F(Error, two_failures_in_one_call_leave_the_later_code) {
  FormatAndMount();
  FailNthCall(Call::kWriteFile, 2, coredll::kHostNotReady);  // the first write after the dirty mark
  EXPECT_EQ(OrbCreateFileA("F", 0), 0);
  EXPECT_EQ(OrbGetLastError(), 0x30000003u);  // the commit, refused, after the 0x30000006
}

TEST_F(Error, wide_call_whose_conversion_runs_out_of_memory_leaves_that_code) {
  FormatAndMount();
  _OrbSetError(0x12345678);
  testhost::FailNthAllocation(1);
  EXPECT_EQ(OrbDeleteFileW(u"F"), 0);
  EXPECT_EQ(OrbGetLastError(), 0x30000011u);
}

TEST_F(Error, wide_call_clears_the_state_through_its_ansi_form) {
  FormatAndMount();
  _OrbSetError(0x12345678);
  EXPECT_EQ(OrbCreateFileW(u"F", 0), 1);
  EXPECT_EQ(OrbGetLastError(), 0u);
}

}  // namespace
}  // namespace orba

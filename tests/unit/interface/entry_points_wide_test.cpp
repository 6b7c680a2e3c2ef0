// The W forms: they convert, call their A form, and fail with 0 where a string does not convert.
#include <string.h>

#include <functional>

#include "files/find.h"
#include "unit/library_test.h"

namespace orba {
namespace {

using testhost::FailNthAllocation;
using testhost::FailNthCall;
using testhost::FileBytes;
using testhost::TraceText;

class WideForms : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    FormatAndMount();
    ASSERT_EQ(OrbCreateFileA("F", 2), 1);
    ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
    testhost::ClearTrace();
  }
};

// Every W form, with the number of strings it converts on its way in.
struct WideCall {
  const char* name;
  uint32_t strings;
  std::function<OrbU32()> call;
};

std::vector<WideCall> WideCalls() {
  static OrbFindDataW found;
  static OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  return {
      {"MountVolume", 1, [] { return OrbMountVolume(u"VOL", u"B"); }},
      {"GetVolumeInfoW", 1, [] { return OrbGetVolumeInfoW(u"A", nullptr, nullptr); }},
      {"CreateFileW", 1, [] { return OrbCreateFileW(u"NEW", 0); }},
      {"CreateDirectoryW", 1, [] { return OrbCreateDirectoryW(u"NEW"); }},
      {"CopyFileW", 2, [] { return OrbCopyFileW(u"F", u"NEW"); }},
      {"MoveFileW", 2, [] { return OrbMoveFileW(u"F", u"NEW"); }},
      {"RenameFileW", 2, [] { return OrbRenameFileW(u"F", u"NEW"); }},
      {"DeleteFileW", 1, [] { return OrbDeleteFileW(u"F"); }},
      {"GetFileAttributesW", 1, [] { return OrbGetFileAttributesW(u"F"); }},
      {"SetFileAttributesW", 1, [] { return OrbSetFileAttributesW(u"F", 1); }},
      {"OpenFileW", 1, [] { return OrbOpenFileW(u"F", 1); }},
      {"SetCurrentDirectoryW", 1, [] { return OrbSetCurrentDirectoryW(u"D"); }},
      {"GetFullPathNameW", 1, [] { return OrbGetFullPathNameW(path, u"F"); }},
      {"FindFirstFileW", 1, [] { return OrbFindFirstFileW(u"*", &found); }},
      {"UnmountVolumeW", 1, [] { return OrbUnmountVolumeW(u"A"); }},
  };
}

TEST_F(WideForms, conversion_without_memory_returns_0_and_does_nothing) {
  const Bytes before = FileBytes(u"VOL");
  const size_t held = testhost::AllocationsHeld();
  for (const WideCall& wide : WideCalls()) {
    for (uint32_t n = 1; n <= wide.strings; ++n) {
      SCOPED_TRACE(wide.name + std::string(" ") + std::to_string(n));
      FailNthAllocation(n);
      EXPECT_EQ(wide.call(), 0u);
      EXPECT_EQ(testhost::AllocationFaultsFired(), 1u);
      EXPECT_EQ(GetError(), ORB_ERROR_OUT_OF_MEMORY);
      EXPECT_EQ(testhost::AllocationsHeld(), held);
    }
  }
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(FileBytes(u"VOL"), before);
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(WideForms, conversion_that_the_platform_refuses_returns_0_and_does_nothing) {
  const Bytes before = FileBytes(u"VOL");
  const size_t held = testhost::AllocationsHeld();
  for (const WideCall& wide : WideCalls()) {
    for (uint32_t n = 1; n <= wide.strings; ++n) {
      SCOPED_TRACE(wide.name + std::string(" ") + std::to_string(n));
      FailNthCall(Call::kWideToAnsi, n, coredll::kHostNoUnicodeTranslation);
      EXPECT_EQ(wide.call(), 0u);
      EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
      EXPECT_EQ(testhost::AllocationsHeld(), held);
    }
  }
  EXPECT_EQ(TraceText(), "");
  EXPECT_EQ(FileBytes(u"VOL"), before);
}

TEST_F(WideForms, first_string_that_does_not_convert_ends_the_call) {  // Q1
  FailNthCall(Call::kWideToAnsi, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbCopyFileW(u"F", u"G"), 0);
  EXPECT_EQ(testhost::CallCount(Call::kWideToAnsi), 1u);
}

TEST_F(WideForms, null_string_is_an_invalid_argument_and_returns_0) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  OrbFindDataW found;
  const std::function<OrbU32()> calls[] = {
      [] { return OrbGetVolumeInfoW(nullptr, nullptr, nullptr); },
      [] { return OrbUnmountVolumeW(nullptr); },
      [] { return OrbCreateFileW(nullptr, 0); },
      [] { return OrbCreateDirectoryW(nullptr); },
      [] { return OrbCopyFileW(nullptr, u"G"); },
      [] { return OrbCopyFileW(u"F", nullptr); },
      [] { return OrbMoveFileW(nullptr, u"G"); },
      [] { return OrbMoveFileW(u"F", nullptr); },
      [] { return OrbRenameFileW(nullptr, u"G"); },
      [] { return OrbRenameFileW(u"F", nullptr); },
      [] { return OrbDeleteFileW(nullptr); },
      [] { return OrbGetFileAttributesW(nullptr); },
      [] { return OrbSetFileAttributesW(nullptr, 0); },
      [] { return OrbOpenFileW(nullptr, 1); },
      [] { return OrbGetCurrentDirectoryW(nullptr); },
      [] { return OrbSetCurrentDirectoryW(nullptr); },
      [] { return OrbGetFullPathNameW(nullptr, u"F"); },
      [&] { return OrbGetFullPathNameW(path, nullptr); },
      [&] { return OrbFindFirstFileW(nullptr, &found); },
      [] { return OrbFindNextFileW(0x20000, nullptr); },
  };
  for (const auto& call : calls) {
    ClearError();
    EXPECT_EQ(call(), 0u);
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(TraceText(), "");
}

TEST_F(WideForms, search_without_a_record_fails_with_the_failure_value) {
  EXPECT_EQ(OrbFindFirstFileW(u"*", nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(g_FindTable[0].node, nullptr);
}

// ---- Results of the A form ------------------------------------------------------------------------------------------

TEST_F(WideForms, results_of_the_ansi_form_are_returned_unchanged) {
  EXPECT_EQ(OrbGetFileAttributesW(u"F"), 2u);
  EXPECT_EQ(OrbGetFileAttributesW(u"NONE"), 0xFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OrbOpenFileW(u"NONE", 1), 0xFFFFFFFFu);
  EXPECT_EQ(OrbOpenFileW(u"F", 3), 0x10000u);
  EXPECT_EQ(OrbCloseFile(0x10000), 1);
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(OrbGetVolumeInfoW(u"a", &bitmapBytes, &blockSize), 1);
  EXPECT_EQ(bitmapBytes, 16u);
  EXPECT_EQ(blockSize, 1024u);
}

TEST_F(WideForms, names_are_worked_on_as_the_ansi_form_does) {
  EXPECT_EQ(Outcome(OrbCreateFileW(u"w", 1)), "");
  EXPECT_EQ(OrbGetFileAttributesA("W"), 1u);
  EXPECT_EQ(Outcome(OrbSetFileAttributesW(u"W", 0)), "");
  EXPECT_EQ(OrbGetFileAttributesA("W"), 0u);
  EXPECT_EQ(Outcome(OrbRenameFileW(u"W", u"V")), "");
  EXPECT_EQ(Outcome(OrbCopyFileW(u"V", u"C")), "");
  EXPECT_EQ(Outcome(OrbMoveFileW(u"C", u"D/C")), "");
  EXPECT_EQ(OrbGetFileAttributesA("D/C"), 0u);
  EXPECT_EQ(Outcome(OrbDeleteFileW(u"V")), "");
  EXPECT_EQ(OrbGetFileAttributesA("V"), 0xFFFFu);
  EXPECT_EQ(Outcome(OrbCreateDirectoryW(u"E")), "");
  EXPECT_EQ(OrbGetFileAttributesA("E"), 8u);
  EXPECT_EQ(Outcome(OrbUnmountVolumeW(u"A")), "");
  EXPECT_EQ(OrbGetVolumeInfoA("A", nullptr, nullptr), 0);
}

TEST_F(WideForms, character_outside_ascii_is_an_invalid_name) {
  EXPECT_EQ(OrbCreateFileW(u"\u00C9", 0), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
  EXPECT_EQ(OrbCreateFileW(u"\u4E2D", 0), 0);  // a question mark by now
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_NAME);
}

TEST_F(WideForms, container_name_goes_to_the_host_as_it_is) {
  ASSERT_EQ(OrbCreateVolumeEx(u"d\u00E9j\u00E0 \u4E2D", 16, 1024), 1);
  EXPECT_TRUE(testhost::FileExists(u"d\u00E9j\u00E0 \u4E2D"));
  EXPECT_EQ(Outcome(OrbMountVolume(u"d\u00E9j\u00E0 \u4E2D", u"B")), "");
  EXPECT_EQ(testhost::CallCount(Call::kWideToAnsi), 1u);  // the volume name alone
}

// ---- Strings on their way out ---------------------------------------------------------------------------------------

TEST_F(WideForms, current_directory_comes_back_wide) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  ASSERT_EQ(OrbSetCurrentDirectoryW(u"d"), 1);
  EXPECT_EQ(Outcome(OrbGetCurrentDirectoryW(path)), "");
  EXPECT_EQ(std::u16string(path), u"A:/D");
}

TEST_F(WideForms, current_directory_that_does_not_widen_fails) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbGetCurrentDirectoryW(path), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
}

TEST_F(WideForms, current_directory_where_there_is_none_fails_as_the_ansi_form) {
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  EXPECT_EQ(OrbGetCurrentDirectoryW(path), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
  EXPECT_EQ(testhost::CallCount(Call::kAnsiToWide), 0u);
}

TEST_F(WideForms, full_path_comes_back_wide) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  EXPECT_EQ(Outcome(OrbGetFullPathNameW(path, u"d/x")), "");
  EXPECT_EQ(std::u16string(path), u"A:/D/X");
}

TEST_F(WideForms, full_path_that_does_not_widen_fails_and_leaks_nothing) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  const size_t held = testhost::AllocationsHeld();
  FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbGetFullPathNameW(path, u"F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(testhost::AllocationsHeld(), held);
}

TEST_F(WideForms, paths_are_widened_into_256_characters_and_names_into_60) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  OrbFindDataW found;
  EXPECT_EQ(OrbGetFullPathNameW(path, u"F"), 1);
  EXPECT_EQ(OrbGetCurrentDirectoryW(path), 1);
  const OrbHandle search = OrbFindFirstFileW(u"*", &found);
  EXPECT_EQ(OrbFindNextFileW(search, &found), 1);
  std::vector<uint32_t> rooms;
  for (const testhost::CallRecord& record : testhost::Trace()) {
    if (record.call == Call::kAnsiToWide) rooms.push_back(record.count);
  }
  EXPECT_EQ(rooms, (std::vector<uint32_t>{256, 256, 60, 60}));
  EXPECT_EQ(OrbFindClose(search), 1);
}

// What the caller keeps where the A form fails, filled so that every change shows.
TEST_F(WideForms, path_buffer_stays_as_it_was_where_the_ansi_form_fails) {
  const std::u16string untouched(ORB_WIDE_PATH_BUFFER, 0x7777);
  std::u16string path = untouched;
  EXPECT_EQ(OrbGetFullPathNameW(path.data(), u"NONE/X"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OrbGetFullPathNameW(path.data(), u""), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OrbGetFullPathNameW(path.data(), u"B:/F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
  FailNthCall(Call::kWideToAnsi, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbGetFullPathNameW(path.data(), u"F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  ASSERT_EQ(OrbSetCurrentDirectoryA("D"), 1);
  FailNthCall(Call::kReadFile, 1, coredll::kHostNotReady);
  EXPECT_EQ(OrbGetCurrentDirectoryW(path.data()), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  ASSERT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(OrbGetCurrentDirectoryW(path.data()), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
  EXPECT_EQ(OrbGetFullPathNameW(path.data(), u"F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_MOUNTED);
  EXPECT_EQ(path, untouched);
  EXPECT_EQ(testhost::CallCount(Call::kAnsiToWide), 0u);
}

TEST_F(WideForms, search_record_stays_as_it_was_where_the_ansi_form_fails) {
  OrbFindDataW found;
  memset(&found, 0x77, sizeof found);
  const OrbFindDataW untouched = found;
  EXPECT_EQ(OrbFindFirstFileW(u"NONE*", &found), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MORE_ENTRIES);
  EXPECT_EQ(OrbFindNextFileW(0x20000, &found), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE);
  EXPECT_EQ(memcmp(&found, &untouched, sizeof found), 0);
  EXPECT_EQ(testhost::CallCount(Call::kAnsiToWide), 0u);
}

TEST_F(WideForms, conversion_whose_result_is_negative_fails_as_with_0) {
  OrbWideChar path[ORB_WIDE_PATH_BUFFER];
  OrbFindDataW found;
  const size_t held = testhost::AllocationsHeld();
  testhost::SetFailedConversion(-1);
  FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation, Repeat::kFromThenOn);
  EXPECT_EQ(Outcome(OrbGetFullPathNameW(path, u"F")), "INVALID_ARGUMENT");
  EXPECT_EQ(Outcome(OrbGetCurrentDirectoryW(path)), "INVALID_ARGUMENT");
  EXPECT_EQ(OrbFindFirstFileW(u"*", &found), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(Outcome(OrbFindNextFileW(0x20000, &found)), "INVALID_HANDLE");  // nothing stayed open
  FailNthCall(Call::kWideToAnsi, 1, coredll::kHostNoUnicodeTranslation, Repeat::kFromThenOn);
  EXPECT_EQ(Outcome(OrbCreateFileW(u"NEW", 0)), "INVALID_ARGUMENT");
  EXPECT_EQ(OrbOpenFileW(u"F", 1), 0u);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  testhost::ClearFaults();
  EXPECT_EQ(OrbGetFileAttributesA("NEW"), 0xFFFFu);
  EXPECT_EQ(testhost::AllocationsHeld(), held);
}

TEST_F(WideForms, search_fills_the_wide_record) {
  OrbFindDataW found;
  const OrbHandle search = OrbFindFirstFileW(u"f", &found);
  EXPECT_EQ(search, 0x20000u);
  EXPECT_EQ(std::u16string(found.name), u"F");
  EXPECT_EQ(found.attributes, 2u);
  EXPECT_EQ(found.size, 0u);
  EXPECT_EQ(found.time.year, 2001);
  EXPECT_EQ(found.time.second, 6);
  EXPECT_EQ(OrbFindNextFileW(search, &found), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MORE_ENTRIES);
  EXPECT_EQ(OrbFindClose(search), 1);
}

TEST_F(WideForms, first_name_that_does_not_widen_closes_the_search) {
  OrbFindDataW found;
  const size_t held = testhost::AllocationsHeld();
  FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbFindFirstFileW(u"*", &found), 0xFFFFFFFFu);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(g_FindTable[0].node, nullptr);
  EXPECT_EQ(testhost::AllocationsHeld(), held);
}

TEST_F(WideForms, next_name_that_does_not_widen_leaves_the_rest_of_the_record_overwritten) {  // Q16
  OrbFindDataW found;
  const OrbHandle search = OrbFindFirstFileW(u"*", &found);
  ASSERT_EQ(search, 0x20000u);
  ASSERT_EQ(OrbFindNextFileW(search, &found), 1);  // ".."
  found.attributes = 0x7777;
  found.size = 0x7777;
  found.time.year = 0x7777;
  FailNthCall(Call::kAnsiToWide, 1, coredll::kHostNoUnicodeTranslation);
  EXPECT_EQ(OrbFindNextFileW(search, &found), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(found.attributes, 2u);  // F's
  EXPECT_EQ(found.size, 0u);
  EXPECT_EQ(found.time.year, 2001);
  EXPECT_EQ(OrbFindNextFileW(search, &found), 1);
  EXPECT_EQ(std::u16string(found.name), u"D");
  EXPECT_EQ(OrbFindClose(search), 1);
}

}  // namespace
}  // namespace orba

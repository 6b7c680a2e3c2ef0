#include "files/open_file.h"

#include <functional>

#include "namespace/path.h"
#include "unit/tree_test.h"

namespace orba {
namespace {

using testhost::FailNthCall;

// 256 nodes, enough to fill the table.
class OpenFile : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    Start(32, 1024);
  }

  static std::string OpenOutcome(const char* path, uint32_t mode = 3) {
    const OrbHandle file = OrbOpenFileA(path, mode);
    return Outcome(file != ORB_INVALID_HANDLE);
  }

  static std::string Name(uint32_t i) { return "F" + std::to_string(i); }

  // Opens files F<first> to F<last>, which exist.
  static void OpenFiles(uint32_t first, uint32_t last) {
    for (uint32_t i = first; i <= last; ++i) ASSERT_NE(OrbOpenFileA(Name(i).c_str(), 3), ORB_INVALID_HANDLE) << i;
    testhost::ClearTrace();
  }
};

// ---- Opening --------------------------------------------------------------------------------------------------------

TEST_F(OpenFile, open_takes_a_slot_with_a_reference_and_no_call_of_its_own) {
  MakeFile("F", Pattern(10));
  const OrbHandle file = OrbOpenFileA("F", 3);
  EXPECT_EQ(file, 0x10000u);
  EXPECT_EQ(Calls(), "read block 2 / read node 2");
  const OrbOpenFileEntry& slot = g_OpenFileTable[0];
  EXPECT_EQ(slot.node->record.number, 2u);
  EXPECT_EQ(slot.node->references, 1u);
  EXPECT_EQ(slot.position, 0u);
  EXPECT_EQ(slot.mode, 3u);
}

TEST_F(OpenFile, open_accepts_the_four_modes) {
  MakeFiles("F", 0, 3);
  for (uint32_t mode = 0; mode <= 3; ++mode) {
    const OrbHandle file = OrbOpenFileA(Name(mode).c_str(), mode);
    EXPECT_EQ(file, 0x10000u + mode);
    EXPECT_EQ(g_OpenFileTable[mode].mode, mode);
  }
}

TEST_F(OpenFile, open_refuses_every_other_mode_bit) {
  MakeFile("F");
  for (uint32_t bit = 4; bit < 0x10000; bit <<= 1) {
    EXPECT_EQ(OpenOutcome("F", bit), "INVALID_ARGUMENT") << bit;
    EXPECT_EQ(OpenOutcome("F", bit | 3), "INVALID_ARGUMENT") << bit;
  }
  EXPECT_EQ(OpenOutcome("F", 0x10003), "");  // the low 16 bits are passed on
}

TEST_F(OpenFile, open_of_a_read_only_file_for_writing_is_denied) {
  MakeFile("F");
  ASSERT_EQ(OrbSetFileAttributesA("F", 1), 1);
  EXPECT_EQ(OpenOutcome("F", 2), "ACCESS_DENIED");
  EXPECT_EQ(OpenOutcome("F", 3), "ACCESS_DENIED");
  EXPECT_EQ(OpenOutcome("F", 1), "");
}

TEST_F(OpenFile, open_of_the_caller_s_own_flag_is_not_denied) {
  MakeFile("F");
  ASSERT_EQ(OrbSetFileAttributesA("F", 2), 1);
  EXPECT_EQ(OpenOutcome("F", 3), "");
}

TEST_F(OpenFile, open_of_a_file_a_second_time_fails_whatever_the_modes) {
  MakeFile("F");
  ASSERT_EQ(OpenOutcome("F", 1), "");
  EXPECT_EQ(OpenOutcome("F", 1), "ALREADY_OPEN");
  EXPECT_EQ(OpenOutcome("f", 0), "ALREADY_OPEN");
  EXPECT_EQ(g_OpenFileTable[0].node->references, 1u);
}

TEST_F(OpenFile, open_of_a_file_held_by_something_else_is_in_use) {
  MakeFile("F");
  ClearError();
  const NodeRef holder(OrbResolvePath("F"));
  EXPECT_EQ(OpenOutcome("F", 1), "IN_USE");
  EXPECT_EQ(holder.node->references, 1u);
}

TEST_F(OpenFile, open_code_table) {
  MakeFile("F");
  MakeDirectory("D");
  EXPECT_EQ(OpenOutcome("X"), "FILE_NOT_FOUND");
  EXPECT_EQ(OpenOutcome("X/Y"), "PATH_NOT_FOUND");
  EXPECT_EQ(OpenOutcome(""), "PATH_NOT_FOUND");
  EXPECT_EQ(OpenOutcome("D"), "WRONG_KIND");
  EXPECT_EQ(OpenOutcome("/"), "WRONG_KIND");
  EXPECT_EQ(OpenOutcome("D/.."), "WRONG_KIND");
  EXPECT_EQ(OpenOutcome("F/X"), "PATH_NOT_FOUND");
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(OpenOutcome("F/"), "");  // a trailing "/" adds nothing
}

TEST_F(OpenFile, open_decides_by_the_first_test_that_fails) {
  MakeFiles("F", 0, 127);
  MakeFile("RO");
  ASSERT_EQ(OrbSetFileAttributesA("RO", 1), 1);
  MakeDirectory("D");
  ClearError();
  OrbNode stranger = {};
  stranger.references = 1;
  stranger.record.attributes = ORB_NODE_DIRECTORY;
  EXPECT_EQ(OrbOpenFile(&stranger, 0xFFFF), kOpenFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OrbOpenFile(nullptr, 0xFFFF), kOpenFailed);
  EXPECT_EQ(GetError(), ORB_ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenOutcome("D", 0xFFFF), "WRONG_KIND");
  EXPECT_EQ(OpenOutcome("RO", 7), "INVALID_ARGUMENT");
  ASSERT_EQ(OpenOutcome("RO", 1), "");
  EXPECT_EQ(OpenOutcome("RO", 2), "ACCESS_DENIED");  // before: already open
  OpenFiles(0, 126);
  EXPECT_EQ(OpenOutcome("RO", 1), "ALREADY_OPEN");  // before: no slot
  const NodeRef holder(OrbResolvePath("F127"));
  EXPECT_EQ(OpenOutcome("F127"), "TOO_MANY_OPEN_FILES");  // before: in use
  ASSERT_EQ(OrbCloseFile(0x10000), 1);
  EXPECT_EQ(OpenOutcome("F127"), "IN_USE");
}

// ---- The table and its cursor ---------------------------------------------------------------------------------------

TEST_F(OpenFile, table_takes_128_files_and_no_more) {
  MakeFiles("F", 0, 128);
  for (uint32_t i = 0; i < 128; ++i) EXPECT_EQ(OrbOpenFileA(Name(i).c_str(), 1), 0x10000u + i);
  EXPECT_EQ(g_dwOpenFileCursor, 127u);
  EXPECT_EQ(OpenOutcome("F128"), "TOO_MANY_OPEN_FILES");
  EXPECT_EQ(g_dwOpenFileCursor, 127u);  // all the way round
  EXPECT_EQ(NodesListed(), 129u);
}

TEST_F(OpenFile, cursor_stays_at_the_slot_just_taken) {
  MakeFiles("F", 0, 2);
  EXPECT_EQ(OrbOpenFileA("F0", 1), 0x10000u);
  EXPECT_EQ(g_dwOpenFileCursor, 0u);
  EXPECT_EQ(OrbOpenFileA("F1", 1), 0x10001u);
  EXPECT_EQ(g_dwOpenFileCursor, 1u);
  ASSERT_EQ(OrbCloseFile(0x10001), 1);
  EXPECT_EQ(OrbOpenFileA("F2", 1), 0x10001u);  // its slot is free again
  ASSERT_EQ(OrbCloseFile(0x10000), 1);
  EXPECT_EQ(OrbOpenFileA("F0", 1), 0x10002u);  // onward, not back to slot 0
}

TEST_F(OpenFile, cursor_goes_to_the_first_free_slot_from_where_it_is_and_wraps) {
  MakeFiles("F", 0, 130);
  OpenFiles(0, 127);
  for (const uint32_t slot : {5u, 3u, 100u}) ASSERT_EQ(OrbCloseFile(0x10000 + slot), 1);
  EXPECT_EQ(OrbOpenFileA("F128", 1), 0x10003u);
  EXPECT_EQ(OrbOpenFileA("F129", 1), 0x10005u);
  EXPECT_EQ(OrbOpenFileA("F130", 1), 0x10064u);
}

TEST_F(OpenFile, cursor_moves_for_every_slot_looked_at_before_the_double_is_met) {
  MakeFiles("F", 0, 2);
  OpenFiles(0, 2);
  ASSERT_EQ(g_dwOpenFileCursor, 2u);
  EXPECT_EQ(OpenOutcome("F0"), "ALREADY_OPEN");  // met at once
  EXPECT_EQ(g_dwOpenFileCursor, 2u);
  EXPECT_EQ(OpenOutcome("F2"), "ALREADY_OPEN");  // slots 0 and 1 were looked at before: past slot 2, and 3 is free
  EXPECT_EQ(g_dwOpenFileCursor, 3u);
}

TEST_F(OpenFile, double_is_met_behind_the_free_slot_too) {
  MakeFiles("F", 0, 2);
  OpenFiles(0, 2);
  ASSERT_EQ(OrbCloseFile(0x10000), 1);
  g_dwOpenFileCursor = 0;
  EXPECT_EQ(OpenOutcome("F2"), "ALREADY_OPEN");
  EXPECT_EQ(g_OpenFileTable[0].node, nullptr);
}

TEST_F(OpenFile, open_that_fails_leaves_every_slot_as_it_was) {
  MakeFile("F");
  ClearError();
  const NodeRef holder(OrbResolvePath("F"));
  EXPECT_EQ(OpenOutcome("F"), "IN_USE");
  for (const OrbOpenFileEntry& slot : g_OpenFileTable) EXPECT_EQ(slot.node, nullptr);
}

// ---- Handles --------------------------------------------------------------------------------------------------------

TEST_F(OpenFile, every_other_handle_is_invalid) {
  MakeFile("F0");
  OpenFiles(0, 0);
  MakeDirectory("D");
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("D/", &found);
  ASSERT_EQ(search, 0x20000u);
  uint8_t byte = 0;
  OrbU32 done = 77;
  testhost::ClearTrace();
  for (const OrbHandle handle : {0u, 1u, 0xFFFFu, 0x10001u, 0x1007Fu, 0x10080u, 0x1FFFFu, search, 0x30000u, 0x110000u,
                                 0x80010000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(OrbGetFileSize(handle), 0xFFFFFFFFu) << handle;
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE) << handle;
    EXPECT_EQ(OrbSetFilePointer(handle, 0, 0), 0xFFFFFFFFu) << handle;
    EXPECT_EQ(GetError(), ORB_ERROR_INVALID_HANDLE) << handle;
    EXPECT_EQ(Outcome(OrbReadFile(handle, &byte, 1, &done)), "INVALID_HANDLE") << handle;
    EXPECT_EQ(Outcome(OrbWriteFile(handle, &byte, 1, &done)), "INVALID_HANDLE") << handle;
    EXPECT_EQ(done, 0u) << handle;
    EXPECT_EQ(Outcome(OrbSetFileSize(handle, 0)), "INVALID_HANDLE") << handle;
    EXPECT_EQ(Outcome(OrbFlushFileBuffers(handle)), "INVALID_HANDLE") << handle;
    EXPECT_EQ(Outcome(OrbCloseFile(handle)), "INVALID_HANDLE") << handle;
    ClearError();
    EXPECT_EQ(OrbGetHandleVolume(handle), nullptr) << handle;
    EXPECT_EQ(GetError(), 0u) << handle;
  }
  EXPECT_EQ(Calls(), "");
  EXPECT_EQ(OrbFindClose(search), 1);
}

TEST_F(OpenFile, handle_of_a_closed_file_names_what_is_opened_in_its_slot) {  // Q13
  MakeFile("F", Pattern(10));
  MakeFile("G", Pattern(20));
  const OrbHandle file = Open("F");
  ASSERT_EQ(OrbCloseFile(file), 1);
  ASSERT_EQ(Open("G"), file);
  EXPECT_EQ(OrbGetFileSize(file), 20u);
}

TEST_F(OpenFile, volume_of_a_handle_leaves_the_error_state_alone) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  SetError(0x12345678);
  EXPECT_EQ(OrbGetHandleVolume(file), volume_);
  EXPECT_EQ(GetError(), 0x12345678u);
  EXPECT_EQ(OrbGetHandleVolume(file + 1), nullptr);
  EXPECT_EQ(GetError(), 0x12345678u);
}

TEST_F(OpenFile, mode_0_allows_seek_size_flush_and_close_alone) {
  MakeFile("F", Pattern(10));
  const OrbHandle file = Open("F", 0);
  uint8_t byte = 0;
  OrbU32 done = 77;
  EXPECT_EQ(OrbGetFileSize(file), 10u);
  EXPECT_EQ(OrbSetFilePointer(file, 4, 0), 4u);
  EXPECT_EQ(Outcome(OrbReadFile(file, &byte, 1, &done)), "ACCESS_DENIED");
  EXPECT_EQ(done, 0u);
  done = 77;
  EXPECT_EQ(Outcome(OrbWriteFile(file, &byte, 1, &done)), "ACCESS_DENIED");
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Outcome(OrbSetFileSize(file, 0)), "ACCESS_DENIED");
  EXPECT_EQ(Outcome(OrbFlushFileBuffers(file)), "");
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "");
}

// ---- Flushing and closing -------------------------------------------------------------------------------------------

TEST_F(OpenFile, flush_is_one_flush_of_the_container) {
  MakeFile("F");
  const OrbHandle file = Open("F", 1);
  EXPECT_EQ(Outcome(OrbFlushFileBuffers(file)), "");
  EXPECT_EQ(Calls(), "flush");
}

TEST_F(OpenFile, flush_that_fails_keeps_the_code_and_the_file_open) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  FailNthCall(Call::kFlushFileBuffers, 1, coredll::kHostDiskFull);
  EXPECT_EQ(Outcome(OrbFlushFileBuffers(file)), "DISK_FULL");
  EXPECT_EQ(volume_->failed, 0u);
  EXPECT_EQ(Outcome(OrbFlushFileBuffers(file)), "");
}

TEST_F(OpenFile, close_flushes_and_frees_the_slot) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "");
  EXPECT_EQ(Calls(), "flush");
  EXPECT_EQ(g_OpenFileTable[0].node, nullptr);
  EXPECT_EQ(NodesListed(), 1u);
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "INVALID_HANDLE");
}

TEST_F(OpenFile, close_whose_flush_fails_frees_the_slot_all_the_same) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  FailNthCall(Call::kFlushFileBuffers, 1, coredll::kHostNotReady);
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "NOT_READY");
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "INVALID_HANDLE");
  EXPECT_EQ(NodesListed(), 1u);
}

TEST_F(OpenFile, close_on_a_failed_volume_is_a_success) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  volume_->failed = 1;
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "");
}

TEST_F(OpenFile, flush_and_close_report_what_the_host_says) {
  MakeFile("F");
  const struct {
    uint32_t host, code;
  } rows[] = {{5, ORB_ERROR_ACCESS_DENIED},  {6, ORB_ERROR_DAMAGED_RECORD},   {8, ORB_ERROR_OUT_OF_MEMORY},
              {14, ORB_ERROR_OUT_OF_MEMORY}, {19, ORB_ERROR_WRITE_PROTECTED}, {21, ORB_ERROR_NOT_READY},
              {112, ORB_ERROR_DISK_FULL},    {1235, ORB_ERROR_ABORTED},       {2, ORB_ERROR_WRITE},
              {9999, ORB_ERROR_WRITE}};
  for (const auto& row : rows) {
    const OrbHandle file = Open("F");
    FailNthCall(Call::kFlushFileBuffers, 1, row.host, Repeat::kFromThenOn);
    EXPECT_EQ(OrbFlushFileBuffers(file), 0) << row.host;
    EXPECT_EQ(GetError(), row.code) << row.host;
    ClearError();
    EXPECT_EQ(OrbCloseFile(file), 0) << row.host;
    EXPECT_EQ(GetError(), row.code) << row.host;
    EXPECT_EQ(testhost::FaultsFired(), 2u) << row.host;
    testhost::ClearFaults();
    EXPECT_EQ(Outcome(OrbCloseFile(file)), "INVALID_HANDLE") << row.host;
  }
  EXPECT_EQ(volume_->failed, 0u);
}

// ---- The files of a volume ------------------------------------------------------------------------------------------

TEST_F(OpenFile, unmount_closes_the_volume_s_files_and_no_other) {
  Format(16, 1024, u"OTHER");
  ASSERT_NE(Mount(u"OTHER", u"B"), nullptr);
  MakeFiles("F", 0, 2);
  MakeFile("B:/G");
  OpenFiles(0, 1);
  const OrbHandle other = Open("B:/G");
  OpenFiles(2, 2);
  EXPECT_EQ(OrbUnmountVolumeA("A"), 1);
  EXPECT_EQ(Calls(), "flush / flush / flush / close");
  for (uint32_t slot = 0; slot < 4; ++slot) EXPECT_EQ(g_OpenFileTable[slot].node != nullptr, slot == 2) << slot;
  EXPECT_EQ(OrbGetFileSize(other), 0u);
  EXPECT_EQ(OrbUnmountVolumeA("B"), 1);
  EXPECT_EQ(NodesListed(), 0u);
}

TEST_F(OpenFile, closing_a_volume_s_files_goes_on_after_one_that_fails) {
  MakeFiles("F", 0, 2);
  OpenFiles(0, 2);
  FailNthCall(Call::kFlushFileBuffers, 2, coredll::kHostNotReady);
  EXPECT_FALSE(OrbCloseVolumeFiles(volume_));
  EXPECT_EQ(GetError(), ORB_ERROR_NOT_READY);
  EXPECT_EQ(Calls(), "flush / flush !21 / flush");
  for (const OrbOpenFileEntry& slot : g_OpenFileTable) EXPECT_EQ(slot.node, nullptr);
  ClearError();
  EXPECT_TRUE(OrbCloseVolumeFiles(volume_));
}

}  // namespace
}  // namespace orba

// Null pointers: every call fails with its failure value and ORB_ERROR_INVALID_ARGUMENT, and changes nothing.
#include "support.h"

namespace api {
namespace {

class NullTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
    EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
    MakeFile("F", Pattern(1, 100));
    // Nothing is written to the container from here on.
    writesBefore_ = g_dwWriteCount;
  }

  void TearDown() override {
    EXPECT_EQ(g_dwWriteCount, writesBefore_);
    EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "D", "F"}));
    EXPECT_EQ(Contents("F"), Pattern(1, 100));
    ApiTest::TearDown();
  }

  const WideString some_ = Wide("F");
  const OrbWideChar* const wide_ = some_.c_str();

 private:
  OrbU32 writesBefore_ = 0;
};

TEST_F(NullTest, volume_calls_null_string_fail_invalid_argument) {
  const Outcome failed = Failed(ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(Ended(OrbCreateVolume(nullptr)), failed);
  EXPECT_EQ(Ended(OrbCreateVolumeEx(nullptr, 64, 1024)), failed);
  EXPECT_EQ(Ended(OrbMountVolume(nullptr, wide_)), failed);
  EXPECT_EQ(Ended(OrbMountVolume(Wide(kSecond).c_str(), nullptr)), failed);
  EXPECT_EQ(Ended(OrbUnmountVolumeA(nullptr)), failed);
  EXPECT_EQ(Ended(OrbUnmountVolumeW(nullptr)), failed);
}

TEST_F(NullTest, volume_info_null_string_leaves_results_alone) {
  OrbU32 bitmapBytes = 7;
  OrbU32 blockSize = 8;
  EXPECT_EQ(Ended(OrbGetVolumeInfoA(nullptr, &bitmapBytes, &blockSize)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbGetVolumeInfoW(nullptr, &bitmapBytes, &blockSize)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(bitmapBytes, 7u);
  EXPECT_EQ(blockSize, 8u);
}

TEST_F(NullTest, ansi_calls_null_string_fail_invalid_argument) {
  const Outcome failed = Failed(ORB_ERROR_INVALID_ARGUMENT);
  char buffer[ORB_PATH_BUFFER];
  OrbFindDataA found;
  EXPECT_EQ(Ended(OrbCreateFileA(nullptr, 0)), failed);
  EXPECT_EQ(Ended(OrbCreateDirectoryA(nullptr)), failed);
  EXPECT_EQ(Ended(OrbCopyFileA(nullptr, "G")), failed);
  EXPECT_EQ(Ended(OrbCopyFileA("F", nullptr)), failed);
  EXPECT_EQ(Ended(OrbMoveFileA(nullptr, "G")), failed);
  EXPECT_EQ(Ended(OrbMoveFileA("F", nullptr)), failed);
  EXPECT_EQ(Ended(OrbRenameFileA(nullptr, "G")), failed);
  EXPECT_EQ(Ended(OrbRenameFileA("F", nullptr)), failed);
  EXPECT_EQ(Ended(OrbDeleteFileA(nullptr)), failed);
  EXPECT_EQ(Ended(OrbGetFileAttributesA(nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT, 0xFFFF));
  EXPECT_EQ(Ended(OrbSetFileAttributesA(nullptr, 1)), failed);
  EXPECT_EQ(Ended(OrbOpenFileA(nullptr, ORB_OPEN_READ)), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbGetCurrentDirectoryA(nullptr)), failed);
  EXPECT_EQ(Ended(OrbSetCurrentDirectoryA(nullptr)), failed);
  EXPECT_EQ(Ended(OrbGetFullPathNameA(buffer, nullptr)), failed);
  EXPECT_EQ(Ended(OrbGetFullPathNameA(nullptr, "F")), failed);
  EXPECT_EQ(Ended(OrbFindFirstFileA(nullptr, &found)), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbFindFirstFileA("*", nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE));
}

// A string that does not convert gives 0, whatever the call's own failure value.
TEST_F(NullTest, wide_calls_null_string_fail_with_0) {
  const Outcome failed = Failed(ORB_ERROR_INVALID_ARGUMENT, 0);
  OrbWideChar buffer[ORB_WIDE_PATH_BUFFER];
  OrbFindDataW found;
  EXPECT_EQ(Ended(OrbCreateFileW(nullptr, 0)), failed);
  EXPECT_EQ(Ended(OrbCreateDirectoryW(nullptr)), failed);
  EXPECT_EQ(Ended(OrbCopyFileW(nullptr, wide_)), failed);
  EXPECT_EQ(Ended(OrbCopyFileW(wide_, nullptr)), failed);
  EXPECT_EQ(Ended(OrbMoveFileW(nullptr, wide_)), failed);
  EXPECT_EQ(Ended(OrbMoveFileW(wide_, nullptr)), failed);
  EXPECT_EQ(Ended(OrbRenameFileW(nullptr, wide_)), failed);
  EXPECT_EQ(Ended(OrbRenameFileW(wide_, nullptr)), failed);
  EXPECT_EQ(Ended(OrbDeleteFileW(nullptr)), failed);
  EXPECT_EQ(Ended(OrbGetFileAttributesW(nullptr)), failed);
  EXPECT_EQ(Ended(OrbSetFileAttributesW(nullptr, 1)), failed);
  EXPECT_EQ(Ended(OrbOpenFileW(nullptr, ORB_OPEN_READ)), failed);
  EXPECT_EQ(Ended(OrbSetCurrentDirectoryW(nullptr)), failed);
  EXPECT_EQ(Ended(OrbGetFullPathNameW(buffer, nullptr)), failed);
  EXPECT_EQ(Ended(OrbFindFirstFileW(nullptr, &found)), failed);
}

TEST_F(NullTest, wide_calls_null_result_fail_invalid_argument) {
  EXPECT_EQ(Ended(OrbGetCurrentDirectoryW(nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbGetFullPathNameW(nullptr, wide_)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbFindFirstFileW(wide_, nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE));
}

TEST_F(NullTest, copy_null_target_does_not_hold_the_source) {
  EXPECT_EQ(Ended(OrbCopyFileA("F", nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  Close(Open("F"));
}

TEST_F(NullTest, find_first_null_record_opens_no_search) {
  EXPECT_EQ(Ended(OrbFindFirstFileA("*", nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE));
  EXPECT_EQ(List("*").size(), 4u);
}

TEST_F(NullTest, find_next_null_record_stays_where_it_was) {
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA("*", &found);
  EXPECT_EQ(Ended(OrbFindNextFileA(search, nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbFindNextFileW(search, nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbFindNextFileA(search, &found)), Succeeded());
  EXPECT_STREQ(found.name, "..");
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_F(NullTest, transfer_null_buffer_or_count_leaves_position_and_size) {
  const OrbHandle file = Open("F");
  unsigned char byte = 0;
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbReadFile(file, nullptr, 1, &done)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbWriteFile(file, nullptr, 1, &done)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Ended(OrbReadFile(file, &byte, 1, nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbWriteFile(file, &byte, 1, nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbSetFilePointer(file, 0, ORB_SEEK_CURRENT)), Succeeded(0));
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(100));
  Close(file);
}

TEST_F(NullTest, transfer_nothing_of_null_succeeds) {
  const OrbHandle file = Open("F");
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbReadFile(file, nullptr, 0, &done)), Succeeded());
  EXPECT_EQ(done, 0u);
  done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file, nullptr, 0, &done)), Succeeded());
  EXPECT_EQ(done, 0u);
  Close(file);
}

TEST_F(NullTest, time_and_byte_order_null_set_invalid_argument) {
  OrbGetTime(nullptr);
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_INVALID_ARGUMENT);
  _OrbCrearError();
  OrbConvertEndian(nullptr, 4);
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace api

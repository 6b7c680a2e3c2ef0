// The error state, the clock and the byte order.
#include <ctime>
#include <functional>

#include "support.h"

namespace api {
namespace {

class ErrorTest : public ApiTest {};

TEST_F(ErrorTest, error_set_to_any_value_is_read) {
  for (const OrbU32 code : {0x12345678u, 0u, 0xFFFFFFFFu, ORB_ERROR_WRITE}) {
    _OrbSetError(code);
    EXPECT_EQ(OrbGetLastError(), code);
  }
}

TEST_F(ErrorTest, error_read_stays_set) {
  _OrbSetError(0x12345678);
  EXPECT_EQ(OrbGetLastError(), 0x12345678u);
  EXPECT_EQ(OrbGetLastError(), 0x12345678u);
}

TEST_F(ErrorTest, error_cleared_is0) {
  _OrbSetError(0x12345678);
  _OrbCrearError();
  EXPECT_EQ(OrbGetLastError(), 0u);
}

TEST_F(ErrorTest, codes_have_their_documented_values) {
  EXPECT_EQ(ORB_ERROR_NO_MORE_ENTRIES, 0x10000001u);
  const OrbU32 codes[] = {ORB_ERROR_CANNOT_CREATE,
                          ORB_ERROR_CANNOT_OPEN,
                          ORB_ERROR_WRITE,
                          ORB_ERROR_READ,
                          ORB_ERROR_WRITE_PROTECTED,
                          ORB_ERROR_NOT_READY,
                          ORB_ERROR_ABORTED,
                          ORB_ERROR_CONTAINER_IN_USE,
                          ORB_ERROR_WRONG_VERSION,
                          ORB_ERROR_DAMAGED_VOLUME,
                          ORB_ERROR_DAMAGED_RECORD,
                          ORB_ERROR_NOT_CLEAN,
                          ORB_ERROR_ALREADY_MOUNTED,
                          ORB_ERROR_INVALID_ARGUMENT,
                          ORB_ERROR_INVALID_NAME,
                          ORB_ERROR_PATH_TOO_LONG,
                          ORB_ERROR_OUT_OF_MEMORY,
                          ORB_ERROR_NOT_MOUNTED,
                          ORB_ERROR_FILE_NOT_FOUND,
                          ORB_ERROR_PATH_NOT_FOUND,
                          ORB_ERROR_FILE_EXISTS,
                          ORB_ERROR_ALREADY_OPEN,
                          ORB_ERROR_NO_FREE_NODE,
                          ORB_ERROR_TOO_MANY_OPEN_FILES,
                          ORB_ERROR_ACCESS_DENIED,
                          ORB_ERROR_DISK_FULL,
                          ORB_ERROR_VOLUME_FULL,
                          ORB_ERROR_INVALID_HANDLE,
                          ORB_ERROR_WRONG_KIND,
                          ORB_ERROR_NOT_A_DIRECTORY,
                          0x3000001F /* no code */,
                          ORB_ERROR_CURRENT_DIRECTORY,
                          ORB_ERROR_NOT_EMPTY,
                          ORB_ERROR_IN_USE,
                          ORB_ERROR_MOVE_NOT_ALLOWED,
                          0x30000024 /* no code */,
                          ORB_ERROR_TOO_MANY_SEARCHES,
                          ORB_ERROR_SEEK,
                          ORB_ERROR_NO_MEMFILE,
                          ORB_ERROR_MEMFILE_NOT_FOUND};
  OrbU32 expected = 0x30000000;
  for (const OrbU32 code : codes) EXPECT_EQ(code, ++expected);
  EXPECT_EQ(expected, 0x30000028u);
}

// Every call that can succeed without arguments to fail on clears what was there before.
TEST_F(ErrorTest, every_call_succeeding_leaves_0) {
  struct Step {
    const char* name;
    std::function<OrbU32()> call;
  };
  OrbHandle file = 0;
  OrbHandle search = 0;
  OrbU32 done = 0;
  char byte = 'x';
  char path[ORB_PATH_BUFFER];
  OrbWideChar widePath[ORB_WIDE_PATH_BUFFER];
  OrbFindDataA found;
  OrbFindDataW wideFound;
  const WideString first = Wide(kFirst);
  const WideString second = Wide(kSecond);
  const auto wide = [](const char* text) { return Wide(text); };
  const auto isOne = [](OrbBool result) { return static_cast<OrbU32>(result == 1); };
  const Step steps[] = {
      {"OrbCreateVolume", [&] { return isOne(OrbCreateVolume(first.c_str())); }},
      {"OrbCreateVolumeEx", [&] { return isOne(OrbCreateVolumeEx(second.c_str(), 8, 1024)); }},
      {"OrbMountVolume", [&] { return isOne(OrbMountVolume(first.c_str(), wide("V").c_str())); }},
      {"OrbMountVolume", [&] { return isOne(OrbMountVolume(second.c_str(), wide("W").c_str())); }},
      {"OrbGetVolumeInfoA", [&] { return isOne(OrbGetVolumeInfoA("V", nullptr, nullptr)); }},
      {"OrbGetVolumeInfoW", [&] { return isOne(OrbGetVolumeInfoW(wide("V").c_str(), nullptr, nullptr)); }},
      {"OrbCreateFileA", [&] { return isOne(OrbCreateFileA("A", 0)); }},
      {"OrbCreateFileW", [&] { return isOne(OrbCreateFileW(wide("B").c_str(), 0)); }},
      {"OrbCreateDirectoryA", [&] { return isOne(OrbCreateDirectoryA("D")); }},
      {"OrbCreateDirectoryW", [&] { return isOne(OrbCreateDirectoryW(wide("E").c_str())); }},
      {"OrbCopyFileA", [&] { return isOne(OrbCopyFileA("A", "W:A")); }},
      {"OrbCopyFileW", [&] { return isOne(OrbCopyFileW(wide("B").c_str(), wide("W:B").c_str())); }},
      {"OrbMoveFileA", [&] { return isOne(OrbMoveFileA("A", "D/A")); }},
      {"OrbMoveFileW", [&] { return isOne(OrbMoveFileW(wide("B").c_str(), wide("E/B").c_str())); }},
      {"OrbRenameFileA", [&] { return isOne(OrbRenameFileA("D/A", "AA")); }},
      {"OrbRenameFileW", [&] { return isOne(OrbRenameFileW(wide("E/B").c_str(), wide("BB").c_str())); }},
      {"OrbGetFileAttributesA", [&] { return OrbU32{OrbGetFileAttributesA("D") == 8}; }},
      {"OrbGetFileAttributesW", [&] { return OrbU32{OrbGetFileAttributesW(wide("D").c_str()) == 8}; }},
      {"OrbSetFileAttributesA", [&] { return isOne(OrbSetFileAttributesA("D/AA", 2)); }},
      {"OrbSetFileAttributesW", [&] { return isOne(OrbSetFileAttributesW(wide("E/BB").c_str(), 2)); }},
      {"OrbOpenFileW", [&] { return OrbU32{(file = OrbOpenFileW(wide("D/AA").c_str(), 3)) >> 16 == 1}; }},
      {"OrbCloseFile", [&] { return isOne(OrbCloseFile(file)); }},
      {"OrbOpenFileA", [&] { return OrbU32{(file = OrbOpenFileA("D/AA", 3)) >> 16 == 1}; }},
      {"OrbWriteFile", [&] { return isOne(OrbWriteFile(file, &byte, 1, &done)); }},
      {"OrbSetFilePointer", [&] { return OrbU32{OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN) == 0}; }},
      {"OrbReadFile", [&] { return isOne(OrbReadFile(file, &byte, 1, &done)); }},
      {"OrbSetFileSize", [&] { return isOne(OrbSetFileSize(file, 100)); }},
      {"OrbGetFileSize", [&] { return OrbU32{OrbGetFileSize(file) == 100}; }},
      {"OrbFlushFileBuffers", [&] { return isOne(OrbFlushFileBuffers(file)); }},
      {"OrbCloseFile", [&] { return isOne(OrbCloseFile(file)); }},
      {"OrbSetCurrentDirectoryA", [&] { return isOne(OrbSetCurrentDirectoryA("D")); }},
      {"OrbSetCurrentDirectoryW", [&] { return isOne(OrbSetCurrentDirectoryW(wide("/E").c_str())); }},
      {"OrbGetCurrentDirectoryA", [&] { return isOne(OrbGetCurrentDirectoryA(path)); }},
      {"OrbGetCurrentDirectoryW", [&] { return isOne(OrbGetCurrentDirectoryW(widePath)); }},
      {"OrbGetFullPathNameA", [&] { return isOne(OrbGetFullPathNameA(path, "X")); }},
      {"OrbGetFullPathNameW", [&] { return isOne(OrbGetFullPathNameW(widePath, wide("X").c_str())); }},
      {"OrbFindFirstFileA", [&] { return OrbU32{(search = OrbFindFirstFileA("*", &found)) >> 16 == 2}; }},
      {"OrbFindNextFileA", [&] { return isOne(OrbFindNextFileA(search, &found)); }},
      {"OrbFindNextFileW", [&] { return isOne(OrbFindNextFileW(search, &wideFound)); }},
      {"OrbFindClose", [&] { return isOne(OrbFindClose(search)); }},
      {"OrbFindFirstFileW",
       [&] { return OrbU32{(search = OrbFindFirstFileW(wide("*").c_str(), &wideFound)) >> 16 == 2}; }},
      {"OrbFindClose", [&] { return isOne(OrbFindClose(search)); }},
      {"OrbDeleteFileA", [&] { return isOne(OrbDeleteFileA("BB")); }},
      {"OrbDeleteFileW", [&] { return isOne(OrbDeleteFileW(wide("/D/AA").c_str())); }},
      {"OrbConvertEndian", [&] { return OrbConvertEndian(&byte, 1), 1u; }},
      {"OrbGetTime",
       [&] {
         OrbTime now;
         return OrbGetTime(&now), 1u;
       }},
      {"OrbUnmountVolumeA", [&] { return isOne(OrbUnmountVolumeA("V")); }},
      {"OrbUnmountVolumeW", [&] { return isOne(OrbUnmountVolumeW(wide("W").c_str())); }},
  };
  for (const Step& step : steps) {
    _OrbSetError(0x12345678);
    EXPECT_EQ(Ended(step.call()), Succeeded()) << step.name;
  }
}

TEST_F(ErrorTest, wide_call_string_missing_leaves_its_code_over_the_old_one) {
  _OrbSetError(0x12345678);
  EXPECT_EQ(Ended(OrbDeleteFileW(nullptr)), Failed(ORB_ERROR_INVALID_ARGUMENT));
}

// ---- Byte order -----------------------------------------------------------------------------------------------------

// Every host that the library runs on is little-endian, as containers are.
TEST_F(ErrorTest, convert_endian_any_length_changes_nothing) {
  for (OrbU32 length = 0; length <= 8; ++length) {
    unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
    OrbConvertEndian(bytes, length);
    EXPECT_EQ(OrbGetLastError(), 0u);
    for (unsigned char i = 0; i < 8; ++i) EXPECT_EQ(bytes[i], i + 1);
  }
}

TEST_F(ErrorTest, convert_endian_nothing_of_null_succeeds) {
  _OrbSetError(0x12345678);
  OrbConvertEndian(nullptr, 0);
  EXPECT_EQ(OrbGetLastError(), 0u);
}

// ---- Clock ----------------------------------------------------------------------------------------------------------

TEST_F(ErrorTest, get_time_fills_seven_bytes) {
  struct {
    OrbTime time;
    unsigned char behind;
  } record;
  record.time.reserved = 0xA5;
  record.behind = 0x5A;
  OrbGetTime(&record.time);
  EXPECT_EQ(record.time.reserved, 0xA5);
  EXPECT_EQ(record.behind, 0x5A);
}

TEST_F(ErrorTest, get_time_is_a_date) {
  OrbTime now = {};
  OrbGetTime(&now);
  EXPECT_GE(now.year, 2000);
  EXPECT_TRUE(now.month >= 1 && now.month <= 12) << Stamp(now);
  EXPECT_TRUE(now.day >= 1 && now.day <= 31) << Stamp(now);
  EXPECT_TRUE(now.hour <= 23 && now.minute <= 59 && now.second <= 59) << Stamp(now);
}

TEST_F(ErrorTest, get_time_is_utc) {
  // The two clocks may tick up to a moment apart.
  const auto utc = [](int seconds) {
    const std::time_t now = std::time(nullptr) + seconds;
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::gmtime(&now));
    return std::string(text);
  };
  const std::string before = utc(-1);
  const std::string now = Now();
  const std::string after = utc(1);
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

TEST_F(ErrorTest, get_time_odd_address_is_filled) {
  unsigned char bytes[16] = {};
  OrbGetTime(reinterpret_cast<OrbTime*>(bytes + 1));
  EXPECT_EQ(bytes[0], 0);
  EXPECT_GE(bytes[1] | bytes[2] << 8, 2000);
  EXPECT_EQ(bytes[8], 0);
}

}  // namespace
}  // namespace api

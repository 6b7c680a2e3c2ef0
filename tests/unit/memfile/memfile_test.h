// The fixture of the tests of the memory file: none exists before and after, and no memory is held.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "memfile/memfile.h"
#include "unit/platform/system_calls.h"

constexpr MemFileU32 kChunk = 0x10000;  // what the file takes from the heap at a time, on devices

class MemFile : public ::testing::Test {
 protected:
  MemFile() {
    DeleteMemFile();
    systemcalls::Reset();
  }
  ~MemFile() override {
    DeleteMemFile();
    EXPECT_EQ(0, systemcalls::BlocksHeld());
    EXPECT_EQ(0, systemcalls::BytesMapped());
    systemcalls::Reset();
  }

  static void Write(const std::string& bytes) {
    MemFileU32 done = 77;
    EXPECT_EQ(1u, WriteMemFile(bytes.data(), static_cast<MemFileU32>(bytes.size()), &done));
    EXPECT_EQ(bytes.size(), done);
  }
  static std::string Read(MemFileU32 count) {
    std::string bytes(count, '?');
    MemFileU32 done = 77;
    EXPECT_EQ(1u, ReadMemFile(bytes.data(), count, &done));
    bytes.resize(done);
    return bytes;
  }
  static MemFileU32 Position() { return SeekMemFile(0, MEMFILE_CURRENT); }
};

inline std::string Pattern(size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>((seed = seed * 1103515245 + 12345) >> 16);
  return bytes;
}

// Which calls make a volume durable on its host, as orba.h says under DURABLE: closing and flushing a file, and none
// other.
#include <gtest/gtest.h>

#include "support/test_host.h"
#include "unit/library_test.h"

namespace orba {

namespace {

using testhost::CallCount;
using testhost::ClearTrace;

class Durability : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    FormatAndMount();
    ASSERT_EQ(OrbCreateFileA("F", 0), 1);
    ASSERT_EQ(OrbCreateDirectoryA("D"), 1);
    ClearTrace();
  }

  static OrbHandle Open(OrbU32 mode) {
    const OrbHandle file = OrbOpenFileA("F", mode);
    EXPECT_NE(file, ORB_INVALID_HANDLE);
    return file;
  }

  static uint32_t Flushes() { return CallCount(Call::kFlushFileBuffers); }
};

TEST_F(Durability, calls_by_name_flush_nothing) {
  EXPECT_EQ(Outcome(OrbCreateFileA("NEW", 0)), "");
  EXPECT_EQ(Outcome(OrbCreateDirectoryA("E")), "");
  EXPECT_EQ(Outcome(OrbCopyFileA("F", "COPY")), "");
  EXPECT_EQ(Outcome(OrbRenameFileA("COPY", "NAMED")), "");
  EXPECT_EQ(Outcome(OrbMoveFileA("NAMED", "D/MOVED")), "");
  EXPECT_EQ(Outcome(OrbSetFileAttributesA("F", ORB_ATTRIBUTE_USER)), "");
  EXPECT_EQ(Outcome(OrbDeleteFileA("NEW")), "");
  EXPECT_EQ(Flushes(), 0u);
}

TEST_F(Durability, writing_and_resizing_flush_nothing) {
  const OrbHandle file = Open(ORB_OPEN_WRITE);
  const Bytes data = Pattern(3000);
  OrbU32 done = 0;
  EXPECT_EQ(Outcome(OrbWriteFile(file, data.data(), 3000, &done)), "");
  EXPECT_EQ(Outcome(OrbSetFileSize(file, 100)), "");
  EXPECT_EQ(Flushes(), 0u);
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "");
}

TEST_F(Durability, closing_a_file_opened_for_nothing_flushes_the_volume) {
  EXPECT_EQ(Outcome(OrbDeleteFileA("D")), "");
  EXPECT_EQ(Outcome(OrbCloseFile(Open(0))), "");
  EXPECT_EQ(testhost::TraceText({Call::kFlushFileBuffers}), "flush");
}

TEST_F(Durability, flushing_a_file_flushes_the_volume) {
  const OrbHandle file = Open(ORB_OPEN_READ);
  EXPECT_EQ(Outcome(OrbFlushFileBuffers(file)), "");
  EXPECT_EQ(Flushes(), 1u);
  EXPECT_EQ(Outcome(OrbCloseFile(file)), "");
}

TEST_F(Durability, unmounting_flushes_for_open_files_alone) {
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(Flushes(), 0u);
  ASSERT_NE(Mount(), nullptr);
  Open(0);
  EXPECT_EQ(Outcome(OrbUnmountVolumeA("A")), "");
  EXPECT_EQ(Flushes(), 1u);
}

TEST_F(Durability, formatting_flushes_before_the_header) {
  EXPECT_EQ(Outcome(OrbCreateVolumeEx(u"OTHER", 16, 1024)), "");
  const std::string trace = testhost::TraceText(u"OTHER");
  EXPECT_EQ(trace.substr(trace.find("flush")), "flush / seek 52 / write 52 4 / seek 0 / write 0 128 / close");
}

}  // namespace

}  // namespace orba

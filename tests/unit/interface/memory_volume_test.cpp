// A memory volume whose library is gone: two volumes are the one memory file, and unmounting either unloads it.
#include "unit/library_test.h"

namespace orba {
namespace {

class LostMemoryVolume : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    Format(16, 1024, u"??MEM??");
    ASSERT_NE(Mount(u"??MEM??", u"KEPT"), nullptr);
    ASSERT_NE(Mount(u"??MEM??", u"OTHER"), nullptr);
    ASSERT_EQ(OrbCreateFileA("KEPT:/F", 0), 1);
    file_ = OrbOpenFileA("KEPT:/F", ORB_OPEN_READ | ORB_OPEN_WRITE);
    ASSERT_NE(file_, ORB_INVALID_HANDLE);
  }

  void Write(uint32_t count) {
    OrbU32 done = 0;
    ASSERT_EQ(OrbWriteFile(file_, Pattern(count).data(), count, &done), 1);
  }
  static void LoseLibrary() { ASSERT_EQ(OrbUnmountVolumeA("OTHER"), 1); }

  OrbHandle file_ = 0;
};

TEST_F(LostMemoryVolume, write_at_the_end_of_the_file_reports_the_library) {
  LoseLibrary();
  OrbU32 done = 1;
  EXPECT_EQ(OrbWriteFile(file_, "X", 1, &done), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(done, 0u);
}

TEST_F(LostMemoryVolume, growing_reports_the_library) {
  LoseLibrary();
  EXPECT_EQ(OrbSetFileSize(file_, 5000), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(OrbGetFileSize(file_), 0u);
}

TEST_F(LostMemoryVolume, reading_and_overwriting_report_the_library) {
  Write(10);
  LoseLibrary();
  char byte = 0;
  OrbU32 done = 0;
  ASSERT_EQ(OrbSetFilePointer(file_, 0, ORB_SEEK_BEGIN), 0u);
  EXPECT_EQ(OrbReadFile(file_, &byte, 1, &done), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(OrbWriteFile(file_, &byte, 1, &done), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

TEST_F(LostMemoryVolume, names_report_the_library) {
  LoseLibrary();
  EXPECT_EQ(OrbCreateFileA("KEPT:/G", 0), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(OrbDeleteFileA("KEPT:/F"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
}

TEST_F(LostMemoryVolume, unmounting_reports_the_library_and_unmounts) {
  LoseLibrary();
  EXPECT_EQ(OrbUnmountVolumeA("KEPT"), 0);
  EXPECT_EQ(GetError(), ORB_ERROR_NO_MEMFILE);
  EXPECT_EQ(VolumeFind("KEPT", nullptr), nullptr);
}

}  // namespace
}  // namespace orba

// The names without suffix are the A forms. without UNICODE.
#include <gtest/gtest.h>

#include <type_traits>

#undef ORB_NO_SHORT_NAMES
#undef UNICODE
#include "orba.h"

namespace {

TEST(ShortNames, without_unicode_are_the_ansi_forms) {
  EXPECT_EQ(&OrbGetVolumeInfo, &OrbGetVolumeInfoA);
  EXPECT_EQ(&OrbUnmountVolume, &OrbUnmountVolumeA);
  EXPECT_EQ(&OrbCreateFile, &OrbCreateFileA);
  EXPECT_EQ(&OrbCreateDirectory, &OrbCreateDirectoryA);
  EXPECT_EQ(&OrbCopyFile, &OrbCopyFileA);
  EXPECT_EQ(&OrbMoveFile, &OrbMoveFileA);
  EXPECT_EQ(&OrbRenameFile, &OrbRenameFileA);
  EXPECT_EQ(&OrbDeleteFile, &OrbDeleteFileA);
  EXPECT_EQ(&OrbGetFileAttributes, &OrbGetFileAttributesA);
  EXPECT_EQ(&OrbSetFileAttributes, &OrbSetFileAttributesA);
  EXPECT_EQ(&OrbOpenFile, &OrbOpenFileA);
  EXPECT_EQ(&OrbGetCurrentDirectory, &OrbGetCurrentDirectoryA);
  EXPECT_EQ(&OrbSetCurrentDirectory, &OrbSetCurrentDirectoryA);
  EXPECT_EQ(&OrbGetFullPathName, &OrbGetFullPathNameA);
  EXPECT_EQ(&OrbFindFirstFile, &OrbFindFirstFileA);
  EXPECT_EQ(&OrbFindNextFile, &OrbFindNextFileA);
  EXPECT_TRUE((std::is_same<OrbFindData, OrbFindDataA>::value));
}

}  // namespace

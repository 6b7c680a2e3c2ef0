// The names without suffix are the W forms where UNICODE is defined.
#include <gtest/gtest.h>

#include <type_traits>

#undef ORB_NO_SHORT_NAMES
#ifndef UNICODE
#define UNICODE
#endif
#include "orba.h"

namespace {

TEST(ShortNames, with_unicode_are_the_wide_forms) {
  EXPECT_EQ(&OrbGetVolumeInfo, &OrbGetVolumeInfoW);
  EXPECT_EQ(&OrbUnmountVolume, &OrbUnmountVolumeW);
  EXPECT_EQ(&OrbCreateFile, &OrbCreateFileW);
  EXPECT_EQ(&OrbCreateDirectory, &OrbCreateDirectoryW);
  EXPECT_EQ(&OrbCopyFile, &OrbCopyFileW);
  EXPECT_EQ(&OrbMoveFile, &OrbMoveFileW);
  EXPECT_EQ(&OrbRenameFile, &OrbRenameFileW);
  EXPECT_EQ(&OrbDeleteFile, &OrbDeleteFileW);
  EXPECT_EQ(&OrbGetFileAttributes, &OrbGetFileAttributesW);
  EXPECT_EQ(&OrbSetFileAttributes, &OrbSetFileAttributesW);
  EXPECT_EQ(&OrbOpenFile, &OrbOpenFileW);
  EXPECT_EQ(&OrbGetCurrentDirectory, &OrbGetCurrentDirectoryW);
  EXPECT_EQ(&OrbSetCurrentDirectory, &OrbSetCurrentDirectoryW);
  EXPECT_EQ(&OrbGetFullPathName, &OrbGetFullPathNameW);
  EXPECT_EQ(&OrbFindFirstFile, &OrbFindFirstFileW);
  EXPECT_EQ(&OrbFindNextFile, &OrbFindNextFileW);
  EXPECT_TRUE((std::is_same<OrbFindData, OrbFindDataW>::value));
}

}  // namespace

// Deleting files and empty directories.
#include "support.h"

namespace api {
namespace {

class DeleteTest : public VolumeTest {};

TEST_P(DeleteTest, file_closed_is_gone) {
  MakeFile("F", Pattern(1, 5000));
  EXPECT_EQ(Ended(orb->deleteFile("f")), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("F")), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->deleteFile("F")), Failed(ORB_ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(SizeOf("/."), 64u);
}

TEST_P(DeleteTest, file_read_only_is_gone_all_the_same) {
  EXPECT_EQ(Ended(orb->createFile("F", ORB_ATTRIBUTE_READ_ONLY)), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("F")), Succeeded());
}

TEST_P(DeleteTest, file_open_fails_in_use) {
  MakeFile("F", Pattern(1, 10));
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(orb->deleteFile("F")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(ReadAt(file, 0, 10), Pattern(1, 10));
  Close(file);
  EXPECT_EQ(Ended(orb->deleteFile("F")), Succeeded());
}

TEST_P(DeleteTest, directory_empty_is_gone) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
}

TEST_P(DeleteTest, directory_not_empty_fails_not_empty) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("D/F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D")), Failed(ORB_ERROR_NOT_EMPTY));
  EXPECT_EQ(Ended(orb->getFileAttributes("D/F")), Succeeded(0));
  EXPECT_EQ(Ended(orb->deleteFile("D/F")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

TEST_P(DeleteTest, directory_current_fails_current_directory) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D")), Succeeded());
  for (const char* path : {"/D", ".", "../D", "VOL:/D"}) {
    EXPECT_EQ(Ended(orb->deleteFile(path)), Failed(ORB_ERROR_CURRENT_DIRECTORY)) << path;
  }
  EXPECT_EQ(Ended(orb->setCurrentDirectory("/")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

TEST_P(DeleteTest, directory_searched_fails_in_use) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  Found found;
  const OrbHandle search = orb->findFirstFile("D/*", &found);
  EXPECT_EQ(Ended(orb->deleteFile("D")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

// "." and ".." become the directory's real name in its real parent.
TEST_P(DeleteTest, path_ending_in_dots_deletes_what_they_stand_for) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("E")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("E/X")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("D/.")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("E/X/..")), Failed(ORB_ERROR_NOT_EMPTY));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "E"}));
}

TEST_P(DeleteTest, root_fails_file_not_found) {
  for (const char* path : {"/", "VOL:/", ".", "..", "VOL:"}) {
    EXPECT_EQ(Ended(orb->deleteFile(path)), Failed(ORB_ERROR_FILE_NOT_FOUND)) << path;
  }
  EXPECT_EQ(Ended(orb->getFileAttributes("/")), Succeeded(0x000E));
}

TEST_P(DeleteTest, from_the_middle_moves_the_last_name_into_the_place) {
  for (const char* name : {"A", "B", "C", "D", "E"}) MakeFile(name);
  EXPECT_EQ(Ended(orb->deleteFile("B")), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "A", "E", "C", "D"}));
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "A", "E", "C"}));
}

TEST_P(DeleteTest, name_deleted_can_be_used_again) {
  MakeFile("F", Pattern(1, 3000));
  EXPECT_EQ(Ended(orb->deleteFile("F")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("F")), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("F")), Succeeded(8));
}

INSTANTIATE_TEST_SUITE_P(Forms, DeleteTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- Space ----------------------------------------------------------------------------------------------------------

class DeleteSpaceTest : public ApiTest, public ::testing::WithParamInterface<OrbU32> {};

// What a file took is free afterwards, its map blocks included, and the next file takes it before the container grows.
TEST_P(DeleteSpaceTest, blocks_of_a_file_are_all_given_back) {
  const OrbU32 blocks = GetParam();
  FormatAndMount(kFirst, 64, 1024, "VOL");
  MakeFile("F", Pattern(1, blocks * 1024));
  const OrbU32 taken = Look(kFirst, "VOL").Blocks() - 2;
  EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
  EXPECT_EQ(Look(kFirst, "VOL").FreeBlocks(), taken);
  MakeFile("G", Pattern(2, blocks * 1024));
  EXPECT_EQ(Look(kFirst, "VOL").FreeBlocks(), 0u);
  EXPECT_EQ(Look(kFirst, "VOL").Blocks() - 2, taken);
  EXPECT_EQ(Contents("G"), Pattern(2, blocks * 1024));
}

// 6 direct blocks; 256 more behind one map block; 256 more behind each block of the second map.
TEST_P(DeleteSpaceTest, map_blocks_are_as_many_as_needed) {
  const OrbU32 blocks = GetParam();
  FormatAndMount(kFirst, 64, 1024, "VOL");
  MakeFile("F", Pattern(1, blocks * 1024));
  OrbU32 maps = 0;
  if (blocks > 6) maps = 1;
  if (blocks > 262) maps += 1 + (blocks - 262 + 255) / 256;
  EXPECT_EQ(Look(kFirst, "VOL").Blocks(), 2 + blocks + maps);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DeleteSpaceTest,
                         ::testing::Values(1u, 5u, 6u, 7u, 8u, 253u, 254u, 261u, 262u, 263u, 264u, 518u, 519u),
                         ::testing::PrintToStringParamName());

TEST_F(ApiTest, directory_block_deleted_empty_is_given_back) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
  EXPECT_EQ(Look(kFirst, "VOL").Blocks(), 3u);
  EXPECT_EQ(Ended(OrbDeleteFileA("D")), Succeeded());
  EXPECT_EQ(Look(kFirst, "VOL").FreeBlocks(), 1u);
}

}  // namespace
}  // namespace api

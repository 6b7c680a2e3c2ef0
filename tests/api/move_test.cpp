// Moving to another directory of the same volume.
#include "support.h"

namespace api {
namespace {

class MoveTest : public VolumeTest {
 protected:
  // /F, /D, /D/G and /D/E, where the files hold something.
  void SetUp() override {
    VolumeTest::SetUp();
    MakeFile("F", Pattern(1, 2000));
    EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
    MakeFile("D/G", Pattern(2, 300));
    EXPECT_EQ(Ended(orb->createDirectory("D/E")), Succeeded());
  }
};

TEST_P(MoveTest, file_to_a_subdirectory_is_there_and_nowhere_else) {
  EXPECT_EQ(Ended(orb->moveFile("f", "d/e/new")), Succeeded());
  EXPECT_EQ(List("/*"), (std::vector<std::string>{".", "..", "D"}));
  EXPECT_EQ(List("D/E/*"), (std::vector<std::string>{".", "..", "NEW"}));
  EXPECT_EQ(Contents("D/E/NEW"), Pattern(1, 2000));
}

TEST_P(MoveTest, file_upwards_is_there_and_nowhere_else) {
  EXPECT_EQ(Ended(orb->moveFile("D/G", "/G")), Succeeded());
  EXPECT_EQ(List("/*"), (std::vector<std::string>{".", "..", "F", "D", "G"}));
  EXPECT_EQ(List("D/*"), (std::vector<std::string>{".", "..", "E"}));
  EXPECT_EQ(Contents("G"), Pattern(2, 300));
}

TEST_P(MoveTest, directory_to_another_parent_knows_its_new_parent) {
  EXPECT_EQ(Ended(orb->createDirectory("X")), Succeeded());
  MakeFile("D/E/H", Pattern(3, 10));
  EXPECT_EQ(Ended(orb->moveFile("D/E", "X/EE")), Succeeded());
  EXPECT_EQ(Contents("X/EE/H"), Pattern(3, 10));
  EXPECT_EQ(List("X/EE/../*"), (std::vector<std::string>{".", "..", "EE"}));
  std::string full;
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "X/EE/..")), Succeeded());
  EXPECT_EQ(full, "VOL:/X");
}

TEST_P(MoveTest, directory_to_the_root_knows_its_new_parent) {
  EXPECT_EQ(Ended(orb->moveFile("D/E", "E")), Succeeded());
  EXPECT_EQ(List("E/../*"), (std::vector<std::string>{".", "..", "F", "D", "E"}));
}

TEST_P(MoveTest, sizes_of_both_directories_change) {
  EXPECT_EQ(SizeOf("D"), 128u);
  EXPECT_EQ(Ended(orb->moveFile("F", "D/F")), Succeeded());
  EXPECT_EQ(SizeOf("D"), 160u);
  EXPECT_EQ(SizeOf("/."), 96u);
}

TEST_P(MoveTest, same_directory_is_a_rename) {
  EXPECT_EQ(Ended(orb->moveFile("D/G", "/D/X")), Succeeded());
  EXPECT_EQ(List("D/*"), (std::vector<std::string>{".", "..", "X", "E"}));
  EXPECT_EQ(Ended(orb->moveFile("D/X", "D/E")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->moveFile("D/X", "D/x")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->moveFile("D/X", "D/A*")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->moveFile("D/Y", "D/Z")), Failed(ORB_ERROR_FILE_NOT_FOUND));
}

TEST_P(MoveTest, target_ending_in_separators_is_the_name_before_them) {
  EXPECT_EQ(Ended(orb->moveFile("F", "D/NEW/")), Succeeded());
  EXPECT_EQ(Contents("D/NEW"), Pattern(1, 2000));
  EXPECT_EQ(Ended(orb->moveFile("D/NEW", "D/AGAIN//")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("D/E", "/DIR/")), Succeeded());
  EXPECT_EQ(List("/*"), (std::vector<std::string>{".", "..", "D", "DIR"}));
  EXPECT_EQ(List("D/*"), (std::vector<std::string>{".", "..", "G", "AGAIN"}));
  EXPECT_EQ(Ended(orb->moveFile("D/G", "DIR/")), Failed(ORB_ERROR_FILE_EXISTS));
}

TEST_P(MoveTest, same_directory_open_file_is_renamed) {
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(orb->moveFile("F", "X")), Succeeded());
  Close(file);
  EXPECT_EQ(Contents("X"), Pattern(1, 2000));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_P(MoveTest, target_taken_fails_file_exists) {
  EXPECT_EQ(Ended(orb->moveFile("F", "D/G")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->moveFile("F", "D/g")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->moveFile("F", "D/E")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Contents("F"), Pattern(1, 2000));
  EXPECT_EQ(Contents("D/G"), Pattern(2, 300));
}

TEST_P(MoveTest, target_illegal_name_fails_invalid_name) {
  EXPECT_EQ(Ended(orb->moveFile("F", "D/A*")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->moveFile("D/G", "/")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Contents("F"), Pattern(1, 2000));
}

TEST_P(MoveTest, source_missing_fails_file_not_found) {
  EXPECT_EQ(Ended(orb->moveFile("X", "D/X")), Failed(ORB_ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Ended(orb->moveFile("X", "D/G")), Failed(ORB_ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Ended(orb->moveFile("/", "D/X")), Failed(ORB_ERROR_FILE_NOT_FOUND));
}

TEST_P(MoveTest, other_volume_fails_move_not_allowed) {
  FormatAndMount(kSecond, 64, 1024, "OTHER");
  EXPECT_EQ(Ended(orb->moveFile("F", "OTHER:F")), Failed(ORB_ERROR_MOVE_NOT_ALLOWED));
  EXPECT_EQ(Ended(orb->moveFile("MISSING", "OTHER:F")), Failed(ORB_ERROR_MOVE_NOT_ALLOWED));
  EXPECT_EQ(Contents("F"), Pattern(1, 2000));
  EXPECT_EQ(List("OTHER:*"), (std::vector<std::string>{".", ".."}));
}

TEST_P(MoveTest, file_open_fails_in_use) {
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(orb->moveFile("F", "D/F")), Failed(ORB_ERROR_IN_USE));
  Close(file);
  EXPECT_EQ(Ended(orb->moveFile("F", "D/F")), Succeeded());
}

TEST_P(MoveTest, directory_current_fails_current_directory) {
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D/E")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("/D/E", "/X")), Failed(ORB_ERROR_CURRENT_DIRECTORY));
  EXPECT_EQ(Ended(orb->setCurrentDirectory("/")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("D/E", "X")), Succeeded());
}

TEST_P(MoveTest, directory_searched_fails_in_use) {
  Found found;
  const OrbHandle search = orb->findFirstFile("D/E/*", &found);
  EXPECT_EQ(Ended(orb->moveFile("D/E", "X")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(MoveTest, directory_into_itself_fails_in_use) {
  EXPECT_EQ(Ended(orb->moveFile("D", "D/X")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(List("D/*"), (std::vector<std::string>{".", "..", "G", "E"}));
}

TEST_P(MoveTest, directory_below_itself_fails_in_use) {
  EXPECT_EQ(Ended(orb->createDirectory("D/E/EE")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("D", "D/E/X")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(orb->moveFile("D", "D/E/EE/X")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "F", "D"}));
  EXPECT_EQ(List("D/E/EE/*"), (std::vector<std::string>{".", ".."}));
}

// The source's directory stays held when the target's does not resolve, until its volume is unmounted.
TEST_P(MoveTest, target_directory_missing_holds_the_sources_directory) {
  EXPECT_EQ(Ended(orb->moveFile("D/E/X", "MISSING/X")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Ended(orb->deleteFile("D/E")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(orb->moveFile("D/E", "/E")), Failed(ORB_ERROR_IN_USE));
  EXPECT_EQ(Ended(orb->renameFile("D/E", "EE")), Succeeded());
  MakeFile("D/EE/X");
  EXPECT_EQ(List("D/EE/*"), (std::vector<std::string>{".", "..", "X"}));
}

TEST_P(MoveTest, target_not_resolved_whatever_the_reason_holds_the_sources_directory) {
  const struct {
    std::string target;
    OrbU32 code;
  } cases[] = {{"", ORB_ERROR_PATH_NOT_FOUND},
               {"OTHER:X", ORB_ERROR_NOT_MOUNTED},
               {"A B:X", ORB_ERROR_INVALID_NAME},
               {std::string(30, 'N'), ORB_ERROR_INVALID_NAME},
               {std::string(30, 'N') + "/X", ORB_ERROR_INVALID_NAME},
               {"F/X", ORB_ERROR_PATH_NOT_FOUND}};
  int number = 0;
  for (const auto& each : cases) {
    const std::string directory = "S" + std::to_string(number++);
    EXPECT_EQ(Ended(orb->createDirectory(directory.c_str())), Succeeded());
    MakeFile(directory + "/X", Pattern(3, 100));
    EXPECT_EQ(Ended(orb->moveFile((directory + "/X").c_str(), each.target.c_str())), Failed(each.code)) << each.target;
    EXPECT_EQ(Contents(directory + "/X"), Pattern(3, 100)) << each.target;
    EXPECT_EQ(Ended(orb->deleteFile((directory + "/X").c_str())), Succeeded()) << each.target;
    EXPECT_EQ(Ended(orb->deleteFile(directory.c_str())), Failed(ORB_ERROR_IN_USE)) << each.target;
  }
}

TEST_P(MoveTest, source_directory_missing_holds_nothing) {
  EXPECT_EQ(Ended(orb->moveFile("MISSING/X", "D/E/X")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Ended(orb->deleteFile("D/E")), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, MoveTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- Bytes and times ------------------------------------------------------------------------------------------------

class MoveImageTest : public VolumeTest {
 protected:
  // Node 2 is /F, node 3 /D; all of them old.
  void SetUp() override {
    VolumeTest::SetUp();
    MakeFile("F", Pattern(1, 100));
    EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
    Unmount("VOL");
    for (OrbU32 node = 1; node <= 3; ++node) MakeOld(kFirst, node);
    Mount(kFirst, "VOL");
  }
};

TEST_P(MoveImageTest, move_to_another_directory_stamps_both_directories_only) {
  const std::string before = Now();
  EXPECT_EQ(Ended(orb->moveFile("F", "D/F")), Succeeded());
  EXPECT_EQ(Find("D/F").time, kLongAgo);
  EXPECT_LE(before, Find("D").time);
  EXPECT_LE(before, Find("/.").time);
}

TEST_P(MoveImageTest, move_within_the_directory_stamps_nothing) {
  EXPECT_EQ(Ended(orb->moveFile("F", "G")), Succeeded());
  EXPECT_EQ(Find("G").time, kLongAgo);
  EXPECT_EQ(Find("/.").time, kLongAgo);
}

TEST_P(MoveImageTest, move_keeps_node_and_blocks) {
  EXPECT_EQ(Ended(orb->moveFile("F", "D/F")), Succeeded());
  Unmount("VOL");
  const Image image(kFirst);
  EXPECT_EQ(image.U16(image.Block(image.Direct(3, 0)) + 64), 2u);
  EXPECT_EQ(image.Direct(2, 0), 3u);
  EXPECT_EQ(image.Blocks(), 4u);
  EXPECT_EQ(image.U32(52), 0u);
}

TEST_P(MoveImageTest, held_directory_is_free_after_its_volume_was_unmounted) {
  EXPECT_EQ(Ended(orb->moveFile("D/X", "MISSING/X")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Ended(orb->deleteFile("D")), Failed(ORB_ERROR_IN_USE));
  Unmount("VOL");
  Mount(kFirst, "VOL");
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, MoveImageTest, ::testing::ValuesIn(EveryFormOnHost()), VariantName);

}  // namespace
}  // namespace api

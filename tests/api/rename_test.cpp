// Giving another name within the directory.
#include "support.h"

namespace api {
namespace {

class RenameTest : public VolumeTest {
 protected:
  // /A, /B, /C/D and /C/E, of which A holds something.
  void SetUp() override {
    VolumeTest::SetUp();
    MakeFile("A", Pattern(1, 2000));
    MakeFile("B");
    EXPECT_EQ(Ended(orb->createDirectory("C")), Succeeded());
    EXPECT_EQ(Ended(orb->createDirectory("C/D")), Succeeded());
    MakeFile("C/E");
  }
};

TEST_P(RenameTest, file_new_name_keeps_place_and_contents) {
  EXPECT_EQ(Ended(orb->renameFile("a", "new.txt")), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "NEW.TXT", "B", "C"}));
  EXPECT_EQ(Contents("NEW.TXT"), Pattern(1, 2000));
  EXPECT_EQ(Ended(orb->getFileAttributes("A")), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

TEST_P(RenameTest, directory_new_name_keeps_what_it_holds) {
  EXPECT_EQ(Ended(orb->renameFile("/C", "DIRECTORY")), Succeeded());
  EXPECT_EQ(List("DIRECTORY/*"), (std::vector<std::string>{".", "..", "D", "E"}));
}

TEST_P(RenameTest, in_subdirectory_new_name_is_bare) {
  EXPECT_EQ(Ended(orb->renameFile("C/E", "F")), Succeeded());
  EXPECT_EQ(List("C/*"), (std::vector<std::string>{".", "..", "D", "F"}));
}

TEST_P(RenameTest, new_name_shorter_leaves_nothing_of_the_old) {
  MakeFile("LONG-NAME-OF-29-CHARACTERS-XX");
  EXPECT_EQ(Ended(orb->renameFile("LONG-NAME-OF-29-CHARACTERS-XX", "S")), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "A", "B", "C", "S"}));
  EXPECT_EQ(Ended(orb->getFileAttributes("S")), Succeeded(0));
}

TEST_P(RenameTest, new_name_taken_fails_file_exists) {
  for (const char* name : {"B", "b", "C", "A", "a"}) {
    EXPECT_EQ(Ended(orb->renameFile("A", name)), Failed(ORB_ERROR_FILE_EXISTS)) << name;
  }
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "A", "B", "C"}));
}

TEST_P(RenameTest, new_name_dots_fails_file_exists) {
  EXPECT_EQ(Ended(orb->renameFile("A", ".")), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->renameFile("A", "..")), Failed(ORB_ERROR_FILE_EXISTS));
}

TEST_P(RenameTest, new_name_empty_or_a_path_fails_invalid_name) {
  for (const char* name : {"", "/", "C/X", "/X", "VOL:X", "X/"}) {
    EXPECT_EQ(Ended(orb->renameFile("A", name)), Failed(ORB_ERROR_INVALID_NAME)) << name;
  }
}

TEST_P(RenameTest, path_missing_fails_file_not_found) {
  EXPECT_EQ(Ended(orb->renameFile("X", "Y")), Failed(ORB_ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Ended(orb->renameFile("C/X", "Y")), Failed(ORB_ERROR_FILE_NOT_FOUND));
}

// The new name is looked at first.
TEST_P(RenameTest, path_missing_and_new_name_wrong_reports_the_new_name) {
  EXPECT_EQ(Ended(orb->renameFile("X", "A*")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->renameFile("X", "A")), Failed(ORB_ERROR_FILE_EXISTS));
}

TEST_P(RenameTest, path_root_fails_file_not_found) {
  for (const char* path : {"/", "VOL:/", "."}) {
    EXPECT_EQ(Ended(orb->renameFile(path, "X")), Failed(ORB_ERROR_FILE_NOT_FOUND)) << path;
  }
}

TEST_P(RenameTest, path_ending_in_dots_renames_what_they_stand_for) {
  EXPECT_EQ(Ended(orb->renameFile("C/D/.", "DD")), Succeeded());
  EXPECT_EQ(Ended(orb->renameFile("C/DD/..", "CC")), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("CC/DD")), Succeeded(8));
}

TEST_P(RenameTest, file_open_is_renamed_and_stays_open) {
  const OrbHandle file = Open("A");
  EXPECT_EQ(Ended(orb->renameFile("A", "X")), Succeeded());
  EXPECT_EQ(ReadAt(file, 0, 2000), Pattern(1, 2000));
  EXPECT_EQ(Ended(orb->openFile("X", 1)), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE));
  Close(file);
}

TEST_P(RenameTest, directory_current_is_renamed_and_stays_current) {
  EXPECT_EQ(Ended(orb->setCurrentDirectory("C")), Succeeded());
  EXPECT_EQ(Ended(orb->renameFile("/C", "X")), Succeeded());
  std::string path;
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&path)), Succeeded());
  EXPECT_EQ(path, "VOL:/X");
}

TEST_P(RenameTest, directory_searched_is_renamed_and_listed_on) {
  Found found;
  const OrbHandle search = orb->findFirstFile("C/*", &found);
  EXPECT_EQ(Ended(orb->renameFile("C", "X")), Succeeded());
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(found.name, "..");
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, RenameTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- Bytes and times ------------------------------------------------------------------------------------------------

class RenameImageTest : public VolumeTest {};

TEST_P(RenameImageTest, rename_stamps_nothing) {
  MakeFile("F");
  Unmount("VOL");
  MakeOld(kFirst, 1);
  MakeOld(kFirst, 2);
  Mount(kFirst, "VOL");
  EXPECT_EQ(Ended(orb->renameFile("F", "G")), Succeeded());
  EXPECT_EQ(Find("G").time, kLongAgo);
  EXPECT_EQ(Find("/.").time, kLongAgo);
}

TEST_P(RenameImageTest, rename_writes_one_entry_and_leaves_the_rest) {
  MakeFile("LONGER");
  Unmount("VOL");
  Bytes expected = ReadWhole(kFirst);
  Mount(kFirst, "VOL");
  EXPECT_EQ(Ended(orb->renameFile("LONGER", "ab")), Succeeded());
  Unmount("VOL");
  const std::size_t name = Image(kFirst).Block(2) + 66;
  expected[name] = 'A';
  expected[name + 1] = 'B';
  expected[name + 2] = 0;
  EXPECT_EQ(ReadWhole(kFirst), expected);
}

INSTANTIATE_TEST_SUITE_P(Forms, RenameImageTest, ::testing::ValuesIn(EveryFormOnHost()), VariantName);

}  // namespace
}  // namespace api

// The rules of names, and how paths are read.
#include "support.h"

namespace api {
namespace {

const std::string kLegal = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!#$%&'()-^~@{}[]_.";

bool IsLegal(int c) { return kLegal.find(static_cast<char>(c)) != std::string::npos; }

std::string Between(int c) { return std::string("A") + static_cast<char>(c) + "B"; }

class NameTest : public VolumeTest {};

// ---- Names ----------------------------------------------------------------------------------------------------------

TEST_P(NameTest, create_every_character_follows_the_rule) {
  // Beyond ASCII the wide form goes through the host's code page; there only the narrow form names a certain byte.
  const int end = orb == &kAnsiForm ? 256 : 128;
  for (int c = 1; c < end; ++c) {
    Outcome expected = IsLegal(c) ? Succeeded() : Failed(ORB_ERROR_INVALID_NAME);
    if (c == '/') expected = Failed(ORB_ERROR_PATH_NOT_FOUND);  // no directory A
    if (c == ':') expected = Failed(ORB_ERROR_NOT_MOUNTED);     // no volume A
    EXPECT_EQ(Ended(orb->createFile(Between(c).c_str(), 0)), expected) << c;
    if (!IsLegal(c)) continue;
    EXPECT_EQ(Ended(orb->deleteFile(Between(c).c_str())), Succeeded()) << c;
  }
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
}

TEST_P(NameTest, rename_every_character_follows_the_rule) {
  const int end = orb == &kAnsiForm ? 256 : 128;
  MakeFile("F");
  for (int c = 1; c < end; ++c) {
    const Outcome expected = IsLegal(c) ? Succeeded() : Failed(ORB_ERROR_INVALID_NAME);
    EXPECT_EQ(Ended(orb->renameFile("F", Between(c).c_str())), expected) << c;
    if (!IsLegal(c)) continue;
    EXPECT_EQ(Ended(orb->renameFile(Between(c).c_str(), "F")), Succeeded()) << c;
  }
}

TEST_P(NameTest, copy_target_every_character_follows_the_rule) {
  MakeFile("F");
  for (int c = 1; c < 128; ++c) {
    Outcome expected = IsLegal(c) ? Succeeded() : Failed(ORB_ERROR_INVALID_NAME);
    if (c == '/' || c == ':') continue;  // parts of paths, and a failure there would hold the source
    EXPECT_EQ(Ended(orb->copyFile("F", Between(c).c_str())), expected) << c;
    if (!IsLegal(c)) continue;
    EXPECT_EQ(Ended(orb->deleteFile(Between(c).c_str())), Succeeded()) << c;
  }
}

TEST_P(NameTest, move_target_every_character_follows_the_rule) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  MakeFile("F");
  for (int c = 1; c < 128; ++c) {
    Outcome expected = IsLegal(c) ? Succeeded() : Failed(ORB_ERROR_INVALID_NAME);
    if (c == '/' || c == ':') continue;
    const std::string target = "D/" + Between(c);
    EXPECT_EQ(Ended(orb->moveFile("F", target.c_str())), expected) << c;
    if (!IsLegal(c)) continue;
    EXPECT_EQ(Ended(orb->moveFile(target.c_str(), "F")), Succeeded()) << c;
  }
}

TEST_P(NameTest, create_all_punctuation_is_a_name) {
  const char name[] = "!#$%&'()-^~@{}[]_.";
  EXPECT_EQ(Ended(orb->createFile(name, 0)), Succeeded());
  EXPECT_EQ(Find("!*").name, name);
}

TEST_P(NameTest, create_lower_case_is_stored_in_upper_case) {
  EXPECT_EQ(Ended(orb->createFile("aBcXyZ09.tXt", 0)), Succeeded());
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "ABCXYZ09.TXT"}));
}

TEST_P(NameTest, any_case_finds_the_name) {
  EXPECT_EQ(Ended(orb->createDirectory("Dir")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("dIR/File", 0)), Succeeded());
  for (const char* path : {"DIR/FILE", "dir/file", "vol:/dIr/fIlE", "VOL:dir/FILE"}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Succeeded(0)) << path;
  }
}

TEST_P(NameTest, length_29_characters_is_accepted_30_refused) {
  const std::string longest(29, 'N');
  const std::string tooLong(30, 'N');
  EXPECT_EQ(Ended(orb->createFile(longest.c_str(), 0)), Succeeded());
  EXPECT_EQ(Find("N*").name, longest);
  EXPECT_EQ(Ended(orb->createFile(tooLong.c_str(), 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->createDirectory(tooLong.c_str())), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->renameFile(longest.c_str(), tooLong.c_str())), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->renameFile(tooLong.c_str(), "X")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->deleteFile(tooLong.c_str())), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->getFileAttributes(tooLong.c_str())), Failed(ORB_ERROR_INVALID_NAME, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->setFileAttributes(tooLong.c_str(), 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->openFile(tooLong.c_str(), 1)), Failed(ORB_ERROR_INVALID_NAME, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->setCurrentDirectory(tooLong.c_str())), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->copyFile(tooLong.c_str(), "X")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->moveFile(tooLong.c_str(), "X")), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(List("*").size(), 3u);
}

TEST_P(NameTest, length_directory_on_the_way_29_characters_accepted_30_refused) {
  const std::string longest(29, 'D');
  EXPECT_EQ(Ended(orb->createDirectory(longest.c_str())), Succeeded());
  EXPECT_EQ(Ended(orb->createFile((longest + "/F").c_str(), 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile((longest + "D/F").c_str(), 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->getFileAttributes((longest + "/F").c_str())), Succeeded(0));
}

TEST_P(NameTest, length_30_characters_fails_invalid_name_in_every_call) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  const std::string tooLong(30, 'N');
  for (const std::string& path :
       {tooLong, "/" + tooLong, tooLong + "/F", "D/" + tooLong, "D/" + tooLong + "/F", "VOL:/D/" + tooLong + "/."}) {
    ExpectEveryPathCallToFail(*orb, path, ORB_ERROR_INVALID_NAME);
  }
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "D"}));
}

TEST_P(NameTest, length_very_long_is_refused) {
  const std::string huge(100000, 'N');
  EXPECT_EQ(Ended(orb->createFile(huge.c_str(), 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->createFile((huge + ":F").c_str(), 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->renameFile("/", huge.c_str())), Failed(ORB_ERROR_INVALID_NAME));
}

// Directories on the way are looked up as they stand: no rule but the length refuses them.
TEST_P(NameTest, directory_on_the_way_illegal_name_fails_path_not_found) {
  for (const char* path : {"A B/F", "A*/F", "A\\B/F", "?/F"}) {
    EXPECT_EQ(Ended(orb->createFile(path, 0)), Failed(ORB_ERROR_PATH_NOT_FOUND)) << path;
  }
}

// Existing things are looked up as they are named, so that an illegal name is merely not there.
TEST_P(NameTest, lookup_illegal_name_fails_file_not_found) {
  for (const char* path : {"A B", "A*", "A\\B", "?"}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES)) << path;
    EXPECT_EQ(Ended(orb->openFile(path, 1)), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_HANDLE)) << path;
    EXPECT_EQ(Ended(orb->deleteFile(path)), Failed(ORB_ERROR_FILE_NOT_FOUND)) << path;
    EXPECT_EQ(Ended(orb->renameFile(path, "X")), Failed(ORB_ERROR_FILE_NOT_FOUND)) << path;
  }
}

// ---- The volume part ------------------------------------------------------------------------------------------------

TEST_P(NameTest, volume_part_every_character_follows_the_rule) {
  const int end = orb == &kAnsiForm ? 256 : 128;
  for (int c = 1; c < end; ++c) {
    OrbU32 code = IsLegal(c) ? ORB_ERROR_NOT_MOUNTED : ORB_ERROR_INVALID_NAME;
    if (c == ':') code = ORB_ERROR_NOT_MOUNTED;  // the volume A, already
    EXPECT_EQ(Ended(orb->getFileAttributes((Between(c) + ":/").c_str())), Failed(code, ORB_INVALID_ATTRIBUTES)) << c;
  }
}

TEST_P(NameTest, volume_part_length_29_characters_accepted_30_refused) {
  EXPECT_EQ(Ended(orb->createFile((std::string(29, 'V') + ":F").c_str(), 0)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(Ended(orb->createFile((std::string(30, 'V') + ":F").c_str(), 0)), Failed(ORB_ERROR_INVALID_NAME));
}

TEST_P(NameTest, volume_part_empty_fails_invalid_name) {
  EXPECT_EQ(Ended(orb->createFile(":F", 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->createFile(":/F", 0)), Failed(ORB_ERROR_INVALID_NAME));
}

TEST_P(NameTest, volume_part_illegal_fails_invalid_name_in_every_call) {
  for (const std::string& path : {std::string(":"), std::string(":F"), std::string("A B:F"), std::string("*:/F"),
                                  std::string("A/B:F"), std::string(30, 'V') + ":/F"}) {
    ExpectEveryPathCallToFail(*orb, path, ORB_ERROR_INVALID_NAME);
  }
}

TEST_P(NameTest, volume_part_not_mounted_fails_not_mounted_in_every_call) {
  for (const char* path : {"OTHER:", "OTHER:F", "OTHER:/", "OTHER:/F", "VO:F", "VOLU:F"}) {
    ExpectEveryPathCallToFail(*orb, path, ORB_ERROR_NOT_MOUNTED);
  }
}

// A colon anywhere ends the volume part.
TEST_P(NameTest, colon_behind_a_separator_makes_an_illegal_volume_part) {
  EXPECT_EQ(Ended(orb->createDirectory("A")), Succeeded());
  for (const char* path : {"A/B:C", "/A:B", "A/VOL:B", "./VOL:/B"}) {
    EXPECT_EQ(Ended(orb->createFile(path, 0)), Failed(ORB_ERROR_INVALID_NAME)) << path;
  }
}

TEST_P(NameTest, colon_second_is_part_of_the_name) {
  EXPECT_EQ(Ended(orb->createFile("VOL:A:B", 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->getFileAttributes("VOL:A:B")), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

TEST_P(NameTest, volume_part_of_the_current_directory_starts_there) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("VOL:F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("VOL:/G", 0)), Succeeded());
  EXPECT_EQ(List("/D/*"), (std::vector<std::string>{".", "..", "F"}));
  EXPECT_EQ(List("/*"), (std::vector<std::string>{".", "..", "D", "G"}));
}

TEST_P(NameTest, volume_part_of_another_volume_starts_at_its_root) {
  FormatAndMount(kSecond, 64, 1024, "OTHER");
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("OTHER:F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("OTHER:/G", 0)), Succeeded());
  EXPECT_EQ(List("OTHER:/*"), (std::vector<std::string>{".", "..", "F", "G"}));
}

TEST_P(NameTest, volume_part_alone_is_the_starting_directory) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("VOL:")), Succeeded(0x000E));
  EXPECT_EQ(Ended(orb->getFileAttributes("VOL:/")), Succeeded(0x000E));
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("VOL:")), Succeeded(0x0008));
  EXPECT_EQ(Ended(orb->getFileAttributes("VOL:/")), Succeeded(0x000E));
}

// ---- Paths ----------------------------------------------------------------------------------------------------------

class PathTest : public VolumeTest {
 protected:
  // /A/B/F, and A as the current directory.
  void SetUp() override {
    VolumeTest::SetUp();
    EXPECT_EQ(Ended(orb->createDirectory("A")), Succeeded());
    EXPECT_EQ(Ended(orb->createDirectory("A/B")), Succeeded());
    EXPECT_EQ(Ended(orb->createFile("A/B/F", ORB_ATTRIBUTE_USER)), Succeeded());
    EXPECT_EQ(Ended(orb->setCurrentDirectory("A")), Succeeded());
  }

  std::string Full(const char* path) {
    std::string full;
    EXPECT_EQ(Ended(orb->getFullPathName(&full, path)), Succeeded()) << path;
    return full;
  }
};

TEST_P(PathTest, empty_fails_path_not_found) {
  std::string full;
  Found found;
  const OrbU32 code = ORB_ERROR_PATH_NOT_FOUND;
  EXPECT_EQ(Ended(orb->createFile("", 0)), Failed(code));
  EXPECT_EQ(Ended(orb->createDirectory("")), Failed(code));
  EXPECT_EQ(Ended(orb->copyFile("", "X")), Failed(code));
  EXPECT_EQ(Ended(orb->moveFile("", "X")), Failed(code));
  EXPECT_EQ(Ended(orb->renameFile("", "X")), Failed(code));
  EXPECT_EQ(Ended(orb->deleteFile("")), Failed(code));
  EXPECT_EQ(Ended(orb->getFileAttributes("")), Failed(code, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->setFileAttributes("", 0)), Failed(code));
  EXPECT_EQ(Ended(orb->openFile("", 1)), Failed(code, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->setCurrentDirectory("")), Failed(code));
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "")), Failed(code));
  EXPECT_EQ(Ended(orb->findFirstFile("", &found)), Failed(code, ORB_INVALID_HANDLE));
}

TEST_P(PathTest, separators_in_runs_count_as_one) {
  for (const char* path : {"B/F", "B//F", "B////F", "/A/B/F", "//A///B/F", "VOL:/A/B/F", "VOL://A//B//F"}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Succeeded(ORB_ATTRIBUTE_USER)) << path;
  }
}

TEST_P(PathTest, separators_at_the_end_add_nothing) {
  for (const char* path : {"B/F/", "B/F///", "/A/B/F/"}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Succeeded(ORB_ATTRIBUTE_USER)) << path;
  }
  EXPECT_EQ(Ended(orb->getFileAttributes("B/")), Succeeded(8));
  const OrbHandle file = orb->openFile("B/F/", ORB_OPEN_READ);
  EXPECT_EQ(Ended(OrbCloseFile(file)), Succeeded());
  EXPECT_EQ(Ended(orb->copyFile("B/F/", "B/G")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("B/F//")), Succeeded());
  EXPECT_EQ(List("B/*"), (std::vector<std::string>{".", "..", "G"}));
}

TEST_P(PathTest, separators_at_the_end_of_a_creation_fail_invalid_name) {
  for (const char* path : {"NEW/", "NEW//", "B/NEW/", "B/", "/", "VOL:/", "VOL:"}) {
    EXPECT_EQ(Ended(orb->createFile(path, 0)), Failed(ORB_ERROR_INVALID_NAME)) << path;
    EXPECT_EQ(Ended(orb->createDirectory(path)), Failed(ORB_ERROR_INVALID_NAME)) << path;
  }
  EXPECT_EQ(Ended(orb->createFile("MISSING/NEW/", 0)), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "B"}));
}

TEST_P(PathTest, backslash_is_no_separator) {
  EXPECT_EQ(Ended(orb->getFileAttributes("B\\F")), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->createFile("B\\G", 0)), Failed(ORB_ERROR_INVALID_NAME));
}

TEST_P(PathTest, dots_anywhere_are_resolved) {
  for (const char* path : {"./B/F", "B/./F", "../A/B/F", "B/../B/F", "B/../../A/B/F", "/A/./B/.././B/F", "VOL:./B/F"}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Succeeded(ORB_ATTRIBUTE_USER)) << path;
  }
}

TEST_P(PathTest, dots_at_the_root_stay_there) {
  for (const char* path : {"/.", "/..", "/../..", "/../../.", "/../A/.."}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Succeeded(0x000E)) << path;
  }
  EXPECT_EQ(Ended(orb->getFileAttributes("/../A/B/F")), Succeeded(ORB_ATTRIBUTE_USER));
}

TEST_P(PathTest, dots_last_name_the_directory_itself) {
  EXPECT_EQ(Full("."), "VOL:/A");
  EXPECT_EQ(Full("./"), "VOL:/A");
  EXPECT_EQ(Full(".."), "VOL:/");
  EXPECT_EQ(Full("B/."), "VOL:/A/B");
  EXPECT_EQ(Full("B/.."), "VOL:/A");
  EXPECT_EQ(Full("B/../.."), "VOL:/");
  EXPECT_EQ(Full("../.."), "VOL:/");
}

TEST_P(PathTest, dots_behind_a_file_fail_path_not_found) {
  for (const char* path : {"B/F/.", "B/F/..", "B/F/../F", "B/F/./X"}) {
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Failed(ORB_ERROR_PATH_NOT_FOUND, ORB_INVALID_ATTRIBUTES)) << path;
  }
}

TEST_P(PathTest, dots_three_are_an_ordinary_name) {
  EXPECT_EQ(Ended(orb->createFile("...", 0)), Succeeded());
  EXPECT_EQ(Full("..."), "VOL:/A/...");
  EXPECT_EQ(Ended(orb->deleteFile("...")), Succeeded());
}

TEST_P(PathTest, missing_on_the_way_fails_path_not_found) {
  std::string full;
  Found found;
  const OrbU32 code = ORB_ERROR_PATH_NOT_FOUND;
  EXPECT_EQ(Ended(orb->createFile("X/Y", 0)), Failed(code));
  EXPECT_EQ(Ended(orb->copyFile("X/Y", "Z")), Failed(code));
  EXPECT_EQ(Ended(orb->moveFile("X/Y", "Z")), Failed(code));
  EXPECT_EQ(Ended(orb->renameFile("X/Y", "Z")), Failed(code));
  EXPECT_EQ(Ended(orb->deleteFile("X/Y")), Failed(code));
  EXPECT_EQ(Ended(orb->getFileAttributes("X/Y")), Failed(code, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->setFileAttributes("X/Y", 0)), Failed(code));
  EXPECT_EQ(Ended(orb->openFile("X/Y", 1)), Failed(code, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->setCurrentDirectory("X/Y")), Failed(code));
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "X/Y")), Failed(code));
  EXPECT_EQ(Ended(orb->findFirstFile("X/Y", &found)), Failed(code, ORB_INVALID_HANDLE));
}

TEST_P(PathTest, file_on_the_way_fails_path_not_found) {
  std::string full;
  Found found;
  const OrbU32 code = ORB_ERROR_PATH_NOT_FOUND;
  for (const char* path : {"B/F/X", "B/F/X/Y"}) {
    EXPECT_EQ(Ended(orb->createFile(path, 0)), Failed(code));
    EXPECT_EQ(Ended(orb->copyFile(path, "Z")), Failed(code));
    EXPECT_EQ(Ended(orb->moveFile(path, "Z")), Failed(code));
    EXPECT_EQ(Ended(orb->renameFile(path, "Z")), Failed(code));
    EXPECT_EQ(Ended(orb->deleteFile(path)), Failed(code));
    EXPECT_EQ(Ended(orb->getFileAttributes(path)), Failed(code, ORB_INVALID_ATTRIBUTES));
    EXPECT_EQ(Ended(orb->setFileAttributes(path, 0)), Failed(code));
    EXPECT_EQ(Ended(orb->openFile(path, 1)), Failed(code, ORB_INVALID_HANDLE));
    EXPECT_EQ(Ended(orb->setCurrentDirectory(path)), Failed(code));
    EXPECT_EQ(Ended(orb->getFullPathName(&full, path)), Failed(code));
    EXPECT_EQ(Ended(orb->findFirstFile(path, &found)), Failed(code, ORB_INVALID_HANDLE));
  }
}

TEST_P(PathTest, missing_last_fails_with_the_calls_own_code) {
  const OrbU32 code = ORB_ERROR_FILE_NOT_FOUND;
  EXPECT_EQ(Ended(orb->copyFile("X", "Z")), Failed(code));
  EXPECT_EQ(Ended(orb->moveFile("X", "B/Z")), Failed(code));
  EXPECT_EQ(Ended(orb->moveFile("X", "Z")), Failed(code));
  EXPECT_EQ(Ended(orb->renameFile("X", "Z")), Failed(code));
  EXPECT_EQ(Ended(orb->deleteFile("X")), Failed(code));
  EXPECT_EQ(Ended(orb->getFileAttributes("X")), Failed(code, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->setFileAttributes("X", 0)), Failed(code));
  EXPECT_EQ(Ended(orb->openFile("X", 1)), Failed(code, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->setCurrentDirectory("X")), Failed(ORB_ERROR_PATH_NOT_FOUND));
}

// Nothing that failed to resolve holds on to a directory: all of it can be taken away.
TEST_P(PathTest, failures_hold_nothing) {
  std::string full;
  for (const char* path : {"B/X/Y", "B/F/X", "B/F/..", "B/A:B", "B/.../..", "B/NAME-OF-MORE-THAN-29-CHARACTERS"}) {
    EXPECT_EQ(orb->getFileAttributes(path), ORB_INVALID_ATTRIBUTES) << path;
    EXPECT_EQ(orb->setCurrentDirectory(path), 0) << path;
    EXPECT_EQ(orb->openFile(path, 0), ORB_INVALID_HANDLE) << path;
    EXPECT_EQ(orb->deleteFile(path), 0) << path;
  }
  EXPECT_EQ(Ended(orb->setCurrentDirectory("/")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("A/B/F")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("A/B")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("A")), Succeeded());
}

class WideNameTest : public ApiTest {};

// Whatever the host's code page makes of it, it is not a letter.
TEST_F(WideNameTest, create_character_of_no_code_page_fails_invalid_name) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  const OrbWideChar name[] = {'A', 0x4E2D, 0};
  EXPECT_EQ(Ended(OrbCreateFileW(name, 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(OrbMountVolume(Wide(kSecond).c_str(), name)), Failed(ORB_ERROR_INVALID_NAME));
}

INSTANTIATE_TEST_SUITE_P(Forms, NameTest, ::testing::ValuesIn(EveryVariant()), VariantName);
INSTANTIATE_TEST_SUITE_P(Forms, PathTest, ::testing::ValuesIn(EveryVariant()), VariantName);

}  // namespace
}  // namespace api

// The current directory, and full path names.
#include "support.h"

namespace api {
namespace {

class CurrentDirectoryTest : public VolumeTest {
 protected:
  void SetUp() override {
    VolumeTest::SetUp();
    EXPECT_EQ(Ended(orb->createDirectory("Logs")), Succeeded());
    EXPECT_EQ(Ended(orb->createDirectory("Logs/Old")), Succeeded());
    MakeFile("File");
  }

  void GoTo(const char* path) { EXPECT_EQ(Ended(orb->setCurrentDirectory(path)), Succeeded()) << path; }

  std::string Current() {
    std::string path;
    EXPECT_EQ(Ended(orb->getCurrentDirectory(&path)), Succeeded());
    return path;
  }

  std::string Full(const char* path) {
    std::string full;
    EXPECT_EQ(Ended(orb->getFullPathName(&full, path)), Succeeded()) << path;
    return full;
  }
};

// ---- The current directory ------------------------------------------------------------------------------------------

TEST_P(CurrentDirectoryTest, set_any_directory_is_told) {
  EXPECT_EQ(Current(), "VOL:/");
  const struct {
    const char* path;
    const char* current;
  } steps[] = {{"logs", "VOL:/LOGS"},
               {"old", "VOL:/LOGS/OLD"},
               {".", "VOL:/LOGS/OLD"},
               {"..", "VOL:/LOGS"},
               {"/", "VOL:/"},
               {"logs/old/", "VOL:/LOGS/OLD"},
               {"../..", "VOL:/"},
               {"..", "VOL:/"},
               {"VOL:LOGS", "VOL:/LOGS"},
               {"vol:/", "VOL:/"},
               {"/LOGS/./OLD/..", "VOL:/LOGS"},
               {"VOL:", "VOL:/LOGS"}};
  for (const auto& step : steps) {
    GoTo(step.path);
    EXPECT_EQ(Current(), step.current) << step.path;
  }
}

TEST_P(CurrentDirectoryTest, set_a_file_fails_wrong_kind_and_stays) {
  GoTo("Logs");
  EXPECT_EQ(Ended(orb->setCurrentDirectory("/File")), Failed(ORB_ERROR_WRONG_KIND));
  EXPECT_EQ(Current(), "VOL:/LOGS");
  EXPECT_EQ(Ended(orb->deleteFile("/Logs")), Failed(ORB_ERROR_CURRENT_DIRECTORY));
  EXPECT_EQ(Ended(orb->deleteFile("/File")), Succeeded());
}

TEST_P(CurrentDirectoryTest, set_missing_fails_path_not_found_and_stays) {
  GoTo("Logs");
  for (const char* path : {"X", "/X", "X/Y", "/File/X"}) {
    EXPECT_EQ(Ended(orb->setCurrentDirectory(path)), Failed(ORB_ERROR_PATH_NOT_FOUND)) << path;
  }
  EXPECT_EQ(Ended(orb->setCurrentDirectory("OTHER:/")), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(Current(), "VOL:/LOGS");
}

TEST_P(CurrentDirectoryTest, set_another_lets_the_previous_go) {
  GoTo("Logs/Old");
  GoTo("/");
  EXPECT_EQ(Ended(orb->deleteFile("Logs/Old")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("Logs")), Succeeded());
}

TEST_P(CurrentDirectoryTest, set_again_stays_held) {
  GoTo("Logs");
  GoTo(".");
  GoTo("/Logs");
  EXPECT_EQ(Ended(orb->deleteFile("/Logs")), Failed(ORB_ERROR_CURRENT_DIRECTORY));
  GoTo("/");
  EXPECT_EQ(Ended(orb->deleteFile("Logs/Old")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("Logs")), Succeeded());
}

TEST_P(CurrentDirectoryTest, directory_above_of_the_current_one_may_be_renamed_and_moved) {
  GoTo("Logs/Old");
  EXPECT_EQ(Ended(orb->renameFile("/Logs", "L")), Succeeded());
  EXPECT_EQ(Current(), "VOL:/L/OLD");
  EXPECT_EQ(Ended(orb->createDirectory("/Dir")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("/L", "/Dir/L")), Succeeded());
  EXPECT_EQ(Current(), "VOL:/DIR/L/OLD");
}

TEST_P(CurrentDirectoryTest, set_another_volume_moves_there) {
  FormatAndMount(kSecond, 64, 1024, "OTHER");
  GoTo("OTHER:");
  EXPECT_EQ(Current(), "OTHER:/");
  MakeFile("F");
  EXPECT_EQ(List("OTHER:/*"), (std::vector<std::string>{".", "..", "F"}));
}

// ---- Full path names ------------------------------------------------------------------------------------------------

TEST_P(CurrentDirectoryTest, full_path_of_anything_is_absolute_and_in_upper_case) {
  GoTo("Logs");
  EXPECT_EQ(Full("old"), "VOL:/LOGS/OLD");
  EXPECT_EQ(Full("not there yet"), "VOL:/LOGS/NOT THERE YET");
  EXPECT_EQ(Full("Old/day1.txt"), "VOL:/LOGS/OLD/DAY1.TXT");
  EXPECT_EQ(Full("/file"), "VOL:/FILE");
  EXPECT_EQ(Full("vol:x"), "VOL:/LOGS/X");
  EXPECT_EQ(Full("vol:/x"), "VOL:/X");
  EXPECT_EQ(Full("/"), "VOL:/");
  EXPECT_EQ(Full("/logs/../x"), "VOL:/X");
  EXPECT_EQ(Full("*.txt"), "VOL:/LOGS/*.TXT");
}

TEST_P(CurrentDirectoryTest, full_path_not_resolved_fails_and_is_empty) {
  std::string full = "x";
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "X/Y")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(full, "");
  full = "x";
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "OTHER:Y")), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(full, "");
}

TEST_P(CurrentDirectoryTest, full_path_illegal_path_fails_invalid_name_and_is_empty) {
  for (const std::string& path : {std::string(30, 'N'), std::string(30, 'N') + "/X", "LOGS/" + std::string(30, 'N'),
                                  std::string("A B:/X"), std::string(":X"), std::string(30, 'V') + ":X"}) {
    std::string full = "x";
    EXPECT_EQ(Ended(orb->getFullPathName(&full, path.c_str())), Failed(ORB_ERROR_INVALID_NAME)) << path;
    EXPECT_EQ(full, "") << path;
  }
}

TEST_P(CurrentDirectoryTest, full_path_holds_nothing) {
  std::string full;
  EXPECT_EQ(Full("Logs/Old/X"), "VOL:/LOGS/OLD/X");
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "Logs/Old/X/Y")), Failed(ORB_ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(Ended(orb->deleteFile("Logs/Old")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("Logs")), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, CurrentDirectoryTest, ::testing::ValuesIn(EveryVariant()), VariantName);

class FullPathLimitTest : public VolumeTest {};

// "VOL:/" and four directories of 29 characters make 5 + 4 x 30 = 125.
TEST_P(FullPathLimitTest, length_127_characters_is_the_most) {
  std::string path;
  for (int level = 0; level < 4; ++level) {
    path += std::string(29, static_cast<char>('A' + level)) + "/";
    EXPECT_EQ(Ended(orb->createDirectory(path.substr(0, path.size() - 1).c_str())), Succeeded());
  }
  std::string full = "x";
  EXPECT_EQ(Ended(orb->getFullPathName(&full, (path + "xy").c_str())), Succeeded());
  EXPECT_EQ(full, "VOL:/" + path + "XY");
  EXPECT_EQ(full.size(), 127u);
  EXPECT_EQ(Ended(orb->getFullPathName(&full, (path + "xyz").c_str())), Failed(ORB_ERROR_PATH_TOO_LONG));
  EXPECT_EQ(full, "");
}

TEST_P(FullPathLimitTest, length_current_directory_too_deep_fails_path_too_long_and_works_on) {
  for (int level = 0; level < 5; ++level) {
    const std::string name(29, static_cast<char>('A' + level));
    EXPECT_EQ(Ended(orb->createDirectory(name.c_str())), Succeeded());
    EXPECT_EQ(Ended(orb->setCurrentDirectory(name.c_str())), Succeeded());
  }
  std::string path = "x";
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&path)), Failed(ORB_ERROR_PATH_TOO_LONG));
  EXPECT_EQ(path, "");
  MakeFile("F", Pattern(1, 10));
  EXPECT_EQ(Contents("F"), Pattern(1, 10));
}

// 60 directories of one character make 5 + 60 x 2 = 125 in front of the last name.
TEST_P(FullPathLimitTest, levels_as_many_as_fit_are_climbed) {
  std::string path;
  for (int level = 0; level < 60; ++level) {
    path += level == 0 ? "D" : "/D";
    ASSERT_EQ(Ended(orb->createDirectory(path.c_str())), Succeeded()) << level;
  }
  std::string expected = "VOL:/";
  for (int level = 0; level < 60; ++level) expected += "D/";
  std::string full;
  EXPECT_EQ(Ended(orb->getFullPathName(&full, (path + "/xy").c_str())), Succeeded());
  EXPECT_EQ(full, expected + "XY");
  EXPECT_EQ(Ended(orb->getFullPathName(&full, (path + "/xyz").c_str())), Failed(ORB_ERROR_PATH_TOO_LONG));
}

// Names may lie as deep as they like; only their full form has a limit.
TEST_P(FullPathLimitTest, levels_more_than_the_chain_holds_fail_path_too_long) {
  std::string path;
  for (int level = 0; level < 70; ++level) {
    path += level == 0 ? "D" : "/D";
    ASSERT_EQ(Ended(orb->createDirectory(path.c_str())), Succeeded()) << level;
  }
  MakeFile(path + "/F", Pattern(1, 10));
  EXPECT_EQ(Contents(path + "/F"), Pattern(1, 10));
  for (int level = 61; level <= 70; ++level) {
    std::string full = "x";
    const std::string above = path.substr(0, static_cast<std::size_t>(2 * level - 1));
    EXPECT_EQ(Ended(orb->getFullPathName(&full, (above + "/xy").c_str())), Failed(ORB_ERROR_PATH_TOO_LONG)) << level;
    EXPECT_EQ(full, "") << level;
  }
  EXPECT_EQ(Ended(orb->setCurrentDirectory(path.c_str())), Succeeded());
  std::string full = "x";
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&full)), Failed(ORB_ERROR_PATH_TOO_LONG));
  EXPECT_EQ(Ended(orb->setCurrentDirectory("/")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile((path + "/F").c_str())), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile(path.c_str())), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, FullPathLimitTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// A volume name of one character leaves room for 62 directories: 3 + 62 x 2 = 127, and none for a name behind them.
TEST_F(ApiTest, full_path_62_directories_deep_has_no_room_for_a_name) {
  FormatAndMount(kFirst, 64, 1024, "V");
  std::string path = "D";
  for (int level = 1; level < 61; ++level) {
    ASSERT_EQ(Ended(OrbCreateDirectoryA(path.c_str())), Succeeded());
    path += "/D";
  }
  ASSERT_EQ(Ended(OrbCreateDirectoryA(path.c_str())), Succeeded());
  char full[ORB_PATH_BUFFER];
  EXPECT_EQ(Ended(OrbGetFullPathNameA(full, (path + "/ab").c_str())), Succeeded());
  EXPECT_EQ(std::string(full).size(), 127u);
  EXPECT_EQ(Ended(OrbCreateDirectoryA((path + "/D").c_str())), Succeeded());
  EXPECT_EQ(Ended(OrbGetFullPathNameA(full, (path + "/D/a").c_str())), Failed(ORB_ERROR_PATH_TOO_LONG));
  EXPECT_STREQ(full, "");
}

// Results are converted last.
TEST_F(ApiTest, wide_buffers_after_a_failure_are_as_they_were) {
  const WideString before = Wide("as it was");
  OrbWideChar buffer[ORB_WIDE_PATH_BUFFER];
  before.copy(buffer, before.size());
  buffer[before.size()] = 0;
  EXPECT_EQ(Ended(OrbGetCurrentDirectoryW(buffer)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(buffer, before);
  EXPECT_EQ(Ended(OrbGetFullPathNameW(buffer, Wide("F").c_str())), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(buffer, before);
}

// Nothing behind the result's own bytes is written.
TEST_F(ApiTest, full_path_longest_fits_its_buffers) {
  FormatAndMount(kFirst, 64, 1024, "V");
  std::string path;
  for (int level = 0; level < 4; ++level) {
    path += std::string(29, 'D');
    EXPECT_EQ(Ended(OrbCreateDirectoryA(path.c_str())), Succeeded());
    path += "/";
  }
  path += "FOUR";
  char ansi[ORB_PATH_BUFFER + 1];
  ansi[ORB_PATH_BUFFER] = 'x';
  EXPECT_EQ(Ended(OrbGetFullPathNameA(ansi, path.c_str())), Succeeded());
  EXPECT_EQ(std::string(ansi).size(), 127u);
  EXPECT_EQ(ansi[ORB_PATH_BUFFER], 'x');
  OrbWideChar wide[ORB_WIDE_PATH_BUFFER + 1];
  wide[ORB_WIDE_PATH_BUFFER] = 'x';
  EXPECT_EQ(Ended(OrbGetFullPathNameW(wide, Wide(path).c_str())), Succeeded());
  EXPECT_EQ(Narrow(wide), ansi);
  EXPECT_EQ(wide[ORB_WIDE_PATH_BUFFER], OrbWideChar{'x'});
}

}  // namespace
}  // namespace api

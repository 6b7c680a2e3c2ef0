// What orba.h says of calls that meet: a directory that changes under its search, read-only files, files that were cut,
// one memory file under two names.
#include "support.h"

namespace api {
namespace {

using Names = std::vector<std::string>;

class ContractTest : public VolumeTest {};

// ---- Searches -------------------------------------------------------------------------------------------------------

TEST_P(ContractTest, search_each_name_deleted_as_found_leaves_every_second_one) {
  for (int i = 0; i < 10; ++i) MakeFile("F" + std::to_string(i));
  Found found;
  int deleted = 0;
  const OrbHandle search = orb->findFirstFile("F*", &found);
  do {
    EXPECT_EQ(Ended(orb->deleteFile(found.name.c_str())), Succeeded());
    ++deleted;
  } while (orb->findNextFile(search, &found) != 0);
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(deleted, 5);
  EXPECT_EQ(List("F*"), (Names{"F9", "F8", "F7", "F6", "F5"}));
}

TEST_P(ContractTest, search_names_collected_before_they_are_deleted_leaves_none) {
  for (int i = 0; i < 10; ++i) MakeFile("F" + std::to_string(i));
  for (const std::string& name : List("F*")) EXPECT_EQ(Ended(orb->deleteFile(name.c_str())), Succeeded()) << name;
  EXPECT_EQ(List("*"), (Names{".", ".."}));
}

TEST_P(ContractTest, search_a_match_created_for_each_found_goes_on) {
  MakeFile("F0");
  Found found;
  const OrbHandle search = orb->findFirstFile("F*", &found);
  for (int i = 1; i < 100; ++i) {
    MakeFile("F" + std::to_string(i));
    EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
    EXPECT_EQ(found.name, "F" + std::to_string(i));
  }
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(ContractTest, search_each_name_renamed_as_found_finds_each_once) {
  for (int i = 0; i < 10; ++i) MakeFile("F" + std::to_string(i));
  Found found;
  Names seen;
  const OrbHandle search = orb->findFirstFile("F*", &found);
  do {
    seen.push_back(found.name);
    EXPECT_EQ(Ended(orb->renameFile(found.name.c_str(), ("F-" + found.name).c_str())), Succeeded());
  } while (orb->findNextFile(search, &found) != 0);
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(seen, (Names{"F0", "F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9"}));
}

// ---- Read-only files ------------------------------------------------------------------------------------------------

TEST_P(ContractTest, read_only_file_is_renamed_moved_copied_and_deleted) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("A", ORB_ATTRIBUTE_READ_ONLY)), Succeeded());
  EXPECT_EQ(Ended(orb->renameFile("A", "B")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("B", "D/C")), Succeeded());
  EXPECT_EQ(Ended(orb->copyFile("D/C", "E")), Succeeded());
  EXPECT_EQ(Ended(orb->openFile("E", ORB_OPEN_WRITE)), Failed(ORB_ERROR_ACCESS_DENIED, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->deleteFile("D/C")), Succeeded());
  EXPECT_EQ(Ended(orb->deleteFile("E")), Succeeded());
}

// ---- The current directory ------------------------------------------------------------------------------------------

TEST_P(ContractTest, current_directory_moved_within_its_directory_is_renamed) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("E")), Succeeded());
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("/D", "/E/D")), Failed(ORB_ERROR_CURRENT_DIRECTORY));
  EXPECT_EQ(Ended(orb->moveFile("/D", "/X")), Succeeded());
  std::string current;
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&current)), Succeeded());
  EXPECT_EQ(current, "VOL:/X");
}

TEST_P(ContractTest, root_is_neither_moved_nor_copied) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("/", "D/R")), Failed(ORB_ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(Ended(orb->copyFile("/", "D/R")), Failed(ORB_ERROR_WRONG_KIND));
}

TEST_P(ContractTest, path_longer_than_any_full_name_works) {
  std::string path;
  for (int level = 0; level < 10; ++level) {
    path += "/" + std::string(25, 'D');
    EXPECT_EQ(Ended(orb->createDirectory(path.c_str())), Succeeded());
  }
  MakeFile(path + "/F", Pattern(1, 10));
  EXPECT_EQ(Contents(path + "/F"), Pattern(1, 10));
  std::string full;
  EXPECT_EQ(Ended(orb->getFullPathName(&full, (path + "/F").c_str())), Failed(ORB_ERROR_PATH_TOO_LONG));
}

INSTANTIATE_TEST_SUITE_P(Forms, ContractTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- What deletion leaves in use ------------------------------------------------------------------------------------

class LeakTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
  }

  void Resize(OrbHandle file, OrbU32 size) { EXPECT_EQ(Ended(OrbSetFileSize(file, size)), Succeeded()); }

  // Blocks that are neither free nor the two that formatting makes, where the root is all that is left.
  OrbU32 Leaked() {
    const Image image = Look(kFirst, "VOL");
    return image.Blocks() - image.FreeBlocks() - 2;
  }
};

TEST_F(LeakTest, file_deleted_uncut_leaves_nothing) {
  MakeFile("F", Pattern(1, 300 * 1024));
  EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
  EXPECT_EQ(Leaked(), 0u);
}

TEST_F(LeakTest, file_cut_below_six_blocks_and_deleted_leaves_its_map_blocks) {
  for (const OrbU32 blocks : {0u, 1u, 5u}) {
    SCOPED_TRACE(blocks);
    const OrbU32 before = Leaked();
    MakeFile("F", Pattern(1, 300 * 1024));
    const OrbHandle file = Open("F");
    Resize(file, blocks * 1024);
    Close(file);
    EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
    EXPECT_EQ(Leaked(), before + 3);  // indirect, double-indirect and one of its own
  }
}

TEST_F(LeakTest, file_cut_to_six_blocks_or_extended_to_them_leaves_nothing) {
  for (const OrbU32 blocks : {0u, 6u, 100u}) {
    SCOPED_TRACE(blocks);
    MakeFile("F", Pattern(1, 300 * 1024));
    const OrbHandle file = Open("F");
    Resize(file, blocks * 1024);
    if (blocks < 6) Resize(file, 5 * 1024 + 1);
    Close(file);
    EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
    EXPECT_EQ(Leaked(), 0u);
  }
}

TEST_F(LeakTest, directory_once_large_leaves_its_map_block) {
  for (const int names : {190, 191}) {
    SCOPED_TRACE(names);
    EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
    for (int i = 0; i < names; ++i)
      EXPECT_EQ(Ended(OrbCreateFileA(("D/" + std::to_string(i)).c_str(), 0)), Succeeded());
    for (int i = 0; i < names; ++i) EXPECT_EQ(Ended(OrbDeleteFileA(("D/" + std::to_string(i)).c_str())), Succeeded());
    EXPECT_EQ(Ended(OrbDeleteFileA("D")), Succeeded());
    EXPECT_EQ(Leaked(), names == 190 ? 0u : 1u);
  }
}

// ---- Volumes --------------------------------------------------------------------------------------------------------

TEST_F(ApiTest, memory_file_mounted_twice_each_volume_overwrites_the_other) {
  FormatAndMount(kMemory, 64, 1024, "ONE");
  Mount(kMemory, "TWO");
  MakeFile("ONE:/A", Pattern(1, 5000));
  EXPECT_EQ(Ended(OrbGetFileAttributesA("TWO:/A")), Succeeded(0));
  MakeFile("TWO:/B", Pattern(2, 5000));  // TWO does not know of A, nor of its node and blocks
  EXPECT_EQ(List("ONE:/"), (Names{".", "..", "B"}));
  EXPECT_EQ(Contents("ONE:/B"), Pattern(2, 5000));
  Unmount("TWO");
  EXPECT_EQ(Ended(OrbUnmountVolumeA("ONE")), Failed(ORB_ERROR_NO_MEMFILE));
}

TEST_F(ApiTest, volumes_more_than_any_table_holds_are_mounted) {
  constexpr int kVolumes = 40;
  const auto name = [](int i) { return "V" + std::to_string(i); };
  for (int i = 0; i < kVolumes; ++i) {
    std::remove((name(i) + ".orba").c_str());
    FormatAndMount((name(i) + ".orba").c_str(), 8, 1024, name(i).c_str());
  }
  for (int i = 0; i < kVolumes; ++i) MakeFile(name(i) + ":/F", Pattern(static_cast<OrbU32>(i), 10));
  for (int i = 0; i < kVolumes; ++i) {
    EXPECT_EQ(Contents(name(i) + ":/F"), Pattern(static_cast<OrbU32>(i), 10));
    Unmount(name(i).c_str());
    std::remove((name(i) + ".orba").c_str());
  }
}

}  // namespace
}  // namespace api

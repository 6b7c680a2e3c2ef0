// Mounting, volume information and unmounting; and where the current directory goes when a volume does.
#include <cstdio>

#include "support.h"

namespace api {
namespace {

class MountTest : public ApiTest {
 protected:
  std::string CurrentDirectory() {
    std::string path;
    EXPECT_EQ(Ended(kAnsiForm.getCurrentDirectory(&path)), Succeeded());
    return path;
  }

  // Formats a container, overwrites a header field and tries to mount it.
  Outcome MountWith(std::size_t offset, OrbU32 value) {
    std::remove(kFirst);
    Format(kFirst, 64, 1024);
    PatchU32(kFirst, offset, value);
    return TryMount(kFirst, "V");
  }
};

// ---- The container --------------------------------------------------------------------------------------------------

TEST_F(MountTest, container_formatted_mounts_and_is_not_written) {
  Format(kFirst, 64, 1024);
  const Bytes before = ReadWhole(kFirst);
  Mount(kFirst, "V");
  Unmount("V");
  EXPECT_EQ(ReadWhole(kFirst), before);
}

TEST_F(MountTest, container_missing_fails_file_not_found) {
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_FILE_NOT_FOUND));
}

TEST_F(MountTest, container_folder_missing_fails_path_not_found) {
  EXPECT_EQ(TryMount("no-such-folder/first.orba", "V"), Failed(ORB_ERROR_PATH_NOT_FOUND));
}

TEST_F(MountTest, container_folder_is_a_file_fails_path_not_found) {
  Format(kFirst, 64, 1024);
  EXPECT_EQ(TryMount("first.orba/second.orba", "V"), Failed(ORB_ERROR_PATH_NOT_FOUND));
}

TEST_F(MountTest, container_empty_name_fails_path_not_found) {
  EXPECT_EQ(TryMount("", "V"), Failed(ORB_ERROR_PATH_NOT_FOUND));
}

TEST_F(MountTest, container_illegal_name_fails_invalid_name) {
  EXPECT_EQ(Ended(OrbMountVolume(kIllegal, Wide("V").c_str())), Failed(ORB_ERROR_INVALID_NAME));
}

TEST_F(MountTest, container_is_a_folder_fails_access_denied) {
  EXPECT_EQ(TryMount(".", "V"), Failed(ORB_ERROR_ACCESS_DENIED));
}

TEST_F(MountTest, container_mounted_already_fails_container_in_use) {
  FormatAndMount(kFirst, 64, 1024, "V");
  EXPECT_EQ(TryMount(kFirst, "W"), Failed(ORB_ERROR_CONTAINER_IN_USE));
  EXPECT_EQ(Ended(OrbGetVolumeInfoA("W", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
}

TEST_F(MountTest, container_unmounted_mounts_again_under_another_name) {
  FormatAndMount(kFirst, 64, 1024, "V");
  Unmount("V");
  Mount(kFirst, "W");
}

TEST_F(MountTest, failure_leaves_nothing_mounted) {
  EXPECT_EQ(MountWith(0, 0), Failed(ORB_ERROR_DAMAGED_VOLUME));
  char current[ORB_PATH_BUFFER];
  EXPECT_EQ(Ended(OrbGetCurrentDirectoryA(current)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(Ended(OrbGetVolumeInfoA("V", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
}

TEST_F(MountTest, failure_closes_the_container) {
  Format(kFirst, 64, 1024);
  PatchU32(kFirst, 52, 1);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_NOT_CLEAN));
  PatchU32(kFirst, 52, 0);
  Mount(kFirst, "V");
}

// ---- The header -----------------------------------------------------------------------------------------------------

TEST_F(MountTest, header_signature_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(0, 0x4142524E), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_version_wrong_fails_wrong_version) {
  EXPECT_EQ(MountWith(4, 0x20312E31), Failed(ORB_ERROR_WRONG_VERSION));
}

TEST_F(MountTest, header_version_and_sizes_wrong_reports_the_version) {
  Format(kFirst, 64, 1024);
  for (std::size_t offset = 4; offset < 56; offset += 4) PatchU32(kFirst, offset, 0xFFFFFFFF);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_WRONG_VERSION));
}

TEST_F(MountTest, header_header_size_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(8, 127), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_table_offset_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(12, 124), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_table_size_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(16, 892), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_bitmap_offset_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(20, 1028), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_bitmap_size_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(24, 63), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_bitmap_size_above_the_largest_fails_invalid_argument) {
  EXPECT_EQ(MountWith(24, 897), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(MountWith(24, 0xFFFFFFFF), Failed(ORB_ERROR_INVALID_ARGUMENT));
}

TEST_F(MountTest, header_reserved_offset_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(28, 1087), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_reserved_size_alone_fails_damaged_volume) {
  EXPECT_EQ(MountWith(32, 1), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_reserved_region_before_the_data_mounts) {
  Format(kFirst, 64, 1024);
  Bytes bytes = ReadWhole(kFirst);
  bytes.insert(bytes.begin() + 1024 + 64, 512, 0xAA);
  WriteWhole(kFirst, bytes);
  PatchU32(kFirst, 32, 512);
  PatchU32(kFirst, 36, 1024 + 64 + 512);
  Mount(kFirst, "V");
  MakeFile("F", Pattern(1, 3000));
  EXPECT_EQ(Contents("F"), Pattern(1, 3000));
}

TEST_F(MountTest, header_data_offset_wrong_fails_damaged_volume) {
  EXPECT_EQ(MountWith(36, 1024), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_block_size_none_of_the_four_fails_invalid_argument) {
  for (const OrbU32 blockSize : {0u, 512u, 1025u, 16384u}) {
    EXPECT_EQ(MountWith(40, blockSize), Failed(ORB_ERROR_INVALID_ARGUMENT)) << blockSize;
  }
}

TEST_F(MountTest, header_block_shift_wrong_fails_damaged_volume) {
  for (const OrbU32 shift : {0u, 9u, 11u, 32u, 42u, 255u}) {
    EXPECT_EQ(MountWith(44, shift), Failed(ORB_ERROR_DAMAGED_VOLUME)) << shift;
  }
}

TEST_F(MountTest, header_block_shift_above_its_low_byte_is_not_read) {
  EXPECT_EQ(MountWith(44, 0xABCDEF0A), Succeeded());
}

TEST_F(MountTest, header_other_block_size_and_shift_are_taken_as_they_stand) {
  EXPECT_EQ(MountWith(40, 2048), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_dirty_fails_not_clean) { EXPECT_EQ(MountWith(52, 1), Failed(ORB_ERROR_NOT_CLEAN)); }

TEST_F(MountTest, header_dirty_and_damaged_reports_the_damage) {
  Format(kFirst, 64, 1024);
  PatchU32(kFirst, 52, 1);
  PatchU32(kFirst, 36, 0);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, header_other_state_flags_do_not_matter) { EXPECT_EQ(MountWith(52, 0xFFFFFFFE), Succeeded()); }

TEST_F(MountTest, header_reserved_bytes_do_not_matter) {
  Format(kFirst, 64, 1024);
  Patch(kFirst, 56, Bytes(72, 0xFF));
  Mount(kFirst, "V");
}

// A container of every length below the first node block's end.
TEST_F(MountTest, container_cut_short_fails_damaged_volume) {
  Format(kFirst, 64, 1024);
  const Bytes whole = ReadWhole(kFirst);
  for (const std::size_t length : {0u, 1u, 127u, 128u, 1023u, 1024u, 1087u, 1088u, 1088u + 63u}) {
    WriteWhole(kFirst, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_VOLUME)) << length;
  }
  WriteWhole(kFirst, Bytes(whole.begin(), whole.begin() + 1088 + 64));  // the root's record is there
  Mount(kFirst, "V");
}

TEST_F(MountTest, container_any_other_file_fails_damaged_volume) {
  WriteWhole(kFirst, Pattern(1, 10240));
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

TEST_F(MountTest, table_root_has_no_block_fails_damaged_record) {
  EXPECT_EQ(MountWith(128, 0), Failed(ORB_ERROR_DAMAGED_RECORD));
}

TEST_F(MountTest, root_no_directory_fails_damaged_record) {
  Format(kFirst, 64, 1024);
  const std::size_t attributes = Image(kFirst).Node(1) + 6;
  PatchU16(kFirst, attributes, 0x0006);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_RECORD));
  PatchU16(kFirst, attributes, 0x0008);  // the directory bit is all that matters
  Mount(kFirst, "V");
}

// ---- The free chain -------------------------------------------------------------------------------------------------

class ChainTest : public MountTest {
 protected:
  // A clean volume with one free block, which is the chain's only record.
  void SetUp() override {
    MountTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "V");
    MakeFile("F", Pattern(1, 1));
    EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
    Unmount("V");
    const Image image(kFirst);
    EXPECT_EQ(image.U32(48), 3u);
    record_ = image.Block(3);
    EXPECT_EQ(image.Text(record_, 4), "FBC1");
    EXPECT_EQ(image.U32(record_ + 8), 0u);
  }

  std::size_t record_ = 0;
};

TEST_F(ChainTest, chain_signature_wrong_fails_damaged_record) {
  PatchU32(kFirst, record_, 0);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_RECORD));
}

TEST_F(ChainTest, chain_count_above_the_capacity_fails_damaged_record) {
  Bytes entries;
  for (int i = 0; i < 254; ++i) entries.insert(entries.end(), {9, 0, 0, 0});
  Patch(kFirst, record_ + 12, entries);
  PatchU32(kFirst, record_ + 8, 254);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_RECORD));
  PatchU32(kFirst, record_ + 8, 253);
  Mount(kFirst, "V");
}

TEST_F(ChainTest, chain_entry_is_0_fails_damaged_record) {
  PatchU32(kFirst, record_ + 8, 1);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_RECORD));
}

TEST_F(ChainTest, chain_head_beyond_the_end_fails_damaged_volume) {
  PatchU32(kFirst, 48, 1000);
  EXPECT_EQ(TryMount(kFirst, "V"), Failed(ORB_ERROR_DAMAGED_VOLUME));
}

// ---- Volume names ---------------------------------------------------------------------------------------------------

TEST_F(MountTest, name_taken_in_any_case_fails_already_mounted) {
  FormatAndMount(kFirst, 64, 1024, "Data");
  Format(kSecond, 64, 1024);
  for (const char* name : {"Data", "DATA", "data"}) {
    EXPECT_EQ(TryMount(kSecond, name), Failed(ORB_ERROR_ALREADY_MOUNTED)) << name;
  }
}

TEST_F(MountTest, name_taken_is_found_before_the_container_is_opened) {
  FormatAndMount(kFirst, 64, 1024, "DATA");
  EXPECT_EQ(TryMount(kSecond, "DATA"), Failed(ORB_ERROR_ALREADY_MOUNTED));
}

TEST_F(MountTest, name_29_characters_mounts) {
  FormatAndMount(kFirst, 64, 1024, std::string(29, 'v').c_str());
  EXPECT_EQ(CurrentDirectory(), std::string(29, 'V') + ":/");
}

TEST_F(MountTest, name_illegal_fails_invalid_name) {
  Format(kFirst, 64, 1024);
  for (const std::string& name : {std::string(), std::string(30, 'V'), std::string("A B"), std::string("A/B"),
                                  std::string("A:B"), std::string("V:"), std::string("A*")}) {
    EXPECT_EQ(TryMount(kFirst, name.c_str()), Failed(ORB_ERROR_INVALID_NAME)) << name;
  }
}

TEST_F(MountTest, name_every_ascii_character_follows_the_rule) {
  Format(kFirst, 64, 1024);
  const std::string legal = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!#$%&'()-^~@{}[]_.";
  EXPECT_EQ(legal.size(), 80u);
  for (char c = 1; c > 0 && c < 0x7F; ++c) {
    const std::string name = std::string("A") + c + "B";
    const bool isLegal = legal.find(c) != std::string::npos;
    EXPECT_EQ(TryMount(kFirst, name.c_str()), isLegal ? Succeeded() : Failed(ORB_ERROR_INVALID_NAME)) << name;
    if (isLegal) Unmount(name.c_str());
  }
}

// ---- Volume information ---------------------------------------------------------------------------------------------

class VolumeInfoTest : public VolumeTest {};

TEST_P(VolumeInfoTest, info_mounted_tells_both_sizes) {
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(Ended(orb->getVolumeInfo("vol", &bitmapBytes, &blockSize)), Succeeded());
  EXPECT_EQ(bitmapBytes, kBitmap);
  EXPECT_EQ(blockSize, kBlock);
}

TEST_P(VolumeInfoTest, info_either_pointer_null_tells_the_other) {
  OrbU32 value = 0;
  EXPECT_EQ(Ended(orb->getVolumeInfo("VOL", &value, nullptr)), Succeeded());
  EXPECT_EQ(value, kBitmap);
  EXPECT_EQ(Ended(orb->getVolumeInfo("VOL", nullptr, &value)), Succeeded());
  EXPECT_EQ(value, kBlock);
  EXPECT_EQ(Ended(orb->getVolumeInfo("VOL", nullptr, nullptr)), Succeeded());
}

TEST_P(VolumeInfoTest, info_unknown_name_fails_not_mounted_and_leaves_results) {
  OrbU32 bitmapBytes = 7;
  OrbU32 blockSize = 8;
  for (const std::string& name : {std::string("VOLUME"), std::string("VO"), std::string(), std::string("VOL:"),
                                  std::string("no name"), std::string(100, 'V')}) {
    EXPECT_EQ(Ended(orb->getVolumeInfo(name.c_str(), &bitmapBytes, &blockSize)), Failed(ORB_ERROR_NOT_MOUNTED));
  }
  EXPECT_EQ(bitmapBytes, 7u);
  EXPECT_EQ(blockSize, 8u);
}

TEST_P(VolumeInfoTest, unmount_any_case_unmounts) {
  EXPECT_EQ(Ended(orb->unmountVolume("vOl")), Succeeded());
  EXPECT_EQ(Ended(orb->getVolumeInfo("VOL", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
}

TEST_P(VolumeInfoTest, unmount_unknown_name_fails_not_mounted_and_changes_nothing) {
  for (const std::string& name :
       {std::string("VOLUME"), std::string(), std::string("VOL:"), std::string(30, 'V'), std::string("a b")}) {
    EXPECT_EQ(Ended(orb->unmountVolume(name.c_str())), Failed(ORB_ERROR_NOT_MOUNTED)) << name;
  }
  EXPECT_EQ(Ended(orb->getVolumeInfo("VOL", nullptr, nullptr)), Succeeded());
}

TEST_P(VolumeInfoTest, unmount_twice_fails_not_mounted) {
  Unmount("VOL");
  EXPECT_EQ(Ended(orb->unmountVolume("VOL")), Failed(ORB_ERROR_NOT_MOUNTED));
}

// ---- Unmounting with something open ---------------------------------------------------------------------------------

TEST_P(VolumeInfoTest, unmount_files_open_closes_them) {
  MakeFile("A");
  MakeFile("B");
  const OrbHandle a = Open("A");
  const OrbHandle b = Open("B");
  EXPECT_EQ(Ended(orb->unmountVolume("VOL")), Succeeded());
  EXPECT_EQ(Ended(OrbGetFileSize(a)), Failed(ORB_ERROR_INVALID_HANDLE, ORB_INVALID_SIZE));
  EXPECT_EQ(Ended(OrbCloseFile(b)), Failed(ORB_ERROR_INVALID_HANDLE));
}

TEST_P(VolumeInfoTest, unmount_search_open_fails_0_and_unmounts_all_the_same) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(orb->unmountVolume("VOL")), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->getVolumeInfo("VOL", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  EXPECT_EQ(Ended(OrbFindClose(search)), Failed(ORB_ERROR_INVALID_HANDLE));
}

// The search of the old volume must not be taken for one of the new, even if that finds the same memory.
TEST_P(VolumeInfoTest, unmount_search_open_new_volume_is_free_of_it) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(orb->unmountVolume("VOL")), Failed(ORB_ERROR_INVALID_HANDLE));
  Format(kSecond, kBitmap, kBlock);
  Mount(kSecond, "VOL");
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_INVALID_HANDLE));
  Unmount("VOL");
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(VolumeInfoTest, unmount_search_of_another_volume_is_not_touched) {
  FormatAndMount(kSecond, kBitmap, kBlock, "OTHER");
  Found found;
  const OrbHandle search = orb->findFirstFile("OTHER:*", &found);
  EXPECT_EQ(Ended(orb->unmountVolume("VOL")), Succeeded());
  EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

TEST_P(VolumeInfoTest, unmount_file_of_another_volume_stays_open) {
  FormatAndMount(kSecond, kBitmap, kBlock, "OTHER");
  MakeFile("OTHER:F", Pattern(1, 10));
  const OrbHandle file = Open("OTHER:F");
  EXPECT_EQ(Ended(orb->unmountVolume("VOL")), Succeeded());
  EXPECT_EQ(ReadAt(file, 0, 10), Pattern(1, 10));
  Close(file);
}

INSTANTIATE_TEST_SUITE_P(Forms, VolumeInfoTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- The current directory ------------------------------------------------------------------------------------------

class ThreeVolumesTest : public MountTest {
 protected:
  // Mounted in this order, so that A is the oldest.
  void SetUp() override {
    MountTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "A");
    FormatAndMount(kSecond, 64, 2048, "B");
    FormatAndMount(kThird, 64, 4096, "C");
  }
};

TEST_F(MountTest, first_volume_mounted_becomes_the_current_directory) {
  FormatAndMount(kFirst, 64, 1024, "one");
  EXPECT_EQ(CurrentDirectory(), "ONE:/");
}

TEST_F(ThreeVolumesTest, more_volumes_mounted_leave_the_current_directory) { EXPECT_EQ(CurrentDirectory(), "A:/"); }

TEST_F(ThreeVolumesTest, unmount_oldest_is_current_moves_to_the_newer_neighbour) {
  Unmount("A");
  EXPECT_EQ(CurrentDirectory(), "B:/");
}

TEST_F(ThreeVolumesTest, unmount_middle_is_current_moves_to_the_older_neighbour) {
  EXPECT_EQ(Ended(OrbSetCurrentDirectoryA("B:/")), Succeeded());
  Unmount("B");
  EXPECT_EQ(CurrentDirectory(), "A:/");
}

TEST_F(ThreeVolumesTest, unmount_newest_is_current_moves_to_the_older_neighbour) {
  EXPECT_EQ(Ended(OrbSetCurrentDirectoryA("C:/")), Succeeded());
  Unmount("C");
  EXPECT_EQ(CurrentDirectory(), "B:/");
}

TEST_F(ThreeVolumesTest, unmount_subdirectory_is_current_moves_to_the_neighbours_root) {
  EXPECT_EQ(Ended(OrbCreateDirectoryA("A:/D")), Succeeded());
  EXPECT_EQ(Ended(OrbCreateDirectoryA("C:/D")), Succeeded());
  EXPECT_EQ(Ended(OrbSetCurrentDirectoryA("C:/D")), Succeeded());
  Unmount("C");
  EXPECT_EQ(CurrentDirectory(), "B:/");
}

TEST_F(ThreeVolumesTest, unmount_other_volumes_leaves_the_current_directory) {
  EXPECT_EQ(Ended(OrbCreateDirectoryA("A:/D")), Succeeded());
  EXPECT_EQ(Ended(OrbSetCurrentDirectoryA("A:/D")), Succeeded());
  Unmount("B");
  Unmount("C");
  EXPECT_EQ(CurrentDirectory(), "A:/D");
}

TEST_F(ThreeVolumesTest, unmount_last_leaves_no_current_directory) {
  Unmount("A");
  Unmount("B");
  Unmount("C");
  char current[ORB_PATH_BUFFER] = "x";
  EXPECT_EQ(Ended(OrbGetCurrentDirectoryA(current)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_STREQ(current, "");
}

TEST_F(ThreeVolumesTest, mount_after_the_last_was_unmounted_becomes_the_current_directory) {
  Unmount("A");
  Unmount("B");
  Unmount("C");
  Mount(kSecond, "AGAIN");
  EXPECT_EQ(CurrentDirectory(), "AGAIN:/");
}

TEST_F(ThreeVolumesTest, volumes_hold_their_own_files) {
  for (const char* path : {"A:/F", "B:/F", "C:/F"}) MakeFile(path, Pattern(static_cast<OrbU32>(path[0]), 5000));
  for (const char* path : {"A:/F", "B:/F", "C:/F"}) {
    EXPECT_EQ(Contents(path), Pattern(static_cast<OrbU32>(path[0]), 5000)) << path;
  }
}

// ---- Nothing mounted ------------------------------------------------------------------------------------------------

class NothingMountedTest : public ApiTest, public ::testing::WithParamInterface<Variant> {
 protected:
  const Form* const orb = GetParam().form;
};

// Without a mounted volume there is no current directory, and so no path at all.
TEST_P(NothingMountedTest, every_path_fails_not_mounted) {
  for (const char* path : {"F", "/", "/F", "V:F", "V:/", "A B:/", "."}) {
    ExpectEveryPathCallToFail(*orb, path, ORB_ERROR_NOT_MOUNTED);
  }
}

TEST_P(NothingMountedTest, empty_path_fails_path_not_found_all_the_same) {
  ExpectEveryPathCallToFail(*orb, "", ORB_ERROR_PATH_NOT_FOUND);
}

TEST_P(NothingMountedTest, current_directory_fails_not_mounted_and_is_empty) {
  std::string path = "x";
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&path)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(path, "");
}

TEST_P(NothingMountedTest, volume_calls_fail_not_mounted) {
  EXPECT_EQ(Ended(orb->getVolumeInfo("V", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
  EXPECT_EQ(Ended(orb->unmountVolume("V")), Failed(ORB_ERROR_NOT_MOUNTED));
}

INSTANTIATE_TEST_SUITE_P(Forms, NothingMountedTest, ::testing::ValuesIn(EveryFormOnHost()), VariantName);

}  // namespace
}  // namespace api

// Formatting: its arguments, and every byte that it writes.
#include "support.h"

namespace api {
namespace {

class FormatTest : public ApiTest {
 protected:
  void ExpectBothToFail(const WideString& container, OrbU32 code) {
    EXPECT_EQ(Ended(OrbCreateVolume(container.c_str())), Failed(code));
    EXPECT_EQ(Ended(OrbCreateVolumeEx(container.c_str(), 8, 1024)), Failed(code));
  }
};

TEST_F(FormatTest, create_volume_new_name_makes_the_default_sizes) {
  EXPECT_EQ(Ended(OrbCreateVolume(Wide(kFirst).c_str())), Succeeded());
  const Image image(kFirst);
  EXPECT_EQ(image.size(), 10240u);
  EXPECT_EQ(image.Text(0, 8), "ORBA1.0 ");
  EXPECT_EQ(image.U32(24), 1024u);
  EXPECT_EQ(image.U32(40), 4096u);
}

TEST_F(FormatTest, create_volume_new_name_writes_what_the_default_sizes_write) {
  EXPECT_EQ(Ended(OrbCreateVolume(Wide(kFirst).c_str())), Succeeded());
  Format(kSecond, 1024, 4096);
  for (const char* container : {kFirst, kSecond}) MakeOld(container, 1);
  EXPECT_EQ(ReadWhole(kFirst), ReadWhole(kSecond));
}

TEST_F(FormatTest, create_volume_new_name_mounts_nothing) {
  EXPECT_EQ(Ended(OrbCreateVolume(Wide(kFirst).c_str())), Succeeded());
  EXPECT_EQ(Ended(OrbGetFileAttributesA("/")), Failed(ORB_ERROR_NOT_MOUNTED, ORB_INVALID_ATTRIBUTES));
}

// ---- Arguments ------------------------------------------------------------------------------------------------------

TEST_F(FormatTest, block_size_none_of_the_four_creates_nothing) {
  for (const OrbU32 blockSize : {0u, 1u, 512u, 1023u, 1025u, 3072u, 16384u, 1024u << 16, 0xFFFFFFFFu}) {
    EXPECT_EQ(TryFormat(kFirst, 8, blockSize), Failed(ORB_ERROR_INVALID_ARGUMENT)) << blockSize;
    EXPECT_FALSE(FileExists(kFirst)) << blockSize;
  }
}

TEST_F(FormatTest, container_exists_is_left_untouched) {
  const Bytes before = Pattern(1, 100);
  WriteWhole(kFirst, before);
  ExpectBothToFail(Wide(kFirst), ORB_ERROR_FILE_EXISTS);
  EXPECT_EQ(ReadWhole(kFirst), before);
}

TEST_F(FormatTest, container_formatted_twice_fails_file_exists) {
  Format(kFirst, 8, 1024);
  const Bytes before = ReadWhole(kFirst);
  EXPECT_EQ(TryFormat(kFirst, 8, 1024), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(ReadWhole(kFirst), before);
}

TEST_F(FormatTest, container_mounted_fails_file_exists) {
  FormatAndMount(kFirst, 8, 1024, "V");
  EXPECT_EQ(TryFormat(kFirst, 8, 1024), Failed(ORB_ERROR_FILE_EXISTS));
}

TEST_F(FormatTest, container_is_a_folder_fails_file_exists) { ExpectBothToFail(Wide("."), ORB_ERROR_FILE_EXISTS); }

TEST_F(FormatTest, container_folder_missing_fails_path_not_found) {
  ExpectBothToFail(Wide("no-such-folder/first.orba"), ORB_ERROR_PATH_NOT_FOUND);
}

TEST_F(FormatTest, container_folder_is_a_file_fails_path_not_found) {
  WriteWhole(kFirst, Pattern(1, 100));
  ExpectBothToFail(Wide(std::string(kFirst) + "/second.orba"), ORB_ERROR_PATH_NOT_FOUND);
}

TEST_F(FormatTest, container_empty_name_fails_path_not_found) { ExpectBothToFail({}, ORB_ERROR_PATH_NOT_FOUND); }

// Some hosts refuse such a name, others to create anything under it.
TEST_F(FormatTest, container_named_like_a_folder_is_not_created) {
  const WideString container = Wide(std::string(kFirst) + "/");
  const Outcome outcomes[] = {Ended(OrbCreateVolume(container.c_str())),
                              Ended(OrbCreateVolumeEx(container.c_str(), 8, 1024))};
  for (const Outcome& outcome : outcomes) {
    EXPECT_EQ(outcome.value, 0u);
    EXPECT_TRUE(outcome.code == ORB_ERROR_CANNOT_CREATE || outcome.code == ORB_ERROR_INVALID_NAME) << outcome;
  }
  EXPECT_FALSE(FileExists(kFirst));
}

TEST_F(FormatTest, container_illegal_name_fails_invalid_name) { ExpectBothToFail(kIllegal, ORB_ERROR_INVALID_NAME); }

struct Sizes {
  OrbU32 blockSize;
  OrbU32 largestBitmap;
  OrbU32 blockShift;
};

class FormatSizesTest : public ApiTest, public ::testing::WithParamInterface<Sizes> {};

TEST_P(FormatSizesTest, bitmap_largest_succeeds) {
  Format(kFirst, GetParam().largestBitmap, GetParam().blockSize);
  EXPECT_EQ(Image(kFirst).size(), 1024 + GetParam().largestBitmap + 2 * GetParam().blockSize);
}

TEST_P(FormatSizesTest, bitmap_above_the_largest_creates_nothing) {
  for (const OrbU32 bitmap : {GetParam().largestBitmap + 1, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(TryFormat(kFirst, bitmap, GetParam().blockSize), Failed(ORB_ERROR_INVALID_ARGUMENT)) << bitmap;
    EXPECT_FALSE(FileExists(kFirst)) << bitmap;
  }
}

TEST_P(FormatSizesTest, header_fresh_has_every_field) {
  const OrbU32 bitmap = GetParam().largestBitmap / 2 + 1;
  Format(kFirst, bitmap, GetParam().blockSize);
  const Image image(kFirst);
  EXPECT_EQ(image.Text(0, 8), "ORBA1.0 ");
  EXPECT_EQ(image.U32(8), 128u);
  EXPECT_EQ(image.U32(12), 128u);
  EXPECT_EQ(image.U32(16), 896u);
  EXPECT_EQ(image.U32(20), 1024u);
  EXPECT_EQ(image.U32(24), bitmap);
  EXPECT_EQ(image.U32(28), 1024 + bitmap);
  EXPECT_EQ(image.U32(32), 0u);
  EXPECT_EQ(image.U32(36), 1024 + bitmap);
  EXPECT_EQ(image.U32(40), GetParam().blockSize);
  EXPECT_EQ(image.U32(44), GetParam().blockShift);
  EXPECT_EQ(image.U32(48), 0u);
  EXPECT_EQ(image.U32(52), 0u);
  EXPECT_TRUE(image.All(56, 72, 0));
}

TEST_P(FormatSizesTest, tables_fresh_know_the_root_alone) {
  const OrbU32 bitmap = GetParam().largestBitmap;
  Format(kFirst, bitmap, GetParam().blockSize);
  const Image image(kFirst);
  EXPECT_EQ(image.U32(128), 1u);
  EXPECT_TRUE(image.All(132, 892, 0));
  EXPECT_EQ(image.U8(1024), 0x7Fu);
  EXPECT_TRUE(image.All(1025, bitmap - 1, 0xFF));
}

TEST_P(FormatSizesTest, node_block_fresh_holds_the_root_and_numbered_nodes) {
  const OrbU32 blockSize = GetParam().blockSize;
  const std::string before = Now();
  Format(kFirst, 8, blockSize);
  const std::string after = Now();
  const Image image(kFirst);
  const std::size_t root = 1024 + 8;
  EXPECT_EQ(image.Text(root, 4), "INO1");
  EXPECT_EQ(image.U16(root + 4), 1u);
  EXPECT_EQ(image.U16(root + 6), 0x000Eu);
  OrbTime time = {};
  time.year = static_cast<OrbU16>(image.U16(root + 8));
  time.month = static_cast<OrbU8>(image.U8(root + 10));
  time.day = static_cast<OrbU8>(image.U8(root + 11));
  time.hour = static_cast<OrbU8>(image.U8(root + 12));
  time.minute = static_cast<OrbU8>(image.U8(root + 13));
  time.second = static_cast<OrbU8>(image.U8(root + 14));
  EXPECT_LE(before, Stamp(time));
  EXPECT_LE(Stamp(time), after);
  EXPECT_EQ(image.U8(root + 15), 0u);
  EXPECT_EQ(image.U32(root + 16), 64u);
  EXPECT_TRUE(image.All(root + 20, 12, 0));
  EXPECT_EQ(image.U32(root + 32), 2u);
  EXPECT_TRUE(image.All(root + 36, 28, 0));
  for (OrbU32 slot = 1; slot < blockSize / 64; ++slot) {
    const std::size_t node = root + 64 * slot;
    EXPECT_EQ(image.Text(node, 4), "INO1") << slot;
    EXPECT_EQ(image.U16(node + 4), slot + 1);
    EXPECT_TRUE(image.All(node + 6, 58, 0)) << slot;
  }
}

TEST_P(FormatSizesTest, root_block_fresh_holds_two_entries) {
  const OrbU32 blockSize = GetParam().blockSize;
  Format(kFirst, 8, blockSize);
  const Image image(kFirst);
  const std::size_t block = 1024 + 8 + blockSize;
  EXPECT_EQ(image.U16(block), 1u);
  EXPECT_EQ(image.U8(block + 2), OrbU32{'.'});
  EXPECT_TRUE(image.All(block + 3, 29, 0));
  EXPECT_EQ(image.U16(block + 32), 1u);
  EXPECT_EQ(image.Text(block + 34, 2), "..");
  EXPECT_TRUE(image.All(block + 36, blockSize - 36, 0));
}

TEST_P(FormatSizesTest, volume_fresh_mounts_and_tells_its_sizes) {
  FormatAndMount(kFirst, 8, GetParam().blockSize, "V");
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(Ended(OrbGetVolumeInfoA("V", &bitmapBytes, &blockSize)), Succeeded());
  EXPECT_EQ(bitmapBytes, 8u);
  EXPECT_EQ(blockSize, GetParam().blockSize);
}

TEST_P(FormatSizesTest, bitmap_of_nothing_holds_the_root_alone) {
  Format(kFirst, 0, GetParam().blockSize);
  EXPECT_EQ(Image(kFirst).size(), 1024 + 2 * GetParam().blockSize);
  Mount(kFirst, "V");
  EXPECT_EQ(Ended(OrbGetFileAttributesA("/")), Succeeded(0x000E));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
  EXPECT_EQ(Ended(OrbCreateFileA("A", 0)), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
  Unmount("V");
  Mount(kFirst, "V");
}

INSTANTIATE_TEST_SUITE_P(BlockSizes, FormatSizesTest,
                         ::testing::Values(Sizes{1024, 896, 10}, Sizes{2048, 1792, 11}, Sizes{4096, 3584, 12},
                                           Sizes{8192, 7168, 13}),
                         [](const auto& sizes) { return std::to_string(sizes.param.blockSize); });

}  // namespace
}  // namespace api

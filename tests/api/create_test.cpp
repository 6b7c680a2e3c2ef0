// Creating files and directories, and how many of them a volume holds.
#include "support.h"

namespace api {
namespace {

class CreateTest : public VolumeTest {};

TEST_P(CreateTest, file_new_is_empty_and_closed) {
  EXPECT_EQ(Ended(orb->createFile("F", 0)), Succeeded());
  const Found found = Find("F");
  EXPECT_EQ(found.name, "F");
  EXPECT_EQ(found.attributes, 0u);
  EXPECT_EQ(found.size, 0u);
  Close(Open("F"));
}

TEST_P(CreateTest, directory_new_holds_itself_and_its_parent) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(SizeOf("D"), 64u);
  EXPECT_EQ(List("D/*"), (std::vector<std::string>{".", ".."}));
  EXPECT_EQ(Find("D/.*").attributes, 8u);  // "." is the first
  EXPECT_EQ(Ended(orb->getFileAttributes("D")), Succeeded(8));
}

TEST_P(CreateTest, anything_new_grows_its_directory_by_32) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("D/A", 0)), Succeeded());
  EXPECT_EQ(SizeOf("D"), 96u);
  EXPECT_EQ(Ended(orb->createDirectory("D/B")), Succeeded());
  EXPECT_EQ(SizeOf("D"), 128u);
}

TEST_P(CreateTest, anything_new_is_stamped_now) {
  const std::string before = Now();
  EXPECT_EQ(Ended(orb->createFile("F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  const std::string after = Now();
  for (const char* name : {"F", "D"}) {
    EXPECT_LE(before, Find(name).time) << name;
    EXPECT_LE(Find(name).time, after) << name;
  }
}

TEST_P(CreateTest, create_directory_is_create_file_with_the_directory_bit) {
  EXPECT_EQ(Ended(orb->createFile("D", ORB_ATTRIBUTE_DIRECTORY)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("D/F", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("d")), Failed(ORB_ERROR_FILE_EXISTS));
}

// ---- Attributes -----------------------------------------------------------------------------------------------------

TEST_P(CreateTest, attributes_of_files_are_kept) {
  EXPECT_EQ(Ended(orb->createFile("F0", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("F1", 1)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("F2", 2)), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("F3", 3)), Succeeded());
  for (OrbU32 attributes = 0; attributes < 4; ++attributes) {
    EXPECT_EQ(Ended(orb->getFileAttributes(("F" + std::to_string(attributes)).c_str())), Succeeded(attributes));
  }
}

TEST_P(CreateTest, attributes_beside_the_directory_bit_are_dropped) {
  for (const OrbU32 attributes : {8u, 9u, 10u, 11u}) {
    EXPECT_EQ(Ended(orb->createFile("D", attributes)), Succeeded()) << attributes;
    EXPECT_EQ(Ended(orb->getFileAttributes("D")), Succeeded(8)) << attributes;
    EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded()) << attributes;
  }
}

TEST_P(CreateTest, attributes_any_other_bit_fails_invalid_argument) {
  for (OrbU32 bit = 4; bit < 0x10000; bit <<= 1) {
    if (bit == 8) continue;
    for (const OrbU32 attributes : {bit, bit | 1, bit | 8}) {
      EXPECT_EQ(Ended(orb->createFile("F", attributes)), Failed(ORB_ERROR_INVALID_ARGUMENT)) << attributes;
    }
  }
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
}

TEST_P(CreateTest, attributes_above_16_bits_are_ignored) {
  EXPECT_EQ(Ended(orb->createFile("F", 0xFFFF0002)), Succeeded());
  EXPECT_EQ(Ended(orb->getFileAttributes("F")), Succeeded(2));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_P(CreateTest, name_taken_in_any_case_fails_file_exists) {
  EXPECT_EQ(Ended(orb->createFile("AB", 0)), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("CD")), Succeeded());
  for (const char* name : {"AB", "ab", "aB", "CD", "cd"}) {
    EXPECT_EQ(Ended(orb->createFile(name, 0)), Failed(ORB_ERROR_FILE_EXISTS)) << name;
    EXPECT_EQ(Ended(orb->createDirectory(name)), Failed(ORB_ERROR_FILE_EXISTS)) << name;
  }
  EXPECT_EQ(SizeOf("/."), 128u);
}

// "." and ".." become the directory's real name in its real parent.
TEST_P(CreateTest, name_dots_fails_with_what_they_stand_for) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("D/A")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("D/A/..", 0)), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->createFile("D/.", 0)), Failed(ORB_ERROR_FILE_EXISTS));
  EXPECT_EQ(Ended(orb->createFile("D/..", 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->createFile(".", 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(orb->createDirectory("/..")), Failed(ORB_ERROR_INVALID_NAME));
}

TEST_P(CreateTest, nodes_all_taken_fails_no_free_node) {
  Format(kSecond, 2, 1024);
  Mount(kSecond, "SMALL");
  for (int i = 0; i < 15; ++i) {
    EXPECT_EQ(Ended(orb->createFile(("SMALL:F" + std::to_string(i)).c_str(), 0)), Succeeded()) << i;
  }
  EXPECT_EQ(Ended(orb->createFile("SMALL:X", 0)), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(Ended(orb->createDirectory("SMALL:X")), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(Ended(orb->copyFile("SMALL:F0", "SMALL:X")), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(List("SMALL:/*").size(), 17u);
  EXPECT_EQ(Ended(orb->deleteFile("SMALL:F7")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("SMALL:X")), Succeeded());
}

INSTANTIATE_TEST_SUITE_P(Forms, CreateTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- What a container holds afterwards ------------------------------------------------------------------------------

class CreatedImageTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
  }

  Image Unmounted() {
    Unmount("VOL");
    return Image(kFirst);
  }

  void MakeFiles(OrbU32 first, OrbU32 last) {
    for (OrbU32 i = first; i <= last; ++i) MakeFile("F" + std::to_string(i));
  }
};

TEST_F(CreatedImageTest, file_new_takes_the_lowest_node_and_no_block) {
  MakeFile("name.txt");
  const Image image = Unmounted();
  EXPECT_EQ(image.Blocks(), 2u);
  EXPECT_EQ(image.U32(52), 0u);
  EXPECT_EQ(image.U8(1024), 0x3Fu);
  EXPECT_EQ(image.U16(image.Block(2) + 64), 2u);
  EXPECT_EQ(image.Text(image.Block(2) + 66, 9), std::string("NAME.TXT\0", 9));
  EXPECT_EQ(image.NodeSize(1), 96u);
  EXPECT_EQ(image.Text(image.Node(2), 4), "INO1");
  EXPECT_EQ(image.U16(image.Node(2) + 4), 2u);
  EXPECT_EQ(image.U16(image.Node(2) + 6), 0u);
  EXPECT_TRUE(image.All(image.Node(2) + 15, 49, 0));
}

TEST_F(CreatedImageTest, directory_new_takes_one_block) {
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D/E")), Succeeded());
  const Image image = Unmounted();
  EXPECT_EQ(image.Blocks(), 4u);
  EXPECT_EQ(image.U16(image.Node(3) + 6), 8u);
  EXPECT_EQ(image.NodeSize(3), 64u);
  EXPECT_EQ(image.Direct(3, 0), 4u);
  const std::size_t block = image.Block(4);
  EXPECT_EQ(image.U16(block), 3u);
  EXPECT_EQ(image.Text(block + 2, 2), std::string(".\0", 2));
  EXPECT_EQ(image.U16(block + 32), 2u);
  EXPECT_EQ(image.Text(block + 34, 3), std::string("..\0", 3));
  EXPECT_TRUE(image.All(block + 64, 960, 0));
}

TEST_F(CreatedImageTest, seventeenth_node_takes_a_node_block_of_its_own) {
  MakeFiles(2, 16);
  EXPECT_EQ(Look(kFirst, "VOL").Blocks(), 2u);
  MakeFiles(17, 17);
  const Image image = Unmounted();
  EXPECT_EQ(image.U32(132), 3u);
  EXPECT_EQ(image.Blocks(), 3u);
  for (OrbU32 slot = 0; slot < 16; ++slot) {
    EXPECT_EQ(image.Text(image.Block(3) + 64 * slot, 4), "INO1") << slot;
    EXPECT_EQ(image.U16(image.Block(3) + 64 * slot + 4), 17 + slot);
    EXPECT_TRUE(slot == 0 || image.All(image.Block(3) + 64 * slot + 6, 58, 0)) << slot;
  }
}

TEST_F(CreatedImageTest, deleted_node_is_taken_again_first) {
  MakeFiles(2, 9);
  EXPECT_EQ(Ended(OrbDeleteFileA("F5")), Succeeded());
  MakeFile("NEW");
  const Image image = Unmounted();
  EXPECT_EQ(image.U16(image.Block(2) + 32 * 9), 5u);
  EXPECT_EQ(image.Text(image.Block(2) + 32 * 9 + 2, 4), std::string("NEW\0", 4));
}

TEST_F(CreatedImageTest, last_node_of_a_block_deleted_gives_the_block_back) {
  MakeFiles(2, 17);
  EXPECT_EQ(Ended(OrbDeleteFileA("F17")), Succeeded());
  {
    const Image image = Look(kFirst, "VOL");
    EXPECT_EQ(image.U32(132), 0u);
    EXPECT_EQ(image.FreeBlocks(), 1u);
  }
  MakeFiles(17, 17);
  const Image image = Unmounted();
  EXPECT_EQ(image.U32(132), 3u);
  EXPECT_EQ(image.FreeBlocks(), 0u);
}

// The bitmap may allow more nodes than the table has blocks for.
TEST_F(ApiTest, nodes_beyond_the_table_fail_no_free_node) {
  FormatAndMount(kMemory, 896, 1024, "MEM");
  OrbU32 made = 1;  // the root
  std::string directory;
  for (OrbU32 i = 0; made < 3584; ++i, ++made) {
    if (i % 100 == 0) {
      directory = "D" + std::to_string(i);
      ASSERT_EQ(Ended(OrbCreateDirectoryA(directory.c_str())), Succeeded()) << made;
    } else {
      ASSERT_EQ(Ended(OrbCreateFileA((directory + "/F" + std::to_string(i)).c_str(), 0)), Succeeded()) << made;
    }
  }
  EXPECT_EQ(Ended(OrbCreateFileA("X", 0)), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(Ended(OrbCreateDirectoryA("X")), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(Ended(OrbDeleteFileA("D0/F1")), Succeeded());
  EXPECT_EQ(Ended(OrbCreateFileA("X", 0)), Succeeded());
}

// ---- A container that cannot grow -----------------------------------------------------------------------------------

class FullContainerTest : public ApiTest, public ::testing::WithParamInterface<Variant> {
 protected:
  static constexpr OrbU32 kNodes = 40;
  static constexpr std::size_t kLimit = 0x80000000u;

  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, kNodes / 8, 1024, "VOL");
  }

  // Lengthens the container to `size` bytes with nothing in between.
  void Grow(std::size_t size) {
    Unmount("VOL");
    Patch(kFirst, size - 1, {0});
    Mount(kFirst, "VOL");
  }

  // The container was left clean.
  void MountAgain() {
    Unmount("VOL");
    Mount(kFirst, "VOL");
  }

  const Form* const orb = GetParam().form;
};

TEST_P(FullContainerTest, growth_reaching_2_gib_fails_volume_full_and_is_undone) {
  Grow(kLimit - 1024);
  EXPECT_EQ(Ended(orb->createDirectory("D")), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(Ended(orb->createFile("D", ORB_ATTRIBUTE_DIRECTORY)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
  EXPECT_EQ(Ended(orb->createFile("F", 0)), Succeeded());  // needs no block, and finds node 2 free again
  const OrbHandle file = Open("F");
  unsigned char byte = 1;
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file, &byte, 1, &done)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Ended(OrbSetFileSize(file, 1)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(0));
  Close(file);
  MountAgain();
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "F"}));
}

TEST_P(FullContainerTest, growth_just_below_2_gib_succeeds_once) {
  Grow(kLimit - 1025);
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createDirectory("E")), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(Ended(orb->deleteFile("D")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("F", 0)), Succeeded());
  const OrbHandle file = Open("F");
  const Bytes data = Pattern(1, 3000);
  OrbU32 done = 0;
  EXPECT_EQ(Ended(OrbWriteFile(file, data.data(), 3000, &done)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(done, 1024u);
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(1024));
  EXPECT_EQ(Ended(OrbSetFilePointer(file, 0, ORB_SEEK_CURRENT)), Succeeded(1024));
  EXPECT_EQ(ReadAt(file, 0, 1024), Bytes(data.begin(), data.begin() + 1024));
  Close(file);
}

// Nodes 1 to 16 fill a block.
TEST_P(FullContainerTest, no_room_for_the_node_fails_volume_full_and_is_undone) {
  for (int i = 2; i <= 16; ++i) MakeFile("F" + std::to_string(i));
  Grow(kLimit - 1024);
  EXPECT_EQ(Ended(orb->createFile("X", 0)), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(Ended(orb->createDirectory("X")), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(Ended(orb->copyFile("F2", "X")), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(List("*").size(), 17u);
  EXPECT_EQ(Ended(orb->deleteFile("F5")), Succeeded());
  EXPECT_EQ(Ended(orb->createFile("X", 0)), Succeeded());
  MountAgain();
  EXPECT_EQ(Ended(orb->getFileAttributes("X")), Succeeded(0));
}

// 30 names fill a directory's block; with them, their directory, the root and F, 33 nodes are taken.
TEST_P(FullContainerTest, no_room_for_the_name_fails_volume_full_and_is_undone) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  for (int i = 0; i < 30; ++i) MakeFile("D/N" + std::to_string(i));
  MakeFile("F");
  Grow(kLimit - 1024);
  for (OrbU32 times = 0; times < kNodes; ++times) {  // often enough to use up all nodes, were they not freed
    EXPECT_EQ(Ended(orb->createFile("D/X", 0)), Failed(ORB_ERROR_VOLUME_FULL));
    EXPECT_EQ(Ended(orb->createDirectory("D/X")), Failed(ORB_ERROR_VOLUME_FULL));
    EXPECT_EQ(Ended(orb->copyFile("F", "D/X")), Failed(ORB_ERROR_VOLUME_FULL));
    EXPECT_EQ(Ended(orb->moveFile("F", "D/X")), Failed(ORB_ERROR_VOLUME_FULL));
  }
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "D", "F"}));
  EXPECT_EQ(List("D/*").size(), 32u);
  EXPECT_EQ(SizeOf("D"), 1024u);
  for (OrbU32 node = 34; node <= kNodes; ++node) MakeFile("G" + std::to_string(node));
  EXPECT_EQ(Ended(orb->createFile("X", 0)), Failed(ORB_ERROR_NO_FREE_NODE));
  EXPECT_EQ(Ended(orb->renameFile("D/N7", "R")), Succeeded());  // needs no room
  EXPECT_EQ(Ended(orb->deleteFile("D/R")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("F", "D/X")), Succeeded());
  MountAgain();
  EXPECT_EQ(List("D/*").size(), 32u);
  EXPECT_EQ(Ended(orb->getFileAttributes("D/X")), Succeeded(0));
}

TEST_P(FullContainerTest, copy_without_space_is_undone) {
  Grow(kLimit - 1025);
  MakeFile("F", Pattern(1, 1000));
  EXPECT_EQ(Ended(orb->copyFile("F", "G")), Failed(ORB_ERROR_VOLUME_FULL));
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "F"}));
  EXPECT_EQ(Ended(orb->deleteFile("F")), Succeeded());
  MakeFile("G", Pattern(2, 1000));  // in the block that came free
  EXPECT_EQ(Contents("G"), Pattern(2, 1000));
}

TEST_P(FullContainerTest, copy_out_of_space_half_way_gives_back_what_it_took) {
  MakeFile("F", Pattern(1, 3000));
  MakeFile("E", Pattern(2, 2048));
  Grow(kLimit - 1024);
  EXPECT_EQ(Ended(orb->deleteFile("E")), Succeeded());
  for (int times = 0; times < 3; ++times) {
    EXPECT_EQ(Ended(orb->copyFile("F", "G")), Failed(ORB_ERROR_VOLUME_FULL));
    EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "F"}));
  }
  MountAgain();
  MakeFile("G", Pattern(3, 2048));  // in the two blocks, which are free again
  EXPECT_EQ(Contents("F"), Pattern(1, 3000));
  EXPECT_EQ(Contents("G"), Pattern(3, 2048));
}

INSTANTIATE_TEST_SUITE_P(Forms, FullContainerTest, ::testing::ValuesIn(EveryFormOnHost()), VariantName);

}  // namespace
}  // namespace api

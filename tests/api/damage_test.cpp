// Damaged containers: a code for everything, never a crash, a hang or a byte out of bounds.
#include "support.h"

namespace api {
namespace {

// Node 2 is /D, 3 /D/E, 4 /D/E/F of 7 blocks (data 5 to 10 and 12, map 11 or 12), 5 /BIG of 264 blocks, 6 /G of 10
// bytes.
class DamageTest : public ApiTest {
 protected:
  static constexpr OrbU32 kD = 2;
  static constexpr OrbU32 kE = 3;
  static constexpr OrbU32 kF = 4;
  static constexpr OrbU32 kBig = 5;
  static constexpr OrbU32 kG = 6;

  void SetUp() override {
    ApiTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
    EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
    EXPECT_EQ(Ended(OrbCreateDirectoryA("D/E")), Succeeded());
    MakeFile("D/E/F", Pattern(1, 7 * 1024));
    MakeFile("BIG", Pattern(2, 264 * 1024));
    MakeFile("G", Pattern(3, 10));
    Unmount("VOL");
    sound_ = ReadWhole(kFirst);
  }

  // Mounts with one field of a node overwritten; with an entry's number; or as it now is.
  void MountWithNode(OrbU32 node, std::size_t offset, OrbU32 value) {
    PatchU32(kFirst, Image(kFirst).Node(node) + offset, value);
    Mount(kFirst, "VOL");
  }

  void MountWithEntry(OrbU32 directory, OrbU32 entry, OrbU32 number) {
    const Image image(kFirst);
    PatchU16(kFirst, image.Block(image.Direct(directory, 0)) + 32 * entry, number);
    Mount(kFirst, "VOL");
  }

  Outcome Attributes(const char* path) { return Ended(orb->getFileAttributes(path)); }

  // What reading a file's first so many bytes comes to, and how many of them.
  Outcome Read(const char* path, OrbU32 count, OrbU32* done) {
    const OrbHandle file = Open(path, ORB_OPEN_READ);
    Bytes buffer(count);
    const Outcome outcome = Ended(OrbReadFile(file, buffer.data(), count, done));
    EXPECT_EQ(Ended(OrbSetFilePointer(file, 0, ORB_SEEK_CURRENT)), Succeeded(*done));
    Close(file);
    return outcome;
  }

  const Form* orb = &kAnsiForm;
  const Outcome damaged_ = Failed(ORB_ERROR_DAMAGED_RECORD);
  Bytes sound_;
};

// The calls with a path, in both forms.
class DamageFormTest : public DamageTest, public ::testing::WithParamInterface<Variant> {
 protected:
  void SetUp() override {
    DamageTest::SetUp();
    orb = GetParam().form;
  }

  // What the calls come to whose object is /G, named in a sound directory, where its node cannot be had.
  void ExpectNodeOfGToFail(OrbU32 code) {
    std::string full;
    Found found;
    EXPECT_EQ(Ended(orb->getFullPathName(&full, "G")), Succeeded());
    EXPECT_EQ(Ended(orb->createFile("G", 0)), Failed(ORB_ERROR_FILE_EXISTS));
    EXPECT_EQ(Ended(orb->createDirectory("G")), Failed(ORB_ERROR_FILE_EXISTS));
    EXPECT_EQ(Ended(orb->copyFile("G", "X")), Failed(code));
    EXPECT_EQ(Ended(orb->moveFile("G", "D/X")), Failed(code));
    EXPECT_EQ(Ended(orb->deleteFile("G")), Failed(code));
    EXPECT_EQ(Ended(orb->getFileAttributes("G")), Failed(code, ORB_INVALID_ATTRIBUTES));
    EXPECT_EQ(Ended(orb->setFileAttributes("G", 1)), Failed(code));
    EXPECT_EQ(Ended(orb->openFile("G", ORB_OPEN_READ)), Failed(code, ORB_INVALID_HANDLE));
    EXPECT_EQ(Ended(orb->setCurrentDirectory("G")), Failed(code));
    EXPECT_EQ(Ended(orb->findFirstFile("G", &found)), Failed(code, ORB_INVALID_HANDLE));
    ExpectEveryPathCallToFail(*orb, "G/X", code);

    const OrbHandle search = orb->findFirstFile("*", &found);
    for (const char* name : {"..", "D", "BIG"}) {
      EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Succeeded());
      EXPECT_EQ(found.name, name);
    }
    EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(code));
    EXPECT_EQ(Ended(orb->findNextFile(search, &found)), Failed(ORB_ERROR_NO_MORE_ENTRIES));
    EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());

    EXPECT_EQ(Ended(orb->renameFile("G", "H")), Succeeded());  // a matter of the directory alone
    EXPECT_EQ(List("D/*"), (std::vector<std::string>{".", "..", "E"}));
    EXPECT_EQ(Attributes("H"), Failed(code, ORB_INVALID_ATTRIBUTES));
  }

  // What all calls come to that have to look into /D, where that cannot be read.
  void ExpectDirectoryDToFail(OrbU32 code) {
    for (const char* path : {"D/E", "D/X", "/D/E/F", "D/.", "VOL:/D/.."}) ExpectEveryPathCallToFail(*orb, path, code);
    EXPECT_EQ(Ended(orb->copyFile("G", "D/X")), Failed(code));
    EXPECT_EQ(Ended(orb->moveFile("G", "D/X")), Failed(code));
    EXPECT_EQ(Ended(orb->deleteFile("D")), Failed(code));
    EXPECT_EQ(Contents("G"), Pattern(3, 10));
    EXPECT_EQ(List("*"), (std::vector<std::string>{".", "..", "D", "BIG", "G"}));
  }
};

// ---- Entries and nodes ----------------------------------------------------------------------------------------------

TEST_P(DamageFormTest, entry_number_above_the_bitmap_fails_damaged_record) {
  MountWithEntry(1, 4, 8 * 64 + 1);
  ExpectNodeOfGToFail(ORB_ERROR_DAMAGED_RECORD);
}

TEST_P(DamageFormTest, entry_number_without_a_node_block_fails_damaged_record) {
  MountWithEntry(1, 4, 100);
  EXPECT_EQ(Attributes("G"), Failed(ORB_ERROR_DAMAGED_RECORD, ORB_INVALID_ATTRIBUTES));
}

TEST_P(DamageFormTest, entry_largest_number_fails_damaged_record) {
  MountWithEntry(1, 4, 0xFFFF);
  EXPECT_EQ(Attributes("G"), Failed(ORB_ERROR_DAMAGED_RECORD, ORB_INVALID_ATTRIBUTES));
}

TEST_P(DamageFormTest, entry_name_without_end_is_cut_at_29_characters) {
  const Image image(kFirst);
  Patch(kFirst, image.Block(image.Direct(kE, 0)) + 64 + 2, Bytes(30, 'Z'));
  Mount(kFirst, "VOL");
  EXPECT_EQ(List("D/E/*"), (std::vector<std::string>{".", "..", std::string(29, 'Z')}));
  std::string full;
  EXPECT_EQ(Ended(OrbFindClose(0x20000)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "D/E/.")), Succeeded());
  EXPECT_EQ(full, "VOL:/D/E");
}

TEST_P(DamageFormTest, node_deleted_though_free_in_the_bitmap_fails_damaged_record) {
  Patch(kFirst, 1024, {0xFF});
  Mount(kFirst, "VOL");
  EXPECT_EQ(Ended(orb->deleteFile("G")), damaged_);
  EXPECT_EQ(Attributes("G"), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

TEST_P(DamageFormTest, table_block_beyond_the_end_fails_damaged_volume) {
  PatchU32(kFirst, 132, 100000);
  const Image image(kFirst);
  PatchU16(kFirst, image.Block(2) + 32 * 4, 20);
  Mount(kFirst, "VOL");
  ExpectNodeOfGToFail(ORB_ERROR_DAMAGED_VOLUME);
}

// ---- Files ----------------------------------------------------------------------------------------------------------

TEST_F(DamageTest, file_direct_slot_empty_reads_up_to_it) {
  MountWithNode(kF, 32 + 4 * 2, 0);
  OrbU32 done = 0;
  EXPECT_EQ(Read("D/E/F", 7 * 1024, &done), damaged_);
  EXPECT_EQ(done, 2048u);
}

TEST_F(DamageTest, file_block_beyond_the_end_reads_up_to_it) {
  MountWithNode(kF, 32 + 4 * 2, 100000);
  OrbU32 done = 0;
  EXPECT_EQ(Read("D/E/F", 7 * 1024, &done), Failed(ORB_ERROR_DAMAGED_VOLUME));
  EXPECT_EQ(done, 2048u);
}

TEST_F(DamageTest, file_map_missing_reads_up_to_it) {
  MountWithNode(kF, 56, 0);
  OrbU32 done = 0;
  EXPECT_EQ(Read("D/E/F", 7 * 1024, &done), damaged_);
  EXPECT_EQ(done, 6144u);
}

TEST_F(DamageTest, file_map_slot_empty_reads_up_to_it) {
  const Image image(kFirst);
  PatchU32(kFirst, image.Block(image.U32(image.Node(kF) + 56)), 0);
  Mount(kFirst, "VOL");
  OrbU32 done = 0;
  EXPECT_EQ(Read("D/E/F", 7 * 1024, &done), damaged_);
  EXPECT_EQ(done, 6144u);
}

TEST_F(DamageTest, file_second_map_missing_reads_up_to_it) {
  MountWithNode(kBig, 60, 0);
  OrbU32 done = 0;
  EXPECT_EQ(Read("BIG", 264 * 1024, &done), damaged_);
  EXPECT_EQ(done, 262 * 1024u);
}

TEST_F(DamageTest, file_second_map_slot_empty_reads_up_to_it) {
  const Image image(kFirst);
  PatchU32(kFirst, image.Block(image.U32(image.Node(kBig) + 60)), 0);
  Mount(kFirst, "VOL");
  OrbU32 done = 0;
  EXPECT_EQ(Read("BIG", 264 * 1024, &done), damaged_);
  EXPECT_EQ(done, 262 * 1024u);
}

TEST_F(DamageTest, file_size_beyond_its_blocks_reads_as_far_as_there_are) {
  MountWithNode(kG, 16, 0xFFFFFFFF);
  OrbU32 done = 0;
  EXPECT_EQ(Read("G", 5000, &done), damaged_);
  EXPECT_EQ(done, 1024u);
  EXPECT_EQ(SizeOf("G"), 0xFFFFFFFFu);
}

TEST_F(DamageTest, file_block_missing_is_not_overwritten_either) {
  MountWithNode(kF, 32, 0);
  const OrbHandle file = Open("D/E/F");
  unsigned char byte = 0;
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file, &byte, 1, &done)), damaged_);
  EXPECT_EQ(done, 0u);
  Close(file);
}

TEST_P(DamageFormTest, file_block_missing_is_not_copied) {
  MountWithNode(kF, 32 + 4 * 2, 0);
  EXPECT_EQ(Ended(orb->copyFile("D/E/F", "COPY")), damaged_);
  EXPECT_EQ(Attributes("COPY"), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

TEST_P(DamageFormTest, file_block_beyond_the_end_is_not_copied) {
  MountWithNode(kF, 32 + 4 * 2, 100000);
  EXPECT_EQ(Ended(orb->copyFile("D/E/F", "COPY")), Failed(ORB_ERROR_DAMAGED_VOLUME));
  EXPECT_EQ(Attributes("COPY"), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

TEST_P(DamageFormTest, file_block_beyond_the_end_cannot_be_given_back) {
  MountWithNode(kG, 32, 100000);
  EXPECT_EQ(Ended(orb->deleteFile("G")), damaged_);
  EXPECT_EQ(Attributes("G"), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_ATTRIBUTES));
}

// ---- Directories ----------------------------------------------------------------------------------------------------

TEST_P(DamageFormTest, directory_of_no_size_fails_damaged_record) {
  MountWithNode(kD, 16, 0);
  EXPECT_EQ(Attributes("D/E"), Failed(ORB_ERROR_DAMAGED_RECORD, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb->createFile("D/X", 0)), damaged_);
  EXPECT_EQ(Ended(orb->deleteFile("D/E")), damaged_);
}

TEST_P(DamageFormTest, directory_size_beyond_its_blocks_fails_damaged_record) {
  MountWithNode(kD, 16, 0x00100000);
  EXPECT_EQ(Attributes("D/E"), Succeeded(8));  // found before the end of what there is
  EXPECT_EQ(Ended(orb->createFile("D/E/X", 0)), Succeeded());
}

TEST_P(DamageFormTest, directory_block_missing_fails_damaged_record) {
  MountWithNode(kD, 32, 0);
  ExpectDirectoryDToFail(ORB_ERROR_DAMAGED_RECORD);
}

TEST_P(DamageFormTest, directory_block_beyond_the_end_fails_damaged_volume) {
  MountWithNode(kD, 32, 100000);
  ExpectDirectoryDToFail(ORB_ERROR_DAMAGED_VOLUME);
}

// A directory need not be readable to become the current one.
TEST_P(DamageFormTest, current_directory_parent_of_no_node_fails_damaged_record) {
  MountWithEntry(kE, 1, 8 * 64 + 1);
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D/E")), Succeeded());
  std::string path = "x";
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&path)), damaged_);
  EXPECT_EQ(path, "");
  EXPECT_EQ(Attributes("F"), Succeeded(0));
}

TEST_P(DamageFormTest, current_directory_block_beyond_the_end_fails_damaged_volume) {
  MountWithNode(kE, 32, 100000);
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D/E")), Succeeded());
  std::string path = "x";
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&path)), Failed(ORB_ERROR_DAMAGED_VOLUME));
  EXPECT_EQ(path, "");
}

// E says that it is its own parent: there is no way up from it.
TEST_P(DamageFormTest, directory_its_own_parent_fails_without_hanging) {
  MountWithEntry(kE, 1, kE);
  std::string full;
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "D/E/F")), Failed(ORB_ERROR_PATH_TOO_LONG));
  EXPECT_EQ(Ended(orb->createDirectory("X")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("X", "D/E/X")), damaged_);
  EXPECT_EQ(Ended(orb->setCurrentDirectory("D/E")), Succeeded());
  EXPECT_EQ(Ended(orb->getCurrentDirectory(&full)), Failed(ORB_ERROR_PATH_NOT_FOUND));
}

// D is an entry of E too: the tree has become a ring.
TEST_P(DamageFormTest, directory_ring_of_two_fails_without_hanging) {
  MountWithEntry(kD, 1, kE);
  std::string full;
  EXPECT_EQ(Ended(orb->getFullPathName(&full, "D/E/F")), Failed(ORB_ERROR_PATH_TOO_LONG));
  EXPECT_EQ(Ended(orb->createDirectory("X")), Succeeded());
  EXPECT_EQ(Ended(orb->moveFile("X", "D/E/X")), damaged_);
}

// ---- The free chain -------------------------------------------------------------------------------------------------

TEST_F(DamageTest, chain_next_record_damaged_fails_when_it_is_needed) {
  Mount(kFirst, "VOL");
  EXPECT_EQ(Ended(OrbDeleteFileA("BIG")), Succeeded());  // more blocks than one record holds
  Unmount("VOL");
  const Image image(kFirst);
  const OrbU32 next = image.U32(image.Block(image.U32(48)) + 4);
  ASSERT_NE(next, 0u);
  PatchU32(kFirst, image.Block(next), 0);
  Mount(kFirst, "VOL");
  MakeFile("X");
  const OrbHandle file = Open("X");
  EXPECT_EQ(Ended(OrbSetFileSize(file, 200 * 1024)), damaged_);
  Close(file);
}

INSTANTIATE_TEST_SUITE_P(Forms, DamageFormTest, ::testing::ValuesIn(EveryFormOnHost()), VariantName);

// ---- Anything at all ------------------------------------------------------------------------------------------------

// Uses all that a container seems to hold, whatever the outcome, as long as each outcome is one that exists.
class Rummage {
 public:
  explicit Rummage(OrbU32 seed) : random_(seed) {}

  void Directory(const std::string& path, int depth) {
    std::vector<OrbFindDataA> entries;
    OrbFindDataA found;
    const OrbHandle search = OrbFindFirstFileA((path + "*").c_str(), &found);
    CheckCode();
    if (search == ORB_INVALID_HANDLE) return;
    do entries.push_back(found);
    while (entries.size() < 50 && OrbFindNextFileA(search, &found) != 0);
    CheckCode();
    EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
    for (const OrbFindDataA& entry : entries) {
      ASSERT_LE(std::string(entry.name).size(), std::size_t{ORB_MAX_NAME});
      const std::string name = path + entry.name;
      Use(name);
      if ((entry.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0 && depth > 0) Directory(name + "/", depth - 1);
    }
    OrbCreateFileA((path + "NEW").c_str(), 0);
    CheckCode();
    OrbCreateDirectoryA((path + "NEWDIR").c_str());
    CheckCode();
  }

  void CheckCode() {
    const OrbU32 code = OrbGetLastError();
    EXPECT_TRUE(code == 0 || code == ORB_ERROR_NO_MORE_ENTRIES ||
                (code > 0x30000000 && code <= ORB_ERROR_MEMFILE_NOT_FOUND))
        << code;
  }

 private:
  void Use(const std::string& path) {
    char full[ORB_PATH_BUFFER];
    OrbGetFullPathNameA(full, path.c_str());
    CheckCode();
    OrbSetCurrentDirectoryA(path.c_str());
    CheckCode();
    OrbSetCurrentDirectoryA("VOL:/");
    CheckCode();
    UseFile(path);
    switch (random_.Below(6)) {
      case 0:
        OrbDeleteFileA(path.c_str());
        break;
      case 1:
        OrbRenameFileA(path.c_str(), "RENAMED");
        break;
      case 2:
        OrbMoveFileA(path.c_str(), "VOL:/D/MOVED");
        break;
      case 3:
        OrbCopyFileA(path.c_str(), "VOL:/COPIED");
        break;
      case 4:
        OrbSetFileAttributesA(path.c_str(), 2);
        break;
      default:
        OrbGetFileAttributesA(path.c_str());
        break;
    }
    CheckCode();
  }

  void UseFile(const std::string& path) {
    const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ | ORB_OPEN_WRITE);
    CheckCode();
    if (file == ORB_INVALID_HANDLE) return;
    Bytes buffer(3000);
    for (const OrbI32 position : {0, 500, 6 * 1024 - 100, 262 * 1024 - 100}) {
      if (OrbSetFilePointer(file, position, ORB_SEEK_BEGIN) == ORB_INVALID_POSITION) continue;
      OrbU32 done = 0;
      OrbReadFile(file, buffer.data(), 3000, &done);
      CheckCode();
      EXPECT_LE(done, 3000u);
      OrbWriteFile(file, buffer.data(), random_.Below(3000), &done);
      CheckCode();
      EXPECT_LE(done, 3000u);
    }
    const OrbU32 size = OrbGetFileSize(file);
    OrbSetFileSize(file, random_.Below(2) == 0 ? size / 2 : size + 2000);
    CheckCode();
    OrbCloseFile(file);
    CheckCode();
  }

  Random random_;
};

class DamageSweepTest : public DamageTest, public ::testing::WithParamInterface<OrbU32> {
 protected:
  // Overwrites a few bytes somewhere in front of the end, with all bits set, with none, or with anything.
  void Damage(Random* random, OrbU32 end) {
    Bytes bytes = sound_;
    for (OrbU32 times = 1 + random->Below(4); times > 0; --times) {
      const std::size_t offset = random->Below(end);
      const OrbU32 kind = random->Below(3);
      for (std::size_t i = offset; i < offset + 1 + random->Below(4) && i < end; ++i) {
        bytes[i] = static_cast<unsigned char>(kind == 0 ? 0 : kind == 1 ? 0xFF : random->Next());
      }
    }
    WriteWhole(kFirst, bytes);
  }

  void MountAndUse(OrbU32 seed) {
    if (OrbMountVolume(Wide(kFirst).c_str(), Wide("VOL").c_str()) == 0) {
      EXPECT_NE(OrbGetLastError(), 0u);
      return;
    }
    Rummage(seed).Directory("VOL:/", 3);
    EXPECT_EQ(Ended(OrbUnmountVolumeA("VOL")), Succeeded());
  }
};

// In the tables and the first blocks, where nodes, directories and maps lie.
TEST_P(DamageSweepTest, any_bytes_in_the_metadata_are_survived) {
  for (OrbU32 round = 0; round < 20; ++round) {
    const OrbU32 seed = GetParam() * 1000 + round;
    Random random(seed);
    Damage(&random, 1024 + 64 + 12 * 1024);
    MountAndUse(seed);
    ASSERT_FALSE(HasFailure()) << seed;
  }
}

TEST_P(DamageSweepTest, any_bytes_in_the_first_blocks_are_survived) {
  for (OrbU32 round = 0; round < 20; ++round) {
    const OrbU32 seed = GetParam() * 1000 + 500 + round;
    Random random(seed);
    Damage(&random, 2 * 1024 + 64 + 6 * 64);
    MountAndUse(seed);
    ASSERT_FALSE(HasFailure()) << seed;
  }
}

// Cut at any place, and used all the same.
TEST_P(DamageSweepTest, any_length_is_survived) {
  Random random(GetParam());
  for (OrbU32 round = 0; round < 10; ++round) {
    const std::size_t length = random.Below(static_cast<OrbU32>(sound_.size()));
    WriteWhole(kFirst, Bytes(sound_.begin(), sound_.begin() + static_cast<std::ptrdiff_t>(length)));
    MountAndUse(GetParam() + round);
    ASSERT_FALSE(HasFailure()) << length;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, DamageSweepTest, ::testing::Range(1u, 6u), ::testing::PrintToStringParamName());

}  // namespace
}  // namespace api

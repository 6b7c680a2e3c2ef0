// Opening and closing: modes, the table of 128 handles, and what a handle is good for.
#include "support.h"

namespace api {
namespace {

constexpr OrbU32 kTag = 0x10000;
constexpr OrbU32 kSlots = ORB_MAX_OPEN_FILES;

class OpenTest : public VolumeTest {
 protected:
  void SetUp() override {
    VolumeTest::SetUp();
    MakeFile("F", Pattern(1, 100));
  }

  Outcome TryOpen(const char* path, OrbU32 mode) { return Ended(orb->openFile(path, mode)); }
};

TEST_P(OpenTest, file_opened_starts_at_0_with_its_size) {
  const OrbHandle file = orb->openFile("f", ORB_OPEN_READ);
  EXPECT_EQ(OrbGetLastError(), 0u);
  EXPECT_EQ(file >> 16, 1u);
  EXPECT_LT(file & 0xFFFF, kSlots);
  EXPECT_EQ(Ended(OrbSetFilePointer(file, 0, ORB_SEEK_CURRENT)), Succeeded(0));
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(100));
  EXPECT_EQ(Ended(OrbFlushFileBuffers(file)), Succeeded());
  EXPECT_EQ(Ended(OrbCloseFile(file)), Succeeded());
}

TEST_P(OpenTest, missing_fails_file_not_found) {
  EXPECT_EQ(TryOpen("X", ORB_OPEN_READ), Failed(ORB_ERROR_FILE_NOT_FOUND, ORB_INVALID_HANDLE));
}

TEST_P(OpenTest, directory_fails_wrong_kind) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  for (const char* path : {"D", "D/", "/", ".", "D/..", "VOL:"}) {
    EXPECT_EQ(TryOpen(path, ORB_OPEN_READ), Failed(ORB_ERROR_WRONG_KIND, ORB_INVALID_HANDLE)) << path;
  }
}

TEST_P(OpenTest, mode_other_bits_fails_invalid_argument) {
  for (OrbU32 bit = 4; bit < 0x10000; bit <<= 1) {
    EXPECT_EQ(TryOpen("F", bit), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE)) << bit;
    EXPECT_EQ(TryOpen("F", bit | 3), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE)) << bit;
  }
}

TEST_P(OpenTest, mode_above_16_bits_is_ignored) {
  const OrbHandle file = orb->openFile("F", 0xFFFF0001);
  OrbU32 done = 0;
  unsigned char byte = 0;
  EXPECT_EQ(Ended(OrbReadFile(file, &byte, 1, &done)), Succeeded());
  EXPECT_EQ(Ended(OrbWriteFile(file, &byte, 1, &done)), Failed(ORB_ERROR_ACCESS_DENIED));
  Close(file);
}

// A directory is refused as such before its mode is looked at, the mode before the read-only flag.
TEST_P(OpenTest, several_reasons_reports_the_first) {
  EXPECT_EQ(Ended(orb->createDirectory("D")), Succeeded());
  EXPECT_EQ(TryOpen("D", 4), Failed(ORB_ERROR_WRONG_KIND, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->createFile("R", ORB_ATTRIBUTE_READ_ONLY)), Succeeded());
  EXPECT_EQ(TryOpen("R", 6), Failed(ORB_ERROR_INVALID_ARGUMENT, ORB_INVALID_HANDLE));
  const OrbHandle file = Open("R", ORB_OPEN_READ);
  EXPECT_EQ(TryOpen("R", 2), Failed(ORB_ERROR_ACCESS_DENIED, ORB_INVALID_HANDLE));
  EXPECT_EQ(TryOpen("R", 1), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE));
  Close(file);
}

TEST_P(OpenTest, mode_decides_what_is_allowed) {
  for (OrbU32 mode = 0; mode < 4; ++mode) {
    const OrbHandle file = Open("F", mode);
    unsigned char byte = 7;
    OrbU32 done = 7;
    const Outcome denied = Failed(ORB_ERROR_ACCESS_DENIED);
    EXPECT_EQ(Ended(OrbReadFile(file, &byte, 1, &done)), (mode & 1) != 0 ? Succeeded() : denied) << mode;
    EXPECT_EQ(done, mode & 1) << mode;
    done = 7;
    EXPECT_EQ(Ended(OrbWriteFile(file, &byte, 1, &done)), (mode & 2) != 0 ? Succeeded() : denied) << mode;
    EXPECT_EQ(done, mode >> 1) << mode;
    EXPECT_EQ(Ended(OrbSetFileSize(file, 200)), (mode & 2) != 0 ? Succeeded() : denied) << mode;
    EXPECT_EQ(Ended(OrbSetFileSize(file, 100)), (mode & 2) != 0 ? Succeeded() : denied) << mode;
    EXPECT_EQ(Ended(OrbSetFilePointer(file, 50, ORB_SEEK_BEGIN)), Succeeded(50)) << mode;
    EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(100)) << mode;
    EXPECT_EQ(Ended(OrbFlushFileBuffers(file)), Succeeded()) << mode;
    Close(file);
  }
}

// Even transfers of nothing want the mode.
TEST_P(OpenTest, mode_none_refuses_transfers_of_nothing) {
  const OrbHandle file = Open("F", 0);
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbReadFile(file, nullptr, 0, &done)), Failed(ORB_ERROR_ACCESS_DENIED));
  EXPECT_EQ(Ended(OrbWriteFile(file, nullptr, 0, &done)), Failed(ORB_ERROR_ACCESS_DENIED));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Ended(OrbSetFileSize(file, 100)), Failed(ORB_ERROR_ACCESS_DENIED));
  Close(file);
}

TEST_P(OpenTest, file_open_already_fails_already_open_in_every_mode) {
  for (OrbU32 first = 0; first < 4; ++first) {
    const OrbHandle file = Open("F", first);
    for (OrbU32 second = 0; second < 4; ++second) {
      EXPECT_EQ(TryOpen("F", second), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE)) << first << second;
    }
    Close(file);
  }
}

TEST_P(OpenTest, file_open_under_another_path_fails_already_open) {
  const OrbHandle file = Open("F");
  for (const char* path : {"/F", "VOL:F", "./f", "VOL:/../F/"}) {
    EXPECT_EQ(TryOpen(path, 0), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE)) << path;
  }
  Close(file);
}

TEST_P(OpenTest, files_of_the_same_number_on_two_volumes_are_different_files) {
  FormatAndMount(kSecond, 64, 1024, "OTHER");
  MakeFile("OTHER:F", Pattern(2, 50));
  const OrbHandle one = Open("F");
  const OrbHandle other = Open("OTHER:F");
  EXPECT_NE(one, other);
  EXPECT_EQ(ReadAt(one, 0, 100), Pattern(1, 100));
  EXPECT_EQ(ReadAt(other, 0, 50), Pattern(2, 50));
  Close(one);
  Close(other);
}

// ---- Handles --------------------------------------------------------------------------------------------------------

TEST_P(OpenTest, handle_closed_is_invalid_everywhere) {
  const OrbHandle file = Open("F");
  Close(file);
  unsigned char byte = 0;
  OrbU32 done = 7;
  EXPECT_EQ(Ended(OrbReadFile(file, &byte, 1, &done)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(done, 0u);
  done = 7;
  EXPECT_EQ(Ended(OrbWriteFile(file, &byte, 1, &done)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(Ended(OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN)), Failed(ORB_ERROR_INVALID_HANDLE, 0xFFFFFFFF));
  EXPECT_EQ(Ended(OrbSetFileSize(file, 10)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Failed(ORB_ERROR_INVALID_HANDLE, 0xFFFFFFFF));
  EXPECT_EQ(Ended(OrbFlushFileBuffers(file)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbCloseFile(file)), Failed(ORB_ERROR_INVALID_HANDLE));
}

TEST_P(OpenTest, handle_never_given_is_invalid) {
  const OrbHandle file = Open("F");
  const OrbU32 slot = file & 0xFFFF;
  for (const OrbHandle bad : {0u, 1u, slot, 0x0000FFFFu, 0x10080u, 0x1FFFFu, 0x20000u | slot, 0x30000u | slot,
                              0x110000u | slot, 0x80010000u | slot, 0x10000u | ((slot + 1) % kSlots), 0xFFFFFFFFu}) {
    EXPECT_EQ(Ended(OrbGetFileSize(bad)), Failed(ORB_ERROR_INVALID_HANDLE, 0xFFFFFFFF)) << bad;
    EXPECT_EQ(Ended(OrbCloseFile(bad)), Failed(ORB_ERROR_INVALID_HANDLE)) << bad;
  }
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Succeeded(100));
  Close(file);
}

TEST_P(OpenTest, handle_of_a_search_is_invalid) {
  Found found;
  const OrbHandle search = orb->findFirstFile("*", &found);
  EXPECT_EQ(Ended(OrbGetFileSize(search)), Failed(ORB_ERROR_INVALID_HANDLE, 0xFFFFFFFF));
  EXPECT_EQ(Ended(OrbCloseFile(search)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
}

// There are no generations: the old handle names whatever lies in its slot.
TEST_P(OpenTest, handle_slot_taken_again_names_the_new_file) {
  MakeFile("G", Pattern(2, 50));
  const OrbHandle old = Open("F");
  Close(old);
  const OrbHandle file = Open("G");
  EXPECT_EQ(file, old);
  EXPECT_EQ(Ended(OrbGetFileSize(old)), Succeeded(50));
  Close(old);
  EXPECT_EQ(Ended(OrbGetFileSize(file)), Failed(ORB_ERROR_INVALID_HANDLE, 0xFFFFFFFF));
}

INSTANTIATE_TEST_SUITE_P(Forms, OpenTest, ::testing::ValuesIn(EveryVariant()), VariantName);

// ---- The table ------------------------------------------------------------------------------------------------------

class OpenTableTest : public VolumeTest {
 protected:
  // 130 files, of which 128 are open, in slots that go round from wherever the cursor stood.
  void SetUp() override {
    VolumeTest::SetUp();
    for (OrbU32 i = 0; i < kSlots + 2; ++i) MakeFile(Name(i), Pattern(i, i));
    for (OrbU32 i = 0; i < kSlots; ++i) files_.push_back(orb->openFile(Name(i).c_str(), ORB_OPEN_READ));
  }

  void TearDown() override {
    for (const OrbHandle file : files_) EXPECT_EQ(Ended(OrbCloseFile(file)), Succeeded());
    VolumeTest::TearDown();
  }

  static std::string Name(OrbU32 i) { return "F" + std::to_string(i); }

  // Opens a file more, which is to land where files_[place] was.
  void ExpectOpensAt(OrbU32 place, const std::string& name) {
    EXPECT_EQ(Ended(orb->openFile(name.c_str(), ORB_OPEN_READ)), Succeeded(files_[place])) << place;
  }

  std::vector<OrbHandle> files_;
};

TEST_P(OpenTableTest, slots_are_taken_in_turn) {
  for (OrbU32 i = 0; i < kSlots; ++i) EXPECT_EQ(files_[i], kTag | ((files_[0] + i) % kSlots)) << i;
}

TEST_P(OpenTableTest, slots_keep_files_apart) {
  for (OrbU32 i = 0; i < kSlots; ++i) {
    EXPECT_EQ(Ended(OrbGetFileSize(files_[i])), Succeeded(i));
    EXPECT_EQ(ReadAt(files_[i], 0, i), Pattern(i, i));
  }
}

TEST_P(OpenTableTest, slots_all_taken_fails_too_many_open_files) {
  EXPECT_EQ(Ended(orb->openFile("F128", 0)), Failed(ORB_ERROR_TOO_MANY_OPEN_FILES, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb->openFile("F5", 0)), Failed(ORB_ERROR_ALREADY_OPEN, ORB_INVALID_HANDLE));
}

// The search goes on from the slot taken last, which is free again only when it has been closed itself.
TEST_P(OpenTableTest, slots_some_free_are_taken_from_the_cursor_on) {
  Close(files_[70]);
  Close(files_[3]);
  ExpectOpensAt(3, "F128");
  ExpectOpensAt(70, "F129");
  Close(files_[69]);
  Close(files_[71]);
  ExpectOpensAt(71, "F69");
  ExpectOpensAt(69, "F71");
}

TEST_P(OpenTableTest, slot_taken_last_is_taken_again_first) {
  Close(files_[3]);
  Close(files_[127]);
  ExpectOpensAt(127, "F128");
  ExpectOpensAt(3, "F129");
}

// A failed open of a full table goes once round and changes nothing.
TEST_P(OpenTableTest, cursor_after_a_failure_is_where_it_was) {
  EXPECT_EQ(Ended(orb->openFile("F128", 0)), Failed(ORB_ERROR_TOO_MANY_OPEN_FILES, ORB_INVALID_HANDLE));
  Close(files_[127]);
  Close(files_[0]);
  ExpectOpensAt(127, "F128");
  ExpectOpensAt(0, "F129");
}

INSTANTIATE_TEST_SUITE_P(Forms, OpenTableTest,
                         ::testing::Values(Variant{&kAnsiForm, kFirst}, Variant{&kWideForm, kMemory}), VariantName);

}  // namespace
}  // namespace api

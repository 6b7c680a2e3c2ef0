// The memory file: one for the whole process, made by formatting and gone with its unmounting.
#include "support.h"

namespace api {
namespace {

class MemoryFileTest : public ApiTest {};

TEST_F(MemoryFileTest, mount_never_formatted_fails_no_memfile) {
  EXPECT_EQ(TryMount(kMemory, "MEM"), Failed(ORB_ERROR_NO_MEMFILE));
}

TEST_F(MemoryFileTest, mount_after_it_was_unmounted_fails_no_memfile) {
  FormatAndMount(kMemory, 64, 1024, "MEM");
  Unmount("MEM");
  EXPECT_EQ(TryMount(kMemory, "MEM"), Failed(ORB_ERROR_NO_MEMFILE));
}

TEST_F(MemoryFileTest, format_bad_sizes_fail_invalid_argument) {
  EXPECT_EQ(TryFormat(kMemory, 64, 512), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(TryFormat(kMemory, 897, 1024), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(TryMount(kMemory, "MEM"), Failed(ORB_ERROR_NO_MEMFILE));
}

TEST_F(MemoryFileTest, create_volume_default_sizes_mounts) {
  EXPECT_EQ(Ended(OrbCreateVolume(Wide(kMemory).c_str())), Succeeded());
  Mount(kMemory, "MEM");
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(Ended(OrbGetVolumeInfoA("MEM", &bitmapBytes, &blockSize)), Succeeded());
  EXPECT_EQ(bitmapBytes, 1024u);
  EXPECT_EQ(blockSize, 4096u);
}

TEST_F(MemoryFileTest, format_makes_no_host_file) {
  FormatAndMount(kMemory, 64, 1024, "MEM");
  MakeFile("F", Pattern(1, 5000));
  EXPECT_FALSE(FileExists(kMemory));
}

TEST_F(MemoryFileTest, format_twice_empties_it) {
  Format(kMemory, 64, 1024);
  FormatAndMount(kMemory, 8, 2048, "MEM");
  OrbU32 bitmapBytes = 0;
  OrbU32 blockSize = 0;
  EXPECT_EQ(Ended(OrbGetVolumeInfoA("MEM", &bitmapBytes, &blockSize)), Succeeded());
  EXPECT_EQ(bitmapBytes, 8u);
  EXPECT_EQ(blockSize, 2048u);
}

TEST_F(MemoryFileTest, format_after_unmount_starts_empty) {
  FormatAndMount(kMemory, 64, 1024, "MEM");
  MakeFile("F", Pattern(1, 5000));
  Unmount("MEM");
  FormatAndMount(kMemory, 64, 1024, "MEM");
  EXPECT_EQ(List("*"), (std::vector<std::string>{".", ".."}));
}

// Growing and writing leave the bytes that a container has.
TEST_F(MemoryFileTest, files_large_are_kept) {
  FormatAndMount(kMemory, 64, 1024, "MEM");
  MakeFile("A", Pattern(1, 400000));
  MakeFile("B", Pattern(2, 12345));
  EXPECT_EQ(Contents("A"), Pattern(1, 400000));
  EXPECT_EQ(Contents("B"), Pattern(2, 12345));
}

// Nothing guards the memory file against a second mount; the first unmount takes it away from under the other.
TEST_F(MemoryFileTest, mount_twice_lasts_until_the_first_unmount) {
  for (const Form* orb : {&kAnsiForm, &kWideForm}) {
    SCOPED_TRACE(orb->name);
    FormatAndMount(kMemory, 64, 1024, "ONE");
    Mount(kMemory, "TWO");
    EXPECT_EQ(Ended(orb->getFileAttributes("TWO:/")), Succeeded(0x000E));
    EXPECT_EQ(Ended(orb->unmountVolume("ONE")), Succeeded());
    EXPECT_EQ(Ended(orb->getFileAttributes("TWO:/F")), Failed(ORB_ERROR_NO_MEMFILE, ORB_INVALID_ATTRIBUTES));
    EXPECT_EQ(Ended(orb->unmountVolume("TWO")), Failed(ORB_ERROR_NO_MEMFILE));
    EXPECT_EQ(Ended(orb->getVolumeInfo("TWO", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
  }
}

TEST_F(MemoryFileTest, operations_count_nothing) {
  const OrbU32 before[] = {g_dwReadCount, g_dwReadTime, g_dwWriteCount, g_dwWriteTime, g_dwSeekCount, g_dwSeekTime};
  FormatAndMount(kMemory, 64, 1024, "MEM");
  MakeFile("F", Pattern(1, 50000));
  EXPECT_EQ(Contents("F"), Pattern(1, 50000));
  Unmount("MEM");
  const OrbU32 after[] = {g_dwReadCount, g_dwReadTime, g_dwWriteCount, g_dwWriteTime, g_dwSeekCount, g_dwSeekTime};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(after[i], before[i]) << i;
}

TEST_F(MemoryFileTest, beside_host_containers_works_on_its_own) {
  FormatAndMount(kFirst, 64, 4096, "HOST");
  FormatAndMount(kMemory, 64, 1024, "MEM");
  MakeFile("HOST:F", Pattern(1, 20000));
  EXPECT_EQ(Ended(OrbCopyFileA("HOST:F", "MEM:F")), Succeeded());
  EXPECT_EQ(Contents("MEM:F"), Pattern(1, 20000));
  Unmount("MEM");
  EXPECT_EQ(Contents("HOST:F"), Pattern(1, 20000));
}

// Only the exact spelling is the memory file; anything else is a host file, which may be a name the host forbids.
TEST_F(MemoryFileTest, name_other_case_is_a_host_file) {
  Format(kMemory, 64, 1024);
  const Outcome outcome = TryMount("??mem??", "MEM");
  EXPECT_EQ(outcome.value, 0u);
  EXPECT_TRUE(outcome.code == ORB_ERROR_FILE_NOT_FOUND || outcome.code == ORB_ERROR_INVALID_NAME) << outcome;
  EXPECT_EQ(Ended(OrbGetVolumeInfoA("MEM", nullptr, nullptr)), Failed(ORB_ERROR_NOT_MOUNTED));
  Mount(kMemory, "MEM");
}

}  // namespace
}  // namespace api

// The six counters: exactly so many host calls for each operation on a host container.
#include <functional>

#include "support.h"

namespace api {
namespace {

struct Counts {
  OrbU32 reads;
  OrbU32 writes;
  OrbU32 seeks;
};

bool operator==(const Counts& a, const Counts& b) {
  return a.reads == b.reads && a.writes == b.writes && a.seeks == b.seeks;
}

std::ostream& operator<<(std::ostream& out, const Counts& counts) {
  return out << counts.reads << " reads, " << counts.writes << " writes, " << counts.seeks << " seeks";
}

class CountersTest : public ApiTest {
 protected:
  static Counts During(const std::function<Outcome()>& operation) {
    const Counts before = {g_dwReadCount, g_dwWriteCount, g_dwSeekCount};
    EXPECT_EQ(operation(), Succeeded());
    return {g_dwReadCount - before.reads, g_dwWriteCount - before.writes, g_dwSeekCount - before.seeks};
  }

  // Reads or writes at the position as it is.
  static Outcome ReadOn(OrbHandle file, OrbU32 count) {
    Bytes buffer(count);
    OrbU32 done = 0;
    return Ended(OrbReadFile(file, buffer.data(), count, &done));
  }

  static Outcome WriteOn(OrbHandle file, OrbU32 count) {
    const Bytes buffer(count);
    OrbU32 done = 0;
    return Ended(OrbWriteFile(file, buffer.data(), count, &done));
  }

  static void SeekTo(OrbHandle file, OrbU32 position) {
    EXPECT_EQ(Ended(OrbSetFilePointer(file, static_cast<OrbI32>(position), ORB_SEEK_BEGIN)), Succeeded(position));
  }
};

// Header, table, bitmap, node block and root block in a row; then the mark and the header, each after a seek.
TEST_F(CountersTest, format_writes_7_times) {
  EXPECT_EQ(During([this] { return TryFormat(kFirst, 64, 1024); }), (Counts{0, 7, 2}));
}

TEST_F(CountersTest, format_bitmap_of_nothing_counts_its_empty_write) {
  EXPECT_EQ(During([this] { return TryFormat(kFirst, 0, 1024); }), (Counts{0, 7, 2}));
}

// Header, table, bitmap and the root's record.
TEST_F(CountersTest, mount_reads_4_times) {
  Format(kFirst, 64, 1024);
  EXPECT_EQ(During([this] { return TryMount(kFirst, "VOL"); }), (Counts{4, 0, 4}));
  EXPECT_EQ(During([] { return Ended(OrbUnmountVolumeA("VOL")); }), (Counts{0, 0, 0}));
}

TEST_F(CountersTest, mount_bitmap_of_nothing_counts_its_empty_read) {
  Format(kFirst, 0, 1024);
  EXPECT_EQ(During([this] { return TryMount(kFirst, "VOL"); }), (Counts{4, 0, 4}));
}

TEST_F(CountersTest, mount_free_chain_is_read_too) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  MakeFile("F", Pattern(1, 10));
  EXPECT_EQ(Ended(OrbDeleteFileA("F")), Succeeded());
  Unmount("VOL");
  EXPECT_EQ(During([this] { return TryMount(kFirst, "VOL"); }), (Counts{5, 0, 5}));
}

TEST_F(CountersTest, volume_info_reads_nothing) {
  FormatAndMount(kFirst, 64, 1024, "VOL");
  EXPECT_EQ(During([] { return Ended(OrbGetVolumeInfoA("VOL", nullptr, nullptr)); }), (Counts{0, 0, 0}));
}

class CountersOnVolumeTest : public CountersTest {
 protected:
  void SetUp() override {
    CountersTest::SetUp();
    FormatAndMount(kFirst, 64, 1024, "VOL");
  }
};

// Reads: the directory to look the name up, its last block to add it. Writes: mark, record, bitmap, block, directory's
// record, mark.
TEST_F(CountersOnVolumeTest, create_file_in_the_root) {
  EXPECT_EQ(During([] { return Ended(OrbCreateFileA("F", 0)); }), (Counts{2, 6, 8}));
}

// Two writes more: the new directory's block, and its record again.
TEST_F(CountersOnVolumeTest, create_directory_in_the_root) {
  EXPECT_EQ(During([] { return Ended(OrbCreateDirectoryA("D")); }), (Counts{2, 8, 10}));
}

// Two writes more: the node block and the table.
TEST_F(CountersOnVolumeTest, create_file_first_of_a_node_block) {
  for (int i = 2; i <= 16; ++i) MakeFile("F" + std::to_string(i));
  EXPECT_EQ(During([] { return Ended(OrbCreateFileA("F17", 0)); }), (Counts{2, 8, 10}));
}

// 32 entries fill the root's block: there is nothing to read for adding the next, and a new block to write.
TEST_F(CountersOnVolumeTest, create_file_first_of_a_directory_block) {
  for (int i = 2; i <= 31; ++i) MakeFile("F" + std::to_string(i));
  EXPECT_EQ(During([] { return Ended(OrbCreateFileA("F32", 0)); }), (Counts{1, 6, 7}));
}

TEST_F(CountersOnVolumeTest, lookups_read_directories_and_the_node) {
  MakeFile("F");
  EXPECT_EQ(Ended(OrbCreateDirectoryA("D")), Succeeded());
  MakeFile("D/G");
  EXPECT_EQ(During([] { return Outcome{1, OrbGetFileAttributesA("F")}; }), (Counts{2, 0, 2}));
  EXPECT_EQ(During([] { return Outcome{1, OrbGetFileAttributesA("D/G")}; }), (Counts{4, 0, 4}));
  OrbHandle file = 0;
  EXPECT_EQ(During([&file] { return Ended((file = OrbOpenFileA("F", 3)) != ORB_INVALID_HANDLE); }), (Counts{2, 0, 2}));
  EXPECT_EQ(During([file] { return Ended(OrbFlushFileBuffers(file)); }), (Counts{0, 0, 0}));
  EXPECT_EQ(During([file] { return Ended(OrbCloseFile(file)); }), (Counts{0, 0, 0}));
}

// Writes: mark, the directory's block and record, bitmap, mark.
TEST_F(CountersOnVolumeTest, delete_file_empty) {
  MakeFile("F");
  EXPECT_EQ(During([] { return Ended(OrbDeleteFileA("F")); }), (Counts{2, 5, 7}));
}

// Three writes more: the node without its blocks, the new chain record, the header that names it.
TEST_F(CountersOnVolumeTest, delete_file_of_one_block) {
  MakeFile("F", Pattern(1, 10));
  EXPECT_EQ(During([] { return Ended(OrbDeleteFileA("F")); }), (Counts{2, 8, 10}));
}

TEST_F(CountersOnVolumeTest, rename_writes_one_block) {
  MakeFile("F");
  EXPECT_EQ(During([] { return Ended(OrbRenameFileA("F", "G")); }), (Counts{2, 3, 5}));
}

TEST_F(CountersOnVolumeTest, set_attributes_writes_the_node_where_it_changes) {
  MakeFile("F");
  EXPECT_EQ(During([] { return Ended(OrbSetFileAttributesA("F", 2)); }), (Counts{2, 3, 5}));
  EXPECT_EQ(During([] { return Ended(OrbSetFileAttributesA("F", 2)); }), (Counts{2, 0, 2}));
}

TEST_F(CountersOnVolumeTest, find_first_and_next_read_the_block_and_the_node) {
  MakeFile("F");
  OrbFindDataA found;
  OrbHandle search = 0;
  EXPECT_EQ(During([&] { return Ended((search = OrbFindFirstFileA("F", &found)) != ORB_INVALID_HANDLE); }),
            (Counts{2, 0, 2}));
  EXPECT_EQ(During([search] { return Ended(OrbFindClose(search)); }), (Counts{0, 0, 0}));
}

// The root is in memory already, and so is the current directory.
TEST_F(CountersOnVolumeTest, current_directory_at_the_root_reads_nothing) {
  char path[ORB_PATH_BUFFER];
  EXPECT_EQ(During([&path] { return Ended(OrbGetCurrentDirectoryA(path)); }), (Counts{0, 0, 0}));
  EXPECT_EQ(During([] { return Ended(OrbSetCurrentDirectoryA("/")); }), (Counts{0, 0, 0}));
}

TEST_F(CountersOnVolumeTest, failures_that_need_no_container_count_nothing) {
  const Counts before = {g_dwReadCount, g_dwWriteCount, g_dwSeekCount};
  EXPECT_EQ(Ended(OrbCreateFileA("A*", 0)), Failed(ORB_ERROR_INVALID_NAME));
  EXPECT_EQ(Ended(OrbSetFileAttributesA("F", 4)), Failed(ORB_ERROR_INVALID_ARGUMENT));
  EXPECT_EQ(Ended(OrbCloseFile(0x10000)), Failed(ORB_ERROR_INVALID_HANDLE));
  EXPECT_EQ((Counts{g_dwReadCount, g_dwWriteCount, g_dwSeekCount}), before);
}

// ---- Transfers ------------------------------------------------------------------------------------------------------

// Writes: data, mark, record, mark.
TEST_F(CountersOnVolumeTest, write_first_block) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return WriteOn(file, 100); }), (Counts{0, 4, 4}));
  Close(file);
}

TEST_F(CountersOnVolumeTest, write_in_place_is_one_write) {
  MakeFile("F", Pattern(1, 3000));
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return WriteOn(file, 100); }), (Counts{0, 1, 1}));
  Close(file);
}

// The one file that is stored by overwriting, too: data, mark, record, mark.
TEST_F(CountersOnVolumeTest, write_in_place_of_one_block_stores_the_node) {
  MakeFile("F", Pattern(1, 1024));
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return WriteOn(file, 100); }), (Counts{0, 4, 4}));
  Close(file);
}

TEST_F(CountersOnVolumeTest, read_whole_blocks_are_read_at_once) {
  MakeFile("F", Pattern(1, 4096));
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return ReadOn(file, 4096); }), (Counts{4, 0, 4}));
  SeekTo(file, 100);
  EXPECT_EQ(During([file] { return ReadOn(file, 2048); }), (Counts{3, 0, 3}));
  EXPECT_EQ(During([file] { return ReadOn(file, 0); }), (Counts{0, 0, 0}));
  Close(file);
}

// Behind the direct blocks each block costs one look into a map, behind the first map two.
TEST_F(CountersOnVolumeTest, read_behind_the_maps_reads_them_too) {
  MakeFile("F");
  const OrbHandle file = Open("F");
  EXPECT_EQ(Ended(OrbSetFileSize(file, 263 * 1024)), Succeeded());
  SeekTo(file, 6 * 1024 - 1);
  EXPECT_EQ(During([file] { return ReadOn(file, 1); }), (Counts{1, 0, 1}));
  EXPECT_EQ(During([file] { return ReadOn(file, 1); }), (Counts{2, 0, 2}));
  SeekTo(file, 268287);
  EXPECT_EQ(During([file] { return ReadOn(file, 1); }), (Counts{2, 0, 2}));
  EXPECT_EQ(During([file] { return ReadOn(file, 1); }), (Counts{3, 0, 3}));
  Close(file);
}

// Data, mark, map block, record, mark; and with the map there, one slot of it instead.
TEST_F(CountersOnVolumeTest, write_behind_the_direct_blocks_writes_the_map) {
  MakeFile("F", Pattern(1, 6 * 1024));
  const OrbHandle file = Open("F");
  SeekTo(file, 6 * 1024);
  EXPECT_EQ(During([file] { return WriteOn(file, 1024); }), (Counts{0, 5, 5}));
  EXPECT_EQ(During([file] { return WriteOn(file, 1024); }), (Counts{0, 5, 5}));
  Close(file);
}

// A freed block is one more write: the chain record without it.
TEST_F(CountersOnVolumeTest, write_into_a_freed_block_writes_the_chain) {
  MakeFile("G", Pattern(1, 2048));
  MakeFile("F");
  EXPECT_EQ(Ended(OrbDeleteFileA("G")), Succeeded());
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return WriteOn(file, 100); }), (Counts{0, 5, 5}));
  Close(file);
}

TEST_F(CountersOnVolumeTest, set_size_the_same_costs_nothing) {
  MakeFile("F", Pattern(1, 100));
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return Ended(OrbSetFileSize(file, 100)); }), (Counts{0, 0, 0}));
  Close(file);
}

// Within the block: mark, record, mark.
TEST_F(CountersOnVolumeTest, set_size_shrunk_within_the_block) {
  MakeFile("F", Pattern(1, 100));
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return Ended(OrbSetFileSize(file, 50)); }), (Counts{0, 3, 3}));
  Close(file);
}

// The last block read and written back, then a block and a record for each of the three more; mark and mark.
TEST_F(CountersOnVolumeTest, set_size_grown_from_1500_to_5000) {
  MakeFile("F", Pattern(1, 1500));
  const OrbHandle file = Open("F");
  EXPECT_EQ(During([file] { return Ended(OrbSetFileSize(file, 5000)); }), (Counts{1, 10, 11}));
  Close(file);
}

// ---- The variables --------------------------------------------------------------------------------------------------

TEST_F(CountersOnVolumeTest, counters_callers_may_set_them) {
  MakeFile("F", Pattern(1, 100));
  const OrbHandle file = Open("F", ORB_OPEN_READ);
  g_dwReadCount = 0xFFFFFFFF;
  g_dwWriteCount = 5;
  g_dwSeekCount = 0;
  EXPECT_EQ(ReadOn(file, 100), Succeeded());
  EXPECT_EQ(g_dwReadCount, 0u);
  EXPECT_EQ(g_dwWriteCount, 5u);
  EXPECT_EQ(g_dwSeekCount, 1u);
  g_dwReadTime = 7;
  g_dwWriteTime = 8;
  g_dwSeekTime = 9;
  Close(file);
  EXPECT_EQ(g_dwReadTime, 7u);
  EXPECT_EQ(g_dwWriteTime, 8u);
  EXPECT_EQ(g_dwSeekTime, 9u);
}

}  // namespace
}  // namespace api

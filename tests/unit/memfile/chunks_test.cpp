// The memory file's bytes as chunks from the heap.
#include <errno.h>

#include "unit/memfile/memfile_test.h"

namespace {

using MemFileChunks = MemFile;

TEST_F(MemFileChunks, delete_frees_every_chunk_and_the_table) {
  CreateMemFile();
  Write(Pattern(20 * kChunk, 1));
  EXPECT_EQ(21, systemcalls::BlocksHeld());
  DeleteMemFile();
  EXPECT_EQ(0, systemcalls::BlocksHeld());
}

TEST_F(MemFileChunks, small_writes_at_the_end_take_memory_once_for_each_chunk) {
  CreateMemFile();
  for (int i = 0; i < 4096; i++) Write(std::string(1024, 'x'));
  EXPECT_EQ(64 * kChunk, GetMemFileSize());
  EXPECT_EQ(64u + 3, systemcalls::Count(systemcalls::kCalloc));  // and the table of 16, 32 and 64 entries
}

TEST_F(MemFileChunks, write_without_memory_fails_and_changes_nothing) {
  const std::string before = Pattern(16 * kChunk - 5, 3);
  const std::string more = Pattern(3 * kChunk, 4);
  for (uint32_t n = 1; n <= 4; n++) {  // the larger table, then each chunk
    CreateMemFile();
    Write(before);
    systemcalls::FailNth(systemcalls::kCalloc, n, ENOMEM);
    MemFileU32 done = 77;
    EXPECT_EQ(0u, WriteMemFile(more.data(), 3 * kChunk, &done)) << n;
    EXPECT_EQ(0u, done);
    EXPECT_EQ(before.size(), Position());
    EXPECT_EQ(before.size(), GetMemFileSize());
    SeekMemFile(0, MEMFILE_BEGIN);
    EXPECT_TRUE(before == Read(20 * kChunk)) << n;
    Write(more);
    SeekMemFile(0, MEMFILE_BEGIN);
    EXPECT_TRUE(before + more == Read(20 * kChunk)) << n;
  }
}

TEST_F(MemFileChunks, first_write_without_memory_fails_and_leaves_the_file_empty) {
  CreateMemFile();
  for (uint32_t n = 1; n <= 2; n++) {
    systemcalls::FailNth(systemcalls::kCalloc, n, ENOMEM);
    MemFileU32 done = 77;
    EXPECT_EQ(0u, WriteMemFile("abc", 3, &done));
    EXPECT_EQ(0u, GetMemFileSize());
    EXPECT_EQ(0u, Position());
  }
  Write("abc");
}

TEST_F(MemFileChunks, write_far_past_the_end_leaves_zeros_and_takes_no_memory_for_them) {
  CreateMemFile();
  Write("ab");
  SeekMemFile(static_cast<MemFileI32>(40 * kChunk + 7), MEMFILE_BEGIN);
  Write("c");
  EXPECT_EQ(40 * kChunk + 8, GetMemFileSize());
  EXPECT_EQ(3, systemcalls::BlocksHeld());
  SeekMemFile(0, MEMFILE_BEGIN);
  std::string expected(40 * kChunk + 8, '\0');
  expected.front() = 'a';
  expected[1] = 'b';
  expected.back() = 'c';
  EXPECT_TRUE(expected == Read(41 * kChunk));
  SeekMemFile(5 * kChunk, MEMFILE_BEGIN);
  Write("d");
  EXPECT_EQ(4, systemcalls::BlocksHeld());
  EXPECT_EQ(std::string(3, '\0'), Read(3));
}

}  // namespace

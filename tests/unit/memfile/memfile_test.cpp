// What the memory file promises, wherever its bytes are kept.
#include "unit/memfile/memfile_test.h"

namespace {

TEST_F(MemFile, create_is_empty_at_position_0) {
  EXPECT_EQ(1u, CreateMemFile());
  EXPECT_EQ(0u, GetMemFileSize());
  EXPECT_EQ(0u, Position());
  EXPECT_EQ("", Read(10));
}

TEST_F(MemFile, create_again_empties_it) {
  CreateMemFile();
  Write("contents");
  EXPECT_EQ(1u, CreateMemFile());
  EXPECT_EQ(0u, GetMemFileSize());
  EXPECT_EQ(0u, Position());
  EXPECT_EQ(0, systemcalls::BlocksHeld() + systemcalls::BytesMapped());
  SeekMemFile(8, MEMFILE_BEGIN);
  Write("x");
  SeekMemFile(0, MEMFILE_BEGIN);
  EXPECT_EQ(std::string("\0\0\0\0\0\0\0\0x", 9), Read(20));
}

TEST_F(MemFile, every_call_without_a_file_fails) {
  char buffer[4];
  MemFileU32 done = 77;
  EXPECT_EQ(0u, ReadMemFile(buffer, 4, &done));
  EXPECT_EQ(0u, done);
  done = 77;
  EXPECT_EQ(0u, WriteMemFile("abc", 3, &done));
  EXPECT_EQ(0u, done);
  EXPECT_EQ(0u, WriteMemFile("abc", 0, &done));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(0, MEMFILE_BEGIN));
  EXPECT_EQ(MEMFILE_INVALID, GetMemFileSize());
  EXPECT_EQ(0u, DeleteMemFile());
}

TEST_F(MemFile, delete_gives_all_memory_back_and_ends_the_file) {
  CreateMemFile();
  Write(Pattern(20 * kChunk, 1));
  EXPECT_LT(0, systemcalls::BlocksHeld() + systemcalls::BytesMapped());
  EXPECT_EQ(1u, DeleteMemFile());
  EXPECT_EQ(0, systemcalls::BlocksHeld() + systemcalls::BytesMapped());
  EXPECT_EQ(MEMFILE_INVALID, GetMemFileSize());
  MemFileU32 done = 77;
  EXPECT_EQ(0u, WriteMemFile("abc", 3, &done));
}

TEST_F(MemFile, write_moves_the_position_and_the_end) {
  CreateMemFile();
  Write("contents");
  EXPECT_EQ(8u, Position());
  EXPECT_EQ(8u, GetMemFileSize());
  SeekMemFile(3, MEMFILE_BEGIN);
  Write("TE");
  EXPECT_EQ(5u, Position());
  EXPECT_EQ(8u, GetMemFileSize());
  SeekMemFile(0, MEMFILE_BEGIN);
  EXPECT_EQ("conTEnts", Read(8));
}

TEST_F(MemFile, read_at_the_end_is_short_and_behind_it_empty) {
  CreateMemFile();
  Write("contents");
  SeekMemFile(6, MEMFILE_BEGIN);
  EXPECT_EQ("ts", Read(10));
  EXPECT_EQ(8u, Position());
  EXPECT_EQ("", Read(10));
  SeekMemFile(100, MEMFILE_BEGIN);
  EXPECT_EQ("", Read(10));
  EXPECT_EQ(100u, Position());
}

TEST_F(MemFile, write_past_the_end_leaves_zeros_between) {
  CreateMemFile();
  Write("ab");
  SeekMemFile(5, MEMFILE_BEGIN);
  Write("c");
  EXPECT_EQ(6u, GetMemFileSize());
  SeekMemFile(0, MEMFILE_BEGIN);
  EXPECT_EQ(std::string("ab\0\0\0c", 6), Read(10));
}

TEST_F(MemFile, write_far_past_the_end_leaves_zeros) {
  CreateMemFile();
  Write("ab");
  SeekMemFile(static_cast<MemFileI32>(40 * kChunk + 7), MEMFILE_BEGIN);
  Write("c");
  EXPECT_EQ(40 * kChunk + 8, GetMemFileSize());
  SeekMemFile(0, MEMFILE_BEGIN);
  std::string expected(40 * kChunk + 8, '\0');
  expected.front() = 'a';
  expected[1] = 'b';
  expected.back() = 'c';
  EXPECT_TRUE(expected == Read(41 * kChunk));
}

TEST_F(MemFile, transfers_across_chunk_borders_keep_every_byte) {
  CreateMemFile();
  std::string model;
  unsigned seed = 7;
  for (int i = 0; i < 300; i++) {
    seed = seed * 1103515245 + 12345;
    const MemFileU32 position = (seed >> 8) % (5 * kChunk);
    const std::string bytes = Pattern((seed >> 4) % (i % 10 == 0 ? 2 * kChunk + 2 : 5000), seed);
    if (!bytes.empty() && model.size() < position + bytes.size()) model.resize(position + bytes.size());
    model.replace(bytes.empty() ? 0 : position, bytes.size(), bytes);
    ASSERT_EQ(position, SeekMemFile(static_cast<MemFileI32>(position), MEMFILE_BEGIN));
    Write(bytes);
    ASSERT_EQ(model.size(), GetMemFileSize());
  }
  for (MemFileU32 position = 0; position < model.size(); position += 12345) {
    SeekMemFile(static_cast<MemFileI32>(position), MEMFILE_BEGIN);
    ASSERT_TRUE(model.substr(position, kChunk + 1) == Read(kChunk + 1));
  }
}

TEST_F(MemFile, seek_each_origin_gives_the_new_position) {
  CreateMemFile();
  Write("contents");
  EXPECT_EQ(4u, SeekMemFile(4, MEMFILE_BEGIN));
  EXPECT_EQ(6u, SeekMemFile(2, MEMFILE_CURRENT));
  EXPECT_EQ(5u, SeekMemFile(-1, MEMFILE_CURRENT));
  EXPECT_EQ(8u, SeekMemFile(0, MEMFILE_END));
  EXPECT_EQ(0u, SeekMemFile(-8, MEMFILE_END));
  EXPECT_EQ(10u, SeekMemFile(2, MEMFILE_END));
  EXPECT_EQ(8u, GetMemFileSize());
  EXPECT_EQ(0x7FFFFFFFu, SeekMemFile(0x7FFFFFFF, MEMFILE_BEGIN));
}

TEST_F(MemFile, seek_outside_the_range_fails_and_moves_nothing) {
  CreateMemFile();
  Write("contents");
  SeekMemFile(3, MEMFILE_BEGIN);
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(-1, MEMFILE_BEGIN));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(-4, MEMFILE_CURRENT));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(-9, MEMFILE_END));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(-0x7FFFFFFF - 1, MEMFILE_BEGIN));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(0x7FFFFFFD, MEMFILE_CURRENT));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(0x7FFFFFF8, MEMFILE_END));
  EXPECT_EQ(MEMFILE_INVALID, SeekMemFile(0, 3));
  EXPECT_EQ(3u, Position());
  EXPECT_EQ(0x7FFFFFFFu, SeekMemFile(0x7FFFFFFC, MEMFILE_CURRENT));
}

TEST_F(MemFile, write_up_to_2_gib_less_a_byte_is_the_most) {
  CreateMemFile();
  SeekMemFile(0x7FFFFFFE, MEMFILE_BEGIN);
  Write("x");
  EXPECT_EQ(0x7FFFFFFFu, GetMemFileSize());
  MemFileU32 done = 77;
  EXPECT_EQ(0u, WriteMemFile("y", 1, &done));
  EXPECT_EQ(0u, done);
  EXPECT_EQ(0x7FFFFFFFu, GetMemFileSize());
  EXPECT_EQ(0x7FFFFFFFu, Position());
  SeekMemFile(-1, MEMFILE_END);
  EXPECT_EQ("x", Read(5));
}

TEST_F(MemFile, write_to_2_gib_fails_and_changes_nothing) {
  CreateMemFile();
  Write("contents");
  SeekMemFile(5, MEMFILE_BEGIN);
  MemFileU32 done = 77;
  EXPECT_EQ(0u, WriteMemFile("", 0x7FFFFFFB, &done));
  EXPECT_EQ(0u, WriteMemFile("", 0xFFFFFFFF, &done));
  EXPECT_EQ(0u, done);
  EXPECT_EQ(5u, Position());
  EXPECT_EQ(8u, GetMemFileSize());
  EXPECT_EQ("nts", Read(8));
}

TEST_F(MemFile, null_pointers_fail_and_change_nothing) {
  CreateMemFile();
  Write("contents");
  SeekMemFile(2, MEMFILE_BEGIN);
  char buffer[4];
  MemFileU32 done = 77;
  EXPECT_EQ(0u, ReadMemFile(nullptr, 1, &done));
  EXPECT_EQ(0u, done);
  EXPECT_EQ(0u, ReadMemFile(buffer, 1, nullptr));
  EXPECT_EQ(0u, WriteMemFile(nullptr, 1, &done));
  EXPECT_EQ(0u, WriteMemFile("a", 1, nullptr));
  EXPECT_EQ(2u, Position());
  EXPECT_EQ("ntents", Read(10));
}

TEST_F(MemFile, count_0_succeeds_without_a_buffer_and_without_growth) {
  CreateMemFile();
  SeekMemFile(100, MEMFILE_BEGIN);
  MemFileU32 done = 77;
  EXPECT_EQ(1u, ReadMemFile(nullptr, 0, &done));
  EXPECT_EQ(0u, done);
  done = 77;
  EXPECT_EQ(1u, WriteMemFile(nullptr, 0, &done));
  EXPECT_EQ(0u, done);
  EXPECT_EQ(0u, GetMemFileSize());
  EXPECT_EQ(100u, Position());
}

}  // namespace

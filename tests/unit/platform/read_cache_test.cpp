// Reading through the cache: what is kept, for how long, and that it is what the file holds.
#include "platform/posix/read_cache.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "unit/platform/platform_test.h"
#include "unit/platform/system_calls.h"

namespace orba {
namespace {

using coredll::CloseHandle;
using coredll::GetLastError;
using coredll::Handle;
using coredll::kInvalidHandle;
using coredll::ReadFile;
using coredll::SetFilePointer;
using coredll::WriteFile;
using posix::kCacheLines;
using posix::kCacheLineSize;
using systemcalls::Count;
using systemcalls::CountAll;

constexpr uint32_t kLines = 320;  // of the file: more than the cache holds
constexpr uint32_t kSize = kLines * kCacheLineSize + 1000;

std::string Pattern(size_t size, uint32_t seed) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>((seed = seed * 1103515245 + 12345) >> 16);
  return bytes;
}

// One open file, longer than the cache, and what it holds.
class PosixReadCache : public PlatformTest {
 protected:
  PosixReadCache() : contents_(Pattern(kSize, 1)) {
    MakeFile("file", contents_);
    file_ = Open(Path("file"));
    systemcalls::Reset();
  }
  ~PosixReadCache() override { CloseHandle(file_); }
  void SetUp() override { ASSERT_NE(kInvalidHandle, file_); }

  std::string ReadAt(uint32_t position, uint32_t count) {
    EXPECT_EQ(position, SetFilePointer(file_, static_cast<int32_t>(position), nullptr, coredll::kFileBegin));
    return Read(file_, count);
  }
  void WriteAt(uint32_t position, const std::string& bytes) {
    EXPECT_EQ(position, SetFilePointer(file_, static_cast<int32_t>(position), nullptr, coredll::kFileBegin));
    Write(file_, bytes);
    if (contents_.size() < position + bytes.size()) contents_.resize(position + bytes.size());
    contents_.replace(position, bytes.size(), bytes);
  }
  // Whether the handle reads there what the file is to hold.
  void ExpectContents(uint32_t position, uint32_t count) {
    EXPECT_TRUE(contents_.substr(position, count) == ReadAt(position, count)) << count << " bytes at " << position;
  }
  // The system calls that reading costs.
  uint32_t Calls(uint32_t position, uint32_t count) {
    const uint32_t before = CountAll();
    ExpectContents(position, count);
    return CountAll() - before;
  }
  static uint32_t Line(uint32_t number) { return number * kCacheLineSize; }

  std::string contents_;
  Handle file_;
};

// ---- What is kept ---------------------------------------------------------------------------------------------------

TEST_F(PosixReadCache, read_again_costs_no_system_call) {
  EXPECT_EQ(1u, Calls(Line(3) + 100, 50));
  EXPECT_EQ(0u, Calls(Line(3) + 100, 50));
  EXPECT_EQ(0u, Calls(Line(3), kCacheLineSize));
}

TEST_F(PosixReadCache, read_across_lines_costs_one_system_call_then_none) {
  EXPECT_EQ(1u, Calls(Line(3) + 100, 3 * kCacheLineSize));
  EXPECT_EQ(0u, Calls(Line(3) + 100, 3 * kCacheLineSize));
}

TEST_F(PosixReadCache, read_of_more_than_a_run_costs_a_system_call_for_each) {
  EXPECT_EQ(3u, Calls(0, 3 * posix::kCacheReadAhead * kCacheLineSize));
  EXPECT_EQ(0u, Calls(0, 3 * posix::kCacheReadAhead * kCacheLineSize));
}

TEST_F(PosixReadCache, read_fetches_only_what_is_missing) {
  EXPECT_EQ(1u, Calls(Line(5), 10));
  EXPECT_EQ(2u, Calls(Line(4), 3 * kCacheLineSize));  // before and behind it
}

TEST_F(PosixReadCache, reads_in_order_fetch_1_2_4_to_32_lines_ahead) {
  uint32_t calls = 0;
  for (uint32_t line = 0; line < 256; line++) calls += Calls(Line(line), kCacheLineSize);
  EXPECT_EQ(13u, calls);  // 1 2 4 8 16 and seven times 32, then the last
}

TEST_F(PosixReadCache, reads_in_order_to_the_end_stop_there) {
  uint32_t calls = 0;
  for (uint32_t line = kLines - 2; line < kLines; line++) calls += Calls(Line(line), kCacheLineSize);
  EXPECT_EQ(2u, calls);
  EXPECT_EQ(0u, Calls(Line(kLines), 1000));
  uint32_t done = 77;
  EXPECT_EQ(1, ReadFile(file_, contents_.data(), 10, &done, nullptr));
  EXPECT_EQ(0u, done);
  EXPECT_EQ(2u, CountAll());
}

TEST_F(PosixReadCache, reads_anywhere_fetch_nothing_ahead) {
  for (const uint32_t line : {7u, 100u, 50u, 20u}) EXPECT_EQ(1u, Calls(Line(line), kCacheLineSize));
  for (const uint32_t line : {8u, 101u, 51u, 21u}) EXPECT_EQ(1u, Calls(Line(line), 1));
}

TEST_F(PosixReadCache, first_whole_block_makes_lines_begin_where_blocks_do) {
  EXPECT_EQ(1u, Calls(100, 50));
  EXPECT_EQ(1u, Calls(2048 + Line(10), kCacheLineSize));
  EXPECT_EQ(3, systemcalls::BlocksHeld());  // the cache, what was read before, the block
  EXPECT_EQ(1u, Calls(100, 50));            // forgotten, and read again up to the first block's begin
  EXPECT_EQ(0u, Calls(2047, 1));
  EXPECT_EQ(1u, Calls(2048, 1));
  EXPECT_EQ(1u, Calls(2048 + Line(20), kCacheLineSize));
  EXPECT_EQ(0u, Calls(2048 + Line(10), kCacheLineSize));
}

TEST_F(PosixReadCache, holds_1_mib_and_no_more) {
  for (uint32_t line = 0; line < kLines; line++) ExpectContents(Line(line), kCacheLineSize);
  EXPECT_EQ(1 + static_cast<int64_t>(kCacheLines), systemcalls::BlocksHeld());  // the table and the lines
  EXPECT_EQ(1, CloseHandle(file_));
  file_ = Open(Path("file"));
  EXPECT_EQ(0, systemcalls::BlocksHeld());
}

TEST_F(PosixReadCache, line_that_was_not_used_for_longest_makes_room) {
  for (const uint32_t line : {0u, 64u, 128u, 192u}) EXPECT_EQ(1u, Calls(Line(line), 1));
  EXPECT_EQ(0u, Calls(Line(0), 1));
  EXPECT_EQ(1u, Calls(Line(256), 1));
  for (const uint32_t line : {0u, 128u, 192u, 256u}) EXPECT_EQ(0u, Calls(Line(line), 1)) << line;
  EXPECT_EQ(1u, Calls(Line(64), 1));
}

TEST_F(PosixReadCache, files_keep_their_own) {
  MakeFile("other", Pattern(kSize, 2));
  ExpectContents(0, 100);
  const Handle other = Open(Path("other"));
  EXPECT_EQ(Pattern(100, 2), Read(other, 100));
  ExpectContents(0, 100);
  CloseHandle(other);
}

TEST_F(PosixReadCache, file_without_a_lock_is_not_cached) {
  CloseHandle(file_);
  systemcalls::FailNext(systemcalls::kFlock, ENOLCK);
  systemcalls::FailNext(systemcalls::kFcntl, ENOLCK);
  file_ = Open(Path("file"));
  systemcalls::Reset();
  for (int i = 0; i < 3; i++) EXPECT_EQ(1u, Calls(Line(3), 100));
  EXPECT_EQ(3u, Count(systemcalls::kPread));
}

// ---- Writes ---------------------------------------------------------------------------------------------------------

TEST_F(PosixReadCache, write_into_a_kept_line_is_read_back_without_a_system_call) {
  ExpectContents(Line(3), kCacheLineSize);
  WriteAt(Line(3) + 100, "new bytes");
  EXPECT_EQ(1u, Count(systemcalls::kPwrite));
  EXPECT_EQ(0u, Calls(Line(3), kCacheLineSize));
  EXPECT_TRUE(contents_ == Contents("file"));
}

TEST_F(PosixReadCache, write_across_kept_and_other_lines_is_read_back) {
  ExpectContents(Line(4), 10);
  WriteAt(Line(3) + 100, Pattern(2 * kCacheLineSize, 3));
  ExpectContents(Line(2), 5 * kCacheLineSize);
  EXPECT_TRUE(contents_ == Contents("file"));
}

TEST_F(PosixReadCache, write_behind_the_end_leaves_zeros_in_the_kept_last_line) {
  ExpectContents(Line(kLines), 1000);
  WriteAt(kSize + 500, "far");
  EXPECT_EQ(0u, Calls(Line(kLines), 1503));
  EXPECT_EQ(std::string(500, '\0'), ReadAt(kSize, 500));
  WriteAt(Line(kLines + 3), "farther");
  ExpectContents(Line(kLines), 3 * kCacheLineSize + 7);
  EXPECT_TRUE(contents_ == Contents("file"));
}

TEST_F(PosixReadCache, write_cut_short_that_goes_on_is_read_back) {
  ExpectContents(Line(3), kCacheLineSize);
  systemcalls::ShortenNext(systemcalls::kPwrite, 2);
  WriteAt(Line(3) + 100, "new bytes");
  ExpectContents(Line(3), kCacheLineSize);
  EXPECT_TRUE(contents_ == Contents("file"));
}

TEST_F(PosixReadCache, write_that_fails_forgets_the_lines_it_touched) {
  ExpectContents(Line(3), 3 * kCacheLineSize);
  systemcalls::FailNext(systemcalls::kPwrite, EIO);
  const std::string bytes = Pattern(kCacheLineSize, 4);
  uint32_t done = 77;
  SetFilePointer(file_, static_cast<int32_t>(Line(3) + 100), nullptr, coredll::kFileBegin);
  EXPECT_EQ(0, WriteFile(file_, bytes.data(), kCacheLineSize, &done, nullptr));
  EXPECT_EQ(0u, Calls(Line(5), 1));
  EXPECT_EQ(1u, Calls(Line(3), 1));
  EXPECT_EQ(1u, Calls(Line(4), 1));
}

TEST_F(PosixReadCache, write_that_fails_across_lines_of_which_one_is_kept_forgets_that_one) {
  ExpectContents(Line(3), kCacheLineSize);
  systemcalls::FailNext(systemcalls::kPwrite, EIO);
  const std::string bytes = Pattern(kCacheLineSize, 4);
  uint32_t done = 77;
  SetFilePointer(file_, static_cast<int32_t>(Line(3) + 100), nullptr, coredll::kFileBegin);
  EXPECT_EQ(0, WriteFile(file_, bytes.data(), kCacheLineSize, &done, nullptr));
  EXPECT_EQ(1u, Calls(Line(3), 1));
  EXPECT_EQ(1u, Calls(Line(4), 1));
}

TEST_F(PosixReadCache, write_that_fails_half_way_reads_back_as_the_file_holds_it) {
  ExpectContents(Line(3), kCacheLineSize);
  systemcalls::ShortenNext(systemcalls::kPwrite, 3);
  systemcalls::FailNth(systemcalls::kPwrite, 2, ENOSPC);
  uint32_t done = 77;
  SetFilePointer(file_, static_cast<int32_t>(Line(3)), nullptr, coredll::kFileBegin);
  EXPECT_EQ(0, WriteFile(file_, "abcdef", 6, &done, nullptr));
  EXPECT_EQ(3u, done);
  contents_.replace(Line(3), 3, "abc");
  EXPECT_EQ(1u, Calls(Line(3), kCacheLineSize));
  EXPECT_TRUE(contents_ == Contents("file"));
}

// ---- Failures -------------------------------------------------------------------------------------------------------

TEST_F(PosixReadCache, read_that_fails_is_made_again_next_time) {
  char buffer[8];
  uint32_t done = 77;
  systemcalls::FailNext(systemcalls::kPread, EIO, 2);  // the line, then the bytes
  EXPECT_EQ(0, ReadFile(file_, buffer, 8, &done, nullptr));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(0u, done);
  EXPECT_EQ(1u, Calls(0, 8));
}

TEST_F(PosixReadCache, read_across_kept_lines_into_one_that_fails_tells_what_was_moved) {
  ExpectContents(Line(3), kCacheLineSize);
  std::string buffer(2 * kCacheLineSize, '?');
  uint32_t done = 77;
  systemcalls::FailNext(systemcalls::kPreadv, EIO);
  systemcalls::FailNext(systemcalls::kPread, EIO);
  SetFilePointer(file_, static_cast<int32_t>(Line(3)), nullptr, coredll::kFileBegin);
  EXPECT_EQ(0, ReadFile(file_, buffer.data(), 2 * kCacheLineSize, &done, nullptr));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(kCacheLineSize, done);
  EXPECT_EQ(Line(4), SetFilePointer(file_, 0, nullptr, coredll::kFileCurrent));
  EXPECT_TRUE(contents_.substr(Line(3), kCacheLineSize) == buffer.substr(0, kCacheLineSize));
}

TEST_F(PosixReadCache, failure_of_what_is_only_fetched_ahead_is_not_the_readers) {
  ExpectContents(Line(3), kCacheLineSize);
  systemcalls::ShortenNext(systemcalls::kPreadv, kCacheLineSize + 7);  // of two lines; the rest would fail
  systemcalls::FailNext(systemcalls::kPread, EIO, 2);
  EXPECT_EQ(1u, Calls(Line(4), kCacheLineSize));
  char byte;
  uint32_t done = 77;
  EXPECT_EQ(0, ReadFile(file_, &byte, 1, &done, nullptr));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(1u, Calls(Line(5), kCacheLineSize));
}

TEST_F(PosixReadCache, failure_of_what_lies_beside_in_the_line_is_not_the_readers) {
  systemcalls::FailNext(systemcalls::kPread, EIO);
  EXPECT_EQ(2u, Calls(Line(3) + 100, 50));
  EXPECT_EQ(1u, Calls(Line(3) + 100, 50));  // nothing was kept
}

TEST_F(PosixReadCache, failure_of_all_because_of_what_is_fetched_ahead_is_not_the_readers) {
  ExpectContents(Line(3), kCacheLineSize);
  systemcalls::FailNext(systemcalls::kPreadv, EIO);  // of two lines
  EXPECT_EQ(2u, Calls(Line(4), kCacheLineSize));
}

TEST_F(PosixReadCache, read_of_a_file_that_was_cut_is_short_and_keeps_no_line_in_part) {
  ASSERT_EQ(0, truncate(Path("file").c_str(), Line(3) + 10));
  std::string buffer(kCacheLineSize, '?');
  uint32_t done = 77;
  for (int i = 0; i < 2; i++) {
    SetFilePointer(file_, static_cast<int32_t>(Line(3)), nullptr, coredll::kFileBegin);
    EXPECT_EQ(1, ReadFile(file_, buffer.data(), kCacheLineSize, &done, nullptr));
    EXPECT_EQ(10u, done);
    EXPECT_EQ(1, ReadFile(file_, buffer.data(), 1, &done, nullptr));
    EXPECT_EQ(0u, done);
  }
  MakeFile("file", contents_);
  ExpectContents(Line(2), 3 * kCacheLineSize);
}

TEST_F(PosixReadCache, read_before_the_place_where_a_file_was_cut_in_the_same_line_succeeds) {
  ASSERT_EQ(0, truncate(Path("file").c_str(), Line(3) + 10));
  EXPECT_EQ(1u, Calls(Line(3), 10));
  EXPECT_EQ(1u, Calls(Line(3) + 5, 5));
}

TEST_F(PosixReadCache, line_that_is_kept_outlives_a_cut_of_the_file) {
  ExpectContents(Line(3), kCacheLineSize);
  ASSERT_EQ(0, truncate(Path("file").c_str(), 0));
  EXPECT_EQ(0u, Calls(Line(3), kCacheLineSize));
}

TEST_F(PosixReadCache, read_without_memory_for_the_cache_comes_from_the_file) {
  systemcalls::FailNext(systemcalls::kCalloc, ENOMEM);
  EXPECT_EQ(1u, Calls(Line(3), 100));
  EXPECT_EQ(1u, Count(systemcalls::kPread));
  EXPECT_EQ(1u, Calls(Line(3), 100));
  EXPECT_EQ(0u, Calls(Line(3), 100));
}

TEST_F(PosixReadCache, read_without_memory_for_a_line_comes_from_the_file) {
  systemcalls::FailNext(systemcalls::kMalloc, ENOMEM);
  EXPECT_EQ(1u, Calls(Line(3) + 10, 100));
  EXPECT_EQ(1u, Count(systemcalls::kPread));
  systemcalls::FailNth(systemcalls::kMalloc, 2, ENOMEM);
  EXPECT_EQ(2u, Calls(Line(3), 2 * kCacheLineSize));
  EXPECT_EQ(0u, Calls(Line(3), 2 * kCacheLineSize));
}

TEST_F(PosixReadCache, read_without_memory_fails_and_ends_as_the_file_does) {
  std::string buffer(kCacheLineSize, '?');
  uint32_t done = 77;
  systemcalls::FailNext(systemcalls::kMalloc, ENOMEM);
  systemcalls::ShortenNext(systemcalls::kPread, 5);
  systemcalls::FailNth(systemcalls::kPread, 2, EIO);
  EXPECT_EQ(0, ReadFile(file_, buffer.data(), 100, &done, nullptr));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(5u, done);
  ASSERT_EQ(0, truncate(Path("file").c_str(), 50));
  systemcalls::FailNext(systemcalls::kMalloc, ENOMEM);
  EXPECT_EQ(1, ReadFile(file_, buffer.data(), 100, &done, nullptr));
  EXPECT_EQ(45u, done);
}

TEST_F(PosixReadCache, read_without_memory_that_is_interrupted_goes_on) {
  systemcalls::FailNext(systemcalls::kMalloc, ENOMEM);
  systemcalls::FailNext(systemcalls::kPread, EINTR);
  EXPECT_EQ(2u, Calls(Line(3), 100));
}

// ---- Everything at once ---------------------------------------------------------------------------------------------

// Random reads and writes of a file longer than the cache, some of them cut short, beside a copy in memory.
class PosixReadCacheRandom : public PosixReadCache, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(PosixReadCacheRandom, every_byte_is_the_files) {
  uint32_t seed = GetParam();
  const auto random = [&seed](uint32_t below) {
    seed = seed * 1103515245 + 12345;
    return static_cast<uint32_t>((uint64_t{seed} * below) >> 32);
  };
  if (GetParam() % 2 == 0) ExpectContents(1024 + random(3) * 512, 2 * kCacheLineSize);  // lines begin elsewhere
  for (int i = 0; i < 4000; i++) {
    const auto size = static_cast<uint32_t>(contents_.size());
    const uint32_t count = 1 + random(random(8) == 0 ? 70000 : 5000);
    const uint32_t position = random(random(4) == 0 ? size : 40 * kCacheLineSize);
    if (random(10) == 0) systemcalls::ShortenNext(systemcalls::kPreadv, 1 + random(6000));
    if (random(10) == 0) systemcalls::ShortenNext(systemcalls::kPread, 1 + random(3000));
    if (random(10) == 0) systemcalls::ShortenNext(systemcalls::kPwrite, 1 + random(3000));
    if (random(20) == 0) systemcalls::FailNext(systemcalls::kMalloc, ENOMEM);
    if (random(3) == 0 && size < 2 * kSize) {
      WriteAt(position + (random(50) == 0 ? size - position + random(5000) : 0), Pattern(count, seed));
    } else {
      ExpectContents(position, count < size - position ? count : size - position);
    }
    if (HasFailure()) break;
  }
  EXPECT_TRUE(contents_ == Contents("file"));
}

INSTANTIATE_TEST_SUITE_P(Seeds, PosixReadCacheRandom, ::testing::Range(1u, 7u));

}  // namespace
}  // namespace orba

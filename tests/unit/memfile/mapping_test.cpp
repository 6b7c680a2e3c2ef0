// The memory file's bytes as a block from the heap and then as one mapping.
#include <errno.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

#include "unit/memfile/memfile_test.h"

namespace {

using systemcalls::Count;

constexpr MemFileU32 kStep = 2 << 20;  // what becomes accessible at a time

class MemFileMapping : public MemFile {
 protected:
  MemFileMapping() { CreateMemFile(); }

  static void Append(MemFileU32 bytes) {
    const std::string piece = Pattern(kChunk, 9);
    for (MemFileU32 done = 0; done < bytes; done += kChunk) Write(piece);
  }
  static void ExpectAppended(MemFileU32 bytes) {
    const std::string piece = Pattern(kChunk, 9);
    SeekMemFile(0, MEMFILE_BEGIN);
    for (MemFileU32 done = 0; done < bytes; done += kChunk) ASSERT_TRUE(piece == Read(kChunk)) << done;
  }
  // A limit that nobody meets, but a limit.
  static void LimitAddresses(bool limited) {
    rlimit limit;
    ASSERT_EQ(0, getrlimit(RLIMIT_AS, &limit));
    limit.rlim_cur = limited ? limit.rlim_max - (limit.rlim_max == RLIM_INFINITY ? 1 : 0) : limit.rlim_max;
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
  }
  static void ExpectWriteFails() {
    const MemFileU32 size = GetMemFileSize();
    const MemFileU32 position = Position();
    MemFileU32 done = 77;
    EXPECT_EQ(0u, WriteMemFile("abc", 3, &done));
    EXPECT_EQ(0u, done);
    EXPECT_EQ(size, GetMemFileSize());
    EXPECT_EQ(position, Position());
  }
};

TEST_F(MemFileMapping, small_file_takes_one_block_and_no_system_call) {
  Append(kChunk);
  EXPECT_EQ(1, systemcalls::BlocksHeld());
  EXPECT_EQ(0u, systemcalls::CountAll());
  ExpectAppended(kChunk);
}

TEST_F(MemFileMapping, small_file_without_memory_fails_and_stays_empty) {
  systemcalls::FailNext(systemcalls::kCalloc, ENOMEM);
  ExpectWriteFails();
  EXPECT_EQ(0u, GetMemFileSize());
  Append(kChunk);
  ExpectAppended(kChunk);
}

TEST_F(MemFileMapping, growth_beyond_a_small_file_maps_and_keeps_every_byte) {
  Append(kChunk);
  Write("a");
  EXPECT_EQ(0, systemcalls::BlocksHeld());
  SeekMemFile(static_cast<MemFileI32>(kChunk), MEMFILE_BEGIN);
  EXPECT_EQ("a", Read(5));
  ExpectAppended(kChunk);
}

TEST_F(MemFileMapping, growth_beyond_a_small_file_that_is_refused_keeps_every_byte) {
  for (const systemcalls::Call call : {systemcalls::kMprotect, systemcalls::kMmap}) {
    CreateMemFile();
    Append(kChunk);
    if (call == systemcalls::kMmap) LimitAddresses(true);
    systemcalls::FailNext(call, ENOMEM);
    ExpectWriteFails();
    LimitAddresses(false);
    ExpectAppended(kChunk);
    Append(kChunk);
    ExpectAppended(2 * kChunk);
  }
}

TEST_F(MemFileMapping, delete_gives_the_mapping_back) {
  Append(2 * kChunk);
  EXPECT_LT(int64_t{MEMFILE_MAX_SIZE}, systemcalls::BytesMapped());
  EXPECT_EQ(1u, DeleteMemFile());
  EXPECT_EQ(0, systemcalls::BytesMapped());
}

TEST_F(MemFileMapping, growth_stays_in_place_and_costs_a_system_call_for_each_2_mib) {
  Append(32 * kStep);
  EXPECT_EQ(1u, Count(systemcalls::kMmap));
  EXPECT_EQ(32u, Count(systemcalls::kMprotect));
  EXPECT_EQ(0u, Count(systemcalls::kMremap));
  ExpectAppended(32 * kStep);
}

TEST_F(MemFileMapping, hole_takes_no_memory) {
  const auto resident = [] {
    int64_t size = 0, pages = 0;
    std::ifstream("/proc/self/statm") >> size >> pages;
    return pages * sysconf(_SC_PAGESIZE);
  };
  const int64_t before = resident();
  SeekMemFile(0x7FFFFFFE, MEMFILE_BEGIN);
  Write("x");
  EXPECT_GT(int64_t{64} << 20, resident() - before);
}

TEST_F(MemFileMapping, write_whose_pages_are_refused_fails_and_changes_nothing) {
  Append(kStep);
  systemcalls::FailNext(systemcalls::kMprotect, ENOMEM);
  ExpectWriteFails();
  Append(kStep);
  ExpectAppended(2 * kStep);
}

TEST_F(MemFileMapping, first_write_whose_pages_are_refused_fails_and_leaves_the_file_empty) {
  SeekMemFile(static_cast<MemFileI32>(kChunk), MEMFILE_BEGIN);
  systemcalls::FailNext(systemcalls::kMprotect, ENOMEM);
  ExpectWriteFails();
  SeekMemFile(0, MEMFILE_BEGIN);
  EXPECT_EQ(0u, GetMemFileSize());
  Append(kStep);
  ExpectAppended(kStep);
}

TEST_F(MemFileMapping, kernel_without_huge_pages_does_without) {
  systemcalls::FailNext(systemcalls::kMadvise, EINVAL);
  Append(2 * kStep);
  ExpectAppended(2 * kStep);
}

TEST_F(MemFileMapping, addresses_that_cannot_be_reserved_are_mapped_as_needed) {
  systemcalls::FailNext(systemcalls::kMmap, ENOMEM);
  Append(8 * kStep);
  EXPECT_EQ(8 * int64_t{kStep}, systemcalls::BytesMapped());
  EXPECT_EQ(2u, Count(systemcalls::kMmap));
  EXPECT_EQ(7u, Count(systemcalls::kMremap));
  ExpectAppended(8 * kStep);
}

TEST_F(MemFileMapping, limited_addresses_are_not_reserved) {
  LimitAddresses(true);
  Append(kStep);
  LimitAddresses(false);
  EXPECT_EQ(int64_t{kStep}, systemcalls::BytesMapped());
  ExpectAppended(kStep);
}

TEST_F(MemFileMapping, write_that_cannot_move_the_mapping_fails_and_changes_nothing) {
  systemcalls::FailNext(systemcalls::kMmap, ENOMEM);
  Append(kStep);
  systemcalls::FailNext(systemcalls::kMremap, ENOMEM);
  ExpectWriteFails();
  Append(kStep);
  ExpectAppended(2 * kStep);
}

}  // namespace

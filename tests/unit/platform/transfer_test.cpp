// Reading, writing, positions, sizes and flushing.
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include "unit/platform/platform_test.h"
#include "unit/platform/system_calls.h"

namespace orba {
namespace {

using coredll::CloseHandle;
using coredll::FlushFileBuffers;
using coredll::GetFileSize;
using coredll::GetLastError;
using coredll::Handle;
using coredll::kFileBegin;
using coredll::kFileCurrent;
using coredll::kFileEnd;
using coredll::kInvalidHandle;
using coredll::ReadFile;
using coredll::SetFilePointer;
using coredll::WriteFile;

// One open file of ten bytes, its position 0.
class PosixTransfer : public PlatformTest {
 protected:
  PosixTransfer() {
    MakeFile("file", "0123456789");
    file_ = Open(Path("file"));
    systemcalls::Reset();
  }
  ~PosixTransfer() override {
    if (file_ != kInvalidHandle) CloseHandle(file_);
  }
  void SetUp() override { ASSERT_NE(kInvalidHandle, file_); }

  uint32_t Seek(int32_t distance, uint32_t method = kFileBegin) {
    return SetFilePointer(file_, distance, nullptr, method);
  }
  uint32_t Position() { return Seek(0, kFileCurrent); }
  uint32_t Size() { return GetFileSize(file_, nullptr); }

  void Reopen() {
    EXPECT_EQ(1, CloseHandle(file_));
    file_ = Open(Path("file"));
  }

  // Closes the file and returns what is on disk.
  std::string Finish() {
    EXPECT_EQ(1, CloseHandle(file_));
    file_ = kInvalidHandle;
    return Contents("file");
  }

  Handle file_ = kInvalidHandle;
  char buffer_[64] = {};
  uint32_t done_ = 77;
};

struct RefusedTransfer {
  int error;
  uint32_t code;
};

// ---- Positions and sizes --------------------------------------------------------------------------------------------

TEST_F(PosixTransfer, seek_each_origin_gives_the_new_position) {
  EXPECT_EQ(4u, Seek(4, kFileBegin));
  EXPECT_EQ(7u, Seek(3, kFileCurrent));
  EXPECT_EQ(5u, Seek(-2, kFileCurrent));
  EXPECT_EQ(10u, Seek(0, kFileEnd));
  EXPECT_EQ(1u, Seek(-9, kFileEnd));
  EXPECT_EQ(12u, Seek(2, kFileEnd));
}

TEST_F(PosixTransfer, seek_and_size_cost_no_system_call) {
  Seek(4);
  Seek(-1, kFileEnd);
  Seek(1, kFileCurrent);
  Seek(-1);
  Size();
  EXPECT_EQ(0u, systemcalls::CountAll());
}

TEST_F(PosixTransfer, seek_below_0_fails_with_131_and_moves_nothing) {
  Seek(3);
  for (const auto& [distance, method] : {std::pair(-1, kFileBegin), std::pair(-4, kFileCurrent),
                                         std::pair(-11, kFileEnd), std::pair(INT32_MIN, kFileBegin)}) {
    EXPECT_EQ(0xFFFFFFFFu, Seek(distance, method));
    EXPECT_EQ(131u, GetLastError());
    EXPECT_EQ(3u, Position());
  }
}

TEST_F(PosixTransfer, seek_past_the_end_is_allowed_and_leaves_the_size) {
  EXPECT_EQ(0x7FFFFFFFu, Seek(0x7FFFFFFF));
  EXPECT_EQ(10u, Size());
  EXPECT_EQ("0123456789", Finish());
}

TEST_F(PosixTransfer, seek_to_the_last_position_that_32_bits_tell_succeeds) {
  Seek(0x7FFFFFFF);
  EXPECT_EQ(0xFFFFFFFEu, Seek(0x7FFFFFFF, kFileCurrent));
  EXPECT_EQ(0xFFFFFFFFu, Seek(1, kFileCurrent));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0xFFFFFFFEu, Position());
}

TEST_F(PosixTransfer, seek_unknown_method_or_high_half_fails_with_87) {
  EXPECT_EQ(0xFFFFFFFFu, Seek(1, 3));
  EXPECT_EQ(87u, GetLastError());
  int32_t high = 0;
  EXPECT_EQ(0xFFFFFFFFu, SetFilePointer(file_, 1, &high, kFileBegin));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0u, Position());
}

TEST_F(PosixTransfer, every_call_with_a_bad_handle_fails_with_6) {
  for (const Handle handle : {0u, file_ + 1, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    const auto expect6 = [] {
      EXPECT_EQ(6u, GetLastError());
      coredll::SetFilePointer(1, 0, nullptr, 99);  // another code, so that the next is its own
    };
    EXPECT_EQ(0, ReadFile(handle, buffer_, 1, &done_, nullptr));
    expect6();
    EXPECT_EQ(0u, done_);
    EXPECT_EQ(0, WriteFile(handle, buffer_, 1, &done_, nullptr));
    expect6();
    EXPECT_EQ(0xFFFFFFFFu, SetFilePointer(handle, 0, nullptr, kFileBegin));
    expect6();
    EXPECT_EQ(0, FlushFileBuffers(handle));
    expect6();
    EXPECT_EQ(0xFFFFFFFFu, GetFileSize(handle, nullptr));
    expect6();
  }
}

TEST_F(PosixTransfer, size_above_4_gib_comes_in_two_halves) {
  MakeFile("large", "");
  ASSERT_EQ(0, truncate(Path("large").c_str(), 0x123456789));
  const Handle large = Open(Path("large"));
  uint32_t high = 99;
  EXPECT_EQ(0x23456789u, GetFileSize(large, &high));
  EXPECT_EQ(1u, high);
  EXPECT_EQ(0x23456789u, GetFileSize(large, nullptr));
  EXPECT_EQ(0xFFFFFFFFu, SetFilePointer(large, 0, nullptr, kFileEnd));
  EXPECT_EQ(87u, GetLastError());
  CloseHandle(large);
}

// ---- Reading --------------------------------------------------------------------------------------------------------

TEST_F(PosixTransfer, read_moves_the_position) {
  EXPECT_EQ("0123", Read(file_, 4));
  EXPECT_EQ(4u, Position());
  EXPECT_EQ("456789", Read(file_, 6));
  EXPECT_EQ(10u, Position());
}

TEST_F(PosixTransfer, read_across_the_end_succeeds_short_with_one_system_call) {
  Seek(7);
  EXPECT_EQ(1, ReadFile(file_, buffer_, 64, &done_, nullptr));
  EXPECT_EQ(3u, done_);
  EXPECT_STREQ("789", buffer_);
  EXPECT_EQ(10u, Position());
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kPread));
  EXPECT_EQ(1u, systemcalls::CountAll());
}

TEST_F(PosixTransfer, read_at_and_past_the_end_succeeds_with_0) {
  for (const int32_t position : {10, 11, 0x7FFFFFFF}) {
    Seek(position);
    EXPECT_EQ(1, ReadFile(file_, buffer_, 64, &done_, nullptr));
    EXPECT_EQ(0u, done_);
    EXPECT_EQ(static_cast<uint32_t>(position), Position());
  }
}

TEST_F(PosixTransfer, read_count_0_succeeds_without_a_buffer) {
  EXPECT_EQ(1, ReadFile(file_, nullptr, 0, &done_, nullptr));
  EXPECT_EQ(0u, done_);
}

TEST_F(PosixTransfer, read_interrupted_goes_on) {
  systemcalls::FailNext(systemcalls::kPread, EINTR);
  EXPECT_EQ("0123456789", Read(file_, 10));
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kPread));
}

TEST_F(PosixTransfer, read_cut_short_by_the_host_goes_on) {
  systemcalls::ShortenNext(systemcalls::kPread, 3);
  EXPECT_EQ("0123456789", Read(file_, 10));
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kPread));
  EXPECT_EQ(10u, Position());
}

TEST_F(PosixTransfer, read_cut_short_and_interrupted_goes_on) {
  systemcalls::ShortenNext(systemcalls::kPread, 3);
  systemcalls::FailNth(systemcalls::kPread, 2, EINTR);
  EXPECT_EQ("0123456789", Read(file_, 10));
  EXPECT_EQ(3u, systemcalls::Count(systemcalls::kPread));
}

TEST_F(PosixTransfer, read_host_refusals_have_their_codes_and_move_nothing) {
  const RefusedTransfer refusals[] = {{EIO, 31},    {EBADF, 6},   {EACCES, 5},      {ENOMEM, 8},
                                      {EINVAL, 87}, {ENXIO, 21},  {ENODEV, 21},     {ENOMEDIUM, 21},
                                      {EISDIR, 5},  {EFAULT, 87}, {ECANCELED, 1235}};
  for (const RefusedTransfer& refused : refusals) {
    done_ = 77;
    systemcalls::FailNext(systemcalls::kPread, refused.error, 2);  // the line, then the bytes
    EXPECT_EQ(0, ReadFile(file_, buffer_, 4, &done_, nullptr));
    EXPECT_EQ(refused.code, GetLastError()) << "errno " << refused.error;
    EXPECT_EQ(0u, done_);
    EXPECT_EQ(0u, Position());
  }
}

TEST_F(PosixTransfer, read_that_fails_half_way_tells_what_was_moved) {
  systemcalls::ShortenNext(systemcalls::kPread, 3);
  systemcalls::FailNth(systemcalls::kPread, 2, EIO, 2);
  EXPECT_EQ(0, ReadFile(file_, buffer_, 10, &done_, nullptr));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(3u, done_);
  EXPECT_STREQ("012", buffer_);
  EXPECT_EQ(3u, Position());
}

TEST_F(PosixTransfer, read_of_a_file_that_was_cut_behind_our_back_ends) {
  ASSERT_EQ(0, truncate(Path("file").c_str(), 4));
  EXPECT_EQ(1, ReadFile(file_, buffer_, 10, &done_, nullptr));
  EXPECT_EQ(4u, done_);
}

TEST_F(PosixTransfer, read_bad_arguments_fail_with_87) {
  EXPECT_EQ(0, ReadFile(file_, buffer_, 1, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0, ReadFile(file_, buffer_, 1, &done_, buffer_));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0, ReadFile(file_, nullptr, 1, &done_, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0u, Position());
}

// ---- Writing --------------------------------------------------------------------------------------------------------

TEST_F(PosixTransfer, write_inside_replaces_with_one_system_call) {
  Seek(2);
  Write(file_, "abc");
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kPwrite));
  EXPECT_EQ(1u, systemcalls::CountAll());
  EXPECT_EQ(5u, Position());
  EXPECT_EQ(10u, Size());
  EXPECT_EQ("01abc56789", Finish());
}

TEST_F(PosixTransfer, write_across_the_end_extends_the_file) {
  Seek(8);
  Write(file_, "abcd");
  EXPECT_EQ(12u, Size());
  EXPECT_EQ(12u, Position());
  EXPECT_EQ("01234567abcd", Finish());
}

TEST_F(PosixTransfer, write_past_the_end_leaves_zeros_between) {
  Seek(12);
  Write(file_, "x");
  EXPECT_EQ(13u, Size());
  EXPECT_EQ(std::string("0123456789\0\0x", 13), Finish());
}

TEST_F(PosixTransfer, write_is_read_back_from_the_same_handle) {
  Seek(0, kFileEnd);
  Write(file_, "ab");
  Seek(8);
  EXPECT_EQ("89ab", Read(file_, 4));
}

TEST_F(PosixTransfer, write_count_0_changes_nothing_even_past_the_end) {
  Seek(20);
  EXPECT_EQ(1, WriteFile(file_, nullptr, 0, &done_, nullptr));
  EXPECT_EQ(0u, done_);
  EXPECT_EQ(10u, Size());
  EXPECT_EQ("0123456789", Finish());
}

TEST_F(PosixTransfer, write_interrupted_goes_on) {
  systemcalls::FailNext(systemcalls::kPwrite, EINTR);
  Write(file_, "abc");
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kPwrite));
  EXPECT_EQ("abc3456789", Finish());
}

TEST_F(PosixTransfer, write_cut_short_by_the_host_goes_on) {
  Seek(9);
  systemcalls::ShortenNext(systemcalls::kPwrite, 2);
  Write(file_, "abcde");
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kPwrite));
  EXPECT_EQ(14u, Size());
  EXPECT_EQ("012345678abcde", Finish());
}

TEST_F(PosixTransfer, write_of_which_the_host_takes_nothing_fails_with_31) {
  systemcalls::ShortenNext(systemcalls::kPwrite, 0);
  EXPECT_EQ(0, WriteFile(file_, "abc", 3, &done_, nullptr));
  EXPECT_EQ(31u, GetLastError());
  EXPECT_EQ(0u, done_);
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kPwrite));
}

TEST_F(PosixTransfer, write_host_refusals_have_their_codes_and_change_nothing) {
  const RefusedTransfer refusals[] = {{EIO, 31},    {EBADF, 6},   {EPERM, 5},       {ENOMEM, 8},   {EROFS, 19},
                                      {ENXIO, 21},  {ENODEV, 21}, {EINVAL, 87},     {ENOSPC, 112}, {EDQUOT, 112},
                                      {EFBIG, 112}, {EFAULT, 87}, {ECANCELED, 1235}};
  Seek(8);
  for (const RefusedTransfer& refused : refusals) {
    done_ = 77;
    systemcalls::FailNext(systemcalls::kPwrite, refused.error);
    EXPECT_EQ(0, WriteFile(file_, "abcd", 4, &done_, nullptr));
    EXPECT_EQ(refused.code, GetLastError()) << "errno " << refused.error;
    EXPECT_EQ(0u, done_);
    EXPECT_EQ(8u, Position());
    EXPECT_EQ(10u, Size());
  }
  EXPECT_EQ("0123456789", Finish());
}

TEST_F(PosixTransfer, write_past_the_size_limit_fails_with_112_and_tells_what_was_moved) {
  const uint32_t done = InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {12, 12};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return kChildDied;
    Seek(8);
    if (WriteFile(file_, "abcdef", 6, &done_, nullptr) != 0 || GetLastError() != 112) return kChildDied;
    if (Position() != 12 || Size() != 12) return kChildDied;
    return done_;
  });
  EXPECT_EQ(4u, done);
  EXPECT_EQ("01234567abcd", Finish());
}

TEST_F(PosixTransfer, write_on_a_full_disk_fails_with_112_and_tells_what_was_moved) {
  systemcalls::ShortenNext(systemcalls::kPwrite, 3);
  systemcalls::FailNth(systemcalls::kPwrite, 2, ENOSPC);
  EXPECT_EQ(0, WriteFile(file_, "abcdef", 6, &done_, nullptr));
  EXPECT_EQ(112u, GetLastError());
  EXPECT_EQ(3u, done_);
  // The same of a real one, where we may make one.
  const uint32_t done = InChild([&] {
    if (!EnterScratch(0x10000, false)) return kNotPermitted;
    const Handle file = Create("new");
    const std::string bytes(0x18000, 'b');
    if (file == kInvalidHandle) return kChildDied;
    if (WriteFile(file, bytes.data(), 0x18000, &done_, nullptr) != 0 || GetLastError() != 112) return kChildDied;
    if (GetFileSize(file, nullptr) != done_) return kChildDied;
    SetFilePointer(file, 0, nullptr, kFileBegin);
    uint32_t read = 0;
    std::string back(done_, '?');
    if (ReadFile(file, back.data(), done_, &read, nullptr) != 1 || back != bytes.substr(0, read)) return kChildDied;
    return done_;
  });
  if (done != kNotPermitted) {
    EXPECT_EQ(0x10000u, done);
  }
}

TEST_F(PosixTransfer, write_bad_arguments_fail_with_87) {
  EXPECT_EQ(0, WriteFile(file_, "a", 1, nullptr, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0, WriteFile(file_, "a", 1, &done_, buffer_));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(0, WriteFile(file_, nullptr, 1, &done_, nullptr));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("0123456789", Finish());
}

TEST_F(PosixTransfer, write_at_4_gib_keeps_the_position_exact) {
  Seek(0x7FFFFFFF);
  Seek(0x7FFFFFFF, kFileCurrent);
  Write(file_, "abcd");
  uint32_t high = 0;
  EXPECT_EQ(2u, GetFileSize(file_, &high));
  EXPECT_EQ(1u, high);
  EXPECT_EQ(0xFFFFFFFEu, Seek(-4, kFileCurrent));
  EXPECT_EQ("abcd", Read(file_, 4));
}

// ---- Flushing -------------------------------------------------------------------------------------------------------

TEST_F(PosixTransfer, flush_synchronises_the_file_once) {
  Write(file_, "abc");
  systemcalls::Reset();
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kFdatasync));
  EXPECT_EQ(1u, systemcalls::CountAll());
}

TEST_F(PosixTransfer, flush_of_what_nothing_was_written_to_costs_no_system_call) {
  Write(file_, "abc");
  EXPECT_EQ(1, FlushFileBuffers(file_));
  systemcalls::Reset();
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(0u, systemcalls::CountAll());
  Seek(0);
  Read(file_, 4);
  EXPECT_EQ(1, WriteFile(file_, "", 0, &done_, nullptr));
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(0u, systemcalls::Count(systemcalls::kFdatasync));
}

TEST_F(PosixTransfer, flush_synchronises_what_others_may_have_written_before) {
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kFdatasync));
}

TEST_F(PosixTransfer, flush_leaves_synchronising_to_a_caller_who_says_so) {
  Write(file_, "abc");
  systemcalls::Reset();
  setenv("ORBA_SYNC", "caller", 1);
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(0u, systemcalls::CountAll());
  setenv("ORBA_SYNC", "caller ", 1);  // another word means nothing
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kFdatasync));
  Write(file_, "abc");
  unsetenv("ORBA_SYNC");
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kFdatasync));
}

TEST_F(PosixTransfer, flush_after_a_failed_write_synchronises_the_file) {
  EXPECT_EQ(1, FlushFileBuffers(file_));
  systemcalls::Reset();
  systemcalls::FailNext(systemcalls::kPwrite, EIO);
  EXPECT_EQ(0, WriteFile(file_, "abc", 3, &done_, nullptr));
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kFdatasync));
}

TEST_F(PosixTransfer, flush_where_the_caller_syncs_costs_no_system_call) {
  Write(file_, "abc");
  systemcalls::Reset();
  setenv("ORBA_SYNC", "caller", 1);
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(0u, systemcalls::CountAll());
  setenv("ORBA_SYNC", "anybody", 1);
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kFdatasync));
  unsetenv("ORBA_SYNC");
}

// The kernel would report success the second time, whatever it lost.
TEST_F(PosixTransfer, flush_after_one_that_failed_fails_until_the_file_is_opened_again) {
  Write(file_, "abc");
  systemcalls::FailNext(systemcalls::kFdatasync, ENOSPC);
  EXPECT_EQ(0, FlushFileBuffers(file_));
  EXPECT_EQ(112u, GetLastError());
  Write(file_, "def");
  Seek(-1);  // another code
  EXPECT_EQ(0, FlushFileBuffers(file_));
  EXPECT_EQ(112u, GetLastError());
  Reopen();
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kFdatasync));
}

TEST_F(PosixTransfer, flush_interrupted_goes_on) {
  Write(file_, "abc");
  systemcalls::FailNext(systemcalls::kFdatasync, EINTR);
  EXPECT_EQ(1, FlushFileBuffers(file_));
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kFdatasync));
}

TEST_F(PosixTransfer, flush_host_refusals_have_their_codes) {
  const RefusedTransfer refusals[] = {{EIO, 31},   {ENOSPC, 112}, {EDQUOT, 112},
                                      {EROFS, 19}, {ENODEV, 21},  {ECANCELED, 1235}};
  for (const RefusedTransfer& refused : refusals) {
    Reopen();
    systemcalls::FailNext(systemcalls::kFdatasync, refused.error);
    EXPECT_EQ(0, FlushFileBuffers(file_));
    EXPECT_EQ(refused.code, GetLastError()) << "errno " << refused.error;
  }
}

}  // namespace
}  // namespace orba

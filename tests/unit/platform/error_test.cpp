#include <errno.h>
#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "platform/posix/posix.h"

namespace orba {
namespace {

TEST(PosixError, errno_every_value_has_its_host_code) {
  const std::map<int, uint32_t> known = {
      {ENOENT, 2},   {ENOTDIR, 3}, {ELOOP, 3},    {EMFILE, 4},         {ENFILE, 4},       {EACCES, 5},  {EPERM, 5},
      {EISDIR, 5},   {EBADF, 6},   {ENOMEM, 8},   {EROFS, 19},         {ENXIO, 21},       {ENODEV, 21}, {ENOMEDIUM, 21},
      {EAGAIN, 32},  {EBUSY, 32},  {ETXTBSY, 32}, {EEXIST, 80},        {EINVAL, 87},      {EFAULT, 87}, {ENOSPC, 112},
      {EDQUOT, 112}, {EFBIG, 112}, {EILSEQ, 123}, {ENAMETOOLONG, 123}, {ECANCELED, 1235},
  };
  for (int error = 1; error < 200; error++) {
    const auto entry = known.find(error);
    EXPECT_EQ(entry != known.end() ? entry->second : 31u, posix::HostErrorFromErrno(error)) << "errno " << error;
  }
}

TEST(PosixError, last_error_of_another_thread_is_its_own) {
  posix::SetLastError(112);
  uint32_t before = 1, after = 1;
  std::thread([&] {
    before = coredll::GetLastError();
    posix::SetLastError(5);
    after = coredll::GetLastError();
  }).join();
  EXPECT_EQ(0u, before);
  EXPECT_EQ(5u, after);
  EXPECT_EQ(112u, coredll::GetLastError());
}

TEST(PosixError, fail_notes_the_code_and_returns_0) {
  EXPECT_EQ(0, posix::Fail(87));
  EXPECT_EQ(87u, coredll::GetLastError());
}

}  // namespace
}  // namespace orba

// CreateFileW and CloseHandle: names, reasons of failure, exclusive opens, the handle table.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <vector>

#include "unit/platform/platform_test.h"
#include "unit/platform/system_calls.h"

namespace orba {
namespace {

using coredll::CloseHandle;
using coredll::CreateFileW;
using coredll::GetLastError;
using coredll::Handle;
using coredll::kGenericReadWrite;
using coredll::kInvalidHandle;
using coredll::kOpenExisting;

class PosixOpen : public PlatformTest {};

// The descriptor behind the file of that name in this process, or -1.
int DescriptorOf(const std::string& path) {
  struct stat wanted, found;
  if (stat(path.c_str(), &wanted) != 0) return -1;
  for (int descriptor = 0; descriptor < 256; descriptor++) {
    if (fstat(descriptor, &found) == 0 && found.st_ino == wanted.st_ino && found.st_dev == wanted.st_dev) {
      return descriptor;
    }
  }
  return -1;
}

// ---- Creating and opening -------------------------------------------------------------------------------------------

TEST_F(PosixOpen, create_new_name_makes_an_empty_file) {
  const Handle file = Create(Path("new"));
  ASSERT_NE(kInvalidHandle, file);
  EXPECT_NE(0u, file);
  EXPECT_EQ(0u, coredll::GetFileSize(file, nullptr));
  EXPECT_EQ(1, CloseHandle(file));
  EXPECT_TRUE(Exists("new"));
  EXPECT_EQ("", Contents("new"));
}

TEST_F(PosixOpen, create_new_name_obeys_the_umask) {
  const mode_t old = umask(027);
  const uint32_t code = CreateCode(Path("new"));
  umask(old);
  ASSERT_EQ(0u, code);
  struct stat status;
  ASSERT_EQ(0, stat(Path("new").c_str(), &status));
  EXPECT_EQ(0640u, status.st_mode & 0777);
}

TEST_F(PosixOpen, create_new_name_makes_the_name_durable) {
  ASSERT_EQ(0u, CreateCode(Path("new")));
  EXPECT_EQ(1u, systemcalls::Count(systemcalls::kFsync));
}

TEST_F(PosixOpen, create_in_a_folder_that_cannot_be_synchronised_succeeds) {
  systemcalls::FailNth(systemcalls::kOpen, 2, EACCES);
  EXPECT_EQ(0u, CreateCode(Path("new")));
  systemcalls::FailNext(systemcalls::kFsync, EINVAL);
  EXPECT_EQ(0u, CreateCode(Path("other")));
}

TEST_F(PosixOpen, create_existing_file_fails_with_80_and_keeps_it) {
  MakeFile("old", "contents");
  EXPECT_EQ(80u, CreateCode(Path("old")));
  EXPECT_EQ("contents", Contents("old"));
}

TEST_F(PosixOpen, create_existing_folder_fails_with_80) {
  ASSERT_EQ(0, mkdir(Path("sub").c_str(), 0777));
  EXPECT_EQ(80u, CreateCode(Path("sub")));
}

TEST_F(PosixOpen, create_through_a_dangling_link_fails_with_80) {
  ASSERT_EQ(0, symlink("nowhere", Path("link").c_str()));
  EXPECT_EQ(80u, CreateCode(Path("link")));
  EXPECT_FALSE(Exists("nowhere"));
}

TEST_F(PosixOpen, open_existing_file_keeps_its_contents_and_knows_its_size) {
  MakeFile("old", "contents");
  const Handle file = Open(Path("old"));
  ASSERT_NE(kInvalidHandle, file);
  EXPECT_EQ(8u, coredll::GetFileSize(file, nullptr));
  EXPECT_EQ("contents", Read(file, 8));
  EXPECT_EQ(1, CloseHandle(file));
}

TEST_F(PosixOpen, open_relative_name_starts_at_the_current_directory) {
  MakeFile("old", "contents");
  EXPECT_EQ(0u, InChild([&] { return chdir(folder().c_str()) == 0 ? OpenCode("old") : kChildDied; }));
  EXPECT_EQ(2u, InChild([&] { return chdir(folder().c_str()) == 0 ? OpenCode("other") : kChildDied; }));
  EXPECT_EQ(0u, InChild([&] { return chdir(folder().c_str()) == 0 ? CreateCode("new") : kChildDied; }));
  EXPECT_TRUE(Exists("new"));
}

TEST_F(PosixOpen, open_is_not_inherited_by_other_programs) {
  const Handle file = Create(Path("new"));
  const int descriptor = DescriptorOf(Path("new"));
  ASSERT_NE(-1, descriptor);
  EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD));
  CloseHandle(file);
  EXPECT_EQ(-1, DescriptorOf(Path("new")));
}

TEST_F(PosixOpen, open_without_standard_streams_leaves_them_closed) {
  MakeFile("old", "contents");
  const uint32_t taken = InChild([&] {
    for (int stream = 0; stream <= 2; stream++) close(stream);
    const Handle old = Open(Path("old"));
    const Handle fresh = Create(Path("new"));
    if (old == kInvalidHandle || fresh == kInvalidHandle) return kChildDied;
    uint32_t count = 0;
    for (int stream = 0; stream <= 2; stream++) count += fcntl(stream, F_GETFD) >= 0;
    if (OpenCode(Path("old")) != 32) return kChildDied;  // the lock came along
    return count;
  });
  EXPECT_EQ(0u, taken);
}

TEST_F(PosixOpen, create_without_standard_input_takes_another_descriptor_or_creates_nothing) {
  const int input = dup(0);
  close(0);
  systemcalls::FailNext(systemcalls::kFcntl, EMFILE);
  const uint32_t refused = CreateCode(Path("refused"));
  const Handle file = Create(Path("new"));
  const int inputAfter = fcntl(0, F_GETFD);
  CloseHandle(file);
  dup2(input, 0);
  close(input);
  EXPECT_EQ(4u, refused);
  EXPECT_FALSE(Exists("refused"));
  EXPECT_NE(kInvalidHandle, file);
  EXPECT_EQ(-1, inputAfter);
}

TEST_F(PosixOpen, open_without_standard_input_is_one_call_whatever_was_interrupted_before) {
  MakeFile("old", "contents");
  const uint32_t calls = InChild([&] {
    close(0);
    errno = EINTR;
    if (Open(Path("old")) == kInvalidHandle) return kChildDied;
    return systemcalls::Count(systemcalls::kOpen);
  });
  EXPECT_EQ(1u, calls);
}

// ---- Names ----------------------------------------------------------------------------------------------------------

TEST_F(PosixOpen, create_name_is_utf8_on_the_host) {
  ASSERT_EQ(0u, CreateCode(Path("a\u00E9\u20AC\U0001F600")));
  EXPECT_TRUE(Exists("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
}

TEST_F(PosixOpen, create_unpaired_surrogate_fails_with_123_and_creates_nothing) {
  const std::u16string start = Wide(Path("x"));
  for (const std::u16string& end : {std::u16string{0xD83D}, std::u16string{0xDE00}, std::u16string{0xDE00, 0xD83D}}) {
    const std::u16string name = start + end;
    EXPECT_EQ(kInvalidHandle, CreateFileW(name.c_str(), kGenericReadWrite, 0, nullptr, coredll::kCreateNew, 0, 0));
    EXPECT_EQ(123u, GetLastError());
  }
  EXPECT_EQ(0u, systemcalls::Count(systemcalls::kOpen));
}

TEST_F(PosixOpen, open_empty_or_null_name_fails_with_3) {
  EXPECT_EQ(3u, OpenCode(""));
  EXPECT_EQ(3u, CreateCode(""));
  EXPECT_EQ(kInvalidHandle, CreateFileW(nullptr, kGenericReadWrite, 0, nullptr, kOpenExisting, 0, 0));
  EXPECT_EQ(3u, GetLastError());
}

TEST_F(PosixOpen, create_name_of_255_bytes_is_the_longest) {
  EXPECT_EQ(0u, CreateCode(Path(std::string(255, 'n'))));
  EXPECT_EQ(123u, CreateCode(Path(std::string(256, 'n'))));
}

TEST_F(PosixOpen, create_path_of_4095_bytes_is_the_longest) {
  static_assert(PATH_MAX == 4096, "the terminator counts");
  std::string path = folder() + "/";
  while (path.size() < PATH_MAX - 10) path += "./";
  path += std::string(PATH_MAX - 1 - path.size(), 'n');
  ASSERT_EQ(4095u, path.size());
  EXPECT_EQ(0u, CreateCode(path));
  EXPECT_EQ(123u, CreateCode(path + "n"));
  EXPECT_EQ(123u, CreateCode(path + std::string(5000, 'n')));
}

TEST_F(PosixOpen, open_name_the_medium_refuses_fails_with_123) {
  systemcalls::FailNext(systemcalls::kOpen, EINVAL);
  EXPECT_EQ(123u, OpenCode(Path("old")));
}

TEST_F(PosixOpen, open_other_arguments_fail_with_87) {
  MakeFile("old", "contents");
  const std::u16string name = Wide(Path("old"));
  EXPECT_EQ(kInvalidHandle, CreateFileW(name.c_str(), 0x80000000, 0, nullptr, kOpenExisting, 0, 0));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(kInvalidHandle, CreateFileW(name.c_str(), kGenericReadWrite, 1, nullptr, kOpenExisting, 0, 0));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ(kInvalidHandle, CreateFileW(name.c_str(), kGenericReadWrite, 0, nullptr, 2, 0, 0));
  EXPECT_EQ(87u, GetLastError());
  EXPECT_EQ("contents", Contents("old"));
}

// ---- Reasons of failure ---------------------------------------------------------------------------------------------

TEST_F(PosixOpen, open_missing_file_fails_with_2) { EXPECT_EQ(2u, OpenCode(Path("none"))); }

TEST_F(PosixOpen, open_missing_folder_fails_with_3) { EXPECT_EQ(3u, OpenCode(Path("none/file"))); }

TEST_F(PosixOpen, open_missing_folder_above_the_last_fails_with_3) { EXPECT_EQ(3u, OpenCode(Path("none/sub/file"))); }

TEST_F(PosixOpen, open_missing_file_in_the_root_fails_with_2) { EXPECT_EQ(2u, OpenCode("/orba_no_such_file")); }

TEST_F(PosixOpen, open_dangling_link_fails_with_2) {
  ASSERT_EQ(0, symlink("nowhere", Path("link").c_str()));
  EXPECT_EQ(2u, OpenCode(Path("link")));
}

TEST_F(PosixOpen, open_link_to_itself_fails_with_3) {
  ASSERT_EQ(0, symlink("link", Path("link").c_str()));
  EXPECT_EQ(3u, OpenCode(Path("link")));
}

TEST_F(PosixOpen, open_file_as_folder_fails_with_3) {
  MakeFile("old", "contents");
  EXPECT_EQ(3u, OpenCode(Path("old/file")));
  EXPECT_EQ(3u, CreateCode(Path("old/file")));
}

TEST_F(PosixOpen, create_in_missing_folder_fails_with_3) { EXPECT_EQ(3u, CreateCode(Path("none/file"))); }

TEST_F(PosixOpen, open_folder_fails_with_5) { EXPECT_EQ(5u, OpenCode(folder())); }

TEST_F(PosixOpen, open_fifo_fails_with_5_at_once) {
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0666));
  EXPECT_EQ(5u, OpenCode(Path("fifo")));
}

TEST_F(PosixOpen, open_device_fails_with_5) {
  EXPECT_EQ(5u, OpenCode("/dev/null"));
  EXPECT_EQ(5u, OpenCode("/dev/full"));
}

TEST_F(PosixOpen, open_socket_fails_with_21) {
  const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(Path("socket").copy(address.sun_path, sizeof address.sun_path - 1), sizeof address.sun_path - 1);
  ASSERT_EQ(0, bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address));
  close(descriptor);
  EXPECT_EQ(21u, OpenCode(Path("socket")));
}

// As a user who owns nothing: permissions do not bind the superuser.
uint32_t AsNobody(const std::function<uint32_t()>& work) {
  return InChild([&] { return geteuid() != 0 || setuid(65534) == 0 ? work() : kChildDied; });
}

TEST_F(PosixOpen, open_without_permission_fails_with_5) {
  MakeFile("old", "contents");
  ASSERT_EQ(0, chmod(folder().c_str(), 0755));
  ASSERT_EQ(0, chmod(Path("old").c_str(), 0444));
  EXPECT_EQ(5u, AsNobody([&] { return OpenCode(Path("old")); }));
}

TEST_F(PosixOpen, create_without_permission_fails_with_5) {
  ASSERT_EQ(0, chmod(folder().c_str(), 0555));
  EXPECT_EQ(5u, AsNobody([&] { return CreateCode(Path("new")); }));
  ASSERT_EQ(0, chmod(folder().c_str(), 0755));
  EXPECT_FALSE(Exists("new"));
}

TEST_F(PosixOpen, open_below_a_closed_folder_fails_with_5) {
  ASSERT_EQ(0, mkdir(Path("sub").c_str(), 0777));
  MakeFile("sub/old", "contents");
  ASSERT_EQ(0, chmod(folder().c_str(), 0755));
  ASSERT_EQ(0, chmod(Path("sub").c_str(), 0600));
  EXPECT_EQ(5u, AsNobody([&] { return OpenCode(Path("sub/old")); }));
  ASSERT_EQ(0, chmod(Path("sub").c_str(), 0700));
}

TEST_F(PosixOpen, open_write_protected_medium_fails_with_19) {
  systemcalls::FailNext(systemcalls::kOpen, EROFS);
  EXPECT_EQ(19u, OpenCode(Path("old")));
  // The same of a real one, where we may make one.
  const uint32_t code = InChild([&] { return EnterScratch(0x10000, true) ? CreateCode("new") : kNotPermitted; });
  if (code != kNotPermitted) {
    EXPECT_EQ(19u, code);
  }
}

TEST_F(PosixOpen, open_without_descriptors_fails_with_4) {
  MakeFile("old", "contents");
  const auto withDescriptors = [](rlim_t limit, uint32_t (*open)(const std::string&), const std::string& path) {
    return InChild([=] {
      const rlimit few = {limit, limit};
      return setrlimit(RLIMIT_NOFILE, &few) == 0 ? open(path) : kChildDied;
    });
  };
  EXPECT_EQ(0u, withDescriptors(64, OpenCode, Path("old")));
  EXPECT_EQ(4u, withDescriptors(3, OpenCode, Path("old")));
  EXPECT_EQ(4u, withDescriptors(3, CreateCode, Path("new")));
  EXPECT_FALSE(Exists("new"));
}

TEST_F(PosixOpen, open_until_descriptors_run_out_fails_with_4_and_goes_on_after_a_close) {
  const uint32_t code = InChild([&] {
    const rlimit few = {24, 24};
    setrlimit(RLIMIT_NOFILE, &few);
    std::vector<Handle> files;
    Handle file;
    while ((file = Create(Path(std::to_string(files.size())))) != kInvalidHandle) files.push_back(file);
    if (files.size() < 8 || GetLastError() != 4) return kChildDied;
    CloseHandle(files.back());
    return CreateCode(Path("last"));
  });
  EXPECT_EQ(0u, code);
}

struct RefusedCase {
  int error;
  uint32_t code;
};

TEST_F(PosixOpen, open_host_refusals_have_their_codes) {
  MakeFile("old", "contents");
  const RefusedCase refusals[] = {{ENFILE, 4},   {EPERM, 5},    {ENOMEM, 8},      {ENXIO, 21},     {ENODEV, 21},
                                  {EIO, 31},     {ETXTBSY, 32}, {EAGAIN, 32},     {ENOMEDIUM, 21}, {ENOSPC, 112},
                                  {EDQUOT, 112}, {EILSEQ, 123}, {ECANCELED, 1235}};
  for (const RefusedCase& refused : refusals) {
    systemcalls::FailNext(systemcalls::kOpen, refused.error);
    EXPECT_EQ(refused.code, OpenCode(Path("old"))) << "errno " << refused.error;
  }
  EXPECT_EQ(0u, OpenCode(Path("old")));
}

TEST_F(PosixOpen, open_interrupted_goes_on) {
  MakeFile("old", "contents");
  systemcalls::FailNext(systemcalls::kOpen, EINTR);
  EXPECT_EQ(0u, OpenCode(Path("old")));
  EXPECT_EQ(2u, systemcalls::Count(systemcalls::kOpen));
}

TEST_F(PosixOpen, lock_interrupted_goes_on) {
  MakeFile("old", "contents");
  systemcalls::FailNext(systemcalls::kFlock, EINTR);
  EXPECT_EQ(0u, OpenCode(Path("old")));
  systemcalls::FailNext(systemcalls::kFlock, ENOLCK);
  systemcalls::FailNext(systemcalls::kFcntl, EINTR);
  EXPECT_EQ(0u, OpenCode(Path("old")));
}

TEST_F(PosixOpen, create_whose_lock_fails_fails_and_creates_nothing) {
  systemcalls::FailNext(systemcalls::kFlock, EIO);
  EXPECT_EQ(31u, CreateCode(Path("new")));
  EXPECT_FALSE(Exists("new"));
  systemcalls::FailNext(systemcalls::kFlock, ENOLCK);
  systemcalls::FailNext(systemcalls::kFcntl, EIO);
  EXPECT_EQ(31u, CreateCode(Path("new")));
  EXPECT_FALSE(Exists("new"));
}

TEST_F(PosixOpen, create_that_loses_the_new_file_to_another_fails_with_32_and_leaves_it) {
  systemcalls::FailNext(systemcalls::kFlock, EWOULDBLOCK);
  EXPECT_EQ(32u, CreateCode(Path("new")));
  EXPECT_TRUE(Exists("new"));
}

TEST_F(PosixOpen, open_that_fails_late_keeps_the_file_and_no_descriptor) {
  MakeFile("old", "contents");
  systemcalls::FailNext(systemcalls::kFstat, EIO);
  EXPECT_EQ(31u, OpenCode(Path("old")));
  EXPECT_EQ("contents", Contents("old"));
  EXPECT_EQ(-1, DescriptorOf(Path("old")));
  EXPECT_EQ(0u, OpenCode(Path("old")));
}

TEST_F(PosixOpen, create_without_memory_fails_with_8_and_creates_nothing) {
  systemcalls::FailNext(systemcalls::kRealloc, ENOMEM);
  EXPECT_EQ(8u, CreateCode(Path("new")));
  EXPECT_FALSE(Exists("new"));
}

TEST_F(PosixOpen, open_without_memory_for_a_larger_table_keeps_the_others) {
  std::vector<Handle> files;
  for (int i = 0; i < 8; i++) files.push_back(Create(Path(std::to_string(i))));
  systemcalls::FailNext(systemcalls::kRealloc, ENOMEM);
  EXPECT_EQ(8u, CreateCode(Path("ninth")));
  for (const Handle file : files) Write(file, "x");
  EXPECT_EQ(0u, CreateCode(Path("ninth")));
  for (const Handle file : files) EXPECT_EQ(1, CloseHandle(file));
}

// ---- Exclusive opens ------------------------------------------------------------------------------------------------

TEST_F(PosixOpen, open_twice_fails_with_32_until_closed) {
  MakeFile("old", "contents");
  const Handle file = Open(Path("old"));
  EXPECT_EQ(32u, OpenCode(Path("old")));
  EXPECT_EQ(32u, OpenCode(Path("old")));
  EXPECT_EQ("contents", Read(file, 8));
  EXPECT_EQ(1, CloseHandle(file));
  EXPECT_EQ(0u, OpenCode(Path("old")));
}

TEST_F(PosixOpen, open_a_file_being_created_fails_with_32) {
  const Handle file = Create(Path("new"));
  EXPECT_EQ(32u, OpenCode(Path("new")));
  EXPECT_EQ(80u, CreateCode(Path("new")));
  CloseHandle(file);
}

TEST_F(PosixOpen, open_under_another_name_fails_with_32) {
  MakeFile("old", "contents");
  ASSERT_EQ(0, link(Path("old").c_str(), Path("hard").c_str()));
  ASSERT_EQ(0, symlink("old", Path("soft").c_str()));
  const Handle file = Open(Path("old"));
  EXPECT_EQ(32u, OpenCode(Path("hard")));
  EXPECT_EQ(32u, OpenCode(Path("soft")));
  CloseHandle(file);
}

TEST_F(PosixOpen, open_in_another_process_fails_with_32_until_closed) {
  MakeFile("old", "contents");
  const Handle file = Open(Path("old"));
  EXPECT_EQ(32u, InChild([&] { return OpenCode(Path("old")); }));
  EXPECT_EQ(32u, OpenCode(Path("old")));  // the end of that process, which closed its copies, took no lock along
  CloseHandle(file);
  EXPECT_EQ(0u, InChild([&] { return OpenCode(Path("old")); }));
}

TEST_F(PosixOpen, open_of_what_a_killed_process_held_succeeds) {
  MakeFile("old", "contents");
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const pid_t holder = fork();
  if (holder == 0) {
    const char opened = Open(Path("old")) != kInvalidHandle;
    if (write(ends[1], &opened, 1) == 1) pause();
    _exit(1);
  }
  char opened = 0;
  EXPECT_EQ(1, read(ends[0], &opened, 1));
  EXPECT_EQ(1, opened);
  EXPECT_EQ(32u, OpenCode(Path("old")));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_EQ(0u, OpenCode(Path("old")));
  close(ends[0]);
  close(ends[1]);
}

TEST_F(PosixOpen, close_while_a_forked_process_lives_on_ends_the_lock) {
  const Handle file = Create(Path("new"));
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const pid_t heir = fork();
  if (heir == 0) {
    char end;
    close(ends[1]);
    _exit(read(ends[0], &end, 1) == 0 ? 0 : 1);
  }
  EXPECT_EQ(1, CloseHandle(file));
  EXPECT_EQ(0u, OpenCode(Path("new")));
  close(ends[1]);
  int status = -1;
  EXPECT_EQ(heir, waitpid(heir, &status, 0));
  EXPECT_EQ(0, status);
  close(ends[0]);
}

TEST_F(PosixOpen, open_what_another_program_holds_a_lease_on_fails_with_32_at_once) {
  MakeFile("old", "contents");
  const uint32_t code = InChild([&] {
    signal(SIGIO, SIG_IGN);  // the holder is asked to give the lease up
    const int holder = open(Path("old").c_str(), O_RDONLY);
    return fcntl(holder, F_SETLEASE, F_RDLCK) == 0 ? OpenCode(Path("old")) : 0xBADu;
  });
  if (code == 0xBAD) GTEST_SKIP() << "this file system has no leases";
  EXPECT_EQ(32u, code);
}

// ---- File systems that lack locks -----------------------------------------------------------------------------------

constexpr int kUnsupported[] = {ENOLCK, ENOSYS, EOPNOTSUPP};

// Opens as where flock does not work.
Handle OpenWithoutFlock(const std::string& path) {
  systemcalls::FailNext(systemcalls::kFlock, ENOLCK);
  return Open(path);
}

TEST_F(PosixOpen, open_where_flock_is_missing_takes_the_range_until_closed) {
  MakeFile("old", "contents");
  for (const int error : kUnsupported) {
    systemcalls::FailNext(systemcalls::kFlock, error);
    const Handle file = Open(Path("old"));
    ASSERT_NE(kInvalidHandle, file) << "errno " << error;
    EXPECT_EQ(kInvalidHandle, OpenWithoutFlock(Path("old")));
    EXPECT_EQ(32u, GetLastError());
    const uint32_t elsewhere =
        InChild([&] { return OpenWithoutFlock(Path("old")) == kInvalidHandle ? GetLastError() : 0; });
    EXPECT_EQ(32u, elsewhere);
    EXPECT_EQ("contents", Read(file, 8));
    EXPECT_EQ(1, CloseHandle(file));
    const Handle again = OpenWithoutFlock(Path("old"));
    EXPECT_NE(kInvalidHandle, again);
    CloseHandle(again);
  }
}

TEST_F(PosixOpen, open_a_range_that_another_holds_fails_with_32) {
  MakeFile("old", "contents");
  for (const int error : {EAGAIN, EACCES}) {
    systemcalls::FailNext(systemcalls::kFcntl, error);
    EXPECT_EQ(kInvalidHandle, OpenWithoutFlock(Path("old")));
    EXPECT_EQ(32u, GetLastError()) << "errno " << error;
  }
}

TEST_F(PosixOpen, close_of_a_range_while_a_forked_process_lives_on_ends_the_lock) {
  MakeFile("old", "contents");
  const Handle file = OpenWithoutFlock(Path("old"));
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const pid_t heir = fork();
  if (heir == 0) {
    char end;
    close(ends[1]);
    _exit(read(ends[0], &end, 1) == 0 ? 0 : 1);
  }
  EXPECT_EQ(1, CloseHandle(file));
  const Handle again = OpenWithoutFlock(Path("old"));
  EXPECT_NE(kInvalidHandle, again);
  CloseHandle(again);
  close(ends[1]);
  int status = -1;
  EXPECT_EQ(heir, waitpid(heir, &status, 0));
  EXPECT_EQ(0, status);
  close(ends[0]);
}

TEST_F(PosixOpen, open_where_there_are_no_locks_opens_without_one) {
  MakeFile("old", "contents");
  for (const int error : {ENOLCK, ENOSYS, EOPNOTSUPP, EINVAL}) {
    systemcalls::FailNext(systemcalls::kFcntl, error);
    const Handle file = OpenWithoutFlock(Path("old"));
    ASSERT_NE(kInvalidHandle, file) << "errno " << error;
    const Handle other = Open(Path("old"));
    EXPECT_NE(kInvalidHandle, other) << "nothing keeps the two apart";
    EXPECT_EQ(1, CloseHandle(other));
    systemcalls::Reset();
    EXPECT_EQ(1, CloseHandle(file));
    EXPECT_EQ(1u, systemcalls::CountAll());
  }
}

TEST_F(PosixOpen, create_where_there_are_no_locks_creates) {
  systemcalls::FailNext(systemcalls::kFlock, EOPNOTSUPP);
  systemcalls::FailNext(systemcalls::kFcntl, EOPNOTSUPP);
  EXPECT_EQ(0u, CreateCode(Path("new")));
  EXPECT_TRUE(Exists("new"));
}

// ---- Handles --------------------------------------------------------------------------------------------------------

TEST_F(PosixOpen, close_bad_handle_fails_with_6) {
  for (const Handle handle : {0u, 1u, 8u, 0x10000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    EXPECT_EQ(0, CloseHandle(handle));
    EXPECT_EQ(6u, GetLastError());
  }
}

TEST_F(PosixOpen, close_twice_fails_with_6) {
  const Handle file = Create(Path("new"));
  const Handle other = Create(Path("other"));
  EXPECT_EQ(1, CloseHandle(file));
  EXPECT_EQ(0, CloseHandle(file));
  EXPECT_EQ(6u, GetLastError());
  EXPECT_EQ(1, CloseHandle(other));
}

TEST_F(PosixOpen, close_interrupted_succeeds) {
  const Handle file = Create(Path("new"));
  systemcalls::FailNext(systemcalls::kClose, EINTR);
  EXPECT_EQ(1, CloseHandle(file));
  EXPECT_EQ(0u, OpenCode(Path("new")));
}

TEST_F(PosixOpen, close_that_loses_data_fails_and_the_handle_is_gone) {
  const RefusedCase refusals[] = {{EIO, 31}, {ENOSPC, 112}, {EDQUOT, 112}};
  for (const RefusedCase& refused : refusals) {
    const Handle file = Create(Path(std::to_string(refused.error)));
    systemcalls::FailNext(systemcalls::kClose, refused.error);
    EXPECT_EQ(0, CloseHandle(file));
    EXPECT_EQ(refused.code, GetLastError());
    EXPECT_EQ(0, CloseHandle(file));
    EXPECT_EQ(6u, GetLastError());
  }
}

TEST_F(PosixOpen, open_many_files_have_handles_contents_and_positions_of_their_own) {
  std::vector<Handle> files;
  for (int i = 0; i < 100; i++) {
    files.push_back(Create(Path(std::to_string(i))));
    ASSERT_NE(kInvalidHandle, files.back());
    Write(files.back(), std::to_string(i));
  }
  EXPECT_EQ(100u, std::set<Handle>(files.begin(), files.end()).size());
  for (int i = 0; i < 100; i++) {
    const uint32_t size = static_cast<uint32_t>(std::to_string(i).size());
    EXPECT_EQ(size, coredll::SetFilePointer(files[static_cast<size_t>(i)], 0, nullptr, coredll::kFileCurrent));
    EXPECT_EQ(size, coredll::GetFileSize(files[static_cast<size_t>(i)], nullptr));
  }
  for (const Handle file : files) EXPECT_EQ(1, CloseHandle(file));
  for (int i = 0; i < 100; i++) EXPECT_EQ(std::to_string(i), Contents(std::to_string(i)));
}

TEST_F(PosixOpen, close_of_the_last_file_gives_the_memory_back) {
  std::vector<Handle> files;
  for (int i = 0; i < 20; i++) files.push_back(Create(Path(std::to_string(i))));
  EXPECT_EQ(1, systemcalls::BlocksHeld());
  for (const Handle file : files) EXPECT_EQ(1, CloseHandle(file));
  EXPECT_EQ(0, systemcalls::BlocksHeld());
  EXPECT_EQ(2u, OpenCode(Path("none")));
  EXPECT_EQ(0, systemcalls::BlocksHeld());
}

TEST_F(PosixOpen, open_after_a_close_starts_at_position_0) {
  const Handle keep = Create(Path("keep"));
  const Handle file = Create(Path("new"));
  Write(file, "contents");
  CloseHandle(file);
  const Handle again = Open(Path("new"));
  EXPECT_EQ(0u, coredll::SetFilePointer(again, 0, nullptr, coredll::kFileCurrent));
  EXPECT_EQ(8u, coredll::GetFileSize(again, nullptr));
  CloseHandle(again);
  CloseHandle(keep);
}

}  // namespace
}  // namespace orba

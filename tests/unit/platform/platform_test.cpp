#include "unit/platform/platform_test.h"

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "unit/platform/system_calls.h"

namespace orba {

uint32_t InChild(const std::function<uint32_t()>& work) {
  int ends[2];
  if (pipe(ends) != 0) return kChildDied;
  const pid_t child = fork();
  if (child == 0) {
    const uint32_t result = work();
    _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  close(ends[1]);
  uint32_t result = kChildDied;
  if (read(ends[0], &result, sizeof result) != sizeof result) result = kChildDied;
  close(ends[0]);
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) result = kChildDied;
  return result;
}

PlatformTest::PlatformTest() {
  systemcalls::Reset();
  folder_ = std::filesystem::temp_directory_path() / "orba_platform_XXXXXX";
  if (mkdtemp(folder_.data()) == nullptr) throw std::runtime_error("no scratch folder " + folder_);
}

PlatformTest::~PlatformTest() {
  systemcalls::Reset();
  std::filesystem::remove_all(folder_);
}

bool PlatformTest::Exists(const std::string& name) const {
  return std::filesystem::exists(std::filesystem::symlink_status(Path(name)));
}

std::string PlatformTest::Contents(const std::string& name) const {
  std::ifstream file(Path(name), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void PlatformTest::MakeFile(const std::string& name, const std::string& contents) const {
  std::ofstream(Path(name), std::ios::binary) << contents;
}

std::u16string Wide(const std::string& text) { return std::filesystem::path(text).u16string(); }

coredll::Handle Create(const std::string& path) {
  return coredll::CreateFileW(Wide(path).c_str(), coredll::kGenericReadWrite, 0, nullptr, coredll::kCreateNew,
                              coredll::kRandomAccess, 0);
}

coredll::Handle Open(const std::string& path) {
  return coredll::CreateFileW(Wide(path).c_str(), coredll::kGenericReadWrite, 0, nullptr, coredll::kOpenExisting,
                              coredll::kRandomAccess, 0);
}

namespace {

uint32_t CodeOf(coredll::Handle file) {
  if (file == coredll::kInvalidHandle) return coredll::GetLastError();
  coredll::CloseHandle(file);
  return 0;
}

}  // namespace

uint32_t OpenCode(const std::string& path) { return CodeOf(Open(path)); }
uint32_t CreateCode(const std::string& path) { return CodeOf(Create(path)); }

void Write(coredll::Handle file, const std::string& bytes) {
  uint32_t done = 0;
  EXPECT_EQ(1, coredll::WriteFile(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &done, nullptr));
  EXPECT_EQ(bytes.size(), done);
}

std::string Read(coredll::Handle file, uint32_t count) {
  std::string bytes(count, '?');
  uint32_t done = 0;
  EXPECT_EQ(1, coredll::ReadFile(file, bytes.data(), count, &done, nullptr));
  EXPECT_EQ(count, done);
  return bytes;
}

// The file system is mounted nowhere: no other process sees it, and it works below a changed root too.
bool EnterScratch(uint32_t bytes, bool readOnly) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (user != 0) {  // becomes the superuser of a name space of its own
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    if (geteuid() != 0) return false;
  }
  const int configuration = fsopen("tmpfs", 0);
  if (configuration < 0) return false;
  const bool made = fsconfig(configuration, FSCONFIG_SET_STRING, "size", std::to_string(bytes).c_str(), 0) == 0 &&
                    fsconfig(configuration, FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) == 0;
  const int root = made ? fsmount(configuration, 0, readOnly ? MOUNT_ATTR_RDONLY : 0) : -1;
  return root >= 0 && fchdir(root) == 0;
}

}  // namespace orba

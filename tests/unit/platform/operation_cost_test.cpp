// What operations cost, exactly: the container calls that the library makes and the system calls that the host makes of
// them. Reads of what was read before cost no system call, each write costs one, and so does making something durable.
#include <ostream>
#include <string>
#include <vector>

#include "orba.h"
#include "unit/platform/platform_test.h"
#include "unit/platform/system_calls.h"

namespace orba {
namespace {

constexpr uint32_t kBlock = 4096;

struct Cost {
  uint32_t reads, writes, seeks;  // container calls
  uint32_t systemCalls;

  bool operator==(const Cost& other) const {
    return reads == other.reads && writes == other.writes && seeks == other.seeks && systemCalls == other.systemCalls;
  }
};

std::ostream& operator<<(std::ostream& out, const Cost& cost) {
  return out << "{" << cost.reads << ", " << cost.writes << ", " << cost.seeks << ", " << cost.systemCalls << "}";
}

template <typename Operation>
Cost CostOf(Operation operation) {
  const Cost before = {g_dwReadCount, g_dwWriteCount, g_dwSeekCount, systemcalls::CountAll()};
  operation();
  return {g_dwReadCount - before.reads, g_dwWriteCount - before.writes, g_dwSeekCount - before.seeks,
          systemcalls::CountAll() - before.systemCalls};
}

// A new volume of 4 KiB blocks, mounted as V.
class OperationCost : public PlatformTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(OrbCreateVolume(Container().c_str()));
    ASSERT_TRUE(OrbMountVolume(Container().c_str(), u"V"));
  }
  void TearDown() override { OrbUnmountVolumeA("V"); }

  std::u16string Container() const { return Wide(Path("container")); }

  static std::string Name(uint32_t number) { return "V:/FILE" + std::to_string(number); }
  static void CreateFiles(uint32_t count) {
    for (uint32_t i = 0; i < count; i++) ASSERT_TRUE(OrbCreateFileA(Name(i).c_str(), 0));
  }
  static OrbHandle OpenFile(const std::string& path) {
    const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ | ORB_OPEN_WRITE);
    EXPECT_NE(ORB_INVALID_HANDLE, file);
    return file;
  }
  static OrbHandle NewFile(const std::string& path, uint32_t blocks) {
    EXPECT_TRUE(OrbCreateFileA(path.c_str(), 0));
    const OrbHandle file = OpenFile(path);
    const std::vector<char> bytes(size_t{blocks} * kBlock, 'x');
    Transfer(OrbWriteFile, file, bytes);
    OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN);
    return file;
  }
  template <typename Call, typename Bytes>
  static void Transfer(Call call, OrbHandle file, Bytes& bytes) {
    OrbU32 done = 0;
    EXPECT_TRUE(call(file, bytes.data(), static_cast<OrbU32>(bytes.size()), &done));
    EXPECT_EQ(bytes.size(), done);
  }
  static void ReadWhole(OrbHandle file, uint32_t blocks) {
    std::vector<char> bytes(kBlock);
    OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN);
    for (uint32_t i = 0; i < blocks; i++) Transfer(OrbReadFile, file, bytes);
  }
  static uint32_t FilesFound() {
    OrbFindDataA found;
    const OrbHandle search = OrbFindFirstFileA("V:/FILE*", &found);
    uint32_t files = 1;
    while (OrbFindNextFileA(search, &found)) files++;
    OrbFindClose(search);
    return files;
  }
};

TEST_F(OperationCost, read_a_file_again_costs_no_system_call) {
  const OrbHandle file = NewFile("V:/FILE", 100);
  EXPECT_EQ((Cost{194, 0, 194, 8}), CostOf([&] { ReadWhole(file, 100); }));
  EXPECT_EQ((Cost{194, 0, 194, 0}), CostOf([&] { ReadWhole(file, 100); }));
  OrbCloseFile(file);
}

TEST_F(OperationCost, overwrite_a_block_costs_one_system_call) {
  const OrbHandle file = NewFile("V:/FILE", 100);
  ReadWhole(file, 100);
  const std::vector<char> bytes(kBlock, 'y');
  OrbSetFilePointer(file, 50 * kBlock, ORB_SEEK_BEGIN);
  EXPECT_EQ((Cost{1, 1, 2, 1}), CostOf([&] { Transfer(OrbWriteFile, file, bytes); }));
  OrbCloseFile(file);
}

TEST_F(OperationCost, append_a_block_costs_a_system_call_for_each_write) {
  const OrbHandle file = NewFile("V:/FILE", 100);
  const std::vector<char> bytes(kBlock, 'y');
  const auto append = [&] {
    OrbSetFilePointer(file, 0, ORB_SEEK_END);
    Transfer(OrbWriteFile, file, bytes);
  };
  append();
  EXPECT_EQ((Cost{0, 5, 5, 5}), CostOf(append));
  OrbCloseFile(file);
}

TEST_F(OperationCost, close_after_a_write_costs_one_system_call_and_otherwise_none) {
  OrbHandle file = NewFile("V:/FILE", 1);
  EXPECT_EQ((Cost{0, 0, 0, 1}), CostOf([&] { OrbCloseFile(file); }));
  file = OpenFile("V:/FILE");
  ReadWhole(file, 1);
  EXPECT_EQ((Cost{0, 0, 0, 0}), CostOf([&] { OrbCloseFile(file); }));
}

TEST_F(OperationCost, open_read_and_close_again_cost_no_system_call) {
  OrbCloseFile(NewFile("V:/FILE", 3));
  const auto openReadClose = [&] {
    const OrbHandle file = OpenFile("V:/FILE");
    ReadWhole(file, 3);
    OrbCloseFile(file);
  };
  openReadClose();
  EXPECT_EQ((Cost{5, 0, 5, 0}), CostOf(openReadClose));
}

TEST_F(OperationCost, look_up_again_costs_no_system_call) {
  CreateFiles(200);
  const auto lookUpLast = [] { EXPECT_EQ(0u, OrbGetFileAttributesA(Name(199).c_str())); };
  lookUpLast();
  EXPECT_EQ((Cost{3, 0, 3, 0}), CostOf(lookUpLast));
}

TEST_F(OperationCost, list_again_costs_no_system_call) {
  CreateFiles(200);
  EXPECT_EQ(200u, FilesFound());
  EXPECT_EQ((Cost{400, 0, 400, 0}), CostOf([] { EXPECT_EQ(200u, FilesFound()); }));
}

TEST_F(OperationCost, create_costs_a_system_call_for_each_write) {
  CreateFiles(200);
  EXPECT_EQ((Cost{3, 6, 9, 6}), CostOf([] { EXPECT_TRUE(OrbCreateFileA("V:/NEW", 0)); }));
}

TEST_F(OperationCost, rename_costs_a_system_call_for_each_write) {
  CreateFiles(200);
  EXPECT_TRUE(OrbRenameFileA(Name(99).c_str(), "OTHER"));
  EXPECT_EQ((Cost{3, 3, 6, 3}), CostOf([] { EXPECT_TRUE(OrbRenameFileA(Name(100).c_str(), "NEW")); }));
}

TEST_F(OperationCost, delete_costs_a_system_call_for_each_write) {
  CreateFiles(200);
  EXPECT_TRUE(OrbDeleteFileA(Name(99).c_str()));
  EXPECT_EQ((Cost{3, 6, 9, 6}), CostOf([] { EXPECT_TRUE(OrbDeleteFileA(Name(100).c_str())); }));
}

TEST_F(OperationCost, mount_costs_one_read_of_the_file) {
  OrbUnmountVolumeA("V");
  const auto mount = [&] { EXPECT_TRUE(OrbMountVolume(Container().c_str(), u"V")); };
  EXPECT_EQ((Cost{4, 0, 4, 4}), CostOf(mount));                           // open, lock, size, read
  EXPECT_EQ((Cost{0, 0, 0, 2}), CostOf([] { OrbUnmountVolumeA("V"); }));  // unlock, close
  mount();
}

}  // namespace
}  // namespace orba

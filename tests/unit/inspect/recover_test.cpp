#include "inspect/repair/recover.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

namespace fs = std::filesystem;
using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::Pattern;

class RecoverTest : public testing::Test {
 protected:
  void SetUp() override { fs::remove_all(root_); }
  void TearDown() override { fs::remove_all(root_); }

  Bytes Get(const std::string& path) const {
    std::ifstream file(root_ / path, std::ios::binary);
    EXPECT_TRUE(file.good()) << path;
    return Bytes(std::istreambuf_iterator<char>(file), {});
  }

  const fs::path root_ = fs::temp_directory_path() /
                         (std::string("orba_recover_") + testing::UnitTest::GetInstance()->current_test_info()->name());
};

struct Small : ImageBuilder {
  Small() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1500);
    AddDirectory(1, "D");
    AddFile(3, "B", 300 * 1024);
    AddDirectory(3, "E");
    AddFile(5, "EMPTY", 0);
  }
};

TEST_F(RecoverTest, sound_container_everything_is_copied) {
  const Small image;
  const Recovered result = Recover(MemoryImage(image.bytes()), root_);
  EXPECT_TRUE(result.possible);
  EXPECT_EQ(result.files, 3u);
  EXPECT_EQ(result.directories, 2u);
  EXPECT_EQ(result.bytes, 1500u + 300 * 1024);
  EXPECT_TRUE(result.repairs.empty());
  EXPECT_TRUE(result.failures.empty());
  EXPECT_EQ(Get("A"), Pattern(1500, 1501));
  EXPECT_EQ(Get("D/B"), Pattern(300 * 1024, 300 * 1024 + 1));
  EXPECT_EQ(Get("D/E/EMPTY"), Bytes());
}

TEST_F(RecoverTest, container_too_long_everything_is_copied) {
  struct Long : MemoryImage {
    using MemoryImage::MemoryImage;
    std::uint64_t Size() const override { return 0x80000000; }
    bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
      if (offset + count > Size()) return false;
      std::memset(out, 0, count);
      const std::uint64_t end = MemoryImage::Size();
      if (offset >= end) return true;
      return MemoryImage::Read(offset, out, static_cast<std::size_t>(std::min<std::uint64_t>(count, end - offset)));
    }
  };
  const Small image;
  const Recovered result = Recover(Long(image.bytes()), root_);
  EXPECT_TRUE(result.possible);
  EXPECT_EQ(result.files, 3u);
  EXPECT_EQ(result.unreadable, 0u);
  EXPECT_EQ(Get("D/B"), Pattern(300 * 1024, 300 * 1024 + 1));
}

TEST_F(RecoverTest, time_stamps_are_kept) {
  Recover(MemoryImage(Small().bytes()), root_);
  const auto age = fs::file_time_type::clock::now() - fs::last_write_time(root_ / "A");
  const auto now = std::chrono::system_clock::now();
  const auto then = std::chrono::system_clock::to_time_t(now - std::chrono::duration_cast<std::chrono::seconds>(age));
  EXPECT_NEAR(static_cast<double>(then), 1087302645.0, 5.0);  // 15 June 2004, 12:30:45
}

TEST_F(RecoverTest, time_stamp_centuries_away_copy_has_the_time_of_its_making) {
  for (const int year : {1601, 1899, 2201, 9999, 65535}) {
    fs::remove_all(root_);
    Small image;
    image.Put16(image.NodeOffset(2) + 8, static_cast<std::uint16_t>(year));
    EXPECT_EQ(Recover(MemoryImage(image.bytes()), root_).files, 3u) << year;
    const auto age = fs::file_time_type::clock::now() - fs::last_write_time(root_ / "A");
    EXPECT_LT(std::chrono::abs(age), std::chrono::hours(1)) << year;
  }
}

TEST_F(RecoverTest, damaged_container_names_survive_and_lost_nodes_are_there) {
  Small image;
  image.Put32(40, 0);                       // no block size
  image.SetFree(2, true);                   // A's node free
  image.Put16(image.EntryOffset(3, 2), 0);  // B without a name
  const Bytes before = image.bytes();
  const Recovered result = Recover(MemoryImage(before), root_);
  EXPECT_EQ(result.files, 3u);
  EXPECT_FALSE(result.repairs.empty());
  EXPECT_EQ(Get("A"), Pattern(1500, 1501));
  EXPECT_EQ(Get("LOST.FND/NODE0004"), Pattern(300 * 1024, 300 * 1024 + 1));
}

TEST_F(RecoverTest, host_cannot_read_a_part_zeros_stand_there) {
  struct Bad : MemoryImage {
    using MemoryImage::MemoryImage;
    std::uint64_t bad = 0;
    bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
      return !(offset <= bad && bad < offset + count) && MemoryImage::Read(offset, out, count);
    }
  };
  const Small image;
  Bad bad(image.bytes());
  bad.bad = image.BlockOffset(image.MappedBlock(2, 1)) + 5;
  const Recovered result = Recover(bad, root_);
  EXPECT_EQ(result.unreadable, 1u);
  Bytes contents = Pattern(1500, 1501);
  std::fill(contents.begin() + 1024, contents.end(), std::uint8_t{0});
  EXPECT_EQ(Get("A"), contents);
}

TEST_F(RecoverTest, names_that_hosts_reserve_are_changed_and_stay_unique) {
  ImageBuilder image(1024, 32);
  for (const char* name : {"AUX", "_AUX", "COM1.TXT", "COM", "END.", "END._", "NULL"}) image.AddFile(1, name, 3);
  const Recovered result = Recover(MemoryImage(image.bytes()), root_);
  EXPECT_EQ(result.files, 7u);
  for (const char* name : {"_AUX", "_AUX~2", "_COM1.TXT", "COM", "END._", "END._~2", "NULL"}) {
    EXPECT_TRUE(fs::exists(root_ / name)) << name;
  }
  EXPECT_EQ(result.renamed, (std::vector<std::string>{"/AUX -> _AUX", "/_AUX -> _AUX~2", "/COM1.TXT -> _COM1.TXT",
                                                      "/END. -> END._", "/END._ -> END._~2"}));
}

TEST_F(RecoverTest, file_is_there_already_is_not_overwritten) {
  fs::create_directories(root_);
  std::ofstream(root_ / "A") << "mine";
  const Recovered result = Recover(MemoryImage(Small().bytes()), root_);
  EXPECT_EQ(result.files, 2u);
  ASSERT_EQ(result.failures.size(), 1u);
  EXPECT_EQ(result.failures[0].find("/A: "), 0u);
  EXPECT_EQ(Get("A"), (Bytes{'m', 'i', 'n', 'e'}));
}

TEST_F(RecoverTest, no_container_says_so_and_copies_nothing) {
  const Recovered result = Recover(MemoryImage(Bytes(50000, 3)), root_);
  EXPECT_FALSE(result.possible);
  EXPECT_EQ(result.failures.size(), 1u);
  EXPECT_FALSE(fs::exists(root_));
}

TEST_F(RecoverTest, step_is_told_each_path) {
  std::vector<std::string> paths;
  Recover(MemoryImage(Small().bytes()), root_, [&](const std::string& path) { paths.push_back(path); });
  EXPECT_EQ(paths, (std::vector<std::string>{"/A", "/D", "/D/B", "/D/E", "/D/E/EMPTY"}));
}

TEST(HostName, reserved_names_are_prefixed) {
  EXPECT_EQ(HostName("A.TXT"), "A.TXT");
  EXPECT_EQ(HostName("CON"), "_CON");
  EXPECT_EQ(HostName("PRN.A.B"), "_PRN.A.B");
  EXPECT_EQ(HostName("LPT9"), "_LPT9");
  EXPECT_EQ(HostName("LPT"), "LPT");
  EXPECT_EQ(HostName("LPT10"), "LPT10");
  EXPECT_EQ(HostName("CONE"), "CONE");
  EXPECT_EQ(HostName("X."), "X._");
}

}  // namespace
}  // namespace orba::inspect

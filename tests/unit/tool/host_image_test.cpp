#include "tools/orba/host_image.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "inspect/check/check.h"
#include "inspect/view/report.h"
#include "tests/support/image_builder.h"

namespace orba::tool {
namespace {

using inspect::Check;
using inspect::MemoryImage;
using inspect::ToJson;
using testimage::Bytes;
using testimage::Pattern;

class FileImageTest : public testing::Test {
 protected:
  void Store(const Bytes& bytes) {
    std::FILE* file = std::fopen(path_.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::fclose(file);
  }
  void TearDown() override { std::filesystem::remove(path_); }

  const std::string path_ = (std::filesystem::temp_directory_path() /
                             ("orba_image_test_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                              ::testing::UnitTest::GetInstance()->current_test_info()->name()))
                                .string();
};

TEST_F(FileImageTest, any_range_reads_the_files_bytes) {
  const Bytes bytes = Pattern(1000003, 7);
  Store(bytes);
  const auto image = FileImage::Open(path_);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->Size(), bytes.size());
  std::uint32_t state = 5;
  Bytes out(30000);
  for (int i = 0; i < 500; ++i) {
    state = state * 1664525u + 1013904223u;
    const std::size_t at = state % bytes.size();
    const std::size_t count = std::min<std::size_t>((state >> 8) % out.size(), bytes.size() - at);
    ASSERT_TRUE(image->Read(at, out.data(), count));
    ASSERT_TRUE(std::equal(out.begin(), out.begin() + static_cast<long>(count), bytes.begin() + static_cast<long>(at)))
        << at;
  }
  EXPECT_FALSE(image->Read(bytes.size() - 1, out.data(), 2));
}

TEST_F(FileImageTest, missing_file_or_directory_is_null) {
  EXPECT_EQ(FileImage::Open(path_), nullptr);
  EXPECT_EQ(FileImage::Open("/"), nullptr);
}

TEST_F(FileImageTest, container_checks_as_in_memory) {
  testimage::ImageBuilder builder(1024, 32);
  builder.AddFile(1, "F", 300 * 1024);
  builder.AppendBlock();
  Store(builder.bytes());
  const auto image = FileImage::Open(path_);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(ToJson(Check(*image)), ToJson(Check(MemoryImage(builder.bytes()))));
}

// A read that fails leaves nothing behind that a later one could take for the file's bytes.
TEST_F(FileImageTest, file_cut_meanwhile_is_refused_until_its_bytes_are_back) {
  const Bytes bytes = Pattern(100000, 7);
  Store(bytes);
  const auto image = FileImage::Open(path_);
  ASSERT_NE(image, nullptr);
  std::filesystem::resize_file(path_, 10000);
  Bytes out(100);
  EXPECT_FALSE(image->Read(50000, out.data(), out.size()));
  EXPECT_FALSE(image->Read(50000, out.data(), out.size()));
  EXPECT_TRUE(image->Read(5000, out.data(), out.size()));
  EXPECT_FALSE(image->Read(5000, Bytes(60000).data(), 60000));
  Store(bytes);
  EXPECT_TRUE(image->Read(50000, out.data(), out.size()));
  EXPECT_EQ(out, Bytes(bytes.begin() + 50000, bytes.begin() + 50100));
}

}  // namespace
}  // namespace orba::tool

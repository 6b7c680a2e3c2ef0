#include "tools/orba/host_target.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

namespace orba::tool {
namespace {

class HostTargetTest : public testing::Test {
 protected:
  void SetUp() override { std::ofstream(path_) << "0123456789"; }
  void TearDown() override { unlink(path_.c_str()); }

  std::string Contents() const {
    std::ifstream file(path_);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  const std::string path_ = "host_target_test_container";
};

TEST_F(HostTargetTest, writes_within_and_past_the_end_are_there) {
  const int file = open(path_.c_str(), O_RDWR);
  HostTarget target(file);
  EXPECT_TRUE(target.Write(8, "abcd", 4));
  EXPECT_TRUE(target.Write(0, "X", 1));
  EXPECT_TRUE(target.Flush());
  EXPECT_EQ(Contents(), "X1234567abcd");
  close(file);
}

TEST_F(HostTargetTest, cut_leaves_the_front) {
  const int file = open(path_.c_str(), O_RDWR);
  EXPECT_TRUE(HostTarget(file).Cut(3));
  EXPECT_EQ(Contents(), "012");
  close(file);
}

TEST_F(HostTargetTest, descriptor_open_for_reading_alone_fails_and_tells_why) {
  const int file = open(path_.c_str(), O_RDONLY);
  HostTarget target(file);
  errno = 0;
  EXPECT_FALSE(target.Write(0, "X", 1));
  EXPECT_EQ(errno, EBADF);
  EXPECT_FALSE(target.Cut(3));
  EXPECT_EQ(Contents(), "0123456789");
  close(file);
}

TEST_F(HostTargetTest, closed_descriptor_cannot_be_flushed) {
  EXPECT_FALSE(HostTarget(-1).Flush());
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace orba::tool

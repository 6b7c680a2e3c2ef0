#include "inspect/container/image.h"

#include <gtest/gtest.h>

#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::Pattern;

TEST(MemoryImageRead, range_reaches_past_the_end_is_refused) {
  const MemoryImage image(Pattern(100, 1));
  std::uint8_t out[101];
  EXPECT_TRUE(image.Read(0, out, 100));
  EXPECT_TRUE(image.Read(100, out, 0));
  EXPECT_FALSE(image.Read(0, out, 101));
  EXPECT_FALSE(image.Read(100, out, 1));
  EXPECT_FALSE(image.Read(101, out, 0));
  EXPECT_FALSE(image.Read(~std::uint64_t{0}, out, 2));
}

}  // namespace
}  // namespace orba::inspect

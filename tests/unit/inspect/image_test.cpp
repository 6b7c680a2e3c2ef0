#include "inspect/container/image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

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

struct SmallPages : PagedImage {
  explicit SmallPages(testimage::Bytes from) : PagedImage(from.size(), 4), bytes(std::move(from)) {}
  const std::uint8_t* Page(std::uint64_t page) const override { return &bytes[static_cast<std::size_t>(page) * 4]; }
  testimage::Bytes bytes;
};

TEST(PagedImageRead, range_may_begin_and_end_anywhere_in_a_page) {
  const testimage::Bytes bytes = Pattern(16, 1);
  const SmallPages image(bytes);
  for (std::size_t from = 0; from < bytes.size(); ++from) {
    for (std::size_t end = from; end <= bytes.size(); ++end) {
      testimage::Bytes out(end - from);
      ASSERT_TRUE(image.Read(from, out.data(), out.size()));
      EXPECT_TRUE(std::equal(out.begin(), out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(from))) << from << end;
    }
  }
}

}  // namespace
}  // namespace orba::inspect

#include "inspect/container/patched_image.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::Pattern;

Bytes All(const PatchedImage& image) {
  Bytes bytes(static_cast<std::size_t>(image.Size()));
  EXPECT_TRUE(image.Read(0, bytes.data(), bytes.size()));
  return bytes;
}

TEST(PatchedImage, without_writes_it_is_its_base) {
  const Bytes bytes = Pattern(5000, 1);
  const MemoryImage base(bytes);
  EXPECT_EQ(All(PatchedImage(base)), bytes);
}

// Every range and length around the pages' borders, beside a row of bytes that is changed the same way.
TEST(PatchedImage, writes_replace_and_append) {
  Bytes bytes = Pattern(5000, 1);
  const MemoryImage base(bytes);
  PatchedImage image(base);
  std::uint32_t seed = 2;
  for (const std::uint64_t offset : {0u, 1u, 1023u, 1024u, 1025u, 3000u, 4999u, 5000u, 6143u, 6144u, 9000u}) {
    for (const std::uint32_t count : {1u, 2u, 1024u, 2049u}) {
      const Bytes written = Pattern(count, ++seed);
      image.Write(offset, written.data(), written.size());
      bytes.resize(std::max<std::size_t>(bytes.size(), static_cast<std::size_t>(offset) + count));
      std::copy(written.begin(), written.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
      ASSERT_EQ(image.Size(), bytes.size());
      ASSERT_EQ(All(image), bytes) << offset << " " << count;
    }
  }
}

TEST(PatchedImage, gap_reads_as_zeros) {
  Bytes bytes = Pattern(1500, 1);
  const MemoryImage base(bytes);
  PatchedImage image(base);
  const std::uint8_t one = 7;
  image.Write(5000, &one, 1);
  bytes.resize(5001);
  bytes[5000] = 7;
  EXPECT_EQ(All(image), bytes);
}

TEST(PatchedImage, nothing_is_read_past_the_end) {
  const MemoryImage base(Pattern(1500, 1));
  PatchedImage image(base);
  std::uint8_t out[4];
  EXPECT_TRUE(image.Read(1496, out, 4));
  EXPECT_FALSE(image.Read(1497, out, 4));
  EXPECT_FALSE(image.Read(1501, out, 0));
  EXPECT_TRUE(image.Read(1500, out, 0));
  image.Write(1500, out, 4);
  EXPECT_TRUE(image.Read(1500, out, 4));
  EXPECT_FALSE(image.Read(1501, out, 4));
}

TEST(PatchedImage, empty_write_changes_nothing) {
  const MemoryImage base(Pattern(1500, 1));
  PatchedImage image(base);
  image.Write(4000, nullptr, 0);
  EXPECT_EQ(image.Size(), 1500u);
  EXPECT_FALSE(image.Touches(0, 4000));
}

TEST(PatchedImage, pages_around_a_write_count_as_touched) {
  const MemoryImage base(Pattern(8192, 1));
  PatchedImage image(base);
  const std::uint8_t one = 7;
  image.Write(3000, &one, 1);
  EXPECT_TRUE(image.Touches(3000, 1));
  EXPECT_TRUE(image.Touches(2048, 1));
  EXPECT_FALSE(image.Touches(2047, 1));
  EXPECT_TRUE(image.Touches(2047, 2));
  EXPECT_TRUE(image.Touches(3071, 1));
  EXPECT_FALSE(image.Touches(3072, 5000));
  EXPECT_FALSE(image.Touches(3000, 0));
}

struct Unreadable : Image {
  std::uint64_t Size() const override { return 4096; }
  bool Read(std::uint64_t, void*, std::size_t) const override { return false; }
};

TEST(PatchedImage, base_that_cannot_be_read_fails_but_where_it_was_written) {
  const Unreadable base;
  PatchedImage image(base);
  std::uint8_t out[4] = {1, 2, 3, 4};
  EXPECT_FALSE(image.Read(0, out, 4));
  image.Write(1024, out, 4);
  EXPECT_TRUE(image.Read(1024, out, 4));
  EXPECT_FALSE(image.Read(1023, out, 2));
}

}  // namespace
}  // namespace orba::inspect

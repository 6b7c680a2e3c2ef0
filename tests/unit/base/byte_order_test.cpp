#include "base/byte_order.h"

#include "unit/library_test.h"

namespace orba {
namespace {

class ByteOrder : public LibraryTest {};

Bytes Converted(Bytes bytes, bool hostIsLittleEndian) {
  ConvertBytes(bytes.data(), static_cast<uint32_t>(bytes.size()), hostIsLittleEndian);
  return bytes;
}

TEST_F(ByteOrder, little_endian_host_changes_nothing) {
  for (uint32_t n = 0; n < 9; ++n) {
    const Bytes bytes = Pattern(n);
    EXPECT_EQ(Converted(bytes, true), bytes) << n;
  }
}

TEST_F(ByteOrder, big_endian_host_reverses_four_bytes) {
  EXPECT_EQ(Converted({1, 2, 3, 4}, false), (Bytes{4, 3, 2, 1}));
}

TEST_F(ByteOrder, big_endian_host_reverses_two_bytes) { EXPECT_EQ(Converted({1, 2}, false), (Bytes{2, 1})); }

TEST_F(ByteOrder, big_endian_host_swaps_the_outer_of_three_bytes) {
  EXPECT_EQ(Converted({1, 2, 3}, false), (Bytes{3, 2, 1}));
}

TEST_F(ByteOrder, one_byte_or_none_stays_as_it_is) {
  EXPECT_EQ(Converted({7}, false), (Bytes{7}));
  uint8_t byte = 7;
  ConvertBytes(&byte, 0, false);
  EXPECT_EQ(byte, 7);
  ConvertBytes(nullptr, 0, false);
}

TEST_F(ByteOrder, conversion_is_its_own_inverse) {
  const Bytes bytes = Pattern(8);
  EXPECT_EQ(Converted(Converted(bytes, false), false), bytes);
}

TEST_F(ByteOrder, this_build_is_little_endian) {
  EXPECT_TRUE(kHostIsLittleEndian);
  uint32_t word = 0x01020304;
  ConvertField(&word);
  EXPECT_EQ(word, 0x01020304u);
  uint32_t words[2] = {1, 2};
  ConvertWords(words, 2);
  EXPECT_EQ(words[0], 1u);
  EXPECT_EQ(words[1], 2u);
}

TEST_F(ByteOrder, export_leaves_any_buffer_unchanged_and_clears_the_error) {
  Bytes bytes = Pattern(100);
  _OrbSetError(0x12345678);
  OrbConvertEndian(bytes.data(), 100);
  EXPECT_EQ(bytes, Pattern(100));
  EXPECT_EQ(OrbGetLastError(), 0u);
}

TEST_F(ByteOrder, export_without_a_buffer_is_an_invalid_argument) {
  OrbConvertEndian(nullptr, 4);
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_INVALID_ARGUMENT);
}

TEST_F(ByteOrder, export_of_nothing_needs_no_buffer) {
  OrbConvertEndian(nullptr, 0);
  EXPECT_EQ(OrbGetLastError(), 0u);
}

}  // namespace
}  // namespace orba

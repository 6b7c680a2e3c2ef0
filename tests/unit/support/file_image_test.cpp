#include "support/file_image.h"

#include <gtest/gtest.h>

namespace testhost {
namespace {

TEST(FileImage, new_image_is_empty) {
  FileImage image;
  EXPECT_EQ(image.size(), 0u);
  EXPECT_EQ(image.ToBytes(), Bytes());
}

TEST(FileImage, bytes_come_back) {
  const Bytes bytes = {1, 2, 3, 4, 5};
  EXPECT_EQ(FileImage(bytes).ToBytes(), bytes);
}

TEST(FileImage, write_behind_the_end_fills_the_gap_with_zeros) {
  FileImage image(Bytes{7});
  const uint8_t value = 9;
  image.Write(4, &value, 1);
  EXPECT_EQ(image.ToBytes(), (Bytes{7, 0, 0, 0, 9}));
}

TEST(FileImage, write_across_pages_comes_back) {
  Bytes bytes(10000);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 256);
  FileImage image;
  image.Write(4095, bytes.data(), bytes.size());
  EXPECT_EQ(image.size(), 14095u);
  EXPECT_EQ(image.ToBytes(4095, 10000), bytes);
  EXPECT_EQ(image.ToBytes(4094, 2), (Bytes{0, bytes[0]}));
}

TEST(FileImage, write_of_nothing_behind_the_end_keeps_the_size) {
  FileImage image(Bytes{1});
  image.Write(100, nullptr, 0);
  EXPECT_EQ(image.size(), 1u);
}

TEST(FileImage, read_stops_at_the_end) {
  const FileImage image(Bytes{1, 2, 3});
  uint8_t out[4] = {9, 9, 9, 9};
  EXPECT_EQ(image.Read(1, out, 4), 2u);
  EXPECT_EQ(Bytes(out, out + 4), (Bytes{2, 3, 9, 9}));
  EXPECT_EQ(image.Read(3, out, 4), 0u);
  EXPECT_EQ(image.Read(1000000, out, 4), 0u);
}

TEST(FileImage, cut_bytes_are_zeros_when_it_grows_again) {
  FileImage image(Bytes(5000, 0xEE));
  image.Resize(4100);
  image.Resize(3);
  image.Resize(5000);
  Bytes expected(5000, 0);
  expected[0] = expected[1] = expected[2] = 0xEE;
  EXPECT_EQ(image.ToBytes(), expected);
}

TEST(FileImage, cut_at_a_page_border_keeps_the_page) {
  FileImage image(Bytes(8192, 0xEE));
  image.Resize(4096);
  EXPECT_EQ(image.ToBytes(), Bytes(4096, 0xEE));
  EXPECT_EQ(image.pages(), 1u);
}

TEST(FileImage, pretended_gigabytes_take_no_pages) {
  FileImage image;
  image.Resize(0x7FFFFFFF);
  EXPECT_EQ(image.size(), 0x7FFFFFFFu);
  EXPECT_EQ(image.pages(), 0u);
  const uint8_t value = 5;
  image.Write(0x7FFFFFFE, &value, 1);
  EXPECT_EQ(image.pages(), 1u);
  EXPECT_EQ(image.ToBytes(0x7FFFFFFD, 10), (Bytes{0, 5}));
}

TEST(FileImage, change_of_a_copy_leaves_the_original) {
  FileImage original(Bytes(4097, 1));
  FileImage copy = original;
  const uint8_t value = 2;
  copy.Write(4096, &value, 1);
  copy.Write(0, &value, 1);
  EXPECT_EQ(original.ToBytes(), Bytes(4097, 1));
  EXPECT_EQ(copy.ToBytes(0, 2), (Bytes{2, 1}));
  EXPECT_EQ(copy.ToBytes(4096, 1), (Bytes{2}));
}

TEST(FileImage, cut_of_a_copy_leaves_the_original) {
  FileImage original(Bytes(100, 1));
  FileImage copy = original;
  copy.Resize(10);
  EXPECT_EQ(original.ToBytes(), Bytes(100, 1));
}

TEST(FileImage, zeros_equal_missing_pages) {
  FileImage sparse;
  sparse.Resize(8192);
  EXPECT_TRUE(sparse == FileImage(Bytes(8192, 0)));
  EXPECT_TRUE(FileImage(Bytes(8192, 0)) == sparse);
}

TEST(FileImage, one_differing_byte_or_length_is_unequal) {
  Bytes bytes(8192, 0);
  const FileImage zeros(bytes);
  bytes[8191] = 1;
  FileImage sparse;
  sparse.Resize(8192);
  EXPECT_TRUE(zeros != FileImage(bytes));
  EXPECT_TRUE(sparse != FileImage(bytes));
  EXPECT_TRUE(FileImage(bytes) != sparse);
  EXPECT_TRUE(zeros != FileImage(Bytes(8191, 0)));
}

}  // namespace
}  // namespace testhost

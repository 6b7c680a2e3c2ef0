#include "volume/time_stamp.h"

#include <string.h>

#include "unit/library_test.h"

namespace orba {
namespace {

class Time : public LibraryTest {};

// The eight bytes of a stamp taken at the given time, over bytes of 0xEE.
Bytes StampAt(const coredll::SystemTime& now) {
  testhost::SetClock(now);
  TimeStamp stamp;
  memset(&stamp, 0xEE, sizeof stamp);
  GetTime(&stamp);
  Bytes bytes(sizeof stamp);
  memcpy(bytes.data(), &stamp, sizeof stamp);
  return bytes;
}

TEST_F(Time, stamp_is_seven_bytes_in_order) {
  EXPECT_EQ(StampAt({2001, 2, 6, 3, 4, 5, 6, 7}), (Bytes{0xD1, 0x07, 2, 3, 4, 5, 6, 0xEE}));
}

TEST_F(Time, last_second_of_the_year) {
  EXPECT_EQ(StampAt({1999, 12, 5, 31, 23, 59, 59, 999}), (Bytes{0xCF, 0x07, 12, 31, 23, 59, 59, 0xEE}));
}

TEST_F(Time, fields_are_narrowed_to_their_width) {
  EXPECT_EQ(StampAt({0xFFFF, 0x1FE, 0x7777, 0x1FD, 0x1FC, 0x1FB, 0x1FA, 0x7777}),
            (Bytes{0xFF, 0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xEE}));
}

TEST_F(Time, export_fills_seven_bytes_wherever_they_lie) {
  for (size_t at = 0; at < 4; ++at) {
    Bytes bytes(16, 0xEE);
    Bytes expected = bytes;
    const Bytes stamp = {0xD1, 0x07, 2, 3, 4, 5, 6};
    memcpy(&expected[at], stamp.data(), 7);
    OrbGetTime(reinterpret_cast<OrbTime*>(&bytes[at]));
    EXPECT_EQ(bytes, expected) << at;
  }
}

TEST_F(Time, export_at_the_last_second_of_the_year_and_at_the_next) {
  OrbTime now;
  memset(&now, 0xEE, sizeof now);
  testhost::SetClock({2099, 12, 4, 31, 23, 59, 59, 999});
  OrbGetTime(&now);
  EXPECT_EQ(now.year, 2099);
  EXPECT_EQ(now.month, 12);
  EXPECT_EQ(now.day, 31);
  EXPECT_EQ(now.hour, 23);
  EXPECT_EQ(now.minute, 59);
  EXPECT_EQ(now.second, 59);
  EXPECT_EQ(now.reserved, 0xEE);
  testhost::SetClock({2100, 1, 5, 1, 0, 0, 0, 0});
  OrbGetTime(&now);
  EXPECT_EQ(now.year, 2100);
  EXPECT_EQ(now.month, 1);
  EXPECT_EQ(now.day, 1);
  EXPECT_EQ(now.hour, 0);
  EXPECT_EQ(now.minute, 0);
  EXPECT_EQ(now.second, 0);
  EXPECT_EQ(now.reserved, 0xEE);
}

TEST_F(Time, export_clears_the_error) {
  OrbTime now;
  _OrbSetError(0x12345678);
  OrbGetTime(&now);
  EXPECT_EQ(OrbGetLastError(), 0u);
}

TEST_F(Time, export_without_a_stamp_is_an_invalid_argument_and_reads_no_clock) {
  OrbGetTime(nullptr);
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(testhost::CallCount(Call::kGetSystemTime), 0u);
}

}  // namespace
}  // namespace orba

#include "inspect/container/date.h"

#include <gtest/gtest.h>

namespace orba::inspect {
namespace {

bool IsDay(std::uint16_t year, std::uint8_t month, std::uint8_t day) { return IsDate({year, month, day, 0, 0, 0, 0}); }

TEST(Date, month_ends_with_its_last_day) {
  const std::uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (std::uint8_t month = 1; month <= 12; ++month) {
    EXPECT_TRUE(IsDay(2023, month, kDays[month - 1])) << int{month};
    EXPECT_FALSE(IsDay(2023, month, static_cast<std::uint8_t>(kDays[month - 1] + 1))) << int{month};
    EXPECT_TRUE(IsDay(2023, month, 1)) << int{month};
    EXPECT_FALSE(IsDay(2023, month, 0)) << int{month};
  }
}

TEST(Date, leap_day_is_there_in_leap_years_alone) {
  EXPECT_TRUE(IsDay(2024, 2, 29));
  EXPECT_TRUE(IsDay(2000, 2, 29));
  EXPECT_FALSE(IsDay(2023, 2, 29));
  EXPECT_FALSE(IsDay(1900, 2, 29));
  EXPECT_FALSE(IsDay(2024, 2, 30));
}

TEST(Date, years_and_months_have_bounds) {
  EXPECT_TRUE(IsDay(1601, 1, 1));
  EXPECT_FALSE(IsDay(1600, 12, 31));
  EXPECT_TRUE(IsDay(65535, 12, 31));
  EXPECT_FALSE(IsDay(2023, 0, 1));
  EXPECT_FALSE(IsDay(2023, 13, 1));
}

TEST(Date, time_of_day_has_bounds) {
  EXPECT_TRUE(IsDate({2023, 1, 1, 23, 59, 59, 0}));
  EXPECT_FALSE(IsDate({2023, 1, 1, 24, 0, 0, 0}));
  EXPECT_FALSE(IsDate({2023, 1, 1, 0, 60, 0, 0}));
  EXPECT_FALSE(IsDate({2023, 1, 1, 0, 0, 60, 0}));
}

TEST(Date, eighth_byte_does_not_matter) { EXPECT_TRUE(IsDate({2023, 1, 1, 0, 0, 0, 255})); }

TEST(Date, seconds_are_counted_from_1970) {
  EXPECT_EQ(SecondsSince1970({1970, 1, 1, 0, 0, 0, 0}), 0);
  EXPECT_EQ(SecondsSince1970({1970, 1, 2, 1, 2, 3, 0}), 86400 + 3723);
  EXPECT_EQ(SecondsSince1970({1969, 12, 31, 23, 59, 59, 0}), -1);
  EXPECT_EQ(SecondsSince1970({2000, 3, 1, 0, 0, 0, 0}), 951868800);
  EXPECT_EQ(SecondsSince1970({2024, 2, 29, 12, 0, 0, 0}), 1709208000);
  EXPECT_EQ(SecondsSince1970({2100, 3, 1, 0, 0, 0, 0}), 4107542400);
  EXPECT_EQ(SecondsSince1970({1601, 1, 1, 0, 0, 0, 0}), -11644473600);
}

}  // namespace
}  // namespace orba::inspect

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "platform/coredll.h"
#include "unit/platform/platform_test.h"
#include "unit/platform/system_calls.h"

namespace orba {
namespace {

using coredll::SystemTime;

class PosixClock : public ::testing::Test {
 protected:
  void TearDown() override { systemcalls::Reset(); }

  static SystemTime TimeAt(int64_t seconds, long nanoseconds) {
    systemcalls::StopClocks({seconds, nanoseconds});
    SystemTime now;
    memset(&now, 0xFF, sizeof now);
    coredll::GetSystemTime(&now);
    return now;
  }

  static void ExpectTime(const SystemTime& now, const uint16_t (&words)[8]) {
    EXPECT_EQ(0, memcmp(words, &now, sizeof now))
        << now.year << '-' << now.month << '-' << now.day << " (" << now.dayOfWeek << ") " << now.hour << ':'
        << now.minute << ':' << now.second << '.' << now.milliseconds;
  }
};

uint32_t MonotonicMilliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<uint32_t>(now.tv_sec * 1000ll + now.tv_nsec / 1000000);
}

TEST_F(PosixClock, tick_count_is_the_coarse_monotonic_clock_in_milliseconds) {
  const uint32_t before = MonotonicMilliseconds();
  const uint32_t ticks = coredll::GetTickCount();
  const uint32_t after = MonotonicMilliseconds();
  EXPECT_LE(ticks - before, after - before);
}

TEST_F(PosixClock, tick_count_counts_whole_milliseconds) {
  systemcalls::StopClocks({12, 345999999});
  EXPECT_EQ(12345u, coredll::GetTickCount());
}

TEST_F(PosixClock, tick_count_after_2_to_the_32_wraps) {
  systemcalls::StopClocks({4294967, 295000000});
  EXPECT_EQ(0xFFFFFFFFu, coredll::GetTickCount());
  systemcalls::StopClocks({4294967, 296000000});
  EXPECT_EQ(0u, coredll::GetTickCount());
}

TEST_F(PosixClock, system_time_last_second_of_a_year_is_exact) {
  ExpectTime(TimeAt(1704067199, 987654321), {2023, 12, 0, 31, 23, 59, 59, 987});
  ExpectTime(TimeAt(1704067200, 0), {2024, 1, 1, 1, 0, 0, 0, 0});
}

TEST_F(PosixClock, system_time_last_nanosecond_of_a_second_is_its_last_millisecond) {
  ExpectTime(TimeAt(1704067199, 999999999), {2023, 12, 0, 31, 23, 59, 59, 999});
}

TEST_F(PosixClock, system_time_leap_day_is_exact) {
  ExpectTime(TimeAt(1709210096, 1000000), {2024, 2, 4, 29, 12, 34, 56, 1});
}

TEST_F(PosixClock, system_time_after_2038_is_exact) { ExpectTime(TimeAt(4102444800, 0), {2100, 1, 5, 1, 0, 0, 0, 0}); }

TEST_F(PosixClock, system_time_in_another_time_zone_is_utc) {
  const uint32_t hour = InChild([] {
    setenv("TZ", "XYZ-14", 1);
    tzset();
    return static_cast<uint32_t>(TimeAt(1709210096, 0).hour);
  });
  EXPECT_EQ(12u, hour);
}

TEST_F(PosixClock, system_time_stands_where_the_environment_says) {
  setenv("ORBA_CLOCK", "2001-02-03 04:05:06", 1);
  ExpectTime(TimeAt(1709210096, 0), {2001, 2, 0, 3, 4, 5, 6, 0});
  setenv("ORBA_CLOCK", "65535 0 255 99 1 0", 1);
  ExpectTime(TimeAt(1709210096, 0), {65535, 0, 0, 255, 99, 1, 0, 0});
  for (const char* const other : {"", "2001-02-03", "2001-02-03 04:05:06:07", "now"}) {
    setenv("ORBA_CLOCK", other, 1);
    EXPECT_EQ(2024, TimeAt(1709210096, 0).year) << other;
  }
  unsetenv("ORBA_CLOCK");
  EXPECT_EQ(2024, TimeAt(1709210096, 0).year);
}

TEST_F(PosixClock, system_time_is_the_clock_on_the_wall) {
  const time_t before = time(nullptr);
  SystemTime now;
  coredll::GetSystemTime(&now);
  tm utc = {};
  utc.tm_year = now.year - 1900;
  utc.tm_mon = now.month - 1;
  utc.tm_mday = now.day;
  utc.tm_hour = now.hour;
  utc.tm_min = now.minute;
  utc.tm_sec = now.second;
  const time_t seen = timegm(&utc);
  EXPECT_LE(before, seen);
  EXPECT_LE(seen, time(nullptr));
  EXPECT_EQ(utc.tm_wday, now.dayOfWeek);
}

}  // namespace
}  // namespace orba

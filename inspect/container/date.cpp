#include "inspect/container/date.h"

namespace orba::inspect {

namespace {

constexpr std::uint16_t kFirstYear = 1601;

bool IsLeapYear(std::uint32_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

std::uint32_t DaysOfMonth(std::uint32_t year, std::uint32_t month) {
  static const std::uint8_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (month == 2 && IsLeapYear(year) ? 1u : 0u);
}

// Days from the first of January of year 1 to that of `year`.
std::int64_t DaysBefore(std::uint32_t year) {
  const std::int64_t past = std::int64_t{year} - 1;
  return past * 365 + past / 4 - past / 100 + past / 400;
}

}  // namespace

bool IsDate(const TimeStamp& time) {
  return time.year >= kFirstYear && time.month >= 1 && time.month <= 12 && time.day >= 1 &&
         time.day <= DaysOfMonth(time.year, time.month) && time.hour < 24 && time.minute < 60 && time.second < 60;
}

std::int64_t SecondsSince1970(const TimeStamp& time) {
  std::int64_t days = DaysBefore(time.year) - DaysBefore(1970) + time.day - 1;
  for (std::uint32_t month = 1; month < time.month; ++month) days += DaysOfMonth(time.year, month);
  return ((days * 24 + time.hour) * 60 + time.minute) * 60 + time.second;
}

}  // namespace orba::inspect

#include <stdlib.h>
#include <time.h>

#include "platform/posix/posix.h"

namespace orba {
namespace coredll {

// The clock that the kernel keeps, some milliseconds coarse: it is asked twice for every container call.
uint32_t GetTickCount() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<uint32_t>(now.tv_sec * 1000ll + now.tv_nsec / 1000000);
}

namespace {

// A program that is to stamp files with another time than the present sets ORBA_CLOCK meanwhile, to six numbers with
// one character between them: "2026-11-21 03:15:09". False, and `now` as it was, with any other number of them.
bool ClockStands(SystemTime* now) {
  const char* text = getenv("ORBA_CLOCK");
  uint16_t numbers[6] = {};
  uint32_t last = 0;
  for (; text != nullptr && *text != '\0'; text++) {
    const bool digit = *text >= '0' && *text <= '9';
    if (!digit && ++last == 6) return false;
    if (digit) numbers[last] = static_cast<uint16_t>(10 * numbers[last] + (*text - '0'));
  }
  if (last != 5) return false;
  *now = {numbers[0], numbers[1], 0, numbers[2], numbers[3], numbers[4], numbers[5], 0};
  return true;
}

}  // namespace

void GetSystemTime(SystemTime* now) {
  if (ClockStands(now)) return;
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  tm utc;
  gmtime_r(&time.tv_sec, &utc);
  now->year = static_cast<uint16_t>(utc.tm_year + 1900);
  now->month = static_cast<uint16_t>(utc.tm_mon + 1);
  now->dayOfWeek = static_cast<uint16_t>(utc.tm_wday);
  now->day = static_cast<uint16_t>(utc.tm_mday);
  now->hour = static_cast<uint16_t>(utc.tm_hour);
  now->minute = static_cast<uint16_t>(utc.tm_min);
  now->second = static_cast<uint16_t>(utc.tm_sec);
  now->milliseconds = static_cast<uint16_t>(time.tv_nsec / 1000000);
}

}  // namespace coredll
}  // namespace orba

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

void GetSystemTime(SystemTime* now) {
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

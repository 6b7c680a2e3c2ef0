#include "volume/time_stamp.h"

#include "platform/coredll.h"

namespace orba {

void GetTime(TimeStamp* stamp) {
  coredll::SystemTime now;
  coredll::GetSystemTime(&now);
  stamp->year = now.year;
  stamp->month = static_cast<uint8_t>(now.month);
  stamp->day = static_cast<uint8_t>(now.day);
  stamp->hour = static_cast<uint8_t>(now.hour);
  stamp->minute = static_cast<uint8_t>(now.minute);
  stamp->second = static_cast<uint8_t>(now.second);
}

}  // namespace orba

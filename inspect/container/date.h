// What a date is. Stands on the layout alone.
#pragma once

#include <cstdint>

#include "volume/layout.h"

namespace orba::inspect {

// A day of the calendar, leap years heeded, from the year that devices count from on, and a time of that day. The
// eighth byte does not matter.
bool IsDate(const TimeStamp& time);

// Seconds since the beginning of 1970, before it negative, of a time that IsDate accepts.
std::int64_t SecondsSince1970(const TimeStamp& time);

}  // namespace orba::inspect

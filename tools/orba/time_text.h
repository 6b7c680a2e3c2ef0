// Time stamps as people write them and programs compare them: UTC, to the second. Stands on inspect/ and orba.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "orba.h"

namespace orba::tool {

// Seconds since the beginning of 1970; nothing where the stamp is not a date of the calendar.
std::optional<std::int64_t> SecondsOf(const OrbTime& time);

// "2026-11-21 03:15:09"; "-", as wide, where there is none.
std::string TimeText(const OrbTime& time);
std::string TimeText(std::optional<std::int64_t> seconds);

// What "2026-11-21", "2026-11-21 03:15" or "2026-11-21 03:15:09" stands for, a "T" in place of the blank allowed;
// nothing for any other text.
std::optional<std::int64_t> TimeIn(const std::string& text);

}  // namespace orba::tool

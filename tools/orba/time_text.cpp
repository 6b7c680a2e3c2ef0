#include "tools/orba/time_text.h"

#include <cstdio>
#include <ctime>

#include "inspect/container/date.h"

namespace orba::tool {

namespace {

constexpr char kShape[] = "0000-00-00 00:00:00";
constexpr std::size_t kDate = 10;     // characters of it
constexpr std::size_t kMinutes = 16;  // with hours and minutes

const std::string& NoTime() {
  static const std::string text = "-" + std::string(sizeof kShape - 2, ' ');
  return text;
}

bool HasShape(const std::string& text) {
  if (text.size() != kDate && text.size() != kMinutes && text.size() != sizeof kShape - 1) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    const bool fits = kShape[i] == '0' ? digit : text[i] == kShape[i] || (i == kDate && text[i] == 'T');
    if (!fits) return false;
  }
  return true;
}

// The number at a place of the text, 0 behind its end.
template <typename Number>
Number NumberAt(const std::string& text, std::size_t place, std::size_t digits) {
  return place < text.size() ? static_cast<Number>(std::stoi(text.substr(place, digits))) : Number{0};
}

}  // namespace

std::optional<std::int64_t> SecondsOf(const OrbTime& time) {
  const TimeStamp stamp = {time.year, time.month, time.day, time.hour, time.minute, time.second, 0};
  if (!inspect::IsDate(stamp)) return std::nullopt;
  return inspect::SecondsSince1970(stamp);
}

std::string TimeText(const OrbTime& time) {
  if (!SecondsOf(time).has_value()) return NoTime();  // damaged, or the device has no clock
  char text[32];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

std::string TimeText(std::optional<std::int64_t> seconds) {
  const auto time = static_cast<std::time_t>(seconds.value_or(0));
  const std::tm* const utc = std::gmtime(&time);
  char text[32];
  const bool known = seconds.has_value() && utc != nullptr;
  return known && std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", utc) > 0 ? text : NoTime();
}

std::optional<std::int64_t> TimeIn(const std::string& text) {
  if (!HasShape(text)) return std::nullopt;
  OrbTime time = {};
  time.year = NumberAt<OrbU16>(text, 0, 4);
  time.month = NumberAt<OrbU8>(text, 5, 2);
  time.day = NumberAt<OrbU8>(text, 8, 2);
  time.hour = NumberAt<OrbU8>(text, 11, 2);
  time.minute = NumberAt<OrbU8>(text, 14, 2);
  time.second = NumberAt<OrbU8>(text, 17, 2);
  return SecondsOf(time);
}

}  // namespace orba::tool

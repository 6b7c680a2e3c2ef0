#include "tools/orba/stamps.h"

#include <cerrno>
#include <cstddef>
#include <ctime>
#include <functional>

#include "inspect/container/date.h"
#include "inspect/container/reader.h"
#include "tools/orba/failure.h"
#include "tools/orba/raw_container.h"
#include "volume/layout.h"

namespace orba::tool {

namespace {

constexpr std::size_t kStampBytes = offsetof(TimeStamp, reserved);

TimeStamp StampOf(const OrbTime& time) {
  return {time.year, time.month, time.day, time.hour, time.minute, time.second, 0};
}

// The node with this number has its place by the node-block table.
bool EnterOne(const inspect::Reader& reader, inspect::Target* target, std::uint32_t number, const OrbTime& time) {
  const inspect::Geometry& geometry = reader.geometry();
  std::uint32_t block = kNoBlock;
  const std::uint64_t entry = kHeaderSize + std::uint64_t{4} * ((number - 1) / geometry.nodesPerBlock());
  std::uint8_t word[4];
  if (!reader.image().Read(entry, word, sizeof word)) return false;
  for (unsigned i = 0; i < sizeof word; ++i) block |= std::uint32_t{word[i]} << (8 * i);
  const std::uint64_t node = geometry.NodeOffset(block, (number - 1) % geometry.nodesPerBlock());
  const std::uint8_t stamp[kStampBytes] = {static_cast<std::uint8_t>(time.year & 0xFF),
                                           static_cast<std::uint8_t>(time.year >> 8),
                                           time.month,
                                           time.day,
                                           time.hour,
                                           time.minute,
                                           time.second};
  return target->Write(node + offsetof(OrbNodeRecord, time), stamp, sizeof stamp);
}

// Asks `time_of` for the time of each path; null for one that stays as it is.
void EnterAll(const std::string& container, const std::function<const OrbTime*(const std::string& path)>& timeOf) {
  const std::string what = "cannot enter the times in " + container;
  RawContainer raw(container, RawContainer::kWrite);
  inspect::Reader reader(raw.image());
  inspect::Target* const target = raw.target();
  const auto enter = [&](const std::string& path, std::uint32_t number) {
    const OrbTime* const time = timeOf(path);
    if (time == nullptr || !inspect::IsDate(StampOf(*time))) return;
    if (!EnterOne(reader, target, number, *time)) throw HostFailure(what, errno);
  };
  inspect::Node root;
  if (!reader.readable() || reader.Root(&root).IsFailure()) {
    throw LibraryFailure(what, container, ORB_ERROR_DAMAGED_VOLUME);
  }
  enter("/", root.number);
  inspect::Budget budget(reader.geometry());
  inspect::Walk(
      &reader, root, "",
      [&](const inspect::Step& step) {
        if (step.what == inspect::Step::What::kEntry) enter(step.path, step.entry->number);
        return inspect::Onward::kOn;
      },
      &budget);
  if (!target->Flush()) throw HostFailure(what, errno);
}

}  // namespace

OrbTime TimeOf(std::int64_t seconds) {
  OrbTime time = {};
  const auto moment = static_cast<std::time_t>(seconds);
  const std::tm* const date = std::gmtime(&moment);
  constexpr int kLastYear = 0xFFFF;
  if (date == nullptr || date->tm_year + 1900 < 0 || date->tm_year + 1900 > kLastYear) return time;
  time.year = static_cast<OrbU16>(date->tm_year + 1900);
  time.month = static_cast<OrbU8>(date->tm_mon + 1);
  time.day = static_cast<OrbU8>(date->tm_mday);
  time.hour = static_cast<OrbU8>(date->tm_hour);
  time.minute = static_cast<OrbU8>(date->tm_min);
  time.second = static_cast<OrbU8>(date->tm_sec);
  return time;
}

void EnterTimes(const std::string& container, const Stamps& stamps) {
  EnterAll(container, [&stamps](const std::string& path) {
    const auto found = stamps.find(path);
    return found == stamps.end() ? nullptr : &found->second;
  });
}

void EnterTime(const std::string& container, const OrbTime& time) {
  EnterAll(container, [&time](const std::string&) { return &time; });
}

}  // namespace orba::tool

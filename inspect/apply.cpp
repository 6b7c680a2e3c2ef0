#include "inspect/apply.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>

#include "inspect/bytes.h"

namespace orba::inspect {

namespace {

constexpr char kMagic[] = "ORBAUNDO";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kUndoHeader = 24;
constexpr std::size_t kRangeHeader = 12;

std::uint32_t Crc32(const std::uint8_t* bytes, std::size_t count) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (std::size_t i = 0; i < count; ++i) {
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

void Append32(std::vector<std::uint8_t>* to, std::uint32_t value) {
  to->resize(to->size() + 4);
  Put32(&(*to)[to->size() - 4], value);
}

void Append64(std::vector<std::uint8_t>* to, std::uint64_t value) {
  Append32(to, static_cast<std::uint32_t>(value));
  Append32(to, static_cast<std::uint32_t>(value >> 32));
}

std::uint64_t Get64(const std::uint8_t* bytes) {
  return Get32(bytes) | static_cast<std::uint64_t>(Get32(bytes + 4)) << 32;
}

// Start and end of each range of the old container that the plan overwrites, without overlaps.
std::map<std::uint64_t, std::uint64_t> OverwrittenRanges(const Plan& plan, std::uint64_t size) {
  std::map<std::uint64_t, std::uint64_t> ranges;
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) {
      std::uint64_t start = write.offset;
      std::uint64_t end = std::min<std::uint64_t>(size, start + write.bytes.size());
      if (start >= end) continue;
      auto at = ranges.lower_bound(start);
      if (at != ranges.begin() && std::prev(at)->second >= start) --at;
      while (at != ranges.end() && at->first <= end) {
        start = std::min(start, at->first);
        end = std::max(end, at->second);
        at = ranges.erase(at);
      }
      ranges.emplace(start, end);
    }
  }
  return ranges;
}

struct Range {
  std::uint64_t offset;
  const std::uint8_t* bytes;
  std::uint32_t count;
};

// The ranges of a sound undo file; false for any other bytes.
bool ReadUndo(const std::vector<std::uint8_t>& undo, std::uint64_t* size, std::vector<Range>* ranges) {
  if (undo.size() < kUndoHeader + 4 || std::memcmp(undo.data(), kMagic, 8) != 0) return false;
  const std::size_t end = undo.size() - 4;
  if (Get32(&undo[8]) != kVersion || Get32(&undo[end]) != Crc32(undo.data(), end)) return false;
  *size = Get64(&undo[16]);
  std::size_t at = kUndoHeader;
  for (std::uint32_t left = Get32(&undo[12]); left > 0; --left) {
    if (end - at < kRangeHeader) return false;
    const Range range = {Get64(&undo[at]), undo.data() + at + kRangeHeader, Get32(&undo[at + 8])};
    at += kRangeHeader;
    if (end - at < range.count || range.offset > *size || range.count > *size - range.offset) return false;
    at += range.count;
    ranges->push_back(range);
  }
  return at == end;
}

}  // namespace

std::vector<std::uint8_t> MakeUndo(const Plan& plan, const Image& image) {
  const auto ranges = OverwrittenRanges(plan, image.Size());
  std::vector<std::uint8_t> undo(kMagic, kMagic + 8);
  Append32(&undo, kVersion);
  Append32(&undo, static_cast<std::uint32_t>(ranges.size()));
  Append64(&undo, image.Size());
  for (const auto& [start, end] : ranges) {
    const auto count = static_cast<std::size_t>(end - start);
    Append64(&undo, start);
    Append32(&undo, static_cast<std::uint32_t>(count));
    undo.resize(undo.size() + count);
    image.Read(start, &undo[undo.size() - count], count);
  }
  Append32(&undo, Crc32(undo.data(), undo.size()));
  return undo;
}

bool ApplyPlan(const Plan& plan, Target* target) {
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) {
      if (!target->Write(write.offset, write.bytes.data(), write.bytes.size()) || !target->Flush()) return false;
    }
  }
  return true;
}

bool ApplyUndo(const std::vector<std::uint8_t>& undo, Target* target) {
  std::uint64_t size = 0;
  std::vector<Range> ranges;
  if (!ReadUndo(undo, &size, &ranges)) return false;
  for (const Range& range : ranges) {
    if (!target->Write(range.offset, range.bytes, range.count)) return false;
  }
  return target->Flush() && target->Cut(size) && target->Flush();
}

// ---- Files of the host ----------------------------------------------------------------------------------------------

std::unique_ptr<FileTarget> FileTarget::Open(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "r+b");
  if (file == nullptr) return nullptr;
  std::setvbuf(file, nullptr, _IONBF, 0);
  return std::unique_ptr<FileTarget>(new FileTarget(file, path));
}

FileTarget::~FileTarget() { std::fclose(file_); }

bool FileTarget::Write(std::uint64_t offset, const void* bytes, std::size_t count) {
  if (offset > 0x7FFFFFFF || std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) return false;
  return std::fwrite(bytes, 1, count, file_) == count;
}

bool FileTarget::Cut(std::uint64_t size) {
  std::error_code error;
  std::filesystem::resize_file(path_, size, error);
  return !error;
}

bool FileTarget::Flush() { return std::fflush(file_) == 0; }

}  // namespace orba::inspect

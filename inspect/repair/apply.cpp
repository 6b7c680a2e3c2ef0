#include "inspect/repair/apply.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "inspect/container/fields.h"

namespace orba::inspect {

namespace {

constexpr char kMagic[] = "ORBAUNDO";
constexpr std::uint32_t kVersion = 2;
constexpr std::size_t kUndoHeader = 32;
constexpr std::size_t kPieceHeader = 12;
constexpr std::size_t kSummedAtOnce = 65536;

// The state flags while a repair is taken back.
constexpr std::uint8_t kMark[4] = {kVolumeDirty | kRepairMark, 0, 0, 0};

// The CRC-32 of bytes whose first part has the CRC-32 `crc`, 0 for no first part.
std::uint32_t Crc32(std::uint32_t crc, const std::uint8_t* bytes, std::size_t count) {
  static const std::array<std::uint32_t, 256> table = [] {
    std::array<std::uint32_t, 256> made = {};
    std::uint32_t byte = 0;
    for (std::uint32_t& sum : made) {
      sum = byte++;
      for (int bit = 0; bit < 8; ++bit) sum = (sum >> 1) ^ ((sum & 1) != 0 ? 0xEDB88320 : 0);
    }
    return made;
  }();
  crc = ~crc;
  for (std::size_t i = 0; i < count; ++i) crc = (crc >> 8) ^ table[(crc ^ bytes[i]) & 0xFF];
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

void AppendPiece(std::vector<std::uint8_t>* to, std::uint64_t offset, std::size_t count) {
  Append64(to, offset);
  Append32(to, static_cast<std::uint32_t>(count));
  to->resize(to->size() + count);
}

struct Piece {
  std::uint64_t offset;
  const std::uint8_t* bytes;
  std::uint32_t count;
  std::uint64_t end() const { return offset + count; }
};

constexpr Piece kMarking = {kStateFlagsOffset, kMark, sizeof kMark};

struct Undo {
  std::uint64_t size;
  std::uint32_t rest;  // the checksum of all outside the ranges
  std::vector<Piece> ranges;
  std::vector<Piece> writes;
};

// What is still to be read of an undo file.
struct Input {
  const std::uint8_t* at;
  std::uint64_t left;

  bool Skip(std::uint64_t count) {
    if (count > left) return false;
    at += count;
    left -= count;
    return true;
  }
};

bool ReadPieces(Input* input, std::uint64_t limit, std::uint32_t count, std::vector<Piece>* pieces) {
  for (; count > 0; --count) {
    const std::uint8_t* const header = input->at;
    if (!input->Skip(kPieceHeader)) return false;
    const Piece piece = {Get64(header), input->at, Get32(header + 8)};
    if (piece.count > limit || piece.offset > limit - piece.count || !input->Skip(piece.count)) return false;
    pieces->push_back(piece);
  }
  return true;
}

// False for any bytes that are no sound undo file.
bool ReadUndo(const std::vector<std::uint8_t>& file, Undo* undo) {
  constexpr std::uint64_t kAnywhere = ~std::uint64_t{0};
  if (file.size() < kUndoHeader + 4 || std::memcmp(file.data(), kMagic, 8) != 0) return false;
  const std::size_t end = file.size() - 4;
  if (Get32(&file[8]) != kVersion || Get32(&file[end]) != Crc32(0, file.data(), end)) return false;
  undo->rest = Get32(&file[20]);
  undo->size = Get64(&file[24]);
  Input input = {file.data() + kUndoHeader, end - kUndoHeader};
  return ReadPieces(&input, undo->size, Get32(&file[12]), &undo->ranges) &&
         ReadPieces(&input, kAnywhere, Get32(&file[16]), &undo->writes) && input.left == 0;
}

// The checksum goes on over the container from `start` to `end`. A piece that the host cannot read counts as zeros: its
// length is part of the format.
std::uint32_t SumUp(std::uint32_t sum, const Image& image, std::uint64_t start, std::uint64_t end) {
  std::vector<std::uint8_t> bytes(std::min<std::size_t>(kSummedAtOnce, static_cast<std::size_t>(end - start)));
  while (start < end) {
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), end - start));
    if (!image.Read(start, bytes.data(), part)) std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    sum = Crc32(sum, bytes.data(), part);
    start += part;
  }
  return sum;
}

bool WriteRange(Target* target, const Piece& range) { return target->Write(range.offset, range.bytes, range.count); }

// Part of a container that a repair may have changed.
struct Region {
  std::uint64_t start;
  std::vector<std::uint8_t> now;
  std::vector<bool> explained;  // of each byte, that the repair accounts for it
};
using Regions = std::map<std::uint64_t, Region>;  // by the offset of their end, without overlaps

void AddRegion(Regions* regions, const Image& image, std::uint64_t start, std::uint64_t end) {
  Region region = {start, {}, {}};
  region.now.resize(static_cast<std::size_t>(end - start));
  image.Read(start, region.now.data(), region.now.size());
  region.explained.resize(region.now.size());
  regions->emplace(end, std::move(region));
}

// Bytes that are now what the piece has for them are explained.
void Explain(Regions* regions, const Piece& piece) {
  for (auto at = regions->upper_bound(piece.offset); at != regions->end() && at->second.start < piece.end(); ++at) {
    Region& region = at->second;
    const std::uint64_t end = std::min(piece.end(), at->first);
    for (std::uint64_t byte = std::max(piece.offset, region.start); byte < end; ++byte) {
      const auto place = static_cast<std::size_t>(byte - region.start);
      if (region.now[place] == piece.bytes[byte - piece.offset]) region.explained[place] = true;
    }
  }
}

}  // namespace

std::map<std::uint64_t, std::uint64_t> WrittenRanges(const Plan& plan, std::uint64_t end) {
  std::map<std::uint64_t, std::uint64_t> ranges;
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) {
      std::uint64_t start = write.offset;
      std::uint64_t behind = std::min<std::uint64_t>(end, start + write.bytes.size());
      if (start >= behind) continue;
      auto at = ranges.lower_bound(start);
      if (at != ranges.begin() && std::prev(at)->second >= start) --at;
      while (at != ranges.end() && at->first <= behind) {
        start = std::min(start, at->first);
        behind = std::max(behind, at->second);
        at = ranges.erase(at);
      }
      ranges.emplace(start, behind);
    }
  }
  return ranges;
}

std::vector<std::uint8_t> MakeUndo(const Plan& plan, const Image& image) {
  const auto ranges = WrittenRanges(plan, image.Size());
  std::vector<std::uint8_t> pieces;
  std::uint32_t rest = 0;
  std::uint64_t last = 0;
  for (const auto& [start, end] : ranges) {
    rest = SumUp(rest, image, last, start);
    last = end;
    const auto count = static_cast<std::size_t>(end - start);
    AppendPiece(&pieces, start, count);
    image.Read(start, &pieces[pieces.size() - count], count);
  }
  rest = SumUp(rest, image, last, image.Size());
  std::uint32_t writes = 0;
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) {
      AppendPiece(&pieces, write.offset, write.bytes.size());
      std::copy(write.bytes.begin(), write.bytes.end(), pieces.end() - static_cast<std::ptrdiff_t>(write.bytes.size()));
      ++writes;
    }
  }
  std::vector<std::uint8_t> undo(kMagic, kMagic + 8);
  Append32(&undo, kVersion);
  Append32(&undo, static_cast<std::uint32_t>(ranges.size()));
  Append32(&undo, writes);
  Append32(&undo, rest);
  Append64(&undo, image.Size());
  undo.insert(undo.end(), pieces.begin(), pieces.end());
  Append32(&undo, Crc32(0, undo.data(), undo.size()));
  return undo;
}

bool IsUndo(const std::vector<std::uint8_t>& file) {
  Undo undo;
  return ReadUndo(file, &undo);
}

bool UndoFits(const std::vector<std::uint8_t>& file, const Image& image) {
  Undo undo;
  if (!ReadUndo(file, &undo)) return false;
  std::uint64_t longest = undo.size;
  for (const Piece& write : undo.writes) longest = std::max(longest, write.end());
  if (image.Size() < undo.size || image.Size() > longest) return false;

  Regions regions;
  std::uint32_t rest = 0;
  std::uint64_t last = 0;
  for (const Piece& range : undo.ranges) {
    if (range.offset < last) return false;
    rest = SumUp(rest, image, last, range.offset);
    last = range.end();
    AddRegion(&regions, image, range.offset, range.end());
  }
  if (SumUp(rest, image, last, undo.size) != undo.rest) return false;

  for (const Piece& range : undo.ranges) Explain(&regions, range);
  AddRegion(&regions, image, undo.size, image.Size());  // what was appended: zeros until it is written
  const std::vector<std::uint8_t> zeros(static_cast<std::size_t>(image.Size() - undo.size));
  Explain(&regions, {undo.size, zeros.data(), static_cast<std::uint32_t>(zeros.size())});
  for (const Piece& write : undo.writes) Explain(&regions, write);
  Explain(&regions, kMarking);
  return std::all_of(regions.begin(), regions.end(), [](const Regions::value_type& region) {
    const std::vector<bool>& explained = region.second.explained;
    return std::find(explained.begin(), explained.end(), false) == explained.end();
  });
}

bool ApplyPlan(const Plan& plan, Target* target) {
  std::vector<const Write*> writes;
  for (const Action& action : plan.actions) {
    for (const Write& write : action.writes) writes.push_back(&write);
  }
  for (std::size_t i = 0; i < writes.size(); ++i) {
    const Write& write = *writes[i];
    if (!target->Write(write.offset, write.bytes.data(), write.bytes.size())) return false;
    if ((i == 0 || i + 2 >= writes.size()) && !target->Flush()) return false;
  }
  return true;
}

bool ApplyUndo(const std::vector<std::uint8_t>& file, Target* target) {
  Undo undo;
  if (!ReadUndo(file, &undo)) return false;
  const auto header = std::find_if(undo.ranges.begin(), undo.ranges.end(), [](const Piece& range) {
    return range.offset <= kMarking.offset && range.end() >= kMarking.end();
  });
  // A repair that left the flags alone left the mark that was there.
  const bool marks = header != undo.ranges.end();
  if (marks && !(WriteRange(target, kMarking) && target->Flush())) return false;
  Piece flags = kMarking;
  std::vector<std::uint8_t> marked;  // the header with the mark
  if (marks) {
    const auto at = static_cast<std::ptrdiff_t>(kMarking.offset - header->offset);
    flags.bytes = header->bytes + at;
    marked.assign(header->bytes, header->bytes + header->count);
    std::copy(std::begin(kMark), std::end(kMark), marked.begin() + at);
  }
  for (auto range = undo.ranges.begin(); range != undo.ranges.end(); ++range) {
    const std::uint8_t* const bytes = marks && range == header ? marked.data() : range->bytes;
    if (!WriteRange(target, {range->offset, bytes, range->count})) return false;
  }
  if (!target->Flush() || !target->Cut(undo.size) || !target->Flush()) return false;
  return !marks || (WriteRange(target, flags) && target->Flush());
}

}  // namespace orba::inspect

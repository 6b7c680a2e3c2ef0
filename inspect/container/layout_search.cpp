#include "inspect/container/layout_search.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <vector>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "volume/layout.h"

namespace orba::inspect {

namespace {

constexpr std::size_t kMostTraces = 100000;  // of each kind: by then the layout is certain
constexpr std::uint32_t kShortestRun = 4;
constexpr std::uint32_t kPerSector = 512 / kNodeSize;  // records
constexpr std::uint32_t kFirstRootBlock = 2;           // where formatting puts the root's directory

// Node records one behind the other, with numbers that go up by one. Some may be missing in between, where sectors were
// overwritten: `count` is what the first and the last span.
struct Run {
  std::uint64_t offset;
  std::uint32_t first;
  std::uint32_t count;
};

struct Directory {
  std::uint16_t number;
  std::uint64_t offset;
};

struct Traces {
  std::vector<Run> runs;
  std::map<std::uint16_t, std::uint32_t> firstBlocks;  // of directories, as their records say
  std::vector<Directory> directories;                  // where they begin, in order; deleted ones too
};

// The record lies where the run has it, with no more than a sector in between.
bool GoesOn(const Run& run, std::uint64_t offset, std::uint32_t number) {
  const std::uint32_t end = run.first + run.count;
  return number >= end && number - end <= kPerSector &&
         offset - run.offset == std::uint64_t{number - run.first} * kNodeSize;
}

// The last run is the one that may go on.
void TakeRecord(const std::uint8_t* bytes, std::uint64_t offset, Traces* traces) {
  const OrbNodeRecord record = DecodeNode(bytes);
  if (record.number == 0) return;
  if ((record.attributes & ORB_NODE_DIRECTORY) != 0 && record.direct[0] != kNoBlock) {
    traces->firstBlocks.emplace(record.number, record.direct[0]);
  }
  std::vector<Run>& runs = traces->runs;
  while (!runs.empty()) {
    if (GoesOn(runs.back(), offset, record.number)) {
      runs.back().count = record.number - runs.back().first + 1;
      return;
    }
    if (runs.back().count >= kShortestRun) break;
    runs.pop_back();
  }
  if (runs.size() < kMostTraces) runs.push_back({offset, record.number, 1});
}

// Every byte may begin a record: the data area may begin anywhere.
void TakeAll(const std::uint8_t* bytes, std::size_t count, std::uint64_t offset, Traces* traces) {
  for (std::size_t at = 0; at < count; ++at) {
    if (bytes[at] == (kNodeSignature & 0xFF) && HasNodeSignature(bytes + at)) {
      TakeRecord(bytes + at, offset + at, traces);
    } else if (bytes[at + offsetof(OrbDirEntry, name)] == '.' && traces->directories.size() < kMostTraces &&
               AreDots(bytes + at)) {
      traces->directories.push_back({DecodeEntry(bytes + at).node, offset + at});
    }
  }
}

// Nothing but zeros, as most of a large file may be that is no container.
bool IsBlank(const std::uint8_t* bytes, std::size_t count) {
  return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

Traces Scan(const Image& image) {
  constexpr std::size_t kPiece = 1 << 16;
  constexpr std::size_t kAhead = kNodeSize - 1;  // what a record that begins in one piece may need of the next
  Traces traces;
  const std::uint64_t size = std::min<std::uint64_t>(image.Size(), kContainerLimit);
  std::vector<std::uint8_t> bytes(kPiece + kAhead);
  for (std::uint64_t offset = 0; offset + kAhead < size; offset += kPiece) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), size - offset));
    if (image.Read(offset, bytes.data(), count) && !IsBlank(bytes.data(), count)) {
      TakeAll(bytes.data(), count - kAhead, offset, &traces);
    }
  }
  if (!traces.runs.empty() && traces.runs.back().count < kShortestRun) traces.runs.pop_back();
  return traces;
}

// ---- One block size -------------------------------------------------------------------------------------------------

// Where the node block began that holds record `number`, if it is at `offset`.
std::int64_t NodeBlockOf(std::uint64_t offset, std::uint32_t number, std::uint32_t blockSize) {
  return static_cast<std::int64_t>(offset) - (number - 1) % (blockSize / kNodeSize) * std::int64_t{kNodeSize};
}

std::uint32_t Phase(std::int64_t offset, std::uint32_t blockSize) {
  return static_cast<std::uint32_t>((offset % blockSize + blockSize) % blockSize);
}

// Where block 1 may be, by what most traces say, the likeliest first.
std::vector<std::uint32_t> FindDataOffsets(const Traces& traces, std::uint32_t blockSize) {
  constexpr std::size_t kMost = 8;
  std::map<std::uint32_t, std::uint32_t> votes;
  for (const Run& run : traces.runs) ++votes[Phase(NodeBlockOf(run.offset, run.first, blockSize), blockSize)];
  for (const Directory& directory : traces.directories) {
    ++votes[Phase(static_cast<std::int64_t>(directory.offset), blockSize)];
  }
  std::vector<std::pair<std::uint32_t, std::uint32_t>> phases(votes.begin(), votes.end());
  std::stable_sort(phases.begin(), phases.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
  if (phases.size() > kMost) phases.resize(kMost);
  std::vector<std::uint32_t> offsets;
  for (const auto& [phase, count] : phases) {
    const std::uint32_t dataOffset = kBitmapOffset + Phase(std::int64_t{phase} - kBitmapOffset, blockSize);
    if (dataOffset - kBitmapOffset <= MaxBitmapSize(blockSize)) offsets.push_back(dataOffset);
  }
  return offsets;
}

struct Witnesses {
  int with = 0;
  int against = 0;
};

// Which directory begins at the offset; 0 when none does.
std::uint16_t DirectoryAt(const Traces& traces, std::uint64_t offset) {
  const auto at =
      std::lower_bound(traces.directories.begin(), traces.directories.end(), offset,
                       [](const Directory& directory, std::uint64_t value) { return directory.offset < value; });
  return at != traces.directories.end() && at->offset == offset ? at->number : std::uint16_t{0};
}

// The directories that lie where they should speak for it, those that lie elsewhere and not there against it; two that
// lie in each other's place have been exchanged and do neither.
void CountDirectories(const Traces& traces, std::uint32_t blockSize, std::uint32_t dataOffset, Witnesses* witnesses) {
  const auto placeOf = [&](std::uint16_t number) -> std::uint64_t {
    const auto record = traces.firstBlocks.find(number);
    const bool known = record != traces.firstBlocks.end();
    if (!known && number != kRootNode) return 0;
    return dataOffset + (std::uint64_t{known ? record->second : kFirstRootBlock} - 1) * blockSize;
  };
  std::map<std::uint16_t, bool> right;
  for (const Directory& directory : traces.directories) {
    const std::uint64_t place = placeOf(directory.number);
    if (place == 0) continue;
    const std::uint16_t other = DirectoryAt(traces, place);
    const bool exchanged = other != 0 && other != directory.number && placeOf(other) == directory.offset;
    if (!exchanged) right[directory.number] |= directory.offset == place;
  }
  for (const auto& directory : right) ++(directory.second ? witnesses->with : witnesses->against);
}

// The runs that fill one block or belong to block 1 speak for it; those against it that go on into another block, that
// lie where no block begins, or that would be other parts of a node block that lies elsewhere. A run within one block
// may be what is left of it, and one of a sector may have been written to the wrong place.
void CountRuns(const Traces& traces, std::uint32_t blockSize, std::uint32_t dataOffset, Witnesses* witnesses) {
  const std::uint32_t perBlock = blockSize / kNodeSize;
  std::map<std::uint32_t, const Run*> parts;  // by the index of the node block, the first that was met
  for (const Run& run : traces.runs) {
    const std::int64_t start = NodeBlockOf(run.offset, run.first, blockSize);
    const std::uint32_t slot = (run.first - 1) % perBlock;
    const bool aligned = Phase(start, blockSize) == Phase(dataOffset, blockSize);
    const bool within = slot + run.count <= perBlock || (slot == 0 && run.count % perBlock == 0);
    if (run.count <= kPerSector && !aligned) continue;
    if (start == dataOffset && run.first <= perBlock) {
      ++witnesses->with;
    } else if (!aligned || !within) {
      ++witnesses->against;
      continue;
    } else if (run.count == perBlock) {
      ++witnesses->with;
    }
    const Run& other = *parts.emplace((run.first - 1) / perBlock, &run).first->second;
    const bool elsewhere = NodeBlockOf(other.offset, other.first, blockSize) != start;
    const bool apart = run.first >= other.first + other.count || other.first >= run.first + run.count;
    if (run.count > kPerSector && elsewhere && apart) ++witnesses->against;
  }
}

}  // namespace

Layout SearchLayout(const Image& image, const Layout& guess) {
  constexpr int kEnough = 2;
  const Traces traces = Scan(image);
  Layout best;
  int most = 0;
  for (const std::uint32_t blockSize : kBlockSizes) {
    for (const std::uint32_t dataOffset : FindDataOffsets(traces, blockSize)) {
      Witnesses witnesses;
      CountDirectories(traces, blockSize, dataOffset, &witnesses);
      CountRuns(traces, blockSize, dataOffset, &witnesses);
      const int more = witnesses.with - witnesses.against;
      if (witnesses.with < kEnough || more < most || more <= 0) continue;
      best = more > most ? Layout{blockSize, dataOffset} : Layout{};
      most = more;
    }
  }
  if (best.blockSize != 0 || guess.blockSize == 0) return best;
  Witnesses witnesses;
  CountDirectories(traces, guess.blockSize, guess.dataOffset, &witnesses);
  CountRuns(traces, guess.blockSize, guess.dataOffset, &witnesses);
  return witnesses.against == 0 ? guess : Layout{};
}

}  // namespace orba::inspect

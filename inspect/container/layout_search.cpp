#include "inspect/container/layout_search.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <vector>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "volume/layout.h"

namespace orba::inspect {

namespace {

constexpr std::size_t kMostTraces = 100000;  // of each kind: by then the layout is certain
constexpr std::uint32_t kShortestRun = 4;
constexpr std::uint32_t kFirstRootBlock = 2;  // where formatting puts the root's directory

// Node records one behind the other, with numbers that go up by one.
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
  std::vector<Directory> directories;                  // where they begin; deleted ones too
};

// The last run is the one that may go on.
void TakeRecord(const std::uint8_t* bytes, std::uint64_t offset, Traces* traces) {
  const OrbNodeRecord record = DecodeNode(bytes);
  if (record.number == 0) return;
  if ((record.attributes & ORB_NODE_DIRECTORY) != 0 && record.direct[0] != kNoBlock) {
    traces->firstBlocks.emplace(record.number, record.direct[0]);
  }
  std::vector<Run>& runs = traces->runs;
  if (!runs.empty() && runs.back().offset + std::uint64_t{runs.back().count} * kNodeSize == offset &&
      runs.back().first + runs.back().count == record.number) {
    ++runs.back().count;
    return;
  }
  if (!runs.empty() && runs.back().count < kShortestRun) runs.pop_back();
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

Traces Scan(const Image& image) {
  constexpr std::size_t kPiece = 1 << 16;
  constexpr std::size_t kAhead = kNodeSize - 1;  // what a record that begins in one piece may need of the next
  Traces traces;
  const std::uint64_t size = std::min<std::uint64_t>(image.Size(), kContainerLimit);
  std::vector<std::uint8_t> bytes(kPiece + kAhead);
  for (std::uint64_t offset = 0; offset + kAhead < size; offset += kPiece) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), size - offset));
    if (image.Read(offset, bytes.data(), count)) TakeAll(bytes.data(), count - kAhead, offset, &traces);
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

// Block 1 by what most traces say; 0 when it would lie where it cannot.
std::uint32_t FindDataOffset(const Traces& traces, std::uint32_t blockSize) {
  std::map<std::uint32_t, std::uint32_t> votes;
  for (const Run& run : traces.runs) ++votes[Phase(NodeBlockOf(run.offset, run.first, blockSize), blockSize)];
  for (const Directory& directory : traces.directories) {
    ++votes[Phase(static_cast<std::int64_t>(directory.offset), blockSize)];
  }
  const auto most =
      std::max_element(votes.begin(), votes.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  if (most == votes.end()) return 0;
  const std::uint32_t dataOffset = kBitmapOffset + Phase(std::int64_t{most->first} - kBitmapOffset, blockSize);
  return dataOffset - kBitmapOffset <= MaxBitmapSize(blockSize) ? dataOffset : 0;
}

// The directories that lie where they should, less those that lie elsewhere and not there.
int CountDirectories(const Traces& traces, std::uint32_t blockSize, std::uint32_t dataOffset) {
  std::map<std::uint16_t, bool> right;
  for (const Directory& directory : traces.directories) {
    const auto record = traces.firstBlocks.find(directory.number);
    const bool known = record != traces.firstBlocks.end();
    if (!known && directory.number != kRootNode) continue;
    const std::uint32_t block = known ? record->second : kFirstRootBlock;
    right[directory.number] |= directory.offset == dataOffset + (std::uint64_t{block} - 1) * blockSize;
  }
  int count = 0;
  for (const auto& directory : right) count += directory.second ? 1 : -1;
  return count;
}

// The runs that fill one block or belong to block 1, less those that fill no whole blocks.
int CountRuns(const Traces& traces, std::uint32_t blockSize, std::uint32_t dataOffset) {
  const std::uint32_t perBlock = blockSize / kNodeSize;
  int count = 0;
  for (const Run& run : traces.runs) {
    const bool first = run.first <= perBlock && NodeBlockOf(run.offset, run.first, blockSize) == dataOffset;
    const bool whole = (run.first - 1) % perBlock == 0 && run.count % perBlock == 0;
    if (first || (whole && run.count == perBlock)) {
      ++count;
    } else if (!whole) {
      --count;
    }
  }
  return count;
}

}  // namespace

Layout SearchLayout(const Image& image) {
  constexpr int kEnough = 2;
  const Traces traces = Scan(image);
  Layout best;
  int most = kEnough - 1;
  for (const std::uint32_t blockSize : kBlockSizes) {
    const std::uint32_t dataOffset = FindDataOffset(traces, blockSize);
    if (dataOffset == 0) continue;
    const int witnesses = CountDirectories(traces, blockSize, dataOffset) + CountRuns(traces, blockSize, dataOffset);
    if (witnesses == most) best = {};
    if (witnesses <= most) continue;
    best = {blockSize, dataOffset};
    most = witnesses;
  }
  return best;
}

}  // namespace orba::inspect

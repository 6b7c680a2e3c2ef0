#include "inspect/container/reader.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

using std::to_string;

constexpr std::uint32_t kMostDirectoryBytes = 2 * 0x10000 * kDirEntrySize;  // no directory of the library is larger
constexpr std::uint32_t kCacheBytes = 1u << 19;
constexpr std::uint32_t kPiece = 1u << 16;  // bytes handed over at a time

Problem MakeProblem(Trouble trouble, std::uint32_t node, std::uint64_t index = 0, std::uint32_t block = kNoBlock) {
  return {trouble, static_cast<std::uint16_t>(node), index, block};
}

// The record, whatever its signature and number say, can be one of a file or directory: every field is within its
// bounds, and its time is a date.
bool IsPlausible(const Geometry& geometry, const OrbNodeRecord& record) {
  const std::uint16_t attributes = record.attributes;
  bool plausible = attributes == ORB_NODE_DIRECTORY || attributes == kRootAttributes ||
                   (attributes & ~(kNodeReadOnly | kNodeUserFlag)) == 0;
  plausible &= IsDate(record.time) && record.size < kContainerLimit;
  plausible &= record.indirect <= geometry.blocks && record.doubleIndirect <= geometry.blocks;
  for (const std::uint32_t word : record.reserved) plausible &= word == 0;
  for (const std::uint32_t block : record.direct) plausible &= block <= geometry.blocks;
  return plausible;
}

bool IsDots(const std::string& name) { return name == "." || name == ".."; }

// The name that an entry's 30 bytes spell, or `name`, folded: equal when a path with `name` leads there.
bool IsNamed(const OrbDirEntry& entry, const std::string& upper) {
  std::size_t i = 0;
  for (; i < upper.size(); ++i) {
    const char c = entry.name[i];
    if (c == '\0' || (c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c) != upper[i]) return false;
  }
  return i < kNameSize && entry.name[i] == '\0';
}

bool IsDotInItsPlace(const OrbDirEntry& entry, std::uint32_t index) {
  return index < 2 && NameOf(entry) == (index == 0 ? "." : "..");
}

Problem JudgeName(const Listed& entry, std::unordered_set<std::string>* seen) {
  const auto number = entry.number;
  if (IsDots(entry.name)) return MakeProblem(Trouble::kNameReserved, number, entry.index);
  if (!IsLegalName(entry.name)) return MakeProblem(Trouble::kNameIllegal, number, entry.index);
  if (!seen->insert(UpperCase(entry.name)).second) return MakeProblem(Trouble::kNameTwice, number, entry.index);
  return {};
}

struct Words {
  const char* name;
  const char* sentence;  // {i} is the index, {b} the block, {n} the node
};

constexpr Words kWords[] = {
    {"none", ""},
    {"host-cannot-read", "the host cannot read it"},
    {"container-short", "it ends before its data area"},
    {"header-damaged", "the header is damaged"},
    {"layout-unknown", "no layout can be made out; this may be no container at all"},
    {"not-found", "there is no such file or directory"},
    {"not-a-directory", "it is a file, not a directory"},
    {"not-a-file", "it is a directory, not a file"},
    {"node-outside", "its entry refers to node {n}, which the container cannot have"},
    {"node-without-block", "no block holds its node {n}"},
    {"node-lost", "the record of its node {n} is lost"},
    {"node-number", "the record of its node {n} carries another number"},
    {"node-kind", "its attributes do not fit what it holds"},
    {"hole", "no block for logical block {i}"},
    {"block-outside", "logical block {i} is block {b}, which the container does not hold"},
    {"size-impossible", "its size counts more blocks than the container holds"},
    {"crossed", "block maps are crossed: they name the same blocks over and over"},
    {"directory-size", "its size is none that a directory can have"},
    {"block-foreign", "block {b} should hold its entries from logical block {i} on, but holds something else"},
    {"directory-loop", "it leads back to a directory above it"},
    {"directory-again", "it is another name of a directory that was listed already"},
    {"name-illegal", "its name is damaged: no path can hold it"},
    {"name-reserved", "its name is damaged: it is that of the directory itself or the one above it"},
    {"name-twice", "an earlier entry has the same name"},
};
static_assert(std::size(kWords) == static_cast<std::size_t>(Trouble::kNameTwice) + 1, "words for every trouble");

void Fill(std::string* text, const std::string& place, std::uint64_t value) {
  const std::size_t at = text->find(place);
  if (at != std::string::npos) text->replace(at, place.size(), to_string(value));
}

}  // namespace

const char* Name(Trouble trouble) { return kWords[static_cast<std::size_t>(trouble)].name; }

std::string ToText(const Problem& problem) {
  std::string text = kWords[static_cast<std::size_t>(problem.trouble)].sentence;
  Fill(&text, "{i}", problem.index);
  Fill(&text, "{b}", problem.block);
  Fill(&text, "{n}", problem.node);
  return text;
}

// ---- Bounds ---------------------------------------------------------------------------------------------------------

Budget::Budget(const Geometry& geometry)
    : met_(geometry.blocks + 1u, false), metNodes_(0x10000, false), left_(2 * std::uint64_t{geometry.blocks} + 1024) {}

bool Budget::Meet(std::uint32_t block) {
  if (block >= met_.size() || met_[block]) return Step();
  met_[block] = true;
  return true;
}

bool Budget::MeetNode(std::uint16_t number) {
  if (metNodes_[number]) return Step();
  metNodes_[number] = true;
  return true;
}

// ---- Opening --------------------------------------------------------------------------------------------------------

Reader::Reader(const Image& image) : image_(image) {
  std::uint8_t bytes[kHeaderSize] = {};
  if (image.Size() >= kHeaderSize && !image.Read(0, bytes, sizeof bytes)) {
    problems_.push_back(MakeProblem(Trouble::kHostCannotRead, 0));
  }
  header_ = DecodeHeader(bytes);
  geometry_ = FindGeometry(image, header_);
  if (!geometry_.known()) {
    problems_.push_back(MakeProblem(Trouble::kLayoutUnknown, 0));
    return;
  }
  if (header_.signature != kVolumeSignature || header_.version != kVolumeVersion || !FieldsAgree(header_) ||
      header_.dataOffset != geometry_.dataOffset) {
    problems_.push_back(MakeProblem(Trouble::kHeaderDamaged, 0));
  }
  ReadTables();
  const std::uint32_t places = std::min(kCacheBytes / geometry_.blockSize, geometry_.blocks + 1);
  cache_.resize(std::size_t{places} * geometry_.blockSize);
  cached_.assign(places, kNoBlock);
}

void Reader::ReadTables() {
  std::vector<std::uint8_t> bytes(kNodeTableSize);
  ReadTable(kHeaderSize, &bytes);
  table_ = DecodeWords(bytes.data(), kNodeTableEntries);
  bitmap_.resize(geometry_.bitmapSize);
  ReadTable(kBitmapOffset, &bitmap_);
}

// Zeros where it cannot be read.
void Reader::ReadTable(std::uint64_t offset, std::vector<std::uint8_t>* bytes) {
  if (image_.Read(offset, bytes->data(), bytes->size())) return;
  const bool ends = image_.Size() < offset + bytes->size();
  problems_.push_back(MakeProblem(ends ? Trouble::kContainerShort : Trouble::kHostCannotRead, 0));
  std::fill(bytes->begin(), bytes->end(), std::uint8_t{0});
}

bool Reader::IsFreeBit(std::uint32_t number) const {
  const std::uint32_t byte = BitmapIndex(number);
  return byte < bitmap_.size() && (bitmap_[byte] & BitmapBit(number)) != 0;
}

std::uint32_t Reader::NodeBlocks() const {
  return static_cast<std::uint32_t>(
      std::count_if(table_.begin(), table_.end(), [](std::uint32_t b) { return b != 0; }));
}

std::uint32_t Reader::FreeNodes() const {
  std::uint32_t count = 0;
  if (!readable()) return count;
  for (std::uint32_t number = 1; number <= geometry_.nodeLimit(); ++number) count += IsFreeBit(number) ? 1 : 0;
  return count;
}

std::uint32_t Reader::FreeBlocks(Problem* problem) {
  std::vector<bool> met(geometry_.blocks + 1u, false);
  std::uint32_t count = 0;
  const auto take = [&](std::uint32_t block) {
    if (!geometry_.Holds(block) || met[block]) return false;
    met[block] = true;
    ++count;
    return true;
  };
  Problem found = readable() ? Problem() : MakeProblem(Trouble::kLayoutUnknown, 0);
  std::uint32_t record = readable() ? header_.freeChainHead : kNoBlock;
  while (record != kNoBlock && !found) {
    const bool fresh = take(record);
    const std::uint8_t* const bytes = fresh ? Cached(record) : nullptr;
    const auto chain = bytes == nullptr ? ChainRecord() : DecodeChain({bytes, bytes + geometry_.blockSize});
    if (bytes == nullptr || chain.signature != kFreeChainSignature || chain.count > geometry_.chainCapacity()) {
      found = MakeProblem(fresh && bytes == nullptr ? Trouble::kHostCannotRead : Trouble::kBlockForeign, 0, 0, record);
      break;
    }
    for (const std::uint32_t block : chain.heap) take(block);
    record = chain.next;
  }
  if (problem != nullptr) *problem = found;
  return count;
}

// The block's bytes, good until the next call; null when the container does not hold it or the host cannot read it.
const std::uint8_t* Reader::Cached(std::uint32_t block) {
  if (!geometry_.Holds(block)) return nullptr;
  const std::size_t place = block % cached_.size();
  std::uint8_t* const bytes = &cache_[place * geometry_.blockSize];
  if (cached_[place] == block) return bytes;
  cached_[place] = kNoBlock;
  if (!image_.Read(geometry_.BlockOffset(block), bytes, geometry_.blockSize)) return nullptr;
  cached_[place] = block;
  return bytes;
}

// ---- Nodes ----------------------------------------------------------------------------------------------------------

Problem Reader::ReadNode(std::uint32_t number, Node* node) {
  *node = {};
  node->number = static_cast<std::uint16_t>(number);
  if (!readable()) return MakeProblem(Trouble::kLayoutUnknown, number);
  if (number == 0 || number > geometry_.nodeLimit()) return MakeProblem(Trouble::kNodeOutside, number);
  const std::uint32_t block = table_[(number - 1) / geometry_.nodesPerBlock()];
  if (!geometry_.Holds(block)) return MakeProblem(Trouble::kNodeWithoutBlock, number, 0, block);
  const std::uint8_t* const bytes = Cached(block);
  if (bytes == nullptr) return MakeProblem(Trouble::kHostCannotRead, number, 0, block);
  const OrbNodeRecord record = DecodeNode(bytes + (number - 1) % geometry_.nodesPerBlock() * std::size_t{kNodeSize});
  if (record.signature != kNodeSignature && record.number != number && !IsPlausible(geometry_, record)) {
    return MakeProblem(Trouble::kNodeLost, number, 0, block);
  }
  node->record = record;
  node->free = IsFreeBit(number);
  const bool marked = (record.attributes & ORB_NODE_DIRECTORY) != 0;
  node->directory = marked ? number == kRootNode || !IsNoDirectory(*node) : BeginsAsDirectory(*node);
  if (number == kRootNode && !node->directory) return MakeProblem(Trouble::kNodeLost, number, 0, block);
  if (record.number != number) return MakeProblem(Trouble::kNodeNumber, number, 0, block);
  return node->directory == marked ? Problem() : MakeProblem(Trouble::kNodeKind, number, 0, block);
}

// A file whose contents are the directory of its own number.
bool Reader::BeginsAsDirectory(const Node& node) {
  const std::uint32_t size = node.size();
  std::uint8_t bytes[2 * kDirEntrySize];
  if (size % kDirEntrySize != 0 || size < sizeof bytes || !geometry_.Holds(node.record.direct[0])) return false;
  if (!image_.Read(geometry_.BlockOffset(node.record.direct[0]), bytes, sizeof bytes)) return false;
  const OrbDirEntry self = DecodeEntry(bytes);
  return self.node == node.number && NameOf(self) == "." && NameOf(DecodeEntry(bytes + kDirEntrySize)) == "..";
}

// A directory with entries in its direct blocks, but neither dot among them, nor a name that leads anywhere.
bool Reader::IsNoDirectory(const Node& node) {
  bool any = false;
  const std::uint64_t blocks = std::min<std::uint64_t>(geometry_.BlocksFor(node.size()), kDirectBlocks);
  for (std::uint64_t i = 0; i < blocks && geometry_.Holds(node.record.direct[i]); ++i) {
    const std::uint8_t* const bytes = Cached(node.record.direct[i]);
    if (bytes == nullptr) return false;
    for (std::uint32_t slot = 0; slot < geometry_.entriesPerBlock(); ++slot) {
      const OrbDirEntry entry = DecodeEntry(bytes + slot * kDirEntrySize);
      const std::string name = NameOf(entry);
      if (i == 0 && slot == 0 && (name == "." || entry.node == node.number)) return false;
      if (i == 0 && slot == 1 && name == "..") return false;
      const bool leads = entry.node > kRootNode && entry.node <= geometry_.nodeLimit() && !IsFreeBit(entry.node);
      if (leads && IsLegalName(name)) return false;
      any |= entry.node != 0;
    }
  }
  return any;
}

// ---- Contents -------------------------------------------------------------------------------------------------------

// The slot of a map block; `place` tells whose it is.
Problem Reader::ReadMapSlot(const Problem& place, std::uint32_t mapBlock, std::uint64_t slot, std::uint32_t* block) {
  Problem problem = place;
  problem.block = mapBlock;
  problem.trouble = mapBlock == kNoBlock         ? Trouble::kHole
                    : !geometry_.Holds(mapBlock) ? Trouble::kBlockOutside
                                                 : Trouble::kHostCannotRead;
  const std::uint8_t* const bytes = Cached(mapBlock);
  if (bytes == nullptr) return problem;
  *block = Get32(bytes + kWordSize * slot);
  return {};
}

Problem Reader::FindBlockOf(const Node& node, std::uint64_t index, std::uint32_t* block) {
  const std::uint64_t slots = geometry_.mapSlots();
  const Problem place = MakeProblem(Trouble::kNone, node.number, index);
  Problem problem;
  *block = kNoBlock;
  if (index < kDirectBlocks) {
    *block = node.record.direct[index];
  } else if (index < kDirectBlocks + slots) {
    problem = ReadMapSlot(place, node.record.indirect, index - kDirectBlocks, block);
  } else if (index < geometry_.mapCapacity()) {
    const std::uint64_t rest = index - kDirectBlocks - slots;
    std::uint32_t second = kNoBlock;
    problem = ReadMapSlot(place, node.record.doubleIndirect, rest / slots, &second);
    if (!problem) problem = ReadMapSlot(place, second, rest % slots, block);
  }
  if (problem || geometry_.Holds(*block)) return problem;
  return MakeProblem(*block == kNoBlock ? Trouble::kHole : Trouble::kBlockOutside, node.number, index, *block);
}

Problem Reader::FindExtent(const Node& node, std::uint64_t index, std::uint64_t most, Extent* extent, Budget* budget) {
  *extent = {};
  if (!readable()) return MakeProblem(Trouble::kLayoutUnknown, node.number);
  const std::uint64_t blocks = geometry_.BlocksFor(node.size());
  most = index < blocks ? std::min(most, blocks - index) : 0;
  while (extent->count < most) {
    std::uint32_t block = kNoBlock;
    const Problem problem = FindBlockOf(node, index + extent->count, &block);
    if (extent->count > 0 && (problem || block != extent->block + extent->count)) return {};
    if (problem) return problem;
    if (budget != nullptr && !budget->Meet(block)) {
      return extent->count > 0 ? Problem() : MakeProblem(Trouble::kCrossed, node.number, index);
    }
    if (extent->count == 0) extent->block = block;
    ++extent->count;
  }
  return {};
}

Problem Reader::Read(const Node& node, std::uint32_t position, void* out, std::uint32_t count, std::uint32_t* done) {
  *done = 0;
  auto* const to = static_cast<std::uint8_t*>(out);
  const std::uint32_t blockSize = geometry_.blockSize;
  count = position < node.size() ? std::min(count, node.size() - position) : 0;
  while (*done < count) {
    const std::uint32_t at = position + *done;
    const std::uint32_t within = at % blockSize;
    Extent extent;
    const std::uint64_t blocks = (std::uint64_t{within} + count - *done + blockSize - 1) / blockSize;
    const Problem problem = FindExtent(node, at / blockSize, blocks, &extent);
    if (problem) return problem;
    const auto length = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(count - *done, std::uint64_t{extent.count} * blockSize - within));
    if (!image_.Read(geometry_.BlockOffset(extent.block) + within, to + *done, length)) {
      // Up to the block that the host cannot read.
      const std::uint32_t first = std::min(length, blockSize - within);
      if (!image_.Read(geometry_.BlockOffset(extent.block) + within, to + *done, first)) {
        return MakeProblem(Trouble::kHostCannotRead, node.number, at / blockSize, extent.block);
      }
      *done += first;
      continue;
    }
    *done += length;
  }
  return {};
}

Problem Reader::ReadAll(const Node& file, const Take& take, Budget* budget) {
  if (!readable()) return MakeProblem(Trouble::kLayoutUnknown, file.number);
  if (file.directory) return MakeProblem(Trouble::kNotAFile, file.number);
  const std::uint32_t blockSize = geometry_.blockSize;
  const std::uint64_t blocks = geometry_.BlocksFor(file.size());
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, blocks * blockSize)));
  for (std::uint64_t index = 0; index < blocks;) {
    // A file with more blocks than the container names some of them again.
    if (index >= geometry_.blocks) return MakeProblem(Trouble::kSizeImpossible, file.number, index);
    Extent extent;
    const Problem problem = FindExtent(file, index, kPiece / blockSize, &extent, budget);
    if (problem) return problem;
    const std::uint64_t from = index * blockSize;
    const auto length =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(extent.count * blockSize, file.size() - from));
    std::uint32_t done = 0;
    const Problem stopped = Read(file, static_cast<std::uint32_t>(from), bytes.data(), length, &done);
    if (done > 0 && !take(bytes.data(), done)) return {};
    if (stopped) return stopped;
    index += extent.count;
  }
  return {};
}

// ---- Directories ----------------------------------------------------------------------------------------------------

// Not a directory's block: it has six entries or more, none with a name that an entry can have; or, behind the first
// block, it is a record of the free chain, which a directory's last block becomes before the smaller size is stored.
bool Reader::IsForeign(const std::uint8_t* bytes, bool first) const {
  constexpr std::uint32_t kEnough = 6;
  std::uint32_t entries = 0;
  if (!first && Get32(bytes) == kFreeChainSignature &&
      Get32(bytes + offsetof(FreeChainRecord, count)) <= geometry_.chainCapacity()) {
    const std::uint32_t number = DecodeEntry(bytes).node;
    const bool used = number <= geometry_.nodeLimit() && !IsFreeBit(number);
    if (geometry_.Holds(Get32(bytes + offsetof(FreeChainRecord, next))) || !used) return true;
  }
  for (std::uint32_t slot = 0; slot < geometry_.entriesPerBlock(); ++slot) {
    const OrbDirEntry entry = DecodeEntry(bytes + slot * kDirEntrySize);
    if (entry.node == 0) continue;
    const std::string name = NameOf(entry);
    if (IsDots(name) || IsLegalName(name)) return false;
    ++entries;
  }
  return entries >= kEnough;
}

// Reads block `index` of a directory.
Problem Reader::ReadEntries(const Node& directory, std::uint64_t index, std::uint8_t* out, Budget* budget) {
  std::uint32_t block = kNoBlock;
  const Problem problem = FindBlockOf(directory, index, &block);
  if (budget != nullptr && !(problem ? budget->Step() : budget->Meet(block))) {
    return MakeProblem(Trouble::kCrossed, directory.number, index);
  }
  if (problem) return problem;
  const std::uint8_t* const bytes = Cached(block);
  if (bytes == nullptr) return MakeProblem(Trouble::kHostCannotRead, directory.number, index, block);
  if (IsForeign(bytes, index == 0)) return MakeProblem(Trouble::kBlockForeign, directory.number, index, block);
  std::copy(bytes, bytes + geometry_.blockSize, out);
  return {};
}

// Offers the entries with a number to `visit`, the dots in their places left out, until it returns false: then the
// result is false too.
bool Reader::VisitEntries(const Node& directory, const EntryVisitor& visit, std::vector<Problem>* problems,
                          Budget* budget) {
  const std::uint32_t size = directory.size();
  if (size == 0 || size > kMostDirectoryBytes || size % kDirEntrySize != 0) {
    problems->push_back(MakeProblem(Trouble::kDirectorySize, directory.number));
  }
  const std::uint64_t blocks = geometry_.BlocksFor(std::min(size, kMostDirectoryBytes));
  bool ended = false;
  std::vector<std::uint8_t> bytes(geometry_.blockSize);
  for (std::uint64_t index = 0; index < blocks; ++index) {
    const Problem problem = ReadEntries(directory, index, bytes.data(), budget);
    if (problem) problems->push_back(problem);
    if (problem.trouble == Trouble::kCrossed) break;
    ended |= problem.trouble != Trouble::kNone;
    if (!problem && !VisitBlock(directory, index, bytes, visit, &ended)) return false;
  }
  return true;
}

// `*ended` is set where an entry without a number is met.
bool Reader::VisitBlock(const Node& directory, std::uint64_t index, const std::vector<std::uint8_t>& bytes,
                        const EntryVisitor& visit, bool* ended) const {
  const std::uint32_t perBlock = geometry_.entriesPerBlock();
  for (std::uint32_t slot = 0; slot < perBlock; ++slot) {
    const auto at = static_cast<std::uint32_t>(index * perBlock + slot);
    const OrbDirEntry entry = DecodeEntry(&bytes[slot * kDirEntrySize]);
    const bool past = at >= EntryCount(directory.record);
    *ended |= entry.node == 0;
    if (past && *ended) break;
    if (entry.node == 0 || IsDotInItsPlace(entry, at)) continue;
    const auto place = past ? Listed::Place::kPastSize : *ended ? Listed::Place::kBehindHole : Listed::Place::kListed;
    if (!visit(entry, at, place)) return false;
  }
  return true;
}

Listing Reader::List(const Node& directory, Budget* budget) {
  Listing listing;
  if (!readable() || !directory.directory) {
    listing.problems.push_back(
        MakeProblem(readable() ? Trouble::kNotADirectory : Trouble::kLayoutUnknown, directory.number));
    return listing;
  }
  std::unordered_set<std::string> seen;
  bool crossed = false;
  const auto take = [&](const OrbDirEntry& entry, std::uint32_t index, Listed::Place place) {
    crossed = budget != nullptr && !budget->MeetNode(entry.node);
    if (crossed) return false;
    Listed listed;
    listed.name = NameOf(entry);
    listed.number = entry.node;
    listed.index = index;
    listed.place = place;
    listed.nameProblem = JudgeName(listed, &seen);
    listed.problem = ReadNode(entry.node, &listed.node);
    listing.entries.push_back(std::move(listed));
    return true;
  };
  VisitEntries(directory, take, &listing.problems, budget);
  if (crossed) listing.problems.push_back(MakeProblem(Trouble::kCrossed, directory.number));
  return listing;
}

Problem Reader::FindIn(const Node& directory, const std::string& name, Node* node) {
  *node = {};
  if (!readable()) return MakeProblem(Trouble::kLayoutUnknown, directory.number);
  if (!directory.directory) return MakeProblem(Trouble::kNotADirectory, directory.number);
  std::vector<Problem> problems;
  const std::string upper = UpperCase(name);
  std::uint32_t number = 0;
  const auto match = [&](const OrbDirEntry& entry, std::uint32_t, Listed::Place) {
    if (!IsNamed(entry, upper)) return true;
    number = entry.node;
    return false;
  };
  if (!VisitEntries(directory, match, &problems, nullptr)) return ReadNode(number, node);
  return problems.empty() ? MakeProblem(Trouble::kNotFound, directory.number) : problems.front();
}

Problem Reader::Find(const std::string& path, Node* node) {
  std::vector<Node> above(1);
  Problem problem = Root(&above.back());
  for (std::size_t at = 0; at < path.size() && !problem.IsFailure();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string name = path.substr(at, end - at);
    at = end + 1;
    if (name == ".." && above.size() > 1) above.pop_back();
    if (name.empty() || IsDots(name)) continue;
    Node next;
    problem = FindIn(above.back(), name, &next);
    above.push_back(next);
  }
  *node = above.back();
  return problem;
}

// ---- Walks ----------------------------------------------------------------------------------------------------------

namespace {

// A directory that a walk is in.
struct Level {
  Node node;
  Listing listing;
  std::size_t next = 0;    // the entry to go on with
  std::size_t length = 0;  // of the path up to here
};

class Walker {
 public:
  using Visitor = std::function<Onward(const Step&)>;

  Walker(Reader* reader, const std::string& path, const Visitor& visit, Budget* budget)
      : reader_(reader),
        path_(path),
        visit_(visit),
        budget_(budget),
        entered_(0x10000, false),
        above_(0x10000, false) {}

  bool Run(const Node& directory);

 private:
  bool Enter(const Node& directory);
  bool Leave();
  bool Next(Level* level);

  Reader* reader_;
  std::string path_;
  const Visitor& visit_;
  Budget* budget_;
  std::vector<bool> entered_;  // by node number
  std::vector<bool> above_;
  std::vector<Level> levels_;
};

bool Walker::Enter(const Node& directory) {
  entered_[directory.number] = true;
  above_[directory.number] = true;
  levels_.push_back({directory, reader_->List(directory, budget_), 0, path_.size()});
  for (const Problem& problem : levels_.back().listing.problems) {
    if (visit_({Step::What::kProblem, path_, levels_.back().node, nullptr, problem}) == Onward::kStop) return false;
  }
  return true;
}

bool Walker::Leave() {
  const bool on = visit_({Step::What::kLeave, path_, levels_.back().node, nullptr, {}}) != Onward::kStop;
  above_[levels_.back().node.number] = false;
  levels_.pop_back();
  return on;
}

bool Walker::Next(Level* level) {
  const Listed& entry = level->listing.entries[level->next++];
  path_.resize(level->length);
  path_ += "/" + entry.name;
  const Onward onward = visit_({Step::What::kEntry, path_, level->node, &entry, {}});
  if (onward == Onward::kStop) return false;
  if (onward == Onward::kPast || !entry.node.directory || entry.problem.IsFailure()) return true;
  if (!entered_[entry.number]) return Enter(Node(entry.node));
  const Trouble trouble = above_[entry.number] ? Trouble::kDirectoryLoop : Trouble::kDirectoryAgain;
  const Problem problem = MakeProblem(trouble, entry.number, entry.index);
  return visit_({Step::What::kProblem, path_, level->node, &entry, problem}) != Onward::kStop;
}

bool Walker::Run(const Node& directory) {
  if (!Enter(directory)) return false;
  while (!levels_.empty()) {
    Level* const level = &levels_.back();
    const bool more = level->next < level->listing.entries.size();
    path_.resize(more ? path_.size() : level->length);
    if (!(more ? Next(level) : Leave())) return false;
  }
  return true;
}

}  // namespace

bool Walk(Reader* reader, const Node& directory, const std::string& path,
          const std::function<Onward(const Step&)>& visit, Budget* budget) {
  return Walker(reader, path, visit, budget).Run(directory);
}

}  // namespace orba::inspect

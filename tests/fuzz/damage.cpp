// A sweep of damages over small containers, judged by the promise of repair: what a reader could read before the repair
// can be read after it. Beside that, what was there before the damage is looked for: a file none of whose own bytes
// were touched - record, map and contents - nor those that say where its record lies - the header's layout and the
// entry of the node-block table - must be there after the repair, under whatever name. Where its path still read as the
// file, nothing else may be there afterwards, unless the promise put what was read under /LOST.FND.
//
//   fuzz_damage --bits              every bit of the metadata, one at a time; --only NAME: of one container;
//                                   --minutes N: for so long, and then says how many bits were left
//   fuzz_damage --seed N --runs M   M containers with 1 to 300 damages each: bits, bytes, sectors and blocks erased,
//                                   copied and swapped, the end cut off; seed N and up
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/block_map.h"
#include "inspect/container/fields.h"
#include "inspect/repair/repair.h"
#include "tests/support/image_builder.h"
#include "tests/support/repair_harness.h"

namespace {

using namespace orba::inspect;
using testimage::Bytes;
using testimage::ImageBuilder;

struct Tally {
  std::uint64_t images = 0;
  std::uint64_t left = 0;        // bits for which there was no time
  std::uint64_t impossible = 0;  // nothing can be planned
  std::uint64_t readable = 0, kept = 0, excused = 0, regained = 0, lostFound = 0;
  std::uint64_t broken = 0;     // files that the promise says are lost
  std::uint64_t unclean = 0;    // containers that one repair did not make clean
  std::uint64_t untouched = 0;  // files of the sound container that hold something and whose own bytes were not touched
  std::uint64_t gone = 0;       // of these, those that are nowhere
  std::uint64_t unplaced = 0;   // the same, but nothing says any more where their records lie
  std::uint64_t displaced = 0;  // of these, those whose path led to them before, and leads to something else now
  double slowest = 0;
};

// A file of the sound container, with the ranges of bytes that are its own.
struct Original {
  std::string path;
  Bytes contents;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
  std::uint64_t tableEntry;
};

struct Sound {
  std::string name;
  Bytes bytes;
  std::vector<Original> files;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> metadata;
  std::uint32_t blockSize = 0;
  std::uint32_t dataOffset = 0;
};

Sound Describe(const std::string& name, const ImageBuilder& image) {
  Sound sound;
  sound.name = name;
  sound.bytes = image.bytes();
  const MemoryImage memory(sound.bytes);
  const Report report = Check(memory);
  if (!report.IsClean()) std::abort();
  const Geometry& geometry = report.model.geometry;
  sound.blockSize = geometry.blockSize;
  sound.dataOffset = geometry.dataOffset;
  const auto tree = testimage::Tree(sound.bytes);
  sound.metadata.emplace_back(0, 56);
  for (std::uint32_t i = 0; i < 224; ++i) {
    if (report.model.table[i] != 0 || i < 4) sound.metadata.emplace_back(128 + 4 * i, 132 + 4 * i);
  }
  for (std::uint32_t block = 1; block < report.model.blocks.size(); ++block) {
    const BlockUse use = report.model.blocks[block].use;
    if (use != BlockUse::kFile && use != BlockUse::kFree && use != BlockUse::kNothing) {
      sound.metadata.emplace_back(geometry.BlockOffset(block), geometry.BlockOffset(block) + geometry.blockSize);
    }
  }
  sound.metadata.emplace_back(1024, 1024 + (report.model.nodes.size() - report.totals.freeNodes) / 8 + 2);
  for (const NodeInfo& node : report.model.nodes) {
    if (node.reach != Reach::kRoot || node.IsDirectory() || node.record.size == 0) continue;
    Original file;
    file.path = PathOf(report.model, node.number);
    file.contents = tree.at(file.path);
    file.tableEntry = TableEntryOffset((node.number - 1u) / geometry.nodesPerBlock());
    file.ranges.emplace_back(node.offset, node.offset + 64);
    VisitMap(memory, geometry, node.record, node.offset, [&](const MapSlot& slot) {
      if (slot.block != 0 && slot.block <= geometry.blocks) {
        file.ranges.emplace_back(geometry.BlockOffset(slot.block),
                                 geometry.BlockOffset(slot.block) + geometry.blockSize);
      }
      return slot.block != 0;
    });
    sound.files.push_back(std::move(file));
  }
  return sound;
}

std::vector<Sound> SoundContainers() {
  std::vector<Sound> all;
  {
    ImageBuilder image(1024, 32);
    image.AddFile(1, "A", 1500);
    const auto d = image.AddDirectory(1, "D");
    image.AddFile(d, "B", 7 * 1024);
    const auto e = image.AddDirectory(d, "E");
    image.AddFile(e, "C", 10);
    image.AddFile(1, "EMPTY", 0);
    image.AddFile(e, "BIG", 300 * 1024);
    const auto free = image.AppendBlock();
    image.AppendBlock();
    image.SetChain({{free, free + 1}});
    all.push_back(Describe("small", image));
  }
  {
    ImageBuilder image(1024, 32);
    std::uint16_t dirs[4];
    for (int i = 0; i < 4; ++i) dirs[i] = image.AddDirectory(1, "DIR" + std::to_string(i));
    for (int i = 0; i < 28; ++i)
      image.AddFile(dirs[i % 4], "F" + std::to_string(i), 40u + static_cast<unsigned>(i) * 37u);
    all.push_back(Describe("turns", image));
  }
  {
    ImageBuilder image(1024, 64);
    std::uint16_t dirs[4];
    for (int i = 0; i < 4; ++i) dirs[i] = image.AddDirectory(i < 2 ? 1 : dirs[i - 2], "DIR" + std::to_string(i));
    for (int i = 0; i < 160; ++i)
      image.AddFile(dirs[i / 40], "F" + std::to_string(i), 40u + static_cast<unsigned>(i) * 7u);
    all.push_back(Describe("rows", image));
  }
  {
    ImageBuilder image(4096, 64);
    const auto d = image.AddDirectory(1, "D");
    for (int i = 0; i < 150; ++i)
      image.AddFile(i % 3 != 0 ? d : 1, "F" + std::to_string(i), 40u + static_cast<unsigned>(i) * 7u);
    all.push_back(Describe("large", image));
  }
  return all;
}

bool Differ(const Bytes& sound, const Bytes& damaged, std::uint64_t start, std::uint64_t end) {
  return end > damaged.size() ||
         std::memcmp(&sound[start], &damaged[start], static_cast<std::size_t>(end - start)) != 0;
}

bool Touches(const Original& file, const Bytes& sound, const Bytes& damaged) {
  return std::any_of(file.ranges.begin(), file.ranges.end(),
                     [&](const auto& range) { return Differ(sound, damaged, range.first, range.second); });
}

// Nothing says where the file's record lies.
bool IsUnplaced(const Original& file, const Bytes& sound, const Bytes& damaged) {
  return Differ(sound, damaged, offsetof(orba::VolumeHeader, headerSize),
                offsetof(orba::VolumeHeader, freeChainHead)) ||
         Differ(sound, damaged, file.tableEntry, file.tableEntry + kWordSize);
}

bool g_Verbose = false;
std::string g_Keep;

void Try(const Sound& sound, const Bytes& damaged, const std::string& what, Tally* tally) {
  const auto start = std::chrono::steady_clock::now();
  const MemoryImage before(damaged);
  const Plan plan = PlanRepair(before, testimage::kRepairTime);
  const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  tally->slowest = std::max(tally->slowest, took);
  ++tally->images;
  if (!plan.possible) {
    ++tally->impossible;
    if (g_Verbose) std::printf("%s %s: %s\n", sound.name.c_str(), what.c_str(), plan.problem.c_str());
    return;
  }
  const Bytes repaired = testimage::AfterWrites(plan, damaged, testimage::WriteCount(plan));
  const MemoryImage after(repaired);
  Vouched vouched;
  vouched.none = (damaged[52] & 2) != 0;
  const Promise promise = JudgePromise(before, after, vouched);
  std::string fault;
  const Report report = Check(after);
  if (!report.IsClean() || report.marked) {
    ++tally->unclean;
    fault += " unclean";
  }
  tally->readable += promise.readable;
  tally->kept += promise.kept;
  tally->excused += promise.excused;
  tally->regained += promise.regained;
  tally->lostFound += promise.toLost;
  tally->broken += promise.lost();
  if (promise.lost() > 0) fault += " broken";
  const auto was = testimage::Tree(damaged);
  const auto is = testimage::Tree(repaired);
  std::set<Bytes> contents;
  for (const auto& [path, bytes] : is) contents.insert(bytes);
  const auto reads = [](const auto& tree, const Original& file) {
    const auto at = tree.find(file.path);
    return at != tree.end() && at->second == file.contents;
  };
  for (const Original& file : sound.files) {
    if (Touches(file, sound.bytes, damaged)) continue;
    ++tally->untouched;
    if (reads(is, file)) continue;
    if (is.count(file.path) > 0 && reads(was, file)) {
      ++tally->displaced;
      fault += " displaced:" + file.path;
    }
    if (contents.count(file.contents) > 0) continue;
    const bool unplaced = IsUnplaced(file, sound.bytes, damaged);
    ++(unplaced ? tally->unplaced : tally->gone);
    fault += (unplaced ? " unplaced:" : " gone:") + file.path;
  }
  if (g_Verbose && !fault.empty()) std::printf("%s %s:%s\n", sound.name.c_str(), what.c_str(), fault.c_str());
  if (!g_Keep.empty() && !fault.empty()) {
    std::FILE* file = std::fopen((g_Keep + "/" + sound.name + "-" + what + ".orb").c_str(), "wb");
    std::fwrite(damaged.data(), 1, damaged.size(), file);
    std::fclose(file);
    std::printf("%s\n", ToText(plan).c_str());
  }
}

using Deadline = std::chrono::steady_clock::time_point;

void Bits(const Sound& sound, Deadline deadline, Tally* tally) {
  for (const auto& [start, end] : sound.metadata) {
    for (std::uint64_t at = start; at < end; ++at) {
      if (std::chrono::steady_clock::now() >= deadline) {
        tally->left += 8 * (end - at);
        break;
      }
      for (int bit = 0; bit < 8; ++bit) {
        Bytes damaged = sound.bytes;
        damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ (1 << bit));
        Try(sound, damaged, "bit-" + std::to_string(at) + "-" + std::to_string(bit), tally);
      }
    }
  }
}

class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}
  std::uint64_t Below(std::uint64_t end) { return end == 0 ? 0 : engine_() % end; }

 private:
  std::mt19937_64 engine_;
};

// A byte of the metadata, mostly.
std::uint64_t Place(const Sound& sound, Chance* chance) {
  if (chance->Below(8) == 0) return chance->Below(sound.bytes.size());
  const auto& range = sound.metadata[chance->Below(sound.metadata.size())];
  return range.first + chance->Below(range.second - range.first);
}

void Damage(const Sound& sound, Chance* chance, Bytes* bytes) {
  const std::uint32_t unit = chance->Below(2) == 0 ? 512 : sound.blockSize;
  const auto align = [&](std::uint64_t at) {
    return at < sound.dataOffset ? at / 512 * 512 : (at - sound.dataOffset) / unit * unit + sound.dataOffset;
  };
  std::uint64_t to = align(Place(sound, chance));
  std::uint64_t from = align(Place(sound, chance));
  if (std::max(to, from) + unit > bytes->size()) return;
  switch (chance->Below(8)) {
    case 0:
      std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(to), unit, std::uint8_t{0});
      break;
    case 1:
      std::fill_n(bytes->begin() + static_cast<std::ptrdiff_t>(to), unit, std::uint8_t{0xFF});
      break;
    case 2:
      std::memmove(&(*bytes)[to], &(*bytes)[from], unit);
      break;
    case 3: {
      const Bytes a(&(*bytes)[to], &(*bytes)[to] + unit);
      const Bytes b(&(*bytes)[from], &(*bytes)[from] + unit);
      std::copy(b.begin(), b.end(), bytes->begin() + static_cast<std::ptrdiff_t>(to));
      std::copy(a.begin(), a.end(), bytes->begin() + static_cast<std::ptrdiff_t>(from));
      break;
    }
    case 4:
      (*bytes)[Place(sound, chance)] = static_cast<std::uint8_t>(chance->Below(256));
      break;
    case 5: {
      const std::uint64_t word = Place(sound, chance) & ~std::uint64_t{3};
      if (word + 4 > bytes->size()) break;
      (*bytes)[word] = static_cast<std::uint8_t>(chance->Below(256));
      (*bytes)[word + 1] = static_cast<std::uint8_t>(chance->Below(2));
      (*bytes)[word + 2] = (*bytes)[word + 3] = 0;
      break;
    }
    default:
      (*bytes)[Place(sound, chance)] ^= static_cast<std::uint8_t>(1 << chance->Below(8));
  }
}

void Random(const std::vector<Sound>& all, std::uint64_t seed, Tally* tally) {
  Chance chance(seed);
  const Sound& sound = all[chance.Below(all.size())];
  Bytes damaged = sound.bytes;
  const std::uint64_t most[] = {1, 2, 3, 10, 50, 300};
  const std::uint64_t count = 1 + chance.Below(most[chance.Below(6)]);
  for (std::uint64_t i = 0; i < count; ++i) Damage(sound, &chance, &damaged);
  if (chance.Below(12) == 0) damaged.resize(sound.dataOffset + chance.Below(damaged.size() - sound.dataOffset));
  Try(sound, damaged, "seed-" + std::to_string(seed), tally);
}

int Print(const Tally& tally) {
  if (tally.left > 0) std::printf("%llu bits were left; of the others:\n", static_cast<unsigned long long>(tally.left));
  std::printf(
      "%llu containers, %llu beyond planning, %llu left unclean; of %llu readable files %llu kept, %llu excused, "
      "%llu lost; %llu more came back, %llu under /LOST.FND; of %llu untouched files %llu gone, %llu more where header "
      "or table no longer lead to them, %llu with another at their path; slowest plan %.2f s\n",
      static_cast<unsigned long long>(tally.images), static_cast<unsigned long long>(tally.impossible),
      static_cast<unsigned long long>(tally.unclean), static_cast<unsigned long long>(tally.readable),
      static_cast<unsigned long long>(tally.kept), static_cast<unsigned long long>(tally.excused),
      static_cast<unsigned long long>(tally.broken), static_cast<unsigned long long>(tally.regained),
      static_cast<unsigned long long>(tally.lostFound), static_cast<unsigned long long>(tally.untouched),
      static_cast<unsigned long long>(tally.gone), static_cast<unsigned long long>(tally.unplaced),
      static_cast<unsigned long long>(tally.displaced), tally.slowest);
  return tally.broken + tally.unclean + tally.gone == 0 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  bool bits = false;
  std::uint64_t seed = 1;
  std::uint64_t runs = 0;
  std::string only;
  Deadline deadline = Deadline::max();
  for (int i = 1; i < count; ++i) {
    const std::string word = arguments[i];
    const char* const value = i + 1 < count ? arguments[i + 1] : "0";
    if (word == "--bits") bits = true;
    if (word == "--verbose") g_Verbose = true;
    if (word == "--keep") g_Keep = value;
    if (word == "--only") only = value;
    if (word == "--seed") seed = std::strtoull(value, nullptr, 10);
    if (word == "--runs") runs = std::strtoull(value, nullptr, 10);
    if (word == "--minutes") {
      deadline = std::chrono::steady_clock::now() + std::chrono::minutes(std::strtoull(value, nullptr, 10));
    }
  }
  const std::vector<Sound> all = SoundContainers();
  Tally tally;
  for (const Sound& sound : all) {
    if (bits && (only.empty() || only == sound.name)) Bits(sound, deadline, &tally);
  }
  for (std::uint64_t i = 0; i < runs; ++i) Random(all, seed + i, &tally);
  return Print(tally);
}

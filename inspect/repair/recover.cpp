#include "inspect/repair/recover.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <set>
#include <system_error>

#include "inspect/container/block_map.h"
#include "inspect/container/date.h"
#include "inspect/container/names.h"
#include "inspect/container/patched_image.h"
#include "inspect/repair/repair.h"

namespace orba::inspect {

namespace {

namespace fs = std::filesystem;
using std::to_string;

// Zeros where the host cannot read. What lies past the length that a container can have is left out.
class ForgivingImage : public Image {
 public:
  explicit ForgivingImage(const Image& base) : base_(base) {}

  std::uint64_t Size() const override { return std::min<std::uint64_t>(base_.Size(), kContainerLimit - 1); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    if (offset > Size() || count > Size() - offset) return false;
    if (base_.Read(offset, out, count)) return true;
    std::memset(out, 0, count);
    failed_.insert(offset);
    return true;
  }

  std::uint64_t Failed() const { return failed_.size(); }

 private:
  const Image& base_;
  mutable std::set<std::uint64_t> failed_;
};

// The host's clock counts nanoseconds in 64 bits: a time stamp centuries away, as only damage makes one, is not set.
void SetTime(const fs::path& path, const TimeStamp& time) {
  constexpr std::uint16_t kFirstYear = 1900, kLastYear = 2200;
  if (!IsDate(time) || time.year < kFirstYear || time.year > kLastYear) return;
  const std::int64_t seconds = SecondsSince1970(time);
  const auto since =
      std::chrono::system_clock::time_point(std::chrono::seconds(seconds)) - std::chrono::system_clock::now();
  std::error_code ignored;
  fs::last_write_time(
      path, fs::file_time_type::clock::now() + std::chrono::duration_cast<fs::file_time_type::duration>(since),
      ignored);
}

// A directory of the host.
class HostShelf : public Shelf {
 public:
  std::string MakeDirectory(const fs::path& path) override {
    std::error_code error;
    fs::create_directories(path, error);
    return error ? path.string() + " cannot be made" : "";
  }

  std::string WriteFile(const fs::path& path, const TimeStamp& time, const Contents& contents) override {
    std::error_code error;
    if (fs::exists(path, error)) return path.string() + " is there already";
    std::FILE* file = std::fopen(path.string().c_str(), "wb");
    if (file == nullptr) return path.string() + " cannot be made";
    bool written = true;
    const bool whole = contents([&](const std::uint8_t* bytes, std::size_t count) {
      written = std::fwrite(bytes, 1, count, file) == count;
      return written;
    });
    written &= std::fclose(file) == 0;
    SetTime(path, time);
    if (!written) return path.string() + " cannot be written";
    return whole ? "" : "blocks are missing";
  }
};

// One recovery on its way.
struct Copy {
  const Image& image;
  const Model& model;
  Shelf* shelf;
  const std::function<void(const std::string&)>& step;
  Recovered* result;
  std::vector<std::pair<std::uint16_t, fs::path>> directories = {};  // still to be copied

  void CopyDirectory(std::uint16_t number, const fs::path& path);
  void CopyFile(const NodeInfo& node, const std::string& from, const fs::path& to);
  fs::path PathFor(const std::string& name, const fs::path& directory, const std::string& from,
                   std::set<std::string>* taken);
};

// Two names never meet on the host, even where "_" was put before one.
fs::path Copy::PathFor(const std::string& name, const fs::path& directory, const std::string& from,
                       std::set<std::string>* taken) {
  std::string host = HostName(name);
  for (int i = 2; !taken->insert(host).second; ++i) host = HostName(name) + "~" + to_string(i);
  if (host != name) result->renamed.push_back(from + " -> " + host);
  return directory / host;
}

void Copy::CopyFile(const NodeInfo& node, const std::string& from, const fs::path& to) {
  const auto contents = [&](const std::function<bool(const std::uint8_t*, std::size_t)>& take) {
    return ReadContents(image, model.geometry, node.record, [&](const std::uint8_t* bytes, std::size_t count) {
      const bool taken = take(bytes, count);
      result->bytes += taken ? count : 0;
      return taken;
    });
  };
  const std::string problem = shelf->WriteFile(to, node.record.time, contents);
  if (problem.empty()) {
    ++result->files;
  } else {
    result->failures.push_back(from + ": " + problem);
  }
}

void Copy::CopyDirectory(std::uint16_t number, const fs::path& path) {
  const std::string problem = shelf->MakeDirectory(path);
  if (!problem.empty()) {
    result->failures.push_back(PathOf(model, number) + ": " + problem);
    return;
  }
  if (number != kRootNode) ++result->directories;
  std::set<std::string> taken;
  const std::vector<Entry>& entries = model.nodes[number].entries;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Entry& entry = entries[i];
    if (entry.index < 2 || !model.IsNode(entry.record.node)) continue;
    const NodeInfo& node = model.nodes[entry.record.node];
    // Through the entry that the check came by: no node is copied twice, no cycle entered.
    if (node.reach != Reach::kRoot || node.parent != number || node.parentEntry != i) continue;
    const std::string from = PathOf(model, node.number);
    const fs::path to = PathFor(NameOf(entry.record), path, from, &taken);
    if (step) step(from);
    if (node.IsDirectory()) {
      directories.emplace_back(node.number, to);
    } else {
      CopyFile(node, from, to);
    }
  }
}

}  // namespace

Recovered Recover(const Image& image, const fs::path& directory, const std::function<void(const std::string&)>& step) {
  HostShelf shelf;
  return Recover(image, directory, &shelf, step);
}

Recovered Recover(const Image& image, const fs::path& directory, Shelf* shelf,
                  const std::function<void(const std::string&)>& step) {
  Recovered result;
  const ForgivingImage forgiving(image);
  const Plan plan = PlanRepair(forgiving, {1980, 1, 1, 0, 0, 0, 0});
  result.possible = plan.possible;
  if (!plan.possible) {
    result.failures.push_back(plan.problem);
    return result;
  }
  PatchedImage repaired(forgiving);
  for (const Action& action : plan.actions) {
    result.repairs.push_back(action.text);
    for (const Write& write : action.writes) repaired.Write(write.offset, write.bytes.data(), write.bytes.size());
  }
  Copy copy = {repaired, plan.after.model, shelf, step, &result};
  copy.directories.emplace_back(kRootNode, directory);
  while (!copy.directories.empty()) {
    const auto [number, path] = copy.directories.back();
    copy.directories.pop_back();
    copy.CopyDirectory(number, path);
  }
  result.unreadable = forgiving.Failed();
  return result;
}

bool ReadContents(const Image& image, const Geometry& geometry, const OrbNodeRecord& file,
                  const std::function<bool(const std::uint8_t*, std::size_t)>& take) {
  const std::uint64_t blocks = geometry.BlocksFor(file.size);
  std::uint64_t next = 0;
  bool going = true;
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  VisitMap(image, geometry, file, 0, [&](const MapSlot& slot) {
    if (slot.level != MapLevel::kData) return going && slot.index < blocks;
    if (!going || slot.index >= blocks) return false;
    const auto count = static_cast<std::size_t>(
        std::min<std::uint64_t>(geometry.blockSize, file.size - slot.index * geometry.blockSize));
    going = slot.index == next && geometry.Holds(slot.block) &&
            image.Read(geometry.BlockOffset(slot.block), bytes.data(), count) && take(bytes.data(), count);
    next += going ? 1 : 0;
    return false;
  });
  return next == blocks;
}

std::string HostName(const std::string& name) {
  static const char* const kReserved[] = {"CON", "PRN", "AUX", "NUL", "COM", "LPT"};
  std::string stem = UpperCase(name.substr(0, name.find('.')));
  if (stem.size() == 4 && stem[3] >= '0' && stem[3] <= '9' &&
      (stem.compare(0, 3, "COM") == 0 || stem.compare(0, 3, "LPT") == 0)) {
    stem.resize(3);
  } else if (stem == "COM" || stem == "LPT") {
    stem.clear();
  }
  const bool reserved = std::find(std::begin(kReserved), std::end(kReserved), stem) != std::end(kReserved);
  return (reserved ? "_" : "") + name + (!name.empty() && name.back() == '.' ? "_" : "");
}

}  // namespace orba::inspect

#include "explorer/bridge/bridge.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "explorer/bridge/host.h"
#include "explorer/bridge/host_image.h"
#include "inspect/check/check.h"
#include "inspect/container/date.h"
#include "inspect/container/names.h"
#include "inspect/container/patched_image.h"
#include "inspect/container/reader.h"
#include "inspect/repair/apply.h"
#include "inspect/repair/recover.h"
#include "inspect/repair/repair.h"
#include "inspect/view/json.h"
#include "inspect/view/report.h"

namespace orba::explorer {

namespace {

using inspect::JsonArray;
using inspect::JsonObject;
using inspect::JsonText;

struct Opened {
  explicit Opened(std::uint64_t size) : image(size) {}

  // Made when it is first asked for: where the layout has to be searched, that takes long, and a check searches itself.
  inspect::Reader& reader() {
    if (reader_ == nullptr) reader_ = std::make_unique<inspect::Reader>(image);
    return *reader_;
  }

  HostImage image;
  inspect::Report report;
  std::vector<inspect::Write> patches;

 private:
  std::unique_ptr<inspect::Reader> reader_;
};

std::unique_ptr<Opened> opened;
std::string result;

// ---- Listings -------------------------------------------------------------------------------------------------------

// "2026-01-02 03:04:05"; nothing for what is no date.
std::string TimeText(const TimeStamp& time) {
  if (!inspect::IsDate(time)) return "";
  char text[32];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

// What archives hold: not before 1970, which is also what becomes of what is no date.
std::uint64_t Seconds(const TimeStamp& time) {
  return inspect::IsDate(time) ? static_cast<std::uint64_t>(std::max<std::int64_t>(0, inspect::SecondsSince1970(time)))
                               : 0;
}

JsonObject NodeJson(const inspect::Node& node) {
  JsonObject json;
  json.Number("node", node.number)
      .Flag("directory", node.directory)
      .Number("size", node.size())
      .Number("attributes", node.record.attributes)
      .Text("time", TimeText(node.record.time))
      .Number("seconds", Seconds(node.record.time));
  return json;
}

std::string ProblemText(const inspect::Problem& problem) { return problem ? ToText(problem) : ""; }

std::string EntryJson(const inspect::Listed& entry) {
  JsonObject json = NodeJson(entry.node);
  json.Text("name", inspect::Printable(entry.name)).Text("hostName", inspect::HostName(entry.name));
  if (entry.problem.IsFailure()) json.Flag("lost", true);
  if (entry.place != inspect::Listed::Place::kListed) json.Flag("behindEnd", true);
  JsonArray problems;
  for (const inspect::Problem& problem : {entry.nameProblem, entry.problem}) {
    if (problem) problems.Add(JsonText(ToText(problem)));
  }
  json.Json("problems", problems.Done());
  return json.Done();
}

inspect::Problem FindNode(std::uint32_t number, inspect::Node* node) {
  return number == 0 ? opened->reader().Root(node) : opened->reader().ReadNode(number, node);
}

// The steps of a walk as an archive needs them: each directory that is entered is left again.
class Steps {
 public:
  inspect::Onward Take(const inspect::Step& step) {
    using What = inspect::Step::What;
    if (step.what == What::kLeave) {
      Leave();
      return inspect::Onward::kOn;
    }
    if (step.what == What::kProblem) {
      if (step.entry != nullptr) Leave();  // it was told, and is not entered after all
      AddProblem(step.path, step.problem);
      return inspect::Onward::kOn;
    }
    const inspect::Listed& entry = *step.entry;
    if (entry.problem.IsFailure()) {
      AddProblem(step.path, entry.problem);
      return inspect::Onward::kOn;
    }
    if (entry.node.directory && depth_ == kDeepest) {
      steps_.Add(JsonObject().Text("path", inspect::Printable(step.path)).Text("problem", "it lies too deep").Done());
      return inspect::Onward::kPast;
    }
    steps_.Add(EntryJson(entry));
    if (entry.node.directory) ++depth_;
    return inspect::Onward::kOn;
  }

  std::string Done() const { return steps_.Done(); }

 private:
  static constexpr int kDeepest = 512;  // each level makes the paths of all below longer

  void Leave() {
    if (depth_ == 0) return;  // the directory in which the walk began
    --depth_;
    steps_.Add(JsonObject().Flag("leave", true).Done());
  }

  void AddProblem(const std::string& path, const inspect::Problem& problem) {
    steps_.Add(JsonObject().Text("path", inspect::Printable(path)).Text("problem", ToText(problem)).Done());
  }

  int depth_ = 0;
  JsonArray steps_;
};

// ---- Blocks ---------------------------------------------------------------------------------------------------------

// The nodes on the way from the root to this one, itself included; nothing where the root does not lead to it.
std::string WayTo(const inspect::Model& model, std::uint32_t node) {
  std::vector<std::uint32_t> way;
  while (model.IsNode(node) && model.nodes[node].reach == inspect::Reach::kRoot && way.size() < model.nodes.size()) {
    way.push_back(node);
    node = model.nodes[node].parent;
  }
  JsonArray json;
  for (auto at = way.rbegin(); at != way.rend(); ++at) json.Add(std::to_string(*at));
  return json.Done();
}

// ---- Repair ---------------------------------------------------------------------------------------------------------

// What the plan makes of the bytes that it writes, without overlaps, from the front to the end.
std::vector<inspect::Write> PatchesOf(const inspect::Plan& plan) {
  inspect::PatchedImage repaired(opened->image);
  for (const inspect::Action& action : plan.actions) {
    for (const inspect::Write& write : action.writes) {
      repaired.Write(write.offset, write.bytes.data(), write.bytes.size());
    }
  }
  std::vector<inspect::Write> patches;
  for (const auto& [start, end] : inspect::WrittenRanges(plan, repaired.Size())) {
    patches.push_back({start, std::vector<std::uint8_t>(static_cast<std::size_t>(end - start))});
    repaired.Read(start, patches.back().bytes.data(), patches.back().bytes.size());
  }
  return patches;
}

// ---- Recovery -------------------------------------------------------------------------------------------------------

class PageDestination : public inspect::Destination {
 public:
  std::string MakeDirectory(const std::string& path) override {
    HostDirectory(path.data(), static_cast<std::uint32_t>(path.size()));
    return "";
  }

  std::string WriteFile(const std::string& path, const TimeStamp& time, const Contents& contents) override {
    HostFile(path.data(), static_cast<std::uint32_t>(path.size()), static_cast<double>(Seconds(time)));
    const bool whole = contents([](const std::uint8_t* bytes, std::size_t count) {
      HostPiece(bytes, static_cast<std::uint32_t>(count));
      return true;
    });
    HostEnd(whole ? 1 : 0);
    return whole ? "" : "blocks are missing";
  }
};

}  // namespace

void Open(double size) { opened = std::make_unique<Opened>(static_cast<std::uint64_t>(size)); }

void Check() {
  opened->report = inspect::Check(opened->image);
  result = ToJson(opened->report);
}

void List(std::uint32_t node) {
  inspect::Node directory;
  const inspect::Problem problem = FindNode(node, &directory);
  JsonArray entries, problems;
  if (problem.IsFailure()) {
    problems.Add(JsonText(ToText(problem)));
  } else {
    const inspect::Listing listing = opened->reader().List(directory);
    for (const inspect::Listed& entry : listing.entries) entries.Add(EntryJson(entry));
    for (const inspect::Problem& found : listing.problems) problems.Add(JsonText(ToText(found)));
  }
  result = NodeJson(directory).Json("entries", entries.Done()).Json("problems", problems.Done()).Done();
}

void Walk(std::uint32_t node) {
  inspect::Node directory;
  Steps steps;
  if (!FindNode(node, &directory).IsFailure()) {
    inspect::Budget budget(opened->reader().geometry());
    const auto take = [&steps](const inspect::Step& step) { return steps.Take(step); };
    inspect::Walk(&opened->reader(), directory, "", take, &budget);
  }
  result = steps.Done();
}

void Contents(std::uint32_t node) {
  inspect::Node file;
  inspect::Problem problem = FindNode(node, &file);
  JsonArray pieces;
  std::uint64_t done = 0;
  if (!problem.IsFailure()) {
    const inspect::Geometry& geometry = opened->reader().geometry();
    inspect::Budget budget(geometry);
    inspect::Extent extent;
    for (std::uint64_t index = 0; done < file.size(); index += extent.count) {
      problem = opened->reader().FindExtent(file, index, geometry.blocks, &extent, &budget);
      if (problem || extent.count == 0) break;
      const std::uint64_t count =
          std::min<std::uint64_t>(file.size() - done, std::uint64_t{extent.count} * geometry.blockSize);
      pieces.Add("[" + std::to_string(geometry.BlockOffset(extent.block)) + "," + std::to_string(count) + "]");
      done += count;
    }
  }
  result = JsonObject()
               .Json("pieces", pieces.Done())
               .Number("bytes", done)
               .Flag("whole", done == file.size() && !problem.IsFailure())
               .Text("problem", ProblemText(problem))
               .Done();
}

void Blocks() {
  const std::vector<inspect::BlockInfo>& blocks = opened->report.model.blocks;
  const std::size_t count = blocks.empty() ? 0 : blocks.size() - 1;
  result.assign(3 * count, '\0');
  for (std::size_t i = 0; i < count; ++i) {
    const inspect::BlockInfo& info = blocks[i + 1];
    result[2 * i] = static_cast<char>(info.node & 0xFF);
    result[2 * i + 1] = static_cast<char>(info.node >> 8);
    result[2 * count + i] = static_cast<char>(static_cast<unsigned>(info.use) | (info.shared ? 0x80u : 0u));
  }
}

void Block(std::uint32_t number) {
  const inspect::Model& model = opened->report.model;
  JsonObject json;
  json.Number("block", number);
  if (number != 0 && number < model.blocks.size()) {
    const inspect::BlockInfo& info = model.blocks[number];
    json.Text("use", inspect::Name(info.use))
        .Flag("shared", info.shared)
        .Number("node", info.node)
        .Number("index", info.index)
        .Number("offset", model.geometry.BlockOffset(number));
    if (info.node != 0) json.Text("path", PathOf(model, info.node)).Json("way", WayTo(model, info.node));
  }
  result = json.Done();
}

void Plan(std::uint32_t year, std::uint32_t month, std::uint32_t day, std::uint32_t hour, std::uint32_t minute,
          std::uint32_t second) {
  const TimeStamp now = {static_cast<std::uint16_t>(year),
                         static_cast<std::uint8_t>(month),
                         static_cast<std::uint8_t>(day),
                         static_cast<std::uint8_t>(hour),
                         static_cast<std::uint8_t>(minute),
                         static_cast<std::uint8_t>(second),
                         0};
  const inspect::Plan plan = PlanRepair(opened->image, now);
  opened->patches = PatchesOf(plan);
  JsonArray patches;
  for (const inspect::Write& patch : opened->patches) {
    patches.Add("[" + std::to_string(patch.offset) + "," + std::to_string(patch.bytes.size()) + "]");
  }
  const std::string text = ToText(plan);
  result = JsonObject()
               .Flag("possible", plan.possible)
               .Text("problem", plan.problem)
               .Text("text", text)
               .Text("notice", plan.actions.empty() ? "" : text.substr(0, text.find("1. ")))
               .Json("steps", ToJson(plan.actions))
               .Json("promise", ToJson(plan.promise))
               .Flag("complete", plan.IsComplete())
               .Flag("breaksPromise", plan.BreaksPromise())
               .Json("patches", patches.Done())
               .Done();
}

void Patches() {
  result.clear();
  for (const inspect::Write& patch : opened->patches) result.append(patch.bytes.begin(), patch.bytes.end());
}

void Recover() {
  PageDestination destination;
  const inspect::Recovered recovered = inspect::Recover(opened->image, "", &destination);
  result = JsonObject()
               .Flag("possible", recovered.possible)
               .Number("files", recovered.files)
               .Number("directories", recovered.directories)
               .Number("bytes", recovered.bytes)
               .Number("unreadable", recovered.unreadable)
               .Json("repairs", inspect::JsonTexts(recovered.repairs))
               .Json("renamed", inspect::JsonTexts(recovered.renamed))
               .Json("failures", inspect::JsonTexts(recovered.failures))
               .Done();
}

const char* Result() { return result.data(); }

std::uint32_t ResultSize() { return static_cast<std::uint32_t>(result.size()); }

}  // namespace orba::explorer

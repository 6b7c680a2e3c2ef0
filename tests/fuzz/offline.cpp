// Fuzz target: a container that holds anything is checked, drawn, dumped, repaired and recovered without being mounted.
// What repair says it can repair comes out clean, and the library reads every file of it, with the bytes that recovery
// copies.
#include <algorithm>
#include <map>
#include <string>

#include "fuzz/fuzz_input.h"
#include "inspect/check/check.h"
#include "inspect/repair/apply.h"
#include "inspect/repair/recover.h"
#include "inspect/repair/repair.h"
#include "inspect/view/dump.h"
#include "inspect/view/map.h"
#include "inspect/view/report.h"
#include "orba.h"
#include "support/test_host.h"
#include "tests/support/memory_destination.h"
#include "tests/support/repair_harness.h"

namespace {

using fuzz::Bytes;
using fuzz::Choice;
using fuzz::Require;
using orba::inspect::Check;
using orba::inspect::MemoryImage;
using orba::inspect::Plan;
using orba::inspect::PlanRepair;
using orba::inspect::Report;
using Tree = std::map<std::string, Bytes>;  // by path; directories end in "/" and hold nothing

// ---- Looking --------------------------------------------------------------------------------------------------------

void Dump(const MemoryImage& image, const Report& report, std::uint32_t number) {
  Require(!DumpNode(image, report, number).empty(), "a node's dump says something");
  Require(!DumpBlock(image, report, number).empty(), "a block's dump says something");
  Require(!DumpDirectory(image, report, number).empty(), "a directory's dump says something");
}

void Look(const MemoryImage& image, const Report& report, const std::vector<Choice>& choices) {
  Require(report.findings.size() <= orba::inspect::kMaxFindings, "findings are bounded");
  Require(!ToText(report).empty() && ToJson(report).front() == '{', "a report says something");
  DumpHeader(image);
  DumpTable(report);
  DumpBitmap(report);
  DumpChain(image, report);
  for (std::uint32_t number = 0; number < 12; ++number) Dump(image, report, number);
  orba::inspect::MapStyle style;
  for (const Choice& choice : choices) {
    const std::uint32_t number = choice.first | static_cast<std::uint32_t>(choice.second) << 8;
    Dump(image, report, choice.amount == 0xFF ? 0xFFFFFFFF - choice.first : number);
    DumpBytes(image, number * std::uint64_t{choice.what}, choice.amount);
    style.columns = choice.first;
    style.rows = choice.second;
    style.colour = choice.amount % 2 != 0;
  }
  DrawMap(report, style);
  DrawSvg(report);
}

// ---- Reading the repaired container through the library -------------------------------------------------------------

Bytes ReadAll(const std::string& path, OrbU32 size) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ);
  Require(file != ORB_INVALID_HANDLE, path + " can be opened");
  Bytes contents(size + 1);
  OrbU32 done = 0;
  Require(OrbReadFile(file, contents.data(), size + 1, &done) != 0 && done == size, path + " can be read to its end");
  Require(OrbCloseFile(file) != 0, path + " can be closed");
  contents.resize(size);
  return contents;
}

std::vector<OrbFindDataA> Entries(const std::string& path) {
  std::vector<OrbFindDataA> entries(1);
  const OrbHandle search = OrbFindFirstFileA(path.c_str(), &entries[0]);
  Require(search != ORB_INVALID_HANDLE, path + " can be listed");
  OrbFindDataA found;
  while (OrbFindNextFileA(search, &found) != 0) entries.push_back(found);
  Require(OrbGetLastError() == ORB_ERROR_NO_MORE_ENTRIES, path + " can be listed to its end");
  Require(OrbFindClose(search) != 0, "a search can be closed");
  return entries;
}

// Adds everything below a directory, whose path ends in "/".
void ReadDirectory(const std::string& volume, const std::string& path, Tree* tree) {
  (*tree)[path] = {};
  for (const OrbFindDataA& entry : Entries(volume + path)) {
    const std::string name = entry.name;
    if (name == "." || name == "..") continue;
    Require(tree->count(path + name) == 0 && tree->count(path + name + "/") == 0, path + name + " is there once");
    if ((entry.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0) {
      ReadDirectory(volume, path + name + "/", tree);
    } else {
      (*tree)[path + name] = ReadAll(volume + path + name, entry.size);
    }
  }
}

Tree ReadThroughLibrary(const Bytes& container) {
  testhost::ResetHost();
  testhost::SetTracing(false);
  testhost::SetFile(u"VOL", container);
  Require(OrbMountVolume(u"VOL", u"A") != 0, "a repaired container can be mounted");
  Tree tree;
  ReadDirectory("A:", "/", &tree);
  Require(OrbUnmountVolumeA("A") != 0, "a repaired container can be unmounted");
  Require(testhost::AllocationsHeld() == 0, "no memory is held");
  return tree;
}

// ---- Repair ---------------------------------------------------------------------------------------------------------

class BytesTarget : public orba::inspect::Target {
 public:
  explicit BytesTarget(Bytes* bytes) : bytes_(bytes) {}

  bool Write(std::uint64_t offset, const void* bytes, std::size_t count) override {
    Require(offset <= bytes_->size(), "no write leaves a gap");
    bytes_->resize(std::max<std::size_t>(bytes_->size(), offset + count));
    std::copy_n(static_cast<const std::uint8_t*>(bytes), count, bytes_->begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
  }
  bool Cut(std::uint64_t size) override {
    bytes_->resize(size);
    return true;
  }
  bool Flush() override { return true; }

 private:
  Bytes* bytes_;
};

// Carries the plan for a container out; false, with the container as it was, where there is none.
bool Repair(const Bytes& before, const Plan& plan, Bytes* after) {
  *after = before;
  Require(!ToText(plan).empty(), "a plan says something");
  if (!plan.possible) {
    Require(!plan.problem.empty() && plan.actions.empty(), "no plan is made without hope, and the reason is named");
    return false;
  }
  const Bytes undo = MakeUndo(plan, MemoryImage(before));
  BytesTarget target(after);
  Require(ApplyPlan(plan, &target), "a plan can be carried out");
  const MemoryImage repaired(*after);
  const Report report = Check(repaired);
  Require(plan.IsComplete() && report.IsClean() && !report.marked,
          "a repaired container is clean:\n" + ToText(plan) + ToText(report));
  Require(UndoFits(undo, repaired), "a repair can be taken back");
  Bytes undone = *after;
  BytesTarget undoing(&undone);
  Require(ApplyUndo(undo, &undoing) && undone == before, "a repair taken back leaves the container as it was");
  return true;
}

// A repair that stopped after some of its writes is made up for by another.
void RepairFromStop(const Bytes& before, const Plan& plan, std::uint32_t number) {
  const std::size_t writes = testimage::WriteCount(plan);
  if (writes == 0) return;
  const Bytes stopped = testimage::AfterWrites(plan, before, number % writes);
  Bytes after;
  Require(Repair(stopped, PlanRepair(MemoryImage(stopped), testimage::kRepairTime), &after),
          "a repair that stopped can go on");
}

// What recovery copies is what the repaired container holds.
void Recover(const Bytes& container, const Tree& tree) {
  testimage::MemoryDestination destination;
  const orba::inspect::Recovered recovered = orba::inspect::Recover(MemoryImage(container), "all", &destination);
  Require(recovered.possible && recovered.failures.empty(), "what can be repaired can be recovered");
  std::size_t directories = 0;
  std::uint64_t bytes = 0;
  for (const auto& [path, contents] : tree) {
    directories += path.back() == '/' ? 1 : 0;
    bytes += contents.size();
    const auto copy = destination.files.find("all" + path);
    if (path.back() == '/' || !recovered.renamed.empty()) continue;
    Require(copy != destination.files.end() && copy->second.contents == contents,
            "recovery copies every file as it is");
  }
  Require(recovered.files == tree.size() - directories && destination.files.size() == recovered.files &&
              recovered.directories == directories - 1 && recovered.bytes == bytes,
          "recovery copies everything");
  const auto isInside = [](const std::string& path) { return path == "all" || path.compare(0, 4, "all/") == 0; };
  for (const auto& [path, file] : destination.files) Require(isInside(path), "recovery stays in its folder");
  for (const std::string& path : destination.directories) Require(isInside(path), "recovery stays in its folder");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input = fuzz::ReadInput(data, size);
  const MemoryImage image(input.image);
  Look(image, Check(image), input.choices);
  const Plan plan = PlanRepair(image, testimage::kRepairTime);
  Bytes repaired;
  if (!Repair(input.image, plan, &repaired)) return 0;
  if (!input.choices.empty()) {
    RepairFromStop(input.image, plan, input.choices[0].first * 7u + input.choices[0].second);
  }
  const Tree tree = ReadThroughLibrary(repaired);
  Require(tree == testimage::Tree(repaired), "the library reads what the checker finds");
  if (input.choices.size() % 4 == 1) Recover(input.image, tree);
  return 0;
}

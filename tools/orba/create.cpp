// create: a container made of trees of the host.
#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "inspect/check/finding.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/new_container.h"
#include "tools/orba/put.h"
#include "tools/orba/stamps.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct CreateOptions {
  std::string container;
  std::vector<std::string> trees;
  ShapeOptions shape;
  std::string time;
  bool rename = false;
  bool verbose = false;
  bool quiet = false;
};

// A container that has nothing in it yet.
class EmptyPlaces : public Places {
 public:
  std::optional<Item> Find(const Address& address) override {
    if (!address.IsRoot()) return std::nullopt;
    Item root;
    root.name = ".";
    root.attributes = ORB_ATTRIBUTE_DIRECTORY;
    return root;
  }
  std::vector<Item> List(const Address&) override { return {}; }
};

// "@SECONDS" since 1970, or a date and perhaps a time of day, UTC.
std::optional<OrbTime> TimeIn(const std::string& text) {
  if (text.compare(0, 1, "@") == 0) {
    const std::optional<std::uint64_t> seconds = NumberIn(text.substr(1));
    constexpr std::uint64_t kMost = 0xFFFFFFFFFFF;
    if (!seconds.has_value() || *seconds > kMost) return std::nullopt;
    const OrbTime time = TimeOf(static_cast<std::int64_t>(*seconds));
    return IsDate(time) ? std::optional<OrbTime>(time) : std::nullopt;
  }
  unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int end = 0;
  const char* const start = text.c_str();
  if (std::sscanf(start, "%4u-%2u-%2u%n", &year, &month, &day, &end) != 3) return std::nullopt;
  std::string rest = text.substr(static_cast<std::size_t>(end));
  if (!rest.empty()) {
    if (rest.back() == 'Z') rest.pop_back();
    const bool apart = rest[0] == 'T' || rest[0] == ' ';
    if (!apart || std::sscanf(rest.c_str() + 1, "%2u:%2u:%2u%n", &hour, &minute, &second, &end) != 3) {
      return std::nullopt;
    }
    if (rest.size() != static_cast<std::size_t>(end) + 1) return std::nullopt;
  }
  const OrbTime time = {static_cast<OrbU16>(year),
                        static_cast<OrbU8>(month),
                        static_cast<OrbU8>(day),
                        static_cast<OrbU8>(hour),
                        static_cast<OrbU8>(minute),
                        static_cast<OrbU8>(second),
                        0};
  return IsDate(time) ? std::optional<OrbTime>(time) : std::nullopt;
}

Measure MeasureOf(const PutPlan& plan) {
  std::map<std::string, std::uint64_t> entries = {{"/", 0}};  // by directory
  std::set<std::string> directories;
  Measure measure;
  for (const PutStep& step : plan.steps) {
    const std::string path = step.target.Path();
    if (step.isDirectory && !directories.insert(path).second) continue;  // of two trees
    ++entries[step.target.Parent().Path()];
    if (step.isDirectory) {
      entries.emplace(path, 0);
    } else {
      measure.AddFile(step.size);
    }
  }
  for (const auto& [directory, count] : entries) measure.AddDirectory(count);
  return measure;
}

// The times of the host. The root has that of a tree whose contents are put into it.
Stamps TimesOf(const CreateOptions& options, const PutPlan& plan) {
  Stamps stamps;
  for (const std::string& tree : options.trees) {
    if (BaseName(tree).empty()) stamps["/"] = TimeOf(host::StatusOf(tree).changed);
  }
  for (const PutStep& step : plan.steps) stamps[step.target.Path()] = TimeOf(host::StatusOf(step.source).changed);
  return stamps;
}

int RunCreate(const CreateOptions& options) {
  std::optional<OrbTime> time;
  if (!options.time.empty()) {
    time = TimeIn(options.time);
    if (!time.has_value()) {
      throw UsageFailure("create", "--time takes a date such as 2026-11-22T02:23:20Z, or @SECONDS since 1970, not \"" +
                                       options.time + "\"");
    }
  }
  const std::string container = ParseContainer(options.container);
  const std::string what = "cannot make the container " + container;
  if (HostFileExists(container)) {
    throw Failure(what, "a file of this name exists (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
                  "create overwrites nothing: use another name, or remove the file first", ORB_ERROR_FILE_EXISTS);
  }
  PutOptions put;
  put.operands = options.trees;
  put.operands.push_back(container + ":/");
  put.rename = options.rename;
  put.verbose = options.verbose;
  put.quiet = options.quiet;
  EmptyPlaces nothing;
  constexpr std::uint64_t kLargestBlocks = 8192;
  const PutPlan plan = PlanPut(put, &nothing, kLargestBlocks, std::nullopt);
  plan.Tell();
  if (plan.IsRefused() || !plan.skipped.empty()) {
    Report("nothing was made");
    return kFailed;
  }
  const Measure measure = MeasureOf(plan);
  const Shape shape = measure.Choose(options.shape, what);
  NewContainer made(container, shape);
  if (CarryOutPut(put, made.session(), nullptr, plan) != kSuccess) {
    Report("nothing was made");
    return kFailed;
  }
  if (time.has_value()) {
    EnterTime(made.file(), *time);
  } else {
    EnterTimes(made.file(), TimesOf(options, plan));
  }
  made.Publish();
  if (!options.quiet) {
    Print(container + ": " + HumanSize(host::StatusOf(container).size) + ", blocks of " +
          std::to_string(shape.blockSize) + " bytes, " + std::to_string(measure.nodes()) + " of " +
          std::to_string(shape.nodes) + " nodes in use\n");
  }
  return kSuccess;
}

Run DefineCreate(Syntax* syntax) {
  auto options = std::make_shared<CreateOptions>();
  options->shape.Define(syntax);
  syntax->Text("--time", "TIME", &options->time, "give everything this time, such as 2026-11-22T02:23:20Z or @0");
  syntax->Flag("--rename", &options->rename, "store what has no legal name under a legal, unique one, and say which");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "print nothing about the container, and draw no progress");
  syntax->One("CONTAINER", &options->container);
  syntax->Many("TREE", &options->trees);
  return [options] { return RunCreate(*options); };
}

}  // namespace

const Command kCreateCommand = {
    "create",
    kContainerGroup,
    "CONTAINER TREE...",
    "make a container of trees",
    "Makes a new container that holds files and directories of the host, as put takes them: \"DIR\" becomes /DIR, "
    "\"DIR/.\" what DIR holds. Unless you say otherwise, the size of blocks is the one that makes the container "
    "smallest, and it has room for a quarter more files and directories, and 64 at least; what was chosen is printed. "
    "Files and directories keep their times.\n\n"
    "With --time, the same trees give the same bytes, wherever and whenever. Either all of it is made or nothing: the "
    "container has the name .orba-XXXXXX.new beside its place until it is complete and on the disk. What put would "
    "leave out (pipes, links to directories) is refused here.",
    "orba create card.orb config logs\n"
    "orba create --time 2026-11-22 --spare 500 image.orb tree/.",
    DefineCreate,
};

}  // namespace orba::tool

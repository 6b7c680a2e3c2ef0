// format, info and df: the container as a whole.
#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include "inspect/check/check.h"
#include "inspect/view/report.h"
#include "orba.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/jobs.h"
#include "tools/orba/json.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/session.h"
#include "tools/orba/terminal.h"
#include "volume/layout.h"

namespace orba::tool {

namespace {

// ---- format ---------------------------------------------------------------------------------------------------------

struct FormatOptions {
  std::string container;
  OrbU32 blockSize = 4096;
  std::optional<OrbU32> nodes;
  std::optional<OrbU32> bitmapBytes;
};

// What the node-block table has room for.
OrbU32 MaxNodes(OrbU32 blockSize) { return kNodeTableEntries * (blockSize / kNodeSize); }

OrbU32 BitmapBytes(const FormatOptions& options) {
  const std::string size = std::to_string(options.blockSize);
  if (options.nodes.has_value() && (*options.nodes < 1 || *options.nodes > MaxNodes(options.blockSize))) {
    throw UsageFailure("format", "with blocks of " + size + " bytes a container holds 1 to " +
                                     std::to_string(MaxNodes(options.blockSize)) + " files and directories, not " +
                                     std::to_string(*options.nodes));
  }
  if (options.nodes.has_value()) return (*options.nodes + 7) / 8;
  constexpr OrbU32 kUsualNodes = 8192;
  if (!options.bitmapBytes.has_value()) return std::min(kUsualNodes, MaxNodes(options.blockSize)) / 8;
  const OrbU32 largest = MaxBitmapSize(options.blockSize);
  if (*options.bitmapBytes > largest) {
    throw UsageFailure("format", "with blocks of " + size + " bytes a bitmap has 0 to " + std::to_string(largest) +
                                     " bytes, not " + std::to_string(*options.bitmapBytes));
  }
  return *options.bitmapBytes;
}

int RunFormat(const FormatOptions& options) {
  const OrbU32 bitmapBytes = BitmapBytes(options);
  const std::string container = ParseContainer(options.container);
  const std::string problem = host::NameProblem(BaseName(container));
  if (!problem.empty()) throw Failure("cannot make the container " + container, problem, "use another name");
  const bool existed = HostFileExists(container);
  if (OrbCreateVolumeEx(WideName(container).c_str(), bitmapBytes, options.blockSize) != 0) return kSuccess;
  const OrbU32 code = OrbGetLastError();
  const std::string what = "cannot make the container " + ShellWord(container);
  if (code == ORB_ERROR_FILE_EXISTS || existed) {
    throw Failure(what, "a file of this name exists (" + CodeText(code) + ")",
                  "format overwrites nothing: use another name, or remove the file first", code);
  }
  if (code == ORB_ERROR_DISK_FULL || code == ORB_ERROR_WRITE || code == ORB_ERROR_OUT_OF_MEMORY) {
    host::Remove(container);  // it is ours, and cut short
  }
  if (code == ORB_ERROR_PATH_NOT_FOUND) {
    throw Failure(what, "its folder is missing (" + CodeText(code) + ")", "make the folder first", code);
  }
  if (code == ORB_ERROR_WRITE_PROTECTED) {
    throw Failure(what, "the medium is write-protected (" + CodeText(code) + ")", "make it on another disk", code);
  }
  throw LibraryFailure(what, container, code);
}

Run DefineFormat(Syntax* syntax) {
  auto options = std::make_shared<FormatOptions>();
  syntax->SizeOutOf("-b,--block-size", "BYTES", &options->blockSize, {1024, 2048, 4096, 8192},
                    "1024, 2048, 4096 (unless you say otherwise) or 8192 bytes");
  syntax->Number("-n,--nodes", "N", &options->nodes, Syntax::kAll,
                 "room for this many files and directories at least, the root included; rounded up to a multiple of 8");
  syntax->Size("--bitmap-bytes", "BYTES", &options->bitmapBytes, Syntax::kAll,
               "the same in bytes of the node bitmap: 8 nodes each");
  syntax->Exclude("--nodes", "--bitmap-bytes");
  syntax->One("CONTAINER", &options->container);
  return [options] { return RunFormat(*options); };
}

// ---- info -----------------------------------------------------------------------------------------------------------

std::string Bytes(std::uint64_t bytes) {
  return inspect::Counted(bytes, "byte") + (bytes >= 1024 ? " (" + HumanSize(bytes) + ")" : "");
}

const char* StateText(const inspect::Report& report) {
  switch (report.Worst()) {
    case inspect::Severity::kNote:
      return report.marked ? "an update was interrupted, without damage" : "clean";
    case inspect::Severity::kLeak:
      return "space has leaked";
    case inspect::Severity::kInterrupted:
      return "an update was interrupted half-way";
    case inspect::Severity::kDamage:
      return "damaged";
  }
  return "damaged";
}

std::uint64_t CountUse(const inspect::Report& report, inspect::BlockUse use) {
  const auto& blocks = report.model.blocks;
  return static_cast<std::uint64_t>(
      std::count_if(blocks.begin(), blocks.end(), [use](const inspect::BlockInfo& block) { return block.use == use; }));
}

inspect::Report Inspect(const RawContainer& container) {
  inspect::Report report = inspect::Check(container.image());
  if (!report.model.geometry.known() || report.model.header.signature != kVolumeSignature) {
    throw LibraryFailure("cannot describe " + ShellWord(container.path()), container.path(), ORB_ERROR_DAMAGED_VOLUME);
  }
  return report;
}

// The blocks in use.
struct BlocksUsed {
  explicit BlocksUsed(const inspect::Report& report)
      : files(CountUse(report, inspect::BlockUse::kFile)),
        directories(CountUse(report, inspect::BlockUse::kDirectory)),
        nodes(CountUse(report, inspect::BlockUse::kNodeBlock)),
        maps(CountUse(report, inspect::BlockUse::kMap)) {}

  std::uint64_t files, directories, nodes, maps;
};

void PrintInfo(const RawContainer& container, const inspect::Report& report) {
  const inspect::Geometry& geometry = report.model.geometry;
  const inspect::Totals& totals = report.totals;
  const std::uint64_t blockSize = geometry.blockSize;
  const BlocksUsed used(report);
  const auto line = [](const char* name, const std::string& value) { Print(PadRight(name, 18) + value + "\n"); };
  line("container", ShellWord(container.path()));
  line("size", Bytes(container.image().Size()));
  line("block size", std::to_string(blockSize) + " bytes");
  line("node bitmap", std::to_string(geometry.bitmapSize) + " bytes");
  line("nodes", std::to_string(geometry.nodeLimit()) + ", " + std::to_string(totals.freeNodes) + " of them free");
  line("files", std::to_string(totals.files) + " with " + Bytes(totals.fileBytes));
  line("directories", std::to_string(totals.directories) + ", the root included");
  line("blocks", std::to_string(geometry.blocks));
  line("  in use", std::to_string(used.files + used.directories + used.nodes + used.maps) + ": " +
                       std::to_string(used.files) + " for files, " + std::to_string(used.directories) +
                       " for directories, " + std::to_string(used.nodes) + " for nodes, " + std::to_string(used.maps) +
                       " for block maps");
  line("  free", std::to_string(totals.freeBlocks) + " (" + HumanSize(totals.freeBlocks * blockSize) + ")");
  line("  leaked", std::to_string(totals.leakedBlocks));
  line("appendable blocks",
       std::to_string(totals.appendableBlocks) + " (" + HumanSize(totals.appendableBlocks * blockSize) + ")");
  line("update mark", report.marked ? "set: it will not mount before it is repaired" : "not set");
  line("state", StateText(report));
}

void AddInfo(const RawContainer& container, const inspect::Report& report, JsonObject* json) {
  const inspect::Geometry& geometry = report.model.geometry;
  const inspect::Totals& totals = report.totals;
  const BlocksUsed used(report);
  json->Number("size", container.image().Size())
      .Number("blockSize", geometry.blockSize)
      .Number("bitmapBytes", geometry.bitmapSize)
      .Number("nodes", geometry.nodeLimit())
      .Number("freeNodes", totals.freeNodes)
      .Number("files", totals.files)
      .Number("fileBytes", totals.fileBytes)
      .Number("directories", totals.directories)
      .Number("blocks", geometry.blocks)
      .Number("fileBlocks", used.files)
      .Number("directoryBlocks", used.directories)
      .Number("nodeBlocks", used.nodes)
      .Number("mapBlocks", used.maps)
      .Number("freeBlocks", totals.freeBlocks)
      .Number("leakedBlocks", totals.leakedBlocks)
      .Number("appendableBlocks", totals.appendableBlocks)
      .Text("verdict", Verdict(report))
      .Flag("marked", report.marked);
}

// Of each of several.
void PrintInfoLine(const RawContainer& container, const inspect::Report& report) {
  const inspect::Totals& totals = report.totals;
  Print(ShellWord(container.path()) + ": " + HumanSize(container.image().Size()) + ", blocks of " +
        std::to_string(report.model.geometry.blockSize) + " bytes, " + inspect::Counted(totals.files, "file") +
        " with " + HumanSize(totals.fileBytes) + ", " +
        inspect::Counted(totals.directories, "directory", "directories") + ", " + std::to_string(totals.freeNodes) +
        " of " + std::to_string(report.model.geometry.nodeLimit()) + " nodes free, " + StateText(report) + "\n");
}

struct InfoOptions {
  std::vector<std::string> operands;
  bool json = false;
  std::uint32_t jobs = 0;
};

Outcome InfoOf(const inspect::Report& report) {
  return {kSuccess, report.IsClean() && report.marked ? "marked" : Verdict(report)};
}

Outcome InfoOne(const InfoOptions& options, const std::string& path) {
  const RawContainer container(path);
  const inspect::Report report = Inspect(container);
  options.operands.size() > 1 ? PrintInfoLine(container, report) : PrintInfo(container, report);
  return InfoOf(report);
}

Outcome InfoAsJson(const std::string& path) {
  Outcome outcome = {};
  PrintObject("container", path, [&](JsonObject* json) {
    const RawContainer container(path);
    const inspect::Report report = Inspect(container);
    AddInfo(container, report, json);
    outcome = InfoOf(report);
  });
  return outcome;
}

int RunInfo(const InfoOptions& options) {
  constexpr const char* kUnknown = "not described";
  const std::size_t count = options.operands.size();
  const Batch batch = {"info", count, options.jobs, false, {kFailed, kUnknown}};
  const std::vector<Outcome> outcomes = RunBatch(batch, [&options](std::size_t number) {
    const std::string path = ParseContainer(options.operands[number]);
    return options.json ? InfoAsJson(path) : InfoOne(options, path);
  });
  if (count > 1 && !options.json) {
    Print(Summary(outcomes, {"clean", "marked", "leaks", "interrupted", "damaged", kUnknown}));
  }
  return WorstStatus(outcomes, {kSuccess, kFailed});
}

Run DefineInfo(Syntax* syntax) {
  auto options = std::make_shared<InfoOptions>();
  syntax->Flag("--json", &options->json, "a JSON object for each container, on a line of its own");
  DefineJobs(syntax, &options->jobs);
  syntax->Many("CONTAINER", &options->operands);
  return [options] { return RunInfo(*options); };
}

// ---- df -------------------------------------------------------------------------------------------------------------

struct FreeOptions {
  std::vector<std::string> operands;
  bool human = false;
  bool json = false;
};

// How far the container can grow: up to the largest size, and up to what its disk has left.
std::uint64_t Growth(const std::string& path, const inspect::Report& report) {
  const std::uint64_t growth = report.totals.appendableBlocks * report.model.geometry.blockSize;
  return std::min(growth, host::FreeSpace(path));
}

// In bytes.
struct Room {
  Room(const RawContainer& container, const inspect::Report& report)
      : size(container.image().Size()),
        free(std::min(std::uint64_t{report.totals.freeBlocks} * report.model.geometry.blockSize, size)),
        growth(Growth(container.path(), report)) {}

  std::uint64_t used() const { return size - free; }

  std::uint64_t size, free, growth;
};

using FreeRow = std::array<std::string, 8>;

FreeRow MakeFreeRow(const FreeOptions& options, const std::string& operand) {
  const RawContainer container(ParseContainer(operand));
  const inspect::Report report = Inspect(container);
  const Room room(container, report);
  const auto text = [&](std::uint64_t bytes) {
    return options.human ? HumanSize(bytes) : std::to_string((bytes + 1023) / 1024);
  };
  return {ShellWord(container.path()),
          text(room.size),
          text(room.used()),
          text(room.free),
          text(room.growth),
          std::to_string(report.model.geometry.nodeLimit()),
          std::to_string(report.totals.freeNodes),
          StateText(report)};
}

void PrintFreeJson(const std::string& operand) {
  const std::string path = ParseContainer(operand);
  PrintObject("container", path, [&path](JsonObject* json) {
    const RawContainer container(path);
    const inspect::Report report = Inspect(container);
    const Room room(container, report);
    json->Number("size", room.size)
        .Number("used", room.used())
        .Number("free", room.free)
        .Number("growth", room.growth)
        .Number("nodes", report.model.geometry.nodeLimit())
        .Number("freeNodes", report.totals.freeNodes)
        .Text("verdict", Verdict(report))
        .Flag("marked", report.marked);
  });
}

int RunFree(const FreeOptions& options) {
  if (options.json) return ForEach(options.operands, PrintFreeJson);
  const char* const unit = options.human ? "" : " K";
  std::vector<FreeRow> rows = {{"Container", std::string("Size") + unit, std::string("Used") + unit,
                                std::string("Free") + unit, std::string("Growth") + unit, "Nodes", "Left", "State"}};
  const int status =
      ForEach(options.operands, [&](const std::string& operand) { rows.push_back(MakeFreeRow(options, operand)); });
  std::array<std::size_t, 8> widths = {};
  for (const FreeRow& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const FreeRow& row : rows) {
    if (rows.size() == 1) break;  // none could be read
    std::string line = PadRight(row[0], widths[0]);
    for (std::size_t i = 1; i + 1 < row.size(); ++i) line += "  " + PadLeft(row[i], widths[i]);
    Print(line + "  " + row.back() + "\n");
  }
  return status;
}

Run DefineFree(Syntax* syntax) {
  auto options = std::make_shared<FreeOptions>();
  syntax->Flag("-h,--human", &options->human, "sizes such as 1.5K");
  syntax->Flag("--json", &options->json, "a JSON object for each container, on a line of its own");
  syntax->Many("CONTAINER", &options->operands);
  return [options] { return RunFree(*options); };
}

}  // namespace

const Command kFormatCommand = {
    "format",
    kContainerGroup,
    "CONTAINER",
    "make an empty container",
    "Makes a new container that holds an empty root directory. Never overwrites a file.\n\n"
    "The number of files and directories is fixed here, 8192 (or what the blocks have room for) unless you say "
    "otherwise; the space for contents grows as needed, up to 2 GiB. Small blocks waste less on small files, large "
    "ones serve large files faster and hold more of them: at most 3584 files and directories with blocks of 1024 "
    "bytes, 7168 with 2048, 14336 with 4096, 28672 with 8192.",
    "orba format card.orb\n"
    "orba format --block-size 1024 --nodes 500 small.orb",
    DefineFormat,
};

const Command kInfoCommand = {
    "info",
    kContainerGroup,
    "CONTAINER...",
    "describe a container",
    "Sizes, counts of files, directories, nodes and blocks, the update mark and the state. Works on containers that "
    "cannot be mounted too, and changes nothing. \"Appendable\" are the blocks by which the container can still grow. "
    "Of "
    "several containers, a line for each.",
    "orba info card.orb\n"
    "orba info *.orb",
    DefineInfo,
};

const Command kFreeCommand = {
    "df",
    kContainerGroup,
    "CONTAINER...",
    "tell how much space containers have left",
    "A line for each container, in units of 1024 bytes: its size, what of it is used and free, by how much it can "
    "grow (its disk's free space considered), how many files and directories it can hold and how many of those are "
    "left.",
    "orba df -h *.orb",
    DefineFree,
};

}  // namespace orba::tool

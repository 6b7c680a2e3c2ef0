// export: what a container holds, as an archive.
#include <algorithm>
#include <memory>
#include <optional>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/archive.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/contents.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/jobs.h"
#include "tools/orba/json.h"
#include "tools/orba/stamps.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct ExportOptions {
  std::vector<std::string> operands;  // places, and without `into` the archive
  std::string into;
  std::uint32_t jobs = 0;
  std::string format;
  bool force = false;
  bool verbose = false;
  bool quiet = false;
  bool json = false;
};

// A place in a container and the archive that it goes to.
struct Shipment {
  std::string place;
  std::string archive;
  std::string format;
};

// What went into an archive.
struct Exported {
  int status = kSuccess;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::uint64_t directories = 0;
  std::vector<std::string> problems;
};

Member MemberOf(const Content& content) {
  const Item& item = content.match.item;
  Member member;
  member.name = content.name + (item.IsDirectory() ? "/" : "");
  member.isDirectory = item.IsDirectory();
  member.size = item.size;
  if (IsDate(item.time)) member.time = SecondsSince1970(item.time);
  if (!item.IsDirectory()) member.attributes = item.attributes;
  return member;
}

// A file that the container holds all blocks of, but the host cannot read: what is missing is zeros, since the archive
// has said by then how long it is.
void AddContents(ArchiveWriter* archive, Look* look, const Match& file, Progress* progress) {
  std::uint64_t done = 0;
  try {
    look->Read(file, [&](const std::uint8_t* bytes, std::size_t count) {
      archive->Write(bytes, count);
      done += count;
      progress->Advance(count);
      return true;
    });
  } catch (Failure& failure) {
    const std::vector<char> zeros(64 * 1024);
    for (std::uint64_t left = file.item.size - done; left > 0;) {
      const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left, zeros.size()));
      archive->Write(zeros.data(), count);
      left -= count;
    }
    failure.AddAdvice("the archive has zeros there");
    throw;
  }
}

Exported Export(const ExportOptions& options, const Shipment& shipment, Look* look,
                const std::vector<Content>& contents, ArchiveWriter* archive) {
  std::uint64_t work = 0;
  for (const Content& content : contents) work += content.match.item.size + Progress::kFile;
  Progress progress("export", work, options.quiet || shipment.archive == "-");
  Exported exported;
  for (const Content& content : contents) {
    progress.SetItem(content.name);
    try {
      const bool file = !content.match.item.IsDirectory();
      if (file) look->RequireBlocks(content.match);
      if (!archive->Add(MemberOf(content))) {
        Report("warning: the time of " + content.name + " is left out: zip holds those from 1970 to 2106 alone");
      }
      if (file) AddContents(archive, look, content.match, &progress);
      ++(file ? exported.files : exported.directories);
      if (file) exported.bytes += content.match.item.size;
      if (options.verbose) Print(content.name + "\n");
    } catch (const Failure& failure) {
      if (failure.IsFinal()) throw;
      Report(failure);
      exported.problems.push_back(ReasonOf(failure));
      exported.status = kFailed;
    }
    progress.Advance(Progress::kFile);
  }
  archive->Close();
  return exported;
}

std::string FormatFor(const ExportOptions& options, const std::string& archive) {
  if (!options.format.empty()) return options.format;
  if (archive == "-") return "tar";
  std::string format = ArchiveFormatOf(archive);
  if (!format.empty()) return format;
  std::string known;
  for (const std::string& one : ArchiveFormats()) known += (known.empty() ? "." : ", .") + one;
  throw UsageFailure(
      "export", "the name " + archive + " says no format; it has to end in one of " + known + ", or give --format");
}

constexpr Outcome kExported = {kSuccess, "exported"};
constexpr Outcome kIncomplete = {kFailed, "incomplete"};
constexpr Outcome kNotExported = {kFailed, "not exported"};

// `json` is the object to tell of it in, if any.
Outcome Export(const ExportOptions& options, const Shipment& shipment, JsonObject* json) {
  const std::string& path = shipment.archive;
  const bool toOutput = path == "-";
  if (!toOutput && HostFileExists(path)) {
    PlaceToWrite(path);
    if (!options.force) throw HostFailure("cannot write " + path, EEXIST);
  }
  Look look;
  const Address address = ParseAddress(shipment.place);
  const std::vector<Content> contents = ContentsOf(&look, {address, GetItem(&look, address, "export")});
  Exported exported;
  if (toOutput) {
    ArchiveWriter archive(shipment.format, [](const void* bytes, std::size_t count) { Print(bytes, count); });
    exported = Export(options, shipment, &look, contents, &archive);
  } else {
    NewHostFile file(path);
    ArchiveWriter archive(shipment.format, [&file](const void* bytes, std::size_t count) { file.Write(bytes, count); });
    exported = Export(options, shipment, &look, contents, &archive);
    file.Publish({}, options.force, true);
  }
  if (json != nullptr) {
    for (std::string& problem : look.TakeProblems()) exported.problems.push_back(std::move(problem));
    json->Number("files", exported.files)
        .Number("fileBytes", exported.bytes)
        .Number("directories", exported.directories)
        .Json("problems", HostTexts(exported.problems));
  } else if (!options.into.empty() && !options.quiet) {
    Print(address.Text() + ": " + inspect::Counted(exported.files, "file") + " with " +
          inspect::Counted(exported.bytes, "byte") + " and " +
          inspect::Counted(exported.directories, "directory", "directories") + " in " + Visible(path) + "\n");
  }
  return look.Finish(exported.status) == kSuccess ? kExported : kIncomplete;
}

Outcome ExportAsJson(const ExportOptions& options, const Shipment& shipment) {
  const Address address = ParseAddress(shipment.place);
  Outcome outcome = {};
  PrintObject("container", address.container, [&](JsonObject* json) {
    json->Text("path", inspect::Printable(address.Path())).Json("archive", HostText(shipment.archive));
    outcome = Export(options, shipment, json);
  });
  return outcome;
}

std::vector<Shipment> ShipmentsOf(const ExportOptions& options) {
  const std::vector<std::string>& operands = options.operands;
  if (options.into.empty()) {
    if (operands.size() > 2) {
      throw UsageFailure("export",
                         "\"" + operands[2] + "\" is one operand too many; several containers take --into FOLDER");
    }
    const std::string archive = operands.size() == 2 ? operands[1] : "-";
    return {{operands[0], archive, FormatFor(options, archive)}};
  }
  const std::string format = FormatFor(options, "-");
  std::vector<std::string> containers;
  containers.reserve(operands.size());
  for (const std::string& operand : operands) containers.push_back(ParseAddress(operand).container);
  const std::vector<std::string> places = PlacesInto(options.into, containers, "." + format);
  std::vector<Shipment> shipments;
  for (std::size_t i = 0; i < operands.size(); ++i) shipments.push_back({operands[i], places[i], format});
  return shipments;
}

int RunExport(const ExportOptions& options) {
  const std::vector<Shipment> shipments = ShipmentsOf(options);
  const bool toOutput = shipments[0].archive == "-";
  if (toOutput && IsTerminal(Stream::kOutput)) {
    throw Failure("cannot print an archive on a terminal", "", "give a FILE, or lead the output into a program");
  }
  if (toOutput && options.verbose) throw UsageFailure("export", "--verbose and the archive cannot both be printed");
  if (toOutput && options.json) throw UsageFailure("export", "--json and the archive cannot both be printed");
  if (!options.into.empty()) MakeHostDirectories(options.into);
  if (!toOutput) SweepTemporaries(ParentOf(shipments[0].archive));
  const Batch batch = {"export", shipments.size(), options.jobs, options.quiet || toOutput, kNotExported};
  const bool asJson = options.json && !options.quiet;
  const std::vector<Outcome> outcomes = RunBatch(batch, [&](std::size_t number) {
    CheckInterrupt();
    return asJson ? ExportAsJson(options, shipments[number]) : Export(options, shipments[number], nullptr);
  });
  if (shipments.size() > 1 && !options.json && !options.quiet) {
    Print(Summary(outcomes, {kExported.word, kIncomplete.word, kNotExported.word}));
  }
  return WorstStatus(outcomes, {kSuccess, kFailed});
}

Run DefineExport(Syntax* syntax) {
  auto options = std::make_shared<ExportOptions>();
  syntax->Text("--into", "FOLDER", &options->into, "an archive for each of several containers, named after it");
  syntax->Choice("--format", "FORMAT", &options->format, ArchiveFormats(),
                 "as the name of FILE would end, such as tar.gz; without it \"-\" and --into take tar");
  syntax->Flag("-f,--force", &options->force, "overwrite FILE");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("--json", &options->json, "a JSON object for each container, on a line of its own");
  syntax->Exclude("--verbose", "--json");
  syntax->Flag("-q,--quiet", &options->quiet, "print errors alone, also with --json");
  DefineJobs(syntax, &options->jobs);
  syntax->Many("CONTAINER[:/PATH]", &options->operands);
  return [options] { return RunExport(*options); };
}

}  // namespace

const Command kExportCommand = {
    "export",
    kTransferGroup,
    "CONTAINER[:/PATH] [FILE|-] | --into FOLDER CONTAINER[:/PATH]...",
    "write what a container holds as tar or zip",
    "Writes the contents of PATH and everything below it as an archive, names from PATH on: to FILE in the format that "
    "its name ends in (.tar, .tar.gz, .tgz, .tar.bz2, .tar.xz, .tar.zst, .zip; on Windows .tar, "
    ".tar.gz, .tgz, .zip), or to standard output. Files and directories keep their times. In tar, the attributes of a "
    "file stand in an extended header as the extended "
    "attribute user.orba.attributes, \"r\" for read-only and \"u\" for the user's; zip has no place for them, nor for "
    "times before 1970 or after 2106. The same contents give the same archive.\n\n"
    "With --into, each container has an archive of its own in FOLDER, named as it is but with .tar, or what --format "
    "says, in place of .orb.\n\n"
    "Works on marked and damaged containers as get does: a file that cannot be read is left out and reported, and the "
    "exit status is 1.",
    "orba export card.orb - | tar t\n"
    "orba export card.orb:/LOGS logs.tar.gz\n"
    "orba export card.orb card.zip\n"
    "orba export --into archives --format tar.gz *.orb",
    DefineExport,
};

}  // namespace orba::tool

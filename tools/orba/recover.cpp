// recover: everything readable out of a container, whatever its state.
#include "inspect/repair/recover.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/view/report.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/fsck.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/jobs.h"
#include "tools/orba/json.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct RecoverOptions {
  std::vector<std::string> operands;  // containers, and without `into` the directory
  std::string into;
  std::uint32_t jobs = 0;
  bool force = false;
  bool noClobber = false;
  bool verbose = false;
  bool quiet = false;
  bool json = false;
};

// One container and where its files go.
struct Rescue {
  std::string container;
  std::string directory;
  bool alone;  // the only one: all is said of it, and what is written is had on the disk
};

// A folder of the host, written to as get does.
class Folder : public inspect::Destination {
 public:
  Folder(const RecoverOptions& options, const Rescue& rescue, Progress* progress)
      : options_(options), rescue_(rescue), progress_(progress) {}

  std::string MakeDirectory(const std::string& path) override {
    return Try([&] {
      // What already stands in the folder may be a link that leads out of it.
      const bool link = path != rescue_.directory && host::OwnStatusOf(path).kind == host::Kind::kLink;
      if (link) throw HostFailure("cannot make the directory " + path, EEXIST, "remove the link of this name");
      MakeHostDirectory(path);
      return true;
    });
  }

  std::string WriteFile(const std::string& path, const TimeStamp& time, const Contents& contents) override {
    return Try([&] { return Write(path, time, contents); });
  }

  const std::vector<Failure>& failures() const { return failures_; }
  std::uint32_t skipped() const { return skipped_; }    // left alone, for they are there already
  std::uint32_t notTried() const { return notTried_; }  // after the host took no more

 private:
  // Does `work`, which returns false for a file that is not whole.
  template <typename Work>
  std::string Try(const Work& work) {
    if (!failures_.empty() && failures_.back().IsFinal()) {
      ++notTried_;
      return "it was not tried";
    }
    try {
      return work() ? "" : "blocks are missing";
    } catch (const Failure& failure) {
      failures_.push_back(failure);
      return ReasonOf(failure);
    }
  }

  bool Write(const std::string& path, const TimeStamp& time, const Contents& contents) {
    if (HostFileExists(path)) {
      if (options_.noClobber) {
        ++skipped_;
        return true;
      }
      if (IsSameHostFile(path, rescue_.container)) {
        throw Failure("cannot write " + path, "it is the container itself", "recover into another folder");
      }
      PlaceToWrite(path);
      if (!options_.force) {
        throw HostFailure(
            "cannot write " + path, EEXIST,
            "recover into another folder, or use --force to overwrite it, --no-clobber to leave it alone");
      }
    }
    NewHostFile file(path);
    const bool whole = contents([&](const std::uint8_t* bytes, std::size_t count) {
      CheckInterrupt();
      file.Write(bytes, count);
      progress_->Advance(count);
      return true;
    });
    file.Publish({time.year, time.month, time.day, time.hour, time.minute, time.second, 0}, options_.force);
    if (!whole) {
      failures_.emplace_back("cannot recover all of " + path, "blocks of it are missing in the container",
                             "the copy holds what comes before them");
    }
    return whole;
  }

  const RecoverOptions& options_;
  const Rescue& rescue_;
  Progress* progress_;
  std::vector<Failure> failures_;
  std::uint32_t skipped_ = 0;
  std::uint32_t notTried_ = 0;
};

void PrintRecovered(const RecoverOptions& options, const Rescue& rescue, const inspect::Recovered& recovered,
                    const Folder& folder) {
  std::string text;
  if (rescue.alone) {
    std::string repairs;
    for (const std::string& repair : recovered.repairs) repairs += "set right in the copies: " + repair + "\n";
    std::string renames;
    for (const std::string& renamed : recovered.renamed) renames += "renamed: " + renamed + "\n";
    text = ShortList(repairs, options.verbose) + ShortList(renames, options.verbose);
  } else {
    text = ShellWord(rescue.container) + ": ";
  }
  const std::string skipped =
      folder.skipped() == 0 ? "" : "; " + inspect::Counted(folder.skipped(), "file") + " left alone";
  SayAfterwards(text + inspect::Counted(recovered.files - folder.skipped(), "file") + " with " +
                inspect::Counted(recovered.bytes, "byte") + " and " +
                inspect::Counted(recovered.directories, "directory", "directories") + " copied to " +
                Visible(rescue.directory) + skipped + "\n");
}

void AddRecovered(const inspect::Recovered& recovered, const Folder& folder, JsonObject* json) {
  json->Number("files", recovered.files - folder.skipped())
      .Number("fileBytes", recovered.bytes)
      .Number("directories", recovered.directories)
      .Number("skipped", folder.skipped())
      .Json("repairs", HostTexts(recovered.repairs))
      .Json("renamed", HostTexts(recovered.renamed))
      .Number("unreadable", recovered.unreadable)
      .Json("problems", HostTexts(recovered.failures));
}

// What could not be copied. True when there is anything.
bool ReportLosses(const std::string& container, const inspect::Recovered& recovered, const Folder& folder) {
  ReportAll(folder.failures());
  if (folder.notTried() > 0) {
    Report(Failure(
        "cannot recover " + inspect::Counted(folder.notTried(), "more file or directory", "more files and directories"),
        "the host takes nothing more", "make room, then go on with: orba recover --no-clobber"));
  }
  if (recovered.unreadable > 0) {
    Report(Failure("cannot read " + inspect::Counted(recovered.unreadable, "place") + " of " + ShellWord(container),
                   "the host could not read it (" + CodeText(ORB_ERROR_READ) + ")",
                   "the copies have zeros there; try again from a copy of the disk"));
  }
  return !folder.failures().empty() || recovered.unreadable > 0;
}

constexpr Outcome kWhole = {kSuccess, "whole"};
constexpr Outcome kFromDamaged = {kDamageLeft, "damaged"};
constexpr Outcome kIncomplete = {kFailed, "incomplete"};
constexpr Outcome kNotRecovered = {kFailed, "not recovered"};

// `json` is the object to tell of it in, if any.
Outcome Recover(const RecoverOptions& options, const Rescue& rescue, JsonObject* json) {
  CheckInterrupt();
  const RawContainer container(rescue.container);
  const std::string word = ShellWord(rescue.container);
  const inspect::Report report = inspect::Check(container.image());
  if (json != nullptr) json->Text("verdict", Verdict(report)).Flag("marked", report.marked);
  const std::uint64_t bytes = std::min(report.totals.fileBytes, container.image().Size());  // sizes may be damaged
  Progress progress("recover", bytes + report.totals.files * Progress::kFile, options.quiet);
  const bool isNew = !HostFileExists(rescue.directory);
  MakeHostDirectories(rescue.directory);
  Folder folder(options, rescue, &progress);
  const inspect::Recovered recovered =
      inspect::Recover(container.image(), rescue.directory, &folder, [&progress](const std::string& item) {
        CheckInterrupt();
        progress.SetItem(item);
        progress.Advance(Progress::kFile);
      });
  Progress::Hide();
  if (recovered.possible && rescue.alone) SyncDisks({rescue.directory});
  if (!recovered.possible) {
    if (isNew) host::RemoveDirectory(rescue.directory);
    const std::string why = recovered.failures.empty() ? "nothing can be made out" : recovered.failures[0];
    throw Failure("cannot recover " + word, why + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                  "see what it holds with: orba dump " + word + " bytes 0", ORB_ERROR_DAMAGED_VOLUME);
  }
  const bool inText = json == nullptr && !options.quiet;
  if (json != nullptr) AddRecovered(recovered, folder, json);
  if (inText) PrintRecovered(options, rescue, recovered, folder);
  if (ReportLosses(rescue.container, recovered, folder)) {
    Outcome outcome = kIncomplete;
    outcome.last = !folder.failures().empty() && folder.failures().back().IsFinal();
    return outcome;
  }
  if (report.IsClean()) return kWhole;
  if (inText && rescue.alone) {
    SayAfterwards("the container is damaged, and more may have been there; see the damage with: orba check " + word +
                  "\n");
  }
  return kFromDamaged;
}

Outcome RecoverAsJson(const RecoverOptions& options, const Rescue& rescue) {
  Outcome outcome = {};
  PrintObject("container", rescue.container, [&](JsonObject* json) {
    json->Json("directory", HostText(rescue.directory));
    outcome = Recover(options, rescue, json);
  });
  return outcome;
}

std::vector<Rescue> RescuesOf(const RecoverOptions& options) {
  const std::vector<std::string>& operands = options.operands;
  if (options.into.empty()) {
    if (operands.size() < 2) throw UsageFailure("recover", "DIRECTORY is missing");
    if (operands.size() > 2) {
      throw UsageFailure("recover",
                         "\"" + operands[2] + "\" is one operand too many; several containers take --into FOLDER");
    }
    return {{ParseContainer(operands[0]), operands[1], true}};
  }
  std::vector<std::string> containers;
  containers.reserve(operands.size());
  for (const std::string& operand : operands) containers.push_back(ParseContainer(operand));
  const std::vector<std::string> places = PlacesInto(options.into, containers, "");
  std::vector<Rescue> rescues;
  for (std::size_t i = 0; i < containers.size(); ++i) rescues.push_back({containers[i], places[i], places.size() == 1});
  return rescues;
}

int RunRecover(const RecoverOptions& options) {
  const std::vector<Rescue> rescues = RescuesOf(options);
  const bool several = rescues.size() > 1;
  if (several) MakeHostDirectories(options.into);
  const Batch batch = {"recover", rescues.size(), options.jobs, options.quiet, kNotRecovered};
  const bool asJson = options.json && !options.quiet;
  const std::vector<Outcome> outcomes = RunBatch(batch, [&](std::size_t number) {
    return asJson ? RecoverAsJson(options, rescues[number]) : Recover(options, rescues[number], nullptr);
  });
  if (several) SyncDisks({options.into});
  if (several && !options.json && !options.quiet) {
    SayAfterwards(Summary(outcomes, {kWhole.word, kFromDamaged.word, kIncomplete.word, kNotRecovered.word}));
  }
  return WorstStatus(outcomes, {kSuccess, kDamageLeft, kFailed});
}

Run DefineRecover(Syntax* syntax) {
  auto options = std::make_shared<RecoverOptions>();
  syntax->Text("--into", "FOLDER", &options->into, "a folder for each of several containers, named after it");
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Flag("-n,--no-clobber", &options->noClobber, "leave files alone that are there, and copy the others");
  syntax->Exclude("--force", "--no-clobber");
  syntax->Flag("-v,--verbose", &options->verbose, "all of what was set right, not the first 40 lines");
  syntax->Flag("--json", &options->json, "a JSON object for each container, on a line of its own");
  syntax->Flag("-q,--quiet", &options->quiet, "print errors alone, also with --json");
  DefineJobs(syntax, &options->jobs);
  syntax->Many("CONTAINER", &options->operands);
  return [options] { return RunRecover(*options); };
}

}  // namespace

const Command kRecoverCommand = {
    "recover",
    kRepairGroup,
    "CONTAINER DIRECTORY | --into FOLDER CONTAINER...",
    "copy everything readable out of a damaged container",
    "Copies what repair would leave, and what it would cost, with names and directories as far as they survive, and "
    "touches nothing in the container. What has no name left goes under LOST.FND. Files that are there already are "
    "only overwritten with --force, and left alone with --no-clobber, which continues an interrupted recover. Each "
    "file is written under a temporary name and renamed when it is complete. With --into, each container has a "
    "folder of its own in FOLDER, named as it is but without \".orb\".\n\n"
    "Exits with 0 when the container is sound (the update mark alone is not damage) and all was copied, 4 when all "
    "that can be read was copied but check finds damage, so that more may have been there, 1 when something could "
    "not be copied. Of several containers the worst counts.",
    "orba recover card.orb rescued\n"
    "orba recover --into rescued *.orb",
    DefineRecover,
};

}  // namespace orba::tool

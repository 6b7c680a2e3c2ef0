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
#include "tools/orba/json.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct RecoverOptions {
  std::string container;
  std::string directory;
  bool force = false;
  bool noClobber = false;
  bool verbose = false;
  bool quiet = false;
  bool json = false;
};

// A folder of the host, written to as get does.
class Folder : public inspect::Destination {
 public:
  Folder(const RecoverOptions& options, const std::string& container, Progress* progress)
      : options_(options), container_(container), progress_(progress) {}

  std::string MakeDirectory(const std::string& path) override {
    return Try([&] {
      // What already stands in the folder may be a link that leads out of it.
      const bool link = path != options_.directory && host::OwnStatusOf(path).kind == host::Kind::kLink;
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
      if (IsSameHostFile(path, container_)) {
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
  const std::string& container_;
  Progress* progress_;
  std::vector<Failure> failures_;
  std::uint32_t skipped_ = 0;
  std::uint32_t notTried_ = 0;
};

void PrintRecovered(const RecoverOptions& options, const inspect::Recovered& recovered, const Folder& folder) {
  std::string repairs;
  for (const std::string& repair : recovered.repairs) repairs += "set right in the copies: " + repair + "\n";
  std::string renames;
  for (const std::string& renamed : recovered.renamed) renames += "renamed: " + renamed + "\n";
  const std::string skipped =
      folder.skipped() == 0 ? "" : "; " + inspect::Counted(folder.skipped(), "file") + " left alone";
  SayAfterwards(ShortList(repairs, options.verbose) + ShortList(renames, options.verbose) +
                inspect::Counted(recovered.files - folder.skipped(), "file") + " with " +
                inspect::Counted(recovered.bytes, "byte") + " and " +
                inspect::Counted(recovered.directories, "directory", "directories") + " copied to " +
                Visible(options.directory) + skipped + "\n");
}

void AddRecovered(const RecoverOptions& options, const inspect::Recovered& recovered, const Folder& folder,
                  JsonObject* json) {
  json->Json("directory", HostText(options.directory))
      .Number("files", recovered.files - folder.skipped())
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

// `json` is the object to tell of it in, if any.
int Recover(const RecoverOptions& options, const std::string& path, JsonObject* json) {
  const RawContainer container(path);
  const inspect::Report report = inspect::Check(container.image());
  if (json != nullptr) json->Text("verdict", Verdict(report)).Flag("marked", report.marked);
  const std::uint64_t bytes = std::min(report.totals.fileBytes, container.image().Size());  // sizes may be damaged
  Progress progress("recover", bytes + report.totals.files * Progress::kFile, options.quiet);
  const bool isNew = !HostFileExists(options.directory);
  MakeHostDirectories(options.directory);
  Folder folder(options, container.path(), &progress);
  const inspect::Recovered recovered =
      inspect::Recover(container.image(), options.directory, &folder, [&progress](const std::string& item) {
        CheckInterrupt();
        progress.SetItem(item);
        progress.Advance(Progress::kFile);
      });
  Progress::Hide();
  if (recovered.possible) SyncDisks({options.directory});
  if (!recovered.possible) {
    if (isNew) host::RemoveDirectory(options.directory);
    const std::string why = recovered.failures.empty() ? "nothing can be made out" : recovered.failures[0];
    throw Failure(
        "cannot recover " + ShellWord(container.path()), why + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
        "see what it holds with: orba dump " + ShellWord(container.path()) + " bytes 0", ORB_ERROR_DAMAGED_VOLUME);
  }
  const bool inText = json == nullptr && !options.quiet;
  if (json != nullptr) AddRecovered(options, recovered, folder, json);
  if (inText) PrintRecovered(options, recovered, folder);
  if (ReportLosses(container.path(), recovered, folder)) return kFailed;
  if (report.IsClean()) return kSuccess;
  if (inText) {
    SayAfterwards("the container is damaged, and more may have been there; see the damage with: orba check " +
                  ShellWord(container.path()) + "\n");
  }
  return kDamageLeft;
}

int RunRecover(const RecoverOptions& options) {
  const std::string path = ParseContainer(options.container);
  int status = kSuccess;
  if (!options.json || options.quiet) return Recover(options, path, nullptr);
  PrintObject("container", path, [&](JsonObject* json) { status = Recover(options, path, json); });
  return status;
}

Run DefineRecover(Syntax* syntax) {
  auto options = std::make_shared<RecoverOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Flag("-n,--no-clobber", &options->noClobber, "leave files alone that are there, and copy the others");
  syntax->Exclude("--force", "--no-clobber");
  syntax->Flag("-v,--verbose", &options->verbose, "all of what was set right, not the first 40 lines");
  syntax->Flag("--json", &options->json, "one JSON object");
  syntax->Flag("-q,--quiet", &options->quiet, "print errors alone, also with --json");
  syntax->One("CONTAINER", &options->container);
  syntax->One("DIRECTORY", &options->directory);
  return [options] { return RunRecover(*options); };
}

}  // namespace

const Command kRecoverCommand = {
    "recover",
    kRepairGroup,
    "CONTAINER DIRECTORY",
    "copy everything readable out of a damaged container",
    "Copies what repair would leave, and what it would cost, with names and directories as far as they survive, and "
    "touches nothing in the container. What has no name left goes under LOST.FND. Files that are there already are "
    "only overwritten with --force, and left alone with --no-clobber, which continues an interrupted recover. Each "
    "file is written under a temporary name and renamed when it is complete.\n\n"
    "Exits with 0 when the container is sound (the update mark alone is not damage) and all was copied, 4 when all "
    "that can be read was copied but check finds damage, so that more may have been there, 1 when something could "
    "not be copied.",
    "orba recover card.orb rescued",
    DefineRecover,
};

}  // namespace orba::tool

// recover: everything readable out of a container, whatever its state.
#include "inspect/recover.h"

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <filesystem>
#include <memory>
#include <system_error>

#include "inspect/check.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/fsck.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct RecoverOptions {
  std::string container;
  std::string directory;
  bool verbose = false;
  bool quiet = false;
};

void PrintRecovered(const RecoverOptions& options, const inspect::Recovered& recovered) {
  std::string repairs;
  for (const std::string& repair : recovered.repairs) repairs += "set right in the copies: " + repair + "\n";
  std::string renames;
  for (const std::string& renamed : recovered.renamed) renames += "renamed: " + renamed + "\n";
  SayAfterwards(ShortList(repairs, options.verbose) + ShortList(renames, options.verbose) +
                inspect::Counted(recovered.files, "file") + " with " + inspect::Counted(recovered.bytes, "byte") +
                " and " + inspect::Counted(recovered.directories, "directory", "directories") + " copied to " +
                Visible(options.directory) + "\n");
}

int RunRecover(const RecoverOptions& options) {
  const RawContainer container(ParseContainer(options.container));
  const std::string what = "cannot recover " + container.path();
  Progress progress("recover", inspect::Check(container.image()).totals.files * Progress::kFile, options.quiet);
  const bool isNew = !HostFileExists(options.directory);
  std::error_code error;
  std::filesystem::create_directories(options.directory, error);
  if (error) throw HostFailure("cannot make the directory " + options.directory, error.value());
  const inspect::Recovered recovered =
      Recover(container.image(), options.directory, [&progress](const std::string& path) {
        CheckInterrupt();
        progress.SetItem(path);
        progress.Advance(Progress::kFile);
      });
  Progress::Hide();
  if (!recovered.possible) {
    if (isNew) rmdir(options.directory.c_str());
    const std::string why = recovered.failures.empty() ? "nothing can be made out" : recovered.failures[0];
    throw Failure(what, why + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                  "see what it holds with: orba dump " + ShellWord(container.path()) + " bytes 0",
                  ORB_ERROR_DAMAGED_VOLUME);
  }
  if (!options.quiet) PrintRecovered(options, recovered);
  std::vector<Failure> failures;
  for (const std::string& failure : recovered.failures) {
    failures.emplace_back("cannot recover " + failure, "", "the copy is missing or incomplete");
  }
  ReportAll(failures);
  if (recovered.unreadable > 0) {
    Report(Failure("cannot read " + std::to_string(recovered.unreadable) + " places of " + container.path(), "",
                   "the copies have zeros there; try again from a copy of the disk"));
  }
  return recovered.failures.empty() && recovered.unreadable == 0 ? kSuccess : kFailed;
}

Run DefineRecover(CLI::App* app) {
  auto options = std::make_shared<RecoverOptions>();
  app->add_flag("-v,--verbose", options->verbose, "all of what was set right, not the first 40 lines");
  app->add_flag("-q,--quiet", options->quiet, "print errors alone");
  app->add_option("container", options->container, "the container")->required();
  app->add_option("directory", options->directory, "where to put the copies; made if it is missing")->required();
  return [options] { return RunRecover(*options); };
}

}  // namespace

const Command kRecoverCommand = {
    "recover",
    kRepairGroup,
    "CONTAINER DIRECTORY",
    "copy everything readable out of a damaged container",
    "Copies what repair would leave, with names and directories as far as they survive, and touches nothing in the "
    "container. What has no name left goes under LOST.FND. Files that are there already are not overwritten.",
    "orba recover card.orb rescued",
    DefineRecover,
};

}  // namespace orba::tool

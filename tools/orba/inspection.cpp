// check, repair, undo and recover: containers that the library may refuse.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <sstream>
#include <system_error>

#include "inspect/apply.h"
#include "inspect/check.h"
#include "inspect/names.h"
#include "inspect/recover.h"
#include "inspect/repair.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

constexpr const char* kRecoverAdvice = "fetch what can be read with: orba recover ";

bool IsSound(const inspect::Report& report) { return report.readable && report.IsClean() && !report.marked; }

// For commands that exit as fsck does: who cannot even begin has not worked.
template <typename Work>
int AsFsck(const Work& work) {
  try {
    return work();
  } catch (const UsageFailure&) {
    throw;
  } catch (const Failure& failure) {
    Report(failure);
    return kCouldNotWork;
  }
}

// Lines of a report, each painted after the severity or verdict that it begins with.
std::string PaintedReport(const std::string& text) {
  if (!IsColoured(Stream::kOutput)) return text;
  struct Paint {
    const char* word;
    Colour colour;
  };
  constexpr Paint kPaints[] = {{"damage", Colour::kRed},
                               {"half-made", Colour::kYellow},
                               {"leak", Colour::kCyan},
                               {"note", Colour::kGrey},
                               {"clean", Colour::kGreen}};
  std::istringstream lines(text);
  std::string painted;
  for (std::string line; std::getline(lines, line);) {
    for (const Paint& paint : kPaints) {
      if (line.rfind(paint.word, 0) != 0) continue;
      const std::size_t end = line.find_first_of(" ,:");
      line = Painted(Stream::kOutput, paint.colour, line.substr(0, end)) + line.substr(std::min(end, line.size()));
      break;
    }
    painted += line + "\n";
  }
  return painted;
}

// ---- check ----------------------------------------------------------------------------------------------------------

struct CheckOptions {
  std::vector<std::string> operands;
  bool json = false;
  bool quiet = false;
};

Failure Unreadable(const std::string& path, const inspect::Report& report) {
  const std::string recover = "fetch what can be read with: orba recover " + ShellWord(path) + " DIR";
  if (report.Count(inspect::Kind::kUnreadable) > 0) {
    return Failure("cannot check all of " + path, "the host could not read it (" + CodeText(ORB_ERROR_READ) + ")",
                   "copy it to another disk and check the copy\n" + recover, ORB_ERROR_READ);
  }
  if (report.Count(inspect::Kind::kContainerShort) > 0) {
    return Failure(
        "cannot check " + path,
        "it is no container, or all but its first bytes are lost (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
        "check the name", ORB_ERROR_DAMAGED_VOLUME);
  }
  return Failure("cannot check " + path,
                 "it is no container, or its beginning is lost (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                 "look at its first bytes with: orba dump " + ShellWord(path) + " bytes 0\n" + recover,
                 ORB_ERROR_DAMAGED_VOLUME);
}

int CheckOne(const CheckOptions& options, const std::string& operand) {
  CheckInterrupt();
  const RawContainer container(ParseContainer(operand));
  const inspect::Report report = inspect::Check(container.image());
  if (options.json) {
    Print(ToJson(report));
  } else if (!options.quiet) {
    if (options.operands.size() > 1) Print(container.path() + ":\n");
    Print(PaintedReport(ToText(report)));
    if (report.readable && !IsSound(report)) Print("repair it with: orba repair " + ShellWord(container.path()) + "\n");
  }
  if (!report.readable) throw Unreadable(container.path(), report);
  return IsSound(report) ? kSuccess : kDamageLeft;
}

int RunCheck(const CheckOptions& options) {
  int status = kSuccess;
  for (const std::string& operand : options.operands) {
    status |= AsFsck([&] { return CheckOne(options, operand); });
  }
  return status;
}

Run DefineCheck(CLI::App* app) {
  auto options = std::make_shared<CheckOptions>();
  app->add_flag("--json", options->json, "one JSON object for each container, on a line of its own");
  app->add_flag("-q,--quiet", options->quiet, "the exit status alone");
  app->add_option("container", options->operands, "the containers to check")->required();
  return [options] { return RunCheck(*options); };
}

// ---- repair ---------------------------------------------------------------------------------------------------------

struct RepairOptions {
  std::string container;
  std::string undo;
  bool dryRun = false;
  bool quiet = false;
};

TimeStamp Now() {
  OrbTime now = {};
  OrbGetTime(&now);
  return {now.year, now.month, now.day, now.hour, now.minute, now.second, 0};
}

// All of it on the disk before the first byte of the container changes. Never overwrites.
void WriteUndoFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  const std::string what = "cannot write the undo file " + path;
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (file.get() < 0) throw errno == EEXIST ? HostFailure(what, errno, "use another name") : HostFailure(what, errno);
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t part = write(file.get(), bytes.data() + done, bytes.size() - done);
    if (part < 0) {
      const int error = errno;
      unlink(path.c_str());
      throw HostFailure(what, error);
    }
    done += static_cast<std::size_t>(part);
  }
  if (fsync(file.get()) != 0) throw HostFailure(what, errno);
}

// Everything written to the file is on its disk.
bool Synchronise(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file.get() >= 0 && fsync(file.get()) == 0;
}

std::unique_ptr<inspect::FileTarget> OpenTarget(const std::string& path) {
  std::unique_ptr<inspect::FileTarget> target = inspect::FileTarget::Open(path);
  if (target == nullptr) throw HostFailure("cannot write " + path, errno);
  return target;
}

void Apply(const RepairOptions& options, const RawContainer& container, const inspect::Plan& plan) {
  const std::unique_ptr<inspect::FileTarget> target = OpenTarget(container.path());
  if (!options.undo.empty()) WriteUndoFile(options.undo, MakeUndo(plan, container.image()));
  CheckInterrupt();
  errno = EIO;
  // A card may be pulled out next.
  if (ApplyPlan(plan, target.get()) && Synchronise(container.path())) return;
  const int error = errno;
  const std::string path = ShellWord(container.path());
  throw HostFailure(
      "cannot finish the repair of " + container.path(), error,
      "run it again when the disk is well; nothing is lost by that: orba repair " + path +
          (options.undo.empty() ? "" : "\ntake it back with: orba undo " + path + " " + ShellWord(options.undo)));
}

// What the container is after all writes, read anew.
int JudgeRepair(const RepairOptions& options, const std::string& path) {
  const inspect::Report report = inspect::Check(RawContainer(path).image());
  if (IsSound(report)) {
    if (!options.quiet) Print(Painted(Stream::kOutput, Colour::kGreen, "repaired") + "\n");
    return kRepaired;
  }
  if (!options.quiet) Print(PaintedReport(ToText(report)));
  Report(Failure(path + " is still damaged", "", kRecoverAdvice + ShellWord(path) + " DIR"));
  return kDamageLeft;
}

int Repair(const RepairOptions& options) {
  const std::string path = ParseContainer(options.container);
  {
    const RawContainer container(path, options.dryRun ? RawContainer::kRead : RawContainer::kWrite);
    const inspect::Plan plan = PlanRepair(container.image(), Now());
    if (!plan.possible) {
      throw Failure("cannot repair " + path, plan.problem + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                    "see what it holds with: orba dump " + ShellWord(path) + " bytes 0", ORB_ERROR_DAMAGED_VOLUME);
    }
    if (plan.actions.empty() && IsSound(plan.before)) {
      if (!options.quiet) Print(Painted(Stream::kOutput, Colour::kGreen, "clean") + ": nothing to repair\n");
      return kSuccess;
    }
    if (!options.quiet) {
      Print(ToText(plan));
      FlushOutput();  // what is going to be done is said before it is done
    }
    if (options.dryRun) return kDamageLeft;
    Apply(options, container, plan);
  }
  return JudgeRepair(options, path);
}

Run DefineRepair(CLI::App* app) {
  auto options = std::make_shared<RepairOptions>();
  app->add_flag("-n,--dry-run", options->dryRun, "show the plan and change nothing");
  app->add_option("--undo", options->undo, "keep in a new file what it takes to undo the repair")->type_name("FILE");
  app->add_flag("-q,--quiet", options->quiet, "the exit status alone");
  app->add_option("container", options->container, "the container to repair")->required();
  return [options] { return AsFsck([&] { return Repair(*options); }); };
}

// ---- undo -----------------------------------------------------------------------------------------------------------

struct UndoOptions {
  std::string container;
  std::string file;
  bool force = false;
};

std::vector<std::uint8_t> ReadWholeFile(const std::string& path) {
  const Descriptor file = OpenForReading(path);
  std::vector<std::uint8_t> bytes;
  constexpr std::size_t kPiece = 65536;
  std::size_t count = 0;
  do {
    const std::size_t start = bytes.size();
    bytes.resize(start + kPiece);
    count = ReadFully(file.get(), path, bytes.data() + start, kPiece);
    bytes.resize(start + count);
  } while (count == kPiece);
  return bytes;
}

int RunUndo(const UndoOptions& options) {
  const RawContainer container(ParseContainer(options.container), RawContainer::kWrite);
  const std::vector<std::uint8_t> undo = ReadWholeFile(options.file);
  const std::string what = "cannot undo the repair of " + container.path();
  if (!inspect::IsUndo(undo)) {
    throw Failure(what, options.file + " is no undo file, or damaged", "name the file that orba repair --undo wrote");
  }
  if (!options.force && !inspect::UndoFits(undo, container.image())) {
    throw Failure(what, options.file + " is of another container, or this one has changed since the repair",
                  "name the right file; with --force it is applied all the same, which may destroy the container");
  }
  const std::unique_ptr<inspect::FileTarget> target = OpenTarget(container.path());
  errno = EIO;
  if (!ApplyUndo(undo, target.get()) || !Synchronise(container.path())) {
    throw HostFailure(what, errno, "run it again when the disk is well");
  }
  return kSuccess;
}

Run DefineUndo(CLI::App* app) {
  auto options = std::make_shared<UndoOptions>();
  app->add_flag("-f,--force", options->force, "also when the file is of another container, or this one has changed");
  app->add_option("container", options->container, "the container")->required();
  app->add_option("file", options->file, "what orba repair --undo wrote")->required();
  return [options] { return RunUndo(*options); };
}

// ---- recover --------------------------------------------------------------------------------------------------------

struct RecoverOptions {
  std::string container;
  std::string directory;
  bool quiet = false;
};

void PrintRecovered(const inspect::Recovered& recovered, const std::string& directory) {
  for (const std::string& repair : recovered.repairs) Print("set right in the copies: " + repair + "\n");
  for (const std::string& renamed : recovered.renamed) Print("renamed: " + renamed + "\n");
  Print(inspect::Counted(recovered.files, "file") + " with " + inspect::Counted(recovered.bytes, "byte") + " and " +
        inspect::Counted(recovered.directories, "directory", "directories") + " copied to " + Visible(directory) +
        "\n");
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
  if (!options.quiet) PrintRecovered(recovered, options.directory);
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
  app->add_flag("-q,--quiet", options->quiet, "print errors alone");
  app->add_option("container", options->container, "the container")->required();
  app->add_option("directory", options->directory, "where to put the copies; made if it is missing")->required();
  return [options] { return RunRecover(*options); };
}

}  // namespace

const Command kCheckCommand = {
    "check",
    kRepairGroup,
    "CONTAINER...",
    "look for damage, half-made updates and leaked space",
    "Reads everything a container says about itself and changes nothing. Each finding comes with its place and with "
    "what it means: damage breaks a rule of the format; half-made is what an interrupted update left, whose end is "
    "known; a leak is space that nothing names, nothing is lost by it; a note breaks no rule.\n\n"
    "Exits with 0 when the container is clean, 4 when there is something to repair (an update mark that is set "
    "counts), 8 when it could not be read. Of several containers the statuses are combined.",
    "orba check card.orb\n"
    "orba check --json card.orb | jq .verdict\n"
    "orba check -q card.orb || orba repair --undo card.undo card.orb",
    DefineCheck,
};

const Command kRepairCommand = {
    "repair",
    kRepairGroup,
    "CONTAINER",
    "make a container consistent and mountable again",
    "Prints its plan, then carries it out: finishes or undoes half-made updates, gives leaked space back, rebuilds "
    "the list of free blocks and takes the update mark away last. What has data but no name left appears as "
    "/LOST.FND/NODEnnnn. Data that can be kept is never deleted.\n\n"
    "A repair may be interrupted at any time and run again. With --undo, a file keeps all that is overwritten, and "
    "orba undo takes the repair back.\n\n"
    "Exits with 0 when there was nothing to do, 1 when the container is repaired, 4 when damage is left (always "
    "after --dry-run), 8 when it could not work.",
    "orba repair --dry-run card.orb\n"
    "orba repair --undo card.undo card.orb",
    DefineRepair,
};

const Command kUndoCommand = {
    "undo",
    kRepairGroup,
    "CONTAINER FILE",
    "take a repair back",
    "Puts back what a repair has overwritten, from the file that its --undo wrote, whether the repair ended or was "
    "interrupted. Refuses a file of another container, and a container in which anything has changed since.",
    "orba undo card.orb card.undo",
    DefineUndo,
};

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

// put: files and trees from the host into a container. First a plan is made of everything, with each name and
// conflict checked; only a plan without a refusal is carried out.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>

#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/temporary.h"
#include "tools/orba/terminal.h"
#include "tools/orba/volume_file.h"
#include "tools/orba/wildcard.h"

namespace orba::tool {

namespace {

struct PutOptions {
  std::vector<std::string> operands;
  bool force = false;
  bool noClobber = false;
  bool rename = false;
  bool quiet = false;
  bool verbose = false;
  bool recursive = false;  // trees are put whole anyway
};

struct Source {
  std::string path;
  std::string name;  // that it is to have, as far as the container takes it
};

struct Step {
  std::string source;
  Address target;
  std::uint64_t size = 0;
  bool isDirectory = false;
  bool replaces = false;  // a file is there
  OrbU32 attributes = 0;  // of that file
};

struct Plan {
  std::vector<Step> steps;  // directories before what they hold
  std::vector<Failure> refusals;
  std::vector<Failure> skipped;
  std::vector<std::pair<std::string, Address>> renamed;
  std::uint64_t work = 0;
};

Failure TakenTarget(const Address& target, const char* kind, const std::string& advice) {
  return Failure("cannot write " + target.Text(), std::string(kind) + " (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
                 advice, ORB_ERROR_FILE_EXISTS);
}

// What cannot be asked for its kind.
Failure Unreachable(const std::string& path, int error) {
  const std::string what = "cannot put " + path;
  if (error != ENOENT) return HostFailure(what, error);
  if (HostFileExists(path)) return HostFailure(what, error, "it is a symbolic link that leads nowhere");
  if (HasWildcard(path)) return HostFailure(what, error, "the shell found nothing that matches, and left it as it is");
  if (path.find(":/") == std::string::npos) return HostFailure(what, error);
  return HostFailure(what, error, "the way from container to container is: orba cp");
}

class Planner {
 public:
  Planner(const PutOptions& options, Session* session, const std::string& container)
      : options_(options), session_(session) {
    container_ = host::StatusOf(container);
  }

  // Plans what goes into one directory of the container, which `exists` or is planned to.
  void AddAll(const Address& directory, bool exists, const std::vector<Source>& sources) {
    Siblings siblings;
    if (exists) {
      for (Item& item : ListItems(session_, directory)) siblings.existing.emplace(item.name, item);
    }
    const std::vector<std::string> names = ChooseNames(sources, &siblings);
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (names[i].empty()) continue;
      const auto there = siblings.existing.find(names[i]);
      const Item* const item = there == siblings.existing.end() ? nullptr : &there->second;
      const std::size_t steps = plan_.steps.size();
      const std::size_t renamed = plan_.renamed.size();
      const Address target = directory.Child(names[i]);
      if (names[i] != inspect::UpperCase(sources[i].name)) plan_.renamed.emplace_back(sources[i].path, target);
      AddOne(sources[i], target, item);
      if (plan_.steps.size() > steps) continue;
      plan_.renamed.erase(plan_.renamed.begin() + static_cast<std::ptrdiff_t>(renamed), plan_.renamed.end());
    }
  }

  // Plans one source under exactly this address.
  void AddNamed(const Source& source, const Address& target) {
    const std::optional<Item> there = FindItem(session_, target);
    AddOne(source, target, there.has_value() ? &*there : nullptr);
  }

  // Plans what a host directory holds into a directory that exists or is planned.
  void AddContents(const std::string& path, const Address& directory, bool exists) {
    std::vector<Source> children;
    for (const std::string& name : ListHostDirectory(path)) children.push_back({JoinPath(path, name), name});
    AddAll(directory, exists, children);
  }

  Plan Take() { return std::move(plan_); }

 private:
  struct Siblings {
    std::map<std::string, Item> existing;        // in the container, by name
    std::map<std::string, std::string> planned;  // host path by name
  };

  // For each source its name in the container, empty for one that is refused. Names that fit as they are go first. What
  // is in the container already does not matter: a source has the same name in every run.
  std::vector<std::string> ChooseNames(const std::vector<Source>& sources, Siblings* siblings) {
    std::vector<std::string> names(sources.size());
    std::vector<std::size_t> others;
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (!IsThere(sources[i])) continue;
      const std::string name = inspect::UpperCase(sources[i].name);
      const bool fits = NameProblem(name).empty() && siblings->planned.emplace(name, sources[i].path).second;
      if (fits) names[i] = name;
      if (!fits) others.push_back(i);
    }
    std::set<std::string> taken;
    for (const auto& [name, path] : siblings->planned) taken.insert(name);
    for (const std::size_t i : others) {
      if (!options_.rename) {
        RefuseName(sources[i], *siblings);
      } else {
        names[i] = LegalName(sources[i].name, taken);
        taken.insert(names[i]);
      }
    }
    return names;
  }

  // Asked before names are judged: a pattern that the shell leaves alone is not an illegal name.
  bool IsThere(const Source& source) {
    if (source.path == "-" || host::StatusOf(source.path).kind != host::Kind::kNothing) return true;
    plan_.skipped.push_back(Unreachable(source.path, errno));
    return false;
  }

  void RefuseName(const Source& source, const Siblings& siblings) {
    const std::string what = "cannot put " + source.path;
    const std::string problem = NameProblem(source.name);
    if (!problem.empty()) {
      plan_.refusals.emplace_back(
          what, "its name cannot be stored: " + problem + " (" + CodeText(ORB_ERROR_INVALID_NAME) + ")",
          std::string(kNameRule) + "\nrename the file, or use --rename to store it under a legal name",
          ORB_ERROR_INVALID_NAME);
      return;
    }
    const std::string& other = siblings.planned.at(inspect::UpperCase(source.name));
    plan_.refusals.emplace_back(
        what, "in a container its name is the same as that of " + other + " (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
        "letter case makes no difference there; use --rename to give one another name", ORB_ERROR_FILE_EXISTS);
  }

  void AddOne(const Source& source, const Address& target, const Item* there) {
    CheckInterrupt();
    if (source.path == "-") return AddFile(source, target, there, 0);
    const host::Status status = host::StatusOf(source.path);
    if (status.kind == host::Kind::kNothing) {
      plan_.skipped.push_back(Unreachable(source.path, errno));
    } else if (status.kind == host::Kind::kDirectory) {
      AddDirectory(source, target, there);
    } else if (status.kind != host::Kind::kFile) {
      plan_.skipped.emplace_back("cannot put " + source.path, "it is not an ordinary file but " + KindText(status.kind),
                                 "a container holds files and directories only");
    } else if (container_.kind != host::Kind::kNothing && status.id == container_.id) {
      plan_.skipped.emplace_back("cannot put " + source.path, "it is the container itself",
                                 "a container cannot hold itself; to copy all it holds: orba cp -r");
    } else if (status.size > ORB_MAX_FILE_SIZE) {
      plan_.refusals.emplace_back("cannot put " + source.path,
                                  "it has " + std::to_string(status.size) +
                                      " bytes, and files of a container have at most " +
                                      std::to_string(ORB_MAX_FILE_SIZE),
                                  "leave it out, or split it");
    } else {
      AddFile(source, target, there, status.size);
    }
  }

  void AddDirectory(const Source& source, const Address& target, const Item* there) {
    if (depth_ > 0 && host::OwnStatusOf(source.path).kind == host::Kind::kLink) {
      plan_.skipped.emplace_back("cannot put " + source.path, "it is a symbolic link to a directory",
                                 "give the directory itself to put it");
      return;
    }
    if (there != nullptr && !there->IsDirectory()) {
      plan_.refusals.push_back(TakenTarget(target, "a file of this name is there", "rename or remove it first"));
      return;
    }
    if (there == nullptr) plan_.steps.push_back({source.path, target, 0, true});
    ++depth_;
    try {
      AddContents(source.path, target, there != nullptr);
    } catch (const Failure& failure) {
      if (failure.code() != 0) throw;  // the container's fault
      plan_.skipped.push_back(failure);
    }
    --depth_;
  }

  void AddFile(const Source& source, const Address& target, const Item* there, std::uint64_t size) {
    if (IsTemporaryName(target.Name())) {
      plan_.refusals.emplace_back("cannot write " + target.Text(), "this name is kept for files that are being written",
                                  "use another name");
    } else if (there != nullptr && there->IsDirectory()) {
      plan_.refusals.push_back(TakenTarget(target, "a directory of this name is there", "rename or remove it first"));
    } else if (there != nullptr && options_.noClobber) {
      return;
    } else if (there != nullptr && !options_.force) {
      plan_.refusals.push_back(TakenTarget(target, "it exists", "use another name, or --force to overwrite it"));
    } else if (there != nullptr && there->IsReadOnly()) {
      plan_.refusals.push_back(ReadOnlyFailure("cannot overwrite " + target.Text(), target, "it"));
    } else {
      plan_.steps.push_back(
          {source.path, target, size, false, there != nullptr, there != nullptr ? there->attributes : 0});
      plan_.work += size + Progress::kFile;
    }
  }

  const PutOptions& options_;
  Session* session_;
  Plan plan_;
  unsigned depth_ = 0;  // below what the command line names
  host::Status container_;
};

// What the last operand refers to decides where the sources go and under which names.
Plan MakePlan(const PutOptions& options, Session* session) {
  const std::vector<std::string> sources(options.operands.begin(), options.operands.end() - 1);
  const Address target = ParseAddress(options.operands.back());
  RequireLegal(target);
  const std::optional<Item> there = FindItem(session, target);
  const bool intoDirectory = there.has_value() && there->IsDirectory();
  Planner planner(options, session, target.container);
  if (!intoDirectory) {
    if (sources.size() > 1 || (target.asDirectory && !IsHostDirectory(sources[0]))) {
      throw LibraryFailure("cannot put anything into " + target.Text(), target.container,
                           there.has_value() ? ORB_ERROR_NOT_A_DIRECTORY : ORB_ERROR_PATH_NOT_FOUND);
    }
    GetItem(session, target.Parent(), "find");
    planner.AddNamed({sources[0], target.Name()}, target);
    return planner.Take();
  }
  std::vector<Source> named;
  for (const std::string& source : sources) {
    if (source == "-") {
      throw Failure("cannot put standard input", "it has no name", "say which: CONTAINER:/PATH/NAME");
    }
    const std::string name = BaseName(source);
    if (!name.empty()) {
      named.push_back({source, name});
    } else {
      planner.AddContents(source, target, true);  // "dir/." and ".": what the directory holds
    }
  }
  planner.AddAll(target, true, named);
  return planner.Take();
}

void CopyIn(Session* session, const std::string& source, const Address& target, Progress* progress) {
  constexpr std::size_t kPiece = 256 * 1024;
  const Descriptor file = OpenForReading(source);
  std::vector<char> buffer(kPiece);
  std::size_t count = ReadFully(file.get(), source, buffer.data(), kPiece);
  if (count == 0) return;
  VolumeFile written(session, target, ORB_OPEN_WRITE);
  for (; count > 0; count = ReadFully(file.get(), source, buffer.data(), kPiece)) {
    CheckInterrupt();
    written.Write(buffer.data(), static_cast<OrbU32>(count));
    progress->Advance(count);
  }
  written.Close();
}

class Writer {
 public:
  Writer(Session* session, Progress* progress) : session_(session), progress_(progress) {}

  void Do(const Step& step) {
    progress_->SetItem(step.target.Path());
    if (!step.isDirectory) return WriteWhole(step);
    if (!FindItem(session_, step.target).has_value())
      CreateDirectory(session_, step.target);  // two sources may share it
  }

 private:
  // A file has its name when it is whole; one that does not come in whole goes again.
  void WriteWhole(const Step& step) {
    Sweep(step.target.Parent());
    const Address beside = TemporaryBeside(session_, step.target);
    CreateFile(session_, beside);
    try {
      CopyIn(session_, step.source, beside, progress_);
      if (step.attributes != 0) SetAttributes(session_, beside, step.attributes);
      if (!step.replaces && beside.names != step.target.names) Rename(session_, beside, step.target.Name());
    } catch (...) {
      OrbDeleteFileA(session_->PathOf(beside).c_str());
      throw;
    }
    if (step.replaces) Replace(session_, beside, step.target);
  }

  // Takes away what an interrupted run has left in the directory.
  void Sweep(const Address& directory) {
    if (!swept_.insert(session_->PathOf(directory)).second) return;
    for (const Item& item : ListItems(session_, directory)) {
      if (item.IsDirectory() || !IsTemporaryName(item.name)) continue;
      const Address left = directory.Child(item.name);
      Delete(session_, left);
      Report("removed " + left.Text() + ", which an interrupted put, cp or mv had left");
    }
  }

  Session* session_;
  Progress* progress_;
  std::set<std::string> swept_;
};

void PrintPair(const std::string& source, const Address& target) {
  Print(Visible(source) + " -> " + target.Text() + "\n");
}

int CarryOut(const PutOptions& options, Session* session, const Plan& plan) {
  int status = plan.skipped.empty() ? kSuccess : kFailed;
  Progress progress("put", plan.work, options.quiet);
  Writer writer(session, &progress);
  const Address* missing = nullptr;  // a directory that could not be made
  for (const Step& step : plan.steps) {
    CheckInterrupt();
    if (missing != nullptr && missing->Holds(step.target)) continue;
    try {
      writer.Do(step);
      if (options.verbose) PrintPair(step.source, step.target);
    } catch (const Failure& failure) {
      Report(failure);
      status = kFailed;
      if (failure.IsFinal()) break;
      if (step.isDirectory) missing = &step.target;
    }
    if (!step.isDirectory) progress.Advance(Progress::kFile);
  }
  return status;
}

int RunPut(const PutOptions& options) {
  if (options.operands.size() < 2) throw UsageFailure("put", "there must be a source and a target");
  Session session;
  const Plan plan = MakePlan(options, &session);
  ReportAll(plan.skipped);
  if (!plan.refusals.empty()) {
    ReportAll(plan.refusals);
    Report("nothing was put");
    return kFailed;
  }
  for (const auto& [source, target] : plan.renamed) PrintPair(source, target);
  const int status = CarryOut(options, &session, plan);
  session.Close();
  return status;
}

Run DefinePut(Syntax* syntax) {
  auto options = std::make_shared<PutOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Flag("-n,--no-clobber", &options->noClobber, "leave files alone that are there, and put the others");
  syntax->Exclude("--force", "--no-clobber");
  syntax->Flag("--rename", &options->rename, "store what has no legal name under a legal, unique one, and say which");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "draw no progress");
  syntax->Flag("-r,-R,--recursive", &options->recursive, "accepted for habit: directories are always put whole");
  syntax->Many("SOURCE", &options->operands);
  return [options] { return RunPut(*options); };
}

}  // namespace

const Command kPutCommand = {
    "put",
    kTransferGroup,
    "SOURCE... CONTAINER:/PATH",
    "copy files and trees into a container",
    "Copies files of the host, and directories with everything below them, into a directory of the container, or a "
    "single one to a new name. \"DIR/.\" puts what DIR holds; \"-\" is standard input. Directories that are there "
    "already are filled up; files that are there are only overwritten with --force, and left alone with "
    "--no-clobber, which continues an interrupted put.\n\n"
    "A file is written under the temporary name ~ORBA-1.TMP, with the first free number, in its directory, and renamed "
    "when it is complete. So --no-clobber can trust what has its name, also after a loss of power (and orba repair); "
    "the temporary file that is left then is removed by the next put into its directory.\n\n"
    "All names are checked before anything is written. Names that a container cannot hold are refused, and nothing is "
    "put; --rename makes them legal: other characters become \"_\", long names are shortened, a number tells equal "
    "names of one directory apart. A source has the same new name in every run, so that --force and --no-clobber "
    "work as usual. The new names are printed.\n\n"
    "Files in a container have the time when they were written there; the host's times cannot be stored. What is "
    "neither file nor directory is left out, and so are links to directories below the sources.",
    "orba put report.txt card.orb:/  # becomes /REPORT.TXT\n"
    "orba put config/. card.orb:/CONFIG\n"
    "orba put --rename 'My Photos' card.orb:/\n"
    "date | orba put - card.orb:/DATE.TXT",
    DefinePut,
};

}  // namespace orba::tool

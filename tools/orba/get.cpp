// get and cat: out of a container. Like put, get plans everything before it writes anything.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <set>

#include "inspect/repair/recover.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/digest.h"
#include "tools/orba/each.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/look.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

// ---- cat ------------------------------------------------------------------------------------------------------------

void PrintFile(Look* look, const Match& match) {
  if (match.item.IsDirectory()) {
    throw Failure("cannot read " + match.address.Text(), "it is a directory (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                  "copy it and everything below it with: orba get", ORB_ERROR_WRONG_KIND);
  }
  look->Read(match, [](const std::uint8_t* bytes, std::size_t count) {
    Print(bytes, count);
    return true;
  });
}

int RunCat(const std::vector<std::string>& operands) {
  Look look;
  int status = kSuccess;
  const int found = ForEach(operands, [&](const std::string& operand) {
    look.BeginWalk();
    const std::vector<Match> matches = Expand(&look, ParseAddress(operand), "read");
    const int read = ForEach(matches, [&](const Match& match) { PrintFile(&look, match); });
    if (read != kSuccess) status = read;
  });
  return look.Finish(found != kSuccess ? found : status);
}

Run DefineCat(Syntax* syntax) {
  auto operands = std::make_shared<std::vector<std::string>>();
  syntax->Many("CONTAINER:/PATH", operands.get());
  return [operands] { return RunCat(*operands); };
}

// ---- get ------------------------------------------------------------------------------------------------------------

struct GetOptions {
  std::vector<std::string> operands;
  bool force = false;
  bool noClobber = false;
  bool rename = false;
  bool lower = false;
  bool quiet = false;
  bool verbose = false;
  bool recursive = false;  // trees come whole anyway
  bool verify = false;
  std::string sync = "end";
};

struct Step {
  Match source;
  std::string target;
  bool isNew;  // nothing is there yet
};

struct Plan {
  std::vector<Step> steps;    // directories before what they hold
  std::vector<Step> renamed;  // those of them whose name the host does not take
  std::vector<Failure> refusals;
  std::uint64_t work = 0;
};

std::string HostName(const GetOptions& options, const std::string& name) {
  std::string host = name;
  if (options.lower) {
    for (char& c : host) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return host;
}

class Planner {
 public:
  Planner(const GetOptions& options, Look* look) : options_(options), look_(look) {}

  void AddTree(const Match& source, const std::string& target) {
    LookWalker walker(look_);
    Add(&walker, source, target, true);
  }
  // Under its own name.
  void AddTreeBelow(const Match& source, const std::string& directory) {
    LookWalker walker(look_);
    AddBelow(&walker, source, directory, true);
  }

  Plan Take() { return std::move(plan_); }

 private:
  // With `mayExist` something may be there; below a directory that is new, nothing is.
  void Add(LookWalker* walker, const Match& source, const std::string& target, bool mayExist) {
    const bool exists = mayExist && HostFileExists(target);
    if (!source.item.IsDirectory()) {
      if (exists && options_.noClobber) return;
      if (exists) RefuseExisting(target, source.address.container);
      plan_.work += source.item.size + Progress::kFile;
      plan_.steps.push_back({source, target, !exists});
      return;
    }
    if (exists && !IsHostDirectory(target)) {
      plan_.refusals.push_back(HostFailure("cannot make the directory " + target, EEXIST, "use another name"));
      return;
    }
    plan_.steps.push_back({source, target, !exists});
    for (const Item& item : walker->List(source)) {
      // A damaged name could lead out of the target; the walker has told of it.
      const Match child = {source.address.Child(item.name), item};
      if (item.named) AddBelow(walker, child, target, exists);
    }
  }

  void AddBelow(LookWalker* walker, const Match& source, const std::string& directory, bool mayExist) {
    const std::string& name = source.address.Name();
    const std::string problem = host::NameProblem(name);
    const std::string other = problem.empty() ? name : inspect::HostName(name);
    const std::string target = JoinPath(directory, HostName(options_, other));
    const std::string what = "cannot get " + source.address.Text();
    if (problem.empty()) {
      Add(walker, source, target, mayExist);
    } else if (!options_.rename) {
      plan_.refusals.emplace_back(what, problem, "store it under another name with: --rename");
    } else if (look_->Find(source.address.Parent().Child(other)).has_value()) {
      plan_.refusals.emplace_back(what, problem + ", and " + other + " is there too", "get the two one by one");
    } else {
      plan_.renamed.push_back({source, target, false});
      Add(walker, source, target, mayExist);
    }
  }

  void RefuseExisting(const std::string& target, const std::string& container) {
    if (IsSameHostFile(target, container)) {
      plan_.refusals.emplace_back("cannot write " + target, "it is the container itself", "use another name");
      return;
    }
    try {
      PlaceToWrite(target);
      if (!options_.force) throw HostFailure("cannot write " + target, EEXIST);
    } catch (const Failure& failure) {
      plan_.refusals.push_back(failure);
    }
  }

  const GetOptions& options_;
  Look* look_;
  Plan plan_;
};

// A directory as target takes the sources under their names; else the only source becomes the target.
Plan MakePlan(const GetOptions& options, Look* look, int* status) {
  std::vector<std::string> operands = options.operands;
  const std::string target = operands.size() > 1 ? operands.back() : ".";
  if (operands.size() > 1) operands.pop_back();
  std::vector<Match> sources;
  *status = ForEach(operands, [&](const std::string& operand) {
    for (Match& match : Expand(look, ParseAddress(operand), "get")) sources.push_back(std::move(match));
  });
  const bool intoDirectory = IsHostDirectory(target);
  const bool asDirectory = EndsWithSeparator(target) && !(sources.size() == 1 && sources[0].item.IsDirectory());
  if (FindSeparatingColon(target) != std::string::npos && !HostFileExists(target) &&
      !IsHostDirectory(ParentOf(target))) {
    throw HostFailure("cannot get anything into " + target, ENOENT,
                      "the last operand is a place on the host; from container to container: orba cp");
  }
  if (!intoDirectory && (sources.size() > 1 || operands.size() > 1 || asDirectory) && !sources.empty()) {
    const std::string what = "cannot get anything into " + target;
    if (HostFileExists(target)) throw HostFailure(what, ENOTDIR);
    throw HostFailure(what, ENOENT, "make the folder first, or check the path");
  }
  Planner planner(options, look);
  for (const Match& source : sources) {
    if (!source.item.named) continue;
    if (intoDirectory && !source.address.IsRoot()) {
      planner.AddTreeBelow(source, target);
    } else {
      planner.AddTree(source, target);
    }
  }
  return planner.Take();
}

// Compares what the host reads of a new file with what the container had for it.
void VerifyWritten(const NewHostFile& written, const Digest& digest, const Step& step) {
  Digest found;
  written.ReadBack([&found](const void* bytes, std::size_t count) { found.Add(bytes, count); });
  if (found.Text() == digest.Text()) return;
  throw Failure("cannot get " + step.source.address.Text(), "what the host reads of it is not what was written",
                "check the disk that holds " + step.target + ", or use another one");
}

void CopyOut(const GetOptions& options, Look* look, const Step& step, Progress* progress) {
  NewHostFile written(step.target, step.isNew);
  std::optional<Digest> digest;
  if (options.verify) digest.emplace();
  look->Read(step.source, [&](const std::uint8_t* bytes, std::size_t count) {
    written.Write(bytes, count);
    if (digest.has_value()) digest->Add(bytes, count);
    progress->Advance(count);
    return true;
  });
  if (digest.has_value()) VerifyWritten(written, *digest, step);
  written.Publish(step.source.item.time, options.force, options.sync == "each");
  progress->Advance(Progress::kFile);
}

// Directories get their times last, from the innermost on: what is written into them moves their times.
void StampDirectories(const Plan& plan) {
  for (auto step = plan.steps.rbegin(); step != plan.steps.rend(); ++step) {
    if (step->source.item.IsDirectory()) StampHostDirectory(step->target, step->source.item.time);
  }
}

int CarryOut(const GetOptions& options, Look* look, const Plan& plan) {
  Progress progress("get", plan.work, options.quiet);
  std::string missing;                // a directory that could not be made, with a "/" at its end
  std::set<std::string> directories;  // that files were written into
  const int status = ForEach(plan.steps, [&](const Step& step) {
    CheckInterrupt();
    if (!missing.empty() && step.target.compare(0, missing.size(), missing) == 0) return;
    progress.SetItem(step.source.address.Path());
    if (step.source.item.IsDirectory()) {
      missing = JoinPath(step.target, "");
      MakeHostDirectory(step.target);
      missing.clear();
    } else {
      const std::string directory = ParentOf(step.target);
      if (directories.insert(directory).second) SweepTemporaries(directory);
      CopyOut(options, look, step, &progress);
    }
    if (options.verbose) Print(step.source.address.Text() + " -> " + Visible(step.target) + "\n");
  });
  StampDirectories(plan);
  if (options.sync == "end") SyncDisks(directories);
  return status;
}

int RunGet(const GetOptions& options) {
  if (options.operands.size() > 1 && options.operands.back() == "-") {
    return RunCat({options.operands.begin(), options.operands.end() - 1});
  }
  Look look;
  int found = kSuccess;
  const Plan plan = MakePlan(options, &look, &found);
  if (!plan.refusals.empty()) {
    ReportAll(plan.refusals);
    Report("nothing was written");
    return look.Finish(kFailed);
  }
  for (const Step& step : plan.renamed) Print(step.source.address.Text() + " -> " + Visible(step.target) + "\n");
  look.BeginWalk();
  const int status = CarryOut(options, &look, plan);
  return look.Finish(found != kSuccess ? found : status);
}

Run DefineGet(Syntax* syntax) {
  auto options = std::make_shared<GetOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Flag("-n,--no-clobber", &options->noClobber, "leave files alone that are there, and get the others");
  syntax->Exclude("--force", "--no-clobber");
  syntax->Choice("--sync", "WHEN", &options->sync, {"end", "each"},
                 "when the files are on the disk: at the \"end\" of the command (unless you say otherwise) or \"each\" "
                 "as it is complete");
  syntax->Flag("--verify", &options->verify,
               "read each file back and compare checksums before it has its name; one that differs is left out");
  syntax->Flag("--rename", &options->rename,
               "store what has a name that the host does not take under another one, and say which");
  syntax->Flag("--lower", &options->lower, "names on the host in lower case");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "draw no progress");
  syntax->Flag("-r,-R,--recursive", &options->recursive, "changes nothing: directories always come whole");
  syntax->Many("CONTAINER:/PATH", &options->operands);
  return [options] { return RunGet(*options); };
}

}  // namespace

const Command kCatCommand = {
    "cat",
    kTransferGroup,
    "CONTAINER:/PATH...",
    "print files",
    "Writes the contents of files to standard output, byte for byte.",
    "orba cat card.orb:/LOGS/DAY1.TXT\n"
    "orba cat 'card.orb:/LOGS/*.TXT' | grep ERROR",
    DefineCat,
};

const Command kGetCommand = {
    "get",
    kTransferGroup,
    "CONTAINER:/PATH... [TARGET]",
    "copy files and trees out of a container",
    "Copies files, and directories with everything below them, into a directory of the host, or a single one to a "
    "new name; \"CONTAINER\" alone gets what its root holds. \"-\" as TARGET is standard output. Files and "
    "directories keep their times. Directories that are there already are filled up; files that are there are only "
    "overwritten with --force, and left alone with --no-clobber, which continues an interrupted get. Through a "
    "symbolic link the file that it leads to is overwritten; devices, pipes and the like are refused.\n\n"
    "Each file is written under a temporary name and renamed when it is complete, so an interrupted get leaves no "
    "incomplete files. When get ends well, all of it is on the disk. A loss of power before may leave files that are "
    "incomplete under their names; --sync=each rules that out and takes much longer.",
    "orba get card.orb:/LOGS  # into the current directory\n"
    "orba get 'card.orb:/LOGS/*.TXT' backup\n"
    "orba get --lower card.orb backup",
    DefineGet,
};

}  // namespace orba::tool

// put: files and trees from the host into a container.
#include "tools/orba/put.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <thread>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/digest.h"
#include "tools/orba/each.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/incoming.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/manifest.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/standard_input.h"
#include "tools/orba/temporary.h"
#include "tools/orba/terminal.h"
#include "tools/orba/walk.h"
#include "tools/orba/weigh.h"
#include "tools/orba/wildcard.h"

namespace orba::tool {

namespace {

struct PutSource {
  std::string path;
  std::string name;     // that it is to have, as far as the container takes it
  host::Status status;  // as the planner has seen it
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
  if (FindSeparatingColon(path) == std::string::npos) return HostFailure(what, error);
  return HostFailure(what, error, "the way from container to container is: orba cp");
}

class Planner {
 public:
  Planner(const PutOptions& options, Places* places, const Address& target, std::uint64_t blockSize)
      : options_(options),
        places_(places),
        container_(host::StatusOf(target.container)),
        blockSize_(blockSize),
        scales_(blockSize_) {}

  // Plans what goes into one directory of the container, which `exists` or is planned to.
  void AddAll(const Address& directory, bool exists, std::vector<PutSource> sources) {
    Siblings siblings;
    if (exists) {
      for (Item& item : places_->List(directory)) {
        if (IsTemporaryName(item.name) && !item.IsDirectory()) scales_.AddLeft(item.size);  // it goes before
        siblings.existing.emplace(item.name, item);
      }
    }
    const std::vector<std::string> names = ChooseNames(&sources, &siblings);
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
  void AddNamed(PutSource source, const Address& target) {
    const std::optional<Item> there = places_->Find(target);
    if (IsThere(&source)) AddOne(source, target, there.has_value() ? &*there : nullptr);
  }

  // Plans what a host directory holds into a directory that exists or is planned.
  void AddContents(const std::string& path, const Address& directory, bool exists) {
    std::vector<PutSource> children;
    for (const std::string& name : ListHostDirectory(path)) children.push_back({JoinPath(path, name), name, {}});
    AddAll(directory, exists, std::move(children));
  }

  PutPlan Take(const std::string& container, const std::optional<Capacity>& capacity) {
    if (capacity.has_value()) plan_.noRoom = scales_.Refusal(container, *capacity);
    return std::move(plan_);
  }

 private:
  struct Siblings {
    std::map<std::string, Item> existing;        // in the container, by name
    std::map<std::string, std::string> planned;  // host path by name
  };

  // For each source its name in the container, empty for one that is refused.
  std::vector<std::string> ChooseNames(std::vector<PutSource>* all, Siblings* siblings) {
    std::vector<PutSource>& sources = *all;
    std::vector<std::string> given;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < sources.size(); ++i) {
      if (!IsThere(&sources[i])) continue;
      given.push_back(sources[i].name);
      places.push_back(i);
    }
    const std::vector<std::string> stored = StoredNames(given, options_.rename);
    std::vector<std::string> names(sources.size());
    for (std::size_t i = 0; i < stored.size(); ++i) {
      names[places[i]] = stored[i];
      if (!stored[i].empty()) siblings->planned.emplace(stored[i], sources[places[i]].path);
    }
    for (std::size_t i = 0; i < stored.size(); ++i) {
      if (stored[i].empty()) RefuseName(sources[places[i]], *siblings);
    }
    return names;
  }

  // Asked before names are judged: a pattern that the shell leaves alone is not an illegal name.
  bool IsThere(PutSource* source) {
    if (source->path == "-") return true;
    source->status = host::StatusOf(source->path);
    if (source->status.kind != host::Kind::kNothing) return true;
    plan_.skipped.push_back(Unreachable(source->path, errno));
    return false;
  }

  void RefuseName(const PutSource& source, const Siblings& siblings) {
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

  void AddOne(const PutSource& source, const Address& target, const Item* there) {
    CheckInterrupt();
    if (source.path == "-") return AddFile(source, target, there, 0);
    const host::Status& status = source.status;
    if (status.kind == host::Kind::kDirectory) {
      AddDirectory(source, target, there);
    } else if (status.kind != host::Kind::kFile) {
      plan_.skipped.emplace_back("cannot put " + source.path, "it is not an ordinary file but " + KindText(status.kind),
                                 "a container holds files and directories only");
    } else if (container_.kind != host::Kind::kNothing && status.id == container_.id) {
      plan_.skipped.emplace_back("cannot put " + source.path, "it is the container itself",
                                 "a container cannot hold itself; to copy all it holds: orba cp -r");
    } else if (status.size > LargestFile(blockSize_)) {
      plan_.refusals.push_back(TooLarge(source.path, status.size));
    } else {
      AddFile(source, target, there, status.size);
    }
  }

  void AddDirectory(const PutSource& source, const Address& target, const Item* there) {
    if (depth_ > 0 && host::OwnStatusOf(source.path).kind == host::Kind::kLink) {
      plan_.skipped.emplace_back("cannot put " + source.path, "it is a symbolic link to a directory",
                                 "give the directory itself to put it");
      return;
    }
    if (const std::optional<Failure> refusal = WhyNoDirectory(target, there)) {
      plan_.refusals.push_back(*refusal);
      return;
    }
    if (target.names.size() > Walker::kDeepest) {
      plan_.refusals.emplace_back("cannot put " + source.path,
                                  "it would lie more than " + std::to_string(Walker::kDeepest) + " directories deep",
                                  "put a part of the tree, or pack it into one file");
      return;
    }
    if (there == nullptr) {
      plan_.steps.push_back({source.path, target, 0, true, std::nullopt});
      scales_.AddDirectory();
      AddEntry(target);
    }
    ++depth_;
    try {
      AddContents(source.path, target, there != nullptr);
    } catch (const Failure& failure) {
      if (failure.code() != 0) throw;  // the container's fault
      plan_.skipped.push_back(failure);
    }
    --depth_;
  }

  void AddFile(const PutSource& source, const Address& target, const Item* there, std::uint64_t size) {
    if (there != nullptr && !there->IsDirectory() && options_.noClobber) return;
    if (const std::optional<Failure> refusal = WhyNotWrite(target, there, options_.force)) {
      plan_.refusals.push_back(*refusal);
    } else {
      std::optional<Item> replaced;
      if (there != nullptr) replaced = *there;
      scales_.AddFile(size, there != nullptr ? std::optional<std::uint64_t>(there->size) : std::nullopt);
      if (there == nullptr) AddEntry(target);
      plan_.steps.push_back({source.path, target, size, false, replaced});
      plan_.work += size + Progress::kFile;
    }
  }

  void AddEntry(const Address& target) {
    const Address directory = target.Parent();
    const std::string path = directory.Path();
    if (sizes_.count(path) == 0) {
      const std::optional<Item> item = places_->Find(directory);
      sizes_[path] = item.has_value() ? item->size : 0;
    }
    scales_.AddEntry(path, sizes_[path]);
  }

  Failure TooLarge(const std::string& path, std::uint64_t size) const {
    const std::uint64_t largest = LargestFile(blockSize_);
    const std::string why = "it has " + std::to_string(size) + " bytes, and with blocks of " +
                            std::to_string(blockSize_) + " bytes a file has at most " + std::to_string(largest);
    constexpr std::uint32_t kSizes[] = {2048, 4096, 8192};
    for (const std::uint32_t blockSize : kSizes) {
      if (size > LargestFile(blockSize)) continue;
      return Failure("cannot put " + path, why,
                     "use a container with larger blocks: orba format --block-size " + std::to_string(blockSize));
    }
    return Failure("cannot put " + path, why, "leave it out, or split it");
  }

  const PutOptions& options_;
  Places* places_;
  PutPlan plan_;
  unsigned depth_ = 0;  // below the operands
  host::Status container_;
  std::uint64_t blockSize_;
  Scales scales_;
  std::map<std::string, std::uint64_t> sizes_;  // of directories, 0 for a planned one
};

}  // namespace

std::optional<Failure> WhyNotWrite(const Address& target, const Item* there, bool force) {
  if (IsTemporaryName(target.Name())) {
    return Failure("cannot write " + target.Text(), "this name is kept for files that are being written",
                   "use another name");
  }
  if (there == nullptr) return std::nullopt;
  if (there->IsDirectory()) {
    return TakenTarget(target, "a directory of this name is there", "rename or remove it first");
  }
  if (!force) return TakenTarget(target, "it exists", "use another name, or --force to overwrite it");
  if (there->IsReadOnly()) return ReadOnlyFailure("cannot overwrite " + target.Text(), target, "it");
  return std::nullopt;
}

std::optional<Failure> WhyNoDirectory(const Address& target, const Item* there) {
  if (there == nullptr || there->IsDirectory()) return std::nullopt;
  return TakenTarget(target, "a file of this name is there", "rename or remove it first");
}

std::optional<Capacity> CapacityFor(Session* session, const Address& target) {
  if (const std::optional<Capacity> capacity = CapacityOf(target.container)) return capacity;
  session->Close();
  return CapacityOf(target.container);
}

PutPlan PlanPut(const PutOptions& options, Places* places, std::uint64_t blockSize,
                const std::optional<Capacity>& capacity) {
  const std::vector<std::string> sources(options.operands.begin(), options.operands.end() - 1);
  const Address target = ParseAddress(options.operands.back());
  RequireLegal(target);
  const std::optional<Item> there = places->Find(target);
  const bool intoDirectory = there.has_value() && there->IsDirectory();
  Planner planner(options, places, target, blockSize);
  if (!intoDirectory) {
    if (sources.size() > 1 || (target.asDirectory && !IsHostDirectory(sources[0]))) {
      throw LibraryFailure("cannot put anything into " + target.Text(), target.container,
                           there.has_value() ? ORB_ERROR_NOT_A_DIRECTORY : ORB_ERROR_PATH_NOT_FOUND);
    }
    GetItem(places, target.Parent(), "find");
    planner.AddNamed({sources[0], target.Name(), {}}, target);
    return planner.Take(target.container, capacity);
  }
  std::vector<PutSource> named;
  for (const std::string& source : sources) {
    if (source == "-") {
      throw Failure("cannot put standard input", "it has no name", "say which: CONTAINER:/PATH/NAME");
    }
    const std::string name = BaseName(source);
    if (!name.empty()) {
      named.push_back({source, name, {}});
    } else {
      planner.AddContents(source, target, true);  // "dir/." and ".": what the directory holds
    }
  }
  planner.AddAll(target, true, std::move(named));
  return planner.Take(target.container, capacity);
}

namespace {

// The checksums of what was put, on the disk under its name once all of it is.
class ManifestFile {
 public:
  ManifestFile(const std::string& path, const Address& place) : file_(path), place_(place) {}

  void Add(const Address& target, const Digest& digest, const Item& item) {
    std::string name = target.Name();  // from the place on
    for (std::size_t i = target.names.size(); i > place_.names.size() + 1; --i) {
      name = target.names[i - 2] + "/" + name;
    }
    text_ += ManifestText({name, digest.Text(), item.size}, item.time);
  }

  void Publish() {
    file_.Write(text_.data(), text_.size());
    file_.Publish({}, false, true);
  }

 private:
  NewHostFile file_;
  Address place_;
  std::string text_;
};

class Writer {
 public:
  Writer(Session* session, StandardInput* input, ManifestFile* manifest, Progress* progress)
      : session_(session), incoming_(session, progress), input_(input), manifest_(manifest), progress_(progress) {}

  void Do(const PutStep& step) {
    progress_->SetItem(step.target.Path());
    if (step.isDirectory) return incoming_.MakeDirectory(step.target);
    if (input_ != nullptr) {
      return Write(step, [this](void* to, std::size_t count) { return input_->Read(to, count); });
    }
    const Descriptor file = OpenForReading(step.source);
    Write(step, [&](void* to, std::size_t count) { return ReadOrdinary(file.get(), step.source, to, count); });
  }

 private:
  void Write(const PutStep& step, const Source& source) {
    const bool replaces = step.replaced.has_value();
    const OrbU32 attributes = replaces ? step.replaced->attributes : 0;
    if (manifest_ == nullptr) return incoming_.WriteFile(step.target, replaces, attributes, source);
    Digest digest;
    incoming_.WriteFile(step.target, replaces, attributes, [&](void* to, std::size_t count) {
      const std::size_t done = source(to, count);
      digest.Add(to, done);
      return done;
    });
    manifest_->Add(step.target, digest, GetItem(session_, step.target, "find"));
  }

  Session* session_;
  Incoming incoming_;
  StandardInput* input_;    // where that is the source
  ManifestFile* manifest_;  // where one is wanted
  Progress* progress_;
};

void PrintPair(const std::string& source, const Address& target) {
  Print(Visible(source) + " -> " + target.Text() + "\n");
}

int CarryOut(const PutOptions& options, Session* session, StandardInput* input, ManifestFile* manifest,
             const PutPlan& plan) {
  int status = plan.skipped.empty() ? kSuccess : kFailed;
  Progress progress("put", plan.work, options.quiet);
  Writer writer(session, input, manifest, &progress);
  const Address* missing = nullptr;  // a directory that could not be made
  std::size_t leftOut = 0;
  bool stopped = false;
  for (const PutStep& step : plan.steps) {
    CheckInterrupt();
    if (stopped || (missing != nullptr && missing->Holds(step.target))) {
      ++leftOut;
      continue;
    }
    try {
      writer.Do(step);
      if (options.verbose) PrintPair(step.source, step.target);
    } catch (const Failure& failure) {
      Report(failure);
      status = kFailed;
      stopped = failure.IsFinal();
      if (step.isDirectory) missing = &step.target;
    }
    if (!step.isDirectory) progress.Advance(Progress::kFile);
  }
  if (leftOut > 0) {
    Report(inspect::Counted(leftOut, "more file or directory was", "more files and directories were") + " left out");
  }
  return status;
}

}  // namespace

void PutPlan::Tell() const {
  ReportAll(skipped);
  ReportAll(refusals);
  if (noRoom.has_value()) Report(*noRoom);
}

int CarryOutPut(const PutOptions& options, Session* session, StandardInput* input, const PutPlan& plan) {
  std::optional<ManifestFile> manifest;
  if (!options.manifest.empty()) {
    if (HostFileExists(options.manifest)) {
      throw HostFailure("cannot write " + options.manifest, EEXIST, "use another name; nothing was put");
    }
    manifest.emplace(options.manifest, ParseAddress(options.operands.back()));
  }
  for (const auto& [source, target] : plan.renamed) PrintPair(source, target);
  const int status = CarryOut(options, session, input, manifest.has_value() ? &*manifest : nullptr, plan);
  session->Close();
  if (manifest.has_value()) manifest->Publish();
  return status;
}

namespace {

int PutAll(const PutOptions& options, StandardInput* input) {
  Session session(options.sync == "each" ? Session::kEach : Session::kAtTheEnd);
  MountedPlaces places(&session);
  const Address target = ParseAddress(options.operands.back());
  if (IsHostDirectory(target.container)) {
    throw Failure("cannot put anything into " + ShellWord(target.container), "it is a folder of the host",
                  "from a container to the host: orba get");
  }
  const OrbU32 blockSize = session.BlockSize(target);
  const PutPlan plan = PlanPut(options, &places, blockSize, CapacityFor(&session, target));
  plan.Tell();
  if (plan.IsRefused()) {
    Report("nothing was put");
    return kFailed;
  }
  return CarryOutPut(options, &session, input, plan);
}

int RunPut(const PutOptions& options) {
  if (options.operands.size() < 2) throw UsageFailure("put", "there must be a source and a target");
  if (options.manifest == "-") {
    throw UsageFailure("put",
                       "--manifest takes the name of a new file; what is inside a container, orba manifest prints");
  }
  if (std::find(options.operands.begin(), options.operands.end() - 1, "-") == options.operands.end() - 1) {
    return PutAll(options, nullptr);
  }
  StandardInput input;
  for (unsigned tries = 0;; ++tries) {
    try {
      return PutAll(options, &input);
    } catch (const Failure& failure) {
      constexpr unsigned kMost = 50;
      if (failure.code() != ORB_ERROR_CONTAINER_IN_USE || tries == kMost) throw;
    }
    // Perhaps it is in use by the program that writes to us; at its end that lets go of it.
    CheckInterrupt();
    input.TakeAll();
    if (tries > 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

Run DefinePut(Syntax* syntax) {
  auto options = std::make_shared<PutOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Flag("-n,--no-clobber", &options->noClobber, "leave files alone that are there, and put the others");
  syntax->Exclude("--force", "--no-clobber");
  syntax->Flag("--rename", &options->rename, "store what has no legal name under a legal, unique one, and say which");
  syntax->Choice("--sync", "WHEN", &options->sync, {"end", "each"},
                 "when what was put is on the disk: at the \"end\" of the command (unless you say otherwise) or after "
                 "\"each\" file");
  syntax->Text("--manifest", "FILE", &options->manifest, "write the checksums of what was put into a new file");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "draw no progress");
  syntax->Flag("-r,-R,--recursive", &options->recursive, "changes nothing: directories are always put whole");
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
    "the temporary file that is left then is removed by the next put into its directory. When put ends well, all of "
    "it is on the disk. What a loss of power before leaves depends on how much the host had written; --sync=each has "
    "each file on the disk before the next one, and takes much longer.\n\n"
    "All names are checked before anything is written. Names that a container cannot hold are refused, and nothing is "
    "put; --rename makes them legal: other characters become \"_\", long names are shortened, a number tells equal "
    "names of one directory apart. A source has the same new name in every run, so that --force and --no-clobber "
    "work as usual. The new names are printed.\n\n"
    "Files in a container have the time when they were written there; create and import keep the host's. What is "
    "neither file nor directory is left out, and so are links to directories below the sources.\n\n"
    "--manifest writes the SHA-256 of each file that was put, as it was read, in the format of sha256sum, with names "
    "from PATH on: orba verify CONTAINER:/PATH FILE compares with it later.",
    "orba put report.txt card.orb:/  # becomes /REPORT.TXT\n"
    "orba put config/. card.orb:/CONFIG\n"
    "orba put --rename 'My Photos' card.orb:/\n"
    "date | orba put - card.orb:/DATE.TXT",
    DefinePut,
};

}  // namespace orba::tool

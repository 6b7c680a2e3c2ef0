// import: an archive into a container. As with put, all of it is planned, and refused as a whole, before anything is
// written: the archive is read once for the plan, and again for the contents.
#include <algorithm>
#include <map>
#include <memory>
#include <optional>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/archive.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/incoming.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/put.h"
#include "tools/orba/session.h"
#include "tools/orba/stamps.h"
#include "tools/orba/standard_input.h"
#include "tools/orba/temporary.h"
#include "tools/orba/terminal.h"
#include "tools/orba/walk.h"
#include "tools/orba/weigh.h"

namespace orba::tool {

namespace {

struct ImportOptions {
  std::string archive;
  std::string target;
  bool force = false;
  bool noClobber = false;
  bool rename = false;
  bool verbose = false;
  bool quiet = false;
};

// More members than this fit into no container.
constexpr std::size_t kMostMembers = 1 << 17;

// A file or directory of the archive, or a directory that its names lead through.
struct Planned {
  std::optional<std::size_t> member;  // its place in the archive
  Member what;
  bool isDirectory = true;
  std::map<std::string, std::unique_ptr<Planned>> below;  // by the names of the archive
};

// What becomes of a member.
struct Outcome {
  Address target;
  bool replaces = false;
  std::uint32_t attributes = 0;
};

struct Plan {
  std::vector<Address> directories;          // to be made, each before what it holds
  std::map<std::size_t, Outcome> files;      // to be written, by the place of the member
  std::map<std::size_t, std::string> names;  // of these members, to know them again
  std::vector<std::pair<std::string, Address>> renamed;
  std::vector<Failure> refusals;
  std::optional<Failure> noRoom;
  Stamps stamps;
  std::uint64_t work = 0;
};

std::vector<std::string> Parts(const std::string& name) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= name.size()) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    const std::string part = name.substr(start, end - start);
    if (!part.empty() && part != ".") parts.push_back(part);
    start = end + 1;
  }
  return parts;
}

// Why a member cannot be imported, whatever the container holds; empty where it can.
std::string Problem(const Member& member, const std::vector<std::string>& parts) {
  if (!member.other.empty()) return "it is " + member.other;
  if (member.name.empty()) return "it has no name";
  if (member.name[0] == '/') return "its name is absolute";
  if (std::find(parts.begin(), parts.end(), "..") != parts.end()) return "its name leads out of the archive by \"..\"";
  if (parts.size() > Walker::kDeepest) {
    return "it lies more than " + std::to_string(Walker::kDeepest) + " directories deep";
  }
  if (parts.empty() && !member.isDirectory) return "it has no name";
  return "";
}

class Planner {
 public:
  Planner(const ImportOptions& options, Places* places, std::uint64_t blockSize)
      : options_(options), places_(places), blockSize_(blockSize), scales_(blockSize) {}

  // Reads the archive to its end, or to where there is too much of it.
  void ReadAll(ArchiveReader* archive) {
    std::size_t number = 0;
    while (std::optional<Member> member = archive->Next()) {
      if (number == kMostMembers) {
        plan_.refusals.clear();  // there may be as many
        Refuse(member->name, "the archive has more files and directories than any container holds", "");
        return;
      }
      if (!member->isDirectory && member->size.value_or(0) > LargestFile(blockSize_)) {
        Refuse(member->name,
               "it has " + std::to_string(*member->size) + " bytes, and with blocks of " + std::to_string(blockSize_) +
                   " bytes a file has at most " + std::to_string(LargestFile(blockSize_)),
               "leave it out, or use a container with larger blocks");
        return;  // it may take long to skip
      }
      Add(number++, std::move(*member));
    }
  }

  Plan MakePlan(const Address& target, const std::optional<Capacity>& capacity) {
    PlanBelow(root_, target, true);
    if (root_.member.has_value()) AddTime(root_.what, target);
    if (capacity.has_value()) plan_.noRoom = scales_.Refusal(target.container, *capacity);
    return std::move(plan_);
  }

 private:
  void Refuse(const std::string& name, const std::string& why, const std::string& advice) {
    plan_.refusals.emplace_back("cannot import " + name, why, advice);
  }

  void Add(std::size_t number, Member member) {
    const std::vector<std::string> parts = Parts(member.name);
    const std::string problem = Problem(member, parts);
    if (!problem.empty()) return Refuse(member.name, problem, "leave it out of the archive");
    Planned* place = &root_;
    for (const std::string& part : parts) {
      if (!place->isDirectory) return Refuse(member.name, "a file of the archive stands in its way", "");
      std::unique_ptr<Planned>& child = place->below[part];
      if (child == nullptr) child = std::make_unique<Planned>();
      place = child.get();
    }
    const bool fresh = !place->member.has_value() && place->below.empty();
    const bool again = place->isDirectory && member.isDirectory;  // directories may be told twice
    if (!fresh && !again) return Refuse(member.name, "it stands twice in the archive", "");
    place->member = number;
    place->isDirectory = member.isDirectory;
    place->what = std::move(member);
  }

  // Plans what a directory of the archive holds into one of the container, which `exists` or is planned to.
  void PlanBelow(const Planned& directory, const Address& target, bool exists) {
    std::map<std::string, Item> existing;
    std::uint64_t size = 0;
    if (exists) {
      const std::optional<Item> item = places_->Find(target);
      size = item.has_value() ? item->size : 0;
      for (Item& one : places_->List(target)) {
        if (IsTemporaryName(one.name) && !one.IsDirectory()) scales_.AddLeft(one.size);  // it goes before
        existing.emplace(one.name, one);
      }
    }
    std::vector<std::string> names;
    for (const auto& [name, planned] : directory.below) names.push_back(name);
    const std::vector<std::string> stored = StoredNames(names, options_.rename);
    std::size_t next = 0;
    for (const auto& [name, planned] : directory.below) {
      const std::string& chosen = stored[next++];
      if (chosen.empty()) {
        RefuseName(*planned, name);
        continue;
      }
      const auto found = existing.find(chosen);
      const Item* const there = found == existing.end() ? nullptr : &found->second;
      const Address place = target.Child(chosen);
      if (planned->isDirectory) {
        PlanDirectory(*planned, place, there, size);
      } else {
        PlanFile(*planned, place, there, size);
      }
      if (chosen == inspect::UpperCase(name)) continue;
      plan_.renamed.emplace_back(planned->member.has_value() ? planned->what.name : name, place);
    }
  }

  void PlanDirectory(const Planned& planned, const Address& place, const Item* there, std::uint64_t parentSize) {
    if (const std::optional<Failure> refusal = WhyNoDirectory(place, there)) {
      plan_.refusals.push_back(*refusal);
      return;
    }
    if (there == nullptr) {
      plan_.directories.push_back(place);
      scales_.AddDirectory();
      scales_.AddEntry(place.Parent().Path(), parentSize);
    }
    if (planned.member.has_value()) AddTime(planned.what, place);
    PlanBelow(planned, place, there != nullptr);
  }

  void PlanFile(const Planned& planned, const Address& place, const Item* there, std::uint64_t parentSize) {
    if (there != nullptr && !there->IsDirectory() && options_.noClobber) return;
    if (const std::optional<Failure> refusal = WhyNotWrite(place, there, options_.force)) {
      plan_.refusals.push_back(*refusal);
      return;
    }
    const std::uint64_t size = planned.what.size.value_or(0);
    scales_.AddFile(size, there != nullptr ? std::optional<std::uint64_t>(there->size) : std::nullopt);
    if (there == nullptr) scales_.AddEntry(place.Parent().Path(), parentSize);
    const std::uint32_t kept = there != nullptr ? there->attributes : 0;
    plan_.files[*planned.member] = {place, there != nullptr, planned.what.attributes.value_or(kept)};
    plan_.names[*planned.member] = planned.what.name;
    plan_.work += size + Progress::kFile;
    AddTime(planned.what, place);
  }

  void AddTime(const Member& member, const Address& place) {
    if (member.time.has_value()) plan_.stamps[place.Path()] = TimeOf(*member.time);
  }

  void RefuseName(const Planned& planned, const std::string& name) {
    const std::string problem = NameProblem(name);
    const std::string full = planned.member.has_value() ? planned.what.name : name;
    if (problem.empty()) {
      return Refuse(
          full, "another name of the archive is the same but for letter case (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
          "letter case makes no difference in a container; use --rename to give one another name");
    }
    Refuse(full, "its name cannot be stored: " + problem + " (" + CodeText(ORB_ERROR_INVALID_NAME) + ")",
           std::string(kNameRule) + "\nuse --rename to store it under a legal name");
  }

  const ImportOptions& options_;
  Places* places_;
  std::uint64_t blockSize_;
  Scales scales_;
  Planned root_;
  Plan plan_;
};

// Times come last: the library stamps with the present time whatever it writes.
void EnterTimesOf(const Plan& plan, const std::string& container, const std::map<std::string, bool>& failed) {
  Stamps stamps;
  for (const auto& [path, time] : plan.stamps) {
    if (failed.count(path) == 0) stamps.emplace(path, time);
  }
  if (!stamps.empty()) EnterTimes(container, stamps);
}

int CarryOut(const ImportOptions& options, Session* session, ArchiveReader* archive, const Plan& plan,
             std::map<std::string, bool>* failed) {
  Progress progress("import", plan.work, options.quiet);
  Incoming incoming(session, &progress);
  for (const Address& directory : plan.directories) incoming.MakeDirectory(directory);
  int status = kSuccess;
  std::size_t number = 0;
  std::size_t written = 0;
  for (; written + failed->size() < plan.files.size(); ++number) {
    const std::optional<Member> member = archive->Next();
    const auto found = plan.files.find(number);
    if (member.has_value() && found == plan.files.end()) continue;
    if (!member.has_value() || member->name != plan.names.at(number)) {
      throw Failure("cannot import the rest of " + options.archive, "it has changed meanwhile",
                    "run it again with --no-clobber");
    }
    const Outcome& outcome = found->second;
    progress.SetItem(outcome.target.Path());
    try {
      incoming.WriteFile(outcome.target, outcome.replaces, outcome.attributes,
                         [archive](void* to, std::size_t count) { return archive->Read(to, count); });
      ++written;
      if (options.verbose) Print(Visible(member->name) + " -> " + outcome.target.Text() + "\n");
    } catch (const Failure& failure) {
      Report(failure);
      status = kFailed;
      failed->emplace(outcome.target.Path(), true);
      if (failure.IsFinal()) break;
    }
    progress.Advance(Progress::kFile);
  }
  const std::size_t leftOut = plan.files.size() - written - failed->size();
  if (leftOut > 0) Report(inspect::Counted(leftOut, "more file was", "more files were") + " left out");
  return status;
}

// What is no ordinary file is kept in one: the archive is read twice, and its writer may be busy with the container.
Descriptor OpenArchive(const std::string& path) {
  Descriptor file = OpenForReading(path);
  if (host::StatusOf(file.get()).kind == host::Kind::kFile) return file;
  return TakenIntoFile(file.get(), path);
}

int RunImport(const ImportOptions& options) {
  const Descriptor file = OpenArchive(options.archive);
  const Address target = ParseAddress(options.target);
  Session session;
  MountedPlaces places(&session);
  const Item item = GetItem(&places, target, "find");
  if (!item.IsDirectory()) {
    throw LibraryFailure("cannot import into " + target.Text(), target.container, ORB_ERROR_NOT_A_DIRECTORY);
  }
  Planner planner(options, &places, session.BlockSize(target));
  {
    ArchiveReader archive(options.archive, file.get());
    planner.ReadAll(&archive);
  }
  const Plan plan = planner.MakePlan(target, CapacityFor(&session, target));
  if (!plan.refusals.empty() || plan.noRoom.has_value()) {
    ReportAll(plan.refusals);
    if (plan.noRoom.has_value()) Report(*plan.noRoom);
    Report("nothing was imported");
    return kFailed;
  }
  for (const auto& [name, place] : plan.renamed) Print(Visible(name) + " -> " + place.Text() + "\n");
  ArchiveReader archive(options.archive, file.get());
  std::map<std::string, bool> failed;
  const int status = CarryOut(options, &session, &archive, plan, &failed);
  session.Close();
  EnterTimesOf(plan, target.container, failed);
  return status;
}

Run DefineImport(Syntax* syntax) {
  auto options = std::make_shared<ImportOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Flag("-n,--no-clobber", &options->noClobber, "leave files alone that are there, and import the others");
  syntax->Exclude("--force", "--no-clobber");
  syntax->Flag("--rename", &options->rename, "store what has no legal name under a legal, unique one, and say which");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "draw no progress");
  syntax->One("FILE|-", &options->archive);
  syntax->One("CONTAINER[:/PATH]", &options->target);
  return [options] { return RunImport(*options); };
}

}  // namespace

const Command kImportCommand = {
    "import",
    kTransferGroup,
    "FILE|- CONTAINER[:/PATH]",
    "put what a tar or zip archive holds into a container",
    "Puts the files and directories of an archive into the directory PATH: tar or zip, compressed by gzip or, except "
    "on Windows, by bzip2, xz or zstd, whatever its name. They keep their times, and from tar their attributes, as "
    "export has written them. "
    "Nothing is unpacked on the host; from standard input the archive itself is kept in a temporary file.\n\n"
    "The archive is looked through before anything is written. Absolute names, \"..\", links, devices, names that "
    "stand twice or differ in letter case alone, and more than the container has room for are refused, and nothing is "
    "imported; so are names that a container cannot hold, unless --rename makes them legal as put does. Each file has "
    "a temporary name until it is complete, and at the end all of it is on the disk.",
    "orba import logs.tar.gz card.orb:/LOGS\n"
    "tar c config | orba import - card.orb",
    DefineImport,
};

}  // namespace orba::tool

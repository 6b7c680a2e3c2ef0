// repair and undo: containers made consistent again, and that taken back.
#include "inspect/repair/repair.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "inspect/check/check.h"
#include "inspect/repair/apply.h"
#include "inspect/view/report.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/fsck.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

// ---- repair ---------------------------------------------------------------------------------------------------------

struct RepairOptions {
  std::string container;
  std::string undo;
  bool dryRun = false;
  bool force = false;
  bool verbose = false;
  bool quiet = false;
};

// Draws how much of a container has been read: reading all of a large one takes long.
class ProgressImage : public inspect::Image {
 public:
  ProgressImage(const inspect::Image& base, const char* label, bool quiet)
      : base_(base), progress_(label, base.Size(), quiet) {}

  std::uint64_t Size() const override { return base_.Size(); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    progress_.Advance(count);
    return base_.Read(offset, out, count);
  }

 private:
  const inspect::Image& base_;
  mutable Progress progress_;
};

// What it takes to undo a repair, on the disk with its name before the first byte of the container changes. Never
// overwrites a file, and goes again unless it is kept: what was not changed needs no undoing.
class UndoFile {
 public:
  UndoFile(const std::string& path, const std::vector<std::uint8_t>& bytes)
      : path_(path), file_(host::CreateNew(path)) {
    const std::string what = "cannot write the undo file " + path;
    if (file_.get() < 0) {
      throw errno == EEXIST ? HostFailure(what, errno, "use another name") : HostFailure(what, errno);
    }
    try {
      WriteFully(file_.get(), "the undo file " + path, bytes.data(), bytes.size());
      if (!host::Sync(file_.get())) throw HostFailure(what, errno);
      SyncDirectory(ParentOf(path));
    } catch (const Failure&) {
      host::Remove(path);
      throw;
    }
  }
  ~UndoFile() {
    if (!kept_) host::Remove(path_);
  }
  UndoFile(const UndoFile&) = delete;
  UndoFile& operator=(const UndoFile&) = delete;

  void Keep() { kept_ = true; }

 private:
  std::string path_;
  Descriptor file_;
  bool kept_ = false;
};

void Apply(const RepairOptions& options, RawContainer* container, const inspect::Plan& plan) {
  container->target();  // where writing is refused, no undo file is made
  std::optional<UndoFile> undo;
  if (!options.undo.empty()) {
    undo.emplace(options.undo, MakeUndo(plan, ProgressImage(container->image(), "undo file", options.quiet)));
  }
  CheckInterrupt();
  inspect::Target* const target = container->target();
  if (undo.has_value()) undo->Keep();
  if (ApplyPlan(plan, target)) return;
  const int error = errno;
  const std::string path = ShellWord(container->path());
  throw HostFailure(
      "cannot finish the repair of " + ShellWord(container->path()), error,
      "run it again once the disk works; nothing is lost by that: orba repair " + path +
          (options.undo.empty() ? "" : "\ntake it back with: orba undo " + path + " " + ShellWord(options.undo)));
}

// What the container is after all writes, read anew.
int JudgeRepair(const RepairOptions& options, RawContainer* container) {
  container->Reread();
  const inspect::Report report = Watched("repair", options.quiet, [&] { return inspect::Check(container->image()); });
  if (IsSound(report)) {
    if (!options.quiet) SayAfterwards(Painted(Stream::kOutput, Colour::kGreen, "repaired") + "\n");
    return kRepaired;
  }
  if (!options.quiet) SayAfterwards(ShortList(PaintedReport(ToText(report)), options.verbose));
  Report(Failure(ShellWord(container->path()) + " is still damaged", "not everything could be repaired",
                 "fetch what can be read with: orba recover " + ShellWord(container->path()) + " DIR"));
  return kDamageLeft;
}

int Repair(const RepairOptions& options) {
  const std::string path = ParseContainer(options.container);
  RawContainer container(path, options.dryRun ? RawContainer::kRead : RawContainer::kWrite);
  const inspect::Plan plan = Watched("repair", options.quiet, [&] { return PlanRepair(container.image(), Now()); });
  if (!plan.possible) {
    throw Failure("cannot repair " + ShellWord(path), plan.problem + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                  "see what it holds with: orba dump " + ShellWord(path) + " bytes 0", ORB_ERROR_DAMAGED_VOLUME);
  }
  if (plan.actions.empty() && IsSound(plan.before)) {
    if (!options.quiet) Print(Painted(Stream::kOutput, Colour::kGreen, "clean") + ": nothing to repair\n");
    return kSuccess;
  }
  if (!options.quiet) {
    Print(ShortList(ToText(plan), options.verbose));
    FlushOutput();  // what is going to be done is said before it is done
  }
  if (options.dryRun) return kDamageLeft;
  if (plan.BreaksPromise() && !options.force) {
    const std::string word = ShellWord(path);
    Report(Failure("will not repair " + ShellWord(path),
                   "it would cost " + inspect::Counted(plan.promise.lost(), "file") + " that can be read now, first " +
                       plan.promise.losses.front() + ": no room is left for copies",
                   "fetch what can be read with: orba recover " + word +
                       " DIR\nthen repair all the same with: orba repair --force " + word));
    return kDamageLeft;
  }
  Apply(options, &container, plan);
  return JudgeRepair(options, &container);
}

Run DefineRepair(Syntax* syntax) {
  auto options = std::make_shared<RepairOptions>();
  syntax->Flag("-n,--dry-run", &options->dryRun, "show the plan and change nothing");
  syntax->Flag("-f,--force", &options->force, "also where that costs files that can be read now");
  syntax->Text("--undo", "FILE", &options->undo, "keep in a new file what it takes to undo the repair");
  syntax->Flag("-v,--verbose", &options->verbose, "all of a long plan, not its first 40 lines");
  syntax->Flag("-q,--quiet", &options->quiet, "the exit status alone");
  syntax->One("CONTAINER", &options->container);
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

bool BeginsAsUndo(const std::vector<std::uint8_t>& file) {
  constexpr char kSignature[] = "ORBAUNDO";
  constexpr std::size_t kLength = sizeof kSignature - 1;
  return file.size() >= kLength && std::memcmp(file.data(), kSignature, kLength) == 0;
}

int RunUndo(const UndoOptions& options) {
  RawContainer container(ParseContainer(options.container), RawContainer::kWrite);
  const std::vector<std::uint8_t> undo = ReadWholeFile(options.file);
  const std::string what = "cannot undo the repair of " + ShellWord(container.path());
  if (!BeginsAsUndo(undo)) {
    throw Failure(what, options.file + " is not an undo file", "give the file that orba repair --undo wrote");
  }
  if (!inspect::IsUndo(undo)) {
    throw Failure(what, options.file + " is damaged or cut short: its checksum is wrong",
                  "use an undamaged copy of it; nothing was changed");
  }
  if (!options.force && !inspect::UndoFits(undo, ProgressImage(container.image(), "undo", false))) {
    throw Failure(what, options.file + " is of another container, or this one has changed since the repair",
                  "give the right file; with --force it is applied all the same, which may destroy the container");
  }
  if (!ApplyUndo(undo, container.target())) throw HostFailure(what, errno, "run it again once the disk works");
  return kSuccess;
}

Run DefineUndo(Syntax* syntax) {
  auto options = std::make_shared<UndoOptions>();
  syntax->Flag("-f,--force", &options->force, "also when the file is of another container, or this one has changed");
  syntax->One("CONTAINER", &options->container);
  syntax->One("FILE", &options->file);
  return [options] { return RunUndo(*options); };
}

}  // namespace

const Command kRepairCommand = {
    "repair",
    kRepairGroup,
    "CONTAINER",
    "make a container consistent and mountable again",
    "Prints its plan, then carries it out: finishes or undoes interrupted updates, frees leaked space, rebuilds "
    "the list of free blocks and clears the update mark last. What has data but no name appears as "
    "/LOST.FND/NODEnnnn. Whatever can be read before can be read after, at its path or under /LOST.FND; the plan ends "
    "by saying so. Where there is no room to keep it all, nothing is changed unless --force is given.\n\n"
    "A repair may be interrupted at any time and run again. Of a long plan only the first 40 lines are shown; "
    "--dry-run --verbose shows it all. With --undo, a file keeps all that is overwritten, and "
    "orba undo takes the repair back.\n\n"
    "Exits with 0 when there was nothing to do, 1 when the container is repaired, 4 when damage is left (always "
    "after --dry-run), 8 when it could not work. Where the plan cannot be written to standard output nothing is "
    "changed, and the status is 8 too.",
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

}  // namespace orba::tool

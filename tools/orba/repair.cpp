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
#include "tools/orba/json.h"
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
  bool json = false;
};

// Tells of a repair, before it is done and after: in text, as JSON, or not at all.
class Telling {
 public:
  Telling(const RepairOptions& options, const std::string& path)
      : options_(options), inText_(!options.quiet && !options.json) {
    if (options.json && !options.quiet) object_.emplace("container", path);
  }

  void Plan(const inspect::Plan& plan) {
    const bool nothing = plan.actions.empty() && IsSound(plan.before);
    if (inText_ && nothing) Print(Painted(Stream::kOutput, Colour::kGreen, "clean") + ": nothing to repair\n");
    if (inText_ && !nothing) Print(ShortList(StepsText(plan), options_.verbose) + OutcomeText(plan));
    if (object_.has_value()) {
      JsonObject json;
      json.Text("verdict", Verdict(plan.before)).Flag("marked", plan.before.marked);
      json.Json("actions", ToJson(plan.actions)).Json("promise", ToJson(plan.promise));
      object_->Add(json.Flag("complete", plan.IsComplete()));
    }
    FlushOutput();  // what is going to be done is said before it is done
  }

  // How the repair ended without a write.
  void End(const char* result) {
    if (object_.has_value()) Close(JsonObject().Text("result", result));
  }

  // What the container is after all writes.
  void End(const inspect::Report& after) {
    const bool sound = IsSound(after);
    if (object_.has_value()) {
      Close(JsonObject().Text("result", sound ? "repaired" : "damaged").Text("after", Verdict(after)));
    }
    if (!inText_) return;
    SayAfterwards(sound ? Painted(Stream::kOutput, Colour::kGreen, "repaired") + "\n"
                        : ShortList(PaintedReport(ToText(after)), options_.verbose));
  }

  void End(const Failure& failure) {
    if (!object_.has_value() || IsOutputLost()) return;
    JsonObject json;
    AddError(failure, &json);
    Close(json);
  }

 private:
  void Close(const JsonObject& members) {
    const OpenObject object = *object_;
    object_.reset();  // whatever becomes of it
    object.Close(members);
  }

  const RepairOptions& options_;
  bool inText_;
  std::optional<OpenObject> object_;
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
int JudgeRepair(const RepairOptions& options, RawContainer* container, Telling* telling) {
  container->Reread();
  const inspect::Report report = Watched("repair", options.quiet, [&] { return inspect::Check(container->image()); });
  telling->End(report);
  if (IsSound(report)) return kRepaired;
  Report(Failure(ShellWord(container->path()) + " is still damaged", "not everything could be repaired",
                 "fetch what can be read with: orba recover " + ShellWord(container->path()) + " DIR"));
  return kDamageLeft;
}

std::string WhyNot(const inspect::Promise& promise) {
  if (promise.lost() == 0) return UnreadText(promise);
  return "it would cost " + inspect::Counted(promise.lost(), "file") + " that can be read now, first " +
         promise.losses.front() + ": no room is left for copies";
}

int Repair(const RepairOptions& options, const std::string& path, Telling* telling) {
  RawContainer container(path, options.dryRun ? RawContainer::kRead : RawContainer::kWrite);
  const inspect::Plan plan = Watched("repair", options.quiet, [&] { return PlanRepair(container.image(), Now()); });
  if (!plan.possible) {
    throw Failure("cannot repair " + ShellWord(path), plan.problem + " (" + CodeText(ORB_ERROR_DAMAGED_VOLUME) + ")",
                  "see what it holds with: orba dump " + ShellWord(path) + " bytes 0", ORB_ERROR_DAMAGED_VOLUME);
  }
  telling->Plan(plan);
  if (plan.actions.empty() && IsSound(plan.before)) {
    telling->End("clean");
    return kSuccess;
  }
  if (options.dryRun) {
    telling->End("planned");
    return kDamageLeft;
  }
  if (plan.BreaksPromise() && !options.force) {
    telling->End("refused");
    const std::string word = ShellWord(path);
    Report(Failure("will not repair " + ShellWord(path), WhyNot(plan.promise),
                   "fetch what can be read with: orba recover " + word +
                       " DIR\nthen repair all the same with: orba repair --force " + word));
    return kDamageLeft;
  }
  Apply(options, &container, plan);
  return JudgeRepair(options, &container, telling);
}

int RunRepair(const RepairOptions& options) {
  const std::string path = ParseContainer(options.container);
  Telling telling(options, path);
  try {
    return Repair(options, path, &telling);
  } catch (const Failure& failure) {
    telling.End(failure);
    throw;
  }
}

Run DefineRepair(Syntax* syntax) {
  auto options = std::make_shared<RepairOptions>();
  syntax->Flag("-n,--dry-run", &options->dryRun, "show the plan and change nothing");
  syntax->Flag("-f,--force", &options->force, "also where that costs files that can be read now");
  syntax->Text("--undo", "FILE", &options->undo, "keep in a new file what it takes to undo the repair");
  syntax->Flag("-v,--verbose", &options->verbose, "all of a long plan, not its first 40 steps");
  syntax->Flag("--json", &options->json, "one JSON object: the plan, its promise, and what became of it");
  syntax->Flag("-q,--quiet", &options->quiet, "the exit status alone, also with --json");
  syntax->One("CONTAINER", &options->container);
  return [options] { return StatusOf(kCouldNotWork, [&] { return RunRepair(*options); }); };
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
    "/LOST.FND/NODEnnnn. Every file that can be read whole before can be read after, at its path or under /LOST.FND; "
    "the plan ends by saying so. Where there is no room to keep it all, nothing is changed unless --force is given.\n\n"
    "A repair may be interrupted at any time and run again. Of a long plan only the first 40 steps are shown; "
    "--dry-run --verbose shows it all. With --undo, a file keeps all that is overwritten, and "
    "orba undo takes the repair back.\n\n"
    "Exits with 0 when there was nothing to do, 1 when the container is repaired, 4 when damage is left, or "
    "when --dry-run has planned something, 8 when it could not work. Where the plan cannot be written to standard "
    "output nothing is changed, and the status is 8 too.",
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

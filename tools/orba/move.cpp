// mv and cp: from place to place inside containers.
#include <memory>

#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/look.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/temporary.h"
#include "tools/orba/terminal.h"
#include "tools/orba/volume_file.h"
#include "tools/orba/walk.h"

namespace orba::tool {

namespace {

struct TransferOptions {
  std::vector<std::string> operands;
  bool force = false;
  // cp alone:
  bool recursive = false;
  bool quiet = false;
};

// The last operand: the directory into which the others go, or the new name of the only one.
class Target {
 public:
  Target(Session* session, const std::string& operand, bool several) : address_(ParseAddress(operand)) {
    RequireLegal(address_);
    const std::optional<Item> item = FindItem(session, address_);
    isDirectory_ = item.has_value() && item->IsDirectory();
    if (isDirectory_) return;
    if (several || address_.asDirectory || (item.has_value() && address_.IsRoot())) {
      throw LibraryFailure("cannot use " + address_.Text() + " as the target", address_.container,
                           item.has_value() ? ORB_ERROR_NOT_A_DIRECTORY : ORB_ERROR_PATH_NOT_FOUND);
    }
    RequireDirectory(session, address_.Parent());
  }

  Address For(const Match& source) const {
    if (!isDirectory_) return address_;
    if (source.address.IsRoot()) return address_;
    return address_.Child(source.address.Name());
  }

 private:
  // A call that does not find its target's directory would keep the source in use.
  static void RequireDirectory(Session* session, const Address& directory) {
    const std::optional<Item> item = FindItem(session, directory);
    if (item.has_value() && item->IsDirectory()) return;
    throw LibraryFailure("cannot use " + directory.Text(), directory.container, ORB_ERROR_PATH_NOT_FOUND);
  }

  Address address_;
  bool isDirectory_ = false;
};

Failure Taken(const std::string& what, const Address& target) {
  return Failure(what, target.Text() + " exists (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
                 "use another name, or --force to overwrite it", ORB_ERROR_FILE_EXISTS);
}

// No directory takes the place of a file.
Failure TakenByFile(const std::string& what, const Address& target) {
  return Failure(what, target.Text() + " is a file (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
                 "use another name, or remove it with: orba rm", ORB_ERROR_FILE_EXISTS);
}

// What stands at the target may be overwritten; nothing there is fine too. True when something is there.
bool MayOverwrite(Session* session, const std::string& what, const Address& target, bool force) {
  const std::optional<Item> item = FindItem(session, target);
  if (!item.has_value()) return false;
  if (item->IsDirectory()) {
    throw Failure(what, target.Text() + " is a directory (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                  "use another name, or remove it with: orba rm -r", ORB_ERROR_WRONG_KIND);
  }
  if (!force) throw Taken(what, target);
  if (item->IsReadOnly()) throw ReadOnlyFailure(what, target, target.Text());
  return true;
}

// Does `work` with an operand. A file of the host given where an address must stand brings a hint at put and get.
template <typename Work>
auto WithHint(const std::string& operand, const Work& work) {
  try {
    return work();
  } catch (Failure& failure) {
    const bool noContainer = failure.code() == ORB_ERROR_DAMAGED_VOLUME || failure.code() == ORB_ERROR_ACCESS_DENIED ||
                             failure.code() == ORB_ERROR_FILE_NOT_FOUND;
    if (noContainer && operand.find(':') == std::string::npos) {
      failure.AddAdvice("between the host and a container: orba put, orba get");
    }
    throw;
  }
}

// The places that all operands but the last stand for, each found by `expand`.
template <typename Find>
std::vector<Match> ExpandSources(const TransferOptions& options, int* status, const Find& expand) {
  std::vector<Match> sources;
  const std::vector<std::string> operands(options.operands.begin(), options.operands.end() - 1);
  *status = ForEach(operands, [&](const std::string& operand) {
    std::vector<Match> found = WithHint(operand, [&] { return expand(ParseAddress(operand)); });
    for (Match& match : found) sources.push_back(std::move(match));
  });
  return sources;
}

Target OpenTarget(const TransferOptions& options, Session* session, std::size_t sources) {
  const std::string& last = options.operands.back();
  const bool several = sources > 1 || options.operands.size() > 2;
  return WithHint(last, [&] { return Target(session, last, several); });
}

// ---- mv -------------------------------------------------------------------------------------------------------------

void MovePlainly(Session* session, const std::string& what, const Address& source, const Address& target) {
  const std::string from = session->PathOf(source);
  if (OrbMoveFileA(from.c_str(), session->PathOf(target).c_str()) == 0) throw LibraryFailure(what, source.container);
}

// The old file steps aside first: wherever this stops, the one that moves has its old name or its new one.
void MoveOver(Session* session, const std::string& what, const Address& source, const Address& target) {
  Address aside = TemporaryBeside(session, target);
  aside.standsFor.clear();
  Rename(session, target, aside.Name());
  try {
    MovePlainly(session, what, source, target);
  } catch (Failure& failure) {
    if (OrbRenameFileA(session->PathOf(aside).c_str(), target.Name().c_str()) == 0) {
      failure.AddAdvice("the file that was to be overwritten is left as " + aside.Text());
    }
    throw;
  }
  Delete(session, aside);
}

void Move(const TransferOptions& options, Session* session, const Match& source, const Address& target) {
  const std::string what = "cannot move " + source.address.Text();
  if (source.address.IsRoot()) {
    throw Failure(what, "it is the root of the container, which has no other place", "move what it holds");
  }
  if (session->PathOf(source.address) == session->PathOf(target)) {
    throw Failure(what, "source and target are the same", "use another target");
  }
  if (source.item.IsDirectory()) {
    const std::optional<Item> there = FindItem(session, target);
    if (there.has_value() && !there->IsDirectory()) throw TakenByFile(what, target);
  }
  if (!MayOverwrite(session, what + " to " + target.Text(), target, options.force)) {
    return MovePlainly(session, what + " to " + target.Text(), source.address, target);
  }
  MoveOver(session, what + " to " + target.Text(), source.address, target);
}

int RunMove(const TransferOptions& options) {
  if (options.operands.size() < 2) throw UsageFailure("mv", "there must be a source and a target");
  Session session;
  int found = kSuccess;
  const std::vector<Match> sources =
      ExpandSources(options, &found, [&](const Address& pattern) { return Expand(&session, pattern, "move"); });
  int status = kSuccess;
  if (!sources.empty()) {
    const Target target = OpenTarget(options, &session, sources.size());
    status = ForEach(sources, [&](const Match& source) {
      CheckInterrupt();
      Move(options, &session, source, target.For(source));
    });
  }
  session.Close();
  return found == kSuccess && status == kSuccess ? kSuccess : kFailed;
}

Run DefineMove(Syntax* syntax) {
  auto options = std::make_shared<TransferOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Many("SOURCE", &options->operands);
  return [options] { return RunMove(*options); };
}

// ---- cp -------------------------------------------------------------------------------------------------------------

// Where cp reads: the target's container as it is mounted, any other one without mounting it.
class Origin {
 public:
  virtual ~Origin() = default;
  virtual Places* places() = 0;
  // What a directory holds; each is listed before those that lie in it.
  virtual std::vector<Item> List(const Match& directory) = 0;
  // Hands the contents of a file to `take`, piece by piece.
  virtual void Read(const Match& file, const inspect::Reader::Take& take) = 0;
};

class MountedOrigin : public Origin {
 public:
  explicit MountedOrigin(Session* session) : session_(session), places_(session), walker_(session) {}

  Places* places() override { return &places_; }
  std::vector<Item> List(const Match& directory) override { return walker_.List(directory.address); }

  void Read(const Match& file, const inspect::Reader::Take& take) override {
    constexpr OrbU32 kPiece = 256 * 1024;
    std::vector<std::uint8_t> piece(kPiece);
    VolumeFile source(session_, file.address, ORB_OPEN_READ);
    for (OrbU32 count = source.Read(piece.data(), kPiece); count > 0; count = source.Read(piece.data(), kPiece)) {
      if (!take(piece.data(), count)) break;
    }
    source.Close();
  }

 private:
  Session* session_;
  MountedPlaces places_;
  Walker walker_;
};

class LookedIntoOrigin : public Origin {
 public:
  explicit LookedIntoOrigin(Look* look) : look_(look), walker_(look) {}

  Places* places() override { return look_; }

  std::vector<Item> List(const Match& directory) override {
    std::vector<Item> items;
    for (Item& item : walker_.List(directory)) {
      // A name that no path leads to has no place in another container either; the walker has told of it.
      if (item.named) items.push_back(std::move(item));
    }
    return items;
  }

  void Read(const Match& file, const inspect::Reader::Take& take) override { look_->Read(file, take); }

 private:
  Look* look_;
  LookWalker walker_;
};

// One run of cp.
class Copier {
 public:
  Copier(const TransferOptions& options, Session* session, Look* look, const std::string& target)
      : options_(options), session_(session), look_(look), target_(target) {}

  // The sources of an operand, and where they are read.
  std::unique_ptr<Origin> OpenOrigin(const std::string& container) const {
    if (IsTargets(container)) return std::make_unique<MountedOrigin>(session_);
    return std::make_unique<LookedIntoOrigin>(look_);
  }

  // Copies a file or tree. What cannot be copied of a tree is reported, the rest still is; failed() tells then.
  void Copy(const Match& source, const Address& target, Progress* progress) {
    progress_ = progress;
    RequireCopyable(source, target);
    const std::unique_ptr<Origin> origin = OpenOrigin(source.address.container);
    CopyTree(origin.get(), source, target);
  }

  bool failed() const { return failed_; }

 private:
  bool IsTargets(const std::string& container) const {
    return container == target_ || IsSameHostFile(container, target_);
  }

  void RequireCopyable(const Match& source, const Address& target) {
    const std::string what = "cannot copy " + source.address.Text();
    const bool same = IsTargets(source.address.container);
    if (!source.item.IsDirectory()) {
      if (!same || session_->PathOf(source.address) != session_->PathOf(target)) return;
      throw Failure(what, "source and target are the same", "use another target");
    }
    if (!options_.recursive) {
      throw Failure(what, "it is a directory (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                    "copy it and everything below it with: orba cp -r", ORB_ERROR_WRONG_KIND);
    }
    // Compared as the library sees them: a container may be written in two ways.
    const std::string from = same ? session_->PathOf(source.address) + (source.address.IsRoot() ? "" : "/") : "";
    if (same && (session_->PathOf(target) + "/").compare(0, from.size(), from) == 0) {
      throw Failure(what, "the target lies inside it", "use another target");
    }
  }

  void CopyTree(Origin* origin, const Match& source, const Address& target) {
    CheckInterrupt();
    if (!source.item.IsDirectory()) return CopyFile(origin, source, target);
    const std::optional<Item> there = FindItem(session_, target);
    if (!there.has_value()) {
      CreateDirectory(session_, target);
    } else if (!there->IsDirectory()) {
      throw TakenByFile("cannot copy " + source.address.Text(), target);
    }
    for (const Item& item : origin->List(source)) {
      if (stopped_) return;
      CopyChild(origin, {source.address.Child(item.name), item}, target.Child(item.name));
    }
  }

  void CopyChild(Origin* origin, const Match& source, const Address& target) {
    try {
      CopyTree(origin, source, target);
    } catch (const Failure& failure) {
      Report(failure);
      failed_ = true;
      stopped_ = stopped_ || failure.IsFinal();
    }
  }

  // A copy has its name when it is complete; one that does not come in whole goes again.
  void CopyFile(Origin* origin, const Match& source, const Address& target) {
    const bool replaces = MayOverwrite(session_, "cannot copy " + source.address.Text(), target, options_.force);
    const Address beside = TemporaryBeside(session_, target);
    progress_->SetItem(target.Path());
    try {
      Fill(origin, source, beside);
      const OrbU32 attributes = source.item.attributes & (ORB_ATTRIBUTE_READ_ONLY | ORB_ATTRIBUTE_USER);
      if (attributes != 0) SetAttributes(session_, beside, attributes);
      if (!replaces) Rename(session_, beside, target.Name());
    } catch (...) {
      OrbDeleteFileA(session_->PathOf(beside).c_str());
      throw;
    }
    if (replaces) Replace(session_, beside, target);
  }

  // The copy is stamped with the source's time.
  void Fill(Origin* origin, const Match& source, const Address& copy) {
    CreateFile(session_, copy);  // the directory is stamped with the present
    const ClockStandsAt stamp(source.item.time);
    VolumeFile written(session_, copy, ORB_OPEN_WRITE);
    written.SetSize(1);
    written.SetSize(0);  // stamps an empty file too
    origin->Read(source, [&](const std::uint8_t* bytes, std::size_t count) {
      CheckInterrupt();
      written.Write(bytes, static_cast<OrbU32>(count));
      progress_->Advance(count);
      return true;
    });
    written.Close();
    progress_->Advance(Progress::kFile);
  }

  const TransferOptions& options_;
  Session* session_;
  Look* look_;
  std::string target_;  // its container
  Progress* progress_ = nullptr;
  bool failed_ = false;
  bool stopped_ = false;
};

// What copying takes, as Progress counts it; unknown with trees.
std::uint64_t WorkOf(const std::vector<Match>& sources) {
  std::uint64_t work = 0;
  for (const Match& source : sources) {
    if (source.item.IsDirectory()) return Progress::kUnknown;
    work += source.item.size + Progress::kFile;
  }
  return work;
}

int RunCopy(const TransferOptions& options) {
  if (options.operands.size() < 2) throw UsageFailure("cp", "there must be a source and a target");
  const std::string& last = options.operands.back();
  Session session;
  Look look;
  Copier copier(options, &session, &look, ParseAddress(last).container);
  int found = kSuccess;
  const std::vector<Match> sources = ExpandSources(options, &found, [&](const Address& pattern) {
    return Expand(copier.OpenOrigin(pattern.container)->places(), pattern, "copy");
  });
  int status = kSuccess;
  if (!sources.empty()) {
    const Target target = OpenTarget(options, &session, sources.size());
    Progress progress("cp", WorkOf(sources), options.quiet);
    status = ForEach(sources, [&](const Match& source) {
      CheckInterrupt();
      copier.Copy(source, target.For(source), &progress);
    });
  }
  session.Close();
  return look.Finish(found == kSuccess && status == kSuccess && !copier.failed() ? kSuccess : kFailed);
}

Run DefineCopy(Syntax* syntax) {
  auto options = std::make_shared<TransferOptions>();
  syntax->Flag("-r,-R,--recursive", &options->recursive, "directories too, with everything below them");
  syntax->Flag("-q,--quiet", &options->quiet, "draw no progress");
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Many("SOURCE", &options->operands);
  return [options] { return RunCopy(*options); };
}

}  // namespace

const Command kMoveCommand = {
    "mv",
    kChangeGroup,
    "SOURCE... TARGET",
    "move or rename files and directories",
    "Moves files and directories into the directory TARGET, or gives a single one the name TARGET. Data stays where "
    "it is, only names change; time stamps stay. A file that --force overwrites is kept as "
    "~ORBA-1.TMP until the new one has its name. Nothing moves from one container to another: use cp, then rm.",
    "orba mv card.orb:/DAY1.TXT card.orb:/LOGS  # into a directory\n"
    "orba mv card.orb:/LOGS/DAY1.TXT card.orb:/LOGS/MONDAY.TXT",
    DefineMove,
};

const Command kCopyCommand = {
    "cp",
    kChangeGroup,
    "SOURCE... TARGET",
    "copy files and directories inside a container or to another one",
    "Copies files into the directory TARGET, or a single one to the name TARGET; with -r also directories, into ones "
    "that are there already if need be. Files keep their attributes and time stamps; new directories get the "
    "present time. A copy is made under the temporary name ~ORBA-1.TMP and renamed when it is complete. A source in "
    "another container than the target is only looked into, so that it may be read-only, marked or damaged. SOURCE and "
    "TARGET are both addresses: between the host and a container it is put and get.",
    "orba cp card.orb:/CONFIG.INI card.orb:/CONFIG.OLD\n"
    "orba cp -r card.orb:/LOGS archive.orb:/",
    DefineCopy,
};

}  // namespace orba::tool

// mv and cp: from place to place inside containers.
#include <memory>

#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/temporary.h"
#include "tools/orba/terminal.h"
#include "tools/orba/walk.h"

namespace orba::tool {

namespace {

struct TransferOptions {
  std::vector<std::string> operands;
  bool force = false;
  bool recursive = false;  // cp alone
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

std::vector<Match> ExpandSources(const TransferOptions& options, Session* session, const char* action, int* status) {
  std::vector<Match> sources;
  const std::vector<std::string> operands(options.operands.begin(), options.operands.end() - 1);
  *status = ForEach(operands, [&](const std::string& operand) {
    std::vector<Match> found = WithHint(operand, [&] { return Expand(session, ParseAddress(operand), action); });
    for (Match& match : found) sources.push_back(std::move(match));
  });
  return sources;
}

// False where a part failed and was reported.
using Work = bool (*)(const TransferOptions&, Session*, const Match& source, const Address& target);

int RunTransfer(const char* command, const TransferOptions& options, Work work) {
  if (options.operands.size() < 2) throw UsageFailure(command, "there must be a source and a target");
  Session session;
  int found = kSuccess;
  const std::vector<Match> sources = ExpandSources(options, &session, command[0] == 'm' ? "move" : "copy", &found);
  int status = kSuccess;
  bool whole = true;
  if (!sources.empty()) {
    const std::string& last = options.operands.back();
    const bool several = sources.size() > 1 || options.operands.size() > 2;
    const Target target = WithHint(last, [&] { return Target(&session, last, several); });
    status = ForEach(sources, [&](const Match& source) {
      CheckInterrupt();
      whole = work(options, &session, source, target.For(source)) && whole;
    });
  }
  session.Close();
  return found == kSuccess && status == kSuccess && whole ? kSuccess : kFailed;
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

bool Move(const TransferOptions& options, Session* session, const Match& source, const Address& target) {
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
    MovePlainly(session, what + " to " + target.Text(), source.address, target);
    return true;
  }
  MoveOver(session, what + " to " + target.Text(), source.address, target);
  return true;
}

Run DefineMove(Syntax* syntax) {
  auto options = std::make_shared<TransferOptions>();
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Many("SOURCE", &options->operands);
  return [options] { return RunTransfer("mv", *options, Move); };
}

// ---- cp -------------------------------------------------------------------------------------------------------------

void CopyPlainly(Session* session, const Address& source, const Address& target) {
  const std::string from = session->PathOf(source);
  if (OrbCopyFileA(from.c_str(), session->PathOf(target).c_str()) == 0) {
    throw LibraryFailure("cannot copy " + source.Text() + " to " + target.Text(), target.container);
  }
}

void CopyFile(const TransferOptions& options, Session* session, const Address& source, const Address& target) {
  const std::string what = "cannot copy " + source.Text();
  if (session->PathOf(source) == session->PathOf(target)) {
    throw Failure(what, "source and target are the same", "use another target");
  }
  const bool replaces = MayOverwrite(session, what, target, options.force);
  const Address beside = TemporaryBeside(session, target);
  try {
    CopyPlainly(session, source, beside);
    CheckInterrupt();  // the library's copying is one call
    if (!replaces) Rename(session, beside, target.Name());
  } catch (...) {
    OrbDeleteFileA(session->PathOf(beside).c_str());
    throw;
  }
  if (replaces) Replace(session, beside, target);
}

// Copies trees. What cannot be copied is reported, the rest still is.
class Copier {
 public:
  Copier(const TransferOptions& options, Session* session) : options_(options), session_(session), walker_(session) {}

  void Copy(const Match& source, const Address& target) {
    CheckInterrupt();
    if (!source.item.IsDirectory()) return CopyFile(options_, session_, source.address, target);
    const std::optional<Item> there = FindItem(session_, target);
    if (!there.has_value()) {
      CreateDirectory(session_, target);
    } else if (!there->IsDirectory()) {
      throw TakenByFile("cannot copy " + source.address.Text(), target);
    }
    for (const Item& item : walker_.List(source.address)) {
      if (stopped_) return;
      CopyChild({source.address.Child(item.name), item}, target.Child(item.name));
    }
  }

  bool failed() const { return failed_; }

 private:
  void CopyChild(const Match& source, const Address& target) {
    try {
      Copy(source, target);
    } catch (const Failure& failure) {
      Report(failure);
      failed_ = true;
      stopped_ = stopped_ || failure.IsFinal();
    }
  }

  const TransferOptions& options_;
  Session* session_;
  Walker walker_;
  bool failed_ = false;
  bool stopped_ = false;
};

void RequireCopyable(const TransferOptions& options, Session* session, const Match& source, const Address& target) {
  if (!source.item.IsDirectory()) return;
  const std::string what = "cannot copy " + source.address.Text();
  if (!options.recursive) {
    throw Failure(what, "it is a directory (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                  "copy it and everything below it with: orba cp -r", ORB_ERROR_WRONG_KIND);
  }
  // Compared as the library sees them: a container may be written in two ways.
  const std::string from = session->PathOf(source.address) + (source.address.IsRoot() ? "" : "/");
  if ((session->PathOf(target) + "/").compare(0, from.size(), from) == 0) {
    throw Failure(what, "the target lies inside it", "use another target");
  }
}

bool Copy(const TransferOptions& options, Session* session, const Match& source, const Address& target) {
  RequireCopyable(options, session, source, target);
  Copier copier(options, session);
  copier.Copy(source, target);
  return !copier.failed();
}

Run DefineCopy(Syntax* syntax) {
  auto options = std::make_shared<TransferOptions>();
  syntax->Flag("-r,-R,--recursive", &options->recursive, "directories too, with everything below them");
  syntax->Flag("-f,--force", &options->force, "overwrite files that are there");
  syntax->Many("SOURCE", &options->operands);
  return [options] { return RunTransfer("cp", *options, Copy); };
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
    "present time. A copy is made under the temporary name ~ORBA-1.TMP and renamed when it is complete; a signal ends "
    "cp behind the file that is being copied. SOURCE and TARGET are both addresses: between the host and a container "
    "it is put and get.",
    "orba cp card.orb:/CONFIG.INI card.orb:/CONFIG.OLD\n"
    "orba cp -r card.orb:/LOGS archive.orb:/",
    DefineCopy,
};

}  // namespace orba::tool

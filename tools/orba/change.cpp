// mkdir, rm, attrib and touch: small changes inside a container.
#include <memory>

#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/interrupt.h"
#include "tools/orba/look.h"
#include "tools/orba/name_rule.h"
#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/terminal.h"
#include "tools/orba/volume_file.h"
#include "tools/orba/walk.h"

namespace orba::tool {

namespace {

// ---- mkdir ----------------------------------------------------------------------------------------------------------

struct MakeOptions {
  std::vector<std::string> operands;
  bool parents = false;
};

void MakeWithParents(Session* session, const Address& address) {
  Address step = address;
  step.names.clear();
  for (const std::string& name : address.names) {
    step = step.Child(name);
    const std::optional<Item> item = FindItem(session, step);
    if (!item.has_value()) {
      CreateDirectory(session, step);
    } else if (!item->IsDirectory()) {
      throw LibraryFailure("cannot make the directory " + step.Text(), step.container, ORB_ERROR_FILE_EXISTS);
    }
  }
}

int RunMake(const MakeOptions& options) {
  Session session;
  const int status = ForEach(options.operands, [&](const std::string& operand) {
    const Address address = ParseAddress(operand);
    RequireLegal(address);
    if (options.parents) return MakeWithParents(&session, address);
    if (address.IsRoot()) {
      session.PathOf(address);  // a container that cannot be opened says so first
      throw LibraryFailure("cannot make the directory " + address.Text(), address.container, ORB_ERROR_FILE_EXISTS);
    }
    CreateDirectory(&session, address);
  });
  session.Close();
  return status;
}

Run DefineMake(Syntax* syntax) {
  auto options = std::make_shared<MakeOptions>();
  syntax->Flag("-p,--parents", &options->parents,
               "also make what is missing on the way; what is there is not an error");
  syntax->Many("CONTAINER:/PATH", &options->operands);
  return [options] { return RunMake(*options); };
}

// ---- rm -------------------------------------------------------------------------------------------------------------

struct RemoveOptions {
  std::vector<std::string> operands;
  bool recursive = false;
  bool force = false;
};

// From the last entry on: what goes away last in a directory leaves no hole to close.
void RemoveBelow(Session* session, Walker* walker, const Address& directory) {
  std::vector<Item> items = walker->List(directory);
  for (auto item = items.rbegin(); item != items.rend(); ++item) {
    CheckInterrupt();
    const Address address = directory.Child(item->name);
    if (item->IsDirectory()) RemoveBelow(session, walker, address);
    Delete(session, address);
  }
}

void Remove(const RemoveOptions& options, Session* session, const Match& match) {
  const std::string what = "cannot remove " + match.address.Text();
  if (match.address.IsRoot()) {
    throw Failure(what, "it is the root of the container, which is always there",
                  "remove what it holds with: orba rm -r " + ShellWord(match.address.container + ":/*"));
  }
  if (match.item.IsDirectory()) {
    if (!options.recursive) {
      throw Failure(what, "it is a directory (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                    "remove it and everything below it with: orba rm -r", ORB_ERROR_WRONG_KIND);
    }
    Walker walker(session);
    RemoveBelow(session, &walker, match.address);
  }
  Delete(session, match.address);
}

std::vector<Match> ExpandForRemoval(const RemoveOptions& options, Session* session, const Address& pattern) {
  try {
    return Expand(session, pattern, "remove");
  } catch (const Failure& failure) {
    const bool missing = failure.code() == ORB_ERROR_FILE_NOT_FOUND || failure.code() == ORB_ERROR_NO_MORE_ENTRIES;
    session->PathOf(pattern);  // a container that cannot be opened is not a missing file
    if (missing && options.force) return {};
    throw;
  }
}

int RunRemove(const RemoveOptions& options) {
  Session session;
  int status = kSuccess;
  const int found = ForEach(options.operands, [&](const std::string& operand) {
    const std::vector<Match> matches = ExpandForRemoval(options, &session, ParseAddress(operand));
    const int removed = ForEach(matches, [&](const Match& match) { Remove(options, &session, match); });
    if (removed != kSuccess) status = removed;
  });
  session.Close();
  return found != kSuccess ? found : status;
}

Run DefineRemove(Syntax* syntax) {
  auto options = std::make_shared<RemoveOptions>();
  syntax->Flag("-r,-R,--recursive", &options->recursive, "directories too, with everything below them");
  syntax->Flag("-f,--force", &options->force, "what is missing is not an error");
  syntax->Many("CONTAINER:/PATH", &options->operands);
  return [options] { return RunRemove(*options); };
}

// ---- attrib ---------------------------------------------------------------------------------------------------------

struct AttributeOptions {
  std::vector<std::string> operands;  // "+r" and "+u" stand among the addresses
  bool recursive = false;
  bool clearReadOnly = false;
  bool clearUser = false;
};

struct AttributeChange {
  OrbU32 set = 0;
  OrbU32 clear = 0;
  bool Any() const { return set != 0 || clear != 0; }
};

OrbU32 AttributeBit(char letter) {
  if (letter == 'r') return ORB_ATTRIBUTE_READ_ONLY;
  if (letter == 'u') return ORB_ATTRIBUTE_USER;
  throw UsageFailure("attrib", std::string("there is no attribute \"") + letter + "\"; r and u can be changed");
}

AttributeChange TakeChange(const AttributeOptions& options, std::vector<std::string>* addresses) {
  AttributeChange change;
  if (options.clearReadOnly) change.clear |= ORB_ATTRIBUTE_READ_ONLY;
  if (options.clearUser) change.clear |= ORB_ATTRIBUTE_USER;
  for (const std::string& operand : options.operands) {
    if (operand[0] != '+') {
      addresses->push_back(operand);
      continue;
    }
    for (std::size_t i = 1; i < operand.size(); ++i) change.set |= AttributeBit(operand[i]);
  }
  if (addresses->empty()) throw UsageFailure("attrib", "there is no address");
  if ((change.set & change.clear) != 0) throw UsageFailure("attrib", "an attribute cannot be both set and cleared");
  return change;
}

void ChangeAttributes(Session* session, const Match& match, const AttributeChange& change) {
  if (match.item.IsDirectory()) {
    throw Failure("cannot set the attributes of " + match.address.Text(),
                  "it is a directory, whose attributes are fixed (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                  "change the files below it with: orba attrib -R", ORB_ERROR_WRONG_KIND);
  }
  const OrbU32 attributes = (match.item.attributes | change.set) & ~change.clear;
  if (attributes != match.item.attributes) SetAttributes(session, match.address, attributes);
}

std::string AttributeLine(const Match& match) {
  const auto letter = [&match](OrbU32 bit, const char* text) {
    return std::string((match.item.attributes & bit) != 0 ? text : "-");
  };
  return letter(ORB_ATTRIBUTE_READ_ONLY, "r") + letter(ORB_ATTRIBUTE_USER, "u") + "  " + match.address.Text() + "\n";
}

// The files that a match stands for: itself, or with `recursive` all below it. `list` lists a directory.
template <typename List>
std::vector<Match> FilesOf(const List& list, const Match& match, bool recursive) {
  if (!recursive || !match.item.IsDirectory()) return {match};
  std::vector<Match> files;
  for (const Item& item : list(match)) {
    for (Match& below : FilesOf(list, {match.address.Child(item.name), item}, true)) files.push_back(std::move(below));
  }
  return files;
}

// Prints attributes, or changes them where `session` is given.
int ForEachFile(const std::vector<Match>& files, const AttributeChange& change, Session* session) {
  return ForEach(files, [&](const Match& file) {
    CheckInterrupt();
    if (session != nullptr) return ChangeAttributes(session, file, change);
    Print(AttributeLine(file));
  });
}

int ShowAttributes(const std::vector<std::string>& addresses, bool recursive) {
  Look look;
  int status = kSuccess;
  const int found = ForEach(addresses, [&](const std::string& operand) {
    for (const Match& match : Expand(&look, ParseAddress(operand), "find")) {
      LookWalker walker(&look);
      const auto list = [&walker](const Match& directory) { return walker.List(directory); };
      const int shown = ForEachFile(FilesOf(list, match, recursive), {}, nullptr);
      if (shown != kSuccess) status = shown;
    }
  });
  return look.Finish(found != kSuccess ? found : status);
}

int RunAttribute(const AttributeOptions& options) {
  std::vector<std::string> addresses;
  const AttributeChange change = TakeChange(options, &addresses);
  if (!change.Any()) return ShowAttributes(addresses, options.recursive);
  Session session;
  Walker walker(&session);
  int status = kSuccess;
  const auto list = [&walker](const Match& directory) { return walker.List(directory.address); };
  const int found = ForEach(addresses, [&](const std::string& operand) {
    for (const Match& match : Expand(&session, ParseAddress(operand), "find")) {
      const int changed = ForEachFile(FilesOf(list, match, options.recursive), change, &session);
      if (changed != kSuccess) status = changed;
    }
  });
  session.Close();
  return found != kSuccess ? found : status;
}

Run DefineAttribute(Syntax* syntax) {
  auto options = std::make_shared<AttributeOptions>();
  syntax->Flag("-R,--recursive", &options->recursive, "of directories all files below them");
  syntax->Flag("-r", &options->clearReadOnly, "clear the read-only attribute; +r sets it");
  syntax->Flag("-u", &options->clearUser, "clear the user attribute; +u sets it");
  syntax->Many("CONTAINER:/PATH", &options->operands);
  return [options] { return RunAttribute(*options); };
}

// ---- touch ----------------------------------------------------------------------------------------------------------

// A file is stamped with the present time when its size changes, and never otherwise.
void StampByResizing(Session* session, const Match& match) {
  if (match.item.IsDirectory()) {
    throw Failure("cannot touch " + match.address.Text(),
                  "it is a directory, whose time changes with its entries (" + CodeText(ORB_ERROR_WRONG_KIND) + ")",
                  "make or remove a file in it", ORB_ERROR_WRONG_KIND);
  }
  if (match.item.IsReadOnly()) throw ReadOnlyFailure("cannot touch " + match.address.Text(), match.address, "it");
  VolumeFile file(session, match.address, ORB_OPEN_WRITE);
  file.SetSize(match.item.size + 1);
  try {
    file.SetSize(match.item.size);
  } catch (Failure& failure) {
    failure.AddAdvice("the file now has one zero byte too many at its end");
    throw;
  }
  file.Close();
}

struct TouchOptions {
  std::vector<std::string> operands;
  bool noCreate = false;
};

int Touch(const TouchOptions& options, Session* session, const std::string& operand) {
  const Address address = ParseAddress(operand);
  bool wild = false;
  for (const std::string& name : address.names) wild = wild || name.find_first_of("*?") != std::string::npos;
  if (!wild) RequireLegal(address);
  if (wild || FindItem(session, address).has_value()) {
    return ForEach(Expand(session, address, "touch"), [&](const Match& match) { StampByResizing(session, match); });
  }
  if (!options.noCreate) CreateFile(session, address);
  return kSuccess;
}

int RunTouch(const TouchOptions& options) {
  Session session;
  int status = kSuccess;
  const int found = ForEach(options.operands, [&](const std::string& operand) {
    const int touched = Touch(options, &session, operand);
    if (touched != kSuccess) status = touched;
  });
  session.Close();
  return found != kSuccess ? found : status;
}

Run DefineTouch(Syntax* syntax) {
  auto options = std::make_shared<TouchOptions>();
  syntax->Flag("-c,--no-create", &options->noCreate, "make no new files");
  syntax->Many("CONTAINER:/PATH", &options->operands);
  return [options] { return RunTouch(*options); };
}

}  // namespace

const Command kMakeCommand = {
    "mkdir",
    kChangeGroup,
    "CONTAINER:/PATH...",
    "make directories",
    "Makes directories.",
    "orba mkdir card.orb:/LOGS\n"
    "orba mkdir -p card.orb:/LOGS/2024/MAY",
    DefineMake,
};

const Command kRemoveCommand = {
    "rm",
    kChangeGroup,
    "CONTAINER:/PATH...",
    "remove files, and directories with everything below them",
    "Removes files, with -r also directories and everything below them. Asks nothing, and takes no notice of the "
    "read-only attribute. The root itself is refused.",
    "orba rm card.orb:/LOGS/DAY1.TXT\n"
    "orba rm -r card.orb:/LOGS/2023 'card.orb:/*.BAK'",
    DefineRemove,
};

const Command kAttributeCommand = {
    "attrib",
    kChangeGroup,
    "[+r|-r] [+u|-u] CONTAINER:/PATH...",
    "show or change the attributes of files",
    "Without a change, shows the attributes. r is read-only: such a file cannot be opened for writing. u is for the "
    "user's own purposes; nothing tests it. The attributes of directories are fixed.",
    "orba attrib 'card.orb:/*'\n"
    "orba attrib +r -u card.orb:/CONFIG.INI\n"
    "orba attrib -R +r card.orb:/MAPS  # every file below it",
    DefineAttribute,
    "+r +u +ru",
};

const Command kTouchCommand = {
    "touch",
    kChangeGroup,
    "CONTAINER:/PATH...",
    "make empty files, or stamp files with the present time",
    "Makes a file that is missing, empty. A file that is there gets the present time by growing by one byte and "
    "being cut back to its size, the only way there is: its contents stay, read-only files are refused. A touch that "
    "loses power between these two steps leaves the file one zero byte longer.\n\n"
    "Containers offer no way to set a chosen time, nor any time of a directory. "
    "Files that put writes therefore have the time of writing.",
    "orba touch card.orb:/READY.FLG\n"
    "orba touch -c 'card.orb:/LOGS/*'",
    DefineTouch,
};

}  // namespace orba::tool

// find: places inside containers by name, kind, size and time.
#include <memory>
#include <optional>

#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/host/host.h"
#include "tools/orba/json.h"
#include "tools/orba/look.h"
#include "tools/orba/terminal.h"
#include "tools/orba/time_text.h"
#include "tools/orba/wildcard.h"

namespace orba::tool {

namespace {

struct FindOptions {
  std::vector<std::string> operands;
  std::string name;
  std::string type;
  std::string size;
  std::string newer;
  bool print0 = false;
  bool print = false;
  bool json = false;
};

// What the options ask for; all of it must be so.
struct Wanted {
  std::string name;                   // a wildcard, empty for any
  char type = '\0';                   // 'f' or 'd', '\0' for both
  char sizeSign = '\0';               // '+' for larger, '-' for smaller, '=' for equal, '\0' for any
  std::uint64_t size = 0;             // bytes
  std::optional<std::int64_t> after;  // seconds since 1970

  bool Fits(const Item& item) const {
    if (!name.empty() && !Matches(item.name, name)) return false;
    if (type != '\0' && item.IsDirectory() != (type == 'd')) return false;
    if (sizeSign == '+' && item.size <= size) return false;
    if (sizeSign == '-' && item.size >= size) return false;
    if (sizeSign == '=' && item.size != size) return false;
    return !after.has_value() || SecondsOf(item.time).value_or(INT64_MIN) > *after;
  }
};

// The time that a text stands for: a date, or when something on the host or in a container was changed.
std::int64_t TimeMeant(Look* look, const std::string& text) {
  const std::optional<std::int64_t> date = TimeIn(text);
  if (date.has_value()) return *date;
  if (text.find(":/") == std::string::npos) {
    const host::Status status = host::StatusOf(text);
    if (status.kind != host::Kind::kNothing) return status.changed;
    throw UsageFailure(
        "find", "--newer takes a date such as 2026-11-21 or \"2026-11-21 03:15:09\", or a file, not \"" + text + "\"");
  }
  const Address address = ParseAddress(text);
  const std::optional<std::int64_t> changed = SecondsOf(GetItem(look, address, "find").time);
  if (changed.has_value()) return *changed;
  throw Failure("cannot compare with " + address.Text(), "its time is not a date", "give a date to --newer");
}

Wanted WhatIsWanted(const FindOptions& options, Look* look) {
  Wanted wanted;
  wanted.name = options.name;
  if (!options.type.empty()) wanted.type = options.type[0];
  if (!options.size.empty()) {
    const bool hasSign = options.size[0] == '+' || options.size[0] == '-';
    wanted.sizeSign = hasSign ? options.size[0] : '=';
    const std::optional<std::uint64_t> size = SizeIn(options.size.substr(hasSign ? 1 : 0));
    if (!size.has_value()) {
      throw UsageFailure("find", "--size takes +SIZE, -SIZE or SIZE, such as +1M, not \"" + options.size + "\"");
    }
    wanted.size = *size;
  }
  if (!options.newer.empty()) wanted.after = TimeMeant(look, options.newer);
  return wanted;
}

class Finder {
 public:
  Finder(const Wanted& wanted, Look* look) : wanted_(wanted), walker_(look) {}

  // Calls `tell` with each place that fits.
  template <typename Tell>
  void Find(const Match& match, const Tell& tell) {
    if (wanted_.Fits(match.item)) tell(match);
    if (!match.item.IsDirectory()) return;
    for (const Item& item : walker_.List(match)) Find({match.address.Child(item.name), item}, tell);
  }

 private:
  const Wanted& wanted_;
  LookWalker walker_;
};

void PrintPlace(const FindOptions& options, const Address& address) {
  if (options.print0) return Print(address.container + ":" + address.Path() + std::string(1, '\0'));
  Print(address.Text() + "\n");
}

int RunFind(const FindOptions& options) {
  Look look;
  const Wanted wanted = WhatIsWanted(options, &look);
  const auto find = [&](const Address& pattern, const auto& tell) {
    for (const Match& match : Expand(&look, pattern, "find")) Finder(wanted, &look).Find(match, tell);
  };
  return look.Finish(ForEach(options.operands, [&](const std::string& operand) {
    if (!options.json) {
      return find(ParseAddress(operand), [&](const Match& match) { PrintPlace(options, match.address); });
    }
    PrintLook(&look, operand, [&](const Address& pattern, JsonObject* json) {
      JsonArray entries;
      find(pattern, [&](const Match& match) { entries.Add(PlaceJson(match).Done()); });
      json->Json("entries", entries.Done());
    });
  }));
}

Run DefineFind(Syntax* syntax) {
  auto options = std::make_shared<FindOptions>();
  syntax->Text("-n,--name", "WILDCARD", &options->name, "names that match it, such as \"*.TXT\"");
  syntax->Choice("-t,--type", "KIND", &options->type, {"f", "d"}, "files (f) or directories (d) alone");
  syntax->Text("-s,--size", "SIZE", &options->size,
               "SIZE bytes, +SIZE for more than that, -SIZE for less; K or M at its end multiply");
  syntax->Text("--newer", "WHEN", &options->newer,
               "changed after a date (UTC), or after a file of the host or of a container was");
  syntax->Flag("-0,--print0", &options->print0, "end each place with a NUL byte, nothing quoted: for xargs -0");
  syntax->Flag("--json", &options->json, "a JSON object for each operand, on a line of its own");
  syntax->Flag("--print", &options->print, "");  // what find does anyway; without it, -print would stand for -print0
  syntax->Exclude("--print0", "--json");
  syntax->TakeOneDash();
  syntax->Many("CONTAINER[:/PATH]", &options->operands);
  return [options] { return RunFind(*options); };
}

}  // namespace

const Command kFindCommand = {
    "find",
    kLookGroup,
    "CONTAINER[:/PATH]...",
    "find files and directories by name, kind, size or time",
    "Prints the address of each place and of everything below it that fits all options; without any, of everything. A "
    "directory comes before what it holds, else names come sorted. Names match without regard to letter case. A "
    "directory's size is 32 bytes for each entry. What has no date is newer than nothing. "
    "Options may have one dash, as those of find(1): -name, -type f, -print0.",
    "orba find card.orb --name '*.TXT'\n"
    "orba find card.orb:/LOGS --type f --size +1M\n"
    "orba find card.orb --newer 2026-11-20\n"
    "orba find card.orb --name '*.LOG' -0 | xargs -0 orba cat",
    DefineFind,
};

}  // namespace orba::tool

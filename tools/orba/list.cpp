// ls, tree and du: what lies inside.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>

#include "inspect/check/finding.h"
#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/each.h"
#include "tools/orba/host/host.h"
#include "tools/orba/json.h"
#include "tools/orba/look.h"
#include "tools/orba/terminal.h"
#include "tools/orba/time_text.h"
#include "tools/orba/weigh.h"

namespace orba::tool {

namespace {

std::string PaintedName(const Item& item, const std::string& text) {
  return item.IsDirectory() ? Painted(Stream::kOutput, Colour::kBlue, text) : text;
}

// ---- ls -------------------------------------------------------------------------------------------------------------

struct ListOptions {
  std::vector<std::string> operands;
  bool longForm = false;
  bool recursive = false;
  bool onePerLine = false;
  bool itself = false;
  bool human = false;
  bool byTime = false;
  bool bySize = false;
  bool reverse = false;
  bool all = false;
  bool json = false;
};

bool IsNewer(const OrbTime& a, const OrbTime& b) {
  return SecondsOf(a).value_or(INT64_MIN) > SecondsOf(b).value_or(INT64_MIN);
}

const Item& ItemOf(const Item& item) { return item; }
const Item& ItemOf(const Match& match) { return match.item; }

// They come sorted by name.
template <typename One>
void Sort(const ListOptions& options, std::vector<One>* all) {
  const auto comesFirst = [&options](const One& one, const One& other) {
    const Item& a = ItemOf(one);
    const Item& b = ItemOf(other);
    if (options.byTime && (IsNewer(a.time, b.time) || IsNewer(b.time, a.time))) return IsNewer(a.time, b.time);
    return options.bySize && a.size > b.size;
  };
  std::stable_sort(all->begin(), all->end(), comesFirst);
  if (options.reverse) std::reverse(all->begin(), all->end());
}

std::string AttributeText(const Item& item) {
  std::string text = "----";
  if (item.IsDirectory()) text[0] = 'd';
  if (item.IsReadOnly()) text[1] = 'r';
  if ((item.attributes & ORB_ATTRIBUTE_SYSTEM) != 0) text[2] = 's';
  if ((item.attributes & ORB_ATTRIBUTE_USER) != 0) text[3] = 'u';
  return text;
}

class Lister {
 public:
  Lister(const ListOptions& options, Look* look) : options_(options), look_(look) {}

  void ListOperand(const std::string& operand) {
    std::vector<Match> directories;
    const std::vector<Match> found = Find(ParseAddress(operand), &directories);
    const bool several = found.size() + directories.size() > 1 || options_.operands.size() > 1 || options_.recursive;
    std::vector<Item> files;
    for (const Match& match : found) {
      files.push_back(match.item);
      const bool whole = several || match.address.IsRoot();
      files.back().name = whole ? match.address.Text() : inspect::Printable(match.item.name);
    }
    if (!files.empty()) PrintItems(files);
    for (const Match& directory : directories) {
      LookWalker walker(look_);
      ListDirectory(&walker, directory, several);
    }
  }

  // The same places, in the same order, as a list.
  std::string ListJson(const Address& pattern) {
    std::vector<Match> directories;
    JsonArray entries;
    for (const Match& match : Find(pattern, &directories)) entries.Add(PlaceJson(match).Done());
    for (const Match& directory : directories) {
      LookWalker walker(look_);
      AddEntries(&walker, directory, &entries);
    }
    return entries.Done();
  }

 private:
  // What the pattern stands for and is to be listed itself, sorted; the directories whose contents are to be listed.
  std::vector<Match> Find(const Address& pattern, std::vector<Match>* directories) {
    std::vector<Match> files;
    for (Match& match : Expand(look_, pattern, "list")) {
      const bool itself = options_.itself || !match.item.IsDirectory();
      (itself ? files : *directories).push_back(std::move(match));
    }
    Sort(options_, &files);
    return files;
  }

  void AddEntries(LookWalker* walker, const Match& directory, JsonArray* entries) {
    std::vector<Item> items = walker->List(directory);
    Sort(options_, &items);
    for (const Item& item : items) entries->Add(PlaceJson({directory.address.Child(item.name), item}).Done());
    if (!options_.recursive) return;
    for (const Item& item : items) {
      if (item.IsDirectory()) AddEntries(walker, {directory.address.Child(item.name), item}, entries);
    }
  }

  void ListDirectory(LookWalker* walker, const Match& directory, bool headed) {
    std::vector<Item> items = walker->List(directory);
    Sort(options_, &items);
    if (headed) Print((printed_ ? "\n" : "") + directory.address.Text() + ":\n");
    std::vector<Item> shown = options_.all ? WithDots(directory, items) : items;
    for (Item& item : shown) item.name = inspect::Printable(item.name);
    PrintItems(shown);
    printed_ = true;
    if (!options_.recursive) return;
    for (const Item& item : items) {
      if (item.IsDirectory()) ListDirectory(walker, {directory.address.Child(item.name), item}, true);
    }
  }

  // What the directory holds, and "." and "..", which are left out else. Above the root is the root.
  std::vector<Item> WithDots(const Match& directory, const std::vector<Item>& items) {
    const Address& address = directory.address;
    std::optional<Item> above = address.IsRoot() ? directory.item : look_->Find(address.Parent());
    std::vector<Item> all = {directory.item};
    all[0].name = ".";
    if (above.has_value()) {
      above->name = "..";
      all.push_back(*above);
    }
    all.insert(all.end(), items.begin(), items.end());
    Sort(options_, &all);
    return all;
  }

  // Of items whose names are fit to be printed.
  void PrintItems(const std::vector<Item>& items) {
    printed_ = printed_ || !items.empty();
    if (options_.longForm) return PrintLong(items);
    const bool columns = IsTerminal(Stream::kOutput) && !options_.onePerLine;
    std::vector<std::string> texts;
    std::vector<std::string> shown;
    for (const Item& item : items) {
      texts.push_back(NameText(item));
      shown.push_back(PaintedName(item, texts.back()));
      if (!columns) Print(shown.back() + "\n");
    }
    if (columns) Print(InColumns(texts, shown, Width(Stream::kOutput)));
  }

  void PrintLong(const std::vector<Item>& items) {
    std::size_t width = 0;
    for (const Item& item : items) width = std::max(width, SizeText(item).size());
    for (const Item& item : items) {
      Print(AttributeText(item) + "  " + PadLeft(SizeText(item), width) + "  " + TimeText(item.time) + "  " +
            PaintedName(item, NameText(item)) + "\n");
    }
  }

  std::string SizeText(const Item& item) const {
    return options_.human ? HumanSize(item.size) : std::to_string(item.size);
  }

  // On a terminal a "/" tells directories also where there are no colours.
  static std::string NameText(const Item& item) {
    const bool marked =
        item.IsDirectory() && IsTerminal(Stream::kOutput) && (item.name.empty() || item.name.back() != '/');
    return item.name + (marked ? "/" : "");
  }

  const ListOptions& options_;
  Look* look_;
  bool printed_ = false;
};

int RunList(const ListOptions& options) {
  Look look;
  Lister lister(options, &look);
  return look.Finish(ForEach(options.operands, [&](const std::string& operand) {
    if (!options.json) return lister.ListOperand(operand);
    PrintLook(&look, operand,
              [&lister](const Address& pattern, JsonObject* json) { json->Json("entries", lister.ListJson(pattern)); });
  }));
}

Run DefineList(Syntax* syntax) {
  auto options = std::make_shared<ListOptions>();
  syntax->Flag("-l,--long", &options->longForm, "attributes, size, time of the last change (UTC) and name");
  syntax->Flag("-R,--recursive", &options->recursive, "also everything below");
  syntax->Flag("-d,--directory", &options->itself, "a directory itself, not what it holds");
  syntax->Flag("-1", &options->onePerLine, "one name to a line, also on a terminal");
  syntax->Flag("-h,--human", &options->human, "sizes such as 1.5K");
  syntax->Flag("-t", &options->byTime, "the newest first");
  syntax->Flag("-S", &options->bySize, "the largest first");
  syntax->Flag("-r,--reverse", &options->reverse, "the other way round");
  syntax->Flag("-a,--all", &options->all, "\".\" and \"..\" too; no other name is hidden");
  syntax->Flag("--json", &options->json, "a JSON object for each operand, on a line of its own");
  syntax->Exclude("--all", "--json");
  syntax->Many("CONTAINER[:/PATH]", &options->operands);
  return [options] { return RunList(*options); };
}

// ---- tree -----------------------------------------------------------------------------------------------------------

struct TreeOptions {
  std::vector<std::string> operands;
  std::uint32_t levels = 0;
};

struct TreeCounts {
  unsigned directories = 0;
  unsigned files = 0;
  bool drawn = false;
};

void PrintBranches(LookWalker* walker, const Match& directory, const std::string& indent, std::uint32_t levels,
                   TreeCounts* counts) {
  const bool utf8 = host::IsUtf8();
  const std::vector<Item> items = walker->List(directory);
  for (const Item& item : items) {
    const bool last = &item == &items.back();
    const char* const branch = utf8 ? (last ? "└── " : "├── ") : (last ? "`-- " : "|-- ");
    Print(indent + branch + PaintedName(item, inspect::Printable(item.name)) + "\n");
    ++(item.IsDirectory() ? counts->directories : counts->files);
    if (!item.IsDirectory() || levels == 1) continue;
    const char* const below = last ? "    " : (utf8 ? "│   " : "|   ");
    const Match child = {directory.address.Child(item.name), item};
    PrintBranches(walker, child, indent + below, levels == 0 ? 0 : levels - 1, counts);
  }
}

int RunTree(const TreeOptions& options) {
  Look look;
  TreeCounts counts;
  const int status = ForEach(options.operands, [&](const std::string& operand) {
    for (const Match& match : Expand(&look, ParseAddress(operand), "list")) {
      Print(PaintedName(match.item, match.address.Text()) + "\n");
      counts.drawn = true;
      LookWalker walker(&look);
      if (match.item.IsDirectory()) PrintBranches(&walker, match, "", options.levels, &counts);
    }
  });
  if (counts.drawn) {
    Print("\n" + inspect::Counted(counts.directories, "directory", "directories") + ", " +
          inspect::Counted(counts.files, "file") + "\n");
  }
  return look.Finish(status);
}

Run DefineTree(Syntax* syntax) {
  auto options = std::make_shared<TreeOptions>();
  syntax->Number("-L,--levels", "N", &options->levels, {1, 65535}, "go down this many levels, 1 or more");
  syntax->Many("CONTAINER[:/PATH]", &options->operands);
  return [options] { return RunTree(*options); };
}

// ---- du -------------------------------------------------------------------------------------------------------------

struct UsageOptions {
  std::vector<std::string> operands;
  bool all = false;
  bool summary = false;
  bool bytes = false;
  bool human = false;
  bool json = false;
};

// Of everything below a place: the sizes of files, and the blocks that they and directories take, in bytes.
struct Usage {
  std::uint64_t size = 0;
  std::uint64_t space = 0;
};

class UsageCounter {
 public:
  UsageCounter(const UsageOptions& options, Look* look) : options_(options), look_(look), walker_(look) {}

  // Calls `tell` with each place that is to be shown and what it takes.
  template <typename Tell>
  Usage Count(const Match& match, bool top, const Tell& tell) {
    Usage used = Own(match);
    if (match.item.IsDirectory()) {
      for (const Item& item : walker_.List(match)) {
        const Usage below = Count({match.address.Child(item.name), item}, false, tell);
        used.size += below.size;
        used.space += below.space;
      }
    }
    const bool shown = top || (!options_.summary && (match.item.IsDirectory() || options_.all));
    if (shown) tell(match, used);
    return used;
  }

 private:
  Usage Own(const Match& match) {
    const std::uint64_t blockSize = look_->BlockSize(match.address);
    return {match.item.IsDirectory() ? 0 : match.item.size, BlocksTaken(match.item.size, blockSize) * blockSize};
  }

  const UsageOptions& options_;
  Look* look_;
  LookWalker walker_;
};

std::string UsageText(const UsageOptions& options, const Usage& used) {
  const std::uint64_t bytes = options.bytes ? used.size : used.space;
  if (options.human) return HumanSize(bytes);
  return std::to_string(options.bytes ? bytes : (bytes + 1023) / 1024);
}

std::string UsageJson(const Match& match, const Usage& used) {
  return JsonObject()
      .Text("path", inspect::Printable(match.address.Path()))
      .Text("kind", match.item.IsDirectory() ? "directory" : "file")
      .Number("size", used.size)
      .Number("space", used.space)
      .Done();
}

int RunUsage(const UsageOptions& options) {
  Look look;
  const auto count = [&](const Address& pattern, const auto& tell) {
    for (const Match& match : Expand(&look, pattern, "measure")) UsageCounter(options, &look).Count(match, true, tell);
  };
  return look.Finish(ForEach(options.operands, [&](const std::string& operand) {
    if (!options.json) {
      return count(ParseAddress(operand), [&](const Match& match, const Usage& used) {
        Print(UsageText(options, used) + "\t" + match.address.Text() + "\n");
      });
    }
    PrintLook(&look, operand, [&](const Address& pattern, JsonObject* json) {
      JsonArray entries;
      count(pattern, [&](const Match& match, const Usage& used) { entries.Add(UsageJson(match, used)); });
      json->Json("entries", entries.Done());
    });
  }));
}

Run DefineUsage(Syntax* syntax) {
  auto options = std::make_shared<UsageOptions>();
  syntax->Flag("-a,--all", &options->all, "files too, not directories alone");
  syntax->Flag("-s,--summarize", &options->summary, "the operands alone");
  syntax->Flag("-b,--bytes", &options->bytes, "the files' sizes in bytes instead of the space they take");
  syntax->Flag("-h,--human", &options->human, "sizes such as 1.5K");
  syntax->Flag("--json", &options->json, "a JSON object for each operand, on a line of its own");
  syntax->Many("CONTAINER[:/PATH]", &options->operands);
  return [options] { return RunUsage(*options); };
}

}  // namespace

const Command kListCommand = {
    "ls",
    kLookGroup,
    "CONTAINER[:/PATH]...",
    "list files and directories",
    "Lists what a directory holds, or a file. Names come sorted unless told otherwise: in columns on a terminal, one "
    "to a line elsewhere.\n\n"
    "The letters of -l are d for a directory, r for read-only, s for system (a root) and u for the user "
    "attribute. A directory's size is 32 bytes for each entry, \".\" and \"..\" included. A time that is "
    "not a date of the calendar shows as \"-\".",
    "orba ls card.orb  # the root\n"
    "orba ls -l 'card.orb:/LOGS/*.TXT'\n"
    "orba ls -ltr card.orb:/LOGS  # the newest last",
    DefineList,
};

const Command kTreeCommand = {
    "tree",
    kLookGroup,
    "CONTAINER[:/PATH]...",
    "draw directories as a tree",
    "Draws everything below a directory as a tree and counts it.",
    "orba tree card.orb\n"
    "orba tree -L 2 card.orb:/LOGS",
    DefineTree,
};

const Command kUsageCommand = {
    "du",
    kLookGroup,
    "CONTAINER[:/PATH]...",
    "tell how much space files and directories take",
    "For every directory the space that it and everything below it takes, in units of 1024 bytes. Contents take "
    "whole blocks; files of more than six blocks take further blocks that say where their blocks are.",
    "orba du card.orb\n"
    "orba du -sh 'card.orb:/*'",
    DefineUsage,
};

}  // namespace orba::tool

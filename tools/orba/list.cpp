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
};

bool IsNewer(const OrbTime& a, const OrbTime& b) {
  return SecondsOf(a).value_or(INT64_MIN) > SecondsOf(b).value_or(INT64_MIN);
}

// They come sorted by name.
void Sort(const ListOptions& options, std::vector<Item>* items) {
  const auto comesFirst = [&options](const Item& a, const Item& b) {
    if (options.byTime && (IsNewer(a.time, b.time) || IsNewer(b.time, a.time))) return IsNewer(a.time, b.time);
    return options.bySize && a.size > b.size;
  };
  std::stable_sort(items->begin(), items->end(), comesFirst);
  if (options.reverse) std::reverse(items->begin(), items->end());
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
    const Address pattern = ParseAddress(operand);
    std::vector<Match> matches = Expand(look_, pattern, "list");
    const bool several = matches.size() > 1 || options_.operands.size() > 1 || options_.recursive;
    const auto firstDirectory = std::stable_partition(
        matches.begin(), matches.end(), [this](const Match& m) { return options_.itself || !m.item.IsDirectory(); });
    std::vector<Item> files;
    for (auto match = matches.begin(); match != firstDirectory; ++match) {
      files.push_back(match->item);
      const bool whole = several || match->address.IsRoot();
      files.back().name = whole ? match->address.Text() : inspect::Printable(match->item.name);
    }
    Sort(options_, &files);
    if (!files.empty()) PrintItems(files);
    for (auto match = firstDirectory; match != matches.end(); ++match) {
      LookWalker walker(look_);
      ListDirectory(&walker, *match, several);
    }
  }

 private:
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
  return look.Finish(ForEach(options.operands, [&](const std::string& operand) { lister.ListOperand(operand); }));
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
};

class UsageCounter {
 public:
  UsageCounter(const UsageOptions& options, Look* look) : options_(options), look_(look), walker_(look) {}

  std::uint64_t Count(const Match& match, bool top) {
    std::uint64_t used = Own(match);
    if (match.item.IsDirectory()) {
      for (const Item& item : walker_.List(match)) used += Count({match.address.Child(item.name), item}, false);
    }
    const bool shown = top || (!options_.summary && (match.item.IsDirectory() || options_.all));
    if (shown) Print(Text(used) + "\t" + match.address.Text() + "\n");
    return used;
  }

 private:
  std::uint64_t Own(const Match& match) {
    const std::uint64_t blockSize = look_->BlockSize(match.address);
    if (options_.bytes) return match.item.IsDirectory() ? 0 : match.item.size;
    return BlocksTaken(match.item.size, blockSize) * blockSize;
  }

  std::string Text(std::uint64_t used) const {
    if (options_.human) return HumanSize(used);
    return std::to_string(options_.bytes ? used : (used + 1023) / 1024);
  }

  const UsageOptions& options_;
  Look* look_;
  LookWalker walker_;
};

int RunUsage(const UsageOptions& options) {
  Look look;
  return look.Finish(ForEach(options.operands, [&](const std::string& operand) {
    for (const Match& match : Expand(&look, ParseAddress(operand), "measure")) {
      UsageCounter(options, &look).Count(match, true);
    }
  }));
}

Run DefineUsage(Syntax* syntax) {
  auto options = std::make_shared<UsageOptions>();
  syntax->Flag("-a,--all", &options->all, "files too, not directories alone");
  syntax->Flag("-s,--summarize", &options->summary, "the operands alone");
  syntax->Flag("-b,--bytes", &options->bytes, "the files' sizes in bytes instead of the space they take");
  syntax->Flag("-h,--human", &options->human, "sizes such as 1.5K");
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

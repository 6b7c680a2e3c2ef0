#include "tools/orba/manual.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "base/name_symbols.h"
#include "inspect/container/names.h"
#include "tools/orba/command.h"
#include "tools/orba/terminal.h"

#ifndef ORBA_VERSION
#error "the build must define the version"
#endif

namespace orba::tool {

const char* const kVersion = ORBA_VERSION;

namespace {

constexpr const char* kPurpose =
    "makes, fills, lists, checks, repairs and draws containers: files that hold a whole file system each.";

struct Topic {
  const char* title;
  const char* text;
  bool inHelp;  // not in the manual page alone
};

constexpr Topic kTopics[] = {
    {"Addresses",
     "CONTAINER:/PATH is a place inside a container: CONTAINER is its file name on the host, /PATH the way from its "
     "root. CONTAINER alone is the root. No path inside a container holds a \":\", so the last \":/\" of an address "
     "is what separates; before it the host's name may hold any character (a:b.orb:/LOGS is /LOGS in a:b.orb). The "
     "wildcards * and ? stand for any characters and for one, in any name of the path; quote them from the shell. "
     "Commands that work on a container as a whole take its file name.",
     true},
    {"Names",
     "Names in a container have 1 to 29 characters out of A-Z 0-9 " ORBA_NAME_SYMBOLS " and are stored in upper case; "
     "letter case makes no difference. Times are UTC.",
     true},
    {"Exit status",
     "0 done, 1 something failed, 16 wrong usage. check and repair end as fsck does: 0 clean, 1 repaired, 4 damage "
     "is left, 8 could not work, 16 wrong usage. recover: 0 all copied, 4 all that can be read copied but there is "
     "damage, 1 something not copied. diff and verify: 0 nothing differs, 1 something does, 2 something could "
     "not be compared.",
     true},
    {"Safety",
     "While a command changes a container no other program can open it; those that only read share it. A container "
     "whose update was interrupted is refused by everything that changes what is inside until orba repair has seen to "
     "it; all else works without mounting. Nothing overwrites a file, on the host or in a container, unless --force is "
     "given. An interrupt (Ctrl-C) is obeyed between two steps, so that the container is left clean; a second one "
     "ends the program at once.\n\n"
     "What changes files, in a container or on the host, has everything on the disk once, before it ends with status "
     "0; a loss of power of this machine before that can leave files incomplete under their names. put and get take "
     "--sync=each against that.",
     false},
    {"Environment",
     "NO_COLOR, when set, turns colours off, and so does TERM=dumb. COLUMNS is the width of a line where the terminal "
     "does not tell. Colours, columns and progress appear on a terminal only. TMPDIR is where import, and put while "
     "the container is busy, keep what comes from standard input, /tmp if it is not set.",
     false},
    {"Completion",
     "orba --completion SHELL prints the completion script of bash, zsh or fish, which is installed with orba. Without "
     "an installation, bash takes it by: source <(orba --completion bash)",
     false},
};

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t end = std::min(text.find(separator, start), text.size());
    if (end > start) parts.push_back(text.substr(start, end - start));
    start = end + separator.size();
  }
  return parts;
}

// Words in lines that begin with `indent`; the first line begins with `first` instead.
std::string InLines(const std::string& text, const std::string& first, const std::string& indent) {
  return Wrapped(text, LineLength(Stream::kOutput), first, indent) + "\n";
}

// A name and what it means, side by side.
std::string Row(const std::string& name, const std::string& meaning, std::size_t column) {
  const std::string indent(column, ' ');
  const std::string label = "  " + name;
  if (label.size() + 2 > column) return label + "\n" + InLines(meaning, indent, indent);
  return InLines(meaning, label + std::string(column - label.size(), ' '), indent);
}

// "-b, --block-size BYTES"
std::string OptionLabel(const Option& option) {
  std::string label;
  for (const std::string& name : option.names) label += (label.empty() ? "" : ", ") + name;
  if (option.mayBeBare) return label + "[=" + option.value + "]";
  return option.value.empty() ? label : label + " " + option.value;
}

// ---- Help -----------------------------------------------------------------------------------------------------------

std::string Example(const std::string& line) {
  const std::size_t comment = line.find("  # ");
  if (comment == std::string::npos) return "  " + line + "\n";
  std::string code = "  " + line.substr(0, comment);
  if (code.size() < 40) code.resize(40, ' ');
  return code + "  # " + line.substr(comment + 4) + "\n";
}

// ---- The manual page ------------------------------------------------------------------------------------------------

// Text that troff takes as it is.
std::string Troff(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    if (c == '\\') {
      safe += "\\e";
    } else if (c == '-') {
      safe += "\\-";
    } else if (c == '^') {
      safe += "\\(ha";
    } else if (c == '~') {
      safe += "\\(ti";
    } else if (c == '\'') {
      safe += "\\(aq";
    } else {
      safe += c;
    }
  }
  return !safe.empty() && safe[0] == '.' ? "\\&" + safe : safe;
}

std::string TroffParagraphs(const std::string& text) {
  std::string paragraphs;
  for (const std::string& paragraph : Split(text, "\n\n")) {
    paragraphs += (paragraphs.empty() ? "" : ".PP\n") + Troff(paragraph) + "\n";
  }
  return paragraphs;
}

std::string ManualSection(const Command& command) {
  const Definition definition = Define(command);
  std::string page = std::string(".SS \"orba ") + command.name + " \\- " + Troff(command.summary) + "\"\n";
  page += std::string(".B orba ") + command.name + "\n[\\fIOPTION\\fR]... " + Troff(command.operands) + "\n.PP\n";
  page += TroffParagraphs(command.details);
  for (const Option& option : ShownOptions(definition.syntax)) {
    page += ".TP\n.B " + Troff(OptionLabel(option)) + "\n" + Troff(option.meaning) + "\n";
  }
  page += ".PP\nFor example:\n.PP\n.nf\n.RS\n";
  for (const std::string& line : Split(command.examples, "\n")) page += Troff(line) + "\n";
  return page + ".RE\n.fi\n";
}

}  // namespace

std::string ProgramHelp() {
  std::string help = InLines(std::string("orba ") + kPurpose, "", "") +
                     "\nUsage: orba COMMAND [OPTION]... OPERAND...\n"
                     "       orba COMMAND --help\n";
  std::string group;
  for (const Command* command : Commands()) {
    if (group != command->group) help += "\n" + (group = command->group) + ":\n";
    help += Row(command->name, command->summary, 12);
  }
  for (const Topic& topic : kTopics) {
    if (topic.inHelp) help += std::string("\n") + topic.title + ":\n" + InLines(topic.text, "  ", "  ");
  }
  return help;
}

std::string CommandHelp(const Command& command) {
  const Definition definition = Define(command);
  std::string help =
      InLines(std::string("orba ") + command.name + " - " + command.summary, "", "") + "\n" +
      InLines(std::string("orba ") + command.name + " [OPTION]... " + command.operands, "Usage: ", "           ");
  for (const std::string& paragraph : Split(command.details, "\n\n")) help += "\n" + InLines(paragraph, "", "");
  help += "\nOptions:\n";
  for (const Option& option : ShownOptions(definition.syntax)) help += Row(OptionLabel(option), option.meaning, 26);
  help += "\nExamples:\n";
  for (const std::string& line : Split(command.examples, "\n")) help += Example(line);
  return help;
}

std::string ManualPage() {
  std::string page = std::string(".TH ORBA 1 \"\" \"orba ") + kVersion + "\"\n.SH NAME\norba \\- " +
                     Troff("makes, fills, lists, checks, repairs and draws containers") +
                     "\n.SH SYNOPSIS\n.B orba\n\\fICOMMAND\\fR [\\fIOPTION\\fR]... \\fIOPERAND\\fR...\n"
                     ".SH DESCRIPTION\n.B orba\n" +
                     Troff(kPurpose) + "\n";
  for (const Topic& topic : kTopics) {
    page += ".SH \"" + inspect::UpperCase(topic.title) + "\"\n" + TroffParagraphs(topic.text);
  }
  std::string group;
  for (const Command* command : Commands()) {
    if (group != command->group) page += ".SH \"" + inspect::UpperCase(group = command->group) + "\"\n";
    page += ManualSection(*command);
  }
  return page + ".SH \"SEE ALSO\"\n.B mount.fuse.orba(8)\n";
}

}  // namespace orba::tool

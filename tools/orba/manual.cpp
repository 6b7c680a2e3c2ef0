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
     "While the tool works on a container no other program can open it. A container whose update was interrupted is "
     "refused by everything that changes what is inside until orba repair has seen to it; all else works without "
     "mounting. Nothing overwrites a file, on the host or in a container, unless --force is "
     "given. An interrupt (Ctrl-C) is obeyed between two steps, so that the container is left clean; a second one "
     "ends the program at once.\n\n"
     "What changes files, in a container or on the host, has everything on the disk once, before it ends with status "
     "0; "
     "a loss of power of this machine before that can leave files incomplete under their names. put and get take "
     "--sync=each against that.",
     false},
    {"Environment",
     "NO_COLOR, when set, turns colours off, and so does TERM=dumb. COLUMNS is the width of a line where the terminal "
     "does not tell. Colours, columns and progress appear on a terminal only. TMPDIR is where put keeps what "
     "comes from standard input while the container is busy, /tmp if it is not set.",
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

std::vector<Option> ShownOptions(const Syntax& syntax) {
  std::vector<Option> options;
  for (const Option& option : syntax.options()) {
    if (!option.meaning.empty()) options.push_back(option);
  }
  return options;
}

std::string AllOptionNames(const Syntax& syntax) {
  std::string names;
  for (const Option& option : ShownOptions(syntax)) {
    for (const std::string& name : option.names) names += (names.empty() ? "" : " ") + name;
  }
  return names;
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

// ---- The completion of the shell ------------------------------------------------------------------------------------

constexpr char kBashCompletion[] = R"-(# bash completion for orba
# Names from containers may look like commands to the shell; they are compared here, never expanded.

# Sets `plain` to what the shell would make of a word, but expands nothing but the home folder.
_orba_plain() {
  case $1 in
    \'*) plain=${1#\'} plain=${plain%\'} ;;
    \"*) plain=${1#\"} plain=${plain%\"} ;;
    \~/*) plain=$HOME/${1:2} plain=${plain//\\/} ;;
    *) plain=${1//\\/} ;;
  esac
}

# Completes a path inside a container; `prefix` goes before each answer.
_orba_inside() {
  local container=$1 path=${2^^} prefix=$3 kind rest name
  [[ -z $path ]] && path=/
  local folder=${path%/*}/
  COMPREPLY=()
  while read -r kind rest; do
    name=${rest##* }
    [[ $kind == d* ]] && name+=/
    [[ $folder$name == "$path"* ]] && COMPREPLY+=("$prefix$folder$name")
  done < <(orba ls -l -- "$container:$folder" 2>/dev/null)
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace
}

# Completes the name of a container, which a path may follow. Other files of the host are left to the shell.
_orba_container() {
  local files magic
  _orba_plain "$1"
  mapfile -t files < <(compgen -f -- "$plain")
  [[ ${#files[@]} -eq 1 && -f ${files[0]} ]] && { LC_ALL=C read -rN 4 magic <"${files[0]}"; } 2>/dev/null || return
  [[ $magic == ORBA ]] || return
  COMPREPLY=("${files[0]}")
  compopt -o nospace
}

_orba() {
  local word=${COMP_WORDS[COMP_CWORD]} last=${COMP_WORDS[COMP_CWORD - 1]}
  local commands="@commands@" command= options= words= plain= operands=0 i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    if [[ -n $command ]]; then
      [[ ${COMP_WORDS[i]} == -* ]] || ((++operands))
    elif [[ ${COMP_WORDS[i]} != -* ]]; then
      command=${COMP_WORDS[i]}
    fi
  done
  case "$command $last" in
@values@  esac
  if [[ -n $words ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$word"))
    return
  fi
  case $command in
    "") COMPREPLY=($(compgen -W "$commands @options@" -- "$word")) && return ;;
    help) COMPREPLY=($(compgen -W "$commands" -- "$word")) && return ;;
@cases@  esac
  if [[ $word == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$word"))
  elif [[ $words == +* && $word == +* || $words == [^+]* && $operands -eq 1 ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$word"))
  elif ((COMP_CWORD >= 3)) && [[ $word == : ]]; then
    _orba_plain "$last"
    _orba_inside "$plain" "" ""
  elif ((COMP_CWORD >= 4)) && [[ $last == : && $word == /* ]]; then
    _orba_plain "${COMP_WORDS[COMP_CWORD - 2]}"
    _orba_inside "$plain" "$word" ""
  elif [[ $word == *:/* ]]; then  # in quotes
    _orba_plain "$word"
    _orba_inside "${plain%:/*}" "/${plain##*:/}" "${plain%:/*}:"
  else
    _orba_container "$word"
  fi
}
complete -o default -o filenames -F _orba orba
)-";

using Blanks = std::vector<std::pair<const char*, std::string>>;

std::string Filled(std::string text, const Blanks& blanks) {
  for (const auto& [blank, filling] : blanks) text.replace(text.find(blank), std::strlen(blank), filling);
  return text;
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
      std::string("orba ") + command.name + " - " + command.summary + "\n\n" +
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
  return page;
}

std::string BashCompletion(const Syntax& program) {
  std::string names;
  std::string cases;
  std::string values;
  for (const Command* command : Commands()) {
    const Definition definition = Define(*command);
    const std::string name = command->name;
    const std::string words = command->words;
    names += (names.empty() ? "" : " ") + name;
    cases += "    " + name + ") options=\"" + AllOptionNames(definition.syntax) + "\"" +
             (words.empty() ? "" : " words=\"" + words + "\"") + " ;;\n";
    for (const Option& option : ShownOptions(definition.syntax)) {
      if (option.choices.empty()) continue;
      std::string patterns;
      for (const std::string& label : option.names) {
        patterns += (patterns.empty() ? "\"" : " | \"") + name + " " + label + "\"";
      }
      std::string choices;
      for (const std::string& choice : option.choices) choices += (choices.empty() ? "" : " ") + choice;
      values += "    " + patterns + ") words=\"" + choices + "\" ;;\n";
    }
  }
  return Filled(
      kBashCompletion,
      {{"@commands@", names}, {"@options@", AllOptionNames(program)}, {"@values@", values}, {"@cases@", cases}});
}

}  // namespace orba::tool

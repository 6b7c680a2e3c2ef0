#include "tools/orba/completion.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tools/orba/command.h"

namespace orba::tool {

namespace {

// ---- What the scripts say -------------------------------------------------------------------------------------------

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

constexpr char kZshCompletion[] = R"-(#compdef orba
# zsh completion for orba

# Completes a path inside the container before the last colon of the word.
_orba_inside() {
  local container=${(Q)PREFIX%:*} inside=${(QU)PREFIX##*:} kind rest name
  local folder=${inside%/*}/
  local -a files folders
  orba ls -l -- "${container/#\~\//$HOME/}:$folder" 2>/dev/null | while read -r kind rest; do
    name=${rest##* }
    if [[ $kind == d* ]]; then folders+=("$folder$name/"); else files+=("$folder$name"); fi
  done
  compset -P '*:'
  compadd -M 'm:{a-z}={A-Z}' -S '' -a folders
  compadd -M 'm:{a-z}={A-Z}' -a files
}

# Completes an operand: one of the words that begin with "+" among the arguments, a path inside a container, the name
# of a container, which a path may follow, or a file of the host.
_orba_operand() {
  local magic
  local -a found
  if [[ -n $1 && $PREFIX == +* ]]; then
    compadd -- ${=1}
    return
  fi
  if [[ $PREFIX == *:(|/*) ]]; then
    _orba_inside && return
  fi
  found=(${${(Q)PREFIX}/#\~\//$HOME/}*(N))
  if [[ $#found -eq 1 && -f $found[1] && -r $found[1] ]]; then
    LC_ALL=C read -r -u 0 -k 4 magic <$found[1]
    if [[ $magic == ORBA ]]; then
      _files -S ''
      return
    fi
  fi
  _files
}

_orba() {
  local curcontext=$curcontext state line
  typeset -A opt_args
  local -a commands=(
@commands@  )
  _arguments -C \
@options@    '1: :->command' \
    '*:: :->operands' && return
  if [[ $state == command ]]; then
    _describe -t commands command commands
    return
  fi
  case $words[1] in
    help) _describe -t commands command commands ;;
@cases@  esac
}

_orba "$@"
)-";

constexpr char kFishCompletion[] = R"-(# fish completion for orba

# Whether the command of the line is the argument or, without one, whether there is no command yet.
function __orba_command
    set -l words (commandline -opc)
    for word in $words[2..-1]
        if not string match -q -- '-*' $word
            test "$word" = "$argv"
            return
        end
    end
    test -z "$argv"
end

# How many operands stand before the cursor.
function __orba_operands
    count (string match -v -- '-*' (commandline -opc)[3..-1])
end

# The word at the cursor as the shell would read it.
function __orba_word
    string unescape -- (commandline -ct)
end

function __orba_host_name
    string replace -r -- '^~/' "$HOME/" $argv
end

function __orba_is_inside
    string match -q -- '*:/*' (__orba_word)
end

# The paths inside the container before the last ":/" of the word.
function __orba_inside
    set -l parts (string match -r -- '^(.*):(/.*)$' (__orba_word))
    or return
    set -l folder (string match -r -- '.*/' (string upper -- $parts[3]))
    orba ls -l -- (__orba_host_name $parts[2]):$folder 2>/dev/null | while read -l line
        set -l name (string match -r -- '\S+$' $line)
        string match -q -- 'd*' $line
        and set name $name/
        echo "$parts[2]:$folder$name"
    end
end

# The root of the only container that the word can mean.
function __orba_root
    set -l begin (__orba_host_name (__orba_word))
    set -l files $begin*
    test (count $files) -eq 1 -a -f "$files[1]" -a -r "$files[1]"
    or return
    read -l -n 4 magic <$files[1]
    test "$magic" = ORBA
    and echo (__orba_word)(string sub -s (math (string length -- $begin) + 1) -- $files[1]):/
end

complete -c orba -n __orba_is_inside -f
complete -c orba -n 'not __orba_command; and __orba_is_inside' -a '(__orba_inside)'
complete -c orba -n 'not __orba_command; and not __orba_is_inside' -a '(__orba_root)'
@lines@)-";

// ---- Filling them in ------------------------------------------------------------------------------------------------

using Blanks = std::vector<std::pair<const char*, std::string>>;

std::string Filled(std::string text, const Blanks& blanks) {
  for (const auto& [blank, filling] : blanks) text.replace(text.find(blank), std::strlen(blank), filling);
  return text;
}

std::string Joined(const std::vector<std::string>& words, const char* separator = " ") {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

// The text with `escape` in front of each of `characters`.
std::string Escaped(const std::string& text, const char* characters, const char* escape = "\\") {
  std::string safe;
  for (const char c : text) safe += std::string(std::strchr(characters, c) == nullptr ? "" : escape) + c;
  return safe;
}

std::vector<std::string> CommandNames() {
  std::vector<std::string> names;
  for (const Command* command : Commands()) names.emplace_back(command->name);
  return names;
}

std::string AllOptionNames(const Syntax& syntax) {
  std::vector<std::string> names;
  for (const Option& option : ShownOptions(syntax)) names.insert(names.end(), option.names.begin(), option.names.end());
  return Joined(names);
}

// What a value is that is none of few: a file of the host, an operand (a date or a file, of the host or in a
// container), or something that nobody can complete.
bool IsFile(const Option& option) { return option.value == "FILE" || option.value == "OLD"; }
bool IsOperand(const Option& option) { return option.value == "WHEN"; }

std::string BashCompletion(const Syntax& program) {
  std::string cases;
  std::string values;
  for (const Command* command : Commands()) {
    const Definition definition = Define(*command);
    const std::string name = command->name;
    const std::string words = command->words;
    cases += "    " + name + ") options=\"" + AllOptionNames(definition.syntax) + "\"" +
             (words.empty() ? "" : " words=\"" + words + "\"") + " ;;\n";
    for (const Option& option : ShownOptions(definition.syntax)) {
      if (option.choices.empty()) continue;
      std::vector<std::string> patterns;
      for (const std::string& label : option.names) patterns.push_back("\"" + name + " " + label + "\"");
      values += "    " + Joined(patterns, " | ") + ") words=\"" + Joined(option.choices) + "\" ;;\n";
    }
  }
  return Filled(kBashCompletion, {{"@commands@", Joined(CommandNames())},
                                  {"@options@", AllOptionNames(program)},
                                  {"@values@", values},
                                  {"@cases@", cases}});
}

// ---- zsh

std::string ZshQuoted(const std::string& text) { return "'" + Escaped(text, "'", "'\\'") + "'"; }

// The names of an option, and of those that exclude it.
std::string ZshExcluded(const Syntax& syntax, const Option& option) {
  std::vector<std::string> names = option.names;
  for (const auto& [one, other] : syntax.excluded()) {
    for (const Option& candidate : syntax.options()) {
      const std::string& last = candidate.names.back();
      if ((option.names.back() == one && last == other) || (option.names.back() == other && last == one)) {
        names.insert(names.end(), candidate.names.begin(), candidate.names.end());
      }
    }
  }
  return Joined(names);
}

// ":BYTES:(1024 2048)"; nothing for a flag.
std::string ZshValue(const Option& option) {
  if (option.value.empty()) return "";
  std::string action = " ";
  if (IsFile(option)) action = "_files";
  if (IsOperand(option)) action = " _orba_operand";
  if (!option.choices.empty()) action = "(" + Joined(option.choices) + ")";
  return (option.mayBeBare ? "::" : ":") + option.value + ":" + action;
}

// How a value stands behind the name.
const char* ZshSeparator(const Option& option, const std::string& name) {
  if (option.value.empty()) return "";
  if (name.size() == 2) return "+";
  return option.mayBeBare ? "=-" : "=";
}

// A line for each name, as _arguments takes them.
std::string ZshOptions(const Syntax& syntax, const std::string& indent) {
  std::string lines;
  for (const Option& option : ShownOptions(syntax)) {
    const std::string excluded = "(" + ZshExcluded(syntax, option) + ")";
    const std::string rest = "[" + Escaped(option.meaning, "\\[]") + "]" + ZshValue(option);
    for (const std::string& name : option.names) {
      lines += indent + ZshQuoted(excluded + name + ZshSeparator(option, name) + rest) + " \\\n";
    }
  }
  return lines;
}

std::string ZshOperands(const Command& command) {
  const std::string words = command.words;
  if (words.empty()) return "'*: : _orba_operand'";
  if (words[0] == '+') return "'*: : _orba_operand \"" + words + "\"'";
  return "'1: : _orba_operand' '2: :(" + words + ")' '*: : '";
}

std::string ZshCompletion(const Syntax& program) {
  std::string commands;
  std::string cases;
  for (const Command* command : Commands()) {
    commands += "    " + ZshQuoted(std::string(command->name) + ":" + command->summary) + "\n";
    cases += std::string("    ") + command->name + ")\n      _arguments -s -S \\\n" +
             ZshOptions(Define(*command).syntax, "        ") + "        " + ZshOperands(*command) + "\n      ;;\n";
  }
  return Filled(kZshCompletion,
                {{"@commands@", commands}, {"@options@", ZshOptions(program, "    ")}, {"@cases@", cases}});
}

// ---- fish

std::string FishQuoted(const std::string& text) { return "'" + Escaped(text, "\\'") + "'"; }

std::string FishOptions(const Syntax& syntax, const std::string& condition) {
  std::string lines;
  for (const Option& option : ShownOptions(syntax)) {
    lines += "complete -c orba -n " + condition;
    for (const std::string& name : option.names) {
      lines += name.size() == 2 ? std::string(" -s ") + name[1] : " -l " + name.substr(2);
    }
    if (!option.value.empty() && !option.mayBeBare) {
      lines += IsFile(option) || IsOperand(option) ? " -r" : " -x";
      if (!option.choices.empty()) lines += " -a " + FishQuoted(Joined(option.choices));
    }
    lines += " -d " + FishQuoted(option.meaning) + "\n";
  }
  return lines;
}

std::string FishCompletion(const Syntax& program) {
  std::string lines = FishOptions(program, "__orba_command");
  for (const Command* command : Commands()) {
    const std::string name = command->name;
    lines += "complete -c orba -n __orba_command -f -a " + name + " -d " + FishQuoted(command->summary) + "\n";
    lines += "complete -c orba -n '__orba_command help' -f -a " + name + " -d " + FishQuoted(command->summary) + "\n";
    lines += FishOptions(Define(*command).syntax, FishQuoted("__orba_command " + name));
    const std::string words = command->words;
    if (words.empty()) continue;
    const char* const condition =
        words[0] == '+' ? "string match -q -- \"+*\" (__orba_word)" : "test (__orba_operands) -eq 1";
    lines += "complete -c orba -n " + FishQuoted("__orba_command " + name + "; and " + condition) + " -f -a " +
             FishQuoted(words) + "\n";
  }
  return Filled(kFishCompletion, {{"@lines@", lines}});
}

}  // namespace

const std::vector<std::string>& CompletedShells() {
  static const std::vector<std::string> shells = {"bash", "zsh", "fish"};
  return shells;
}

std::string Completion(const std::string& shell, const Syntax& program) {
  if (shell == "zsh") return ZshCompletion(program);
  if (shell == "fish") return FishCompletion(program);
  return BashCompletion(program);
}

}  // namespace orba::tool

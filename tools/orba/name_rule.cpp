#include "tools/orba/name_rule.h"

#include <algorithm>

#include "base/name_symbols.h"
#include "inspect/container/names.h"
#include "orba.h"
#include "tools/orba/failure.h"

namespace orba::tool {

const char* const kNameRule =
    "names have 1 to 29 characters out of A-Z 0-9 " ORBA_NAME_SYMBOLS " without regard to case";

namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The character that begins at `at`: a character of the host's text may take several bytes.
std::string CharacterAt(const std::string& name, std::size_t at) {
  std::size_t end = at + 1;
  while (end < name.size() && IsContinuation(name[end])) ++end;
  return name.substr(at, end - at);
}

std::size_t CharacterCount(const std::string& name) {
  return static_cast<std::size_t>(std::count_if(name.begin(), name.end(), [](char c) { return !IsContinuation(c); }));
}

// Stem and ending, cut so that both fit; an ending longer than eight characters is part of the stem.
std::string Join(std::string stem, std::string ending, const std::string& number) {
  constexpr std::size_t kMaxEnding = 9;  // with its dot
  if (ending.size() > kMaxEnding) {
    stem += ending;
    ending.clear();
  }
  const std::size_t room = ORB_MAX_NAME - ending.size() - number.size();
  return stem.substr(0, room) + number + ending;
}

}  // namespace

std::string NameProblem(const std::string& name) {
  if (inspect::IsLegalName(name)) return "";
  if (name.empty()) return "it is empty";
  if (name == "." || name == "..") return "\"" + name + "\" stands for a directory";
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (inspect::IsNameCharacter(name[i])) continue;
    if (static_cast<unsigned char>(name[i]) < ' ' || name[i] == '\x7f') return "it holds a control character";
    return "it holds \"" + CharacterAt(name, i) + "\"";
  }
  return "it has " + std::to_string(CharacterCount(name)) + " characters";
}

void RequireLegal(const Address& address) {
  for (const std::string& name : address.names) {
    const std::string problem = NameProblem(name);
    if (problem.empty()) continue;
    throw Failure("cannot use the name in " + address.Text(), problem + " (" + CodeText(ORB_ERROR_INVALID_NAME) + ")",
                  kNameRule, ORB_ERROR_INVALID_NAME);
  }
}

std::string LegalName(const std::string& name, const std::set<std::string>& taken) {
  std::string plain;
  for (const char c : name) {
    if (!IsContinuation(c)) plain += inspect::IsNameCharacter(c) ? c : '_';
  }
  plain = inspect::UpperCase(plain);
  if (plain.empty() || plain == "." || plain == "..") plain = "_";
  const std::size_t dot = plain.rfind('.');
  const std::string stem = dot == std::string::npos || dot == 0 ? plain : plain.substr(0, dot);
  const std::string ending = dot == std::string::npos || dot == 0 ? "" : plain.substr(dot);
  std::string legal = Join(stem, ending, "");
  for (unsigned number = 1; taken.count(legal) != 0; ++number) legal = Join(stem, ending, "~" + std::to_string(number));
  return legal;
}

std::vector<std::string> StoredNames(const std::vector<std::string>& names, bool rename) {
  std::vector<std::string> stored(names.size());
  std::set<std::string> taken;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string name = inspect::UpperCase(names[i]);
    if (NameProblem(name).empty() && taken.insert(name).second) stored[i] = name;
  }
  for (std::size_t i = 0; rename && i < names.size(); ++i) {
    if (!stored[i].empty()) continue;
    stored[i] = LegalName(names[i], taken);
    taken.insert(stored[i]);
  }
  return stored;
}

}  // namespace orba::tool

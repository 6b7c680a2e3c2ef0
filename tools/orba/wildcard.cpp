#include "tools/orba/wildcard.h"

#include <algorithm>

#include "inspect/container/names.h"
#include "tools/orba/address.h"
#include "tools/orba/host_file.h"
#include "tools/orba/utf8.h"

namespace orba::tool {

bool HasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

namespace {

std::size_t BehindCharacter(const std::string& text, std::size_t at) {
  std::size_t end = at;
  const std::uint32_t character = NextCharacter(text, &end);
  return character == kNoCharacter ? at + 1 : end;
}

}  // namespace

// On a mismatch the last star takes in one character more and the rest is tried again.
bool Matches(const std::string& anyName, const std::string& anyPattern) {
  const std::string name = inspect::UpperCase(anyName);
  const std::string pattern = inspect::UpperCase(anyPattern);
  std::size_t n = 0;
  std::size_t p = 0;
  std::size_t star = std::string::npos;
  std::size_t starName = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      starName = n;
    } else if (p < pattern.size() && pattern[p] == '?') {
      ++p;
      n = BehindCharacter(name, n);
    } else if (p < pattern.size() && pattern[p] == name[n]) {
      ++p;
      ++n;
    } else if (star != std::string::npos) {
      p = star + 1;
      n = ++starName;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

namespace {

// What matches the names of a path from `at` on, below a directory that is there.
void AddMatching(const std::string& directory, const std::string& path, std::size_t at,
                 std::vector<std::string>* matches) {
  std::size_t end = at;
  while (end < path.size() && !host::IsSeparator(path[end])) ++end;
  std::size_t next = end;
  while (next < path.size() && host::IsSeparator(path[next])) ++next;
  const std::string pattern = path.substr(at, end - at);
  std::vector<std::string> names = {pattern};
  if (HasWildcard(pattern)) {
    names.clear();
    host::ListDirectory(directory.empty() ? "." : directory, &names);
    std::sort(names.begin(), names.end());
  }
  for (const std::string& name : names) {
    if (HasWildcard(pattern) && (!Matches(name, pattern) || (name[0] == '.' && pattern[0] != '.'))) continue;
    const std::string found = directory + name;
    const bool last = next == path.size();
    if (last ? HostFileExists(found) : IsHostDirectory(found)) {
      if (last) matches->push_back(found + path.substr(end));
      if (!last) AddMatching(found + path.substr(end, next - end), path, next, matches);
    }
  }
}

}  // namespace

std::vector<std::string> Expanded(const std::vector<host::Argument>& arguments) {
  std::vector<std::string> expanded;
  for (const host::Argument& argument : arguments) {
    const std::string& text = argument.text;
    const std::size_t root = host::RootLength(text);
    std::vector<std::string> matches;
    const bool option = !text.empty() && text[0] == '-';
    if (argument.expandable && !option && HasWildcard(text.substr(root)) &&
        FindSeparatingColon(text) == std::string::npos) {
      AddMatching(text.substr(0, root), text, root, &matches);
    }
    if (matches.empty()) matches.push_back(text);
    expanded.insert(expanded.end(), matches.begin(), matches.end());
  }
  return expanded;
}

}  // namespace orba::tool

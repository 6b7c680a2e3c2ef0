#include "tools/orba/wildcard.h"

#include "inspect/container/names.h"

namespace orba::tool {

bool HasWildcard(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

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
    } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
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

}  // namespace orba::tool

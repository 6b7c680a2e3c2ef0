#include "tools/orba/walk.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "inspect/container/names.h"
#include "tools/orba/wildcard.h"

namespace orba::tool {

namespace {

void ExpandBelow(Places* places, const Address& directory, const Address& pattern, std::size_t depth,
                 std::vector<Match>* matches) {
  const bool last = depth + 1 == pattern.names.size();
  std::vector<Item> items;
  if (HasWildcard(pattern.names[depth])) {
    for (Item& item : places->List(directory)) {
      if (Matches(item.name, pattern.names[depth])) items.push_back(std::move(item));
    }
  } else if (const std::optional<Item> item = places->Find(directory.Child(pattern.names[depth]))) {
    items.push_back(*item);
  }
  for (const Item& item : items) {
    const Address address = directory.Child(item.name);
    if (last && (item.IsDirectory() || !pattern.asDirectory)) matches->push_back({address, item});
    if (!last && item.IsDirectory()) ExpandBelow(places, address, pattern, depth + 1, matches);
  }
}

}  // namespace

std::string Shortened(const Address& address) {
  constexpr std::size_t kLongest = 60;
  const std::string path = inspect::Printable(address.Path());
  if (path.size() <= kLongest) return address.Text();
  return ShellWord(address.container) + ":..." + path.substr(path.size() - kLongest);
}

std::vector<Match> Expand(Session* session, const Address& pattern, const char* action) {
  MountedPlaces places(session);
  return Expand(&places, pattern, action);
}

std::vector<Match> Expand(Places* places, const Address& pattern, const char* action) {
  std::vector<Match> matches;
  const bool wild = std::any_of(pattern.names.begin(), pattern.names.end(), HasWildcard);
  if (!wild) return {{pattern, GetItem(places, pattern, action)}};
  Address root = pattern;
  root.names.clear();
  ExpandBelow(places, root, pattern, 0, &matches);
  if (matches.empty()) {
    throw LibraryFailure(std::string("cannot ") + action + " " + pattern.Text(), pattern.container,
                         ORB_ERROR_NO_MORE_ENTRIES);
  }
  return matches;
}

std::vector<Item> Walker::List(const Address& directory) {
  const std::string what = "cannot list " + Shortened(directory);
  if (directory.names.size() > kDeepest) {
    throw Failure(what, "it lies more than " + std::to_string(kDeepest) + " directories deep",
                  "begin with a directory further down");
  }
  if (listed_++ >= session_->NodeLimit(directory)) {
    throw LibraryFailure(what + ": directories contain each other", directory.container, ORB_ERROR_DAMAGED_RECORD);
  }
  return ListItems(session_, directory);
}

}  // namespace orba::tool

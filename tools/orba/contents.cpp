#include "tools/orba/contents.h"

namespace orba::tool {

namespace {

void AddBelow(LookWalker* walker, const Content& directory, std::vector<Content>* contents) {
  for (const Item& item : walker->List(directory.match)) {
    if (!item.named) continue;  // the walker has told of it
    const std::string name = directory.name.empty() ? item.name : directory.name + "/" + item.name;
    contents->push_back({name, {directory.match.address.Child(item.name), item}});
    if (item.IsDirectory()) {
      const Content child = contents->back();
      AddBelow(walker, child, contents);
    }
  }
}

}  // namespace

std::vector<Content> ContentsOf(Look* look, const Match& place) {
  if (!place.item.IsDirectory()) return {{place.item.name, place}};
  std::vector<Content> contents;
  LookWalker walker(look);
  AddBelow(&walker, {"", place}, &contents);
  look->BeginWalk();
  return contents;
}

}  // namespace orba::tool

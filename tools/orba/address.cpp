#include "tools/orba/address.h"

#include <algorithm>

#include "inspect/container/names.h"
#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"

namespace orba::tool {

namespace {

std::string RequireContainer(const std::string& container, const std::string& text) {
  if (!container.empty()) return container;
  throw Failure("\"" + text + "\" has no container", "", "write CONTAINER:/PATH, such as card.orb:/LOGS/DAY1.TXT");
}

bool IsFile(const std::string& path) { return host::StatusOf(path).kind == host::Kind::kFile; }

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void AddNames(Address* address, const std::string& path) {
  std::size_t start = 0;
  while (start <= path.size()) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string name = inspect::UpperCase(path.substr(start, end - start));
    start = end + 1;
    if (name.empty() || name == ".") continue;
    if (name != "..") {
      address->names.push_back(name);
    } else if (!address->names.empty()) {
      address->names.pop_back();
    }
  }
}

}  // namespace

Address Address::Parent() const {
  Address parent = *this;
  parent.names.pop_back();
  parent.asDirectory = true;
  parent.standsFor.clear();
  return parent;
}

Address Address::Child(const std::string& name) const {
  Address child = *this;
  child.names.push_back(name);
  child.asDirectory = false;
  child.standsFor.clear();
  return child;
}

bool Address::Holds(const Address& other) const {
  return container == other.container && names.size() <= other.names.size() &&
         std::equal(names.begin(), names.end(), other.names.begin());
}

std::string Address::Path() const {
  std::string path;
  for (const std::string& name : names) path += "/" + name;
  return path.empty() ? "/" : path;
}

std::string Address::Text() const {
  if (!standsFor.empty()) return standsFor;
  std::string text = container + ":";
  for (const std::string& name : names) text += "/" + inspect::Printable(name);
  return ShellWord(names.empty() ? text + "/" : text);
}

std::size_t FindSeparatingColon(const std::string& text) {
  const std::size_t colon = text.rfind(":/");
  return colon != std::string::npos && colon >= host::DriveLength(text) ? colon : std::string::npos;
}

Address ParseAddress(const std::string& text) {
  Address address;
  address.written = text;
  const std::size_t colon = FindSeparatingColon(text);
  if (colon == std::string::npos) {
    address.container = ParseContainer(text);
    address.asDirectory = true;
    return address;
  }
  address.container = RequireContainer(text.substr(0, colon), text);
  AddNames(&address, text.substr(colon + 1));
  address.asDirectory = EndsWith(text, "/") || EndsWith(text, "/.") || EndsWith(text, "/..");
  return address;
}

std::string ParseContainer(const std::string& text) {
  for (const std::string end : {":/", ":"}) {
    const bool drive = text.size() < host::DriveLength(text) + end.size();
    if (!drive && EndsWith(text, end)) return RequireContainer(text.substr(0, text.size() - end.size()), text);
  }
  const std::size_t colon = FindSeparatingColon(text);
  if (colon != std::string::npos && IsFile(text.substr(0, colon)) && !IsFile(text)) {
    throw Failure("cannot take " + ShellWord(text),
                  "it is a place inside a container, and this command works on whole ones",
                  "name the container alone: " + ShellWord(text.substr(0, colon)));
  }
  return RequireContainer(text, text);
}

}  // namespace orba::tool

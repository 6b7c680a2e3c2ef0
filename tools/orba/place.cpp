#include "tools/orba/place.h"

#include <algorithm>

#include "tools/orba/interrupt.h"

namespace orba::tool {

namespace {

bool IsMissing(OrbU32 code) {
  return code == ORB_ERROR_FILE_NOT_FOUND || code == ORB_ERROR_PATH_NOT_FOUND || code == ORB_ERROR_NO_MORE_ENTRIES;
}

Item ItemOf(const OrbFindDataA& found) { return {found.name, found.attributes, found.size, found.time}; }

// One search, closed in any case: a directory can be searched once at a time.
class Search {
 public:
  Search(const std::string& pattern, OrbFindDataA* found) : handle_(OrbFindFirstFileA(pattern.c_str(), found)) {}
  ~Search() {
    if (IsOpen()) OrbFindClose(handle_);
  }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  bool IsOpen() const { return handle_ != ORB_INVALID_HANDLE; }
  bool Next(OrbFindDataA* found) { return OrbFindNextFileA(handle_, found) != 0; }

 private:
  OrbHandle handle_;
};

}  // namespace

std::optional<Item> FindItem(Session* session, const Address& address) {
  OrbFindDataA found;
  const Search search(session->PathOf(address), &found);  // a root is listed, and "." comes first
  if (search.IsOpen()) return ItemOf(found);
  if (IsMissing(OrbGetLastError())) return std::nullopt;
  throw LibraryFailure("cannot read " + address.Text(), address.container);
}

Item GetItem(Session* session, const Address& address, const char* action) {
  MountedPlaces places(session);
  return GetItem(&places, address, action);
}

Item GetItem(Places* places, const Address& address, const char* action) {
  const std::optional<Item> item = places->Find(address);
  if (!item.has_value()) {
    throw LibraryFailure(std::string("cannot ") + action + " " + address.Text(), address.container,
                         ORB_ERROR_FILE_NOT_FOUND);
  }
  if (address.asDirectory && !item->IsDirectory()) {
    throw LibraryFailure(std::string("cannot ") + action + " " + address.Text() + "/", address.container,
                         ORB_ERROR_NOT_A_DIRECTORY);
  }
  return *item;
}

std::vector<Item> ListItems(Session* session, const Address& directory) {
  CheckInterrupt();
  std::vector<Item> items;
  OrbFindDataA found;
  const std::string path = session->PathOf(directory);
  Search search(directory.IsRoot() ? path : path + "/", &found);
  if (search.IsOpen()) {
    do {
      if (std::string(found.name) != "." && std::string(found.name) != "..") items.push_back(ItemOf(found));
    } while (search.Next(&found));
  }
  if (OrbGetLastError() != ORB_ERROR_NO_MORE_ENTRIES) {
    throw LibraryFailure("cannot list " + directory.Text(), directory.container);
  }
  std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) { return a.name < b.name; });
  return items;
}

void CreateFile(Session* session, const Address& address) {
  Require(OrbCreateFileA(session->PathOf(address).c_str(), 0), "create", address);
}

void CreateDirectory(Session* session, const Address& address) {
  Require(OrbCreateDirectoryA(session->PathOf(address).c_str()), "make the directory", address);
}

void Delete(Session* session, const Address& address) {
  Require(OrbDeleteFileA(session->PathOf(address).c_str()), "remove", address);
}

void Rename(Session* session, const Address& address, const std::string& newName) {
  Require(OrbRenameFileA(session->PathOf(address).c_str(), newName.c_str()), "rename", address);
}

void SetAttributes(Session* session, const Address& address, OrbU32 attributes) {
  Require(OrbSetFileAttributesA(session->PathOf(address).c_str(), static_cast<OrbI32>(attributes)),
          "set the attributes of", address);
}

Failure ReadOnlyFailure(const std::string& what, const Address& address, const std::string& which) {
  return Failure(what, which + " is read-only (" + CodeText(ORB_ERROR_ACCESS_DENIED) + ")",
                 "clear the attribute with: orba attrib -r " + ShellWord(address.Text()), ORB_ERROR_ACCESS_DENIED);
}

}  // namespace orba::tool

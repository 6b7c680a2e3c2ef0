// Places inside mounted containers: what stands there, and changing that, in the library's calls. Everything here throws
// a Failure that has the address where the library refuses. Stands on session.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/failure.h"
#include "tools/orba/session.h"

namespace orba::tool {

// A file or directory as its directory lists it.
struct Item {
  std::string name;  // of a root "."
  OrbU32 attributes = 0;
  OrbU32 size = 0;
  OrbTime time = {};

  bool IsDirectory() const { return (attributes & ORB_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsReadOnly() const { return (attributes & ORB_ATTRIBUTE_READ_ONLY) != 0; }
};

// What stands at the address; nothing where the name, or a directory on the way, is missing.
std::optional<Item> FindItem(Session* session, const Address& address);
// The same, but what is missing is a failure: "cannot ACTION card.orb:/A.TXT".
Item GetItem(Session* session, const Address& address, const char* action);

// What a directory holds, "." and ".." left out, sorted by name.
std::vector<Item> ListItems(Session* session, const Address& directory);

void CreateFile(Session* session, const Address& address);
void CreateDirectory(Session* session, const Address& address);
void Delete(Session* session, const Address& address);
void Rename(Session* session, const Address& address, const std::string& newName);
void SetAttributes(Session* session, const Address& address, OrbU32 attributes);

// A file that is read-only is in the way: "WHAT: WHICH is read-only (...)".
Failure ReadOnlyFailure(const std::string& what, const Address& address, const std::string& which);

}  // namespace orba::tool

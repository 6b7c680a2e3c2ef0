// Places inside mounted containers: what stands there, and changing that, in the library's calls. Everything here
// throws a Failure that has the address where the library refuses. Stands on session.
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
  OrbU32 node = 0;    // its number, where the container is not mounted
  bool named = true;  // a path leads to it: its name is legal and no earlier one is equal

  bool IsDirectory() const { return (attributes & ORB_ATTRIBUTE_DIRECTORY) != 0; }
  bool IsReadOnly() const { return (attributes & ORB_ATTRIBUTE_READ_ONLY) != 0; }
};

// Where places are looked up: mounted containers, or such as are looked into without mounting them.
class Places {
 public:
  virtual ~Places() = default;

  // What stands at the address; nothing where the name, or a directory on the way, is missing.
  virtual std::optional<Item> Find(const Address& address) = 0;
  // What a directory holds, "." and ".." left out, sorted by name.
  virtual std::vector<Item> List(const Address& directory) = 0;
};

// What stands at the address; what is missing is a failure: "cannot ACTION card.orb:/A.TXT".
Item GetItem(Places* places, const Address& address, const char* action);

// What stands at the address; nothing where the name, or a directory on the way, is missing.
std::optional<Item> FindItem(Session* session, const Address& address);
Item GetItem(Session* session, const Address& address, const char* action);

std::vector<Item> ListItems(Session* session, const Address& directory);

class MountedPlaces : public Places {
 public:
  explicit MountedPlaces(Session* session) : session_(session) {}
  std::optional<Item> Find(const Address& address) override { return FindItem(session_, address); }
  std::vector<Item> List(const Address& directory) override { return ListItems(session_, directory); }

 private:
  Session* session_;
};

void CreateFile(Session* session, const Address& address);
void CreateDirectory(Session* session, const Address& address);
void Delete(Session* session, const Address& address);
void Rename(Session* session, const Address& address, const std::string& newName);
void SetAttributes(Session* session, const Address& address, OrbU32 attributes);

// A file that is read-only is in the way: "WHAT: WHICH is read-only (...)".
Failure ReadOnlyFailure(const std::string& what, const Address& address, const std::string& which);

}  // namespace orba::tool

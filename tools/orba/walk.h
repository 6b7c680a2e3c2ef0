// Ways through mounted containers: wildcards, and whole trees. Stands on place.
#pragma once

#include <cstddef>
#include <vector>

#include "tools/orba/place.h"

namespace orba::tool {

struct Match {
  Address address;
  Item item;
};

// The places that an address with wildcards, in any of its names, stands for, sorted. One without stands for itself.
// Throws when there is none.
std::vector<Match> Expand(Places* places, const Address& pattern, const char* action);
std::vector<Match> Expand(Session* session, const Address& pattern, const char* action);

// The address with the end alone of a long path, for a message.
std::string Shortened(const Address& address);

// Lists directory after directory of one walk and notices when they contain each other: then there would be no end.
class Walker {
 public:
  // Walks go no deeper. Beyond 62 levels not even the library can tell a full path.
  static constexpr std::size_t kDeepest = 512;

  explicit Walker(Session* session) : session_(session) {}
  std::vector<Item> List(const Address& directory);

 private:
  Session* session_;
  OrbU32 listed_ = 0;
};

}  // namespace orba::tool

// Files on their way into mounted containers: each has a temporary name until it is complete. What interrupted runs
// have left is removed on the way. Stands on place, temporary, volume_file and terminal.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/orba/place.h"
#include "tools/orba/session.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

// Gives the next bytes of a file, fewer than `count` at its end alone.
using Source = std::function<std::size_t(void* buffer, std::size_t count)>;

// Every member throws a Failure where the library refuses; what was begun is then gone again.
class Incoming {
 public:
  Incoming(Session* session, Progress* progress) : session_(session), progress_(progress) {}

  // One that this made before is fine.
  void MakeDirectory(const Address& target);

  // Writes a file and gives it its attributes. With `replaces`, it takes the place of the file that is there.
  void WriteFile(const Address& target, bool replaces, OrbU32 attributes, const Source& source);

 private:
  void CopyIn(const Source& source, const Address& target);
  const std::string& TemporaryIn(const Address& directory, const std::string& path);

  Session* session_;
  Progress* progress_;
  std::vector<char> piece_;                       // of the file that is being written
  std::set<std::string> made_;                    // directories, as the session has their paths
  std::map<std::string, std::string> temporary_;  // names by directory
};

}  // namespace orba::tool

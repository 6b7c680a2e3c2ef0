// Recovery: copies everything readable out of a damaged container and touches nothing in it. It copies what repair
// would leave, as a reader finds it there: names and directories as far as they survive, nodes without a name under
// LOST.FND. It keeps the promise of repair also where a repair could not: a file that it would cost is copied as it can
// be read now, into LOST.FND. Knows no host: where copies go, a Destination says. Stands on repair and the reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "inspect/container/image.h"
#include "volume/layout.h"

namespace orba::inspect {

struct Recovered {
  bool possible = false;          // false: the container's layout cannot be made out; nothing was copied
  std::uint32_t files = 0;        // copied, and whole as far as the container can tell
  std::uint32_t directories = 0;  // made, the root not counted
  std::uint64_t bytes = 0;
  std::vector<std::string> repairs;  // what had to be set right first; the copies are as if it had been
  std::vector<std::string> renamed;  // "/AUX -> _AUX": names that hosts do not take
  // "/A/B: what failed": what the destination did not take, or what cannot be read, or not whole.
  std::vector<std::string> failures;
  std::uint64_t unreadable = 0;  // sectors of 512 bytes that the host could not read; the copies have zeros there
};

// Where copies go. Paths begin with the directory that Recover was given; their names lie behind a "/" each. Each call
// answers with an empty text, or with what went wrong.
class Destination {
 public:
  // Hands the contents of a file to `take`, piece by piece, until `take` returns false. False when they are not whole.
  using Contents = std::function<bool(const std::function<bool(const std::uint8_t*, std::size_t)>& take)>;

  virtual ~Destination() = default;

  // One that is there is fine.
  virtual std::string MakeDirectory(const std::string& path) = 0;
  virtual std::string WriteFile(const std::string& path, const TimeStamp& time, const Contents& contents) = 0;
};

// Copies into `directory` of the destination, directories before what they hold. `step`, where given, is called with
// each path before it is copied.
Recovered Recover(const Image& image, const std::string& directory, Destination* destination,
                  const std::function<void(const std::string&)>& step = nullptr);

// A name that every desktop takes for a file: the reserved names of some are put behind "_", and a dot at the end
// before one. In a name that the rule for names refuses "_" stands for each character outside of it; "." and ".." as
// well as no name at all become such a row, too.
std::string HostName(const std::string& name);

}  // namespace orba::inspect

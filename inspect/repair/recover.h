// Recovery: copies everything readable out of a damaged container and touches nothing in it. It copies what repair would
// leave: names and directories as far as they survive, nodes without a name under LOST.FND. Stands on repair.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/image.h"

namespace orba::inspect {

struct Recovered {
  bool possible = false;          // false: the container's layout cannot be made out; nothing was copied
  std::uint32_t files = 0;        // copied, and whole as far as the container can tell
  std::uint32_t directories = 0;  // made, the root not counted
  std::uint64_t bytes = 0;
  std::vector<std::string> repairs;  // what had to be set right first; the copies are as if it had been
  std::vector<std::string> renamed;  // "/AUX -> _AUX": names that hosts do not take
  std::vector<std::string>
      failures;                  // "/A/B: what failed": files and directories that the host did not take, or not whole
  std::uint64_t unreadable = 0;  // ranges that the host could not read; the copies have zeros there
};

// Where copies go. Each call answers with an empty text, or with what went wrong.
class Shelf {
 public:
  // Hands the contents of a file to `take`, piece by piece, until `take` returns false. False when they are not whole.
  using Contents = std::function<bool(const std::function<bool(const std::uint8_t*, std::size_t)>& take)>;

  virtual ~Shelf() = default;

  // One that is there is fine.
  virtual std::string MakeDirectory(const std::filesystem::path& path) = 0;
  virtual std::string WriteFile(const std::filesystem::path& path, const TimeStamp& time, const Contents& contents) = 0;
};

// Copies into `directory` of the shelf. `step`, where given, is called with each path before it is copied.
Recovered Recover(const Image& image, const std::filesystem::path& directory, Shelf* shelf,
                  const std::function<void(const std::string&)>& step = nullptr);

// Copies into a directory of the host, which is made when it is missing; files that are there already are not overwritten
// but reported as failures.
Recovered Recover(const Image& image, const std::filesystem::path& directory,
                  const std::function<void(const std::string&)>& step = nullptr);

// Hands the contents of a file to `take`, in order, block by block. False when a block is missing or unreadable, or `take`
// returns false; what was handed over before counts.
bool ReadContents(const Image& image, const Geometry& geometry, const OrbNodeRecord& file,
                  const std::function<bool(const std::uint8_t*, std::size_t)>& take);

// A name that every desktop takes for a file: the reserved names of some are put behind "_", and a dot at the end before one.
std::string HostName(const std::string& name);

}  // namespace orba::inspect

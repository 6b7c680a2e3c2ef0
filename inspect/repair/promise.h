// The promise of repair: whatever can be read from a container before a repair can be read after it, byte for byte, at
// the same path or under /LOST.FND. Both sides are read as a reader finds them, and every file of the one is looked for
// in the other. Stands on the reader; knows nothing of how repair works, so that it can judge it.
//
// A file counts as readable when the reader finds all of its blocks. Its path is the one that leads there:
//   - Of equal names in a directory paths lead to the first alone, to a name that the rule for names refuses none need
//     lead after a repair, and behind a hole no reader looks. What such an entry refers to must be there afterwards,
//     but may be anywhere.
//   - So may what a node is read for whose slot carries another node's number.
//   - So may what a directory's first block refers to that is another directory's, or a copy of its, as the "." says.
//   - A directory with several names keeps one of them, with all that is below.
// Where maps are crossed so that the same blocks are read over and over there is an end to it, and no promise is given.
//
// One exception: the operation that a set mark vouches for may be finished or taken back. Of an object being moved one
// of two names stays; of one being created or removed that holds nothing, none. That goes for one object at most.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "inspect/container/image.h"
#include "volume/layout.h"

namespace orba::inspect {

// The object of the operation that a repair takes to be interrupted. Counts only where the container is marked.
struct Vouched {
  std::uint16_t node = 0;  // 0 = not known: any one
  bool none = false;       // the mark is not an operation's: it vouches for nothing
};

// A file that would be lost: the last name of its path, its node and its record before.
struct Loss {
  std::string name;
  std::uint16_t node = 0;
  OrbNodeRecord record = {};
};

struct Promise {
  std::uint32_t readable = 0;  // files that could be read whole before; one with two names counts twice
  std::uint32_t kept = 0;      // of these, those that can be read after
  std::uint32_t excused = 0;   // of these, those that ended with the operation that the mark vouches for
  std::uint32_t regained = 0;  // files that can be read after, and before not, or not by a path
  std::uint32_t unnamed = 0;   // of these, those that come to lie under /LOST.FND
  std::uint32_t mended = 0;    // files that stay where they are and become whole: cut off or filled up with zeros
  std::uint32_t toLost = 0;    // files that come to lie under /LOST.FND
  // Files that were not looked at: others have named their blocks so often that it would be work out of proportion.
  std::uint32_t unread = 0;
  std::string firstExcused;         // the path of the first of those excused
  std::vector<std::string> losses;  // the paths of files that would be lost, fit for messages: the first kMostLosses
  std::vector<Loss> lostFiles;      // all of them

  std::uint32_t lost() const { return readable - kept - excused; }
  bool holds() const { return lost() == 0 && unread == 0; }
};
constexpr std::size_t kMostLosses = 100;

// True when any of `count` bytes from `offset` on may differ between the two sides.
using Touched = std::function<bool(std::uint64_t offset, std::uint64_t count)>;

// Judges a repair that makes `after` of `before`. Blocks that both sides name at the same place and that are not
// touched are not read; without `touched` every byte is compared. Work is in proportion to the larger container, memory
// to its number of nodes.
Promise JudgePromise(const Image& before, const Image& after, const Vouched& vouched = {},
                     const Touched& touched = nullptr);

// "/A/X ends with the interrupted operation", "2 end with the interrupted operation, first /A/X"; "" where none does.
std::string ExcusedText(const Promise& promise);
// "whether 16 files are kept is not known: they read the same blocks as others over and over"
std::string UnreadText(const Promise& promise);

// "keeps 971 of 971 readable files; 3 more come back; 1 goes to /LOST.FND", followed by a line for each file lost.
std::string ToText(const Promise& promise);

}  // namespace orba::inspect

// The checker: reads everything that a container says about itself, changes nothing, and reports every violation of the
// format, every interrupted operation and every leak. It fills in the model on which repair, recovery and drawing
// stand.
//
// Whatever the bytes are, a check ends, reads nothing outside the container and takes memory in proportion to what the
// container can hold.
//
// What must hold in a container; findings (finding.cpp), tests and the format page cite the numbers:
//
//   C1  the header's fields are the ones that formatting wrote, its reserved bytes and flags are zero; the container
//       reaches to its data area and has less than 2^31 bytes
//   C2  each block has at most one owner: a table entry, a slot of one node's block map, or the free chain
//   C3  each block number lies inside the container
//   C4  a node in use has a slot in a node block, with its signature and its own number; its attributes are legal, its
//       reserved bytes zero. The root is in use and a directory. The table refers to node blocks alone
//   C5  a file or directory of s bytes has blocks for logical blocks 0 to ceil(s/B)-1 and none beyond. Block-map blocks
//       stay when a file shrinks, with zero slots
//   C6  a directory holds size/32 entries without holes: first "." with its own number, then ".." with its parent's,
//       then names that are legal, in upper case and unique; behind them, in the same block, an entry with number 0
//   C7  each node in use but the root has exactly one name, and a path leads from the root to it; each name refers to a
//       node in use
//   C8  free-chain records have "FBC1", a count within the capacity, a min-heap of free block numbers, and no cycle
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect/check/finding.h"
#include "inspect/container/image.h"

namespace orba::inspect {

struct Totals {
  std::uint32_t files = 0, directories = 0;  // nodes in use
  std::uint64_t fileBytes = 0;
  std::uint32_t freeNodes = 0;
  std::uint32_t freeBlocks = 0;  // in the chain, its records included
  std::uint32_t leakedBlocks = 0;
  std::uint64_t appendableBlocks = 0;  // up to the largest container
};

struct Report {
  bool readable = false;                          // the layout is known and all of the container was read
  bool marked = false;                            // the dirty mark: an update is in progress or was interrupted
  std::vector<Finding> findings;                  // the first kMaxFindings of them
  std::array<std::uint64_t, kKinds> counts = {};  // all of them, by kind
  Totals totals;
  Model model;

  std::uint64_t Count(Kind kind) const { return counts[static_cast<std::size_t>(kind)]; }
  std::uint64_t Count(Severity severity) const;

  // Nothing above a note. The dirty mark does not matter.
  bool IsClean() const;
  // The highest severity found; a note when nothing was.
  Severity Worst() const;
};

constexpr std::size_t kMaxFindings = 10000;

Report Check(const Image& image);

}  // namespace orba::inspect

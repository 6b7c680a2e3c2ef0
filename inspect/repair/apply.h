// Carries a repair plan out, and back. Before the first write an undo file holds everything that the plan overwrites,
// so a repair can be taken back whether it ended or was stopped. Stands on repair.
//
// An undo file, all integers little-endian:
//   0   8 bytes  "ORBAUNDO"
//   8   u32      2, the version
//   12  u32      number of ranges that the plan overwrites
//   16  u32      number of the plan's writes
//   20  u32      CRC-32 of the container's bytes outside the ranges
//   24  u64      the container's length
//   32           the ranges, then the writes: u64 offset, u32 length, the bytes that lay there or are written there
//   end u32      CRC-32 of all before
// The checksum and the writes tell whether a container is the one that was repaired.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "inspect/container/image.h"
#include "inspect/repair/repair.h"

namespace orba::inspect {

// A container that can be written.
class Target {
 public:
  virtual ~Target() = default;

  // Writes bytes, past the end too. False when the host could not write them all.
  virtual bool Write(std::uint64_t offset, const void* bytes, std::size_t count) = 0;
  // Makes the container shorter.
  virtual bool Cut(std::uint64_t size) = 0;
  // Sees to it that what was written outlives this process.
  virtual bool Flush() = 0;
};

// Start and end of each range that the plan writes in front of `end`, from the front to the end. Ranges that overlap or
// touch are one.
std::map<std::uint64_t, std::uint64_t> WrittenRanges(const Plan& plan, std::uint64_t end);

// The contents of an undo file for this plan on this container.
std::vector<std::uint8_t> MakeUndo(const Plan& plan, const Image& image);

// The bytes are a whole and sound undo file.
bool IsUndo(const std::vector<std::uint8_t>& file);

// The undo file is of this container, and the container is as the repair, or an undoing, left it or any part of it
// would: each byte outside the ranges is unchanged, and each one inside is what it was before the repair or what a
// write made it. Reads all of the container. False also for what is not an undo file.
bool UndoFits(const std::vector<std::uint8_t>& file, const Image& image);

// Makes the plan's writes in order. The first, which marks the container, is flushed before the others, these before
// the last, which takes the mark away, and that at the end: what does not outlive the host is never unmarked. False at
// the first call that fails; the container is then as far as it got, and can be repaired again or taken back.
bool ApplyPlan(const Plan& plan, Target* target);

// Puts back what an undo file holds and cuts the container to its old length. From the first write until all is back
// the container is marked as by a repair, with the same flushes, so that nobody mounts what is half the one and half
// the other. False, with nothing written, when the file is no undo file or damaged; false as well when a write fails,
// and then it can be tried again. Whether the file fits the container is for the caller to know: UndoFits.
bool ApplyUndo(const std::vector<std::uint8_t>& file, Target* target);

}  // namespace orba::inspect

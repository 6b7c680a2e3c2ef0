// Repair: plans the writes that make a damaged or half-updated container consistent and mountable again. Planning
// changes nothing; carrying a plan out is apply.h's business. Stands on check and promise; docs/repair.md is the way
// in.
//
// The promise comes first: whatever can be read from a container before a repair can be read after it, byte for byte,
// at the same path or under /LOST.FND (promise.h). Every plan is judged by it on an image in memory. The one exception
// is the operation that a set mark vouches for, at most one, which may be finished or undone.
//
// The order of the writes is such that a stop after any of them leaves a container from which a second repair loses
// nothing more than the first would have:
//   1. The dirty mark is set first and cleared last. Where damage is left that no pass can mend, the mark stays, but
//      not on a container that mounted before.
//   2. Copies that keep the promise are made before anything but the header changes, unless the root has to be regained
//      first.
//   3. What can be regained is regained - header fields, node blocks, node records, free nodes to which entries refer -
//      before any block is taken.
//   4. The free chain is dropped, by one write of its head, before a block is taken, and built anew at the end, its
//      head last. In between, every block to which nothing refers is free.
//   5. A block is written before anything refers to it; a name is written before the old one is taken away; a
//      directory's ".." before its new name.
//   6. Entries are removed as the library removes them: the last entry over the hole, then the last entry cleared, then
//      the size.
//
// What is kept, and how:
//   - What lost the one field that led to it, but is still there, is found again by what it holds: a directory's record
//     by its first block, a node's record by its number, a block-map block by the number of blocks that it leads to, a
//     block of entries by the nodes without a name that they give one. Only blocks that were lost (neither in use nor
//     free) when the repair began are taken for it, and nothing is guessed: where two could be meant, neither is taken.
//   - The bitmap alone never decides that data goes. A deleted node's record has size 0 and no blocks; so a record that
//     has a size and leads to just the blocks it needs, all of them lost, is in use whatever the bitmap says.
//   - A block of node records stays in its place in the table for even one slot in use with the right signature and
//     number.
//   - An entry that leads to no node, or to one that has another name, gets the node that has lost its name where only
//     one can be meant: numbers one bit apart, a directory's "..", or the only one there is.
//   - A file with two names becomes two files, a directory keeps the name in the directory that its ".." gives. Of a
//     file whose move the mark vouches for the name that was added later stays.
//   - A block with two owners stays with the first (node blocks before nodes, lower node numbers before higher), the
//     second gets a copy.
//   - Missing blocks in the middle of a file become zeros; a missing tail is cut off. Blocks past a file's size make
//     the file longer.
//   - A node in use without a name is freed when it holds nothing, else it appears under /LOST.FND.
//   - A name that no path can hold, or that is there twice, is changed; of equal names the first stays.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/image.h"
#include "inspect/repair/action.h"
#include "inspect/repair/promise.h"

namespace orba::inspect {

// Nothing is planned for a container that ends before its data area - nothing can be saved - and for one of 2^31 bytes
// or more: no write makes it shorter, so the problem says to how many bytes it must be cut.
struct Plan {
  bool possible = false;        // false: nothing can be planned, see problem
  std::string problem;          // why not, or what stays damaged
  std::vector<Action> actions;  // none when the container is clean and unmarked
  Report before;
  Report after;     // what a check will find once all is written
  Promise promise;  // judged on an image in memory on which the writes were made

  bool IsComplete() const { return possible && after.IsClean() && !after.marked; }
  // Carrying the plan out would cost files that can be read now; promise.losses says which.
  bool BreaksPromise() const { return possible && !promise.holds(); }
};

// Plans the repair of a container. `now` is the time stamp of what repair makes itself: /LOST.FND, a lost root.
Plan PlanRepair(const Image& image, const TimeStamp& now);

// The promise of the same plan, without the plan: `checked` is what a check of the container found. Nothing where
// nothing can be planned.
std::optional<Promise> ForeseeRepair(const Image& image, const TimeStamp& now, Report checked);

// The plan for people. A line for each action; before them, where nothing that the container held will be left, that.
std::string StepsText(const Plan& plan);
// What it comes to: what is left, and the promise.
std::string OutcomeText(const Plan& plan);
// Both.
std::string ToText(const Plan& plan);

}  // namespace orba::inspect

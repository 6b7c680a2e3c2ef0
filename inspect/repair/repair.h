// Repair: plans the writes that make a damaged or half-updated container consistent and mountable again. Planning changes
// nothing; carrying a plan out is apply.h's business. Stands on check.
//
// The order of the writes is such that a stop after any of them leaves a container from which a second repair loses nothing
// more than the first would have:
//   1. The dirty mark is set first and cleared last. Where damage is left that no pass can mend, the mark stays, but not on a
//      container that mounted before.
//   2. What can be regained is regained - header fields, node blocks, node records, free nodes that entries still name -
//      before any block is taken.
//   3. The free chain is dropped, by one write of its head, before a block is taken, and built anew at the end, its head
//      last. In between, every block that nothing names is free.
//   4. A block is written before anything names it; a name is written before the old one is taken away; a directory's ".."
//      before its new name.
//   5. Entries are removed as the library removes them: the last entry over the hole, then the last entry cleared, then the
//      size.
//
// What is kept, and how:
//   - What lost the one field that led to it, but is still there, is found again by what it holds: a directory's record by
//     its first block, a block-map block by the number of blocks that it leads to, a block of entries by the nodes without
//     a name that they give one. Only blocks that were lost (neither in use nor free) when the repair began are taken for
//     it, and nothing is guessed: where two could be meant, neither is taken.
//   - An entry that names a free node revives the node when its record can only be that of a file or directory; otherwise
//     the entry goes.
//   - The bitmap alone never decides that data goes. A deleted node's record has size 0 and no blocks; so a record that has
//     a size and names just the blocks it needs, all of them lost, is in use whatever the bitmap says. A lost block of node
//     records in which a node is so in use, or named by an entry, goes back to its place in the table; a lost block that
//     begins with a directory's dots and has entries behind them gets a record again, where the node has none.
//   - Where one node has two names and one has lost its own, an entry's number was damaged: it names the latter again, if it
//     can be told which entry it was.
//   - A node with two names keeps one, a legal one if there is any. A directory keeps the name in the directory that its
//     ".." gives. A file keeps the one that was added later: the name that is the last of its directory, if there is but one
//     such; otherwise the one in the directory with the later time stamp; otherwise the one in the directory with the higher
//     number.
//   - A block with two owners stays with the first (node blocks before nodes, lower node numbers before higher), the second
//     gets a copy.
//   - Missing blocks in the middle of a file become zeros; a missing tail is cut off. Blocks past a file's size make the
//     file longer.
//   - A node in use without a name goes back when it holds nothing, else it appears as /LOST.FND/NODEnnnn.
//   - A name that no path can hold, or that is there twice, is changed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/image.h"

namespace orba::inspect {

struct Write {
  std::uint64_t offset = 0;
  std::vector<std::uint8_t> bytes;
};

// One step that a person can follow, with the writes it takes, in order. A write may lie past the container's end and then
// makes it longer; it never leaves a gap.
struct Action {
  std::string text;
  std::vector<Write> writes;
};

// Nothing is planned for a container that ends before its data area - nothing can be saved - and for one of 2^31 bytes or
// more: no write makes it shorter, so the problem says to how many bytes it must be cut.
struct Plan {
  bool possible = false;        // false: nothing can be planned, see problem
  std::string problem;          // why not, or what stays damaged
  std::vector<Action> actions;  // none when the container is clean and unmarked
  Report before;
  Report after;  // what a check will find once all is written

  bool IsComplete() const { return possible && after.IsClean() && !after.marked; }
};

// Plans the repair of a container. `now` is the time stamp of what repair makes itself: /LOST.FND, a lost root.
Plan PlanRepair(const Image& image, const TimeStamp& now);

// The plan for people: a line for each action; before them, where nothing that the container held will be left, that.
std::string ToText(const Plan& plan);

}  // namespace orba::inspect

// The inside of the checker: what its passes share. Nobody else includes this. Passes run in the order below; each
// stands on what the ones before it have filled in.
#pragma once

#include <unordered_map>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/block_map.h"

namespace orba::inspect {

// A block that a map takes for a block-map block, and that shows itself to be something else.
struct NoMap {
  Contents contents;
  std::uint32_t leading;  // words at its front that are numbers of blocks
};

struct Work {
  explicit Work(const Image& from) : image(from) {}

  const Image& image;
  Report report;

  // By block number.
  std::vector<bool> entered;  // a map block whose slots were visited
  std::unordered_map<std::uint32_t, NoMap> noMaps;
  std::vector<bool> parsed;               // a directory block whose entries were taken
  std::vector<bool> freed;                // a directory's last block that is in the free chain already
  std::vector<std::uint8_t> chainMark;    // ChainMark
  std::vector<std::uint32_t> chainPlace;  // the record that is it, or lists it
  std::uint32_t entriesToFree = 0;        // entries that refer to nodes that the bitmap calls free

  Model& model() { return report.model; }
  const Geometry& geometry() const { return report.model.geometry; }

  // Findings beyond the list's end are counted alone.
  void Add(Kind kind, const Place& place, const Facts& facts = {});

  // What refers to something that seems to be leaked may be lost with what is damaged.
  bool IsDamaged() const { return report.Count(Severity::kDamage) > 0; }

  // The mark stands for an operation of the library: one operation was stopped, on one object.
  bool WasStopped() const { return report.model.header.stateFlags == kVolumeDirty; }
  // The same, or for a repair; a mark beside flags without a meaning stands for neither.
  bool WasUpdated() const { return WasStopped() || report.model.header.stateFlags == (kVolumeDirty | kRepairMark); }

  // Reads a range inside the container; when the host cannot, says so in the report.
  bool Read(std::uint64_t offset, void* out, std::size_t count);

  // To be told of each block number beyond the container's end that something relies on.
  void NoteOutside(std::uint32_t block) { report.model.tailNamed |= block == geometry().blocks + 1 && HasTail(); }

  // Bytes follow the last whole block.
  bool HasTail() const { return image.Size() > geometry().BlockOffset(geometry().blocks + 1); }

  // Notes that `block`, which the container holds, serves `owner`. False when something else owned it before; that is
  // reported, with the place of the field that refers to it.
  bool Claim(std::uint32_t block, const BlockInfo& owner, std::uint64_t offset);
};

enum ChainMark : std::uint8_t { kNotInChain, kListed, kRecord };

// Pass 1, chain_pass.cpp: follows the free chain and marks its blocks. No claims yet.
void WalkChain(Work* work);

// Pass 2, map_pass.cpp: claims the blocks of a node in use; takes a directory's entries (ParseDirectory).
void WalkNode(Work* work, NodeInfo* node);

// A directory's block, as its map gives it.
struct DirectoryBlock {
  std::uint64_t index;
  std::uint32_t block;
};
void ParseDirectory(Work* work, NodeInfo* directory, const std::vector<DirectoryBlock>& blocks);

// Before that, directory_pass.cpp: sees whether the attributes of a node in use contradict its contents.
void JudgeKind(Work* work, NodeInfo* node);

// Pass 3, directory_pass.cpp: judges entries and names, then what the root leads to.
void CheckEntries(Work* work);
void CheckReach(Work* work);
void CheckNames(Work* work);

// Pass 4, chain_pass.cpp: claims the chain's blocks where nothing else has.
void ClaimChain(Work* work);

}  // namespace orba::inspect

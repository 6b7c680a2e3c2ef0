// The inside of repair: what its passes share. Nobody else includes this.
//
// Repair goes in rounds: check the container as it will be so far, run the passes in order until one changes something,
// check again. So each pass may take for granted what the passes before it see to.
#pragma once

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "inspect/container/patched_image.h"
#include "inspect/repair/repair.h"

namespace orba::inspect {

struct RepairWork {
  RepairWork(const Image& from, const TimeStamp& time) : image(from), now(time) {}

  PatchedImage image;
  TimeStamp now;
  std::vector<Action> actions;
  Report report;         // of the image at the start of this round
  bool changed = false;  // something was written in this round

  const Model& model() const { return report.model; }
  const Geometry& geometry() const { return report.model.geometry; }

  // ---- Writing. Every write belongs to the action begun last.
  void Begin(std::string text);
  void Put(std::uint64_t offset, const void* bytes, std::size_t count);
  void PutWord(std::uint64_t offset, std::uint32_t value);
  void PutHalf(std::uint64_t offset, std::uint16_t value);
  void PutNode(std::uint16_t number, const OrbNodeRecord& record);
  void PutEntry(std::uint64_t offset, const OrbDirEntry& entry);
  void SetFree(std::uint32_t node, bool free);

  // The slots that the last action clears, as long as it is the last one.
  struct Clearing {
    std::uint16_t node = 0;
    const char* why = nullptr;
    std::size_t action = 0;  // the number of actions with it
    std::uint64_t count = 0;
  };
  Clearing clearing;

  // ---- Reading the image as it is now
  OrbNodeRecord GetNode(std::uint16_t number) const;
  std::vector<std::uint8_t> GetBlock(std::uint32_t block) const;  // zeros where it cannot be read

  // ---- Taking blocks. A block is taken by writing it; 0 when there is none left to take. Free blocks come first, then new
  // ones at the container's end. Lost ones are spared as long as they can be: what they hold may still be wanted.
  std::uint32_t Take(const std::vector<std::uint8_t>& contents);
  // Blocks that may still be taken: repair does not blow a container up without end.
  std::uint64_t budget = 0;

  // The slot of a map names a block that can be one of its block-map blocks.
  bool CanEnter(std::uint32_t block) const {
    return geometry().Holds(block) && !(block < model().blocks.size() && model().blocks[block].noMap);
  }
  // What nothing names in this round's model, or the free chain alone.
  bool IsLoose(std::uint32_t block) const;
  // What nothing named when the repair began, and nothing names now: it may belong to what is damaged.
  bool IsLost(std::uint32_t block) const;
  std::vector<bool> wasFree;         // by block: in the free chain when the repair began
  std::set<std::uint16_t> regained;  // directories that got a new record for their first block
  // The loose block whose "." entry carries this number; 0 when there is none.
  std::uint32_t FindDirectoryBlock(std::uint16_t number);

  // Gets ready for the next round.
  void Recheck();

 private:
  // The lowest loose block from `*next` on that is lost, or is not; 0 when there is none.
  std::uint32_t NextLoose(std::uint32_t* next, bool lost) const;

  std::uint32_t nextFree_ = 1;
  std::uint32_t nextLost_ = 1;
  std::unordered_map<std::uint16_t, std::uint32_t> directoryBlocks_;
  bool directoryBlocksRead_ = false;
};

// A pass changes what it finds wrong, or nothing. In this order:
using Pass = void (*)(RepairWork*);

// repair_layout.cpp
void FixHeader(RepairWork* work);
// repair_map.cpp
void FillTail(RepairWork* work);  // a container that ends in the middle of a block in use
// repair_layout.cpp
void FixTable(RepairWork* work);  // regains node blocks
// repair_regain.cpp
void RegainDirectories(RepairWork* work);  // whose records are lost
// repair_layout.cpp
void FixSlots(RepairWork* work);  // signatures and numbers
void FixBitmap(RepairWork* work);
// repair_revive.cpp
void ReviveNodes(RepairWork* work);  // free nodes that entries name, or that hold data
// repair_layout.cpp
void FixRecords(RepairWork* work);  // attributes, reserved bytes, files marked as directories
// repair_directory.cpp
void DropGivenBackBlocks(RepairWork* work);
// repair_regain.cpp
void RegainMaps(RepairWork* work);     // block-map blocks that no slot names
void RegainEntries(RepairWork* work);  // blocks of entries that no slot names
// repair_map.cpp
void Unshare(RepairWork* work);
void FixSlotsOutside(RepairWork* work);  // blocks that the container does not hold, or that hold no entries
void FixMaps(RepairWork* work);          // holes, missing map blocks, blocks past the size
// repair_layout.cpp
void FixRoot(RepairWork* work);  // a root that is lost
// repair_directory.cpp
void FixDirectorySizes(RepairWork* work);
void RemoveEntries(RepairWork* work);  // entries that name nothing, second names
void FixEntries(RepairWork* work);     // names, "." and ".."
void BreakCycles(RepairWork* work);
// repair_space.cpp
void FixLeakedNodes(RepairWork* work);
void FixChain(RepairWork* work);

// "/LOGS (node 5)"; "(node 5)" where no path leads there.
std::string NodeName(const RepairWork& work, std::uint16_t number);

// Zeroes the chain's head, so that its blocks are loose.
void DropChain(RepairWork* work);

// Enters `block` as logical block `index` of the node, taking the map blocks it needs. Only `record` is changed where the
// slot lies in it; the caller writes it. False when a map block could not be taken.
bool SetMapSlot(RepairWork* work, OrbNodeRecord* record, std::uint64_t index, std::uint32_t block);

// Takes the blocks from logical block `end` on out of the node's map and makes it `size` bytes long.
void CutNode(RepairWork* work, std::uint16_t number, std::uint64_t end, std::uint32_t size);

// How many entries the block holds: from its front on, each with a sound name of a node in use that has no other; 0 when it
// holds anything else.
std::uint32_t CountNamelessEntries(const RepairWork& work, std::uint32_t block);

// The entry is a name, and the node that it names can be one of the volume.
bool NamesNode(const RepairWork& work, const Entry& entry);

// The record can only be that of a file or directory that was not deleted: it is plausible, holds something, and has all the
// blocks for it that it should name itself; they are lost ones, each named once.
bool HoldsData(const RepairWork& work, std::uint32_t number, const OrbNodeRecord& record);

// A directory's first block: "." and "..", then nothing.
std::vector<std::uint8_t> NewDirectoryBlock(const Geometry& geometry, std::uint16_t number, std::uint16_t parent);

// Entries, by the directory's record as it is now. A removed entry's place is taken by the last one.
std::uint64_t FindEntry(const RepairWork& work, const OrbNodeRecord& directory,
                        std::uint32_t index);  // offset, 0 = none
void RemoveEntry(RepairWork* work, std::uint16_t directory, std::uint32_t index);
bool AddEntry(RepairWork* work, std::uint16_t directory, const std::string& name, std::uint16_t node);

// A legal name that `taken` (upper case) does not hold, made from `wish` with "~2" and so on where need be; it is added to
// `taken`.
std::string UniqueName(const std::string& wish, std::set<std::string>* taken);

}  // namespace orba::inspect

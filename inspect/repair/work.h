// The inside of repair: what its passes share. Nobody else includes this.
//
// Repair goes in rounds: check the container as it will be so far, run the passes in order until one changes something,
// check again. So each pass may take for granted what the passes before it see to.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "inspect/container/patched_image.h"
#include "inspect/repair/repair.h"

namespace orba::inspect {

// Where the header says which record the free chain begins with.
constexpr std::uint64_t kChainHeadOffset = offsetof(VolumeHeader, freeChainHead);

struct RepairWork {
  // `checked` is what a check of `from` found.
  RepairWork(const Image& from, const TimeStamp& time, Report checked);

  PatchedImage image;
  TimeStamp now;
  std::vector<Action> actions;
  bool keepsActions = true;  // false: only the image is wanted; `actions` holds the last alone, without writes
  Report report;             // of the image at the start of this round
  bool changed = false;      // something was written in this round

  const Model& model() const { return report.model; }
  const Geometry& geometry() const { return report.model.geometry; }

  // ---- Writing. Every write belongs to the action begun last. The action is good until the next one begins, and is
  // dropped then if it has written nothing.
  Action& Begin(ActionKind kind, std::uint16_t node = 0);
  void Put(std::uint64_t offset, const void* bytes, std::size_t count);
  void PutWord(std::uint64_t offset, std::uint32_t value);
  void PutHalf(std::uint64_t offset, std::uint16_t value);
  void PutNode(std::uint16_t number, const OrbNodeRecord& record);
  void PutEntry(std::uint64_t offset, const OrbDirEntry& entry);
  void SetFree(std::uint32_t node, bool free);

  // ---- Reading the image as it is now
  OrbNodeRecord GetNode(std::uint16_t number) const;
  std::vector<std::uint8_t> GetBlock(std::uint32_t block) const;  // zeros beyond the end

  // ---- Taking blocks. A block is taken by writing it; 0 when there is none left to take. Free blocks come first, then
  // new ones at the container's end. Lost ones are spared as long as they can be: what they hold may still be wanted.
  std::uint32_t Take(const std::vector<std::uint8_t>& contents);
  // Blocks that may still be taken: repair does not blow a container up without end. Copies of contents leave a reserve
  // for what names need.
  std::uint64_t budget = 0;
  void ResetBudget();  // as many as there are blocks in this round's model, and some more
  std::uint64_t RoomForCopies() const;
  std::uint32_t TakeForCopy(const std::vector<std::uint8_t>& contents);

  // The slot of a map names a block that can be one of its block-map blocks.
  bool CanEnter(std::uint32_t block) const {
    return geometry().Holds(block) && !(block < model().blocks.size() && model().blocks[block].noMap);
  }
  // What nothing names in this round's model, or the free chain alone.
  bool IsLoose(std::uint32_t block) const;
  // What nothing named when the repair began, and nothing names now: it may belong to what is damaged.
  bool IsLost(std::uint32_t block) const;
  std::map<std::uint16_t, std::string> bestNames;  // of nodes without a name, for /LOST.FND
  std::vector<bool> wasFree;                       // by block: in the free chain when the repair began
  std::set<std::uint16_t> regained;                // directories that got a new record for their first block
  // The loose block whose "." entry carries this number; 0 when there is none.
  std::uint32_t FindDirectoryBlock(std::uint16_t number);

  // Takes the lowest free number that no entry refers to, and a block of node records for it where there is none yet.
  // The record and the bitmap are the caller's to write. Number 0 where no number or no block is left.
  struct NewNode {
    std::uint16_t number = 0;
    std::uint64_t offset = 0;
  };
  NewNode TakeNode();
  // A number is left, if not a block for its record.
  bool IsNodeLeft();

  // Nothing was repaired yet: blocks are taken at the container's end alone, and nodes that are free beyond doubt.
  bool careful = false;

  // The container was marked when the repair began: at most one operation was stopped.
  bool marked = false;
  // The object of that operation, once a pass has found it.
  Vouched vouched;

  // Gets ready for the next round: `report` is what a check of the image finds now.
  void Recheck();
  // A check could not read what the one before the repair has read. There is no model any more, and no plan.
  bool unreadable = false;

 private:
  // The lowest loose block from `*next` on that is lost, or is not; 0 when there is none.
  std::uint32_t NextLoose(std::uint32_t* next, bool lost) const;

  bool CanTake(const NodeInfo& node) const;

  bool wrote_ = false;  // something belongs to the last action

  // What was taken and looked up in this round.
  struct Round {
    std::uint32_t nextFree = 1;
    std::uint32_t nextLost = 1;
    std::uint32_t nextNode = kRootNode + 1;
    std::vector<bool> referred;                         // by entries; by number, empty until one is asked for
    std::map<std::uint32_t, std::uint32_t> nodeBlocks;  // new ones, by their table entries
    std::unordered_map<std::uint16_t, std::uint32_t> directoryBlocks;
    bool directoryBlocksRead = false;
  };
  Round round_;
};

// A pass changes what it finds wrong, or nothing. In this order:
using Pass = void (*)(RepairWork*);

// layout_passes.cpp
void FixHeader(RepairWork* work);
// map_passes.cpp
void FillTail(RepairWork* work);  // a container that ends in the middle of a block in use
// layout_passes.cpp
void FixTable(RepairWork* work);  // regains node blocks
// map_passes.cpp
void CutOutside(RepairWork* work);  // numbers beyond the container's end, before blocks are appended there
// sector_pass.cpp
void ReturnSectors(RepairWork* work);  // of node records in directories, and of entries among node records
// regain_passes.cpp
void RegainRecords(RepairWork* work);      // that lie in lost blocks or in the slots of other nodes
void RegainDirectories(RepairWork* work);  // whose records or first blocks are lost
// layout_passes.cpp
void FixSlots(RepairWork* work);  // signatures and numbers
void FixBitmap(RepairWork* work);
// revive_pass.cpp
void ReviveNodes(RepairWork* work);  // free nodes that entries refer to, or that hold data
// layout_passes.cpp
void FixRecords(RepairWork* work);  // attributes, reserved bytes, files marked as directories
// directory_passes.cpp
void DropFreedBlocks(RepairWork* work);
// regain_passes.cpp
void RegainMaps(RepairWork* work);     // block-map blocks that no slot leads to
void RegainEntries(RepairWork* work);  // blocks of entries that no slot leads to
// map_passes.cpp
void Unshare(RepairWork* work);
void CutForeign(RepairWork* work);  // blocks that hold no numbers or no entries
void FixMaps(RepairWork* work);     // holes, missing map blocks, blocks past the size
// layout_passes.cpp
void FixRoot(RepairWork* work);  // a root that is lost
// directory_passes.cpp
void EmptyCopies(RepairWork* work);  // first blocks that are copies of other directories'
// name_passes.cpp
void UndoTornRemovals(RepairWork* work);  // entries that were cleared but not yet moved
// directory_passes.cpp
void FixDirectorySizes(RepairWork* work);
// name_passes.cpp
void FixNames(RepairWork* work);  // entries that lead to no node, second names
// directory_passes.cpp
void FixEntries(RepairWork* work);  // illegal and equal names, "." and ".."
// name_passes.cpp
void BreakCycles(RepairWork* work);
// space_passes.cpp
void FixLeakedNodes(RepairWork* work);
void FixChain(RepairWork* work);

// A node record's bytes.
std::vector<std::uint8_t> Encoded(const OrbNodeRecord& record);

// The slot was overwritten with another node's: that node's own slot leads to the same blocks.
bool IsCopyOfAnother(const Model& model, const NodeInfo& node);

// Zeroes the chain's head, so that its blocks are loose.
void DropChain(RepairWork* work);

// Enters `block` as logical block `index` of the node, taking the map blocks it needs. Only `record` is changed where
// the slot lies in it; the caller writes it. False when a map block could not be taken.
bool SetMapSlot(RepairWork* work, OrbNodeRecord* record, std::uint64_t index, std::uint32_t block);

// Takes the blocks from logical block `end` on out of the node's map and makes it `size` bytes long.
void CutNode(RepairWork* work, std::uint16_t number, std::uint64_t end, std::uint32_t size);

// How many entries the block holds: from its front on, each with a sound name of a node in use that has no other; 0
// when it holds anything else.
std::uint32_t CountNamelessEntries(const RepairWork& work, std::uint32_t block);

// A directory in use of which every block is there.
bool IsWhole(const NodeInfo& node);
// In use, and no entry leads to it.
bool IsNameless(const NodeInfo& node);
// What a directory's ".." says, 0 where there is none.
std::uint16_t DotDotOf(const NodeInfo& directory);

// The bitmap calls this node of the volume free, but its record is one that a node in use can have.
bool CanBeRevived(const RepairWork& work, std::uint32_t number);

// The entry is a name, and the node that it names can be one of the volume.
bool NamesNode(const RepairWork& work, const Entry& entry);
// By number: a directory has such an entry for the node.
std::vector<bool> FindNamed(const RepairWork& work);

// The record can only be that of a file or directory that was not deleted: it is plausible, holds something, and has
// all the blocks for it that it should name itself; they are lost ones, each named once.
bool HoldsData(const RepairWork& work, std::uint32_t number, const OrbNodeRecord& record);

// A directory's first block: "." and "..", then nothing.
std::vector<std::uint8_t> NewDirectoryBlock(const Geometry& geometry, std::uint16_t number, std::uint16_t parent);

// Entries, by the directory's record as it is now. A removed entry's place is taken by the last one.
std::uint64_t FindEntry(const RepairWork& work, const OrbNodeRecord& directory,
                        std::uint32_t index);  // offset, 0 = none
void RemoveEntry(RepairWork* work, std::uint16_t directory, std::uint32_t index);
bool AddEntry(RepairWork* work, std::uint16_t directory, const std::string& name, std::uint16_t node);

// Adds files to /LOST.FND: what `before`, the container without the repair, reads as the lost ones.
void KeepCopies(RepairWork* work, const Image& before, const std::vector<Loss>& losses);

// A new file without a name: attributes, time and contents are those of `like`, read from `from`. 0 where a block of it
// is missing, or nothing is left to take.
std::uint16_t AddCopy(RepairWork* work, const OrbNodeRecord& like, const Image& from);

// The names of a directory, and others that it does not have.
class Names {
 public:
  // Adds a name in upper case.
  void Add(const std::string& name) { taken_.insert(name); }

  // Adds a legal name that is not there yet, made from `wish` with "~2" and so on where need be.
  std::string Unique(const std::string& wish);

 private:
  std::unordered_set<std::string> taken_;
  std::unordered_map<std::string, std::uint32_t> next_;  // by wish, the lowest number that may be free
};

}  // namespace orba::inspect

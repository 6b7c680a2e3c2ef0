// Repair of what has lost the one field that led to it but is still there: directories without their record, block-map
// blocks and blocks of entries without the slot that named them. Only lost blocks are taken for it
// (RepairWork::IsLost), and only where what they hold fits what is missing, and nothing else does.
#include <algorithm>
#include <functional>
#include <map>

#include "inspect/container/block_map.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

std::vector<std::uint32_t> FindLostBlocks(const RepairWork& work) {
  std::vector<std::uint32_t> lost;
  for (std::uint32_t block = 1; block < work.model().blocks.size(); ++block) {
    if (work.IsLost(block)) lost.push_back(block);
  }
  return lost;
}

// ---- Directories without a record -----------------------------------------------------------------------------------

// Every name as directory and node.
using Names = std::set<std::pair<std::uint16_t, std::uint16_t>>;

Names FindNames(const Model& model) {
  Names names;
  for (const NodeInfo& directory : model.nodes) {
    for (const Entry& entry : directory.entries) {
      if (entry.index >= 2) names.emplace(directory.number, entry.record.node);
    }
  }
  return names;
}

// The lost blocks that begin with the dots of a lost node, or of a directory whose first block is another's, by that
// node. The directory that ".." names must be lost as well or name the node in return: what a deleted directory left
// does not pass for one. Nor does it where the bitmap calls the node free: a directory is empty when it is deleted, so
// its third entry names no node.
using Directories = std::map<std::uint16_t, std::uint32_t>;

// No record tells what the node was.
bool IsLostNode(const NodeInfo& node) {
  return node.state == NodeState::kLost || (node.state == NodeState::kFree && node.offset == 0);
}

// The attributes are a directory's, the contents are not.
bool IsDirectoryElsewhere(const NodeInfo& node) {
  return node.state == NodeState::kUsed && node.wrongKind && !node.IsDirectory();
}

Directories FindDirectories(const RepairWork& work) {
  const Model& model = work.model();
  Directories found;
  const std::vector<std::uint32_t> lost = FindLostBlocks(work);
  if (lost.empty()) return found;
  const Names names = FindNames(model);
  for (const std::uint32_t block : lost) {
    std::uint8_t bytes[3 * kDirEntrySize];
    if (!work.image.Read(work.geometry().BlockOffset(block), bytes, sizeof bytes)) continue;
    const OrbDirEntry self = DecodeEntry(bytes);
    const OrbDirEntry up = DecodeEntry(bytes + kDirEntrySize);
    if (NameOf(self) != "." || NameOf(up) != ".." || self.node == kRootNode || !model.IsNode(self.node)) continue;
    const NodeInfo& node = model.nodes[self.node];
    if ((!IsLostNode(node) && !IsDirectoryElsewhere(node)) || !model.IsNode(up.node)) continue;
    if (node.state == NodeState::kFree && Get16(&bytes[2 * kDirEntrySize]) == 0) continue;
    const NodeInfo& parent = model.nodes[up.node];
    if (IsLostNode(parent) || names.count({up.node, self.node}) != 0) found.emplace(self.node, block);
  }
  return found;
}

OrbNodeRecord DirectoryRecord(const RepairWork& work, std::uint16_t number, std::uint32_t block) {
  OrbNodeRecord record = EmptyNode(number);
  record.attributes = ORB_NODE_DIRECTORY;
  record.time = work.now;
  record.size = work.geometry().blockSize;  // FixDirectorySizes cuts the empty places off
  record.direct[0] = block;
  return record;
}

// A node block for table entry `index`, with records of the directories alone; its other nodes are free from now on.
void MakeNodeBlock(RepairWork* work, std::uint32_t index, const Directories& directories) {
  const Geometry& geometry = work->geometry();
  work->Begin(ActionKind::kMakeNodeBlock).first = index;
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  std::vector<std::pair<std::uint32_t, bool>> bits;  // to be set: node, free
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
    const auto number = static_cast<std::uint16_t>(geometry.firstNode(index) + i);
    const auto found = directories.find(number);
    const bool lost = work->model().IsNode(number) && work->model().nodes[number].state == NodeState::kLost;
    OrbNodeRecord record = EmptyNode(number);
    if (found != directories.end()) {
      record = DirectoryRecord(*work, number, found->second);
      work->regained.insert(number);
      if (!lost) bits.emplace_back(number, false);
    } else if (lost && number != kRootNode) {
      bits.emplace_back(number, true);
    }
    EncodeNode(record, &bytes[i * kNodeSize]);
  }
  for (const auto& [number, free] : bits) work->SetFree(number, free);
  work->PutWord(TableEntryOffset(index), work->Take(bytes));  // without a block left 0, as before
}

// ---- Block-map blocks without a slot --------------------------------------------------------------------------------

// A slot that should name a block-map block.
struct MissingMap {
  std::uint16_t node;
  MapSlot slot;
  std::uint64_t blocks;  // how many blocks of the node's contents it leads to
};

// Lost blocks that can be block-map blocks, with what they name: lost blocks, each once, and nothing behind them.
using Maps = std::map<std::uint32_t, std::vector<std::uint32_t>>;

std::vector<std::uint32_t> SlotsOf(const RepairWork& work, std::uint32_t block) {
  return DecodeWords(work.GetBlock(block).data(), work.geometry().mapSlots());
}

// Up to the first empty one.
std::uint64_t CountSlots(const std::vector<std::uint32_t>& slots) {
  return static_cast<std::uint64_t>(std::find(slots.begin(), slots.end(), kNoBlock) - slots.begin());
}

// A block-map block that is shared and leads to more or less than it should is somebody else's.
std::vector<MissingMap> FindMissingMaps(const RepairWork& work) {
  const Geometry& geometry = work.geometry();
  std::vector<MissingMap> missing;
  std::set<std::uint32_t> entered;
  for (const NodeInfo& node : work.model().nodes) {
    if (node.state != NodeState::kUsed || node.map.sizeImpossible) continue;
    VisitMap(work.image, geometry, node.record, node.offset, [&](const MapSlot& slot) {
      if (slot.level == MapLevel::kData || slot.index >= node.map.needed) return false;
      const std::uint64_t left = node.map.needed - slot.index;
      const bool all = slot.level == MapLevel::kDouble;
      const std::uint64_t blocks = all ? left : std::min<std::uint64_t>(left, geometry.mapSlots());
      if (!work.CanEnter(slot.block) ||
          (work.model().blocks[slot.block].shared && !all && CountSlots(SlotsOf(work, slot.block)) != blocks)) {
        missing.push_back({node.number, slot, blocks});
        return false;
      }
      return entered.insert(slot.block).second;
    });
  }
  return missing;
}

std::vector<std::uint32_t> NamedBlocks(const RepairWork& work, std::uint32_t block) {
  std::vector<std::uint32_t> named = SlotsOf(work, block);
  const auto end = named.begin() + static_cast<std::ptrdiff_t>(CountSlots(named));
  if (std::count(end, named.end(), kNoBlock) != named.end() - end) return {};
  named.erase(end, named.end());
  std::set<std::uint32_t> seen = {block};
  for (const std::uint32_t slot : named) {
    if (!work.IsLost(slot) || !seen.insert(slot).second) return {};
  }
  return named;
}

Maps FindMaps(const RepairWork& work) {
  Maps maps;
  for (const std::uint32_t block : FindLostBlocks(work)) {
    std::vector<std::uint32_t> named = NamedBlocks(work, block);
    if (!named.empty()) maps.emplace(block, std::move(named));
  }
  return maps;
}

// How many blocks of contents a double-indirect block leads to; 0 when its maps are not full, the last one excepted.
std::uint64_t CountSecondLevel(const Maps& maps, const std::vector<std::uint32_t>& named, std::uint64_t slots) {
  std::uint64_t count = 0;
  for (const std::uint32_t second : named) {
    const auto map = maps.find(second);
    if (map == maps.end() || count % slots != 0) return 0;
    count += map->second.size();
  }
  return count;
}

// Blocks by how many blocks of contents they lead to.
using Leading = std::map<std::uint64_t, std::vector<std::uint32_t>>;

// ---- Blocks of entries without a slot -------------------------------------------------------------------------------

// A slot that should name a directory's block, other than its first.
struct MissingEntries {
  std::uint16_t directory;
  std::uint64_t offset;
  std::uint32_t count;  // of entries
};

// Lost blocks by the number of entries in them, full ones first.
using EntryBlocks = std::map<std::uint32_t, std::vector<std::uint32_t>, std::greater<>>;

// ---- Records without a slot -----------------------------------------------------------------------------------------

// Node records in lost blocks that can be those of files and directories in use, by their numbers. A number that comes
// up with two records is left out.
using Records = std::map<std::uint16_t, OrbNodeRecord>;

Records FindRecords(const RepairWork& work) {
  Records records;
  std::set<std::uint16_t> twice;
  for (const std::uint32_t block : FindLostBlocks(work)) {
    const std::vector<std::uint8_t> bytes = work.GetBlock(block);
    for (std::uint32_t i = 0; i < work.geometry().nodesPerBlock(); ++i) {
      const std::uint8_t* slot = &bytes[i * kNodeSize];
      if (!HasNodeSignature(slot)) continue;
      const OrbNodeRecord record = DecodeNode(slot);
      if (!IsPlausible(work.geometry(), record.number, record) || record.size == 0) continue;
      const auto [first, fresh] = records.emplace(record.number, record);
      if (!fresh && !std::equal(slot, slot + kNodeSize, Encoded(first->second).begin())) twice.insert(record.number);
    }
  }
  for (const std::uint16_t number : twice) records.erase(number);
  return records;
}

// ---- Records in slots of other nodes --------------------------------------------------------------------------------

// Where sectors of node blocks were exchanged, or written to the wrong place, slots hold the records of other nodes. By
// number: the node in whose slot its record lies. Only records of nodes that have none in their own slot.
using Strays = std::map<std::uint16_t, std::uint16_t>;

bool HasOwnRecord(const NodeInfo& node) {
  return node.record.signature == kNodeSignature && node.record.number == node.number;
}

// The node's slot holds another's record, as far as signature and number tell.
bool HoldsStray(const Model& model, const NodeInfo& node) {
  return node.record.signature == kNodeSignature && node.record.number != node.number &&
         model.IsNode(node.record.number) && !HasOwnRecord(model.nodes[node.record.number]);
}

// The slot holds an empty file's record that is in its own slot as well: whatever was here before is worth more.
bool IsEmptyOfAnother(const Model& model, const NodeInfo& node) {
  const std::uint16_t number = node.record.number;
  return node.record.signature == kNodeSignature && number != node.number && model.IsNode(number) &&
         HasOwnRecord(model.nodes[number]) && node.record.size == 0;
}

// A slot beside it holds a record from as far away: not a number was damaged, but several slots were written together.
bool IsInRun(const Model& model, const NodeInfo& node) {
  const int away = node.record.number - node.number;
  const auto isAsFar = [&](std::uint32_t number) {
    return model.IsNode(number) && HoldsStray(model, model.nodes[number]) &&
           model.nodes[number].record.number - static_cast<int>(number) == away;
  };
  return isAsFar(node.number - 1u) || isAsFar(node.number + 1u);
}

// What proves a record to be another's: signature and number, and that an entry refers to this number, the number is
// the root's, or the bitmap has it in use and the slot is not the only one.
Strays FindStrays(const RepairWork& work) {
  const Model& model = work.model();
  Strays strays;
  std::vector<bool> named;
  std::set<std::uint16_t> twice;
  for (const NodeInfo& node : model.nodes) {
    if (!HoldsStray(model, node)) continue;
    const std::uint16_t number = node.record.number;
    if (!IsPlausible(work.geometry(), number, node.record)) continue;
    if (named.empty()) named = FindNamed(work);
    const bool used = model.nodes[number].state != NodeState::kFree;
    if (number != kRootNode && !named[number] && !(used && IsInRun(model, node))) continue;
    const auto [first, fresh] = strays.emplace(number, node.number);
    if (!fresh && Encoded(model.nodes[first->second].record) != Encoded(node.record)) twice.insert(number);
  }
  for (const std::uint16_t number : twice) strays.erase(number);
  return strays;
}

// A node block for table entry `index` in a new place, with all records that belong there. The old one stays as it is
// until the table refers to the new one: it may hold the only copy of other nodes' records.
bool MoveNodeBlock(RepairWork* work, std::uint32_t index, const Strays& strays) {
  const Model& model = work->model();
  const Geometry& geometry = work->geometry();
  Action& action = work->Begin(ActionKind::kMoveRecords);
  action.first = index;
  action.count = 0;
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
    const auto number = static_cast<std::uint16_t>(geometry.firstNode(index) + i);
    const auto stray = strays.find(number);
    if (stray != strays.end()) ++action.count;
    const bool there = model.IsNode(number) && model.nodes[number].offset != 0;
    const OrbNodeRecord record = stray != strays.end() ? model.nodes[stray->second].record
                                 : there               ? model.nodes[number].record
                                                       : EmptyNode(number);
    EncodeNode(record, &bytes[i * kNodeSize]);
  }
  work->careful = true;
  action.block = work->Take(bytes);
  work->careful = false;
  if (action.block == kNoBlock) return false;
  work->PutWord(TableEntryOffset(index), action.block);
  return true;
}

// Each record is written to the slot of its own number. A slot that holds the only copy of a record itself is not
// written over: its block is made anew elsewhere, unless there is no room for that.
void MoveRecords(RepairWork* work, const Strays& strays) {
  const Model& model = work->model();
  std::set<std::uint16_t> sources;
  for (const auto& [number, slot] : strays) sources.insert(slot);
  std::set<std::uint32_t> moved;  // table entries
  for (const auto& [number, slot] : strays) {
    const std::uint32_t index = (number - 1u) / work->geometry().nodesPerBlock();
    const NodeInfo& node = model.nodes[number];
    const bool anew = node.offset == 0 || sources.count(number) != 0;
    if (anew && moved.count(index) == 0 && MoveNodeBlock(work, index, strays)) moved.insert(index);
    if (moved.count(index) == 0) {
      if (node.offset == 0) continue;
      work->Begin(ActionKind::kMoveRecord, number).first = slot;
      work->PutNode(number, model.nodes[slot].record);
    }
    if (node.state == NodeState::kFree) work->SetFree(number, false);
  }
}

}  // namespace

std::vector<std::uint8_t> Encoded(const OrbNodeRecord& record) {
  std::vector<std::uint8_t> bytes(kNodeSize);
  EncodeNode(record, bytes.data());
  return bytes;
}

void RegainRecords(RepairWork* work) {
  const Model& model = work->model();
  const Strays strays = FindStrays(*work);
  std::vector<const NodeInfo*> lost;
  for (const NodeInfo& node : model.nodes) {
    const bool mended = node.readable && !IsCopyOfAnother(model, node) && !IsEmptyOfAnother(model, node);
    if (node.offset != 0 && !HasOwnRecord(node) && !mended) lost.push_back(&node);
  }
  if (!lost.empty()) {
    const Records records = FindRecords(*work);
    for (const NodeInfo* node : lost) {
      const auto found = records.find(node->number);
      if (found == records.end() || !HoldsData(*work, node->number, found->second)) continue;
      work->Begin(ActionKind::kReturnRecord, node->number);
      work->PutNode(node->number, found->second);
      if (node->state == NodeState::kFree) work->SetFree(node->number, false);
    }
  }
  if (!work->changed) MoveRecords(work, strays);
}

std::uint32_t CountNamelessEntries(const RepairWork& work, std::uint32_t block) {
  const Model& model = work.model();
  const std::vector<std::uint8_t> bytes = work.GetBlock(block);
  std::set<std::uint16_t> nodes;
  std::uint32_t count = 0;
  for (std::uint32_t slot = 0; slot < work.geometry().entriesPerBlock(); ++slot) {
    const OrbDirEntry entry = DecodeEntry(&bytes[slot * kDirEntrySize]);
    if (entry.node == 0) continue;
    const std::string name = NameOf(entry);
    if (count++ != slot || !IsLegalName(name) || UpperCase(name) != name || !nodes.insert(entry.node).second) return 0;
    if (!model.IsNode(entry.node) || entry.node == kRootNode) return 0;
    const NodeInfo& node = model.nodes[entry.node];
    if (node.state != NodeState::kUsed || !node.names.empty() || !node.pending.empty()) return 0;
  }
  return count;
}

namespace {

EntryBlocks FindEntryBlocks(const RepairWork& work) {
  EntryBlocks found;
  for (const std::uint32_t block : FindLostBlocks(work)) {
    const std::uint32_t count = CountNamelessEntries(work, block);
    if (count > 0) found[count].push_back(block);
  }
  return found;
}

std::vector<MissingEntries> FindMissingEntries(const RepairWork& work) {
  const Geometry& geometry = work.geometry();
  std::vector<MissingEntries> missing;
  for (const NodeInfo& node : work.model().nodes) {
    if (node.state != NodeState::kUsed || !node.IsDirectory() || node.map.sizeImpossible) continue;
    std::set<std::uint32_t> entered;
    VisitMap(work.image, geometry, node.record, node.offset, [&](const MapSlot& slot) {
      if (slot.level != MapLevel::kData) return work.CanEnter(slot.block) && entered.insert(slot.block).second;
      const std::vector<std::uint64_t>& foreign = node.directory.foreign;
      const bool there = geometry.Holds(slot.block) && !std::binary_search(foreign.begin(), foreign.end(), slot.index);
      if (there || slot.index == 0 || slot.index >= node.map.needed) return false;
      const std::uint64_t left = node.record.size / kDirEntrySize - slot.index * geometry.entriesPerBlock();
      missing.push_back({node.number, slot.offset,
                         static_cast<std::uint32_t>(std::min<std::uint64_t>(left, geometry.entriesPerBlock()))});
      return false;
    });
  }
  return missing;
}

// The only regained directory whose blocks are full, so that more may follow; 0 when there is none, or more than one.
std::uint16_t FindFullDirectory(const RepairWork& work) {
  std::uint16_t found = 0;
  for (const std::uint16_t number : work.regained) {
    const NodeInfo& node = work.model().nodes[number];
    const bool full = node.IsDirectory() && node.directory.holes == 0 && node.directory.firstBlockRead &&
                      node.record.size % work.geometry().blockSize == 0 && node.map.present == node.map.needed;
    if (full && found != 0) return 0;
    if (full) found = number;
  }
  return found;
}

// Full blocks in the order in which they lie, and at last the one that is not.
void Append(RepairWork* work, std::uint16_t directory, const EntryBlocks& blocks) {
  const std::uint32_t full = work->geometry().entriesPerBlock();
  if (blocks.size() > 2 || (blocks.size() == 2 && blocks.count(full) == 0)) return;
  for (const auto& [count, found] : blocks) {
    if (count != full && found.size() > 1) return;
    for (const std::uint32_t block : found) {
      OrbNodeRecord record = work->GetNode(directory);
      Action& action = work->Begin(ActionKind::kReturnEntries, directory);
      action.block = block;
      action.count = count;
      if (!SetMapSlot(work, &record, record.size / work->geometry().blockSize, block)) return;
      record.size += work->geometry().blockSize;
      work->PutNode(directory, record);
    }
  }
}

}  // namespace

void RegainDirectories(RepairWork* work) {
  const Directories directories = FindDirectories(*work);
  for (const auto& [number, block] : directories) {
    const std::uint32_t index = (number - 1u) / work->geometry().nodesPerBlock();
    const NodeInfo& node = work->model().nodes[number];
    if (IsDirectoryElsewhere(node)) {
      work->Begin(ActionKind::kReturnFirst, number).block = block;
      work->PutWord(node.offset + offsetof(OrbNodeRecord, direct), block);
    } else if (node.offset != 0) {
      work->Begin(ActionKind::kMakeRecord, number).block = block;
      work->PutNode(number, DirectoryRecord(*work, number, block));
      work->regained.insert(number);
    } else if (work->model().table[index] == kNoBlock && work->regained.count(number) == 0) {
      MakeNodeBlock(work, index, directories);
    }
  }
}

void RegainMaps(RepairWork* work) {
  const std::vector<MissingMap> missing = FindMissingMaps(*work);
  if (missing.empty()) return;
  const Maps maps = FindMaps(*work);
  Leading single, twice;
  for (const auto& [block, named] : maps) {
    single[named.size()].push_back(block);
    twice[CountSecondLevel(maps, named, work->geometry().mapSlots())].push_back(block);
  }
  std::map<std::uint32_t, std::vector<const MissingMap*>> claims;  // by block
  for (const MissingMap& slot : missing) {
    const std::vector<std::uint32_t>& fit = (slot.slot.level == MapLevel::kDouble ? twice : single)[slot.blocks];
    if (fit.size() == 1) claims[fit[0]].push_back(&slot);
  }
  for (const auto& [block, slots] : claims) {
    if (slots.size() != 1) continue;
    Action& action = work->Begin(ActionKind::kReturnMap, slots[0]->node);
    action.block = block;
    action.count = slots[0]->blocks;
    work->PutWord(slots[0]->slot.offset, block);
  }
}

void RegainEntries(RepairWork* work) {
  const std::vector<MissingEntries> missing = FindMissingEntries(*work);
  const std::uint16_t growing = FindFullDirectory(*work);
  if (missing.empty() && growing == 0) return;
  const EntryBlocks blocks = FindEntryBlocks(*work);
  // Slots that need as many entries as each other get their blocks in the order in which these lie. There must be just
  // as many, and all slots must be one directory's.
  std::map<std::uint32_t, std::vector<const MissingEntries*>> needs;
  for (const MissingEntries& slot : missing) needs[slot.count].push_back(&slot);
  for (const auto& [count, slots] : needs) {
    const auto fit = blocks.find(count);
    if (fit == blocks.end() || fit->second.size() != slots.size()) continue;
    if (slots.front()->directory != slots.back()->directory) continue;
    for (std::size_t i = 0; i < slots.size(); ++i) {
      Action& action = work->Begin(ActionKind::kReturnEntries, slots[i]->directory);
      action.block = fit->second[i];
      action.count = count;
      work->PutWord(slots[i]->offset, fit->second[i]);
    }
  }
  if (!work->changed && growing != 0) Append(work, growing, blocks);
}

}  // namespace orba::inspect

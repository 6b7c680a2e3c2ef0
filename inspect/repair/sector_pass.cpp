// Repair of sectors of directories that were exchanged with sectors of node records: a card wrote each to the place of
// the other.
//
// May assume: the table. Changes: such blocks, and nothing in between.
//
// One principle decides: a sector is taken for another's where all of it says so, the numbers in the records say where
// they belong, and what is there instead are entries.
#include <algorithm>
#include <cstddef>
#include <utility>

#include "inspect/container/block_map.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"
#include "inspect/repair/work.h"

namespace orba::inspect {

namespace {

constexpr std::uint32_t kSector = 512;
constexpr std::uint32_t kRecords = kSector / kNodeSize;

// Entries, or places for them, as far as every one of them tells.
bool HoldsEntries(const Model& model, const std::vector<std::uint8_t>& sector) {
  for (std::uint32_t at = 0; at < kSector; at += kDirEntrySize) {
    const OrbDirEntry entry = DecodeEntry(&sector[at]);
    const std::string name = NameOf(entry);
    const bool dots = name == "." || name == "..";
    if (entry.node != 0 && (!model.IsNode(entry.node) || (!dots && !IsLegalName(name)))) return false;
  }
  return true;
}

// The first of the nodes whose records the sector holds, in a row, and none of which has its record in its own slot; 0
// where it holds anything else.
std::uint16_t FirstOfRecords(const Model& model, const std::uint8_t* sector) {
  const std::uint16_t first = NodeNumber(sector);
  if (first % kRecords != 1) return 0;
  for (std::uint32_t i = 0; i < kRecords; ++i) {
    const std::uint32_t number = first + i;
    if (!IsSlotOf(sector + i * std::size_t{kNodeSize}, number) || !model.IsNode(number)) return 0;
    const NodeInfo& node = model.nodes[number];
    const bool own = node.record.signature == kNodeSignature && node.record.number == number;
    if (node.offset == 0 || own) return 0;
  }
  return first;
}

// The sectors of a directory's block go back, those of entries into a new block: until the directory refers to that,
// and the records are back in their slots, the old one holds the only copy of them.
void ReturnBlock(RepairWork* work, const NodeInfo& directory, const MapSlot& slot) {
  const std::vector<std::uint8_t> old = work->GetBlock(slot.block);
  std::vector<std::uint8_t> bytes = old;
  std::vector<std::pair<std::uint64_t, std::uint32_t>> records;  // where they belong, and where they are in the block
  for (std::uint32_t at = 0; at < bytes.size(); at += kSector) {
    const std::uint16_t first = FirstOfRecords(work->model(), &old[at]);
    if (first == 0) continue;
    const std::uint64_t offset = work->model().nodes[first].offset;
    std::vector<std::uint8_t> sector(kSector);
    const bool read = work->image.Read(offset, sector.data(), kSector);
    if (!read || !HoldsEntries(work->model(), sector)) continue;
    std::copy(sector.begin(), sector.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    records.emplace_back(offset, at);
  }
  if (records.empty()) return;
  Action& action = work->Begin(ActionKind::kReturnSectors, directory.number);
  action.count = records.size();
  work->careful = true;
  action.block = work->Take(bytes);
  work->careful = false;
  if (action.block == kNoBlock) return;
  work->PutWord(slot.offset, action.block);
  for (const auto& [offset, at] : records) work->Put(offset, &old[at], kSector);
}

}  // namespace

void ReturnSectors(RepairWork* work) {
  const Model& model = work->model();
  if (work->report.Count(Kind::kNodeSignature) < kRecords) return;
  for (const NodeInfo& directory : model.nodes) {
    if (directory.state != NodeState::kUsed || !directory.IsDirectory()) continue;
    VisitMap(work->image, work->geometry(), directory.record, directory.offset, [&](const MapSlot& slot) {
      const bool held = work->geometry().Holds(slot.block);
      const BlockUse use = held ? model.blocks[slot.block].use : BlockUse::kNothing;
      if (slot.level != MapLevel::kData) return use == BlockUse::kMap;
      if (use == BlockUse::kDirectory) ReturnBlock(work, directory, slot);
      return false;
    });
  }
}

}  // namespace orba::inspect

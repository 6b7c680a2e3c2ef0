#include "inspect/check/check.h"

#include <algorithm>

#include "inspect/check/work.h"
#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

// ---- Header ---------------------------------------------------------------------------------------------------------

void CheckHeader(Work* work) {
  const VolumeHeader& header = work->model().header;
  const VolumeHeader sound = SoundHeader(work->geometry(), header);
  VolumeHeader read = header;
  read.blockShift &= kShiftMask;
  std::uint8_t found[kHeaderSize], expected[kHeaderSize];
  EncodeHeader(read, found);
  EncodeHeader(sound, expected);
  for (const Field& field : kHeaderFields) {
    const std::uint32_t is = NumberOf(field, found);
    const std::uint32_t should = NumberOf(field, expected);
    if (field.form != Form::kNumber || is == should) continue;
    work->Add(Kind::kHeaderField, {0, 0, field.offset}, {{is, should, FieldsAgree(header)}});
  }
  if (header.blockShift > kShiftMask) {
    work->Add(Kind::kHeaderShiftBits, {0, 0, offsetof(VolumeHeader, blockShift)});
  }
  if (sound.reservedSize != 0) {
    work->Add(Kind::kReservedRegion, {0, 0, offsetof(VolumeHeader, reservedSize)}, {{sound.reservedSize}});
  }
  const std::uint32_t known = work->report.marked ? kVolumeDirty | kRepairMark : kVolumeDirty;
  if ((header.stateFlags & ~known) != 0) {
    work->Add(Kind::kHeaderReserved, {0, 0, kStateFlagsOffset}, {{true}});
  }
}

// False when nothing further can be read.
bool ReadHeader(Work* work) {
  std::uint8_t bytes[kHeaderSize];
  const std::uint64_t size = work->image.Size();
  if (size < kBitmapOffset) {
    work->Add(Kind::kContainerShort, {0, 0, size});
    return false;
  }
  if (!work->Read(0, bytes, sizeof bytes)) return false;
  Model& model = work->model();
  model.header = DecodeHeader(bytes);
  const VolumeHeader& header = model.header;
  work->report.marked = (header.stateFlags & kVolumeDirty) != 0;
  if (size >= kContainerLimit) {
    work->Add(Kind::kContainerLong, {0, 0, kContainerLimit});
  }
  if (header.signature != kVolumeSignature) {
    work->Add(Kind::kHeaderSignature, {0, 0, 0});
  }
  if (header.version != kVolumeVersion) {
    work->Add(Kind::kHeaderVersion, {0, 0, offsetof(VolumeHeader, version)});
  }
  for (std::uint32_t i = 0; i < sizeof header.reserved; ++i) {
    if (header.reserved[i] == 0) continue;
    work->Add(Kind::kHeaderReserved, {0, 0, offsetof(VolumeHeader, reserved) + i});
    break;
  }
  model.geometry = FindGeometry(work->image, header);
  if (!model.geometry.known()) {
    work->Add(Kind::kLayoutUnknown, {0, 0, offsetof(VolumeHeader, headerSize)});
    return false;
  }
  CheckHeader(work);
  if (size < model.geometry.dataOffset) {
    work->Add(Kind::kContainerShort, {0, 0, size}, {{true}});
    return false;
  }
  return true;
}

// ---- Node-block table, bitmap, node blocks --------------------------------------------------------------------------

bool ReadTable(Work* work) {
  std::uint8_t bytes[kNodeTableSize];
  if (!work->Read(kHeaderSize, bytes, sizeof bytes)) return false;
  Model& model = work->model();
  model.table = DecodeWords(bytes, kNodeTableEntries);
  model.bitmap.resize(model.geometry.bitmapSize);
  if (!work->Read(kBitmapOffset, model.bitmap.data(), model.bitmap.size())) return false;
  model.nodes.resize(std::size_t{model.geometry.nodeLimit()} + 1);
  for (std::size_t i = 0; i < model.nodes.size(); ++i) model.nodes[i].number = static_cast<std::uint16_t>(i);
  const std::size_t blocks = std::size_t{model.geometry.blocks} + 1;
  model.blocks.resize(blocks);
  work->entered.resize(blocks);
  work->parsed.resize(blocks);
  work->freed.resize(blocks);
  work->chainMark.resize(blocks);
  work->chainPlace.resize(blocks);
  return true;
}

// The bitmap says what is in use, the root is in any case.
void ReadBitmap(Work* work) {
  Model& model = work->model();
  const std::uint32_t bits = model.bits();
  if (bits > 0 && model.IsFreeBit(kRootNode)) {
    work->Add(Kind::kRootFree, {kRootNode, 0, BitmapByteOffset(kRootNode)});
  }
  for (NodeInfo& node : model.nodes) {
    const bool used = node.number != 0 && node.number <= bits && !model.IsFreeBit(node.number);
    if (used) node.state = NodeState::kLost;  // until its slot is read
  }
  model.nodes[kRootNode].state = NodeState::kLost;
  for (auto first = static_cast<std::uint32_t>(model.nodes.size()); first <= bits; ++first) {
    std::uint32_t end = first;
    while (end <= bits && !model.IsFreeBit(end)) ++end;
    if (end == first) continue;
    work->Add(Kind::kNodeWithoutBlock, {first, 0, BitmapByteOffset(first), end - first}, {{true}});
    first = end;
  }
}

void ReadSlot(Work* work, NodeInfo* node, std::uint32_t block, const std::uint8_t* bytes) {
  node->record = DecodeNode(bytes);
  const bool signature = node->record.signature == kNodeSignature;
  const bool number = node->record.number == node->number;
  if (!signature) {
    work->Add(Kind::kNodeSignature, {node->number, block, node->offset});
  }
  if (!number) {
    work->Add(Kind::kNodeNumber, {node->number, block, node->offset + offsetof(OrbNodeRecord, number)},
              {{node->record.number}});
  }
  node->readable = signature || number || IsPlausible(work->geometry(), node->number, node->record);
  if (node->readable && node->state == NodeState::kLost) node->state = NodeState::kUsed;
}

void ReadNodeBlock(Work* work, std::uint32_t index) {
  Model& model = work->model();
  const Geometry& geometry = work->geometry();
  const std::uint32_t block = model.table[index];
  const std::uint32_t first = geometry.firstNode(index);
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  if (!work->Read(geometry.BlockOffset(block), bytes.data(), bytes.size())) return;
  bool foreign = true;
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
    foreign &= !HasNodeSignature(&bytes[i * kNodeSize]);
  }
  if (foreign) {
    work->Add(Kind::kNodeBlockForeign, {0, block, TableEntryOffset(index)},
              {{index, first, first + geometry.nodesPerBlock() - 1}});
    return;
  }
  bool used = false;
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock() && model.IsNode(first + i); ++i) {
    NodeInfo& node = model.nodes[first + i];
    node.offset = geometry.NodeOffset(block, i);
    ReadSlot(work, &node, block, &bytes[i * kNodeSize]);
    used |= node.state != NodeState::kFree;
  }
  if (!used) {
    work->Add(Kind::kNodeBlockUnused, {0, block, TableEntryOffset(index)});
  }
}

bool HoldsNodes(const Work& work, std::uint32_t block) {
  const Geometry& geometry = work.geometry();
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  if (!geometry.Holds(block) || !work.image.Read(geometry.BlockOffset(block), bytes.data(), bytes.size())) return false;
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
    if (HasNodeSignature(&bytes[i * kNodeSize])) return true;
  }
  return false;
}

// The table entry whose update was written in part, or before its block was: on a marked container the only one that
// leads to no node block, where none of its nodes is in use yet. kNodeTableEntries when there is none.
std::uint32_t FindTornEntry(const Work& work) {
  const Model& model = work.report.model;
  std::uint32_t found = kNodeTableEntries;
  for (std::uint32_t index = 0; work.WasUpdated() && index < kNodeTableEntries; ++index) {
    if (model.table[index] == kNoBlock || HoldsNodes(work, model.table[index])) continue;
    if (found != kNodeTableEntries || index >= work.geometry().tableEntries()) return kNodeTableEntries;
    found = index;
  }
  const std::uint32_t first = work.geometry().firstNode(found);
  for (std::uint32_t i = 0; found != kNodeTableEntries && i < work.geometry().nodesPerBlock(); ++i) {
    if (model.IsNode(first + i) && model.nodes[first + i].state != NodeState::kFree) return kNodeTableEntries;
  }
  return found;
}

void ReadNodeBlocks(Work* work) {
  Model& model = work->model();
  const Geometry& geometry = work->geometry();
  const std::uint32_t torn = FindTornEntry(*work);
  for (std::uint32_t index = 0; index < kNodeTableEntries; ++index) {
    const std::uint32_t block = model.table[index];
    const std::uint64_t offset = TableEntryOffset(index);
    if (block == kNoBlock) continue;
    if (index == torn) {
      work->Add(Kind::kTableTorn, {0, block, offset}, {{index}});
      continue;
    }
    if (!geometry.Holds(block)) {
      work->NoteOutside(block);
      work->Add(Kind::kTableOutside, {0, block, offset}, {{index}});
      continue;
    }
    if (index >= geometry.tableEntries()) {
      work->Add(Kind::kTableUnneeded, {0, block, offset}, {{index}});
    }
    if (!work->Claim(block, {BlockUse::kNodeBlock, false, 0, index}, offset)) continue;
    if (index < geometry.tableEntries()) ReadNodeBlock(work, index);
  }
}

// ---- Nodes ----------------------------------------------------------------------------------------------------------

void CheckRecord(Work* work, const NodeInfo& node) {
  const OrbNodeRecord& record = node.record;
  const std::uint32_t number = node.number;
  const Place attributes = {number, 0, node.offset + offsetof(OrbNodeRecord, attributes)};
  if (!AreLegal(number, record.attributes)) {
    work->Add(Kind::kNodeAttributes, attributes, {{0, record.attributes}});
  } else if (node.wrongKind) {
    work->Add(Kind::kNodeAttributes, attributes, {{node.IsDirectory() ? 1u : 2u, record.attributes}});
  }
  if (record.time.reserved != 0 || record.reserved[0] != 0 || record.reserved[1] != 0 || record.reserved[2] != 0) {
    const std::uint64_t after = offsetof(OrbNodeRecord, time) + offsetof(TimeStamp, reserved);
    work->Add(Kind::kNodeReserved,
              {number, 0, node.offset + (record.time.reserved != 0 ? after : offsetof(OrbNodeRecord, reserved))});
  }
  if (!IsDate(record.time)) {
    work->Add(Kind::kNodeTime, {number, 0, node.offset + offsetof(OrbNodeRecord, time)});
  }
}

// Reports a run of lost nodes at its first one.
void CheckLost(Work* work, const NodeInfo& node) {
  const std::vector<NodeInfo>& nodes = work->model().nodes;
  const auto goesOn = [&](std::uint32_t number) {
    return number < nodes.size() && number != kRootNode && nodes[number].state == NodeState::kLost;
  };
  if (node.number == kRootNode) {
    work->Add(Kind::kRootLost, {kRootNode});
  } else if (!goesOn(node.number - 1u)) {
    std::uint32_t end = node.number;
    while (goesOn(end)) ++end;
    work->Add(Kind::kNodeWithoutBlock, {node.number, 0, BitmapByteOffset(node.number), end - node.number});
  }
}

void CheckNodes(Work* work) {
  for (NodeInfo& node : work->model().nodes) {
    if (node.state == NodeState::kLost) CheckLost(work, node);
    if (node.state != NodeState::kUsed) continue;
    JudgeKind(work, &node);
    CheckRecord(work, node);
    if (node.number == kRootNode && !node.IsDirectory()) {
      work->Add(Kind::kRootLost, {kRootNode, 0, node.offset + offsetof(OrbNodeRecord, attributes)}, {{true}});
    }
    WalkNode(work, &node);
  }
}

// ---- Leaks and sums -------------------------------------------------------------------------------------------------

void FindLeakedBlocks(Work* work) {
  const std::uint64_t why = work->IsDamaged() ? 1 : work->report.marked ? 2 : 0;
  const std::vector<BlockInfo>& blocks = work->model().blocks;
  for (std::uint32_t block = 1; block < blocks.size(); ++block) {
    if (blocks[block].use != BlockUse::kNothing) continue;
    std::uint32_t end = block;
    while (end < blocks.size() && blocks[end].use == BlockUse::kNothing) ++end;
    work->Add(Kind::kBlockLeaked, {0, block, work->geometry().BlockOffset(block), end - block}, {{why}});
    work->report.totals.leakedBlocks += end - block;
    block = end;
  }
}

void Sum(Work* work) {
  Totals& totals = work->report.totals;
  for (const NodeInfo& node : work->model().nodes) {
    if (node.number == 0) continue;
    if (node.state == NodeState::kFree) ++totals.freeNodes;
    if (node.state != NodeState::kUsed) continue;
    if (node.IsDirectory()) {
      ++totals.directories;
    } else {
      ++totals.files;
      totals.fileBytes += node.record.size;
    }
  }
  for (const BlockInfo& block : work->model().blocks) {
    if (block.use == BlockUse::kChainRecord || block.use == BlockUse::kFree) ++totals.freeBlocks;
  }
  const std::uint64_t size = work->image.Size();
  const std::uint32_t unit = work->geometry().blockSize;
  if (size < kContainerLimit) totals.appendableBlocks = (kContainerLimit - 1 - size) / unit;
}

void CheckTail(Work* work) {
  const Geometry& geometry = work->geometry();
  const std::uint64_t end = geometry.BlockOffset(geometry.blocks + 1);
  const std::uint64_t size = std::min<std::uint64_t>(work->image.Size(), kContainerLimit);
  if (size <= end) return;
  work->Add(Kind::kTrailingBytes, {0, 0, end, static_cast<std::uint32_t>(size - end)},
            {{work->model().tailNamed, geometry.blocks + 1}});
}

void AddPaths(Report* report) {
  for (Finding& finding : report->findings) {
    if (report->model.IsNode(finding.node)) finding.path = PathOf(report->model, finding.node);
  }
}

}  // namespace

// ---- What the passes share ------------------------------------------------------------------------------------------

void Work::Add(Kind kind, const Place& place, const Facts& facts) {
  ++report.counts[static_cast<std::size_t>(kind)];
  if (report.findings.size() >= kMaxFindings) return;
  Finding finding;
  static_cast<Place&>(finding) = place;
  finding.kind = kind;
  finding.facts = facts;
  report.findings.push_back(std::move(finding));
}

bool Work::Read(std::uint64_t offset, void* out, std::size_t count) {
  if (image.Read(offset, out, count)) return true;
  Add(Kind::kUnreadable, {0, 0, offset, static_cast<std::uint32_t>(count)});
  return false;
}

bool Work::Claim(std::uint32_t block, const BlockInfo& owner, std::uint64_t offset) {
  BlockInfo& info = report.model.blocks[block];
  if (info.use == BlockUse::kNothing) {
    const bool noMap = info.noMap;
    info = owner;
    info.noMap = noMap;
    return true;
  }
  info.shared = true;
  Add(Kind::kBlockShared, {owner.node, block, offset}, {{}, "", owner, info});
  return false;
}

// ---- The public face ------------------------------------------------------------------------------------------------

std::uint64_t Report::Count(Severity severity) const {
  std::uint64_t sum = 0;
  for (const KindInfo& info : AllKinds()) {
    if (info.severity == severity) sum += Count(info.kind);
  }
  return sum;
}

Severity Report::Worst() const {
  for (const Severity severity : kSeverities) {
    if (Count(severity) > 0) return severity;
  }
  return Severity::kNote;
}

bool Report::IsClean() const { return Worst() == Severity::kNote; }

Report Check(const Image& image) {
  Work work(image);
  if (ReadHeader(&work) && ReadTable(&work)) {
    ReadBitmap(&work);
    ReadNodeBlocks(&work);
    WalkChain(&work);
    CheckNodes(&work);
    CheckEntries(&work);
    CheckReach(&work);
    CheckNames(&work);
    ClaimChain(&work);
    FindLeakedBlocks(&work);
    CheckTail(&work);
    Sum(&work);
    AddPaths(&work.report);
    work.report.readable = work.report.Count(Kind::kUnreadable) == 0;
  }
  return std::move(work.report);
}

}  // namespace orba::inspect

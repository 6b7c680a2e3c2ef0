#include "inspect/check/check.h"

#include <algorithm>

#include "inspect/check/work.h"
#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

using std::to_string;

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
    work->Add(Kind::kHeaderField, {0, 0, field.offset},
              field.meaning + (" is " + to_string(is)) + " and should be " + to_string(should) +
                  (FieldsAgree(header) ? "; a mount believes it and finds no root" : "; a mount refuses this"));
  }
  if (header.blockShift > kShiftMask) {
    work->Add(Kind::kHeaderShiftBits, {0, 0, offsetof(VolumeHeader, blockShift)},
              "the block shift has bits above its low byte, which nothing reads");
  }
  if (sound.reservedSize != 0) {
    work->Add(Kind::kReservedRegion, {0, 0, offsetof(VolumeHeader, reservedSize)},
              "the header keeps " + to_string(sound.reservedSize) + " bytes free between bitmap and data area");
  }
  if ((header.stateFlags & ~kVolumeDirty) != 0) {
    work->Add(Kind::kHeaderReserved, {0, 0, kStateFlagsOffset}, "state flags are set that have no meaning");
  }
}

// False when nothing further can be read.
bool ReadHeader(Work* work) {
  std::uint8_t bytes[kHeaderSize];
  const std::uint64_t size = work->image.Size();
  if (size < kBitmapOffset) {
    work->Add(Kind::kContainerShort, {0, 0, size}, "the container ends before the node bitmap; nothing can be read");
    return false;
  }
  if (!work->Read(0, bytes, sizeof bytes)) return false;
  Model& model = work->model();
  model.header = DecodeHeader(bytes);
  const VolumeHeader& header = model.header;
  work->report.marked = (header.stateFlags & kVolumeDirty) != 0;
  if (size >= kContainerLimit) {
    work->Add(Kind::kContainerLong, {0, 0, kContainerLimit},
              "the container has 2^31 bytes or more; a host cannot seek so far");
  }
  if (header.signature != kVolumeSignature) {
    work->Add(Kind::kHeaderSignature, {0, 0, 0}, "the container does not begin with \"ORBA\"; a mount refuses this");
  }
  if (header.version != kVolumeVersion) {
    work->Add(Kind::kHeaderVersion, {0, 0, offsetof(VolumeHeader, version)},
              "the version is not \"1.0 \"; a mount refuses this");
  }
  for (std::uint32_t i = 0; i < sizeof header.reserved; ++i) {
    if (header.reserved[i] == 0) continue;
    work->Add(Kind::kHeaderReserved, {0, 0, offsetof(VolumeHeader, reserved) + i},
              "a reserved byte of the header is not zero");
    break;
  }
  model.geometry = FindGeometry(work->image, header);
  if (!model.geometry.known()) {
    work->Add(Kind::kLayoutUnknown, {0, 0, offsetof(VolumeHeader, headerSize)},
              "block size and bitmap size are contradictory and no root directory was found; nothing further was read");
    return false;
  }
  CheckHeader(work);
  if (size < model.geometry.dataOffset) {
    work->Add(Kind::kContainerShort, {0, 0, size}, "the container ends before its data area");
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
  work->givenBack.resize(blocks);
  work->chainMark.resize(blocks);
  work->chainPlace.resize(blocks);
  return true;
}

// Nodes first to end - 1: one finding, with the first one's place.
void AddPlaceless(Work* work, std::uint32_t first, std::uint32_t end, const char* why) {
  work->Add(
      Kind::kNodePlaceless, {first, 0, BitmapByteOffset(first), end - first},
      "the bitmap says " +
          (end - first == 1 ? "in use" : "of nodes " + to_string(first) + " to " + to_string(end - 1) + ": in use") +
          ", but " + why);
}

// The bitmap says what is in use, the root is in any case.
void ReadBitmap(Work* work) {
  Model& model = work->model();
  const std::uint32_t bits = model.bits();
  if (bits > 0 && model.IsFreeBit(kRootNode)) {
    work->Add(Kind::kRootFree, {kRootNode, 0, BitmapByteOffset(kRootNode)},
              "the bitmap says that the root's node is free; it would be given out again");
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
    AddPlaceless(work, first, end, "the node-block table has no room for such a number");
    first = end;
  }
}

void ReadSlot(Work* work, NodeInfo* node, std::uint32_t block, const std::uint8_t* bytes) {
  node->record = DecodeNode(bytes);
  const bool signature = node->record.signature == kNodeSignature;
  const bool number = node->record.number == node->number;
  if (!signature) {
    work->Add(Kind::kNodeSignature, {node->number, block, node->offset},
              "the node's slot does not begin with \"INO1\"");
  }
  if (!number) {
    work->Add(Kind::kNodeNumber, {node->number, block, node->offset + offsetof(OrbNodeRecord, number)},
              "the slot carries number " + to_string(node->record.number) + " instead of its own");
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
              "table entry " + to_string(index) + " names " + BlockText(block) + ", which holds no node; nodes " +
                  to_string(first) + " to " + to_string(first + geometry.nodesPerBlock() - 1) + " are lost");
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
    work->Add(Kind::kNodeBlockIdle, {0, block, TableEntryOffset(index)},
              BlockText(block) + " holds node slots, none of them in use");
  }
}

void ReadNodeBlocks(Work* work) {
  Model& model = work->model();
  const Geometry& geometry = work->geometry();
  for (std::uint32_t index = 0; index < kNodeTableEntries; ++index) {
    const std::uint32_t block = model.table[index];
    const std::uint64_t offset = TableEntryOffset(index);
    if (block == kNoBlock) continue;
    if (!geometry.Holds(block)) {
      work->NoteOutside(block);
      work->Add(
          Kind::kTableOutside, {0, block, offset},
          "table entry " + to_string(index) + " names " + BlockText(block) + ", which the container does not hold");
      continue;
    }
    if (index >= geometry.tableEntries()) {
      work->Add(Kind::kTableUnneeded, {0, block, offset},
                "table entry " + to_string(index) + " names a block for nodes that the volume cannot have");
    }
    if (!work->Claim(block, {BlockUse::kNodeBlock, false, 0, index}, offset)) continue;
    if (index < geometry.tableEntries()) ReadNodeBlock(work, index);
  }
}

// ---- Nodes ----------------------------------------------------------------------------------------------------------

void CheckRecord(Work* work, const NodeInfo& node) {
  const OrbNodeRecord& record = node.record;
  const std::uint32_t number = node.number;
  if (!AreLegal(number, record.attributes)) {
    work->Add(Kind::kNodeAttributes, {number, 0, node.offset + offsetof(OrbNodeRecord, attributes)},
              "attributes " + to_string(record.attributes) + " are not a file's, a directory's or the root's");
  } else if (node.wrongKind) {
    work->Add(Kind::kNodeAttributes, {number, 0, node.offset + offsetof(OrbNodeRecord, attributes)},
              node.IsDirectory() ? "the attributes are a file's, but the contents are this directory's"
                                 : "the attributes are a directory's, but the contents are not");
  }
  if (record.time.reserved != 0 || record.reserved[0] != 0 || record.reserved[1] != 0 || record.reserved[2] != 0) {
    const std::uint64_t after = offsetof(OrbNodeRecord, time) + offsetof(TimeStamp, reserved);
    work->Add(Kind::kNodeReserved,
              {number, 0, node.offset + (record.time.reserved != 0 ? after : offsetof(OrbNodeRecord, reserved))},
              "a reserved byte of the node is not zero");
  }
  if (!IsDate(record.time)) {
    work->Add(Kind::kNodeTime, {number, 0, node.offset + offsetof(OrbNodeRecord, time)},
              "the time stamp is no date of the calendar");
  }
}

// Reports a run of lost nodes at its first one.
void CheckLost(Work* work, const NodeInfo& node) {
  const std::vector<NodeInfo>& nodes = work->model().nodes;
  const auto goesOn = [&](std::uint32_t number) {
    return number < nodes.size() && number != kRootNode && nodes[number].state == NodeState::kLost;
  };
  if (node.number == kRootNode) {
    work->Add(Kind::kRootLost, {kRootNode}, "the root directory's node cannot be read; no path leads anywhere");
  } else if (!goesOn(node.number - 1u)) {
    std::uint32_t end = node.number;
    while (goesOn(end)) ++end;
    AddPlaceless(work, node.number, end, "no node block holds such a record");
  }
}

void CheckNodes(Work* work) {
  for (NodeInfo& node : work->model().nodes) {
    if (node.state == NodeState::kLost) CheckLost(work, node);
    if (node.state != NodeState::kUsed) continue;
    JudgeKind(work, &node);
    CheckRecord(work, node);
    if (node.number == kRootNode && !node.IsDirectory()) {
      work->Add(Kind::kRootLost, {kRootNode, 0, node.offset + offsetof(OrbNodeRecord, attributes)},
                "the root's node is no directory");
    }
    WalkNode(work, &node);
  }
}

// ---- Leaks and sums -------------------------------------------------------------------------------------------------

void FindLeakedBlocks(Work* work) {
  const char* const reserve = work->Reserve("; the space is lost until it is given back");
  const std::vector<BlockInfo>& blocks = work->model().blocks;
  for (std::uint32_t block = 1; block < blocks.size(); ++block) {
    if (blocks[block].use != BlockUse::kNothing) continue;
    std::uint32_t end = block;
    while (end < blocks.size() && blocks[end].use == BlockUse::kNothing) ++end;
    const std::string what = end - block == 1 ? BlockText(block) + " is"
                                              : "blocks " + to_string(block) + " to " + to_string(end - 1) + " are";
    work->Add(Kind::kBlockLeaked, {0, block, work->geometry().BlockOffset(block), end - block},
              what + " neither in use nor in the free chain" + reserve);
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
            to_string(size - end) + " bytes follow the last whole block; " +
                (work->model().tailNamed ? "they begin " + BlockText(geometry.blocks + 1) + ", which is in use"
                                         : "the next block appended overwrites them"));
}

void AddPaths(Report* report) {
  for (Finding& finding : report->findings) {
    if (report->model.IsNode(finding.node)) finding.path = PathOf(report->model, finding.node);
  }
}

}  // namespace

// ---- What the passes share ------------------------------------------------------------------------------------------

void Work::Add(Kind kind, const Place& place, std::string text) {
  ++report.counts[static_cast<std::size_t>(kind)];
  if (report.findings.size() >= kMaxFindings) return;
  Finding finding;
  finding.kind = kind;
  finding.node = place.node;
  finding.block = place.block;
  finding.offset = place.offset;
  finding.count = place.count;
  finding.text = std::move(text);
  report.findings.push_back(std::move(finding));
}

bool Work::CountOnly(Kind kind) {
  if (report.findings.size() < kMaxFindings) return false;
  ++report.counts[static_cast<std::size_t>(kind)];
  return true;
}

bool Work::Read(std::uint64_t offset, void* out, std::size_t count) {
  if (image.Read(offset, out, count)) return true;
  Add(Kind::kUnreadable, {0, 0, offset, static_cast<std::uint32_t>(count)}, "the host cannot read here");
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
  if (CountOnly(Kind::kBlockShared)) return false;
  Add(Kind::kBlockShared, {owner.node, block, offset},
      BlockText(block) + " serves " + OwnerText(owner) + ", but also " + OwnerText(info) +
          "; a write to the one changes the other");
  return false;
}

std::string BlockText(std::uint32_t block) { return "block " + to_string(block); }
std::string NodeText(std::uint32_t node) { return "node " + to_string(node); }

std::string OwnerText(const BlockInfo& owner) {
  switch (owner.use) {
    case BlockUse::kNothing:
      return "nothing";
    case BlockUse::kNodeBlock:
      return "as node block of table entry " + to_string(owner.index);
    case BlockUse::kMap:
      return "as block-map block of " + NodeText(owner.node);
    case BlockUse::kFile:
      return "as block " + to_string(owner.index) + " of file " + to_string(owner.node);
    case BlockUse::kDirectory:
      return "as block " + to_string(owner.index) + " of directory " + to_string(owner.node);
    case BlockUse::kChainRecord:
      return "as free-chain record";
    case BlockUse::kFree:
      return "as free block";
  }
  return "nothing";
}

// ---- The public face ------------------------------------------------------------------------------------------------

std::uint64_t Report::Count(Severity severity) const {
  std::uint64_t sum = 0;
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    if (SeverityOf(static_cast<Kind>(kind)) == severity) sum += counts[kind];
  }
  return sum;
}

Severity Report::Worst() const {
  for (const Severity severity : {Severity::kDamage, Severity::kHalfMade, Severity::kLeak}) {
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

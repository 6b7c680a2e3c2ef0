#include "inspect/view/dump.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "inspect/container/block_map.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

using std::to_string;
using Bytes = std::vector<std::uint8_t>;

std::string Offset(std::uint64_t offset) {
  char text[24];
  std::snprintf(text, sizeof text, "%08llx  ", static_cast<unsigned long long>(offset));
  return text;
}

std::string Hex(const std::uint8_t* bytes, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x ", bytes[i]);
    text += digits;
  }
  return text;
}

std::string Padded(std::string text, std::size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

// One line for one field: at most 8 of its bytes, its name, its meaning.
std::string Field(std::uint64_t offset, const std::uint8_t* bytes, std::size_t count, const std::string& name,
                  const std::string& meaning) {
  std::string hex = Hex(bytes, std::min<std::size_t>(count, 8));
  if (count > 8) hex += ".. ";
  return Offset(offset) + Padded(hex, 28) + Padded(name, 20) + meaning + "\n";
}

std::string Text(const std::uint8_t* bytes, std::size_t count) {
  std::string text = "\"";
  for (std::size_t i = 0; i < count; ++i) {
    text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
  }
  return text + "\"";
}

bool AllZero(const std::uint8_t* bytes, std::size_t count) {
  return std::all_of(bytes, bytes + count, [](std::uint8_t byte) { return byte == 0; });
}

std::string ZeroOrNot(const std::uint8_t* bytes, std::size_t count) {
  return AllZero(bytes, count) ? "zero" : "not zero";
}

std::string BlockMeaning(std::uint32_t block) { return block == kNoBlock ? "none" : "block " + to_string(block); }

std::string TimeText(const TimeStamp& time) {
  char text[48];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u UTC", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

std::string AttributeText(std::uint16_t attributes) {
  std::string text;
  const auto add = [&](std::uint16_t bit, const char* name) {
    if ((attributes & bit) != 0) text += (text.empty() ? "" : ", ") + std::string(name);
  };
  add(ORB_NODE_DIRECTORY, "directory");
  add(kNodeReadOnly, "read-only");
  add(kNodeUserFlag, "user flag");
  add(kNodeSystemFlag, "system flag");
  return text.empty() ? "file" : text;
}

std::string StateText(const Model& model, const NodeInfo& node) {
  if (node.state == NodeState::kFree) return "free";
  if (node.state == NodeState::kLost) return "in use, but its record is lost";
  return (node.IsDirectory() ? "directory " : "file ") + PathOf(model, node.number);
}

std::string UseText(const Model& model, std::uint32_t block) {
  const BlockInfo& info = model.blocks[block];
  std::string text = Name(info.use);
  if (info.use == BlockUse::kNothing) text = "nothing names it";
  if (info.use == BlockUse::kNodeBlock) text += " of table entry " + to_string(info.index);
  if (info.use == BlockUse::kFile || info.use == BlockUse::kDirectory) {
    text = "logical block " + to_string(info.index) + " of " + Name(info.use) + " " + PathOf(model, info.node);
  }
  if (info.use == BlockUse::kMap) {
    text = "block map of " + PathOf(model, info.node) + " from logical block " + to_string(info.index);
  }
  return text + (info.shared ? ", and something else's too" : "");
}

// ---- The records ----------------------------------------------------------------------------------------------------

std::string NodeLines(std::uint64_t offset, const std::uint8_t* bytes) {
  const OrbNodeRecord node = DecodeNode(bytes);
  std::string text = Field(offset, bytes, 4, "signature", Text(bytes, 4));
  text += Field(offset + 4, bytes + 4, 2, "number", to_string(node.number));
  text += Field(offset + 6, bytes + 6, 2, "attributes", AttributeText(node.attributes));
  text += Field(offset + 8, bytes + 8, 7, "time stamp", TimeText(node.time));
  text += Field(offset + 15, bytes + 15, 1, "reserved", ZeroOrNot(bytes + 15, 1));
  text += Field(offset + 16, bytes + 16, 4, "size", to_string(node.size));
  text += Field(offset + 20, bytes + 20, 12, "reserved", ZeroOrNot(bytes + 20, 12));
  for (std::uint32_t i = 0; i < kDirectBlocks; ++i) {
    const std::uint32_t at = 32 + 4 * i;
    text += Field(offset + at, bytes + at, 4, "direct " + to_string(i), BlockMeaning(node.direct[i]));
  }
  text += Field(offset + 56, bytes + 56, 4, "indirect", BlockMeaning(node.indirect));
  return text + Field(offset + 60, bytes + 60, 4, "double-indirect", BlockMeaning(node.doubleIndirect));
}

// Node slots of a block, a line each.
std::string SlotLines(const Model& model, std::uint64_t offset, const Bytes& bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += kNodeSize) {
    const std::uint16_t number = Get16(&bytes[at + 4]);
    const std::string state = model.IsNode(number) ? StateText(model, model.nodes[number]) : "no node of this volume";
    text += Field(offset + at, &bytes[at], 8, "node " + to_string(number), state);
  }
  return text;
}

std::string EntryLines(const Model& model, std::uint64_t offset, const Bytes& bytes, std::uint32_t first) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += kDirEntrySize) {
    const OrbDirEntry entry = DecodeEntry(&bytes[at]);
    const std::uint32_t index = first + static_cast<std::uint32_t>(at / kDirEntrySize);
    if (entry.node == 0) return text + Field(offset + at, &bytes[at], 8, "entry " + to_string(index), "end mark");
    const std::string state =
        model.IsNode(entry.node) ? StateText(model, model.nodes[entry.node]) : "no node of this volume";
    text += Field(offset + at, &bytes[at], 8, "entry " + to_string(index),
                  Padded(Printable(NameOf(entry)), 30) + "node " + to_string(entry.node) + ", " + state);
  }
  return text;
}

// Numbers in a row: "block 12", "blocks 12 to 15".
std::string Run(const char* one, const char* many, std::uint64_t first, std::uint64_t count) {
  if (count == 1) return one + (" " + to_string(first));
  return many + (" " + to_string(first) + " to " + to_string(first + count - 1));
}

// The words at `bytes`, a line for each run of consecutive block numbers.
std::string WordLines(std::uint64_t offset, const std::uint8_t* bytes, std::uint32_t words, std::uint64_t first,
                      const char* one, const char* many) {
  std::string text;
  for (std::uint32_t i = 0; i < words;) {
    const std::uint32_t block = Get32(bytes + 4 * i);
    std::uint32_t run = 1;
    while (i + run < words && Get32(bytes + 4 * (i + run)) == (block == 0 ? 0 : block + run)) ++run;
    const std::string meaning = block == 0 ? "none" : Run("block", "blocks", block, run);
    text += Field(offset + 4 * i, bytes + 4 * i, 4 * run, Run(one, many, first + i, run), meaning);
    i += run;
  }
  return text;
}

std::string ChainLines(std::uint64_t offset, const Bytes& bytes) {
  std::string text = Field(offset, &bytes[0], 4, "signature", Text(&bytes[0], 4));
  text += Field(offset + 4, &bytes[4], 4, "next", BlockMeaning(Get32(&bytes[4])));
  const std::uint32_t count = Get32(&bytes[8]);
  const auto capacity = static_cast<std::uint32_t>((bytes.size() - kFreeChainHeader) / 4);
  text += Field(offset + 8, &bytes[8], 4, "count", to_string(count) + " of " + to_string(capacity));
  return text + WordLines(offset + 12, &bytes[12], std::min(count, capacity), 1, "entry", "entries");
}

std::string NotHeld(const char* what, std::uint64_t number) {
  return std::string(what) + " " + to_string(number) + ": the container does not hold it\n";
}

}  // namespace

std::string DumpBytes(const Image& image, std::uint64_t offset, std::uint64_t count) {
  std::string text, last;
  bool repeated = false;
  for (std::uint64_t at = 0; at < count; at += 16) {
    std::uint8_t bytes[16];
    const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(16, count - at));
    if (!image.Read(offset + at, bytes, part)) return text + Offset(offset + at) + "cannot be read\n";
    const std::string line = Padded(Hex(bytes, part), 50) + Text(bytes, part) + "\n";
    if (line != last) text += Offset(offset + at) + line;
    if (line == last && !repeated) text += "*\n";
    repeated = line == last;
    last = line;
  }
  return text;
}

std::string DumpHeader(const Image& image) {
  std::uint8_t bytes[kHeaderSize];
  if (!image.Read(0, bytes, sizeof bytes)) return "the container ends inside the header\n";
  static const char* const kFields[] = {"header size", "table offset",    "table size",      "bitmap offset",
                                        "bitmap size", "reserved offset", "reserved size",   "data area offset",
                                        "block size",  "block shift",     "free-chain head", "state flags"};
  std::string text =
      Field(0, bytes, 4, "signature", Text(bytes, 4)) + Field(4, bytes + 4, 4, "version", Text(bytes + 4, 4));
  for (std::uint32_t i = 0; i < 12; ++i) {
    const std::uint32_t at = 8 + 4 * i;
    const std::uint32_t value = Get32(bytes + at);
    std::string meaning = to_string(value);
    if (at == 48) meaning = BlockMeaning(value);
    if (at == kStateFlagsOffset) meaning += (value & kVolumeDirty) != 0 ? ": marked as being updated" : ": not marked";
    text += Field(at, bytes + at, 4, kFields[i], meaning);
  }
  return text + Field(56, bytes + 56, 72, "reserved", ZeroOrNot(bytes + 56, 72));
}

std::string DumpTable(const Report& report) {
  const Model& model = report.model;
  if (model.table.empty()) return "the node-block table cannot be read\n";
  std::string text;
  for (std::uint32_t i = 0; i < kNodeTableEntries; ++i) {
    if (model.table[i] == kNoBlock) continue;
    std::uint8_t bytes[4];
    Put32(bytes, model.table[i]);
    const std::uint32_t perBlock = model.geometry.nodesPerBlock();
    text += Field(
        kHeaderSize + 4 * i, bytes, 4, "entry " + to_string(i),
        "block " + to_string(model.table[i]) + ": " + Run("node", "nodes", std::uint64_t{i} * perBlock + 1, perBlock));
  }
  return text + "all other entries are zero\n";
}

std::string DumpBitmap(const Report& report) {
  const Model& model = report.model;
  if (model.table.empty()) return "the node bitmap cannot be read\n";
  const std::uint32_t numbers = static_cast<std::uint32_t>(model.bitmap.size() * 8);
  if (numbers == 0) return "the bitmap is empty: the volume holds the root alone\n";
  std::string text;
  for (std::uint32_t number = 1; number <= numbers;) {
    const bool free = model.IsFreeBit(number);
    std::uint32_t run = 1;
    while (number + run <= numbers && model.IsFreeBit(number + run) == free) ++run;
    const std::uint32_t byte = (number - 1) / 8;
    const std::uint32_t last = (number + run - 2) / 8;
    text += Field(kBitmapOffset + byte, &model.bitmap[byte], last - byte + 1, Run("node", "nodes", number, run),
                  free ? "free" : "in use");
    number += run;
  }
  return text;
}

std::string DumpNode(const Image& image, const Report& report, std::uint32_t number) {
  const Model& model = report.model;
  if (!model.IsNode(number)) return "node " + to_string(number) + ": the volume does not have it\n";
  const NodeInfo& node = model.nodes[number];
  std::uint8_t bytes[kNodeSize];
  if (node.offset == 0 || !image.Read(node.offset, bytes, sizeof bytes)) return NotHeld("node", number);
  std::string text = "node " + to_string(number) + ": " + StateText(model, node) + "\n" + NodeLines(node.offset, bytes);
  for (const NameRef& name : node.names) {
    const Entry& entry = model.nodes[name.directory].entries[name.entry];
    text += "named \"" + Printable(NameOf(entry.record)) + "\" in " + PathOf(model, name.directory) + "\n";
  }
  return text;
}

std::string DumpBlock(const Image& image, const Report& report, std::uint32_t block) {
  const Model& model = report.model;
  const Geometry& geometry = model.geometry;
  if (!geometry.known() || !geometry.Holds(block) || model.blocks.empty()) return NotHeld("block", block);
  const std::uint64_t offset = geometry.BlockOffset(block);
  Bytes bytes(geometry.blockSize);
  if (!image.Read(offset, bytes.data(), bytes.size())) return "block " + to_string(block) + ": cannot be read\n";
  const BlockInfo& info = model.blocks[block];
  const std::string head = "block " + to_string(block) + ": " + UseText(model, block) + "\n";
  switch (info.use) {
    case BlockUse::kNodeBlock:
      return head + SlotLines(model, offset, bytes);
    case BlockUse::kDirectory:
      return head + EntryLines(model, offset, bytes, info.index * geometry.entriesPerBlock());
    case BlockUse::kMap:
      return head + WordLines(offset, bytes.data(), geometry.mapSlots(), 0, "slot", "slots");
    case BlockUse::kChainRecord:
      return head + ChainLines(offset, bytes);
    case BlockUse::kNothing:
    case BlockUse::kFile:
    case BlockUse::kFree:
      break;
  }
  return head + DumpBytes(image, offset, bytes.size());
}

std::string DumpChain(const Image& image, const Report& report) {
  const Model& model = report.model;
  if (model.chain.empty()) {
    return model.header.freeChainHead == kNoBlock ? "no free chain\n" : "the free chain cannot be read\n";
  }
  std::string text;
  for (const ChainRecordInfo& record : model.chain) {
    const std::uint64_t offset = model.geometry.BlockOffset(record.block);
    Bytes bytes(model.geometry.blockSize);
    if (!image.Read(offset, bytes.data(), bytes.size())) continue;
    text += "record in block " + to_string(record.block) + "\n" + ChainLines(offset, bytes);
  }
  return text;
}

std::string DumpDirectory(const Image& image, const Report& report, std::uint32_t number) {
  const Model& model = report.model;
  const Geometry& geometry = model.geometry;
  if (!model.IsNode(number)) return "node " + to_string(number) + ": the volume does not have it\n";
  const NodeInfo& node = model.nodes[number];
  if (!node.readable || !node.IsDirectory()) return "node " + to_string(number) + ": no directory\n";
  std::string text = StateText(model, node) + ", node " + to_string(number) + ", " +
                     Counted(node.record.size / kDirEntrySize, "entry", "entries") + "\n";
  for (std::uint64_t index = 0; index < std::min(geometry.BlocksFor(node.record.size), geometry.mapCapacity());
       ++index) {
    const std::uint32_t block = FindBlock(image, geometry, node.record, index);
    Bytes bytes(geometry.blockSize);
    if (block == kNoBlock || !image.Read(geometry.BlockOffset(block), bytes.data(), bytes.size())) {
      return text + "logical block " + to_string(index) + " is missing\n";
    }
    text += "block " + to_string(block) + "\n" +
            EntryLines(model, geometry.BlockOffset(block), bytes,
                       static_cast<std::uint32_t>(index) * geometry.entriesPerBlock());
  }
  return text;
}

}  // namespace orba::inspect

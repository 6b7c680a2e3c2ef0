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

// One line: at most 8 of the bytes, what they are, what they mean.
std::string Line(std::uint64_t offset, const std::uint8_t* bytes, std::size_t count, const std::string& name,
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
  if (info.use == BlockUse::kNothing) text = "nothing refers to it";
  if (info.use == BlockUse::kNodeBlock) text += " of table entry " + to_string(info.index);
  if (info.use == BlockUse::kFile || info.use == BlockUse::kDirectory) {
    text = "logical block " + to_string(info.index) + " of " + Name(info.use) + " " + PathOf(model, info.node);
  }
  if (info.use == BlockUse::kMap) {
    text = "block map of " + PathOf(model, info.node) + " from logical block " + to_string(info.index);
  }
  return text + (info.shared ? ", and in use elsewhere too" : "");
}

// ---- The records ----------------------------------------------------------------------------------------------------

// What the first element of a field says.
std::string Meaning(const Field& field, const std::uint8_t* record) {
  const std::uint8_t* bytes = record + field.offset;
  const std::uint32_t number = NumberOf(field, record);
  switch (field.form) {
    case Form::kText:
      return Text(bytes, field.size());
    case Form::kNumber:
      return to_string(number);
    case Form::kBlock:
      return BlockMeaning(number);
    case Form::kAttributes:
      return AttributeText(static_cast<std::uint16_t>(number));
    case Form::kFlags:
      return to_string(number) + ((number & kVolumeDirty) != 0 ? ": marked as being updated" : ": not marked");
    case Form::kTime:
      return TimeText(DecodeTime(bytes));
    case Form::kName:
      return Text(bytes, field.size());
    case Form::kReserved:
      return AllZero(bytes, field.size()) ? "zero" : "not zero";
  }
  return "";
}

// A line for each field of the record at byte `offset`; block numbers in a row have a line each.
template <std::size_t kCount>
std::string Lines(const std::array<Field, kCount>& fields, std::uint64_t offset, const std::uint8_t* record) {
  std::string text;
  for (const Field& field : fields) {
    const bool row = field.form == Form::kBlock && field.count > 1;
    for (std::uint32_t i = 0; i < (row ? field.count : 1); ++i) {
      Field part = field;
      part.offset += i * field.width;
      if (row) part.count = 1;
      text += Line(offset + part.offset, record + part.offset, part.size(),
                   row ? field.name + (" " + to_string(i)) : field.name, Meaning(part, record));
    }
  }
  return text;
}

// Node slots of a block, a line each.
std::string SlotLines(const Model& model, std::uint64_t offset, const Bytes& bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += kNodeSize) {
    const std::uint16_t number = NodeNumber(&bytes[at]);
    const std::string state = model.IsNode(number) ? StateText(model, model.nodes[number]) : "no node of this volume";
    text += Line(offset + at, &bytes[at], 8, "node " + to_string(number), state);
  }
  return text;
}

std::string EntryLines(const Model& model, std::uint64_t offset, const Bytes& bytes, std::uint32_t first) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += kDirEntrySize) {
    const OrbDirEntry entry = DecodeEntry(&bytes[at]);
    const std::uint32_t index = first + static_cast<std::uint32_t>(at / kDirEntrySize);
    if (entry.node == 0) return text + Line(offset + at, &bytes[at], 8, "entry " + to_string(index), "end mark");
    const std::string state =
        model.IsNode(entry.node) ? StateText(model, model.nodes[entry.node]) : "no node of this volume";
    text += Line(offset + at, &bytes[at], 8, "entry " + to_string(index),
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
    const std::uint32_t block = Get32(bytes + kWordSize * i);
    std::uint32_t run = 1;
    while (i + run < words && Get32(bytes + kWordSize * (i + run)) == (block == 0 ? 0 : block + run)) ++run;
    const std::string meaning = block == 0 ? "none" : Run("block", "blocks", block, run);
    text +=
        Line(offset + kWordSize * i, bytes + kWordSize * i, kWordSize * run, Run(one, many, first + i, run), meaning);
    i += run;
  }
  return text;
}

std::string ChainLines(std::uint64_t offset, const Bytes& bytes) {
  const ChainRecord record = DecodeChain(bytes);
  const std::size_t capacity = (bytes.size() - kFreeChainHeader) / kWordSize;
  std::string text;
  for (const Field& field : kChainFields) {
    if (field.offset == kFreeChainHeader) break;
    const bool count = field.offset == offsetof(FreeChainRecord, count);
    text += Line(offset + field.offset, &bytes[field.offset], field.size(), field.name,
                 Meaning(field, bytes.data()) + (count ? " of " + to_string(capacity) : ""));
  }
  return text + WordLines(offset + kFreeChainHeader, &bytes[kFreeChainHeader],
                          static_cast<std::uint32_t>(record.heap.size()), 1, "entry", "entries");
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
  return Lines(kHeaderFields, 0, bytes);
}

std::string DumpTable(const Report& report) {
  const Model& model = report.model;
  if (model.table.empty()) return "the node-block table cannot be read\n";
  std::string text;
  for (std::uint32_t i = 0; i < kNodeTableEntries; ++i) {
    if (model.table[i] == kNoBlock) continue;
    std::uint8_t bytes[kWordSize];
    Put32(bytes, model.table[i]);
    text += Line(TableEntryOffset(i), bytes, sizeof bytes, "entry " + to_string(i),
                 "block " + to_string(model.table[i]) + ": " +
                     Run("node", "nodes", model.geometry.firstNode(i), model.geometry.nodesPerBlock()));
  }
  return text + "all other entries are zero\n";
}

std::string DumpBitmap(const Report& report) {
  const Model& model = report.model;
  if (model.table.empty()) return "the node bitmap cannot be read\n";
  const std::uint32_t numbers = model.bits();
  if (numbers == 0) return "the bitmap is empty: the volume holds the root alone\n";
  std::string text;
  for (std::uint32_t number = 1; number <= numbers;) {
    const bool free = model.IsFreeBit(number);
    std::uint32_t run = 1;
    while (number + run <= numbers && model.IsFreeBit(number + run) == free) ++run;
    const std::uint32_t byte = BitmapIndex(number);
    const std::uint32_t last = BitmapIndex(number + run - 1);
    text += Line(BitmapByteOffset(number), &model.bitmap[byte], last - byte + 1, Run("node", "nodes", number, run),
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
  std::string text =
      "node " + to_string(number) + ": " + StateText(model, node) + "\n" + Lines(kNodeFields, node.offset, bytes);
  for (const NameRef& name : node.names) {
    const Entry& entry = model.EntryOf(name);
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
  if (!node.readable || !node.IsDirectory()) return "node " + to_string(number) + ": not a directory\n";
  std::string text = StateText(model, node) + ", node " + to_string(number) + ", " +
                     Counted(EntryCount(node.record), "entry", "entries") + "\n";
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

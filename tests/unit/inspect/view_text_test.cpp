// Dumps and maps, word for word.
#include <gtest/gtest.h>

#include <string>

#include "inspect/check/check.h"
#include "inspect/container/image.h"
#include "inspect/view/dump.h"
#include "inspect/view/map.h"
#include "tests/support/image_builder.h"
#include "tests/unit/inspect/expected_texts.h"

namespace orba::inspect {
namespace {

using testimage::ImageBuilder;
using testtext::ExpectTexts;

// Something of everything: a file with a block map, a full directory block, a leaked and a shared block, a chain of two
// records, a free node with a record, a lost node and one without a name.
struct Mixed : ImageBuilder {
  Mixed() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1500);
    AddDirectory(1, "D");
    AddFile(3, "B", 9 * 1024);
    for (int i = 0; i < 30; ++i) AddFile(3, "F" + std::to_string(i), 0);
    AppendBlock();
    SetChain({{AppendBlock(), AppendBlock()}, {AppendBlock()}});
    AddFile(1, "SHARES", 10);
    Put32(MapOffset(35, 0), MappedBlock(2, 0));
    Put16(NodeOffset(2) + 6, 3);
    AddNode(0);
    Put32(TableOffset(9), 5);
    SetFree(100, false);
    Put8(NodeOffset(3) + 20, 1);
    PutText(EntryOffset(1, 3) + 2, "d d");
    Put32(52, 5);
  }
};

struct Checked {
  explicit Checked(const ImageBuilder& builder) : image(builder.bytes()), report(Check(image)) {}
  std::string Node(std::uint32_t number) const { return DumpNode(image, report, number); }
  std::string Block(std::uint32_t block) const { return DumpBlock(image, report, block); }
  std::string Directory(std::uint32_t node) const { return DumpDirectory(image, report, node); }

  MemoryImage image;
  Report report;
};

// A container whose bytes from one on cannot be read.
struct Half : MemoryImage {
  using MemoryImage::MemoryImage;
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    return offset + count <= 4000 && MemoryImage::Read(offset, out, count);
  }
};

#define TEXT(expression)                    \
  {                                         \
#expression, [&] { return expression; } \
  }

TEST(ViewText, records_are_dumped_field_by_field) {
  const Checked mixed{Mixed()};
  ExpectTexts("dump_records",
              {TEXT(DumpHeader(mixed.image)), TEXT(DumpTable(mixed.report)), TEXT(DumpBitmap(mixed.report)),
               TEXT(mixed.Node(1)), TEXT(mixed.Node(2)), TEXT(mixed.Node(3)), TEXT(mixed.Node(4)), TEXT(mixed.Node(36)),
               TEXT(mixed.Node(40)), TEXT(mixed.Node(100)), TEXT(mixed.Node(0)), TEXT(mixed.Node(256)),
               TEXT(mixed.Node(257)), TEXT(DumpChain(mixed.image, mixed.report))});
}

TEST(ViewText, blocks_are_dumped_by_their_use) {
  const Checked mixed{Mixed()};
  ExpectTexts("dump_blocks",
              {TEXT(mixed.Block(0)), TEXT(mixed.Block(1)), TEXT(mixed.Block(2)), TEXT(mixed.Block(4)),
               TEXT(mixed.Block(5)), TEXT(mixed.Block(13)), TEXT(mixed.Block(18)), TEXT(mixed.Block(19)),
               TEXT(mixed.Block(20)), TEXT(mixed.Block(23)), TEXT(mixed.Block(25)), TEXT(mixed.Block(26))});
}

TEST(ViewText, directories_are_dumped_entry_by_entry) {
  const Checked mixed{Mixed()};
  ExpectTexts("dump_directories", {TEXT(mixed.Directory(0)), TEXT(mixed.Directory(1)), TEXT(mixed.Directory(2)),
                                   TEXT(mixed.Directory(3)), TEXT(mixed.Directory(100)), TEXT(mixed.Directory(257))});
}

TEST(ViewText, bytes_are_dumped_in_lines_of_16) {
  testimage::Bytes bytes(100);
  for (std::size_t i = 0; i < 40; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
  const MemoryImage image(bytes);
  ExpectTexts("dump_bytes",
              {TEXT(DumpBytes(image, 0, 100)), TEXT(DumpBytes(image, 3, 33)), TEXT(DumpBytes(image, 84, 16)),
               TEXT(DumpBytes(image, 84, 17)), TEXT(DumpBytes(image, 0, 0)), TEXT(DumpBytes(image, 40, 60)),
               TEXT(DumpBytes(image, 60, 60))});
}

TEST(ViewText, what_cannot_be_read_is_said_so) {
  const Mixed mixed;
  const Report whole = Check(MemoryImage(mixed.bytes()));
  const Half image(mixed.bytes());
  const Report report = Check(image);
  const Report none = Check(MemoryImage(testimage::Bytes(3000)));
  ExpectTexts(
      "dump_unreadable",
      {TEXT(DumpBlock(image, whole, 3)), TEXT(DumpDirectory(image, whole, 3)), TEXT(DumpChain(image, whole)),
       TEXT(DumpChain(image, report)), TEXT(DumpBytes(image, 3990, 32)), TEXT(DumpTable(none)), TEXT(DumpBitmap(none)),
       TEXT(DumpBlock(image, none, 1)), TEXT(DumpNode(image, none, 1)), TEXT(DumpNode(image, whole, 40)),
       TEXT(DumpChain(image, none)), TEXT(DrawMap(none, {})), TEXT(DrawSvg(none))});
}

TEST(ViewText, maps_are_drawn_cell_by_cell) {
  const Checked mixed{Mixed()};
  const Report& report = mixed.report;
  ExpectTexts("map",
              {TEXT(DrawMap(report, {})), TEXT(DrawMap(report, {8, 32, false})), TEXT(DrawMap(report, {8, 2, false})),
               TEXT(DrawMap(report, {3, 1, false})), TEXT(DrawMap(report, {0, 0, false})),
               TEXT(DrawMap(report, {10, 32, true})), TEXT(DrawSvg(report)), TEXT(DrawSvg(report, "<a&b>"))});
}

// More blocks than a picture has cells.
TEST(ViewText, picture_has_256_rows_at_most) {
  Report report;
  report.model.geometry = {1024, 32, 1056, 128 * 256};
  report.model.nodes.resize(2);
  report.model.blocks.resize(128 * 256 + 1);
  EXPECT_NE(DrawSvg(report).find(" height=\"2144\""), std::string::npos);
  EXPECT_EQ(DrawSvg(report).find("in a cell"), std::string::npos);
  report.model.geometry.blocks += 1;
  report.model.blocks.resize(128 * 256 + 2);
  EXPECT_NE(DrawSvg(report).find(" height=\"1128\""), std::string::npos);
  EXPECT_NE(DrawSvg(report).find("32769 blocks of 1024 bytes, 2 in a cell"), std::string::npos);
}

}  // namespace
}  // namespace orba::inspect

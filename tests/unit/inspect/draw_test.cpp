// What a container looks like: dumps and maps.
#include <gtest/gtest.h>

#include <algorithm>

#include "inspect/view/dump.h"
#include "inspect/view/map.h"
#include "tests/support/image_builder.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;

// blocks: 1 nodes, 2 root, 3 and 4 A, 5 D, 6 to 12 B, 13 its block map, 14 leaked, 15 free, 16 the chain
struct Drawn : ImageBuilder {
  Drawn() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1500);
    AddDirectory(1, "D");
    AddFile(3, "B", 7 * 1024);
    AppendBlock();
    SetChain({{AppendBlock()}});
  }
  Drawn(const Drawn&) = default;
};

struct CheckedToDraw {
  explicit CheckedToDraw(const ImageBuilder& builder) : image(builder.bytes()), report(Check(image)) {}
  MemoryImage image;
  Report report;
};

std::string Line(const std::string& text, int number) {
  std::size_t at = 0;
  while (number-- > 0) at = text.find('\n', at) + 1;
  return text.substr(at, text.find('\n', at) - at);
}

std::size_t Lines(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(Dump, header_fields_are_shown_with_their_meaning) {
  const CheckedToDraw checked{Drawn()};
  const std::string text = DumpHeader(checked.image);
  EXPECT_EQ(Lines(text), 15u);
  EXPECT_EQ(Line(text, 0), "00000000  4f 52 42 41                 signature           \"ORBA\"");
  EXPECT_EQ(Line(text, 10), "00000028  00 04 00 00                 block size          1024");
  EXPECT_EQ(Line(text, 12), "00000030  10 00 00 00                 free-chain head     block 16");
  EXPECT_EQ(Line(text, 13), "00000034  00 00 00 00                 state flags         0: not marked");
  EXPECT_EQ(Line(text, 14), "00000038  00 00 00 00 00 00 00 00 ..  reserved            zero");
}

TEST(Dump, header_container_too_short) {
  EXPECT_EQ(DumpHeader(MemoryImage(Bytes(127))), "the container ends inside the header\n");
}

TEST(Dump, table_entries_are_shown_with_their_nodes) {
  EXPECT_EQ(DumpTable(CheckedToDraw(Drawn()).report),
            "00000080  01 00 00 00                 entry 0             block 1: nodes 1 to 16\n"
            "all other entries are zero\n");
}

TEST(Dump, bitmap_runs_are_shown_with_their_nodes) {
  EXPECT_EQ(DumpBitmap(CheckedToDraw(Drawn()).report),
            "00000400  0f                          nodes 1 to 4        in use\n"
            "00000400  0f ff ff ff ff ff ff ff ..  nodes 5 to 256      free\n");
  ImageBuilder hole = Drawn();
  hole.SetFree(2, true);
  EXPECT_EQ(Line(DumpBitmap(CheckedToDraw(hole).report), 1),
            "00000400  4f                          node 2              free");
  EXPECT_EQ(DumpBitmap(CheckedToDraw(ImageBuilder(1024, 0)).report),
            "the bitmap is empty: the volume holds the root alone\n");
}

TEST(Dump, node_fields_are_shown_with_their_meaning) {
  const CheckedToDraw checked{Drawn()};
  const std::string text = DumpNode(checked.image, checked.report, 4);
  EXPECT_EQ(Lines(text), 17u);
  EXPECT_EQ(Line(text, 0), "node 4: file /D/B");
  EXPECT_EQ(Line(text, 4), "000004e8  d4 07 06 0f 0c 1e 2d        time stamp          2004-06-15 12:30:45 UTC");
  EXPECT_EQ(Line(text, 6), "000004f0  00 1c 00 00                 size                7168");
  EXPECT_EQ(Line(text, 14), "00000518  0d 00 00 00                 indirect            block 13");
  EXPECT_EQ(Line(text, 16), "named \"B\" in /D");
  EXPECT_EQ(DumpNode(checked.image, checked.report, 257), "node 257: the volume does not have it\n");
  EXPECT_EQ(DumpNode(checked.image, checked.report, 100), "node 100: the container does not hold it\n");
}

TEST(Dump, blocks_of_each_use_are_shown) {
  const CheckedToDraw checked{Drawn()};
  const auto dump = [&](std::uint32_t block) { return DumpBlock(checked.image, checked.report, block); };
  EXPECT_EQ(Line(dump(1), 0), "block 1: node block of table entry 0");
  EXPECT_EQ(Line(dump(1), 2), "00000460  49 4e 4f 31 02 00 00 00     node 2              file /A");
  EXPECT_EQ(Line(dump(1), 5), "00000520  49 4e 4f 31 05 00 00 00     node 5              free");
  EXPECT_EQ(Line(dump(5), 0), "block 5: logical block 0 of directory /D");
  EXPECT_EQ(
      Line(dump(5), 3),
      "00001460  04 00 42 00 00 00 00 00     entry 2             B                             node 4, file /D/B");
  EXPECT_EQ(Line(dump(5), 4), "00001480  00 00 00 00 00 00 00 00     entry 3             end mark");
  EXPECT_EQ(dump(13),
            "block 13: block map of /D/B from logical block 6\n"
            "00003420  0c 00 00 00                 slot 0              block 12\n"
            "00003424  00 00 00 00 00 00 00 00 ..  slots 1 to 255      none\n");
  EXPECT_EQ(Line(dump(12), 0), "block 12: logical block 6 of file /D/B");
  EXPECT_EQ(dump(14),
            "block 14: nothing refers to it\n"
            "00003820  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00   \"................\"\n"
            "*\n");
  EXPECT_EQ(Line(dump(15), 0), "block 15: free");
  EXPECT_EQ(Line(dump(16), 0), "block 16: chain record");
  EXPECT_EQ(dump(17), "block 17: the container does not hold it\n");
  EXPECT_EQ(dump(0), "block 0: the container does not hold it\n");
}

TEST(Dump, chain_records_are_shown_or_that_there_are_none) {
  const CheckedToDraw checked{Drawn()};
  EXPECT_EQ(DumpChain(checked.image, checked.report),
            "record in block 16\n"
            "00004020  46 42 43 31                 signature           \"FBC1\"\n"
            "00004024  00 00 00 00                 next                none\n"
            "00004028  01 00 00 00                 count               1 of 253\n"
            "0000402c  0f 00 00 00                 entry 1             block 15\n");
  const CheckedToDraw formatted{ImageBuilder(1024, 32)};
  EXPECT_EQ(DumpChain(formatted.image, formatted.report), "no free chain\n");
}

TEST(Dump, directory_entries_are_shown_with_their_nodes) {
  const CheckedToDraw checked{Drawn()};
  const std::string text = DumpDirectory(checked.image, checked.report, 3);
  EXPECT_EQ(Line(text, 0), "directory /D, node 3, 3 entries");
  EXPECT_EQ(Line(text, 1), "block 5");
  EXPECT_EQ(
      Line(text, 2),
      "00001420  03 00 2e 00 00 00 00 00     entry 0             .                             node 3, directory /D");
  EXPECT_EQ(DumpDirectory(checked.image, checked.report, 2), "node 2: not a directory\n");
}

TEST(Dump, any_bytes_never_crash) {
  std::uint32_t state = 3;
  const auto next = [&state] { return (state = state * 1664525u + 1013904223u) >> 8; };
  const Drawn base;
  for (int round = 0; round < 200; ++round) {
    Drawn broken = base;
    for (int i = 0; i < 20; ++i) broken.bytes()[next() % broken.bytes().size()] = static_cast<std::uint8_t>(next());
    if (round % 4 == 0) broken.bytes().resize(next() % broken.bytes().size());
    const MemoryImage image(broken.bytes());
    const Report report = Check(image);
    std::string all = DumpHeader(image) + DumpTable(report) + DumpBitmap(report) + DumpChain(image, report);
    for (std::uint32_t i = 0; i < 20; ++i) {
      all += DumpNode(image, report, i) + DumpBlock(image, report, i) + DumpDirectory(image, report, i);
    }
    all += DrawMap(report, {}) + DrawSvg(report);
    EXPECT_GT(all.size(), 500u);
  }
}

TEST(DrawMap, every_use_has_its_cell_and_count) {
  EXPECT_EQ(DrawMap(CheckedToDraw(Drawn()).report, {8, 32, false}),
            "16 blocks of 1024 bytes\n"
            "       1 ND##D+++\n"
            "       9 ++++M!..\n"
            "N nodes 1  D directories 2  M block maps 1  # files 9  . free 2  ! leaked 1\n");
}

TEST(DrawMap, files_next_to_each_other_are_drawn_in_turn) {
  ImageBuilder image(1024, 32);
  for (const char* name : {"A", "B", "C", "D"}) image.AddFile(1, name, 500);
  EXPECT_EQ(Line(DrawMap(CheckedToDraw(image).report, {8, 32, false}), 1), "       1 ND#+#+");
}

TEST(DrawMap, more_blocks_than_cells_leaks_and_damage_show_through) {
  EXPECT_EQ(DrawMap(CheckedToDraw(Drawn()).report, {2, 2, false}),
            "16 blocks of 1024 bytes, 4 in a cell\n"
            "       1 ##\n"
            "       9 #!\n"
            "N nodes 1  D directories 2  M block maps 1  # files 9  . free 2  ! leaked 1\n");
}

TEST(DrawMap, block_used_twice_and_colour) {
  Drawn image;
  image.Put32(image.MapOffset(4, 0), image.MappedBlock(2, 0));
  const std::string text = DrawMap(CheckedToDraw(image).report, {16, 1, true});
  EXPECT_NE(text.find("\x1b[31;1mX\x1b[0m"), std::string::npos);
  EXPECT_NE(text.find("\x1b[94m++++++\x1b[0m"), std::string::npos) << text;
}

TEST(DrawMap, layout_unknown_says_so) {
  EXPECT_EQ(DrawMap(Check(MemoryImage(Bytes(5000))), {}), "the container's blocks cannot be told apart\n");
}

TEST(DrawSvg, runs_are_rectangles_with_tooltips) {
  const std::string svg = DrawSvg(CheckedToDraw(Drawn()).report);
  EXPECT_EQ(
      svg.find("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1104\" height=\"104\" viewBox=\"0 0 1104 104\""), 0u);
  EXPECT_NE(svg.find("<rect x=\"80\" y=\"80\" width=\"16\" height=\"7\" fill=\"#2e6fb7\"><title>blocks 3 to 4: files, "
                     "/A</title></rect>"),
            std::string::npos);
  EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
}

TEST(DrawSvg, row_of_128_blocks_is_followed_by_one_below_it) {
  ImageBuilder image(1024, 32);
  image.AddFile(1, "A", 127 * 1024);  // behind two blocks; 130 with its block map
  const std::string svg = DrawSvg(CheckedToDraw(image).report);
  EXPECT_NE(svg.find("<rect x=\"64\" y=\"88\" width=\"16\" "), std::string::npos) << svg;
}

}  // namespace
}  // namespace orba::inspect

// What a check says, word for word, of containers that are each damaged in one way.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "inspect/check/check.h"
#include "inspect/container/image.h"
#include "inspect/view/report.h"
#include "tests/support/image_builder.h"
#include "tests/support/small_image.h"
#include "tests/unit/inspect/expected_texts.h"

namespace orba::inspect {
namespace {

using testimage::Bytes;
using testimage::ImageBuilder;
using testimage::Small;
using testtext::ExpectTexts;

// The lines of the findings.
std::string FindingLines(const Image& image) {
  const Report report = Check(image);
  const std::string text = ToText(report);
  std::size_t end = 0;
  for (std::size_t i = 0; i < report.findings.size(); ++i) end = text.find('\n', end) + 1;
  return text.substr(0, end);
}

// A file F (node 2) with 600 blocks: two second-level blocks.
struct TwoSecondLevels : ImageBuilder {
  TwoSecondLevels() : ImageBuilder(1024, 32) { AddFile(1, "F", 600 * 1024); }
  std::uint32_t Double() const { return Get32(NodeOffset(2) + 60); }
};

template <class Builder>
std::string After(const std::function<void(Builder*)>& change) {
  Builder image;
  change(&image);
  return FindingLines(MemoryImage(image.bytes()));
}

// What is done to a Small or a TwoSecondLevels container, and says so itself.
#define SMALL(...)                                                           \
  {                                                                          \
#__VA_ARGS__, [] { return After<Small>([](Small* i) { __VA_ARGS__; }); } \
  }
#define LONG(...)                                                                                \
  {                                                                                              \
#__VA_ARGS__, [] { return After<TwoSecondLevels>([](TwoSecondLevels* i) { __VA_ARGS__; }); } \
  }
#define BAD(at)                                                                                  \
  {                                                                                              \
    "unreadable byte " #at, [] { return FindingLines(testimage::BadByte(Small().bytes(), at)); } \
  }

TEST(CheckText, header_fields_say_what_they_should_be) {
  ExpectTexts("check_header", {
    SMALL(i->Put32(24, 33)), SMALL(i->Put32(44, 0xB)), SMALL(i->Put32(44, 0x20A)),
        SMALL(i->Put8(56, 1); i->Put8(127, 1)), SMALL(i->Put8(127, 1)), SMALL(i->Put32(52, 2)),
        SMALL(i->PutText(0, "ARBO"); i->PutText(4, "1.1 ")),
  });
}

TEST(CheckText, container_of_a_wrong_length_says_where_it_ends) {
  ExpectTexts("check_length", {
                                  SMALL(i->bytes().resize(1023)),
                                  SMALL(i->bytes().resize(1055)),
                                  SMALL(i->bytes().resize(1056)),
                                  SMALL(i->bytes().resize(i->bytes().size() + 1)),
                                  SMALL(i->bytes().resize(i->bytes().size() - 1)),
                              });
}

TEST(CheckText, bytes_that_the_host_cannot_read_are_placed) {
  ExpectTexts("check_unreadable", {
                                      BAD(100),
                                      BAD(200),
                                      BAD(1030),
                                      BAD(1100),
                                      BAD(2090),
                                      BAD(5200),
                                      BAD(13400),
                                  });
}

TEST(CheckText, table_and_bitmap_are_checked_against_each_other) {
  ExpectTexts("check_table", {
    SMALL(i->Put32(i->TableOffset(1), 15)), SMALL(i->Put32(i->TableOffset(1), 14)),
        SMALL(i->Put32(i->TableOffset(16), 14)), SMALL(i->Put32(i->TableOffset(1), i->AppendBlock())),
        SMALL(i->SetFree(17, false); i->SetFree(18, false); i->SetFree(20, false)), SMALL(i->SetFree(1, true)),
        SMALL(i->SetFree(2, true)), SMALL(i->Put32(i->TableOffset(0), 0)),
  });
}

TEST(CheckText, node_records_are_judged_field_by_field) {
  ExpectTexts("check_nodes", {
    SMALL(i->PutText(i->NodeOffset(2), "X")), SMALL(i->Put16(i->NodeOffset(2) + 4, 9)),
        SMALL(i->Put16(i->NodeOffset(2) + 6, 0x10)), SMALL(i->Put16(i->NodeOffset(2) + 6, 0x8)),
        SMALL(i->Put16(i->NodeOffset(3) + 6, 0x0)),
        SMALL(i->Put16(i->NodeOffset(1) + 6, 0x0); i->Put8(i->EntryOffset(1, 0), 9)),
        SMALL(i->Put8(i->NodeOffset(2) + 15, 1)), SMALL(i->Put8(i->NodeOffset(2) + 31, 1)),
        SMALL(i->Put8(i->NodeOffset(2) + 24, 1)), SMALL(i->Put8(i->NodeOffset(2) + 20, 1)),
        SMALL(i->Put8(i->NodeOffset(2) + 10, 0)), SMALL(i->SetSize(2, 0x80000000)),
  });
}

TEST(CheckText, block_maps_are_judged_slot_by_slot) {
  ExpectTexts("check_maps", {
    SMALL(i->Put32(i->MapOffset(2, 0), 0)), SMALL(i->Put32(i->MapOffset(2, 1), 15)),
        SMALL(i->Put32(i->MapOffset(4, 1), 100); i->Put32(i->MapOffset(4, 2), 200)),
        SMALL(i->Put32(i->MapOffset(4, 1), 100); i->Put32(i->MapOffset(4, 3), 200)),
        SMALL(i->Put32(i->NodeOffset(4) + 56, 99)), SMALL(i->Put32(i->NodeOffset(4) + 56, 0)),
        SMALL(i->Put32(i->NodeOffset(4) + 60, i->AppendBlock()); i->Put32(i->NodeOffset(4) + 56, 0);
              i->SetSize(4, 6144)),
        SMALL(i->Put32(i->NodeOffset(4) + 56, 1)), SMALL(i->Put32(i->NodeOffset(4) + 56, 14)),
        SMALL(i->Put32(i->NodeOffset(4) + 56, 6)),
        SMALL(i->Put32(i->MapOffset(2, 2), i->AppendBlock()); i->Put32(i->MapOffset(2, 4), i->AppendBlock())),
        SMALL(i->Put32(i->MapOffset(2, 1), 3)), SMALL(i->Put32(i->MapOffset(2, 1), 1)),
        SMALL(i->Put32(i->MapOffset(2, 1), 13)), SMALL(i->SetSize(4, 6144)), SMALL(i->Put32(i->MapOffset(4, 6), 0)),
  });
}

TEST(CheckText, long_maps_are_judged_on_every_level) {
  ExpectTexts("check_long_maps", {
    LONG(static_cast<void>(i)), LONG(i->Put32(i->BlockOffset(i->Double()), 0)),
        LONG(i->Put32(i->BlockOffset(i->Double()) + 4, 0)), LONG(i->Put32(i->BlockOffset(i->Double()) + 4, 9999)),
        LONG(i->Put32(i->MapOffset(2, 599), 0)), LONG(i->SetSize(2, 599 * 1024)), LONG(i->SetSize(2, 598 * 1024)),
        LONG(i->Put32(i->MapOffset(2, 300), 0); i->Put32(i->MapOffset(2, 599), 0)),
  });
}

TEST(CheckText, directories_are_judged_entry_by_entry) {
  ExpectTexts("check_directories", {
    SMALL(i->SetSize(3, 100)), SMALL(i->SetSize(3, 32)), SMALL(i->SetSize(3, 96)), SMALL(i->SetSize(1, 64)),
        SMALL(i->SetSize(3, 160)), SMALL(i->SetSize(3, 192)),
        SMALL(i->AddFile(5, "X", 0); i->Put16(i->EntryOffset(5, 2), 0)), SMALL(i->Put16(i->EntryOffset(5, 1), 0)),
        SMALL(i->Put16(i->EntryOffset(5, 0), 0)), SMALL(i->Put16(i->EntryOffset(3, 2), 0)),
        SMALL(i->Put16(i->EntryOffset(3, 5), 7)), SMALL(i->Put16(i->EntryOffset(3, 0), 4)),
        SMALL(i->PutText(i->EntryOffset(3, 0) + 2, "X")), SMALL(i->Put16(i->EntryOffset(3, 1), 2)),
        SMALL(i->PutText(i->EntryOffset(1, 1) + 2, "X")), SMALL(i->PutText(i->EntryOffset(3, 2) + 2, " ")),
        SMALL(i->PutText(i->EntryOffset(3, 2) + 2, "b")), SMALL(i->PutText(i->EntryOffset(3, 2) + 2, "e")),
        SMALL(i->Put16(i->EntryOffset(3, 2), 300)), SMALL(i->Put16(i->EntryOffset(3, 2), 1)),
        SMALL(i->Put16(i->EntryOffset(3, 2), 6)),
        SMALL(std::fill_n(&i->bytes()[i->NodeOffset(4)], 64, std::uint8_t{0xEE})),
        SMALL(i->AddEntry(1, "B2", 4); i->AddEntry(5, "B3", 4)), SMALL(i->AddEntry(1, "B2", 4)),
        SMALL(i->Put16(i->EntryOffset(1, 3), 5)),
        SMALL(std::fill_n(&i->bytes()[i->BlockOffset(14)], 1024, std::uint8_t{0xEE})),
  });
}

TEST(CheckText, free_chain_is_judged_record_by_record) {
  ExpectTexts("check_chain", {
    SMALL(i->Put32(48, 16)), SMALL(i->Put32(48, 14)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 4, 99)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 4, 16)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 8, 254)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 12, 0)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 12, 17)),
        SMALL(i->SetChain({{i->AppendBlock(), i->AppendBlock(), i->AppendBlock()}});
              i->Put32(i->BlockOffset(18) + 20, 15)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 12, 16)), SMALL(i->SetChain({{14}})),
        SMALL(i->SetChain({{i->AppendBlock()}, {i->AppendBlock()}})),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(48, 15)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 12, 1)),
        SMALL(i->SetChain({{i->AppendBlock()}}); i->Put32(i->BlockOffset(16) + 12, 13)),
  });
}

// A chain whose head lists the record behind it.
struct ChainListed : Small {
  ChainListed() {
    AppendBlock();
    const std::vector<std::uint32_t> records = SetChain({{15}, {15}});
    Put32(BlockOffset(records[0]) + 12, records[1]);
  }
};

TEST(CheckText, record_that_is_listed_is_told_apart_from_a_block_listed_twice) {
  ExpectTexts("check_listed_record", {{"listed", [] { return After<ChainListed>([](ChainListed*) {}); }}});
}

// A directory of more than one block, which stands in its map twice.
TEST(CheckText, directory_block_with_two_places_gives_its_entries_once) {
  ExpectTexts("check_directory_block_twice", {
    SMALL(i->Put32(i->MapOffset(3, 1), 5); i->SetSize(3, 2048)),
        SMALL(i->Put32(i->MapOffset(3, 1), 5); i->SetSize(3, 1024 + 128))
  });
}

// A directory D (node 2) with an entry alone in its seventh block, the first behind the direct ones.
struct Large : ImageBuilder {
  Large() : ImageBuilder(1024, 32) {
    AddDirectory(1, "D");
    for (int n = 2; n < 6 * 32 + 1; ++n) AddFile(2, "F" + std::to_string(n), 0);
  }
};

#define LARGE(...)                                                           \
  {                                                                          \
#__VA_ARGS__, [] { return After<Large>([](Large* i) { __VA_ARGS__; }); } \
  }

TEST(CheckText, directory_shrinks_by_a_block_with_one_entry) {
  ExpectTexts("check_directory_shrink", {
    LARGE(static_cast<void>(i)), LARGE(i->Put32(i->MapOffset(2, 6), 0)),
        LARGE(i->AddFile(2, "LAST", 0); i->Put32(i->MapOffset(2, 6), 0)), LARGE(i->SetSize(2, 6 * 1024)),
        LARGE(i->SetSize(2, 6 * 1024); i->Put16(i->EntryOffset(2, 6 * 32), 0))
  });
}

// Bits for nodes that the table has no room for, up to the bitmap's last one.
struct WideTable : ImageBuilder {
  WideTable() : ImageBuilder(1024, 896) {}
};

#define WIDE(...)                                                                    \
  {                                                                                  \
#__VA_ARGS__, [] { return After<WideTable>([](WideTable* i) { __VA_ARGS__; }); } \
  }

TEST(CheckText, bits_beyond_the_table_are_told_by_rows) {
  ExpectTexts("check_beyond_table", {
    WIDE(i->SetFree(7167, false); i->SetFree(7168, false)), WIDE(i->SetFree(3585, false); i->SetFree(3587, false))
  });
}

TEST(CheckText, only_block_of_a_directory_is_never_freed) {
  ExpectTexts("check_only_block", { SMALL(i->SetSize(5, 32); i->SetChain({{14}})) });
}

TEST(CheckText, heap_out_of_order_is_told_once) {
  ExpectTexts("check_heap", {
    SMALL(i->SetChain({{i->AppendBlock(), i->AppendBlock(), i->AppendBlock()}}); i->Put32(i->BlockOffset(18) + 12, 17);
          i->Put32(i->BlockOffset(18) + 16, 15); i->Put32(i->BlockOffset(18) + 20, 16))
  });
}

TEST(CheckText, record_with_an_impossible_link_is_an_entry) {
  ExpectTexts("check_impossible_link", {
    LARGE(i->PutText(i->EntryOffset(2, 192), "FBC1"); i->Put32(i->EntryOffset(2, 192) + 4, i->Blocks() + 1);
          i->Put32(i->EntryOffset(2, 192) + 8, 0)),
        LARGE(i->PutText(i->EntryOffset(2, 192), "FBC1"); i->Put32(i->EntryOffset(2, 192) + 4, i->Blocks());
              i->Put32(i->EntryOffset(2, 192) + 8, 0))
  });
}

// The entry alone in the last block looks a little like a free-chain record, and its name like no name.
TEST(CheckText, entry_alone_in_its_block_is_an_entry) {
  ExpectTexts("check_lone_entry", {
    LARGE(i->Put32(i->EntryOffset(2, 192), 0x005800FA); i->Put32(i->EntryOffset(2, 192) + 4, 0)),
        LARGE(i->PutText(i->EntryOffset(2, 192) + 2, " "))
  });
}

TEST(CheckText, directory_without_its_dots_is_one_by_its_entries) {
  ExpectTexts("check_without_dots", {
    SMALL(i->Put32(i->EntryOffset(3, 0), 0xFFFF0009); i->Put16(i->EntryOffset(3, 2), 99);
          i->Put16(i->EntryOffset(3, 3), 99)),
        SMALL(i->Put32(i->EntryOffset(3, 0) + 2, 0); i->Put32(i->EntryOffset(3, 0), 0xFFFF0009);
              i->PutText(i->EntryOffset(3, 1) + 2, "XX")),
        SMALL(i->Put32(i->EntryOffset(3, 0), 0xFFFF0009); i->PutText(i->EntryOffset(3, 1) + 2, "XX");
              i->Put16(i->EntryOffset(3, 2), 99); i->Put16(i->EntryOffset(3, 3), 99))
  });
}

TEST(CheckText, leaks_are_told_by_rows) {
  ExpectTexts("check_leaks", {
    SMALL(i->AppendBlock()), SMALL(i->AppendBlock(); i->AppendBlock()), SMALL(i->AddNode(0)),
        SMALL(const std::uint16_t node = i->AddNode(8); i->AddEntry(1, "X", node)),
  });
}

}  // namespace
}  // namespace orba::inspect

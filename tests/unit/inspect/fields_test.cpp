#include "inspect/container/fields.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "inspect/container/names.h"

namespace orba::inspect {
namespace {

using Bytes = std::vector<std::uint8_t>;

// 1, 2, 3, ...: every field differs from every other, in each of its bytes.
Bytes CountingUp(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  return bytes;
}

TEST(Fields, header_is_decoded_field_by_field) {
  const VolumeHeader header = DecodeHeader(CountingUp(kHeaderSize).data());
  EXPECT_EQ(header.signature, 0x04030201u);
  EXPECT_EQ(header.version, 0x08070605u);
  EXPECT_EQ(header.headerSize, 0x0C0B0A09u);
  EXPECT_EQ(header.nodeTableOffset, 0x100F0E0Du);
  EXPECT_EQ(header.nodeTableSize, 0x14131211u);
  EXPECT_EQ(header.bitmapOffset, 0x18171615u);
  EXPECT_EQ(header.bitmapSize, 0x1C1B1A19u);
  EXPECT_EQ(header.reservedOffset, 0x201F1E1Du);
  EXPECT_EQ(header.reservedSize, 0x24232221u);
  EXPECT_EQ(header.dataOffset, 0x28272625u);
  EXPECT_EQ(header.blockSize, 0x2C2B2A29u);
  EXPECT_EQ(header.blockShift, 0x302F2E2Du);
  EXPECT_EQ(header.freeChainHead, 0x34333231u);
  EXPECT_EQ(header.stateFlags, 0x38373635u);
  EXPECT_EQ(header.reserved[0], 57);
  EXPECT_EQ(header.reserved[71], 128);
}

TEST(Fields, node_is_decoded_field_by_field) {
  const OrbNodeRecord node = DecodeNode(CountingUp(kNodeSize).data());
  EXPECT_EQ(node.signature, 0x04030201u);
  EXPECT_EQ(node.number, 0x0605);
  EXPECT_EQ(node.attributes, 0x0807);
  EXPECT_EQ(node.time.year, 0x0A09);
  EXPECT_EQ(node.time.month, 11);
  EXPECT_EQ(node.time.day, 12);
  EXPECT_EQ(node.time.hour, 13);
  EXPECT_EQ(node.time.minute, 14);
  EXPECT_EQ(node.time.second, 15);
  EXPECT_EQ(node.time.reserved, 16);
  EXPECT_EQ(node.size, 0x14131211u);
  EXPECT_EQ(node.reserved[0], 0x18171615u);
  EXPECT_EQ(node.reserved[2], 0x201F1E1Du);
  EXPECT_EQ(node.direct[0], 0x24232221u);
  EXPECT_EQ(node.direct[5], 0x38373635u);
  EXPECT_EQ(node.indirect, 0x3C3B3A39u);
  EXPECT_EQ(node.doubleIndirect, 0x403F3E3Du);
}

TEST(Fields, entry_is_decoded_with_all_bytes_of_its_name) {
  const OrbDirEntry entry = DecodeEntry(CountingUp(kDirEntrySize).data());
  EXPECT_EQ(entry.node, 0x0201);
  EXPECT_EQ(entry.name[0], 3);
  EXPECT_EQ(entry.name[29], 32);
}

TEST(Fields, encoded_record_has_the_bytes_it_was_decoded_from) {
  Bytes bytes(kHeaderSize);
  EncodeHeader(DecodeHeader(CountingUp(kHeaderSize).data()), bytes.data());
  EXPECT_EQ(bytes, CountingUp(kHeaderSize));
  bytes.assign(kNodeSize, 0);
  EncodeNode(DecodeNode(CountingUp(kNodeSize).data()), bytes.data());
  EXPECT_EQ(bytes, CountingUp(kNodeSize));
  bytes.assign(kDirEntrySize, 0);
  EncodeEntry(DecodeEntry(CountingUp(kDirEntrySize).data()), bytes.data());
  EXPECT_EQ(bytes, CountingUp(kDirEntrySize));
}

TEST(Fields, time_stamp_is_decoded_without_its_eighth_byte) {
  const TimeStamp time = DecodeTime(CountingUp(8).data());
  EXPECT_EQ(time.year, 0x0201);
  EXPECT_EQ(time.month, 3);
  EXPECT_EQ(time.day, 4);
  EXPECT_EQ(time.hour, 5);
  EXPECT_EQ(time.minute, 6);
  EXPECT_EQ(time.second, 7);
  EXPECT_EQ(time.reserved, 0);
}

TEST(Fields, chain_record_holds_the_entries_it_counts) {
  Bytes block(32);
  std::memcpy(block.data(), "FBC1", 4);
  Put32(&block[4], 77);
  Put32(&block[8], 2);
  Put32(&block[12], 5);
  Put32(&block[16], 9);
  Put32(&block[20], 11);
  const ChainRecord record = DecodeChain(block);
  EXPECT_EQ(record.signature, kFreeChainSignature);
  EXPECT_EQ(record.next, 77u);
  EXPECT_EQ(record.count, 2u);
  EXPECT_EQ(record.heap, (std::vector<std::uint32_t>{5, 9}));
}

TEST(Fields, chain_record_that_counts_too_many_ends_with_its_block) {
  Bytes block(32);
  Put32(&block[8], 6);
  Put32(&block[28], 9);
  const ChainRecord record = DecodeChain(block);
  EXPECT_EQ(record.count, 6u);
  EXPECT_EQ(record.heap, (std::vector<std::uint32_t>{0, 0, 0, 0, 9}));
}

TEST(Fields, encoded_chain_record_is_filled_up_with_zeros) {
  ChainRecord record;
  record.next = 3;
  record.count = 2;
  record.heap = {7, 8};
  Bytes expected(24);
  std::memcpy(expected.data(), "FBC1", 4);
  expected[4] = 3;
  expected[8] = 2;
  expected[12] = 7;
  expected[16] = 8;
  EXPECT_EQ(EncodeChain(record, 24), expected);
}

TEST(Fields, slot_is_told_by_signature_and_number) {
  Bytes slot(kNodeMarkSize);
  std::memcpy(slot.data(), "INO1", 4);
  Put16(&slot[4], 300);
  EXPECT_TRUE(IsSlotOf(slot.data(), 300));
  EXPECT_FALSE(IsSlotOf(slot.data(), 301));
  EXPECT_TRUE(HasNodeSignature(slot.data()));
  EXPECT_EQ(NodeNumber(slot.data()), 300);
  slot[3] = '2';
  EXPECT_FALSE(IsSlotOf(slot.data(), 300));
  EXPECT_FALSE(HasNodeSignature(slot.data()));
}

TEST(Fields, empty_node_has_signature_and_number_alone) {
  Bytes expected(kNodeSize), bytes(kNodeSize);
  std::memcpy(expected.data(), "INO1", 4);
  expected[4] = 5;
  EncodeNode(EmptyNode(5), bytes.data());
  EXPECT_EQ(bytes, expected);
}

TEST(Fields, number_of_a_field_has_its_width) {
  const Bytes record = CountingUp(kNodeSize);
  EXPECT_EQ(NumberOf(kNodeFields[0], record.data()), 0x04030201u);
  EXPECT_EQ(NumberOf(kNodeFields[1], record.data()), 0x0605u);
  EXPECT_EQ(NumberOf(kNodeFields[4], record.data()), 16u);
}

TEST(Fields, places_without_a_name_are_counted_from_their_region) {
  EXPECT_EQ(TableEntryOffset(0), 128u);
  EXPECT_EQ(TableEntryOffset(223), 1020u);
  EXPECT_EQ(BitmapByteOffset(1), 1024u);
  EXPECT_EQ(BitmapByteOffset(8), 1024u);
  EXPECT_EQ(BitmapByteOffset(9), 1025u);
  EXPECT_EQ(BitmapIndex(16), 1u);
  EXPECT_EQ(BitmapIndex(17), 2u);
  EXPECT_EQ(BitmapBit(1), 0x80);
  EXPECT_EQ(BitmapBit(8), 0x01);
  EXPECT_EQ(BitmapBit(9), 0x80);
  EXPECT_EQ(HeapOffset(0), 12u);
  EXPECT_EQ(HeapOffset(252), 1020u);
}

// ---- docs/container-format.md ---------------------------------------------------------------------------------------

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

// The cells of each row of the first table after the line `heading`, the two lines at its head left out.
std::vector<std::vector<std::string>> TableAfter(const std::string& heading) {
  std::ifstream page(ORBA_FORMAT_PAGE);
  std::vector<std::vector<std::string>> rows;
  std::string line;
  while (std::getline(page, line) && line.rfind(heading, 0) != 0) continue;
  while (std::getline(page, line) && (line.empty() || line[0] != '|')) continue;
  std::getline(page, line);
  while (std::getline(page, line) && !line.empty() && line[0] == '|') {
    std::vector<std::string> cells;
    std::istringstream row(line.substr(1));
    for (std::string cell; std::getline(row, cell, '|');) cells.push_back(Trimmed(cell));
    if (!cells[0].empty()) rows.push_back(cells);  // others go on with the row above
  }
  return rows;
}

std::string SizeText(const Field& field) {
  const bool row = field.form == Form::kBlock && field.count > 1;
  if (row) return std::to_string(field.count) + " × " + std::to_string(field.width);
  return std::to_string(field.size()) + (field.name == std::string("entries") ? " each" : "");
}

// Offset, size and name of each field stand in the page's table as the code has them.
template <std::size_t kCount>
void ExpectInPage(const std::string& heading, const std::array<Field, kCount>& fields) {
  const auto rows = TableAfter(heading);
  ASSERT_EQ(rows.size(), kCount) << heading;
  for (std::size_t i = 0; i < kCount; ++i) {
    const Field& field = fields[i];
    ASSERT_GE(rows[i].size(), 3u) << heading;
    EXPECT_EQ(rows[i][0], std::to_string(field.offset)) << field.name;
    EXPECT_EQ(rows[i][1], SizeText(field));
    EXPECT_EQ(rows[i][2], field.name);
  }
}

TEST(FormatPage, tables_have_the_fields_of_the_code) {
  ExpectInPage("## The header", kHeaderFields);
  ExpectInPage("**Node block.**", kNodeFields);
  ExpectInPage("## Directories", kEntryFields);
  ExpectInPage("## The free chain", kChainFields);
}

}  // namespace
}  // namespace orba::inspect

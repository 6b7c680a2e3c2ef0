#include "tests/support/image_builder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace testimage {

namespace {

constexpr std::uint32_t kDirect = 6;

// A test that asks for what cannot be has a fault of its own.
void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

ImageBuilder::ImageBuilder(std::uint32_t blockSize, std::uint32_t bitmapBytes)
    : blockSize_(blockSize), bitmapBytes_(bitmapBytes), bytes_(1024 + bitmapBytes) {
  std::uint32_t shift = 10;
  while ((1u << shift) < blockSize) ++shift;
  PutText(0, "ORBA1.0 ");
  const std::uint32_t data = 1024 + bitmapBytes;
  const std::uint32_t fields[] = {128, 128, 896, 1024, bitmapBytes, data, 0, data, blockSize, shift, 0, 0};
  for (std::uint32_t i = 0; i < 12; ++i) Put32(8 + 4 * i, fields[i]);
  std::fill(bytes_.begin() + 1024, bytes_.end(), std::uint8_t{0xFF});
  if (bitmapBytes > 0) Put8(1024, 0x7F);
  InitNodeBlock(0);
  const std::uint64_t root = NodeOffset(1);
  Put16(root + 6, 0x000E);
  PutTime(root);
  Put32(root + 16, 64);
  const std::uint32_t block = AppendBlock();
  Put32(root + 32, block);
  PutEntry(BlockOffset(block), 1, ".");
  PutEntry(BlockOffset(block) + 32, 1, "..");
}

std::uint32_t ImageBuilder::Blocks() const {
  return static_cast<std::uint32_t>((bytes_.size() - 1024 - bitmapBytes_) / blockSize_);
}

std::uint16_t ImageBuilder::AddFile(std::uint16_t directory, const std::string& name, const Bytes& contents) {
  const std::uint16_t node = AddNode(0);
  for (std::size_t at = 0; at < contents.size(); at += blockSize_) {
    const std::size_t end = std::min<std::size_t>(at + blockSize_, contents.size());
    AppendToNode(node, Bytes(contents.begin() + static_cast<std::ptrdiff_t>(at),
                             contents.begin() + static_cast<std::ptrdiff_t>(end)));
    SetSize(node, static_cast<std::uint32_t>(end));
  }
  AddEntry(directory, name, node);
  return node;
}

std::uint16_t ImageBuilder::AddFile(std::uint16_t directory, const std::string& name, std::uint32_t size) {
  return AddFile(directory, name, Pattern(size, size + static_cast<std::uint32_t>(name.size())));
}

std::uint16_t ImageBuilder::AddDirectory(std::uint16_t parent, const std::string& name) {
  const std::uint16_t node = AddNode(0x0008);
  const std::uint32_t block = AppendToNode(node, {});
  PutEntry(BlockOffset(block), node, ".");
  PutEntry(BlockOffset(block) + 32, parent, "..");
  SetSize(node, 64);
  AddEntry(parent, name, node);
  return node;
}

std::uint16_t ImageBuilder::AddNode(std::uint16_t attributes) {
  std::uint32_t number = 1;
  while ((bytes_[1024 + (number - 1) / 8] & (0x80 >> ((number - 1) % 8))) == 0) ++number;
  Require(number <= 8 * bitmapBytes_);
  const std::uint32_t index = (number - 1) / (blockSize_ / 64);
  if (Get32(TableOffset(index)) == 0) InitNodeBlock(index);
  const auto node = static_cast<std::uint16_t>(number);
  SetFree(node, false);
  const std::uint64_t offset = NodeOffset(node);
  Put16(offset + 6, attributes);
  PutTime(offset);
  return node;
}

void ImageBuilder::AddEntry(std::uint16_t directory, const std::string& name, std::uint16_t node) {
  const std::uint32_t size = Size(directory);
  if (size % blockSize_ == 0) AppendToNode(directory, {});
  SetSize(directory, size + 32);
  PutEntry(EntryOffset(directory, size / 32), node, name);
}

std::uint32_t ImageBuilder::AppendBlock() {
  bytes_.resize(bytes_.size() + blockSize_);
  return Blocks();
}

std::uint32_t ImageBuilder::AppendToNode(std::uint16_t node, const Bytes& contents) {
  Require(contents.size() <= blockSize_);
  const std::uint32_t index = (Size(node) + blockSize_ - 1) / blockSize_;
  const std::uint32_t slots = blockSize_ / 4;
  const std::uint32_t block = AppendBlock();
  std::copy(contents.begin(), contents.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(BlockOffset(block)));
  const std::uint64_t record = NodeOffset(node);
  if (index == kDirect) Put32(record + 56, AppendBlock());
  if (index == kDirect + slots) Put32(record + 60, AppendBlock());
  if (index >= kDirect + slots && (index - kDirect - slots) % slots == 0) {
    const std::uint32_t second = AppendBlock();
    Put32(BlockOffset(Get32(record + 60)) + (index - kDirect - slots) / slots * 4, second);
  }
  Put32(MapOffset(node, index), block);
  return block;
}

std::vector<std::uint32_t> ImageBuilder::SetChain(const std::vector<std::vector<std::uint32_t>>& records) {
  std::vector<std::uint32_t> blocks;
  for (std::size_t i = 0; i < records.size(); ++i) blocks.push_back(AppendBlock());
  for (std::size_t i = 0; i < records.size(); ++i) {
    std::vector<std::uint32_t> entries = records[i];
    Require(entries.size() <= (blockSize_ - 12) / 4);
    std::sort(entries.begin(), entries.end());
    const std::uint64_t offset = BlockOffset(blocks[i]);
    PutText(offset, "FBC1");
    Put32(offset + 4, i + 1 < blocks.size() ? blocks[i + 1] : 0);
    Put32(offset + 8, static_cast<std::uint32_t>(entries.size()));
    for (std::size_t k = 0; k < entries.size(); ++k) Put32(offset + 12 + 4 * k, entries[k]);
  }
  Put32(48, blocks.empty() ? 0 : blocks[0]);
  return blocks;
}

std::uint64_t ImageBuilder::BlockOffset(std::uint32_t block) const {
  return 1024 + bitmapBytes_ + std::uint64_t{block - 1} * blockSize_;
}

std::uint64_t ImageBuilder::NodeOffset(std::uint16_t node) const {
  const std::uint32_t perBlock = blockSize_ / 64;
  return BlockOffset(Get32(TableOffset((node - 1u) / perBlock))) + (node - 1u) % perBlock * 64;
}

std::uint64_t ImageBuilder::EntryOffset(std::uint16_t directory, std::uint32_t index) const {
  const std::uint32_t perBlock = blockSize_ / 32;
  return BlockOffset(MappedBlock(directory, index / perBlock)) + index % perBlock * 32;
}

std::uint64_t ImageBuilder::MapOffset(std::uint16_t node, std::uint32_t index) const {
  const std::uint64_t record = NodeOffset(node);
  const std::uint32_t slots = blockSize_ / 4;
  if (index < kDirect) return record + 32 + 4 * index;
  if (index < kDirect + slots) return BlockOffset(Get32(record + 56)) + 4 * (index - kDirect);
  const std::uint32_t rest = index - kDirect - slots;
  const std::uint32_t second = Get32(BlockOffset(Get32(record + 60)) + rest / slots * 4);
  return BlockOffset(second) + rest % slots * 4;
}

std::uint16_t ImageBuilder::Get16(std::uint64_t offset) const {
  return static_cast<std::uint16_t>(bytes_.at(offset) | bytes_.at(offset + 1) << 8);
}

std::uint32_t ImageBuilder::Get32(std::uint64_t offset) const {
  return static_cast<std::uint32_t>(Get16(offset)) | static_cast<std::uint32_t>(Get16(offset + 2)) << 16;
}

void ImageBuilder::Put8(std::uint64_t offset, std::uint8_t value) { bytes_.at(offset) = value; }

void ImageBuilder::Put16(std::uint64_t offset, std::uint16_t value) {
  Put8(offset, static_cast<std::uint8_t>(value));
  Put8(offset + 1, static_cast<std::uint8_t>(value >> 8));
}

void ImageBuilder::Put32(std::uint64_t offset, std::uint32_t value) {
  Put16(offset, static_cast<std::uint16_t>(value));
  Put16(offset + 2, static_cast<std::uint16_t>(value >> 16));
}

void ImageBuilder::PutText(std::uint64_t offset, const std::string& text) {
  for (const char c : text) Put8(offset++, static_cast<std::uint8_t>(c));
}

void ImageBuilder::SetFree(std::uint16_t node, bool free) {
  std::uint8_t& byte = bytes_.at(1024 + (node - 1u) / 8);
  const int mask = 0x80 >> ((node - 1) % 8);
  byte = static_cast<std::uint8_t>(free ? byte | mask : byte & ~mask);
}

void ImageBuilder::InitNodeBlock(std::uint32_t index) {
  const std::uint32_t block = AppendBlock();
  Put32(TableOffset(index), block);
  const std::uint32_t perBlock = blockSize_ / 64;
  for (std::uint32_t i = 0; i < perBlock; ++i) {
    PutText(BlockOffset(block) + 64 * i, "INO1");
    Put16(BlockOffset(block) + 64 * i + 4, static_cast<std::uint16_t>(index * perBlock + i + 1));
  }
}

void ImageBuilder::PutEntry(std::uint64_t offset, std::uint16_t node, const std::string& name) {
  Require(name.size() <= 30);
  for (std::uint32_t i = 0; i < 32; ++i) Put8(offset + i, 0);
  Put16(offset, node);
  PutText(offset + 2, name);
}

void ImageBuilder::PutTime(std::uint64_t nodeOffset) {
  Put16(nodeOffset + 8, 2004);
  const std::uint8_t rest[] = {6, 15, 12, 30, 45};
  for (std::uint32_t i = 0; i < 5; ++i) Put8(nodeOffset + 10 + i, rest[i]);
}

Bytes Pattern(std::uint32_t size, std::uint32_t seed) {
  Bytes bytes(size);
  std::uint32_t state = seed * 2654435761u + 1;
  for (std::uint8_t& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return bytes;
}

}  // namespace testimage

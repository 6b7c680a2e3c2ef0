// Makes container images byte by byte, without the library: what it lays down follows from the format alone. Tests
// start from a valid image and then break it, byte by byte as well.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "volume/layout.h"

namespace testimage {

using Bytes = std::vector<std::uint8_t>;

class ImageBuilder {
 public:
  // A freshly formatted container: block 1 holds the node slots, block 2 the root directory.
  ImageBuilder(std::uint32_t blockSize, std::uint32_t bitmapBytes);

  const Bytes& bytes() const { return bytes_; }
  Bytes& bytes() { return bytes_; }
  std::uint32_t blockSize() const { return blockSize_; }
  std::uint32_t Blocks() const;  // whole blocks in the container

  // ---- Building. Nodes get the lowest free number, blocks are appended.

  std::uint16_t AddFile(std::uint16_t directory, const std::string& name, const Bytes& contents);
  std::uint16_t AddFile(std::uint16_t directory, const std::string& name, std::uint32_t size);  // of a pattern's bytes
  std::uint16_t AddDirectory(std::uint16_t parent, const std::string& name);

  // A node in use without a name.
  std::uint16_t AddNode(std::uint16_t attributes);

  // A name in a directory, checked by nobody.
  void AddEntry(std::uint16_t directory, const std::string& name, std::uint16_t node);

  // A block of zeros at the container's end, in use by nobody.
  std::uint32_t AppendBlock();

  // Appends a block with these contents and enters it as the node's next logical block, with the map blocks that it
  // needs. The size stays.
  std::uint32_t AppendToNode(std::uint16_t node, const Bytes& contents);

  // A free chain: each list becomes one record that lists those blocks, sorted, the first list the head. Records are
  // appended to the container. Result: the records' blocks.
  std::vector<std::uint32_t> SetChain(const std::vector<std::vector<std::uint32_t>>& records);

  // ---- Places, as byte offsets in the container

  std::uint64_t BlockOffset(std::uint32_t block) const;
  std::uint64_t NodeOffset(std::uint16_t node) const;
  std::uint64_t EntryOffset(std::uint16_t directory, std::uint32_t index) const;
  std::uint64_t MapOffset(std::uint16_t node, std::uint32_t index) const;  // of the slot for this logical block
  static std::uint64_t TableOffset(std::uint32_t entry) { return orba::kHeaderSize + 4 * entry; }

  // ---- Looking and breaking

  std::uint16_t Get16(std::uint64_t offset) const;
  std::uint32_t Get32(std::uint64_t offset) const;
  void Put8(std::uint64_t offset, std::uint8_t value);
  void Put16(std::uint64_t offset, std::uint16_t value);
  void Put32(std::uint64_t offset, std::uint32_t value);
  void PutText(std::uint64_t offset, const std::string& text);  // without a NUL

  std::uint32_t MappedBlock(std::uint16_t node, std::uint32_t index) const { return Get32(MapOffset(node, index)); }
  std::uint32_t Size(std::uint16_t node) const { return Get32(NodeOffset(node) + 16); }
  void SetSize(std::uint16_t node, std::uint32_t size) { Put32(NodeOffset(node) + 16, size); }
  void SetFree(std::uint16_t node, bool free);  // the node's bit in the bitmap

 private:
  void InitNodeBlock(std::uint32_t index);
  void PutEntry(std::uint64_t offset, std::uint16_t node, const std::string& name);
  void PutTime(std::uint64_t nodeOffset);

  std::uint32_t blockSize_;
  std::uint32_t bitmapBytes_;
  Bytes bytes_;
};

// Bytes that differ from block to block and from seed to seed.
Bytes Pattern(std::uint32_t size, std::uint32_t seed);

}  // namespace testimage

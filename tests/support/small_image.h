// The containers that most tests of the inspection begin with.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "inspect/container/image.h"
#include "tests/support/image_builder.h"

namespace testimage {

// /A (node 2) of 1,500 bytes, /D (3), /D/B (4) of 7 blocks and their map block, /D/E (5).
struct Small : ImageBuilder {
  Small() : ImageBuilder(1024, 32) {
    AddFile(1, "A", 1500);
    AddDirectory(1, "D");
    AddFile(3, "B", 7 * 1024);
    AddDirectory(3, "E");
  }
};

// With /D/E/C (6) of 10 bytes.
struct SmallWithC : Small {
  SmallWithC() { AddFile(5, "C", 10); }
};

// With a free chain: one record that lists two blocks and itself.
template <typename Base>
struct WithChain : Base {
  std::uint32_t a = Base::AppendBlock(), b = Base::AppendBlock(), c = Base::AppendBlock();
  std::uint32_t record = Base::SetChain({{a, b, c}})[0];
  std::uint64_t at = Base::BlockOffset(record);
};

// A directory /FULL of exactly `entries` entries: "." and "..", F2 and so on, of one size or of a byte more each.
enum class Sizes { kZero, kNumber };
inline std::uint16_t FillDirectory(ImageBuilder* image, std::uint32_t entries, Sizes sizes = Sizes::kZero) {
  const std::uint16_t directory = image->AddDirectory(1, "FULL");
  for (std::uint32_t i = 2; i < entries; ++i) {
    image->AddFile(directory, "F" + std::to_string(i), sizes == Sizes::kZero ? 0 : i);
  }
  return directory;
}

// The container at its beginning, then zeros up to its length.
struct LongImage : orba::inspect::MemoryImage {
  LongImage(const Bytes& bytes, std::uint64_t length) : MemoryImage(bytes), size(length) {}
  std::uint64_t Size() const override { return size; }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    if (offset > size || count > size - offset) return false;
    std::memset(out, 0, count);
    const std::uint64_t end = MemoryImage::Size();
    if (offset >= end) return true;
    return MemoryImage::Read(offset, out, static_cast<std::size_t>(std::min<std::uint64_t>(count, end - offset)));
  }
  std::uint64_t size;
};

// A file of nine blocks in the root whose block-map block names itself: it is read so far, and needs a copy to be kept.
inline std::uint16_t AddKnotted(ImageBuilder* image, const std::string& name) {
  const std::uint16_t file = image->AddFile(1, name, 9 * image->blockSize());
  image->Put32(image->MapOffset(file, 7), image->Get32(image->NodeOffset(file) + 56));
  return file;
}

// The host cannot read one byte.
struct BadByte : orba::inspect::MemoryImage {
  BadByte(const Bytes& bytes, std::uint64_t at) : MemoryImage(bytes), bad(at) {}
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    return (offset > bad || offset + count <= bad) && MemoryImage::Read(offset, out, count);
  }
  std::uint64_t bad;
};

// Counts the bytes that are read.
struct Counting : orba::inspect::MemoryImage {
  using MemoryImage::MemoryImage;
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override {
    read += count;
    return MemoryImage::Read(offset, out, count);
  }
  mutable std::uint64_t read = 0;
};

}  // namespace testimage

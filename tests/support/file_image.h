// The bytes of one file of the test host. Pages of zeros take no memory, so an image may pretend a size of gigabytes;
// copies share their pages until one of them changes, so a snapshot costs next to nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <memory>
#include <vector>

namespace testhost {

using Bytes = std::vector<uint8_t>;

class FileImage {
 public:
  FileImage() = default;
  explicit FileImage(const Bytes& bytes) { Write(0, bytes.data(), bytes.size()); }

  uint64_t size() const { return size_; }

  // Makes the file shorter, or longer by zeros.
  void Resize(uint64_t size);

  // Copies what lies at `position`; fewer than `count` bytes where the file ends. Result: the bytes copied.
  size_t Read(uint64_t position, void* out, size_t count) const;

  // Writes, first filling a gap before `position` with zeros. Writing nothing changes nothing, not even the size.
  void Write(uint64_t position, const void* data, size_t count);

  // The whole contents. Takes size() bytes of memory.
  Bytes ToBytes() const;

  // `count` bytes at `position`, fewer where the file ends.
  Bytes ToBytes(uint64_t position, size_t count) const;

  // The same for equal images, and hardly ever for others.
  size_t Hash() const;

  // Pages that take memory.
  size_t pages() const { return pages_.size(); }

 private:
  friend bool operator==(const FileImage& a, const FileImage& b);

  static constexpr size_t kPageSize = 4096;
  struct Page {
    uint8_t bytes[kPageSize];
  };

  Page& WritablePage(uint64_t index);

  uint64_t size_ = 0;
  std::map<uint64_t, std::shared_ptr<Page>> pages_;  // a missing page is all zeros; bytes past size_ are zeros
};

// Same size and same bytes.
bool operator==(const FileImage& a, const FileImage& b);
inline bool operator!=(const FileImage& a, const FileImage& b) { return !(a == b); }

}  // namespace testhost

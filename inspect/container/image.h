// A container as a row of bytes. Every read is checked against the container's length; nothing above this layer can
// reach outside it. Stands on the standard library alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace orba::inspect {

class Image {
 public:
  virtual ~Image() = default;

  // The container's length in bytes.
  virtual std::uint64_t Size() const = 0;

  // Copies `count` bytes from byte `offset` into `out`. False, with `out` undefined, when the range does not lie wholly
  // inside the container or the host cannot read it.
  virtual bool Read(std::uint64_t offset, void* out, std::size_t count) const = 0;
};

// A container that is read in whole pages and keeps some of them: the checker reads many short records.
class PagedImage : public Image {
 public:
  std::uint64_t Size() const final { return size_; }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const final;

 protected:
  PagedImage(std::uint64_t size, std::size_t pageSize) : size_(size), pageSize_(pageSize) {}

  // The page's bytes, valid until the next call, or null when the host cannot read them. The last page may be short:
  // Read never looks past the end.
  virtual const std::uint8_t* Page(std::uint64_t page) const = 0;

 private:
  std::uint64_t size_;
  std::size_t pageSize_;
};

// Bytes in memory, owned.
class MemoryImage : public Image {
 public:
  explicit MemoryImage(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

  std::uint64_t Size() const override { return bytes_.size(); }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override;

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace orba::inspect

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

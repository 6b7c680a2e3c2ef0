// A container with changes laid over it: what a container will be once planned writes are made. Stands on image.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "inspect/container/image.h"

namespace orba::inspect {

class PatchedImage : public Image {
 public:
  // `base` must live as long as this image.
  explicit PatchedImage(const Image& base) : base_(base), size_(base.Size()) {}

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override;

  // Lays the bytes over the container, which grows where they reach past its end. A gap reads as zeros.
  void Write(std::uint64_t offset, const void* bytes, std::size_t count);

  // True when any of these bytes may differ from the base's: something near them was written.
  bool Touches(std::uint64_t offset, std::uint64_t count) const;

 private:
  static constexpr std::uint64_t kPageSize = 1024;

  const Image& base_;
  std::uint64_t size_;
  std::map<std::uint64_t, std::vector<std::uint8_t>> pages_;  // changed pages, whole
};

}  // namespace orba::inspect

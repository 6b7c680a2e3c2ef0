// A container in a file of the host, as the inspection reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "inspect/container/image.h"

namespace orba::tool {

// A file of the host, read only, as an image. Reads go through a small cache of whole pages: the checker reads many short records.
class FileImage : public inspect::Image {
 public:
  // Opens the file; null when it cannot be opened or its length not be learnt.
  static std::unique_ptr<FileImage> Open(const std::string& path);

  ~FileImage() override;
  FileImage(const FileImage&) = delete;
  FileImage& operator=(const FileImage&) = delete;

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, void* out, std::size_t count) const override;

 private:
  FileImage(std::FILE* file, std::uint64_t size);
  const std::uint8_t* Page(std::uint64_t page) const;

  static constexpr std::size_t kPageSize = 8192;
  static constexpr std::size_t kPages = 64;
  static constexpr std::uint64_t kNoPage = ~std::uint64_t{0};

  std::FILE* file_;
  std::uint64_t size_;
  mutable std::vector<std::uint8_t> cache_;    // kPages pages; page p lies in place p mod kPages
  mutable std::vector<std::uint64_t> cached_;  // which page each place holds
};

}  // namespace orba::tool

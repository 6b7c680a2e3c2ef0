// A container in a file of the host, as the inspection reads it. Stands on host and inspect/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "inspect/container/image.h"

namespace orba::tool {

// What the file is made to hold after a page was read may not be seen.
class FileImage : public inspect::PagedImage {
 public:
  // The file that `file`, a descriptor open for reading, stands for; it stays the caller's. Null when it is not an
  // ordinary file.
  static std::unique_ptr<FileImage> Of(int file);
  // Opens the file itself; null when it cannot be opened or is not an ordinary one.
  static std::unique_ptr<FileImage> Open(const std::string& path);

  ~FileImage() override;
  FileImage(const FileImage&) = delete;
  FileImage& operator=(const FileImage&) = delete;

 private:
  FileImage(int file, bool owned, std::uint64_t size);
  const std::uint8_t* Page(std::uint64_t page) const override;

  static constexpr std::size_t kPageSize = 8192;
  static constexpr std::size_t kPages = 64;
  static constexpr std::uint64_t kNoPage = ~std::uint64_t{0};

  int file_;
  bool owned_;
  mutable std::vector<std::uint8_t> cache_;    // kPages pages; page p lies in place p mod kPages
  mutable std::vector<std::uint64_t> cached_;  // which page each place holds
};

}  // namespace orba::tool

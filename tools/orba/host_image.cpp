#include "tools/orba/host_image.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace orba::tool {

std::unique_ptr<FileImage> FileImage::Open(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error) return nullptr;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return nullptr;
  std::setvbuf(file, nullptr, _IONBF, 0);
  return std::unique_ptr<FileImage>(new FileImage(file, size));
}

FileImage::FileImage(std::FILE* file, std::uint64_t size)
    : file_(file), size_(size), cache_(kPages * kPageSize), cached_(kPages, kNoPage) {}

FileImage::~FileImage() { std::fclose(file_); }

bool FileImage::Read(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > size_ || count > size_ - offset) return false;
  auto* to = static_cast<std::uint8_t*>(out);
  while (count > 0) {
    const std::uint8_t* page = Page(offset / kPageSize);
    if (page == nullptr) return false;
    const std::size_t from = static_cast<std::size_t>(offset % kPageSize);
    const std::size_t part = std::min(count, kPageSize - from);
    std::memcpy(to, page + from, part);
    to += part;
    offset += part;
    count -= part;
  }
  return true;
}

// The page's bytes, or null when the host cannot read them. The last page may be short; Read never looks past the end.
const std::uint8_t* FileImage::Page(std::uint64_t page) const {
  const std::size_t place = static_cast<std::size_t>(page % kPages);
  std::uint8_t* bytes = cache_.data() + place * kPageSize;
  if (cached_[place] == page) return bytes;
  cached_[place] = kNoPage;
  const std::uint64_t offset = page * kPageSize;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kPageSize, size_ - offset));
  if (offset > 0x7FFFFFFF || std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) return nullptr;
  if (std::fread(bytes, 1, count, file_) != count) return nullptr;
  cached_[place] = page;
  return bytes;
}

}  // namespace orba::tool

#include "tools/orba/host_image.h"

#include <algorithm>
#include <cerrno>

#include "tools/orba/host/host.h"

namespace orba::tool {

std::unique_ptr<FileImage> FileImage::Of(int file) {
  const host::Status status = host::StatusOf(file);
  if (status.kind != host::Kind::kFile) return nullptr;
  return std::unique_ptr<FileImage>(new FileImage(file, false, status.size));
}

std::unique_ptr<FileImage> FileImage::Open(const std::string& path) {
  const int file = host::OpenForReading(path);
  std::unique_ptr<FileImage> image = Of(file);
  if (image != nullptr) image->owned_ = true;
  if (image == nullptr && file >= 0) host::Close(file);
  return image;
}

FileImage::FileImage(int file, bool owned, std::uint64_t size)
    : PagedImage(size, kPageSize), file_(file), owned_(owned), cache_(kPages * kPageSize), cached_(kPages, kNoPage) {}

FileImage::~FileImage() {
  if (owned_) host::Close(file_);
}

const std::uint8_t* FileImage::Page(std::uint64_t page) const {
  const std::size_t place = static_cast<std::size_t>(page % kPages);
  std::uint8_t* bytes = cache_.data() + place * kPageSize;
  if (cached_[place] == page) return bytes;
  cached_[place] = kNoPage;
  const std::uint64_t offset = page * kPageSize;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kPageSize, Size() - offset));
  for (std::size_t done = 0; done < count;) {
    const std::ptrdiff_t part = host::ReadAt(file_, offset + done, bytes + done, count - done);
    if (part < 0 && errno == EINTR) continue;
    if (part <= 0) return nullptr;
    done += static_cast<std::size_t>(part);
  }
  cached_[place] = page;
  return bytes;
}

}  // namespace orba::tool

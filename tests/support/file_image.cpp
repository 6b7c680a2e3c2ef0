#include "support/file_image.h"

#include <string.h>

#include <algorithm>
#include <functional>
#include <string_view>

namespace testhost {

namespace {

// Bytes from `position` to the end of its page, at most `count`.
size_t PartInPage(uint64_t position, size_t count, size_t pageSize) {
  return std::min<size_t>(count, pageSize - static_cast<size_t>(position % pageSize));
}

}  // namespace

void FileImage::Resize(uint64_t size) {
  if (size < size_) {
    pages_.erase(pages_.lower_bound((size + kPageSize - 1) / kPageSize), pages_.end());
    const size_t kept = static_cast<size_t>(size % kPageSize);
    if (kept != 0 && pages_.count(size / kPageSize) != 0) {
      memset(WritablePage(size / kPageSize).bytes + kept, 0, kPageSize - kept);
    }
  }
  size_ = size;
}

size_t FileImage::Read(uint64_t position, void* out, size_t count) const {
  if (position >= size_) return 0;
  const size_t total = static_cast<size_t>(std::min<uint64_t>(count, size_ - position));
  uint8_t* to = static_cast<uint8_t*>(out);
  for (size_t left = total; left > 0;) {
    const size_t part = PartInPage(position, left, kPageSize);
    const auto page = pages_.find(position / kPageSize);
    if (page == pages_.end()) {
      memset(to, 0, part);
    } else {
      memcpy(to, page->second->bytes + position % kPageSize, part);
    }
    to += part;
    position += part;
    left -= part;
  }
  return total;
}

void FileImage::Write(uint64_t position, const void* data, size_t count) {
  if (count == 0) return;
  size_ = std::max(size_, position + count);
  const uint8_t* from = static_cast<const uint8_t*>(data);
  while (count > 0) {
    const size_t part = PartInPage(position, count, kPageSize);
    memcpy(WritablePage(position / kPageSize).bytes + position % kPageSize, from, part);
    from += part;
    position += part;
    count -= part;
  }
}

Bytes FileImage::ToBytes() const { return ToBytes(0, static_cast<size_t>(size_)); }

Bytes FileImage::ToBytes(uint64_t position, size_t count) const {
  const uint64_t available = position < size_ ? size_ - position : 0;
  Bytes bytes(static_cast<size_t>(std::min<uint64_t>(count, available)));
  Read(position, bytes.data(), bytes.size());
  return bytes;
}

size_t FileImage::Hash() const {
  static const Page kZeros{};
  size_t hash = static_cast<size_t>(size_);
  for (const auto& [index, page] : pages_) {
    if (memcmp(page->bytes, kZeros.bytes, kPageSize) == 0) continue;  // as if it were missing
    const std::string_view text(reinterpret_cast<const char*>(page->bytes), kPageSize);
    hash = (hash ^ index) * 0x100000001B3 ^ std::hash<std::string_view>()(text);
  }
  return hash;
}

FileImage::Page& FileImage::WritablePage(uint64_t index) {
  std::shared_ptr<Page>& page = pages_[index];
  if (page == nullptr) {
    page = std::make_shared<Page>();
  } else if (page.use_count() > 1) {
    page = std::make_shared<Page>(*page);
  }
  return *page;
}

bool operator==(const FileImage& a, const FileImage& b) {
  if (a.size_ != b.size_) return false;
  static const FileImage::Page kZeros{};
  const auto pageOf = [](const FileImage& image, uint64_t index) {
    const auto page = image.pages_.find(index);
    return page != image.pages_.end() ? page->second.get() : &kZeros;
  };
  const auto samePages = [&](const FileImage& pages, const FileImage& others) {
    return std::all_of(pages.pages_.begin(), pages.pages_.end(), [&](const auto& page) {
      const FileImage::Page* other = pageOf(others, page.first);
      return page.second.get() == other || memcmp(page.second->bytes, other->bytes, FileImage::kPageSize) == 0;
    });
  };
  return samePages(a, b) && samePages(b, a);
}

}  // namespace testhost

#include "tools/orba/archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>

#include "tools/orba/failure.h"
#include "tools/orba/host/host.h"
#include "tools/orba/interrupt.h"

namespace orba::tool {

namespace {

// In tar: attributes of a file in a container, "r" read-only and "u" the user's.
constexpr const char* kAttributes = "user.orba.attributes";

// In zip, times have 32 bits.
constexpr std::int64_t kLastZipTime = 0xFFFFFFFF;

struct Format {
  const char* name;
  const char* shortName;
  const char* compressor;
  int (*addFilter)(archive*);
  int (*supportFilter)(archive*);
  const char* (*version)();  // of the compressor's library
};

const char* NoLibrary() { return ""; }

constexpr Format kFormats[] = {
    {"tar", nullptr, nullptr, archive_write_add_filter_none, archive_read_support_filter_none, NoLibrary},
    {"tar.gz", "tgz", "gzip", archive_write_add_filter_gzip, archive_read_support_filter_gzip, archive_zlib_version},
    {"tar.bz2", "tbz2", "bzip2", archive_write_add_filter_bzip2, archive_read_support_filter_bzip2,
     archive_bzlib_version},
    {"tar.xz", "txz", "xz", archive_write_add_filter_xz, archive_read_support_filter_xz, archive_liblzma_version},
    {"tar.zst", "tzst", "zstd", archive_write_add_filter_zstd, archive_read_support_filter_zstd,
     archive_libzstd_version},
    {"zip", nullptr, nullptr, archive_write_add_filter_none, archive_read_support_filter_none, NoLibrary},
};

// For what it was built without the library would start programs, wherever it finds them.
bool IsBuiltIn(const Format& format) { return format.version() != nullptr; }

bool EndsIn(const std::string& path, const char* name) {
  const std::string end = std::string(".") + name;
  if (path.size() < end.size()) return false;
  return std::equal(end.begin(), end.end(), path.end() - static_cast<std::ptrdiff_t>(end.size()),
                    [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); });
}

struct FreeEntry {
  void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using Entry = std::unique_ptr<archive_entry, FreeEntry>;

std::string ErrorOf(archive* handle) {
  const char* const text = archive_error_string(handle);
  if (text == nullptr) return "it is no archive";
  std::string line = text;
  while (!line.empty() && line.back() == '\n') line.pop_back();  // of some messages
  return line;
}

}  // namespace

const std::vector<std::string>& ArchiveFormats() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const Format& format : kFormats) {
      if (IsBuiltIn(format)) all.emplace_back(format.name);
    }
    return all;
  }();
  return names;
}

std::string ArchiveFormatOf(const std::string& path) {
  for (const Format& format : kFormats) {
    if (!IsBuiltIn(format)) continue;
    if (EndsIn(path, format.name) || (format.shortName != nullptr && EndsIn(path, format.shortName))) {
      return format.name;
    }
  }
  return "";
}

// ---- Writing --------------------------------------------------------------------------------------------------------

struct ArchiveWriter::State {
  archive* handle = nullptr;
  Take take;
  std::exception_ptr thrown;
  bool zip = false;
  bool closed = false;
  bool failed = false;  // what was written is no longer taken

  // No exception passes through the library's code: what is thrown below waits until it is back.
  static la_ssize_t OnWrite(archive*, void* data, const void* bytes, std::size_t count) {
    auto* const state = static_cast<State*>(data);
    if (state->failed) return -1;
    try {
      state->take(bytes, count);
      return static_cast<la_ssize_t>(count);
    } catch (...) {
      state->thrown = std::current_exception();
      state->failed = true;
      return -1;
    }
  }

  void Require(la_ssize_t result) {
    if (thrown != nullptr) std::rethrow_exception(std::exchange(thrown, nullptr));
    if (result < ARCHIVE_WARN) throw Failure("cannot write the archive", ErrorOf(handle), "check the disk");
  }
};

ArchiveWriter::ArchiveWriter(const std::string& format, const Take& take) : state_(std::make_unique<State>()) {
  state_->take = take;
  state_->handle = archive_write_new();
  if (state_->handle == nullptr) throw std::bad_alloc();
  archive* const handle = state_->handle;
  const auto* const row =
      std::find_if(std::begin(kFormats), std::end(kFormats), [&](const Format& one) { return format == one.name; });
  const bool zip = format == "zip";
  state_->zip = zip;
  state_->Require(zip ? archive_write_set_format_zip(handle) : archive_write_set_format_pax_restricted(handle));
  // The way of tar for extended attributes alone; of the other one it would warn.
  if (!zip) state_->Require(archive_write_set_format_option(handle, "pax", "xattrheader", "SCHILY"));
  state_->Require(row->addFilter(handle));
  // The same contents give the same archive, at any time.
  if (format == "tar.gz") state_->Require(archive_write_set_filter_option(handle, "gzip", "timestamp", nullptr));
  constexpr int kBlock = 64 * 1024;
  state_->Require(archive_write_set_bytes_per_block(handle, kBlock));
  state_->Require(archive_write_set_bytes_in_last_block(handle, 1));
  state_->Require(archive_write_open(handle, state_.get(), nullptr, State::OnWrite, nullptr));
}

ArchiveWriter::~ArchiveWriter() {
  state_->take = [](const void*, std::size_t) {};  // an end that nobody waits for
  // Without Close the archive is given up: otherwise the rest of the file would be zeros, which are compressed too. The
  // library then forgets to free a block, so not where it is stopped by a write that failed.
  if (!state_->closed && !state_->failed) archive_write_fail(state_->handle);
  archive_write_free(state_->handle);
}

bool ArchiveWriter::Add(const Member& member) {
  const Entry entry(archive_entry_new());
  if (entry == nullptr) throw std::bad_alloc();
  archive_entry* const one = entry.get();
  archive_entry_set_pathname(one, member.name.c_str());
  archive_entry_set_filetype(one, member.isDirectory ? AE_IFDIR : AE_IFREG);
  const std::uint32_t attributes = member.attributes.value_or(0);
  const std::uint16_t mode = member.isDirectory ? 0755 : (attributes & ORB_ATTRIBUTE_READ_ONLY) != 0 ? 0444 : 0644;
  archive_entry_set_perm(one, mode);
  const bool fits = !state_->zip || !member.time.has_value() || (*member.time >= 0 && *member.time <= kLastZipTime);
  if (member.time.has_value() && fits) archive_entry_set_mtime(one, *member.time, 0);
  if (!member.isDirectory) archive_entry_set_size(one, static_cast<la_int64_t>(member.size.value_or(0)));
  std::string letters;
  if ((attributes & ORB_ATTRIBUTE_READ_ONLY) != 0) letters += 'r';
  if ((attributes & ORB_ATTRIBUTE_USER) != 0) letters += 'u';
  if (!letters.empty()) archive_entry_xattr_add_entry(one, kAttributes, letters.data(), letters.size());
  state_->Require(archive_write_header(state_->handle, one));
  return fits;
}

void ArchiveWriter::Write(const void* bytes, std::size_t count) {
  if (count > 0) state_->Require(archive_write_data(state_->handle, bytes, count));
}

void ArchiveWriter::Close() {
  state_->Require(archive_write_close(state_->handle));
  state_->closed = true;
}

// ---- Reading --------------------------------------------------------------------------------------------------------

namespace {

std::string Compressors() {
  std::string all;
  for (const Format& format : kFormats) {
    if (format.compressor == nullptr || !IsBuiltIn(format)) continue;
    all += (all.empty() ? "" : " or ") + std::string(format.compressor);
  }
  return all;
}

}  // namespace

struct ArchiveReader::State {
  archive* handle = nullptr;
  std::string path;
  std::string member;  // the one that Next gave last
  int file = -1;
  std::uint64_t size = 0;
  std::uint64_t position = 0;
  std::array<char, 256 * 1024> buffer;
  bool interrupted = false;

  static la_ssize_t OnRead(archive* handle, void* data, const void** bytes) {
    auto* const state = static_cast<State*>(data);
    *bytes = state->buffer.data();
    for (;;) {
      state->interrupted = host::CaughtSignal() != 0;
      if (state->interrupted) return ARCHIVE_FATAL;
      const std::ptrdiff_t count =
          host::ReadAt(state->file, state->position, state->buffer.data(), state->buffer.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) archive_set_error(handle, errno, "the host cannot read it");
      if (count > 0) state->position += static_cast<std::uint64_t>(count);
      return count < 0 ? la_ssize_t{ARCHIVE_FATAL} : static_cast<la_ssize_t>(count);
    }
  }

  static la_int64_t OnSkip(archive*, void* data, la_int64_t count) {
    auto* const state = static_cast<State*>(data);
    const std::uint64_t left = state->size - std::min(state->position, state->size);
    const std::uint64_t skipped = std::min(left, static_cast<std::uint64_t>(count));
    state->position += skipped;
    return static_cast<la_int64_t>(skipped);
  }

  static la_int64_t OnSeek(archive*, void* data, la_int64_t offset, int from) {
    auto* const state = static_cast<State*>(data);
    la_int64_t base = 0;
    if (from == SEEK_CUR) base = static_cast<la_int64_t>(state->position);
    if (from == SEEK_END) base = static_cast<la_int64_t>(state->size);
    if (offset < -base) return ARCHIVE_FATAL;
    state->position = static_cast<std::uint64_t>(base + offset);
    return base + offset;
  }

  void Require(la_ssize_t result) const {
    if (interrupted) CheckInterrupt();
    if (result >= ARCHIVE_WARN) return;
    if (archive_errno(handle) == ENOMEM) throw std::bad_alloc();
    throw Failure("cannot read " + path + " as an archive", ErrorOf(handle),
                  "it must be tar or zip, whole, and compressed by " + Compressors() + " if at all");
  }

  void RequireContents(la_ssize_t result) const {
    if (interrupted || archive_errno(handle) == ENOMEM) return Require(result);
    if (result >= 0) return;  // a warning here: the checksum is wrong
    throw Failure("cannot read " + member + " in " + path, ErrorOf(handle),
                  "the archive is damaged; this file is left out");
  }
};

ArchiveReader::ArchiveReader(const std::string& path, int file) : state_(std::make_unique<State>()) {
  state_->path = path;
  state_->file = file;
  state_->size = host::StatusOf(file).size;
  state_->handle = archive_read_new();
  archive* const handle = state_->handle;
  if (handle == nullptr) throw std::bad_alloc();
  state_->Require(archive_read_support_format_tar(handle));
  state_->Require(archive_read_support_format_zip(handle));
  for (const Format& format : kFormats) {
    if (IsBuiltIn(format)) state_->Require(format.supportFilter(handle));
  }
  archive_read_set_seek_callback(handle, State::OnSeek);
  state_->Require(archive_read_open2(handle, state_.get(), nullptr, State::OnRead, State::OnSkip, nullptr));
}

ArchiveReader::~ArchiveReader() { archive_read_free(state_->handle); }

namespace {

std::string OtherKind(archive_entry* entry) {
  if (archive_entry_hardlink(entry) != nullptr) return "a hard link";
  if (archive_entry_is_data_encrypted(entry) != 0) return "encrypted";
  switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
    case AE_IFDIR:
      return "";
    case AE_IFLNK:
      return "a symbolic link";
    case AE_IFIFO:
      return "a pipe";
    case AE_IFSOCK:
      return "a socket";
    case AE_IFCHR:
    case AE_IFBLK:
      return "a device";
    default:
      return "of an unknown kind";
  }
}

std::optional<std::uint32_t> AttributesOf(archive_entry* entry) {
  const char* name = nullptr;
  const void* value = nullptr;
  std::size_t size = 0;
  archive_entry_xattr_reset(entry);
  while (archive_entry_xattr_next(entry, &name, &value, &size) == ARCHIVE_OK) {
    if (name == nullptr || std::string(name) != kAttributes) continue;
    const std::string letters(static_cast<const char*>(value), size);
    std::uint32_t attributes = 0;
    if (letters.find('r') != std::string::npos) attributes |= ORB_ATTRIBUTE_READ_ONLY;
    if (letters.find('u') != std::string::npos) attributes |= ORB_ATTRIBUTE_USER;
    return attributes;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Member> ArchiveReader::Next() {
  archive_entry* entry = nullptr;
  const int result = archive_read_next_header(state_->handle, &entry);
  if (result == ARCHIVE_EOF) return std::nullopt;
  state_->Require(result == ARCHIVE_RETRY ? int{ARCHIVE_FATAL} : result);
  Member member;
  const std::string wide = host::FromSystemText(archive_entry_pathname_w(entry));
  const char* name = archive_entry_pathname_utf8(entry);
  if (name == nullptr) name = archive_entry_pathname(entry);
  member.name = !wide.empty() || name == nullptr ? wide : name;
  state_->member = member.name;
  member.other = OtherKind(entry);
  member.isDirectory = archive_entry_filetype(entry) == AE_IFDIR;
  if (archive_entry_size_is_set(entry) != 0) member.size = static_cast<std::uint64_t>(archive_entry_size(entry));
  if (archive_entry_mtime_is_set(entry) != 0) member.time = archive_entry_mtime(entry);
  member.attributes = AttributesOf(entry);
  return member;
}

std::size_t ArchiveReader::Read(void* buffer, std::size_t count) {
  std::size_t done = 0;
  while (done < count) {
    const la_ssize_t part = archive_read_data(state_->handle, static_cast<char*>(buffer) + done, count - done);
    state_->RequireContents(part);
    if (part == 0) break;
    done += static_cast<std::size_t>(part);
  }
  return done;
}

}  // namespace orba::tool

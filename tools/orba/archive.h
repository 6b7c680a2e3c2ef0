// Archives: tar and zip as streams, compressed or not. Stands on failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "orba.h"

namespace orba::tool {

// "tar", "tar.gz", "tar.bz2", "tar.xz", "tar.zst", "zip".
const std::vector<std::string>& ArchiveFormats();
// The one that a file's name ends in, also as "tgz", "tbz2", "txz" or "tzst"; empty for any other name.
std::string ArchiveFormatOf(const std::string& path);

// What a member of an archive is.
struct Member {
  std::string name;   // as the archive has it
  std::string other;  // what it is instead of a file or directory: "a symbolic link"; else empty
  bool isDirectory = false;
  std::optional<std::uint64_t> size;        // of a file; some zip archives tell it at its end alone
  std::optional<std::int64_t> time;         // seconds since 1970
  std::optional<std::uint32_t> attributes;  // of the container that it came from
};

// Every member throws a Failure.
class ArchiveWriter {
 public:
  // Gives the archive to `take` piece by piece; what that throws comes out of the call that made it.
  using Take = std::function<void(const void* bytes, std::size_t count)>;
  ArchiveWriter(const std::string& format, const Take& take);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  // Begins a directory, or a file of which as many bytes are to be written as it has. False where the format cannot
  // hold its time, which is left out then.
  bool Add(const Member& member);
  void Write(const void* bytes, std::size_t count);
  void Close();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Every member throws a Failure that says what of which archive cannot be read.
class ArchiveReader {
 public:
  // Reads an ordinary file, which stays the caller's, from its beginning.
  ArchiveReader(const std::string& path, int file);
  ~ArchiveReader();
  ArchiveReader(const ArchiveReader&) = delete;
  ArchiveReader& operator=(const ArchiveReader&) = delete;

  // The next member, nothing at the end.
  std::optional<Member> Next();
  // Bytes of its contents, less than `count` at their end alone.
  std::size_t Read(void* buffer, std::size_t count);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace orba::tool

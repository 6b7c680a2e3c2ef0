// Of a build without libarchive.
#include "tools/orba/archive.h"
#include "tools/orba/failure.h"

namespace orba::tool {

namespace {

[[noreturn]] void Refuse() {
  throw Failure("cannot read or write archives", "this build of orba has no library for them",
                "copy trees with orba get and orba put, and pack them with the system's own tar");
}

}  // namespace

struct ArchiveWriter::State {};
struct ArchiveReader::State {};

const std::vector<std::string>& ArchiveFormats() {
  static const std::vector<std::string> names = {"tar", "tar.gz", "tar.bz2", "tar.xz", "tar.zst", "zip"};
  return names;
}

std::string ArchiveFormatOf(const std::string&) { return "tar"; }

ArchiveWriter::ArchiveWriter(const std::string&, const Take&) { Refuse(); }
ArchiveWriter::~ArchiveWriter() = default;
void ArchiveWriter::Add(const Member&) { Refuse(); }
void ArchiveWriter::Write(const void*, std::size_t) { Refuse(); }
void ArchiveWriter::Close() { Refuse(); }

ArchiveReader::ArchiveReader(const std::string&, int) { Refuse(); }
ArchiveReader::~ArchiveReader() = default;
std::optional<Member> ArchiveReader::Next() { Refuse(); }
std::size_t ArchiveReader::Read(void*, std::size_t) { Refuse(); }

}  // namespace orba::tool

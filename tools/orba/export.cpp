// export: what a container holds, as an archive.
#include <algorithm>
#include <memory>
#include <optional>

#include "tools/orba/archive.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/contents.h"
#include "tools/orba/host_file.h"
#include "tools/orba/stamps.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct ExportOptions {
  std::string container;
  std::string archive = "-";
  std::string format;
  bool force = false;
  bool verbose = false;
  bool quiet = false;
};

Member MemberOf(const Content& content) {
  const Item& item = content.match.item;
  Member member;
  member.name = content.name + (item.IsDirectory() ? "/" : "");
  member.isDirectory = item.IsDirectory();
  member.size = item.size;
  if (IsDate(item.time)) member.time = SecondsSince1970(item.time);
  if (!item.IsDirectory()) member.attributes = item.attributes;
  return member;
}

// A file that the container holds all blocks of, but the host cannot read: what is missing is zeros, since the archive
// has said by then how long it is.
void AddContents(ArchiveWriter* archive, Look* look, const Match& file, Progress* progress) {
  std::uint64_t done = 0;
  try {
    look->Read(file, [&](const std::uint8_t* bytes, std::size_t count) {
      archive->Write(bytes, count);
      done += count;
      progress->Advance(count);
      return true;
    });
  } catch (Failure& failure) {
    const std::vector<char> zeros(64 * 1024);
    for (std::uint64_t left = file.item.size - done; left > 0;) {
      const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left, zeros.size()));
      archive->Write(zeros.data(), count);
      left -= count;
    }
    failure.AddAdvice("the archive has zeros there");
    throw;
  }
}

int Export(const ExportOptions& options, Look* look, const std::vector<Content>& contents, ArchiveWriter* archive) {
  std::uint64_t work = 0;
  for (const Content& content : contents) work += content.match.item.size + Progress::kFile;
  Progress progress("export", work, options.quiet || options.archive == "-");
  int status = kSuccess;
  for (const Content& content : contents) {
    progress.SetItem(content.name);
    try {
      const bool file = !content.match.item.IsDirectory();
      if (file) look->RequireBlocks(content.match);
      archive->Add(MemberOf(content));
      if (file) AddContents(archive, look, content.match, &progress);
      if (options.verbose) Print(content.name + "\n");
    } catch (const Failure& failure) {
      if (failure.IsFinal()) throw;
      Report(failure);
      status = kFailed;
    }
    progress.Advance(Progress::kFile);
  }
  archive->Close();
  return status;
}

std::string FormatFor(const ExportOptions& options) {
  if (!options.format.empty()) return options.format;
  if (options.archive == "-") return "tar";
  std::string format = ArchiveFormatOf(options.archive);
  if (!format.empty()) return format;
  std::string known;
  for (const std::string& one : ArchiveFormats()) known += (known.empty() ? "." : ", .") + one;
  throw UsageFailure("export", "the name " + options.archive + " says no format; it has to end in one of " + known +
                                   ", or give --format");
}

int RunExport(const ExportOptions& options) {
  const std::string format = FormatFor(options);
  const bool toOutput = options.archive == "-";
  if (toOutput && IsTerminal(Stream::kOutput)) {
    throw Failure("cannot print an archive on a terminal", "", "give a FILE, or lead the output into a program");
  }
  if (toOutput && options.verbose) throw UsageFailure("export", "--verbose and the archive cannot both be printed");
  if (!toOutput && HostFileExists(options.archive)) {
    PlaceToWrite(options.archive);
    if (!options.force) throw HostFailure("cannot write " + options.archive, EEXIST);
  }
  Look look;
  const Address address = ParseAddress(options.container);
  const std::vector<Content> contents = ContentsOf(&look, {address, GetItem(&look, address, "export")});
  int status = kSuccess;
  if (toOutput) {
    ArchiveWriter archive(format, [](const void* bytes, std::size_t count) { Print(bytes, count); });
    status = Export(options, &look, contents, &archive);
  } else {
    SweepTemporaries(ParentOf(options.archive));
    NewHostFile file(options.archive);
    ArchiveWriter archive(format, [&file](const void* bytes, std::size_t count) { file.Write(bytes, count); });
    status = Export(options, &look, contents, &archive);
    file.Publish({}, options.force, true);
  }
  return look.Finish(status);
}

Run DefineExport(Syntax* syntax) {
  auto options = std::make_shared<ExportOptions>();
  syntax->Choice("--format", "FORMAT", &options->format, ArchiveFormats(),
                 "unless the name of FILE says which; \"-\" is tar otherwise");
  syntax->Flag("-f,--force", &options->force, "overwrite FILE");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "draw no progress");
  syntax->One("CONTAINER[:/PATH]", &options->container);
  syntax->OneOrNone("FILE|-", &options->archive);
  return [options] { return RunExport(*options); };
}

}  // namespace

const Command kExportCommand = {
    "export",
    kTransferGroup,
    "CONTAINER[:/PATH] [FILE|-]",
    "write what a container holds as tar or zip",
    "Writes the contents of PATH and everything below it as an archive, names from PATH on: to FILE in the format that "
    "its name ends in (.tar, .tar.gz, .tgz, .tar.bz2, .tar.xz, .tar.zst, .zip; on Windows .tar, "
    ".tar.gz, .tgz, .zip), or to standard output. Files and directories keep their times. In tar, the attributes of a "
    "file stand in an extended header as the extended "
    "attribute user.orba.attributes, \"r\" for read-only and \"u\" for the user's; zip has no place for them. The same "
    "contents give the same archive.\n\n"
    "Works on marked and damaged containers as get does: a file that cannot be read is left out and reported, and the "
    "exit status is 1.",
    "orba export card.orb - | tar t\n"
    "orba export card.orb:/LOGS logs.tar.gz\n"
    "orba export card.orb card.zip",
    DefineExport,
};

}  // namespace orba::tool

// compact: a container made anew from what another one holds.
#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <optional>

#include "inspect/check/check.h"
#include "inspect/check/finding.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/contents.h"
#include "tools/orba/host/host.h"
#include "tools/orba/host_file.h"
#include "tools/orba/incoming.h"
#include "tools/orba/new_container.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/stamps.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

struct CompactOptions {
  std::string container;
  std::string target;
  std::string keep;
  ShapeOptions shape;
  bool verbose = false;
  bool quiet = false;
};

// Leaks are what it is to get rid of; anything worse is not to be copied.
void RequireSound(const RawContainer& container) {
  const inspect::Report report = inspect::Check(container.image());
  const std::string& path = container.path();
  const std::string word = ShellWord(path);
  if (!report.model.geometry.known() || report.model.header.signature != kVolumeSignature) {
    throw LibraryFailure("cannot compact " + path, path, ORB_ERROR_DAMAGED_VOLUME);
  }
  if (report.Worst() == inspect::Severity::kDamage || report.Worst() == inspect::Severity::kInterrupted) {
    throw Failure(
        "cannot compact " + path,
        "it is damaged, or an update of it was interrupted half-way (" + CodeText(ORB_ERROR_DAMAGED_RECORD) + ")",
        "see the damage with: orba check " + word + "\nrepair it first with: orba repair " + word +
            "\nor fetch everything that is left with: orba recover " + word + " DIR",
        ORB_ERROR_DAMAGED_RECORD);
  }
  if (report.marked) {
    throw Failure("cannot compact " + path, "an update of it was interrupted (" + CodeText(ORB_ERROR_NOT_CLEAN) + ")",
                  "repair it first with: orba repair " + word, ORB_ERROR_NOT_CLEAN);
  }
}

// What the host does not let the user write to is not to be replaced either, though its directory may allow that.
void RequireWritable(const std::string& container) {
  const Descriptor file = tool::OpenForWriting(container, host::Share::kReaders);
  const bool refused = errno == EACCES || errno == EPERM || errno == EROFS;
  if (file.get() < 0 && refused) throw HostFailure("cannot compact " + ShellWord(container), errno);
}

// What the source has, unless the user wants something else.
ShapeOptions ShapeFor(const CompactOptions& options, const inspect::Geometry& geometry) {
  ShapeOptions shape = options.shape;
  if (!shape.blockSize.has_value()) shape.blockSize = geometry.blockSize;
  if (!shape.nodes.has_value() && !shape.spare.has_value()) {
    const std::uint32_t most = kNodeTableEntries * (*shape.blockSize / kNodeSize);
    shape.nodes = std::min(geometry.nodeLimit(), most);
  }
  return shape;
}

Measure MeasureOf(const std::vector<Content>& contents) {
  std::map<std::string, std::uint64_t> entries = {{"/", 0}};  // by directory
  Measure measure;
  for (const Content& content : contents) {
    ++entries[content.match.address.Parent().Path()];
    if (content.match.item.IsDirectory()) {
      entries.emplace(content.match.address.Path(), 0);
    } else {
      measure.AddFile(content.match.item.size);
    }
  }
  for (const auto& [directory, count] : entries) measure.AddDirectory(count);
  return measure;
}

Address InContainer(const Address& address, const std::string& container) {
  Address other = address;
  other.container = container;
  return other;
}

void CopyAll(const CompactOptions& options, Look* look, const std::vector<Content>& contents,
             const std::string& container, Session* session) {
  std::uint64_t work = 0;
  for (const Content& content : contents) work += content.match.item.size + Progress::kFile;
  Progress progress("compact", work, options.quiet);
  Incoming incoming(session, &progress);
  for (const Content& content : contents) {
    const Match& match = content.match;
    const Address target = InContainer(match.address, container);
    progress.SetItem(match.address.Path());
    if (match.item.IsDirectory()) {
      incoming.MakeDirectory(target);
    } else {
      std::uint32_t position = 0;
      incoming.WriteFile(target, false, match.item.attributes, [&](void* to, std::size_t count) {
        const std::size_t done = look->ReadAt(match, position, to, static_cast<std::uint32_t>(count));
        position += static_cast<std::uint32_t>(done);
        return done;
      });
    }
    if (options.verbose) Print(match.address.Path() + "\n");
    progress.Advance(Progress::kFile);
  }
}

bool IsSameFile(Look* look, const Match& one, Look* otherLook, const Match& other) {
  if (one.item.size != other.item.size || one.item.attributes != other.item.attributes) return false;
  constexpr std::uint32_t kPiece = 256 * 1024;
  std::vector<char> mine(kPiece);
  std::vector<char> theirs(kPiece);
  for (std::uint32_t position = 0; position < one.item.size;) {
    const std::size_t count = look->ReadAt(one, position, mine.data(), kPiece);
    if (otherLook->ReadAt(other, position, theirs.data(), kPiece) != count) return false;
    if (!std::equal(mine.begin(), mine.begin() + static_cast<std::ptrdiff_t>(count), theirs.begin())) return false;
    position += static_cast<std::uint32_t>(count);
  }
  return true;
}

// The only copy is about to go: the new container is sound and holds everything, byte for byte.
void RequireSame(Look* look, const std::vector<Content>& contents, const std::string& container,
                 const std::string& file) {
  const Failure failure("cannot compact " + container, "the new container does not hold what the old one does",
                        "the old one is as it was; check the disk");
  const RawContainer raw(file);
  if (!inspect::Check(raw.image()).IsClean()) throw failure;
  Look copied;  // not longer than this: nobody has it open when it takes its place
  const Address root = ParseAddress(file + ":/");
  const std::vector<Content> copies = ContentsOf(&copied, {root, GetItem(&copied, root, "read")});
  if (copies.size() != contents.size()) throw failure;
  for (std::size_t i = 0; i < copies.size(); ++i) {
    const bool directory = contents[i].match.item.IsDirectory();
    if (copies[i].name != contents[i].name || copies[i].match.item.IsDirectory() != directory) throw failure;
    if (!directory && !IsSameFile(look, contents[i].match, &copied, copies[i].match)) throw failure;
  }
}

int RunCompact(const CompactOptions& options) {
  const std::string container = ParseContainer(options.container);
  const std::string target = options.target.empty() ? container : ParseContainer(options.target);
  if (!options.target.empty() && !options.keep.empty()) {
    throw UsageFailure("compact", "--keep is for a container that is replaced, and NEW is another one");
  }
  if (!options.target.empty() && HostFileExists(target)) {
    throw Failure("cannot make the container " + target,
                  "a file of this name exists (" + CodeText(ORB_ERROR_FILE_EXISTS) + ")",
                  "use another name, or leave it out to replace " + container, ORB_ERROR_FILE_EXISTS);
  }
  if (!options.keep.empty() && HostFileExists(options.keep)) {
    throw Failure("cannot keep " + container + " as " + options.keep, "a file of this name exists", "use another name");
  }
  if (options.target.empty()) RequireWritable(container);
  const RawContainer raw(container);  // nobody writes to it until all is done
  RequireSound(raw);
  Look look;
  const Address root = ParseAddress(container + ":/");
  const Item item = GetItem(&look, root, "read");
  const std::vector<Content> contents = ContentsOf(&look, {root, item});
  const inspect::Reader reader(raw.image());
  const Measure measure = MeasureOf(contents);
  const Shape shape = measure.Choose(ShapeFor(options, reader.geometry()), "cannot compact " + container);
  const std::string place = options.target.empty() ? PlaceToWrite(container) : target;
  NewContainer made(place, shape);
  CopyAll(options, &look, contents, place, made.session());
  made.session()->Close();
  Stamps stamps = {{"/", item.time}};
  for (const Content& content : contents) stamps[content.match.address.Path()] = content.match.item.time;
  EnterTimes(made.file(), stamps);
  RequireSame(&look, contents, container, made.file());
  const std::uint64_t before = raw.image().Size();
  if (options.target.empty()) {
    made.Replace(options.keep);
  } else {
    made.Publish();
  }
  if (!options.quiet) {
    Print(target + ": " + HumanSize(host::StatusOf(target).size) + ", was " + HumanSize(before) + "; blocks of " +
          std::to_string(shape.blockSize) + " bytes, " + std::to_string(measure.nodes()) + " of " +
          std::to_string(shape.nodes) + " nodes in use\n");
  }
  return look.Finish(kSuccess);
}

Run DefineCompact(Syntax* syntax) {
  auto options = std::make_shared<CompactOptions>();
  options->shape.Define(syntax);
  syntax->Text("--keep", "OLD", &options->keep, "keep the old container under this new name");
  syntax->Flag("-v,--verbose", &options->verbose, "print each file");
  syntax->Flag("-q,--quiet", &options->quiet, "print nothing about the container, and draw no progress");
  syntax->One("CONTAINER", &options->container);
  syntax->OneOrNone("NEW", &options->target);
  return [options] { return RunCompact(*options); };
}

}  // namespace

const Command kCompactCommand = {
    "compact",
    kContainerGroup,
    "CONTAINER [NEW]",
    "make a container smaller, or of another shape",
    "Makes a new container with the same files and directories, their contents, attributes and times, and no free or "
    "leaked blocks: in NEW or, without it, in the place of the old one, which --keep keeps. Blocks and number of nodes "
    "are those of the old one unless you say otherwise. Not kept are what nobody sees: numbers of nodes and blocks, "
    "and the order in directories, which is that of the names then.\n\n"
    "The old container is only read. Before the new one takes its place, it is checked and compared with it, byte for "
    "byte, and it is on the disk; that is one step, so that at no time there is none. A damaged or marked container is "
    "refused: repair it first.",
    "orba compact card.orb\n"
    "orba compact --keep card.old card.orb\n"
    "orba compact --block-size 4096 --spare 500 card.orb larger.orb",
    DefineCompact,
};

}  // namespace orba::tool

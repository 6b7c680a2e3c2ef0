// dump and map: what lies where in a container, for people. Both stand on a check and work on any container.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "inspect/check/check.h"
#include "inspect/container/names.h"
#include "inspect/view/dump.h"
#include "inspect/view/map.h"
#include "orba.h"
#include "tools/orba/address.h"
#include "tools/orba/command.h"
#include "tools/orba/commands.h"
#include "tools/orba/failure.h"
#include "tools/orba/host_file.h"
#include "tools/orba/raw_container.h"
#include "tools/orba/terminal.h"

namespace orba::tool {

namespace {

// ---- dump -----------------------------------------------------------------------------------------------------------

struct DumpOptions {
  std::string container;
  std::string part = "header";
  std::vector<std::string> which;  // at most two
};

std::uint64_t ParseNumber(const std::string& text) {
  const std::optional<std::uint64_t> number = SizeIn(text);
  if (number.has_value()) return *number;
  throw UsageFailure("dump", "\"" + text + "\" is not a number");
}

constexpr const char* kNoSuchPath = "there is no such file or directory";

struct Dumper {
  const DumpOptions& options;
  const RawContainer& container;
  inspect::Report report;

  const inspect::Image& image() const { return container.image(); }

  Failure Missing(const std::string& what, const std::string& why) const {
    return Failure("cannot dump " + what + " of " + ShellWord(container.path()), why,
                   "see what there is with: orba info " + ShellWord(container.path()));
  }

  std::string SizeText() const { return "it has " + inspect::Counted(image().Size(), "byte"); }

  const std::string& First() const {
    if (options.which.empty()) throw UsageFailure("dump", "which " + options.part + "?");
    return options.which[0];
  }

  std::string Header() const {
    if (image().Size() < kHeaderSize) throw Missing("the header", SizeText());
    return inspect::DumpHeader(image());
  }

  std::string Table(const char* what, std::string (*dump)(const inspect::Report&)) const {
    if (report.model.table.empty()) throw Missing(what, "its layout cannot be made out");
    return dump(report);
  }

  std::string Chain() const {
    if (report.model.chain.empty() && report.model.header.freeChainHead != kNoBlock) {
      throw Missing("the free chain", "its first record cannot be read");
    }
    return inspect::DumpChain(image(), report);
  }

  std::string Directory() const {
    const std::string which = options.which.empty() ? "/" : options.which[0];
    const std::uint32_t number = Node(which);
    const inspect::NodeInfo& node = report.model.nodes[number];
    if (!node.readable || !node.IsDirectory()) {
      throw Failure("cannot dump the directory " + which,
                    "it is not a directory (" + CodeText(ORB_ERROR_NOT_A_DIRECTORY) + ")",
                    "see what it is with: orba dump " + ShellWord(container.path()) + " node " + ShellWord(which),
                    ORB_ERROR_NOT_A_DIRECTORY);
    }
    return inspect::DumpDirectory(image(), report, number);
  }

  // A node by its number, or by a path that the container's directories spell.
  std::uint32_t Node(const std::string& text) const {
    if (text[0] == '/') return NodeOfPath(text);
    const std::uint64_t number = ParseNumber(text);
    const std::uint32_t limit = report.model.nodes.empty() ? 0 : report.model.geometry.nodeLimit();
    if (number == 0 || number > limit) {
      throw Missing("node " + text, limit == 0 ? "its layout cannot be made out"
                                               : "its nodes have the numbers 1 to " + std::to_string(limit));
    }
    if (!IsHeld(static_cast<std::uint32_t>(number))) throw Missing("node " + text, "no block holds it: it is free");
    return static_cast<std::uint32_t>(number);
  }

  bool IsHeld(std::uint32_t node) const { return report.model.IsNode(node) && report.model.nodes[node].offset != 0; }

  std::uint32_t NodeOfPath(const std::string& path) const {
    std::uint32_t node = kRootNode;
    for (const std::string& name : ParseAddress("container:" + path).names) {
      const inspect::Model& model = report.model;
      std::uint32_t next = 0;
      if (!model.IsNode(node)) throw Missing(path, kNoSuchPath);
      for (const inspect::Entry& entry : model.nodes[node].entries) {
        const bool found = inspect::UpperCase(inspect::NameOf(entry.record)) == name;
        if (found && next == 0) next = entry.record.node;
      }
      node = next;
    }
    if (!IsHeld(node)) throw Missing(path, kNoSuchPath);
    return node;
  }

  std::uint32_t Block(const std::string& text) const {
    const std::uint64_t number = ParseNumber(text);
    const std::uint32_t blocks = report.model.geometry.blocks;
    if (number > blocks || number == kNoBlock) {
      throw Missing("block " + text, blocks == 0 ? "it has no blocks, or its layout cannot be made out"
                                                 : "its blocks have the numbers 1 to " + std::to_string(blocks));
    }
    return static_cast<std::uint32_t>(number);
  }

  std::string Bytes() const {
    constexpr std::uint64_t kUsual = 256;
    const std::uint64_t offset = ParseNumber(First());
    const std::uint64_t size = image().Size();
    if (offset >= size) throw Missing("byte " + First(), SizeText());
    const std::uint64_t count = options.which.size() > 1 ? ParseNumber(options.which[1]) : kUsual;
    return inspect::DumpBytes(image(), offset, std::min(count, size - offset));
  }
};

struct Part {
  const char* name;
  std::size_t operands;  // that may follow it
  std::string (*text)(const Dumper& dumper);
};

constexpr Part kParts[] = {
    {"header", 0, [](const Dumper& d) { return d.Header(); }},
    {"table", 0, [](const Dumper& d) { return d.Table("the node-block table", inspect::DumpTable); }},
    {"bitmap", 0, [](const Dumper& d) { return d.Table("the node bitmap", inspect::DumpBitmap); }},
    {"node", 1, [](const Dumper& d) { return inspect::DumpNode(d.image(), d.report, d.Node(d.First())); }},
    {"directory", 1, [](const Dumper& d) { return d.Directory(); }},
    {"block", 1, [](const Dumper& d) { return inspect::DumpBlock(d.image(), d.report, d.Block(d.First())); }},
    {"chain", 0, [](const Dumper& d) { return d.Chain(); }},
    {"bytes", 2, [](const Dumper& d) { return d.Bytes(); }},
};

const Part& FindPart(const DumpOptions& options) {
  for (const Part& part : kParts) {
    if (options.part != part.name) continue;
    if (options.which.size() > part.operands) throw UsageFailure("dump", "there is too much behind " + options.part);
    return part;
  }
  throw UsageFailure("dump", "there is no part \"" + options.part + "\" of a container");
}

int RunDump(const DumpOptions& options) {
  const Part& part = FindPart(options);
  const RawContainer container(ParseContainer(options.container));
  Print(part.text({options, container, inspect::Check(container.image())}));
  return kSuccess;
}

Run DefineDump(Syntax* syntax) {
  auto options = std::make_shared<DumpOptions>();
  syntax->One("CONTAINER", &options->container);
  syntax->OneOrNone("PART", &options->part);
  syntax->Many("WHICH", &options->which, 0, 2);
  return [options] { return RunDump(*options); };
}

// ---- map ------------------------------------------------------------------------------------------------------------

struct MapOptions {
  std::string container;
  std::string svg;
  std::uint32_t rows = 32;
  bool force = false;
};

void WriteSvg(const MapOptions& options, const std::string& container, const std::string& picture) {
  if (options.svg == "-") return Print(picture);
  if (IsSameHostFile(options.svg, container)) {
    throw Failure("cannot write " + options.svg, "it is the container itself", "use another name");
  }
  PlaceToWrite(options.svg);
  if (!options.force && HostFileExists(options.svg)) throw HostFailure("cannot write " + options.svg, EEXIST);
  NewHostFile file(options.svg);
  file.Write(picture.data(), picture.size());
  file.Publish({}, options.force);
}

int RunMap(const MapOptions& options) {
  const RawContainer container(ParseContainer(options.container));
  const inspect::Report report = inspect::Check(container.image());
  if (report.model.blocks.empty()) {
    throw LibraryFailure("cannot draw " + ShellWord(container.path()), container.path(), ORB_ERROR_DAMAGED_VOLUME);
  }
  if (!options.svg.empty()) {
    WriteSvg(options, container.path(), inspect::DrawSvg(report, Visible(container.path())));
    return kSuccess;
  }
  // A row begins with a block number of nine columns; sixteens are easy to count.
  constexpr std::size_t kLabel = 9;
  const std::size_t room = std::min<std::size_t>(Width(Stream::kOutput), 200);
  inspect::MapStyle style;
  const std::size_t columns = room > kLabel + 1 ? room - kLabel - 1 : 1;
  style.columns = static_cast<std::uint32_t>(columns >= 16 ? columns / 16 * 16 : columns);
  style.rows = options.rows;
  style.colour = IsColoured(Stream::kOutput);
  Print(inspect::DrawMap(report, style));
  return kSuccess;
}

Run DefineMap(Syntax* syntax) {
  auto options = std::make_shared<MapOptions>();
  syntax->Text("--svg", "FILE", &options->svg, "draw into an SVG file instead, \"-\" for standard output");
  syntax->Number("--rows", "N", &options->rows, {1, 65535}, "rows at most, 32 unless you say otherwise");
  syntax->Flag("-f,--force", &options->force, "overwrite the file if it is there");
  syntax->One("CONTAINER", &options->container);
  return [options] { return RunMap(*options); };
}

}  // namespace

const Command kDumpCommand = {
    "dump",
    kPictureGroup,
    "CONTAINER [PART [WHICH]]",
    "show the bytes of a container and what they mean",
    "Each line is a byte offset in the container, the bytes there and their meaning. The parts are: header (shown "
    "unless you say otherwise), table (which blocks hold nodes), bitmap (which nodes are free), node NUMBER or node "
    "/PATH, directory [NUMBER or /PATH], block NUMBER, chain (the list of free blocks) and bytes OFFSET [COUNT]. "
    "Numbers are decimal, or hexadecimal behind 0x.",
    "orba dump card.orb\n"
    "orba dump card.orb node /LOGS/DAY1.TXT\n"
    "orba dump card.orb directory /LOGS\n"
    "orba dump card.orb bytes 0x400 64",
    DefineDump,
    "header table bitmap node directory block chain bytes",
};

const Command kMapCommand = {
    "map",
    kPictureGroup,
    "CONTAINER",
    "draw the blocks of a container by their use",
    "A cell for each block, or for several when there are many, in rows behind the number of the first block: N "
    "nodes, D directory, M block map, # and + file (the sign changes from one file to the next), . free, ! leaked, X "
    "used twice.",
    "orba map card.orb\n"
    "orba map --svg card.svg card.orb",
    DefineMap,
};

}  // namespace orba::tool

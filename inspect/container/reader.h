// Reads a container without mounting it: paths, directories and contents as its bytes stand. It follows header, table,
// entries and maps as the library does, but neither the dirty mark nor damage stops it: what can be reached is read,
// and what cannot is reported with its place. Everything on the inspection side that walks paths stands on it.
//
// It reads lazily: opening reads the header, the table and the bitmap; nodes, directories and maps are read when they
// are asked for, through a cache of fixed size. Whatever the bytes are, every call ends, reads nothing outside the
// container and takes memory in proportion to what it returns. Calls that a damaged container could make run on without
// end (walks, the contents of many files) draw on a Budget.
//
// Stands on image, geometry and names; knows no host. The image must not change while a reader stands on it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "inspect/container/geometry.h"
#include "inspect/container/image.h"
#include "volume/layout.h"

namespace orba::inspect {

// What stands in a reader's way. Name and ToText put it into words.
enum class Trouble : std::uint8_t {
  kNone,
  // the container
  kHostCannotRead,  // the host fails to read a range that lies inside the container
  kContainerShort,  // the container ends within the node-block table or the bitmap
  kHeaderDamaged,   // a mount would refuse the header; the layout was made out by other means
  kLayoutUnknown,   // block size and data area cannot be made out: nothing can be read
  // paths
  kNotFound,
  kNotADirectory,  // a directory is asked for, or on the way, and a file stands there
  kNotAFile,
  // nodes
  kNodeOutside,       // a number that the volume cannot have
  kNodeWithoutBlock,  // the table has no block for it, or none that the container holds
  kNodeLost,          // its slot holds no node record
  kNodeNumber,        // a remark: its slot carries another number; the record is taken as it stands
  kNodeKind,  // a remark: the attributes say file and the contents directory, or the other way round; these count
  // contents; `index` is the logical block
  kHole,            // the map has no block here
  kBlockOutside,    // the map names a block that the container does not hold
  kSizeImpossible,  // the size counts more blocks than the container holds
  kCrossed,         // the budget is spent: maps are crossed so that they name the same blocks over and over
  // directories; `index` is the entry, or the logical block
  kDirectorySize,   // no size that a directory can have
  kBlockForeign,    // a block of the directory holds something else than entries
  kDirectoryLoop,   // the entry leads back to a directory above it
  kDirectoryAgain,  // the entry leads to a directory that this walk has already entered by another name
  // names
  kNameIllegal,   // no path can hold the name, or the rule for names refuses it
  kNameReserved,  // "." or ".." where names stand
  kNameTwice,     // an earlier entry of the directory has the same name: paths lead to that one
};

struct Problem {
  Trouble trouble = Trouble::kNone;
  std::uint16_t node = 0;   // 0 = none in particular
  std::uint64_t index = 0;  // a logical block or an entry, as the trouble has it
  std::uint32_t block = 0;  // 0 = none in particular

  explicit operator bool() const { return trouble != Trouble::kNone; }
  // Something is odd, but what was asked for was read.
  bool IsRemark() const { return trouble == Trouble::kNodeNumber || trouble == Trouble::kNodeKind; }
  // What was asked for could not be read.
  bool IsFailure() const { return trouble != Trouble::kNone && !IsRemark(); }
};

// "hole", "name-twice": stable, for programs.
const char* Name(Trouble trouble);

// "no block for logical block 7", fit to follow "PATH: ".
std::string ToText(const Problem& problem);

struct Node {
  std::uint16_t number = 0;
  bool directory = false;  // by the contents where these speak against the attributes
  bool free = false;       // the bitmap says that the number is free
  OrbNodeRecord record = {};

  std::uint32_t size() const { return record.size; }
};

// An entry of a directory, "." and ".." in their places left out.
struct Listed {
  // Where the library comes by it.
  enum class Place : std::uint8_t {
    kListed,      // when it lists the directory
    kPastSize,    // by its path alone: behind what the size counts, in the last block
    kBehindHole,  // never: an entry without a number comes before it, which ends the directory
  };

  std::string name;  // as it stands, whatever bytes those are
  std::uint16_t number = 0;
  std::uint32_t index = 0;  // among the directory's entries; "." is 0
  Place place = Place::kListed;
  Problem nameProblem;  // kNameIllegal, kNameReserved or kNameTwice: no path leads here. One that the library would
                        // follow though the rule refuses it (a blank, say) is kNameIllegal too
  Problem problem;      // of the node
  Node node;            // its number alone where the problem is no remark
};

struct Listing {
  std::vector<Listed> entries;    // in the order of the directory
  std::vector<Problem> problems;  // of the directory's blocks: what may be missing above
};

// Bounds the work of a walk on a container whose maps and directories are crossed. Each block and each node is free
// when it is met for the first time; meeting it again draws on what is left, which is a few times the container's
// blocks to begin with. No sound container, and none with ordinary damage, comes to its end.
class Budget {
 public:
  explicit Budget(const Geometry& geometry);

  // Notes that a block is about to be read. False when the budget is spent.
  bool Meet(std::uint32_t block);
  // Notes that an entry for this node is about to be told: free the first time, as with blocks.
  bool MeetNode(std::uint16_t number);
  // Notes a step that reads nothing.
  bool Step() { return left_ > 0 && left_-- > 0; }

 private:
  std::vector<bool> met_;       // by block number
  std::vector<bool> metNodes_;  // by node number
  std::uint64_t left_;
};

// Blocks that lie one behind the other, in the file as in the container.
struct Extent {
  std::uint32_t block = 0;
  std::uint32_t count = 0;
};

class Reader {
 public:
  // Opens the container. `image` must live as long as the reader. Whether it can be read, readable() tells.
  explicit Reader(const Image& image);
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // The layout is known. When not, `problems` says why and every other call reports kLayoutUnknown.
  bool readable() const { return geometry_.known(); }
  // The dirty mark: an update is in progress, or was interrupted.
  bool marked() const { return (header_.stateFlags & kVolumeDirty) != 0; }
  // What is wrong with the header, the table and the bitmap; nothing on a sound container.
  const std::vector<Problem>& problems() const { return problems_; }

  const VolumeHeader& header() const { return header_; }  // as it stands
  const Geometry& geometry() const { return geometry_; }
  const Image& image() const { return image_; }

  // Blocks of node records that the table refers to.
  std::uint32_t NodeBlocks() const;
  // Numbers that are free and can be given out.
  std::uint32_t FreeNodes() const;
  // The free chain's blocks, its records included, each once. `problem`, where given, tells where the chain breaks off.
  std::uint32_t FreeBlocks(Problem* problem = nullptr);

  // The root directory, in `*node`. A root that is not a directory is kNodeLost.
  Problem Root(Node* node) { return ReadNode(kRootNode, node); }

  // The node with this number; on failure `*node` holds the number alone. A remark comes with the whole node.
  Problem ReadNode(std::uint32_t number, Node* node);

  // What stands at a path: "/", "/LOGS/DAY1.TXT". Names compare without regard to case; empty names and "." count for
  // nothing, ".." takes the name before it away. Of equal names the first is meant. Fails with kNotFound, with
  // kNotADirectory, or with the problem of a node on the way.
  Problem Find(const std::string& path, Node* node);

  // The name `name` in a directory. kNotFound where it is not; where a block of the directory could not be read, that.
  Problem FindIn(const Node& directory, const std::string& name, Node* node);

  // All entries of a directory with their nodes, and what could not be read of it. A directory takes at most 4 MiB, as
  // the library has it. Blocks are drawn from the budget, where one is given; kCrossed among the problems when it is
  // spent.
  Listing List(const Node& directory, Budget* budget = nullptr);

  // Reads from byte `position` of a file (or directory) up to `count` bytes or its end. `*done` tells how many came,
  // also on failure, which is what stands in the way of the next one.
  Problem Read(const Node& node, std::uint32_t position, void* out, std::uint32_t count, std::uint32_t* done);

  // Hands a file's contents to `take` from the front, in pieces of up to 64 KiB, until `take` returns false (no
  // problem) or something is in the way.
  using Take = std::function<bool(const std::uint8_t* bytes, std::size_t count)>;
  Problem ReadAll(const Node& file, const Take& take, Budget* budget = nullptr);

  // The blocks of a node from logical block `index` on, at most `most` of them, as far as they lie one behind the
  // other. None, without a problem, from the size's end on. Blocks are drawn from the budget, where one is given.
  Problem FindExtent(const Node& node, std::uint64_t index, std::uint64_t most, Extent* extent,
                     Budget* budget = nullptr);

 private:
  using EntryVisitor = std::function<bool(const OrbDirEntry&, std::uint32_t index, Listed::Place)>;

  void ReadTables();
  void ReadTable(std::uint64_t offset, std::vector<std::uint8_t>* bytes);
  const std::uint8_t* Cached(std::uint32_t block);
  bool IsFreeBit(std::uint32_t number) const;
  Problem FindBlockOf(const Node& node, std::uint64_t index, std::uint32_t* block);
  Problem ReadMapSlot(const Problem& place, std::uint32_t mapBlock, std::uint64_t slot, std::uint32_t* block);
  bool BeginsAsDirectory(const Node& node);
  bool IsNoDirectory(const Node& node);
  bool IsForeign(const std::uint8_t* bytes, bool first) const;
  Problem ReadEntries(const Node& directory, std::uint64_t index, std::uint8_t* out, Budget* budget);
  bool VisitEntries(const Node& directory, const EntryVisitor& visit, std::vector<Problem>* problems, Budget* budget);
  bool VisitBlock(const Node& directory, std::uint64_t index, const std::vector<std::uint8_t>& bytes,
                  const EntryVisitor& visit, bool* ended) const;

  const Image& image_;
  VolumeHeader header_ = {};
  Geometry geometry_;
  std::vector<Problem> problems_;
  std::vector<std::uint32_t> table_;
  std::vector<std::uint8_t> bitmap_;

  std::vector<std::uint8_t> cache_;    // whole blocks of metadata; block n lies in place n mod their number
  std::vector<std::uint32_t> cached_;  // which block each place holds, kNoBlock = none
};

// One thing that a walk comes by.
struct Step {
  enum class What : std::uint8_t {
    kEntry,    // an entry; a directory's comes before what it holds
    kLeave,    // all of the directory has been told
    kProblem,  // `problem`: something of the directory cannot be read or, with an entry, that entry not be entered
  };

  What what;
  const std::string& path;  // of the entry where there is one, else of the directory
  const Node& directory;    // in which the walk is
  const Listed* entry;      // of kProblem perhaps null, of kLeave always
  Problem problem;
};

enum class Onward : std::uint8_t { kOn, kPast, kStop };  // kPast: not into this directory

// Walks everything below a directory, depth first, entries in the order of their directories, and tells `visit` of
// each. `path` is the directory's own, without a "/" behind it ("" for the root). Each directory is entered once: an
// entry that leads to one again is told, then as kProblem (kDirectoryLoop or kDirectoryAgain), and not entered. The
// directory itself is told as kLeave alone. Work is at most in proportion to the container. False when `visit` stopped
// it.
bool Walk(Reader* reader, const Node& directory, const std::string& path,
          const std::function<Onward(const Step&)>& visit, Budget* budget);

}  // namespace orba::inspect

// The checker: reads everything that a container says about itself, changes nothing, and reports every violation of the
// format, every half-made operation and every leak. It also hands out the model it builds on the way - which block serves
// what, which node has which names - on which repair, recovery and drawing stand.
//
// Whatever the bytes are, a check ends, reads nothing outside the container and takes memory in proportion to what the
// container can hold.
//
// What must hold in a container (the numbers are cited by tests and by repair):
//   1. The header's fields are the ones formatting wrote; its reserved bytes and flags are zero.
//   2. Each block has at most one owner: a table entry, a slot of one node's block map, or the free chain.
//   3. Each number that some field names as a block lies inside the container.
//   4. A node in use has a slot in a node block, with its signature and its own number; its attributes are legal.
//   5. A file or directory of s bytes has blocks for logical blocks 0 to ceil(s/B)-1 and none beyond. Block-map blocks stay
//      when a file shrinks, with zero slots.
//   6. A directory holds size/32 entries without holes: first "." with its own number, then ".." with its parent's, then
//      names that are legal, in upper case and unique; behind them, in the same block, an entry with number 0.
//   7. Each node in use but the root is named by exactly one entry, and can be reached from the root.
//   8. Free-chain records carry "FBC1", a count within the capacity and a min-heap of free block numbers.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect/check/finding.h"
#include "inspect/container/geometry.h"
#include "inspect/container/image.h"
#include "volume/layout.h"

namespace orba::inspect {

enum class BlockUse : std::uint8_t {
  kNothing,      // nobody names it: leaked
  kNodeBlock,    // index: the table entry
  kMap,          // a block-map block of `node`; index: the first logical block that it serves
  kFile,         // contents of file `node`; index: the logical block
  kDirectory,    // contents of directory `node`; index: the logical block
  kChainRecord,  // index: the record's place in the chain, from the head
  kFree,         // index: the place of the record that lists it
};

// "nothing", "node block", "map", "file", "directory", "chain record", "free"
const char* Name(BlockUse use);

struct BlockInfo {
  BlockUse use = BlockUse::kNothing;
  bool shared = false;  // more than one owner; `use`, `node` and `index` are the first one's
  std::uint16_t node = 0;
  std::uint32_t index = 0;
  bool noMap = false;  // named as block-map block too, but shows itself to be something else
};

struct Entry {
  std::uint32_t index = 0;  // place in the directory: 0 is ".", 1 is ".."
  std::uint32_t block = 0;
  std::uint64_t offset = 0;
  bool pastSize = false;  // behind what the directory's size counts
  bool doubled = false;   // a half-made removal's second copy of an entry
  OrbDirEntry record = {};
};

// A name of a node: entry `entry` (a place in `entries`, not an index) of directory `directory`.
struct NameRef {
  std::uint16_t directory = 0;
  std::uint32_t entry = 0;
};

enum class NodeState : std::uint8_t {
  kFree,  // not in use
  kLost,  // in use, but its record cannot be had
  kUsed,
};

enum class Reach : std::uint8_t {
  kNone,    // no directory leads to it, or not in use
  kRoot,    // a path from the root leads to it
  kLeaked,  // it, or a directory above it, is in use but has no name
  kCycle,   // it lies in or below directories that contain each other
};

// What a walk over a node's block map found. Indices are logical blocks.
struct MapSummary {
  bool sizeImpossible = false;  // no map can hold so much: what is missing tells nothing
  std::uint64_t needed = 0;     // blocks that the size needs, at most what a map can hold
  std::uint64_t present = 0;    // of those, slots that name a block of the container
  std::uint64_t end = 0;        // one past the last of them
  std::uint64_t holes = 0;      // empty slots below the size in map blocks that are there
  std::uint64_t firstHole = 0;
  std::uint64_t holeOffset = 0;  // of the first one's slot
  std::uint64_t extras = 0;      // slots in use past the size
  std::uint64_t firstExtra = 0;
  std::uint64_t extraOffset = 0;
  std::uint32_t extraBlock = 0;
  bool shrinkHalfMade = false;
  bool growthHalfMade = false;
  bool doubleGap = false;  // the double-indirect block goes on after an empty slot
};

// What a directory's blocks hold beside its entries.
struct DirectorySummary {
  bool firstBlockRead = false;     // "." and ".." can be judged
  bool lastBlockIsRecord = false;  // the last block was given back and holds a free-chain record
  bool removalHalfMade = false;
  bool appendHalfMade = false;
  std::uint32_t holes = 0;  // entries inside the size with number 0
  std::uint64_t firstHole = 0;
  std::uint64_t holeOffset = 0;
  std::uint32_t holeBlock = 0;
  std::vector<std::uint64_t> foreign;  // logical blocks that hold something else than entries
  std::uint32_t past = 0;              // entries behind the size, up to the end mark
  bool behindEnd = false;              // numbers behind the end mark
};

struct NodeInfo {
  std::uint16_t number = 0;
  NodeState state = NodeState::kFree;
  bool readable = false;   // `record` holds what the slot holds (of a free node too)
  bool wrongKind = false;  // the contents are a directory's and the attributes a file's, or the other way round
  OrbNodeRecord record = {};
  std::uint64_t offset = 0;  // of the slot, 0 = no node block holds it
  MapSummary map;
  DirectorySummary directory;
  std::vector<Entry> entries;    // of a directory in use: every entry with a number, in order, also those past the size
  std::vector<NameRef> names;    // entries that name it, half-made ones left out; "." and ".." are no names
  std::vector<NameRef> pending;  // entries past a directory's size that name it
  Reach reach = Reach::kNone;
  std::uint16_t parent = 0;  // the directory through which it was reached first, 0 = none
  std::uint32_t parentEntry = 0;

  // By the contents where these speak against the attributes.
  bool IsDirectory() const { return ((record.attributes & ORB_NODE_DIRECTORY) != 0) != wrongKind; }
};

struct ChainRecordInfo {
  std::uint32_t block = 0;
  std::uint32_t count = 0;  // as the record says
};

struct Model {
  Geometry geometry;
  VolumeHeader header = {};
  std::vector<std::uint32_t> table;  // 224 block numbers as they stand
  std::vector<std::uint8_t> bitmap;
  std::vector<NodeInfo> nodes;         // by number; [0] is nobody
  std::vector<BlockInfo> blocks;       // by number; [0] is nobody
  std::vector<ChainRecordInfo> chain;  // the records that could be read, head first
  bool tailNamed = false;              // something names the block that the container's end cuts through

  bool IsNode(std::uint32_t number) const { return number != 0 && number < nodes.size(); }
  bool IsFreeBit(std::uint32_t number) const;  // number from 1 to 8 x M
};

// True when the time stamp is a date of the calendar.
bool IsDate(const TimeStamp& time);

// True for the attributes that this node may have.
bool AreLegal(std::uint32_t node, std::uint16_t attributes);

// True when the record, whatever its signature and number say, can only be that of a file or directory in use: attributes,
// time stamp, reserved bytes and block numbers all are what they may be.
bool IsPlausible(const Geometry& geometry, std::uint32_t node, const OrbNodeRecord& record);

// "/", "/LOGS/DAY1.TXT"; for a node that the root does not lead to, a path from "(node 5)". Long paths lose their front.
std::string PathOf(const Model& model, std::uint32_t number);

struct Totals {
  std::uint32_t files = 0, directories = 0;  // nodes in use
  std::uint64_t fileBytes = 0;
  std::uint32_t freeNodes = 0;
  std::uint32_t freeBlocks = 0;  // in the chain, its records included
  std::uint32_t leakedBlocks = 0;
  std::uint64_t appendableBlocks = 0;  // up to the largest container
};

struct Report {
  bool readable = false;                          // the layout is known and all of the container was read
  bool marked = false;                            // the dirty mark: an update is in progress or was interrupted
  std::vector<Finding> findings;                  // the first kMaxFindings of them
  std::array<std::uint64_t, kKinds> counts = {};  // all of them, by kind
  Totals totals;
  Model model;

  std::uint64_t Count(Kind kind) const { return counts[static_cast<std::size_t>(kind)]; }
  std::uint64_t Count(Severity severity) const;

  // Nothing above a note. The dirty mark does not matter.
  bool IsClean() const;
  // The highest severity found; a note when nothing was.
  Severity Worst() const;
};

constexpr std::size_t kMaxFindings = 10000;

Report Check(const Image& image);

// The report for people: a line for each finding, then a summary. And for programs: one JSON object.
std::string ToText(const Report& report);
std::string ToJson(const Report& report);

}  // namespace orba::inspect

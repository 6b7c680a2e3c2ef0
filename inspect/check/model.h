// The model of a container: which block serves what, which node has which names. A check fills it in; repair, recovery,
// drawing and dumps stand on it. Stands on geometry.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/container/geometry.h"
#include "volume/layout.h"

namespace orba::inspect {

enum class BlockUse : std::uint8_t {
  kNothing,      // nothing refers to it: leaked
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
  bool noMap = false;  // a map takes it for a block-map block too, but it shows itself to be something else
};

struct Entry {
  std::uint32_t index = 0;  // place in the directory: 0 is ".", 1 is ".."
  std::uint32_t block = 0;
  std::uint64_t offset = 0;
  bool pastSize = false;  // behind what the directory's size counts
  bool doubled = false;   // an interrupted removal's second copy of an entry
  OrbDirEntry record = {};
};

// A name of a node: entry `entry` (a place in `entries`, not an index) of directory `directory`.
struct NameRef {
  std::uint16_t directory = 0;
  std::uint32_t entry = 0;

  bool operator==(const NameRef& other) const { return directory == other.directory && entry == other.entry; }
};

enum class NodeState : std::uint8_t {
  kFree,  // not in use
  kLost,  // in use, but its record cannot be read
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
  bool sizeImpossible = false;  // no map can hold so much: what is missing means nothing
  std::uint64_t needed = 0;     // blocks that the size needs, at most what a map can hold
  std::uint64_t present = 0;    // of those, slots with a block of the container
  std::uint64_t end = 0;        // one past the last of them
  std::uint64_t holes = 0;      // empty slots below the size in map blocks that are there
  std::uint64_t firstHole = 0;
  std::uint64_t holeOffset = 0;  // of the first one's slot
  std::uint64_t extras = 0;      // slots in use past the size
  std::uint64_t firstExtra = 0;
  std::uint64_t extraOffset = 0;
  std::uint32_t extraBlock = 0;
  bool shrinkInterrupted = false;
  bool growthInterrupted = false;
  bool doubleGap = false;  // the double-indirect block goes on after an empty slot
};

// What a directory's blocks hold beside its entries.
struct DirectorySummary {
  bool firstBlockRead = false;     // "." and ".." can be judged
  bool lastBlockIsRecord = false;  // the last block is free and holds a free-chain record
  bool removalInterrupted = false;
  bool appendInterrupted = false;
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
  std::vector<NameRef> names;    // entries that refer to it, doubled ones left out; "." and ".." do not count
  std::vector<NameRef> pending;  // entries past a directory's size that refer to it
  Reach reach = Reach::kNone;
  std::uint16_t parent = 0;  // the directory through which it was reached first, 0 = none
  std::uint32_t parentEntry = 0;

  // By the contents where these contradict the attributes.
  bool IsDirectory() const { return ((record.attributes & ORB_NODE_DIRECTORY) != 0) != wrongKind; }
  bool IsNamed() const { return !names.empty() || !pending.empty(); }
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
  std::vector<NodeInfo> nodes;         // by number; [0] is unused
  std::vector<BlockInfo> blocks;       // by number; [0] is unused
  std::vector<ChainRecordInfo> chain;  // the records that could be read, head first
  bool tailNamed = false;              // something refers to the block that the container's end cuts through

  bool IsNode(std::uint32_t number) const { return number != 0 && number < nodes.size(); }
  bool IsFreeBit(std::uint32_t number) const;  // number from 1 to bits()
  std::uint32_t bits() const { return static_cast<std::uint32_t>(bitmap.size() * 8); }

  // The entry refers to a node in use that can have names.
  bool RefersToUsed(const OrbDirEntry& entry) const {
    return entry.node != kRootNode && IsNode(entry.node) && nodes[entry.node].state == NodeState::kUsed;
  }
  const Entry& EntryOf(const NameRef& name) const { return nodes[name.directory].entries[name.entry]; }
};

// True for the attributes that this node may have.
bool AreLegal(std::uint32_t node, std::uint16_t attributes);

// True when the record, whatever its signature and number say, can only be that of a file or directory in use:
// attributes, time stamp, reserved bytes and block numbers all are what they may be.
bool IsPlausible(const Geometry& geometry, std::uint32_t node, const OrbNodeRecord& record);

// "/", "/LOGS/DAY1.TXT"; for a node that the root does not lead to, a path from "(node 5)". Long paths lose their
// front.
std::string PathOf(const Model& model, std::uint32_t number);

}  // namespace orba::inspect

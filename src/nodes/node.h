// Layer: nodes in memory. Every file and directory is a node (OrbNodeRecord, layout.h); everything above holds nodes
// through the one process-wide list kept here. Stands on block I/O and the volume record.
//
// Invariants:
//   N1  among the live objects (references above 0) a node of a volume is present once: all holders share one object
//   N2  the object is the authority while it is held; it goes to disk with OrbNodeWrite and is not cached beyond
//   N3  a volume holds its root, the current directory its node, each open file and each search theirs, and every path
//       resolution gives its caller one reference to release
//   N4  after its volume is unmounted, a node still held belongs to no volume (volume is null): no lookup matches it
//       again, and releasing it touches nothing but the object itself
#pragma once

#include <stdint.h>

#include "volume/layout.h"
#include "volume/volume.h"

namespace orba {

struct OrbNode {
  OrbNodeRecord record;  // in host byte order
  uint32_t references;   // 0 = a dead object, waiting to be used again
  OrbNode* next;
  Volume* volume;
};

// Never handed out: its `next` is the head of the list.
extern OrbNode g_NodeListHead;

inline bool IsDirectory(const OrbNode* node) { return (node->record.attributes & ORB_NODE_DIRECTORY) != 0; }

// True for an object on the list with references above 0. The pointer itself may be anything.
bool OrbNodeIsValid(const OrbNode* node);

// Adds a reference to a valid node; returns the pointer it was given.
OrbNode* OrbNodeAddRef(OrbNode* node);

// Takes a reference away and frees the object with the last one. Does nothing for a node that is not valid, null too.
void OrbNodeRelease(OrbNode* node);

// A new, zeroed object with one reference at the head of the list, or null: ORB_ERROR_OUT_OF_MEMORY.
OrbNode* OrbNodeAlloc();

// Returns the node with one more reference: the shared object, or a new one read from disk. Null with the read's code.
// Signature and number on disk are not checked (Q26); the number is the one asked for, so that N1 holds whatever the
// disk says.
OrbNode* OrbNodeGet(Volume* volume, uint16_t number);

// Reads a node's record.
//   fails  ORB_ERROR_DAMAGED_RECORD: no such node (0, above 8 x bitmap size, no node block in the table); the read's
//          code
bool OrbNodeRead(OrbNode* node, Volume* volume, uint16_t number);

// Writes a node's record to its place.
//   fails  ORB_ERROR_ABORTED: not a valid node; ORB_ERROR_DAMAGED_RECORD as above; the write's code
bool OrbNodeWrite(OrbNode* node);

// Stamps the node with the current time and writes it.
bool StampAndWriteNode(OrbNode* node);

// Converts a record between disk and host order; its own inverse.
void ConvertNodeRecord(OrbNodeRecord* record);

// Fills a zeroed node block, in disk order: records that carry their signature and numbers and nothing else.
void FillNodeBlock(OrbNodeRecord* records, uint32_t count, uint32_t firstNumber);

// Detaches all nodes from a volume that is going away (N4).
void DetachNodes(const Volume* volume);

// Where a node lies: the index of its node block in the table, and the offset of its record in that block.
inline uint32_t NodeBlockIndex(const Volume* volume, uint32_t number) {
  return BlockIndex(volume, (number - 1) * kNodeSize);
}
inline uint32_t NodeOffset(const Volume* volume, uint32_t number) {
  return OffsetInBlock(volume, (number - 1) * kNodeSize);
}

// A reference for the length of a scope.
struct NodeRef {
  OrbNode* node;
  explicit NodeRef(OrbNode* held) : node(held) {}
  [[gnu::always_inline]] ~NodeRef() {
    if (node != nullptr) OrbNodeRelease(node);
  }
  NodeRef(const NodeRef&) = delete;
  NodeRef& operator=(const NodeRef&) = delete;

  // Releases the node and takes over another reference.
  void Replace(OrbNode* other) {
    OrbNodeRelease(node);
    node = other;
  }
  // Passes the reference to the caller.
  OrbNode* Take() {
    OrbNode* const held = node;
    node = nullptr;
    return held;
  }
};

}  // namespace orba

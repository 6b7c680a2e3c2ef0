// Layer: the volume record, everything the library keeps of a mounted volume, and the list of mounted volumes. Stands
// on the container layout and the name rules. Mounting makes and links a record, unmounting unlinks and frees it;
// formatting uses a zeroed one with header and container alone.
//
// Invariants:
//   V1  the list runs from the newest mounted volume to the oldest; names on it are unique
//   V2  header holds the container's header in host byte order; its state flags are kept current
//   V3  nodeTable and bitmap are what the container holds, or hold what the next write of them brings there
//   V4  freeChain, where not null, is the record in block header.freeChainHead, in host byte order
//   V5  once failed is set it stays set: nothing is written to this volume any more
#pragma once

#include <stdint.h>

#include "volume/layout.h"

namespace orba {

struct OrbNode;

struct Volume {
  VolumeHeader header;
  uint32_t failed;     // 1 after a failed metadata write: the volume refuses all further writes
  uint32_t container;  // handle, see storage/container.h
  Volume* next;        // the volume mounted before this one
  OrbNode* root;       // node 1, held from mount to unmount

  uint32_t* nodeTable;         // owned: kNodeTableEntries block numbers
  uint8_t* bitmap;             // owned: header.bitmapSize bytes
  FreeChainRecord* freeChain;  // owned: one block, or null while no record is loaded

  // Derived from the block size when mounting.
  uint32_t nodesPerBlock;
  uint32_t entriesPerBlock;  // directory entries
  uint32_t wordsPerBlock;    // block numbers in a block-map block
  uint32_t chainCapacity;    // entries in a free-chain record

  char name[kNameSize];  // upper case
};

// A record that is never handed out: its `next` is the head of the list of mounted volumes.
extern Volume g_VolumeListHead;

// Finds a mounted volume by name, without regard to case, or returns null. Where previous is given it receives the
// record before the one found (for the head: g_VolumeListHead), or null where nothing is found.
Volume* VolumeFind(const char* name, Volume** previous);

// Fills the four derived counts from header.blockSize.
void ComputeBlockCounts(Volume* volume);

// Arithmetic of positions in a file or directory of this volume. Block sizes are powers of two and the devices have no
// divide instruction, so all of it is shifts; of the shift field only the low byte counts.
inline uint32_t BlockShift(const Volume* volume) { return volume->header.blockShift & 0xFF; }
inline uint32_t BlockIndex(const Volume* volume, uint32_t position) { return position >> BlockShift(volume); }
inline uint32_t OffsetInBlock(const Volume* volume, uint32_t position) {
  return position & (volume->header.blockSize - 1);
}
// How many blocks hold `size` bytes.
inline uint32_t BlocksFor(const Volume* volume, uint32_t size) {
  return BlockIndex(volume, size) + (OffsetInBlock(volume, size) != 0 ? 1 : 0);
}

}  // namespace orba

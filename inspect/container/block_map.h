// The way from a node record to its blocks: visits every slot of a block map, sound or not, each with the place where
// it is written. Stands on image and geometry.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "inspect/container/geometry.h"
#include "inspect/container/image.h"

namespace orba::inspect {

// The levels of a block map.
enum class MapLevel : std::uint8_t {
  kData,      // a slot with a block of the node's contents
  kIndirect,  // the record's indirect field
  kDouble,    // the record's double-indirect field
  kSecond,    // a slot of the double-indirect block
};

struct MapSlot {
  MapLevel level;
  std::uint64_t index;   // the logical block; of a map block the first that it serves
  std::uint32_t block;   // what the slot says; 0 = none
  std::uint64_t offset;  // where in the container it says so
};

// The way to the number of one logical block, from the record on.
struct MapPath {
  MapLevel from;         // the record's field: kData a direct slot, kIndirect, or kDouble
  std::uint32_t second;  // kDouble: the slot of the double-indirect block
  std::uint32_t slot;    // the direct slot, or the slot of the last map block
};

// `index` is less than geometry.mapCapacity().
MapPath PathTo(const Geometry& geometry, std::uint64_t index);

// Visits the slots of the node record at byte `nodeOffset`, in logical order, a map block's own slot before the slots
// in it. For the slot of a map block the visitor's result says whether to go down into that block, which is done where
// the container holds it; the visitor must see to it that every walk ends. For data slots the result is ignored. Map
// blocks that cannot be read are skipped, and slots of missing ones are not visited.
void VisitMap(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t nodeOffset,
              const std::function<bool(const MapSlot&)>& visit);

// What the bytes of a block look like.
enum class Contents : std::uint8_t {
  kAny,        // perhaps block numbers
  kNoNumbers,  // numbers of blocks that no container can have; a few such slots of a map may be damaged
  kNodes,      // node records with the numbers of their places
  kDirectory,  // a directory's first entries
};

// Anything but kAny cannot be a block-map block, but for kNoNumbers where all slots that the file needs are right.
Contents ContentsOf(const Geometry& geometry, const std::vector<std::uint8_t>& block);

// The block that holds logical block `index`, by the slots on its way alone; 0 when there is none, or none that the
// container holds.
std::uint32_t FindBlock(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t index);

}  // namespace orba::inspect

// The way from a node record to its blocks: visits every slot of a block map, sound or not, each with the place where
// it is written. Stands on image and geometry.
#pragma once

#include <cstdint>
#include <functional>

#include "inspect/container/geometry.h"
#include "inspect/container/image.h"

namespace orba::inspect {

// The levels of a block map.
enum class MapLevel : std::uint8_t {
  kData,      // a slot that names a block of the node's contents
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
// in it. For a slot that names a map block the visitor's result says whether to go down into it, which is done where
// the container holds that block; the visitor must see to it that no walk runs without end. For data slots the result
// means nothing. A map block that cannot be read is passed over. Slots of missing map blocks are not visited.
void VisitMap(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t nodeOffset,
              const std::function<bool(const MapSlot&)>& visit);

// What a block, which the container holds, shows itself to be.
enum class Contents : std::uint8_t {
  kAny,        // perhaps block numbers
  kNoNumbers,  // it names blocks that no container can have; a few such slots of a map may be damaged ones
  kNodes,      // node records with the numbers of their places
  kDirectory,  // a directory's first entries
};

// All but kAny cannot be a block-map block.
Contents ContentsOf(const Image& image, const Geometry& geometry, std::uint32_t block);

// The block that holds logical block `index`, by the slots on its way alone; 0 when there is none, or none that the
// container holds.
std::uint32_t FindBlock(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t index);

}  // namespace orba::inspect

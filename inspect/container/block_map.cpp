#include "inspect/container/block_map.h"

#include <vector>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

using Visitor = std::function<bool(const MapSlot&)>;

// Offers the slot of a map block to the visitor and reads that block when it says so.
bool Enter(const Image& image, const Geometry& geometry, const MapSlot& slot, const Visitor& visit,
           std::vector<std::uint8_t>* bytes) {
  const bool enter = visit(slot);
  if (!enter || !geometry.Holds(slot.block)) return false;
  bytes->resize(geometry.blockSize);
  return image.Read(geometry.BlockOffset(slot.block), bytes->data(), bytes->size());
}

void VisitDataSlots(const Geometry& geometry, const std::vector<std::uint8_t>& bytes, std::uint32_t block,
                    std::uint64_t first, const Visitor& visit) {
  for (std::uint32_t i = 0; i < geometry.mapSlots(); ++i) {
    visit({MapLevel::kData, first + i, Get32(&bytes[kWordSize * i]), geometry.SlotOffset(block, i)});
  }
}

std::uint32_t ReadSlot(const Image& image, const Geometry& geometry, std::uint32_t block, std::uint64_t slot) {
  std::uint8_t bytes[kWordSize];
  if (!geometry.Holds(block) || !image.Read(geometry.SlotOffset(block, slot), bytes, sizeof bytes)) {
    return kNoBlock;
  }
  return Get32(bytes);
}

bool HoldsNodes(const Geometry& geometry, const std::vector<std::uint8_t>& bytes) {
  constexpr std::uint32_t kEnough = 8;
  std::uint32_t nodes = 0;
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
    const std::uint8_t* slot = &bytes[i * kNodeSize];
    const std::uint32_t number = NodeNumber(slot);
    if (HasNodeSignature(slot) && number % geometry.nodesPerBlock() == (i + 1) % geometry.nodesPerBlock()) ++nodes;
  }
  return nodes >= kEnough;
}

bool HoldsNoNumbers(const Geometry& geometry, const std::vector<std::uint8_t>& bytes) {
  constexpr std::uint32_t kEnough = 6;
  std::uint32_t used = 0;
  std::uint32_t impossible = 0;
  for (std::uint32_t i = 0; i < geometry.mapSlots(); ++i) {
    const std::uint32_t slot = Get32(&bytes[kWordSize * i]);
    if (slot != kNoBlock) ++used;
    if (slot >= kContainerLimit / geometry.blockSize) ++impossible;
  }
  return impossible >= kEnough && 2 * impossible > used;
}

}  // namespace

MapPath PathTo(const Geometry& geometry, std::uint64_t index) {
  if (index < kDirectBlocks) return {MapLevel::kData, 0, static_cast<std::uint32_t>(index)};
  const std::uint64_t rest = index - kDirectBlocks;
  const auto slot = static_cast<std::uint32_t>(rest % geometry.mapSlots());
  if (index < geometry.firstDouble()) return {MapLevel::kIndirect, 0, slot};
  return {MapLevel::kDouble, static_cast<std::uint32_t>(rest / geometry.mapSlots() - 1), slot};
}

void VisitMap(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t nodeOffset,
              const Visitor& visit) {
  for (std::uint32_t i = 0; i < kDirectBlocks; ++i) {
    visit({MapLevel::kData, i, node.direct[i], nodeOffset + offsetof(OrbNodeRecord, direct) + kWordSize * i});
  }
  const std::uint64_t indirectOffset = nodeOffset + offsetof(OrbNodeRecord, indirect);
  const std::uint64_t doubleOffset = nodeOffset + offsetof(OrbNodeRecord, doubleIndirect);
  std::vector<std::uint8_t> bytes;
  if (Enter(image, geometry, {MapLevel::kIndirect, kDirectBlocks, node.indirect, indirectOffset}, visit, &bytes)) {
    VisitDataSlots(geometry, bytes, node.indirect, kDirectBlocks, visit);
  }
  std::vector<std::uint8_t> second;
  const MapSlot twice = {MapLevel::kDouble, geometry.firstDouble(), node.doubleIndirect, doubleOffset};
  if (!Enter(image, geometry, twice, visit, &second)) return;
  for (std::uint32_t i = 0; i < geometry.mapSlots(); ++i) {
    const MapSlot slot = {MapLevel::kSecond, geometry.firstOfSecond(i), Get32(&second[kWordSize * i]),
                          geometry.SlotOffset(node.doubleIndirect, i)};
    if (Enter(image, geometry, slot, visit, &bytes)) VisitDataSlots(geometry, bytes, slot.block, slot.index, visit);
  }
}

Contents ContentsOf(const Geometry& geometry, const std::vector<std::uint8_t>& block) {
  if (HoldsNodes(geometry, block)) return Contents::kNodes;
  if (AreDots(block.data())) return Contents::kDirectory;
  return HoldsNoNumbers(geometry, block) ? Contents::kNoNumbers : Contents::kAny;
}

std::uint32_t FindBlock(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t index) {
  if (index >= geometry.mapCapacity()) return kNoBlock;
  const MapPath path = PathTo(geometry, index);
  std::uint32_t block = path.from == MapLevel::kData ? node.direct[path.slot] : node.indirect;
  if (path.from == MapLevel::kDouble) block = ReadSlot(image, geometry, node.doubleIndirect, path.second);
  if (path.from != MapLevel::kData) block = ReadSlot(image, geometry, block, path.slot);
  return geometry.Holds(block) ? block : kNoBlock;
}

}  // namespace orba::inspect

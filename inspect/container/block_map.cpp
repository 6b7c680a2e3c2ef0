#include "inspect/container/block_map.h"

#include <vector>

#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

constexpr std::uint32_t kDirectOffset = 32;
constexpr std::uint32_t kIndirectOffset = 56;
constexpr std::uint32_t kDoubleOffset = 60;

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
    visit({MapLevel::kData, first + i, Get32(&bytes[4 * i]), geometry.BlockOffset(block) + 4 * i});
  }
}

std::uint32_t ReadSlot(const Image& image, const Geometry& geometry, std::uint32_t block, std::uint64_t slot) {
  std::uint8_t bytes[4];
  if (!geometry.Holds(block) || !image.Read(geometry.BlockOffset(block) + slot * 4, bytes, sizeof bytes)) {
    return kNoBlock;
  }
  return Get32(bytes);
}

bool HoldsNodes(const Geometry& geometry, const std::vector<std::uint8_t>& bytes) {
  constexpr std::uint32_t kEnough = 8;
  std::uint32_t nodes = 0;
  for (std::uint32_t i = 0; i < geometry.nodesPerBlock(); ++i) {
    const std::uint8_t* slot = &bytes[i * kNodeSize];
    if (Get32(slot) == kNodeSignature &&
        Get16(slot + 4) % geometry.nodesPerBlock() == (i + 1) % geometry.nodesPerBlock()) {
      ++nodes;
    }
  }
  return nodes >= kEnough;
}

bool IsNamed(const std::uint8_t* entry, const char* name) {
  return Get16(entry) != 0 && NameOf(DecodeEntry(entry)) == name;
}

bool HoldsNoNumbers(const Geometry& geometry, const std::vector<std::uint8_t>& bytes) {
  constexpr std::uint32_t kEnough = 6;
  std::uint32_t used = 0;
  std::uint32_t impossible = 0;
  for (std::uint32_t i = 0; i < geometry.mapSlots(); ++i) {
    const std::uint32_t slot = Get32(&bytes[4 * i]);
    if (slot != kNoBlock) ++used;
    if (slot >= kContainerLimit / geometry.blockSize) ++impossible;
  }
  return impossible >= kEnough && 2 * impossible > used;
}

}  // namespace

void VisitMap(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t nodeOffset,
              const Visitor& visit) {
  for (std::uint32_t i = 0; i < kDirectBlocks; ++i) {
    visit({MapLevel::kData, i, node.direct[i], nodeOffset + kDirectOffset + 4 * i});
  }
  std::vector<std::uint8_t> bytes;
  if (Enter(image, geometry, {MapLevel::kIndirect, kDirectBlocks, node.indirect, nodeOffset + kIndirectOffset}, visit,
            &bytes)) {
    VisitDataSlots(geometry, bytes, node.indirect, kDirectBlocks, visit);
  }
  const std::uint64_t slots = geometry.mapSlots();
  const std::uint64_t first = kDirectBlocks + slots;
  std::vector<std::uint8_t> second;
  if (!Enter(image, geometry, {MapLevel::kDouble, first, node.doubleIndirect, nodeOffset + kDoubleOffset}, visit,
             &second)) {
    return;
  }
  for (std::uint32_t i = 0; i < slots; ++i) {
    const MapSlot slot = {MapLevel::kSecond, first + i * slots, Get32(&second[4 * i]),
                          geometry.BlockOffset(node.doubleIndirect) + 4 * i};
    if (Enter(image, geometry, slot, visit, &bytes)) VisitDataSlots(geometry, bytes, slot.block, slot.index, visit);
  }
}

Contents ContentsOf(const Image& image, const Geometry& geometry, std::uint32_t block) {
  std::vector<std::uint8_t> bytes(geometry.blockSize);
  if (!image.Read(geometry.BlockOffset(block), bytes.data(), bytes.size())) return Contents::kAny;
  if (HoldsNodes(geometry, bytes)) return Contents::kNodes;
  if (IsNamed(&bytes[0], ".") && IsNamed(&bytes[kDirEntrySize], "..")) return Contents::kDirectory;
  return HoldsNoNumbers(geometry, bytes) ? Contents::kNoNumbers : Contents::kAny;
}

std::uint32_t FindBlock(const Image& image, const Geometry& geometry, const OrbNodeRecord& node, std::uint64_t index) {
  const std::uint64_t slots = geometry.mapSlots();
  std::uint32_t block = kNoBlock;
  if (index < kDirectBlocks) {
    block = node.direct[index];
  } else if (index < kDirectBlocks + slots) {
    block = ReadSlot(image, geometry, node.indirect, index - kDirectBlocks);
  } else if (index < geometry.mapCapacity()) {
    const std::uint64_t rest = index - kDirectBlocks - slots;
    block = ReadSlot(image, geometry, ReadSlot(image, geometry, node.doubleIndirect, rest / slots), rest % slots);
  }
  return geometry.Holds(block) ? block : kNoBlock;
}

}  // namespace orba::inspect

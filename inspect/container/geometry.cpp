#include "inspect/container/geometry.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "inspect/container/fields.h"
#include "inspect/container/layout_search.h"
#include "inspect/container/names.h"

namespace orba::inspect {

namespace {

constexpr std::uint32_t kLargestBitmap = MaxBitmapSize(8192);

std::uint32_t ShiftOf(std::uint32_t blockSize) {
  std::uint32_t shift = 0;
  while (blockSize >= 2) {
    blockSize /= 2;
    ++shift;
  }
  return shift;
}

// The block size that follows from the node slots from `offset` on, numbered from 1: the smallest that holds them all.
// Single slots may be damaged. 0 when these are not node slots.
std::uint32_t BlockSizeBySlots(const Image& image, std::uint64_t offset) {
  std::uint32_t sound = 0;
  std::uint32_t end = 0;
  for (std::uint32_t slot = 0; slot < kBlockSizes[3] / kNodeSize; ++slot) {
    std::uint8_t mark[kNodeMarkSize];
    if (!image.Read(offset + std::uint64_t{slot} * kNodeSize, mark, sizeof mark)) break;
    if (!IsSlotOf(mark, slot + 1)) continue;
    ++sound;
    end = slot + 1;
  }
  if (sound < 8 || sound < end / 2) return 0;
  for (const std::uint32_t size : kBlockSizes) {
    if (size / kNodeSize >= end) return size;
  }
  return 0;
}

Geometry Make(const Image& image, std::uint32_t blockSize, std::uint32_t bitmapSize, std::uint32_t dataOffset) {
  Geometry geometry;
  geometry.blockSize = blockSize;
  geometry.bitmapSize = bitmapSize;
  geometry.dataOffset = dataOffset;
  const std::uint64_t size = std::min<std::uint64_t>(image.Size(), kContainerLimit);
  geometry.blocks = size < dataOffset ? 0 : static_cast<std::uint32_t>((size - dataOffset) / blockSize);
  return geometry;
}

Geometry FromHeader(const Image& image, const VolumeHeader& header) {
  return Make(image, header.blockSize, header.bitmapSize, header.dataOffset);
}

// The root's record lies where block 1 would begin, and its directory begins where the record says.
bool BearsTheRoot(const Image& image, const Geometry& geometry) {
  std::uint8_t slot[kNodeSize];
  if (!image.Read(geometry.dataOffset, slot, sizeof slot) || !IsSlotOf(slot, kRootNode)) return false;
  const std::uint32_t block = DecodeNode(slot).direct[0];
  std::uint8_t bytes[kDirEntrySize];
  if (!geometry.Holds(block) || !image.Read(geometry.BlockOffset(block), bytes, sizeof bytes)) return false;
  const OrbDirEntry entry = DecodeEntry(bytes);
  return entry.node == kRootNode && NameOf(entry) == ".";
}

// The size of the bitmap, by all that the header says of it.
std::array<std::uint32_t, 4> BitmapSizes(const VolumeHeader& header) {
  return {header.bitmapSize, header.reservedOffset - kBitmapOffset,
          header.dataOffset - header.reservedSize - kBitmapOffset, header.dataOffset - kBitmapOffset};
}

// What the header says twice about bitmap and data area. Block 1 is where formatting puts the root's node block,
// and the root is never deleted: it decides.
Geometry FromRedundancy(const Image& image, const VolumeHeader& header) {
  for (const bool reserved : {false, true}) {
    for (const std::uint32_t bitmap : BitmapSizes(header)) {
      if (bitmap > kLargestBitmap) continue;
      const std::uint32_t offset = reserved ? header.dataOffset : kBitmapOffset + bitmap;
      if (offset < kBitmapOffset + bitmap || offset >= kContainerLimit) continue;
      const std::uint32_t blockSize = BlockSizeBySlots(image, offset);
      if (blockSize != 0 && bitmap <= MaxBitmapSize(blockSize)) return Make(image, blockSize, bitmap, offset);
    }
  }
  return {};
}

// Looks for the root's node block behind a bitmap of every possible size.
Geometry FromSearch(const Image& image) {
  std::vector<std::uint8_t> bytes(kLargestBitmap + kNodeMarkSize);
  const std::uint64_t size = image.Size();
  if (size < kBitmapOffset + kNodeMarkSize) return {};
  bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), size - kBitmapOffset)));
  if (!image.Read(kBitmapOffset, bytes.data(), bytes.size())) return {};
  for (std::uint32_t bitmap = 0; bitmap + kNodeMarkSize <= bytes.size(); ++bitmap) {
    if (!IsSlotOf(&bytes[bitmap], kRootNode)) continue;
    const std::uint32_t blockSize = BlockSizeBySlots(image, kBitmapOffset + bitmap);
    if (!IsBlockSize(blockSize) || bitmap > MaxBitmapSize(blockSize)) continue;
    return Make(image, blockSize, bitmap, kBitmapOffset + bitmap);
  }
  return {};
}

}  // namespace

std::uint32_t Geometry::nodeLimit() const {
  const std::uint32_t limit = std::min(bitmapSize * 8, kNodeTableEntries * nodesPerBlock());
  return std::max<std::uint32_t>(limit, kRootNode);
}

bool FieldsAgree(const VolumeHeader& header) {
  const std::uint32_t shift = header.blockShift & kShiftMask;
  return header.headerSize == kHeaderSize && header.nodeTableSize == kNodeTableSize && IsBlockSize(header.blockSize) &&
         shift < 32 && 1u << shift == header.blockSize && header.bitmapSize <= MaxBitmapSize(header.blockSize) &&
         header.nodeTableOffset == kHeaderSize && header.bitmapOffset == kBitmapOffset &&
         header.reservedOffset == kBitmapOffset + header.bitmapSize &&
         header.reservedSize < kContainerLimit - header.reservedOffset &&
         header.dataOffset == header.reservedOffset + header.reservedSize;
}

Geometry FindGeometry(const Image& image, const VolumeHeader& header) {
  const bool agree = FieldsAgree(header);
  if (agree && BearsTheRoot(image, FromHeader(image, header))) return FromHeader(image, header);
  Geometry geometry = FromRedundancy(image, header);
  const auto bitmaps = BitmapSizes(header);
  const bool redundant = std::count(bitmaps.begin(), bitmaps.end(), geometry.bitmapSize) > 1 && geometry.known();
  if (!geometry.known()) geometry = FromSearch(image);
  if (agree) return BearsTheRoot(image, geometry) ? geometry : FromHeader(image, header);
  // What passes for the first node block may be a copy of it, unless it leads to the root.
  if (geometry.known() && BearsTheRoot(image, geometry)) return geometry;
  const Layout layout = SearchLayout(image, {geometry.blockSize, geometry.dataOffset});
  if (layout.blockSize == 0) return redundant ? geometry : Geometry{};
  if (layout.blockSize == geometry.blockSize && layout.dataOffset == geometry.dataOffset) return geometry;
  return Make(image, layout.blockSize, layout.dataOffset - kBitmapOffset, layout.dataOffset);
}

VolumeHeader SoundHeader(const Geometry& geometry, const VolumeHeader& header) {
  VolumeHeader sound = {};
  sound.signature = kVolumeSignature;
  sound.version = kVolumeVersion;
  sound.headerSize = kHeaderSize;
  sound.nodeTableOffset = kHeaderSize;
  sound.nodeTableSize = kNodeTableSize;
  sound.bitmapOffset = kBitmapOffset;
  sound.bitmapSize = geometry.bitmapSize;
  sound.reservedOffset = kBitmapOffset + geometry.bitmapSize;
  sound.reservedSize = geometry.dataOffset - sound.reservedOffset;
  sound.dataOffset = geometry.dataOffset;
  sound.blockSize = geometry.blockSize;
  sound.blockShift = ShiftOf(geometry.blockSize);
  sound.freeChainHead = header.freeChainHead;
  sound.stateFlags = header.stateFlags & kVolumeDirty;
  return sound;
}

}  // namespace orba::inspect

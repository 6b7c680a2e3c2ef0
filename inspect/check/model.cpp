#include "inspect/check/model.h"

#include "inspect/container/date.h"
#include "inspect/container/fields.h"
#include "inspect/container/names.h"

namespace orba::inspect {

const char* Name(BlockUse use) {
  static const char* const kNames[] = {"nothing", "node block", "map", "file", "directory", "chain record", "free"};
  return kNames[static_cast<std::size_t>(use)];
}

bool Model::IsFreeBit(std::uint32_t number) const { return (bitmap[BitmapIndex(number)] & BitmapBit(number)) != 0; }

bool AreLegal(std::uint32_t node, std::uint16_t attributes) {
  if (node == kRootNode) return attributes == kRootAttributes;
  return attributes == ORB_NODE_DIRECTORY || (attributes & ~(kNodeReadOnly | kNodeUserFlag)) == 0;
}

bool IsPlausible(const Geometry& geometry, std::uint32_t node, const OrbNodeRecord& record) {
  bool plausible = AreLegal(node, record.attributes) && IsDate(record.time) && record.time.reserved == 0 &&
                   record.size < kContainerLimit && record.indirect <= geometry.blocks &&
                   record.doubleIndirect <= geometry.blocks;
  for (const std::uint32_t word : record.reserved) plausible &= word == 0;
  for (const std::uint32_t block : record.direct) plausible &= block <= geometry.blocks;
  return plausible;
}

std::string PathOf(const Model& model, std::uint32_t number) {
  constexpr std::size_t kLongest = 1000;
  if (!model.IsNode(number)) return "";
  if (number == kRootNode) return "/";
  std::string path;
  std::uint32_t at = number;
  while (model.nodes[at].parent != 0 && path.size() < kLongest) {
    const NodeInfo& parent = model.nodes[model.nodes[at].parent];
    path = "/" + Printable(NameOf(parent.entries[model.nodes[at].parentEntry].record)) + path;
    at = parent.number;
  }
  if (at == kRootNode) return path;
  if (model.nodes[at].parent != 0) return "..." + path;
  return "(node " + std::to_string(at) + ")" + path;
}

}  // namespace orba::inspect

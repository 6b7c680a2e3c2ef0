#include "operations/attributes.h"

#include "base/error.h"
#include "namespace/path.h"
#include "nodes/node.h"
#include "space/block_io.h"

namespace orba {

uint32_t OrbGetAttributes(const char* path) {
  const NodeRef file(ResolveFile(path));
  return file.node != nullptr ? file.node->record.attributes : ORB_INVALID_ATTRIBUTES;
}

bool OrbSetAttributes(const char* path, int32_t attributes) {
  constexpr int32_t kSettable = kNodeReadOnly | kNodeUserFlag;
  if ((attributes & ~kSettable) != 0) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  NodeRef file(ResolveFile(path));
  if (file.node == nullptr) return false;
  if (IsDirectory(file.node)) return Fail(ORB_ERROR_WRONG_KIND);
  bool stored = true;
  if (attributes != file.node->record.attributes) {
    if (file.node->references != 1) return Fail(ORB_ERROR_IN_USE);
    file.node->record.attributes = static_cast<uint16_t>(attributes);
    stored = OrbNodeWrite(file.node);
  }
  Volume* const volume = file.node->volume;
  file.Replace(nullptr);
  return OrbCommitVolume(volume) && stored;
}

}  // namespace orba

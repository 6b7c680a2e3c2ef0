#include "operations/attributes.h"

#include "base/error.h"

namespace orba {

bool AreSettable(int32_t attributes) {
  constexpr int32_t kSettable = kNodeReadOnly | kNodeUserFlag;
  return (attributes & ~kSettable) == 0 || Fail(ORB_ERROR_INVALID_ARGUMENT);
}

bool MaySetAttributes(const OrbNode* node, int32_t attributes) {
  if (IsDirectory(node)) return Fail(ORB_ERROR_WRONG_KIND);
  return attributes == node->record.attributes || node->references == 1 || Fail(ORB_ERROR_IN_USE);
}

bool OrbSetAttributes(OrbNode* file, uint16_t attributes) {
  if (attributes == file->record.attributes) return true;
  file->record.attributes = attributes;
  return OrbNodeWrite(file);
}

}  // namespace orba

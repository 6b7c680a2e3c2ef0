#include "files/slots.h"

#include "base/error.h"

namespace orba {

Slot* SlotAt(const SlotTable& table, uint32_t index) {
  return reinterpret_cast<Slot*>(static_cast<uint8_t*>(table.slots) + index * table.stride);
}

void* FindSlot(const SlotTable& table, uint32_t handle) {
  const uint32_t index = handle - table.tag;  // of another tag: far out of range
  if (index >= table.count) return nullptr;
  Slot* const slot = SlotAt(table, index);
  return slot->node != nullptr ? slot : nullptr;
}

void* SlotOfHandle(const SlotTable& table, uint32_t handle) {
  void* const slot = FindSlot(table, handle);
  if (slot == nullptr) Fail(ORB_ERROR_INVALID_HANDLE);
  return slot;
}

bool FindFreeSlot(const SlotTable& table, const OrbNode* node, uint32_t* cursor) {
  bool found = false;
  for (uint32_t index = 0; index < table.count; ++index) {
    if (SlotAt(table, index)->node == node) return Fail(ORB_ERROR_ALREADY_OPEN);
    found = found || SlotAt(table, *cursor)->node == nullptr;
    if (!found && ++*cursor == table.count) *cursor = 0;
  }
  return found || Fail(table.fullCode);
}

}  // namespace orba

// The slot search that the open-file table and the find table share. Stands on the error state.
#pragma once

#include <stdint.h>

#include "interface/error.h"
#include "namespace/node.h"

namespace orba {

// A handle is a tag in its high half and a slot index in its low half.
constexpr uint32_t MakeHandle(uint32_t tag, uint32_t slot) { return tag | slot; }

// The slot that a handle names, or null with ORB_ERROR_INVALID_HANDLE: another tag, an index out of range, a free slot.
template <typename Entry, uint32_t kSlots>
Entry* SlotOf(uint32_t handle, Entry (&table)[kSlots], uint32_t tag) {
  const uint32_t slot = handle & 0xFFFF;
  if ((handle & 0xFFFF0000) == tag && slot < kSlots && table[slot].node != nullptr) return &table[slot];
  Fail(ORB_ERROR_INVALID_HANDLE);
  return nullptr;
}

// Finds a free slot for a node, from the cursor on. The cursor moves past occupied slots only, at most once for each
// slot, wraps, and is left at the slot found. The look for a slot that holds this node already always covers them all.
//   returns  false with ORB_ERROR_ALREADY_OPEN where a slot holds this node, with `fullCode` where none is free
template <typename Entry, uint32_t kSlots>
bool FindFreeSlot(const OrbNode* node, const Entry (&table)[kSlots], uint32_t* cursor, uint32_t fullCode) {
  bool found = false;
  for (const Entry& entry : table) {
    if (entry.node == node) return Fail(ORB_ERROR_ALREADY_OPEN);
    if (found) continue;
    found = table[*cursor].node == nullptr;
    if (!found) *cursor = (*cursor + 1) % kSlots;
  }
  return found || Fail(fullCode);
}

}  // namespace orba

// What the open-file table and the find table share: handles and the search for a slot. Stands on nodes.
#pragma once

#include <stdint.h>

#include "nodes/node.h"

namespace orba {

// The part of a slot that all tables share.
struct Slot {
  OrbNode* node;  // held; null = free slot
};

// A table of slots, each `stride` bytes, whose handles are tag | index.
struct SlotTable {
  void* slots;
  uint16_t stride;
  uint16_t count;
  uint32_t tag;
  uint32_t fullCode;  // the error where no slot is free
};

Slot* SlotAt(const SlotTable& table, uint32_t index);

// The slot that a handle refers to, or null for another tag, an index out of range, a free slot.
void* FindSlot(const SlotTable& table, uint32_t handle);

// The same, with ORB_ERROR_INVALID_HANDLE set where there is none.
void* SlotOfHandle(const SlotTable& table, uint32_t handle);

// Finds a free slot for a node, from the cursor on. The cursor moves past occupied slots only, at most once for each
// slot, wraps, and is left at the slot found. All slots are searched for one that holds this node already.
//   returns  false with ORB_ERROR_ALREADY_OPEN where a slot holds this node, with fullCode where none is free
bool FindFreeSlot(const SlotTable& table, const OrbNode* node, uint32_t* cursor);

}  // namespace orba

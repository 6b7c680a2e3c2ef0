#include "nodes/node.h"

#include <stdlib.h>
#include <string.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/scratch.h"
#include "space/block_io.h"
#include "volume/time_stamp.h"

namespace orba {

OrbNode g_NodeListHead;

namespace {

// The object before a live one, or null for a pointer that is not on the list or points to a dead object.
OrbNode* LivePredecessor(const OrbNode* node) {
  if (node == nullptr) return nullptr;
  OrbNode* before = &g_NodeListHead;
  while (before != nullptr && before->next != node) before = before->next;
  return before != nullptr && node->references != 0 ? before : nullptr;
}

// Takes a dead object off the list, or returns null where there is none.
OrbNode* TakeDeadObject() {
  OrbNode* before = &g_NodeListHead;
  while (before->next != nullptr && before->next->references != 0) before = before->next;
  OrbNode* const dead = before->next;
  if (dead != nullptr) before->next = dead->next;
  return dead;
}

OrbNode* FindLiveNode(const Volume* volume, uint16_t number) {
  for (OrbNode* node = g_NodeListHead.next; node != nullptr; node = node->next) {
    if (node->references != 0 && node->volume == volume && node->record.number == number) return node;
  }
  return nullptr;
}

// The node block that holds a number, or 0 with the error set. The root exists even where the bitmap is empty.
uint32_t FindNodeBlock(const Volume* volume, uint32_t number) {
  const bool counted = number != 0 && (number <= 8 * volume->header.bitmapSize || number == kRootNode);
  if (!counted || NodeBlockIndex(volume, number) >= kNodeTableEntries) return Fail(ORB_ERROR_DAMAGED_RECORD);
  const uint32_t block = volume->nodeTable[NodeBlockIndex(volume, number)];
  return block != kNoBlock ? block : Fail(ORB_ERROR_DAMAGED_RECORD);
}

}  // namespace

bool OrbNodeIsValid(const OrbNode* node) { return LivePredecessor(node) != nullptr; }

OrbNode* OrbNodeAddRef(OrbNode* node) {
  if (OrbNodeIsValid(node)) ++node->references;
  return node;
}

void OrbNodeRelease(OrbNode* node) {
  OrbNode* const before = LivePredecessor(node);
  // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): null has no predecessor
  if (before == nullptr || --node->references != 0) return;
  before->next = node->next;
  free(node);
}

OrbNode* OrbNodeAlloc() {
  OrbNode* node = TakeDeadObject();
  if (node == nullptr) node = static_cast<OrbNode*>(Allocate(sizeof(OrbNode)));
  if (node == nullptr) return nullptr;
  memset(node, 0, sizeof *node);
  node->references = 1;
  node->next = g_NodeListHead.next;
  g_NodeListHead.next = node;
  return node;
}

OrbNode* OrbNodeGet(Volume* volume, uint16_t number) {
  OrbNode* const live = FindLiveNode(volume, number);
  if (live != nullptr) {
    ++live->references;
    return live;
  }
  NodeRef loaded(OrbNodeAlloc());
  if (loaded.node == nullptr || !OrbNodeRead(loaded.node, volume, number)) return nullptr;
  loaded.node->record.number = number;
  loaded.node->volume = volume;
  return loaded.Take();
}

bool OrbNodeRead(OrbNode* node, Volume* volume, uint16_t number) {
  const uint32_t block = FindNodeBlock(volume, number);
  if (block == kNoBlock) return false;
  if (!ReadBlockBytes(&node->record, volume, block, NodeOffset(volume, number), kNodeSize)) return false;
  ConvertNodeRecord(&node->record);
  return true;
}

bool OrbNodeWrite(OrbNode* node) {
  if (!OrbNodeIsValid(node)) return Fail(ORB_ERROR_ABORTED);
  Volume* const volume = node->volume;
  const uint32_t number = node->record.number;
  const uint32_t block = FindNodeBlock(volume, number);
  if (block == kNoBlock) return false;
  OrbNodeRecord record = node->record;
  ConvertNodeRecord(&record);
  return WriteBlockBytes(&record, volume, block, kNodeWrite, NodeOffset(volume, number), kNodeSize);
}

bool StampAndWriteNode(OrbNode* node) {
  GetTime(&node->record.time);
  return OrbNodeWrite(node);
}

void ConvertNodeRecord(OrbNodeRecord* record) {
  ConvertField(&record->signature);
  ConvertField(&record->number);
  ConvertField(&record->attributes);
  ConvertField(&record->time.year);
  ConvertField(&record->size);
  ConvertWords(record->direct, kDirectBlocks);
  ConvertField(&record->indirect);
  ConvertField(&record->doubleIndirect);
}

void FillNodeBlock(OrbNodeRecord* records, uint32_t count, uint32_t firstNumber) {
  for (uint32_t slot = 0; slot < count; ++slot) {
    records[slot].signature = kNodeSignature;
    records[slot].number = static_cast<uint16_t>(firstNumber + slot);
    ConvertNodeRecord(&records[slot]);
  }
}

void DetachNodes(const Volume* volume) {
  for (OrbNode* node = g_NodeListHead.next; node != nullptr; node = node->next) {
    if (node->volume == volume) node->volume = nullptr;
  }
}

}  // namespace orba

#include "space/free_chain.h"

#include <stdlib.h>
#include <string.h>

#include "base/byte_order.h"
#include "base/error.h"
#include "base/scratch.h"
#include "space/block_io.h"
#include "storage/container.h"

namespace orba {

namespace {

// Entry k of the heap, counted from 1.
uint32_t& Entry(FreeChainRecord* record, uint32_t k) { return record->heap[k - 1]; }

void ReleaseCache(Volume* volume) {
  free(volume->freeChain);
  volume->freeChain = nullptr;
}

// The cache, loaded where it is not, or null.
FreeChainRecord* HeadRecord(Volume* volume) {
  if (volume->freeChain == nullptr) LoadFreeChain(volume);
  return volume->freeChain;
}

void ConvertRecordHeader(FreeChainRecord* record) {
  ConvertField(&record->signature);
  ConvertField(&record->next);
  ConvertField(&record->count);
}

// Turns a record just read into host order and checks it.
bool DecodeRecord(const Volume* volume, FreeChainRecord* record) {
  ConvertRecordHeader(record);
  if (record->signature != kFreeChainSignature || record->count > volume->chainCapacity) return false;
  ConvertWords(record->heap, record->count);
  for (uint32_t k = 1; k <= record->count; ++k) {
    if (Entry(record, k) == kNoBlock) return false;
  }
  return true;
}

uint32_t RemoveLowest(FreeChainRecord* record) {
  const uint32_t lowest = Entry(record, 1);
  const uint32_t value = Entry(record, record->count);
  Entry(record, record->count) = 0;
  --record->count;
  uint32_t i = 1;
  for (uint32_t k = 2; k <= record->count; k = 2 * i) {
    if (k < record->count && Entry(record, k) > Entry(record, k + 1)) ++k;
    if (value <= Entry(record, k)) break;
    Entry(record, i) = Entry(record, k);
    i = k;
  }
  Entry(record, i) = value;
  return lowest;
}

void Insert(FreeChainRecord* record, uint32_t value) {
  uint32_t i = ++record->count;
  for (; i >= 2 && Entry(record, i / 2) > value; i /= 2) Entry(record, i) = Entry(record, i / 2);
  Entry(record, i) = value;
}

// Hands out the empty head record's own block:
//   1. the header, with the next record as head
//   2. the caller's first write of the block
uint32_t PopRecord(Volume* volume) {
  const uint32_t block = volume->header.freeChainHead;
  volume->header.freeChainHead = volume->freeChain->next;
  if (!StoreVolumeHeader(volume)) {
    if (GetError() == ORB_ERROR_OUT_OF_MEMORY) {  // nothing was written: the head stays what it was
      volume->header.freeChainHead = block;
    } else {
      ReleaseCache(volume);  // it is no longer the head's (V4)
    }
    return kNoBlock;
  }
  return LoadFreeChain(volume) ? block : kNoBlock;
}

uint32_t TakeFromChain(Volume* volume) {
  FreeChainRecord* const head = HeadRecord(volume);
  if (head == nullptr) return kNoBlock;
  if (head->count == 0) return PopRecord(volume);
  const uint32_t block = RemoveLowest(head);
  return StoreFreeChain(volume) ? block : kNoBlock;
}

uint32_t TakeAtEnd(const Volume* volume) {
  const uint32_t size = ContainerGetSize(volume->container);
  if (size == kSizeFailed) return kNoBlock;
  // Written so that nothing wraps, whatever size the host reports.
  if (size >= kContainerLimit - volume->header.blockSize) return Fail(ORB_ERROR_VOLUME_FULL);
  if (size < volume->header.dataOffset) return FailIfClear(ORB_ERROR_DAMAGED_VOLUME);  // 0 where memfile.dll is gone
  return BlockIndex(volume, size - volume->header.dataOffset) + 1;
}

// Makes block n the new, empty head record:
//   1. the record, into block n
//   2. the header, with it as head
bool PushRecord(Volume* volume, uint32_t block) {
  if (volume->freeChain == nullptr) {
    volume->freeChain = static_cast<FreeChainRecord*>(AllocateZeroed(volume->header.blockSize));
    if (volume->freeChain == nullptr) return false;
  } else {
    memset(volume->freeChain, 0, volume->header.blockSize);
  }
  volume->freeChain->signature = kFreeChainSignature;
  volume->freeChain->next = volume->header.freeChainHead;
  volume->header.freeChainHead = block;
  if (StoreFreeChain(volume)) return StoreVolumeHeader(volume);
  if (GetError() == ORB_ERROR_OUT_OF_MEMORY) {  // nothing was written: the head stays what it was
    volume->header.freeChainHead = volume->freeChain->next;
    ReleaseCache(volume);
  }
  return false;
}

}  // namespace

bool LoadFreeChain(Volume* volume) {
  if (volume->header.freeChainHead == kNoBlock) {
    ReleaseCache(volume);
    return true;
  }
  if (volume->freeChain == nullptr) {
    volume->freeChain = static_cast<FreeChainRecord*>(Allocate(volume->header.blockSize));
    if (volume->freeChain == nullptr) return false;
  }
  if (!ReadBlock(volume->freeChain, volume, volume->header.freeChainHead)) {
    ReleaseCache(volume);
    return false;
  }
  if (!DecodeRecord(volume, volume->freeChain)) {
    ReleaseCache(volume);
    return Fail(ORB_ERROR_DAMAGED_RECORD);
  }
  return true;
}

bool StoreFreeChain(Volume* volume) {
  const uint32_t words = kFreeChainHeader / 4 + volume->freeChain->count;
  return StoreWords(volume, volume->freeChain, volume->header.blockSize, words,
                    BlockPosition(volume, volume->header.freeChainHead), kFreeChainWrite);
}

uint32_t AllocBlock(Volume* volume) {
  return volume->header.freeChainHead != kNoBlock ? TakeFromChain(volume) : TakeAtEnd(volume);
}

bool FreeBlock(Volume* volume, uint32_t block) {
  if (volume->failed != 0) return Fail(ORB_ERROR_WRITE);
  const uint32_t size = ContainerGetSize(volume->container);
  if (size == kSizeFailed) return false;
  const uint32_t position = BlockPosition(volume, block);
  if (block == kNoBlock || position > size) return Fail(ORB_ERROR_DAMAGED_RECORD);
  if (size - position < volume->header.blockSize) return true;  // never written, so it does not exist yet
  if (volume->header.freeChainHead != kNoBlock) {
    FreeChainRecord* const head = HeadRecord(volume);
    if (head == nullptr) return false;
    if (head->count < volume->chainCapacity) {
      Insert(head, block);
      return StoreFreeChain(volume);
    }
  }
  return PushRecord(volume, block);
}

uint32_t AllocWriteBlock(const void* data, Volume* volume, uint32_t flags) {
  return AllocWriteBlockPadded(data, volume, flags, volume->header.blockSize);
}

uint32_t AllocWriteBlockPadded(const void* data, Volume* volume, uint32_t flags, uint32_t length) {
  if (volume->failed != 0) return Fail(ORB_ERROR_WRITE);
  const uint32_t blockSize = volume->header.blockSize;
  const uint32_t block = AllocBlock(volume);
  if (block == kNoBlock) return kNoBlock;
  if (length == blockSize) return WriteBlock(data, volume, block, flags) ? block : kNoBlock;
  const Scratch padded(AllocateZeroed(blockSize));
  if (padded.bytes == nullptr) return kNoBlock;
  memcpy(padded.bytes, data, length);
  return WriteBlock(padded.bytes, volume, block, flags) ? block : kNoBlock;
}

}  // namespace orba

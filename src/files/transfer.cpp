#include "files/transfer.h"

#include <string.h>

#include "base/error.h"
#include "base/scratch.h"
#include "files/open_file.h"
#include "nodes/block_map.h"
#include "space/block_io.h"
#include "space/free_chain.h"

namespace orba {

namespace {

constexpr uint32_t kMaxFileSize = 0x7FFFFFFF;

uint32_t Smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

// The slot of a handle that was opened with a mode bit, or null with the error set.
OrbOpenFileEntry* OpenFileWithMode(uint32_t handle, uint32_t mode) {
  OrbOpenFileEntry* const file = OpenFileOf(handle);
  if (file == nullptr || (file->mode & mode) != 0) return file;
  Fail(ORB_ERROR_ACCESS_DENIED);
  return nullptr;
}

// From a position to the end of its block.
uint32_t LeftInBlock(const Volume* volume, uint32_t position) {
  return volume->header.blockSize - OffsetInBlock(volume, position);
}

bool ReadPiece(void* buffer, const OrbNode* node, uint32_t position, uint32_t length) {
  Volume* const volume = node->volume;
  const uint32_t block = LookupFileBlock(node, position);
  if (block == kNoBlock) return false;
  return ReadBlockBytes(buffer, volume, block, OffsetInBlock(volume, position), length);
}

// Overwrites part of a block, or, at the end of the file on a block border, appends a block.
bool WritePiece(const void* buffer, OrbNode* node, uint32_t position, uint32_t length) {
  Volume* const volume = node->volume;
  if (position >= node->record.size && OffsetInBlock(volume, position) == 0) {
    return AppendFileBlock(node, position, buffer, length, kDataWrite);
  }
  const uint32_t block = LookupFileBlock(node, position);
  if (block == kNoBlock) return false;
  return WriteBlockBytes(buffer, volume, block, kDataWrite, OffsetInBlock(volume, position), length);
}

bool StoreSize(OrbNode* node, uint32_t size) {
  node->record.size = size;
  return StampAndWriteNode(node);
}

// Fills the rest of the last block with zeros and makes it part of the file.
bool ZeroLastBlock(OrbNode* node, uint32_t size, uint8_t* buffer) {
  Volume* const volume = node->volume;
  const uint32_t end = node->record.size;
  const uint32_t offset = OffsetInBlock(volume, end);
  const uint32_t rest = volume->header.blockSize - offset;
  const uint32_t block = LookupFileBlock(node, end);
  if (block == kNoBlock || !ReadBlock(buffer, volume, block)) return false;
  memset(buffer + offset, 0, rest);
  if (!WriteBlock(buffer, volume, block, kDataWrite)) return false;
  return StoreSize(node, Smaller(end + rest, size));
}

}  // namespace

uint32_t OrbSeekFile(uint32_t handle, int32_t distance, uint32_t origin) {
  OrbOpenFileEntry* const file = OpenFileOf(handle);
  if (file == nullptr) return ORB_INVALID_POSITION;
  const uint32_t size = file->node->record.size;
  if (origin > ORB_SEEK_END) {
    Fail(ORB_ERROR_INVALID_ARGUMENT);
    return ORB_INVALID_POSITION;
  }
  uint32_t start = 0;
  if (origin == ORB_SEEK_CURRENT) start = file->position;
  if (origin == ORB_SEEK_END) start = size;
  const uint32_t forward = static_cast<uint32_t>(distance);
  if (distance < 0 ? 0 - forward > start : forward > size - start) {
    Fail(ORB_ERROR_SEEK);
    return ORB_INVALID_POSITION;
  }
  file->position = start + forward;  // modulo 2^32, so backward as well
  return file->position;
}

bool OrbReadOpenFile(uint32_t handle, void* buffer, uint32_t count, OrbU32* done) {
  *done = 0;
  OrbOpenFileEntry* const file = OpenFileWithMode(handle, ORB_OPEN_READ);
  if (file == nullptr) return false;
  const OrbNode* const node = file->node;
  uint8_t* to = static_cast<uint8_t*>(buffer);
  count = file->position < node->record.size ? Smaller(count, node->record.size - file->position) : 0;
  while (count > 0) {
    const uint32_t length = Smaller(count, LeftInBlock(node->volume, file->position));
    if (!ReadPiece(to, node, file->position, length)) return false;
    to += length;
    count -= length;
    *done += length;
    file->position += length;
  }
  return true;
}

bool OrbWriteOpenFile(uint32_t handle, const void* buffer, uint32_t count, OrbU32* done) {
  *done = 0;
  OrbOpenFileEntry* const file = OpenFileWithMode(handle, ORB_OPEN_WRITE);
  if (file == nullptr) return false;
  if (count == 0) return true;
  OrbNode* const node = file->node;
  const uint8_t* from = static_cast<const uint8_t*>(buffer);
  while (count > 0) {
    const uint32_t length = Smaller(count, LeftInBlock(node->volume, file->position));
    if (!WritePiece(from, node, file->position, length)) return false;
    from += length;
    count -= length;
    *done += length;
    file->position += length;
    if (file->position > node->record.size && !StoreSize(node, file->position)) return false;
  }
  // Q6: every write stamps and stores a file of exactly one block. Other files are stamped only when they grow.
  return node->record.size != node->volume->header.blockSize || StampAndWriteNode(node);
}

bool OrbSetOpenFileSize(uint32_t handle, uint32_t size) {
  OrbOpenFileEntry* const file = OpenFileOf(handle);
  if (file == nullptr) return false;
  if (size > kMaxFileSize) return Fail(ORB_ERROR_INVALID_ARGUMENT);
  if ((file->mode & ORB_OPEN_WRITE) == 0) return Fail(ORB_ERROR_ACCESS_DENIED);
  OrbNode* const node = file->node;
  if (size == node->record.size) return true;
  if (size > node->record.size) return OrbGrowFile(node, size);
  file->position = Smaller(file->position, size);
  return OrbShrinkFile(node, size);
}

bool OrbGrowFile(OrbNode* node, uint32_t size) {
  const uint32_t blockSize = node->volume->header.blockSize;
  const Scratch buffer(Allocate(blockSize));
  if (buffer.bytes == nullptr) return false;
  if (OffsetInBlock(node->volume, node->record.size) != 0 && !ZeroLastBlock(node, size, buffer.bytes)) return false;
  memset(buffer.bytes, 0, blockSize);
  while (node->record.size < size) {
    const uint32_t end = node->record.size;
    if (!AppendFileBlock(node, end, buffer.bytes, blockSize, kDataWrite)) return false;
    if (!StoreSize(node, Smaller(end + blockSize, size))) return false;
  }
  return true;
}

bool OrbShrinkFile(OrbNode* node, uint32_t size) {
  Volume* const volume = node->volume;
  uint32_t blocks = BlocksFor(volume, node->record.size);
  const uint32_t keep = BlocksFor(volume, size);
  while (blocks > keep) {
    --blocks;
    const uint32_t position = blocks << BlockShift(volume);
    const uint32_t block = LookupFileBlock(node, position);
    if (block == kNoBlock || !SetFileBlock(node, position, kNoBlock)) return false;
    if (!StoreSize(node, position)) return false;
    if (!FreeBlock(volume, block)) return false;
  }
  return node->record.size == size || StoreSize(node, size);
}

}  // namespace orba

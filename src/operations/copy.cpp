#include "operations/copy.h"

#include <string.h>

#include "base/error.h"
#include "base/scratch.h"
#include "namespace/directory.h"
#include "nodes/block_map.h"
#include "nodes/node_store.h"
#include "operations/create.h"
#include "space/block_io.h"

namespace orba {

namespace {

// Fills a chunk with the source's bytes from a position on, zeros behind the source's last block.
bool ReadChunk(uint8_t* chunk, uint32_t chunkSize, const OrbNode* source, uint32_t position) {
  const uint32_t blockSize = source->volume->header.blockSize;
  for (uint32_t done = 0; done < chunkSize; done += blockSize) {
    if (position + done >= source->record.size) {
      memset(chunk + done, 0, chunkSize - done);
      break;
    }
    const uint32_t block = LookupFileBlock(source, position + done);
    if (block == kNoBlock || !ReadBlock(chunk + done, source->volume, block)) return false;
  }
  return true;
}

// Appends the part of a chunk that belongs to the file, one block and one node write at a time.
bool WriteChunk(const uint8_t* chunk, uint32_t chunkSize, OrbNode* destination, uint32_t position, uint32_t fileSize) {
  const uint32_t blockSize = destination->volume->header.blockSize;
  for (uint32_t done = 0; done < chunkSize && position + done < fileSize; done += blockSize) {
    if (!AppendFileBlock(destination, position + done, chunk + done, blockSize, kDataWrite)) return false;
    const uint32_t left = fileSize - destination->record.size;
    destination->record.size += left < blockSize ? left : blockSize;
    if (!OrbNodeWrite(destination)) return false;
  }
  return true;
}

}  // namespace

bool OrbCopyNodeTo(OrbNode* directory, const char* name, OrbNode* source) {
  if (!OrbNodeIsValid(source) || IsDirectory(source)) return Fail(ORB_ERROR_WRONG_KIND);
  if (!OrbDirRequireNewName(directory, name)) return false;

  OrbNode* const copy = OrbNodeCreate(directory->volume, source->record.attributes);
  if (copy == nullptr) return false;
  copy->record.time = source->record.time;
  return NameNewNode(directory, name, copy, OrbCopyFileData(copy, source));
}

bool OrbCopyFileData(OrbNode* destination, const OrbNode* source) {
  const uint32_t size = source->record.size;
  if (size == 0) return OrbNodeWrite(destination);  // the time stamp is still to be stored

  // A chunk is one block of the volume with the larger blocks, one or more of the other's.
  const uint32_t from = source->volume->header.blockSize;
  const uint32_t to = destination->volume->header.blockSize;
  const uint32_t chunkSize = from > to ? from : to;
  const Scratch chunk(Allocate(chunkSize));
  if (chunk.bytes == nullptr) return false;
  // The position follows the size written so far: unlike a multiple of chunks, it cannot wrap for a damaged source.
  for (uint32_t position = 0; position < size; position = destination->record.size) {
    if (!ReadChunk(chunk.bytes, chunkSize, source, position)) return false;
    if (!WriteChunk(chunk.bytes, chunkSize, destination, position, size)) return false;
  }
  return true;
}

}  // namespace orba

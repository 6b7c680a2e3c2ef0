// The bytes are a table of chunks, so they grow without moving: on a small device a block that has to be copied to grow
// would need twice its size for the moment. A chunk nobody wrote to is null and reads as zeros.
#include "memfile/pages.h"

#include <stdlib.h>
#include <string.h>

namespace {

typedef MemFileU32 U32;

const U32 kChunkSize = 0x10000;
const U32 kFirstTableSize = 16;  // 1 MiB

unsigned char** g_chunks;
U32 g_tableSize;  // entries of g_chunks

// Makes the table at least `entries` long, false without memory.
bool GrowTable(U32 entries) {
  if (entries <= g_tableSize) return true;
  U32 grown = g_tableSize == 0 ? kFirstTableSize : 2 * g_tableSize;
  if (grown < entries) grown = entries;
  unsigned char** chunks = static_cast<unsigned char**>(calloc(grown, sizeof *chunks));
  if (chunks == nullptr) return false;
  if (g_tableSize != 0) memcpy(chunks, g_chunks, g_tableSize * sizeof *chunks);
  free(g_chunks);
  g_chunks = chunks;
  g_tableSize = grown;
  return true;
}

// The bytes at `position` that lie in one chunk, `count` at most.
U32 Piece(U32 position, U32 count) {
  const U32 left = kChunkSize - position % kChunkSize;
  return count < left ? count : left;
}

}  // namespace

// Chunks obtained before memory ran out stay: they are zeros, which is what their bytes were.
bool ProvidePages(U32 begin, U32 end) {
  const U32 last = (end - 1) / kChunkSize;
  if (!GrowTable(last + 1)) return false;
  for (U32 i = begin / kChunkSize; i <= last; i++) {
    if (g_chunks[i] == nullptr) g_chunks[i] = static_cast<unsigned char*>(calloc(1, kChunkSize));
    if (g_chunks[i] == nullptr) return false;
  }
  return true;
}

void ReadPages(U32 position, void* out, U32 count) {
  unsigned char* to = static_cast<unsigned char*>(out);
  while (count > 0) {
    const U32 piece = Piece(position, count);
    const unsigned char* const chunk = g_chunks[position / kChunkSize];
    if (chunk != nullptr) {
      memcpy(to, chunk + position % kChunkSize, piece);
    } else {
      memset(to, 0, piece);
    }
    to += piece;
    position += piece;
    count -= piece;
  }
}

void WritePages(U32 position, const void* in, U32 count) {
  const unsigned char* from = static_cast<const unsigned char*>(in);
  while (count > 0) {
    const U32 piece = Piece(position, count);
    memcpy(g_chunks[position / kChunkSize] + position % kChunkSize, from, piece);
    from += piece;
    position += piece;
    count -= piece;
  }
}

void ReleasePages() {
  for (U32 i = 0; i < g_tableSize; i++) free(g_chunks[i]);
  free(g_chunks);
  g_chunks = nullptr;
  g_tableSize = 0;
}

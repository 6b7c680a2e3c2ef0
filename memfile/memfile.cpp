// The file is a table of chunks, so it grows without moving what it holds: on a small device a block that has to be
// copied to grow would need twice its size for the moment. A chunk nobody wrote to is null and reads as zeros.
#include "memfile/memfile.h"

#include <stdlib.h>
#include <string.h>

namespace {

typedef MemFileU32 U32;

const U32 kChunkSize = 0x10000;
const U32 kFirstTableSize = 16;  // 1 MiB

bool g_exists;
unsigned char** g_chunks;
U32 g_tableSize;  // entries of g_chunks
U32 g_size;
U32 g_position;

U32 Smaller(U32 a, U32 b) { return a < b ? a : b; }

// Frees all memory; the file is empty then.
void Clear() {
  for (U32 i = 0; i < g_tableSize; i++) free(g_chunks[i]);
  free(g_chunks);
  g_chunks = nullptr;
  g_tableSize = 0;
  g_size = 0;
  g_position = 0;
}

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

// Provides the chunks of the bytes from `begin` to before `end`, false without memory. Chunks obtained before memory
// ran out stay: they are zeros, which is what their bytes were.
bool ProvideChunks(U32 begin, U32 end) {
  const U32 last = (end - 1) / kChunkSize;
  if (!GrowTable(last + 1)) return false;
  for (U32 i = begin / kChunkSize; i <= last; i++) {
    if (g_chunks[i] == nullptr) g_chunks[i] = static_cast<unsigned char*>(calloc(1, kChunkSize));
    if (g_chunks[i] == nullptr) return false;
  }
  return true;
}

// Whether a transfer may begin; sets `*done` to 0 in any case.
bool BeginTransfer(const void* buffer, U32 count, U32* done) {
  if (done == nullptr) return false;
  *done = 0;
  return g_exists && (buffer != nullptr || count == 0);
}

}  // namespace

extern "C" {

U32 CreateMemFile(void) {
  Clear();
  g_exists = true;
  return 1;
}

U32 ReadMemFile(void* buffer, U32 count, U32* done) {
  if (!BeginTransfer(buffer, count, done)) return 0;
  count = Smaller(count, g_position < g_size ? g_size - g_position : 0);
  unsigned char* out = static_cast<unsigned char*>(buffer);
  while (*done < count) {
    const U32 chunk = g_position / kChunkSize;
    const U32 offset = g_position % kChunkSize;
    const U32 piece = Smaller(count - *done, kChunkSize - offset);
    if (g_chunks[chunk] != nullptr) {
      memcpy(out + *done, g_chunks[chunk] + offset, piece);
    } else {
      memset(out + *done, 0, piece);
    }
    *done += piece;
    g_position += piece;
  }
  return 1;
}

U32 WriteMemFile(const void* buffer, U32 count, U32* done) {
  if (!BeginTransfer(buffer, count, done)) return 0;
  if (count == 0) return 1;
  if (count > MEMFILE_MAX_SIZE - g_position) return 0;
  if (!ProvideChunks(g_position, g_position + count)) return 0;
  const unsigned char* in = static_cast<const unsigned char*>(buffer);
  while (*done < count) {
    const U32 offset = g_position % kChunkSize;
    const U32 piece = Smaller(count - *done, kChunkSize - offset);
    memcpy(g_chunks[g_position / kChunkSize] + offset, in + *done, piece);
    *done += piece;
    g_position += piece;
  }
  if (g_size < g_position) g_size = g_position;
  return 1;
}

U32 SeekMemFile(MemFileI32 distance, U32 method) {
  if (!g_exists || method > MEMFILE_END) return MEMFILE_INVALID;
  const U32 origin = method == MEMFILE_BEGIN ? 0 : method == MEMFILE_CURRENT ? g_position : g_size;
  // Origins are at most MEMFILE_MAX_SIZE, so a sum outside the range, on either side, has the top bit set.
  const U32 position = origin + static_cast<U32>(distance);
  if (position > MEMFILE_MAX_SIZE) return MEMFILE_INVALID;
  g_position = position;
  return position;
}

U32 GetMemFileSize(void) { return g_exists ? g_size : MEMFILE_INVALID; }

U32 DeleteMemFile(void) {
  if (!g_exists) return 0;
  Clear();
  g_exists = false;
  return 1;
}

}  // extern "C"

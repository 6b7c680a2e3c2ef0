// The file itself: whether there is one, its size and position. Its bytes are the host's to keep.
#include "memfile/memfile.h"

#include "memfile/pages.h"

namespace {

typedef MemFileU32 U32;

bool g_exists;
U32 g_size;
U32 g_position;

U32 Smaller(U32 a, U32 b) { return a < b ? a : b; }

// Frees all memory; the file is empty then.
void Clear() {
  ReleasePages();
  g_size = 0;
  g_position = 0;
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
  if (count > 0) ReadPages(g_position, buffer, count);
  g_position += count;
  *done = count;
  return 1;
}

U32 WriteMemFile(const void* buffer, U32 count, U32* done) {
  if (!BeginTransfer(buffer, count, done)) return 0;
  if (count == 0) return 1;
  if (count > MEMFILE_MAX_SIZE - g_position) return 0;
  if (!ProvidePages(g_position, g_position + count)) return 0;
  WritePages(g_position, buffer, count);
  g_position += count;
  if (g_size < g_position) g_size = g_position;
  *done = count;
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

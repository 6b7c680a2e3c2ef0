// The bytes lie one behind the other: those of a small file in a block from the heap, which costs less to get and to
// give back, those of a larger one in a mapping. Addresses for the largest file are reserved at once, which takes no
// memory; as the file grows, more of them are made accessible where they are. Where so many addresses are not to be
// had, or the process has a limit on them, the mapping is only as long as needed and moves to grow; its pages are not
// copied.
#include "memfile/pages.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace {

typedef MemFileU32 U32;

const size_t kSmallSize = 0x10000;
const size_t kHugePage = size_t{2} << 20;
const size_t kReserved = size_t{1} << 31;
static_assert(kReserved > MEMFILE_MAX_SIZE, "the largest file fits");

unsigned char* g_small;    // the bytes of a small file; null for none and for a larger one
unsigned char* g_mapping;  // from mmap; null for none and for a small file
size_t g_mapped;           // bytes of it
unsigned char* g_bytes;    // the file's: g_small, or where the mapping's first huge page begins
size_t g_usable;           // bytes from there on that are accessible
bool g_reserved;           // all that a file can need is mapped

bool AddressesAreLimited() {
  rlimit limit;
  return getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

bool Map(size_t size, int access) {
  void* const mapping = mmap(nullptr, size, access, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) return false;
  g_mapping = static_cast<unsigned char*>(mapping);
  g_mapped = size;
  return true;
}

// Where the file's bytes begin in the mapping.
unsigned char* FirstByte() {
  if (!g_reserved) return g_mapping;
  return g_mapping + (kHugePage - reinterpret_cast<uintptr_t>(g_mapping) % kHugePage) % kHugePage;
}

// The first of a file's huge pages is not one, for it may stay nearly empty.
bool Reserve() {
  if (AddressesAreLimited() || !Map(kReserved + kHugePage, PROT_NONE)) return false;
  g_reserved = true;
  madvise(FirstByte() + kHugePage, kReserved - kHugePage, MADV_HUGEPAGE);  // a kernel without them does without
  return true;
}

bool Remap(size_t size) {
  void* const mapping = mremap(g_mapping, g_mapped, size, MREMAP_MAYMOVE);
  if (mapping == MAP_FAILED) return false;
  g_mapping = static_cast<unsigned char*>(mapping);
  g_mapped = size;
  return true;
}

// Makes `size` bytes of the mapping accessible, more than there are.
bool GrowMapping(size_t size) {
  const size_t accessible = g_small == nullptr ? g_usable : 0;
  if (g_mapping == nullptr && !Reserve()) return Map(size, PROT_READ | PROT_WRITE);
  if (g_reserved) return mprotect(FirstByte() + accessible, size - accessible, PROT_READ | PROT_WRITE) == 0;
  return Remap(size);
}

bool TakeSmallBlock() {
  g_small = static_cast<unsigned char*>(calloc(1, kSmallSize));
  if (g_small == nullptr) return false;
  g_bytes = g_small;
  g_usable = kSmallSize;
  return true;
}

}  // namespace

bool ProvidePages(U32, U32 end) {
  if (end <= g_usable) return true;
  if (g_usable == 0 && end <= kSmallSize) return TakeSmallBlock();
  const size_t size = (end + kHugePage - 1) / kHugePage * kHugePage;
  if (!GrowMapping(size)) return false;
  g_bytes = FirstByte();
  g_usable = size;
  if (g_small != nullptr) memcpy(g_bytes, g_small, kSmallSize);
  free(g_small);
  g_small = nullptr;
  return true;
}

void ReadPages(U32 position, void* out, U32 count) { memcpy(out, g_bytes + position, count); }

void WritePages(U32 position, const void* in, U32 count) { memcpy(g_bytes + position, in, count); }

void ReleasePages() {
  free(g_small);
  if (g_mapping != nullptr) munmap(g_mapping, g_mapped);
  g_small = nullptr;
  g_mapping = nullptr;
  g_reserved = false;
  g_usable = 0;
}

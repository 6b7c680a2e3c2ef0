#include "unit/library_test.h"

#include <stdlib.h>
#include <string.h>

#include "files/find.h"
#include "files/open_file.h"
#include "namespace/current_directory.h"
#include "nodes/node.h"
#include "operations/mount.h"
#include "storage/memory_file.h"
#include "support/result_code.h"

namespace orba {

namespace {

// Puts the library's whole state back, whatever a test did to it.
void ResetLibrary() {
  for (OrbOpenFileEntry& file : g_OpenFileTable) file = OrbOpenFileEntry();
  for (OrbFindEntry& search : g_FindTable) {
    free(search.pattern);
    search = OrbFindEntry();
  }
  g_dwOpenFileCursor = 0;
  g_dwFindCursor = 0;
  g_pCurrentDir = nullptr;
  while (g_NodeListHead.next != nullptr) {
    OrbNode* const node = g_NodeListHead.next;
    g_NodeListHead.next = node->next;
    free(node);
  }
  g_VolumeListHead.next = nullptr;
  MemFileDelete();  // unloads the memory-file library
  g_dwReadCount = g_dwReadTime = g_dwWriteCount = g_dwWriteTime = g_dwSeekCount = g_dwSeekTime = 0;
  ClearError();
}

}  // namespace

void LibraryTest::SetUp() {
  HostTest::SetUp();
  ClearError();
}

void LibraryTest::TearDown() {
  testhost::ClearFaults();
  VolumeUnmountAll();
  if (checked_) {
    EXPECT_EQ(NodesListed(), 0u) << "nodes still referenced";
    EXPECT_EQ(g_pCurrentDir, nullptr);
    EXPECT_EQ(testhost::OpenHandles(), 0u) << "host handles left open";
    EXPECT_EQ(testhost::AllocationsHeld(), 0u) << testhost::BytesHeld() << " bytes not freed";
  }
  ResetLibrary();
}

void LibraryTest::Format(uint32_t bitmapSize, uint32_t blockSize, const char16_t* container) {
  ASSERT_EQ(OrbCreateVolumeEx(container, bitmapSize, blockSize), 1) << std::hex << GetError();
  testhost::ClearTrace();
}

Volume* LibraryTest::Mount(const char16_t* container, const char16_t* name) {
  return OrbMountVolume(container, name) != 0 ? g_VolumeListHead.next : nullptr;
}

Volume* LibraryTest::FormatAndMount(uint32_t bitmapSize, uint32_t blockSize) {
  Format(bitmapSize, blockSize);
  Volume* const volume = Mount();
  EXPECT_NE(volume, nullptr) << std::hex << GetError();
  testhost::ClearTrace();
  return volume;
}

uint32_t LibraryTest::NodesListed() {
  uint32_t count = 0;
  for (const OrbNode* node = g_NodeListHead.next; node != nullptr; node = node->next) ++count;
  return count;
}

std::string Outcome(bool succeeded) {
  const uint32_t code = GetError();
  if (succeeded && code == ORB_ERROR_NONE) return "";
  return (succeeded ? "success with " : "") + testhost::NameOfCode(code);
}

Bytes Pattern(size_t count, uint32_t seed) {
  Bytes bytes(count);
  uint32_t state = seed * 2654435761u + 1;
  for (uint8_t& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

Bytes Word(uint32_t value) {
  return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
          static_cast<uint8_t>(value >> 24)};
}

}  // namespace orba

// Writes one fixed sequence of calls into new containers, or prints all that containers hold. Every build of the
// library runs it: the containers must be the same bytes, time stamps set aside, and each must read the others'.
//
//   exchange write {CONTAINER BITMAP_BYTES BLOCK_SIZE}...
//   exchange read CONTAINER...
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "orba.h"

namespace {

// Stops with the line that failed and the library's reason.
void Require(bool condition, int line) {
  if (condition) return;
  std::fprintf(stderr, "exchange: line %d failed, error 0x%08X\n", line, OrbGetLastError());
  std::exit(EXIT_FAILURE);
}
#define REQUIRE(condition) Require((condition), __LINE__)

using WideString = std::basic_string<OrbWideChar>;

WideString Wide(const std::string& ascii) { return WideString(ascii.begin(), ascii.end()); }

// Bytes that differ from file to file and from place to place.
std::vector<unsigned char> Pattern(OrbU32 seed, OrbU32 size) {
  std::vector<unsigned char> bytes(size);
  OrbU32 state = seed * 2654435761u + 1;
  for (unsigned char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<unsigned char>(state >> 24);
  }
  return bytes;
}

void Write(const std::string& path, OrbU32 position, OrbU32 seed, OrbU32 size) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_WRITE);
  REQUIRE(file != ORB_INVALID_HANDLE);
  REQUIRE(OrbSetFilePointer(file, static_cast<OrbI32>(position), ORB_SEEK_BEGIN) == position);
  const std::vector<unsigned char> bytes = Pattern(seed, size);
  OrbU32 done = 0;
  REQUIRE(OrbWriteFile(file, bytes.data(), size, &done) == 1 && done == size);
  REQUIRE(OrbCloseFile(file) == 1);
}

void Resize(const std::string& path, OrbU32 size) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ | ORB_OPEN_WRITE);
  REQUIRE(file != ORB_INVALID_HANDLE && OrbSetFileSize(file, size) == 1 && OrbCloseFile(file) == 1);
}

std::string Numbered(const char* folder, OrbU32 number) {
  char path[64];
  std::snprintf(path, sizeof path, "%s/file-%03u.dat", folder, number);
  return path;
}

// Grows files through both levels of block maps and directories through several blocks, frees space and takes it again.
void WriteContainer(const std::string& container, OrbU32 bitmapSize, OrbU32 blockSize) {
  const WideString name = Wide(container);
  REQUIRE(OrbCreateVolumeEx(name.c_str(), bitmapSize, blockSize) == 1);
  REQUIRE(OrbMountVolume(name.c_str(), Wide("data").c_str()) == 1);
  REQUIRE(OrbCreateDirectoryA("data:/logs") == 1 && OrbCreateDirectoryA("data:/logs/old") == 1);
  REQUIRE(OrbCreateDirectoryW(Wide("data:/wide").c_str()) == 1);

  REQUIRE(OrbCreateFileA("data:/big.bin", 0) == 1);
  Write("data:/big.bin", 0, 1, 500000);
  Write("data:/big.bin", 250001, 2, 77777);
  REQUIRE(OrbSetCurrentDirectoryA("data:/logs") == 1);
  for (OrbU32 i = 0; i < 100; ++i) {
    REQUIRE(OrbCreateFileA(Numbered("data:/logs", i).c_str(), i % 3 == 0 ? ORB_ATTRIBUTE_USER : 0) == 1);
    Write(Numbered(".", i), 0, 100 + i, 37 * i);
  }
  for (OrbU32 i = 0; i < 100; i += 2) REQUIRE(OrbDeleteFileA(Numbered(".", i).c_str()) == 1);
  Resize("data:/big.bin", 123456);
  for (OrbU32 i = 1; i < 20; i += 2) {
    REQUIRE(OrbMoveFileA(Numbered(".", i).c_str(), Numbered("old", i).c_str()) == 1);
  }
  for (OrbU32 i = 21; i < 40; i += 2) {
    REQUIRE(OrbCopyFileA(Numbered(".", i).c_str(), Numbered("data:/wide", i).c_str()) == 1);
  }
  REQUIRE(OrbRenameFileA("file-041.dat", "renamed.txt") == 1);
  REQUIRE(OrbSetFileAttributesA("renamed.txt", ORB_ATTRIBUTE_READ_ONLY) == 1);
  REQUIRE(OrbCreateFileA("data:/grown.bin", 0) == 1);
  Resize("data:/grown.bin", 300001);
  Resize("file-099.dat", 10);
  REQUIRE(OrbDeleteFileA("data:/missing") == 0 && OrbGetLastError() == ORB_ERROR_FILE_NOT_FOUND);
  REQUIRE(OrbUnmountVolumeA("data") == 1);
}

// FNV-1a of all bytes of a file, read in pieces that are no divisor of any block size.
OrbU32 Hash(const std::string& path, OrbU32 size) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ);
  REQUIRE(file != ORB_INVALID_HANDLE && OrbGetFileSize(file) == size);
  OrbU32 hash = 2166136261u;
  OrbU32 total = 0;
  for (;;) {
    unsigned char piece[1999];
    OrbU32 done = 0;
    REQUIRE(OrbReadFile(file, piece, sizeof piece, &done) == 1);
    if (done == 0) break;
    for (OrbU32 i = 0; i < done; ++i) hash = (hash ^ piece[i]) * 16777619u;
    total += done;
  }
  REQUIRE(total == size && OrbCloseFile(file) == 1);
  return hash;
}

void PrintFolder(const std::string& folder) {
  std::vector<std::string> folders;
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA((folder + "/*").c_str(), &found);
  REQUIRE(search != ORB_INVALID_HANDLE);
  do {
    const std::string path = folder + "/" + found.name;
    const bool isFolder = (found.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0;
    std::printf("%s attributes %04X size %u", path.c_str(), found.attributes, found.size);
    if (!isFolder) std::printf(" hash %08X", Hash(path, found.size));
    std::printf("\n");
    if (isFolder && found.name[0] != '.') folders.push_back(path);
  } while (OrbFindNextFileA(search, &found) == 1);
  REQUIRE(OrbGetLastError() == ORB_ERROR_NO_MORE_ENTRIES && OrbFindClose(search) == 1);
  for (const std::string& path : folders) PrintFolder(path);
}

void PrintContainer(const std::string& container) {
  REQUIRE(OrbMountVolume(Wide(container).c_str(), Wide("any").c_str()) == 1);
  OrbU32 bitmapSize = 0;
  OrbU32 blockSize = 0;
  REQUIRE(OrbGetVolumeInfoA("any", &bitmapSize, &blockSize) == 1);
  std::printf("bitmap %u blocks %u\n", bitmapSize, blockSize);
  PrintFolder("any:");
  REQUIRE(OrbUnmountVolumeA("any") == 1);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 2 ? argv[1] : "";
  if (what == "read") {
    for (int i = 2; i < argc; ++i) PrintContainer(argv[i]);
  } else if (what == "write" && argc % 3 == 2) {
    for (int i = 2; i < argc; i += 3) {
      WriteContainer(argv[i], static_cast<OrbU32>(std::atoi(argv[i + 1])), static_cast<OrbU32>(std::atoi(argv[i + 2])));
    }
  } else {
    std::fputs("usage: exchange write {CONTAINER BITMAP_BYTES BLOCK_SIZE}...\n       exchange read CONTAINER...\n",
               stderr);
    return 2;
  }
  return EXIT_SUCCESS;
}

// The library at its main job: formats a container, stores real directory trees in it, unmounts, mounts again, reads
// everything back and compares it byte for byte with the originals. Once in a container file, once in the memory file.
//
//   demo FOLDER...     stores each folder under its own name, then some binary files of sizes that reach every level of
//                      a file's block map
//
// Exit status: 0 all came back as it went in, 1 something did not, 2 usage.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "orba.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<char>;

constexpr OrbU32 kBlockSize = 1024;  // small blocks reach the far end of the block map with small files
constexpr OrbU32 kBitmapSize = 896;
constexpr std::size_t kDoubleIndirectBorder = (6 + kBlockSize / 4) * kBlockSize;
constexpr OrbU32 kTransfer = 10000;  // bytes a call; not a multiple of any block size
constexpr const char* kContainerFile = "orba-demo.orba";

// What is to be stored: a directory, or a file with its original bytes.
struct Item {
  std::string path;  // "SRC/VOLUME/MOUNT.CPP"
  bool isDirectory;
  Bytes bytes;
};

[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "demo: %s: code 0x%08X\n", what.c_str(), OrbGetLastError());
  std::exit(1);
}

void Require(bool succeeded, const std::string& what) {
  if (!succeeded) Die(what);
}

std::basic_string<OrbWideChar> Wide(const std::string& text) { return {text.begin(), text.end()}; }

// ---- What goes in ---------------------------------------------------------------------------------------------------

Bytes ReadHostFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void AddTree(std::vector<Item>& items, const fs::path& folder) {
  const std::string top = fs::canonical(folder).filename().string();
  items.push_back({top, true, {}});
  std::vector<fs::path> found;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) found.push_back(entry.path());
  std::sort(found.begin(), found.end());  // parents come before their children
  for (const fs::path& path : found) {
    const std::string name = top + "/" + fs::relative(path, folder).generic_string();
    const bool isDirectory = fs::is_directory(path);
    items.push_back({name, isDirectory, isDirectory ? Bytes() : ReadHostFile(path)});
  }
}

void AddBinaryFiles(std::vector<Item>& items) {
  std::mt19937 random(20);
  items.push_back({"BINARY", true, {}});
  items.push_back({"BINARY/DEEP", true, {}});
  for (const std::size_t size : {std::size_t{0}, std::size_t{6 * kBlockSize}, std::size_t{6 * kBlockSize + 1},
                                 kDoubleIndirectBorder, kDoubleIndirectBorder + 150001}) {
    Bytes bytes(size);
    for (char& byte : bytes) byte = static_cast<char>(random());
    items.push_back({"BINARY/DEEP/" + std::to_string(size) + ".BIN", false, bytes});
  }
}

// ---- The account ----------------------------------------------------------------------------------------------------

struct Account {
  std::size_t files = 0, directories = 0, bytes = 0;
  OrbU32 reads = 0, writes = 0, seeks = 0;
  double milliseconds = 0;
};

struct Meter {
  OrbU32 reads = g_dwReadCount, writes = g_dwWriteCount, seeks = g_dwSeekCount;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();

  void Stop(Account& account) const {
    account.reads = g_dwReadCount - reads;
    account.writes = g_dwWriteCount - writes;
    account.seeks = g_dwSeekCount - seeks;
    account.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }
};

void Count(Account& account, const Item& item) {
  if (item.isDirectory) {
    ++account.directories;
  } else {
    ++account.files;
    account.bytes += item.bytes.size();
  }
}

void Print(const char* what, const Account& a) {
  std::printf("  %-9s %5zu files %4zu directories %9zu bytes | host: %6u reads %6u writes %6u seeks | %7.1f ms\n", what,
              a.files, a.directories, a.bytes, a.reads, a.writes, a.seeks, a.milliseconds);
}

// ---- In and out -----------------------------------------------------------------------------------------------------

void StoreFile(const std::string& path, const Bytes& bytes) {
  Require(OrbCreateFileA(path.c_str(), 0), "creating " + path);
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_WRITE);
  Require(file != ORB_INVALID_HANDLE, "opening " + path);
  for (std::size_t position = 0; position < bytes.size(); position += kTransfer) {
    OrbU32 done = 0;
    const OrbU32 count = static_cast<OrbU32>(std::min<std::size_t>(kTransfer, bytes.size() - position));
    Require(OrbWriteFile(file, bytes.data() + position, count, &done) && done == count, "writing " + path);
  }
  Require(OrbCloseFile(file), "closing " + path);
}

Bytes LoadFile(const std::string& path) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ);
  Require(file != ORB_INVALID_HANDLE, "opening " + path);
  Bytes bytes(OrbGetFileSize(file));
  for (std::size_t position = 0; position < bytes.size();) {
    OrbU32 done = 0;
    const OrbU32 count = static_cast<OrbU32>(std::min<std::size_t>(kTransfer, bytes.size() - position));
    Require(OrbReadFile(file, bytes.data() + position, count, &done) && done == count, "reading " + path);
    position += done;
  }
  Require(OrbCloseFile(file), "closing " + path);
  return bytes;
}

Account Store(const std::vector<Item>& items) {
  Account account;
  const Meter meter;
  for (const Item& item : items) {
    const std::string path = "DEMO:/" + item.path;
    if (item.isDirectory) {
      Require(OrbCreateDirectoryA(path.c_str()), "creating directory " + path);
    } else {
      StoreFile(path, item.bytes);
    }
    Count(account, item);
  }
  meter.Stop(account);
  return account;
}

Account ReadBackAndCompare(const std::vector<Item>& items, std::size_t& different) {
  Account account;
  const Meter meter;
  for (const Item& item : items) {
    const std::string path = "DEMO:/" + item.path;
    if (item.isDirectory) {
      const OrbU32 attributes = OrbGetFileAttributesA(path.c_str());
      Require(attributes == ORB_ATTRIBUTE_DIRECTORY, "finding directory " + path);
    } else if (LoadFile(path) != item.bytes) {
      std::printf("  DIFFERENT: %s\n", path.c_str());
      ++different;
    }
    Count(account, item);
  }
  meter.Stop(account);
  return account;
}

void Mount(const std::string& container) {
  Require(OrbMountVolume(Wide(container).c_str(), Wide("DEMO").c_str()), "mounting " + container);
}

// Stores and compares; returns how many files came back different.
std::size_t Run(const std::string& container, const std::vector<Item>& items, bool remount) {
  std::printf("%s\n", container.c_str());
  Require(OrbCreateVolumeEx(Wide(container).c_str(), kBitmapSize, kBlockSize), "formatting " + container);
  Mount(container);
  Print("stored", Store(items));
  if (remount) {
    Require(OrbUnmountVolumeA("DEMO"), "unmounting");
    Mount(container);
    std::printf("  unmounted and mounted again\n");
  }
  std::size_t different = 0;
  Print("read back", ReadBackAndCompare(items, different));
  Require(OrbUnmountVolumeA("DEMO"), "unmounting");
  return different;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: demo FOLDER...\n");
    return 2;
  }
  std::vector<Item> items;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      std::fprintf(stderr, "demo: %s is not a folder\n", argv[i]);
      return 2;
    }
    AddTree(items, argv[i]);
  }
  AddBinaryFiles(items);

  std::error_code ignored;
  fs::remove(kContainerFile, ignored);
  std::size_t different = Run(kContainerFile, items, true);
  std::printf("  the container takes %ju bytes\n", static_cast<std::uintmax_t>(fs::file_size(kContainerFile)));
  fs::remove(kContainerFile, ignored);
  different += Run("??MEM??", items, false);  // unmounting discards the memory file, so it is read back before

  if (different > 0) {
    std::printf("%zu files came back different.\n", different);
    return 1;
  }
  std::printf("Everything came back byte for byte.\n");
  return 0;
}

#include "support.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace api {

const char kFirst[] = "first.orba";
const char kSecond[] = "second.orba";
const char kThird[] = "third.orba";
const char kMemory[] = "??MEM??";
const OrbWideChar kIllegal[] = {'A', '*', 0xD800, 0};
const char kLongAgo[] = "1999-02-03 04:05:06";

namespace {

constexpr OrbU32 kFileTag = 0x10000;
constexpr OrbU32 kSearchTag = 0x20000;

template <typename Record>
void CopyFound(Found* found, const Record& record, const std::string& name) {
  found->attributes = record.attributes;
  found->time = Stamp(record.time);
  found->size = record.size;
  found->name = name;
}

std::string HexText(OrbU32 value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", value);
  return text;
}

}  // namespace

WideString Wide(const std::string& ascii) {
  WideString wide;
  for (const char c : ascii) wide += static_cast<OrbWideChar>(static_cast<unsigned char>(c));
  return wide;
}

std::string Narrow(const OrbWideChar* wide) {
  std::string ascii;
  for (; *wide != 0; ++wide) ascii += *wide < 0x80 ? static_cast<char>(*wide) : '?';
  return ascii;
}

// ---- Outcomes -------------------------------------------------------------------------------------------------------

bool operator==(const Outcome& a, const Outcome& b) { return a.value == b.value && a.code == b.code; }

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "result " << HexText(outcome.value) << ", error " << HexText(outcome.code);
}

Outcome Succeeded(OrbU32 value) { return {value, ORB_ERROR_NONE}; }

Outcome Failed(OrbU32 code, OrbU32 value) { return {value, code}; }

// ---- Both forms -----------------------------------------------------------------------------------------------------

const Form kAnsiForm = {
    "Ansi",
    [](const char* volume, OrbU32* bitmapBytes, OrbU32* blockSize) {
      return OrbGetVolumeInfoA(volume, bitmapBytes, blockSize);
    },
    [](const char* volume) { return OrbUnmountVolumeA(volume); },
    [](const char* path, OrbU32 attributes) { return OrbCreateFileA(path, attributes); },
    [](const char* path) { return OrbCreateDirectoryA(path); },
    [](const char* source, const char* target) { return OrbCopyFileA(source, target); },
    [](const char* source, const char* target) { return OrbMoveFileA(source, target); },
    [](const char* path, const char* newName) { return OrbRenameFileA(path, newName); },
    [](const char* path) { return OrbDeleteFileA(path); },
    [](const char* path) { return OrbGetFileAttributesA(path); },
    [](const char* path, OrbI32 attributes) { return OrbSetFileAttributesA(path, attributes); },
    [](const char* path, OrbU32 mode) { return OrbOpenFileA(path, mode); },
    [](std::string* path) {
      char buffer[ORB_PATH_BUFFER + 1] = "left as it was";
      const OrbBool done = OrbGetCurrentDirectoryA(buffer);
      *path = buffer;
      return done;
    },
    [](const char* path) { return OrbSetCurrentDirectoryA(path); },
    [](std::string* full, const char* path) {
      char buffer[ORB_PATH_BUFFER + 1] = "left as it was";
      const OrbBool done = OrbGetFullPathNameA(buffer, path);
      *full = buffer;
      return done;
    },
    [](const char* pattern, Found* found) {
      OrbFindDataA record;
      const OrbHandle search = OrbFindFirstFileA(pattern, &record);
      if (search != ORB_INVALID_HANDLE) CopyFound(found, record, record.name);
      return search;
    },
    [](OrbHandle search, Found* found) {
      OrbFindDataA record;
      const OrbBool done = OrbFindNextFileA(search, &record);
      if (done != 0) CopyFound(found, record, record.name);
      return done;
    },
};

const Form kWideForm = {
    "Wide",
    [](const char* volume, OrbU32* bitmapBytes, OrbU32* blockSize) {
      return OrbGetVolumeInfoW(Wide(volume).c_str(), bitmapBytes, blockSize);
    },
    [](const char* volume) { return OrbUnmountVolumeW(Wide(volume).c_str()); },
    [](const char* path, OrbU32 attributes) { return OrbCreateFileW(Wide(path).c_str(), attributes); },
    [](const char* path) { return OrbCreateDirectoryW(Wide(path).c_str()); },
    [](const char* source, const char* target) { return OrbCopyFileW(Wide(source).c_str(), Wide(target).c_str()); },
    [](const char* source, const char* target) { return OrbMoveFileW(Wide(source).c_str(), Wide(target).c_str()); },
    [](const char* path, const char* newName) { return OrbRenameFileW(Wide(path).c_str(), Wide(newName).c_str()); },
    [](const char* path) { return OrbDeleteFileW(Wide(path).c_str()); },
    [](const char* path) { return OrbGetFileAttributesW(Wide(path).c_str()); },
    [](const char* path, OrbI32 attributes) { return OrbSetFileAttributesW(Wide(path).c_str(), attributes); },
    [](const char* path, OrbU32 mode) { return OrbOpenFileW(Wide(path).c_str(), mode); },
    [](std::string* path) {
      OrbWideChar buffer[ORB_WIDE_PATH_BUFFER] = {};
      const OrbBool done = OrbGetCurrentDirectoryW(buffer);
      *path = Narrow(buffer);
      return done;
    },
    [](const char* path) { return OrbSetCurrentDirectoryW(Wide(path).c_str()); },
    [](std::string* full, const char* path) {
      OrbWideChar buffer[ORB_WIDE_PATH_BUFFER] = {};
      const OrbBool done = OrbGetFullPathNameW(buffer, Wide(path).c_str());
      *full = Narrow(buffer);
      return done;
    },
    [](const char* pattern, Found* found) {
      OrbFindDataW record;
      const OrbHandle search = OrbFindFirstFileW(Wide(pattern).c_str(), &record);
      if (search != ORB_INVALID_HANDLE) CopyFound(found, record, Narrow(record.name));
      return search;
    },
    [](OrbHandle search, Found* found) {
      OrbFindDataW record;
      const OrbBool done = OrbFindNextFileW(search, &record);
      if (done != 0) CopyFound(found, record, Narrow(record.name));
      return done;
    },
};

void ExpectEveryPathCallToFail(const Form& orb, const std::string& path, OrbU32 code) {
  SCOPED_TRACE(path);
  const char* const text = path.c_str();
  std::string full;
  Found found;
  EXPECT_EQ(Ended(orb.createFile(text, 0)), Failed(code));
  EXPECT_EQ(Ended(orb.createDirectory(text)), Failed(code));
  EXPECT_EQ(Ended(orb.copyFile(text, "X")), Failed(code));
  EXPECT_EQ(Ended(orb.moveFile(text, "X")), Failed(code));
  EXPECT_EQ(Ended(orb.renameFile(text, "X")), Failed(code));
  EXPECT_EQ(Ended(orb.deleteFile(text)), Failed(code));
  EXPECT_EQ(Ended(orb.getFileAttributes(text)), Failed(code, ORB_INVALID_ATTRIBUTES));
  EXPECT_EQ(Ended(orb.setFileAttributes(text, 1)), Failed(code));
  EXPECT_EQ(Ended(orb.openFile(text, ORB_OPEN_READ)), Failed(code, ORB_INVALID_HANDLE));
  EXPECT_EQ(Ended(orb.setCurrentDirectory(text)), Failed(code));
  EXPECT_EQ(Ended(orb.getFullPathName(&full, text)), Failed(code));
  EXPECT_EQ(full, "");
  EXPECT_EQ(Ended(orb.findFirstFile(text, &found)), Failed(code, ORB_INVALID_HANDLE));
}

// ---- Containers as bytes --------------------------------------------------------------------------------------------

bool FileExists(const std::string& name) { return std::ifstream(name, std::ios::binary).good(); }

Bytes ReadWhole(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  EXPECT_TRUE(file.good()) << name;
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteWhole(const std::string& name, const Bytes& bytes) {
  std::ofstream file(name, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  EXPECT_TRUE(file.good()) << name;
}

void Patch(const std::string& name, std::size_t offset, const Bytes& bytes) {
  std::fstream file(name, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  EXPECT_TRUE(file.good()) << name;
}

void PatchU16(const std::string& name, std::size_t offset, OrbU32 value) {
  Patch(name, offset, {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)});
}

void PatchU32(const std::string& name, std::size_t offset, OrbU32 value) {
  PatchU16(name, offset, value & 0xFFFF);
  PatchU16(name, offset + 2, value >> 16);
}

Image::Image(const std::string& container) : bytes_(ReadWhole(container)) {}

OrbU32 Image::U8(std::size_t offset) const {
  EXPECT_LT(offset, bytes_.size());
  return offset < bytes_.size() ? bytes_[offset] : 0;
}

OrbU32 Image::U16(std::size_t offset) const { return U8(offset) | U8(offset + 1) << 8; }

OrbU32 Image::U32(std::size_t offset) const { return U16(offset) | U16(offset + 2) << 16; }

std::string Image::Text(std::size_t offset, std::size_t length) const {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) text += static_cast<char>(U8(offset + i));
  return text;
}

bool Image::All(std::size_t offset, std::size_t length, unsigned char value) const {
  for (std::size_t i = 0; i < length; ++i) {
    if (U8(offset + i) != value) return false;
  }
  return true;
}

std::size_t Image::Block(OrbU32 block) const { return U32(36) + static_cast<std::size_t>(block - 1) * U32(40); }

std::size_t Image::Node(OrbU32 number) const {
  const OrbU32 perBlock = U32(40) / 64;
  return Block(U32(128 + 4 * ((number - 1) / perBlock))) + 64 * ((number - 1) % perBlock);
}

OrbU32 Image::Direct(OrbU32 node, OrbU32 slot) const { return U32(Node(node) + 32 + 4 * slot); }

OrbU32 Image::NodeSize(OrbU32 node) const { return U32(Node(node) + 16); }

OrbU32 Image::Blocks() const { return static_cast<OrbU32>((size() - U32(36)) / U32(40)); }

OrbU32 Image::FreeBlocks() const {
  OrbU32 free = 0;
  for (OrbU32 record = U32(48); record != 0; record = U32(Block(record) + 4)) free += 1 + U32(Block(record) + 8);
  return free;
}

// ---- Data -----------------------------------------------------------------------------------------------------------

OrbU32 Random::Next() {
  state_ = state_ * 1664525u + 1013904223u;
  return state_ >> 8;  // the low bits of such a sequence are hardly random
}

Bytes Pattern(OrbU32 seed, std::size_t size) {
  Random random(seed);
  Bytes bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random.Next());
  return bytes;
}

std::string Stamp(const OrbTime& time) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

std::string Now() {
  OrbTime now = {};
  OrbGetTime(&now);
  return Stamp(now);
}

// ---- Fixtures -------------------------------------------------------------------------------------------------------

void ApiTest::SetUp() {
  for (const char* container : {kFirst, kSecond, kThird}) std::remove(container);
}

void ApiTest::TearDown() {
  // A current directory exists exactly while something is mounted; the full name of its root is the volume's.
  for (int volumes = 0; volumes < 8 && OrbSetCurrentDirectoryA("/") != 0; ++volumes) {
    char root[ORB_PATH_BUFFER] = "";
    EXPECT_EQ(Ended(OrbGetCurrentDirectoryA(root)), Succeeded());
    const std::string volume = std::string(root).substr(0, std::string(root).find(':'));
    EXPECT_EQ(Ended(OrbUnmountVolumeA(volume.c_str())), Succeeded()) << volume;
  }
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_NOT_MOUNTED);
  for (OrbU32 slot = 0; slot < ORB_MAX_OPEN_FILES; ++slot) {
    EXPECT_EQ(Ended(OrbCloseFile(kFileTag | slot)), Failed(ORB_ERROR_INVALID_HANDLE)) << "left open: file " << slot;
  }
  for (OrbU32 slot = 0; slot < ORB_MAX_SEARCHES; ++slot) {
    EXPECT_EQ(Ended(OrbFindClose(kSearchTag | slot)), Failed(ORB_ERROR_INVALID_HANDLE)) << "left open: search " << slot;
  }
  for (const char* container : {kFirst, kSecond, kThird}) std::remove(container);
}

Outcome ApiTest::TryFormat(const char* container, OrbU32 bitmapBytes, OrbU32 blockSize) {
  return Ended(OrbCreateVolumeEx(Wide(container).c_str(), bitmapBytes, blockSize));
}

Outcome ApiTest::TryMount(const char* container, const char* volume) {
  return Ended(OrbMountVolume(Wide(container).c_str(), Wide(volume).c_str()));
}

void ApiTest::Format(const char* container, OrbU32 bitmapBytes, OrbU32 blockSize) {
  EXPECT_EQ(TryFormat(container, bitmapBytes, blockSize), Succeeded()) << container;
}

void ApiTest::Mount(const char* container, const char* volume) {
  EXPECT_EQ(TryMount(container, volume), Succeeded()) << container;
}

void ApiTest::Unmount(const char* volume) { EXPECT_EQ(Ended(OrbUnmountVolumeA(volume)), Succeeded()) << volume; }

void ApiTest::FormatAndMount(const char* container, OrbU32 bitmapBytes, OrbU32 blockSize, const char* volume) {
  Format(container, bitmapBytes, blockSize);
  Mount(container, volume);
}

Image ApiTest::Look(const char* container, const char* volume) {
  Unmount(volume);
  Image image(container);
  Mount(container, volume);
  return image;
}

void ApiTest::MakeFile(const std::string& path, const Bytes& contents) {
  EXPECT_EQ(Ended(OrbCreateFileA(path.c_str(), 0)), Succeeded()) << path;
  if (contents.empty()) return;
  const OrbHandle file = Open(path, ORB_OPEN_WRITE);
  WriteAt(file, 0, contents);
  Close(file);
}

OrbHandle ApiTest::Open(const std::string& path, OrbU32 mode) {
  const OrbHandle file = OrbOpenFileA(path.c_str(), mode);
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_NONE) << path;
  EXPECT_EQ(file & 0xFFFFFF80u, kFileTag) << path;
  return file;
}

void ApiTest::Close(OrbHandle file) { EXPECT_EQ(Ended(OrbCloseFile(file)), Succeeded()); }

Bytes ApiTest::Contents(const std::string& path) {
  const OrbHandle file = Open(path, ORB_OPEN_READ);
  const Bytes bytes = ReadAt(file, 0, OrbGetFileSize(file));
  Close(file);
  return bytes;
}

Bytes ApiTest::ReadAt(OrbHandle file, OrbU32 position, OrbU32 count) {
  EXPECT_EQ(Ended(OrbSetFilePointer(file, static_cast<OrbI32>(position), ORB_SEEK_BEGIN)), Succeeded(position));
  Bytes bytes(count);
  OrbU32 done = 0;
  EXPECT_EQ(Ended(OrbReadFile(file, bytes.data(), count, &done)), Succeeded());
  EXPECT_EQ(done, count);
  return bytes;
}

void ApiTest::WriteAt(OrbHandle file, OrbU32 position, const Bytes& bytes) {
  EXPECT_EQ(Ended(OrbSetFilePointer(file, static_cast<OrbI32>(position), ORB_SEEK_BEGIN)), Succeeded(position));
  OrbU32 done = 0;
  EXPECT_EQ(Ended(OrbWriteFile(file, bytes.data(), static_cast<OrbU32>(bytes.size()), &done)), Succeeded());
  EXPECT_EQ(done, bytes.size());
}

std::vector<std::string> ApiTest::List(const std::string& pattern) {
  std::vector<std::string> names;
  OrbFindDataA found;
  const OrbHandle search = OrbFindFirstFileA(pattern.c_str(), &found);
  if (search != ORB_INVALID_HANDLE) {
    do names.push_back(found.name);
    while (OrbFindNextFileA(search, &found) != 0);
  }
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_NO_MORE_ENTRIES) << pattern;
  if (search != ORB_INVALID_HANDLE) {
    EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  }
  return names;
}

Found ApiTest::Find(const std::string& pattern) {
  Found found = {};
  const OrbHandle search = kAnsiForm.findFirstFile(pattern.c_str(), &found);
  EXPECT_EQ(OrbGetLastError(), ORB_ERROR_NONE) << pattern;
  if (search != ORB_INVALID_HANDLE) {
    EXPECT_EQ(Ended(OrbFindClose(search)), Succeeded());
  }
  return found;
}

void ApiTest::MakeOld(const char* container, OrbU32 node) {
  Patch(container, Image(container).Node(node) + 8, {1999 & 0xFF, 1999 >> 8, 2, 3, 4, 5, 6});
}

std::ostream& operator<<(std::ostream& out, const Variant& variant) {
  return out << variant.form->name << (variant.container == kMemory ? " in memory" : " on the host");
}

std::vector<Variant> EveryVariant() {
  return {{&kAnsiForm, kFirst}, {&kWideForm, kFirst}, {&kAnsiForm, kMemory}, {&kWideForm, kMemory}};
}

std::vector<Variant> EveryFormOnHost() { return {{&kAnsiForm, kFirst}, {&kWideForm, kFirst}}; }

std::string VariantName(const ::testing::TestParamInfo<Variant>& info) {
  return std::string(info.param.form->name) + (info.param.container == kMemory ? "InMemory" : "OnHost");
}

void VolumeTest::SetUp() {
  ApiTest::SetUp();
  orb = GetParam().form;
  FormatAndMount(container(), kBitmap, kBlock, "VOL");
}

}  // namespace api

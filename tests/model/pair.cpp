#include "tests/model/pair.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "inspect/check/check.h"
#include "tests/model/host.h"
#include "tools/orba/host_image.h"

namespace model {

namespace {

constexpr std::uint64_t kStart = 1709157600;  // 28 February 2024, 22:00: a leap day is near
constexpr std::uint64_t kStep = 61;

constexpr std::uint32_t kWholeUpTo = 1 << 20;
constexpr std::uint32_t kWindow = 300 << 10;  // more than the longest write

// The characters in use are the same in the ANSI code page and in 16 bits.
std::basic_string<OrbWideChar> Wide(const std::string& text) {
  std::basic_string<OrbWideChar> wide;
  for (const char c : text) wide += static_cast<OrbWideChar>(static_cast<unsigned char>(c));
  return wide;
}

std::string Narrow(const OrbWideChar* wide) {
  std::string text;
  for (; *wide != 0; ++wide) text += static_cast<char>(*wide);
  return text;
}

std::string Text(const OrbTime& time) {
  char text[80];
  std::snprintf(text, sizeof text, "%u-%02u-%02u %02u:%02u:%02u", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

std::string Text(std::uint64_t seconds) {
  const time_t time = static_cast<time_t>(seconds);
  tm utc;
  gmtime_r(&time, &utc);
  char text[80];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
  return text;
}

bool Same(const OrbTime& time, std::uint64_t seconds) {
  const time_t wanted = static_cast<time_t>(seconds);
  tm utc;
  gmtime_r(&wanted, &utc);
  return time.year == utc.tm_year + 1900 && time.month == utc.tm_mon + 1 && time.day == utc.tm_mday &&
         time.hour == utc.tm_hour && time.minute == utc.tm_min && time.second == utc.tm_sec;
}

Bytes Pattern(std::uint32_t seed, std::uint32_t count) {
  Bytes bytes(count);
  for (std::uint32_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>((seed + i) * 2654435761u >> 24);
  return bytes;
}

std::uint32_t Bool(OrbBool result) { return static_cast<std::uint32_t>(result); }

// Of a file of the host; -1 where there is none.
std::int64_t HostSize(const std::string& name) {
  struct stat status;
  return stat(name.c_str(), &status) == 0 ? static_cast<std::int64_t>(status.st_size) : -1;
}

}  // namespace

// ---- Comparing ------------------------------------------------------------------------------------------------------

void Pair::Expect(bool same, const std::string& what) {
  if (!same && difference.empty()) difference = where_ + what;
}

void Pair::Compare(const Result& expected, std::uint32_t value) {
  last_ = expected;
  const std::uint32_t code = OrbGetLastError();
  if (value == expected.value && code == expected.code) return;
  char text[160];
  std::snprintf(text, sizeof text, "result 0x%X, code 0x%08X; expected 0x%X, 0x%08X", value, code, expected.value,
                expected.code);
  Expect(false, text);
}

void Pair::CompareFound(const Result& expected, std::uint32_t value, const Found& want, bool wide,
                        const OrbFindDataA& a, const OrbFindDataW& w) {
  Compare(expected, value);
  if (expected.code != 0 || !difference.empty()) return;
  const std::string name = wide ? Narrow(w.name) : a.name;
  const std::uint32_t size = wide ? w.size : a.size;
  const std::uint32_t attributes = wide ? w.attributes : a.attributes;
  const OrbTime& time = wide ? w.time : a.time;
  if (name != want.name) Expect(false, "found \"" + name + "\", expected \"" + want.name + "\"");
  if (size != want.size) {
    Expect(false, "size of " + name + ": " + std::to_string(size) + ", expected " + std::to_string(want.size));
  }
  if (attributes != want.attributes) {
    Expect(false, "attributes of " + name + ": " + std::to_string(attributes) + ", expected " +
                      std::to_string(want.attributes));
  }
  if (!Same(time, want.stamp)) Expect(false, "time of " + name + ": " + Text(time) + ", expected " + Text(want.stamp));
}

// ---- One call on both sides -----------------------------------------------------------------------------------------

void Pair::Perform(const Call& c) {
  model_.now += kStep;
  SetClock(model_.now);
  switch (c.op) {
    case Op::kSeek:
      return Compare(model_.Seek(c.x, static_cast<std::int32_t>(c.y), c.z),
                     OrbSetFilePointer(c.x, static_cast<OrbI32>(c.y), c.z));
    case Op::kRead:
    case Op::kWrite:
      return PerformTransfer(c);
    case Op::kSetSize:
      return Compare(model_.SetSize(c.x, c.y), Bool(OrbSetFileSize(c.x, c.y)));
    case Op::kGetSize:
      return Compare(model_.GetSize(c.x), OrbGetFileSize(c.x));
    case Op::kFlush:
    case Op::kClose:
      return PerformFlush(c);
    case Op::kFindNext: {
      Found want;
      OrbFindDataA foundA;
      OrbFindDataW foundW;
      const Result expected = model_.FindNext(c.x, &want);
      const OrbBool got = c.wide ? OrbFindNextFileW(c.x, &foundW) : OrbFindNextFileA(c.x, &foundA);
      return CompareFound(expected, Bool(got), want, c.wide, foundA, foundW);
    }
    case Op::kFindClose:
      return Compare(model_.FindClose(c.x), Bool(OrbFindClose(c.x)));
    case Op::kNull:
      return PerformNull(c);
    case Op::kErrorState:
      return PerformErrorState(c);
    case Op::kFormat:
    case Op::kMount:
    case Op::kUnmount:
    case Op::kInfo:
      return PerformVolume(c);
    case Op::kFindFirst:
      return PerformFindFirst(c);
    case Op::kGetCurrent:
    case Op::kFullPath:
      return PerformFullPath(c);
    default:
      return PerformPath(c);
  }
}

// Both make the volume durable. Where nothing was written since, the host need not be asked.
void Pair::PerformFlush(const Call& c) {
  const std::uint64_t before = Syncs();
  const int node = model_.NodeOf(c.x);
  const std::string container =
      node == 0 ? ""
                : ContainerName(static_cast<int>(&std::as_const(model_).VolumeOf(node) - model_.Containers().data()));
  const bool unsynced = HasUnsyncedWrites(container);
  if (c.op == Op::kFlush) {
    Compare(model_.Flush(c.x), Bool(OrbFlushFileBuffers(c.x)));
  } else {
    Compare(model_.Close(c.x), Bool(OrbCloseFile(c.x)));
  }
  Expect(Syncs() - before <= last_.value && (Syncs() - before == 1 || !unsynced || last_.value == 0),
         "made durable " + std::to_string(Syncs() - before) + " times");
  Expect(last_.value == 0 || !HasUnsyncedWrites(container), "left something to be made durable");
}

void Pair::PerformVolume(const Call& c) {
  const auto wa = Wide(c.a);
  const int number = static_cast<int>(c.x);
  switch (c.op) {
    case Op::kFormat: {
      const std::string name = c.a + ContainerName(number);
      const Sizes sizes = kFormats[c.y];
      const std::int64_t before = HostSize(name);
      const Result expected = model_.Format(number, sizes.bitmapBytes, sizes.blockSize, c.a.empty());
      Compare(expected, Bool(c.y == 0 ? OrbCreateVolume(Wide(name).c_str())
                                      : OrbCreateVolumeEx(Wide(name).c_str(), sizes.bitmapBytes, sizes.blockSize)));
      const std::int64_t after = expected.value == 1 ? 1024 + sizes.bitmapBytes + 2 * sizes.blockSize : before;
      return Expect(HostSize(name) == after, "size of " + name + ": " + std::to_string(HostSize(name)));
    }
    case Op::kMount:
      return Compare(model_.Mount(number, c.a), Bool(OrbMountVolume(Wide(ContainerName(number)).c_str(), wa.c_str())));
    case Op::kUnmount:
      return Compare(model_.Unmount(c.a),
                     Bool(c.wide ? OrbUnmountVolumeW(wa.c_str()) : OrbUnmountVolumeA(c.a.c_str())));
    default: {
      std::uint32_t bitmap = 7, block = 8;
      OrbU32 gotBitmap = bitmap, gotBlock = block;
      OrbU32* const toBitmap = (c.y & 1) != 0 ? nullptr : &gotBitmap;
      OrbU32* const toBlock = (c.y & 2) != 0 ? nullptr : &gotBlock;
      Compare(model_.VolumeInfo(c.a, toBitmap != nullptr ? &bitmap : nullptr, toBlock != nullptr ? &block : nullptr),
              Bool(c.wide ? OrbGetVolumeInfoW(wa.c_str(), toBitmap, toBlock)
                          : OrbGetVolumeInfoA(c.a.c_str(), toBitmap, toBlock)));
      Expect(gotBitmap == bitmap, "bitmap size " + std::to_string(gotBitmap) + ", expected " + std::to_string(bitmap));
      return Expect(gotBlock == block,
                    "block size " + std::to_string(gotBlock) + ", expected " + std::to_string(block));
    }
  }
}

void Pair::PerformPath(const Call& c) {
  const char* const a = c.a.c_str();
  const char* const b = c.b.c_str();
  const auto wa = Wide(c.a), wb = Wide(c.b);
  switch (c.op) {
    case Op::kCreate:
      return Compare(model_.Create(c.a, c.x), Bool(c.wide ? OrbCreateFileW(wa.c_str(), c.x) : OrbCreateFileA(a, c.x)));
    case Op::kMakeDirectory:
      return Compare(model_.Create(c.a, 8), Bool(c.wide ? OrbCreateDirectoryW(wa.c_str()) : OrbCreateDirectoryA(a)));
    case Op::kCopy:
      return Compare(model_.Copy(c.a, c.b), Bool(c.wide ? OrbCopyFileW(wa.c_str(), wb.c_str()) : OrbCopyFileA(a, b)));
    case Op::kMove:
      return Compare(model_.Move(c.a, c.b), Bool(c.wide ? OrbMoveFileW(wa.c_str(), wb.c_str()) : OrbMoveFileA(a, b)));
    case Op::kRename:
      return Compare(model_.Rename(c.a, c.b),
                     Bool(c.wide ? OrbRenameFileW(wa.c_str(), wb.c_str()) : OrbRenameFileA(a, b)));
    case Op::kDelete:
      return Compare(model_.Delete(c.a), Bool(c.wide ? OrbDeleteFileW(wa.c_str()) : OrbDeleteFileA(a)));
    case Op::kGetAttributes:
      return Compare(model_.GetAttributes(c.a), c.wide ? OrbGetFileAttributesW(wa.c_str()) : OrbGetFileAttributesA(a));
    case Op::kSetAttributes: {
      const OrbI32 attributes = static_cast<OrbI32>(c.x);
      return Compare(model_.SetAttributes(c.a, attributes), Bool(c.wide ? OrbSetFileAttributesW(wa.c_str(), attributes)
                                                                        : OrbSetFileAttributesA(a, attributes)));
    }
    case Op::kOpen:
      return Compare(model_.Open(c.a, c.x), c.wide ? OrbOpenFileW(wa.c_str(), c.x) : OrbOpenFileA(a, c.x));
    default:
      return Compare(model_.SetCurrentDirectory(c.a),
                     Bool(c.wide ? OrbSetCurrentDirectoryW(wa.c_str()) : OrbSetCurrentDirectoryA(a)));
  }
}

void Pair::PerformFullPath(const Call& c) {
  std::string expected;
  const bool current = c.op == Op::kGetCurrent;
  const Result result = model_.FullPath(current ? "." : c.a, &expected);
  char out[ORB_PATH_BUFFER] = "?";
  OrbWideChar wideOut[ORB_WIDE_PATH_BUFFER] = {0};
  if (c.wide) {
    const auto wa = Wide(c.a);
    Compare(result, Bool(current ? OrbGetCurrentDirectoryW(wideOut) : OrbGetFullPathNameW(wideOut, wa.c_str())));
  } else {
    Compare(result, Bool(current ? OrbGetCurrentDirectoryA(out) : OrbGetFullPathNameA(out, c.a.c_str())));
  }
  const std::string got = c.wide ? Narrow(wideOut) : out;
  Expect(got == expected, "path \"" + got + "\", expected \"" + expected + "\"");
}

void Pair::PerformFindFirst(const Call& c) {
  Found want;
  OrbFindDataA foundA;
  OrbFindDataW foundW;
  const Result expected = model_.FindFirst(c.a, &want);
  const OrbHandle got =
      c.wide ? OrbFindFirstFileW(Wide(c.a).c_str(), &foundW) : OrbFindFirstFileA(c.a.c_str(), &foundA);
  CompareFound(expected, got, want, c.wide, foundA, foundW);
}

void Pair::PerformTransfer(const Call& c) {
  OrbU32 done = 99;
  if (c.op == Op::kRead) {
    Bytes expected, got(c.y);
    const Result result = model_.Read(c.x, c.y, &expected);
    Compare(result, Bool(OrbReadFile(c.x, got.data(), c.y, &done)));
    Expect(done == expected.size(),
           "bytes read: " + std::to_string(done) + ", expected " + std::to_string(expected.size()));
    if (!difference.empty()) return;
    const auto places = std::mismatch(expected.begin(), expected.end(), got.begin());
    if (places.first == expected.end()) return;
    return Expect(false, "byte " + std::to_string(places.first - expected.begin()) + " of those read is " +
                             std::to_string(*places.second) + ", expected " + std::to_string(*places.first));
  }
  const Bytes bytes = Pattern(c.x + static_cast<std::uint32_t>(model_.now), c.y);
  std::uint32_t expected = 0;
  const Result result = model_.Write(c.x, bytes, &expected);
  Compare(result, Bool(OrbWriteFile(c.x, bytes.data(), c.y, &done)));
  Expect(done == expected, "bytes written: " + std::to_string(done) + ", expected " + std::to_string(expected));
}

// A null pointer in each place that takes one, in turn.
void Pair::PerformNull(const Call& c) {
  OrbU32 done = 7;
  OrbFindDataA found;
  char out[ORB_PATH_BUFFER];
  OrbWideChar wideOut[ORB_WIDE_PATH_BUFFER];
  const std::function<std::uint32_t()> calls[] = {
      [] { return Bool(OrbCreateVolume(nullptr)); },
      [] { return Bool(OrbMountVolume(nullptr, nullptr)); },
      [] { return Bool(OrbGetVolumeInfoA(nullptr, nullptr, nullptr)); },
      [] { return Bool(OrbUnmountVolumeW(nullptr)); },
      [] { return Bool(OrbCreateFileA(nullptr, 0)); },
      [] { return Bool(OrbCopyFileA("/", nullptr)); },
      [] { return Bool(OrbMoveFileW(nullptr, nullptr)); },
      [] { return Bool(OrbRenameFileA("/", nullptr)); },
      [] { return Bool(OrbDeleteFileW(nullptr)); },
      [] { return OrbGetFileAttributesW(nullptr); },
      [] { return Bool(OrbSetFileAttributesA(nullptr, 0)); },
      [] { return OrbOpenFileW(nullptr, 1); },
      [&] { return Bool(OrbReadFile(c.x, nullptr, 5, &done)); },
      [&] { return Bool(OrbWriteFile(c.x, nullptr, 5, &done)); },
      [&] { return Bool(OrbReadFile(c.x, out, 5, nullptr)); },
      [] { return Bool(OrbGetCurrentDirectoryA(nullptr)); },
      [] { return Bool(OrbSetCurrentDirectoryA(nullptr)); },
      [&] { return Bool(OrbGetFullPathNameA(out, nullptr)); },
      [&] { return Bool(OrbGetFullPathNameW(wideOut, nullptr)); },
      [] { return OrbFindFirstFileW(nullptr, nullptr); },
      [&] { return Bool(OrbFindNextFileA(c.x, nullptr)); },
      [&] { return OrbFindFirstFileA(nullptr, &found) == ORB_INVALID_HANDLE ? 0u : 1u; },
      [] { return OrbOpenFileA(nullptr, 1) == ORB_INVALID_HANDLE ? 0u : 1u; },
      [] { return OrbGetFileAttributesA(nullptr) == ORB_INVALID_ATTRIBUTES ? 0u : 1u; },
  };
  Compare({0, ORB_ERROR_INVALID_ARGUMENT}, calls[c.y % (sizeof calls / sizeof calls[0])]());
}

void Pair::PerformErrorState(const Call& c) {
  _OrbSetError(c.x);
  Compare({0, c.x}, 0);
  std::uint32_t word = c.y;
  OrbConvertEndian(&word, 4);
  Compare({c.y, 0}, word);
  _OrbSetError(c.x);
  _OrbCrearError();
  Compare({0, 0}, 0);
  OrbTime time;
  OrbGetTime(&time);
  Compare({0, 0}, 0);
  Expect(Same(time, model_.now), "the time is " + Text(time) + ", expected " + Text(model_.now));
}

// ---- Looking at what a call did -------------------------------------------------------------------------------------

// Asked before the call and after it: a name may lead elsewhere then.
std::vector<int> Pair::DirectoriesOf(const Call& c) const {
  switch (c.op) {
    case Op::kFormat:
    case Op::kGetCurrent:
    case Op::kNull:
    case Op::kErrorState:
      return {};
    case Op::kMount:
    case Op::kUnmount:
    case Op::kInfo:
      return {model_.RootOf(c.a)};
    case Op::kCreate:
    case Op::kMakeDirectory:
    case Op::kSetCurrent:
    case Op::kFindFirst:
      return {model_.DirectoryOf(c.a), model_.DirectoryOf(c.a + "/x")};
    case Op::kCopy:
      return {model_.DirectoryOf(c.a), model_.DirectoryOf(c.b)};
    case Op::kMove:
      return {model_.DirectoryOf(c.a), model_.DirectoryOf(c.b), model_.DirectoryOf(c.b + "/x")};
    case Op::kFindNext:
    case Op::kFindClose:
      return {c.x >> 16 == 2 ? model_.NodeOf(c.x) : 0};
    case Op::kSeek:
    case Op::kRead:
    case Op::kWrite:
    case Op::kSetSize:
    case Op::kGetSize:
    case Op::kFlush:
    case Op::kClose: {
      const int node = model_.NodeOf(c.x);
      return {node != 0 ? model_.ParentOf(node) : 0};
    }
    default:
      return {model_.DirectoryOf(c.a)};
  }
}

// The file whose bytes a call may have changed.
int Pair::FileOf(const Call& c) const {
  if (c.op == Op::kWrite || c.op == Op::kSetSize) return c.x >> 16 == 1 ? model_.NodeOf(c.x) : 0;
  return c.op == Op::kCopy && last_.value == 1 ? model_.FileAt(c.b) : 0;
}

void Pair::Run(const Call& c) {
  where_.clear();
  std::vector<int> directories = DirectoriesOf(c);
  Perform(c);
  const Result result = last_;
  const int file = FileOf(c);
  const std::vector<int> after = DirectoriesOf(c);
  directories.insert(directories.end(), after.begin(), after.end());
  std::sort(directories.begin(), directories.end());
  directories.erase(std::unique(directories.begin(), directories.end()), directories.end());
  bool listed = false;
  for (const int directory : directories) {
    std::string path;
    if (directory == 0 || !model_.PathOf(directory, &path)) continue;
    List(directory, c.wide);
    listed = true;
  }
  if (!listed) ListPath("./", c.wide);
  if (file != 0) CompareBytes(file);
  if (c.op == Op::kMount && result.value == 1) Walk(model_.RootOf(c.a));
}

void Pair::List(int directory, bool wide) {
  std::string path;
  if (!model_.PathOf(directory, &path)) return;
  ListPath(path.back() == '/' ? path : path + "/", wide);
}

void Pair::ListPath(const std::string& path, bool wide) {
  if (!difference.empty()) return;
  where_ = "afterwards, listing " + path + ": ";
  Perform({Op::kFindFirst, wide, path, "", 0, 0, 0});
  if (last_.code != 0) return;
  const Call next = {Op::kFindNext, wide, "", "", last_.value, 0, 0};
  while (last_.code == 0 && difference.empty()) Perform(next);
  Perform({Op::kFindClose, false, "", "", next.x, 0, 0});
}

void Pair::CompareBytes(int file) {
  std::string path;
  if (!difference.empty() || !model_.PathOf(file, &path)) return;
  where_ = "afterwards, reading " + path + ": ";
  const std::uint32_t open = model_.HandleOf(file);
  if (open != ORB_INVALID_HANDLE) return CompareOpenFile(file, open);
  Perform({Op::kOpen, false, path, "", ORB_OPEN_READ, 0, 0});
  if (last_.code != 0) return;
  const std::uint32_t handle = last_.value;
  ReadAt(handle, 0, model_.FileSize(file) + 1);
  Perform({Op::kClose, false, "", "", handle, 0, 0});
}

void Pair::CompareOpenFile(int file, std::uint32_t handle) {
  const OpenFile open = model_.Files()[handle & 0xFFFF];
  const std::uint32_t size = model_.FileSize(file);
  if ((open.mode & ORB_OPEN_READ) == 0) return CompareReopened(file, handle, open);
  Perform({Op::kSeek, false, "", "", handle, 0, ORB_SEEK_CURRENT});
  if (size <= kWholeUpTo) {
    ReadAt(handle, 0, size + 1);
  } else {
    ReadAt(handle, open.position - std::min(open.position, kWindow), kWindow);
    ReadAt(handle, size - kWindow, kWindow + 1);
  }
  Perform({Op::kSeek, false, "", "", handle, open.position, ORB_SEEK_BEGIN});
}

void Pair::CompareReopened(int file, std::uint32_t handle, const OpenFile& open) {
  std::string path;
  model_.PathOf(file, &path);
  Perform({Op::kRead, false, "", "", handle, 1, 0});  // refused
  if (model_.IsKept(file)) return;
  Perform({Op::kClose, false, "", "", handle, 0, 0});
  CompareBytes(file);
  Perform({Op::kOpen, false, path, "", open.mode, 0, 0});
  Perform({Op::kSeek, false, "", "", last_.value, open.position, ORB_SEEK_BEGIN});
}

void Pair::ReadAt(std::uint32_t handle, std::uint32_t position, std::uint32_t count) {
  if (!difference.empty()) return;
  Perform({Op::kSeek, false, "", "", handle, position, ORB_SEEK_BEGIN});
  Perform({Op::kRead, false, "", "", handle, count, 0});
}

void Pair::Walk(int root) {
  for (const int directory : model_.Tree(root, true)) List(directory, false);
  for (const int file : model_.Tree(root, false)) CompareBytes(file);
}

// ---- Beginning and end ----------------------------------------------------------------------------------------------

void Pair::Prepare() {
  model_.now = kStart;
  for (int i = 0; i < kContainerCount; ++i) std::remove(ContainerName(i).c_str());
  for (int i = 0; i < kStartCount; ++i) {
    model_.now += kStep;
    SetClock(model_.now);
    Compare(model_.Format(i, kAtStart[i].bitmapBytes, kAtStart[i].blockSize, true),
            Bool(OrbCreateVolumeEx(Wide(ContainerName(i)).c_str(), kAtStart[i].bitmapBytes, kAtStart[i].blockSize)));
  }
  const std::string full = ContainerName(kNearlyFull);
  const std::int64_t skipped = static_cast<std::int64_t>(model_.LeaveRoom(kNearlyFull, kRoomLeft));
  const std::int64_t size = HostSize(full) + skipped * kAtStart[kNearlyFull].blockSize;
  Expect(truncate(full.c_str(), size) == 0, "cannot make " + full + " so long");
  Run({Op::kMount, false, "DATA", "", 0, 0, 0});
  Run({Op::kMount, false, "LOGS", "", 1, 0, 0});
  Run({Op::kMount, false, "FULL", "", kNearlyFull, 0, 0});
}

void Pair::Finish() {
  const std::vector<Volume> volumes = model_.Containers();
  for (const Volume& volume : volumes) {
    if (!volume.name.empty()) Walk(volume.root);
  }
  for (const Volume& volume : volumes) {
    if (!volume.name.empty()) Run({Op::kUnmount, false, volume.name, "", 0, 0, 0});
  }
  for (std::uint32_t i = 0; i < ORB_MAX_SEARCHES; ++i) {
    if (model_.Searches()[i].node != 0) Run({Op::kFindClose, false, "", "", 0x20000 | i, 0, 0});
  }
  for (int i = 0; i < kContainerCount && difference.empty(); ++i) {
    if (model_.Containers()[static_cast<std::size_t>(i)].formatted) {
      Run({Op::kMount, false, "LAST", "", static_cast<std::uint32_t>(i), 0, 0});  // compares it whole
      Run({Op::kUnmount, false, "LAST", "", 0, 0, 0});
      CheckContainer(i);
    }
    std::remove(ContainerName(i).c_str());
  }
}

void Pair::CheckContainer(int number) {
  where_ = "at the end, " + ContainerName(number) + ": ";
  const auto image = orba::tool::FileImage::Open(ContainerName(number));
  Expect(image != nullptr, "does not open");
  if (!difference.empty()) return;
  const orba::inspect::Report report = orba::inspect::Check(*image);
  for (const orba::inspect::Finding& finding : report.findings) {
    const auto severity = orba::inspect::SeverityOf(finding.kind);
    const bool counted = finding.kind == orba::inspect::Kind::kBlockLeaked;
    Expect(severity == orba::inspect::Severity::kNote || counted, orba::inspect::Sentence(finding));
  }
  const std::uint64_t lost = model_.Containers()[static_cast<std::size_t>(number)].lost;
  Expect(report.totals.leakedBlocks == lost,
         std::to_string(report.totals.leakedBlocks) + " blocks lost, expected " + std::to_string(lost));
}

}  // namespace model

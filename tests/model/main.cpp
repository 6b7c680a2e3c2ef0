// Drives the library and the model side by side with random calls and compares every result, code and byte.
//
// Each sequence runs in a child process, so that it starts with a fresh library and a crash or a hang is a finding like any
// other. A sequence that fails is shortened: calls are left out as long as it still fails, and what remains is printed.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

#include "inspect/check.h"
#include "tests/model/model.h"

namespace {

using model::Bytes;
using model::Result;

enum class Op {
  kMount,
  kUnmount,
  kInfo,
  kCreate,
  kMakeDirectory,
  kCopy,
  kMove,
  kRename,
  kDelete,
  kGetAttributes,
  kSetAttributes,
  kOpen,
  kSeek,
  kRead,
  kWrite,
  kSetSize,
  kGetSize,
  kFlush,
  kClose,
  kSetCurrent,
  kGetCurrent,
  kFullPath,
  kFindFirst,
  kFindNext,
  kFindClose,
  kNull,
  kErrorState,
  kCount
};

const char* const kNames[] = {"Mount",
                              "Unmount",
                              "GetVolumeInfo",
                              "CreateFile",
                              "CreateDirectory",
                              "CopyFile",
                              "MoveFile",
                              "RenameFile",
                              "DeleteFile",
                              "GetFileAttributes",
                              "SetFileAttributes",
                              "OpenFile",
                              "SetFilePointer",
                              "ReadFile",
                              "WriteFile",
                              "SetFileSize",
                              "GetFileSize",
                              "FlushFileBuffers",
                              "CloseFile",
                              "SetCurrentDirectory",
                              "GetCurrentDirectory",
                              "GetFullPathName",
                              "FindFirstFile",
                              "FindNextFile",
                              "FindClose",
                              "null pointer",
                              "error state"};

// One call, complete: replaying it needs nothing else.
struct Call {
  Op op = Op::kNull;
  bool wide = false;
  std::string a, b;
  std::uint32_t x = 0, y = 0;
};

struct Container {
  std::uint32_t blockSize, bitmapBytes;
};
constexpr Container kContainers[] = {{1024, 16}, {2048, 2}, {4096, 32}, {1024, 0}};
constexpr int kContainerCount = 4;

std::string ContainerName(int number) { return "model-" + std::to_string(number) + ".orba"; }

// The characters in use are the same in the ANSI code page and in 16 bits.
std::basic_string<OrbWideChar> Wide(const std::string& text) {
  std::basic_string<OrbWideChar> wide;
  for (const char c : text) wide += static_cast<OrbWideChar>(static_cast<unsigned char>(c));
  return wide;
}

std::string Print(const Call& call) {
  char text[400];
  std::snprintf(text, sizeof text, "Orb%s%s(\"%s\", \"%s\", 0x%X, 0x%X)", kNames[static_cast<int>(call.op)],
                call.wide ? "W" : "", call.a.c_str(), call.b.c_str(), call.x, call.y);
  return text;
}

// ---- One call on both sides ------------------------------------------------------------------------------------------

// Throws nothing: the first difference is described and ends the sequence.
struct Pair {
  model::Model model;
  std::string difference;

  void Expect(bool same, const std::string& what) {
    if (!same && difference.empty()) difference = what;
  }

  void Compare(const Result& expected, std::uint32_t value) {
    const std::uint32_t code = OrbGetLastError();
    char text[160];
    std::snprintf(text, sizeof text, "result 0x%X, code 0x%08X; expected 0x%X, 0x%08X", value, code, expected.value,
                  expected.code);
    Expect(value == expected.value && code == expected.code, text);
  }

  void CompareFound(const Result& expected, std::uint32_t value, const model::Found& want, bool wide,
                    const OrbFindDataA& a, const OrbFindDataW& w) {
    Compare(expected, value);
    if (expected.code != 0) return;
    std::string name;
    if (wide) {
      for (int i = 0; w.name[i] != 0; ++i) name += static_cast<char>(w.name[i]);
    } else {
      name = a.name;
    }
    Expect(name == want.name, "found \"" + name + "\", expected \"" + want.name + "\"");
    Expect((wide ? w.size : a.size) == want.size, "size of " + name);
    Expect((wide ? w.attributes : a.attributes) == want.attributes, "attributes of " + name);
  }

  void Run(const Call& call);
  void RunPath(const Call& call);
  void RunTransfer(const Call& call);
  void RunNull(const Call& call);
};

Bytes Pattern(std::uint32_t seed, std::uint32_t count) {
  Bytes bytes(count);
  for (std::uint32_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>((seed + i) * 2654435761u >> 24);
  return bytes;
}

std::uint32_t Bool(OrbBool result) { return static_cast<std::uint32_t>(result); }

void Pair::RunPath(const Call& c) {
  const char* const a = c.a.c_str();
  const char* const b = c.b.c_str();
  const auto wa = Wide(c.a), wb = Wide(c.b);
  switch (c.op) {
    case Op::kMount:
      return Compare(model.Mount(static_cast<int>(c.x), c.a),
                     Bool(OrbMountVolume(Wide(ContainerName(static_cast<int>(c.x))).c_str(), wa.c_str())));
    case Op::kUnmount:
      return Compare(model.Unmount(c.a), Bool(c.wide ? OrbUnmountVolumeW(wa.c_str()) : OrbUnmountVolumeA(a)));
    case Op::kInfo: {
      std::uint32_t bitmap = 0, block = 0;
      OrbU32 gotBitmap = 0, gotBlock = 0;
      const Result expected = model.VolumeInfo(c.a, &bitmap, &block);
      Compare(expected, Bool(c.wide ? OrbGetVolumeInfoW(wa.c_str(), &gotBitmap, &gotBlock)
                                    : OrbGetVolumeInfoA(a, &gotBitmap, &gotBlock)));
      return Expect(gotBlock == block, "block size");
    }
    case Op::kCreate:
      return Compare(model.Create(c.a, c.x), Bool(c.wide ? OrbCreateFileW(wa.c_str(), c.x) : OrbCreateFileA(a, c.x)));
    case Op::kMakeDirectory:
      return Compare(model.Create(c.a, 8), Bool(c.wide ? OrbCreateDirectoryW(wa.c_str()) : OrbCreateDirectoryA(a)));
    case Op::kCopy:
      return Compare(model.Copy(c.a, c.b), Bool(c.wide ? OrbCopyFileW(wa.c_str(), wb.c_str()) : OrbCopyFileA(a, b)));
    case Op::kMove:
      return Compare(model.Move(c.a, c.b), Bool(c.wide ? OrbMoveFileW(wa.c_str(), wb.c_str()) : OrbMoveFileA(a, b)));
    case Op::kRename:
      return Compare(model.Rename(c.a, c.b),
                     Bool(c.wide ? OrbRenameFileW(wa.c_str(), wb.c_str()) : OrbRenameFileA(a, b)));
    case Op::kDelete:
      return Compare(model.Delete(c.a), Bool(c.wide ? OrbDeleteFileW(wa.c_str()) : OrbDeleteFileA(a)));
    case Op::kGetAttributes:
      return Compare(model.GetAttributes(c.a), c.wide ? OrbGetFileAttributesW(wa.c_str()) : OrbGetFileAttributesA(a));
    case Op::kSetAttributes: {
      const OrbI32 attributes = static_cast<OrbI32>(c.x);
      return Compare(model.SetAttributes(c.a, attributes), Bool(c.wide ? OrbSetFileAttributesW(wa.c_str(), attributes)
                                                                       : OrbSetFileAttributesA(a, attributes)));
    }
    case Op::kOpen:
      return Compare(model.Open(c.a, c.x), c.wide ? OrbOpenFileW(wa.c_str(), c.x) : OrbOpenFileA(a, c.x));
    case Op::kSetCurrent:
      return Compare(model.SetCurrentDirectory(c.a),
                     Bool(c.wide ? OrbSetCurrentDirectoryW(wa.c_str()) : OrbSetCurrentDirectoryA(a)));
    case Op::kGetCurrent:
    case Op::kFullPath: {
      std::string expected;
      const bool current = c.op == Op::kGetCurrent;
      const Result result = model.FullPath(current ? "." : c.a, &expected);
      char out[ORB_PATH_BUFFER] = "?";
      OrbWideChar wideOut[ORB_WIDE_PATH_BUFFER] = {0};
      std::string got;
      if (c.wide) {
        Compare(result, Bool(current ? OrbGetCurrentDirectoryW(wideOut) : OrbGetFullPathNameW(wideOut, wa.c_str())));
        for (int i = 0; wideOut[i] != 0; ++i) got += static_cast<char>(wideOut[i]);
      } else {
        Compare(result, Bool(current ? OrbGetCurrentDirectoryA(out) : OrbGetFullPathNameA(out, a)));
        got = out;
      }
      return Expect(got == expected, "path \"" + got + "\", expected \"" + expected + "\"");
    }
    default: {
      model::Found want;
      OrbFindDataA foundA;
      OrbFindDataW foundW;
      const Result expected = model.FindFirst(c.a, &want);
      const OrbHandle got = c.wide ? OrbFindFirstFileW(wa.c_str(), &foundW) : OrbFindFirstFileA(a, &foundA);
      return CompareFound(expected, got, want, c.wide, foundA, foundW);
    }
  }
}

void Pair::RunTransfer(const Call& c) {
  OrbU32 done = 99;
  if (c.op == Op::kRead) {
    Bytes expected, got(c.y);
    const Result result = model.Read(c.x, c.y, &expected);
    Compare(result, Bool(OrbReadFile(c.x, got.data(), c.y, &done)));
    Expect(done == expected.size(), "bytes read: " + std::to_string(done));
    got.resize(done);
    return Expect(got == expected, "bytes read differ");
  }
  const Bytes bytes = Pattern(c.x, c.y);
  std::uint32_t expected = 0;
  const Result result = model.Write(c.x, bytes, &expected);
  Compare(result, Bool(OrbWriteFile(c.x, bytes.data(), c.y, &done)));
  Expect(done == expected, "bytes written: " + std::to_string(done));
}

// A null pointer in each place that takes one, in turn.
void Pair::RunNull(const Call& c) {
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

void Pair::Run(const Call& c) {
  switch (c.op) {
    case Op::kSeek:
      return Compare(model.Seek(c.x, static_cast<std::int32_t>(c.y), static_cast<std::uint32_t>(c.a.size())),
                     OrbSetFilePointer(c.x, static_cast<OrbI32>(c.y), static_cast<OrbU32>(c.a.size())));
    case Op::kRead:
    case Op::kWrite:
      return RunTransfer(c);
    case Op::kSetSize:
      return Compare(model.SetSize(c.x, c.y), Bool(OrbSetFileSize(c.x, c.y)));
    case Op::kGetSize:
      return Compare(model.GetSize(c.x), OrbGetFileSize(c.x));
    case Op::kFlush:
      return Compare(model.Flush(c.x), Bool(OrbFlushFileBuffers(c.x)));
    case Op::kClose:
      return Compare(model.Close(c.x), Bool(OrbCloseFile(c.x)));
    case Op::kFindNext: {
      model::Found want;
      OrbFindDataA foundA;
      OrbFindDataW foundW;
      const Result expected = model.FindNext(c.x, &want);
      const OrbBool got = c.wide ? OrbFindNextFileW(c.x, &foundW) : OrbFindNextFileA(c.x, &foundA);
      return CompareFound(expected, Bool(got), want, c.wide, foundA, foundW);
    }
    case Op::kFindClose:
      return Compare(model.FindClose(c.x), Bool(OrbFindClose(c.x)));
    case Op::kNull:
      return RunNull(c);
    case Op::kErrorState: {
      _OrbSetError(c.x);
      Compare({0, c.x}, 0);
      std::uint32_t word = c.y;
      OrbConvertEndian(&word, 4);
      Compare({c.y, 0}, word);
      _OrbSetError(c.x);
      _OrbCrearError();
      OrbTime now;
      Compare({0, 0}, 0);
      OrbGetTime(&now);
      return Expect(now.year >= 2024 && now.month >= 1 && now.month <= 12, "time");
    }
    default:
      return RunPath(c);
  }
}

// ---- Choosing calls --------------------------------------------------------------------------------------------------

class Chooser {
 public:
  Chooser(std::uint32_t seed, const model::Model& m) : random_(seed), model_(m) {}

  Call Next() {
    static constexpr int kWeights[] = {4,  1, 1, 16, 8, 6, 10, 6, 12, 4, 5, 10, 8, 12,
                                       16, 8, 2, 1,  8, 4, 2,  4, 6,  8, 4, 1,  1};
    static_assert(sizeof kWeights / sizeof kWeights[0] == static_cast<std::size_t>(Op::kCount),
                  "a weight for each call");
    std::discrete_distribution<int> ops(std::begin(kWeights), std::end(kWeights));
    Call c;
    c.op = static_cast<Op>(ops(random_));
    c.wide = Below(3) == 0;
    switch (c.op) {
      case Op::kMount:
        c.x = Below(kContainerCount);
        c.a = Pick({"DATA", "logs", "X", "Data", "", "BAD NAME", std::string(29, 'V'), std::string(30, 'V')});
        break;
      case Op::kUnmount:
      case Op::kInfo:
        c.a = Pick({"data", "LOGS", "X", "NONE", std::string(29, 'v')});
        break;
      case Op::kCreate:
        c.a = Path(true);
        c.x = Pick<std::uint32_t>({0, 0, 0, 1, 2, 3, 8, 9, 4, 16, 0x10000});
        break;
      case Op::kCopy:
      case Op::kMove:
        c.a = Path(false);
        c.b = Path(true);
        break;
      case Op::kRename:
        c.a = Path(false);
        c.b = Name();
        break;
      case Op::kMakeDirectory:
        c.a = Path(true);
        break;
      case Op::kSetAttributes:
        c.a = Path(false);
        c.x = Pick<std::uint32_t>({0, 0, 1, 2, 3, 4, 8, 0xFFFFFFFF});
        break;
      case Op::kOpen:
        c.a = Path(false);
        c.x = Pick<std::uint32_t>({3, 3, 3, 3, 1, 2, 0, 4, 0x10003});
        break;
      case Op::kFindFirst:
        c.a = Below(2) == 0 ? Directory() + "/" : Directory() + "/" + Pick({"*", "*.TXT", "a*", "?", "*B", "A?", "."});
        break;
      case Op::kSeek:
        c.x = FileHandle();
        c.y = Below(4) == 0 ? 0 - Below(3000) : Below(9000);
        c.a = std::string(Below(8) == 0 ? 3 : Below(3), '+');
        break;
      case Op::kRead:
      case Op::kWrite:
        c.x = FileHandle();
        c.y = Length();
        break;
      case Op::kSetSize:
        c.x = FileHandle();
        c.y = Below(30) == 0 ? 0x80000000 : Below(6) == 0 ? 0 : Length() + Below(2) * Length();
        break;
      case Op::kGetSize:
      case Op::kFlush:
      case Op::kClose:
        c.x = FileHandle();
        break;
      case Op::kFindNext:
      case Op::kFindClose:
        c.x = SearchHandle();
        break;
      case Op::kNull:
      case Op::kErrorState:
        c.x = Below(1u << 30);
        c.y = Below(1000);
        break;
      default:
        c.a = Path(false);
    }
    return c;
  }

 private:
  std::uint32_t Below(std::uint32_t n) { return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(random_); }

  template <typename T = std::string>
  T Pick(const std::vector<T>& from) {
    return from[Below(static_cast<std::uint32_t>(from.size()))];
  }

  std::string Name() {
    if (Below(25) == 0) {
      return Pick(
          {"", ".", "..", "bad name", "a*b", std::string(29, 'n'), std::string(30, 'n'), "\xE9", "a/b", "-_^~"});
    }
    std::string name(1, static_cast<char>('A' + Below(6)));
    if (Below(2) == 0) name += static_cast<char>('a' + Below(6));
    if (Below(3) == 0) name += std::to_string(Below(60));
    if (Below(4) == 0) name += ".txt";
    return name;
  }

  std::string Directory() {
    const auto directories = model_.Paths(true);
    if (directories.empty() || Below(20) == 0) return Pick({"X:", ".", "..", "NONE:/a", "A/B", "/"});
    std::string path = Pick(directories);
    if (path.back() == '/') path.pop_back();
    if (Below(12) == 0) path += Pick({"/.", "/..", "//", "/./.."});
    return path;
  }

  // Mostly something that is there, or, for a new name, a place where there could be one.
  std::string Path(bool fresh) {
    if (Below(40) == 0) return Pick({"", "/", ".", "..", "x:y:z", ":", "NONE:/A", "A", "a/b/c", "DATA:", "DATA:A"});
    const auto paths = model_.Paths(Below(5) == 0);
    std::string path;
    if (!fresh && !paths.empty() && Below(6) != 0) {
      path = Pick(paths);
    } else {
      path = Directory() + "/" + Name();
    }
    if (Below(8) == 0) {
      for (char& c : path) c = static_cast<char>(std::tolower(c));
    }
    if (Below(30) == 0) path += "/";
    return path;
  }

  std::uint32_t FileHandle() {
    std::vector<std::uint32_t> open;
    for (std::uint32_t i = 0; i < model_.Files().size(); ++i) {
      if (model_.Files()[i].node != 0) open.push_back(0x10000 | i);
    }
    if (open.empty() || Below(25) == 0) return Pick<std::uint32_t>({0, 0x10000, 0x10005, 0x20000, 0x10080, 0xFFFFFFFF});
    return Pick(open);
  }

  std::uint32_t SearchHandle() {
    std::vector<std::uint32_t> open;
    for (std::uint32_t i = 0; i < model_.Searches().size(); ++i) {
      if (model_.Searches()[i].node != 0) open.push_back(0x20000 | i);
    }
    if (open.empty() || Below(25) == 0) return Pick<std::uint32_t>({0, 0x10000, 0x20000, 0x20040, 0xFFFFFFFF});
    return Pick(open);
  }

  // Lengths gather around the borders of blocks and of the block map.
  std::uint32_t Length() {
    static const std::vector<std::uint32_t> kBorders = {0,        10,       1024,     2048, 4096,
                                                        6 * 1024, 6 * 2048, 6 * 4096, 7000, 262 * 1024};
    const std::uint32_t border = Below(30) == 0 ? kBorders.back() : kBorders[Below(9)];
    const std::uint32_t jitter = Below(4) == 0 ? Below(900) : Below(3);
    return Below(2) == 0 || border < jitter ? border + jitter : border - jitter;
  }

  std::mt19937 random_;
  const model::Model& model_;
};

// ---- One sequence, in a child ----------------------------------------------------------------------------------------

Bytes ReadContainer(int number) {
  Bytes bytes;
  std::FILE* const file = std::fopen(ContainerName(number).c_str(), "rb");
  if (file == nullptr) return bytes;
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) bytes.push_back(static_cast<std::uint8_t>(c));
  std::fclose(file);
  return bytes;
}

void Prepare(Pair* pair) {
  for (int i = 0; i < kContainerCount; ++i) {
    std::remove(ContainerName(i).c_str());
    const OrbBool made =
        OrbCreateVolumeEx(Wide(ContainerName(i)).c_str(), kContainers[i].bitmapBytes, kContainers[i].blockSize);
    pair->Expect(made == 1, "formatting");
    pair->model.AddContainer(kContainers[i].blockSize,
                             kContainers[i].bitmapBytes == 0 ? 0 : kContainers[i].bitmapBytes);
  }
  pair->Run({Op::kMount, false, "DATA", "", 0, 0});
  pair->Run({Op::kMount, false, "LOGS", "", 1, 0});
}

void Finish(Pair* pair) {
  for (const model::Volume& volume : std::vector<model::Volume>(pair->model.Containers())) {
    if (!volume.name.empty()) pair->Run({Op::kUnmount, false, volume.name, "", 0, 0});
  }
  for (std::uint32_t i = 0; i < ORB_MAX_SEARCHES; ++i) {
    if (pair->model.Searches()[i].node != 0) pair->Run({Op::kFindClose, false, "", "", 0x20000 | i, 0});
  }
  for (int i = 0; i < kContainerCount && pair->difference.empty(); ++i) {
    const orba::inspect::MemoryImage image(ReadContainer(i));
    const bool leaks = pair->model.Containers()[static_cast<std::size_t>(i)].leaks;
    for (const orba::inspect::Finding& finding : orba::inspect::Check(image).findings) {
      const auto severity = orba::inspect::SeverityOf(finding.kind);
      if (severity == orba::inspect::Severity::kNote) continue;
      if (severity == orba::inspect::Severity::kLeak && leaks) continue;
      pair->Expect(false, ContainerName(i) + ": " + finding.text);
    }
    std::remove(ContainerName(i).c_str());
  }
}

constexpr int kSame = 0, kDifferent = 10;

// Runs a body in a child; returns its exit status, or 128 + signal.
int InChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(120);
    std::_Exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunCalls(const std::vector<Call>& calls, bool print) {
  Pair pair;
  Prepare(&pair);
  std::size_t i = 0;
  for (; i < calls.size() && pair.difference.empty(); ++i) {
    pair.Run(calls[i]);
    if (print) std::printf("  %s\n", Print(calls[i]).c_str());
  }
  if (pair.difference.empty()) Finish(&pair);
  if (print && !pair.difference.empty()) std::printf("  -> %s\n", pair.difference.c_str());
  std::fflush(stdout);
  return pair.difference.empty() ? kSame : kDifferent;
}

// Makes and runs a sequence; where it differs, the calls up to there are left in a file for the parent.
int RunSeed(std::uint32_t seed, std::uint32_t count) {
  Pair pair;
  Prepare(&pair);
  Chooser chooser(seed, pair.model);
  std::uint32_t done = 0;
  for (; done < count && pair.difference.empty(); ++done) pair.Run(chooser.Next());
  if (pair.difference.empty()) Finish(&pair);
  return pair.difference.empty() ? kSame : kDifferent;
}

// The calls a seed makes do not depend on the library, only on the model: they are made again without it.
class ModelOnly {
 public:
  static std::vector<Call> Calls(std::uint32_t seed, std::uint32_t count) {
    model::Model m;
    for (const Container& container : kContainers) m.AddContainer(container.blockSize, container.bitmapBytes);
    m.Mount(0, "DATA");
    m.Mount(1, "LOGS");
    Chooser chooser(seed, m);
    std::vector<Call> calls;
    for (std::uint32_t i = 0; i < count; ++i) {
      calls.push_back(chooser.Next());
      Apply(&m, calls.back());
    }
    return calls;
  }

 private:
  static void Apply(model::Model* m, const Call& c) {
    std::string text;
    model::Found found;
    Bytes bytes;
    std::uint32_t n = 0;
    switch (c.op) {
      case Op::kMount:
        m->Mount(static_cast<int>(c.x), c.a);
        break;
      case Op::kUnmount:
        m->Unmount(c.a);
        break;
      case Op::kCreate:
        m->Create(c.a, c.x);
        break;
      case Op::kMakeDirectory:
        m->Create(c.a, 8);
        break;
      case Op::kCopy:
        m->Copy(c.a, c.b);
        break;
      case Op::kMove:
        m->Move(c.a, c.b);
        break;
      case Op::kRename:
        m->Rename(c.a, c.b);
        break;
      case Op::kDelete:
        m->Delete(c.a);
        break;
      case Op::kSetAttributes:
        m->SetAttributes(c.a, static_cast<std::int32_t>(c.x));
        break;
      case Op::kOpen:
        m->Open(c.a, c.x);
        break;
      case Op::kSeek:
        m->Seek(c.x, static_cast<std::int32_t>(c.y), static_cast<std::uint32_t>(c.a.size()));
        break;
      case Op::kRead:
        m->Read(c.x, c.y, &bytes);
        break;
      case Op::kWrite:
        m->Write(c.x, Pattern(c.x, c.y), &n);
        break;
      case Op::kSetSize:
        m->SetSize(c.x, c.y);
        break;
      case Op::kClose:
        m->Close(c.x);
        break;
      case Op::kSetCurrent:
        m->SetCurrentDirectory(c.a);
        break;
      case Op::kFindFirst:
        m->FindFirst(c.a, &found);
        break;
      case Op::kFindNext:
        m->FindNext(c.x, &found);
        break;
      case Op::kFindClose:
        m->FindClose(c.x);
        break;
      default:
        break;
    }
  }
};

// Leaves calls out, in ever smaller groups, as long as what remains still fails.
std::vector<Call> Shorten(std::vector<Call> calls) {
  const auto fails = [](const std::vector<Call>& some) {
    return InChild([&] { return RunCalls(some, false); }) != kSame;
  };
  for (std::size_t group = calls.size() / 2; group > 0; group /= 2) {
    for (std::size_t at = 0; at < calls.size();) {
      std::vector<Call> fewer(calls);
      const std::size_t end = std::min(at + group, fewer.size());
      fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(at), fewer.begin() + static_cast<std::ptrdiff_t>(end));
      if (fails(fewer)) {
        calls = fewer;
      } else {
        at += group;
      }
    }
  }
  return calls;
}

void Explain(std::uint32_t seed, std::uint32_t count, int status) {
  std::printf("seed %u: %s\n", seed, status == kDifferent ? "differs from the model" : "crashed or hung");
  const std::vector<Call> calls = Shorten(ModelOnly::Calls(seed, count));
  std::printf("the calls that matter, after mounting containers 0 as DATA and 1 as LOGS:\n");
  InChild([&] { return RunCalls(calls, true); });
}

}  // namespace

int main(int argc, char** argv) {
  std::uint32_t seed = 1, count = 2000, seeds = 1;
  double seconds = 0;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--seed")
      seed = static_cast<std::uint32_t>(std::strtoul(argv[i + 1], nullptr, 0));
    else if (option == "--calls")
      count = static_cast<std::uint32_t>(std::strtoul(argv[i + 1], nullptr, 0));
    else if (option == "--seeds")
      seeds = static_cast<std::uint32_t>(std::strtoul(argv[i + 1], nullptr, 0));
    else if (option == "--seconds")
      seconds = std::strtod(argv[i + 1], nullptr);
    else
      argc = 0;
  }
  if (argc % 2 == 0) {
    std::fprintf(
        stderr,
        "usage: orba_model [--seed N] [--seeds N] [--calls N] [--seconds N]\n"
        "Compares the library with a model, in random calls. Runs the given number of seeds from the first one on,\n"
        "or as many as fit in the given seconds. Containers are made in the current folder.\n"
        "Exit status: 0 no difference, 1 a difference (shortened and printed), 2 usage.\n");
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  std::uint32_t done = 0;
  for (; seconds > 0 ? elapsed() < seconds : done < seeds; ++done) {
    const std::uint32_t current = seed + done;
    const int status = InChild([&] { return RunSeed(current, count); });
    if (status == kSame) continue;
    Explain(current, count, status);
    return 1;
  }
  std::printf("%u sequences from seed %u, %llu calls compared, no difference\n", done, seed,
              static_cast<unsigned long long>(done) * count);
  return 0;
}

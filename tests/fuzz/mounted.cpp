// Fuzz target: a container that holds anything is mounted and used by every export. Whatever it holds, each call ends
// after a bounded number of host calls with one of the codes that orba.h documents for it, and nothing is held when all
// is unmounted.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "inspect/check/check.h"
#include "nodes/node.h"
#include "orba.h"
#include "support/judgement.h"
#include "support/result_code.h"
#include "support/test_host.h"
#include "tests/support/image_builder.h"

namespace {

using fuzz::Bytes;
using fuzz::Choice;
using fuzz::Require;
using Codes = std::vector<OrbU32>;

const testhost::FileName kContainer = u"VOL";
const testhost::FileName kOther = u"OTHER";

// No call on containers of this size needs so many host calls; what comes later fails.
constexpr std::uint32_t kMostHostCalls = 1000000;
// Work enough for one input.
constexpr std::uint32_t kEnoughHostCalls = 100000;

constexpr int kDepth = 8;
constexpr std::size_t kEntries = 60;    // of a directory that are looked at
constexpr std::size_t kListed = 150;    // objects looked at in one listing of the volume
constexpr std::size_t kHandles = 6;     // open files, and searches, at a time
constexpr std::uint32_t kChunk = 5000;  // bytes of a transfer

// ---- Outcomes -------------------------------------------------------------------------------------------------------

// Without faults of the host these may come of any damage to a container.
const Codes kOfDamage = {ORB_ERROR_READ, ORB_ERROR_WRITE, ORB_ERROR_DAMAGED_VOLUME, ORB_ERROR_DAMAGED_RECORD};
const Codes kOfPaths = {ORB_ERROR_PATH_NOT_FOUND, ORB_ERROR_INVALID_NAME, ORB_ERROR_NOT_MOUNTED};
const Codes kOfSpace = {ORB_ERROR_NO_FREE_NODE, ORB_ERROR_VOLUME_FULL};

Codes operator+(Codes a, const Codes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Makes a call, which says whether it succeeded; passes that on.
template <typename Call>
bool Do(const char* name, const Codes& codes, Call call) {
  testhost::FailNthCall(kMostHostCalls, orba::coredll::kHostRequestAborted, testhost::Repeat::kFromThenOn);
  const bool succeeded = call();
  Require(testhost::FaultsFired() == 0, std::string(name) + " ends");
  testhost::ClearFaults();
  const OrbU32 code = OrbGetLastError();
  Require(succeeded ? code == 0 : std::find(codes.begin(), codes.end(), code) != codes.end(),
          std::string(name) + " ends with a documented code, not " + testhost::NameOfCode(code));
  return succeeded;
}

// For calls whose failure value may be a result as well.
bool NoError() { return OrbGetLastError() == 0; }

// ---- A session ------------------------------------------------------------------------------------------------------

class Session {
 public:
  void List(const std::string& directory, int depth = kDepth);
  void Step(const Choice& choice);
  void Close();

  // References that failed copies and moves keep until unmounting, by design.
  std::uint32_t kept() const { return kept_; }

 private:
  void Look(const std::string& path);
  void ReadSome(const std::string& path);
  void Transfer(const Choice& choice);
  void Resize(const Choice& choice);
  void Open(const Choice& choice);
  void Search(const Choice& choice);
  void SearchWide(const Choice& choice);
  void CopyOrMove(const Choice& choice);
  void Name(const Choice& choice);
  void Whereabouts(const Choice& choice);

  const std::string& Path(std::uint8_t number) const { return paths_[number % paths_.size()]; }
  const std::string& Directory(std::uint8_t number) const { return directories_[number % directories_.size()]; }
  OrbHandle File(std::uint8_t number) const { return files_.empty() ? number : files_[number % files_.size()]; }

  std::vector<std::string> paths_ = {
      "A:/",        "A:/NEW",    "A:/NEWDIR", "A:/NEWDIR/X", "B:/COPY", "B:/DIR/INNER/BLOCK",
      "NEW",        "..",        ".",         "../..",       "A:/./..", "",
      "A:",         "NONE:/X",   "/",         "A:/D/..",     "A:NEW/",  "A:/DIR/",
      "A:/A/B/C/D", "B:/NONE/X",
  };
  std::vector<std::string> directories_ = {"A:/NEWDIR"};
  std::size_t listed_ = 0;
  std::vector<OrbHandle> files_;
  std::vector<OrbHandle> searches_;
  std::uint32_t kept_ = 0;
};

// Everything below a directory; what it finds can be chosen from then on.
void Session::List(const std::string& directory, int depth) {
  if (depth == kDepth) listed_ = 0;
  std::vector<OrbFindDataA> entries;
  OrbFindDataA found;
  OrbHandle search = ORB_INVALID_HANDLE;
  const Codes codes = kOfDamage + Codes{ORB_ERROR_NO_MORE_ENTRIES};
  const bool any =
      Do("OrbFindFirstFileA", codes + kOfPaths + Codes{ORB_ERROR_ALREADY_OPEN, ORB_ERROR_NOT_A_DIRECTORY}, [&] {
        search = OrbFindFirstFileA((directory + "*").c_str(), &found);
        return search != ORB_INVALID_HANDLE;
      });
  if (!any) return;
  do {
    Require(std::find(found.name, found.name + 30, '\0') != found.name + 30, "a name found has an end");
    entries.push_back(found);
  } while (entries.size() < kEntries &&
           Do("OrbFindNextFileA", codes, [&] { return OrbFindNextFileA(search, &found) != 0; }));
  Do("OrbFindClose", {}, [&] { return OrbFindClose(search) != 0; });
  for (const OrbFindDataA& entry : entries) {
    if (++listed_ > kListed || testhost::CallCount() > kEnoughHostCalls) return;
    const std::string path = directory + entry.name;
    if (paths_.size() < 200) paths_.push_back(path);
    Look(path);
    const std::string name = entry.name;
    const bool below = (entry.attributes & ORB_ATTRIBUTE_DIRECTORY) != 0 && name != "." && name != "..";
    if (below && directories_.size() < 50) directories_.push_back(path);
    if (below && depth > 0) List(path + "/", depth - 1);
  }
}

void Session::Look(const std::string& path) {
  const std::unique_ptr<char[]> full(new char[ORB_PATH_BUFFER]);
  const Codes codes = kOfDamage + kOfPaths;
  Do("OrbGetFullPathNameA", codes + Codes{ORB_ERROR_PATH_TOO_LONG},
     [&] { return OrbGetFullPathNameA(full.get(), path.c_str()) != 0; });
  Do("OrbGetFileAttributesA", codes + Codes{ORB_ERROR_FILE_NOT_FOUND},
     [&] { return OrbGetFileAttributesA(path.c_str()) != ORB_INVALID_ATTRIBUTES || NoError(); });
  ReadSome(path);
}

const Codes kOfOpening = kOfDamage + kOfPaths +
                         Codes{ORB_ERROR_FILE_NOT_FOUND, ORB_ERROR_WRONG_KIND, ORB_ERROR_ACCESS_DENIED,
                               ORB_ERROR_ALREADY_OPEN, ORB_ERROR_IN_USE};

// The borders of the block map: its first indirect block, its double-indirect block, the end.
void Session::ReadSome(const std::string& path) {
  OrbHandle file = ORB_INVALID_HANDLE;
  const bool open = Do("OrbOpenFileA", kOfOpening, [&] {
    file = OrbOpenFileA(path.c_str(), ORB_OPEN_READ);
    return file != ORB_INVALID_HANDLE;
  });
  if (!open) return;
  Bytes buffer(kChunk);
  OrbU32 done = 0;
  const struct {
    OrbI32 distance;
    OrbU32 origin;
  } places[] = {
      {0, ORB_SEEK_BEGIN}, {6 * 1024 - 9, ORB_SEEK_BEGIN}, {262 * 1024 - 9, ORB_SEEK_BEGIN}, {-9, ORB_SEEK_END}};
  for (const auto& place : places) {
    const bool there = Do("OrbSetFilePointer", {ORB_ERROR_SEEK}, [&] {
      return OrbSetFilePointer(file, place.distance, place.origin) != ORB_INVALID_POSITION || NoError();
    });
    if (!there) continue;
    Do("OrbReadFile", kOfDamage, [&] { return OrbReadFile(file, buffer.data(), kChunk, &done) != 0; });
    Require(done <= kChunk, "no more is read than was asked for");
  }
  Do("OrbCloseFile", {}, [&] { return OrbCloseFile(file) != 0; });
}

// ---- Steps ----------------------------------------------------------------------------------------------------------

void Session::Open(const Choice& choice) {
  if (files_.size() == kHandles) {
    const OrbHandle file = File(choice.first);
    files_.erase(std::find(files_.begin(), files_.end(), file));
    Do("OrbCloseFile", {}, [&] { return OrbCloseFile(file) != 0; });
    return;
  }
  OrbHandle file = ORB_INVALID_HANDLE;
  const bool open = Do("OrbOpenFile", kOfOpening + Codes{ORB_ERROR_INVALID_ARGUMENT}, [&] {
    file = OrbOpenFileA(Path(choice.first).c_str(), choice.amount % 8 != 0 ? 3u : choice.second % 5u);
    return file != ORB_INVALID_HANDLE;
  });
  if (open) files_.push_back(file);
}

const Codes kOfHandles = {ORB_ERROR_INVALID_HANDLE};

void Session::Transfer(const Choice& choice) {
  const OrbHandle file = File(choice.first);
  Do("OrbSetFilePointer", kOfHandles + Codes{ORB_ERROR_SEEK, ORB_ERROR_INVALID_ARGUMENT}, [&] {
    const OrbI32 distance = (choice.second - 128) * 1000;
    return OrbSetFilePointer(file, distance, choice.amount % 4u) != ORB_INVALID_POSITION || NoError();
  });
  Bytes buffer(choice.amount * 40u);
  const auto count = static_cast<OrbU32>(buffer.size());
  OrbU32 done = 0;
  const Codes codes = kOfDamage + kOfHandles + Codes{ORB_ERROR_ACCESS_DENIED};
  if (choice.what % 2 == 0) {
    Do("OrbReadFile", codes, [&] { return OrbReadFile(file, buffer.data(), count, &done) != 0; });
  } else {
    Do("OrbWriteFile", codes + Codes{ORB_ERROR_VOLUME_FULL},
       [&] { return OrbWriteFile(file, buffer.data(), count, &done) != 0; });
  }
  Require(done <= count, "no more is transferred than was asked for");
  Do("OrbFlushFileBuffers", kOfHandles, [&] { return OrbFlushFileBuffers(file) != 0; });
}

// To a size near the one there is, or to a small one.
void Session::Resize(const Choice& choice) {
  const OrbHandle file = File(choice.first);
  OrbU32 size = 0;
  Do("OrbGetFileSize", kOfHandles, [&] {
    size = OrbGetFileSize(file);
    return size != ORB_INVALID_SIZE || NoError();
  });
  const OrbU32 wanted = choice.second % 2 == 0 ? choice.amount * 300u : size + choice.amount * 50u - 6000u;
  if (wanted > size && wanted - size > 100000) return;
  Do("OrbSetFileSize",
     kOfDamage + kOfHandles + Codes{ORB_ERROR_INVALID_ARGUMENT, ORB_ERROR_ACCESS_DENIED, ORB_ERROR_VOLUME_FULL},
     [&] { return OrbSetFileSize(file, wanted) != 0; });
}

const Codes kOfSearching =
    kOfDamage + kOfPaths + Codes{ORB_ERROR_NO_MORE_ENTRIES, ORB_ERROR_ALREADY_OPEN, ORB_ERROR_NOT_A_DIRECTORY};

void Session::Search(const Choice& choice) {
  OrbFindDataA found;
  if (searches_.size() == kHandles) {
    const OrbHandle search = searches_[choice.first % kHandles];
    Do("OrbFindNextFileA", kOfDamage + Codes{ORB_ERROR_NO_MORE_ENTRIES},
       [&] { return OrbFindNextFileA(search, &found) != 0; });
    if (choice.amount % 2 == 0) return;
    Do("OrbFindClose", {}, [&] { return OrbFindClose(search) != 0; });
    searches_.erase(std::find(searches_.begin(), searches_.end(), search));
    return;
  }
  const char* const patterns[] = {"", "*", "/*", "/*.*", "/?????", "/F*1"};
  OrbHandle search = ORB_INVALID_HANDLE;
  const bool any = Do("OrbFindFirstFileA", kOfSearching, [&] {
    search = OrbFindFirstFileA((Path(choice.first) + patterns[choice.second % 6]).c_str(), &found);
    return search != ORB_INVALID_HANDLE;
  });
  if (any) searches_.push_back(search);
}

// All of a directory, with the names widened.
void Session::SearchWide(const Choice& choice) {
  const Codes codes = kOfSearching + Codes{ORB_ERROR_INVALID_ARGUMENT};
  const testhost::FileName pattern = testhost::WideName((Path(choice.first) + "/*").c_str());
  const std::unique_ptr<OrbFindDataW> found(new OrbFindDataW);
  OrbHandle search = ORB_INVALID_HANDLE;
  bool any = Do("OrbFindFirstFileW", codes, [&] {
    search = OrbFindFirstFileW(pattern.c_str(), found.get());
    return search != ORB_INVALID_HANDLE;
  });
  if (!any) return;
  for (std::size_t left = kEntries; any && left > 0; --left) {
    any = Do("OrbFindNextFileW", codes, [&] { return OrbFindNextFileW(search, found.get()) != 0; });
  }
  Do("OrbFindClose", {}, [&] { return OrbFindClose(search) != 0; });
}

void Session::CopyOrMove(const Choice& choice) {
  const bool copy = choice.what % 2 == 0;
  const bool directory = !copy && choice.amount % 3 != 0;
  const std::string& from = directory ? Directory(choice.first) : Path(choice.first);
  const std::string to = choice.amount % 2 == 0 ? Path(choice.second) : Directory(choice.second) + "/GONE";
  const Codes codes = kOfDamage + kOfPaths + kOfSpace + Codes{ORB_ERROR_FILE_NOT_FOUND, ORB_ERROR_FILE_EXISTS};
  const bool done = copy ? Do("OrbCopyFileA", codes + Codes{ORB_ERROR_WRONG_KIND, ORB_ERROR_INVALID_ARGUMENT},
                              [&] { return OrbCopyFileA(from.c_str(), to.c_str()) != 0; })
                         : Do("OrbMoveFileA",
                              codes + Codes{ORB_ERROR_MOVE_NOT_ALLOWED, ORB_ERROR_CURRENT_DIRECTORY, ORB_ERROR_IN_USE},
                              [&] { return OrbMoveFileA(from.c_str(), to.c_str()) != 0; });
  if (!done) ++kept_;
}

// Names that come and go.
void Session::Name(const Choice& choice) {
  const std::string& path = Path(choice.first);
  const Codes codes = kOfDamage + kOfPaths;
  const Codes missing = codes + Codes{ORB_ERROR_FILE_NOT_FOUND};
  const Codes making = codes + kOfSpace + Codes{ORB_ERROR_FILE_EXISTS};
  switch (choice.second % 5) {
    case 0:
      Do("OrbCreateFileA", making + Codes{ORB_ERROR_INVALID_ARGUMENT},
         [&] { return OrbCreateFileA(path.c_str(), choice.amount % 5u) != 0; });
      break;
    case 1:
      Do("OrbCreateDirectoryA", making, [&] { return OrbCreateDirectoryA(path.c_str()) != 0; });
      break;
    case 2:
      Do("OrbDeleteFileA", missing + Codes{ORB_ERROR_IN_USE, ORB_ERROR_CURRENT_DIRECTORY, ORB_ERROR_NOT_EMPTY},
         [&] { return OrbDeleteFileA(path.c_str()) != 0; });
      break;
    case 3:
      Do("OrbRenameFileA", missing + Codes{ORB_ERROR_FILE_EXISTS},
         [&] { return OrbRenameFileA(path.c_str(), ("R" + std::string(choice.amount % 31u, 'x')).c_str()) != 0; });
      break;
    default:
      Do("OrbSetFileAttributesA", missing + Codes{ORB_ERROR_INVALID_ARGUMENT, ORB_ERROR_WRONG_KIND, ORB_ERROR_IN_USE},
         [&] { return OrbSetFileAttributesA(path.c_str(), choice.amount % 5) != 0; });
      break;
  }
}

void Session::Whereabouts(const Choice& choice) {
  const testhost::FileName path = testhost::WideName(Path(choice.first).c_str());
  const std::unique_ptr<OrbWideChar[]> full(new OrbWideChar[ORB_WIDE_PATH_BUFFER]);
  const Codes codes = kOfDamage + kOfPaths;
  Do("OrbSetCurrentDirectoryW", codes + Codes{ORB_ERROR_WRONG_KIND},
     [&] { return OrbSetCurrentDirectoryW(path.c_str()) != 0; });
  Do("OrbGetCurrentDirectoryW", codes + Codes{ORB_ERROR_PATH_TOO_LONG},
     [&] { return OrbGetCurrentDirectoryW(full.get()) != 0; });
  Do("OrbGetFullPathNameW", codes + Codes{ORB_ERROR_PATH_TOO_LONG},
     [&] { return OrbGetFullPathNameW(full.get(), path.c_str()) != 0; });
}

void Session::Step(const Choice& choice) {
  using Method = void (Session::*)(const Choice&);
  constexpr Method kSteps[] = {&Session::Open,       &Session::Open,       &Session::Transfer,   &Session::Transfer,
                               &Session::Resize,     &Session::Search,     &Session::Name,       &Session::Name,
                               &Session::CopyOrMove, &Session::CopyOrMove, &Session::SearchWide, &Session::Whereabouts};
  constexpr std::size_t kCount = sizeof kSteps / sizeof kSteps[0];
  (this->*kSteps[choice.what / 2 % kCount])(choice);
}

// Searches outlive their volume, and would make unmounting it fail; open files do not.
void Session::Close() {
  for (const OrbHandle search : searches_) Do("OrbFindClose", {}, [&] { return OrbFindClose(search) != 0; });
}

// ---- The end --------------------------------------------------------------------------------------------------------

// Nodes that are still held belong to no volume, and there are no more of them than was kept by design.
void LetGoOfKeptNodes(std::uint32_t kept) {
  while (orba::g_NodeListHead.next != nullptr) {
    orba::OrbNode* const node = orba::g_NodeListHead.next;
    Require(node->volume == nullptr, "unmounting cuts loose every node");
    Require(node->references != 0, "no dead node stays");
    Require(node->references <= kept, "nothing is held but for failed copies and moves");
    kept -= node->references;
    while (orba::g_NodeListHead.next == node) orba::OrbNodeRelease(node);
  }
}

bool IsSound(const testhost::FileImage& image) {
  const orba::inspect::Report report = testhost::Inspect(image);
  return report.IsClean() && !report.marked;
}

bool Mount(const testhost::FileName& container, const char16_t* name) {
  const Codes codes = {ORB_ERROR_READ,          ORB_ERROR_DAMAGED_VOLUME,
                       ORB_ERROR_WRONG_VERSION, ORB_ERROR_INVALID_ARGUMENT,
                       ORB_ERROR_NOT_CLEAN,     ORB_ERROR_DAMAGED_RECORD};
  return Do("OrbMountVolume", codes, [&] { return OrbMountVolume(container.c_str(), name) != 0; });
}

// What a volume says of itself is what its container may say.
void AskForSizes() {
  OrbU32 bitmapBytes = 0, blockSize = 0;
  Do("OrbGetVolumeInfoA", {}, [&] { return OrbGetVolumeInfoA("A", &bitmapBytes, &blockSize) != 0; });
  Require(blockSize >= 1024 && blockSize <= 8192 && bitmapBytes <= 7168, "a volume's sizes are possible ones");
}

void Unmount(const char* name) {
  Do("OrbUnmountVolumeA", {}, [&] { return OrbUnmountVolumeA(name) != 0; });
}

Bytes OtherContainer() {
  testimage::ImageBuilder image(2048, 8);
  image.AddFile(image.AddDirectory(image.AddDirectory(1, "DIR"), "INNER"), "BLOCK", 5000);
  return image.bytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Bytes other = OtherContainer();
  const fuzz::Input input = fuzz::ReadInput(data, size);
  testhost::ResetHost();
  testhost::SetTracing(false);
  testhost::SetFile(kContainer, input.image);
  testhost::SetFile(kOther, other);
  const bool sound = IsSound(testhost::GetFile(kContainer));
  Session session;
  if (Mount(kContainer, u"A")) {
    AskForSizes();
    Mount(kOther, u"B");
    session.List("A:/");
    for (const Choice& choice : input.choices) {
      if (testhost::CallCount() < kEnoughHostCalls) session.Step(choice);
    }
    session.Close();
    session.List("A:/");
    Unmount("B");
    Unmount("A");
    if (sound) Require(IsSound(testhost::GetFile(kContainer)), "a sound container stays sound");
  } else {
    Require(!sound, "a sound container can be mounted");
  }
  LetGoOfKeptNodes(session.kept());
  Require(testhost::OpenHandles() == 0, "the container is closed");
  Require(testhost::FileNames().size() == 2, "no file appears");
  Require(testhost::AllocationsHeld() == 0, "no memory is held");
  return 0;
}

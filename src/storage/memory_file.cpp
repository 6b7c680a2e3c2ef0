#include "storage/memory_file.h"

#include "base/error.h"
#include "platform/coredll.h"

namespace orba {

namespace {

using coredll::Procedure;

enum EntryPoint { kCreateMemFile, kReadMemFile, kWriteMemFile, kSeekMemFile, kGetMemFileSize, kDeleteMemFile };
constexpr int kEntryPoints = kDeleteMemFile + 1;

coredll::Module g_hMemFile;
Procedure g_MemFileEntry[kEntryPoints];  // null while not bound

constexpr WideText kLibraryName("memfile.dll");
constexpr WideText kCreateName("CreateMemFile");
constexpr WideText kReadName("ReadMemFile");
constexpr WideText kWriteName("WriteMemFile");
constexpr WideText kSeekName("SeekMemFile");
constexpr WideText kGetSizeName("GetMemFileSize");
constexpr WideText kDeleteName("DeleteMemFile");

const WideChar* const kEntryNames[kEntryPoints] = {kCreateName.text, kReadName.text,    kWriteName.text,
                                                   kSeekName.text,   kGetSizeName.text, kDeleteName.text};

// An entry point that the library lacks is not an error yet: its slot stays null. Where loading fails, a library loaded
// before stays as it is, since it still has to be unloaded.
bool LoadMemFileLibrary() {
  const coredll::Module loaded = coredll::LoadLibraryW(kLibraryName.text);
  if (loaded == nullptr) return Fail(ORB_ERROR_MEMFILE_NOT_FOUND);
  g_hMemFile = loaded;
  for (int i = 0; i < kEntryPoints; ++i) g_MemFileEntry[i] = coredll::GetProcAddressW(g_hMemFile, kEntryNames[i]);
  return true;
}

void UnloadMemFileLibrary() {
  if (g_hMemFile == nullptr) return;
  coredll::FreeLibrary(g_hMemFile);
  g_hMemFile = nullptr;
  for (Procedure& entry : g_MemFileEntry) entry = nullptr;
}

// The entry point, or null with the error set.
Procedure Bound(EntryPoint entry) {
  if (g_MemFileEntry[entry] == nullptr) Fail(ORB_ERROR_NO_MEMFILE);
  return g_MemFileEntry[entry];
}

using CreateFunction = uint32_t (*)();
using ReadFunction = uint32_t (*)(void*, uint32_t, uint32_t*);
using WriteFunction = uint32_t (*)(const void*, uint32_t, uint32_t*);
using SeekFunction = uint32_t (*)(int32_t, uint32_t);
using GetSizeFunction = uint32_t (*)();
using DeleteFunction = uint32_t (*)();

}  // namespace

bool MemFileCreate() {
  if (!LoadMemFileLibrary()) return false;
  const auto create = reinterpret_cast<CreateFunction>(Bound(kCreateMemFile));
  return create != nullptr && create() != 0;
}

bool MemFileRead(void* buffer, uint32_t count, uint32_t* done) {
  const auto read = reinterpret_cast<ReadFunction>(Bound(kReadMemFile));
  return read != nullptr && read(buffer, count, done) != 0;
}

bool MemFileWrite(const void* buffer, uint32_t count, uint32_t* done) {
  const auto write = reinterpret_cast<WriteFunction>(Bound(kWriteMemFile));
  return write != nullptr && write(buffer, count, done) != 0;
}

uint32_t MemFileSeek(int32_t distance, uint32_t method) {
  const auto seek = reinterpret_cast<SeekFunction>(Bound(kSeekMemFile));
  return seek != nullptr ? seek(distance, method) : 0;
}

uint32_t MemFileGetSize() {
  const auto getSize = reinterpret_cast<GetSizeFunction>(Bound(kGetMemFileSize));
  return getSize != nullptr ? getSize() : 0;
}

bool MemFileDelete() {
  const auto discard = reinterpret_cast<DeleteFunction>(Bound(kDeleteMemFile));
  if (discard != nullptr) discard();
  UnloadMemFileLibrary();
  return discard != nullptr;
}

}  // namespace orba

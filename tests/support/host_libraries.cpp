// The test host's one loadable library: the memory file.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <set>

#include "memfile/memfile.h"
#include "support/host_call.h"

namespace testhost {

namespace {

namespace coredll = orba::coredll;

const FileName kMemFileLibrary = u"memfile.dll";
const FileName kMemFileName = u"??MEM??";

struct Library {
  bool present = true;
  std::set<FileName> hidden;
  MemFileCounts counts;
  bool exists = false;  // the memory file
  FileImage image;
  uint64_t position = 0;
};

Library g_Library;

// One call of an entry point of the memory-file library.
struct MemFileCall : HostCall {
  explicit MemFileCall(Call kind) : HostCall(kind) {
    record.name = kMemFileName;
    record.position = g_Library.position;
    if (g_Library.counts.references != 0) return;
    fprintf(stderr, "%s while memfile.dll is not loaded\n", ToText(record).c_str());
    abort();
  }

  // Whether the entry point may do its work: there is a memory file and no order to fail.
  bool Proceeds() {
    if (!fails() && !g_Library.exists) Fail(coredll::kHostInvalidHandle);
    return !fails() && g_Library.exists;
  }
};

uint32_t CreateMemFile() {
  MemFileCall call(Call::kCreateMemFile);
  ++g_Library.counts.creates;
  if (call.fails()) return 0;
  g_Library.exists = true;
  g_Library.image.Resize(0);
  g_Library.position = 0;
  return 1;
}

uint32_t ReadMemFile(void* buffer, uint32_t count, uint32_t* done) {
  MemFileCall call(Call::kReadMemFile);
  call.record.count = count;
  if (done != nullptr) *done = 0;
  if (!call.Proceeds()) return 0;
  if (done == nullptr || (buffer == nullptr && count != 0)) {
    call.Fail(coredll::kHostInvalidParameter);
    return 0;
  }
  *done = static_cast<uint32_t>(g_Library.image.Read(g_Library.position, buffer, count));
  g_Library.position += *done;
  call.record.done = *done;
  return 1;
}

uint32_t WriteMemFile(const void* buffer, uint32_t count, uint32_t* done) {
  MemFileCall call(Call::kWriteMemFile);
  call.record.count = count;
  if (done != nullptr) *done = 0;
  call.NoteData(buffer, count);
  if (!call.Proceeds()) return 0;
  if (done == nullptr || (buffer == nullptr && count != 0) || g_Library.position + count > MEMFILE_MAX_SIZE) {
    call.Fail(coredll::kHostInvalidParameter);
    return 0;
  }
  g_Library.image.Write(g_Library.position, buffer, count);
  g_Library.position += count;
  *done = count;
  call.record.done = count;
  return 1;
}

uint32_t SeekMemFile(int32_t distance, uint32_t method) {
  MemFileCall call(Call::kSeekMemFile);
  call.record.distance = distance;
  call.record.method = method;
  if (!call.Proceeds()) return MEMFILE_INVALID;
  int64_t position = distance;
  if (method == MEMFILE_CURRENT) position += static_cast<int64_t>(g_Library.position);
  if (method == MEMFILE_END) position += static_cast<int64_t>(g_Library.image.size());
  if (position < 0 || position > MEMFILE_MAX_SIZE || method > MEMFILE_END) {
    call.Fail(coredll::kHostInvalidParameter);
    return MEMFILE_INVALID;
  }
  g_Library.position = static_cast<uint64_t>(position);
  call.record.done = static_cast<uint32_t>(position);
  return call.record.done;
}

uint32_t GetMemFileSize() {
  MemFileCall call(Call::kGetMemFileSize);
  if (!call.Proceeds()) return MEMFILE_INVALID;
  call.record.done = static_cast<uint32_t>(g_Library.image.size());
  return call.record.done;
}

void DiscardMemFile() {
  g_Library.exists = false;
  g_Library.image.Resize(0);
  g_Library.position = 0;
}

uint32_t DeleteMemFile() {
  MemFileCall call(Call::kDeleteMemFile);
  ++g_Library.counts.deletes;
  const bool deleted = call.Proceeds();
  DiscardMemFile();
  return deleted;
}

struct NamedProcedure {
  const char16_t* name;
  coredll::Procedure procedure;
};

template <typename Function>
coredll::Procedure AsProcedure(Function* function) {
  return reinterpret_cast<coredll::Procedure>(function);
}

coredll::Procedure FindProcedure(const FileName& name) {
  const NamedProcedure procedures[] = {
      {u"CreateMemFile", AsProcedure(&CreateMemFile)},   {u"ReadMemFile", AsProcedure(&ReadMemFile)},
      {u"WriteMemFile", AsProcedure(&WriteMemFile)},     {u"SeekMemFile", AsProcedure(&SeekMemFile)},
      {u"GetMemFileSize", AsProcedure(&GetMemFileSize)}, {u"DeleteMemFile", AsProcedure(&DeleteMemFile)},
  };
  if (g_Library.hidden.count(name) != 0) return nullptr;
  const auto found = std::find_if(std::begin(procedures), std::end(procedures),
                                  [&](const NamedProcedure& procedure) { return name == procedure.name; });
  return found != std::end(procedures) ? found->procedure : nullptr;
}

bool IsLoaded(coredll::Module module) { return module == &g_Library && g_Library.counts.references != 0; }

}  // namespace

void ResetLibraries() { g_Library = Library(); }

void SetMemFilePresent(bool present) { g_Library.present = present; }
void HideProcedure(const FileName& name) { g_Library.hidden.insert(name); }
MemFileCounts MemFile() { return g_Library.counts; }
FileImage MemFileImage() { return g_Library.image; }

void SetMemFileImage(const FileImage& image) {
  g_Library.exists = true;
  g_Library.image = image;
}

}  // namespace testhost

namespace orba {
namespace coredll {

using testhost::Call;
using testhost::g_Library;
using testhost::HostCall;

Module LoadLibraryW(const WideChar* name) {
  HostCall call(Call::kLoadLibrary);
  call.record.name = name;
  if (call.fails()) return nullptr;
  if (!g_Library.present || name != testhost::kMemFileLibrary) {
    call.Fail(kHostModuleNotFound);
    return nullptr;
  }
  ++g_Library.counts.loads;
  ++g_Library.counts.references;
  return &g_Library;
}

Procedure GetProcAddressW(Module module, const WideChar* name) {
  HostCall call(Call::kGetProcAddress);
  call.record.name = name;
  if (call.fails()) return nullptr;
  if (!testhost::IsLoaded(module)) {
    call.Fail(kHostInvalidHandle);
    return nullptr;
  }
  const Procedure procedure = testhost::FindProcedure(name);
  if (procedure == nullptr) call.Fail(kHostProcedureNotFound);
  return procedure;
}

int32_t FreeLibrary(Module module) {
  HostCall call(Call::kFreeLibrary);
  if (!testhost::IsLoaded(module)) return call.Fail(kHostInvalidHandle);
  ++g_Library.counts.frees;
  --g_Library.counts.references;
  if (g_Library.counts.references == 0) testhost::DiscardMemFile();
  return !call.fails();
}

}  // namespace coredll
}  // namespace orba

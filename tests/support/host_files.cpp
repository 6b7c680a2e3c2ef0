// The test host's files.
#include <algorithm>
#include <stdexcept>

#include "support/host_call.h"

namespace testhost {

namespace {

namespace coredll = orba::coredll;

struct OpenFile {
  FileName name;
  uint64_t position = 0;
  uint32_t access = 0;
};

FileSet g_Files;
std::map<Handle, OpenFile> g_Handles;  // every name in it is in g_Files
Handle g_NextHandle = 0x100;

FileImage& Existing(const FileName& name) {
  const auto file = g_Files.find(name);
  if (file == g_Files.end()) throw std::out_of_range("no such file");
  return file->second;
}

void DropHandlesWithoutFile() {
  for (auto handle = g_Handles.begin(); handle != g_Handles.end();) {
    handle = g_Files.count(handle->second.name) != 0 ? std::next(handle) : g_Handles.erase(handle);
  }
}

}  // namespace

void ResetFiles() {
  g_Files.clear();
  g_Handles.clear();
}

FileName WideName(const char* text) {
  FileName name;
  for (; *text != '\0'; ++text) name += static_cast<char16_t>(static_cast<unsigned char>(*text));
  return name;
}

bool FileExists(const FileName& name) { return g_Files.count(name) != 0; }

std::vector<FileName> FileNames() {
  std::vector<FileName> names;
  for (const auto& file : g_Files) names.push_back(file.first);
  return names;
}

void SetFile(const FileName& name, const FileImage& image) { g_Files[name] = image; }
void SetFile(const FileName& name, const Bytes& bytes) { g_Files[name] = FileImage(bytes); }

FileImage GetFile(const FileName& name) { return Existing(name); }
Bytes FileBytes(const FileName& name) { return Existing(name).ToBytes(); }
Bytes FileBytes(const FileName& name, uint64_t position, size_t count) {
  return Existing(name).ToBytes(position, count);
}
uint64_t FileSize(const FileName& name) { return Existing(name).size(); }

void ResizeFile(const FileName& name, uint64_t size) { Existing(name).Resize(size); }
void PatchFile(const FileName& name, uint64_t position, const Bytes& bytes) {
  Existing(name).Write(position, bytes.data(), bytes.size());
}

void RemoveFile(const FileName& name) {
  Existing(name);
  g_Files.erase(name);
  DropHandlesWithoutFile();
}

FileSet Snapshot() { return g_Files; }

void Restore(const FileSet& files) {
  g_Files = files;
  DropHandlesWithoutFile();
}

size_t OpenHandles() { return g_Handles.size(); }
void DropHandles() { g_Handles.clear(); }

namespace {

constexpr uint32_t kGenericRead = 0x80000000;
constexpr uint32_t kGenericWrite = 0x40000000;

bool HasUnpairedSurrogate(const FileName& name) {
  const auto isHigh = [](char16_t c) { return c >= 0xD800 && c <= 0xDBFF; };
  const auto isLow = [](char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; };
  for (size_t i = 0; i < name.size(); ++i) {
    if (isHigh(name[i]) && i + 1 < name.size() && isLow(name[i + 1])) {
      ++i;
    } else if (isHigh(name[i]) || isLow(name[i])) {
      return true;
    }
  }
  return false;
}

bool IsOpen(const FileName& name) {
  return std::any_of(g_Handles.begin(), g_Handles.end(),
                     [&](const auto& handle) { return handle.second.name == name; });
}

// Why a name cannot be opened or created now, or kHostNoError.
uint32_t OpenError(const FileName& name, uint32_t disposition) {
  if (name.empty()) return coredll::kHostPathNotFound;
  if (HasUnpairedSurrogate(name)) return coredll::kHostInvalidName;
  switch (disposition) {
    case coredll::kCreateNew:
      return FileExists(name) ? coredll::kHostFileExists : coredll::kHostNoError;
    case coredll::kOpenExisting:
      if (!FileExists(name)) return coredll::kHostFileNotFound;
      return IsOpen(name) ? coredll::kHostSharingViolation : coredll::kHostNoError;
    default:
      return coredll::kHostInvalidParameter;
  }
}

// The open file of a handle, noted in the call's record; null after failing the call.
OpenFile* FileOf(Handle handle, HostCall& call) {
  call.record.handle = handle;
  const auto file = g_Handles.find(handle);
  if (file != g_Handles.end()) {
    call.record.name = file->second.name;
    call.record.position = file->second.position;
    if (!call.fails()) return &file->second;
  } else if (!call.fails()) {
    call.Fail(coredll::kHostInvalidHandle);
  }
  return nullptr;
}

}  // namespace
}  // namespace testhost

namespace orba {
namespace coredll {

using testhost::Call;
using testhost::HostCall;
using testhost::OpenFile;

Handle CreateFileW(const WideChar* name, uint32_t access, uint32_t shareMode, void* security, uint32_t disposition,
                   uint32_t flags, Handle templateFile) {
  HostCall call(Call::kCreateFile);
  if (name != nullptr) call.record.name = name;
  call.record.access = access;
  call.record.shareMode = shareMode;
  call.record.disposition = disposition;
  call.record.flags = flags;
  if (call.fails()) return kInvalidHandle;
  uint32_t error = testhost::OpenError(call.record.name, disposition);
  if (security != nullptr || templateFile != 0) error = kHostInvalidParameter;
  if (error != kHostNoError) {
    call.Fail(error);
    return kInvalidHandle;
  }
  testhost::g_Files[call.record.name];
  const Handle handle = testhost::g_NextHandle++;
  testhost::g_Handles[handle] = {call.record.name, 0, access};
  call.record.handle = handle;
  return handle;
}

int32_t ReadFile(Handle file, void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  HostCall call(Call::kReadFile);
  call.record.count = count;
  if (done != nullptr) *done = 0;
  OpenFile* open = testhost::FileOf(file, call);
  if (open == nullptr) return 0;
  if (done == nullptr || overlapped != nullptr || (buffer == nullptr && count != 0)) {
    return call.Fail(kHostInvalidParameter);
  }
  if ((open->access & testhost::kGenericRead) == 0) return call.Fail(kHostAccessDenied);
  const size_t read = testhost::Existing(open->name).Read(open->position, buffer, std::min(count, call.limit()));
  open->position += read;
  *done = static_cast<uint32_t>(read);
  call.record.done = *done;
  return 1;
}

int32_t WriteFile(Handle file, const void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  HostCall call(Call::kWriteFile);
  call.record.count = count;
  if (done != nullptr) *done = 0;
  call.NoteData(buffer, count);
  OpenFile* open = testhost::FileOf(file, call);
  if (open == nullptr) return 0;
  if (done == nullptr || overlapped != nullptr || (buffer == nullptr && count != 0)) {
    return call.Fail(kHostInvalidParameter);
  }
  if ((open->access & testhost::kGenericWrite) == 0) return call.Fail(kHostAccessDenied);
  const uint32_t written = std::min(count, call.limit());
  testhost::Existing(open->name).Write(open->position, buffer, written);
  testhost::RecordInJournals(open->name, open->position, buffer, written);
  if (call.Tears()) return 0;
  open->position += written;
  *done = written;
  call.record.done = written;
  return 1;
}

uint32_t SetFilePointer(Handle file, int32_t distance, int32_t* distanceHigh, uint32_t method) {
  HostCall call(Call::kSetFilePointer);
  call.record.distance = distance;
  call.record.method = method;
  OpenFile* open = testhost::FileOf(file, call);
  if (open == nullptr) return kInvalidPosition;
  int64_t position = distance;
  if (method == kFileCurrent) position += static_cast<int64_t>(open->position);
  if (method == kFileEnd) position += static_cast<int64_t>(testhost::Existing(open->name).size());
  uint32_t error = kHostNoError;
  if (position < 0) error = kHostNegativeSeek;
  // Without the high word the result must tell a position from a failure.
  if (position >= kInvalidPosition || method > kFileEnd || distanceHigh != nullptr) error = kHostInvalidParameter;
  if (error != kHostNoError) {
    call.Fail(error);
    return kInvalidPosition;
  }
  open->position = static_cast<uint64_t>(position);
  call.record.done = static_cast<uint32_t>(position);
  return call.record.done;
}

int32_t FlushFileBuffers(Handle file) {
  HostCall call(Call::kFlushFileBuffers);
  return testhost::FileOf(file, call) != nullptr;
}

uint32_t GetFileSize(Handle file, uint32_t* sizeHigh) {
  HostCall call(Call::kGetFileSize);
  OpenFile* open = testhost::FileOf(file, call);
  if (open == nullptr) return kInvalidSize;
  if (sizeHigh != nullptr) {
    call.Fail(kHostInvalidParameter);
    return kInvalidSize;
  }
  call.record.done = static_cast<uint32_t>(testhost::Existing(open->name).size());
  return call.record.done;
}

int32_t CloseHandle(Handle file) {
  HostCall call(Call::kCloseHandle);
  const bool closed = testhost::FileOf(file, call) != nullptr;
  testhost::g_Handles.erase(file);
  return closed;
}

}  // namespace coredll
}  // namespace orba

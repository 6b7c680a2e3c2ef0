#include "storage/container.h"

#include "base/error.h"
#include "storage/memory_file.h"

extern "C" {
OrbU32 g_dwReadCount;
OrbU32 g_dwReadTime;
OrbU32 g_dwWriteCount;
OrbU32 g_dwWriteTime;
OrbU32 g_dwSeekCount;
OrbU32 g_dwSeekTime;
}

namespace orba {

namespace {

constexpr WideText kMemoryFileName("??MEM??");

// Exact, letter case included: "??mem??" is a host file.
bool IsMemoryFileName(const WideChar* name) {
  uint32_t i = 0;
  while (name[i] == kMemoryFileName.text[i]) {
    if (name[i] == 0) return true;
    ++i;
  }
  return false;
}

// The columns of the translation table; flush and close translate as write does.
enum Operation { kCreate, kOpen, kRead, kWrite, kSeek, kGetSize };
constexpr uint32_t kOperations = kGetSize + 1;

constexpr uint8_t Low(uint32_t code) { return static_cast<uint8_t>(code); }  // every code here is 0x300000xx

// What a host code means to each operation; 0 stands for the operation's default, and so does every code without a row.
struct HostCodeRow {
  uint16_t host;
  uint8_t code[kOperations];
};

constexpr HostCodeRow Row(uint32_t host, uint32_t create, uint32_t open, uint32_t read, uint32_t write, uint32_t seek,
                          uint32_t getSize) {
  return {static_cast<uint16_t>(host), {Low(create), Low(open), Low(read), Low(write), Low(seek), Low(getSize)}};
}

constexpr HostCodeRow Everywhere(uint32_t host, uint32_t code) { return Row(host, code, code, code, code, code, code); }

constexpr uint8_t kDefault[kOperations] = {Low(ORB_ERROR_CANNOT_CREATE), Low(ORB_ERROR_CANNOT_OPEN),
                                           Low(ORB_ERROR_READ),          Low(ORB_ERROR_WRITE),
                                           Low(ORB_ERROR_READ),          Low(ORB_ERROR_READ)};

constexpr uint32_t kBadHandle = ORB_ERROR_DAMAGED_RECORD;  // the code doubles as "invalid handle or parameter"

constexpr HostCodeRow kHostCodes[] = {
    Row(coredll::kHostFileNotFound, 0, ORB_ERROR_FILE_NOT_FOUND, 0, 0, 0, 0),
    Row(coredll::kHostPathNotFound, ORB_ERROR_PATH_NOT_FOUND, ORB_ERROR_PATH_NOT_FOUND, 0, 0, 0, 0),
    Row(coredll::kHostTooManyOpenFiles, 0, ORB_ERROR_TOO_MANY_OPEN_FILES, 0, 0, 0, 0),
    Row(coredll::kHostAccessDenied, 0, ORB_ERROR_ACCESS_DENIED, ORB_ERROR_ACCESS_DENIED, ORB_ERROR_ACCESS_DENIED,
        ORB_ERROR_ACCESS_DENIED, ORB_ERROR_ACCESS_DENIED),
    Row(coredll::kHostInvalidHandle, 0, 0, kBadHandle, kBadHandle, kBadHandle, kBadHandle),
    Everywhere(coredll::kHostNotEnoughMemory, ORB_ERROR_OUT_OF_MEMORY),
    Everywhere(coredll::kHostOutOfMemory, ORB_ERROR_OUT_OF_MEMORY),
    Row(coredll::kHostWriteProtected, ORB_ERROR_WRITE_PROTECTED, ORB_ERROR_WRITE_PROTECTED, 0,
        ORB_ERROR_WRITE_PROTECTED, 0, 0),
    Everywhere(coredll::kHostNotReady, ORB_ERROR_NOT_READY),
    Row(coredll::kHostSharingViolation, 0, ORB_ERROR_CONTAINER_IN_USE, 0, 0, 0, 0),
    Row(coredll::kHostFileExists, ORB_ERROR_FILE_EXISTS, 0, 0, 0, 0, 0),
    Row(coredll::kHostInvalidParameter, 0, 0, 0, 0, kBadHandle, 0),
    Row(coredll::kHostDiskFull, 0, 0, 0, ORB_ERROR_DISK_FULL, 0, 0),
    Row(coredll::kHostInvalidName, ORB_ERROR_INVALID_NAME, ORB_ERROR_INVALID_NAME, 0, 0, 0, 0),
    Everywhere(coredll::kHostRequestAborted, ORB_ERROR_ABORTED),
};

// Sets the library's code for what the host reports.
void SetHostFailure(Operation operation) {
  const uint32_t host = coredll::GetLastError();
  uint8_t code = 0;
  for (const HostCodeRow& row : kHostCodes) {
    if (row.host == host) code = row.code[operation];
  }
  SetFailure(code != 0 ? code : kDefault[operation]);
}

inline bool FailAsHost(Operation operation) {
  SetHostFailure(operation);
  return false;
}

// Counts a call that began at `start` and is over now.
void CountCall(OrbU32* count, OrbU32* time, uint32_t start) {
  *time += coredll::GetTickCount() - start;
  ++*count;
}

coredll::Handle OpenHostFile(const WideChar* name, uint32_t disposition) {
  return coredll::CreateFileW(name, coredll::kGenericReadWrite, 0, nullptr, disposition, coredll::kRandomAccess, 0);
}

}  // namespace

bool ContainerCreate(const WideChar* name) {
  if (IsMemoryFileName(name)) return MemFileCreate();
  const coredll::Handle file = OpenHostFile(name, coredll::kCreateNew);
  if (file == coredll::kInvalidHandle || !coredll::CloseHandle(file)) return FailAsHost(kCreate);
  return true;
}

uint32_t ContainerOpen(const WideChar* name) {
  if (IsMemoryFileName(name)) return kMemoryFile;
  const coredll::Handle file = OpenHostFile(name, coredll::kOpenExisting);
  if (file != coredll::kInvalidHandle) return file;
  FailAsHost(kOpen);
  return kNoContainer;
}

bool ContainerRead(uint32_t container, void* buffer, uint32_t count, uint32_t* done) {
  if (container == kMemoryFile) return MemFileRead(buffer, count, done);
  const uint32_t start = coredll::GetTickCount();
  const int32_t read = coredll::ReadFile(container, buffer, count, done, nullptr);
  CountCall(&g_dwReadCount, &g_dwReadTime, start);
  return read != 0 || FailAsHost(kRead);
}

bool ContainerWrite(uint32_t container, const void* buffer, uint32_t count, uint32_t* done) {
  if (container == kMemoryFile) return MemFileWrite(buffer, count, done);
  const uint32_t start = coredll::GetTickCount();
  const int32_t written = coredll::WriteFile(container, buffer, count, done, nullptr);
  CountCall(&g_dwWriteCount, &g_dwWriteTime, start);
  if (written == 0) return FailAsHost(kWrite);
  return *done == count || Fail(ORB_ERROR_WRITE);
}

uint32_t ContainerSeek(uint32_t container, int32_t distance, uint32_t method) {
  if (container == kMemoryFile) return MemFileSeek(distance, method);
  const uint32_t start = coredll::GetTickCount();
  const uint32_t position = coredll::SetFilePointer(container, distance, nullptr, method);
  CountCall(&g_dwSeekCount, &g_dwSeekTime, start);
  if (position == coredll::kInvalidPosition) FailAsHost(kSeek);
  return position;
}

bool ContainerFlush(uint32_t container) {
  if (container == kMemoryFile) return true;
  return coredll::FlushFileBuffers(container) != 0 || FailAsHost(kWrite);
}

uint32_t ContainerGetSize(uint32_t container) {
  if (container == kMemoryFile) return MemFileGetSize();
  const uint32_t size = coredll::GetFileSize(container, nullptr);
  if (size == coredll::kInvalidSize) FailAsHost(kGetSize);
  return size;
}

bool ContainerClose(uint32_t container) {
  if (container == kMemoryFile) return true;
  return coredll::CloseHandle(container) != 0 || FailAsHost(kWrite);
}

}  // namespace orba

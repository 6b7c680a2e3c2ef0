#include "bench/trace/host.h"

#include <cstring>

#include "platform/coredll.h"

namespace {

std::vector<bench::Call>* g_calls;
std::vector<char> g_bytes;
std::uint32_t g_position;
constexpr orba::coredll::Handle kFile = 1;

void Record(bench::Access access, std::uint32_t count = 0) {
  if (g_calls != nullptr) g_calls->push_back({access, g_position, count});
}

}  // namespace

void bench::RecordCalls(std::vector<Call>* calls) { g_calls = calls; }

namespace orba::coredll {

Handle CreateFileW(const WideChar*, uint32_t, uint32_t, void*, uint32_t disposition, uint32_t, Handle) {
  const bool create = disposition == kCreateNew;
  if (create) g_bytes.clear();
  g_position = 0;
  Record(create ? bench::Access::kCreate : bench::Access::kOpen);
  return kFile;
}

int32_t ReadFile(Handle, void* buffer, uint32_t count, uint32_t* done, void*) {
  const std::uint32_t size = GetFileSize(kFile, nullptr);
  const std::uint32_t left = g_position < size ? size - g_position : 0;
  *done = count < left ? count : left;
  Record(bench::Access::kRead, *done);
  if (*done != 0) std::memcpy(buffer, g_bytes.data() + g_position, *done);
  g_position += *done;
  return 1;
}

int32_t WriteFile(Handle, const void* buffer, uint32_t count, uint32_t* done, void*) {
  Record(bench::Access::kWrite, count);
  if (g_bytes.size() < g_position + count) g_bytes.resize(g_position + count);
  std::memcpy(g_bytes.data() + g_position, buffer, count);
  g_position += count;
  *done = count;
  return 1;
}

uint32_t SetFilePointer(Handle, int32_t distance, int32_t*, uint32_t method) {
  const std::uint32_t origin = method == kFileBegin     ? 0
                               : method == kFileCurrent ? g_position
                                                        : GetFileSize(kFile, nullptr);
  return g_position = origin + static_cast<std::uint32_t>(distance);
}

int32_t FlushFileBuffers(Handle) {
  Record(bench::Access::kFlush);
  return 1;
}

uint32_t GetFileSize(Handle, uint32_t*) { return static_cast<std::uint32_t>(g_bytes.size()); }

int32_t CloseHandle(Handle) {
  Record(bench::Access::kClose);
  return 1;
}

uint32_t GetLastError() { return kHostGeneralFailure; }

uint32_t GetTickCount() { return 0; }

void GetSystemTime(SystemTime* now) { *now = {2024, 1, 1, 1, 0, 0, 0, 0}; }

Module LoadLibraryW(const WideChar*) { return nullptr; }
Procedure GetProcAddressW(Module, const WideChar*) { return nullptr; }
int32_t FreeLibrary(Module) { return 0; }

// ASCII is all that the workloads need.
int32_t WideCharToMultiByte(uint32_t, uint32_t, const WideChar* wide, int32_t wideCount, char* out, int32_t outSize,
                            const char*, int32_t*) {
  int32_t count = 0;
  while (count != wideCount && (count == 0 || wideCount >= 0 || wide[count - 1] != 0)) {
    if (count < outSize) out[count] = static_cast<char>(wide[count]);
    ++count;
  }
  return count;
}

int32_t MultiByteToWideChar(uint32_t, uint32_t, const char* ansi, int32_t ansiCount, WideChar* out, int32_t outCount) {
  int32_t count = 0;
  while (count != ansiCount && (count == 0 || ansiCount >= 0 || ansi[count - 1] != 0)) {
    if (count < outCount) out[count] = static_cast<WideChar>(ansi[count]);
    ++count;
  }
  return count;
}

}  // namespace orba::coredll

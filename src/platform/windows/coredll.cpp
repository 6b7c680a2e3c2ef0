// The device calls on desktop Windows: kernel32 has them all, but for GetProcAddressW.
//
// A kernel handle has 32 significant bits also where HANDLE has 64; to make a HANDLE of them they are sign-extended,
// which keeps INVALID_HANDLE_VALUE what it is.
#include "platform/coredll.h"

#include <windows.h>

namespace orba {
namespace coredll {

namespace {

static_assert(sizeof(WideChar) == sizeof(wchar_t), "wide characters are 16 bits");
static_assert(sizeof(SystemTime) == sizeof(SYSTEMTIME), "the same eight words");

HANDLE ToHost(Handle handle) { return LongToHandle(static_cast<LONG>(handle)); }

Handle FromHost(HANDLE handle) { return HandleToULong(handle); }

constexpr int kMaxProcedureName = 64;

}  // namespace

Handle CreateFileW(const WideChar* name, uint32_t access, uint32_t shareMode, void* security, uint32_t disposition,
                   uint32_t flags, Handle templateFile) {
  return FromHost(::CreateFileW(name, access, shareMode, static_cast<SECURITY_ATTRIBUTES*>(security), disposition,
                                flags, ToHost(templateFile)));
}

int32_t ReadFile(Handle file, void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  DWORD read = 0;
  const BOOL success = ::ReadFile(ToHost(file), buffer, count, &read, static_cast<OVERLAPPED*>(overlapped));
  *done = read;
  return success;
}

int32_t WriteFile(Handle file, const void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  DWORD written = 0;
  const BOOL success = ::WriteFile(ToHost(file), buffer, count, &written, static_cast<OVERLAPPED*>(overlapped));
  *done = written;
  return success;
}

uint32_t SetFilePointer(Handle file, int32_t distance, int32_t* distanceHigh, uint32_t method) {
  LONG high = distanceHigh != nullptr ? *distanceHigh : 0;
  const DWORD position = ::SetFilePointer(ToHost(file), distance, distanceHigh != nullptr ? &high : nullptr, method);
  if (distanceHigh != nullptr) *distanceHigh = high;
  return position;
}

// A program that makes many changes and needs one point at which all are durable sets ORBA_SYNC to "caller", and syncs
// the container itself then.
int32_t FlushFileBuffers(Handle file) {
  wchar_t who[8];
  const DWORD length = ::GetEnvironmentVariableW(L"ORBA_SYNC", who, 8);
  if (length == 6 && ::CompareStringOrdinal(who, -1, L"caller", -1, FALSE) == CSTR_EQUAL) return 1;
  return ::FlushFileBuffers(ToHost(file));
}

uint32_t GetFileSize(Handle file, uint32_t* sizeHigh) {
  DWORD high = 0;
  const DWORD size = ::GetFileSize(ToHost(file), sizeHigh != nullptr ? &high : nullptr);
  if (sizeHigh != nullptr) *sizeHigh = high;
  return size;
}

int32_t CloseHandle(Handle file) { return ::CloseHandle(ToHost(file)); }

uint32_t GetLastError() { return ::GetLastError(); }

uint32_t GetTickCount() { return ::GetTickCount(); }

namespace {

// A program that is to stamp files with another time than the present sets ORBA_CLOCK meanwhile, to six numbers with
// one character between them: "2026-11-21 03:15:09". False, and `now` as it was, with any other number of them.
bool ClockStands(SystemTime* now) {
  wchar_t text[64];
  const DWORD length = ::GetEnvironmentVariableW(L"ORBA_CLOCK", text, 64);
  uint16_t numbers[6] = {};
  uint32_t last = 0;
  for (DWORD i = 0; length < 64 && i < length; i++) {
    const bool digit = text[i] >= L'0' && text[i] <= L'9';
    if (!digit && ++last == 6) return false;
    if (digit) numbers[last] = static_cast<uint16_t>(10 * numbers[last] + (text[i] - L'0'));
  }
  if (last != 5) return false;
  *now = {numbers[0], numbers[1], 0, numbers[2], numbers[3], numbers[4], numbers[5], 0};
  return true;
}

}  // namespace

void GetSystemTime(SystemTime* now) {
  if (ClockStands(now)) return;
  SYSTEMTIME time;
  ::GetSystemTime(&time);
  *now = {time.wYear, time.wMonth,  time.wDayOfWeek, time.wDay,
          time.wHour, time.wMinute, time.wSecond,    time.wMilliseconds};
}

Module LoadLibraryW(const WideChar* name) { return ::LoadLibraryW(name); }

// Desktop Windows looks procedures up by narrow names only. Exported names are ASCII.
Procedure GetProcAddressW(Module module, const WideChar* name) {
  char narrow[kMaxProcedureName];
  if (::WideCharToMultiByte(CP_ACP, 0, name, -1, narrow, kMaxProcedureName, nullptr, nullptr) <= 0) return nullptr;
  return reinterpret_cast<Procedure>(::GetProcAddress(static_cast<HMODULE>(module), narrow));
}

int32_t FreeLibrary(Module module) { return ::FreeLibrary(static_cast<HMODULE>(module)); }

int32_t WideCharToMultiByte(uint32_t codePage, uint32_t flags, const WideChar* wide, int32_t wideCount, char* out,
                            int32_t outSize, const char* defaultChar, int32_t* usedDefault) {
  BOOL used = FALSE;
  const int32_t units = ::WideCharToMultiByte(codePage, flags, wide, wideCount, out, outSize, defaultChar,
                                              usedDefault != nullptr ? &used : nullptr);
  if (usedDefault != nullptr) *usedDefault = used;
  return units;
}

int32_t MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* ansi, int32_t ansiCount, WideChar* out,
                            int32_t outCount) {
  return ::MultiByteToWideChar(codePage, flags, ansi, ansiCount, out, outCount);
}

}  // namespace coredll
}  // namespace orba

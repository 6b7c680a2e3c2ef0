// The seam between the library and its host: the device calls the library makes, under the device's own names and with
// the device's own semantics, and nothing else. Each folder beside this header implements all of them once:
//   ce/       forwards to COREDLL.dll, the real ones
//   windows/  forwards to kernel32
//   posix/    Linux
// Tests link an implementation of their own that keeps its files in memory.
//
// Besides these the library uses malloc, calloc, free and the mem*/str* functions of the C library.
#pragma once

#include <stdint.h>

#include "orba.h"

namespace orba {

using WideChar = OrbWideChar;

// A literal in the host's wide characters, made at compile time: WideText("memfile.dll").text
template <unsigned kSize>
struct WideText {
  WideChar text[kSize];
  constexpr explicit WideText(const char (&literal)[kSize]) : text() {
    for (unsigned i = 0; i < kSize; ++i) text[i] = static_cast<WideChar>(literal[i]);
  }
};

namespace coredll {

// A host file handle. Handles are 32 bits wide on the device; a 64-bit host hands out handles that fit.
using Handle = uint32_t;
constexpr Handle kInvalidHandle = 0xFFFFFFFF;
constexpr uint32_t kInvalidPosition = 0xFFFFFFFF;
constexpr uint32_t kInvalidSize = 0xFFFFFFFF;

constexpr uint32_t kGenericReadWrite = 0xC0000000;
constexpr uint32_t kCreateNew = 1;
constexpr uint32_t kOpenExisting = 3;
constexpr uint32_t kRandomAccess = 0x10000000;
constexpr uint32_t kFileBegin = 0;
constexpr uint32_t kFileCurrent = 1;
constexpr uint32_t kFileEnd = 2;
constexpr uint32_t kAnsiCodePage = 0;

// What GetLastError reports.
enum HostError : uint32_t {
  kHostNoError = 0,
  kHostFileNotFound = 2,
  kHostPathNotFound = 3,
  kHostTooManyOpenFiles = 4,
  kHostAccessDenied = 5,
  kHostInvalidHandle = 6,
  kHostNotEnoughMemory = 8,
  kHostOutOfMemory = 14,
  kHostWriteProtected = 19,
  kHostNotReady = 21,
  kHostGeneralFailure = 31,
  kHostSharingViolation = 32,
  kHostFileExists = 80,
  kHostInvalidParameter = 87,
  kHostDiskFull = 112,
  kHostInsufficientBuffer = 122,
  kHostInvalidName = 123,
  kHostModuleNotFound = 126,
  kHostProcedureNotFound = 127,
  kHostNegativeSeek = 131,
  kHostNoUnicodeTranslation = 1113,
  kHostRequestAborted = 1235,
};

// SYSTEMTIME: eight 16-bit words.
struct SystemTime {
  uint16_t year;
  uint16_t month;
  uint16_t dayOfWeek;
  uint16_t day;
  uint16_t hour;
  uint16_t minute;
  uint16_t second;
  uint16_t milliseconds;
};
static_assert(sizeof(SystemTime) == 16, "the device fills exactly eight words");

using Module = void*;
using Procedure = void (*)();

// Files. A call that fails leaves its reason for GetLastError.
//   CreateFileW   share mode 0 is exclusive: a second open, of any process, fails with kHostSharingViolation.
//                 Result kInvalidHandle on failure.
//   ReadFile      reads at the handle's position and moves it; a read at the end succeeds with fewer bytes, or 0.
//   WriteFile     writes at the handle's position and moves it, extending the file as needed.
//   SetFilePointer  distance is signed 32 bits; a position below 0 fails with kHostNegativeSeek, one past the end is
//                 allowed. Result: the low 32 bits of the new position, kInvalidPosition on failure. `distanceHigh` is
//                 always null here.
//   GetFileSize   result: the low 32 bits of the size, kInvalidSize on failure. `sizeHigh` is always null here.
Handle CreateFileW(const WideChar* name, uint32_t access, uint32_t shareMode, void* security, uint32_t disposition,
                   uint32_t flags, Handle templateFile);
int32_t ReadFile(Handle handle, void* buffer, uint32_t count, uint32_t* done, void* overlapped);
int32_t WriteFile(Handle handle, const void* buffer, uint32_t count, uint32_t* done, void* overlapped);
uint32_t SetFilePointer(Handle handle, int32_t distance, int32_t* distanceHigh, uint32_t method);
int32_t FlushFileBuffers(Handle handle);
uint32_t GetFileSize(Handle handle, uint32_t* sizeHigh);
int32_t CloseHandle(Handle handle);
uint32_t GetLastError();

// Time: milliseconds since an arbitrary start, wrapping; the current UTC time.
uint32_t GetTickCount();
void GetSystemTime(SystemTime* now);

// Libraries. A null result is a failure.
Module LoadLibraryW(const WideChar* name);
Procedure GetProcAddressW(Module module, const WideChar* name);
int32_t FreeLibrary(Module module);

// Text, between 16-bit characters and the ANSI code page. A count of -1 means up to and including the terminator.
// Result: the number of units written, 0 on failure (a result that does not fit: kHostInsufficientBuffer).
// A size of 0 only measures.
int32_t WideCharToMultiByte(uint32_t codePage, uint32_t flags, const WideChar* wide, int32_t wideCount, char* out,
                            int32_t outSize, const char* defaultChar, int32_t* usedDefault);
int32_t MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* ansi, int32_t ansiCount, WideChar* out,
                            int32_t outCount);

}  // namespace coredll
}  // namespace orba

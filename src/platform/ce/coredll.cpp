// The device calls on a device: COREDLL.dll has them under these names, with these semantics and, in 32 bits, with
// these argument sizes.
#include "platform/coredll.h"

extern "C" {
uint32_t CreateFileW(const OrbWideChar* name, uint32_t access, uint32_t shareMode, void* security, uint32_t disposition,
                     uint32_t flags, uint32_t templateFile);
int32_t ReadFile(uint32_t file, void* buffer, uint32_t count, uint32_t* done, void* overlapped);
int32_t WriteFile(uint32_t file, const void* buffer, uint32_t count, uint32_t* done, void* overlapped);
uint32_t SetFilePointer(uint32_t file, int32_t distance, int32_t* distanceHigh, uint32_t method);
int32_t FlushFileBuffers(uint32_t file);
uint32_t GetFileSize(uint32_t file, uint32_t* sizeHigh);
int32_t CloseHandle(uint32_t file);
uint32_t GetLastError(void);
uint32_t GetTickCount(void);
void GetSystemTime(void* now);
void* LoadLibraryW(const OrbWideChar* name);
void* GetProcAddressW(void* module, const OrbWideChar* name);
int32_t FreeLibrary(void* module);
int32_t WideCharToMultiByte(uint32_t codePage, uint32_t flags, const OrbWideChar* wide, int32_t wideCount, char* out,
                            int32_t outSize, const char* defaultChar, int32_t* usedDefault);
int32_t MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* ansi, int32_t ansiCount, OrbWideChar* out,
                            int32_t outCount);
}

namespace orba {
namespace coredll {

static_assert(sizeof(void*) == 4, "handles, modules and procedures are 32 bits wide on the device");

Handle CreateFileW(const WideChar* name, uint32_t access, uint32_t shareMode, void* security, uint32_t disposition,
                   uint32_t flags, Handle templateFile) {
  return ::CreateFileW(name, access, shareMode, security, disposition, flags, templateFile);
}

int32_t ReadFile(Handle file, void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  return ::ReadFile(file, buffer, count, done, overlapped);
}

int32_t WriteFile(Handle file, const void* buffer, uint32_t count, uint32_t* done, void* overlapped) {
  return ::WriteFile(file, buffer, count, done, overlapped);
}

uint32_t SetFilePointer(Handle file, int32_t distance, int32_t* distanceHigh, uint32_t method) {
  return ::SetFilePointer(file, distance, distanceHigh, method);
}

int32_t FlushFileBuffers(Handle file) { return ::FlushFileBuffers(file); }

uint32_t GetFileSize(Handle file, uint32_t* sizeHigh) { return ::GetFileSize(file, sizeHigh); }

int32_t CloseHandle(Handle file) { return ::CloseHandle(file); }

uint32_t GetLastError() { return ::GetLastError(); }

uint32_t GetTickCount() { return ::GetTickCount(); }

void GetSystemTime(SystemTime* now) { ::GetSystemTime(now); }

Module LoadLibraryW(const WideChar* name) { return ::LoadLibraryW(name); }

Procedure GetProcAddressW(Module module, const WideChar* name) {
  return reinterpret_cast<Procedure>(::GetProcAddressW(module, name));
}

int32_t FreeLibrary(Module module) { return ::FreeLibrary(module); }

int32_t WideCharToMultiByte(uint32_t codePage, uint32_t flags, const WideChar* wide, int32_t wideCount, char* out,
                            int32_t outSize, const char* defaultChar, int32_t* usedDefault) {
  return ::WideCharToMultiByte(codePage, flags, wide, wideCount, out, outSize, defaultChar, usedDefault);
}

int32_t MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* ansi, int32_t ansiCount, WideChar* out,
                            int32_t outCount) {
  return ::MultiByteToWideChar(codePage, flags, ansi, ansiCount, out, outCount);
}

}  // namespace coredll
}  // namespace orba

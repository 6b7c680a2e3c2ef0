#include "coredll_imports.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "platform/coredll.h"

// C++ headers declare these two in more than one form.
extern "C" char* PlainStrchr(const char* text, int c) __asm__("strchr");
extern "C" char* PlainStrrchr(const char* text, int c) __asm__("strrchr");

namespace device {

namespace {

struct Import {
  const char* name;
  void* address;
};

template <typename Function>
void* AddressOf(Function* function) {
  return reinterpret_cast<void*>(function);
}

namespace coredll = orba::coredll;

// A local table: it is asked for before the program's own initialisers run.
const Import* FindImport(const char* name) {
  static const Import kCoredll[] = {
      {"CloseHandle", AddressOf(coredll::CloseHandle)},
      {"CreateFileW", AddressOf(coredll::CreateFileW)},
      {"FlushFileBuffers", AddressOf(coredll::FlushFileBuffers)},
      {"FreeLibrary", AddressOf(coredll::FreeLibrary)},
      {"GetFileSize", AddressOf(coredll::GetFileSize)},
      {"GetLastError", AddressOf(coredll::GetLastError)},
      {"GetProcAddressW", AddressOf(coredll::GetProcAddressW)},
      {"GetSystemTime", AddressOf(coredll::GetSystemTime)},
      {"GetTickCount", AddressOf(coredll::GetTickCount)},
      {"LoadLibraryW", AddressOf(coredll::LoadLibraryW)},
      {"MultiByteToWideChar", AddressOf(coredll::MultiByteToWideChar)},
      {"ReadFile", AddressOf(coredll::ReadFile)},
      {"SetFilePointer", AddressOf(coredll::SetFilePointer)},
      {"WideCharToMultiByte", AddressOf(coredll::WideCharToMultiByte)},
      {"WriteFile", AddressOf(coredll::WriteFile)},
      {"calloc", AddressOf(calloc)},
      {"free", AddressOf(free)},
      {"malloc", AddressOf(malloc)},
      {"memcmp", AddressOf(memcmp)},
      {"memcpy", AddressOf(memcpy)},
      {"memmove", AddressOf(memmove)},
      {"memset", AddressOf(memset)},
      {"strcat", AddressOf(strcat)},
      {"strchr", AddressOf(PlainStrchr)},
      {"strcmp", AddressOf(strcmp)},
      {"strcpy", AddressOf(strcpy)},
      {"strlen", AddressOf(strlen)},
      {"strncmp", AddressOf(strncmp)},
      {"strncpy", AddressOf(strncpy)},
      {"strrchr", AddressOf(PlainStrrchr)},
  };
  for (const Import& import : kCoredll) {
    if (std::strcmp(import.name, name) == 0) return &import;
  }
  return nullptr;
}

}  // namespace

void* ResolveCoredll(const char* library, const char* name) {
  const Import* import = strcasecmp(library, "COREDLL.dll") == 0 ? FindImport(name) : nullptr;
  return import != nullptr ? import->address : nullptr;
}

}  // namespace device

// "NAME.dll" is libNAME.so: the one in the folder of the object that this code was linked into, else the one on the
// loader's path. Never one in the current directory, which is no place to take code from.
#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "platform/posix/posix.h"

namespace orba {
namespace {

// The loader reports a folder without saying how long it may be: a current directory and a path relative to it.
constexpr size_t kFolderSize = 2 * PATH_MAX;
constexpr size_t kFileSize = NAME_MAX + sizeof "lib.so";

// Makes libNAME.so of "NAME.dll" or "NAME". False for a name that is not a bare file name.
bool SharedObjectName(const WideChar* name, char (&out)[kFileSize]) {
  char base[NAME_MAX + 1];
  if (!posix::Utf8FromWide(name, base, sizeof base) || strchr(base, '/') != nullptr) return false;
  char* extension = strrchr(base, '.');
  if (extension != nullptr && strcasecmp(extension, ".dll") == 0) *extension = '\0';
  snprintf(out, sizeof out, "lib%s.so", base);
  return true;
}

// The folder of the program. The loader does not always know it: unless a search path begins there, it never asked.
bool ProgramFolder(char* out) {
  const ssize_t length = readlink("/proc/self/exe", out, kFolderSize - 1);
  if (length <= 0) return false;
  out[length] = '\0';
  char* slash = strrchr(out, '/');
  if (slash == nullptr) return false;
  *slash = '\0';
  return true;
}

// The folder from which the object that holds this function was loaded, whatever became of the current directory since.
bool OwnFolder(char* out) {
  static const char anchor = 0;
  Dl_info info;
  link_map* map = nullptr;
  if (dladdr1(&anchor, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0 || map == nullptr) return false;
  if (map->l_name[0] == '\0') return ProgramFolder(out);
  void* self = dlopen(map->l_name, RTLD_LAZY | RTLD_NOLOAD);
  if (self == nullptr) return false;
  const bool found = dlinfo(self, RTLD_DI_ORIGIN, out) == 0;
  dlclose(self);
  return found;
}

}  // namespace

coredll::Module coredll::LoadLibraryW(const WideChar* name) {
  if (name == nullptr || name[0] == 0) {
    posix::SetLastError(kHostInvalidParameter);
    return nullptr;
  }
  char file[kFileSize];
  char folder[kFolderSize];
  char path[kFolderSize + sizeof file];
  Module module = nullptr;
  if (SharedObjectName(name, file)) {
    if (OwnFolder(folder)) {
      snprintf(path, sizeof path, "%s/%s", folder, file);
      module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    }
    if (module == nullptr) module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  }
  if (module == nullptr) posix::SetLastError(kHostModuleNotFound);
  return module;
}

coredll::Procedure coredll::GetProcAddressW(Module module, const WideChar* name) {
  if (module == nullptr || name == nullptr) {
    posix::SetLastError(module == nullptr ? kHostInvalidHandle : kHostInvalidParameter);
    return nullptr;
  }
  char symbol[NAME_MAX + 1];
  void* address = posix::Utf8FromWide(name, symbol, sizeof symbol) ? dlsym(module, symbol) : nullptr;
  if (address == nullptr) posix::SetLastError(kHostProcedureNotFound);
  return reinterpret_cast<Procedure>(address);
}

int32_t coredll::FreeLibrary(Module module) {
  if (module == nullptr) return posix::Fail(kHostInvalidHandle);
  return dlclose(module) == 0 ? 1 : posix::Fail(kHostModuleNotFound);
}

}  // namespace orba

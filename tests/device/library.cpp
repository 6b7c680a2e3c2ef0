// The device's library calls, in an ARM Linux process: libraries are device images from the program's own folder. A
// library loaded twice is loaded once and counted.
#include <map>
#include <string>

#include "coredll_imports.h"
#include "pe_loader.h"
#include "platform/coredll.h"
#include "platform/posix/posix.h"
#include "program_folder.h"

namespace orba {

namespace {

struct Library {
  device::Image* image;
  int references;
};

std::map<std::string, Library>& Libraries() {
  static std::map<std::string, Library> libraries;
  return libraries;
}

// Names of libraries and procedures are ASCII; "" stands for one that is not.
std::string Narrow(const WideChar* wide) {
  std::string narrow;
  for (; *wide != 0; ++wide) {
    if (*wide > 0x7F) return "";
    narrow += static_cast<char>(*wide);
  }
  return narrow;
}

}  // namespace

coredll::Module coredll::LoadLibraryW(const WideChar* name) {
  const std::string file = Narrow(name);
  const auto loaded = Libraries().find(file);
  if (loaded != Libraries().end()) {
    ++loaded->second.references;
    return loaded->second.image;
  }
  std::string error;
  device::Image* image =
      device::LoadImage(device::ProgramFolder() + "/" + file, nullptr, device::ResolveCoredll, &error);
  if (image == nullptr) {
    posix::SetLastError(kHostModuleNotFound);
    return nullptr;
  }
  Libraries()[file] = {image, 1};
  return image;
}

coredll::Procedure coredll::GetProcAddressW(Module module, const WideChar* name) {
  void* address = device::FindExport(*static_cast<device::Image*>(module), Narrow(name).c_str());
  if (address == nullptr) posix::SetLastError(kHostProcedureNotFound);
  return reinterpret_cast<Procedure>(address);
}

int32_t coredll::FreeLibrary(Module module) {
  for (auto library = Libraries().begin(); library != Libraries().end(); ++library) {
    if (library->second.image != module) continue;
    if (--library->second.references == 0) {
      device::UnloadImage(library->second.image);
      Libraries().erase(library);
    }
    return 1;
  }
  posix::SetLastError(kHostInvalidHandle);
  return 0;
}

}  // namespace orba

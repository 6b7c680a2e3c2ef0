// Loads orba.dll from the program's folder before main and binds the import table to it, so that a program written for
// the library's header alone runs against a device image unchanged.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "coredll_imports.h"
#include "pe_loader.h"
#include "program_folder.h"

namespace {

struct TableEntry {
  const char* name;  // null ends the table
  void* address;     // functions: the slot to fill; data: where the program was linked to find it
  int isData;
};

[[noreturn]] void Stop(const std::string& reason) {
  std::fprintf(stderr, "orba.dll: %s\n", reason.c_str());
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

extern "C" const TableEntry orba_import_table[];

namespace {

void Bind(const device::Image& image, const TableEntry& entry) {
  void* exported = device::FindExport(image, entry.name);
  if (exported == nullptr) Stop(std::string("does not export ") + entry.name);
  if (entry.isData == 0) {
    *static_cast<void**>(entry.address) = exported;
  } else if (entry.address != exported) {
    Stop(std::string(entry.name) + " is not where this program was linked to find it");
  }
}

// Ahead of every other initialiser of the program, any of which may call the library.
__attribute__((constructor(101))) void ImportOrba() {
  std::string error;
  const device::Image* image = device::LoadImage(
      device::ProgramFolder() + "/orba.dll", reinterpret_cast<void*>(ORBA_DLL_ADDRESS), device::ResolveCoredll, &error);
  if (image == nullptr) Stop(error);
  for (const TableEntry* entry = orba_import_table; entry->name != nullptr; ++entry) Bind(*image, *entry);
}

}  // namespace

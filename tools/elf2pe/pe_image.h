// Second layer of elf2pe: turns a linked ELF image into a PE32 DLL for Windows CE. Stands on the ELF image and the
// export list.
//
// What the ELF image must look like (device.ld and import_stub.inc see to it):
//   .text, .rdata, .data, .idata   in this order, each but .text optional, on consecutive pages; the image base lies
//                                  one page below .text and is a multiple of 64 KiB
//   .idata                         nothing but import slots: one word each, named __imp_<imported name>
// What comes of it: the same sections at the same addresses, .idata grown by the import tables, then .edata and .reloc.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "elf_image.h"
#include "export_list.h"

namespace elf2pe {

struct PeOptions {
  uint16_t machine;         // pe::kMachineArm, kMachineThumb or kMachineArmThumb2
  uint16_t subsystemMajor;  // the Windows CE version the image asks for
  uint16_t subsystemMinor;
  std::string importLibrary;  // every import comes from this one library
};

// Returns the whole file. The same input gives the same bytes: the time stamps in it are 0.
// Throws ConvertError where the image is not as above or an export is not in it (functions in .text, data in .data).
std::vector<uint8_t> BuildPe(const ElfImage& elf, const ExportList& exports, const PeOptions& options);

}  // namespace elf2pe
